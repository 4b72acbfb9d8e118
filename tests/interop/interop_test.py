# SPDX-License-Identifier: MIT
"""Agreement with GNU tar, bsdtar, gzip and Python's tarfile, in both directions.

Usage: interop_test.py VESK_ARCHIVE [TEST...]

VESK_EMULATOR is the command in front of VESK_ARCHIVE where that is a program for another machine.
"""

import gzip
import hashlib
import io
import os
import pathlib
import shlex
import shutil
import stat
import subprocess
import sys
import tarfile
import tempfile
import unittest

sys.path.append(str(pathlib.Path(__file__).parents[1] / "support"))
from trees import read_tree, write_tree

# Names are bytes throughout; no tool may translate them or its messages.
ENVIRONMENT = {**os.environ, "LC_ALL": "C", "TZ": "UTC"}

EMULATOR = shlex.split(os.environ.get("VESK_EMULATOR", ""))

# The memory file system, if there is one: thousands of files are made and deleted.
SCRATCH = "/dev/shm" if os.access("/dev/shm", os.W_OK | os.X_OK) else None


def run(*command, data=None, cwd=None):
    """Runs a tool that must succeed and returns what it printed."""
    done = subprocess.run(command, input=data, cwd=cwd, env=ENVIRONMENT, capture_output=True)
    if done.returncode != 0:
        raise AssertionError(f"{command} failed: {done.stderr!r}")
    return done.stdout


def vesk_archive(verb, *arguments):
    return subprocess.run([*EMULATOR, vesk_archive_path, verb, "--quiet", *arguments],
                          env=ENVIRONMENT, capture_output=True)


def name_of_length(length):
    """Returns a name of many short components that has that many bytes."""
    return (b"component/" * 30)[:length - 1].rstrip(b"/").ljust(length - 1, b"d") + b"f"


# Names that every tool accepts unchanged, short enough for one field in every format.
SHORT_NAMES = {
    b"hello.txt": b"Hello, tar!\n",
    b"empty": b"",
    b"a-b/c": b"1",
    b"a.txt": b"2",
    b"a/b": b"3",
    b"B.txt": b"capitals sort first",
    b"-leading-dash": b"x",
    b"spaces  in a name": b"x",
    b"'quotes' \"and\" $(more)": b"x",
    b"*?[x]": b"x",
    b"line\nbreak\ttab\rreturn\x1b[31m": b"x",
    b"sm\xc3\xb6rg\xc3\xa5s": b"valid UTF-8",
    b"\xff\xfe not UTF-8": b"x",
    b"d/e/e/p/l/y/nested": b"x",
    **{b"sizes/%05d" % size: bytes(range(256)) * (size // 256) + b"x" * (size % 256)
       for size in (1, 511, 512, 513, 1023, 1024, 1025, 65535, 65536, 131070)},
    **{b"lengths/" + b"x" * (length - 8): b"x" for length in (98, 99, 100)},
    name_of_length(100): b"x",
}

# Names that need both fields of a header.
LONG_NAMES = {
    **{name_of_length(length): b"%d" % length for length in (101, 152, 155, 156, 200, 250)},
    b"p" * 155 + b"/" + b"n" * 100: b"the longest",
    b"d" * 60 + b"/" + b"e" * 60 + b"/" + b"f" * 30: b"three parts",
    b"x/" + b"n" * 100: b"one slash",
}

ALL_NAMES = {**SHORT_NAMES, **LONG_NAMES}


class InteropTestCase(unittest.TestCase):
    def setUp(self):
        self.directory = pathlib.Path(tempfile.mkdtemp(prefix="vesk-test-", dir=SCRATCH))
        self.addCleanup(shutil.rmtree, self.directory)

    def make(self, source, archive):
        done = vesk_archive("make", source, archive)
        self.assertEqual((done.returncode, done.stderr), (0, b""))
        return archive

    def assert_same_tree(self, found, expected):
        """Compares two trees by name, so that a failure does not print whole files."""
        self.assertEqual(sorted(found), sorted(expected))
        self.assertEqual([name for name in found if found[name] != expected[name]], [])

    def assert_unpacks(self, archive, expected, *options):
        destination = pathlib.Path(tempfile.mkdtemp(dir=self.directory)) / "out"
        done = vesk_archive("unpack", archive, destination, *options)
        self.assertEqual((done.returncode, done.stderr), (0, b""))
        self.assert_same_tree(read_tree(destination), expected)
        shutil.rmtree(destination)

    def assert_refused(self, archive, message, *options):
        parent = pathlib.Path(tempfile.mkdtemp(dir=self.directory))
        done = vesk_archive("unpack", archive, parent / "out", "--quiet", *options)
        self.assertEqual((done.returncode, done.stderr.decode()),
                         (1, f"vesk-archive: IOException: {message}\n"))
        self.assertEqual(os.listdir(parent), [], "something is left of a refused archive")


class OtherToolsReadOurArchives(InteropTestCase):
    def setUp(self):
        super().setUp()
        write_tree(self.directory / "source", ALL_NAMES)
        self.archives = [self.make(self.directory / "source", self.directory / name)
                         for name in ("made.tar", "made.tgz")]

    def assert_extracted_by(self, *command):
        for archive in self.archives:
            with self.subTest(archive=archive.name):
                destination = self.directory / "extracted"
                destination.mkdir()
                run(*command, archive, cwd=destination)
                self.assert_same_tree(read_tree(destination), ALL_NAMES)
                status = os.stat(destination / "hello.txt")
                self.assertEqual((status.st_mode & 0o777, status.st_mtime), (0o644, 0))
                shutil.rmtree(destination)

    def test_gnu_tar_extracts_them(self):
        self.assert_extracted_by("tar", "-xpf")

    def test_bsdtar_extracts_them(self):
        self.assert_extracted_by("bsdtar", "-xpf")

    def test_gnu_tar_lists_names_and_sizes(self):
        for archive in self.archives:
            listed = run("tar", "-tvf", archive, "--quoting-style=escape", "--numeric-owner")
            lines = [line.split(b" 1970-01-01 00:00 ") for line in listed.splitlines()]
            self.assertEqual({attributes.split()[0] for attributes, name in lines},
                             {b"-rw-r--r--"})
            self.assertEqual({attributes.split()[1] for attributes, name in lines}, {b"0/0"})
            sizes = {name: int(attributes.split()[2]) for attributes, name in lines}
            expected = {self.escaped(name): len(content) for name, content in ALL_NAMES.items()}
            self.assertEqual(sizes, expected)

    @staticmethod
    def escaped(name):
        for byte, text in ((b"\\", b"\\\\"), (b"\n", b"\\n"), (b"\t", b"\\t"), (b"\r", b"\\r")):
            name = name.replace(byte, text)
        return b"".join(bytes([byte]) if 0x20 <= byte < 0x7F else b"\\%03o" % byte
                        for byte in name)

    def test_bsdtar_lists_sizes_in_order_of_names(self):
        for archive in self.archives:
            lines = run("bsdtar", "-tvf", archive).splitlines()
            self.assertEqual([line.split()[:5] for line in lines],
                             [[b"-rw-r--r--", b"0", b"0", b"0", b"%d" % len(ALL_NAMES[name])]
                              for name in sorted(ALL_NAMES)])

    def test_tarfile_reads_every_field(self):
        for archive in self.archives:
            with tarfile.open(archive, encoding="utf-8", errors="surrogateescape") as tar:
                members = tar.getmembers()
                self.assertEqual([os.fsencode(member.name) for member in members],
                                 sorted(ALL_NAMES))
                for member in members:
                    self.assertEqual(
                        (member.type, member.mode, member.uid, member.gid, member.mtime,
                         member.uname, member.gname, member.linkname, member.pax_headers),
                        (b"0", 0o644, 0, 0, 0, "", "", "", {}))
                    self.assertEqual(tar.extractfile(member).read(),
                                     ALL_NAMES[os.fsencode(member.name)])

    def test_gzip_accepts_the_member_and_restores_the_stream(self):
        tar, tgz = self.archives
        self.assertEqual(tgz.read_bytes()[:10].hex(" "), "1f 8b 08 00 00 00 00 00 00 ff")
        run("gzip", "-t", tgz)
        self.assertTrue(run("gzip", "-dc", tgz) == tar.read_bytes())
        self.assertTrue(gzip.decompress(tgz.read_bytes()) == tar.read_bytes())
        self.assertEqual(run("gzip", "-l", tgz).split()[4:6],
                         [b"%d" % tgz.stat().st_size, b"%d" % tar.stat().st_size])

    def test_archive_of_no_files_is_valid_everywhere(self):
        (self.directory / "nothing").mkdir()
        for name in ("nothing.tar", "nothing.tgz"):
            archive = self.make(self.directory / "nothing", self.directory / name)
            self.assertEqual(run("tar", "-tf", archive), b"")
            self.assertEqual(run("bsdtar", "-tf", archive), b"")
            with tarfile.open(archive) as tar:
                self.assertEqual(tar.getmembers(), [])
        run("gzip", "-t", self.directory / "nothing.tgz")


class TarfileWritesTheSameBytes(InteropTestCase):
    def setUp(self):
        super().setUp()
        # The size to which tarfile fills up an archive with zeros; one block adds nothing.
        self.addCleanup(setattr, tarfile, "RECORDSIZE", tarfile.RECORDSIZE)
        tarfile.RECORDSIZE = 512

    @staticmethod
    def tarfile_bytes(tree):
        """Returns what tarfile writes with the attributes that every entry of ours has."""
        stream = io.BytesIO()
        with tarfile.open(fileobj=stream, mode="w", format=tarfile.USTAR_FORMAT,
                          encoding="utf-8", errors="surrogateescape") as tar:
            for name in sorted(tree):
                member = tarfile.TarInfo(os.fsdecode(name))
                member.size = len(tree[name])
                member.mode = 0o644
                tar.addfile(member, io.BytesIO(tree[name]))
        return stream.getvalue()

    def assert_same_bytes(self, tree):
        write_tree(self.directory / "source", tree)
        (self.directory / "source").mkdir(exist_ok=True)
        archive = self.make(self.directory / "source", self.directory / "made.tar")
        ours, theirs = archive.read_bytes(), self.tarfile_bytes(tree)
        different = [at for at in range(min(len(ours), len(theirs))) if ours[at] != theirs[at]]
        self.assertEqual((different[:20], len(ours)), ([], len(theirs)))

    def test_for_names_that_fit_one_field(self):
        self.assertLessEqual(max(map(len, SHORT_NAMES)), 100)
        self.assert_same_bytes(SHORT_NAMES)

    def test_and_so_the_same_digest_on_every_machine(self):
        # Of what tarfile writes; for gzip, of that stream in five stored blocks with zlib.crc32 of
        # Python.
        digests = {
            "made.tar": "11b2d3b08ccea7d02eb4d633a1c0f8a1e51bffc5712774613db374100d01ba69",
            "made.tgz": "e6df482ec71cb3510609ffe38a831ce26cf59391ac803331d916e43877da3190",
        }
        write_tree(self.directory / "source", SHORT_NAMES)
        for name, digest in digests.items():
            archive = self.make(self.directory / "source", self.directory / name)
            self.assertEqual(hashlib.sha256(archive.read_bytes()).hexdigest(), digest)

    def test_for_no_files(self):
        self.assert_same_bytes({})

    def test_for_a_real_tree(self):
        self.assert_same_bytes({name: content for name, content in real_tree().items()
                                if len(name) <= 100})

    def test_for_a_single_file(self):
        (self.directory / "file").write_bytes(b"x" * 512)
        archive = self.make(self.directory / "file", self.directory / "made.tar")
        self.assertTrue(archive.read_bytes() == self.tarfile_bytes({b"file": b"x" * 512}))

    def test_but_splits_longer_names_elsewhere_and_reads_them_alike(self):
        write_tree(self.directory / "source", LONG_NAMES)
        archive = self.make(self.directory / "source", self.directory / "made.tar")
        self.assertEqual(self.listed(archive.read_bytes()),
                         self.listed(self.tarfile_bytes(LONG_NAMES)))

    @staticmethod
    def listed(stream):
        with tarfile.open(fileobj=io.BytesIO(stream)) as tar:
            return [(member.name, member.size) for member in tar.getmembers()]


def real_tree():
    """Returns some thousands of the system's header files, without those that nobody may store."""
    tree = {}
    for directory, directories, files in os.walk(b"/usr/include"):
        directories.sort()
        for name in sorted(files):
            path = os.path.join(directory, name)
            status = os.lstat(path)
            unstorable = len(path) > 200 or b":" in path or b"\\" in path
            if stat.S_ISREG(status.st_mode) and status.st_size <= 100_000 and not unstorable:
                with open(path, "rb") as file:
                    tree[os.path.relpath(path, b"/usr/include")] = file.read()
            if len(tree) == 3000:
                return tree
    return tree


# The command, run in the tree, that writes its named entries to an archive.
USTAR_WRITERS = [
    ("GNU tar", ["tar", "--format=ustar", "-cf"]),
    ("GNU tar, gzip", ["tar", "--format=ustar", "-I", "gzip -6", "-cf"]),
    ("bsdtar", ["bsdtar", "--format=ustar", "-cf"]),
    ("bsdtar, gzip", ["bsdtar", "--format=ustar", "-zcf"]),
]


class WeUnpackArchivesOfARealTree(InteropTestCase):
    @classmethod
    def setUpClass(cls):
        temporary = tempfile.TemporaryDirectory(prefix="vesk-test-", dir=SCRATCH)
        cls.addClassCleanup(temporary.cleanup)
        cls.tree = real_tree()
        cls.source = pathlib.Path(temporary.name) / "source"
        write_tree(cls.source, cls.tree)

    def setUp(self):
        super().setUp()
        self.assertGreater(len(self.tree), 2000)

    def test_written_by_tar_programs(self):
        for writer, command in USTAR_WRITERS:
            with self.subTest(writer):
                archive = self.directory / "archive"
                run(*command, archive, *sorted(os.listdir(self.source)), cwd=self.source)
                self.assert_unpacks(archive, self.tree)

    def test_written_by_tarfile(self):
        for mode in ("w", "w:gz"):
            with self.subTest(mode):
                archive = self.directory / "archive"
                with tarfile.open(archive, mode, format=tarfile.USTAR_FORMAT) as tar:
                    for name in os.listdir(self.source):
                        tar.add(self.source / name, name)
                self.assert_unpacks(archive, self.tree)

    def test_compressed_by_gzip_from_a_file_whose_name_it_records(self):
        archive = self.directory / "archive.tar"
        run("tar", "--format=ustar", "-cf", archive, *os.listdir(self.source), cwd=self.source)
        run("gzip", "-6", "--name", archive)
        compressed = self.directory / "archive.tar.gz"
        self.assertEqual(compressed.read_bytes()[3], 8)
        self.assert_unpacks(compressed, self.tree)

    def test_made_by_us_and_extracted_by_the_others(self):
        for name in ("made.tar", "made.tgz"):
            archive = self.make(self.source, self.directory / name)
            for tool in ("tar", "bsdtar"):
                with self.subTest(archive=name, tool=tool):
                    extracted = self.directory / "extracted"
                    extracted.mkdir()
                    run(tool, "-xf", archive, cwd=extracted)
                    self.assert_same_tree(read_tree(extracted), self.tree)
                    shutil.rmtree(extracted)


# Commands that write an archive of the tree in which they run, and the expected result.
SMALL_TREE = {b"a": b"first\n", b"d/b": b"second\n", b"d/e/c": b"x" * 1000}
ACCEPTED = [
    ("GNU tar, its own format", "tar --format=gnu -cf $OUT a d"),
    ("GNU tar, its old format", "tar --format=oldgnu -cf $OUT a d"),
    ("GNU tar, format of Version 7", "tar --format=v7 -cf $OUT a d"),
    ("GNU tar, names that begin with a dot", "tar --format=ustar -cf $OUT ./a ./d"),
    ("GNU tar, files without their directories",
     "find a d -type f | tar --format=ustar -T - -cf $OUT"),
    ("GNU tar, appended to", "tar --format=ustar -cf $OUT a; tar --format=ustar -rf $OUT d"),
    ("GNU tar, owner that needs base-256",
     "tar --format=gnu --owner=nobody:4000000000 -cf $OUT a d"),
    ("GNU tar, time before 1970", "tar --format=gnu --mtime=1960-01-01 -cf $OUT a d"),
    ("GNU tar, the same file twice", "tar --format=ustar --hard-dereference -cf $OUT a d a"),
    ("bsdtar, its default format", "bsdtar --format=gnutar -cf $OUT a d"),
    ("bsdtar, format of Version 7 without directories",
     "bsdtar --format=v7tar -cf $OUT a d/b d/e/c"),
    ("two archives, of which the first counts",
     "tar --format=ustar -cf one a d; tar --format=ustar -cf two one; cat one two >$OUT"),
    ("rubbish after the end marker", "tar --format=ustar -cf $OUT a d; head -c 99 a >>$OUT"),
    ("gzip, the best", "tar --format=ustar -cf - a d | gzip -9 >$OUT"),
    ("gzip, the fastest", "tar --format=ustar -cf - a d | gzip -1 >$OUT"),
]

REFUSED = [
    ("pax, GNU tar", "tar --format=posix -cf $OUT a", "Unsupported TAR entry type"),
    ("pax, bsdtar", "mkdir -p $LONG; bsdtar --format=pax -cf $OUT $LONG",
     "Unsupported TAR entry type"),
    ("pax, a global header", "tar --format=posix --pax-option=globexthdr.name=g,comment=x "
     "-cf $OUT a", "Unsupported TAR entry type"),
    ("GNU long name", "mkdir -p $LONG; tar --format=gnu -cf $OUT $LONG",
     "Unsupported TAR entry type"),
    ("GNU long link name", "ln -s $LONG link; tar --format=gnu -cf $OUT link",
     "Unsupported TAR entry type"),
    ("GNU sparse file", "truncate -s 10M hole; tar --format=gnu -Scf $OUT hole",
     "Unsupported TAR entry type"),
    ("GNU volume label", "tar --format=gnu --label=volume -cf $OUT a", "Invalid TAR entry size"),
    ("size that needs base-256",
     "truncate -s 8589934592 huge; { tar --format=gnu -cf - huge || :; } | head -c 1024 >$OUT",
     "Invalid TAR entry size"),
    ("symbolic link, GNU tar", "ln -s a link; tar --format=ustar -cf $OUT a link",
     "Unsupported TAR entry type"),
    ("symbolic link, bsdtar", "ln -s a link; bsdtar --format=ustar -cf $OUT a link",
     "Unsupported TAR entry type"),
    ("hard link, GNU tar", "ln a link; tar --format=ustar -cf $OUT a link",
     "Unsupported TAR entry type"),
    ("hard link, bsdtar", "ln a link; bsdtar --format=ustar -cf $OUT a link",
     "Unsupported TAR entry type"),
    ("FIFO, GNU tar", "mkfifo pipe; tar --format=ustar -cf $OUT pipe",
     "Unsupported TAR entry type"),
    ("FIFO, bsdtar", "mkfifo pipe; bsdtar --format=ustar -cf $OUT pipe",
     "Unsupported TAR entry type"),
    ("character device", "tar --format=ustar -C /dev -cf $OUT null", "Unsupported TAR entry type"),
    ("colon", "mv a C:x; tar --format=ustar --force-local -cf $OUT C:x", "Unsafe TAR entry name"),
    ("backslash", "mv a 'a\\b'; tar --format=ustar --no-unquote -cf $OUT 'a\\b'",
     "Unsafe TAR entry name"),
    ("absolute name, GNU tar", "tar --format=ustar -Pcf $OUT \"$PWD/a\"", "Unsafe TAR entry name"),
    ("absolute name, bsdtar", "bsdtar --format=ustar -Pcf $OUT \"$PWD/a\"",
     "Unsafe TAR entry name"),
    ("name above the root, GNU tar", "cd d; tar --format=ustar -Pcf $OUT ../a",
     "Unsafe TAR entry name"),
    ("name above the root, bsdtar", "cd d; bsdtar --format=ustar -Pcf $OUT ../a",
     "Unsafe TAR entry name"),
    ("entry for the root itself", "tar --format=ustar -cf $OUT .", "Unsafe TAR entry name"),
    ("no end marker", "tar --format=ustar -cf - a | head -c 1024 >$OUT",
     "TAR archive has no end marker"),
    ("end marker cut short", "tar --format=ustar -cf - a | head -c 1535 >$OUT",
     "TAR archive has no end marker"),
    ("padding cut short", "tar --format=ustar -cf - a | head -c 1023 >$OUT",
     "Truncated TAR entry padding"),
    ("data cut short", "tar --format=ustar -cf - a | head -c 517 >$OUT", "Truncated TAR entry"),
    ("bad checksum", "tar --format=ustar -cf - a | sed '1s/^a/b/' >$OUT",
     "Invalid TAR header checksum"),
    ("directories that only the slash at the end tells", "bsdtar --format=v7tar -cf $OUT a d",
     "Cannot create TAR entry directory"),
    ("cpio", "bsdtar --format=newc -cf $OUT a d", "Invalid TAR header checksum"),
    ("zip", "bsdtar --format=zip -cf $OUT a d", "Invalid TAR header checksum"),
    ("xz, shorter than a block", "bsdtar --format=ustar -cJf $OUT a d",
     "TAR archive has no end marker"),
    ("gzip, two members", "tar --format=ustar -cf - a | gzip >one; cat one one >$OUT",
     "Unexpected data after DEFLATE stream"),
    ("gzip, cut short before a trailer that allows any length",
     "{ tar --format=ustar -cf - a | gzip | head -c 60; printf '\\377%.0s' {1..8}; } >$OUT",
     "Truncated DEFLATE data"),
    ("gzip, zeros after the trailer",
     "tar --format=ustar -cf - a | gzip >$OUT; head -c 512 /dev/zero >>$OUT",
     "DEFLATE output is longer than its declared size"),
    ("gzip of a pax archive", "tar --format=posix -czf $OUT a", "Unsupported TAR entry type"),
    ("gzip of something else", "gzip -c d/e/c >$OUT", "Invalid TAR header checksum"),
]


class Shell(InteropTestCase):
    def archive_of(self, command):
        """Runs a shell command in a fresh copy of the small tree; it writes the archive $OUT."""
        source, archive = self.directory / "source", self.directory / "archive"
        shutil.rmtree(source, ignore_errors=True)
        archive.unlink(missing_ok=True)
        write_tree(source, SMALL_TREE)
        long_name = os.fsdecode(name_of_length(180))
        # bash, since tools that write to a closed pipe end with a status that does not matter.
        done = subprocess.run(["bash", "-ec", command], cwd=source, capture_output=True,
                              env={**ENVIRONMENT, "OUT": str(archive), "LONG": long_name})
        self.assertEqual(done.returncode, 0, done.stderr)
        return archive


class WeUnpackWhatOthersWrite(Shell):
    def test_each_archive_that_holds_only_files_and_directories(self):
        for what, command in ACCEPTED:
            with self.subTest(what):
                self.assert_unpacks(self.archive_of(command), SMALL_TREE)

    def test_archives_without_entries_as_an_empty_directory(self):
        for tool in ("tar", "bsdtar"):
            with self.subTest(tool):
                archive = self.archive_of(f"{tool} --format=ustar -cf $OUT -T /dev/null")
                self.assert_unpacks(archive, {b"./": b""})

    def test_empty_directories_are_made(self):
        archive = self.archive_of("mkdir -p x/y; tar --format=ustar -cf $OUT x")
        self.assert_unpacks(archive, {b"x/y/": b""})

    def test_names_with_any_other_byte(self):
        source = self.directory / "source"
        write_tree(source, ALL_NAMES)
        for writer, command in USTAR_WRITERS:
            with self.subTest(writer):
                archive = self.directory / "archive"
                run(*command, archive, "--null", "-T", "-", data=b"\0".join(ALL_NAMES), cwd=source)
                self.assert_unpacks(archive, ALL_NAMES)


class WeRefuseWhatOthersWrite(Shell):
    def test_each_with_its_message_and_without_a_trace(self):
        for what, command, message in REFUSED:
            with self.subTest(what):
                self.assert_refused(self.archive_of(command), message)

    def test_damaged_gzip_checksum(self):
        archive = self.archive_of("tar --format=ustar -czf $OUT a d")
        content = bytearray(archive.read_bytes())
        content[-8] ^= 1
        archive.write_bytes(content)
        self.assert_refused(archive, "Invalid gzip checksum")

    def test_plain_tar_read_as_gzip(self):
        archive = self.archive_of("tar --format=ustar -cf $OUT a d")
        self.assert_refused(archive, "Invalid gzip stream", "--format", "tgz")

    def test_gzip_read_as_plain_tar(self):
        archive = self.archive_of("tar --format=ustar -czf $OUT a d")
        self.assert_refused(archive, "TAR archive has no end marker", "--format", "tar")


if __name__ == "__main__":
    vesk_archive_path = sys.argv[1]
    unittest.main(argv=[sys.argv[0], *sys.argv[2:]])
