#!/usr/bin/env python3
"""Holds the pictures that qmtool frame writes to what FFmpeg decodes from the recorded bytes."""
import json
import os
import struct
import subprocess
import zlib

import clips
from case import PATIENCE
from clips import ClipCase, made, pictures, segment
from database import Segment

SIZE = (352, 288)
# Signature, three chunks with 13 bytes in the first; zlib's head and sum, five blocks of at most
# 65535 bytes, each with five more; rows with a byte for the filter.
PNG_BYTES = 8 + 3 * 12 + 13 + 2 + 4 + 5 * 5 + 288 * (1 + 3 * 352)


def planes(data, width, height):
    luma, chroma = width * height, width * height // 4
    return data[:luma], data[luma:luma + chroma], data[luma + chroma:luma + 2 * chroma]


def rgb(data, width, height, narrow=True):
    """Of planes, by the formula of ITU-R BT.601 in floating point."""
    y, u, v = planes(data, width, height)
    black, luma_scale, chroma_scale = (16, 255 / 219, 255 / 224) if narrow else (0, 1, 1)
    out = []
    for row in range(height):
        for column in range(width):
            at = row // 2 * (width // 2) + column // 2
            luma = luma_scale * (y[row * width + column] - black)
            blue, red = chroma_scale * (u[at] - 128), chroma_scale * (v[at] - 128)
            for value in (luma + 1.402 * red,
                          luma - (0.114 * 1.772 * blue + 0.299 * 1.402 * red) / 0.587,
                          luma + 1.772 * blue):
                out.append(min(255, max(0, value)))
    return out


def png(data):
    """Width, height and the samples of a PNG file; every checksum is held against zlib's."""
    assert data[:8] == b"\x89PNG\r\n\x1a\n"
    at, chunks = 8, []
    while at < len(data):
        size, kind = struct.unpack_from(">I4s", data, at)
        content = data[at + 8:at + 8 + size]
        assert struct.unpack_from(">I", data, at + 8 + size)[0] == zlib.crc32(kind + content)
        chunks.append((kind, content))
        at += 12 + size
    assert [kind for kind, _ in chunks] == [b"IHDR", b"IDAT", b"IEND"]
    width, height, *rest = struct.unpack(">IIBBBBB", chunks[0][1])
    assert rest == [8, 2, 0, 0, 0]
    raw = zlib.decompress(chunks[1][1])
    row = 1 + 3 * width
    assert len(raw) == row * height and not any(raw[::row])
    return width, height, b"".join(raw[i * row + 1:(i + 1) * row] for i in range(height))


class Frames(ClipCase):
    def setUp(self):
        super().setUp()
        self.folder.write(segment(pictures() + pictures(channel=4, stream=2) + pictures(channel=4)))

    def frame(self, name, *words, channel=3, status=0):
        done, out, err = self.run_tool("frame", "--channel", str(channel), *words, "-o",
                                       self.path(name), self.folder.ini)
        self.assertEqual(done, status, err)
        self.assertEqual(err if status == 0 else out, "")
        return out if status == 0 else err

    def shown(self, name):
        """The number of the frame that --json tells."""
        return json.loads(self.frame(name, "--force", "--json", "--at", self.at))["frame"]

    def plain(self, number, channel=3, suffix="yuv420p"):
        """What FFmpeg shows for a frame, as planes."""
        recorded = b"".join(payload for _, n, payload in made("h264", 0, channel) if n <= number)
        out = subprocess.run(["ffmpeg", "-v", "error", "-f", "h264", "-i", "-", "-f", "rawvideo",
                              "-pix_fmt", suffix, "-"], input=recorded, stdout=subprocess.PIPE,
                             check=True, timeout=PATIENCE).stdout
        return out[-SIZE[0] * SIZE[1] * 3 // 2:]

    def test_a_png_has_the_colours_of_the_picture(self):
        out = self.frame("a.png", "--at", "+1.0")
        self.assertEqual(out, f"{self.path('a.png')}: main channel 3, frame 25, "
                              f"2026-11-21T01:46:29.000Z, 352 x 288, {PNG_BYTES} bytes\n")
        width, height, samples = png(self.read("a.png"))
        self.assertEqual((width, height), SIZE)
        self.assertEqual(len(self.read("a.png")), PNG_BYTES)
        expected = rgb(self.plain(25), *SIZE)
        worst = max(abs(a - b) for a, b in zip(samples, expected))
        self.assertLess(worst, 0.51)
        self.assertGreater(len(set(samples)), 3)  # not of one colour

    def test_a_ppm_has_the_same_samples(self):
        self.frame("a.png", "--at", "+1.0")
        self.frame("a.ppm", "--at", "+1.0")
        head = b"P6\n352 288\n255\n"
        self.assertEqual(self.read("a.ppm"), head + png(self.read("a.png"))[2])

    def test_a_jpeg_of_h264_looks_like_the_picture(self):
        self.frame("a.jpg", "--at", "+1.0")
        found = self.probe("a.jpg", "stream=codec_name,width,height,pix_fmt")["streams"][0]
        self.assertEqual(found, {"codec_name": "mjpeg", "width": 352, "height": 288,
                                 "pix_fmt": "yuvj420p"})
        y, u, v = planes(self.decoded("a.jpg", "-f", "rawvideo"), *SIZE)
        to_y, to_u, to_v = planes(self.plain(25), *SIZE)
        near = [[abs(a - (b - 16) * 255 / 219) for a, b in zip(y, to_y)]]
        near += [[abs(a - 128 - (b - 128) * 255 / 224) for a, b in zip(*both)]
                 for both in ((u, to_u), (v, to_v))]
        for differences in near:
            self.assertLess(sum(differences) / len(differences), 1.5)
            self.assertLess(max(differences), 40)

    def test_a_jpeg_of_a_jpeg_stream_is_the_recorded_file(self):
        self.frame("a.jpg", "--stream", "jpeg", "--at", "2026-11-21T01:46:28.999Z", channel=4)
        self.assertEqual(self.read("a.jpg"), made("jpeg", 2, 4)[24][2])
        self.frame("a.png", "--stream", "jpeg", "--at", "2026-11-21T01:46:28.999Z", channel=4)
        width, height, samples = png(self.read("a.png"))
        self.assertEqual((width, height), SIZE)
        expected = rgb(self.decoded("a.jpg", "-f", "rawvideo"), *SIZE, narrow=False)
        worst = max(abs(a - b) for a, b in zip(samples, expected))
        self.assertLess(worst, 6)  # two decoders differ by some units

    def test_the_picture_is_the_last_one_that_was_due(self):
        for self.at, number in (("+0", 0), ("+0.039999", 0), ("+0.04", 1), ("+0.399999", 9),
                                ("+0.4", 10), ("-0", 49), ("+60", 49)):
            self.assertEqual(self.shown("a.ppm"), number, self.at)

    def test_a_picture_from_before_a_pause_is_told_to_be(self):
        line = (f"{self.path('a.png')}: main channel 3, frame 49, 2026-11-21T01:46:29.960Z, 352 x 288, "
                f"{PNG_BYTES} bytes\n")
        self.assertEqual(self.frame("a.png", "--at", "+2.96"), line)
        self.assertEqual(self.frame("a.png", "--force", "--at", "+2.961"), line +
                         "  1.001 s before the wanted time; between them this channel has no picture\n")
        told = json.loads(self.frame("a.png", "--force", "--json", "--at", "+60"))
        self.assertEqual((told["time"]["utc"], told["wanted"]["utc"]),
                         ("2026-11-21T01:46:29.960Z", "2026-11-21T01:47:28.000Z"))

    def test_the_case_of_an_ending_does_not_count(self):
        for name, start in (("a.PNG", b"\x89PNG"), ("a.Jpeg", b"\xff\xd8"), ("a.JPG", b"\xff\xd8"),
                            ("a.pPm", b"P6\n")):
            self.frame(name, "--at", "+1")
            self.assertEqual(self.read(name)[:len(start)], start)

    def test_a_file_that_is_there_stays(self):
        with open(self.path("a.png"), "w") as out:
            out.write("mine")
        err = self.frame("a.png", "--at", "+1", status=3)
        self.assertIn(self.path("a.png"), err)
        self.assertEqual(self.read("a.png"), b"mine")
        self.frame("a.png", "--at", "+1", "--force")
        self.assertEqual(png(self.read("a.png"))[:2], SIZE)
        self.assertEqual(os.listdir(self.out), ["a.png"])

    def test_what_cannot_be_shown_leaves_no_file(self):
        start = f"qmtool: {self.folder.ini}: "
        self.assertEqual(self.frame("a.png", "--at", "2026-11-21T01:46:27.9", status=3),
                         start + "main channel 3 shows no picture at 2026-11-21T01:46:27.900Z\n")
        self.assertEqual(self.frame("a.png", "--at", "+1", "--stream", "third", status=3),
                         start + "third channel 3 shows no picture at 2026-11-21T01:46:29.000Z\n")
        self.assertIn(".jpg, .png or .ppm", self.frame("a.gif", "--at", "+1", status=2))
        self.assertIn("--at", self.frame("a.png", "--at", "noon", status=2))
        self.frame("no/a.png", "--at", "+1", status=3)
        self.assertEqual(os.listdir(self.out), [])

    def test_behind_a_lost_frame_there_is_no_picture_up_to_the_next_key_frame(self):
        self.folder.write(segment([frame for frame in pictures() if frame.number != 14]))
        for self.at, number in (("+0.52", 13), ("+0.56", 13), ("+0.8", 20)):
            self.assertEqual(self.shown("a.png"), number, self.at)
        os.remove(self.path("a.png"))
        self.assertIn("main channel 3 has no picture at 2026-11-21T01:46:28.640Z that can be decoded: "
                      "frames before it are missing", self.frame("a.png", "--at", "+0.64", status=3))
        self.assertEqual(os.listdir(self.out), [])

    def test_a_frame_that_cannot_be_read_is_no_older_picture(self):
        recorded = Segment(size=8 << 20)
        for channel, stream in ((3, 0), (4, 2)):
            for picture in pictures(channel=channel, stream=stream, jump=(channel - 3) * 10_000_000):
                offset = recorded.frame(picture)
                if picture.number == 14:
                    recorded.data[offset + 60] ^= 1
                if picture.number % 10 == 9:
                    recorded.commit()
        self.folder.write(recorded.finish())
        for words, channel, start, following in (((), 3, 0, (20, 29)),
                                                 (("--stream", "jpeg"), 4, 10, (15, 29))):
            for number in (12, 13, *following):
                told = json.loads(self.frame("a.png", "--force", "--json", *words, "--at",
                                             f"+{start + number / 25}", channel=channel))
                self.assertEqual(told["frame"], number)
            os.remove(self.path("a.png"))
            for at in ("0.56", "0.58", *(("0.6", "0.76") if channel == 3 else ())):
                err = self.frame("a.png", *words, "--at", f"+{start + float(at)}", channel=channel,
                                 status=3)
                self.assertIn("Z that can be decoded: frames before it are missing\n", err)
            self.assertEqual(os.listdir(self.out), [])

    def test_a_damaged_frame_is_told(self):
        frames = pictures()
        frames[12].payload = frames[12].payload[:-12] + b"\xff" * 12
        self.folder.write(segment(frames))
        told = [self.frame("a.png", "--at", at, status=3) for at in ("+0.48", "+0.56")]
        for err, second in zip(told, ("28.480", "28.560")):
            self.assertIn(f"main channel 3 has no picture at 2026-11-21T01:46:{second}Z that can be "
                          "decoded: ", err)
        self.assertEqual(told[0].split("decoded: ")[1], told[1].split("decoded: ")[1])
        self.assertNotIn("are missing", told[0])
        self.at = "+0.47"
        self.assertEqual(self.shown("a.png"), 11)


if __name__ == "__main__":
    clips.main()
