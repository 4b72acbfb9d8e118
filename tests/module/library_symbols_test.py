# SPDX-License-Identifier: MIT
"""What the module's library exports to and imports from the runtime, and that it has no data of its own.

Usage: library_symbols_test.py COMPILER STRIP SOURCE_ROOT [LIBRARY]

Checks a library that one plain compiler command builds from the sources and, if it is given, the one
that has been built. Then shows that the check notices every kind of fault.
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
START_UP_IMPORTS = {"__gmon_start__", "_ITM_registerTMCloneTable", "_ITM_deregisterTMCloneTable"}

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


def data_objects(library):
    return demangled(name for kind, binding, section, name in symbols(library, "--symbols")
                     if kind in ("OBJECT", "TLS", "COMMON") and section != "UND")


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


# The four functions and nothing else. Together they call all nine functions of the runtime.
MINIATURE = """
#include <istream>
#include <ostream>
#include "module/host/host_runtime.h"
#include "module/native_methods.h"
using namespace vesk::runtime;
void vesk_io_archives_TarArchiver_makeArchive(void*, const char* source, const char*, void* mode) {
    std::string error = source;
    std::filesystem::path staging, path = Vesk_runtimeFsPath(source);
    archives::prepareExtractionStaging(path, archives::modeIsOverwrite(mode), staging, error);
    archives::commitExtractionStaging(staging, path, error);
    archives::removeExtractionTree(staging);
}
void vesk_io_archives_TarArchiver_unpackArchive(void*, const char* text, const char*, void*) {
    if (Vesk_hasPendingError() == 0) Vesk_raise("IOException", text);
}
void vesk_io_archives_TgzArchiver_makeArchive(void* in, const char* text, const char*, void* out) {
    std::string error = text;
    std::uint32_t crc = zip::crc32Update(0, nullptr, 0);
    zip::inflateRaw(*static_cast<std::istream*>(in), 0, 0, *static_cast<std::ostream*>(out), crc,
                    error);
}
void vesk_io_archives_TgzArchiver_unpackArchive(void*, const char*, const char*, void*) {}
"""

# What is added to the miniature, and the expected finding.
ADDITIONS = [
    ("[[gnu::used]] static int counter;", "data object: counter"),
    ("[[gnu::used]] static int counters[9];", ".bss has"),
    ("[[gnu::used]] static int counters[9] = {1};", ".data has"),
    ("[[gnu::used]] static const int table[2] = {1, 2};", "data object: table"),
    ("namespace n { [[gnu::used]] inline int shared = 1; }", "data object: n::shared"),
    ("[[gnu::used]] static thread_local int mine;", "data object: mine"),
    ("[[gnu::used]] static thread_local int mine;", ".tbss has"),
    ("[[gnu::constructor]] static void start() { asm volatile(\"\"); }", ".init_array has"),
    ("[[gnu::destructor]] static void finish() { asm volatile(\"\"); }", ".fini_array has"),
    ("extern int made(); [[gnu::weak]] int made() { return 1; } static int text = made();",
     ".init_array has"),
    ("extern \"C\" void stranger(); [[gnu::used]] static void call() { stranger(); }",
     "import too many: stranger"),
    ("extern \"C\" [[gnu::weak]] void stranger(); "
     "[[gnu::used]] static void call() { if (stranger) stranger(); }",
     "import too many: stranger"),
]

# What is replaced in the miniature, and the expected finding.
REPLACEMENTS = [
    ("Vesk_hasPendingError() == 0", "text != nullptr", "import missing: Vesk_hasPendingError"),
    ("archives::removeExtractionTree(staging);", "", f"import missing: {ARCHIVES}removeExtract"),
]

# What is replaced in the list of exports, and the expected finding.
OTHER_EXPORTS = [
    ("vesk_io_archives_TgzArchiver_unpackArchive;", "",
     "export missing: vesk_io_archives_TgzArchiver_unpackArchive"),
    ("local:\n        *;\n", "", "export too many: "),
]


def compile_library(library, map_file, *sources):
    output(compiler, "-std=c++20", "-O2", "-fPIC", "-shared", "-fvisibility=hidden",
           f"-Wl,--version-script={map_file}", f"-I{root}", *sources, "-o", library)


def compile_object(text, name):
    """Returns the object file that is made of the text of a source."""
    name.with_suffix(".cpp").write_text(text)
    output(compiler, "-std=c++20", "-O2", "-fPIC", "-fvisibility=hidden", f"-I{root}", "-c",
           name.with_suffix(".cpp"), "-o", name.with_suffix(".o"))
    return name.with_suffix(".o")


class LibrarySymbols(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        temporary = tempfile.TemporaryDirectory()
        cls.addClassCleanup(temporary.cleanup)
        cls.directory = pathlib.Path(temporary.name)
        cls.exports_map = root / "module/exports.map"
        cls.miniature = compile_object(MINIATURE, cls.directory / "miniature")
        cls.plain = cls.directory / "plain.so"
        compile_library(cls.plain, cls.exports_map, cls.miniature)

    def assert_noticed(self, said, exports_map, *objects):
        library = self.directory / "changed.so"
        compile_library(library, exports_map, *objects)
        found = problems(library, self.plain)
        self.assertTrue(any(problem.startswith(said) for problem in found), found)

    def test_library_of_one_plain_compiler_line(self):
        sources = [source for room in ("module", "fileaccess", "tar", "gzip")
                   for source in sorted((root / room).glob("*.cpp"))]
        library = self.directory / "one_line.so"
        compile_library(library, self.exports_map, *sources)
        self.assertEqual(problems(library, self.plain), [])

    def test_built_library(self):
        for library in built_libraries:
            self.assertEqual(problems(library, self.plain), [])

    def test_library_without_fault_passes(self):
        self.assertEqual(problems(self.plain, self.plain), [])

    def test_every_addition_is_noticed(self):
        for addition, said in ADDITIONS:
            with self.subTest(addition=addition, said=said):
                added = compile_object(addition, self.directory / "added")
                self.assert_noticed(said, self.exports_map, self.miniature, added)

    def test_every_replacement_is_noticed(self):
        for old, new, said in REPLACEMENTS:
            with self.subTest(old=old, said=said):
                self.assertIn(old, MINIATURE)
                changed = compile_object(MINIATURE.replace(old, new), self.directory / "replaced")
                self.assert_noticed(said, self.exports_map, changed)

    def test_every_other_list_of_exports_is_noticed(self):
        for old, new, said in OTHER_EXPORTS:
            with self.subTest(old=old, said=said):
                self.assertIn(old, self.exports_map.read_text())
                changed = self.directory / "changed.map"
                changed.write_text(self.exports_map.read_text().replace(old, new))
                self.assert_noticed(said, changed, self.miniature)

    def test_stripped_library_is_noticed(self):
        stripped = self.directory / "stripped.so"
        output(strip, self.plain, "-o", stripped)
        self.assertEqual(problems(stripped, self.plain), ["no full symbol table"])


if __name__ == "__main__":
    compiler, strip, root = sys.argv[1], sys.argv[2], pathlib.Path(sys.argv[3])
    built_libraries = sys.argv[4:]
    if not built_libraries:
        del LibrarySymbols.test_built_library
    unittest.main(argv=sys.argv[:1])
