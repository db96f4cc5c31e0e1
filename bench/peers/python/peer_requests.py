"""requests: a session, and for many at a time threads that share it."""
import concurrent.futures

import requests
import requests.adapters
from peer import CHUNK, Peer, main


class Requests(Peer):
    def __init__(self):
        self.session = requests.Session()

    def memory(self, url):
        response = self.session.get(url)
        response.raise_for_status()
        return response.content

    def file(self, url, file):
        with self.session.get(url, stream=True) as response, open(file, "wb") as output:
            response.raise_for_status()
            for piece in response.iter_content(CHUNK):
                output.write(piece)

    def upload(self, url, content):
        response = self.session.put(url, data=content)
        response.raise_for_status()
        return response.text

    def many(self, urls, jobs, take):
        self.session.mount("http://", requests.adapters.HTTPAdapter(pool_maxsize=jobs))
        with concurrent.futures.ThreadPoolExecutor(jobs) as threads:
            for content in threads.map(self.memory, urls):
                take(content)


main(Requests)
