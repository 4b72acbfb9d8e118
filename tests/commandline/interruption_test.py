# SPDX-License-Identifier: MIT
"""What vesk-archive does on signals and without memory: nothing is left half done.

Run by ctest, which names the files under test in the environment.
"""

import contextlib
import fcntl
import itertools
import os
import pty
import random
import re
import resource
import select
import shutil
import signal
import time
import unittest

from program_case import *

UNTOUCHED = {"unpack": b"vesk-archive: interrupted; the destination is as it was\n",
             "make": b"vesk-archive: interrupted; the archive was not written\n"}

REMOVABLE = b"' is left and can be removed unless another unpacking made it\n"

# Signals that end a process unless it handles them, and that it can handle.
ENDING = [signal.SIGHUP, signal.SIGINT, signal.SIGQUIT, signal.SIGTERM, signal.SIGUSR1,
          signal.SIGUSR2, signal.SIGALRM, signal.SIGXCPU, signal.SIGVTALRM, signal.SIGPROF,
          signal.SIGIO, signal.SIGPWR, 16, signal.SIGRTMIN, signal.SIGRTMIN + 7, signal.SIGRTMAX]


def no_core_file():
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


def finish_waiting(process):
    """The result of a program that ends although its input does not."""
    process.wait(PATIENCE)
    return finish(process)


class SignalCase(CommandLineTest):
    UNPACK = (b"unpack", b"--overwrite", b"in.tar", b"dest")
    MAKE = (b"make", b"--overwrite", b"src", b"in.tar")
    MAKE_NEW = (b"make", b"src", b"new.tar")

    def setUp(self):
        super().setUp()
        self.write_tree(b"src", TWO_FILES)
        self.write_archive(b"in.tar", TWO_FILES)

    def waiting(self, words, call, **changes):
        """The program, waiting at the host call of that number."""
        process = start(words, self.cwd, environment("wait", call, **changes),
                        preexec_fn=no_core_file)
        self.assertEqual(process.stdout.read(1), b".")
        wait_until(lambda: status_line(process, "State") == "S")
        return process

    def slow(self, words, function, **changes):
        """The program, waiting before that function does its work for the first time."""
        process = start(words, self.cwd, environment("none", VESK_SLOW=function, **changes))
        self.assertEqual(process.stdout.read(1), b".")
        return process

    def waiting_unpack(self, **changes):
        return self.waiting(self.UNPACK, UNPACKING_CALLS, **changes)


class FaultAtEveryCallTest(SignalCase):
    """Signals and lack of memory at every single host call, as the real module makes them."""

    def assert_nothing_is_left(self, words, calls, fault, status, err, **changes):
        before = read_tree(self.cwd), self.listing()
        for call in range(1, calls + 1):
            with self.subTest(words=words, fault=fault, call=call):
                result = self.run_program(*words, env=environment(fault, call, **changes))
                self.assertEqual(result, (status, b"", err))
                self.assertEqual((read_tree(self.cwd), self.listing()), before)
        # The run has no more calls: every one has been tried.
        result = self.run_program(*words, env=environment(fault, calls + 1))
        self.assertEqual(result.status, 0)

    def test_a_signal_in_the_middle_of_unpacking_leaves_no_staging_and_no_destination(self):
        for number in [2, 15, 1]:
            self.assert_nothing_is_left(self.UNPACK, UNPACKING_CALLS, str(number), -number,
                                        UNTOUCHED["unpack"])
            shutil.rmtree(self.path(b"dest"))

    def test_a_signal_in_the_middle_of_unpacking_leaves_the_old_destination(self):
        self.write(b"dest/old", b"old")
        self.assert_nothing_is_left(self.UNPACK, UNPACKING_CALLS, "2", -2, UNTOUCHED["unpack"])

    def test_a_signal_in_the_middle_of_making_leaves_the_old_archive(self):
        self.assert_nothing_is_left(self.MAKE, MAKING_CALLS, "2", -2, UNTOUCHED["make"])

    def test_a_signal_is_handled_if_no_thread_can_be_started(self):
        self.assert_nothing_is_left(self.MAKE, MAKING_CALLS, "2", -2, UNTOUCHED["make"],
                                    VESK_NO_THREADS="1")
        self.assert_nothing_is_left(self.UNPACK, UNPACKING_CALLS, "15", -15, UNTOUCHED["unpack"],
                                    VESK_NO_THREADS="1")

    def test_lack_of_memory_is_status_3_and_leaves_nothing(self):
        err = (b"vesk-archive: not enough memory: archives are held in memory whole; "
               b"free some or handle less at once\n")
        for fault in ["bad_alloc", "length_error"]:
            self.assert_nothing_is_left(self.UNPACK, UNPACKING_CALLS, fault, 3, err)
            shutil.rmtree(self.path(b"dest"))
            self.assert_nothing_is_left(self.MAKE, MAKING_CALLS, fault, 3, err)

    @unittest.skipIf(is_instrumented(), "a sanitizer has memory of its own")
    def test_lack_of_memory_after_the_work_changes_no_status(self):
        result = self.run_program(b"make", b"src", b"new.tar",
                                  env=environment("none", VESK_NO_MEMORY="1"))
        self.assertEqual(result, (0, b"", b""))
        self.assertEqual(self.listing(), [b"in.tar", b"new.tar", b"src"])


class InterruptionTest(SignalCase):
    """Which signals end the program, and how it ends by them."""

    def test_every_signal_that_ends_a_process_is_handled_and_ends_the_program_itself(self):
        for verb, words, call in [("unpack", self.UNPACK, UNPACKING_CALLS),
                                  ("make", self.MAKE, MAKING_CALLS)]:
            for number in ENDING:
                with self.subTest(verb=verb, signal=number):
                    result = self.run_program(*words, env=environment(str(int(number)), call),
                                              preexec_fn=no_core_file)
                    self.assertEqual(result, (-number, b"", UNTOUCHED[verb]))
                    self.assertEqual(self.listing(), [b"in.tar", b"src"])

    def test_a_signal_from_another_process_is_handled_at_the_next_host_call(self):
        process = self.waiting_unpack()
        self.assertEqual(len(self.listing()), 3, "a staging directory is being filled")
        send_and_await(process, signal.SIGINT)
        self.assertEqual(finish(process), (-signal.SIGINT, b"", UNTOUCHED["unpack"]))
        self.assertEqual(self.listing(), [b"in.tar", b"src"])

    def test_another_unpacking_s_directory_is_not_named_after_a_complete_cleanup(self):
        process = self.waiting_unpack()
        os.mkdir(self.path(b".dest.vesk-unpacking-new-other1"))
        send_and_await(process, signal.SIGINT)
        self.assertEqual(finish(process), (-signal.SIGINT, b"", UNTOUCHED["unpack"]))

    def test_a_signal_after_the_last_check_for_one_ends_the_program_at_once(self):
        for words in [self.MAKE, self.UNPACK]:
            with self.subTest(words=words):
                process = start(words + (b"--quiet",), self.cwd,
                                environment("none", VESK_HOLD_UP="done"))
                self.assertEqual(process.stdout.read(1), b".")
                process.send_signal(signal.SIGTERM)
                self.assertEqual(process.wait(PATIENCE), -signal.SIGTERM)
                self.assertEqual(finish(process).err, b"")

    def test_a_second_signal_ends_the_program_at_once_and_its_leftovers_are_named(self):
        for first, second in [(signal.SIGINT, signal.SIGINT), (signal.SIGTERM, signal.SIGINT),
                              (signal.SIGINT, signal.SIGALRM), (signal.SIGINT, signal.SIGRTMAX)]:
            with self.subTest(first=first, second=second):
                process = self.waiting_unpack()
                send_and_await(process, first)
                process.send_signal(second)
                self.assertEqual(process.wait(PATIENCE), -second)
                self.assert_the_left_over_is_named(finish(process).err)

    def assert_the_left_over_is_named(self, err, beginning=b"vesk-archive: interrupted"):
        left = [name for name in self.listing() if name.startswith(b".dest.vesk-")]
        self.assertEqual(len(left), 1)
        self.assertEqual(err, beginning + b"; '" + left[0] + REMOVABLE)
        shutil.rmtree(self.path(left[0]))

    def test_a_signal_ends_a_blocked_program_and_its_leftovers_are_named(self):
        stale = b".dest.vesk-unpacking-new-stale1"
        others = [b".destiny.vesk-unpacking-new-other1", b".des.vesk-unpacking-new-other2",
                  b"dest.vesk-unpacking-new-other3", b"xdest.vesk-unpacking-new-other4",
                  b".dest.vest"]
        self.write(stale, b"of an earlier run")
        time.sleep(0.05)  # longer than the steps of the clock by which files are dated
        for changes in [{}, {"VESK_NO_THREADS": "1"}]:
            with self.subTest(changes=changes):
                process = self.waiting_unpack(VESK_PATIENCE="ordinary", **changes)
                for name in others:
                    self.write(name, b"of something else")
                process.send_signal(signal.SIGTERM)
                self.assertEqual(process.wait(PATIENCE), -signal.SIGTERM)
                os.rename(self.path(stale), self.path(b"stale"))
                self.assert_the_left_over_is_named(finish(process).err)
                os.rename(self.path(b"stale"), self.path(stale))
                time.sleep(0.05)

    def test_without_a_timer_the_first_signal_ends_the_program_at_once(self):
        process = self.waiting_unpack(VESK_NO_TIMER="1")
        process.send_signal(signal.SIGTERM)
        self.assertEqual(process.wait(PATIENCE), -signal.SIGTERM)
        self.assert_the_left_over_is_named(finish(process).err)

    def test_a_leftover_is_named_by_its_path_escaped_for_a_terminal(self):
        for dest, shown in [(b"new\xff/d\x1b", rb"new\\377/\.d\\033"),
                            (b"new/\xc3\xa4\n", b"new/\\.\xc3\xa4\\\\012"),
                            (b"new/" + b"l\xff" * 125, rb"new/\.(l\\377){100,125}")]:
            with self.subTest(dest=dest):
                terminal, program_end = pty.openpty()
                self.addCleanup(os.close, terminal)
                process = start((b"unpack", b"in.tar", dest + b"//././"), self.cwd,
                                environment("wait", UNPACKING_CALLS, VESK_PATIENCE="ordinary",
                                            TERM="dumb"), stderr=program_end)
                os.close(program_end)
                process.stdout.read(1)
                process.send_signal(signal.SIGTERM)
                self.assertEqual(process.wait(PATIENCE), -signal.SIGTERM)
                finish(process)
                self.assertRegex(os.read(terminal, 4096),
                                 rb"\Avesk-archive: interrupted; '" + shown +
                                 rb"\.vesk-unpacking-[\w-]+" + REMOVABLE[:-1] + rb"\r\n\Z")
                shutil.rmtree(self.path(os.path.dirname(dest)))

    def test_a_leftover_whose_name_is_cut_very_short_is_named(self):
        for dest in [b"\x80" * 240, b"ab" + b"\x80" * 238]:
            with self.subTest(dest=dest):
                process = self.waiting((b"unpack", b"in.tar", dest), UNPACKING_CALLS,
                                       VESK_PATIENCE="ordinary")
                other = b".b.vesk-unpacking-new-aaaaaa"
                os.mkdir(self.path(other))
                [left] = [name for name in self.listing() if b".vesk-" in name and name != other]
                process.send_signal(signal.SIGTERM)
                said = finish_waiting(process).err
                self.assertIn(b"'" + left + b"' is left", said)
                self.assertNotIn(other, said)
                shutil.rmtree(self.path(left))
                os.rmdir(self.path(other))

    def test_if_the_directory_cannot_be_read_something_may_be_left(self):
        os.mkdir(self.path(b"closed"))
        os.chmod(self.cwd, 0o755)
        os.chmod(self.path(b"closed"), 0o333)

        def become_ordinary_user():
            if os.geteuid() == 0:
                os.setgroups([])
                os.setresgid(65534, 65534, 65534)
                os.setresuid(65534, 65534, 65534)
        process = start((b"unpack", b"in.tar", b"closed/dest"), self.cwd,
                        environment("wait", UNPACKING_CALLS, VESK_PATIENCE="ordinary"),
                        preexec_fn=become_ordinary_user)
        self.assertEqual(process.stdout.read(1), b".")
        process.send_signal(signal.SIGTERM)
        self.assertEqual(finish_waiting(process).err, b"vesk-archive: interrupted; something may be "
                         b"left beside the destination\n")
        os.chmod(self.path(b"closed"), 0o755)
        self.assertEqual(len(os.listdir(self.path(b"closed"))), 1)

    def test_one_signal_is_enough_while_the_program_waits_for_a_fifo_to_be_opened(self):
        os.mkfifo(self.path(b"fifo.tar"))
        rows = [("make", (b"make", b"--overwrite", b"src", b"fifo.tar")),
                ("make", (b"make", b"src", b"new.tar", b"--module", b"fifo.tar")),
                ("unpack", (b"unpack", b"in.tar", b"dest", b"--module", b"fifo.tar"))]
        for (verb, words), number in itertools.product(rows, [signal.SIGTERM, signal.SIGALRM]):
            with self.subTest(words=words, signal=number):
                process = start(words, self.cwd)
                wait_until(lambda: pathlib.Path(f"/proc/{process.pid}/wchan").read_text()
                           in ["wait_for_partner", "fifo_open", "0"]
                           and status_line(process, "State") == "S"
                           and catches(process, number))
                process.send_signal(number)
                self.assertEqual(finish(process), (-number, b"", UNTOUCHED[verb]))
                self.assertEqual(self.listing(), [b"fifo.tar", b"in.tar", b"src"])

    def test_a_blocked_making_leaves_nothing(self):
        for words in [self.MAKE, self.MAKE_NEW]:
            with self.subTest(words=words):
                process = self.slow(words, "writev", VESK_PATIENCE="ordinary")
                self.assertEqual(len(self.listing()), 3, "the archive's file is there")
                before = self.read(b"in.tar")
                process.send_signal(signal.SIGTERM)
                self.assertEqual(finish_waiting(process), (-signal.SIGTERM, b"", UNTOUCHED["make"]))
                self.assertEqual((self.listing(), self.read(b"in.tar")), ([b"in.tar", b"src"], before))

    def test_an_unfinished_archive_that_cannot_be_removed_is_named(self):
        process = self.slow(self.MAKE, "writev", VESK_PATIENCE="ordinary")
        [hidden] = [name for name in self.listing() if b"vesk-making" in name]
        os.remove(self.path(hidden))
        os.mkdir(self.path(hidden))
        process.send_signal(signal.SIGTERM)
        self.assertEqual(finish_waiting(process).err,
                         b"vesk-archive: interrupted; '" + hidden + b"' is left and can be removed\n")

    def test_an_unfinished_archive_is_named_escaped_for_a_terminal(self):
        terminal, program_end = pty.openpty()
        self.addCleanup(os.close, terminal)
        process = start((b"make", b"src", b"n\x1b\n.tar"), self.cwd,
                        environment("none", VESK_SLOW="writev", VESK_PATIENCE="ordinary",
                                    TERM="dumb"),
                        stderr=program_end)
        os.close(program_end)
        self.assertEqual(process.stdout.read(1), b".")
        [hidden] = [name for name in self.listing() if b"vesk-making" in name]
        os.remove(self.path(hidden))
        os.mkdir(self.path(hidden))
        process.send_signal(signal.SIGTERM)
        finish_waiting(process)
        self.assertRegex(os.read(terminal, 4096), rb"\Avesk-archive: interrupted; '\.n\\033\\012\.tar"
                         rb"\.vesk-making-\w{12}' is left and can be removed\r\n\Z")

    def test_an_archive_in_its_place_is_not_reported_as_missing(self):
        """The renaming is done, but the system is slow to report it."""
        for words, function, archive in [(self.MAKE, "rename", b"in.tar"),
                                         (self.MAKE_NEW, "renameat2", b"new.tar")]:
            with self.subTest(words=words):
                process = self.slow(words, function, VESK_PATIENCE="ordinary")
                [hidden] = [name for name in self.listing() if b"vesk-making" in name]
                os.rename(self.path(hidden), self.path(archive))
                process.send_signal(signal.SIGTERM)
                self.assertEqual(finish_waiting(process).err,
                                 b"vesk-archive: interrupted; the archive was written\n")

    def test_the_end_is_reported_once(self):
        for words in [self.MAKE, self.UNPACK, (b"make", b"none", b"new.tar")]:
            with self.subTest(words=words):
                process = start(words, self.cwd, environment("none", VESK_PATIENCE="ordinary",
                                                             VESK_HOLD_UP="said"))
                self.assertEqual(process.stdout.read(1), b".")
                process.send_signal(signal.SIGTERM)
                result = finish_waiting(process)
                self.assertEqual(result.status, -signal.SIGTERM)
                self.assertEqual(result.err.count(b"\n"), 1)
                self.assertNotIn(b"interrupted", result.err)

    def full_pipe(self):
        """The writing end of a full pipe."""
        reading, writing = os.pipe()
        self.addCleanup(os.close, reading)
        fcntl.fcntl(writing, fcntl.F_SETFL, os.O_NONBLOCK)
        with contextlib.suppress(BlockingIOError):
            while True:
                os.write(writing, b"x")
        fcntl.fcntl(writing, fcntl.F_SETFL, 0)
        return writing

    def test_a_full_pipe_as_standard_error_keeps_no_program_alive(self):
        writing = self.full_pipe()
        process = start(self.UNPACK, self.cwd, stderr=writing)
        wait_until(lambda: os.path.exists(self.path(b"dest")))
        process.send_signal(signal.SIGTERM)
        self.assertEqual(finish(process).status, -signal.SIGTERM)
        process = start(self.UNPACK, self.cwd, stderr=writing,
                        env=environment("wait", UNPACKING_CALLS, VESK_PATIENCE="ordinary"))
        os.close(writing)
        process.stdout.read(1)
        process.send_signal(signal.SIGTERM)
        self.assertEqual(process.wait(PATIENCE), -signal.SIGTERM)
        finish(process)

    def test_leftovers_are_reported_according_to_the_state_of_the_destination(self):
        removable = "can be removed unless another unpacking made it"
        precious = "may hold the old destination"
        rows = [(False, lambda dest: None, "", removable),
                (False, os.mkdir, "; the archive was unpacked", removable),
                (True, lambda dest: None, "", removable),
                (True, os.rmdir, "", precious),
                (True, lambda dest: (os.rename(dest, dest + b".old"), os.mkdir(dest)),
                 "; the archive was unpacked", removable)]
        for exists, change, done, left in rows:
            with self.subTest(exists=exists, done=done, left=left):
                shutil.rmtree(self.path(b"dest"), ignore_errors=True)
                if exists:
                    os.mkdir(self.path(b"dest"))
                process = self.waiting_unpack(VESK_PATIENCE="ordinary")
                change(self.path(b"dest"))
                process.send_signal(signal.SIGTERM)
                self.assertEqual(process.wait(PATIENCE), -signal.SIGTERM)
                self.assertRegex(finish(process).err.decode(),
                                 rf"\Avesk-archive: interrupted{done}; '\.dest\.vesk-[\w-]+' "
                                 rf"is left and {left}\n\Z")

    def test_a_new_destination_without_leftovers_is_not_reported_as_unchanged(self):
        process = self.waiting_unpack(VESK_PATIENCE="ordinary")
        [staging] = [name for name in self.listing() if name.startswith(b".dest.vesk-")]
        os.rename(self.path(staging), self.path(b"dest"))
        process.send_signal(signal.SIGTERM)
        self.assertEqual(finish_waiting(process).err,
                         b"vesk-archive: interrupted; the archive was unpacked\n")

    def test_a_leftover_beside_the_target_of_a_link_is_named(self):
        self.write(b"there/real/old")
        os.symlink(b"there/real", self.path(b"dest"))
        process = self.waiting_unpack(VESK_PATIENCE="ordinary")
        process.send_signal(signal.SIGTERM)
        said = finish_waiting(process).err
        [left] = [name for name in os.listdir(self.path(b"there")) if name != b"real"]
        self.assertEqual(said, b"vesk-archive: interrupted; '" +
                         os.path.join(os.path.realpath(self.cwd), b"there", left) + REMOVABLE)

    def test_the_working_thread_receives_no_signals(self):
        """So its own long reads cannot delay them."""
        process = self.waiting_unpack()
        blocked = int(status_line(process, "SigBlk"), 16)
        for number in ENDING:
            self.assertTrue(blocked >> (number - 1) & 1, number)
        finish(process)

    def test_a_signal_that_was_ignored_at_the_start_stays_ignored(self):
        for number in ENDING:
            with self.subTest(signal=number):
                ignore = lambda: signal.signal(number, signal.SIG_IGN)
                result = self.run_program(*self.UNPACK, preexec_fn=ignore,
                                          env=environment(str(int(number)), UNPACKING_CALLS))
                self.assertEqual(result.status, 0)

    def test_a_signal_that_was_blocked_at_the_start_stays_blocked(self):
        for number in [signal.SIGTERM, signal.SIGALRM]:
            block = lambda: signal.pthread_sigmask(signal.SIG_BLOCK, [number])
            result = self.run_program(*self.UNPACK, preexec_fn=block,
                                      env=environment(str(int(number)), UNPACKING_CALLS))
            self.assertEqual(result.status, 0)

    def test_a_signal_works_where_another_is_ignored(self):
        numbers = [signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGALRM]
        for ignored, sent in itertools.permutations(numbers, 2):
            with self.subTest(ignored=ignored, sent=sent):
                ignore = lambda: signal.signal(ignored, signal.SIG_IGN)
                result = self.run_program(*self.UNPACK, preexec_fn=ignore,
                                          env=environment(str(int(sent)), UNPACKING_CALLS))
                self.assertEqual(result, (-sent, b"", UNTOUCHED["unpack"]))

    def test_ignored_alarms_do_not_keep_a_blocked_program_alive(self):
        process = start(self.UNPACK, self.cwd,
                        environment("wait", UNPACKING_CALLS, VESK_PATIENCE="ordinary"),
                        preexec_fn=lambda: signal.signal(signal.SIGALRM, signal.SIG_IGN))
        process.stdout.read(1)
        process.send_signal(signal.SIGINT)
        self.assertEqual(process.wait(PATIENCE), -signal.SIGINT)
        finish(process)

    def test_a_limit_on_the_size_of_files_is_a_failure_with_a_message(self):
        self.write(b"src/large", bytes(8192))
        limit = lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (4096, 4096))
        result = self.run_program(b"make", b"src", b"new.tar", preexec_fn=limit)
        self.assert_raised(result, b"Cannot finalize archive")


    def test_a_signal_after_the_work_ends_the_program_after_its_summary(self):
        said = rb"\A(made in\.tar|unpacked in\.tar to dest): 2 entries, \d+ bytes" + SUMMARY + rb"\Z"
        for words, call in [(self.MAKE, "/^rename"), (self.UNPACK, "/^rename")]:
            with self.subTest(words=words):
                result = self.run_program(
                    "-f", "-o", "/dev/null", "-e", f"inject={call}:signal=SIGTERM", PROGRAM, *words,
                    program="strace")
                self.assertEqual(result.status, -signal.SIGTERM)
                self.assertRegex(result.err, said)
        self.assertEqual(read_tree(self.path(b"dest")), TWO_FILES)
        self.assertEqual(self.listing(), [b"dest", b"in.tar", b"src"])

    def test_a_signal_while_the_archive_is_synced_leaves_the_old_one(self):
        before = self.read(b"in.tar")
        result = self.run_program("-f", "-o", "/dev/null", "-e",
                                  "inject=fsync:signal=SIGTERM:when=1", PROGRAM, *self.MAKE,
                                  b"--sync", program="strace")
        self.assertEqual(result, (-signal.SIGTERM, b"", UNTOUCHED["make"]))
        self.assertEqual((self.listing(), self.read(b"in.tar")), ([b"in.tar", b"src"], before))

    def test_a_signal_to_the_working_thread_alone_is_handled(self):
        result = self.run_program("-f", "-o", "/dev/null", "-e",
                                  "inject=getdents64:signal=SIGTERM:when=1", PROGRAM, *self.MAKE,
                                  program="strace")
        self.assertEqual(result, (-signal.SIGTERM, b"", UNTOUCHED["make"]))


class RenamedDirectoryTest(SignalCase):
    def test_an_archive_whose_directory_was_renamed_is_not_reported_as_written(self):
        os.mkdir(self.path(b"out"))
        process = self.waiting((b"make", b"src", b"out/new.tar"), MAKING_CALLS)
        os.rename(self.path(b"out"), self.path(b"renamed"))
        process.send_signal(signal.SIGTERM)
        self.assertEqual(finish(process), (-signal.SIGTERM, b"", UNTOUCHED["make"]))


class AnyMomentTest(SignalCase):
    """Every signal at random moments: VESK_SIGNAL_MOMENTS sets how many; 2 by default."""

    MOMENTS = int(os.environ.get("VESK_SIGNAL_MOMENTS", "2"))
    FILES = {b"%03d" % number: b"x" * 2000 for number in range(300)}

    def setUp(self):
        super().setUp()
        self.write_tree(b"many", self.FILES)
        self.assertEqual(self.run_program(b"make", b"many", b"many.tar").status, 0)
        self.archive = self.read(b"many.tar")

    def prepare(self, old):
        shutil.rmtree(self.path(b"work"), ignore_errors=True)
        self.write(b"work/unrelated")
        if old:
            self.write(b"work/a.tar", b"old")
            self.write(b"work/dest/old", b"old")

    def judge(self, process, number, old):
        """Old or new, complete, and nothing beside it that is not named."""
        result = finish(process)
        self.assertIn(result.status, [0, -number])
        archive = self.read(b"work/a.tar") if os.path.exists(self.path(b"work/a.tar")) else None
        dest = read_tree(self.path(b"work/dest"))
        made, unpacked = archive == self.archive, dest == self.FILES
        self.assertTrue(made or archive == (b"old" if old else None))
        self.assertTrue(unpacked or dest == ({b"old": b"old"} if old else {}))
        left = set(os.listdir(self.path(b"work"))) - {b"a.tar", b"dest", b"unrelated"}
        named = set(re.findall(rb"'work/([^']*)' is left", result.err))
        self.assertEqual(left, named)
        if left or not result.err:  # held up, or not even begun
            self.assertEqual(result.status, -number)
        elif made or unpacked:
            self.assertRegex(result.err, rb"\A(made|unpacked) .*\n\Z|; the archive was \w+\n\Z")
        else:
            self.assertIn(result.err, UNTOUCHED.values())

    def test_the_result_is_old_or_new_and_the_program_ends_by_that_signal(self):
        for words in [(b"make", b"many", b"work/a.tar"), (b"unpack", b"many.tar", b"work/dest")]:
            self.prepare(False)
            beginning = time.monotonic()
            self.assertEqual(self.run_program(*words).status, 0)
            duration = time.monotonic() - beginning
            for number, old, _ in itertools.product(ENDING, [False, True], range(self.MOMENTS)):
                moment = random.uniform(0, duration)
                with self.subTest(words=words, signal=number, old=old, moment=moment):
                    self.prepare(old)
                    process = start(words + ((b"--overwrite",) if old else ()), self.cwd,
                                    preexec_fn=no_core_file)
                    time.sleep(moment)
                    process.send_signal(number)
                    self.judge(process, number, old)


class ShellTest(SignalCase):
    """A shell loop on a terminal on which Ctrl-C is typed."""

    LOOP = 'for number in 1 2 3; do "$0" unpack --overwrite in.tar dest; echo "[$?]"; done; echo end'

    def test_ctrl_c_ends_the_loop_and_not_the_program_alone(self):
        child, terminal = pty.fork()
        if child == 0:
            os.chdir(self.cwd)
            os.execve("/bin/bash", ["bash", "-c", self.LOOP, PROGRAM],
                      environment("wait", UNPACKING_CALLS, VESK_PATIENCE="ordinary"))
        self.addCleanup(os.close, terminal)
        shown = b""
        while b"." not in shown:
            self.assertTrue(select.select([terminal], [], [], PATIENCE)[0])
            shown += os.read(terminal, 4096)
        os.write(terminal, b"\x03")
        with contextlib.suppress(OSError):
            while data := os.read(terminal, 4096):
                shown += data
        self.assertEqual(os.waitpid(child, 0)[1], signal.SIGINT)
        self.assertIn(b"vesk-archive: interrupted; '.dest.vesk-unpacking-", shown)
        self.assertNotIn(b"[", shown)
        self.assertNotIn(b"end", shown)


if __name__ == "__main__":
    unittest.main(verbosity=2)
