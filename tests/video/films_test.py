#!/usr/bin/env python3
"""Random spans exported as films: what a player shows begins and ends with the frames that were
asked for, at their recorded times.

Usage: films_test.py QMTOOL COMMANDED_STREAMS RECORDED_STREAMS
"""
import concurrent.futures
import json
import os
import random
import shutil
import struct
import tempfile
import unittest

import streams
from streams import JPEG, export, ffmpeg, lanes, pictures, read_code, record

SPANS = 1000
PLAYED = 60  # of these, that FFmpeg plays
TICKS = 90_000


def content(data, *path):
    """The content of the first box on a path of types."""
    at, end = 0, len(data)
    for kind in path:
        while True:
            size, found = struct.unpack_from(">I4s", data, at)
            head = 8
            if size == 1:
                size, head = struct.unpack_from(">Q", data, at + 8)[0], 16
            if found == kind:
                at, end = at + head, at + size
                break
            at += size
            if at >= end:
                raise KeyError(path)
    return data[at:end]


def table(data, columns):
    """Rows of 32-bit numbers behind version, flags and their count."""
    count = struct.unpack_from(">I", data, 4)[0]
    return [struct.unpack_from(f">{columns}I", data, 8 + 4 * columns * row) for row in range(count)]


class Movie:
    """The first track of a film, from its tables alone."""

    def __init__(self, path):
        with open(path, "rb") as file:
            track = content(content(file.read(), b"moov"), b"trak")
        media = content(track, b"mdia")
        assert struct.unpack_from(">I", content(media, b"mdhd"), 12)[0] == TICKS
        samples = content(media, b"minf", b"stbl")
        times = [0]
        for count, ticks in table(content(samples, b"stts"), 2):
            times += [times[-1] + ticks * (n + 1) for n in range(count)]
        self.count = struct.unpack_from(">I", content(samples, b"stsz"), 8)[0]
        assert len(times) == self.count + 1, (len(times), self.count)
        try:
            keys = [number - 1 for number, in table(content(samples, b"stss"), 1)]
        except KeyError:
            keys = list(range(self.count))
        self.first_key = keys[0]
        try:
            edits = table(content(track, b"edts", b"elst"), 3)
        except KeyError:
            edits = [(times[-1], 0, 1 << 16)]
        (self.length, begin, _), = edits
        self.shown = [time - begin for time in times[:-1]
                      if begin <= time < begin + self.length]


@unittest.skipUnless(shutil.which("ffmpeg"), "ffmpeg is not installed")
class Films(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="qm-films-")
        self.addCleanup(shutil.rmtree, self.folder)
        self.frames = 0

    def test_begin_and_end_exactly_where_they_are_asked_to(self):
        dice = random.Random(19)
        sources = []
        for name in ("matrix", "long"):
            database = record(self.folder, name, 0)[0]
            found = lanes(database)
            start = min(frames[0].time for frames in found.values())
            # Those whose block codes are never below a zone.
            usable = [lane for lane in found
                      if name == "long" or (lane[0] * 16 + lane[1]) % 6 in (0, 3, 5)]
            sources.append((database, start, found, usable))
        cases = []
        for i in range(SPANS):
            database, start, found, usable = sources[i % 2]
            lane = dice.choice(usable)
            frames = found[lane]
            first = dice.randrange(len(frames))
            last = dice.randrange(first, len(frames))
            # Anywhere between the frames.
            begins = dice.randint(frames[first - 1].time + 1 if first else start,
                                  frames[first].time)
            ends = dice.randint(frames[last].time + 1, frames[last + 1].time
                                if last + 1 < len(frames) else frames[last].time + 50_000)
            cases.append((i, database, lane, frames, first, last,
                          ("--from", f"+{(begins - start) / 1e6:.6f}",
                           "--to", f"+{(ends - start) / 1e6:.6f}")))
        with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
            list(pool.map(lambda case: self.span(*case), cases))
        self.assertGreaterEqual(self.frames, 1000)
        print(f"{SPANS} films, {PLAYED} of them played, {self.frames} pictures of these",
              flush=True)

    def span(self, i, database, lane, frames, first, last, words):
        film = os.path.join(self.folder, f"{i}.{'mp4' if i % 4 > 1 else 'mov'}")
        told = json.loads(export(database, lane, film, "--json", *words))
        where = (lane, frames[first].number, frames[last].number, words)
        key = max(n for n in range(first + 1) if frames[n].key)
        self.assertEqual([told[name] for name in ("frames", "frames_before_start")],
                         [last - key + 1, first - key], where)
        self.assertEqual([told[name]["us"] for name in ("key_frame", "start", "last")],
                         [frames[n].time for n in (key, first, last)], where)
        movie = Movie(film)
        wanted = frames[first:last + 1]
        self.assertEqual((movie.count, movie.first_key), (last - key + 1, 0), where)
        self.assertEqual(len(movie.shown), len(wanted), where)
        for ticks, frame in zip(movie.shown, wanted, strict=True):
            exact = (frame.time - wanted[0].time) * TICKS / 1_000_000
            self.assertLessEqual(abs(ticks - exact), 1, where)
        if i < PLAYED and i % 2 == 0 or i >= SPANS - PLAYED and i % 2 == 1:
            self.play(film, lane, wanted, where)
        os.remove(film)

    def play(self, film, lane, wanted, where):
        probe = streams.run("ffprobe", "-v", "warning", "-select_streams", "v", "-show_entries",
                            "stream=width,height:packet=pts,flags", "-of", "json", film)
        self.assertEqual((probe.returncode, probe.stderr), (0, b""), where)
        told = json.loads(probe.stdout)
        shown = [packet for packet in told["packets"] if "D" not in packet["flags"]]
        self.assertEqual(len(shown), len(wanted), where)
        self.assertEqual(shown[0]["pts"], 0, where)
        if (lane[0] * 16 + lane[1]) % 8 == 7:  # its size changes: told above
            return
        size = told["streams"][0]["width"], told["streams"][0]["height"]
        tolerance = 40 if lane[0] == JPEG else 0
        for frame, picture in zip(wanted, pictures(ffmpeg(film, lane[0] == JPEG),
                                                   [size] * len(wanted)), strict=True):
            self.assertEqual(read_code(picture, tolerance),
                             (frame.stream, frame.channel, frame.number), where)
        self.frames += len(wanted)


if __name__ == "__main__":
    streams.main()
