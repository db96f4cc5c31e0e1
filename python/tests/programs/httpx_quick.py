import sys
import httpx

r = httpx.get(sys.argv[1] + "/get", params={"key": "value"}, headers={"user-agent": "my-app/0.0.1"})
print(r.status_code, r.is_success, r.json()["headers"]["User-Agent"], r.json()["args"])
r = httpx.post(sys.argv[1] + "/post", content=b"Hello, world", headers={"Content-Type": "application/octet-stream"})
print(r.json()["data"])
print(r.headers["Content-Type"], r.headers.get("content-type"), r.reason_phrase, r.http_version)
r = httpx.get(sys.argv[1] + "/gzip")
print(r.json()["gzipped"], r.encoding)
