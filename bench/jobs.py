"""What bench/run plays: the jobs, and who plays them."""
import collections

KIB, MIB, GIB = 1 << 10, 1 << 20, 1 << 30

# What is compared, in the order of the columns: the name of the program peer_NAME, and what people call it.
PEERS = {
    "multi": "bare loop",
    "socket": "raw socket",
    "easy": "libcurl easy",
    "easy512": "libcurl easy, 512 KiB",
    "beast": "Beast",
    "soup": "libsoup",
    "httplib": "cpp-httplib",
    "poco": "Poco",
    "curl": "curl tool",
    "before": "before",
    "netrove": "netrove",
    "netrove_client": "netrove::Client",
}
OURS_AND_LIBCURL = ["multi", "easy", "before", "netrove", "netrove_client"]  # they know TLS and send fields
PROCESSES = {  # the same for jobs of whole processes
    "curl": "curl",
    "aria2c": "aria2c",
    "wget": "wget",
    "before": "before",
    "before-direct": "before, -x none",
    "netrove": "netrove",
    "netrove-direct": "netrove, -x none",
}
PYTHON = {  # and for jobs of Python programs, beside the interface for C++
    "netrove_client": "netrove::Client, C++",
    "python-netrove": "netrove for Python",
    "python-pycurl": "pycurl",
    "python-aiohttp": "aiohttp",
    "python-requests": "requests",
    "python-httpx": "httpx",
}
START = {  # one GET by a program of its own
    "python-netrove": "import netrove; netrove.get({url!r}).content",
    "python-pycurl": "import io, pycurl; c = pycurl.Curl(); c.setopt(pycurl.URL, {url!r}); b = io.BytesIO(); "
                     "c.setopt(pycurl.WRITEDATA, b); c.perform()",
    "python-aiohttp": """
import aiohttp, asyncio
async def get():
    async with aiohttp.ClientSession() as session, session.get({url!r}) as response:
        return await response.read()
asyncio.run(get())""",
    "python-requests": "import requests; requests.get({url!r}).content",
    "python-httpx": "import httpx; httpx.get({url!r}).content",
}

# `group` says in which table or plot the job is; `x` its place on the axis there.
Job = collections.namedtuple(
    "Job", "key title group job size count x peers baseline server settings repeat",
    defaults=(1, None, None, "multi", "plain", {}, 1))


def jobs(quick, everything):
    scale = 32 if quick else 1
    gib, quarter = GIB // scale, 256 * MIB // scale
    small = 20000 // scale
    table = [
        Job("consumer", f"{size_text(gib)} into a consumer that drops it", "transfers", "consumer", gib),
        Job("memory", f"{size_text(quarter)} into memory", "transfers", "memory", quarter),
        Job("file", f"{size_text(gib)} into a file", "transfers", "file", gib),
        Job("upload", f"{size_text(gib)} from a provider, arrays of 64 KiB", "transfers", "upload", gib,
            settings={"piece": 64 * KIB}),
        Job("upload-1m", f"{size_text(gib)} from a provider, arrays of 1 MiB", "transfers", "upload", gib,
            settings={"piece": MIB}),
        Job("small", f"{small:,} GETs of 100 bytes, all on one CPU", "transfers", "memory", 100, small, server="near"),
    ]
    for protocol, title in [("tls", "HTTP/1.1 with TLS"), ("http2", "HTTP/2 with TLS")]:
        table += [
            Job(f"{protocol}-consumer", f"{size_text(quarter)} into a consumer, {title}", "protocols", "consumer",
                quarter, peers=OURS_AND_LIBCURL, server=protocol),
            Job(f"{protocol}-small", f"{small // 10:,} GETs of 100 bytes, {title}", "protocols", "memory", 100,
                small // 10, peers=OURS_AND_LIBCURL, server=protocol),
        ]
    for threads in (1, 2, 4):
        clients = f"{threads} clients on as many threads" if threads > 1 else "1 client"
        table.append(Job(f"scopes-{threads}", f"{small:,} GETs by {clients}", "scopes", "memory", 100, small, threads,
                         OURS_AND_LIBCURL, server="anywhere", settings={"threads": threads}))
    for power in range(10, 31 if not quick else 25, 4):
        size = 1 << power
        count = max(1, min(2000, 256 * MIB // size) // scale)
        table.append(Job(f"size-{size}", f"{size_text(size)} into memory", "size", "memory", size, count, size,
                         ["socket", *OURS_AND_LIBCURL]))
    for fields in (1, 10, 100, 1000):
        table.append(Job(f"fields-{fields}", f"{fields:,} field{'s' if fields > 1 else ''} each way", "fields",
                         "memory", 100, max(20, 4000 // fields) // (4 if quick else 1), fields, OURS_AND_LIBCURL,
                         settings={"fields": fields}))
    files = 5000 // (scale // 2 or 1)
    table += [
        Job("batch", f"{files:,} files of 1 KiB, 8 at a time", "processes", "batch", KIB, files, baseline="curl"),
        Job("get", "one GET of 100 bytes", "processes", "get", 100, baseline="curl", repeat=10),
    ]
    for lines in [100, 1000] + ([] if quick else [10000]) + ([100000] if everything else []):
        table.append(Job(f"lines-{lines}", f"{lines:,} files of 1 KiB by a list", "lines", "batch", KIB, lines, lines,
                         ["curl", "before", "netrove"], "curl"))
    for lines in [100, 10000] + ([] if quick else [100000, 1000000]) + ([10000000] if everything else []):
        table.append(Job(f"dry-{lines}", f"a list of {lines:,} lines, checked only", "dry", "dry", 0, lines, lines,
                         ["before", "netrove"], "netrove"))
    gets = 10000 // scale

    def python(key, title, *what, **more):
        table.append(Job(f"python-{key}", title, "python", *what, None, list(PYTHON), "netrove_client", **more))

    python("file", f"{size_text(gib)} into a file", "file", gib, 1)
    python("memory", f"{size_text(quarter)} into memory", "memory", quarter, 1)
    python("buffer", f"{size_text(gib)} from a buffer", "upload", gib, 1, settings={"piece": gib})
    python("generator", f"{size_text(gib)} from a generator of 64 KiB", "upload", gib, 1,
           settings={"piece": 64 * KIB, "sized": 0})
    python("small", f"{gets:,} GETs, one by one, on one CPU", "memory", 100, gets, server="near")
    python("many", f"{gets:,} GETs, 16 at a time", "memory", 100, gets, settings={"jobs": 16})
    python("get", "a program that makes one GET of 100 bytes", "get", 100, 1, repeat=5)
    return table


def size_text(size):
    for unit, name in ((GIB, "GiB"), (MIB, "MiB"), (KIB, "KiB")):
        if size >= unit:
            return f"{size // unit} {name}"
    return f"{size} bytes"


def expect(condition, text):
    if not condition:
        raise SystemExit(f"bench/run: {text}")
