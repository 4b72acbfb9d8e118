# SPDX-License-Identifier: MIT
"""When the disk is full or broken, vesk-archive leaves the old files complete.

Run by ctest, which names the files under test in the environment. Every system call of the work on
files fails once; with VESK_DISK_ERRORS=all it fails in every way.
"""

import errno
import itertools
import os
import re
import resource
import shutil
import subprocess
import unittest

from program_case import *

FILES = {b"%d" % number: bytes([number]) * 30000 for number in range(4)}
OLD = {b"old": b"old"}
ERRORS = ["ENOSPC", "EDQUOT", "EIO"]

# Only such names are ever left beside the archive and the destination.
TELLING = re.compile(rb"\.a\.tar\.vesk-making-\w{12}|\.dest\.vesk-[a-z-]+-\w{6}")


class DiskCase(CommandLineTest):
    def setUp(self):
        super().setUp()
        self.write_tree(b"src", FILES)
        self.assertEqual(self.run_program(b"make", b"src", b"in.tar").status, 0)
        self.archive = self.read(b"in.tar")

    def prepare(self, old):
        shutil.rmtree(self.path(b"work"), ignore_errors=True)
        os.mkdir(self.path(b"work"))
        if old:
            self.write(b"work/a.tar", b"old")
            self.write_tree(b"work/dest", OLD)

    def words(self, verb, old, *options):
        words = {"make": (b"make", b"src", b"work/a.tar"),
                 "unpack": (b"unpack", b"in.tar", b"work/dest")}[verb]
        return words + ((b"--overwrite",) if old else ()) + options

    def is_new(self, verb):
        """Whether the verb has done its work. Checks that the files are complete in any case."""
        if verb == "make":
            path = self.path(b"work/a.tar")
            found = self.read(b"work/a.tar") if os.path.lexists(path) else None
            self.assertIn(found, [self.archive, b"old", None])
            return found == self.archive
        found = read_tree(self.path(b"work/dest"))
        self.assertIn(found, [FILES, OLD, {}])
        return found == FILES

    def is_old(self, verb, old):
        if verb == "make":
            return os.path.lexists(self.path(b"work/a.tar")) == old and not self.is_new(verb)
        return os.path.lexists(self.path(b"work/dest")) == old and not self.is_new(verb)

    def left(self):
        return set(os.listdir(self.path(b"work"))) - {b"a.tar", b"dest"}


class FullDiskTest(DiskCase):
    def test_a_limit_on_the_size_of_files_leaves_what_was_there_and_nothing_else(self):
        limit = lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (20000, 20000))
        for verb, old in itertools.product(["make", "unpack"], [False, True]):
            with self.subTest(verb=verb, old=old):
                self.prepare(old)
                result = self.run_program(*self.words(verb, old), preexec_fn=limit)
                message = {"make": b"archive", "unpack": b"TAR entry"}[verb]
                self.assert_raised(result, b"Cannot finalize " + message)
                self.assertTrue(self.is_old(verb, old))
                self.assertEqual(self.left(), set())

    @unittest.skipUnless(can_mount(), "no small disk can be mounted here")
    def test_a_full_disk_leaves_what_was_there_and_nothing_else(self):
        script = """
            mount -t tmpfs -o size=$1 none work || exit 99
            shift
            if [ "$1" = old ]; then printf old >work/a.tar; mkdir work/dest; printf old >work/dest/old; fi
            shift
            "$@" --quiet 2>&1
            echo "$?"
            cd work && find . ! -name . | sort
            cat a.tar dest/old 2>/dev/null
            exit 0
        """
        kept = {False: b"", True: b"./a.tar\n./dest\n./dest/old\noldold"}
        for verb, old, size in itertools.product(["make", "unpack"], [False, True], ["16k", "64k"]):
            with self.subTest(verb=verb, old=old, size=size):
                self.prepare(False)
                done = subprocess.run(["unshare", "-rm", "sh", "-c", script, "sh", size,
                                       "old" if old else "new", PROGRAM, *self.words(verb, old)],
                                      cwd=self.cwd, capture_output=True, check=False)
                self.assertEqual(done.returncode, 0, done.stderr)
                message = {"make": b"archive", "unpack": b"TAR entry"}[verb]
                self.assertEqual(done.stdout, b"vesk-archive: IOException: Cannot finalize " +
                                 message + b"\n1\n" + kept[old])


@unittest.skipIf(is_instrumented(), "a sanitizer makes calls of its own, and no mistakes")
class BrokenDiskTest(DiskCase):
    """Each call that reads, writes, creates, renames or removes fails once."""

    CALLS = ("openat,open,creat,read,write,writev,pread64,lseek,close,rename,renameat,renameat2,link,"
             "linkat,unlink,unlinkat,rmdir,mkdir,mkdirat,chmod,fchmod,fchmodat,fchown,ftruncate,"
             "fallocate,fsync,syncfs,getdents64,stat,lstat,fstat,newfstatat,readlink,statx,faccessat2")

    def calls_of(self, words):
        """The calls of an undisturbed run, each with its number among those of its name."""
        trace = self.path(b"trace")
        result = self.run_program("-f", "-o", trace, "-e", f"trace={self.CALLS}", PROGRAM, *words,
                                  program="strace")
        self.assertEqual(result.status, 0, result.err)
        # The calls before the module is loaded belong to the start of the program.
        return itertools.dropwhile(lambda call: "libvesk_io_archives" not in call[2],
                                   traced_calls(self.read(b"trace")))

    def judge(self, verb, old, call, what, result):
        done, says_done = self.is_new(verb), result.status == 0
        self.assertTrue(done or self.is_old(verb, old), result)
        if says_done:
            self.assertTrue(done, result)
        else:
            self.assertIn(result.status, [1, 2, 3], result)
            self.assertRegex(result.err, rb"\Avesk-archive: .*\n(?:  .*\n){0,3}\Z")
            # Only a failure after the renaming may have no effect.
            self.assertTrue(not done or call in ["fsync", "syncfs", "openat", "close"], result)
        for name in self.left():
            self.assertTrue(TELLING.fullmatch(name), name)
            self.assertIn(call, ["unlink", "unlinkat", "rmdir", "openat", "getdents64", "newfstatat",
                                 "fchmod", "fchmodat", "close", "statx", "chmod", "lseek"])

    def test_the_result_is_old_or_new_and_the_message_about_it_is_true(self):
        every = os.environ.get("VESK_DISK_ERRORS") == "all"
        turn = itertools.cycle(ERRORS)
        for verb, old in itertools.product(["make", "unpack"], [False, True]):
            words = self.words(verb, old, b"--sync")
            self.prepare(old)
            for call, number, what in list(self.calls_of(words)):
                for error in ERRORS if every else [next(turn)]:
                    with self.subTest(verb=verb, old=old, call=call, number=number, error=error,
                                      what=what):
                        self.prepare(old)
                        result = self.run_program(
                            "-f", "-o", "/dev/null", "-e",
                            f"inject={call}:error={error}:when={number}", PROGRAM, *words,
                            program="strace")
                        self.judge(verb, old, call, what, result)


if __name__ == "__main__":
    unittest.main(verbosity=2)
