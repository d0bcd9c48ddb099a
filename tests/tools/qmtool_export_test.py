#!/usr/bin/env python3
"""Holds the films, sounds and pictures that qmtool export writes to what was recorded."""
import hashlib
import json
import os
import struct

import clips
from case import clock
from clips import SLOT, ClipCase, box, boxes, made, nal_units, pictures, segment, tones
from database import T0, Frame, Segment, crc32c

TICKS = SLOT * 9 // 100  # of a film, from frame to frame


class Films(ClipCase):
    def setUp(self):
        super().setUp()
        self.folder.write(segment(pictures() + tones() + pictures(channel=4) + tones(channel=4)))

    def test_a_film_has_every_frame_at_its_time(self):
        for name in ("a.mov", "a.MP4"):
            self.export(name)
            found = self.probe(name, "stream=codec_name,width,height,nb_frames,time_base,duration")
            self.assertEqual(found["streams"], [
                {"codec_name": "h264", "width": 352, "height": 288, "time_base": "1/90000",
                 "duration": "2.000000", "nb_frames": "50"},
                {"codec_name": "pcm_mulaw", "time_base": "1/8000", "duration": "2.000000",
                 "nb_frames": "16000"}])
            packets = self.probe(name, "packet=pts,dts,flags", "-select_streams", "v")["packets"]
            self.assertEqual([(one["pts"], one["dts"]) for one in packets],
                             [(n * TICKS, n * TICKS) for n in range(50)])
            self.assertEqual([n for n, one in enumerate(packets) if "K" in one["flags"]],
                             [0, 10, 20, 30, 40])

    def test_the_pictures_are_those_of_the_recorded_bytes(self):
        with open(self.path("plain.h264"), "wb") as out:
            out.write(b"".join(payload for _, _, payload in made("h264", 0, 3)))
        expected = [md5 for _, md5 in self.frame_sums("plain.h264")]
        self.assertEqual(len(set(expected)), 50)
        for name in ("a.mov", "a.mp4"):
            self.export(name)
            self.assertEqual(self.frame_sums(name),
                             [(n * TICKS, md5) for n, md5 in enumerate(expected)])

    def test_the_sound_is_the_recorded_one(self):
        expected = b"".join(payload for _, _, payload in made("tone", 0, 3))
        for name in ("a.mov", "a.mp4"):
            self.export(name)
            self.assertEqual(self.decoded(name, "-map", "0:a", "-c", "copy", "-f", "mulaw"), expected)

    def test_samples_hold_the_slices_and_nothing_else(self):
        self.folder.write(segment(pictures(fill=3000)))
        self.export("a.mp4")
        data = self.read("a.mp4")
        samples = next((at, end) for kind, at, end in boxes(data) if kind == "mdat")
        units, at = [], samples[0]
        while at < samples[1]:
            size = struct.unpack_from(">I", data, at)[0]
            units.append(data[at + 4:at + 4 + size])
            at += 4 + size
        recorded = [unit for _, _, payload in made("h264", 0, 3, fill=3000)
                    for unit in nal_units(payload)]
        self.assertIn(12, [unit[0] & 31 for unit in recorded])
        self.assertEqual(units, [unit for unit in recorded if unit[0] & 31 in (1, 5)])

    def test_a_span_begins_at_the_key_frame_and_shows_what_was_asked_for(self):
        out = self.export("a.mov", "--from", "2026-11-21T01:46:28.5", "--to", "2026-11-21 01:46:29.4Z")
        self.assertEqual(out.splitlines()[1:5], [
            "  from   2026-11-21T01:46:28.520Z", "  to     2026-11-21T01:46:29.360Z",
            "  starts at the key frame of 2026-11-21T01:46:28.400Z, 0.120 s before the wanted start; "
            "players skip that", "  sound  0.880 s"])
        self.export("whole.mov")
        expected = [md5 for _, md5 in self.frame_sums("whole.mov")]
        self.assertEqual(self.frame_sums("a.mov"),
                         [(n * TICKS, expected[13 + n]) for n in range(22)])
        self.assertEqual(self.decoded("a.mov", "-map", "0:a", "-c", "copy", "-f", "mulaw"),
                         b"".join(payload for _, _, payload in made("tone", 0, 3))[13 * 320:35 * 320])
        movie = self.read("a.mov")
        self.assertEqual(box(movie, "moov", "trak", "edts", "elst"),
                         struct.pack(">IIIiI", 0, 1, 22 * TICKS, 3 * TICKS, 1 << 16))

    def test_sound_begins_with_the_pictures_to_the_sample(self):
        self.folder.write(segment(pictures() + tones(at=15_000)))
        for name, words, edits in (
                # Sound of 28.495 on is heard 25 ms later; that of 28.015 on has to wait.
                ("a.mov", ("--from", "+0.52", "--to", "+1"), [(43_200, 200)]),
                ("b.mov", (), [(1350, -1), (178_650, 0)])):
            self.export(name, *words)
            movie = box(self.read(name), "moov")
            sound = [movie[at:end] for kind, at, end in boxes(movie) if kind == "trak"][1]
            self.assertEqual(box(sound, "edts", "elst"), struct.pack(">II", 0, len(edits)) + b"".join(
                struct.pack(">Iii", *edit, 1 << 16) for edit in edits))

    def test_the_film_says_when_it_was_recorded(self):
        seconds = T0 // 1_000_000 + 2_082_844_800
        for name, path in (("a.mov", ("moov", "udta", "\xa9day")), ("a.mp4", ("moov", "udta"))):
            self.export(name, "--from", "+1.02")
            data = self.read(name)
            self.assertEqual(struct.unpack_from(">II", box(data, "moov", "mvhd"), 4),
                             (seconds + 1, seconds + 1))
            self.assertIn(b"2026-11-21T01:46:29.040Z", box(data, *path))
            found = self.probe(name, "format_tags=date,creation_time")["format"]["tags"]
            self.assertEqual(found, {"creation_time": "2026-11-21T01:46:29.000000Z",
                                     "date": "2026-11-21T01:46:29.040Z"})

    def test_times_relative_to_the_ends(self):
        for words, frames in ((("--from", "+0.4", "--to", "+0.6"), 5), (("--from", "-0.16"), 5),
                              (("--to", "+0.000001"), 1), (("--from", "-0"), 1)):
            told = self.exported("a.mov", "--force", *words)
            self.assertEqual(told["frames"] - told["frames_before_start"], frames, words)

    def test_nothing_in_the_span_is_3_and_no_file(self):
        nothing = "has nothing in this span"
        no_key = "has no readable key frame; qmtool list tells what was recorded"
        for name, words, stream, channel, why in (
                ("a.mov", ("--from", "+5"), "main", 3, nothing),
                ("a.mov", ("--to", "2026-11-21T01:46:28"), "main", 3, nothing),
                ("a.mov", (), "main", 5, no_key), ("a.mov", (), "dual", 3, no_key),
                ("a.wav", (), "audio", 5, nothing), ("a.wav", ("--from", "+5"), "audio", 3, nothing)):
            self.assertEqual(self.refused(name, *words, stream=stream, channel=channel),
                             f"qmtool: {self.folder.ini}: {stream} channel {channel} {why}\n")

    def test_it_is_not_written_over(self):
        with open(self.path("a.mov"), "wb") as out:
            out.write(b"precious")
        for words in ((), ("--json",)):
            done, _, err = self.run_tool("export", "--channel", "3", "--stream", "main", *words, "-o",
                                         self.path("a.mov"), self.folder.ini)
            self.assertEqual((done, err), (3, f"qmtool: {self.path('a.mov')}: there is such a file "
                                              "already; --force replaces it\n"))
        self.assertEqual(self.read("a.mov"), b"precious")
        self.export("a.mov", "--force")
        self.assertEqual(len(self.frame_sums("a.mov")), 50)
        self.assertEqual(os.listdir(self.out), ["a.mov"])

    def test_json_says_the_same(self):
        told = self.exported("a.mov", "--from", "+0.5", "--to", "+1.5")
        self.assertEqual(told["key_frame"], {"utc": "2026-11-21T01:46:28.400Z", "us": T0 + 400_000})
        self.assertEqual(told["start"]["us"], T0 + 520_000)
        self.assertEqual(told["last"]["us"], T0 + 1_480_000)
        self.assertEqual((told["frames"], told["frames_before_start"]), (28, 3))
        self.assertEqual((told["duration_us"], told["sound_us"]), (1_000_000, 1_000_000))
        self.assertEqual((told["gap_count"], told["loss_count"], told["gaps"]), (0, 0, []))
        self.assertEqual(told["bytes"], os.path.getsize(self.path("a.mov")))


class OtherFiles(ClipCase):
    def test_h264_is_what_was_recorded(self):
        self.folder.write(segment(pictures(stream=1) + tones()))
        self.export("a.h264", "--from", "+0.5", "--to", "+1.5", stream="dual")
        recorded = [payload for _, _, payload in made("h264", 1, 3)]
        self.assertEqual(self.read("a.h264"), b"".join(recorded[10:38]))

    def test_a_wave_file(self):
        self.folder.write(segment(pictures() + tones(count=51)))
        self.export("a.wav", "--from", "+0.4", stream="audio")
        sound = b"".join(payload for _, _, payload in made("tone", 0, 3, count=51))[10 * 320:]
        self.assertEqual(self.read("a.wav"),
                         b"RIFF" + struct.pack("<I", 50 + len(sound)) + b"WAVEfmt " +
                         struct.pack("<IHHIIHHH", 18, 7, 1, 8000, 8000, 1, 8, 0) +
                         b"fact" + struct.pack("<II", 4, len(sound)) +
                         b"data" + struct.pack("<I", len(sound)) + sound)
        self.assertEqual(self.decoded("a.wav", "-c", "copy", "-f", "mulaw"), sound)

    def test_missing_sound_is_silence(self):
        holes = [*range(10, 13), *range(20, 120), *range(130, 180)]
        heard = [tone for tone in tones(count=200) if tone.number not in holes]
        self.folder.write(segment(heard))
        out = self.export("a.wav", stream="audio")
        self.assertIn("\n  6.120 s of the sound is silence, where none was recorded\n", out)
        sound = b"".join(b"\xff" * 320 if number in holes else payload
                         for _, number, payload in made("tone", 0, 3, count=200))
        self.assertEqual(self.read("a.wav")[58:], sound)

        self.folder.write(segment(heard + pictures(count=200)))
        for name in ("a.mov", "a.mp4"):
            self.export(name)
            self.assertEqual(self.decoded(name, "-map", "0:a", "-c", "copy", "-f", "mulaw"), sound)
            self.assertEqual(self.read(name).count(b"\xff" * 8000), 1)  # one second stands for all

    def test_pictures_in_a_folder(self):
        self.folder.write(segment(pictures(stream=2, count=5, first=123)))
        for name in ("new/", "."):
            self.export(name, stream="jpeg")
        names = [f"frame-{number:010d}.jpg" for number in range(123, 128)]
        self.assertEqual(sorted(os.listdir(self.path("new"))), names)
        self.assertEqual(sorted(os.listdir(self.out)), names + ["new"])
        for (_, number, payload), name in zip(made("jpeg", 2, 3, first=123, count=5), names):
            us = (T0 + number * SLOT) % 60_000_000
            comment = f"recorded 2026-11-21T01:46:{us // 1_000_000:02d}.{us % 1_000_000:06d}Z".encode()
            at = payload.index(b"\xff\xfe")
            at += 2 + struct.unpack_from(">H", payload, at + 2)[0]
            self.assertEqual(self.read(name), payload[:at] + b"\xff\xfe" +
                             struct.pack(">H", 2 + len(comment)) + comment + payload[at:])
            self.assertEqual(self.decoded(name, "-f", "rawvideo"),
                             self.decoded(os.path.join("new", name), "-f", "rawvideo"))
        done, _, err = self.run_tool("export", "--channel", "3", "--stream", "JPEG", "-o", self.out,
                                     self.folder.ini)
        self.assertEqual((done, err), (3, f"qmtool: {self.out}: {names[0]} is there already; --force "
                                          "replaces it\n"))
        self.export(".", "--force", stream="jpeg")

    def test_frame_numbers_that_begin_again_get_names_of_their_own(self):
        self.folder.write(segment(pictures(stream=2, count=3) +
                                  pictures(stream=2, count=2, at=60_000_000, run=2)))
        self.export("new/", stream="jpeg")
        self.assertEqual(sorted(os.listdir(self.path("new"))),
                         ["frame-0000000000-2.jpg", "frame-0000000000.jpg", "frame-0000000001-2.jpg",
                          "frame-0000000001.jpg", "frame-0000000002.jpg"])

    def test_jpeg_in_a_film(self):
        self.folder.write(segment(pictures(stream=2, count=20) + tones(count=20)))
        for name, tag in (("a.mov", "jpeg"), ("a.mp4", "mp4v")):
            self.export(name, stream="JPEG")
            found = self.probe(name, "stream=codec_name,codec_tag_string,nb_frames,width")["streams"][0]
            self.assertEqual(found, {"codec_name": "mjpeg", "codec_tag_string": tag, "width": 352,
                                     "nb_frames": "20"})
            self.assertEqual(self.decoded(name, "-map", "0:v", "-c", "copy", "-f", "rawvideo"),
                             b"".join(payload for _, _, payload in made("jpeg", 2, 3, count=20)))
            self.assertEqual([at for at, _ in self.frame_sums(name)], [n * TICKS for n in range(20)])

    def test_a_manifest_tells_of_every_record(self):
        self.folder.write(segment(pictures(count=20) + tones(count=20)))
        self.export("a.mov", "--manifest", "--from", "+0.48")
        told = json.loads(self.read("a.mov.manifest.json"))
        data = self.read("a.mov")
        self.assertEqual((told["file"], told["stream"], told["channel"], told["bytes"], told["sha256"]),
                         ("a.mov", "main", 3, len(data), hashlib.sha256(data).hexdigest()))
        frames = {("idr" if kind == 0 else "p", number): payload
                  for kind, number, payload in made("h264", 0, 3, count=20)}
        expected = []
        for n in range(10, 20):
            kind = "idr" if n == 10 else "p"
            expected.append((2 * n, kind, n, n, frames[kind, n]))
            if n >= 12:
                expected.append((2 * n + 1, "audio", n, n, made("tone", 0, 3, count=20)[n][2]))
        self.assertEqual(
            [(one["record"], one["kind"], one["number"], one["time"]["us"], one["bytes"], one["crc32c"])
             for one in told["records"]],
            [(record, kind, number, T0 + slot * SLOT, len(payload), f"{crc32c(payload):08x}")
             for record, kind, number, slot, payload in expected])

    def test_a_manifest_of_a_folder_has_every_file(self):
        self.folder.write(segment(pictures(stream=2, count=3)))
        self.export("new/", "--manifest", stream="jpeg")
        told = json.loads(self.read("new.manifest.json"))
        self.assertIsNone(told["sha256"])
        self.assertEqual([(one["file"], one["sha256"]) for one in told["records"]],
                         [(name, hashlib.sha256(self.read("new/" + name)).hexdigest())
                          for name in sorted(os.listdir(self.path("new")))])


class SetBack(ClipCase):
    """The clock was set back by 0.4 s before frame 24, and the recording went on: 20 to 23 and 30 to
    33 have the same times, and key frames are 0, 10, 20, 30 and 40."""
    RUN = "the recording began again, or the clock was set; "

    def write(self, *lanes, broken=(), known=True, **other):
        recorded = Segment(size=8 << 20)
        for both in zip(*(frames(count=24, **other) +
                          frames(count=50, run=2, step_us=-400_000, **other)[24:] for frames in lanes)):
            for frame in both:
                offset = recorded.frame(frame)
                recorded.data[offset + 60] ^= frame.number in broken
            if known and frame.number == 45:
                recorded.commit()  # the directory tells of damaged records before the last batch
        recorded.commit()
        self.folder.write(recorded.finish())

    def gaps(self, out):
        return out.partition("\nGaps\n")[2].splitlines()

    def films(self, frames, *words):
        """What was told; the film shows these frames, and each is the one that was recorded."""
        with open(self.path("plain.h264"), "wb") as out:
            out.write(b"".join(payload for _, _, payload in made("h264", 0, 3)))
        expected = [md5 for _, md5 in self.frame_sums("plain.h264")]
        out = self.export("a.mov", *words, status=1)
        self.assertEqual([md5 for _, md5 in self.frame_sums("a.mov")], [expected[n] for n in frames])
        return self.gaps(out)

    def test_frames_that_refer_to_what_is_behind_the_span_are_left_out(self):
        self.write(pictures)
        lines = self.films([*range(23), 30, 31, 32], "--to", "+0.9")
        self.assertEqual(lines, [
            f"  {clock(22 * SLOT)}  {self.RUN}-0.320 s from frame to frame",
            f"  {clock(14 * SLOT)}  frames 24 to 29 refer to frames outside the span and are left out"])

    def test_frames_before_the_span_are_left_out_in_a_later_run_too(self):
        self.write(pictures)
        lines = self.films([*range(18, 24), *range(30, 50)], "--from", "+0.72")
        self.assertEqual(lines, [
            f"  {clock(23 * SLOT)}  {self.RUN}-0.200 s from frame to frame",
            f"  {clock(18 * SLOT)}  frames 28 to 29 refer to frames outside the span and are left out"])
        told = self.exported("a.mov", "--force", "--manifest", "--from", "+0.72", status=1)
        self.assertEqual((told["frames"], told["frames_before_start"]), (34, 8))
        self.assertEqual([(gap["kind"], gap["first_frame"], gap["frames"]) for gap in told["gaps"]],
                         [("run", 0, 0), ("no_key_frame", 28, 2)])
        records = json.loads(self.read("a.mov.manifest.json"))["records"]
        self.assertTrue(all(one["time"]["us"] >= T0 + 720_000 for one in records[8:]), records)

    def test_the_sound_of_a_film_keeps_to_the_span(self):
        recorded = [payload for _, _, payload in made("tone", 0, 3)]
        for words, heard in ((("--to", "+0.9"), [*range(23), *range(24, 33)]),
                             (("--from", "+0.72"), [*range(18, 24), *range(28, 50)])):
            self.write(pictures, tones)
            self.export("a.mov", "--force", *words, status=1)
            self.assertEqual(self.decoded("a.mov", "-map", "0:a", "-c", "copy", "-f", "mulaw"),
                             b"".join(recorded[n] for n in heard))

    def test_frames_that_refer_to_one_that_cannot_be_read_behind_the_span(self):
        self.write(pictures, broken=(23,))
        lines = self.films([*range(23), 30, 31, 32], "--to", "+0.9")
        self.assertEqual(lines[1:], [
            f"  {clock(14 * SLOT)}  frames 24 to 29 refer to frames outside the span and are left out"])

    def test_a_record_of_the_span_that_is_missing_behind_it(self):
        self.write(pictures, broken=(31,), known=False)
        out = self.export("a.h264", "--to", "+0.9", status=1)
        self.assertEqual(self.gaps(out)[2:], [f"  {clock(20 * SLOT)}  frame 31 cannot be read"])

    def test_the_first_key_frame_that_can_be_read_is_one_of_the_span(self):
        self.write(pictures, broken=(0, 10, 20))
        self.films(range(40, 50), "--from", "+0.9")
        told = self.exported("a.mov", "--force", "--from", "+0.9", status=1)
        self.assertEqual((told["frames"], told["frames_before_start"], told["frames_left_out"]), (10, 0, 8))

    def test_one_frame_that_is_left_out(self):
        self.write(pictures)
        lines = self.films([*range(19, 24), *range(30, 50)], "--from", "+0.76")
        self.assertEqual(lines[1:], [
            f"  {clock(19 * SLOT)}  frame 29 refers to frames outside the span and is left out"])

    def test_of_jpeg_and_of_sound_only_what_is_outside_is_left_out(self):
        for words, frames in ((("--to", "+0.9"), [*range(23), *range(24, 33)]),
                              (("--from", "+0.72"), [*range(18, 24), *range(28, 50)])):
            self.write(pictures, stream=2)
            name = f"new{words[0]}/"
            self.assertEqual(len(self.gaps(self.export(name, *words, stream="jpeg"))), 1)
            self.assertEqual(sorted(os.listdir(self.path(name))),
                             [f"frame-{number:010d}.jpg" for number in frames])
            self.write(tones)
            self.export("a.wav", "--force", *words, stream="audio")
            recorded = [payload for _, _, payload in made("tone", 0, 3)]
            self.assertEqual(self.read("a.wav")[58:], b"".join(recorded[n] for n in frames))


class Codecs(ClipCase):
    """A channel of which the codec was changed between two recordings."""
    RUN = f"  {clock(19 * SLOT)}  the recording began again, or the clock was set; 0.240 s from frame " \
          "to frame"

    def write(self, first, second):
        self.folder.write(segment(pictures(kind=first, count=20) + tones(count=20) +
                                  pictures(kind=second, count=20, at=1_000_000, run=2)))

    def lines(self, name, *words, status=1):
        lines = self.export(name, *words, status=status).partition("\nGaps\n")[2].splitlines()
        return [line for line in lines if "audio: " not in line]

    def codec(self, name):
        return self.probe(name, "stream=codec_name,nb_frames", "-select_streams", "v")["streams"]

    def test_a_clip_is_of_one_codec_and_tells_of_the_other(self):
        h264, jpeg = [{"codec_name": "h264", "nb_frames": "20"}], [{"codec_name": "mjpeg",
                                                                    "nb_frames": "20"}]
        before = [f"  {clock(0)}  frames 0 to 19 are of another codec and left out", self.RUN]
        behind = [self.RUN, f"  {clock(1_000_000)}  frames 0 to 19 are of another codec and left out"]
        recorded = b"".join(payload for _, _, payload in made("h264", 0, 3, count=20))
        for first, second, of_film in (("h264", "jpeg", h264), ("jpeg", "h264", jpeg)):
            self.write(first, second)
            for name in ("a.mov", "a.mp4"):
                self.assertEqual(self.lines(name, "--force"), behind)
                self.assertEqual(self.codec(name), of_film)
                self.assertEqual(len(self.frame_sums(name)), 20)
            self.assertEqual(self.lines("a.h264", "--force"), behind if first == "h264" else before)
            self.assertEqual(self.read("a.h264"), recorded)
            self.assertEqual(self.lines(f"{first}/"), behind if first == "jpeg" else before)
            self.assertEqual(sorted(os.listdir(self.path(first))),
                             [f"frame-{number:010d}.jpg" for number in range(20)])
        told = self.exported("a.mov", "--force", status=1)
        self.assertEqual([(gap["kind"], gap["frames"]) for gap in told["gaps"] if not gap["sound"]],
                         [("run", 0), ("other_codec", 20)])

    def test_the_span_decides(self):
        self.write("h264", "jpeg")
        self.assertEqual(self.lines("a.mov", "--from", "+1", status=0), [])
        self.assertEqual(self.codec("a.mov"), [{"codec_name": "mjpeg", "nb_frames": "20"}])
        self.assertEqual(self.lines("new/", "--from", "+1", status=0), [])
        self.assertEqual(self.lines("a.h264", "--to", "+1", status=0), [])
        start = f"qmtool: {self.folder.ini}: main channel 3 is all "
        self.assertEqual(self.refused("b.h264", "--from", "+1", "--manifest"),
                         start + "JPEG in this span, which goes into a film or a folder\n")
        self.assertEqual(self.refused("b/", "--to", "+1"),
                         start + "H.264 in this span, which goes into a film or a .h264 file\n")
        self.assertFalse(os.path.exists(self.path("b")))

    def test_one_frame_of_the_other_codec(self):
        self.write("h264", "jpeg")
        self.assertEqual(self.lines("a.h264", "--to", "+1.001")[1:],
                         [f"  {clock(1_000_000)}  frame 0 is of another codec and left out"])

    def test_no_picture_begins_before_a_change_of_the_codec(self):
        # The key frame behind the change is missing.
        self.folder.write(segment(pictures(count=20) + pictures(kind="jpeg", count=5, at=1_000_000, run=2) +
                                  pictures(count=20, at=2_000_000, run=3)[1:]))
        out = self.export("a.h264", "--from", "+2", status=1)
        self.assertIn("\n  9 frames are before the first key frame left out\n", out)
        self.assertEqual(self.read("a.h264"), b"".join(payload for _, n, payload in made("h264", 0, 3,
                                                                                        count=20) if n >= 10))


class Usage(ClipCase):
    def test_what_does_not_fit_is_told(self):
        self.folder.write(segment(pictures(count=5)))
        for words, why in (
                (("--channel", "16"), "a channel is a number from 0 to 15, not 16"),
                (("--channel", "3x"), "a channel is a number from 0 to 15, not 3x"),
                (("--channel",), "--channel needs a number behind it"),
                (("--stream", "x"), "a stream is main, dual, JPEG, preview, third, fourth or audio, not x"),
                (("--channel", "3"), "--stream is missing: export needs it"),
                (("--channel", "3", "--stream", "main"), "-o is missing: export needs it"),
        ):
            done, out, err = self.run_tool("export", self.folder.ini, *words)
            self.assertEqual((done, out, err),
                             (2, "", f"qmtool: {why}\nTry: qmtool export --help\n"))
        for name, stream, words, why in (
                ("a.avi", "main", (), "-o takes a name that ends in .mov, .mp4, .h264, .264 or .wav, or a "
                                      "folder"),
                ("a.wav", "main", (), "a .wav file takes --stream audio"),
                ("a.mov", "audio", (), "--stream audio goes into a .wav file"),
                ("new/", "audio", (), "--stream audio goes into a .wav file"),
                ("a.264", "jpeg", (), "a .h264 file takes a stream of H.264"),
                ("a.mov", "main", ("--from", "soon"),
                 "--from takes a time as 2026-11-21T01:46:28.5Z, +12.5 or -3 (seconds), not soon"),
                ("a.mov", "main", ("--from", "+1", "--to", "+1"),
                 "--to is not later than --from: nothing lies between them"),
        ):
            self.assertEqual(self.refused(name, *words, stream=stream, status=2),
                             f"qmtool: {why}\nTry: qmtool export --help\n")

    def test_where_it_cannot_be_written(self):
        self.folder.write(segment(pictures(count=5)))
        self.assertEqual(self.refused("none/a.mov"), f"qmtool: {self.path('none/a.mov')}: cannot be "
                                                     "written: No such file or directory\n")


if __name__ == "__main__":
    clips.main()
