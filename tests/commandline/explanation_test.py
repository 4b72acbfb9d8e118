# SPDX-License-Identifier: MIT
"""What vesk-archive says after an exception: exactly what the table of docs/messages.md says.

Every row of the table has a case here, and every case a row. The commands that are recommended are
run: what comes out of them is what was in the archive.
"""

import bz2
import gzip
import io
import lzma
import os
import pathlib
import random
import re
import resource
import shutil
import signal
import socket
import subprocess
import tarfile
import unittest
import zlib

from program_case import *

DOCUMENT = pathlib.Path(__file__).parents[2] / "docs/messages.md"
HEADING = "## The help after a message\n"

ALPHA = {b"p/a": b"alpha"}
BOTH = {b"p/a": b"alpha", b"p/b": b"beta"}
LONG_DIRECTORY, LONG_FILE = "d" * 90, "f" * 90
LARGEST_DIRECTORY = "d" * 100
# Bytes that do not compress, so that the packed data is longer than a header.
RANDOM = random.Random(1).randbytes(2000)
PACKED = {b"p/a": b"alpha", b"p/r": RANDOM}
LARGE = 0x100000000  # bytes, one more than is read
MEMORY = 128 * 1024 * 1024  # bytes, of a process and of what it is to decode
LIMIT = 4096  # on the size of files, where there is one


def files_in(path):
    """Maps names to bytes for the files below a directory, links followed."""
    files = {}
    for directory, _, names in os.walk(path):
        for name in names:
            file = os.path.join(directory, name)
            files[os.path.relpath(file, path)] = pathlib.Path(os.fsdecode(file)).read_bytes()
    return files


def tar(*members, format=tarfile.USTAR_FORMAT, **options):
    """A TAR stream by Python's tarfile, from (name, contents) or (name, contents, attributes)."""
    stream = io.BytesIO()
    with tarfile.open(fileobj=stream, mode="w", format=format, **options) as made:
        for name, contents, *attributes in members:
            member = tarfile.TarInfo(name)
            member.size = len(contents)
            for key, value in (attributes or [{}])[0].items():
                setattr(member, key, value)
            made.addfile(member, io.BytesIO(contents) if contents else None)
    return stream.getvalue()


def of_type(type, **attributes):
    return {"type": type, **attributes}


PLAIN = tar(("p/a", b"alpha"), ("p/b", b"beta"))
END_OF_DATA = 2048  # two headers, two blocks of data
MEMBER = gzip.compress(PLAIN, mtime=0)
# A member with only the ten header bytes and a known size: stored by hand.
STORED = (bytes.fromhex("1f8b08000000000000ff") + b"\1" + (1024).to_bytes(2, "little") +
          (1024 ^ 0xFFFF).to_bytes(2, "little") + bytes(1024) + bytes.fromhex("8d70b5ef") +
          (1024).to_bytes(4, "little"))


def changed(stream, at, replacement, signed=False):
    """The stream with other bytes in its first header, and the checksum for them."""
    stream = bytearray(stream)
    stream[at:at + len(replacement)] = replacement
    stream[148:156] = b" " * 8
    total = sum(byte - 256 if signed and byte > 127 else byte for byte in stream[:512])
    stream[148:156] = b"%06o\0 " % total
    return bytes(stream)


def by_program(test, command, files=BOTH):
    """The output of a shell command that is run in the directory of the files."""
    test.write_tree(b"made", files)
    done = subprocess.run(command, shell=True, cwd=test.path(b"made"), capture_output=True,
                          check=True)
    shutil.rmtree(test.path(b"made"))
    return done.stdout


def bounded(resource_, limit):
    return lambda: resource.setrlimit(resource_, (limit, limit))


def uses_libcxx():
    """Whether the module is linked with libc++, which takes the kernel's files for empty ones."""
    return b"libc++.so" in pathlib.Path(os.environ["VESK_MODULE"]).read_bytes()


class Case:
    """How to get one row: files to write, the words, and the result of the help's commands."""

    def __init__(self, prepare, *words, made=None, ordinary=False, foreign=False, mounts=False,
                 instrumented=True, libcxx=True, **options):
        self.prepare = prepare
        self.words = words
        self.made = made  # (name of what the commands make, the files in it)
        self.ordinary = ordinary  # is to be run by an ordinary user, whose everything is
        self.options = options
        self.can_run = ((not foreign or os.geteuid() == 0) and (not mounts or can_mount()) and
                        (instrumented or not is_instrumented()) and
                        (libcxx or not uses_libcxx()))


def unpacked(contents, made=None, name=b"a.tar", words=()):
    """Unpacking an archive of these bytes."""
    def prepare(test):
        test.write(name, contents(test) if callable(contents) else contents)
    return Case(prepare, b"unpack", name, b"out", *words, made=made)


def member(contents, made=None, words=()):
    return unpacked(contents, made, b"a.tgz", words)


def making(prepare, *words, **options):
    return Case(prepare, b"make", *(words or (b"src", b"a.tar")), **options)


def nothing(test):
    pass


def a_tree(test):
    test.write_tree(b"src", TWO_FILES)


def on_small_disk(prepare, *words, options="size=64k"):
    """The program where the directory "disk" has space for 64 KiB, or another small one."""
    script = f'mount -t tmpfs -o {options} none disk && exec "$@"'
    return Case(all_of(prepare, call(os.mkdir, b"disk")), b"-rm", b"sh", b"-c", script, b"sh",
                PROGRAM, *words, program="unshare", mounts=True)


def on_overlay(prepare, *words):
    """The program where the directory "over" shows what is in "lower"."""
    def directories(test):
        test.write(b"lower/out/old")
        test.write(b"disk/mark")
        test.write(b"over/mark")
    script = ("mount -t tmpfs none disk && mkdir disk/upper disk/work && mount -t overlay -o "
              'lowerdir=lower,upperdir=disk/upper,workdir=disk/work none over && exec "$@"')
    return Case(all_of(prepare, directories), b"-rm", b"sh", b"-c", script, b"sh", PROGRAM, *words,
                program="unshare", mounts=True)


def among_others(test):
    """A directory in which everybody may create files, and one in it."""
    test.write(b"common/out/old")
    for directory, mode in [(b".", 0o755), (b"common", 0o1777)]:
        os.chmod(test.path(directory), mode)


def of_another(name):
    return lambda test: os.chown(test.path(name), 1, 1, follow_symlinks=False)


def all_of(*steps):
    def prepare(test):
        for step in steps:
            step(test)
    return prepare


def tree_with(name, contents=b""):
    def prepare(test):
        a_tree(test)
        test.write(name, contents)
    return prepare


def a_socket(name):
    def prepare(test):
        with socket.socket(socket.AF_UNIX) as made:
            made.bind(test.path(name))
    return prepare


def call(function, *arguments):
    """A step that calls a function of `os` with names in the test's directory."""
    return lambda test: function(*[test.path(argument) if isinstance(argument, bytes) else argument
                                   for argument in arguments])


def link(target, name):
    return lambda test: os.symlink(target, test.path(name))


def large_file(name, size):
    def prepare(test):
        test.write(name)
        os.truncate(test.path(name), size)
    return prepare


def good_archive(test):
    test.write(b"a.tar", PLAIN)


CONVERTED = lambda files, name=b"a-ustar.tar": (name, files)
IN_PLACE = lambda files: (b"out", files)
# Keyed by message and cause, as in the table.
CASES = {
    # Making
    ("Archive path is required", "an empty word, when making"):
        making(a_tree, b"src", b"", b"--format=tar"),
    ("Cannot inspect archive destination", "a directory that may not be looked into"):
        making(all_of(a_tree, call(os.mkdir, b"shut", 0)), b"src", b"shut/a.tar", ordinary=True),
    ("Cannot inspect archive destination", "a loop of links"):
        making(all_of(a_tree, link(b"a.tar", b"a.tar"))),
    ("Cannot inspect archive destination", "a name that is too long"):
        making(a_tree, b"src", b"n" * 300 + b".tar"),
    ("Archive already exists", "a file"):
        making(tree_with(b"a.tar", b"old")),
    ("Archive already exists", "a directory"):
        making(all_of(a_tree, call(os.mkdir, b"a.tar"))),
    ("Archive already exists", "a FIFO"):
        making(all_of(a_tree, call(os.mkfifo, b"a.tar"))),
    ("Archive already exists", "a socket"):
        making(all_of(a_tree, a_socket(b"a.tar"))),
    ("Archive already exists", "a file in the source"):
        making(tree_with(b"src/a.tar", b"old"), b"src", b"src/a.tar"),
    ("Cannot create archive parent directory", "a file is in its way"):
        making(tree_with(b"dir", b"old"), b"src", b"dir/a.tar"),
    ("Cannot create archive parent directory", "no permission"):
        making(all_of(a_tree, call(os.mkdir, b"shut", 0o555)), b"src", b"shut/dir/a.tar",
               ordinary=True),
    ("Source path is required", "an empty word"):
        making(nothing, b"", b"a.tar"),
    ("Archive source does not exist", "nothing of that name"):
        making(a_tree, b"src/none/deep", b"a.tar"),
    ("Archive source does not exist", "a link that leads nowhere"):
        making(link(b"gone", b"src")),
    ("Archive source must be a file or directory", "a FIFO"):
        making(call(os.mkfifo, b"src")),
    ("Cannot enumerate archive source", "a link that leads nowhere"):
        making(all_of(a_tree, link(b"gone", b"src/sub/link"))),
    ("Cannot enumerate archive source", "a link that leads nowhere, where the source is a link"):
        making(all_of(a_tree, link(b"gone", b"src/sub/link"), link(b"src", b"way")), b"way", b"a.tar"),
    ("Cannot enumerate archive source", "a loop of links"):
        making(all_of(a_tree, link(b"link", b"src/link"))),
    ("Cannot enumerate archive source", "a directory that may not be read"):
        making(all_of(a_tree, call(os.mkdir, b"src/shut", 0)), ordinary=True),
    ("Cannot enumerate archive source", "few files may be open"):
        making(tree_with(b"src/d/d/d/d/d/a"), preexec_fn=bounded(resource.RLIMIT_NOFILE, 6), instrumented=False),
    ("Cannot enumerate archive source", "a link into a directory that may not be read"):
        making(all_of(a_tree, link(b"../shut/a", b"src/link"), call(os.mkdir, b"shut", 0)), ordinary=True),
    ("Cannot read file: ", "no permission"):
        making(all_of(a_tree, call(os.chmod, b"src/a", 0)), ordinary=True),
    ("Cannot read file: ", "another user's file"):
        making(all_of(a_tree, call(os.chmod, b"src/a", 0)), foreign=True, user=65534),
    ("Cannot read file: ", "a directory that may not be searched"):
        making(all_of(a_tree, call(os.chmod, b"src/sub", 0o600)), ordinary=True),
    ("Cannot read file: ", "a file of the kernel's that says a wrong size"):
        making(all_of(a_tree, link(b"/sys/kernel/uevent_seqnum", b"src/x"))),
    ("ZIP entry is too large for ZIP32", "a large file"):
        making(all_of(a_tree, large_file(b"src/large", LARGE))),
    ("ZIP entry is too large for ZIP32", "a link to a file of the kernel's"):
        making(all_of(a_tree, link(b"/proc/self/mounts", b"src/mtab")), libcxx=False),
    ("TAR entry name is too long", "a long name of a file"):
        making(tree_with(b"src/" + b"n" * 101)),
    ("TAR entry name is too long", "several long names"):
        making(all_of(*[tree_with(b"src/" + letter * 101) for letter in [b"n", b"o", b"p"]])),
    ("TAR entry name is too long", "a long name of its directory"):
        making(tree_with(b"src/" + b"n" * 156 + b"/a")),
    ("TAR entry name is too long", "no split leaves a short rest"):
        making(tree_with(b"src/" + b"/".join([b"n" * 60] * 4))),
    ("Cannot create archive", "a directory at its path"):
        making(all_of(a_tree, call(os.mkdir, b"a.tar")), b"src", b"a.tar", b"--overwrite"),
    ("Cannot create archive", "a link to a missing directory"):
        making(all_of(a_tree, link(b"gone/a.tar", b"a.tar"))),
    ("Cannot create archive", "no permission on the old archive"):
        making(all_of(tree_with(b"a.tar"), call(os.chmod, b"a.tar", 0o444)), b"src", b"a.tar",
               b"--overwrite", ordinary=True),
    ("Cannot create archive", "no permission on its directory"):
        making(all_of(a_tree, call(os.mkdir, b"shut", 0o555)), b"src", b"shut/a.tar",
               ordinary=True),
    ("Cannot create archive", "another user's link"):
        making(all_of(a_tree, among_others, link(b"old", b"common/a.tar"), of_another(b"common/a.tar")),
               b"src", b"common/a.tar", b"--overwrite", foreign=True, user=65534),
    ("Cannot finalize archive", "a limit on the size of files"):
        making(tree_with(b"src/large", bytes(LIMIT)), preexec_fn=bounded(resource.RLIMIT_FSIZE, LIMIT)),

    ("Cannot finalize archive", "a full disk"):
        on_small_disk(tree_with(b"src/large", bytes(100000)), b"make", b"src", b"disk/a.tar"),
    ("Cannot finalize archive", "a full disk, for a member"):
        on_small_disk(tree_with(b"src/large", bytes(100000)), b"make", b"src", b"disk/a.tgz"),

    # Unpacking: the archive's path
    ("Archive path is required", "an empty word, when unpacking"):
        Case(nothing, b"unpack", b"", b"out"),
    ("Archive file does not exist", "nothing of that name"):
        Case(nothing, b"unpack", b"none/a.tar", b"out"),
    ("Archive file does not exist", "a dash"):
        Case(nothing, b"unpack", b"-", b"out"),
    ("Archive file does not exist", "a directory"):
        Case(call(os.mkdir, b"a.tar"), b"unpack", b"a.tar", b"out"),
    ("Archive file does not exist", "a FIFO"):
        Case(call(os.mkfifo, b"a.tar"), b"unpack", b"a.tar", b"out"),
    ("Archive file does not exist", "a file where a directory is due"):
        Case(good_archive, b"unpack", b"a.tar/a.tar", b"out"),
    ("Cannot read file: ", "no permission on the archive"):
        Case(all_of(good_archive, call(os.chmod, b"a.tar", 0)), b"unpack", b"a.tar", b"out",
             ordinary=True),
    ("ZIP entry is too large for ZIP32", "a large archive"):
        Case(all_of(good_archive, lambda test: os.truncate(test.path(b"a.tar"), LARGE)), b"unpack",
             b"a.tar", b"out", made=IN_PLACE(BOTH)),
    ("Destination path is required", "an empty word"):
        Case(good_archive, b"unpack", b"a.tar", b""),

    # Unpacking: the gzip member
    ("Invalid gzip stream", "a plain TAR archive"):
        member(PLAIN, IN_PLACE(BOTH), [b"--format=tgz"]),
    ("Invalid gzip stream", "another format"):
        member(lzma.compress(PLAIN), CONVERTED(BOTH, b"a-ustar.tgz"), [b"--format=tgz"]),
    ("Invalid gzip stream", "a text"):
        member(b"nothing that could be unpacked\n", words=[b"--format=tgz"]),
    ("Invalid gzip stream", "cut off inside the header"):
        member(MEMBER[:17]),
    ("Invalid gzip stream", "another method"):
        member(MEMBER[:2] + b"\7" + MEMBER[3:]),
    ("Invalid gzip flags", "a reserved flag"):
        member(MEMBER[:3] + b"\x20" + MEMBER[4:]),
    ("Truncated gzip extra field", "longer than the file"):
        member(MEMBER[:3] + b"\4" + MEMBER[4:10] + b"\xff\xff" + MEMBER[10:]),
    ("Truncated gzip file name", "no end"):
        member(STORED[:3] + b"\x08" + STORED[4:10] + b"n" * 20),
    ("Truncated gzip comment", "no end"):
        member(STORED[:3] + b"\x10" + STORED[4:10] + b"n" * 20),
    ("Truncated gzip header checksum", "no room"):
        member(STORED[:3] + b"\x02" + STORED[4:10] + b"nnnnnnnnn"),
    ("Invalid gzip header checksum", "damage"):
        member(STORED[:3] + b"\x02" + STORED[4:10] + b"\x34\x12" + STORED[10:]),
    ("Missing gzip DEFLATE payload", "nothing in between"):
        member(STORED[:10] + bytes(8)),
    ("Invalid DEFLATE data", "damage"):
        member(STORED[:13] + b"\0\0" + STORED[15:]),
    ("Truncated DEFLATE data", "cut off"):
        member(STORED[:500] + bytes(4) + (0xFFFFFF).to_bytes(4, "little")),
    ("Truncated DEFLATE data", "cut off inside the trailer"):
        member(STORED[:10] + STORED[10:-3]),
    ("DEFLATE output is longer than its declared size", "zeros at the end"):
        member(MEMBER + bytes(512), (b"a-cut.tgz", BOTH)),
    ("DEFLATE output is longer than its declared size", "zeros at the end of a damaged archive"):
        member(STORED[:100] + b"x" + STORED[101:] + bytes(512)),
    ("DEFLATE output is longer than its declared size", "a wrong trailer"):
        member(STORED[:-4] + (1000).to_bytes(4, "little")),
    ("DEFLATE output is longer than its declared size", "zeros at the end of a pax archive"):
        member(gzip.compress(tar(("p/a", b"alpha"), pax_headers={"comment": "x"},
                                 format=tarfile.PAX_FORMAT), mtime=0) + bytes(512),
               CONVERTED(ALPHA, b"a-ustar.tgz")),
    ("DEFLATE output is shorter than its declared size", "a wrong trailer"):
        member(STORED[:-4] + (1025).to_bytes(4, "little")),
    ("Unexpected data after DEFLATE stream", "several members"):
        member(gzip.compress(PLAIN[:1000], mtime=0) + gzip.compress(PLAIN[1000:], mtime=0),
               (b"a-joined.tgz", BOTH)),
    ("DEFLATE output is longer than its declared size",
     "several members, of which the last is damaged"):
        member(gzip.compress(PLAIN[:1000], mtime=0) + gzip.compress(PLAIN[1000:], mtime=0)[:-8] + bytes(8)),
    ("Unexpected data after DEFLATE stream", "several archives"):
        member(gzip.compress(tar(("p/a", b"alpha")), mtime=0) +
               gzip.compress(tar(("p/b", b"beta")), mtime=0), CONVERTED(BOTH, b"a-ustar.tgz")),
    ("Unexpected data after DEFLATE stream", "several archives, and a link in one"):
        member(gzip.compress(tar(("p/a", b"alpha"), ("p/b", b"", of_type(b"2", linkname="a"))), mtime=0) +
               gzip.compress(tar(("p/c", b"gamma")), mtime=0),
               IN_PLACE({b"p/a": b"alpha", b"p/b": b"alpha", b"p/c": b"gamma"})),
    ("Unexpected data after DEFLATE stream", "several archives, and a name that leads out of one"):
        member(gzip.compress(tar(("p/a", b"alpha")), mtime=0) +
               gzip.compress(tar(("../a", b"alpha")), mtime=0)),
    ("Unexpected data after DEFLATE stream", "appended bytes"):
        member(MEMBER + b"appended, by whom?", (b"a-cut.tgz", BOTH)),
    ("Unexpected data after DEFLATE stream", "appended bytes behind a pax archive"):
        member(gzip.compress(tar(("p/a", b"alpha"), pax_headers={"comment": "x"},
                                 format=tarfile.PAX_FORMAT), mtime=0) + b"appended, by whom?",
               CONVERTED(ALPHA, b"a-ustar.tgz")),
    ("Cannot store DEFLATE output", "too little memory"):
        Case(lambda test: test.write(b"a.tgz", gzip.compress(bytes(MEMORY), 1)), b"unpack", b"a.tgz",
             b"out", preexec_fn=bounded(resource.RLIMIT_AS, MEMORY), instrumented=False),
    ("Invalid gzip checksum", "damage"):
        member(STORED[:100] + b"x" + STORED[101:]),

    # Unpacking: the TAR stream
    ("TAR archive has no end marker", "empty"):
        unpacked(b""),
    ("TAR archive has no end marker", "a text"):
        unpacked(b"not an archive\n"),
    ("TAR archive has no end marker", "a compressed text"):
        member(gzip.compress(b"not an archive\n")),
    ("TAR archive has no end marker", "too few bytes"):
        unpacked(b"\x80" * 20),
    ("TAR archive has no end marker", "no end marker"):
        unpacked(PLAIN[:END_OF_DATA], (b"a-ended.tar", BOTH)),
    ("TAR archive has no end marker", "no end marker in a member"):
        member(gzip.compress(PLAIN[:END_OF_DATA]), (b"a-ended.tar", BOTH)),
    ("TAR archive has no end marker", "cut off inside a header"):
        unpacked(PLAIN[:END_OF_DATA - 1024 + 100]),
    ("Invalid TAR header checksum", "a zip archive"):
        unpacked(lambda test: by_program(test, "bsdtar -cf - --format=zip p; true") + bytes(512),
                 CONVERTED(BOTH, b"a-ustar.tar")),
    ("Invalid TAR header checksum", "a 7z archive"):
        unpacked(lambda test: by_program(
            test, "bsdtar -cf ../x.7z --format=7zip p && cat ../x.7z && rm ../x.7z") + bytes(512),
                 CONVERTED(BOTH, b"a-ustar.tar")),
    ("Invalid TAR header checksum", "an xz file"):
        unpacked(lzma.compress(tar(("p/a", b"alpha"), ("p/r", RANDOM))), CONVERTED(PACKED)),
    ("Invalid TAR header checksum", "a bzip2 file"):
        unpacked(bz2.compress(tar(("p/a", b"alpha"), ("p/r", RANDOM))), CONVERTED(PACKED)),
    ("Invalid TAR header checksum", "a zstd file"):
        unpacked(lambda test: by_program(
            test, "bsdtar -cf ../x.zst --zstd p && cat ../x.zst && rm ../x.zst", PACKED),
                 CONVERTED(PACKED)),
    ("Invalid TAR header checksum", "a gzip file"):
        unpacked(gzip.compress(tar(("p/a", b"alpha"), ("p/r", RANDOM))), IN_PLACE(PACKED),
                 words=[b"--format=tar"]),
    ("Invalid TAR header checksum", "a web page"):
        unpacked(b"<!DOCTYPE html>" + bytes(600)),
    ("Invalid TAR header checksum", "no header at all"):
        unpacked(b"\x80" * 600),
    ("Invalid TAR header checksum", "damage"):
        unpacked(PLAIN[:1024] + b"q" + PLAIN[1025:]),
    ("Invalid TAR header checksum", "no header where one is due"):
        unpacked(PLAIN[:1024] + b"x" * 512 + PLAIN[1536:]),
    ("Invalid TAR header checksum", "a checksum of signed bytes"):
        unpacked(changed(tar(("p/\u00e4", b"alpha"), ("p/b", b"beta")), 0, b"", True),
                 CONVERTED({"p/\u00e4".encode(): b"alpha", b"p/b": b"beta"})),
    ("Unsafe TAR entry name", "an empty name"):
        unpacked(changed(PLAIN, 0, bytes(3))),
    ("Unsafe TAR entry name", "an absolute name"):
        unpacked(tar(("/p/a", b"alpha")), CONVERTED(ALPHA)),
    ("Unsafe TAR entry name", "a backslash"):
        unpacked(tar(("p/a\\b", b"alpha")), IN_PLACE({b"p/a\\b": b"alpha"})),
    ("Unsafe TAR entry name", "a colon"):
        unpacked(tar(("p/a:b", b"alpha")), IN_PLACE({b"p/a:b": b"alpha"})),
    ("Unsafe TAR entry name", "the root"):
        unpacked(lambda test: by_program(test, "tar --format=ustar -cf - ."), CONVERTED(BOTH)),
    ("Unsafe TAR entry name", "a name that ends in a dot"):
        unpacked(tar(("p/.", b"", of_type(tarfile.DIRTYPE)), ("p/a", b"alpha")), CONVERTED(ALPHA)),
    ("Unsafe TAR entry name", "a way out"):
        unpacked(tar(("../a", b"alpha"))),
    ("Unsafe TAR entry name", "a way up and down"):
        unpacked(tar(("p/b/..", b"alpha"))),
    ("Invalid TAR entry size", "blank"):
        unpacked(changed(tar(("p/a", b""), ("p/b", b"beta")), 124, bytes(12)),
                 CONVERTED({b"p/a": b"", b"p/b": b"beta"})),
    ("Invalid TAR entry size", "a binary number"):
        unpacked(changed(PLAIN, 124, b"\x80" + bytes(10) + b"\5"), CONVERTED(BOTH)),
    ("Invalid TAR entry size", "no number"):
        unpacked(changed(PLAIN, 124, b"twelve bytes")),
    ("Truncated TAR entry", "cut off"):
        unpacked(PLAIN[:1536 + 3]),
    ("Truncated TAR entry padding", "cut off"):
        unpacked(PLAIN[:1536 + 4], (b"a-ended.tar", BOTH)),
    ("Unsupported TAR entry type", "a global pax header"):
        unpacked(tar(("p/a", b"alpha"), format=tarfile.PAX_FORMAT, pax_headers={"comment": "x"}),
                 CONVERTED(ALPHA)),
    ("Unsupported TAR entry type", "a global pax header in a member"):
        member(gzip.compress(tar(("p/a", b"alpha"), format=tarfile.PAX_FORMAT,
                                 pax_headers={"comment": "x"})), CONVERTED(ALPHA, b"a-ustar.tgz")),
    ("Unsupported TAR entry type", "a global pax header, and the longest name of a directory behind it"):
        unpacked(tar((LARGEST_DIRECTORY, b"", of_type(tarfile.DIRTYPE)),
                     (LARGEST_DIRECTORY + "/a", b"alpha"), format=tarfile.PAX_FORMAT,
                     pax_headers={"comment": "x"}),
                 CONVERTED({f"{LARGEST_DIRECTORY}/a".encode(): b"alpha"})),
    ("Unsupported TAR entry type", "a global pax header of a large owner"):
        unpacked(tar(("p/a", b"alpha"), format=tarfile.PAX_FORMAT, pax_headers={"uid": "3000000"}),
                 CONVERTED(ALPHA)),
    ("Unsupported TAR entry type", "a pax header of a time"):
        unpacked(tar(("p/a", b"alpha", {"mtime": 1.5}), format=tarfile.PAX_FORMAT),
                 CONVERTED(ALPHA)),
    ("Unsupported TAR entry type", "a malformed pax header"):
        unpacked(changed(tar(("p/a", b"5 zz=1\n"), ("p/b", b"beta")), 156, b"x")),
    ("Unsupported TAR entry type", "a pax header of a large owner"):
        unpacked(tar(("p/a", b"alpha", {"uid": 3000000}), format=tarfile.PAX_FORMAT),
                 CONVERTED(ALPHA)),
    ("Unsupported TAR entry type", "a pax header of an owner's long name"):
        unpacked(tar(("p/a", b"alpha", {"uname": "u" * 33}), format=tarfile.PAX_FORMAT),
                 CONVERTED(ALPHA)),
    ("Unsupported TAR entry type", "a pax header of a time before 1970"):
        unpacked(tar(("p/a", b"alpha", {"mtime": -1}), format=tarfile.PAX_FORMAT),
                 CONVERTED(ALPHA)),
    ("Unsupported TAR entry type", "a pax header of a long name"):
        unpacked(tar((f"{LONG_DIRECTORY}/{LONG_FILE}", b"alpha",
                      {"pax_headers": {"path": f"{LONG_DIRECTORY}/{LONG_FILE}"}}),
                     format=tarfile.PAX_FORMAT),
                 CONVERTED({f"{LONG_DIRECTORY}/{LONG_FILE}".encode(): b"alpha"})),
    ("Unsupported TAR entry type", "a pax header of a name that is not ASCII"):
        unpacked(tar(("p/\u00e4", b"alpha"), format=tarfile.PAX_FORMAT),
                 CONVERTED({"p/\u00e4".encode(): b"alpha"})),
    ("Unsupported TAR entry type", "a pax header of a name too long for ustar"):
        unpacked(tar(("n" * 101, b"alpha"), format=tarfile.PAX_FORMAT),
                 IN_PLACE({b"n" * 101: b"alpha"})),
    ("Unsupported TAR entry type", "a GNU long name"):
        unpacked(tar((f"{LONG_DIRECTORY}/{LONG_FILE}", b"alpha"), format=tarfile.GNU_FORMAT),
                 CONVERTED({f"{LONG_DIRECTORY}/{LONG_FILE}".encode(): b"alpha"})),
    ("Unsupported TAR entry type", "a GNU long name and a pax header of the same entry"):
        unpacked(tar(("n" * 101, b""), format=tarfile.GNU_FORMAT)[:1024] +
                 tar(("p/a", b"alpha", {"mtime": 3.5}), format=tarfile.PAX_FORMAT),
                 IN_PLACE({b"n" * 101: b"alpha"})),
    ("Unsupported TAR entry type", "a GNU name too long for ustar"):
        unpacked(tar(("n" * 101, b"alpha"), format=tarfile.GNU_FORMAT),
                 IN_PLACE({b"n" * 101: b"alpha"})),
    ("Unsupported TAR entry type", "a global pax header, and a link behind it"):
        unpacked(tar(("p/a", b"alpha"), ("p/b", b"", of_type(b"2", linkname="a")),
                     format=tarfile.PAX_FORMAT, pax_headers={"comment": "x"}),
                 IN_PLACE({b"p/a": b"alpha", b"p/b": b"alpha"})),
    ("Unsupported TAR entry type", "a GNU sparse file"):
        unpacked(lambda test: by_program(
            test, "truncate -s 100000 p/a; echo end >>p/a; rm p/b; tar -Scf - --format=gnu p/a"),
                 CONVERTED({b"p/a": b"alpha" + bytes(99995) + b"end\n"})),
    ("Unsupported TAR entry type", "an incremental GNU archive"):
        unpacked(tar(("p", b"Ya\0Yb\0\0", of_type(b"D")), ("p/a", b"alpha"), ("p/b", b"beta"),
                     format=tarfile.GNU_FORMAT), CONVERTED(BOTH)),
    ("Invalid TAR entry size", "a GNU volume label"):
        unpacked(lambda test: by_program(test, "tar --format=gnu -V label -cf - p/a p/b"),
                 CONVERTED(BOTH)),
    ("Unsupported TAR entry type", "a GNU multi-volume archive"):
        unpacked(tar(("p/a", b"alpha", of_type(b"M")))),
    ("Unsupported TAR entry type", "a contiguous file"):
        unpacked(tar(("p/a", b"alpha", of_type(b"7"))), CONVERTED(ALPHA)),
    ("Unsupported TAR entry type", "a contiguous file of a large owner"):
        unpacked(tar(("p/a", b"alpha", of_type(b"7", uid=300000))), CONVERTED(ALPHA)),
    ("Unsupported TAR entry type", "a symbolic link"):
        unpacked(tar(("p/a", b"alpha"), ("p/b", b"", of_type(b"2", linkname="a"))),
                 IN_PLACE({b"p/a": b"alpha", b"p/b": b"alpha"})),
    ("Unsupported TAR entry type", "a symbolic link in a member"):
        member(gzip.compress(tar(("p/a", b"alpha"), ("p/b", b"", of_type(b"2", linkname="a")))),
               IN_PLACE({b"p/a": b"alpha", b"p/b": b"alpha"})),
    ("Unsupported TAR entry type", "a symbolic link, and an entry that leads through it"):
        unpacked(tar(("p", b"", of_type(b"2", linkname="..")), ("p/a", b"alpha"))),
    ("Unsupported TAR entry type", "a hard link"):
        unpacked(tar(("p/a", b"alpha"), ("p/b", b"", of_type(b"1", linkname="p/a"))),
                 IN_PLACE({b"p/a": b"alpha", b"p/b": b"alpha"})),
    ("Unsupported TAR entry type", "a GNU long link target"):
        unpacked(tar(("p/a", b"alpha"), ("p/b", b"", of_type(b"2", linkname="./" * 60 + "a")),
                     format=tarfile.GNU_FORMAT), IN_PLACE({b"p/a": b"alpha", b"p/b": b"alpha"})),
    ("Unsupported TAR entry type", "a FIFO"):
        unpacked(tar(("p/a", b"alpha"), ("p/fifo", b"", of_type(b"6"))), IN_PLACE(ALPHA)),
    ("Unsupported TAR entry type", "a character device"):
        unpacked(tar(("p/tty", b"", of_type(b"3", devmajor=5)))),
    ("Unsupported TAR entry type", "a block device"):
        unpacked(tar(("p/disk", b"", of_type(b"4", devmajor=8)))),
    ("Unsupported TAR entry type", "an unknown type"):
        unpacked(tar(("p/a", b"alpha", of_type(b"Q")))),
    ("Cannot create TAR directory", "a file of that name"):
        unpacked(tar(("p/a", b"alpha"), ("p/a", b"", of_type(tarfile.DIRTYPE)))),
    ("Cannot create TAR entry directory", "a file of that name"):
        unpacked(tar(("p/a", b"alpha"), ("p/a/b", b"beta"))),
    ("Cannot write TAR entry", "a directory of that name"):
        unpacked(tar(("p/a/b", b"alpha"), ("p/a", b"beta"))),
    ("Cannot finalize TAR entry", "a limit on the size of files"):
        Case(lambda test: test.write(b"a.tar", tar(("p/a", bytes(LIMIT + 1)))), b"unpack", b"a.tar",
             b"out", preexec_fn=bounded(resource.RLIMIT_FSIZE, LIMIT)),

    ("Cannot finalize TAR entry", "a full disk"):
        on_small_disk(lambda test: test.write(b"a.tar", tar(("p/a", bytes(100000)))),
                      b"unpack", b"a.tar", b"disk/out"),
    ("Cannot write TAR entry", "a file system with room for a few files only"):
        on_small_disk(lambda test: test.write(b"a.tar", tar(*[(f"p/{i}", b"") for i in range(20)])),
                      b"unpack", b"a.tar", b"disk/out", options="nr_inodes=10"),

    # The stand-in host
    ("Cannot inspect destination", "a directory that may not be looked into"):
        Case(all_of(good_archive, call(os.mkdir, b"shut", 0)), b"unpack", b"a.tar", b"shut/out",
             ordinary=True),
    ("Cannot create destination parent directory", "a file is in its way"):
        Case(good_archive, b"unpack", b"a.tar", b"a.tar/out"),
    ("Cannot create destination parent directory", "no permission"):
        Case(all_of(good_archive, call(os.mkdir, b"shut", 0o555)), b"unpack", b"a.tar",
             b"shut/dir/out", ordinary=True),
    ("Destination already exists", "a directory"):
        Case(all_of(good_archive, lambda test: test.write(b"out/old")), b"unpack", b"a.tar", b"out"),
    ("Destination already exists", "a file"):
        Case(all_of(good_archive, lambda test: test.write(b"out", b"old")), b"unpack", b"a.tar", b"out"),
    ("Destination already exists", "a link to a directory"):
        Case(all_of(good_archive, lambda test: test.write(b"kept/old"), link(b"kept", b"out")),
             b"unpack", b"a.tar", b"out"),
    ("Destination already exists", "the working directory"):
        Case(good_archive, b"unpack", b"a.tar", b"."),
    ("Destination already exists", "a mounted file system"):
        Case(good_archive, b"unpack", b"a.tar", b"/proc"),
    ("Destination already exists", "a FIFO"):
        Case(all_of(good_archive, call(os.mkfifo, b"out")), b"unpack", b"a.tar", b"out"),
    ("Destination already exists", "a link that leads nowhere"):
        Case(all_of(good_archive, link(b"gone", b"out")), b"unpack", b"a.tar", b"out"),
    ("Destination cannot be replaced", "a FIFO"):
        Case(all_of(good_archive, call(os.mkfifo, b"out")), b"unpack", b"a.tar", b"out",
             b"--overwrite"),
    ("Destination cannot be replaced", "a link that leads nowhere"):
        Case(all_of(good_archive, link(b"gone", b"out")), b"unpack", b"a.tar", b"out",
             b"--overwrite"),
    ("Destination cannot be replaced", "a mounted file system"):
        Case(good_archive, b"unpack", b"a.tar", b"/proc", b"--overwrite"),
    ("Destination cannot be moved by its file system", "a lower layer"):
        on_overlay(good_archive, b"unpack", b"a.tar", b"over/out", b"--overwrite"),
    ("Cannot move extracted files to destination", "another user's"):
        Case(all_of(good_archive, among_others), b"unpack", b"a.tar", b"common/out", b"--overwrite",
             foreign=True, user=65534),
    ("Cannot create staging directory", "no permission"):
        Case(all_of(good_archive, call(os.mkdir, b"shut", 0o555)), b"unpack", b"a.tar", b"shut/out",
             ordinary=True),
    ("Cannot create staging directory", "few files may be open"):
        Case(good_archive, b"unpack", b"a.tar", b"out",
             preexec_fn=bounded(resource.RLIMIT_NOFILE, 6), instrumented=False),
}


def rows():
    """The table's rows: (message, cause) and the lines of help."""
    text = DOCUMENT.read_text().partition(HEADING)[2].partition("\n## ")[0]
    for message, cause, cell in re.findall(r"^\| `([^`]*)` \| (.*?) \| (.*) \|$", text, re.MULTILINE):
        yield (message, cause), [line.replace("\\|", "|") for line in re.findall("`([^`]*)`", cell)]


class HelpTest(CommandLineTest):
    """What holds for the help after any message."""

    PAX = tar(("p/a", b"alpha"), format=tarfile.PAX_FORMAT, pax_headers={"comment": "x"})

    def help(self, *words, **options):
        result = self.run_program(*words, **options)
        self.assertEqual(result.status, 1, result.err)
        return result.err.partition(b"\n")[2]

    def test_quiet_prints_the_message_without_help(self):
        self.write(b"a.tar", self.PAX)
        result = self.run_program(b"unpack", b"a.tar", b"out", b"--quiet")
        self.assertEqual(result, (1, b"", b"vesk-archive: IOException: Unsupported TAR entry type\n"))

    def test_a_recommended_name_is_not_taken(self):
        self.write(b"a.tar", self.PAX)
        self.write(b"a-ustar.tar", b"dear")
        self.write(b"a-ustar2.tar", b"dear")
        self.assertIn(b" -cf a-ustar3.tar @a.tar\n", self.help(b"unpack", b"a.tar", b"out"))
        self.write(b"l.tar", tar(("p/b", b"", of_type(b"2", linkname="a"))))
        self.write(b"out/old", b"dear")
        self.assertIn(b"mkdir -p out-new && tar -xf l.tar -C out-new\n",
                      self.help(b"unpack", b"l.tar", b"out", b"--overwrite"))

    def test_names_in_commands_are_quoted_for_a_shell(self):
        for name in [b"two words.tar", b"it's.tar", b"n\n'\x1b\\.tar", b"$(x).tar", b"a:b.tar", b"\xc3\xa4.tar", b"*"]:
            with self.subTest(name=name):
                self.write(name, tar(("p/a", b"alpha"), ("p/b", b"", of_type(b"2", linkname="a"))))
                told = self.help(b"unpack", name, b"out " + name)
                command = told.splitlines()[-1].decode()
                subprocess.run(["bash", "-c", command], cwd=self.cwd, check=True)
                self.assertEqual(files_in(self.path(b"out " + name)),
                                 {b"p/a": b"alpha", b"p/b": b"alpha"})

    def test_a_name_that_begins_with_a_dash_is_no_option_of_a_command(self):
        self.write(b"-a.tar", tar(("p/a", b"alpha", of_type(b"6")), ("p/b", b"beta")))
        told = self.help(b"unpack", b"--", b"-a.tar", b"-out")
        self.assertIn(b"mkdir -p ./-out && tar -xf ./-a.tar -C ./-out\n", told)

    def test_an_archive_writes_no_line_of_its_own_through_a_pipe_either(self):
        self.write(b"a.tar", tar(("a'\n  to unpack it: x\x1b[31m:", b"alpha")))
        told = self.help(b"unpack", b"a.tar", b"out")
        self.assertIn(b"'a'\\012  to unpack it: x\\033[31m:'", told)
        self.assertLessEqual(told.count(b"\n"), 3)
        self.assertNotIn(b"\x1b", told)

    def test_a_conversion_takes_any_name_of_an_archive(self):
        for name in [b"a:b.tar", b"-", b"-x.tar", b"@c.tar"]:
            with self.subTest(name=name):
                self.write(name, self.PAX)
                told = self.help(b"unpack", b"--format", b"tar", b"--", name, b"out")
                command = told.splitlines()[-1].decode().partition(": ")[2]
                subprocess.run(["bash", "-c", command], cwd=self.cwd, check=True,
                               stdin=subprocess.DEVNULL)
                self.unpack_the_only_new_archive(name)

    def unpack_the_only_new_archive(self, name):
        made, = [entry for entry in os.listdir(self.cwd) if b"-ustar" in entry]
        self.assertEqual(self.run_program(b"unpack", b"--format", b"tar", b"--", made, b"copy").status, 0)
        self.assertEqual(files_in(self.path(b"copy")), ALPHA)
        os.remove(self.path(made))
        shutil.rmtree(self.path(b"copy"))


class HelpOnTerminalTest(TerminalTest):
    def test_names_in_the_help_are_escaped(self):
        self.write(b"a.tar", tar(("p/\x1b[31m\n", b"alpha", of_type(b"2", linkname="\r\x07"))))
        shown = self.rest_shown(self.start_on_terminal(b"unpack", b"a.tar", b"out"), 1)
        self.assertIn(b"  entry 1, 'p/\\033[31m\\012': a symbolic link to '\\015\\007'\r\n",
                      shown)

    def test_an_interruption_ends_the_search_for_an_explanation_at_once(self):
        # Decodes to 4 GiB. The module decodes only the first piece.
        compressor = zlib.compressobj(1, wbits=-15)
        piece = compressor.compress(bytes(1 << 20)) + compressor.flush(zlib.Z_FULL_FLUSH)
        self.write(b"a.tgz", STORED[:10] + piece * 4096 + bytes(8))
        process = self.start_on_terminal(b"unpack", b"a.tgz", b"out")
        self.shown_until(rb"IOException: DEFLATE output is longer than its declared size\r\n")
        process.send_signal(signal.SIGINT)
        self.assertEqual(self.rest_shown(process, -signal.SIGINT), b"")


class WidthTest(unittest.TestCase):
    def test_no_line_is_wider_than_a_terminal_if_the_names_are_short(self):
        for key, help in rows():
            for line in help:
                with self.subTest(row=key, line=line):
                    has_long_name = max(map(len, re.split(r"[ /]", line))) > 50
                    self.assertTrue(has_long_name or len("  " + line) <= 80)


class TableTest(CommandLineTest):
    def give_away(self):
        """Gives the directory to an ordinary user if this one is root."""
        if os.geteuid() != 0:
            return {}
        for directory, _, names in os.walk(self.cwd):
            for name in [b".", *names]:
                os.chown(os.path.join(directory, name), 65534, 65534, follow_symlinks=False)
        return {"user": 65534, "group": 65534, "extra_groups": []}

    def run_case(self, case, *more):
        case.prepare(self)
        options = dict(case.options)
        if case.ordinary:
            options.update(self.give_away())
        return self.run_program(*case.words, *more, **options)

    def start_anew(self):
        for name in os.listdir(self.cwd):
            path = self.path(name)
            if os.path.isdir(path) and not os.path.islink(path):
                os.chmod(path, 0o700)
                shutil.rmtree(path)
            else:
                os.remove(path)

    def run_commands(self, help):
        for line in help:
            command = re.sub(r"^[a-z][a-z0-9 ,;]*: ", "", line)
            if not re.match(r"(bsdtar|mkdir|vesk-archive|gzip|head|\(cat|\(gzip) ?", command):
                continue
            done = subprocess.run(["bash", "-c", 'vesk-archive() { "$VESK_ARCHIVE" "$@"; }; ' +
                                   command], cwd=self.cwd, env=environment(), capture_output=True)
            self.assertEqual(done.returncode, 0, (command, done.stderr))

    def made_by(self, name):
        """The files in the commands' result: a directory, or an archive that is unpacked here."""
        if os.path.isdir(self.path(name)):
            fifo = self.path(name + b"/p/fifo")
            if os.path.exists(fifo):
                os.remove(fifo)
            return files_in(self.path(name))
        result = self.run_program(b"unpack", name, b"unpacked")
        self.assertEqual(result.status, 0, result.err)
        return files_in(self.path(b"unpacked"))

    def check_commands(self, case, help):
        self.run_commands(help)
        name, files = case.made
        self.assertEqual(self.made_by(name), files)

    def test_the_program_prints_every_row_and_the_commands_in_it_work(self):
        self.assertEqual([key for key, _ in rows()], list(CASES))
        for key, help in rows():
            case = CASES[key]
            with self.subTest(row=key):
                if not case.can_run:
                    self.skipTest("this user or machine has no such case")
                result = self.run_case(case)
                told = result.err.decode(errors="surrogateescape").splitlines()
                self.assertEqual((result.status, result.out), (1, b""))
                self.assertTrue(told[0].startswith("vesk-archive: IOException: " + key[0]), told)
                self.assertEqual(told[1:], ["  " + line for line in help])
                if case.made is not None:
                    self.check_commands(case, help)
            self.start_anew()


if __name__ == "__main__":
    unittest.main(verbosity=2)
