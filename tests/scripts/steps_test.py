# SPDX-License-Identifier: MIT
"""What scripts/run and scripts/test say while they work: each step as it begins, on standard error.

The tools that they call are played by small scripts, so that nothing is installed or built.
"""

import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

SOURCE = pathlib.Path(sys.argv.pop())

# Each leaves behind what the real one would. What `apt-get` says must not be seen.
TOOLS = {
    "dpkg-query": 'test -e "$HOME/installed" && echo "install ok installed"; true',
    "id": "echo 0",
    "apt-get": 'echo noise; echo noise >&2; touch "$HOME/installed"',
    "cmake": """
        case $1 in
            --preset) mkdir -p build/$2 && touch build/$2/CMakeCache.txt ;;
            --build) mkdir -p build/$3/bin && touch build/$3/done
                     printf '#!/bin/sh\\necho program "$@"\\n' >build/$3/bin/vesk-archive
                     chmod +x build/$3/bin/vesk-archive ;;
        esac""",
    "ninja": """
        echo "ninja: Entering directory '$2'"
        if [ -e "$2/done" ]; then echo "ninja: no work to do."; else echo "[1/1] x"; fi""",
    "ctest": 'echo "tested $2"',
}


class StepsTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory(prefix="vesk steps ")
        self.addCleanup(directory.cleanup)
        self.root = pathlib.Path(directory.name)
        shutil.copytree(SOURCE / "scripts", self.root / "scripts")
        shutil.copy(SOURCE / "CMakePresets.json", self.root)
        (self.root / "tools").mkdir()
        for name, text in TOOLS.items():
            tool = self.root / "tools" / name
            tool.write_text(f"#!/bin/bash\n{text}\n")
            tool.chmod(0o755)

    def run_script(self, name, *words):
        environment = {"HOME": str(self.root), "PATH": f"{self.root}/tools:{os.defpath}"}
        done = subprocess.run([self.root / "scripts" / name, *words], env=environment,
                              capture_output=True, text=True, check=True)
        return done.stdout, done.stderr.splitlines()

    def test_run_says_each_step_once_and_nothing_when_all_is_there(self):
        out, steps = self.run_script("run", "make", "a b")
        self.assertEqual(out, "program make a b\n")
        self.assertEqual(steps, ["run: installing g++ cmake ninja-build libisal-dev libcli11-dev",
                                 "run: configuring build/run", "run: building build/run"])
        self.assertEqual(self.run_script("run", "make", "a b"), ("program make a b\n", []))

    def test_run_says_that_it_builds_what_has_changed(self):
        self.run_script("run")
        (self.root / "build/run/done").unlink()
        self.assertEqual(self.run_script("run"), ("program\n", ["run: building build/run"]))

    def test_test_says_each_step(self):
        (self.root / "installed").touch()
        out, steps = self.run_script("test")
        self.assertEqual(out, "tested release\ntested dev\n")
        self.assertEqual(steps, [f"test: {step} build/{preset}" for preset in ["release", "dev"]
                                 for step in ["configuring", "building", "testing"]])
        self.assertEqual(self.run_script("test"),
                         (out, ["test: testing build/release", "test: testing build/dev"]))

    def test_help_is_printed_before_anything_is_done(self):
        scripts = ["check", "check-reproducible", "coverage", "fuzz", "lint", "test"]
        for name in scripts:
            for option in ["--help", "-h"]:
                with self.subTest(name=name, option=option):
                    out, steps = self.run_script(name, option)
                    self.assertRegex(out, r"\AInstalls what is missing")
                    self.assertEqual((steps, list(self.root.glob("build"))), ([], []))

    def test_words_that_mean_nothing_are_refused_before_anything_is_done(self):
        for words, said in [(["check", "nonsense"], "check: there is no item 'nonsense'\n"),
                            (["fuzz", "nonsense"], "fuzz: 'nonsense' is no number of seconds\n"),
                            (["fuzz", "1", "x"], "fuzz: there is no target 'x', only: inflate\n")]:
            with self.subTest(words=words):
                (self.root / "fuzz/corpus/inflate").mkdir(parents=True, exist_ok=True)
                with self.assertRaises(subprocess.CalledProcessError) as refused:
                    self.run_script(*words)
                self.assertEqual(refused.exception.returncode, 2)
                self.assertTrue(refused.exception.stderr.startswith(said), refused.exception.stderr)
                self.assertFalse((self.root / "build").exists())

    def test_a_step_that_fails_says_why(self):
        (self.root / "installed").touch()
        (self.root / "tools/cmake").write_text("#!/bin/sh\necho broken\nexit 1\n")
        with self.assertRaises(subprocess.CalledProcessError) as failed:
            self.run_script("run")
        self.assertEqual(failed.exception.returncode, 3)
        self.assertEqual(failed.exception.stderr, "run: configuring build/run\nbroken\n")


if __name__ == "__main__":
    unittest.main(verbosity=2)
