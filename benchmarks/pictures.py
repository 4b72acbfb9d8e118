# SPDX-License-Identifier: MIT
"""The two pictures of the page, drawn by gnuplot from the results."""
import subprocess

import goals
from contenders import JOBS, VESK
from data_sets import DATA_SETS

PLACES = ("", "@memory")
START = """\
set terminal svg size {width},{height} dynamic font 'sans-serif,12' background '#ffffff'
set output '{output}'
set border 3 linecolor '#888888'
"""

RATIOS = """\
$ratios << END
{rows}
END
set title "Time of vesk-archive over that of the others; the line is the spread of the pairs"
set logscale x 2
set xtics ("1/16" 1./16, "1/8" 1./8, "1/4" .25, "1/2" .5, "1" 1, "2" 2, "4" 4) nomirror
set ytics nomirror scale 0 textcolor "#222222"
set yrange [{count}:-1]
set grid xtics linecolor '#dddddd'
set arrow from 1,-1 to 1,{count} nohead linecolor '#444444'
unset key
plot $ratios using 3:0:(1):3:($0-.35):($0+.35):ytic(2) with boxxyerror \\
         fillstyle solid 0.8 noborder linecolor '#4477aa', \\
     $ratios using 3:0:4:5 with xerrorbars pointtype 0 linecolor '#222222'
"""

GROWTH = """\
set multiplot layout 1,2
set logscale xy
set key left top
set grid linecolor '#dddddd'
set title "Empty files: time for each file, microseconds"
set xlabel "files"
plot {files}
set title "One file: time for each byte, nanoseconds"
set xlabel "bytes"
set key right top
plot {bytes}
unset multiplot
"""


def draw(script):
    subprocess.run(["gnuplot"], input=script.encode(), check=True)


def ratio_rows(results):
    """Yields a line for each ratio: number, label in quotes, ratio, lowest, highest."""
    for job in JOBS:
        for place in PLACES:
            for data_set in DATA_SETS:
                result = results.get((job.name + place, data_set.name))
                if not result or data_set.series:
                    continue
                for contender in list(result["costs"])[1:]:
                    ratio, low, high = goals.compare(result, contender)
                    where = f"{data_set.name}{', in memory' if place else ''}"
                    label = f"{job.name}, {where}: {contender}"
                    yield f'0 "{label}" {ratio:.4f} {low:.4f} {high:.4f}'


def draw_ratios(results, output):
    rows = list(ratio_rows(results))
    start = START.format(width=960, height=90 + 17 * len(rows), output=output)
    draw(start + RATIOS.format(rows="\n".join(rows), count=len(rows)))


def growth_lines(results, series, unit):
    """Returns gnuplot's plot of a series: a line for each plain job's vesk-archive and tar."""
    plots, data = [], ""
    members = sorted((d for d in DATA_SETS if d.series == series), key=lambda d: d.scale)
    for job in ("make-tar", "unpack-tar"):
        measured = [(d.scale, results[job, d.name]) for d in members if (job, d.name) in results]
        for position, style in ((0, "linespoints"), (1, "linespoints dashtype 2")):
            points, name = [], ""
            for scale, result in measured:
                name = list(result["costs"])[position]
                cost = goals.median_of(result, name, "wall") / scale
                points.append(f"{scale} {cost * unit:.5g}")
            label = f"${series}_{job.partition('-')[0]}{position}"
            data += f"{label} << END\n" + "\n".join(points) + "\nEND\n"
            plots.append(f"{label} with {style} title '{job.partition('-')[0]}: {name}'")
    return data, ", ".join(plots)


def draw_growth(results, output):
    files_data, files = growth_lines(results, "empty", 1e6)
    bytes_data, of_bytes = growth_lines(results, "single", 1e9)
    start = START.format(width=960, height=420, output=output)
    draw(start + files_data + bytes_data + GROWTH.format(files=files, bytes=of_bytes))
