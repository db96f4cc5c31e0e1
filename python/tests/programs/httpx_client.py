import sys
import httpx

with httpx.Client(base_url=sys.argv[1], headers={"X-Own": "1"}, timeout=10.0, follow_redirects=True) as client:
    print(client.get("/headers").json()["headers"]["X-Own"])
    print(client.get("/redirect/1").status_code)
    print(client.request("PATCH", "/patch", json=[1]).json()["json"])
    try:
        client.get("/status/500").raise_for_status()
    except httpx.HTTPStatusError as error:
        print(error.response.status_code)
    try:
        client.get("http://127.0.0.1:1/")
    except httpx.RequestError as error:
        print(isinstance(error, httpx.ConnectError))
