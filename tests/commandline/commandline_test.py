# SPDX-License-Identifier: MIT
"""The promises of vesk-archive: exit statuses, streams, names, formats, the live line."""

import gzip
import itertools
import os
import re
import shutil
import signal
import subprocess
import sys
import tarfile
import termios
import time
import unicodedata
import unittest
import unittest.mock

from program_case import *


class SuccessTest(CommandLineTest):
    def test_a_made_archive_holds_the_files_and_the_summary_shows_entries_bytes_and_seconds(self):
        self.write_tree(b"src", TWO_FILES)
        result = self.run_program(b"make", b"src", b"out.tar")
        self.assertEqual((result.status, result.out), (0, b""))
        # Two headers, two data blocks and two blocks of end marker.
        self.assertRegex(result.err, rb"\Amade out.tar: 2 entries, 3072 bytes" + SUMMARY + rb"\Z")
        with tarfile.open(os.fsdecode(self.path(b"out.tar"))) as made:
            names = [member.name for member in made]
            self.assertEqual([made.extractfile(name).read() for name in names], [b"alpha", b"beta"])

    def test_an_unpacked_tree_holds_the_files_and_the_summary_shows_entries_bytes_and_seconds(self):
        self.write_archive(b"in.tar", TWO_FILES)
        result = self.run_program(b"unpack", b"in.tar", b"dest")
        self.assertEqual((result.status, result.out), (0, b""))
        # tarfile fills its last record of 10240 bytes.
        self.assertRegex(result.err,
                         rb"\Aunpacked in.tar to dest: 2 entries, 10240 bytes" + SUMMARY + rb"\Z")
        self.assertEqual(read_tree(self.path(b"dest")), TWO_FILES)
        self.assertEqual(self.listing(), [b"dest", b"in.tar"])

    def test_entries_are_counted_and_named_in_the_right_number(self):
        for count, words in [(0, b": 0 entries, "), (1, b": 1 entry, "), (3, b": 3 entries, ")]:
            for format in [b"tar", b"tgz"]:
                with self.subTest(count=count, format=format):
                    source, archive = b"src%d" % count, b"%d.%s" % (count, format)
                    os.makedirs(self.path(source), exist_ok=True)
                    self.write_tree(source, {b"%d" % name: b"x" for name in range(count)})
                    made = self.run_program(b"make", source, archive)
                    self.assertIn(words, made.err)
                    unpacked = self.run_program(b"unpack", archive, archive + b".d")
                    self.assertIn(words, unpacked.err)

    def test_the_summary_of_an_archive_without_a_size_shows_none(self):
        self.write(b"file", b"x")
        # Through a link, so that a faulty program that removes its target removes no device.
        os.symlink(b"/dev/null", self.path(b"sink"))
        result = self.run_program(b"make", b"--overwrite", b"--format=tar", b"file", b"sink")
        self.assertEqual(result.status, 0)
        self.assertRegex(result.err, rb"\Amade sink: 1 entry" + SUMMARY)

    def test_quiet_says_nothing_on_success_but_still_reports_errors(self):
        self.write_tree(b"src", TWO_FILES)
        rows = [((b"make", b"src", b"out.tar"), 0, b""),
                ((b"unpack", b"out.tar", b"dest"), 0, b""),
                ((b"make", b"none", b"new.tar"), 1,
                 b"vesk-archive: IOException: Archive source does not exist\n")]
        for words, status, err in rows:
            with self.subTest(words=words):
                result = self.run_program(*words, b"--quiet")
                self.assertEqual(result, (status, b"", err))


class LeftoverTest(CommandLineTest):
    """A file that cannot be deleted is named and is no failure."""

    @unittest.skipUnless(os.geteuid() == 0, "only the superuser can make another user's files")
    def test_a_leftover_of_the_old_tree_is_named_even_if_the_program_is_quiet(self):
        self.write_archive(b"in.tar", TWO_FILES)
        for options in [(), (b"--quiet",)]:
            with self.subTest(options=options):
                self.write(b"out/dest/foreign/file", b"x")
                for name in [b"", b"out", b"out/dest"]:
                    os.chown(self.path(name), 65534, 65534)
                result = self.run_program(b"unpack", b"in.tar", b"out/dest", b"--overwrite", *options,
                                          user=65534, group=65534)
                self.assertEqual(result.status, 0)
                left = [name for name in os.listdir(self.path(b"out")) if name != b"dest"]
                self.assertEqual(len(left), 1)
                told = (b"vesk-archive: '" + os.path.realpath(self.path(b"out/" + left[0])) +
                        b"' could not be deleted whole: it is of no use and can be removed\n")
                self.assertTrue(result.err.endswith(told), result.err)
                self.assertEqual(result.err.count(b"\n"), 1 if options else 2)
                self.assertEqual(read_tree(self.path(b"out/dest")), TWO_FILES)
                shutil.rmtree(self.path(b"out"))


class FormatTest(CommandLineTest):
    GZIP, PLAIN = b"\x1f\x8b", b"fi"  # the one entry is named "file"

    def test_a_new_archive_has_the_format_of_its_name_unless_one_is_given(self):
        self.write(b"file")
        rows = [(b"a.tar", [], self.PLAIN), (b"a.tgz", [], self.GZIP), (b"a.tar.gz", [], self.GZIP),
                (b".tgz", [], self.GZIP), (b"a.TAR", [], self.PLAIN), (b"a.TGZ", [], self.GZIP),
                (b"a.Tar.GZ", [], self.GZIP), (b"b.tar", [b"--format=tgz"], self.GZIP),
                (b"b.tgz", [b"--format", b"tar"], self.PLAIN),
                (b"c", [b"--format", b"tgz"], self.GZIP),
                (b"d.zip", [b"--format", b"tar"], self.PLAIN)]
        for name, options, beginning in rows:
            with self.subTest(name=name):
                self.assertEqual(self.run_program(b"make", b"file", name, *options).status, 0)
                self.assertEqual(self.read(name)[:2], beginning)

    def test_a_name_without_a_known_format_is_wrong_usage_and_the_message_names_the_option(self):
        self.write(b"file")
        for name in [b"a.zip", b"a", b"a.gz", b"tar", b"a.tar.xz", b"a.taR.", b""]:
            with self.subTest(name=name):
                result = self.run_program(b"make", b"file", name)
                self.assertEqual((result.status, result.out), (2, b""))
                self.assertEqual(result.err,
                                 b"vesk-archive: the name '" + name + b"' tells no format: "
                                 b"end it in .tar or .tgz, or add --format tar or --format tgz\n"
                                 b"Try 'vesk-archive make --help'.\n")
                self.assertEqual(self.listing(), [b"file"])

    def test_unpacking_recognises_the_format_by_the_first_bytes(self):
        for name, mode in [(b"gzip.tar", "w:gz"), (b"plain.tgz", "w"), (b"gzip", "w:gz"),
                           (b"plain", "w")]:
            with self.subTest(name=name):
                self.write_archive(name, TWO_FILES, mode)
                self.assertEqual(self.run_program(b"unpack", name, name + b".d").status, 0)
                self.assertEqual(read_tree(self.path(name + b".d")), TWO_FILES)

    def test_a_given_format_wins_over_the_first_bytes(self):
        self.write_archive(b"plain", TWO_FILES)
        self.write(b"gzip", gzip.compress(bytes(5000), 0))
        for name, format in [(b"plain", b"tgz"), (b"gzip", b"tar")]:
            with self.subTest(name=name):
                result = self.run_program(b"unpack", name, b"dest", b"--format", format)
                self.assertEqual(result.status, 1)
                self.assertEqual(self.run_program(b"unpack", name, name + b".d").status, 0)

    def test_archives_that_cannot_be_read_are_left_to_the_module(self):
        os.mkfifo(self.path(b"fifo"))
        os.mkdir(self.path(b"directory"))
        self.write(b"empty")
        self.write(b"byte", b"\x1f")
        missing, unmarked = b"Archive file does not exist", b"TAR archive has no end marker"
        for name, message in [(b"fifo", missing), (b"directory", missing), (b"none", missing),
                              (b"", b"Archive path is required"), (b"empty", unmarked),
                              (b"byte", unmarked)]:
            with self.subTest(name=name):
                result = self.run_program(b"unpack", name, b"dest")
                self.assert_raised(result, message)


class NamesTest(CommandLineTest):
    NAMES = [b"with space", b"new\nline", b"qu'o\"te", b"\xff\xfe", "\u00e4\u4e2d".encode(),
             b"[a,b]", b"{a}", b"make", b"unpack", b"%s", b"@file", b"a=b", b"#", b"$(x)", b"*", b"++", b"+",
             b"+++", b"++\x01"]
    DASHED = [b"-", b"-dash", b"--", b"--help", b"--format=tgz", b"-h"]

    def round_trip(self, name, *mark):
        self.write_tree(name, TWO_FILES)
        self.assertEqual(self.run_program(b"make", b"--format=tar", *mark, name, name + b".x"),
                         (0, b"", unittest.mock.ANY))
        result = self.run_program(b"unpack", *mark, name + b".x", name + b".d")
        self.assertRegex(result.err, b"\\Aunpacked " + re.escape(name + b".x to " + name + b".d:"))
        self.assertEqual(list(read_tree(self.path(name + b".d")).values()), list(TWO_FILES.values()))

    def test_names_may_hold_any_bytes(self):
        for name in self.NAMES:
            with self.subTest(name=name):
                self.round_trip(name)

    def test_two_plus_signs_are_a_name_wherever_a_name_may_stand(self):
        self.write(b"file")
        result = self.run_program(b"make", b"file", b"++", b"--format=tar")
        self.assertRegex(result.err, rb"\Amade \+\+: 1 entry")
        result = self.run_program(b"unpack", b"++", b"dest", b"--module", b"++")
        self.assertRegex(result.err, rb"\Avesk-archive: cannot load the archive module: .*/\+\+:")
        result = self.run_program(b"unpack", b"--format", b"++", b"++", b"dest")
        self.assertEqual(result.status, 2)
        self.assertIn(b" '++' is neither tar nor tgz\n", result.err)
        result = self.run_program(b"unpack", b"a", b"b", b"++", b"++\x01", b"c")
        self.assertIn(b": '++' is too much\n", result.err)
        result = self.run_program(b"unpack", b"a", b"b", b"++\x01", b"++", b"c")
        self.assertIn(b": '++\x01' is too much\n", result.err)

    def test_after_two_dashes_every_word_is_a_name(self):
        for name in self.NAMES + self.DASHED:
            with self.subTest(name=name):
                self.round_trip(name, b"--")


class FailureTest(CommandLineTest):
    def test_the_module_s_exception_is_printed_on_standard_error_with_status_1(self):
        self.write(b"file")
        self.write(b"old.tar", b"old")
        self.write(b"dest/old")
        self.write(b"good.tar", bytes(1024))
        rows = [((b"make", b"none", b"a.tar"), b"Archive source does not exist"),
                ((b"make", b"", b"a.tar"), b"Source path is required"),
                ((b"make", b"file", b"", b"--format=tgz"), b"Archive path is required"),
                ((b"make", b"file", b"old.tar"), b"Archive already exists"),
                ((b"unpack", b"good.tar", b""), b"Destination path is required"),
                ((b"unpack", b"good.tar", b"dest"), b"Destination already exists"),
                ((b"unpack", b"old.tar", b"new"), b"TAR archive has no end marker")]
        for words, message in rows:
            with self.subTest(words=words):
                result = self.run_program(*words)
                self.assert_raised(result, message)
        self.assertEqual(self.listing(), [b"dest", b"file", b"good.tar", b"old.tar"])
        self.assertEqual(self.read(b"old.tar"), b"old")

    def test_overwrite_replaces_the_archive_and_the_destination(self):
        self.write_tree(b"src", TWO_FILES)
        self.write(b"out.tar", b"old")
        self.write(b"dest/old")
        self.assertEqual(self.run_program(b"make", b"src", b"out.tar", b"--overwrite").status, 0)
        unpacked = self.run_program(b"unpack", b"--overwrite", b"out.tar", b"dest")
        self.assertEqual(unpacked.status, 0)
        self.assertEqual(sorted(read_tree(self.path(b"dest")).values()), [b"alpha", b"beta"])

    def test_a_message_passes_through_a_pipe_unchanged(self):
        name = b"src/\x1b[31m\n\xff\x07'"
        self.write(name)
        process = start((b"make", b"src", b"a.tar", b"--quiet"), self.cwd, environment("wait", 3))
        process.stdout.read(1)  # the entries have been collected
        os.remove(self.path(name))
        self.assertEqual(finish(process).err,
                         b"vesk-archive: IOException: Cannot read file: " + name + b"\n")

    def assert_wrong_usage(self, words, message, helped):
        result = self.run_program(*words)
        self.assertEqual(result, (2, b"", b"vesk-archive: " + message + b"\nTry 'vesk-archive" +
                                  helped + b" --help'.\n"))
        self.assertEqual(self.listing(), [b"file"])

    def test_a_first_word_that_is_no_verb_is_named(self):
        self.write(b"file")
        rows = [((), b"say what to do: make or unpack"),
                ((b"--",), b"say what to do: make or unpack"),
                ((b"",), b"'' is neither make nor unpack"),
                ((b"list", b"a.tar"), b"'list' is neither make nor unpack"),
                ((b"Make", b"file", b"a.tar"), b"'Make' is neither make nor unpack"),
                ((b"--nonsense",), b"say what to do, make or unpack, before '--nonsense'")]
        for words, message in rows:
            with self.subTest(words=words):
                self.assert_wrong_usage(words, message, b"")
        for words, message in [((b"--quiet", b"make", b"file", b"a.tar"),
                                b"say what to do, make or unpack, before '--quiet'"),
                               ((b"foo", b"make", b"file", b"a.tar"),
                                b"'foo' is neither make nor unpack")]:
            with self.subTest(words=words):
                self.assert_wrong_usage(words, message, b" make")

    def test_wrong_usage_names_the_word_that_is_wrong_and_what_is_missing(self):
        self.write(b"file")
        make, two = (b"make", b"file", b"a.tar"), b"make takes SOURCE and ARCHIVE: "
        rows = [((b"make",), b"make needs SOURCE and ARCHIVE"),
                ((b"make", b"file"), b"make needs SOURCE and ARCHIVE: only 'file' was given"),
                ((*make, b"extra"), two + b"'extra' is too much"),
                ((*make, b"one", b"two"), two + b"'one' is too much"),
                ((*make, b"make"), two + b"'make' is too much"),
                ((*make, b"--", b"-x"), two + b"'-x' is too much"),
                ((*make, b"++"), two + b"'++' is too much"),
                ((*make, b"--nonsense"), b"make has no option '--nonsense'"),
                ((*make, b"--overwrit"), b"make has no option '--overwrit': is --overwrite meant?"),
                ((*make, b"--overwrite=no"), b"'--overwrite=no': --overwrite takes no value"),
                ((*make, b"--format", b"zip"), b"--format: 'zip' is neither tar nor tgz"),
                ((*make, b"--format"), b"nothing follows --format"),
                ((*make, b"--format="), b"nothing follows --format"),
                ((*make, b"--format=tar", b"--format=tgz"), b"--format is given more than once"),
                ((b"make", b"-dash", b"a.tar"),
                 b"make has no option '-dash': for a name, type './-dash'"),
                ((b"make", b"file", b"-x.tar", b"--quiet"),
                 b"make has no option '-x.tar': for a name, type './-x.tar'")]
        for words, message in rows:
            with self.subTest(words=words):
                self.assert_wrong_usage(words, message, b" make")
        rows = [((b"unpack", b"a.tar"), b"unpack needs ARCHIVE and DESTINATION: only 'a.tar' was given"),
                ((b"unpack", b"a.tar", b"dest", b"--list"), b"unpack has no option '--list'"),
                ((b"unpack", b"a.tar", b"dest", b"--module"), b"nothing follows --module")]
        for words, message in rows:
            with self.subTest(words=words):
                self.assert_wrong_usage(words, message, b" unpack")


class MistakeTest(CommandLineTest):
    """Requests that nobody intends are refused with status 2 before anything is changed."""

    def setUp(self):
        super().setUp()
        self.write_tree(b"project/sub", TWO_FILES)
        self.write(b"project/file", b"precious")
        self.write_archive(b"project/backup.tar", TWO_FILES)
        shutil.copy(self.path(b"project/backup.tar"), self.path(b"outside.tgz"))
        os.symlink(b"project", self.path(b"link"))
        os.symlink(b"project/backup.tar", self.path(b"link.tar"))
        os.link(self.path(b"project/backup.tar"), self.path(b"hard.tar"))
        self.write(b"other/file", b"x")
        os.symlink(b"../outside.tgz", self.path(b"other/leading-out.tar"))

    def assert_refused(self, pattern, cwd, *words):
        before = read_tree(self.cwd), self.listing()
        result = finish(start(words, self.path(cwd)))
        self.assertEqual((result.status, result.out), (2, b""), words)
        self.assertRegex(result.err, rb"\Avesk-archive: " + pattern + rb"\n\Z")
        self.assertEqual((read_tree(self.cwd), self.listing()), before)

    def test_unpacking_onto_the_working_directory_or_one_above_it(self):
        archive = self.path(b"outside.tgz")
        rows = [(b"project", b"."), (b"project", b"./"), (b"project", b"../project"),
                (b"project", self.path(b"project")), (b"project", b"../link"),
                (b"project", self.path(b"link/.")), (b"project/sub", b".."),
                (b"project/sub/sub", b"../.."), (b"project/sub", self.path(b"link")),
                (b"project", b"/"), (b"project", b"sub/..")]
        for cwd, destination in rows:
            with self.subTest(cwd=cwd, destination=destination):
                own = os.path.join(destination, b"outside")
                self.assert_refused(b"unpacking to '" + re.escape(destination) + b"' would replace "
                                    b"the working directory with all it holds: name a directory "
                                    b"of its own, such as '" + re.escape(own) + b"'",
                                    cwd, b"unpack", archive, destination, b"--overwrite")

    def test_unpacking_onto_an_empty_working_directory_which_would_vanish_under_the_shell(self):
        os.mkdir(self.path(b"empty"))
        for destination in [b".", b"../empty", self.path(b"empty")]:
            with self.subTest(destination=destination):
                self.assert_refused(b"unpacking to '" + re.escape(destination) + b"' would replace "
                                    b"the working directory .*",
                                    b"empty", b"unpack", b"../outside.tgz", destination)

    def test_unpacking_onto_a_directory_that_the_archive_is_in(self):
        for archive, destination in [(b"project/backup.tar", b"project"), (b"link.tar", b"project"),
                                     (b"link.tar", b"link"), (b"link/backup.tar", b"project/"),
                                     (b"project/sub/../backup.tar", b"link/../project")]:
            with self.subTest(archive=archive, destination=destination):
                self.assert_refused(b"unpacking to '" + re.escape(destination) + b"' would replace "
                                    b"the directory that the archive itself is in: name a "
                                    b"directory of its own, such as '.*'",
                                    b".", b"unpack", archive, destination, b"--overwrite")

    def test_the_directory_that_is_suggested_has_the_archive_s_name_without_its_format(self):
        for name, own in [(b"a.tar", b"a"), (b"a.tgz", b"a"), (b"a.tar.gz", b"a"),
                          (b"a.tar.xz", b"a.tar.xz-unpacked"), (b".tar", b".tar-unpacked")]:
            with self.subTest(name=name):
                shutil.copy(self.path(b"outside.tgz"), self.path(b"other/" + name))
                self.assert_refused(b".*, such as 'other/" + re.escape(own) + b"'", b".", b"unpack",
                                    b"other/" + name, b"other", b"--overwrite")
                os.remove(self.path(b"other/" + name))

    def test_unpacking_an_archive_onto_itself(self):
        for archive, destination in [(b"project/backup.tar", b"project/backup.tar"),
                                     (b"project/backup.tar", b"link.tar"),
                                     (b"link.tar", b"link/backup.tar"), (b"hard.tar", b"link.tar")]:
            with self.subTest(archive=archive, destination=destination):
                self.assert_refused(b"unpacking to '" + re.escape(destination) + b"' would replace "
                                    b"the archive itself: name a directory of its own, such as '" +
                                    re.escape(archive.removesuffix(b".tar")) + b"'",
                                    b".", b"unpack", archive, destination, b"--overwrite")

    def test_making_an_archive_of_itself(self):
        for archive in [b"project/backup.tar", b"link.tar", b"hard.tar", b"link/backup.tar"]:
            for source in [b"project/backup.tar", b"./link.tar", b"hard.tar"]:
                with self.subTest(archive=archive, source=source):
                    other = os.path.join(os.path.dirname(archive), b"new-" +
                                         os.path.basename(archive))
                    self.assert_refused(b"the archive '" + re.escape(archive) + b"' would be made "
                                        b"of itself: name another, such as '" + other + b"'",
                                        b".", b"make", source, archive, b"--overwrite")

    def test_making_an_archive_over_one_in_its_source(self):
        rows = [(b".", b"project", b"project/backup.tar", b"backup.tar"),
                (b".", b"link", b"project/backup.tar", b"backup.tar"),
                (b".", b"project", b"link.tar", b"link.tar"),
                (b"project", b".", b"backup.tar", b"../backup.tar"),
                (b"project/sub", b"..", b"../backup.tar", b"../../backup.tar")]
        for cwd, source, archive, outside in rows:
            with self.subTest(cwd=cwd, source=source, archive=archive):
                self.assert_refused(b"the archive '" + re.escape(archive) + b"' is in its source '" +
                                    re.escape(source) + b"': remove it first, or name one outside, "
                                    b"such as '" + re.escape(outside) + b"'",
                                    cwd, b"make", source, archive, b"--overwrite")

    def test_requests_that_only_look_like_mistakes_are_carried_out(self):
        rows = [(b"project", (b"unpack", b"backup.tar", b"sub")),
                (b".", (b"unpack", b"project/backup.tar", b"project/sub")),
                (b".", (b"unpack", b"other/leading-out.tar", b"other")),
                (b"project/sub", (b"unpack", b"../backup.tar", b"../new")),
                (b".", (b"make", b"project/backup.tar", b"new.tar")),
                (b".", (b"make", b"project", b"hard.tar")),
                (b"project", (b"make", b".", b"../outside.tgz"))]
        for cwd, words in rows:
            with self.subTest(cwd=cwd, words=words):
                result = finish(start((*words, b"--overwrite"), self.path(cwd)))
                self.assertEqual(result.status, 0, result.err)

    def test_a_fifo_in_the_source_is_no_archive_there(self):
        os.mkfifo(self.path(b"other/fifo.tar"))
        reader = subprocess.Popen(["cat", self.path(b"other/fifo.tar")], stdout=subprocess.DEVNULL)
        result = self.run_program(b"make", b"other", b"other/fifo.tar", b"--overwrite")
        reader.kill()
        reader.wait()
        self.assertEqual(result.status, 0, result.err)

    def test_without_overwrite_the_messages_are_the_ordinary_ones(self):
        rows = [((b"unpack", b"outside.tgz", b"."), b"Destination already exists"),
                ((b"make", b"project", b"project/backup.tar"), b"Archive already exists"),
                ((b"make", b"hard.tar", b"hard.tar"), b"Archive already exists")]
        for words, message in rows:
            self.assert_raised(self.run_program(*words), message)

    def test_missing_files_and_files_that_are_no_archive_are_left_to_the_module(self):
        rows = [((b"unpack", b"none.tar", b"other"), b"Archive file does not exist"),
                ((b"make", b"none", b"other/none.tar"), b"Archive source does not exist"),
                ((b"make", b"other", b"other", b"--format=tar"), b"Cannot create archive")]
        for words, message in rows:
            self.assert_raised(self.run_program(*words, b"--overwrite"), message)


class InformationTest(CommandLineTest):
    def test_help_says_that_nothing_is_compressed(self):
        self.assertIn(b"not\ncompressed; what it unpacks may be", self.run_program(b"--help").out)
        self.assertIn(b"not compressed", self.run_program(b"make", b"--help").out)

    def test_help_goes_to_standard_output_and_shows_an_example(self):
        rows = [((b"--help",), rb"Example: vesk-archive make "),
                ((b"make", b"--help"), rb"Example: vesk-archive make "),
                ((b"unpack", b"--help"), rb"Example: vesk-archive unpack ")]
        for words, example in rows:
            with self.subTest(words=words):
                result = self.run_program(*words)
                self.assertEqual((result.status, result.err), (0, b""))
                self.assertIn(example, result.out)

    def test_the_verbs_help_names_every_option(self):
        for verb in [b"make", b"unpack"]:
            out = self.run_program(verb, b"--help").out
            for option in [b"--format tar|tgz", b"--overwrite", b"--sync", b"--quiet", b"--module PATH"]:
                with self.subTest(verb=verb, option=option):
                    self.assertIn(option, out)

    def test_unpack_s_help_says_how_to_list(self):
        out = self.run_program(b"unpack", b"--help").out
        self.assertIn(b"tar tvf", out)
        self.assertIn(b"tar tzvf", out)

    def test_the_version_is_the_project_s(self):
        version = b"vesk-archive " + os.environb[b"VESK_VERSION"] + b"\n"
        self.assertEqual(self.run_program(b"--version"), (0, version, b""))


class ModuleTest(CommandLineTest):
    def make(self, *options, **how):
        self.write(b"file")
        return self.run_program(b"make", b"--overwrite", b"file", b"a.tar", *options, **how)

    def test_a_module_that_cannot_be_used_is_status_3_and_the_message_names_the_option(self):
        self.write(b"garbage", b"no library")
        rows = [(b"none.so", rb"cannot load the archive module: .*none\.so.*"),
                (b"garbage", rb"cannot load the archive module: .*garbage.*"),
                (os.environb[b"VESK_INCOMPLETE_MODULE"],
                 rb"the file '.*' has no function vesk_io_archives_TgzArchiver_unpackArchive")]
        for module, problem in rows:
            with self.subTest(module=module):
                result = self.make(b"--module", module)
                self.assertEqual((result.status, result.out), (3, b""))
                self.assertRegex(result.err, rb"\Avesk-archive: " + problem +
                                 rb"; name the module's file with --module PATH\n\Z")
                self.assertNotIn(b"a.tar", self.listing())

    def test_a_module_is_loaded_from_the_path_given(self):
        for name in [b"bare.so", b"with space/m.so", b"./dotted.so", b"\xff.so"]:
            with self.subTest(name=name):
                os.makedirs(os.path.dirname(self.path(name)), exist_ok=True)
                shutil.copy(MODULE, self.path(name))
                self.assertEqual(self.make(b"--module", name).status, 0)

    def test_a_program_finds_the_module_of_its_installation_wherever_that_is_moved(self):
        root = self.path(b"moved tree")
        directory = os.path.join(root, b"bin", os.environb[b"VESK_MODULE_DIRECTORY"])
        os.makedirs(os.path.join(root, b"bin"))
        os.makedirs(os.path.normpath(directory))
        shutil.copy(os.environb[b"VESK_STANDIN_HOST"], os.path.normpath(directory))
        program = shutil.copy(PROGRAM, os.path.join(root, b"bin"))
        result = self.make(program=program)
        self.assertEqual(result.status, 3)
        self.assertIn(b"libvesk_io_archives.so", result.err)
        shutil.copy(MODULE, os.path.normpath(directory))
        self.assertEqual(self.make(program=program).status, 0)


    # The loader does not know the path either, yet it has to find the program's library.
    WITHOUT_PROC = ["unshare", "-rm", "sh", "-c", 'mount -t tmpfs none /proc && exec "$@"', "sh",
                    "env", b"LD_LIBRARY_PATH=" + os.path.dirname(os.environb[b"VESK_STANDIN_HOST"])]

    @unittest.skipUnless(can_mount() and not is_instrumented(), "/proc cannot be hidden here")
    def test_a_program_without_a_known_path_loads_nothing_from_below_the_working_directory(self):
        self.write(b"file")
        for directory in [b"../lib", os.environb[b"VESK_MODULE_DIRECTORY"]]:
            target = os.path.normpath(os.path.join(self.cwd, b"work", directory))
            os.makedirs(target, exist_ok=True)
            shutil.copy(MODULE, target)
        os.mkdir(self.path(b"work"))
        done = subprocess.run([*self.WITHOUT_PROC, PROGRAM, "make", "../file", "a.tar"],
                              cwd=self.path(b"work"), capture_output=True, check=False)
        self.assertEqual((done.returncode, done.stdout), (3, b""))
        self.assertEqual(done.stderr,
                         b"vesk-archive: cannot tell where this program is, to find the archive "
                         b"module; name the module's file with --module PATH\n")
        done = subprocess.run([*self.WITHOUT_PROC, PROGRAM, "make", "file", "a.tar", "--module",
                               MODULE], cwd=self.cwd, capture_output=True, check=False)
        self.assertEqual(done.returncode, 0, done.stderr)


class BrokenStreamTest(CommandLineTest):
    ROWS = [((b"make", b"file", b"a.tar"), 0), ((b"make", b"none", b"b.tar"), 1),
            ((b"make", b"file"), 2), ((b"make", b"file", b"b.tar", b"--module=none"), 3)]

    def test_a_closed_standard_error_changes_no_status(self):
        self.write(b"file")
        for words, status in self.ROWS:
            with self.subTest(words=words):
                result = self.run_program(*words, preexec_fn=lambda: os.close(2))
                self.assertEqual(result.status, status)

    def test_a_broken_pipe_as_standard_error_changes_no_status(self):
        self.write(b"file")
        for words, status in self.ROWS:
            with self.subTest(words=words):
                reading, writing = os.pipe()
                os.close(reading)
                result = self.run_program(*words, stderr=writing)
                os.close(writing)
                self.assertEqual(result.status, status)

    def streams_of(self, process):
        """The targets of the streams while the program waits to open the module."""
        wait_until(lambda: status_line(process, "State") == "S" and catches(process, signal.SIGTERM)
                   and status_line(process, "Threads") == "2")
        return [os.readlink(f"/proc/{process.pid}/fd/{number}") for number in range(3)]

    def test_no_file_of_the_program_takes_the_number_of_a_closed_stream(self):
        self.write(b"file")
        os.mkfifo(self.path(b"fifo"))
        numbers = range(3)
        for closed in [combination for count in range(4)
                       for combination in itertools.combinations(numbers, count)]:
            with self.subTest(closed=closed):
                process = start((b"make", b"file", b"a.tar", b"--module", b"fifo"), self.cwd,
                                preexec_fn=lambda: [os.close(number) for number in closed])
                for number, place in enumerate(self.streams_of(process)):
                    wanted = "/dev/null" if number in closed else "pipe:"
                    self.assertTrue(place.startswith(wanted), place)
                process.kill()
                finish(process)

    def test_an_open_stream_stays_unchanged(self):
        self.write(b"file")
        for words, status in self.ROWS:
            result = self.run_program(*words)
            self.assertEqual(result.status, status)
            self.assertNotEqual(result.err, b"")

    @unittest.skipUnless(can_mount(), "no file system can be hidden here")
    def test_without_a_null_device_a_closed_stream_is_still_replaced(self):
        self.write(b"file")
        os.mkfifo(self.path(b"fifo"))
        process = subprocess.Popen(
            ["unshare", "-rm", "sh", "-c", 'mount -t tmpfs none /dev && exec "$@" 2>&-', "sh",
             PROGRAM, "make", "file", "a.tar", "--module", "fifo"], cwd=self.cwd,
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.assertEqual(self.streams_of(process)[2], "/")
        process.kill()
        finish(process)


class LiveLineTest(TerminalTest):
    def setUp(self):
        super().setUp()
        self.write_tree(b"src", TWO_FILES)

    ERASED = rb"\r\x1b\[J"
    BAR = rb" \[#{15}\.{15}\]"
    LEFT = rb"(, \d+ s left)?"
    LINE = ERASED + rb"(reading|unpacking): 1 of 2 entries" + BAR + rb" 50 %" + LEFT + rb"\r"
    MAKE = (b"make", b"src", b"a.tar")
    MADE = rb"made a\.tar: 2 entries, 3072 bytes, \d+\.\d\d s"
    ONE_IS_DONE, OTHER_IS_UNREAD = 7, 5  # numbers of calls
    TIME_ENOUGH = 1.2  # seconds, for a line that would be shown after half a second

    def start_slow_making(self, *options, call=ONE_IS_DONE, **changes):
        env = environment("wait", call, **changes)
        return self.start_on_terminal(*self.MAKE, *options, env=env)

    def start_waiting_in(self, function, *words):
        env = environment(LD_PRELOAD=os.environ["VESK_FAULTY_HOST"], VESK_SLOW=function)
        return self.start_on_terminal(*words, env=env)

    def test_long_making_shows_a_line_that_is_redrawn_and_erased_at_the_end(self):
        beginning = time.monotonic()
        process = self.start_slow_making()
        shown = self.shown_until(self.LINE)
        self.assertGreaterEqual(time.monotonic() - beginning, 0.5)
        shown += self.shown_until(rb"(" + self.LINE + rb"){2}")
        self.assertRegex(shown, rb"\A(" + self.LINE + rb"){3,}")
        self.assertRegex(self.rest_shown(process), self.ERASED + self.MADE + rb"\r\n\Z")

    def test_long_unpacking_shows_the_line_too(self):
        for name, mode in [(b"in.tar", "w"), (b"in.tgz", "w:gz")]:
            with self.subTest(name=name):
                self.write_archive(name, TWO_FILES, mode)
                process = self.start_on_terminal(b"unpack", name, b"dest", b"--overwrite",
                                                 env=environment("wait", UNPACKING_CALLS))
                self.assertRegex(self.shown_until(self.LINE), rb"unpacking")
                self.assertRegex(self.rest_shown(process), self.ERASED + rb"unpacked in\.t..? to dest: ")

    def test_the_time_left_is_shown_when_it_can_be_estimated(self):
        process = self.start_slow_making()
        self.shown_until(self.BAR + rb" 50 %, [1-9] s left\r")
        self.rest_shown(process)

    def test_the_line_names_each_stage(self):
        self.write_archive(b"in.tgz", {b"a": os.urandom(3_000_000)}, "w:gz")
        unpack = (b"unpack", b"in.tgz", b"dest")
        rows = [("readdir", self.MAKE, rb"walking: \d names, \d s so far"),
                ("writev", self.MAKE, rb"writing, \d s so far"),
                ("fsync", (*self.MAKE, b"--sync"), rb"moving into place, \d s so far"),
                ("inflateRaw", unpack, rb"decoding: 0 of 3 MB \[\.{30}\] 0 %"),
                ("syncfs", (*unpack, b"--sync"), rb"moving into place, \d s so far")]
        for function, words, line in rows:
            with self.subTest(function=function):
                process = self.start_waiting_in(function, *words, b"--overwrite")
                self.shown_until(self.ERASED + line + rb"\r")
                self.rest_shown(process)

    def test_links_to_directories_are_not_counted(self):
        os.symlink(b".", self.path(b"src/here"))
        os.symlink(b"a", self.path(b"src/link"))
        process = self.start_slow_making()
        self.shown_until(rb"reading: 1 of 3 entries \[")
        self.rest_shown(process)

    def set_columns(self, columns):
        termios.tcsetwinsize(self.terminal, (24, columns))

    def test_the_line_fits_the_terminal_when_it_is_resized(self):
        rows = [(80, rb"reading: 1 of 2 entries \[#{15}\.{15}\] 50 %" + self.LEFT),
                (58, rb"reading: 1 of 2 entries \[#{5,8}\.{5,8}\] 50 %" + self.LEFT),
                (45, rb"reading: 1 of 2 entries, 50 %" + self.LEFT),
                (24, rb"reading: 50 %" + self.LEFT), (14, rb"reading: 50 %"), (8, rb"reading"),
                (4, rb"rea"), (1, rb""), (80, rb"reading: 1 of 2 entries \[#{15}.*")]
        process = self.start_slow_making()
        for columns, line in rows:
            with self.subTest(columns=columns):
                self.set_columns(columns)
                pattern = self.ERASED + rb"(?P<line>" + line + rb")\r(?=\r)"
                shown = self.shown_until(pattern)
                self.assertLess(len(re.search(pattern, shown)["line"]), columns)
        self.rest_shown(process)

    def test_the_cursor_waits_at_the_beginning_for_a_resize_that_wraps_the_line(self):
        process = self.start_slow_making()
        self.assertRegex(self.shown_until(self.LINE + rb"\Z"), rb"\r\Z")
        self.rest_shown(process)

    def test_the_line_has_no_colours_whether_or_not_they_are_declined(self):
        for changes in [{}, {"NO_COLOR": "1"}]:
            with self.subTest(changes=changes):
                process = self.start_slow_making(b"--overwrite", **changes)
                shown = self.shown_until(self.LINE) + self.rest_shown(process)
                self.assertNotIn(b"\x1b", shown.replace(b"\r\x1b[J", b""))

    def test_the_line_is_erased_before_an_error(self):
        process = self.start_slow_making(call=self.OTHER_IS_UNREAD)
        self.shown_until(self.ERASED + rb"reading: 0 of 2 entries")
        os.remove(self.path(b"src/sub/b"))
        self.assertRegex(self.rest_shown(process, 1), self.ERASED +
                         rb"vesk-archive: IOException: Cannot read file: src/sub/b\r\n")

    def test_the_line_is_erased_before_anything_else_is_said(self):
        env = environment(LD_PRELOAD=os.environ["VESK_FAULTY_HOST"], VESK_SLOW="fsync",
                          VESK_NO_RENAMEAT2="1", VESK_NO_UNLINK="1")
        process = self.start_on_terminal(*self.MAKE, b"--sync", env=env)
        self.shown_until(self.ERASED + rb"moving")
        self.assertRegex(self.rest_shown(process),
                         self.ERASED + rb"vesk-archive: '[^\r]*' could not be deleted: [^\r]*\r\n")

    def test_the_line_is_erased_when_interrupted(self):
        process = self.start_slow_making()
        self.shown_until(self.LINE)
        send_and_await(process, signal.SIGINT)
        self.assertRegex(self.rest_shown(process, -signal.SIGINT), self.ERASED +
                         rb"vesk-archive: interrupted; the archive was not written\r\n\Z")

    def test_the_line_is_erased_when_the_program_is_blocked(self):
        process = self.start_slow_making(VESK_PATIENCE="ordinary")
        self.shown_until(self.LINE)
        process.send_signal(signal.SIGINT)
        shown = self.shown_until(rb"written\r\n")
        self.assertRegex(shown, self.ERASED +
                         rb"vesk-archive: interrupted; the archive was not written")
        self.assertEqual(process.wait(PATIENCE), -signal.SIGINT)
        finish(process)

    def shown_of_slow_making(self, *options, **changes):
        process = self.start_slow_making(*options, **changes)
        process.stdout.read(1)
        time.sleep(self.TIME_ENOUGH)
        return self.rest_shown(process)

    def test_a_quiet_program_shows_nothing(self):
        self.assertEqual(self.shown_of_slow_making(b"--quiet"), b"")

    def test_a_terminal_that_cannot_redraw_gets_the_summary_only(self):
        for terminal in ["dumb", ""]:
            with self.subTest(TERM=terminal):
                shown = self.shown_of_slow_making(b"--overwrite", TERM=terminal)
                self.assertRegex(shown, rb"\A" + self.MADE + rb"\r\n\Z")

    def test_a_pipe_gets_the_summary_only(self):
        process = start(self.MAKE, self.cwd, environment("wait", self.ONE_IS_DONE))
        process.stdout.read(1)
        time.sleep(self.TIME_ENOUGH)
        self.assertRegex(finish(process).err, rb"\A" + self.MADE + rb"\n\Z")


class HostileNameTest(TerminalTest):
    """How names that would control a terminal are shown on it."""

    def setUp(self):
        super().setUp()
        self.write_tree(b"src", TWO_FILES)

    ROWS = [(b"\x1b[31m", rb"\033[31m"), (b"a\nb", rb"a\012b"), (b"\r\x07\x7f", rb"\015\007\177"),
            (b"\xff\x9b", rb"\377\233"), ("\u009b31m".encode(), rb"\302\23331m"),
            (b"\xe4\xb8", rb"\344\270"), ("\u00e4\u4e2d".encode(), "\u00e4\u4e2d".encode()),
            ("gpj\u202eexe".encode(), rb"gpj\342\200\256exe")]

    # The first and the last of those that are shown in no way of their own, or turn others round,
    # and their neighbours, which are shown.
    HIDDEN = [0xAD, 0x61C, 0x180E, 0x200B, 0x200F, 0x2028, 0x2029, 0x202A, 0x202E, 0x2060, 0x206F,
              0xFEFF, 0xFFF9, 0xFFFB, 0xE0000, 0xE0001, 0xE0020, 0xE007F, 0x2800, 0x1D159, 0x16FE4,
              0xFFFC, 0xE000, 0xF8FF, 0xF0000, 0xFFFFD, 0x100000, 0x10FFFD]
    SHOWN = [0xAC, 0xAE, 0x61B, 0x61E, 0x1807, 0x1810, 0x2010, 0x2027, 0x2030, 0x205E, 0x2070,
             0x20, 0x27FF, 0x2801, 0x3001, 0xFEFC, 0xFF01, 0xFFFD, 0x1D158, 0x1F600]

    def test_a_character_that_is_invisible_or_reorders_others_is_escaped(self):
        rows = [(code, True) for code in self.HIDDEN + self.formats_and_spaces()]
        rows += [(code, False) for code in self.SHOWN]
        name = "|".join(chr(code) for code, _ in rows)
        process = self.start_on_terminal(b"make", b"src", name.encode())
        shown = self.rest_shown(process, 2).partition(b"the name '")[2].partition(b"' tells")[0]
        for (code, hidden), text in zip(rows, shown.split(b"|"), strict=True):
            with self.subTest(code=hex(code)):
                raw = chr(code).encode()
                escaped = b"".join(b"\\%03o" % byte for byte in raw)
                self.assertEqual(text, escaped if hidden else raw)

    @staticmethod
    def formats_and_spaces():
        """All of them except the ordinary space."""
        return [code for code in range(0x21, sys.maxunicode)
                if unicodedata.category(chr(code)) in ["Cf", "Zs"]]

    def test_a_summary_shows_control_characters_as_octal_digits(self):
        for name, shown in self.ROWS:
            with self.subTest(name=name):
                process = self.start_on_terminal(b"make", b"src", name + b".tar")
                self.assertIn(b"made " + shown + b".tar: 2 ", self.rest_shown(process))

    def test_a_usage_error_shows_control_characters_as_octal_digits(self):
        for name, shown in self.ROWS:
            with self.subTest(name=name):
                process = self.start_on_terminal(b"make", b"src", name)
                self.assertIn(b"the name '" + shown + b"' tells", self.rest_shown(process, 2))

    def test_the_module_s_message_shows_control_characters_as_octal_digits(self):
        for name, shown in self.ROWS:
            with self.subTest(name=name):
                self.write(b"names/" + name)
                process = self.start_on_terminal(b"make", b"names", b"a.tar", b"--quiet",
                                                 env=environment("wait", 3))
                process.stdout.read(1)  # the entries have been collected
                os.remove(self.path(b"names/" + name))
                self.assertEqual(self.rest_shown(process, 1),
                                 b"vesk-archive: IOException: Cannot read file: names/" + shown +
                                 b"\r\n")

    def test_in_an_ascii_locale_all_other_characters_are_escaped(self):
        process = self.start_on_terminal(b"make", b"src", "\u00e4.tar".encode(),
                                         env=environment(LC_ALL="C"))
        self.assertIn(rb"made \303\244.tar: ", self.rest_shown(process))


if __name__ == "__main__":
    unittest.main(verbosity=2)
