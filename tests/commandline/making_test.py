# SPDX-License-Identifier: MIT
"""What vesk-archive make promises: its archive is complete or does not exist.

Run by ctest, which names the files under test in the environment.
"""

import itertools
import os
import re
import resource
import shutil
import signal
import stat
import subprocess
import threading
import time
import unittest

from program_case import *

NOBODY, SOMEBODY = 65534, 65533
IS_ROOT = os.geteuid() == 0
MAKING = rb"\.%s\.vesk-making-[A-Za-z0-9]{12}"


class MakingCase(CommandLineTest):
    def setUp(self):
        super().setUp()
        os.chmod(self.cwd, 0o777)  # for the tests that become an ordinary user
        self.write_tree(b"src", TWO_FILES)
        self.made = self.contents_of_new_archive()

    def contents_of_new_archive(self, source=b"src"):
        """The bytes of the source's archive, made at an unused path."""
        with tempfile.TemporaryDirectory() as directory:
            archive = os.path.join(os.fsencode(directory), b"x.tar")
            self.assertEqual(self.run_program(b"make", source, archive).status, 0)
            return pathlib.Path(os.fsdecode(archive)).read_bytes()

    def make(self, *words, **options):
        return self.run_program(b"make", *words, **options)

    def assert_makes(self, *words, **options):
        result = self.make(*words, **options)
        self.assertEqual(result[:2], (0, b""), result.err)

    def assert_fails(self, message, *words, **options):
        result = self.make(*words, **options)
        self.assert_raised(result, message)

    def waiting(self, *words, call=MAKING_CALLS, **options):
        """The program, waiting at that host call. The last call comes right before the writing."""
        process = start((b"make", *words), self.cwd, environment("wait", call), **options)
        self.assertEqual(process.stdout.read(1), b".")
        return process

    def writing(self, *words, **options):
        """The program, waiting right before it writes the archive."""
        process = start((b"make", *words), self.cwd, environment("none", VESK_SLOW="writev"),
                        **options)
        self.assertEqual(process.stdout.read(1), b".")
        return process

    def hidden(self):
        return [name for name in self.listing() if b"vesk-making" in name]

    def mode(self, name):
        return stat.S_IMODE(os.stat(self.path(name)).st_mode)


def as_ordinary_user():
    if IS_ROOT:
        os.setgroups([])
        os.setresgid(NOBODY, NOBODY, NOBODY)
        os.setresuid(NOBODY, NOBODY, NOBODY)


class MessagesTest(MakingCase):
    """The module's checks give the same result as for the name itself."""

    EXISTS, CREATE = b"Archive already exists", b"Cannot create archive"
    INSPECT, PARENT = b"Cannot inspect archive destination", b"Cannot create archive parent directory"
    NO_SOURCE = b"Archive source does not exist"

    def setUp(self):
        super().setUp()
        self.write(b"old.tar", b"old")
        self.write(b"fixed/old.tar", b"old")
        self.write(b"readonly.tar", b"old")
        os.mkdir(self.path(b"dir.tar"))
        os.mkfifo(self.path(b"pipe"))
        os.symlink(b"loop.tar", self.path(b"loop.tar"))
        os.symlink(b"missing/x.tar", self.path(b"nowhere.tar"))
        os.symlink(b"missing/", self.path(b"slash.tar"))
        os.symlink(b"old.tar/", self.path(b"file.tar"))
        os.symlink(b"readonly.tar", self.path(b"link.tar"))
        self.write(b"unreadable", b"x")
        os.chmod(self.path(b"unreadable"), 0)
        os.chmod(self.path(b"readonly.tar"), 0o444)
        os.chmod(self.path(b"fixed"), 0o555)

    def tearDown(self):
        os.chmod(self.path(b"fixed"), 0o755)

    ROWS = [
        (b"src", b"old.tar", [], EXISTS), (b"src", b"dir.tar", [], EXISTS),
        (b"none", b"old.tar", [], EXISTS), (b"src", b"pipe", ["--format=tar"], EXISTS),
        (b"src", b"link.tar", [], EXISTS), (b"src", b"dir.tar/", ["--format=tar"], EXISTS),
        (b"none", b"loop.tar", [], INSPECT), (b"none", b"x" * 256 + b".tar", [], INSPECT),
        (b"none", b"old.tar/x.tar", [], PARENT), (b"none", b"fixed/new/x.tar", [], PARENT),
        (b"none", b"dir.tar/" + b"x" * 256 + b"/x.tar", [], INSPECT),
        (b"none", b"new.tar", [], NO_SOURCE), (b"none", b"a/b/new.tar", [], NO_SOURCE),
        (b"none", b"fixed/new.tar", [], NO_SOURCE),
        (b"none", b"dir.tar", ["--overwrite"], NO_SOURCE),
        (b"none", b"readonly.tar", ["--overwrite"], NO_SOURCE),
        (b"none", b"nowhere.tar", [], NO_SOURCE),
        (b"", b"a/b/new.tar", [], b"Source path is required"),
        (b"pipe", b"a/new.tar", [], b"Archive source must be a file or directory"),
        (b"unreadable", b"fixed/new.tar", [], b"Cannot read file: unreadable"),
        (b"unreadable", b"dir.tar", ["--overwrite"], b"Cannot read file: unreadable"),
        (b"src", b"dir.tar", ["--overwrite"], CREATE),
        (b"src", b"dir.tar/", ["--overwrite", "--format=tar"], CREATE),
        (b"src", b".", ["--overwrite", "--format=tar"], CREATE),
        (b"src", b"readonly.tar", ["--overwrite"], CREATE),
        (b"src", b"link.tar", ["--overwrite"], CREATE),
        (b"src", b"fixed/new.tar", [], CREATE), (b"src", b"fixed/old.tar", ["--overwrite"], CREATE),
        (b"src", b"slash.tar", [], CREATE), (b"src", b"file.tar", [], CREATE),
        (b"src", b"nowhere.tar", [], CREATE), (b"src", b"nowhere.tar", ["--overwrite"], CREATE),
    ]

    def snapshot(self):
        """The files, with the data that shows whether one was replaced or changed."""
        found = []
        for directory, _, files in os.walk(self.cwd):
            found.append(directory)
            for name in files:
                status = os.lstat(os.path.join(directory, name))
                found.append((name, status.st_ino, status.st_size, status.st_mtime_ns))
        return sorted(found, key=repr)

    def test_the_first_check_that_fails_gives_the_message_and_nothing_is_changed(self):
        before = self.snapshot()
        for source, archive, options, message in self.ROWS:
            with self.subTest(source=source, archive=archive, options=options):
                self.assert_fails(message, source, archive, *options, preexec_fn=as_ordinary_user)
                self.assertEqual(self.snapshot(), before)

    def test_a_name_with_a_slash_at_its_end_cannot_be_created(self):
        self.assert_fails(self.CREATE, b"src", b"new.tar/", b"--format=tar")

    def test_a_nested_directory_that_cannot_be_created_is_reported_before_a_missing_source(self):
        self.assert_fails(self.PARENT, b"none", b"a/" + b"x" * 256 + b"/x.tar")

    def test_a_source_that_appears_meanwhile_leaves_no_archive_in_another_place(self):
        process = self.waiting(b"late", b"a/new.tar", call=2)
        self.write_tree(b"late", TWO_FILES)
        self.assert_raised(finish(process), b"Cannot finalize archive")
        self.assertNotIn(b"a", self.listing())
        self.assertFalse([name for name in self.listing() if b"vesk-making" in name])

    def test_missing_directories_are_made(self):
        self.assert_makes(b"src", b"a/../b/c/new.tar")
        self.assertEqual(self.read(b"b/c/new.tar"), self.made)


class ParentsTest(MakingCase):
    """The missing directories on the way to the archive."""

    def test_created_directories_are_removed_after_a_failure(self):
        os.symlink(b"nowhere", self.path(b"src/dangling"))
        os.mkdir(self.path(b"there"))
        for archive in [b"new/deep/o.tar", b"there/new/deep/o.tar", b"new/../other/o.tar",
                        self.path(b"new/deep/o.tar"), b"new/" + b"x" * 256 + b"/o.tar"]:
            with self.subTest(archive=archive):
                self.assertEqual(self.make(b"src", archive).status, 1)
                self.assertEqual(self.listing(), [b"src", b"there"])
                self.assertEqual(os.listdir(self.path(b"there")), [])

    def test_created_directories_are_removed_when_a_signal_ends_the_making(self):
        result = self.make(b"src", b"new/deep/o.tar",
                           env=environment(str(int(signal.SIGTERM)), MAKING_CALLS))
        self.assertEqual(result.status, -signal.SIGTERM)
        self.assertEqual(self.listing(), [b"src"])

    def test_created_directories_that_are_not_empty_stay(self):
        process = self.waiting(b"src", b"new/deep/o.tar", call=4)
        self.write(b"new/other")
        os.remove(self.path(b"src/sub/b"))
        self.assertEqual(finish(process).status, 1)
        self.assertEqual(os.listdir(self.path(b"new")), [b"other"])

    def test_empty_created_directories_are_removed_even_if_others_above_stay(self):
        process = self.waiting(b"src", b"new/../other/o.tar", call=4)
        self.write(b"other/file")
        os.remove(self.path(b"src/sub/b"))
        self.assertEqual(finish(process).status, 1)
        self.assertEqual(self.listing(), [b"other", b"src"])

    def test_directories_that_replaced_the_created_ones_stay(self):
        process = self.waiting(b"src", b"new/deep/o.tar", call=4)
        os.makedirs(self.path(b"elsewhere/deep"))
        os.rename(self.path(b"new"), self.path(b"taken"))
        os.symlink(b"elsewhere", self.path(b"new"))
        os.remove(self.path(b"src/sub/b"))
        self.assertEqual(finish(process).status, 1)
        self.assertEqual(os.listdir(self.path(b"elsewhere")), [b"deep"])


class FileTest(MakingCase):
    """The file in which the archive is made."""

    def test_it_has_a_telling_name_and_does_not_exist_before_it_is_written(self):
        for name in [b"new.tar", b"n\xff\n.tar", b"x" * 251 + b".tar"]:
            for options in [[], [b"--overwrite"], [b"--sync"]]:
                words = (b"src", name, *options)
                self.assert_is_the_only_file(self.waiting(*words), name, 0)
                self.assert_is_the_only_file(self.writing(*words), name, 1)

    def assert_is_the_only_file(self, process, name, files):
        """At the moment there are so many files, and at the end there is the archive alone."""
        hidden = [found for found in self.listing() if found != b"src"]
        self.assertEqual(len(hidden), files, name)
        for found in hidden:
            shown = name if len(name) < 200 else name[:229]
            self.assertRegex(found, rb"\A" + MAKING % re.escape(shown) + rb"\Z")
        self.assertEqual(finish(process).status, 0)
        self.assertEqual(self.listing(), sorted([name, b"src"]))
        self.assertEqual(self.read(name), self.made)
        os.remove(self.path(name))

    def test_a_long_name_is_cut_between_two_characters(self):
        name = b"x" * 2 + "\u4e2d".encode() * 83 + b".tar"
        process = self.writing(b"src", name)
        [hidden] = self.hidden()
        self.assertRegex(hidden.decode(), "\\A.xx\u4e2d{75}.vesk-making-")
        self.assertEqual(finish(process).status, 0)

    def test_a_path_of_the_greatest_length_is_used(self):
        path = (b"d" * 203 + b"/") * 20 + b"x" * 11 + b".tar"
        self.assertEqual(len(path), 4095)
        self.write_deep(os.path.dirname(path))
        for options in [[], [b"--overwrite"]]:
            self.assert_makes(b"src", path, *options)
        self.assert_fails(b"Archive already exists", b"src", path)

    def test_a_path_of_the_greatest_length_in_a_missing_directory_is_refused(self):
        """No other name has space beside it, and there is no open directory through which it had."""
        above = (b"d" * 203 + b"/") * 19
        self.write_deep(above[:-1])
        name = above + b"e" * 203 + b"/" + b"x" * 11 + b".tar"
        self.assertEqual(len(name), 4095)
        self.assert_fails(b"Cannot create archive", b"src", name)
        self.assert_makes(b"src", above + b"e.tar")

    def write_deep(self, directory):
        here = os.open(self.cwd, os.O_RDONLY)
        for name in directory.split(b"/"):
            os.mkdir(name, dir_fd=here)
            below = os.open(name, os.O_RDONLY, dir_fd=here)
            os.close(here)
            here = below
        os.close(here)

    def test_it_never_becomes_an_entry(self):
        self.write(b"src/z", b"last")
        expected = self.contents_of_new_archive()
        src = self.path(b"src")
        for archive, cwd in [(b"new.tar", src), (b"../src/new.tar", src), (b"../x.tar", src)]:
            with self.subTest(archive=archive):
                result = finish(start((b"make", b".", archive), cwd))
                self.assertEqual(result.status, 0)
                made = os.path.join(cwd, archive)
                with open(made, "rb") as file:
                    self.assertEqual(file.read(), expected)
                os.remove(made)

    def test_a_single_file_can_be_made_into_an_archive_beside_it(self):
        self.assert_makes(b"src/a", b"src/a.tar")
        with tarfile.open(os.fsdecode(self.path(b"src/a.tar"))) as made:
            self.assertEqual(made.getnames(), ["a"])

    def test_a_file_that_exists_at_its_path_is_neither_written_nor_removed(self):
        self.write(b"victim", b"old")
        name = b".new.tar.vesk-making-aaaaaaaaaaaa"
        env = environment("none", VESK_NO_CHANCE="1")
        for put in [lambda path: os.link(self.path(b"victim"), path),
                    lambda path: os.symlink(b"victim", path),
                    lambda path: os.symlink(b"new-victim", path)]:
            for options in [[], [b"--overwrite"], [b"--sync"]]:
                put(self.path(name))
                self.assert_fails(b"Cannot create archive", b"src", b"new.tar", *options, env=env)
                self.assertEqual(self.listing(), [name, b"src", b"victim"])
                self.assertEqual(self.read(b"victim"), b"old")
                os.remove(self.path(name))
        self.assert_makes(b"src", b"new.tar", env=env)

    def test_a_directory_that_becomes_writable_meanwhile_gets_the_archive(self):
        os.mkdir(self.path(b"closed"), 0o555)
        process = self.waiting(b"src", b"closed/new.tar", preexec_fn=as_ordinary_user)
        self.assertEqual(os.listdir(self.path(b"closed")), [])
        os.chmod(self.path(b"closed"), 0o777)
        self.assertEqual(finish(process).status, 0)
        self.assertEqual(os.listdir(self.path(b"closed")), [b"new.tar"])
        self.assertEqual(self.read(b"closed/new.tar"), self.made)

    def test_what_somebody_else_put_in_its_place_is_not_the_archive(self):
        """Nobody can know the name in advance; whoever sees the file may replace it."""
        self.write(b"other", b"stranger")
        for options in [[], [b"--overwrite"], [b"--sync"]]:
            for put in [os.mkdir, os.mkfifo, lambda path: os.symlink(b"other", path),
                        lambda path: os.link(self.path(b"other"), path), lambda path: None]:
                process = self.writing(b"src", b"new.tar", *options)
                [hidden] = self.hidden()
                os.remove(self.path(hidden))
                put(self.path(hidden))
                self.assert_raised(finish(process), b"Cannot create archive")
                self.assertIn(self.listing(), [[hidden, b"other", b"src"], [b"other", b"src"]])
                self.assertEqual(self.read(b"other"), b"stranger")
                subprocess.run(["rm", "-rf", self.path(hidden)], check=True)

    def test_it_is_named_if_it_cannot_be_removed_after_a_failure(self):
        env = environment("none", VESK_MEANWHILE="1", VESK_NO_UNLINK="1")
        for words in [(b"src", b"new.tar"), (b"src", b"new.tar", b"--quiet")]:
            result = self.make(*words, env=env)
            [hidden] = self.hidden()
            self.assertEqual(result.err.splitlines()[:2],
                             [b"vesk-archive: IOException: Archive already exists",
                              b"vesk-archive: '" + hidden + b"' is left and can be removed"])
            os.remove(self.path(hidden))
            os.remove(self.path(b"new.tar"))

    def test_it_is_named_by_a_path_that_leads_to_it_even_if_the_module_had_a_shorter_one(self):
        path = (b"d" * 203 + b"/") * 20 + b"x" * 11 + b".tar"
        self.write_deep(os.path.dirname(path))
        env = environment("none", VESK_MEANWHILE="1", VESK_NO_UNLINK="1")
        result = self.make(b"src", path, env=env)
        self.assertIn(b"'" + os.path.dirname(path) + b"/.xxx", result.err)

    def test_it_takes_no_space_after_a_failure(self):
        """The help looks at the free space, and a file that is open takes space without a name."""
        result = self.run_program("-f", "-y", "-o", b"trace", "-e", "trace=close,unlink,renameat2",
                                  "-e", "inject=renameat2:error=EACCES", PROGRAM, b"make", b"src",
                                  b"new.tar", program="strace")
        self.assert_raised(result, b"Cannot finalize archive")
        calls = [line for line in self.read(b"trace").decode().splitlines() if "vesk-making" in line]
        self.assertRegex(calls[-2], r"close\(")
        self.assertRegex(calls[-1], r"unlink\(.* = 0")


class PlaceTest(MakingCase):
    """What happens to the file at the archive's path."""

    # Each way to rename without replacing, with the better ones refused.
    SYSTEMS = [{}, {"VESK_NO_RENAMEAT2": "1"}, {"VESK_NO_RENAMEAT2": "1", "VESK_NO_LINK": "1"}]

    def test_a_file_that_appears_meanwhile_is_never_overwritten_unless_that_is_allowed(self):
        for changes in self.SYSTEMS:
            with self.subTest(changes=changes):
                process = start((b"make", b"src", b"new.tar"), self.cwd,
                                environment("wait", MAKING_CALLS, **changes))
                process.stdout.read(1)
                self.write(b"new.tar", b"meanwhile")
                self.assert_raised(finish(process), b"Archive already exists")
                self.assertEqual(self.read(b"new.tar"), b"meanwhile")
                self.assertEqual(self.listing(), [b"new.tar", b"src"])
                self.assert_makes(b"src", b"new.tar", b"--overwrite",
                                  env=environment("none", **changes))
                self.assertEqual(self.read(b"new.tar"), self.made)
                os.remove(self.path(b"new.tar"))
                self.assert_makes(b"src", b"new.tar", env=environment("none", **changes))
                self.assertEqual(self.listing(), [b"new.tar", b"src"])
                os.remove(self.path(b"new.tar"))

    def test_another_name_of_the_archive_that_cannot_be_removed_is_named(self):
        env = environment("none", VESK_NO_RENAMEAT2="1", VESK_NO_UNLINK="1")
        result = self.make(b"src", b"new.tar", env=env)
        self.assertEqual(result.status, 0)
        [hidden] = self.hidden()
        self.assertIn(b"vesk-archive: '" + hidden + b"' could not be deleted: it is another name of "
                      b"the archive and can be removed\n", result.err)
        self.assertEqual(self.read(b"new.tar"), self.made)

    def test_a_link_that_appears_meanwhile_is_not_overwritten_either(self):
        for changes in self.SYSTEMS:
            process = start((b"make", b"src", b"new.tar"), self.cwd,
                            environment("wait", MAKING_CALLS, **changes))
            process.stdout.read(1)
            os.symlink(b"nowhere", self.path(b"new.tar"))
            self.assert_raised(finish(process), b"Archive already exists")
            self.assertEqual(self.listing(), [b"new.tar", b"src"])
            os.remove(self.path(b"new.tar"))

    def test_only_a_regular_file_is_overwritten(self):
        for put in [os.mkdir, os.mkfifo, lambda path: os.symlink(b"src", path)]:
            process = self.waiting(b"src", b"new.tar", b"--overwrite")
            put(self.path(b"new.tar"))
            self.assert_raised(finish(process), b"Cannot create archive")
            self.assertEqual(self.listing(), [b"new.tar", b"src"])
            self.assertFalse(os.path.isfile(self.path(b"new.tar")))
            subprocess.run(["rm", "-r", self.path(b"new.tar")], check=True)

    def test_the_module_does_not_write_where_an_obstacle_was_found_and_is_gone(self):
        os.mkdir(self.path(b"dir.tar"))
        process = self.waiting(b"src", b"dir.tar", b"--overwrite")
        os.rmdir(self.path(b"dir.tar"))
        self.write(b"dir.tar", b"meanwhile")
        self.assert_raised(finish(process), b"Cannot create archive")
        self.assertEqual(self.read(b"dir.tar"), b"meanwhile")

    def test_a_file_that_appears_meanwhile_is_overwritten_if_that_is_allowed(self):
        process = self.waiting(b"src", b"new.tar", b"--overwrite")
        self.write(b"new.tar", b"meanwhile")
        os.chmod(self.path(b"new.tar"), 0o640)
        self.assertEqual(finish(process).status, 0)
        self.assertEqual((self.read(b"new.tar"), self.mode(b"new.tar")), (self.made, 0o640))

    def test_a_file_that_appears_at_the_last_moment_is_overwritten_only_if_that_is_allowed(self):
        env = environment("none", VESK_MEANWHILE="1")
        self.assert_fails(b"Archive already exists", b"src", b"new.tar", env=env)
        self.assertEqual(self.read(b"new.tar"), b"")
        os.remove(self.path(b"new.tar"))
        self.assert_makes(b"src", b"new.tar", b"--overwrite", env=env)
        self.assertEqual(self.read(b"new.tar"), self.made)

    def test_of_many_makes_at_once_exactly_one_succeeds(self):
        for _ in range(5):
            waiting = [self.waiting(b"src", b"new.tar") for _ in range(4)]
            for process in waiting:
                process.stdin.close()
                process.stdin = None
            results = [finish(process) for process in waiting]
            self.assertEqual(sorted(result.status for result in results), [0, 1, 1, 1])
            for result in results:
                if result.status != 0:
                    self.assert_raised(result, b"Archive already exists")
            self.assertEqual(self.read(b"new.tar"), self.made)
            self.assertEqual(self.listing(), [b"new.tar", b"src"])
            os.remove(self.path(b"new.tar"))

    def test_the_old_archive_stays_complete_until_the_new_one_replaces_it(self):
        self.write(b"old.tar", b"old")
        os.link(self.path(b"old.tar"), self.path(b"other"))
        process = self.waiting(b"src", b"old.tar", b"--overwrite")
        self.assertEqual(self.read(b"old.tar"), b"old")
        self.assertEqual(finish(process).status, 0)
        self.assertEqual((self.read(b"old.tar"), self.read(b"other")), (self.made, b"old"))

    def test_a_failure_leaves_the_old_archive_and_nothing_else(self):
        self.write(b"src/large", bytes(8192))
        self.write(b"old.tar", b"old")
        limit = lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (4096, 4096))
        for words in [(b"src", b"old.tar", b"--overwrite"), (b"src", b"new.tar"),
                      (b"src", b"new.tgz")]:
            self.assert_fails(b"Cannot finalize archive", *words, preexec_fn=limit)
            self.assertEqual(self.listing(), [b"old.tar", b"src"])
            self.assertEqual(self.read(b"old.tar"), b"old")

    def test_a_source_that_cannot_be_read_leaves_the_old_archive_and_nothing_else(self):
        self.write(b"old.tar", b"old")
        process = self.waiting(b"src", b"old.tar", b"--overwrite", call=4)
        shutil.rmtree(self.path(b"src/sub"))
        self.assert_raised(finish(process), b"Cannot read file: src/sub/b")
        self.assertEqual(self.listing(), [b"old.tar", b"src"])
        self.assertEqual(self.read(b"old.tar"), b"old")


class RightsTest(MakingCase):
    def test_a_new_archive_has_the_ordinary_mode(self):
        for mask, mode in [(0o022, 0o644), (0, 0o666), (0o277, 0o400), (0o777, 0)]:
            for options in [[], [b"--overwrite"], [b"--sync"]]:
                with self.subTest(mask=oct(mask), options=options):
                    self.assert_makes(b"src", b"new.tar", *options, umask=mask,
                                      preexec_fn=as_ordinary_user)
                    self.assertEqual(oct(self.mode(b"new.tar")), oct(mode))
                    os.remove(self.path(b"new.tar"))

    def test_it_has_the_ordinary_mode_even_if_the_file_to_replace_is_gone(self):
        self.write(b"old.tar", b"old")
        process = self.waiting(b"src", b"old.tar", b"--overwrite", umask=0o027)
        os.remove(self.path(b"old.tar"))
        self.assertEqual(finish(process).status, 0)
        self.assertEqual(oct(self.mode(b"old.tar")), oct(0o640))

    def test_the_mode_of_a_replaced_archive_is_kept_and_nobody_can_read_it_earlier(self):
        for mode in [0o600, 0o666, 0o644, 0o4755]:
            with self.subTest(mode=oct(mode)):
                self.write(b"old.tar", b"old")
                os.chmod(self.path(b"old.tar"), mode)
                process = self.writing(b"src", b"old.tar", b"--overwrite", umask=0)
                [hidden] = self.hidden()
                self.assertEqual(oct(self.mode(hidden)), oct(0o600))
                self.assertEqual(finish(process).status, 0)
                self.assertEqual(oct(self.mode(b"old.tar")), oct(mode))
                self.assertEqual(self.read(b"old.tar"), self.made)

    def test_a_mode_that_cannot_be_set_leaves_the_old_archive(self):
        self.write(b"old.tar", b"old")
        os.chmod(self.path(b"old.tar"), 0o644)
        self.assert_fails(b"Cannot finalize archive", b"src", b"old.tar", b"--overwrite",
                          env=environment("none", VESK_NO_FCHMOD="1"))
        self.assertEqual(self.listing(), [b"old.tar", b"src"])
        self.assertEqual((self.read(b"old.tar"), self.mode(b"old.tar")), (b"old", 0o644))

    def test_making_succeeds_without_changing_modes_if_the_mode_is_right(self):
        env = environment("none", VESK_NO_FCHMOD="1")
        self.write(b"old.tar", b"old")
        os.chmod(self.path(b"old.tar"), 0o600)
        self.assert_makes(b"src", b"old.tar", b"--overwrite", env=env)
        self.assert_makes(b"src", b"new.tar", env=env)
        self.assertEqual((self.read(b"old.tar"), self.mode(b"old.tar")), (self.made, 0o600))

    @unittest.skipUnless(IS_ROOT, "files are given to others by root alone")
    def test_root_keeps_owner_group_and_mode_of_a_replaced_archive(self):
        self.write(b"old.tar", b"old")
        os.chown(self.path(b"old.tar"), NOBODY, SOMEBODY)
        os.chmod(self.path(b"old.tar"), 0o4750)
        self.assert_makes(b"src", b"old.tar", b"--overwrite")
        status = os.stat(self.path(b"old.tar"))
        self.assertEqual((status.st_uid, status.st_gid, oct(status.st_mode)),
                         (NOBODY, SOMEBODY, oct(0o104750)))

    @unittest.skipUnless(IS_ROOT, "files are given to others by root alone")
    def test_an_ordinary_user_keeps_no_rights_of_another_owner(self):
        for group in [SOMEBODY, NOBODY]:
            with self.subTest(group=group):
                self.write(b"old.tar", b"old")
                os.chown(self.path(b"old.tar"), SOMEBODY, group)
                os.chmod(self.path(b"old.tar"), 0o6777)
                self.assert_makes(b"src", b"old.tar", b"--overwrite", preexec_fn=as_ordinary_user)
                self.assertEqual(oct(self.mode(b"old.tar")), oct(0o777))
                os.remove(self.path(b"old.tar"))


class LinkTest(MakingCase):
    def test_a_link_stays_and_its_target_is_replaced_or_created(self):
        self.write(b"there/old.tar", b"old")
        os.symlink(b"there/old.tar", self.path(b"link.tar"))
        os.symlink(self.path(b"link.tar"), self.path(b"second.tar"))
        os.symlink(b"there/new.tar", self.path(b"dangling.tar"))
        for link, file, options in [(b"link.tar", b"there/old.tar", [b"--overwrite"]),
                                    (b"second.tar", b"there/old.tar", [b"--overwrite"]),
                                    (b"dangling.tar", b"there/new.tar", [])]:
            with self.subTest(link=link):
                process = self.writing(b"src", link, *options)
                self.assertTrue(any(b"vesk-making" in name
                                    for name in os.listdir(self.path(b"there"))))
                self.assertEqual(finish(process).status, 0)
                self.assertTrue(os.path.islink(self.path(link)))
                self.assertFalse(os.path.islink(self.path(file)))
                self.assertEqual(self.read(file), self.made)
                self.write(b"there/old.tar", b"old")

    @unittest.skipUnless(IS_ROOT, "links are given to others by root alone")
    def test_another_user_s_link_in_a_directory_for_everybody_is_not_followed(self):
        os.mkdir(self.path(b"shared"))
        self.write(b"victim", b"old")
        os.symlink(b"../victim", self.path(b"shared/out.tar"))
        os.symlink(b"../new", self.path(b"shared/new.tar"))
        os.symlink(b"shared/out.tar", self.path(b"own.tar"))
        for name in [b"shared/out.tar", b"shared/new.tar"]:
            os.chown(self.path(name), NOBODY, NOBODY, follow_symlinks=False)
        rows = [(b"shared/out.tar", [b"--overwrite"]), (b"shared/new.tar", []),
                (b"own.tar", [b"--overwrite"])]
        os.chmod(self.path(b"shared"), 0o1777)
        for name, options in rows:
            with self.subTest(name=name):
                result = self.make(b"src", name, *options)
                self.assertEqual(result.status, 1)
                # If the kernel itself does not follow such links, stat fails, too.
                self.assertRegex(result.err, b"Cannot (create archive|inspect archive destination)\n")
                self.assertEqual(self.read(b"victim"), b"old")
                self.assertFalse(os.path.exists(self.path(b"new")))
        os.chmod(self.path(b"shared"), 0o777)
        for name, options in rows:
            self.assert_makes(b"src", name, *options)
        os.chmod(self.path(b"shared"), 0o1777)
        # The user's own link is followed, and that of the directory's owner.
        for directory, link in [(0, 0), (SOMEBODY, 0), (NOBODY, NOBODY)]:
            os.chown(self.path(b"shared"), directory, directory)
            os.chown(self.path(b"shared/out.tar"), link, link, follow_symlinks=False)
            self.assert_makes(b"src", b"shared/out.tar", b"--overwrite")


class DirectTest(MakingCase):
    """An existing file that is not regular is written directly."""

    def test_a_fifo_is_written_to(self):
        os.mkfifo(self.path(b"fifo.tar"))
        read = []
        reader = threading.Thread(target=lambda: read.append(self.read(b"fifo.tar")))
        reader.start()
        self.assert_makes(b"src", b"fifo.tar", b"--overwrite")
        reader.join()
        self.assertEqual(read, [self.made])
        self.assertEqual(self.listing(), [b"fifo.tar", b"src"])

    def test_standard_output_is_written_to_whatever_it_is(self):
        words = (b"make", b"src", b"/dev/stdout", b"--format=tar", b"--overwrite", b"--sync")
        self.assertEqual(self.run_program(*words).out, self.made)
        with open(self.path(b"out"), "wb") as out:
            result = self.run_program(*words, stdout=out)
            self.assertEqual(result.status, 0)
            self.assertEqual(os.fstat(out.fileno()).st_ino, os.stat(self.path(b"out")).st_ino)
        self.assertEqual(self.read(b"out"), self.made)
        self.assertEqual(self.listing(), [b"out", b"src"])


class SystemCallTest(MakingCase):
    """What only the system calls show: what is synced, and that nothing is removed needlessly."""

    def calls(self, *words):
        trace = self.path(b"trace")
        done = subprocess.run(["strace", "-f", "-y", "-o", trace, "-e",
                               "trace=fsync,rename,renameat2,unlink", PROGRAM, *words], cwd=self.cwd,
                              env=traced(environment()), capture_output=True, check=False)
        self.assertEqual(done.returncode, 0, done.stderr)
        lines = self.read(b"trace").decode().splitlines()
        return [match[1] for line in lines if (match := re.match(r"\d+ +(\w+\(.*)", line))]

    def test_the_file_is_synced_before_it_takes_its_place_and_its_directory_after(self):
        os.mkdir(self.path(b"there"))
        for options, placing in [([], "renameat2"), ([b"--overwrite"], "rename")]:
            calls = self.calls(b"make", b"src", b"there/a.tar", b"--sync", *options)
            self.assertRegex(calls[0], r"fsync\(\d+<.*/there/\.a\.tar\.vesk-making-\w{12}>\) = 0")
            self.assertRegex(calls[1], placing + r"\(.*\) = 0")
            self.assertRegex(calls[2], r"fsync\(\d+<.*/there>\) = 0")
            self.assertEqual(len(calls), 3)

    def test_the_names_of_created_directories_are_synced(self):
        calls = self.calls(b"make", b"src", b"new/deep/a.tar", b"--sync")
        synced = [re.search(r"fsync\(\d+<(.*)>\) = 0", call)[1] for call in calls[2:]]
        here = os.path.realpath(os.fsdecode(self.cwd))
        self.assertEqual(synced, [here + "/new/deep", here, here + "/new"])

    def test_a_file_system_that_cannot_sync_directories_is_no_failure(self):
        for error, status in [("EINVAL", 0), ("EIO", 1)]:
            with self.subTest(error=error):
                result = self.run_program("-f", "-o", "/dev/null", "-e",
                                          f"inject=fsync:error={error}:when=2", PROGRAM, b"make",
                                          b"src", b"a.tar", b"--sync", b"--overwrite",
                                          program="strace")
                self.assertEqual(result.status, status)

    def test_a_system_that_cannot_rename_without_replacing_in_one_step_says_so_in_several_ways(self):
        for number, error in enumerate(["EINVAL", "ENOSYS", "EOPNOTSUPP"]):
            with self.subTest(error=error):
                name = b"%d.tar" % number
                result = self.run_program("-f", "-o", "/dev/null", "-e",
                                          f"inject=renameat2:error={error}", PROGRAM, b"make",
                                          b"src", name, program="strace")
                self.assertEqual(result.status, 0, result.err)
                self.assertEqual(self.read(name), self.made)

    def test_the_host_is_asked_to_sync_what_is_unpacked(self):
        self.write_archive(b"in.tar", TWO_FILES)
        for options, asked in [([], b""), ([b"--sync"], b"sync")]:
            result = self.run_program(b"unpack", b"in.tar", b"dest", b"--overwrite", *options,
                                      env=environment("none", VESK_SHOW_SYNC="1"))
            self.assertEqual((result.status, result.out[:4]), (0, asked))

    def test_nothing_is_synced_unless_requested(self):
        calls = self.calls(b"make", b"src", b"a.tar")
        self.assertRegex(" ".join(calls), r"\Arenameat2\([^)]*\) = 0\Z")


if __name__ == "__main__":
    unittest.main(verbosity=2)
