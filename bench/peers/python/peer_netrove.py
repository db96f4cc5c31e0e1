"""netrove for Python, with its defaults: it looks for a proxy, and gives a file its name when it is whole."""
import math

import netrove
from peer import Peer, expect, main

ANY = netrove.Limits(memory=math.inf)


class Netrove(Peer):
    def __init__(self):
        self.client = netrove.Client(limits=ANY, check_status=True)

    def memory(self, url):
        return self.client.get(url).content

    def file(self, url, file):
        self.client.save(url, file)

    def upload(self, url, content):
        return self.client.put(url, content=content).text

    def many(self, urls, jobs, take):
        for url, result in self.client.get_all(urls, jobs=jobs, per_host=jobs):
            expect(isinstance(result, netrove.Response), result)
            take(result.content)


main(Netrove)
