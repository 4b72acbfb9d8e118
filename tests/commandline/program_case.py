# SPDX-License-Identifier: MIT
"""Shared by the tests of vesk-archive: running it, and an empty directory for every test.

ctest names the files under test in the environment. All names are bytes: the program promises
nothing about their encoding.
"""

import collections
import contextlib
import functools
import os
import pathlib
import pty
import re
import select
import shutil
import signal
import subprocess
import sys
import tarfile
import tempfile
import time
import unittest

sys.path.append(str(pathlib.Path(__file__).parents[1] / "support"))
from trees import read_tree, write_tree

PROGRAM = os.environb[b"VESK_ARCHIVE"]
MODULE = os.environb[b"VESK_MODULE"]
PATIENCE = 60  # seconds until a hanging program is given up

Result = collections.namedtuple("Result", "status out err")

TWO_FILES = {b"a": b"alpha", b"sub/b": b"beta"}
UNPACKING_CALLS = 7  # archive, after reading, destination, twice for each of two entries
MAKING_CALLS = 8  # archive, source, after collecting, twice for each of two entries, at the end

SUMMARY = rb", \d+\.\d\d s\n"


def environment(fault=None, call=1, **changes):
    """The test's environment; with a fault, the host call of that number fails."""
    variables = os.environ | {"LC_ALL": "C.UTF-8", "TERM": "xterm"} | changes
    if fault:
        variables.update(LD_PRELOAD=os.environ["VESK_FAULTY_HOST"], VESK_FAULT=fault,
                         VESK_FAULT_CALL=str(call))
    return variables


def traced(variables):
    """The environment for a traced program: the search for leaks does not work there."""
    options = [variables.get("ASAN_OPTIONS", ""), "detect_leaks=0"]
    return variables | {"ASAN_OPTIONS": ":".join(options)}


def is_instrumented():
    """Whether the program is built with a sanitizer, which needs /proc."""
    return b"__asan_init" in pathlib.Path(os.fsdecode(PROGRAM)).read_bytes()


def start(words, cwd, env=None, **options):
    streams = dict(stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    streams.update(options)
    program = streams.pop("program", PROGRAM)
    variables = env or environment()
    if program == "strace":
        variables = traced(variables)
    return subprocess.Popen([program, *words], cwd=cwd, env=variables, **streams)


def finish(process):
    """Ends the program's input and returns its result."""
    try:
        out, err = process.communicate(timeout=PATIENCE)
    except subprocess.TimeoutExpired:
        process.kill()
        process.communicate()
        raise
    return Result(process.returncode, out, err)


def wait_until(condition):
    deadline = time.monotonic() + PATIENCE
    while not condition():
        if time.monotonic() > deadline:
            raise TimeoutError
        time.sleep(0.01)


def status_line(process, name):
    status = pathlib.Path(f"/proc/{process.pid}/status").read_text()
    return re.search(rf"^{name}:\s*(\w+)", status, re.MULTILINE).group(1)


def catches(process, number):
    """Whether the process has a handler for the signal."""
    return int(status_line(process, "SigCgt"), 16) >> (number - 1) & 1


def send_and_await(process, number):
    """Sends the signal and waits until its immediate effects are over.

    A thread that it wakes runs from the moment of sending until it waits again.
    """
    def is_heeded():
        tasks = pathlib.Path(f"/proc/{process.pid}/task").glob("*/stat")
        states = {task.read_text().rpartition(")")[2].split()[0] for task in tasks}
        pending = int(status_line(process, "ShdPnd"), 16)
        return states == {"S"} and not pending >> (number - 1) & 1

    process.send_signal(number)
    wait_until(is_heeded)


@functools.cache
def can_mount():
    """Whether a program can have its own mounts."""
    with contextlib.suppress(FileNotFoundError):
        return subprocess.run(["unshare", "-rm", "mount", "-t", "tmpfs", "none", "/proc"],
                              capture_output=True, check=False).returncode == 0
    return False


def traced_calls(trace):
    """Yields the name of each system call in what strace wrote, its number among those of its name,
    and its arguments."""
    counts = collections.Counter()
    for call in re.finditer(rb"^(?:\d+ +)?(\w+)\((.*)", trace, re.MULTILINE):
        name = call[1].decode()
        counts[name] += 1
        yield name, counts[name], call[2].decode(errors="replace")


class CommandLineTest(unittest.TestCase):
    """An empty working directory for every test."""

    parent = None  # of the working directory: the system's for temporary files

    def setUp(self):
        directory = tempfile.TemporaryDirectory(prefix="vesk commandline ", dir=self.parent)
        self.addCleanup(directory.cleanup)
        self.cwd = os.fsencode(directory.name)

    def path(self, name):
        return os.path.join(self.cwd, name)

    def write(self, name, contents=b""):
        os.makedirs(os.path.dirname(self.path(name)), exist_ok=True)
        with open(self.path(name), "wb") as file:
            file.write(contents)

    def read(self, name):
        with open(self.path(name), "rb") as file:
            return file.read()

    def write_tree(self, name, files):
        write_tree(self.path(name), files)

    def write_archive(self, name, files, mode="w"):
        """An archive made by Python's tarfile."""
        self.write(name)
        self.write_tree(b"archived", files)
        with tarfile.open(os.fsdecode(self.path(name)), mode, format=tarfile.USTAR_FORMAT) as made:
            for file in files:
                made.add(os.fsdecode(self.path(b"archived/" + file)), os.fsdecode(file))
        shutil.rmtree(self.path(b"archived"))

    def run_program(self, *words, **options):
        return finish(start(words, self.cwd, **options))

    def assert_raised(self, result, message):
        """Fails unless the program printed this exception, then at most three lines of help."""
        told, first = result.err, b"vesk-archive: IOException: " + message + b"\n"
        self.assertEqual((result.status, result.out, told[:len(first)]), (1, b"", first))
        self.assertRegex(told[len(first):], rb"\A(?:  [^\n]*\n){0,3}\Z")

    def listing(self):
        return sorted(os.listdir(self.cwd))


class TerminalTest(CommandLineTest):
    """Standard error on a pseudo-terminal."""

    def start_on_terminal(self, *words, env=None):
        self.terminal, program_end = pty.openpty()
        self.addCleanup(os.close, self.terminal)
        process = start(words, self.cwd, env, stderr=program_end)
        os.close(program_end)
        return process

    def shown_until(self, pattern):
        shown = b""
        deadline = time.monotonic() + PATIENCE
        while not re.search(pattern, shown):
            self.assertLess(time.monotonic(), deadline, shown)
            if select.select([self.terminal], [], [], PATIENCE)[0]:
                shown += os.read(self.terminal, 4096)
        return shown

    def rest_shown(self, process, status=0):
        self.assertEqual(finish(process).status, status)
        shown = b""
        with contextlib.suppress(OSError):  # EIO: the program has ended, its end is closed
            while data := os.read(self.terminal, 4096):
                shown += data
        return shown
