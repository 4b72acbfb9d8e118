# SPDX-License-Identifier: MIT
"""The micro-benchmarks of two builds, in turn, as ratios."""
import json
import statistics

from measuring import run

ROUNDS = 9


def times(program):
    words = [program, "--benchmark_format=json", "--benchmark_min_time=0.05"]
    benchmarks = json.loads(run(words))["benchmarks"]
    return {benchmark["name"]: benchmark["cpu_time"] for benchmark in benchmarks}


def compare(program, baseline):
    """Prints the ratio of each benchmark's median times, new build over baseline, and the spread."""
    pairs = [(times(program), times(baseline)) for _ in range(ROUNDS)]
    for name in pairs[0][0]:
        if any(name not in old for _, old in pairs):
            continue
        new_times = [new[name] for new, _ in pairs]
        old_times = [old[name] for _, old in pairs]
        ratio = statistics.median(new_times) / statistics.median(old_times)
        spread = [new / old for new, old in zip(new_times, old_times)]
        print(f"{name:32} {ratio:5.2f} ({min(spread):.2f} to {max(spread):.2f})")
