# SPDX-License-Identifier: MIT
"""Where the programs and libraries look for others: never below the working directory.

Run by ctest, which names the build and its tools in the environment. An empty or a relative element
of a search path would let whoever runs a program in a directory of somebody else run that one's code.
"""

import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import unittest

BUILD = pathlib.Path(os.environ["VESK_BUILD"])


def binaries(root):
    """The ELF files below the directory."""
    for path in sorted(root.rglob("*")):
        if path.is_file() and not path.is_symlink():
            with open(path, "rb") as file:
                if file.read(4) == b"\x7fELF":
                    yield path


def search_paths(binary):
    """The elements of the paths that the file brings along."""
    done = subprocess.run(["readelf", "--dynamic", "--wide", binary], capture_output=True, text=True,
                          check=True)
    for path in re.findall(r"\(R(?:UN)?PATH\).*\[(.*)\]", done.stdout):
        yield from path.split(":")


class SearchPathTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory(prefix="vesk search path ")
        self.addCleanup(directory.cleanup)
        self.scratch = pathlib.Path(directory.name)

    def assert_absolute(self, files):
        for binary in files:
            for element in search_paths(binary):
                with self.subTest(binary=binary.name, element=element):
                    self.assertRegex(element, r"\A(/|\$ORIGIN(/|\Z)|\$\{ORIGIN\}(/|\Z))")

    def test_of_what_is_built(self):
        files = [*binaries(BUILD / "bin"), *binaries(BUILD / "lib")]
        names = {path.name for path in files}
        self.assertLessEqual({"vesk-archive", "vesk-host-check", "libvesk_io_archives.so",
                              "libvesk_standin_host.so"}, names)
        self.assert_absolute(files)

    def test_of_what_is_installed(self):
        subprocess.run([os.environ["VESK_CMAKE"], "--install", BUILD, "--prefix", self.scratch],
                       capture_output=True, check=True)
        files = list(binaries(self.scratch))
        self.assertEqual(len(files), 4)
        self.assert_absolute(files)
        for binary in files:
            self.assertNotIn("/", {element[:1] for element in search_paths(binary)}, binary)

    def test_a_library_in_the_working_directory_is_not_loaded(self):
        program = BUILD / "bin/vesk-archive"
        needed = subprocess.run(["ldd", program], capture_output=True, text=True, check=True).stdout
        names = re.findall(r"^\s*(lib\S+) => /", needed, re.MULTILINE)
        self.assertGreater(len(names), 2)
        for name in names:
            (self.scratch / name).write_text("no library at all")
        shutil.copytree(self.scratch, self.scratch / "source")
        done = subprocess.run([program, "make", "source", "new.tar"], cwd=self.scratch,
                              capture_output=True, text=True, check=False)
        self.assertEqual(done.returncode, 0, done.stderr)


if __name__ == "__main__":
    unittest.main(verbosity=2)
