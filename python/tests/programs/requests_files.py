import sys
import requests

with open(__file__, "rb") as source:
    r = requests.post(sys.argv[1] + "/post", files={"file": ("report.csv", "some,data\n"), "text": source}, data={"a": "1"})
print(r.json()["files"]["file"], r.json()["files"]["text"] == open(__file__).read(), r.json()["form"])
