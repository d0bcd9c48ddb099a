"""What the tests of exports share: frames as the board makes them, in databases written by hand,
and what other programs find in the files that were made of them. The second argument of such a
test script is the program that makes the frames."""
import functools
import json
import os
import shutil
import struct
import subprocess
import sys

import case
from case import PATIENCE, Case
from database import AUDIO, IDR, JPEG, P, Frame, Segment

MAKER = "build/release/tests/made_frames"
SLOT = 40_000  # microseconds from frame to frame


@functools.lru_cache(maxsize=None)
def made(kind, stream, channel, size=(352, 288), first=0, count=50, key_every=10, fill=0):
    """Frames as a list of (kind, number, bytes)."""
    words = [kind, stream, channel, *size, 25, first, count, key_every, fill]
    out = subprocess.run([MAKER, *map(str, words)], stdout=subprocess.PIPE, check=True,
                         timeout=PATIENCE).stdout
    frames, at = [], 0
    while at < len(out):
        of_kind, number, bytes_ = struct.unpack_from("<BII", out, at)
        frames.append((of_kind, number, out[at + 9:at + 9 + bytes_]))
        at += 9 + bytes_
    return frames


def pictures(channel=3, stream=0, at=0, run=1, step_us=0, jump=0, kind=None, **other):
    """Frames for a database: picture n stands at `at` + n * SLOT, with `jump` at the first."""
    kind = kind or ("jpeg" if stream == 2 else "h264")
    return [Frame(channel, number, at + number * SLOT + jump, of_kind, stream, payload, run, step_us)
            for of_kind, number, payload in made(kind, stream, channel, **other)]


def tones(channel=3, count=50, first=0, at=0, run=1, step_us=0):
    return [Frame(channel, number, at + number * SLOT, AUDIO, 0, payload, run, step_us)
            for _, number, payload in made("tone", 0, channel, first=first, count=count)]


def segment(frames, **other):
    """One finished segment with these frames, in order of their times."""
    other.setdefault("size", 8 << 20)
    made_segment = Segment(**other)
    for frame in sorted(frames, key=lambda one: (one.run, one.mono)):
        made_segment.frame(frame)
    made_segment.commit()
    return made_segment.finish()


def nal_units(data):
    """Of a byte stream whose start codes are 00 00 01; zeros before one belong to none."""
    units = []
    at = data.find(b"\0\0\1")
    while at >= 0:
        following = data.find(b"\0\0\1", at + 3)
        units.append(data[at + 3:following if following >= 0 else len(data)].rstrip(b"\0"))
        at = following
    return units


def boxes(data, first=0, end=None):
    """The boxes between two offsets, as (type, first byte of the content, end)."""
    end = len(data) if end is None else end
    while first < end:
        size, kind = struct.unpack_from(">I4s", data, first)
        head = 8
        if size == 1:
            size, head = struct.unpack_from(">Q", data, first + 8)[0], 16
        yield kind.decode("latin1"), first + head, first + size
        first += size


def box(data, *path):
    """The content of the first box on a path of types."""
    first, end = 0, len(data)
    for kind in path:
        first, end = next((at, to) for of_kind, at, to in boxes(data, first, end) if of_kind == kind)
    return data[first:end]


class ClipCase(Case):
    def setUp(self):
        super().setUp()
        if not shutil.which("ffprobe") or not shutil.which("ffmpeg"):
            self.skipTest("ffmpeg is not installed")
        self.out = os.path.join(self.folder.path, "out")
        os.mkdir(self.out)

    def path(self, name):
        return os.path.join(self.out, name)

    def read(self, name):
        with open(self.path(name), "rb") as content:
            return content.read()

    def export(self, name, *words, stream="main", channel=3, status=0):
        """Standard output of an export; nothing is on standard error."""
        done, out, err = self.run_tool("export", "--channel", str(channel), "--stream", stream, *words,
                                       "-o", self.path(name), self.folder.ini)
        self.assertEqual((done, err), (status, ""), out)
        return out

    def refused(self, name, *words, stream="main", channel=3, status=3):
        """Standard error of an export that is not made; nothing is left of it."""
        before = self.contents()
        done, out, err = self.run_tool("export", "--channel", str(channel), "--stream", stream, *words,
                                       "-o", self.path(name), self.folder.ini)
        self.assertEqual((done, out), (status, ""), err)
        self.assertEqual(self.contents(), before)
        return err

    def contents(self):
        return {os.path.join(at, name): os.stat(os.path.join(at, name)).st_size
                for at, _, names in os.walk(self.out) for name in names}

    def exported(self, name, *words, **other):
        return json.loads(self.export(name, "--json", *words, **other))

    def probe(self, name, entries, *words):
        done = subprocess.run(["ffprobe", "-v", "error", "-of", "json", *words, "-show_entries", entries,
                               self.path(name)], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                              timeout=PATIENCE)
        self.assertEqual(done.stderr, b"")
        return json.loads(done.stdout)

    def decoded(self, name, *words):
        """What ffmpeg decodes, as bytes; it has nothing to say."""
        done = subprocess.run(["ffmpeg", "-v", "error", "-i", self.path(name), *words, "-"],
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=PATIENCE,
                              stdin=subprocess.DEVNULL)
        self.assertEqual((done.returncode, done.stderr), (0, b""))
        return done.stdout

    def frame_sums(self, name, *words):
        """Of each decoded picture the time in the film, and the sum of its samples."""
        text = self.decoded(name, "-map", "0:v:0", "-fps_mode", "passthrough",
                            "-enc_time_base", "1:90000", *words, "-f", "framemd5").decode()
        rows = [row.split(",") for row in text.splitlines() if not row.startswith("#")]
        return [(int(row[2]), row[5].strip()) for row in rows]


def main():
    global MAKER
    MAKER = os.path.abspath(sys.argv.pop(2))
    case.main()
