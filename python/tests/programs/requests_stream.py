import sys
import requests

with requests.get(sys.argv[1] + "/stream-bytes/10000?seed=1", stream=True) as r:
    r.raise_for_status()
    size = 0
    for chunk in r.iter_content(chunk_size=128):
        assert len(chunk) <= 128
        size += len(chunk)
print(size)
with requests.get(sys.argv[1] + "/bytes/1000?seed=1", stream=True) as r:
    print(len(r.content))
