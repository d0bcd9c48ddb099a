#!/usr/bin/env python3
"""The bit rate of what was recorded: 16 channels at a constant one hold it within 1 % over every
2 seconds, from any frame on.

Usage: rate_test.py QMTOOL COMMANDED_STREAMS RECORDED_STREAMS
"""
import json
import os
import shutil
import tempfile
import unittest

import streams
from streams import FORMATS, export, lanes, record

BITS_PER_SECOND = 2_048_000
RATES = (30, 25)  # frames a second, of NTSC and PAL
SECONDS = 12
CHANNELS = 16


class Rate(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="qm-rate-")
        self.addCleanup(shutil.rmtree, self.folder)

    def test_is_held_within_one_per_cent_over_every_two_seconds(self):
        worst, spans = 0.0, 0
        for number in FORMATS:
            database = record(self.folder, "rate", number)[0]
            found = lanes(database)
            self.assertEqual(sorted(found), [(0, channel) for channel in range(CHANNELS)])
            for lane, frames in found.items():
                sizes = self.sizes(database, lane, frames)
                self.assertEqual(len(sizes), SECONDS * RATES[number])
                # Out of turn, so that the test has them: 3 or 4 of 12 seconds.
                turns = [frame.number % 30 for frame in frames if frame.key]
                self.assertEqual(any(turns), lane[1] % 2 == 1)
                window = 2 * RATES[number]
                for at in range(len(sizes) - window + 1):
                    error = sum(sizes[at:at + window]) * 8 / (2 * BITS_PER_SECOND) - 1
                    self.assertLessEqual(abs(error), 0.01, (number, lane, at))
                    worst, spans = max(worst, abs(error)), spans + 1
        print(f"{spans} spans of 2 seconds, at most {100 * worst:.3f} % off", flush=True)

    def sizes(self, database, lane, frames):
        """Bytes of each frame. They are those of the exported file."""
        clip = os.path.join(self.folder, "a.h264")
        export(database, lane, clip, "--manifest")
        with open(clip + ".manifest.json", encoding="utf-8") as file:
            records = json.load(file)["records"]
        self.assertEqual([one["number"] for one in records], [frame.number for frame in frames])
        with open(clip, "rb") as file:
            data = file.read()
        sizes, at = [], 0
        for one in records:
            self.assertEqual(data[at:at + 5], b"\0\0\0\1\x09", (lane, one))  # a delimiter
            at += one["bytes"]
            sizes.append(one["bytes"])
        self.assertEqual((at, data.count(b"\0\0\0\1\x09")), (len(data), len(sizes)))
        return sizes


if __name__ == "__main__":
    streams.main()
