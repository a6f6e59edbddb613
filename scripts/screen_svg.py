#!/usr/bin/env python3
"""screen_svg.py TITLE: draws the text of a terminal, as `tmux capture-pane -p` prints it, from standard
input to standard output as an SVG. The third line is the bar of titles, the last one is the help."""
import sys
from xml.sax.saxutils import escape

WIDTH, HEIGHT, EDGE = 8.43, 19, 12  # of a character, of a line, around the screen

lines = [line.rstrip("\n") for line in sys.stdin]
columns = max(len(line) for line in lines)
width, height = round(columns * WIDTH) + 2 * EDGE, len(lines) * HEIGHT + 2 * EDGE
print(f'''<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" width="{width}" height="{height}" role="img">
  <title>{escape(sys.argv[1])}</title>
  <style>
    text {{ font-family: "DejaVu Sans Mono", Menlo, Consolas, monospace; font-size: 14px; fill: #d9dee3; white-space: pre; }}
    .page {{ fill: #1d2a35; }}
    .bar {{ fill: #d9dee3; }}
    .title {{ fill: #1d2a35; }}
    .help {{ fill: #8a96a1; }}
  </style>
  <rect class="page" width="{width}" height="{height}" rx="6"/>''')
for number, line in enumerate(lines):
    top = EDGE + number * HEIGHT
    kind = {2: ' class="title"', len(lines) - 1: ' class="help"'}.get(number, "")
    if number == 2:
        print(f'  <rect class="bar" x="{EDGE}" y="{top}" width="{round(columns * WIDTH)}" height="{HEIGHT}"/>')
    if line.strip():
        print(f'  <text{kind} x="{EDGE}" y="{top + 14}" textLength="{len(line) * WIDTH:.1f}" xml:space="preserve">{escape(line)}</text>')
print("</svg>")
