#!/usr/bin/env python3
"""The same commands make the same recordings: twice, and on a machine with words of 32 bits, whose
databases are read here as well.

Usage: same_test.py QMTOOL COMMANDED_STREAMS RECORDED_STREAMS
"""
import hashlib
import os
import shutil
import subprocess
import tempfile
import unittest

import streams
from streams import JPEG, export, lanes, run

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
BUILD_PATIENCE = 300
KINDS = ("zones", "rate", "long")
FRAMES = 15 * 96 + 16 * 12 * 25 + 4 * 700  # PAL


class Same(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="qm-same-")
        self.addCleanup(shutil.rmtree, self.folder)

    def digest(self, maker, name):
        """SHA-256 of all payloads that `maker` records, lane by lane, and how many there are."""
        total, frames = hashlib.sha256(), 0
        for kind in KINDS:
            database = os.path.join(self.folder, name, kind, "db.ini")
            os.makedirs(os.path.dirname(database))
            made = run(maker, kind, database, "1")
            self.assertEqual((made.returncode, made.stderr), (0, b""), name)
            total.update(made.stdout)
            for lane, of_lane in sorted(lanes(database).items()):
                frames += len(of_lane)
                total.update(repr(of_lane).encode())
                output = os.path.join(self.folder, name,
                                      "out/" if lane[0] == JPEG else "out.h264")
                export(database, lane, output)
                paths = [output]
                if lane[0] == JPEG:
                    paths = [os.path.join(output, one) for one in sorted(os.listdir(output))]
                for path in paths:
                    with open(path, "rb") as file:
                        total.update(file.read())
                if lane[0] == JPEG:
                    shutil.rmtree(output)
        shutil.rmtree(os.path.join(self.folder, name))
        self.assertEqual(frames, FRAMES)
        return total.hexdigest()

    def test_twice(self):
        self.assertEqual(self.digest(streams.MAKER, "first"), self.digest(streams.MAKER, "second"))

    def test_with_words_of_32_bits(self):
        probe = os.path.join(self.folder, "probe")
        with open(probe + ".cpp", "w", encoding="ascii") as source:
            source.write("#include <vector>\nint main() {}\n")
        if run("g++", "-m32", probe + ".cpp", "-o", probe).returncode != 0:
            print("SKIPPED: g++ cannot build for 32 bits here: install g++-multilib", flush=True)
            self.skipTest("g++-multilib is not installed")
        sources = [os.path.join(ROOT, "sdk", room, name) for room in ("db", "video")
                   for name in sorted(os.listdir(os.path.join(ROOT, "sdk", room)))
                   if name.endswith(".cpp") and name not in OF_THE_BOARD]
        sources += [os.path.join(ROOT, *name) for name in (
            ("sdk", "board", "encoder_channel.cpp"), ("sdk", "board", "rate_control.cpp"),
            ("tests", "sdk", "programs", "commanded_streams.cpp"))]
        program = os.path.join(self.folder, "commanded_streams")
        built = subprocess.run(["g++", "-m32", "-std=c++20", "-O1", "-I", ROOT, *sources, "-o",
                                program, "-pthread"], check=False, timeout=BUILD_PATIENCE,
                               stderr=subprocess.PIPE)
        self.assertEqual(built.returncode, 0, built.stderr.decode())
        digest = self.digest(program, "small")
        self.assertEqual(digest, self.digest(streams.MAKER, "large"))
        print(f"SHA-256 of {FRAMES} pictures in both: {digest}", flush=True)


# Databases as the board has them open; they need its threads.
OF_THE_BOARD = ("db_registry.cpp", "disk_db.cpp", "memory_db.cpp", "rehearsed_files.cpp")

if __name__ == "__main__":
    streams.main()
