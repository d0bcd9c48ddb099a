#!/usr/bin/env python3
"""Other decoders on what was recorded: FFmpeg and GStreamer decode every frame of a matrix of
settings, exported by qmtool, without a message, and their pictures are ours.

Usage: decoders_test.py QMTOOL RECORDED_STREAMS STREAM_DIGEST
"""
import concurrent.futures
import os
import random
import shutil
import subprocess
import sys
import tempfile
import unittest

QMTOOL, STREAMS, DIGEST = "", "", ""
ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
NAMES = ("main", "dual", "JPEG", "preview", "third", "fourth")
JPEG = 2
CHANNELS = range(16)
FORMATS = {"NTSC": "0", "PAL": "1"}
PATIENCE = 300
LEAST_FRAMES = 10_000
SPANS = 1000
TAIL = ("!", "video/x-raw,format=I420", "!", "fdsink", "fd=1", "sync=false")


def run(*words, **other):
    return subprocess.run(words, check=False, stdin=subprocess.DEVNULL, timeout=PATIENCE,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, **other)


class Matrix(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix="qm-decoders-")
        cls.databases = {}
        for name, number in FORMATS.items():
            path = os.path.join(cls.folder, name, "db.ini")
            os.mkdir(os.path.dirname(path))
            made = run(STREAMS, "make", path, number)
            assert made.returncode == 0, made.stderr
            cls.databases[name] = path

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.folder)

    def export(self, database, stream, channel, ending, *words):
        output = os.path.join(os.path.dirname(database), f"{stream}-{channel}{ending}")
        done = run(QMTOOL, "export", "--channel", str(channel), "--stream", NAMES[stream], *words,
                   "--force", "-o", output, database)
        self.assertEqual((done.returncode, done.stderr), (0, b""), (stream, channel))
        return output

    def check(self, database, stream, channel, decoder):
        """What `decoder` writes goes straight into the comparison. The figures of that."""
        decoding = subprocess.Popen(decoder, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                    stdin=subprocess.DEVNULL)
        checked = subprocess.run([STREAMS, "check", database, str(stream), str(channel)],
                                 stdin=decoding.stdout, check=False, timeout=PATIENCE,
                                 stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        decoding.stdout.close()
        message = decoding.stderr.read().decode()
        decoding.stderr.close()
        status = decoding.wait(timeout=PATIENCE)
        where = (database, stream, channel, decoder[0])
        self.assertEqual(checked.returncode, 0, (where, checked.stderr, message))
        self.assertEqual((status, message), (0, ""), where)
        return [int(word) for word in checked.stdout.split()]

    def check_all(self, check_one, least):
        lanes = [(database, stream, channel) for database in self.databases.values()
                 for stream in range(len(NAMES)) for channel in CHANNELS]
        with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
            figures = list(pool.map(lambda lane: check_one(*lane), lanes))
        frames, codes, hidden = (sum(figure[i] for figure in figures) for i in range(3))
        self.assertEqual(frames, codes + hidden)
        self.assertGreaterEqual(codes, least)
        print(f"{frames} pictures without a message, {codes} block codes right, {hidden} below a "
              f"zone, differences of at most {max(figure[3] for figure in figures)}", flush=True)

    def ffmpeg(self, database, stream, channel):
        # A film where the stream keeps its size, bare access units where it changes.
        ending = ".mov" if stream == JPEG or channel % 2 == 0 else ".h264"
        clip = self.export(database, stream, channel, ending)
        layout = "yuvj420p" if stream == JPEG else "yuv420p"
        figures = self.check(database, stream, channel,
                             ["ffmpeg", "-v", "warning", "-xerror", "-probesize", "50M", "-i", clip,
                              "-autoscale", "0",
                              "-map", "0:v", "-fps_mode", "passthrough", "-f", "rawvideo",
                              "-pix_fmt", layout, "-"])
        os.remove(clip)
        return figures

    def gstreamer(self, database, stream, channel):
        if stream == JPEG:
            folder = self.export(database, stream, channel, "/")
            clip = folder.rstrip("/") + ".mjpeg"
            with open(clip, "wb") as film:
                for name in sorted(os.listdir(folder)):
                    with open(os.path.join(folder, name), "rb") as picture:
                        film.write(picture.read())
            shutil.rmtree(folder)
            decoder = ("jpegparse", "!", "jpegdec", "idct-method=islow")
        else:
            clip = self.export(database, stream, channel, ".h264")
            decoder = ("h264parse", "!", "openh264dec")
        figures = self.check(database, stream, channel,
                             ["gst-launch-1.0", "-q", "--gst-debug=*:2,basesrc:1",
                              "--gst-debug-no-color", "filesrc", "location=" + clip, "!", *decoder,
                              *TAIL])
        os.remove(clip)
        return figures

    @unittest.skipUnless(shutil.which("ffmpeg"), "ffmpeg is not installed")
    def test_ffmpeg_decodes_every_frame_as_we_do(self):
        self.check_all(self.ffmpeg, LEAST_FRAMES)

    @unittest.skipUnless(shutil.which("gst-launch-1.0") and
                         run("gst-inspect-1.0", "openh264dec").returncode == 0,
                         "GStreamer with openh264 is not installed")
    def test_gstreamer_decodes_every_frame_as_we_do(self):
        self.check_all(self.gstreamer, LEAST_FRAMES)


class Spans(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="qm-spans-")
        self.addCleanup(shutil.rmtree, self.folder)

    def test_exports_begin_and_end_exactly_where_they_are_asked_to(self):
        database = os.path.join(self.folder, "db.ini")
        self.assertEqual(run(STREAMS, "make", database, "0").returncode, 0)
        lanes = {}
        for line in run(STREAMS, "list", database).stdout.splitlines():
            stream, channel, number, time, key = map(int, line.split())
            lanes.setdefault((stream, channel), []).append((time, number, key))
        start = min(frames[0][0] for frames in lanes.values())
        # Those whose block codes can be read: without a zone.
        usable = [lane for lane in lanes if lane[0] != JPEG and
                  (lane[0] * 16 + lane[1]) % 6 in (0, 3, 5)]
        dice = random.Random(11)
        cases = []
        for i in range(SPANS):
            lane = dice.choice(usable)
            frames = lanes[lane]
            first = dice.randrange(len(frames))
            last = dice.randrange(first, len(frames))
            cases.append((i, lane, frames, first, last))
        with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
            wrong = [text for text in pool.map(
                lambda case: self.span(database, start, *case), cases) if text]
        self.assertEqual(wrong, [])

    def span(self, database, start, i, lane, frames, first, last):
        """Empty, or what is wrong with the export from frame `first` to frame `last` of a lane."""
        output = os.path.join(self.folder, f"{i}.h264")
        begins, ends = frames[first][0] - start, frames[last][0] + 1 - start
        done = run(QMTOOL, "export", "--channel", str(lane[1]), "--stream", NAMES[lane[0]],
                   "--from", f"+{begins / 1e6:.6f}", "--to", f"+{ends / 1e6:.6f}", "-o", output,
                   database)
        if done.returncode != 0:
            return f"{lane} {first} {last}: {done.stderr.decode()}"
        key = max(k for k in range(first + 1) if frames[k][2])
        found = run(STREAMS, "ends", output).stdout.split()
        os.remove(output)
        right = [last - key + 1, frames[key][1], frames[last][1]]
        return "" if [int(word) for word in found] == right else \
            f"{lane}: frames {right} were asked for, {found} are there"


class Bytes(unittest.TestCase):
    def test_are_the_same_twice_and_with_words_of_32_bits(self):
        digest = run(DIGEST).stdout
        self.assertIn(b" of 12020 pictures", digest)
        self.assertEqual(run(DIGEST).stdout, digest)
        with tempfile.TemporaryDirectory() as folder:
            probe = os.path.join(folder, "probe")
            with open(probe + ".cpp", "w", encoding="ascii") as source:
                source.write("#include <vector>\nint main() {}\n")
            if run("g++", "-m32", probe + ".cpp", "-o", probe).returncode != 0:
                self.skipTest("g++ cannot build for 32 bits here: install g++-multilib")
            program = os.path.join(folder, "digest")
            video = os.path.join(ROOT, "sdk", "video")
            sources = [os.path.join(video, name) for name in sorted(os.listdir(video))
                       if name.endswith(".cpp")]
            built = run("g++", "-m32", "-std=c++20", "-O1", "-I", ROOT, *sources,
                        os.path.join(ROOT, "sdk/board/encoder_channel.cpp"),
                        os.path.join(ROOT, "sdk/board/rate_control.cpp"),
                        os.path.join(ROOT, "tests/sdk/programs/stream_digest.cpp"), "-o", program)
            self.assertEqual(built.returncode, 0, built.stderr.decode())
            self.assertEqual(run(program).stdout, digest)


if __name__ == "__main__":
    QMTOOL, STREAMS, DIGEST = (os.path.abspath(word) for word in sys.argv[1:4])
    unittest.main(argv=sys.argv[:1] + sys.argv[4:], verbosity=2)
