#!/usr/bin/env python3
"""qmtool verify --decode: frames that are whole on disk and wrong in themselves."""
import clips
from case import clock
from clips import SLOT, ClipCase, pictures, segment, tones
from database import ini_text

SEGMENT_BYTES = 8 << 20


class Decoded(ClipCase):
    def put(self, frames):
        first = min(frames, key=lambda frame: frame.mono)
        made = segment(frames, size=SEGMENT_BYTES, mono=first.mono, utc=first.utc)
        self.folder.write(made, ini=False)
        self.folder.put("db.ini", ini_text(made.identity, SEGMENT_BYTES).encode())

    def decode(self, frames, status, *expected):
        """The lines behind that of the layout."""
        self.put(frames)
        done, lines = self.verify("--decode")
        self.assertEqual(done, status, lines)
        self.assertEqual(lines[-1], expected[-1])
        self.assertEqual(lines[:-2], list(expected[:-1]))
        self.assertTrue(lines[-2].startswith("nothing wrong in 1 segment, "), lines)

    def decoded(self, status):
        return self.json("verify", "--decode", status=status)

    def test_whole(self):
        self.decode(pictures() + pictures(channel=7, stream=2) + pictures(channel=4, stream=5) + tones(),
                    0, "150 pictures: 150 decoded and named right, 0 wrong; 50 frames of sound")
        told = self.decoded(0)
        self.assertEqual((told["wrong_frames"], told["decoded"], told["finding_count"]), ([], {
            "pictures": 150, "fine": 150, "code_covered": 0, "behind_a_gap": 0, "wrong": 0,
            "sounds": 50}, 0))

    def test_without_decoding_nothing_is_told(self):
        frames = pictures(channel=7, stream=2)
        frames[7].number = 70
        self.put(frames)
        self.assert_whole()

    def test_a_wrong_number(self):
        for stream, name in ((0, "main"), (2, "JPEG")):
            frames = pictures(channel=7, stream=stream)
            frames[25].number = 70
            self.decode(
                frames, 1, f"record 25, {name} channel 7, frame 70, {clock(25 * SLOT)}: its picture is "
                f"that of stream {stream}, channel 7, frame 25",
                "50 pictures: 49 decoded and named right, 1 wrong; 0 frames of sound")
            self.assertEqual(self.decoded(1)["wrong_frames"], [
                {"record": 25, "stream": name, "channel": 7, "frame": 70,
                 "time": {"utc": clock(25 * SLOT), "us": 1_795_225_589_000_000},
                 "text": f"its picture is that of stream {stream}, channel 7, frame 25"}])

    def test_a_wrong_channel_and_stream(self):
        frames = pictures(channel=7, stream=5, count=1)
        frames[0].channel, frames[0].stream = 6, 4
        self.decode(frames, 1, f"record 0, third channel 6, frame 0, {clock(0)}: its picture is that of "
                    "stream 5, channel 7, frame 0",
                    "1 picture: 0 decoded and named right, 1 wrong; 0 frames of sound")

    def test_a_damaged_p_frame(self):
        frames = pictures()
        frames[23].payload = frames[23].payload[:-12] + b"\xff" * 12
        self.put(frames)
        done, lines = self.verify("--decode")
        self.assertEqual((done, len(lines)), (1, 3), lines)
        self.assertTrue(lines[0].startswith(f"record 23, main channel 3, frame 23, "
                                            f"{clock(23 * SLOT)}: "), lines)
        self.assertEqual(lines[2], "50 pictures: 43 decoded and named right, 6 behind a gap, before a "
                                   "key frame, 1 wrong; 0 frames of sound")

    def test_a_missing_frame(self):
        self.decode([frame for frame in pictures() if frame.number != 34], 0,
                    "49 pictures: 44 decoded and named right, 5 behind a gap, before a key frame, "
                    "0 wrong; 0 frames of sound")
        self.assertEqual(self.decoded(0)["decoded"]["behind_a_gap"], 5)

    def test_a_number_that_was_never_coded(self):
        # The encoder passed a slot over: the pictures go on without it.
        frames = pictures(count=5) + pictures(first=6, count=5)
        self.decode(frames, 0, "10 pictures: 10 decoded and named right, 0 wrong; 0 frames of sound")

    def test_a_recording_that_begins_between_key_frames(self):
        self.decode(pictures()[4:], 0, "46 pictures: 40 decoded and named right, 6 behind a gap, before "
                    "a key frame, 0 wrong; 0 frames of sound")

    def test_a_damaged_jpeg(self):
        frames = pictures(stream=2)
        frames[9].payload = frames[9].payload[:400]
        self.put(frames)
        done, lines = self.verify("--decode")
        self.assertEqual((done, len(lines)), (1, 3), lines)
        self.assertTrue(lines[0].startswith(f"record 9, JPEG channel 3, frame 9, {clock(9 * SLOT)}: "))
        self.assertEqual(lines[2], "50 pictures: 49 decoded and named right, 1 wrong; 0 frames of sound")

    def test_sound_of_another_length(self):
        frames = tones()
        frames[3].payload = frames[3].payload[:-1]
        self.decode(frames, 1, f"record 3, audio channel 3, frame 3, {clock(3 * SLOT)}: its sound has 319 "
                    "bytes, not 320",
                    "0 pictures: 0 decoded and named right, 1 wrong; 50 frames of sound")

    def test_a_covered_code_is_no_error(self):
        # Too small for a block code.
        self.decode(pictures(size=(160, 96)), 0, "50 pictures: 0 decoded and named right, 50 decoded, "
                    "the block code is covered, 0 wrong; 0 frames of sound")

    def test_a_thousand_lines_then_a_count(self):
        frames = tones(count=1002)
        for frame in frames:
            frame.payload = b"x"
        self.put(frames)
        done, lines = self.verify("--decode")
        self.assertEqual((done, len(lines)), (1, 1003))
        self.assertTrue(lines[0].endswith(": its sound has 1 byte, not 320"), lines[0])
        self.assertEqual(lines[1000], "and 2 more")
        self.assertEqual(len(self.decoded(1)["wrong_frames"]), 1000)


if __name__ == "__main__":
    clips.main()
