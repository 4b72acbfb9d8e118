# SPDX-License-Identifier: MIT
"""Measuring one job on one data set: every contender in turn, round after round."""
import hashlib
import mmap
import os
import re
import resource
import shutil
import subprocess
import tempfile
import time

from contenders import FLOOR, VESK, Where, contenders_of
from goals import has_time_goal

MEMORY_FILE_SYSTEM = "/dev/shm"
FEW_ROUNDS = 3
MOST_UNHURRIED = 4 << 30  # bytes; to hold more again takes long


def run(words, **options):
    """Runs a command of the benchmark's own and returns its output; raises with what it said."""
    result = subprocess.run(words, stdout=subprocess.PIPE, stderr=subprocess.PIPE, **options)
    if result.returncode != 0:
        said = result.stderr.decode(errors="replace").strip()
        raise SystemExit(f"bench: failed: {' '.join(map(str, words))}\n{said}")
    return result.stdout


def file_names(source):
    """Names of the files below `source`, in byte order."""
    return sorted(run(["find", source, "-type", "f", "-printf", r"%P\0"]).split(b"\0")[:-1])


def free_memory():
    """Returns the bytes that nobody uses, not even as a cache."""
    with open("/proc/meminfo") as file:
        return next(int(line.split()[1]) for line in file if line.startswith("MemFree")) * 1024


def tell_kernel(setting, value):
    """Writes one of the system's settings, where the user may."""
    path = f"/proc/sys/vm/{setting}"
    if os.access(path, os.W_OK):
        with open(path, "w") as file:
            file.write(value)


def clear_memory():
    """Empties the caches and gathers what is free into large pages, so that every benchmark begins
    with the same memory."""
    os.sync()
    tell_kernel("drop_caches", "3")
    tell_kernel("compact_memory", "1")


def uncache(path):
    """Takes a file, or the files below a directory, out of the page cache once they are on the
    disk: kept there, one output after another would break the free memory up into small pages."""
    os.sync()
    directories = os.walk(path) if os.path.isdir(path) else [("", [], [path])]
    for directory, _, names in directories:
        for name in names:
            file = os.open(os.path.join(directory, name), os.O_RDONLY)
            os.posix_fadvise(file, 0, 0, os.POSIX_FADV_DONTNEED)
            os.close(file)


class Ballast:
    """Memory that is held between the runs and given back for them, in use again and again.

    The host of a virtual machine may take back what lies free, and is slow to hand it out again: a
    run that gets such memory can take several times as long as the next one. Linux reports all that
    is free two seconds after something large was freed. So nothing is given back before that is
    past; a run then has two seconds until the next report."""

    BLOCK = 64 << 20
    SPARE = 512 << 20  # is left free all the time: with less, the page cache is emptied in part
    REPORTED = 2.5  # seconds after something was freed, when the report is over
    FAULTS = 256  # of a block in large pages at most; in small ones it is 16,384

    def __init__(self, wanted):
        self.wanted = wanted
        self.blocks = []  # in large pages, which is how they are given back
        self.scattered = []  # the others, given back last
        self.content = b"\1" * self.BLOCK
        self.held_at = time.monotonic()

    def hold(self):
        """Takes all free memory but the spare, if that is wanted."""
        self.held_at = time.monotonic()
        free = free_memory() - self.SPARE
        while self.wanted and free >= self.BLOCK:
            self.take()
            free -= self.BLOCK

    def take(self):
        block = mmap.mmap(-1, self.BLOCK, flags=mmap.MAP_PRIVATE | mmap.MAP_ANONYMOUS)
        block.madvise(mmap.MADV_HUGEPAGE)
        before = resource.getrusage(resource.RUSAGE_SELF).ru_minflt
        block.write(self.content)
        faults = resource.getrusage(resource.RUSAGE_SELF).ru_minflt - before
        (self.blocks if faults <= self.FAULTS else self.scattered).append(block)

    def wait_for_report(self):
        """Waits until no report is due for what was freed before the last hold()."""
        if self.wanted:
            time.sleep(max(0, self.held_at + self.REPORTED - time.monotonic()))

    def give_back(self, wanted):
        """Gives back at least `wanted` bytes, or what there is, and fetches the spare: small pages
        are taken from that before a block is broken up."""
        if not self.wanted:
            return
        while wanted > 0 and (self.blocks or self.scattered):
            (self.blocks or self.scattered).pop().close()
            wanted -= self.BLOCK
        flags = mmap.MAP_PRIVATE | mmap.MAP_ANONYMOUS | mmap.MAP_POPULATE
        mmap.mmap(-1, self.SPARE, flags=flags).close()


class Workspace:
    """The directories and programs of a run, and the data and archives that its jobs share."""

    def __init__(self, build, directory, quick):
        self.build = build
        self.directory = directory
        self.archives = set()
        clear_memory()
        # The host of a virtual machine may have to fetch the memory first. That takes a minute or
        # two, too long for a quick run.
        self.ballast = Ballast(wanted=not quick)
        os.makedirs(f"{directory}/data", exist_ok=True)
        os.makedirs(f"{directory}/spent", exist_ok=True)
        self.programs = {
            "vesk": f"{build}/bin/vesk-archive",
            "floor": f"{build}/bin/vesk-floor",
            "python": "/usr/bin/python3",
            "tarfile": os.path.join(
                os.path.dirname(os.path.abspath(__file__)), "tarfile_contender.py"
            ),
        }

    def fingerprint(self):
        """Tells builds apart, so that results of two of them never share a table."""
        digest = hashlib.sha256()
        for name in (
            "bin/vesk-archive",
            "bin/vesk-floor",
            "lib/libvesk_io_archives.so",
            "lib/libvesk_standin_host.so",
        ):
            with open(f"{self.build}/{name}", "rb") as file:
                digest.update(file.read())
        return digest.hexdigest()

    def source(self, data_set):
        return f"{self.directory}/data/{data_set.name}"

    def prepare(self, data_set):
        """Makes the data set unless an earlier run left it whole."""
        source = self.source(data_set)
        if os.path.exists(source + ".names"):
            return
        shutil.rmtree(source, ignore_errors=True)
        os.mkdir(source)
        data_set.fill(source)
        with open(source + ".names", "wb") as file:
            file.writelines(name + b"\0" for name in file_names(source))

    def archive(self, data_set, suffix):
        """Returns an archive of a data set, made once in each run, since vesk-archive makes it."""
        source = self.source(data_set)
        archive = source + suffix
        if archive in self.archives:
            return archive
        if suffix == ".6.tgz":
            with open(archive, "wb") as file, open(self.archive(data_set, ".tar"), "rb") as tar:
                subprocess.run(["gzip", "-6"], stdin=tar, stdout=file, check=True)
        elif suffix:
            form = suffix.lstrip(".")
            run(
                [
                    self.programs["vesk"],
                    "make",
                    "--quiet",
                    "--overwrite",
                    "--format",
                    form,
                    source,
                    archive,
                ]
            )
        self.archives.add(archive)
        return archive

    def forget(self, data_set):
        """Deletes a data set and its archives, which would fill the disk, or puts it by."""
        source = self.source(data_set)
        for suffix in (".names", ".tar", ".tgz", ".6.tgz"):
            if os.path.exists(source + suffix):
                os.remove(source + suffix)
            self.archives.discard(source + suffix)
        if data_set.few_files:
            shutil.rmtree(source, ignore_errors=True)
        elif os.path.exists(source):
            os.rename(source, f"{self.new_output()}/source")

    def new_output(self, parent=None):
        return tempfile.mkdtemp(prefix="output-", dir=parent or f"{self.directory}/spent")

    def delete_spent(self):
        """Deletes what was put by: many trees at once, since each file may wait for the disk."""
        trees = run(
            ["find", f"{self.directory}/spent", "-mindepth", "3", "-maxdepth", "3", "-print0"]
        )
        run(["xargs", "-0", "-r", "-P", "32", "-n", "16", "rm", "-rf"], input=trees)
        shutil.rmtree(f"{self.directory}/spent")
        os.mkdir(f"{self.directory}/spent")
        os.sync()

    def sizes(self, data_set):
        source = self.source(data_set)
        with open(source + ".names", "rb") as file:
            names = file.read().split(b"\0")[:-1]
        sizes = [os.path.getsize(os.path.join(source.encode(), name)) for name in names]
        return {"files": len(sizes), "bytes": sum(sizes), "largest": max(sizes)}


class Contest:
    """One job on one data set. Outputs get new names, and trees of many files are put by when the
    job is done: for minutes after they are deleted, some file systems are several times slower at
    making new ones, and unevenly so. In memory that does not matter, and room is short."""

    def __init__(self, workspace, job, data_set, quick, memory):
        self.workspace, self.job, self.data_set = workspace, job, data_set
        self.quick, self.memory = quick, memory
        self.contenders = contenders_of(job, data_set, quick, memory)
        self.rounds = {contender.name: self.rounds_of(contender) for contender in self.contenders}

    def rounds_of(self, contender):
        if self.data_set.name == "large" and "tgz" in self.job.name:
            return 1  # for its memory; no goal is set for the time
        job = f"{self.job.name}{'@memory' if self.memory else ''}"
        needed = self.data_set.series or has_time_goal(job, self.data_set.name)
        few = self.quick or contender.where == Where.EXTRA or not needed
        return min(self.data_set.rounds, FEW_ROUNDS) if few else self.data_set.rounds

    def measure(self):
        self.archive = self.workspace.archive(self.data_set, self.job.archive)
        self.sizes = self.workspace.sizes(self.data_set)
        self.output = self.workspace.new_output(MEMORY_FILE_SYSTEM if self.memory else None)
        try:
            self.check_room()
            result = dict(self.sizes)
            warm_up = {contender.name: self.warm_up(contender) for contender in self.contenders}
            result["archive"] = self.made_size if self.job.makes else os.path.getsize(self.archive)
            result["costs"] = self.timed_rounds(warm_up)
            result["calls"] = self.system_calls()
            result["instructions"] = self.counted("callgrind", r"Collected : (\d+)")
            result["allocations"] = self.counted("dhat", r"Total: .* in ([\d,]+) blocks")
            return result
        finally:
            if self.memory or self.data_set.few_files:
                shutil.rmtree(self.output)
            else:
                self.delete_archives()

    def delete_archives(self):
        for entry in os.scandir(self.output):
            if entry.is_file():
                os.remove(entry.path)

    def warm_up(self, contender):
        made = self.once(contender, "verified")
        self.give_back_memory()
        self.verify(contender, made["out"])
        self.uncache(made["out"])
        self.make_room("verified")
        return made["cost"]

    def timed_rounds(self, warm_up):
        """Where one round is all there is time for, the warm-up is that round."""
        costs = {name: [warm_up[name]] if self.rounds[name] == 1 else [] for name in warm_up}
        for number in range(max(self.rounds.values())):
            # The order is reversed each time, so that no contender always follows the same one.
            order = self.contenders if number % 2 == 0 else self.contenders[::-1]
            for contender in order:
                if number < self.rounds[contender.name] and self.rounds[contender.name] > 1:
                    costs[contender.name].append(self.cost_of(contender, f"round{number}"))
            self.make_room(f"round{number}")
        return costs

    def check_room(self):
        kept = 1 if self.memory else max(self.rounds.values()) + 3
        of_one = self.sizes["bytes"] + 4096 * self.sizes["files"]
        needed = kept * len(self.contenders) * of_one + (1 << 30)
        if shutil.disk_usage(self.output).free < needed:
            raise SystemExit(f"bench: {self.output} needs {needed / 1e9:.0f} GB of free space")

    def make_room(self, label):
        if not self.memory:
            return
        for name in os.listdir(self.output):
            if label in name:
                path = f"{self.output}/{name}"
                shutil.rmtree(path) if os.path.isdir(path) else os.remove(path)

    def command(self, contender, out):
        """Returns the file for the standard output and the words, pipes among them."""
        source = self.workspace.source(self.data_set)
        values = {"source": source, "names": source + ".names", "archive": self.archive, "out": out}
        words = [
            word.format(**values, **self.workspace.programs) for word in contender.line.split()
        ]
        if words[-2] == ">":
            return words[-1], words[:-2]
        return "/dev/null", words

    def once(self, contender, label, prefix=()):
        """Runs a contender once and returns what it made and what it cost."""
        out = f"{self.output}/{self.contenders.index(contender)}-{label}"
        if "-C {out}" in contender.line:
            os.mkdir(out)
        stdout, words = self.command(contender, out)
        words = [
            *prefix,
            *(w for word in words for w in ([word, *prefix] if word == "|" else [word])),
        ]
        self.workspace.ballast.hold()
        os.sync()  # so that nobody pays for what the one before left unwritten
        measure = f"{self.workspace.build}/bin/vesk-measure"
        source = self.workspace.source(self.data_set)
        if self.taken() > Ballast.BLOCK:
            self.workspace.ballast.wait_for_report()
        self.give_back_memory()
        self.read_input(contender)
        lines = run([measure, stdout, *words], cwd=source).decode().split("\n")
        self.workspace.ballast.hold()
        commands = [list(map(float, line.split())) for line in lines[1:-1]]
        return {
            "out": out,
            "cost": {
                "wall": float(lines[0].split()[1]),
                "user": sum(command[1] for command in commands),
                "system": sum(command[2] for command in commands),
                "peak": int(max(command[3] for command in commands)) * 1024,
                "faults": int(sum(command[4] for command in commands)),
            },
        }

    def read_input(self, contender):
        """Reads what a contender reads, some of which may have left the page cache since the last
        time. A quick run leaves the memory alone, so that the warm-up is enough."""
        if self.quick:
            return
        source = self.workspace.source(self.data_set)
        words = ["cat", self.archive]
        if "{archive}" not in contender.line:
            words = ["xargs", "-0", "-a", source + ".names", "cat"]
        subprocess.run(words, cwd=source, stdout=subprocess.DEVNULL, check=True)

    def cost_of(self, contender, label, prefix=()):
        made = self.once(contender, label, prefix)
        self.uncache(made["out"])
        return made["cost"]

    def uncache(self, out):
        """The few outputs of a quick run do not use up the free memory."""
        if not self.quick:
            uncache(out)

    def taken(self):
        """Returns as many bytes as any contender takes, its output in the page cache included."""
        return 4 * self.sizes["bytes"] + 8192 * self.sizes["files"]

    def give_back_memory(self):
        """Gives back what any contender takes, and a spare. Where less than some ten times the
        output is at hand, the system begins to write to the disk during the run, and a run may have
        to wait for that."""
        taken = self.taken() + Ballast.SPARE
        unhurried = 0 if self.memory else min(16 * self.sizes["bytes"], MOST_UNHURRIED)
        self.workspace.ballast.give_back(max(taken, unhurried))

    def system_calls(self):
        """Counts every system call of a contender, in runs of their own that are not timed."""
        if self.data_set.name != "small" or self.memory:
            return {}
        calls = {}
        # Tracing takes many times as long as the run, so only the main contenders are traced.
        traced = [c for c in self.contenders if c.where < Where.EXTRA or c.name.startswith("bsdtar")]
        if self.quick:
            traced = traced[:1]
        # vesk-archive asks for signals once a millisecond, and tracing takes many of those.
        options = ("-f", "-c", "-U", "calls,name", "-e", "trace=!rt_sigpending")
        for contender in traced:
            report = f"{self.output}/calls"
            strace = ("strace", *options, "-A", "-o", report)
            open(report, "w").close()
            self.cost_of(contender, "traced", strace)
            with open(report) as file:
                rows = [line.split() for line in file]
            calls[contender.name] = sum(int(r[0]) for r in rows if len(r) == 2 and r[1] == "total")
        return calls

    def counted(self, tool, pattern):
        """Counts in user space by a tool of valgrind's, in runs that are not timed: what it says at
        the end, for vesk-archive, the floor and the first of the others."""
        plain = self.job.name in ("make-tar", "unpack-tar")
        if self.data_set.name != "small" or self.memory or self.quick or not plain:
            return {}
        counts = {}
        for contender in self.contenders[:3]:
            said = f"{self.output}/said"
            options = ("--callgrind-out-file=/dev/null", "--dhat-out-file=/dev/null")
            option = next(option for option in options if tool in option)
            valgrind = ("valgrind", f"--tool={tool}", f"--log-file={said}", option)
            self.cost_of(contender, tool, valgrind)
            with open(said) as file:
                counts[contender.name] = int(re.search(pattern, file.read())[1].replace(",", ""))
        return counts

    def verify(self, contender, out):
        if contender.name.startswith("cat"):
            right = os.path.getsize(out) == self.sizes["bytes"]
        elif self.job.makes:
            right = self.archive_is_right(contender, out)
        else:
            right = self.tree_is_right(out)
        if not right:
            raise SystemExit(f"bench: {contender.name} at {self.job.name} gave something else")
        if contender.name == VESK and self.job.makes:
            self.made_size = os.path.getsize(out)

    def archive_is_right(self, contender, archive):
        if contender.name == FLOOR:
            run(["cmp", archive, self.workspace.archive(self.data_set, ".tar")])
            return True
        listed = run(["tar", "--quoting-style=literal", "-tf", archive]).split(b"\n")[:-1]
        names = [name.removeprefix(b"./") for name in listed if not name.endswith(b"/")]
        with open(self.workspace.source(self.data_set) + ".names", "rb") as file:
            expected = file.read().split(b"\0")[:-1]
        if contender.name != VESK:
            return sorted(names) == expected
        # For empty files, the names are the whole content.
        return names == expected and (
            self.data_set.series == "empty" or self.contents_are_right(archive)
        )

    def contents_are_right(self, archive):
        tree = archive + ".unpacked-verified"
        os.mkdir(tree)
        run(["tar", "-xf", archive, "-C", tree])
        return self.tree_is_right(tree)

    def tree_is_right(self, tree):
        run(["diff", "-r", "--no-dereference", "-q", self.workspace.source(self.data_set), tree])
        return True
