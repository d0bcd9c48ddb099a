#!/usr/bin/env python3
"""Holds the films, sounds and pictures that qmtool export writes to what was recorded."""
import hashlib
import json
import os
import struct

import clips
from clips import SLOT, ClipCase, box, boxes, made, nal_units, pictures, segment, tones
from database import T0, Frame, crc32c

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
        nothing, no_key = ("there is nothing of it in this span",
                           "there is no key frame of it in this span or before it")
        for name, words, stream, channel, why in (
                ("a.mov", ("--from", "+5"), "main", 3, nothing),
                ("a.mov", ("--to", "2026-11-21T01:46:28"), "main", 3, nothing),
                ("a.mov", (), "main", 5, no_key), ("a.mov", (), "dual", 3, no_key),
                ("a.wav", (), "audio", 5, nothing), ("a.wav", ("--from", "+5"), "audio", 3, nothing)):
            self.assertEqual(self.refused(name, *words, stream=stream, channel=channel),
                             f"qmtool: {self.folder.ini}: {why}\n")

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
                ("new/", "main", (), "a folder takes --stream JPEG"),
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
