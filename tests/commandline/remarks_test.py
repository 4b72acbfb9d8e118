# SPDX-License-Identifier: MIT
"""What vesk-archive says about files that an archive or a tree lacks or has changed."""

import gzip
import io
import os
import random
import socket
import tarfile
import unittest

from program_case import *

OUTSIDE = "FIFOs, sockets or devices"


def remarks(result):
    """The lines below the summary."""
    return result.err.decode("utf-8", "surrogateescape").split("\n")[1:-1]


class MakingTest(CommandLineTest):
    def setUp(self):
        super().setUp()
        self.write_tree(b"src", TWO_FILES)

    def made(self, *options, source=b"src", name=b"out.tar", **how):
        result = self.run_program(b"make", b"--overwrite", source, name, *options, **how)
        self.assertEqual((result.status, result.out), (0, b""), result.err)
        self.assertTrue(result.err.startswith(b"made ") or b"--quiet" in options, result.err)
        return remarks(result)

    def make_executable(self, *names):
        for name in names:
            self.write(b"src/" + name)
            os.chmod(self.path(b"src/" + name), 0o755)

    def test_an_archive_that_holds_everything_has_no_remark(self):
        self.assertEqual(self.made(), [])
        self.assertEqual(self.made(source=b"src/a"), [])

    def test_links_to_files_are_counted_since_the_archive_has_the_files(self):
        os.symlink(b"a", self.path(b"src/link"))
        self.assertEqual(self.made(), ["  stored as files: 1 link to a file, first 'link'"])
        os.symlink(b"../a", self.path(b"src/sub/link"))
        self.assertEqual(self.made(), ["  stored as files: 2 links to files, first 'link'"])

    def test_links_to_directories_are_counted_and_the_first_is_named(self):
        os.symlink(b".", self.path(b"src/z"))
        self.assertEqual(self.made(), ["  left out: 1 link to a directory, first 'z'"])
        os.symlink(b"..", self.path(b"src/sub/y"))
        os.symlink(b"a", self.path(b"src/sub/x"))  # dangling links fail, so it is to exist
        self.write(b"src/sub/a")
        self.assertEqual(self.made(), ["  left out: 2 links to directories, first 'sub/y'",
                                       "  stored as files: 1 link to a file, first 'sub/x'"])

    def test_fifos_sockets_and_devices_are_counted_and_so_are_links_to_them(self):
        os.mkfifo(self.path(b"src/sub/fifo"))
        self.assertEqual(self.made(), ["  left out: 1 FIFO, socket or device, first 'sub/fifo'"])
        with socket.socket(socket.AF_UNIX) as bound:
            here = os.getcwd()
            os.chdir(self.path(b"src"))  # the path of a socket is short
            try:
                bound.bind("socket")
            finally:
                os.chdir(here)
        os.symlink("/dev/null", self.path(b"src/null"))
        self.assertEqual(self.made(), [f"  left out: 3 {OUTSIDE}, first 'null'"])

    def test_directories_without_files_here_and_below_are_counted(self):
        os.makedirs(self.path(b"src/void/deep"))
        self.assertEqual(self.made(), ["  left out: 2 directories without files, first 'void'"])
        self.write(b"src/void/deep/file")
        self.assertEqual(self.made(), [])
        os.mkdir(self.path(b"src/void/empty"))
        self.assertEqual(self.made(), ["  left out: 1 directory without files, first 'void/empty'"])

    def test_a_directory_that_holds_a_link_to_a_file_has_a_file(self):
        os.makedirs(self.path(b"src/links/deep"))
        os.symlink(b"../../a", self.path(b"src/links/deep/link"))
        stored = "  stored as files: 1 link to a file, first 'links/deep/link'"
        self.assertEqual(self.made(), [stored])
        os.mkdir(self.path(b"src/only"))
        os.symlink(b"..", self.path(b"src/only/up"))
        self.assertEqual(self.made(), ["  left out: 1 link to a directory, first 'only/up'",
                                       "  left out: 1 directory without files, first 'only'",
                                       stored])

    def test_an_empty_source_does_not_count_as_left_out(self):
        os.mkdir(self.path(b"void"))
        self.assertEqual(self.made(source=b"void"), [])

    def test_names_that_unpacking_refuses_are_counted_wherever_the_character_stands(self):
        self.write(b"src/sub/b:c")
        self.assertEqual(self.made(), ["  refused when unpacked: 1 name with : or \\, "
                                       "first 'sub/b:c'"])
        self.write(b"src/sub\\way/file")
        os.symlink(b"a", self.path(b"src/li:nk"))
        refused = ["  stored as files: 1 link to a file, first 'li:nk'",
                   "  refused when unpacked: 3 names with : or \\, first 'li:nk'"]
        self.assertEqual(self.made(), refused)
        # A link to a directory has no name in the archive.
        os.symlink(b".", self.path(b"src/a:b"))
        self.assertEqual(self.made(), ["  left out: 1 link to a directory, first 'a:b'", *refused])
        self.assertEqual(self.run_program(b"unpack", b"out.tar", b"dest").status, 1)

    def test_a_single_file_is_looked_at_too(self):
        self.make_executable(b"to:ol")
        self.assertEqual(self.made(source=b"src/to:ol"),
                         ["  no longer executable: 1 file, first 'to:ol'",
                          "  refused when unpacked: 1 name with : or \\, first 'to:ol'"])

    def test_executables_are_counted_through_links_too(self):
        self.make_executable(b"tool")
        self.assertEqual(self.made(), ["  no longer executable: 1 file, first 'tool'"])
        os.symlink(b"../tool", self.path(b"src/sub/alias"))
        os.chmod(self.path(b"src/a"), 0o610)
        self.assertEqual(self.made(), ["  stored as files: 1 link to a file, first 'sub/alias'",
                                       "  no longer executable: 3 files, first 'a'"])

    def test_of_many_files_only_some_modes_are_read_and_the_count_says_at_least(self):
        self.make_executable(*[b"%03d" % number for number in range(200)])
        lines = self.made()
        self.assertRegex("\n".join(lines), r"\A  no longer executable: at least \d+ files, first '\d+'\Z")
        self.assertGreaterEqual(int(lines[0].split()[5]), 64)

    def test_an_archive_that_is_too_large_to_be_unpacked_is_named(self):
        archive = self.path(b"out.tar")
        for size, lines in [(4294967295, []), (4294967296, ["  refused when unpacked: an archive of "
                                                            "more than 4294967295 bytes"])]:
            env = environment(LD_PRELOAD=os.environ["VESK_FAULTY_HOST"], VESK_SIZE=str(size),
                              VESK_SIZE_OF=os.fsdecode(archive))
            self.assertEqual(self.made(name=archive, env=env), lines)

    def test_a_file_system_without_entry_types_gives_the_same_remarks(self):
        os.symlink(b".", self.path(b"src/z"))
        os.mkfifo(self.path(b"src/fifo"))
        os.mkdir(self.path(b"src/void"))
        self.write(b"src/b:c")
        self.make_executable(b"tool")
        told = self.made()
        self.assertEqual(len(told), 5)
        env = environment(LD_PRELOAD=os.environ["VESK_FAULTY_HOST"], VESK_NO_TYPES="1")
        self.assertEqual(self.made(env=env), told)

    def test_the_archive_is_the_same_whatever_is_said(self):
        os.symlink(b".", self.path(b"src/z"))
        self.make_executable(b"tool")
        self.made()
        self.assertEqual(self.made(b"--quiet", name=b"quiet.tar"), [])
        self.assertEqual(self.read(b"out.tar"), self.read(b"quiet.tar"))

    def test_quiet_prints_no_remark_and_reads_no_mode(self):
        self.make_executable(b"tool")
        os.symlink(b".", self.path(b"src/z"))
        self.assertEqual(self.run_program(b"make", b"src", b"out.tar", b"--quiet"), (0, b"", b""))
        for options in [["--quiet"], []]:
            process = start(["-f", "-e", "trace=newfstatat", "-o", "trace", PROGRAM, "make",
                             "--overwrite", "src", "out.tar", *options], self.cwd, program="strace")
            self.assertEqual(finish(process).status, 0)
            self.assertEqual(b'"tool"' in self.read(b"trace"), not options)

    def test_an_error_is_followed_by_no_remark(self):
        self.make_executable(b"tool")
        os.symlink(b"nowhere", self.path(b"src/dangling"))
        result = self.run_program(b"make", b"src", b"out.tar")
        self.assertEqual(result.status, 1)
        self.assertNotIn(b"executable", result.err)

    def test_making_succeeds_if_memory_runs_out_when_the_archive_exists(self):
        os.symlink(b".", self.path(b"src/z"))
        env = environment(LD_PRELOAD=os.environ["VESK_FAULTY_HOST"], VESK_NO_MEMORY="1")
        self.assertEqual(self.run_program(b"make", b"src", b"out.tar", env=env).status, 0)


class UnpackingTest(CommandLineTest):
    def write_modes(self, name, entries, mode="w"):
        """An archive of entries given as name, type, mode and contents."""
        with tarfile.open(os.fsdecode(self.path(name)), mode, format=tarfile.USTAR_FORMAT) as made:
            for entry, kind, bits, contents in entries:
                header = tarfile.TarInfo(entry)
                header.type, header.mode, header.size = kind, bits, len(contents)
                made.addfile(header, io.BytesIO(contents))

    def unpacked(self, archive, *options, **how):
        result = self.run_program(b"unpack", archive, b"dest", b"--overwrite", *options, **how)
        self.assertEqual((result.status, result.out), (0, b""), result.err)
        return remarks(result)

    def assert_remarks(self, entries, lines):
        for name, mode in [(b"in.tar", "w"), (b"in.tgz", "w:gz")]:
            with self.subTest(name=name):
                self.write_modes(name, entries, mode)
                self.assertEqual(self.unpacked(name), lines)

    def test_executables_are_counted_and_the_first_in_the_archive_is_named(self):
        file, directory = tarfile.REGTYPE, tarfile.DIRTYPE
        long = "d" * 90 + "/" + "f" * 90
        rows = [([("a", file, 0o644, b"x"), ("d", directory, 0o755, b"")], []),
                ([("a", file, 0o644, b""), (long, file, 0o100, b"x" * 513), ("b", file, 0o755, b"")],
                 [f"  no longer executable: 2 files, first '{long}'"]),
                ([("t", tarfile.AREGTYPE, 0o010, b"x" * 5000), ("u", file, 0o666, b"")],
                 ["  no longer executable: 1 file, first 't'"])]
        for entries, lines in rows:
            with self.subTest(entries=[entry[0] for entry in entries]):
                self.assert_remarks(entries, lines)

    def test_executables_are_counted_without_threads_too(self):
        self.write_modes(b"in.tar", [("t", tarfile.REGTYPE, 0o755, b"x")])
        env = environment(LD_PRELOAD=os.environ["VESK_FAULTY_HOST"], VESK_NO_THREADS="1")
        self.assertEqual(self.unpacked(b"in.tar", env=env),
                         ["  no longer executable: 1 file, first 't'"])

    def test_executables_are_counted_across_all_of_a_long_archive(self):
        chance = random.Random(7)
        entries = [(f"{number:03}", tarfile.REGTYPE, 0o755 if number % 3 == 0 else 0o644,
                    chance.randbytes(chance.choice([0, 1, 511, 512, 513, 3000, 4096, 20000])))
                   for number in range(600)]
        self.assert_remarks(entries, ["  no longer executable: 200 files, first '000'"])

    def test_a_header_that_is_decoded_in_two_pieces_counts_once(self):
        self.write_modes(b"in.tar", [(f"{number:04}", tarfile.REGTYPE, 0o755, b"")
                                     for number in range(3000)])
        self.write(b"in.tgz", gzip.compress(self.read(b"in.tar"), 0))
        for name in [b"in.tar", b"in.tgz"]:
            with self.subTest(name=name):
                self.assertEqual(self.unpacked(name),
                                 ["  no longer executable: 3000 files, first '0000'"])

    def test_what_follows_the_end_marker_is_not_counted(self):
        self.write_modes(b"in.tar", [("a", tarfile.REGTYPE, 0o755, b"")])
        header = self.read(b"in.tar")[:512]
        self.write(b"in.tar", header + bytes(512) + header + bytes(1024))
        self.assertEqual(self.unpacked(b"in.tar"), ["  no longer executable: 1 file, first 'a'"])

    def test_quiet_prints_no_remark(self):
        self.write_modes(b"in.tar", [("a", tarfile.REGTYPE, 0o755, b"")])
        self.assertEqual(self.unpacked(b"in.tar", b"--quiet"), [])

    def test_an_archive_that_is_made_here_has_no_remark(self):
        self.write_tree(b"src", TWO_FILES)
        self.assertEqual(self.run_program(b"make", b"src", b"out.tgz").status, 0)
        self.assertEqual(self.unpacked(b"out.tgz"), [])


class TerminalRemarkTest(TerminalTest):
    def test_names_in_remarks_are_escaped_on_a_terminal(self):
        self.write(b"src/\x1b[31m:\r\xff")
        process = self.start_on_terminal(b"make", b"src", b"a.tar")
        self.assertRegex(self.rest_shown(process),
                         rb"\Amade [^\r]*\r\n  refused when unpacked: 1 name with : or \\, "
                         rb"first '\\033\[31m:\\015\\377'\r\n\Z")

    def test_a_pipe_gets_the_name_without_control_characters(self):
        self.write(b"src/\x1b[31m:\r\xff")
        result = self.run_program(b"make", b"src", b"a.tar")
        self.assertIn(b"first '\\033[31m:\\015\xff'\n", result.err)


if __name__ == "__main__":
    unittest.main(verbosity=2)
