"""aiohttp: a session on one event loop."""
import aiohttp
from peer import CHUNK, AsyncPeer, gather, main


class Aiohttp(AsyncPeer):
    async def start(self):
        timeout = aiohttp.ClientTimeout(total=None)
        self.session = aiohttp.ClientSession(timeout=timeout, raise_for_status=True)

    async def stop(self):
        await self.session.close()

    async def memory(self, url):
        async with self.session.get(url) as response:
            return await response.read()

    async def file(self, url, file):
        async with self.session.get(url) as response:
            with open(file, "wb") as output:
                async for piece in response.content.iter_chunked(CHUNK):
                    output.write(piece)

    async def upload(self, url, content):
        if not isinstance(content, bytes):
            content = awaited(content)
        async with self.session.put(url, data=content) as response:
            return await response.text()

    def many(self, urls, jobs, take):
        self.loop.run_until_complete(gather(self.memory, urls, jobs, take))


async def awaited(pieces):
    for piece in pieces:
        yield piece


main(Aiohttp)
