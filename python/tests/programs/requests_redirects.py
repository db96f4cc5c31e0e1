import sys
import requests

r = requests.get(sys.argv[1] + "/redirect/2")
print(r.status_code, [hop.status_code for hop in r.history], r.url == sys.argv[1] + "/get")
r = requests.get(sys.argv[1] + "/redirect/1", allow_redirects=False)
print(r.status_code, r.is_redirect, r.history)
try:
    requests.get(sys.argv[1] + "/redirect/31")
except requests.TooManyRedirects:
    print("too many")
