# SPDX-License-Identifier: MIT
"""The installed tree, the CMake package and the Debian package, used as strangers use them.

Run by ctest, which names the build and its tools in the environment. Everything is installed below
a scratch directory with a space in its name.
"""

import os
import pathlib
import re
import stat
import subprocess
import sys
import tempfile
import unittest

sys.path.append(str(pathlib.Path(__file__).parents[1] / "support"))
from trees import read_tree, write_tree

SOURCE = pathlib.Path(os.environ["VESK_SOURCE"])
BUILD = pathlib.Path(os.environ["VESK_BUILD"])
CMAKE = os.environ["VESK_CMAKE"]
VERSION = os.environ["VESK_VERSION"]
FLAGS = os.environ["VESK_CXX_FLAGS"]  # what is built from outside is for the same library

# The Debian packages of the C++ library that the build is for, and what that may need besides; some
# have the version of the compiler in their names.
CXX_LIBRARY = {"libstdc++6"}
if "-stdlib=libc++" in FLAGS:
    CXX_LIBRARY = {"libc++1", "libc++abi1"}
RUNTIME_SUPPORT = {"libgcc-s1", "libunwind"}

# What the installed programs find in their environment: nothing that could lead them anywhere.
BARE = {"LC_ALL": "C.UTF-8"}

HEADERS = ["include/vesk-archives/module/host/host_runtime.h",
           "include/vesk-archives/module/native_methods.h"]
MODULE = "lib/vesk/modules/libvesk_io_archives.so"
COMPLETIONS = "share/bash-completion/completions/"
HOST_CHECK = ["bin/vesk-host-check", "share/man/man1/vesk-host-check.1",
              COMPLETIONS + "vesk-host-check"]
DOCUMENTS = ["share/doc/vesk-archives/" + name for name in
             ["CHANGELOG.md", "copyright", "formats.md", "hosting.md", "messages.md"]]
COMMON = ["lib/cmake/VeskArchives/VeskArchivesConfig.cmake",
          "lib/cmake/VeskArchives/VeskArchivesConfigVersion.cmake",
          MODULE] + DOCUMENTS + HEADERS + HOST_CHECK
STANDIN = "lib/vesk/modules/libvesk_standin_host.so"
FILES = COMMON + ["bin/vesk-archive", "include/vesk-archives/standinhost/standin_host.h", STANDIN,
                  COMPLETIONS + "vesk-archive", "share/man/man1/vesk-archive.1"]

TREE = {b"a.txt": b"alpha", b"sub dir/b": bytes(range(256)) * 300}

OUTSIDE_PROJECT = """
cmake_minimum_required(VERSION 3.25)
project(Outside LANGUAGES CXX)
%s
add_executable(outside outside.cpp)
target_link_libraries(outside PRIVATE VeskArchives::module VeskArchives::standin_host)
add_library(runtime OBJECT runtime.cpp)
target_link_libraries(runtime PRIVATE VeskArchives::host_interface)
add_library(caller OBJECT caller.cpp)
target_link_libraries(caller PRIVATE VeskArchives::module)
"""

OUTSIDE_PROGRAM = """
#include <cstdio>
#include <module/host/host_runtime.h>
#include <module/native_methods.h>
#include <standinhost/standin_host.h>
int main(int, char** argv) {
    vesk::standin::Mode mode{false};
    vesk_io_archives_TgzArchiver_makeArchive(nullptr, argv[1], argv[2], &mode);
    const auto error = vesk::standin::takePendingError();
    std::puts(error ? error->message.c_str() : Vesk_runtimeFsPath(argv[2]).filename().c_str());
}
"""

OUTSIDE_RUNTIME = """
#include <module/host/host_runtime.h>
#include <module/native_methods.h>
auto method = vesk_io_archives_TarArchiver_makeArchive;
int Vesk_hasPendingError() { return 0; }
"""

OUTSIDE_CALLER = """
#include <module/native_methods.h>
auto method = vesk_io_archives_TgzArchiver_makeArchive;
"""


def output(*command, **options):
    """What the command prints; what it says when it fails becomes the test's message."""
    done = subprocess.run(command, capture_output=True, text=True, check=False, **options)
    if done.returncode != 0:
        raise AssertionError(f"{command} exits with {done.returncode}:\n{done.stdout}{done.stderr}")
    return done.stdout


def files_below(root):
    return {str(path.relative_to(root)) for path in root.rglob("*") if not path.is_dir()}


def without_build_type(names):
    """The file of each build type's locations is named after it."""
    return {name for name in names if not re.search(r"VeskArchivesConfig-\w+\.cmake$", name)}


def configure(source, build, *settings):
    output(CMAKE, "-G", os.environ["VESK_GENERATOR"], "-S", source, "-B", build,
           f"-DCMAKE_CXX_COMPILER={os.environ['VESK_COMPILER']}", f"-DCMAKE_CXX_FLAGS={FLAGS}",
           "-DCMAKE_BUILD_TYPE=Release", *settings)


class ScratchTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        directory = tempfile.TemporaryDirectory(prefix="vesk install ")
        cls.addClassCleanup(directory.cleanup)
        cls.scratch = pathlib.Path(directory.name)

    def fresh_directory(self):
        return pathlib.Path(tempfile.mkdtemp(dir=self.scratch))

    def assert_archives(self, program, *options):
        """The program makes and unpacks archives of both formats."""
        for name in ["made.tar", "made.tgz"]:
            with self.subTest(program=program, name=name, options=options):
                cwd = self.fresh_directory()
                write_tree(cwd / "source", TREE)
                output(program, "make", "source", name, *options, cwd=cwd, env=BARE)
                output(program, "unpack", name, "copy", *options, cwd=cwd, env=BARE)
                self.assertEqual(read_tree(cwd / "copy"), TREE)


class InstalledTree(ScratchTest):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        first = cls.scratch / "first place"
        output(CMAKE, "--install", BUILD, "--prefix", first)
        cls.prefix = cls.scratch / "second place"
        first.rename(cls.prefix)

    def test_it_holds_these_files(self):
        self.assertEqual(without_build_type(files_below(self.prefix)), set(FILES))

    def test_no_file_knows_where_it_was_built_or_installed(self):
        for name in files_below(self.prefix):
            contents = (self.prefix / name).read_bytes()
            for place in [SOURCE, BUILD, self.scratch / "first place"]:
                with self.subTest(name=name, place=place):
                    self.assertNotIn(os.fsencode(place), contents)

    def test_the_program_finds_its_libraries_after_the_move(self):
        self.assert_archives(self.prefix / "bin/vesk-archive")
        for file in ["bin/vesk-archive", MODULE]:
            found = output("ldd", self.prefix / file, env=BARE | {"PATH": os.defpath})
            places = re.findall(r"libvesk_standin_host\.so => (.*) \(0x", found)
            self.assertEqual([pathlib.Path(place).resolve() for place in places],
                             [(self.prefix / STANDIN).resolve()])

    def test_the_program_takes_a_module_from_elsewhere(self):
        module = self.fresh_directory() / "module.so"
        module.write_bytes((self.prefix / MODULE).read_bytes())
        self.assert_archives(self.prefix / "bin/vesk-archive", "--module", module)

    def test_the_program_without_its_module_says_so(self):
        hidden = (self.prefix / MODULE).rename(self.prefix / "hidden.so")
        self.addCleanup(hidden.rename, self.prefix / MODULE)
        done = subprocess.run([self.prefix / "bin/vesk-archive", "make", self.prefix / "share",
                               self.scratch / "never.tar"],
                              env=BARE, capture_output=True, text=True, check=False)
        self.assertEqual(done.returncode, 3)
        self.assertIn("vesk-archive: cannot load the archive module: ", done.stderr)

    def test_the_installed_host_passes_the_installed_check(self):
        report = output(self.prefix / "bin/vesk-host-check", self.prefix / STANDIN, env=BARE)
        self.assertRegex(report, r"\n\d+ requirements, 0 failed\n\Z")

    def assert_outside_project_works(self, way, *settings):
        """A project that takes this one in this way calls it."""
        source, build = self.fresh_directory(), self.fresh_directory()
        (source / "CMakeLists.txt").write_text(OUTSIDE_PROJECT % way)
        (source / "outside.cpp").write_text(OUTSIDE_PROGRAM)
        (source / "runtime.cpp").write_text(OUTSIDE_RUNTIME)
        (source / "caller.cpp").write_text(OUTSIDE_CALLER)
        configure(source, build, *settings)
        output(CMAKE, "--build", build, "--parallel", "2", "--target", "outside", "runtime", "caller")
        archive = build / "outside.tgz"
        for said in ["outside.tgz\n", "Archive already exists\n"]:
            self.assertEqual(output(build / "outside", source, archive, env=BARE), said)
        self.assertEqual(archive.read_bytes()[:2], b"\x1f\x8b")

    def test_a_program_from_outside_is_built_with_the_package(self):
        self.assert_outside_project_works(f"find_package(VeskArchives {VERSION} REQUIRED)",
                                          f"-DCMAKE_PREFIX_PATH={self.prefix}")

    def test_a_project_that_includes_this_one_uses_the_same_names(self):
        self.assert_outside_project_works(f'add_subdirectory("{SOURCE}" archives)')

    def test_a_project_that_includes_this_one_keeps_its_own_place_for_libraries(self):
        source, build = self.fresh_directory(), self.fresh_directory()
        (source / "CMakeLists.txt").write_text(
            "cmake_minimum_required(VERSION 3.25)\nproject(outer CXX)\n"
            f'add_subdirectory("{SOURCE}" archives)\n')
        configure(source, build, "-DCMAKE_INSTALL_PREFIX=/usr")
        alone = self.fresh_directory()
        (alone / "CMakeLists.txt").write_text(
            "cmake_minimum_required(VERSION 3.25)\nproject(outer CXX)\ninclude(GNUInstallDirs)\n")
        configure(alone, alone / "build", "-DCMAKE_INSTALL_PREFIX=/usr")
        entries = [re.search(r"(?m)^CMAKE_INSTALL_LIBDIR:.*$", (where / "CMakeCache.txt").read_text())[0]
                   for where in [build, alone / "build"]]
        self.assertEqual(entries[0], entries[1])

    def test_the_package_is_not_of_another_major_version(self):
        source = self.fresh_directory()
        major = int(VERSION.partition(".")[0])
        (source / "CMakeLists.txt").write_text(
            OUTSIDE_PROJECT % f"find_package(VeskArchives {major + 1}.0 REQUIRED)")
        with self.assertRaisesRegex(AssertionError, "compatible with requested\n? *version"):
            configure(source, self.fresh_directory(), f"-DCMAKE_PREFIX_PATH={self.prefix}")

    def test_the_manual_pages_are_rendered_without_a_warning(self):
        for page in ["vesk-archive", "vesk-host-check"]:
            with self.subTest(page=page):
                done = subprocess.run(
                    ["groff", "-man", "-ww", "-rLL=72n", "-Tutf8",
                     self.prefix / f"share/man/man1/{page}.1"],
                    capture_output=True, text=True, check=True)
                self.assertEqual(done.stderr, "")
                text = re.sub(r".\x08|\x1b\[\d*m", "", done.stdout)
                for heading in ["NAME", "SYNOPSIS", "DESCRIPTION", "EXIT STATUS", "EXAMPLES"]:
                    self.assertIn(f"\n{heading}\n", text)
                self.assertIn(f"vesk-archives {VERSION}", text)


class BashCompletion(ScratchTest):
    """What the shell offers after the last of the words."""

    # The shell's own function works only while it completes.
    SCRIPT = """
    compopt() { :; }
    source "$1"
    function=_${2//-/_}
    [ "$(complete -p $2)" = "complete -F $function $2" ] || exit
    shift
    COMP_WORDS=("$@")
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    $function
    printf '%s\\n' "${COMPREPLY[@]}"
    """
    FORMATS = {"tar", "tgz"}
    OPTIONS = {"--format", "--overwrite", "--sync", "--quiet", "--module", "--help"}
    INFORMATION = {"--help", "--version"}

    def setUp(self):
        write_tree(self.scratch, {b"a file.tar": b"", b"another": b""})

    def offered(self, room, program, *words):
        said = output("bash", "-c", self.SCRIPT, "bash",
                      SOURCE / room / "bash-completion" / program, program, *words,
                      cwd=self.scratch)
        return set(said.split("\n")) - {""}

    def assert_offered(self, room, program, rows):
        for words, fitting in rows:
            with self.subTest(words=words):
                self.assertEqual(self.offered(room, program, *words), fitting)

    def test_the_shell_offers_what_fits(self):
        self.assert_offered("commandline", "vesk-archive", [
            ([""], {"make", "unpack"}), (["ma"], {"make"}), (["x"], set()),
            (["-"], self.INFORMATION), (["--v"], {"--version"}),
            (["make", "--"], self.OPTIONS), (["make", "--qu"], {"--quiet"}),
            (["make", "--sy"], {"--sync"}), (["make", "--format", ""], self.FORMATS),
            (["make", "--format", "tg"], {"tgz"}), (["unpack", "a"], {"a file.tar", "another"}),
            (["make", "another", "a "], {"a file.tar"}), (["make", "--module", "ano"], {"another"})])

    def test_the_shell_offers_what_fits_behind_an_equals_sign(self):
        self.assert_offered("commandline", "vesk-archive", [
            (["make", "--format", "="], self.FORMATS), (["make", "--format", "=", "tg"], {"tgz"}),
            (["make", "--format="], {"--format=tar", "--format=tgz"}),
            (["make", "--format=ta"], {"--format=tar"}),
            (["make", "--module", "=", "ano"], {"another"})])

    def test_the_shell_offers_what_fits_the_check(self):
        self.assert_offered("hostcheck", "vesk-host-check", [
            (["a"], {"a file.tar", "another"}), (["-"], self.INFORMATION), (["--h"], {"--help"}),
            (["another", ""], set())])

    def test_every_option_of_a_program_is_offered_where_it_works(self):
        rows = [("vesk-archive", [], self.INFORMATION), ("vesk-archive", ["make"], self.OPTIONS),
                ("vesk-archive", ["unpack"], self.OPTIONS), ("vesk-host-check", [], self.INFORMATION)]
        for program, verb, options in rows:
            with self.subTest(program=program, verb=verb):
                told = output(BUILD / "bin" / program, *verb, "--help")
                self.assertEqual(set(re.findall(r"(?<![\w-])--[a-z]+", told)), options)


class DebianPackage(ScratchTest):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        # A strict umask is the packager's own business.
        output(os.environ["VESK_CPACK"], "-B", cls.scratch / "packages", cwd=BUILD, umask=0o077)
        [cls.package] = (cls.scratch / "packages").glob("*.deb")

    def field(self, name):
        return output("dpkg-deb", "-f", self.package, name).strip()

    def dpkg(self, root, *words):
        """Runs dpkg on a root of its own, in which there are no programs for the scripts to call."""
        tools = self.scratch / "tools"
        tools.mkdir(exist_ok=True)
        for tool in ["ldconfig", "start-stop-daemon"]:
            (tools / tool).write_text("#!/bin/sh\n")
            (tools / tool).chmod(0o755)
        (root / "var/lib/dpkg").mkdir(parents=True, exist_ok=True)
        for name in ["status", "available"]:
            (root / "var/lib/dpkg" / name).touch()
        return output("dpkg", f"--root={root}", "--force-not-root", "--force-depends",
                      "--force-script-chrootless", f"--log={self.scratch}/dpkg.log", *words,
                      env=BARE | {"PATH": f"{tools}:/usr/sbin:/usr/bin:/sbin:/bin"})

    def test_it_is_named_and_depends_on_what_it_needs(self):
        self.assertEqual(self.field("Package"), "vesk-archives")
        self.assertEqual(self.field("Version"), VERSION)
        names = {re.sub(r"-\d\d$", "", part.split()[0])
                 for part in self.field("Depends").split(",")}
        self.assertEqual(names - RUNTIME_SUPPORT, {"libc6", "libisal2"} | CXX_LIBRARY)

    def test_its_changelog_is_of_this_version(self):
        version = output("dpkg-parsechangelog", "-l", SOURCE / "packaging/changelog", "-S", "Version")
        self.assertEqual(version.strip(), VERSION)

    def test_it_installs_runs_and_is_removed_without_a_trace(self):
        root = self.fresh_directory()
        self.dpkg(root, "--install", self.package)
        installed = without_build_type(files_below(root / "usr"))
        expected = {re.sub(r"(/man1/.*)", r"\1.gz", name) for name in FILES}
        self.assertEqual(installed, expected | {"share/doc/vesk-archives/changelog.gz"})
        self.assert_archives(root / "usr/bin/vesk-archive")
        self.dpkg(root, "--purge", "vesk-archives")
        self.assertEqual([str(path) for path in root.glob("usr/**/*")], [])

    def test_everyone_may_read_what_it_brings(self):
        root = self.fresh_directory()
        output("dpkg-deb", "-x", self.package, root)
        for path in (root / "usr").rglob("*"):
            name = str(path.relative_to(root / "usr"))
            mode = 0o755 if path.is_dir() or name.startswith("bin/") else 0o644
            with self.subTest(name=name):
                self.assertEqual(oct(stat.S_IMODE(path.stat().st_mode)), oct(mode))

    def test_no_program_in_it_knows_where_it_was_built(self):
        root = self.fresh_directory()
        output("dpkg-deb", "-x", self.package, root)
        for name in files_below(root):
            with self.subTest(name=name):
                self.assertNotIn(os.fsencode(BUILD), (root / name).read_bytes())


class Multiarch(ScratchTest):
    def test_the_directory_of_libraries_may_be_another_one_below_the_prefix(self):
        build, prefix = self.scratch / "build", self.scratch / "prefix"
        configure(SOURCE, build, "-DVESK_BUILD_TESTS=OFF", "-DCMAKE_INSTALL_LIBDIR=lib/some-machine")
        output(CMAKE, "--build", build, "--parallel", "2")
        output(CMAKE, "--install", build, "--prefix", prefix)
        expected = {re.sub(r"\Alib/", "lib/some-machine/", name) for name in FILES}
        self.assertEqual(without_build_type(files_below(prefix)), expected)
        self.assert_archives(prefix / "bin/vesk-archive")


class ForeignRuntime(ScratchTest):
    def test_the_module_is_built_for_a_runtime_library_and_installed_without_the_stand_in(self):
        runtime = self.scratch / "libruntime.so"
        output(os.environ["VESK_COMPILER"], *FLAGS.split(), "-shared", "-fPIC", "-std=c++20",
               f"-I{SOURCE}", "-x", "c++", SOURCE / "tests/install/foreign_runtime.cpp",
               "-o", runtime)
        build = self.scratch / "build for a runtime"
        configure(SOURCE, build, f"-DVESK_RUNTIME_LIBRARY={runtime}")
        output(CMAKE, "--build", build, "--parallel", "2")
        needed = output("readelf", "--dynamic", build / "lib/libvesk_io_archives.so")
        self.assertRegex(needed, r"NEEDED.*\[libruntime\.so\]")
        self.assertNotIn("standin", needed)
        prefix = self.scratch / "for a runtime"
        output(CMAKE, "--install", build, "--prefix", prefix)
        self.assertEqual(without_build_type(files_below(prefix)), set(COMMON))

    def test_a_runtime_library_that_is_no_file_is_not_taken_for_none(self):
        for path in "/no/runtime.so", self.scratch:
            message = rf"There is no runtime library\s+{re.escape(str(path))}"
            with self.assertRaisesRegex(AssertionError, message):
                configure(SOURCE, self.scratch / "no runtime", f"-DVESK_RUNTIME_LIBRARY={path}")


if __name__ == "__main__":
    unittest.main(verbosity=2)
