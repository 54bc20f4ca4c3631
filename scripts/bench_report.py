#!/usr/bin/env python3
"""Makes the table and the plot of what the benchmarks measured.

usage: bench_report.py RESULTS DOCUMENTS
"""

import datetime
import os
import platform
import sys

GOALS = {
    "one hand-off of a.txt, beside QTcpSocket": 1.15,
    "one hand-off of 65,534 bytes": 1.15,
    "a second launch, process start to list in the inbox": 1.2,
    "the same, beside a program that links the same": 1.15,
    "a second launch of the viewer, process start to list in the inbox": 1.1,
    "the same, beside an application without HostKit::Launch": 0.5,
    "a second launch with a parser, beside one without": 1.03,
    "a first launch with its window, beside an application without HostKit::Launch": 1.03,
}

def number(value):
    return f"{value:,.0f}" if value >= 100 else f"{value:.3g}"


def read_handoff(path):
    """Returns the rows (what, ours, floor, unit) and the sizes (bytes, ours, floor)."""
    rows, sizes = [], []
    with open(path, encoding="utf-8") as lines:
        for line in lines:
            fields = line.rstrip("\n").split("\t")
            if fields[0] == "size":
                sizes.append(tuple(float(field) for field in fields[1:]))
            else:
                rows.append((fields[0], float(fields[1]), float(fields[2]), fields[3]))
    return rows, sizes


def table(rows):
    yield "| what | this library | floor | ratio | goal |"
    yield "|---|---:|---:|---:|---:|"
    for what, ours, floor, unit in rows:
        ratio = ours / floor
        held = "" if ratio <= GOALS[what] else " **missed**"
        yield (f"| {what} | {number(ours)} {unit} | {number(floor)} {unit} "
               f"| {ratio:.2f} | ≤ {GOALS[what]}{held} |")


def plot(sizes):
    """Returns an SVG of hand-off time over message size."""
    width, height, left, bottom = 640, 320, 60, 40
    longest = max(size for size, _, _ in sizes)
    slowest = max(max(ours, floor) for _, ours, floor in sizes) * 1.1

    def point(size, time):
        x = left + size / longest * (width - left - 20)
        y = height - bottom - time / slowest * (height - bottom - 20)
        return f"{x:.0f},{y:.0f}"

    def line(values, color):
        points = " ".join(point(size, time) for size, time in values)
        return f'<polyline points="{points}" fill="none" stroke="{color}" stroke-width="2"/>'

    yield (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" '
           'font-family="sans-serif" font-size="12">')
    yield f'<rect width="{width}" height="{height}" fill="white"/>'
    for step in range(5):
        time = slowest * step / 4
        x, y = point(0, time).split(",")
        yield f'<path d="M{x} {y}H{width - 20}" stroke="#ddd"/>'
        yield f'<text x="{left - 8}" y="{int(y) + 4}" text-anchor="end">{time:.0f}</text>'
        x, y = point(longest * step / 4, 0).split(",")
        yield f'<text x="{x}" y="{int(y) + 18}" text-anchor="middle">{longest * step / 4:,.0f}</text>'
    yield line([(size, floor) for size, _, floor in sizes], "#999")
    yield line([(size, ours) for size, ours, _ in sizes], "#1565c0")
    yield f'<text x="{width / 2}" y="14" text-anchor="middle" font-weight="bold">Time of a hand-off over the size of its message</text>'
    yield f'<text x="14" y="{height / 2}" transform="rotate(-90 14 {height / 2})" text-anchor="middle">time, µs</text>'
    yield f'<text x="{left + 10}" y="34" fill="#1565c0">this library</text>'
    yield f'<text x="{left + 130}" y="34" fill="#777">a bare QTcpSocket</text>'
    yield f'<text x="{width - 20}" y="{height - 6}" text-anchor="end">size of the body, bytes</text>'
    yield "</svg>"


def processor():
    with open("/proc/cpuinfo", encoding="utf-8") as lines:
        names = [line.split(":", 1)[1].strip() for line in lines if line.startswith("model name")]
    return f"{os.cpu_count()} × {names[0] if names else platform.machine()}"


NOTES = """All times are medians. Ours and its floors take turns in one run, one hand-off at a time: send, wait
until the list is in the inbox, go on. The floors are:

- of a hand-off: a bare `QTcpSocket` that makes the same calls to the same master;
- of a second launch without windows: a program that builds a `QCoreApplication` and links Qt Core and
  Qt Network, and one that links what the launch links. The launch has a session and no display;
- of a second launch of the viewer: a program that builds a `QCoreApplication` and links what the viewer
  links, and an application with a session and no `HostKit::Launch`. Both are on an X server with a
  window manager.

Most of the time that a second launch adds to its floor is spent in page faults, about half of them in the
first use of a `QTcpSocket`: `perf stat -e page-faults` counts them.
"""


def main():
    results, documents = sys.argv[1:]
    rows, sizes = read_handoff(os.path.join(results, "handoff"))
    lines = list(table(rows))
    print("\n".join(lines))
    with open(os.path.join(documents, "performance.md"), "w", encoding="utf-8") as file:
        file.write("# Performance\n\n" + NOTES + "\n" + "\n".join(lines) + "\n\n")
        file.write("![Hand-off time over message size](performance.svg)\n\n")
        file.write(f"Measured on {datetime.date.today()} by `scripts/bench.sh`, "
                   f"{processor()}, {platform.system()}.\n")
    with open(os.path.join(documents, "performance.svg"), "w", encoding="utf-8") as file:
        file.write("\n".join(plot(sizes)) + "\n")


main()
