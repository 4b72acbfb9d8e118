# SPDX-License-Identifier: MIT
"""The comparison: measures job by job, keeps each result, and prints and saves one page."""
import argparse
import fnmatch
import json
import os
import shlex
import shutil
import sys

import micro
import pictures
import report
from contenders import JOBS, contenders_of
from data_sets import DATA_SETS
from measuring import Contest, Workspace


def arguments():
    parser = argparse.ArgumentParser(
        prog="scripts/bench",
        description="Compares vesk-archive with other archivers; prints one page of ratios.",
    )
    parser.add_argument(
        "--quick", action="store_true", help="the main ratios, in two minutes after the build"
    )
    parser.add_argument(
        "--only",
        action="append",
        metavar="JOB/DATA",
        help="measure only this, e.g. make-tar/small, 'unpack-*/real' or make-tar@memory/small;"
        " the page shows it with what is kept from earlier runs",
    )
    parser.add_argument("--resume", action="store_true", help="measure only what is not kept yet")
    parser.add_argument(
        "--save",
        metavar="FILE.md",
        help="write the page to FILE.md, too, and beside it FILE-details.md and two pictures",
    )
    parser.add_argument("--directory", help="where data and output go (default: build/bench)")
    parser.add_argument("--list", action="store_true", help="name what would be measured, and stop")
    parser.add_argument("--micro", action="store_true", help="run the micro-benchmarks instead")
    parser.add_argument(
        "--baseline",
        metavar="PROGRAM",
        help="with --micro: an earlier vesk-micro-benchmarks to compare with",
    )
    parser.add_argument("--build", required=True, help=argparse.SUPPRESS)
    return parser.parse_args()


def plan(options):
    """Returns what is to be measured, by data set, so that each needs to exist only for a while."""
    wanted = []
    for data_set in DATA_SETS:
        for memory in (False, True):
            for job in JOBS:
                name = f"{job.name}{'@memory' if memory else ''}/{data_set.name}"
                chosen = not options.only or any(fnmatch.fnmatch(name, o) for o in options.only)
                if chosen and contenders_of(job, data_set, options.quick, memory):
                    wanted.append((name, job, data_set, memory))
    return wanted


class Results:
    """The results kept in a directory, one file each; those of other builds do not count."""

    def __init__(self, directory, fingerprint):
        self.directory = directory
        self.fingerprint = fingerprint
        os.makedirs(directory, exist_ok=True)

    def path(self, name):
        return f"{self.directory}/{name.replace('/', '_')}.json"

    def keep(self, name, result):
        with open(self.path(name) + ".new", "w") as file:
            json.dump({"fingerprint": self.fingerprint, "name": name, **result}, file)
        os.replace(self.path(name) + ".new", self.path(name))

    def all(self):
        found = {}
        for entry in os.listdir(self.directory):
            if entry.endswith(".json"):
                with open(f"{self.directory}/{entry}") as file:
                    result = json.load(file)
                if result["fingerprint"] == self.fingerprint:
                    found[tuple(result["name"].split("/"))] = result
        return found


def tar_size(workspace, data_set, job, result):
    """The length of the TAR stream, which a compressed archive does not show."""
    if job.name in ("make-tar", "unpack-tar"):
        return result["archive"]
    return os.path.getsize(workspace.archive(data_set, ".tar"))


def measure_all(wanted, workspace, results, quick):
    for position, (name, job, data_set, memory) in enumerate(wanted):
        print(f"[{position + 1}/{len(wanted)}] {name}", file=sys.stderr, flush=True)
        if data_set.few_files:
            workspace.delete_spent()
        workspace.prepare(data_set)
        result = Contest(workspace, job, data_set, quick, memory).measure()
        result["tar"] = tar_size(workspace, data_set, job, result)
        results.keep(name, result)
        last = all(later[2] != data_set for later in wanted[position + 1 :])
        if last and data_set.name not in ("small", "real"):
            workspace.forget(data_set)


def command_line(options):
    """Returns the command as the page shows it: what was measured, not where."""
    words = ["scripts/bench"]
    words += ["--quick"] if options.quick else []
    words += ["--resume"] if options.resume else []
    for only in options.only or []:
        words += ["--only", only]
    return shlex.join(words)


def show(results, workspace, options, load):
    """Prints the pages, and writes them and their pictures where that is wanted."""
    stem = (options.save or "performance.md").removesuffix(".md")
    files = {
        "page": f"{stem}.md",
        "details": f"{stem}-details.md",
        "ratios": f"{stem}-ratios.svg",
        "growth": f"{stem}-growth.svg",
    }
    names = {what: os.path.basename(path) for what, path in files.items()}
    page = report.page(results, names)
    details = report.details(results, names, workspace, command_line(options), load)
    print(page + "\n" + details)
    if not options.save:
        return
    for what, text in (("page", page), ("details", details)):
        with open(files[what], "w") as file:
            file.write(text)
    pictures.draw_ratios(results, files["ratios"])
    pictures.draw_growth(results, files["growth"])


def main():
    options = arguments()
    if options.micro:
        program = f"{options.build}/bin/vesk-micro-benchmarks"
        if options.baseline:
            return micro.compare(program, options.baseline)
        os.execv(program, [program])

    wanted = plan(options)
    if options.list:
        return print("\n".join(name for name, *_ in wanted))
    if not wanted:
        sys.exit("bench: nothing has that name; --list shows the names")
    directory = os.path.abspath(options.directory or f"{options.build}/../bench")
    workspace = Workspace(options.build, directory, options.quick)
    kept = f"{directory}/results-{'quick' if options.quick else 'full'}"
    if not options.only and not options.resume:
        shutil.rmtree(kept, ignore_errors=True)
    results = Results(kept, workspace.fingerprint())
    if options.resume:
        wanted = [w for w in wanted if tuple(w[0].split("/")) not in results.all()]

    load = f"- Load before the run: {os.getloadavg()[0]:.2f}\n"
    try:
        measure_all(wanted, workspace, results, options.quick)
    finally:
        print("deleting the output", file=sys.stderr, flush=True)
        workspace.delete_spent()
    show(results.all(), workspace, options, load)


try:
    main()
except KeyboardInterrupt:
    sys.exit(130)
