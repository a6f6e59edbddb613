#!/usr/bin/env python3
"""Makes the tables and plots of docs/performance.md from the results of scripts/bench.sh.

The name of a benchmark is Work/who[/argument...]. `who` is "library" for this library, "limit" for a bare
memcpy, and otherwise a peer that does the same work with the same arguments.
"""
import json
import math
import pathlib
import re
import subprocess
import sys
from collections import defaultdict
from html import escape

ROOT = pathlib.Path(__file__).resolve().parent.parent
PAGE = ROOT / "docs/performance.md"
PLOTS = ROOT / "docs/performance"
BEGIN, END = "<!-- measured: begin -->", "<!-- measured: end -->"

GROUPS = {  # plot: title, results in their order
    "codes": ("Checksums, digests and ciphers",
              ["zxcrc", "digest", "digest-avx2", "zxaes", "zxaes-portable", "zxdes"]),
    "texts": ("Texts, times and numbers", ["zxmd", "zxstr", "zxtime", "zxt"]),
    "network": ("Frames and the network", ["zxframe", "zxnet", "zxepoll"]),
    "services": ("Queues, locks, memory and the log",
                 ["zxfifo", "zxfifo_list", "zxlock", "zxthread", "zxmem", "zxlog"]),
}
CPU_FLAGS = ["aes", "vaes", "pclmulqdq", "vpclmulqdq", "sha_ni", "avx2", "avx512bw", "erms", "fsrm"]
NOT_ARGUMENTS = re.compile(r"real_time|manual_time|process_time|iterations:\d+|threads:\d+")


class Work:
    """One kind of work with its arguments, and the time that everybody takes for it."""

    def __init__(self, name, arguments):
        self.name, self.arguments = name, arguments
        self.times = {}  # who: nanoseconds
        self.rate = 0  # of the library, in bytes per second

    @property
    def others(self):
        return sorted((time, who) for who, time in self.times.items() if who != "library")

    @property
    def peers(self):  # "library+what" is this library with something switched on
        return [other for other in self.others if not other[1].startswith("library+")]

    @property
    def ratio(self):
        return self.times["library"] / self.peers[0][0] if self.peers else None


def nanoseconds(entry):
    """Returns the time of one call, by the clock with which Google Benchmark computes its rates."""
    by_wall = re.search("/(real|manual)_time", entry["run_name"])
    if "items_per_second" in entry:
        return 1e9 / entry["items_per_second"]
    return entry["real_time" if by_wall else "cpu_time"]


def read(path):
    """Returns the works in one result file, in their order."""
    works = {}
    entries = json.loads(path.read_text())["benchmarks"]
    for entry in sorted(entries, key=lambda e: (e["family_index"], e["per_family_instance_index"])):
        if entry.get("error_occurred"):
            print(f"{path.stem}: {entry['name']}: {entry['error_message']}", file=sys.stderr)
        elif entry.get("aggregate_name") == "median":
            name, who, *arguments = entry["run_name"].split("/")
            arguments = [a for a in arguments if not NOT_ARGUMENTS.fullmatch(a)]
            work = works.setdefault((name, *arguments), Work(name, arguments))
            work.times[who] = nanoseconds(entry)
            if who in ("library", "limit"):
                work.rate = entry.get("bytes_per_second", 0)
    return list(works.values())


def last_number(work):
    return int(re.sub(r".*:", "", work.arguments[-1])) if work.arguments else None


def time_text(ns):
    for unit, size in (("s", 1e9), ("ms", 1e6), ("us", 1e3), ("ns", 1)):
        if ns >= size or unit == "ns":
            value = ns / size
            return f"{value:.{0 if value >= 99.95 else 1}f} {unit}"


def table(works, limits, variant):
    lines = ["| work | library | peers | library : best peer | of `memcpy` |", "|---|---|---|---|---|"]
    for work in works:
        name = " ".join([f"`{work.name}`{variant}", *(a.replace(":", " ") for a in work.arguments)])
        peers = ", ".join(f"{who} {time_text(time)}" for time, who in work.others)
        ratio = f"{work.ratio:.2f}" if work.peers else ""
        limit = limits.get(last_number(work)) if work.rate else None
        share = f"{100 * work.rate / limit:#.1f} %" if limit else ""
        lines.append(f"| {name} | {time_text(work.times['library'])} | {peers} | {ratio} | {share} |")
    return lines


STYLE = """
text { font: 13px system-ui, sans-serif; fill: #24292f }
.title { font-size: 16px; font-weight: 600 }
.peer, .axis { fill: #656d76; font-size: 11px }
.grid { stroke: #d0d7de } .one { stroke: #24292f; stroke-width: 1.5 }
.fast { fill: #2da44e } .slow { fill: #d1700c } .size { stroke: #24292f; stroke-width: 1.5 }
@media (prefers-color-scheme: dark) {
  text { fill: #e6edf3 } .peer, .axis { fill: #8d96a0 }
  .grid { stroke: #30363d } .one, .size { stroke: #e6edf3 }
}"""
LEFT, WIDTH, RIGHT, TOP, ROW = 270, 400, 210, 62, 22
TICKS = [0.01, 0.02, 0.05, 0.1, 0.2, 0.5, 1, 2, 5, 10, 20, 50, 100]


def plot(title, bars):
    """Draws a bar for each (name, peers, ratios), from 1 to the geometric mean, with a tick for each ratio."""
    every = [r for _, _, ratios in bars for r in ratios]
    low = max([t for t in TICKS if t <= min(every)], default=TICKS[0])
    high = min([t for t in TICKS if t >= max(1.1, *every)], default=TICKS[-1])

    def x(ratio):
        return LEFT + WIDTH * math.log(ratio / low) / math.log(high / low)

    bottom = TOP + ROW * len(bars)
    out = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{LEFT + WIDTH + RIGHT}" '
           f'height="{bottom + 12}" role="img" aria-label="{escape(title)}"><style>{STYLE}</style>',
           f'<text class="title" x="8" y="22">{escape(title)}</text>',
           '<text class="axis" x="8" y="40">time of the library : time of the best peer; '
           'left of 1 the library is faster</text>']
    for tick in (t for t in TICKS if low <= t <= high):
        kind = "one" if tick == 1 else "grid"
        out += [f'<line class="{kind}" x1="{x(tick):.1f}" x2="{x(tick):.1f}" y1="{TOP}" y2="{bottom}"/>',
                f'<text class="axis" x="{x(tick):.1f}" y="{TOP - 5}" text-anchor="middle">{tick:g}</text>']
    for row, (name, peers, ratios) in enumerate(bars):
        top = TOP + ROW * row + 4
        mean = math.exp(sum(map(math.log, ratios)) / len(ratios))
        ends = sorted((x(1), x(mean)))
        out += [f'<text x="{LEFT - 8}" y="{top + 12}" text-anchor="end">{escape(name)}</text>',
                f'<rect class="{"fast" if mean <= 1 else "slow"}" x="{ends[0]:.1f}" y="{top}" '
                f'width="{max(1, ends[1] - ends[0]):.1f}" height="{ROW - 8}" rx="2"/>']
        if len(ratios) > 1:
            out += [f'<line class="size" x1="{x(r):.1f}" x2="{x(r):.1f}" y1="{top + 2}" '
                    f'y2="{top + ROW - 10}"/>' for r in ratios]
        out.append(f'<text x="{LEFT + WIDTH + 12}" y="{top + 12}">{mean:.2f} <tspan class="peer">'
                   f'{escape(", ".join(peers[:2]))}</tspan></text>')
    return "\n".join(out + ["</svg>", ""])


def machine():
    cpuinfo = pathlib.Path("/proc/cpuinfo").read_text()

    def field(name):
        found = re.search(rf"^{name}\s*: (.*)$", cpuinfo, re.M)
        return found.group(1) if found else "unknown"

    flags = [flag for flag in CPU_FLAGS if flag in field("flags").split()]
    cache = (ROOT / "build/bench/CMakeCache.txt").read_text()
    compiler = re.search(r"^CMAKE_CXX_COMPILER:\w+=(.*)$", cache, re.M).group(1)
    version = subprocess.run([compiler, "--version"], capture_output=True, text=True, check=True)
    return field("model name"), " ".join(flags), version.stdout.splitlines()[0]


def head(results):
    first = json.loads(results[0].read_text())
    context, repetitions = first["context"], first["benchmarks"][0]["repetitions"]
    name, flags, compiler = machine()
    return [f"{context['date'][:10]}: {name}, {context['num_cpus']} processors ({flags}); {compiler}. "
            f"Medians of {repetitions} repetitions in random order. Each time is that of one call; it "
            "is processor time if the call does not wait. The last column compares the bytes per second "
            "with those of a `memcpy` of the same size. Instructions are not counted, because Debian's "
            "Google Benchmark has no performance counters.", ""]


def main(directory):
    results = sorted(directory.glob("*.json"))
    limits = {last_number(work): work.rate for work in read(directory / "memcpy.json")}
    PLOTS.mkdir(exist_ok=True)
    text = head(results)
    for plot_name, (title, names) in GROUPS.items():
        lines, bars = [], defaultdict(lambda: ([], []))
        for name in names:
            module, _, variant = name.partition("-")
            path = directory / f"{name}.json"
            if not path.exists():
                print(f"{name} was not measured", file=sys.stderr)
                continue
            variant = f" {variant}" if variant else ""
            works = [work for work in read(path) if "library" in work.times]
            lines += [f"**{module}**{variant}", "", *table(works, limits, variant), ""]
            for work in (w for w in works if w.peers):
                peers, ratios = bars[work.name + variant]
                ratios.append(work.ratio)
                if work.peers[0][1] not in peers:
                    peers.append(work.peers[0][1])
        (PLOTS / f"{plot_name}.svg").write_text(plot(title, [(n, *b) for n, b in bars.items()]))
        text += [f"### {title}", "", f"![{title}](performance/{plot_name}.svg)", "",
                 "<details><summary>Figures</summary>", "", *lines, "</details>", ""]
    before, rest = PAGE.read_text().split(BEGIN)
    PAGE.write_text("\n".join([before + BEGIN, *text, END]) + rest.split(END)[1])
    print(f"wrote {PAGE.relative_to(ROOT)} and {len(GROUPS)} plots in {PLOTS.relative_to(ROOT)}/")


if __name__ == "__main__":
    main(pathlib.Path(sys.argv[1]))
