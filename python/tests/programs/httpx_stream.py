import sys
import httpx

with httpx.stream("GET", sys.argv[1] + "/stream/3") as r:
    print(r.status_code, sum(1 for line in r.iter_lines() if line))
with httpx.stream("GET", sys.argv[1] + "/range/1000") as r:
    print(sum(len(data) for data in r.iter_bytes()))
with httpx.stream("GET", sys.argv[1] + "/encoding/utf8") as r:
    print(len("".join(r.iter_text())))
with httpx.stream("GET", sys.argv[1] + "/bytes/100") as r:
    print(len(r.read()))
