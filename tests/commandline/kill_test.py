# SPDX-License-Identifier: MIT
"""vesk-archive is killed: at every instant there is the old archive or tree or the new one, whole, or
none where there was none before.

Run by ctest, which names the files under test in the environment. VESK_KILL_MOMENTS says at how many
moments, spread evenly over its running time, it is killed besides those before each of its system
calls; 50 where it is not set.
"""

import collections
import os
import shutil
import statistics
import sys
import time
import unittest

from program_case import *

MOMENTS = int(os.environ.get("VESK_KILL_MOMENTS", "50"))
MOST_ROUNDS = 20

# A file system that can neither exchange two names nor rename without replacing.
REFUSED = ("-e", "inject=renameat2:error=EINVAL")


class KillCase(CommandLineTest):
    """A verb that creates `target` below the directory work."""

    parent = "/dev/shm" if os.access("/dev/shm", os.W_OK | os.X_OK) else None

    def setUp(self):
        super().setUp()
        self.seen = collections.Counter()

    def prepare(self, old):
        shutil.rmtree(self.path(b"work"), ignore_errors=True)
        os.mkdir(self.path(b"work"))
        if old:
            self.write_old()

    def command(self, old):
        return self.words + ((b"--overwrite",) if old else ())

    def found(self):
        """Which complete one exists: "old", "new" or "nothing"."""
        if not os.path.lexists(self.path(self.target)):
            return "nothing"
        found = self.read_target(self.target)
        self.assertIn(found, [self.old, self.new])
        return "new" if found == self.new else "old"

    def left(self):
        return set(os.listdir(self.path(b"work"))) - {os.path.basename(self.target)}

    def judge(self, old, options):
        """Checks what a killed run has left, and the run after it."""
        found, left = self.found(), self.left()
        self.assertIn(found, ["new", "old" if old else "nothing", *self.in_between(old, options)])
        self.assertLessEqual(len(left), self.most_left)
        for name in left:
            self.assertRegex(name, self.telling)
        if old and found == "nothing":
            self.assertIn(self.old, [self.read_target(b"work/" + name) for name in left])
        self.seen[found] += 1
        self.seen["leftovers"] += bool(left)

        self.assertEqual(self.run_program(*self.command(True)), (0, b"", b""))
        self.assertEqual(self.found(), "new")
        self.assertEqual(self.left(), left)

    def trace(self, old, *options):
        """Runs the verb under strace to its end, or until it is killed; returns its status."""
        self.prepare(old)
        return self.run_program("-o", self.path(b"trace"), *options, PROGRAM, *self.command(old),
                                program="strace").status

    def kill_at_every_call(self, old, *options):
        self.assertEqual(self.trace(old, *options), 0)
        self.assertEqual(self.found(), "new")
        calls = [call[:2] for call in traced_calls(self.read(b"trace"))]
        self.assertGreater(len(calls), 100)
        # The first half is the start of the program, the same with and without exchanges.
        for name, number in calls[len(calls) // 2 if options else 0:]:
            # A refused call has no effect, so a kill there is one before the next call.
            if options and name == "renameat2":
                continue
            with self.subTest(old=old, options=options, call=name, number=number):
                # Only traced calls can be refused.
                status = self.trace(old, "-e", f"trace={name},renameat2", *options,
                                    "-e", f"inject={name}:signal=SIGKILL:when={number}")
                # The number of calls may differ by one or two from run to run.
                self.assertIn(status, [-signal.SIGKILL, 0])
                self.seen["killed"] += status != 0
                self.judge(old, options)
        self.tell(f"{len(calls)} calls")
        self.assertGreater(self.seen["killed"], len(calls) * (0.4 if options else 0.9))

    def run_for(self, old, seconds):
        self.prepare(old)
        process = start(self.command(old), self.cwd)
        time.sleep(seconds)
        process.kill()
        self.assertIn(finish(process).status, [-signal.SIGKILL, 0])

    def undisturbed_time(self, old):
        self.prepare(old)
        process = start(self.command(old), self.cwd)
        begin = time.perf_counter()
        self.assertEqual(process.wait(), 0)
        duration = time.perf_counter() - begin
        finish(process)
        return duration

    def kill_at_moments(self, old):
        duration = statistics.median(self.undisturbed_time(old) for _ in range(5))
        for moment in range(MOMENTS):
            with self.subTest(old=old, moment=moment):
                self.run_for(old, duration * moment / MOMENTS)
                self.judge(old, ())
        self.tell(f"{MOMENTS} moments")

    # The duration of a run varies with the load of the machine. So new moments are chosen until some
    # were during the work and some after its end. One round is nearly always enough.
    def kill_until_seen(self, old):
        for _ in range(MOST_ROUNDS):
            self.kill_at_moments(old)
            if self.seen["leftovers"] > 0 and self.seen["new"] > 0:
                return
        self.fail("the moments do not spread over the run")

    def tell(self, what):
        print(f"{self.id()}: {what}:", dict(self.seen), file=sys.stderr)

    def sweep(self, old, *options):
        self.make_input(3)
        self.kill_at_every_call(old, *options)
        seen = ["old" if old else "nothing", "new", "leftovers", *self.in_between(old, options)]
        for state in seen:
            self.assertGreater(self.seen[state], 0, state)


class Making(KillCase):
    target = b"work/a.tar"
    words = (b"make", b"--quiet", b"src", target)
    old = b"the old archive"
    telling = rb"\A\.a\.tar\.vesk-making-[A-Za-z0-9]{12}\Z"
    most_left = 1

    def make_input(self, files):
        self.write_tree(b"src", {b"%d" % number: b"x" * 3000 for number in range(files)})
        self.assertEqual(self.run_program(b"make", b"src", b"whole.tar").status, 0)
        self.new = self.read(b"whole.tar")

    def write_old(self):
        self.write(self.target, self.old)

    def read_target(self, name):
        return self.read(name)

    def in_between(self, old, options):
        return []

    def test_killed_at_every_system_call_of_replacing(self):
        self.sweep(True)

    def test_killed_at_every_system_call_of_making_a_new_archive(self):
        self.sweep(False)

    def test_killed_at_every_system_call_of_making_a_new_archive_by_linking(self):
        self.sweep(False, *REFUSED)

    def test_killed_at_any_time_of_replacing(self):
        self.make_input(500)
        self.kill_until_seen(True)

    def test_killed_at_any_time_of_making_a_new_archive(self):
        self.make_input(500)
        self.kill_until_seen(False)


class Unpacking(KillCase):
    target = b"work/tree"
    words = (b"unpack", b"--quiet", b"in.tar", target)
    old = {b"file": b"old", b"sub/only old": b"o", b"empty/": b""}
    telling = rb"\A\.tree\.vesk-(unpacking-new|unpacking-replacing|replaced)-[A-Za-z0-9]{6}\Z"
    most_left = 2

    def make_input(self, files):
        names = [(b"sub/" if number % 2 == 0 else b"") + b"%d" % number for number in range(files)]
        self.new = {name: b"new " + name for name in names} | {b"hollow/": b""}
        self.write_archive(b"in.tar", self.new)

    def write_old(self):
        write_tree(self.path(self.target), self.old)

    def read_target(self, name):
        return read_tree(self.path(name))

    def in_between(self, old, options):
        """Between the two renames that replace an exchange there is no tree."""
        return ["nothing"] if old and options else []

    def test_killed_at_every_system_call_of_replacing_by_exchange(self):
        self.sweep(True)

    def test_killed_at_every_system_call_of_replacing_by_two_renames(self):
        self.sweep(True, *REFUSED)

    def test_killed_at_every_system_call_of_unpacking_a_new_tree(self):
        self.sweep(False)

    def test_killed_at_every_system_call_of_unpacking_a_new_tree_by_plain_rename(self):
        self.sweep(False, *REFUSED)

    def test_killed_at_any_time_of_replacing(self):
        self.make_input(200)
        self.kill_until_seen(True)

    def test_killed_at_any_time_of_unpacking_a_new_tree(self):
        self.make_input(200)
        self.kill_until_seen(False)


if __name__ == "__main__":
    unittest.main(verbosity=2)
