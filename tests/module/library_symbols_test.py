# SPDX-License-Identifier: MIT
"""What the module's library exports to and imports from the runtime, and that it has no data of its own.

Usage: library_symbols_test.py COMPILER STRIP SOURCE_ROOT [LIBRARY]

Checks a library that one plain compiler command builds from the sources and, if it is given, the one
that has been built. One library with every fault shows that the check notices each of them.
"""

import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

EXPORTS = {
    "vesk_io_archives_TarArchiver_makeArchive",
    "vesk_io_archives_TarArchiver_unpackArchive",
    "vesk_io_archives_TgzArchiver_makeArchive",
    "vesk_io_archives_TgzArchiver_unpackArchive",
}

PATH = "std::filesystem::__cxx11::path"
STRING = "std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> >"
ISTREAM = "std::basic_istream<char, std::char_traits<char> >"
OSTREAM = "std::basic_ostream<char, std::char_traits<char> >"
ARCHIVES = "vesk::runtime::archives::"
ZIP = "vesk::runtime::zip::"

IMPORTS = {
    "Vesk_raise",
    "Vesk_hasPendingError",
    "Vesk_runtimeFsPath[abi:cxx11](char const*)",
    f"{ARCHIVES}modeIsOverwrite(void*)",
    f"{ARCHIVES}prepareExtractionStaging({PATH} const&, bool, {PATH}&, {STRING}&)",
    f"{ARCHIVES}commitExtractionStaging({PATH} const&, {PATH} const&, {STRING}&)",
    f"{ARCHIVES}removeExtractionTree({PATH} const&)",
    f"{ZIP}crc32Update(unsigned int, unsigned char const*, unsigned long)",
    f"{ZIP}inflateRaw({ISTREAM}&, unsigned long, unsigned long, {OSTREAM}&, unsigned int&, "
    f"{STRING}&)",
}

# References of the start-up code of every library, which need not be resolved.
START_UP_IMPORTS = {"__cxa_finalize", "__gmon_start__", "_ITM_registerTMCloneTable",
                    "_ITM_deregisterTMCloneTable"}

# Data from headers of the standard library, instantiated here when nothing is optimised.
STANDARD_DATA = re.compile(
    r"((vtable|VTT|typeinfo|typeinfo name|construction vtable) for )?(std|__gnu_cxx|__pstl)::")


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def demangled(names):
    names = sorted(names)
    return set(output("c++filt", *names).splitlines()) if names else set()


def symbols(library, table):
    """Yields (type, binding, section, name) of each symbol; names keep their version."""
    for line in output("readelf", "--wide", table, library).splitlines():
        words = line.split()
        if len(words) >= 8 and words[0].rstrip(":").isdigit():
            yield words[3], words[4], words[6], words[7]


def unversioned(name):
    return name.partition("@")[0]


def section_sizes(library):
    """Returns the sizes of the sections that hold data to be written or code to be run on load."""
    sizes = {".data": 0, ".bss": 0, ".tdata": 0, ".tbss": 0, ".init_array": 0, ".fini_array": 0}
    for line in output("readelf", "--wide", "--section-headers", library).splitlines():
        found = re.match(r"\s*\[\s*\d+\]\s+(\S+)\s+\S+\s+[0-9a-f]+\s+[0-9a-f]+\s+([0-9a-f]+)", line)
        if found and found[1] in sizes:
            sizes[found[1]] = int(found[2], 16)
    return sizes


def exports(library):
    """Returns the exports of the library; a linker may add the names of sections of its own."""
    return demangled(unversioned(name) for kind, binding, section, name
                     in symbols(library, "--dyn-syms") if section != "UND" and kind != "SECTION")


def imports(library):
    """Returns the imports of the library, without those from the libraries of the language."""
    names = set()
    for kind, binding, section, name in symbols(library, "--dyn-syms"):
        start_up = binding == "WEAK" and name in START_UP_IMPORTS
        if section == "UND" and not start_up:
            if not re.search(r"@(GLIBC|GLIBCXX|CXXABI|GCC)_", name):
                names.add(unversioned(name))
    # Integers of 64 bits are "unsigned long" where that has so many, and else "unsigned long long".
    return {name.replace("long long", "long") for name in demangled(names)}


# Marks that assembler and linker set on some machines.
MARKS = re.compile(r"\$|_TLS_MODULE_BASE_\Z")


def data_objects(library):
    return demangled(name for kind, binding, section, name in symbols(library, "--symbols")
                     if kind in ("OBJECT", "TLS", "COMMON") and section != "UND"
                     and not MARKS.match(name))


def differences(what, expected, found):
    return ([f"{what} missing: {name}" for name in sorted(expected - found)] +
            [f"{what} too many: {name}" for name in sorted(found - expected)])


def problems(library, plain):
    """Returns the faults of the library, as texts; `plain` is a library without data of its own."""
    found = differences("export", EXPORTS, exports(library))
    found += differences("import", IMPORTS, imports(library))
    objects = data_objects(library)
    # Without this check, every stripped library would pass.
    if "_DYNAMIC" not in objects:
        found.append("no full symbol table")
    found += [f"data object: {name}" for name in sorted(objects - data_objects(plain))
              if not STANDARD_DATA.match(name)]
    allowed = section_sizes(plain)
    for section, size in section_sizes(library).items():
        if size > allowed[section]:
            found.append(f"{section} has {size} bytes, a library without data {allowed[section]}")
    return found


# Has no data of its own but that for throwing and catching.
PLAIN = "int plain() { try { throw 1; } catch (int one) { return one; } }"

# Has every fault. The list of what must be found, besides all that is missing.
FAULTY = PLAIN + """
    extern "C" [[gnu::visibility("default")]] void exported() {}
    extern "C" void stranger();
    extern "C" [[gnu::weak]] void weakStranger();
    [[gnu::used]] static void call() { stranger(); if (weakStranger) weakStranger(); }
    [[gnu::used]] static int zeros[9];
    [[gnu::used]] static int numbers[9] = {1};
    [[gnu::used]] static const int table[2] = {1, 2};
    namespace n { [[gnu::used]] inline int shared = 1; }
    [[gnu::used]] static thread_local int mine;
    [[gnu::used]] static thread_local int ours = 1;
    [[gnu::constructor]] static void start() { asm volatile(""); }
    [[gnu::destructor]] static void finish() { asm volatile(""); }
"""
SAID = ["export too many: exported", "import too many: stranger", "import too many: weakStranger",
        "data object: mine", "data object: n::shared", "data object: numbers", "data object: ours",
        "data object: table", "data object: zeros", ".data has", ".bss has", ".tdata has",
        ".tbss has", ".init_array has", ".fini_array has"]


def compile_library(library, *sources):
    output(compiler, "-std=c++20", "-O2", "-fPIC", "-shared", "-fvisibility=hidden", f"-I{root}",
           *sources, "-o", library)


class LibrarySymbols(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.directory = pathlib.Path(temporary.name)
        self.plain = self.compiled("plain", PLAIN)

    def compiled(self, name, text):
        """Returns the library that is made of the text of a source."""
        source = self.directory / (name + ".cpp")
        source.write_text(text)
        compile_library(source.with_suffix(".so"), source)
        return source.with_suffix(".so")

    def test_library_of_one_plain_compiler_line(self):
        sources = [source for room in ("module", "fileaccess", "tar", "gzip")
                   for source in sorted((root / room).glob("*.cpp"))]
        library = self.directory / "one_line.so"
        compile_library(library, f"-Wl,--version-script={root / 'module/exports.map'}", *sources)
        self.assertEqual(problems(library, self.plain), [])

    def test_built_library(self):
        for library in built_libraries:
            self.assertEqual(problems(library, self.plain), [])

    def test_every_fault_is_noticed(self):
        faulty = self.compiled("faulty", FAULTY)
        found = problems(faulty, self.plain)
        missing = differences("export", EXPORTS, set()) + differences("import", IMPORTS, set())
        rest = [problem for problem in found if problem not in missing]
        self.assertEqual(len(found), len(missing) + len(rest))
        self.assertEqual(len(rest), len(SAID), rest)
        for problem, said in zip(rest, SAID):
            self.assertTrue(problem.startswith(said), (problem, said))

        output(strip, faulty)
        self.assertIn("no full symbol table", problems(faulty, self.plain))


if __name__ == "__main__":
    compiler, strip, root = sys.argv[1], sys.argv[2], pathlib.Path(sys.argv[3])
    built_libraries = sys.argv[4:]
    if not built_libraries:
        del LibrarySymbols.test_built_library
    unittest.main(argv=sys.argv[:1])
