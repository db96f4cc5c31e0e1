import sys
import requests

r = requests.get(sys.argv[1] + "/get", params={"key1": "value1", "key2": ["value2", "value3"]})
print(r.status_code, r.url.partition("?")[2])
print(r.json()["args"])
print(r.headers["content-type"], r.encoding, r.ok)
print(type(r.content), len(r.text) == len(r.content))
