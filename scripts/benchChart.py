#!/usr/bin/env python3
"""Draws the peer comparison of a Google Benchmark JSON report (benchmarks named "<case>/<library>")
as an SVG bar chart: one group per case, one bar per library, each bar the median time as a multiple
of vexlor's in that case, on a logarithmic axis so that peers ten or a hundred times slower stay
readable. Plain SVG from the standard library: nothing to install.
Usage: benchChart.py report.json chart.svg [title]"""
import math
import sys
from xml.sax.saxutils import escape

from benchTable import REFERENCE, duration, read

COLOURS = ["#1b6ac9", "#e8872b", "#3aa35b", "#c93b3b", "#8a5cc2", "#7a7a7a"]
WIDTH, BAR, GAP, LEFT, TOP, PLOT = 900, 14, 26, 250, 50, 560


def main(path, output, title="Time per call, as a multiple of vexlor's (median, logarithmic)"):
    medians, _, cases, libraries = read(path)
    # Only the cases the peers run too.
    cases = [c for c in cases if (c, REFERENCE) in medians and any((c, l) in medians for l in libraries[1:])]
    ratios = {(c, l): medians[c, l] / medians[c, REFERENCE] for c in cases for l in libraries if (c, l) in medians}
    low = min(0.1, min(ratios.values()))
    high = max(10.0, max(ratios.values()))
    lo, hi = math.floor(math.log10(low)), math.ceil(math.log10(high))

    def x(ratio):
        return LEFT + PLOT * (math.log10(ratio) - lo) / (hi - lo)

    group = len(libraries) * BAR + GAP
    height = TOP + len(cases) * group + 40 + 20 * len(libraries)
    out = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH}" height="{height}" '
           f'font-family="sans-serif" font-size="12">',
           f'<rect width="{WIDTH}" height="{height}" fill="white"/>',
           f'<text x="{WIDTH / 2}" y="22" text-anchor="middle" font-size="14">{escape(title)}</text>']
    for power in range(lo, hi + 1):
        ratio = 10.0 ** power
        label = f"{ratio:g}×"
        out.append(f'<line x1="{x(ratio):.1f}" y1="{TOP - 8}" x2="{x(ratio):.1f}" y2="{TOP + len(cases) * group}" '
                   f'stroke="{"#444" if power == 0 else "#ddd"}"/>')
        out.append(f'<text x="{x(ratio):.1f}" y="{TOP - 12}" text-anchor="middle">{label}</text>')
    for row, case in enumerate(cases):
        top = TOP + row * group
        out.append(f'<text x="{LEFT - 8}" y="{top + len(libraries) * BAR / 2 + 4}" text-anchor="end">'
                   f'{escape(case)}</text>')
        for index, library in enumerate(libraries):
            if (case, library) not in ratios:
                continue
            ratio = ratios[case, library]
            y = top + index * BAR
            start, end = sorted((x(1.0), x(ratio)))
            out.append(f'<rect x="{start:.1f}" y="{y + 1}" width="{max(end - start, 1.5):.1f}" height="{BAR - 2}" '
                       f'fill="{COLOURS[index % len(COLOURS)]}"><title>{escape(library)}: '
                       f'{escape(duration(medians[case, library]))}</title></rect>')
            out.append(f'<text x="{end + 4:.1f}" y="{y + BAR - 3}" font-size="10">'
                       f'{escape(duration(medians[case, library]))}</text>')
    legend = TOP + len(cases) * group + 24
    for index, library in enumerate(libraries):
        y = legend + index * 20
        out.append(f'<rect x="{LEFT}" y="{y - 10}" width="12" height="12" fill="{COLOURS[index % len(COLOURS)]}"/>')
        out.append(f'<text x="{LEFT + 18}" y="{y}">{escape(library)}</text>')
    out.append("</svg>")
    with open(output, "w") as svg:
        svg.write("\n".join(out) + "\n")


if __name__ == "__main__":
    main(*sys.argv[1:])
