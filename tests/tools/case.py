"""What the tests of qmtool share: a folder of its own for each, and ways to run the program. The
program to test is the first argument of every test script."""
import json
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

from database import Folder

PROGRAM = "build/release/qmtool"
PATIENCE = 300


def clock(us):
    """A time as qmtool prints it."""
    seconds, us = divmod(us, 1_000_000)
    minutes = 46 + (28 + seconds) // 60
    return f"2026-11-21T{1 + minutes // 60:02d}:{minutes % 60:02d}:{(28 + seconds) % 60:02d}." \
           f"{us // 1000:03d}Z"


def program():
    return PROGRAM


class Case(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        path = tempfile.mkdtemp(prefix="qmtool-")
        self.addCleanup(shutil.rmtree, path)
        self.folder = Folder(path)

    def run_tool(self, *words, **other):
        done = subprocess.run([program(), *words], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                              timeout=PATIENCE, stdin=subprocess.DEVNULL, **other)
        return done.returncode, done.stdout.decode(), done.stderr.decode()

    def json(self, command, *words, status=0):
        returned, out, err = self.run_tool(command, "--json", *words, self.folder.ini)
        self.assertEqual((returned, err), (status, ""), out)
        return json.loads(out)

    def verify(self, *words):
        """The status and the lines of qmtool verify."""
        status, out, err = self.run_tool("verify", *words, self.folder.ini)
        self.assertEqual(err, "")
        return status, out.splitlines()

    def assert_whole(self):
        status, lines = self.verify()
        self.assertEqual((status, len(lines)), (0, 1), lines)
        self.assertTrue(lines[0].startswith("nothing wrong in "), lines)

    def assert_found(self, *expected):
        """These findings, nothing more."""
        status, lines = self.verify()
        self.assertEqual(lines[:-1], list(expected))
        findings = sum(not line.startswith("note: ") for line in expected)
        self.assertEqual(status, 1 if findings else 0)
        told = json.loads(self.run_tool("verify", "--json", self.folder.ini)[1])
        self.assertEqual(told["finding_count"], findings)
        self.assertEqual(len(told["findings"]), len(expected))
        return told["findings"]


def main():
    global PROGRAM
    PROGRAM = os.path.abspath(sys.argv.pop(1))
    unittest.main()
