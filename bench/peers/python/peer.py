"""What the peers in Python share. Their arguments, and the line of figures that each prints, are those of Peer.h:

    python3 peer_NAME.py JOB URL [NAME=VALUE...]

    memory        GET; in the end the content is in memory in one piece
    file          GET into file=FILE
    upload        PUT of size=BYTES: from a buffer if piece=BYTES is the same, else from a generator of such pieces

    count=N       as many requests, one after the other, on a connection that is kept
    jobs=N        memory: N of them at a time
    check=1       the checksum of what is received

Each peer is a class with the operations of `Peer`, whose object is made before the time begins.
"""
import json
import os
import pathlib
import resource
import sys
import time
import zlib

PERIOD = bytes((at * 7 + (at >> 8) * 13) & 255 for at in range(251 << 10))  # bench/Content.h makes the same
CHUNK = 1 << 20  # of peers that are asked for pieces of a size: larger ones are not quicker


def content_of(size):
    return b"".join([PERIOD] * (size // len(PERIOD)) + [PERIOD[: size % len(PERIOD)]])


class Received:
    """Counts bytes; where `check` is set also their CRC-32."""

    def __init__(self, check):
        self.check, self.bytes, self.checksum = check, 0, 0

    def take(self, content):
        self.bytes += len(content)
        if self.check:
            self.checksum = zlib.crc32(content, self.checksum)


class Peer:
    """Each operation is a whole exchange, and raises an exception unless its status is 200."""

    def memory(self, url):
        """Returns the content."""
        raise NotImplementedError

    def file(self, url, file):
        raise NotImplementedError

    def upload(self, url, content):
        """Sends a buffer or a generator; returns the server's answer."""
        raise NotImplementedError

    def many(self, urls, jobs, take):
        """`take` gets each content."""
        raise NotImplementedError

    def play(self, operation, count, take):
        for _ in range(count):
            take(operation())

    def close(self):
        pass


class AsyncPeer(Peer):
    """The same with operations that are awaited, on one event loop. `start` is awaited before the time begins, `stop`
    after it has ended."""

    def __init__(self):
        import asyncio

        self.loop = asyncio.new_event_loop()
        self.loop.run_until_complete(self.start())

    def play(self, operation, count, take):
        async def run():
            for _ in range(count):
                take(await operation())

        self.loop.run_until_complete(run())

    def close(self):
        self.loop.run_until_complete(self.stop())


async def gather(get, urls, jobs, take):
    """As many tasks as there are jobs, which share the URLs."""
    import asyncio

    left = iter(urls)

    async def work():
        for url in left:
            take(await get(url))

    await asyncio.gather(*[work() for _ in range(jobs)])


def expect(condition, text):
    if not condition:
        raise SystemExit(f"{sys.argv[0]}: {text}")


def peak():
    """Not ru_maxrss, which begins with what the program had that started this one."""
    status = pathlib.Path("/proc/self/status").read_text()
    return int(status.partition("VmHWM:")[2].split()[0])  # KiB


def cpu():
    usage = resource.getrusage(resource.RUSAGE_SELF)
    return usage.ru_utime + usage.ru_stime


def main(make):
    job, url, *more = sys.argv[1:]
    settings = {"count": "1", "jobs": "1", "check": "0", "size": "0", "piece": "65536", "file": os.devnull, "sized": "0"}
    for argument in more:
        name, _, value = argument.partition("=")
        expect(name in settings, f'there is no setting "{name}"')
        settings[name] = value
    count, jobs, size, piece = (int(settings[name]) for name in ("count", "jobs", "size", "piece"))
    received, answers = Received(settings["check"] != "0"), []
    part = content_of(min(piece, size))

    def pieces():
        for _ in range(size // piece):
            yield part
        if size % piece:
            yield part[: size % piece]

    peer = make()
    operations = {
        "memory": (lambda: peer.memory(url), received.take),
        "file": (lambda: peer.file(url, settings["file"]), lambda _: None),
        "upload": (lambda: peer.upload(url, part if piece >= size else pieces()), answers.append),
    }
    expect(job in operations, f'there is no job "{job}"')
    begin, spent = time.perf_counter(), cpu()
    if jobs > 1:
        peer.many([url] * count, jobs, received.take)
    else:
        operation, take = operations[job]
        peer.play(operation, count, take)
    seconds, spent = time.perf_counter() - begin, cpu() - spent
    peer.close()
    print(json.dumps({"seconds": seconds, "cpu": spent, "peak": peak(), "bytes": received.bytes,
                      "checksum": received.checksum, "answer": answers[-1] if answers else ""}))
