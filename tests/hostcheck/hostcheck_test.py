# SPDX-License-Identifier: MIT
"""vesk-host-check passes the stand-in host and finds exactly what is wrong with a wrong runtime.

Run by ctest, which names the files under test in the environment. Each wrong runtime has one defect.
"""

import collections
import concurrent.futures
import os
import pathlib
import re
import signal
import subprocess
import tempfile
import unittest

PROGRAM = os.environ["VESK_HOST_CHECK"]
STANDIN_HOST = os.environ["VESK_STANDIN_HOST"]
MODULE = os.environ["VESK_MODULE"]
WRONG_HOST = os.environ["VESK_WRONG_HOST"]
NO_HOST = os.environ["VESK_NO_HOST"]
UNRESOLVED_HOST = os.environ["VESK_UNRESOLVED_HOST"]
PATIENCE = 300  # seconds until a hanging program is given up

Result = collections.namedtuple("Result", "status out err")

FUNCTIONS = ["Vesk_raise", "Vesk_hasPendingError", "Vesk_runtimeFsPath", "modeIsOverwrite",
             "prepareExtractionStaging", "commitExtractionStaging", "removeExtractionTree",
             "crc32Update", "inflateRaw"]

RAISE, PENDING, PATH = "Vesk_raise: ", "Vesk_hasPendingError: ", "Vesk_runtimeFsPath: "
PREPARE, COMMIT = "prepareExtractionStaging: ", "commitExtractionStaging: "
REMOVE, CRC, INFLATE = "removeExtractionTree: ", "crc32Update: ", "inflateRaw: "

RETURNS = RAISE + "returns to its caller"
EMPTY_MESSAGE = RAISE + "records an exception with an empty message"
ODD_MESSAGE = RAISE + "takes a message with a path of any bytes and length"
STRINGS = RAISE + "needs its strings no longer once it has returned"
NONZERO = PENDING + "is nonzero after a raise, however often asked"
OWN_THREAD = PENDING + "answers for the calling thread alone"
NAMES = PATH + "keeps a relative text relative, with its names"
PUNCTUATION = PATH + "keeps spaces, control characters and punctuation"
BYTES = PATH + "keeps bytes beyond ASCII, UTF-8 or not"
DOTS = PATH + "keeps dots"
REFUSES_EXISTING = PREPARE + "refuses an existing destination that may not be replaced"
EMPTY_DESTINATION = PREPARE + "accepts an existing empty directory only if it can be replaced"
LETS_NOBODY_IN = PREPARE + "lets nobody else in where everybody may write"
REFUSAL_TEXT = PREPARE + "replaces the error text when it refuses"
SAME_FILE_SYSTEM = PREPARE + "stays on the destination's file system"
MOVES_EVERYTHING = COMMIT + "moves everything to the destination"
SPARES = COMMIT + "spares what appeared at the destination meanwhile"
BESIDE = COMMIT + "leaves everything beside the destination as it was"
REPLACES_LINKS = COMMIT + "follows no link in the tree that it replaces"
KEEPS_OLD_TREE = COMMIT + "keeps the old tree when it fails"
FAILURE_TEXT = COMMIT + "replaces the error text when it fails"
REMOVES_LINKS = REMOVE + "follows no link"
GZIP_CRC = CRC + "computes the CRC-32 of gzip and inverts nothing"
COUNTS = CRC + "counts in 64 bits"
RIGHT_ANYHOW = INFLATE + "refuses a wrong declared size or decodes all the same"
SIZE = INFLATE + "refuses a wrong declared size"
INFLATE_TEXT = INFLATE + "replaces the error text when it refuses"

# Not a line about the library: it is in every report.
NOT_CALLED = "modeIsOverwrite: is not called here, since only the runtime can make a handle"

# The defect, the requirements that fail, those that become notes.
DEFECTS = [
    ("raise throws", {RETURNS}, set()),
    ("raise throws control characters", {RETURNS}, set()),
    ("raise throws a long text", {RETURNS}, set()),
    ("raise throws what is no exception", {RETURNS}, set()),
    ("raise aborts", {RETURNS}, set()),
    ("raise aborts beside a helper process", {RETURNS}, set()),
    ("raise exits", {RETURNS}, set()),
    ("raise exits with a status", {RETURNS}, set()),
    ("raise is interrupted", {RETURNS}, set()),
    ("raise hangs", {RETURNS}, set()),
    ("raise keeps pointers", {STRINGS}, set()),
    ("raise keeps the class unread", {STRINGS}, set()),
    ("raise keeps the message unread", {STRINGS}, set()),
    ("raise keeps the message hidden", {STRINGS}, set()),
    ("raise keeps the message in a large table", {STRINGS}, set()),
    ("raise leaves no files to open", {STRINGS}, set()),
    ("raise drops empty messages", {EMPTY_MESSAGE}, set()),
    ("raise drops odd messages", {ODD_MESSAGE}, set()),
    ("raise drops other than UTF-8", {ODD_MESSAGE}, set()),
    ("raise drops long messages", {ODD_MESSAGE}, set()),
    ("pending from the start", {PENDING + "is zero before anything was raised"}, {OWN_THREAD}),
    ("pending is global", set(), {OWN_THREAD}),
    ("pending once", {NONZERO}, set()),
    ("never pending", {EMPTY_MESSAGE, ODD_MESSAGE, NONZERO}, set()),
    ("paths are cut", {NAMES}, set()),
    ("backslashes become slashes", {PUNCTUATION}, set()),
    ("paths are trimmed", {PUNCTUATION}, set()),
    ("paths are decoded", {PUNCTUATION}, set()),
    ("paths lose control characters", {PUNCTUATION}, set()),
    ("paths are ASCII", {BYTES}, set()),
    ("paths are UTF-8", {BYTES}, set()),
    ("paths are composed", {BYTES}, set()),
    ("paths are normalised", {DOTS}, set()),
    ("paths lose their root", set(), {PATH + "keeps an absolute text as it is"}),
    ("staging holds a lock file", {PREPARE + "gives an empty directory"}, set()),
    ("staging is shared", {PREPARE + "gives another one when an earlier one was left behind"},
     set()),
    ("relative destinations are refused",
     {PREPARE + "takes a destination below the current directory"}, set()),
    ("relative destinations lie elsewhere",
     {PREPARE + "takes a destination below the current directory"}, set()),
    ("staging is spelled like the destination",
     {PREPARE + "gives a path that means the same in its normal form"}, set()),
    ("dots cancel links", {PREPARE + "gives a path that means the same in its normal form"}, set()),
    ("prepare clears the error text", {PREPARE + "leaves the error text alone when it succeeds"},
     set()),
    ("everything may be replaced", {REFUSES_EXISTING, SPARES}, set()),
    ("files may be replaced", {REFUSES_EXISTING}, set()),
    ("directories may be replaced", {REFUSES_EXISTING}, set()),
    ("empty destinations are accepted in vain", {EMPTY_DESTINATION}, set()),
    ("empty destinations stay empty", {EMPTY_DESTINATION}, set()),
    ("refusal leaves a directory", {PREPARE + "leaves nothing behind when it refuses"}, set()),
    ("prepare appends to the error text", {REFUSAL_TEXT}, set()),
    ("prepare gives no message", {REFUSAL_TEXT}, set()),
    ("prepare leaves the error text", {REFUSAL_TEXT}, set()),
    ("staging is open to everybody", {LETS_NOBODY_IN}, set()),
    ("staging is open to a group", {LETS_NOBODY_IN}, set()),
    ("staging is open in a sticky directory", {LETS_NOBODY_IN}, set()),
    ("staging is open where names are anybody's", {LETS_NOBODY_IN}, set()),
    ("staging is copied from elsewhere", set(), {SAME_FILE_SYSTEM}),
    ("staging is copied and stays", {COMMIT + "leaves nothing to clean up"}, {SAME_FILE_SYSTEM}),
    ("old tree goes first", {KEEPS_OLD_TREE},
     {PREPARE + "leaves an existing destination as it is until the commit"}),
    ("commit drops empty directories", {MOVES_EVERYTHING}, set()),
    ("commit adds a file", {MOVES_EVERYTHING}, set()),
    ("commit drops empty trees", {COMMIT + "moves an empty tree"}, set()),
    ("commit adds a file to nothing", {COMMIT + "moves an empty tree"}, set()),
    ("commit leaves a file", {COMMIT + "leaves nothing to clean up", BESIDE}, set()),
    ("commit leaves the old tree", {BESIDE}, set()),
    ("commit takes the name out.old", {BESIDE}, set()),
    ("commit takes neighbours", {BESIDE}, set()),
    ("commit empties a neighbour", {BESIDE}, set()),
    ("commit follows links to directories", {REPLACES_LINKS}, set()),
    ("commit follows links to files", {REPLACES_LINKS}, set()),
    ("commit never replaces", {COMMIT + "replaces an existing destination that may be replaced"},
     set()),
    ("dots cancel each other", {COMMIT + "finds a destination that is spelled with dots"}, set()),
    ("slashes add a level",
     {COMMIT + "finds a destination that is spelled with a slash at its end"}, set()),
    ("links are replaced", {COMMIT + "replaces the directory that a symbolic link leads to"},
     set()),
    ("commit merges", set(), {COMMIT + "keeps nothing of what it replaces"}),
    ("commit clears the error text", {COMMIT + "leaves the error text alone when it succeeds"},
     set()),
    ("commit claims success", {COMMIT + "reports when it cannot move the tree"}, set()),
    ("commit appends to the error text", {FAILURE_TEXT}, set()),
    ("commit gives no message", {FAILURE_TEXT}, set()),
    ("commit leaves the error text", {FAILURE_TEXT}, set()),
    ("commit deletes before it renames", {KEEPS_OLD_TREE}, set()),
    ("commit replaces what appeared", {SPARES}, set()),
    ("remove keeps directories", {REMOVE + "removes the whole tree"}, set()),
    ("remove takes neighbours", {REMOVE + "removes nothing else"}, set()),
    ("remove empties neighbours", {REMOVE + "removes nothing else"}, set()),
    ("remove follows links to directories", {REMOVES_LINKS}, set()),
    ("remove follows links to files", {REMOVES_LINKS}, set()),
    ("remove throws", {REMOVE + "returns when there is nothing to remove"}, set()),
    ("crc inverts", {GZIP_CRC, COUNTS}, set()),
    ("crc starts anew", {CRC + "continues over pieces"}, set()),
    ("crc of nothing is 0", {CRC + "leaves the register as it is for no bytes"}, set()),
    ("crc counts in 32 bits", {COUNTS}, set()),
    ("inflate knows no stored blocks", {INFLATE + "decodes stored blocks"}, set()),
    ("inflate knows no second block", {INFLATE + "decodes stored blocks"}, set()),
    ("inflate knows no short fixed blocks", {INFLATE + "decodes fixed blocks"}, set()),
    ("inflate knows no dynamic blocks", {INFLATE + "decodes dynamic blocks"}, set()),
    ("inflate knows no empty blocks", {INFLATE + "decodes blocks without content"}, set()),
    ("inflate copies from nearby only", {INFLATE + "copies from 32768 bytes back"}, set()),
    ("inflate gives the register", {INFLATE + "gives the finished CRC-32 of its output"}, set()),
    ("inflate clears the error text", {INFLATE + "leaves the error text alone when it succeeds"},
     set()),
    ("inflate accepts an early end", {INFLATE + "refuses data that ends early"}, set()),
    ("inflate accepts anything", {INFLATE + "refuses what is no DEFLATE data"}, set()),
    ("inflate appends to the error text", {INFLATE_TEXT}, set()),
    ("inflate gives no message", {INFLATE_TEXT}, set()),
    ("inflate leaves the error text", {INFLATE_TEXT}, set()),
    ("inflate cuts at the declared size", {RIGHT_ANYHOW}, {SIZE}),
    ("inflate fills up to the declared size", {RIGHT_ANYHOW}, {SIZE}),
    ("inflate checks the declared size only", {RIGHT_ANYHOW}, {SIZE}),
    ("inflate ignores the size", set(), {SIZE}),
    ("inflate ignores what follows", set(), {INFLATE + "refuses data after the final block"}),
]

# Defects that more than one requirement must notice.
WIDE_DEFECTS = [
    ("paths become absolute", {NAMES, PUNCTUATION, BYTES, DOTS}),
    ("staging is renamed from elsewhere", {MOVES_EVERYTHING}),
]

# The presence of each function is a requirement, too.
REQUIREMENTS = len(FUNCTIONS) + len(set().union(*(failing for _, failing, _ in DEFECTS)))

NONE_THERE = f"\n{len(FUNCTIONS)} requirements, {len(FUNCTIONS)} failed\n"

# What a runtime may do: no requirement objects.
HARMLESS = [
    "raise starts a helper process",
    "raise copies by way of the heap",
    "raise notes its strings in shared memory",
    "empty destinations are accepted",
    "staging is named through a descriptor",
]

# Sanitizers need files of their own to find these, and end the process in their own way.
SANITIZED = os.environ["VESK_SANITIZED"] == "ON"
UNLIKE_WHEN_SANITIZED = {"raise keeps the message hidden", "raise leaves no files to open"}

# The end of the line: what was expected and what came.
EXPLANATIONS = [
    ("raise throws", "; expected that the call returns; came an exception: IOException"),
    ("raise throws control characters", r"; came an exception: \033[2J\012\177IOException"),
    ("raise throws a long text", "; came an exception: " + 100000 * "x" + "\n"),
    ("raise throws what is no exception", "; came an exception of an unknown class\n"),
    ("raise exits with a status", "; came an end of the process with status 7\n"),
    ("raise is interrupted", "; came a crash: Terminated\n"),
    ("raise aborts", "; expected that the call returns; came a crash: Aborted"),
    ("raise aborts beside a helper process",
     "; expected that the call returns; came a crash: Aborted"),
    ("raise exits",
     "; expected that the call returns; came an end of the process with status 0"),
    ("raise hangs", "; expected that the call returns; came no return within 20 seconds"),
    ("raise keeps the class unread", "; expected no pointer to them that is kept; came one"),
    ("raise keeps the message hidden", "; came a crash: Segmentation fault\n"),
    ("raise leaves no files to open", "; came an exception: /proc/self/mem: Too many open files\n"),
    ("never pending", "; expected nonzero; came 0 when asked for the first time"),
    ("pending once", "; expected nonzero; came 0 when asked for the second time"),
    ("paths are cut", f'; expected a relative path of "{120 * "n"}...", "{120 * "n"}..." from '
                      f'"{120 * "n"}..."; came "{120 * "n"}..."\n'),
    ("paths are normalised", '; expected a relative path of ".", "a", "..", "b", "." '
                             'from "./a/../b/."; came "b", ""'),
    ("paths lose control characters", r'; came "tab\011line\012bell?"' + "\n"),
    ("paths are ASCII",
     r'; expected a relative path of "caf\303\251" from "caf\303\251"; came "caf??"'),
    ("staging holds a lock file", '; expected an empty directory; came ".lock" in it'),
    ("staging is spelled like the destination", '; came nothing there'),
    ("links are replaced", "; expected the symbolic link as it was; came no link any more\n"),
    ("commit drops empty directories",
     '; expected all that was extracted and nothing else; came no "hollow/"'),
    ("commit appends to the error text", '; expected a message instead of "an earlier text"; came '
     '"an earlier textCannot move extracted files to destination"'),
    ("crc inverts", '; expected 0xe8b7be43 as the inverted register after "a"; came 0x3ab551ce'),
    ("crc of nothing is 0", "; expected 0xffffffff for no bytes at a null pointer; came 0x00000000"),
    ("crc counts in 32 bits", '; expected 0xce7745fe as the inverted register after 4294967296 '
     'zeros and "123456789"; came 0xe60914ae'),
    ("inflate gives the register", "; expected 0x3610a686 after a stored block; came 0xc9ef5979"),
    ("inflate ignores the size",
     '; advised false for 454 bytes declared as 453; came true with 454 bytes, "0'),
]


def run(*words, defect="", **more):
    done = subprocess.run([PROGRAM, *words], env=os.environ | {"VESK_DEFECT": defect} | more,
                          capture_output=True, timeout=PATIENCE, text=True, check=False)
    return Result(done.returncode, done.stdout, done.stderr)


def lines(result, verdict):
    """The requirements of a report that pass, fail or are noted, without what was expected and came."""
    found = re.findall(rf"^{verdict}  (.*)$", result.out, re.MULTILINE)
    return {line.partition("; ")[0] for line in found} - {NOT_CALLED}


class Reports(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        defects = [row[0] for row in DEFECTS + WIDE_DEFECTS] + HARMLESS
        # Runtimes that stage elsewhere leave something there.
        with tempfile.TemporaryDirectory() as directory, \
                concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
            results = pool.map(
                lambda defect: run(WRONG_HOST, defect=defect, TMPDIR=directory), defects)
            cls.reports = dict(zip(defects, results))
        cls.standin = run(STANDIN_HOST)

    def test_the_stand_in_host_passes_every_line(self):
        self.assertEqual((self.standin.status, self.standin.err), (0, ""))
        self.assertEqual((lines(self.standin, "FAIL"), lines(self.standin, "note")), (set(), set()))
        self.assertIn(f"\nnote  {NOT_CALLED}\n", self.standin.out)
        self.assertTrue(self.standin.out.endswith(f"\n{REQUIREMENTS} requirements, 0 failed\n"))

    def test_the_wrong_host_without_a_defect_passes_every_line(self):
        self.assertEqual(run(WRONG_HOST), self.standin)

    def test_what_a_host_may_do_passes_every_line(self):
        # A helper process that lives on would keep standard error open, and run() waits for its
        # end.
        for deed in HARMLESS:
            with self.subTest(deed=deed):
                self.assertEqual(self.reports[deed], self.standin)

    def test_each_defect_is_found_on_its_own_lines(self):
        for defect, failing, notes in DEFECTS:
            with self.subTest(defect=defect):
                report = self.reports[defect]
                self.assertEqual(lines(report, "FAIL"), failing, report.out)
                if not (SANITIZED and defect in UNLIKE_WHEN_SANITIZED):
                    self.assertEqual(lines(report, "note"), notes)
                self.assertEqual(report.status, 1 if failing else 0)
                self.assertIn(f"{REQUIREMENTS} requirements, {len(failing)} failed\n", report.out)

    def test_wide_defects_are_found_on_all_of_their_lines(self):
        for defect, failing in WIDE_DEFECTS:
            with self.subTest(defect=defect):
                self.assertEqual(lines(self.reports[defect], "FAIL"), failing,
                                 self.reports[defect].out)
                self.assertEqual(self.reports[defect].status, 1)

    def test_every_line_has_been_seen_to_fail(self):
        seen = set().union(*(failing | notes for _, failing, notes in DEFECTS))
        presence = {f"{function}: is exported" for function in FUNCTIONS}
        self.assertEqual(lines(self.standin, "pass"), seen | presence)

    def test_a_line_says_what_was_expected_and_what_came(self):
        for defect, explanation in EXPLANATIONS:
            if SANITIZED and defect in UNLIKE_WHEN_SANITIZED:
                continue
            with self.subTest(defect=defect):
                self.assertIn(explanation, self.reports[defect].out)

    def test_what_the_library_prints_is_kept_out_of_the_report(self):
        printing = run(WRONG_HOST, defect="raise prints")
        self.assertEqual((printing.status, printing.out), (0, self.standin.out))
        self.assertIn("FAIL  printed\n", printing.err)

    def test_nothing_stays_behind(self):
        with tempfile.TemporaryDirectory() as directory:
            for defect in ["", "raise aborts", "refusal leaves a directory"]:
                run(WRONG_HOST, defect=defect, TMPDIR=directory)
                self.assertEqual(os.listdir(directory), [])


class Libraries(unittest.TestCase):
    def test_a_library_without_the_functions_fails_a_line_for_each(self):
        result = run(NO_HOST)
        self.assertEqual(result.status, 3)
        self.assertEqual(lines(result, "FAIL"), {f"{name}: is exported" for name in FUNCTIONS})
        self.assertIn("FAIL  crc32Update: is exported; expected the symbol "
                      "_ZN4vesk7runtime3zip11crc32UpdateEjPKhm; came none\n", result.out)
        self.assertTrue(result.out.endswith(NONE_THERE), result.out)

    def test_what_cannot_be_loaded_is_said(self):
        with tempfile.TemporaryDirectory() as directory:
            text = pathlib.Path(directory, "text.so")
            text.write_text("no library")
            missing = pathlib.Path(directory, "missing.so")
            odd = pathlib.Path(directory, "\x1B[2J\n.so")
            odd.write_text("no library")
            rows = [(str(text), "", f"{text}: file too short"),
                    (str(missing), "", f"{missing}: cannot open shared object file: No such file "
                     "or directory"),
                    (str(odd), "", rf"{directory}/\033[2J\012.so: file too short"),
                    (NO_HOST, "loading crashes", "a crash: Aborted")]
            for library, defect, problem in rows:
                with self.subTest(library=library):
                    self.assertEqual(run(library, defect=defect), Result(
                        3, "", f"vesk-host-check: cannot load the library: {problem}\n"))

    def test_a_library_that_lacks_what_it_calls_cannot_be_loaded(self):
        self.assertEqual(run(UNRESOLVED_HOST), Result(
            3, "", f"vesk-host-check: cannot load the library: {UNRESOLVED_HOST}: undefined symbol: "
            "missing_function\n"))

    def test_functions_of_a_needed_library_are_the_library_s(self):
        # The built module has none of its own and needs the stand-in host.
        self.assertEqual(run(MODULE).status, 0)

    def test_a_name_without_a_slash_is_a_file_in_the_current_directory(self):
        done = subprocess.run([PROGRAM, os.path.basename(NO_HOST)], cwd=os.path.dirname(NO_HOST),
                              capture_output=True, text=True, check=False)
        self.assertTrue(done.stdout.endswith(NONE_THERE), done.stdout)

    def test_without_room_for_trials_nothing_is_said_to_hold(self):
        with tempfile.TemporaryDirectory() as directory:
            result = run(STANDIN_HOST, TMPDIR=directory + "/missing")
        self.assertEqual(result.status, 3)
        self.assertIn("vesk-host-check: ", result.err)


def heed_all_signals():
    """Resets the signals that the parent of the tests may ignore, as for a job in the background."""
    for number in [signal.SIGINT, signal.SIGTERM, signal.SIGHUP]:
        signal.signal(number, signal.SIG_DFL)


class Interruptions(unittest.TestCase):
    """The program is sent signals while a trial hangs."""

    memory = pathlib.Path("/dev/shm")

    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = pathlib.Path(directory.name)
        # Killed programs may have left directories behind, and process numbers come again.
        self.before = set(self.memory.glob("vesk-host-check-*"))

    def start(self, **more):
        """Returns the program and the number of the hanging process."""
        more = {"preexec_fn": heed_all_signals} | more
        program = subprocess.Popen(
            [PROGRAM, WRONG_HOST], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
            env=os.environ | {"VESK_DEFECT": "raise hangs", "TMPDIR": str(self.directory)}, **more)
        return program, int(program.stderr.readline())

    def scratch(self, program):
        name = f"vesk-host-check-{program.pid}-*"
        return [*self.directory.glob(name), *(set(self.memory.glob(name)) - self.before)]

    def test_a_signal_ends_the_program_and_leaves_nothing_behind(self):
        for number in [signal.SIGINT, signal.SIGTERM, signal.SIGHUP]:
            with self.subTest(signal=number):
                program, hanging = self.start()
                self.assertNotEqual(self.scratch(program), [])
                program.send_signal(number)
                out, _ = program.communicate(timeout=PATIENCE)
                self.assertEqual(program.returncode, -number)
                self.assertIn("pass  inflateRaw: is exported\n", out)
                self.assertEqual(self.scratch(program), [])
                self.assertEqual(os.listdir(self.directory), [])
                self.assertFalse(os.path.exists(f"/proc/{hanging}"))

    def test_a_reader_that_has_gone_leaves_nothing_behind(self):
        program, hanging = self.start()
        program.stdout.close()
        # The end of the trial is reported next.
        os.kill(hanging, signal.SIGKILL)
        with program.stderr:
            self.assertEqual(program.wait(timeout=PATIENCE), -signal.SIGPIPE)
        self.assertEqual(self.scratch(program), [])

    def test_an_ignored_signal_stays_ignored(self):
        def ignore():
            signal.signal(signal.SIGHUP, signal.SIG_IGN)

        program, _ = self.start(preexec_fn=ignore)
        # Waiting signals are taken in the order of their numbers.
        program.send_signal(signal.SIGHUP)
        program.send_signal(signal.SIGTERM)
        program.communicate(timeout=PATIENCE)
        self.assertEqual(program.returncode, -signal.SIGTERM)

    def test_a_kept_pointer_is_found_even_if_the_signal_of_its_search_is_blocked(self):
        def block():
            signal.pthread_sigmask(signal.SIG_BLOCK, [signal.SIGUSR1])

        done = subprocess.run([PROGRAM, WRONG_HOST], stdout=subprocess.PIPE, text=True,
                              env=os.environ | {"VESK_DEFECT": "raise keeps the class unread"},
                              preexec_fn=block, timeout=PATIENCE, check=False)
        self.assertIn(f"FAIL  {STRINGS}; ", done.stdout)

    def test_how_a_trial_ended_is_known_even_if_ends_of_children_are_ignored(self):
        def ignore():
            signal.signal(signal.SIGCHLD, signal.SIG_IGN)

        done = subprocess.run([PROGRAM, WRONG_HOST], stdout=subprocess.PIPE, text=True,
                              env=os.environ | {"VESK_DEFECT": "raise aborts"}, preexec_fn=ignore,
                              timeout=PATIENCE, check=False)
        self.assertIn("; came a crash: Aborted\n", done.stdout)


class UnwrittenReports(unittest.TestCase):
    def test_a_report_that_cannot_be_written_is_said(self):
        for words in [(STANDIN_HOST,), (NO_HOST,), ("--help",), ("--version",)]:
            for redirection, reason in [(">/dev/full", "No space left on device"),
                                        (">&-", "Bad file descriptor")]:
                with self.subTest(words=words, redirection=redirection):
                    done = subprocess.run(
                        ["sh", "-c", f'exec "$@" {redirection}', "sh", PROGRAM, *words],
                        stderr=subprocess.PIPE, text=True, timeout=PATIENCE, check=False)
                    self.assertEqual((done.returncode, done.stderr), (
                        3, f"vesk-host-check: cannot write the report: {reason}\n"))

    def test_closed_descriptors_are_not_mistaken_for_others(self):
        done = subprocess.run(["sh", "-c", 'exec "$@" <&- 2>&-', "sh", PROGRAM, WRONG_HOST],
                              env=os.environ | {"VESK_DEFECT": "raise prints"},
                              stdout=subprocess.PIPE, text=True, timeout=PATIENCE, check=False)
        self.assertEqual((done.returncode, done.stdout), (0, run(WRONG_HOST).out))


class Usage(unittest.TestCase):
    def test_wrong_usage_is_said(self):
        for words, mistake in [((), "LIBRARY is required"), (("--unknown",), "there is no option --unknown"),
                               (("-x",), "there is no option -x"), (("--",), "LIBRARY is required"),
                               (("",), "LIBRARY: it is empty"),
                               ((STANDIN_HOST, "\x1B\n"),
                                r"The following argument was not expected: \033\012")]:
            with self.subTest(words=words):
                self.assertEqual(run(*words), Result(
                    2, "", f"vesk-host-check: {mistake}\nTry 'vesk-host-check --help'.\n"))

    def test_a_name_after_two_dashes_may_begin_with_one(self):
        result = run("--", "-library.so")
        self.assertEqual(result.status, 3)
        self.assertIn("/-library.so: cannot open shared object file", result.err)

    def test_help_and_version_go_to_standard_output(self):
        result = run("--help")
        self.assertEqual((result.status, result.err), (0, ""))
        self.assertIn("\nUsage: vesk-host-check [OPTIONS] LIBRARY\n", result.out)
        self.assertTrue(result.out.endswith("\nreport cannot be written.\n"), result.out)
        self.assertEqual(run("--version"),
                         Result(0, f"vesk-host-check {os.environ['VESK_VERSION']}\n", ""))


if __name__ == "__main__":
    unittest.main(verbosity=2)
