import sys
import requests

r = requests.post(sys.argv[1] + "/post", data={"key": "value"})
print(r.json()["form"])
r = requests.post(sys.argv[1] + "/post", data=[("key", "a"), ("key", "b")])
print(r.json()["form"])
r = requests.post(sys.argv[1] + "/post", json={"name": "Été", "list": [1, 2]})
print(r.json()["json"], r.json()["headers"]["Content-Type"])
r = requests.put(sys.argv[1] + "/put", data=b"raw bytes")
print(r.json()["data"], r.json()["form"])
print(requests.delete(sys.argv[1] + "/delete").status_code, requests.head(sys.argv[1] + "/get").content)
