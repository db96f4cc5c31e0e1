#!/usr/bin/env python3
"""Tables and plots of what bench/run has measured.

    bench/figures.py [RESULTS]      prints the tables of build/bench/results.json, or of another file
    bench/figures.py --page [...]   writes them into docs/performance.md, and the plots into docs/pictures/
"""
import json
import pathlib
import statistics
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent


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


def cells(job, names, cell):
    return [cell(job["results"][name]) if name in job["results"] else "" for name in names]


def section(results, jobs, title):
    """One table each of time, of CPU time at both ends, and of memory."""
    names = [name for name in results["titles"] if any(name in job["results"] for job in jobs)]
    header = [title, *(results["titles"][name] for name in names)]

    def ratios(key, with_spread):
        rows = []
        for job in jobs:
            base = statistics.median(job["results"][job["baseline"]][key]) if job["baseline"] in job["results"] else 0

            def cell(figures):
                if base == 0:
                    return "–"
                ratio = f"{statistics.median(figures[key]) / base:.2f}"
                return ratio + (f" ±{spread(figures[key]) / base:.2f}" if with_spread else "")
            rows.append([job["title"] + rate(job, key, base), *cells(job, names, cell)])
        return table(header, rows)

    def rate(job, key, base):
        if base == 0:
            return ""
        if job["group"] in ("transfers", "protocols") and job["size"] >= 1 << 16 and key == "seconds":
            return f" (1 = {job['size'] * job['count'] / base / 1e9:.2f} GB/s)"
        if job["count"] > 1 and key == "seconds":
            return f" (1 = {job['count'] / base:,.0f}/s)"
        return f" (1 = {base:.3f} s)" if base >= 0.1 else f" (1 = {base * 1e3:.1f} ms)"

    peaks = [[job["title"], *cells(job, names, lambda figures: short(statistics.median(figures["peak"]) / 1024))]
             for job in jobs]
    return "\n\n".join([
        "Time by the clock, as a ratio of medians; ± is half of the range in which the middle half of the rounds lies:",
        ratios("seconds", True),
        "CPU time of the client, user and system:", ratios("cpu", False),
        "CPU time of the server:", ratios("server", False),
        "Peak memory of the client's process, in MiB:", table(header, peaks)])


def series(results, jobs, axis):
    """Medians by place on the axis: time of one request or line, and memory."""
    names = [name for name in results["titles"] if any(name in job["results"] for job in jobs)]

    def cell(job):
        per = 1 if job["group"] == "dry" else job["count"]

        def text(figures):
            micros = statistics.median(figures["seconds"]) / per * 1e6
            time = f"{micros:,.0f} µs" if micros < 1e4 else f"{micros / 1e3:,.0f} ms" if micros < 1e7 else f"{micros / 1e6:,.0f} s"
            return f"{time}, {short(statistics.median(figures['peak']) / 1024)} MiB"
        return text
    rows = [[job["title"], *cells(job, names, cell(job))] for job in jobs]
    return table([axis, *(results["titles"][name] for name in names)], rows)


SECTIONS = [
    ("transfers", "Transfers", lambda results, jobs: section(results, jobs, "Job")),
    ("processes", "Whole processes", lambda results, jobs: section(results, jobs, "Job")),
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


if __name__ == "__main__":
    arguments = sys.argv[1:]
    file = pathlib.Path(arguments[-1]) if arguments and arguments[-1] != "--page" else ROOT / "build/bench/results.json"
    print(tables(json.loads(file.read_text())))
