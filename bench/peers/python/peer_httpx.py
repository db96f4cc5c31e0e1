"""httpx: its client, and for many at a time its client for asyncio."""
import asyncio

import httpx
from peer import Peer, gather, main


def checked(response):
    response.raise_for_status()
    return response


class Httpx(Peer):
    def __init__(self):
        self.client = httpx.Client(timeout=None)

    def memory(self, url):
        return checked(self.client.get(url)).content

    def file(self, url, file):
        with self.client.stream("GET", url) as response, open(file, "wb") as output:
            for piece in checked(response).iter_bytes():
                output.write(piece)

    def upload(self, url, content):
        return checked(self.client.put(url, content=content)).text

    def many(self, urls, jobs, take):
        async def run():
            async with httpx.AsyncClient(timeout=None) as client:

                async def get(url):
                    return checked(await client.get(url)).content

                await gather(get, urls, jobs, take)

        asyncio.run(run())


main(Httpx)
