# SPDX-License-Identifier: MIT
"""The page that shows a run, and a second one with everything that was measured."""
import os
import platform
import subprocess

import goals
from contenders import FLOOR, JOBS, VESK
from data_sets import DATA_SETS

HEAD = """\
# Performance

How long `vesk-archive` takes, how much memory, and how both grow. Written by `scripts/bench`; run that
to get the page for your machine, or `scripts/bench --quick` for the main ratios in two minutes after
the build.

Every time is a ratio: the median of vesk-archive's wall times over the median of the other's, so 0.50
means half the time. The floor is a program of plain system calls that holds the archive whole, too, and
does nothing else: no check, no host, no message. Times of different machines cannot be compared; ratios
of one run can.
"""

LEGEND = """\
- in memory: what is made lies on a memory file system
- `make-tgz`: makes the archive in a gzip member; vesk-archive compresses nothing there
- `unpack-tgz6`: unpacks what gzip -6 has compressed
"""

PICTURES = """
![Every ratio, as a bar around 1]({ratios})

![Time for each file and each byte, over the sizes]({growth})
"""

DETAILS_HEAD = """\
# Performance in detail

Everything that the run behind [the page]({page}) has measured. Time, user and system time are
vesk-archive's over the other's; the spread after a ratio is the lowest and the highest ratio among the
pairs of one round each. "Over the floor" is the other's time over the floor's; the columns after system
time are the other's own. A dash stands for what was not measured or cannot be divided by.
"""

METHOD = """\
## Method

- All contenders of a job run in turn, round after round, every second round in reverse order. Each
  runs once beforehand, to warm the caches, and what that gave is checked: archives are listed, and
  ours also unpacked by GNU tar; trees are compared with the source byte by byte. Where one round is
  all there is time for, that run is the one shown.
- A whole process is timed, or a whole pipeline, from before the first start to after the last end.
  User and system time are summed over a pipeline, page faults (those without reading) too; peak
  memory is that of its largest process, and never less than that of the small program that starts
  it. `sync` is run before each, outside the time.
- vesk-archive runs with --quiet. Without it, it also looks for what is worth a remark: at the names in
  the source, or at the headers of the archive.
- Between the runs the benchmark holds the free memory, in large pages, and gives back what a run may
  take just before it: the host of a virtual machine may take back what lies free for two seconds,
  and whoever gets such memory next pays for it, several times the length of the run. Before a run
  that takes much memory it waits, so that no memory is taken back during the run. Nobody else should
  need memory meanwhile. A quick run has no time for this: on such a machine its ratios are rougher.
- The benchmark begins with empty caches, and outputs leave the page cache once they have been
  measured. They would break the free memory up, and vesk-archive was seen to take up to four times
  as long where it got none in large pages.
- What a run reads is read right before it, so that it is in the page cache. Outputs get new names
  and stay till later: for some minutes after many files have been deleted, ext4 is several times
  slower at making new ones, and unevenly so. For the same reason, wait some minutes between two runs.
  A full run takes about an hour and a half and 30 GB of disk space.
- Outputs lie on the file system of the sources; where it says "memory", on a memory file system.
- System calls are counted by `strace -f -c` in a run of their own, but for the look for signals that
  comes once a millisecond; instructions in user space by `valgrind --tool=callgrind`, allocations by
  `valgrind --tool=dhat`; all with the start-up.
- The floor walks, sorts, opens, asks for the size and reads into one buffer in large pages, and writes
  once; or reads once, and opens, writes and closes each file below a directory that it holds open. It
  checks nothing and knows only what the data holds.
- vesk-archive holds archives in memory whole and writes compressed ones as stored blocks; the others
  stream, and those that compress give smaller archives for their time.
- GNU tar and bsdtar archive directories, too. Unpacking with vesk-archive is all or nothing: it goes
  to a staging directory, which then takes its place.
"""


def table(head, rows):
    """Returns a Markdown table; all columns but the first are flush right."""
    lines = [head, ["---"] + ["---:"] * (len(head) - 1), *rows]
    return "".join("| " + " | ".join(line) + " |\n" for line in lines)


def ratio_text(result, contender, value="wall"):
    ratio, low, high = goals.compare(result, contender, value)
    return f"{ratio:.2f} ({low:.2f} to {high:.2f})"


def plain_ratio(result, contender, value):
    ratio = goals.compare(result, contender, value)[0]
    return "-" if ratio != ratio else f"{ratio:.2f}"


def over_floor(result, contender):
    """How many times the floor's time a contender takes."""
    if FLOOR not in result["costs"]:
        return "-"
    return f"{goals.compare(result, FLOOR, own=contender)[0]:.2f}"


def contender_row(result, contender):
    ours = contender == VESK
    calls = result["calls"].get(contender)
    return [
        contender,
        "1" if ours else ratio_text(result, contender),
        over_floor(result, contender),
        "1" if ours else plain_ratio(result, contender, "user"),
        "1" if ours else plain_ratio(result, contender, "system"),
        f"{goals.peak(result, contender) / 1e6:.1f}",
        "-" if calls is None else f"{calls / result['files']:.2f}",
        f"{goals.median_of(result, contender, 'faults'):,.0f}",
        str(len(result["costs"][contender])),
    ]


JOB_HEAD = [
    "vesk-archive against",
    "time",
    "over the floor",
    "user",
    "system",
    "peak MB",
    "calls/file",
    "page faults",
    "rounds",
]


def job_section(job, place, results):
    text = ""
    for data_set in DATA_SETS:
        result = results.get((job.name + place, data_set.name))
        if result and not data_set.series:
            where = ", in memory" if place else ""
            rows = [contender_row(result, contender) for contender in result["costs"]]
            text += f"\n{data_set.name}{where}:\n\n" + table(JOB_HEAD, rows)
    return text


def unit_time(result, scale):
    return goals.median_of(result, VESK, "wall") / scale


def growth_row(name, data_set, result, base):
    other = [contender for contender in result["costs"] if contender != VESK][0]
    growth = unit_time(result, data_set.scale) / unit_time(*base)
    return [
        f"{name}, {data_set.what}",
        f"{growth:.2f}" if growth < 100 else f"{growth:,.0f}",
        f"{other}: {ratio_text(result, other)}",
        f"{goals.peak(result) / 1e6:.1f}",
    ]


# Series and the data set in it that the others are compared with: what is counted.
GROWTH_BASES = {("empty", "empty-10000"): "file", ("single", "single-64MiB"): "byte"}


def growth_section(results, series, base_name, title):
    head = ["", f"cost for each {title}, against {base_name}", "time against", "peak MB"]
    rows = []
    members = [data_set for data_set in DATA_SETS if data_set.series == series]
    base = next(data_set for data_set in members if data_set.name == base_name)
    for job in JOBS:
        for place in ("", "@memory"):
            name = job.name + place
            base_result = results.get((name, base_name))
            for data_set in members:
                result = results.get((name, data_set.name))
                if result and base_result:
                    rows.append(growth_row(name, data_set, result, (base_result, base.scale)))
    return table(head, rows) if rows else ""


def first_line(*words):
    try:
        output = subprocess.run(
            words, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False
        )
        return output.stdout.decode(errors="replace").split("\n")[0].strip()
    except OSError:
        return f"{words[0]}: not found"


def field(path, key):
    with open(path) as file:
        return next(
            (line.split(":", 1)[1].strip() for line in file if line.startswith(key)), "unknown"
        )


def machine(directory):
    memory = int(field("/proc/meminfo", "MemTotal").split()[0]) * 1024
    disk = first_line("findmnt", "-n", "-o", "FSTYPE,OPTIONS", "-T", directory)
    release = platform.freedesktop_os_release().get("PRETTY_NAME", "unknown")
    facts = [
        f"Processor: {field('/proc/cpuinfo', 'model name')}, {os.cpu_count()} logical",
        f"Memory: {memory / 1e9:.1f} GB",
        f"System: {release}, Linux {platform.release()}, {platform.machine()}",
        f"File system: {disk}",
        f"User: {'root' if os.geteuid() == 0 else 'an ordinary user'}"
        " (as root, tar also sets owners and permissions when it unpacks)",
    ]
    return "".join(f"- {fact}\n" for fact in facts)


def versions(workspace):
    programs = [
        (workspace.programs["vesk"], "--version"),
        ("c++", "--version"),
        ("tar", "--version"),
        ("bsdtar", "--version"),
        ("cp", "--version"),
        ("gzip", "--version"),
        ("pigz", "--version"),
        ("igzip", "--version"),
        (workspace.programs["python"], "--version"),
        ("strace", "--version"),
    ]
    return "".join(f"- {first_line(*words)}\n" for words in programs)


def commands():
    text = ""
    for job in JOBS:
        text += f"\n{job.name}: {job.what}\n\n"
        for contender in job.contenders:
            line = contender.line.replace("{vesk}", "vesk-archive").replace("{python}", "python3")
            line = line.replace("{floor}", "vesk-floor")
            line = line.replace("{tarfile}", "benchmarks/tarfile_contender.py")
            text += f"    {line}\n"
    return text


def data(results, chosen):
    text = ""
    for data_set in DATA_SETS:
        sizes = next((r for (_, name), r in results.items() if name == data_set.name), None)
        if sizes and data_set.name in chosen:
            text += f"- `{data_set.name}`: {data_set.what}"
            text += f" (files: {sizes['files']:,}; MB: {sizes['bytes'] / 1e6:,.1f})\n"
    return text


def goal_section(results):
    judged = goals.verdicts(results)
    reached = sum(verdict.reached for verdict in judged)
    rows = [[v.what, v.goal, v.measured, "reached" if v.reached else "**missed**"] for v in judged]
    text = f"\n## Goals: {reached} of {len(judged)} reached\n\n"
    text += "`docs/where-time-goes.md` says what stands between vesk-archive and those it misses.\n\n"
    return text + table(["", "goal", "measured", ""], rows)


# What people ask first: a job, and whom it is compared with.
MAIN_RATIOS = [
    ("make-tar", "GNU tar"),
    ("make-tar", FLOOR),
    ("unpack-tar", "tar xf"),
    ("unpack-tar", FLOOR),
    ("make-tgz", "GNU tar, pigz -0"),
    ("unpack-tgz6", "tar xzf"),
]
MAIN_PLACES = [("small", ""), ("real", ""), ("small", "@memory"), ("real", "@memory")]


def main_row(results, job, what, cell):
    """`cell` turns a result into what the table shows of it."""
    measured = [results.get((job + place, name)) for name, place in MAIN_PLACES]
    return [f"{job}: {what}"] + [f"{cell(result):.2f}" if result else "-" for result in measured]


def main_section(results):
    """The one table of the page: a row for each question, a column for each tree and place."""
    head = [""] + [name + (", in memory" if place else "") for name, place in MAIN_PLACES]
    rows = []
    for job in ("make-tar", "unpack-tar"):
        seconds = lambda result: goals.median_of(result, VESK, "wall")
        rows.append(main_row(results, job, "vesk-archive's time in seconds", seconds))
    for job, other in MAIN_RATIOS:
        ratio = lambda result, other=other: goals.compare(result, other)[0]
        rows.append(main_row(results, job, f"time against {other}", ratio))
    for job in ("make-tar", "make-tgz", "unpack-tar", "unpack-tgz6"):
        share = lambda result: goals.peak(result) / result["tar"]
        rows.append(main_row(results, job, "peak memory over the TAR stream's length", share))
    trees = data(results, {name for name, _ in MAIN_PLACES})
    return "\n" + table(head, rows) + "\n" + trees + LEGEND


def growth_sentences(results):
    """Says how the cost of one file and of one byte changes from a data set that hides the start-up
    to the largest."""
    text = ""
    for (series, base_name), what in GROWTH_BASES.items():
        base = next(d for d in DATA_SETS if d.name == base_name)
        last = [d for d in DATA_SETS if d.series == series][-1]
        for job in ("make-tar", "unpack-tar"):
            ends = [results.get((job, data_set.name)) for data_set in (base, last)]
            if not all(ends):
                continue
            growth = unit_time(ends[1], last.scale) / unit_time(ends[0], base.scale)
            text += f"- {job}: each {what} of {last.what} takes {growth:.2f} times as long as each of"
            text += f" {base.what}, and {goals.peak(ends[1]) / 1e6:,.0f} MB are needed for all.\n"
    return "\nHow it grows:\n\n" + text if text else ""


def counted_section(results):
    rows = []
    for job in JOBS:
        result = results.get((job.name, "small"))
        for name in result["instructions"] if result else []:
            counts = [result[key][name] / result["files"] for key in ("instructions", "allocations")]
            rows.append([f"{job.name}: {name}", *map(goals.number, counts)])
    if not rows:
        return ""
    head = ["for each file of small", "instructions", "allocations"]
    return "\n## Instructions and allocations\n\n" + table(head, rows)


def page(results, names):
    """Returns the page. `results` by job, with "@memory" appended there, and data set; `names` of
    the files beside it by what they hold."""
    text = HEAD + main_section(results) + growth_sentences(results)
    text += PICTURES.format(**names) + goal_section(results)
    return text + f"\nEverything else: [performance in detail]({names['details']}).\n"


def details(results, names, workspace, command, circumstances):
    """Returns the second page: data, a table for each job, growth, method, machine, commands."""
    text = DETAILS_HEAD.format(**names) + "\n## Data\n\n"
    text += data(results, {data_set.name for data_set in DATA_SETS})
    for job in JOBS:
        sections = job_section(job, "", results) + job_section(job, "@memory", results)
        if sections:
            text += f"\n## {job.name}: {job.what}\n{sections}"
    text += counted_section(results)
    growth = [growth_section(results, *base, what) for base, what in GROWTH_BASES.items()]
    if any(growth):
        text += "\n## Growth\n\n" + "\n".join(filter(None, growth))
    text += "\n" + METHOD + "\n## Machine and versions\n\n" + machine(workspace.directory)
    text += circumstances + "\n" + versions(workspace)
    return text + f"\n## Commands\n\nThis page: `{command}`\n" + commands()
