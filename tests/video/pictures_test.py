#!/usr/bin/env python3
"""What other decoders show of recordings: block codes that name the right frame, and privacy zones
that are black from the first frame on, with nothing changed around them.

Usage: pictures_test.py QMTOOL COMMANDED_STREAMS RECORDED_STREAMS [SUITE]
"""
import concurrent.futures
import os
import shutil
import tempfile
import unittest

import streams
from streams import (FORMATS, JPEG, clip_of, ffmpeg, gstreamer, jpeg_steps, lanes, pictures,
                     read_code, record)

BLACK, NO_COLOUR = 16, 128
DECODERS = [ffmpeg] + ([gstreamer] if streams.has_gstreamer() else [])
BLOCK = 8


class Recorded(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="qm-pictures-")
        self.addCleanup(shutil.rmtree, self.folder)
        if len(DECODERS) == 1:
            print("SKIPPED: GStreamer with openh264 is not installed", flush=True)

    def at_once(self, function, cases):
        with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
            return list(pool.map(lambda case: function(*case), cases))


@unittest.skipUnless(shutil.which("ffmpeg"), "ffmpeg is not installed")
class Codes(Recorded):
    def lane(self, decoder, database, lane, frames, may_hide):
        clip, sizes = clip_of(database, lane, tempfile.mkdtemp(dir=self.folder))
        self.assertEqual(len(sizes), len(frames), lane)
        read = 0
        for frame, picture in zip(frames, pictures(decoder(clip, lane[0] == JPEG), sizes),
                                  strict=True):
            # Where text and pattern were coded coarsely, the squares of JPEG are rounded.
            code = read_code(picture, 40 if lane[0] == JPEG else 0)
            if code is None and may_hide(lane, picture):
                continue
            self.assertEqual(code, (frame.stream, frame.channel, frame.number), frame)
            read += 1
        os.remove(clip)
        return len(frames), read

    def read_all(self, databases, may_hide):
        cases = [(decoder, database, lane, frames, may_hide) for decoder in DECODERS
                 for database in databases for lane, frames in lanes(database).items()]
        figures = self.at_once(self.lane, cases)
        total, read = (sum(figure[i] for figure in figures) for i in (0, 1))
        print(f"{len(DECODERS)} decoders: {total} pictures, {read} block codes right, "
              f"{total - read} below a zone", flush=True)
        return total, read

    def test_of_every_frame_of_the_matrix_are_right(self):
        def may_hide(lane, picture):
            # The matrix has zones over the code of one lane in six all the time, and of the
            # smallest pictures of another one in between.
            kind = (lane[0] * 16 + lane[1]) % 6
            return kind == 2 or kind == 4 and picture.height == 120
        databases = [record(self.folder, "matrix", number)[0] for number in FORMATS]
        total, read = self.read_all(databases, may_hide)
        self.assertGreaterEqual(total, 12_000 * len(DECODERS))
        self.assertGreaterEqual(read, 10_000 * len(DECODERS))

    def test_of_every_frame_of_long_groups_are_right(self):
        databases = [record(self.folder, "long", number)[0] for number in FORMATS]
        for database in databases:
            keys = {lane: [frame.number for frame in frames if frame.key]
                    for lane, frames in lanes(database).items()}
            self.assertEqual(keys, {(3, 0): [0], (3, 1): list(range(700)),
                                    (3, 2): list(range(0, 700, 15)), (3, 3): [0, 300, 600]})
        total, read = self.read_all(databases, lambda lane, picture: False)
        self.assertEqual((total, read), (5600 * len(DECODERS), 5600 * len(DECODERS)))


class Worst:
    """The largest differences that were seen in JPEG: within a zone in whole blocks and in those
    that it cuts, around it in those that it cuts."""
    whole = inside = outside = 0

    def add(self, **seen):
        for name, difference in seen.items():
            setattr(self, name, max(getattr(self, name), difference))


def off_by(data, value):
    return max(max(data) - value, value - min(data)) if data else 0


def apart(left, right):
    return 0 if left == right else max(abs(a - b) for a, b in zip(left, right))


def clipped(zone, width, height):
    """Left, right, top, bottom of a zone within a picture; nothing where it is empty."""
    left, top, zone_width, zone_height = zone
    area = (left, min(left + zone_width, width), top, min(top + zone_height, height))
    return area if area[0] < area[1] and area[2] < area[3] else (0, 0, 0, 0)


def halved(area):
    """In samples of chroma: all that share a luma sample with the zone."""
    return area[0] // 2, (area[1] + 1) // 2, area[2] // 2, (area[3] + 1) // 2


def planes(picture, zone):
    """Width, height, offset, zone and black of each plane."""
    width, height = picture.width, picture.height
    area = clipped(zone, width, height)
    yield width, height, 0, area, BLACK
    for plane in range(2):
        yield (width // 2, height // 2, width * height + plane * (width * height // 4),
               halved(area), NO_COLOUR)


@unittest.skipUnless(shutil.which("ffmpeg"), "ffmpeg is not installed")
class Zones(Recorded):
    def h264(self, where, now, plain, zone):
        for width, height, at, (left, right, top, bottom), black in planes(now, zone):
            for y in range(height):
                line = now.data[at + y * width:at + (y + 1) * width]
                expected = plain.data[at + y * width:at + (y + 1) * width]
                if top <= y < bottom:
                    expected = expected[:left] + bytes([black]) * (right - left) + expected[right:]
                if line != expected:
                    self.fail(f"{where}: row {y} of the plane at {at}")

    def jpeg(self, where, now, plain, zone, steps, worst):
        """Whole blocks inside are one colour, as near to black as their tables have it; whole
        blocks outside are as they were; cut ones are measured."""
        for width, height, at, (left, right, top, bottom), black in planes(now, zone):
            inner = (-(-left // BLOCK) * BLOCK, right if right == width else right // BLOCK * BLOCK,
                     -(-top // BLOCK) * BLOCK,
                     bottom if bottom == height else bottom // BLOCK * BLOCK)
            outer = (left // BLOCK * BLOCK, -(-right // BLOCK) * BLOCK,
                     top // BLOCK * BLOCK, -(-bottom // BLOCK) * BLOCK)
            colours = set()
            for y in range(height):
                line = now.data[at + y * width:at + (y + 1) * width]
                before = plain.data[at + y * width:at + (y + 1) * width]
                hidden = top <= y < bottom
                if left == right or not outer[2] <= y < outer[3]:
                    self.assertEqual(line, before, where)
                    continue
                self.assertEqual(line[:outer[0]], before[:outer[0]], where)
                self.assertEqual(line[outer[1]:], before[outer[1]:], where)
                if inner[2] <= y < inner[3] and inner[0] < inner[1]:
                    whole = line[inner[0]:inner[1]]
                    colours.update(whole)
                    worst.add(whole=off_by(whole, black))
                    self.assertLessEqual(off_by(whole, black), steps[black == NO_COLOUR] + 1, where)
                worst.add(inside=off_by(line[left:right], black) if hidden else 0,
                          outside=max(apart(line[outer[0]:left], before[outer[0]:left]),
                              apart(line[right:outer[1]], before[right:outer[1]]),
                              0 if hidden else apart(line[left:right], before[left:right])))
            self.assertLessEqual(len(colours), 1, where)

    def lane(self, decoder, hiding, plain, lane, zones):
        folder = tempfile.mkdtemp(dir=self.folder)
        jpeg = lane[0] == JPEG
        clips, sizes = [], []
        for name, database in (("hiding", hiding), ("plain", plain)):
            os.mkdir(os.path.join(folder, name))
            clip, found = clip_of(database, lane, os.path.join(folder, name))
            clips.append(clip)
            sizes.append(found)
        self.assertEqual((sizes[0], len(sizes[0])), (sizes[1], len(zones)), lane)
        worst, hidden, steps = Worst(), 0, None
        if jpeg:
            with open(clips[0], "rb") as film:
                steps = jpeg_steps(film.read(2000))
        for (number, zone), now, before in zip(zones, pictures(decoder(clips[0], jpeg), sizes[0]),
                                               pictures(decoder(clips[1], jpeg), sizes[1]),
                                               strict=True):
            where = f"{decoder.__name__} {lane} frame {number} zone {zone}"
            self.assertEqual(read_code(before, 40 if jpeg else 0), (*lane, number), where)
            hidden += clipped(zone, now.width, now.height) != (0, 0, 0, 0)
            if jpeg:
                self.jpeg(where, now, before, zone, steps, worst)
            else:
                self.h264(where, now, before, zone)
        shutil.rmtree(folder)
        return len(zones), hidden, worst

    def test_are_black_from_the_first_frame_and_change_nothing_else(self):
        cases = []
        for number in FORMATS:
            hiding, text = record(self.folder, "zones", number)
            plain = record(self.folder, "no-zones", number)[0]
            commanded = {}
            for line in text.splitlines():
                stream, channel, frame, *zone = map(int, line.split())
                commanded.setdefault((stream, channel), []).append((frame, tuple(zone)))
            cases += [(decoder, hiding, plain, lane, zones) for decoder in DECODERS
                      for lane, zones in commanded.items()]
        figures = self.at_once(self.lane, cases)
        frames, hidden = (sum(figure[i] for figure in figures) for i in (0, 1))
        self.assertEqual(frames, 2880 * len(DECODERS))
        self.assertEqual(hidden, 2880 * len(DECODERS) * 6 // 16)
        print(f"{len(DECODERS)} decoders: {frames} pictures, {hidden} with a zone; JPEG up to "
              f"{max(f[2].whole for f in figures)} from black in whole blocks, "
              f"{max(f[2].inside for f in figures)} in cut ones, and there "
              f"{max(f[2].outside for f in figures)} from the plain picture around it", flush=True)


if __name__ == "__main__":
    streams.main()
