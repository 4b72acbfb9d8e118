# SPDX-License-Identifier: MIT
"""Lists that stand in several places are the same: names of left-overs, exit statuses, checks, targets.

Usage: documents_test.py SOURCE_ROOT
"""

import pathlib
import re
import sys
import unittest

# Where the marks in the names of left-overs stand in the code.
MARK_SOURCES = ["standinhost/staging_name.cpp", "commandline/making_file.cpp"]
# Each of these names all marks of the sources beside it.
MARK_LISTS = {
    "docs/messages.md": MARK_SOURCES,
    "standinhost/standin_host.h": ["standinhost/staging_name.cpp"],
    "commandline/making_file.h": ["commandline/making_file.cpp"],
}
# The manual names several marks by what they have in common.
MANUAL = "docs/man/vesk-archive.1.in"
# A program's exit statuses: the code, and the lists of them.
PROGRAMS = {
    "commandline/main.cpp": [MANUAL],
    "hostcheck/main.cpp": ["docs/man/vesk-host-check.1.in", "hostcheck/main.cpp"],
}
CHECKS = "scripts/check"
ASSURANCE = "docs/assurance.md"


def marks(files, sources):
    """Returns the marks in the code of the sources, as in ".vesk-replaced-"."""
    return {mark for name in sources
            for mark in re.findall(r'= "(\.vesk-[a-z-]+-)";', files[name])}


def named_marks(text):
    """Returns the marks that a list names: each stands before a random suffix."""
    return set(re.findall(r"(\.vesk-[a-z-]+-)(?:XXXXXX| \*)", text))


def statuses(text):
    """Returns the exit statuses in the code of a program's main.cpp."""
    return {int(status) for status in re.findall(r"^constexpr int \w+ = (\d+);", text, re.MULTILINE)}


def listed_statuses(text):
    """Returns the exit statuses that a manual or a help text lists."""
    section = text.partition(".SH EXIT STATUS\n")[2].partition("\n.SH ")[0]
    if section:
        return {int(status) for status in re.findall(r"^\.B (\d+)$", section, re.MULTILINE)}
    sentence = re.sub(r'\\n"\s*"', " ", text.partition("Exit status: ")[2]).partition(".")[0]
    return {int(status) for status in re.findall(r"(?:^|; ?)(\d+) ", sentence)}


def check_items(text):
    """Returns the items of scripts/check."""
    return set(re.search(r"^all=\(([^)]*)\)", text, re.MULTILINE)[1].split())


def listed_in(text, heading):
    """Returns the names in the first column of the table below the heading."""
    section = text.partition(heading + "\n")[2].partition("\n## ")[0]
    cells = re.findall(r"^\| ((?:`\w+`(?:, )?)+) \|", section, re.MULTILINE)
    return {name for cell in cells for name in re.findall(r"`(\w+)`", cell)}


def differences(what, expected, found):
    return ([f"{what} lacks: {one}" for one in sorted(expected - found)] +
            [f"{what} has too many: {one}" for one in sorted(found - expected)])


def problems(files, targets):
    """Returns where the texts of `files`, a name-to-text map, and the fuzz targets disagree."""
    found = []
    for name, sources in MARK_LISTS.items():
        found += differences(name, marks(files, sources), named_marks(files[name]))
    in_code, in_manual = marks(files, MARK_SOURCES), named_marks(files[MANUAL])
    found += [f"{MANUAL} lacks: {mark}" for mark in sorted(in_code)
              if not mark.startswith(tuple(in_manual))]
    found += [f"{MANUAL} has too many: {mark}" for mark in sorted(in_manual)
              if not any(one.startswith(mark) for one in in_code)]
    for name, lists in PROGRAMS.items():
        for listing in lists:
            found += differences(listing, statuses(files[name]), listed_statuses(files[listing]))
    found += differences(ASSURANCE, check_items(files[CHECKS]),
                         listed_in(files[ASSURANCE], "## Platforms and tools"))
    found += differences("the list of targets", targets, listed_in(files[ASSURANCE], "## Fuzzing"))
    return found


# The file that is changed, what is replaced in it and by what, and what must be said of it.
CHANGES = [
    ("standinhost/staging_name.cpp", '".vesk-replaced-"', '".vesk-old-"',
     f"{MANUAL} lacks: .vesk-old-"),
    ("standinhost/staging_name.cpp", '".vesk-replaced-"', '".vesk-old-"',
     "docs/messages.md has too many: .vesk-replaced-"),
    ("standinhost/staging_name.cpp", '".vesk-unpacking-new-"', '".vesk-new-"',
     "standinhost/standin_host.h lacks: .vesk-new-"),
    ("commandline/making_file.cpp", '".vesk-making-"', '".vesk-new-"',
     "commandline/making_file.h lacks: .vesk-new-"),
    ("docs/messages.md", ".NAME.vesk-making-XXXXXX", "a hidden file",
     "docs/messages.md lacks: .vesk-making-"),
    ("docs/messages.md", ".NAME.vesk-unpacking-replacing-XXXXXX", ".NAME.vesk-replacing-XXXXXX",
     "docs/messages.md has too many: .vesk-replacing-"),
    (MANUAL, ".vesk-replaced- *", ".vesk-old- *", f"{MANUAL} has too many: .vesk-old-"),
    (MANUAL, ".vesk-unpacking- *", ".vesk-unpacking-new- *",
     f"{MANUAL} lacks: .vesk-unpacking-replacing-"),
    (MANUAL, "\n.B 3\n", "\n.B 4\n", f"{MANUAL} lacks: 3"),
    ("commandline/main.cpp", "cannotRun = 3;", "cannotRun = 4;", f"{MANUAL} lacks: 4"),
    ("hostcheck/main.cpp", "; 3 the library", "; 4 the library", "hostcheck/main.cpp lacks: 3"),
    ("docs/man/vesk-host-check.1.in", "\n.B 1\n", "\n.B 5\n",
     "docs/man/vesk-host-check.1.in has too many: 5"),
    (ASSURANCE, "| `tsan` |", "| `threads` |", f"{ASSURANCE} lacks: tsan"),
    (CHECKS, " valgrind ", " ", f"{ASSURANCE} has too many: valgrind"),
    (ASSURANCE, "| `inflate` |", "| `deflate` |", "the list of targets lacks: inflate"),
]


class Documents(unittest.TestCase):
    def setUp(self):
        self.targets = {path.name for path in (root / "fuzz/corpus").iterdir()}
        names = {*MARK_SOURCES, *MARK_LISTS, MANUAL, *PROGRAMS, CHECKS, ASSURANCE,
                 *(listing for lists in PROGRAMS.values() for listing in lists)}
        self.files = {name: (root / name).read_text() for name in names}

    def test_programs_and_documents_agree(self):
        self.assertEqual(problems(self.files, self.targets), [])

    def test_marks_and_statuses_are_found_at_all(self):
        self.assertLessEqual({".vesk-replaced-", ".vesk-making-"}, marks(self.files, MARK_SOURCES))
        for name in PROGRAMS:
            self.assertLessEqual({0, 1, 2, 3}, statuses(self.files[name]))

    def test_every_disagreement_is_noticed(self):
        for name, old, new, said in CHANGES:
            with self.subTest(name=name, new=new, said=said):
                self.assertIn(old, self.files[name])
                changed = {**self.files, name: self.files[name].replace(old, new)}
                self.assertIn(said, problems(changed, self.targets))


if __name__ == "__main__":
    root = pathlib.Path(sys.argv[1])
    unittest.main(argv=sys.argv[:1])
