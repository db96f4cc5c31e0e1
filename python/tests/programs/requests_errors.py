import sys
import requests

r = requests.get(sys.argv[1] + "/status/404")
print(r.status_code, r.ok, bool(r))
try:
    r.raise_for_status()
except requests.HTTPError as error:
    print("status", error.response.status_code)
try:
    requests.get("http://127.0.0.1:1/")
except requests.ConnectionError:
    print("no connection")
try:
    requests.get(sys.argv[1] + "/delay/5", timeout=0.3)
except requests.Timeout:
    print("too slow")
except requests.RequestException as error:
    print("unexpected", error)
