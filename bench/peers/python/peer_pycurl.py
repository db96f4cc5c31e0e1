"""pycurl: one handle, and for many at a time a CurlMulti with as many."""
import io

import pycurl
from peer import Peer, expect, main


def check(handle):
    status = handle.getinfo(pycurl.RESPONSE_CODE)
    expect(status == 200, f"status {status}")


class Pycurl(Peer):
    def __init__(self):
        self.handle = pycurl.Curl()

    def memory(self, url):
        content = io.BytesIO()
        self.handle.setopt(pycurl.URL, url)
        self.handle.setopt(pycurl.WRITEDATA, content)
        self.handle.perform()
        check(self.handle)
        return content.getvalue()

    def file(self, url, file):
        with open(file, "wb") as output:
            self.handle.setopt(pycurl.URL, url)
            self.handle.setopt(pycurl.WRITEDATA, output)
            self.handle.perform()
        check(self.handle)

    def upload(self, url, content):
        answer = io.BytesIO()
        self.handle.setopt(pycurl.URL, url)
        self.handle.setopt(pycurl.UPLOAD, 1)
        self.handle.setopt(pycurl.WRITEDATA, answer)
        if isinstance(content, bytes):
            self.handle.setopt(pycurl.INFILESIZE_LARGE, len(content))
            self.handle.setopt(pycurl.READDATA, io.BytesIO(content))
        else:
            self.handle.setopt(pycurl.READFUNCTION, Reader(content).read)
        self.handle.perform()
        check(self.handle)
        return answer.getvalue().decode()

    def many(self, urls, jobs, take):
        left = iter(urls)
        multi = pycurl.CurlMulti()
        contents = {}

        def begin(handle):
            url = next(left, None)
            if url is None:
                return
            contents[handle] = io.BytesIO()
            handle.setopt(pycurl.URL, url)
            handle.setopt(pycurl.WRITEDATA, contents[handle])
            multi.add_handle(handle)

        for handle in [pycurl.Curl() for _ in range(jobs)]:
            begin(handle)
        while contents:
            while multi.perform()[0] == pycurl.E_CALL_MULTI_PERFORM:
                pass
            waiting = 1
            while waiting:
                waiting, ended, failed = multi.info_read()
                expect(not failed, failed)
                for handle in ended:
                    check(handle)
                    take(contents.pop(handle).getvalue())
                    multi.remove_handle(handle)
                    begin(handle)
            if contents:
                multi.select(1.0)


class Reader:
    """Pieces as libcurl has room for them."""

    def __init__(self, pieces):
        self.pieces, self.left = pieces, memoryview(b"")

    def read(self, room):
        if not self.left:
            self.left = memoryview(next(self.pieces, b""))
        part, self.left = self.left[:room], self.left[room:]
        return bytes(part)


main(Pycurl)
