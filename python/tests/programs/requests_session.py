import sys
import requests

with requests.Session() as session:
    session.headers.update({"x-test": "true"})
    session.auth = ("user", "pass")
    session.params = {"always": "1"}
    r = session.get(sys.argv[1] + "/headers", headers={"x-test2": "true"})
    print(r.json()["headers"]["X-Test"], r.json()["headers"]["X-Test2"])
    print(session.get(sys.argv[1] + "/basic-auth/user/pass").json())
    print(session.get(sys.argv[1] + "/get", params={"b": 2}).json()["args"])
print(requests.get(sys.argv[1] + "/cookies", cookies={"cookies_are": "working"}).json())
