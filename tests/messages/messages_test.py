# SPDX-License-Identifier: MIT
"""The list of messages in docs/messages.md is the list of those in the sources, both ways.

Usage: messages_test.py SOURCE_ROOT
"""

import collections
import pathlib
import re
import sys
import unittest

MODULE = ["module", "fileaccess", "gzip", "tar"]
STANDIN = ["standinhost"]
STANDIN_HEADER = "standinhost/standin_host.h"
DOCUMENT = "docs/messages.md"
STANDIN_HEADING = "## The stand-in host\n"
HELP_HEADING = "## The help after a message\n"
EXPLANATION = ["explanation"]

# No other literal of the sources begins with a capital and has a space.
MESSAGE = r'"([A-Z][^"\\]* [^"\\]*)"'
# How the module's messages leave the place where they stand.
EXIT = r'\b(?:raiseFailure\(\(*|reportFailure\(errorText_?, *)'


def read(*rooms):
    """Returns the sources of the folders as a name-to-text map."""
    return {str(path.relative_to(root)): path.read_text() for room in rooms
            for path in sorted((root / room).rglob("*")) if path.suffix in (".h", ".cpp")}


def code(text):
    return re.sub(r"//.*", "", text)


def comments(text):
    """What the comments say, with their line ends taken away."""
    return re.sub(r"\s+", " ", " ".join(re.findall(r"//+(.*)", text)))


def messages(sources):
    """How often each message stands in the code."""
    return collections.Counter(message for text in sources.values()
                               for message in re.findall(MESSAGE, code(text)))


def listed(section):
    return set(re.findall(r"^\| `([^`]+)`", section, re.MULTILINE))


def differences(what, expected, found):
    return ([f"{what} lacks: {message}" for message in sorted(expected - found)] +
            [f"{what} has too many: {message}" for message in sorted(found - expected)])


def help_problems(known, explanation, help_part):
    """What is wrong with the help: its table, or a text below it, has every message and no other."""
    spoken_of = listed(help_part) | set(re.findall(r"`([A-Z][^`]*)`", " ".join(
        line for line in help_part.splitlines() if not line.startswith("|"))))
    found = differences("the help", known, spoken_of)
    return found + [f"the explanation knows too much: {message}"
                    for message in sorted(set(messages(explanation)) - known)]


def problems(module, standin, document, explanation):
    """What is wrong with sources and document, as texts."""
    listing, _, help_part = document.partition(HELP_HEADING)
    module_part, _, standin_part = listing.partition(STANDIN_HEADING)
    in_module, in_standin = messages(module), messages(standin)
    known = set(in_module) | set(in_standin)
    found = help_problems(known, explanation, help_part.partition("\n## ")[0])
    found += differences("the module's list", set(in_module), listed(module_part))
    found += differences("the stand-in host's list", set(in_standin), listed(standin_part))
    in_header = set(re.findall(MESSAGE, comments(standin[STANDIN_HEADER])))
    found += differences("the stand-in host's header", set(in_standin), in_header)
    found += [f"stands {count} times: {message}"
              for message, count in in_module.items() if count != 1]
    for name, text in module.items():
        quoted = set(re.findall(r'"([A-Z][^"\\,]* [^"\\,]*)"', comments(text)))
        found += [f"{name} speaks of: {message}" for message in sorted(quoted - set(in_module))]
        leaving = re.findall(EXIT + r"\s*" + MESSAGE, code(text))
        found += [f"{name} does not raise or report: {message}"
                  for message in messages({name: text}) if message not in leaving]
    return found


# The file that is changed, what is replaced in it and by what, and what must be said of it.
CHANGES = [
    (DOCUMENT, "| `Invalid gzip flags` |", "| Invalid gzip flags |",
     "the module's list lacks: Invalid gzip flags"),
    (DOCUMENT, "`Invalid gzip flags`", "`Invalid gzip flag`",
     "the module's list has too many: Invalid gzip flag"),
    (DOCUMENT, "`Cannot read file: `", "`Cannot read file`",
     "the module's list has too many: Cannot read file"),
    (DOCUMENT, "| `Truncated DEFLATE data` |", "| text |",
     "the stand-in host's list lacks: Truncated DEFLATE data"),
    (DOCUMENT, STANDIN_HEADING, STANDIN_HEADING + "\n| `Invalid gzip flags` | text |\n",
     "the stand-in host's list has too many: Invalid gzip flags"),
    ("gzip/member_reader.cpp", '"Invalid gzip flags"', '"Invalid gzip Flags"',
     "the module's list lacks: Invalid gzip Flags"),
    ("gzip/member_reader.cpp", '"Invalid gzip flags"', '"Invalid gzip stream"',
     "stands 2 times: Invalid gzip stream"),
    ("gzip/member_reader.cpp", 'reportFailure(errorText, "Invalid gzip flags")',
     'noteFailure(errorText, "Invalid gzip flags")',
     "gzip/member_reader.cpp does not raise or report: Invalid gzip flags"),
    ("tar/stream_builder.h", '"Source path is required"', '"Source path is needed"',
     "tar/stream_builder.h speaks of: Source path is needed"),
    ("standinhost/inflate.cpp", '"Invalid DEFLATE data"', '"Bad DEFLATE data"',
     "the stand-in host's list lacks: Bad DEFLATE data"),
    (STANDIN_HEADER, '"Cannot create staging directory"', '"No staging directory"',
     "the stand-in host's header lacks: Cannot create staging directory"),
    (DOCUMENT, "| `Invalid gzip flags` | a reserved flag | ", "| Invalid gzip flags | x | ",
     "the help lacks: Invalid gzip flags"),
    (DOCUMENT, "`Cannot flush extracted files` has", "`Cannot flush` has",
     "the help lacks: Cannot flush extracted files"),
    ("explanation/unpack_explanation.cpp", '"Cannot write TAR entry"', '"Cannot write an entry"',
     "the explanation knows too much: Cannot write an entry"),
]


class Messages(unittest.TestCase):
    def setUp(self):
        self.module, self.standin = read(*MODULE), read(*STANDIN)
        self.explanation = read(*EXPLANATION)
        self.document = (root / DOCUMENT).read_text()

    def test_document_and_sources_agree(self):
        self.assertEqual(problems(self.module, self.standin, self.document, self.explanation), [])

    def test_messages_are_found_at_all(self):
        self.assertLessEqual({"Archive path is required", "Cannot read file: "},
                             set(messages(self.module)) & listed(self.document))
        self.assertIn("Destination already exists", messages(self.standin))

    def test_messages_end_without_a_full_stop(self):
        for message in [*messages(self.module), *messages(self.standin)]:
            self.assertFalse(message.endswith("."), message)

    def test_every_disagreement_is_noticed(self):
        for name, old, new, said in CHANGES:
            with self.subTest(name=name, new=new):
                files = {**self.module, **self.standin, **self.explanation, DOCUMENT: self.document}
                self.assertIn(old, files[name])
                files[name] = files[name].replace(old, new, 1)
                module = {key: files[key] for key in self.module}
                standin = {key: files[key] for key in self.standin}
                explanation = {key: files[key] for key in self.explanation}
                self.assertIn(said, problems(module, standin, files[DOCUMENT], explanation))


if __name__ == "__main__":
    root = pathlib.Path(sys.argv[1])
    unittest.main(argv=sys.argv[:1])
