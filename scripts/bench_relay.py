#!/usr/bin/env python3
"""Makes the tables and the plot of "The relay" in docs/performance.md from the results of
scripts/bench-relay.sh.

Ratios are those of measurements in the same turn, and the median of these is shown.
"""
import datetime
import os
import pathlib
import sys
from collections import defaultdict
from statistics import median

from bench_report import PAGE, PLOTS, STYLE, machine

BEGIN, END = "<!-- relay: begin -->", "<!-- relay: end -->"
NAMES = {"gstreamer": "GStreamer", "least_work": "least work", "zxrelay-latency-0": "zxrelay `--latency 0`",
         "socat-64k": "socat `-b 65536`"}
ENOUGH = 0.99  # of what was due; connections come and go at the edges of a measurement


class Run:
    """One measurement."""

    def __init__(self, fields):
        self.name = fields[0]
        self.clients, self.mbit, self.seconds = map(int, fields[1:4])
        receiving, ended, self.lost, self.bytes, ms, rss = map(int, fields[4:])
        self.receiving = receiving
        self.is_whole = receiving == self.clients and ended == 0
        self.load = ms / 1000 / self.seconds  # in processors
        self.ms_per_gb = ms * 1e9 / self.bytes if self.bytes else 0
        self.rate = self.bytes / self.seconds
        self.delivered = self.rate / (self.clients * self.mbit * 1e6 / 8) if self.mbit else 1
        self.rss = rss


class Case:
    """The runs of all programs with as many clients at one rate. Each program has one run for each turn."""

    def __init__(self, runs):
        self.of = defaultdict(list)
        for run in runs:
            self.of[run.name].append(run)

    def middle(self, name, what):
        return median(getattr(run, what) for run in self.of[name])

    def ratio(self, name, other, what):
        pairs = zip(self.of[name], self.of[other])
        return median(getattr(run, what) / getattr(base, what) for run, base in pairs if getattr(base, what))

    def keeps_up(self, name):
        return self.middle(name, "delivered") >= ENOUGH and all(run.is_whole for run in self.of[name])


def name_of(name):
    return NAMES.get(name, name)


def table_of_many(case):
    lines = ["| program | readers | delivered | lost packets | processor | ms per GB | : least work | memory |",
             "|---|---|---|---|---|---|---|---|"]
    for name in case.of:
        middle = lambda what, name=name: case.middle(name, what)
        lines.append(f"| {name_of(name)} | {middle('receiving'):.0f} | {100 * middle('delivered'):.0f} % "
                     f"| {middle('lost'):.0f} "
                     f"| {100 * middle('load'):.1f} % | {middle('ms_per_gb'):.0f} "
                     f"| {case.ratio(name, 'least_work', 'ms_per_gb'):.1f} | {middle('rss') / 1024:.1f} MiB |")
    return lines


def table_of_one(case):
    lines = ["| program | MB/s | : socat | : socat `-b 65536` | lost packets | ms per GB |",
             "|---|---|---|---|---|---|"]
    for name in case.of:
        lines.append(f"| {name_of(name)} | {case.middle(name, 'rate') / 1e6:.0f} "
                     f"| {case.ratio(name, 'socat', 'rate'):.2f} "
                     f"| {case.ratio(name, 'socat-64k', 'rate'):.2f} | {case.middle(name, 'lost'):.0f} "
                     f"| {case.middle(name, 'ms_per_gb'):.0f} |")
    return lines


COLOURS = {"zxrelay": "#2da44e", "icecast2": "#d1700c", "gstreamer": "#0969da", "least_work": "#8d96a0"}
LINE_STYLE = "\n".join([
    "", *(f".{name} {{ stroke: {colour}; fill: {colour} }}" for name, colour in COLOURS.items()),
    "polyline.line { fill: none; stroke-width: 2 } polyline.least_work { stroke-dasharray: 4 3 }",
    "circle { stroke-width: 2 } circle.behind { fill: #ffffff }",
    "@media (prefers-color-scheme: dark) { circle.behind { fill: #0d1117 } }"])
LEFT, WIDTH, RIGHT, TOP, HEIGHT, LABEL = 60, 560, 110, 62, 280, 15


class Plot:
    """The processor time of each program over the number of clients."""

    def __init__(self, title, cases):
        self.title, self.cases, self.most = title, cases, max(cases)
        largest = max(case.middle(name, "load") for case in cases.values() for name in COLOURS)
        self.top = 0.25 * (1 + largest // 0.25)

    def x(self, clients):
        return LEFT + WIDTH * clients / self.most

    def y(self, load):
        return TOP + HEIGHT * (1 - load / self.top)

    def axes(self):
        for step in range(int(self.top / 0.25) + 1):
            at = self.y(step * 0.25)
            yield f'<line class="grid" x1="{LEFT}" x2="{LEFT + WIDTH}" y1="{at:.1f}" y2="{at:.1f}"/>'
            yield f'<text class="axis" x="{LEFT - 8}" y="{at + 4:.1f}" text-anchor="end">{step * 25} %</text>'
        for clients in self.cases:
            yield (f'<text class="axis" x="{self.x(clients):.1f}" y="{TOP + HEIGHT + 18}" '
                   f'text-anchor="middle">{clients}</text>')
        yield (f'<text class="axis" x="{LEFT + WIDTH / 2}" y="{TOP + HEIGHT + 36}" '
               'text-anchor="middle">clients</text>')

    def lines(self):
        lowest = TOP + HEIGHT + LABEL
        for name in sorted(COLOURS, key=lambda name: self.cases[self.most].middle(name, "load")):
            points = [(self.x(clients), self.y(case.middle(name, "load")), case)
                      for clients, case in self.cases.items()]
            places = " ".join(f"{x:.1f},{y:.1f}" for x, y, _ in points)
            yield f'<polyline class="{name} line" points="{places}"/>'
            for x, y, case in points:
                fill = "" if case.keeps_up(name) else " behind"
                yield f'<circle class="{name}{fill}" cx="{x:.1f}" cy="{y:.1f}" r="3"/>'
            lowest = min(lowest - LABEL, points[-1][1] + 4)  # labels do not cover each other
            yield f'<text x="{LEFT + WIDTH + 10}" y="{lowest:.1f}">{name_of(name)}</text>'

    def svg(self):
        out = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{LEFT + WIDTH + RIGHT}" '
               f'height="{TOP + HEIGHT + 44}" role="img" aria-label="{self.title}">'
               f'<style>{STYLE}{LINE_STYLE}</style>',
               f'<text class="title" x="8" y="22">{self.title}</text>',
               '<text class="axis" x="8" y="40">percent of a processor, less is better; an empty circle: not '
               'everything was delivered in time</text>', *self.axes(), *self.lines()]
        return "\n".join(out + ["</svg>", ""])


def main(path):
    by_case = defaultdict(list)
    for line in path.read_text().splitlines():
        run = Run(line.split())
        by_case[run.clients, run.mbit].append(run)
    cases = {key: Case(runs) for key, runs in by_case.items()}
    turns = len(cases[200, 8].of["zxrelay"])
    seconds = cases[200, 8].of["zxrelay"][0].seconds
    over_clients = {clients: cases[clients, mbit] for clients, mbit in sorted(cases) if mbit == 2 and clients < 1000}
    title = "Processor time for clients of 2 Mbit/s"
    (PLOTS / "clients.svg").write_text(Plot(title, over_clients).svg())
    day = datetime.date.fromtimestamp(path.stat().st_mtime)
    text = [f"{day}: {machine()[0]}, {os.cpu_count()} processors, which the source and the clients use, too. "
            f"Medians of {turns} turns; each measurement took {seconds} seconds.", "",
            f"![{title}](performance/clients.svg)", ""]
    for key, what in (((200, 8), "200 clients of 8 Mbit/s"), ((1000, 2), "1,000 clients of 2 Mbit/s"),
                      ((1, 2), "One client of 2 Mbit/s")):
        text += [f"**{what}**", "", *table_of_many(cases[key]), ""]
    text += ["**One client, as fast as it goes**", "", *table_of_one(cases[1, 0]), ""]
    before, rest = PAGE.read_text().split(BEGIN)
    PAGE.write_text("\n".join([before + BEGIN, *text, END]) + rest.split(END)[1])
    print(f"wrote {PAGE.name} and {PLOTS.name}/clients.svg")


if __name__ == "__main__":
    main(pathlib.Path(sys.argv[1]))
