#!/usr/bin/env python3
"""Draws the results of measure.py: size against cost, both logarithmic, one line per operation, into costs.svg.

Usage: plot.py RESULTS_DIRECTORY
"""

import json
import math
import os
import sys
from html import escape

PANEL_WIDTH, PANEL_HEIGHT = 430, 300
LEFT, TOP, GAP, LEGEND_WIDTH, ROW_GAP = 70, 60, 80, 330, 90
COLOURS = ("#1f77b4", "#d62728", "#2ca02c", "#9467bd", "#ff7f0e", "#17becf", "#8c564b", "#e377c2", "#555555", "#bcbd22",
           "#003f5c", "#7a9a01", "#b5005b", "#00a878")
DASHES = ("", "6,3", "2,2")
FIGURES = (("instructions", "instructions"), ("nanoseconds", "nanoseconds"))


def tick_text(decade):
    """10 to that power: 1, 10, 100, 1k ..."""
    if decade < 0:
        return f"{10.0 ** decade:g}"
    prefix = ("", "k", "M", "G", "T")[decade // 3]
    return f"{10 ** (decade % 3)}{prefix}"


class Axis:
    """Whole decades from the smallest to the largest value; 0 has a place of its own below the first."""

    def __init__(self, values, start, length):
        positive = [value for value in values if value > 0]
        self.low = math.floor(math.log10(min(positive)))
        self.high = max(math.ceil(math.log10(max(positive))), self.low + 1)
        self.has_zero = any(value <= 0 for value in values)
        self.start, self.length = start, length

    def place(self, value):
        first = self.low - (1 if self.has_zero else 0)
        decades = math.log10(value) if value > 0 else first
        return self.start + (decades - first) / (self.high - first) * self.length

    def ticks(self):
        if self.has_zero:
            yield 0, "0"
        for decade in range(self.low, self.high + 1):
            yield 10.0 ** decade, tick_text(decade)


def panel(lines, title, left, top):
    """One diagram; `lines` are (style, [(size, cost)])."""
    out = [f'<text x="{left}" y="{top - 10}" class="title">{escape(title)}</text>',
           f'<rect x="{left}" y="{top}" width="{PANEL_WIDTH}" height="{PANEL_HEIGHT}" class="frame"/>']
    points = [point for _, line in lines for point in line]
    if not points:
        return out
    across = Axis([size for size, _ in points], left, PANEL_WIDTH)
    up = Axis([max(cost, 1e-9) for _, cost in points], top + PANEL_HEIGHT, -PANEL_HEIGHT)
    for value, text in across.ticks():
        x = across.place(value)
        out.append(f'<line x1="{x:.1f}" y1="{top}" x2="{x:.1f}" y2="{top + PANEL_HEIGHT}" class="grid"/>'
                   f'<text x="{x:.1f}" y="{top + PANEL_HEIGHT + 15}" text-anchor="middle">{text}</text>')
    for value, text in up.ticks():
        y = up.place(value)
        out.append(f'<line x1="{left}" y1="{y:.1f}" x2="{left + PANEL_WIDTH}" y2="{y:.1f}" class="grid"/>'
                   f'<text x="{left - 5}" y="{y + 4:.1f}" text-anchor="end">{text}</text>')
    for style, line in lines:
        places = [(across.place(size), up.place(max(cost, 1e-9))) for size, cost in line]
        path = " ".join(f"{x:.1f},{y:.1f}" for x, y in places)
        out.append(f'<polyline points="{path}" fill="none" {style}/>')
        out += [f'<circle cx="{x:.1f}" cy="{y:.1f}" r="2" fill="white" {style}/>' for x, y in places]
    return out


def main():
    directory, = sys.argv[1:]
    with open(os.path.join(directory, "results.json"), encoding="utf-8") as file:
        cases = json.load(file)["cases"]

    # By unit, and within it by operation.
    units = {}
    for case in cases:
        if case["baseline"] != "":
            units.setdefault(case["unit"], {}).setdefault(case["operation"], []).append(case)

    out = []
    top = TOP
    width = LEFT + 2 * PANEL_WIDTH + GAP + 20 + LEGEND_WIDTH
    for unit, operations in units.items():
        styles = {}
        for number, name in enumerate(operations):
            dash = DASHES[number // len(COLOURS) % len(DASHES)]
            styles[name] = (f'stroke="{COLOURS[number % len(COLOURS)]}" stroke-width="1.5"' +
                            (f' stroke-dasharray="{dash}"' if dash else ""))
        for number, (figure, title) in enumerate(FIGURES):
            lines = [(styles[name], [(case["size"], case[figure]) for case in of_one if figure in case])
                     for name, of_one in operations.items()]
            out += panel([line for line in lines if line[1]], f"{title}, by {unit}",
                         LEFT + number * (PANEL_WIDTH + GAP), top)
        x = LEFT + 2 * PANEL_WIDTH + GAP + 20
        for number, name in enumerate(operations):
            y = top + 12 + number * 16
            out.append(f'<line x1="{x}" y1="{y - 4}" x2="{x + 28}" y2="{y - 4}" {styles[name]}/>'
                       f'<text x="{x + 34}" y="{y}">{escape(name)}</text>')
        top += max(PANEL_HEIGHT, 16 * len(operations)) + ROW_GAP

    style = ("text{font:11px sans-serif} .title{font-weight:bold;font-size:13px} "
             ".frame{fill:none;stroke:#333} .grid{stroke:#ddd;stroke-width:.6}")
    with open(os.path.join(directory, "costs.svg"), "w", encoding="utf-8") as file:
        file.write(f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{top}" '
                   f'viewBox="0 0 {width} {top}"><style>{style}</style>'
                   f'<rect width="100%" height="100%" fill="white"/>\n' + "\n".join(out) + "\n</svg>\n")


if __name__ == "__main__":
    main()
