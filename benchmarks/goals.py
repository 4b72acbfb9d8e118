# SPDX-License-Identifier: MIT
"""What is to be reached, and whether a set of results reaches it."""
import dataclasses
import statistics

from contenders import FLOOR, VESK

TREES = ("small", "real")

# Job, data sets, contender, highest ratio of the medians of wall time (vesk-archive's to theirs).
TIMES = [
    ("make-tar", TREES, FLOOR, 1.06),
    ("make-tar@memory", TREES, FLOOR, 1.06),
    ("make-tar", TREES, "GNU tar", 1.0),
    ("make-tar@memory", TREES, "GNU tar", 1.08),
    ("make-tar", ("single-1KiB",), "GNU tar", 1.2),
    ("make-tar", TREES, "Python tarfile", 0.35),
    ("make-tar", ("large",), "GNU tar", 1.5),
    ("make-tgz", TREES, "GNU tar, pigz -0", 1.0),
    ("make-tgz", TREES, "GNU tar, gzip -1", 0.2),
    ("unpack-tar", TREES, FLOOR, 1.12),
    ("unpack-tar@memory", TREES, FLOOR, 1.12),
    ("unpack-tar", TREES, "tar xf", 1.0),
    ("unpack-tar@memory", TREES, "tar xf", 1.10),
    ("unpack-tar", TREES, "cp -r", 0.75),
    ("unpack-tar", ("large",), "tar xf", 1.2),
    ("unpack-tgz6", TREES, "tar xzf", 0.60),
    ("unpack-tgz6", TREES, "igzip -dc, tar x", 1.0),
]

# Job, what the memory is compared with, the part of a result that gives it, highest ratio.
MEMORY = [
    ("make-tar", "archive + 250 bytes a file", lambda r: r["archive"] + 250 * r["files"], 1),
    ("make-tgz", "TAR stream + member", lambda r: r["tar"] + r["archive"], 1.03),
    ("unpack-tar", "archive", lambda r: r["archive"], 1.03),
    ("unpack-tgz", "2 archives + decoded stream", lambda r: 2 * r["archive"] + r["tar"], 1.25),
    ("unpack-tgz6", "2 archives + decoded stream", lambda r: 2 * r["archive"] + r["tar"], 1.25),
]
MEMORY_ALLOWANCE = 10_000_000  # bytes, for the program itself

# What is counted, its key in a result, job, highest number for each file of `small`.
COUNTS = [
    ("system calls", "calls", "make-tar", 6.2),
    ("system calls", "calls", "make-tgz", 6.2),
    ("system calls", "calls", "unpack-tar", 4.1),
    ("system calls", "calls", "unpack-tgz", 4.1),
    ("instructions", "instructions", "make-tar", 9_000),
    ("instructions", "instructions", "unpack-tar", 7_000),
    ("allocations", "allocations", "make-tar", 4),
    ("allocations", "allocations", "unpack-tar", 5),
]

FAULTS = ("make-tar", 6_000)  # on `small`


@dataclasses.dataclass(frozen=True)
class Verdict:
    what: str
    goal: str
    measured: str
    reached: bool


def has_time_goal(job, data_set):
    """Says whether a goal needs the times of this pair."""
    return any(name == job and data_set in data_sets for name, data_sets, *_ in TIMES)


def compare(result, contender, value="wall", own=VESK):
    """Returns the ratio of the medians, and the lowest and highest ratio of one round's pair; of
    the rounds that both took part in."""
    rounds = list(zip(result["costs"][own], result["costs"][contender]))
    ours = [one[value] for one, _ in rounds]
    theirs = [other[value] for _, other in rounds]
    pairs = [one / other if other else float("nan") for one, other in zip(ours, theirs)]
    median = statistics.median(theirs)
    ratio = statistics.median(ours) / median if median else float("nan")
    return ratio, min(pairs), max(pairs)


def measured_ratio(ratio, highest):
    """Returns the ratio with two decimals, or with three where two hide that the goal is missed."""
    text = f"{ratio:.2f}"
    return f"{ratio:.3f}" if ratio > highest and text == f"{highest:.2f}" else text


def number(count):
    return f"{count:,.0f}" if count >= 100 else f"{count:.2f}"


def peak(result, contender=VESK):
    return max(cost["peak"] for cost in result["costs"][contender])


def median_of(result, contender, value):
    return statistics.median(cost[value] for cost in result["costs"][contender])


def time_verdicts(results):
    for job, data_sets, contender, highest in TIMES:
        for data_set in data_sets:
            result = results.get((job, data_set))
            if not result:
                continue
            ratio, low, high = compare(result, contender)
            measured = f"{measured_ratio(ratio, highest)} ({low:.2f} to {high:.2f})"
            what = f"{job}, {data_set}: time against {contender}"
            yield Verdict(what, f"at most {highest:.2f}", measured, ratio <= highest)


def memory_verdicts(results):
    """One verdict for each job: that of the data set which comes nearest to the bound."""
    for job, name, size_of, factor in MEMORY:
        shares = []
        for (measured_job, data_set), result in results.items():
            if measured_job.removesuffix("@memory") == job:
                bound = factor * size_of(result) + MEMORY_ALLOWANCE
                shares.append((peak(result) / bound, peak(result), bound, data_set))
        if not shares:
            continue
        share, used, bound, data_set = max(shares)
        goal = f"at most {factor} x ({name}) + 10 MB"
        measured = (
            f"{used / 1e6:.1f} of {bound / 1e6:.1f} MB on {data_set}, the nearest of {len(shares)}"
        )
        yield Verdict(f"{job}, all data: peak memory", goal, measured, share <= 1)


def count_verdicts(results):
    for counted, key, job, highest in COUNTS:
        result = results.get((job, "small"))
        if result and VESK in result[key]:
            count = result[key][VESK] / result["files"]
            what = f"{job}, small: {counted} for each file"
            yield Verdict(what, f"at most {highest:,}", number(count), count <= highest)
    job, highest = FAULTS
    result = results.get((job, "small"))
    if result:
        faults = median_of(result, VESK, "faults")
        what = f"{job}, small: page faults"
        yield Verdict(what, f"at most {highest:,}", f"{faults:,.0f}", faults <= highest)


def verdicts(results):
    """Judges what was measured; `results` by job, with "@memory" appended there, and data set."""
    return [*time_verdicts(results), *memory_verdicts(results), *count_verdicts(results)]
