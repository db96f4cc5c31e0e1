#!/usr/bin/env python3
"""Tables and plots of what bench/run has measured.

    bench/figures.py [--page] [RESULTS...]

It prints the tables of build/bench/results.json, or of other files, one after the other. With --page it writes them into
docs/performance.md, between the two comments there, and the plots into docs/pictures/.
"""
import json
import pathlib
import statistics
import sys

sys.dont_write_bytecode = True
import plots
from jobs import size_text

ROOT = pathlib.Path(__file__).resolve().parent.parent
BEGIN, END = "<!-- figures: bench/figures.py writes what follows -->", "<!-- end of figures -->"
PROCESSES = ("processes", "lines", "dry")  # groups of jobs of whole processes


def spread(values):
    """Half of the range in which the middle half lies."""
    if len(values) < 4:
        return (max(values) - min(values)) / 2
    first, _, third = statistics.quantiles(values, n=4)
    return (third - first) / 2


def short(value):
    return f"{value:.2f}" if value < 10 else f"{value:,.0f}" if value >= 100 else f"{value:.1f}"


def table(header, rows):
    lines = ["| " + " | ".join(header) + " |", "|" + "---|" * len(header)]
    return "\n".join(lines + ["| " + " | ".join(row) + " |" for row in rows])


def cells(job, titles, cell):
    return [cell(job["results"][name]) if name in job["results"] else "" for name in titles]


def titles_of(results, jobs):
    """The columns: all that have played at least one of the jobs."""
    group = jobs[0]["group"]
    titles = results[group if group == "python" else "processes" if group in PROCESSES else "peers"]
    return {name: title for name, title in titles.items() if any(name in job["results"] for job in jobs)}


def section(results, jobs, title):
    """One table each of time, of CPU time at both ends, and of memory."""
    titles = titles_of(results, jobs)
    header = [title, *titles.values()]

    def ratios(key, with_spread):
        rows = []
        for job in jobs:
            base = statistics.median(job["results"][job["baseline"]][key]) if job["baseline"] in job["results"] else 0

            def cell(figures):
                if base == 0:
                    return "–"
                ratio = f"{statistics.median(figures[key]) / base:.2f}"
                return ratio + (f" ±{spread(figures[key]) / base:.2f}" if with_spread else "")
            rows.append([job["title"] + rate(job, key, base), *cells(job, titles, cell)])
        return table(header, rows)

    def rate(job, key, base):
        if base == 0:
            return ""
        if job["group"] in ("transfers", "protocols", "python") and job["size"] >= 1 << 16 and key == "seconds":
            return f" (1 = {job['size'] * job['count'] / base / 1e9:.2f} GB/s)"
        if job["count"] > 1 and key == "seconds":
            return f" (1 = {job['count'] / base:,.0f}/s)"
        return f" (1 = {base:.3f} s)" if base >= 0.1 else f" (1 = {base * 1e3:.1f} ms)"

    peaks = [[job["title"], *cells(job, titles, lambda figures: short(statistics.median(figures["peak"]) / 1024))]
             for job in jobs]
    return "\n\n".join([
        "Time by the clock, as a ratio of medians; ± is half of the range that the middle half of the rounds lies in:",
        ratios("seconds", True),
        "CPU time of the client, user and system:", ratios("cpu", False),
        "CPU time of the server:", ratios("server", False),
        "Peak memory of the client's process, in MiB:", table(header, peaks)])


def per_request(job, figures):
    """Seconds of one request, or of the whole list where it is only checked."""
    return statistics.median(figures["seconds"]) / (1 if job["group"] == "dry" else job["count"])


def duration(seconds, number=short):
    for factor, unit in ((1, "s"), (1e3, "ms"), (1e6, "µs")):
        if seconds * factor >= 0.999:
            break
    return f"{number(seconds * factor)} {unit}"


def series(results, jobs, axis):
    """Medians by place on the axis: time of one request or line, and memory."""
    titles = titles_of(results, jobs)

    def cell(job):
        return lambda figures: (f"{duration(per_request(job, figures))}, "
                                f"{short(statistics.median(figures['peak']) / 1024)} MiB")
    rows = [[job["title"], *cells(job, titles, cell(job))] for job in jobs]
    return table([axis, *titles.values()], rows)


SECTIONS = [
    ("transfers", "Transfers", lambda results, jobs: section(results, jobs, "Job")),
    ("processes", "Whole processes", lambda results, jobs: section(results, jobs, "Job")),
    ("python", "In Python", lambda results, jobs: section(results, jobs, "Job")),
    ("protocols", "TLS and HTTP/2", lambda results, jobs: section(results, jobs, "Job")),
    ("scopes", "Several clients at a time", lambda results, jobs: section(results, jobs, "Job")),
    ("size", "By size: time and peak memory of one request", lambda results, jobs: series(results, jobs, "Content")),
    ("fields", "By number of fields: time and peak memory of one request",
     lambda results, jobs: series(results, jobs, "Fields")),
    ("lines", "By number of files: time of one file, and peak memory",
     lambda results, jobs: series(results, jobs, "List")),
    ("dry", "By number of lines that are only checked: time and peak memory",
     lambda results, jobs: series(results, jobs, "List")),
]


def tables(results, heading="##"):
    parts = []
    for group, title, make in SECTIONS:
        jobs = [job for job in results["jobs"] if job["group"] == group]
        if jobs:
            parts += [f"{heading} {title}", make(results, jobs)]
    return "\n\n".join(parts)


# Plots

def bar_panel(results, job, key, text, reference):
    titles = titles_of(results, [job])
    scale = statistics.median(job["results"][job["baseline"]][key]) if reference else 1
    values = [(name, title, statistics.median(job["results"][name][key]) / scale) for name, title in titles.items()]
    return job["title"], [(*bar, text(bar[2])) for bar in values], 1 if reference else None


def line_panel(results, jobs, title, x_text):
    titles = titles_of(results, jobs)
    lines = [(name, label, [(job["x"], per_request(job, job["results"][name])) for job in jobs
                            if name in job["results"]]) for name, label in titles.items()]
    return title, lines, x_text, lambda seconds: duration(seconds, lambda number: f"{number:g}")


def pictures(results):
    """The plots by the names of their files."""
    def group(name):
        return [job for job in results["jobs"] if job["group"] == name]

    def ratio(value):
        return f"{value:.2f}"

    def bar_plot(name, jobs, key, text, reference):
        return {name: plots.bars(BAR_TITLES[name], [bar_panel(results, job, key, text, reference) for job in jobs])
                } if jobs else {}
    drawn = {}
    for name in ("transfers", "processes", "python", "protocols"):
        compared = [job for job in group(name) if job["baseline"] in job["results"]]
        drawn |= bar_plot(name, compared, "seconds", ratio, True)
    held = [job for job in group("transfers") if job["key"] in ("memory", "consumer")] + group("processes")
    drawn |= bar_plot("memory", held, "peak", lambda kib: f"{short(kib / 1024)} MiB", False)
    panels = [line_panel(results, group(name), title, x_text) for name, title, x_text in GROWTH if group(name)]
    return drawn | ({"growth": plots.lines("How time grows", panels)} if panels else {})


BAR_TITLES = {
    "transfers": "Time of transfers as a ratio to a bare libcurl loop",
    "processes": "Time of whole processes as a ratio to curl",
    "python": "Time in Python as a ratio to netrove::Client in C++",
    "protocols": "Time of transfers with TLS as a ratio to a bare libcurl loop",
    "memory": "Peak memory",
}
GROWTH = [
    ("size", "Time of one GET, by content", size_text),
    ("fields", "Time of one GET, by header fields each way", lambda fields: f"{fields:,}"),
    ("lines", "Time of one file, by files of a list", lambda count: f"{count:,}"),
    ("dry", "Time to check a list, by its lines", lambda count: f"{count:,}"),
    ("scopes", "Time of one of 20,000 GETs, by clients at a time", str),
]
ABOVE = {"transfers": ["transfers", "memory"], "processes": ["processes"], "python": ["python"], "protocols": ["protocols"],
         "size": ["growth"]}


def page_of(results, drawn):
    """The figures of one run; `drawn` are its pictures."""
    parts = [f"Measured on {results['date']} in {results['rounds']} rounds: {results['machine']}. " +
             ", ".join(f"{package} {version}" for package, version in results["versions"].items()) + "."]
    for group, title, make in SECTIONS:
        jobs = [job for job in results["jobs"] if job["group"] == group]
        if jobs:
            parts += [f"## {title}"]
            parts += [f"![{BAR_TITLES.get(name, 'How time grows')}](pictures/{name}.svg)"
                      for name in ABOVE.get(group, []) if name in drawn]
            parts += [make(results, jobs)]
    return parts


def page(runs):
    """Puts the figures where the page has room for them."""
    drawn = [pictures(results) for results in runs]
    parts = [part for results, own in zip(runs, drawn) for part in page_of(results, own)]
    file = ROOT / "docs/performance.md"
    before, _, rest = file.read_text(encoding="utf-8").partition(BEGIN)
    _, found, after = rest.partition(END)
    if not found:
        raise SystemExit(f"{file} has no place for the figures: {BEGIN} ... {END}")
    folder = ROOT / "docs/pictures"
    folder.mkdir(exist_ok=True)
    for name, picture in (item for own in drawn for item in own.items()):
        (folder / f"{name}.svg").write_text(picture, encoding="utf-8")
    file.write_text("\n\n".join([before + BEGIN, *parts, END + after]), encoding="utf-8")


def main():
    arguments = sys.argv[1:]
    to_page = "--page" in arguments
    files = [argument for argument in arguments if argument != "--page"]
    if any(file.startswith("-") for file in files):
        raise SystemExit(f"usage: {__doc__.split(chr(10) * 2)[1].strip()}")
    runs = [json.loads(pathlib.Path(file).read_text()) for file in files or [ROOT / "build/bench/results.json"]]
    if to_page:
        page(runs)
    else:
        print("\n\n".join(map(tables, runs)))


if __name__ == "__main__":
    main()
