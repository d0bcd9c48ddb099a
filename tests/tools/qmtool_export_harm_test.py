#!/usr/bin/env python3
"""What qmtool export makes of recordings with gaps and damage, and what it leaves when it is stopped
or the disk is full."""
import fcntl
import os
import resource
import signal
import struct
import subprocess
import time
import unittest

import clips
from case import PATIENCE, clock, program
from clips import SLOT, ClipCase, box, boxes, made, pictures, segment, tones
from database import IDR, P, Frame, Lock, Segment

TICKS = SLOT * 9 // 100


def gap_lines(out):
    return out.partition("\nGaps\n")[2].splitlines()


class Gaps(ClipCase):
    def test_dropped_frames_are_told_and_time_stays_true(self):
        self.folder.write(segment([one for one in pictures() if one.number not in (14, 31, 32)]))
        out = self.export("a.mov")
        self.assertEqual(gap_lines(out), [
            f"  {clock(13 * SLOT)}  frame 14 was not recorded, 0.080 s",
            f"  {clock(30 * SLOT)}  frames 31 to 32 were not recorded, 0.120 s"])
        packets = self.probe("a.mov", "packet=pts")["packets"]
        self.assertEqual([one["pts"] for one in packets],
                         [n * TICKS for n in range(50) if n not in (14, 31, 32)])

    def test_holes_and_runs_are_told(self):
        late = [Frame(3, one.number, one.mono - Frame().mono + (300_000 if one.number > 20 else 0),
                      one.kind, 0, one.payload) for one in pictures(count=30)]
        self.folder.write(segment(late + pictures(count=20, at=5_000_000, run=2, step_us=1_000_000)))
        out = self.export("a.mov")
        self.assertEqual(gap_lines(out), [
            f"  {clock(20 * SLOT)}  no frame for 0.340 s",
            f"  {clock(29 * SLOT + 300_000)}  the recording began again, or the clock was set; 4.540 s "
            "from frame to frame"])
        packets = self.probe("a.mov", "packet=pts")["packets"]
        self.assertEqual([one["pts"] for one in packets],
                         [n * TICKS + (27_000 if n > 20 else 0) for n in range(30)] +
                         [540_000 + n * TICKS for n in range(20)])

    def test_a_clock_that_was_set_back_does_not_turn_the_film_back(self):
        self.folder.write(segment(pictures(count=20) +
                                  pictures(count=10, at=1_000_000, run=2, step_us=-60_000_000)))
        self.export("a.mp4")
        packets = self.probe("a.mp4", "packet=pts")["packets"]
        self.assertEqual([one["pts"] for one in packets], [n * TICKS for n in range(30)])

    def test_the_sound_behind_a_clock_that_was_set_back(self):
        recorded = Segment(size=8 << 20)
        for run, count in ((1, 20), (2, 10)):
            at, step_us = (run - 1) * 1_000_000, (1 - run) * 60_000_000
            for picture, tone in zip(pictures(count=count, at=at, run=run, step_us=step_us),
                                     tones(count=count, at=at, run=run, step_us=step_us)):
                recorded.frame(picture)
                offset = recorded.frame(tone)
                recorded.data[offset + 60] ^= (run, tone.number) == (2, 4)
        recorded.commit()
        recorded.frame(Frame(5, 0, 2_000_000))
        recorded.commit()
        self.folder.write(recorded.finish())
        self.assertIn("  audio: frame 4 cannot be read", self.export("a.mov", status=1))
        sound = [payload for _, _, payload in clips.made("tone", 0, 3, count=20)]
        sound += [*sound[:4], b"\xff" * 320, *sound[5:10]]
        self.assertEqual(self.decoded("a.mov", "-map", "0:a", "-c", "copy", "-f", "mulaw"), b"".join(sound))

    def test_a_hole_before_the_last_frame(self):
        self.folder.write(segment(pictures(count=20) + pictures(count=21, at=1_000_000)[20:]))
        self.assertEqual(gap_lines(self.export("a.mov")),
                         [f"  {clock(19 * SLOT)}  no frame for 1.040 s"])

    def test_a_night_without_a_recording_is_as_long_as_players_can_count(self):
        night = 10 * 3600 * 1_000_000
        self.folder.write(segment(pictures(count=20) + pictures(count=10, at=night, run=2)))
        self.export("a.mov")
        packets = self.probe("a.mov", "packet=pts")["packets"]
        self.assertEqual(packets[20]["pts"], 19 * TICKS + 6 * 3600 * 90_000)
        self.assertEqual(len(packets), 30)

    def test_pictures_may_pause_longer_than_32_bits_count(self):
        pause = 20 * 3600 * 1_000_000
        sounds = tones(count=1)
        for minute in range(1, 20 * 60):
            sounds += tones(count=1, at=minute * 60_000_000)
        self.folder.write(segment(pictures(count=10) + pictures(count=10, at=pause) + sounds))
        self.export("a.mov")
        found = self.probe("a.mov", "packet=pts_time", "-select_streams", "v:0")["packets"]
        self.assertEqual([float(one["pts_time"]) for one in found],
                         [hours + n / 25 for hours in (0, 20 * 3600) for n in range(10)])

    def test_many_gaps_are_counted(self):
        self.folder.write(segment([one for one in pictures(count=300, key_every=1)
                                   if one.number % 2 == 0]))
        lines = gap_lines(self.export("a.mov"))
        self.assertEqual((len(lines), lines[-1]), (101, "  and 49 more"))
        self.assertEqual(self.exported("a.mov", "--force")["gap_count"], 149)

    def test_another_size_has_a_description_of_its_own(self):
        small = pictures(count=20)
        large = pictures(size=(704, 576), first=20, count=20)
        again = pictures(first=40, count=10)
        self.folder.write(segment(small + large + again))
        for name in ("a.mov", "a.mp4"):
            out = self.export(name)
            self.assertEqual(gap_lines(out), [
                f"  {clock(20 * SLOT)}  the pictures are 704 x 576 from here on",
                f"  {clock(40 * SLOT)}  the pictures are 352 x 288 from here on"])
            data = self.read(name)
            table = box(data, "moov", "trak", "mdia", "minf", "stbl", "stsd")
            entries = [table[at + 24:at + 28] for _, at, _ in boxes(table, 8)]
            self.assertEqual([struct.unpack(">HH", size) for size in entries],
                             [(352, 288), (704, 576)])
            chunks = box(data, "moov", "trak", "mdia", "minf", "stbl", "stsc")
            runs = [struct.unpack_from(">III", chunks, at) for at in range(8, len(chunks), 12)]
            self.assertEqual([run[2] for run in runs], [1, 2, 1])
            text = self.decoded(name, "-f", "framemd5", "-autoscale", "0").decode()
            sizes = [int(row.split(",")[4]) for row in text.splitlines() if row[0] != "#"]
            self.assertEqual(sizes, [352 * 288 * 3 // 2] * 20 + [704 * 576 * 3 // 2] * 20 +
                             [352 * 288 * 3 // 2] * 10)

    def test_another_rate_is_no_hole(self):
        # As when a rate is set while it is recorded, from 25 to 5 frames a second and on to 10.
        times = [n * SLOT for n in range(20)]
        for step, count in ((200_000, 15), (100_000, 15)):
            times += [times[-1] + step * n for n in range(1, count + 1)]
        self.folder.write(segment([Frame(3, one.number, at, one.kind, 0, one.payload)
                                   for one, at in zip(pictures(), times)]))
        self.assertEqual(gap_lines(self.export("a.mov")), [])

    def test_another_rate_and_size_is_no_hole(self):
        slow = [Frame(3, 20 + n, 20 * SLOT + n * 200_000, one.kind, 0, one.payload)
                for n, one in enumerate(pictures(size=(704, 576), first=20, count=20))]
        self.folder.write(segment(pictures(count=20) + slow))
        lines = gap_lines(self.export("a.mov"))
        self.assertEqual(lines, [f"  {clock(20 * SLOT)}  the pictures are 704 x 576 from here on"])


class Damage(ClipCase):
    """Pictures and sound, record 2 n is picture n, with something broken. The last batch of the segment
    is damaged too, so its directory does not count, and damaged records are not known of."""
    batches = False

    def write(self, broken=(), headers=(), **other):
        recorded = Segment(size=8 << 20)
        for picture, tone in zip(pictures(**other), tones()):
            offset = recorded.frame(picture)
            if picture.number in broken:
                recorded.data[offset + 60] ^= 1
            if picture.number in headers:
                recorded.data[offset + 12] ^= 1
            recorded.frame(tone)
            if self.batches and picture.number % 10 == 9:
                recorded.commit()
        recorded.commit()
        self.folder.write(recorded.finish())

    def test_a_frame_that_cannot_be_read_is_told_and_the_rest_written(self):
        for broken in ({"broken": (13, 25)}, {"headers": (13, 25)}):
            self.write(**broken)
            out = self.export("a.mov", "--force", status=1)
            self.assertEqual(gap_lines(out), [f"  {clock(12 * SLOT)}  frame 13 cannot be read",
                                              f"  {clock(24 * SLOT)}  frame 25 cannot be read"])
            found = self.probe("a.mov", "packet=pts", "-select_streams", "v")["packets"]
            self.assertEqual([one["pts"] for one in found],
                             [n * TICKS for n in range(50) if n not in (13, 25)])
            self.assertEqual(self.exported("a.mov", "--force", status=1)["loss_count"], 2)

    def test_the_key_frame_before_a_damaged_one_is_taken(self):
        self.write(broken=(20,))
        out = self.export("a.mov", "--from", "+0.9", "--to", "+1", status=1)
        self.assertIn(f"  starts at the key frame of {clock(10 * SLOT)}, 0.520 s before", out)
        self.assertEqual(gap_lines(out), [f"  {clock(19 * SLOT)}  frame 20 cannot be read"])

    def test_the_first_key_frame_damaged(self):
        self.write(broken=(0,))
        out = self.export("a.mov", status=1)
        self.assertIn("a.mov: main channel 3, 40 frames, 1.600 s", out)
        self.assertIn("\n  9 frames are before the first key frame left out\n", out)
        self.assertEqual(gap_lines(out), [
            f"  {clock(0)}  frame 0 cannot be read" if self.batches else
            f"  {clock(SLOT)}  1 record cannot be read, perhaps of this channel"])

    def test_no_key_frame_at_all(self):
        self.write(broken=range(0, 50, 10))
        self.assertEqual(self.refused("a.mov"),
                         f"qmtool: {self.folder.ini}: main channel 3 has no readable key frame; "
                         "qmtool list tells what was recorded\n")

    def test_no_key_frame_for_the_span(self):
        self.write(broken=(0,))
        self.assertEqual(self.refused("a.mov", "--to", "+0.2"),
                         f"qmtool: {self.folder.ini}: main channel 3 has no readable key frame in this "
                         "span or before it\n")

    def test_without_a_frame_of_the_span_there_is_no_film_of_what_lies_ahead(self):
        self.write(broken=(12, 13))
        why = f"{self.path('a.mov')}: nothing in this span can be written into it" if self.batches \
            else f"{self.folder.ini}: main channel 3 has nothing in this span"
        self.assertEqual(self.refused("a.mov", "--from", "+0.48", "--to", "+0.56", "--manifest"),
                         f"qmtool: {why}\n")
        told = self.exported("a.mov", "--from", "+0.44", "--to", "+0.56", status=self.batches)
        self.assertEqual((told["frames"], told["frames_before_start"]), (2, 1))

    def test_damage_of_another_channel_is_none_of_this_one(self):
        recorded = Segment(size=8 << 20)
        for mine, other in zip(pictures(), pictures(channel=4)):
            recorded.frame(mine)
            offset = recorded.frame(other)
            recorded.data[offset + (60 if mine.number % 2 else 12)] ^= 1
        recorded.frame(pictures(count=51)[50])
        recorded.commit()
        self.folder.write(recorded.finish())
        self.assertEqual(gap_lines(self.export("a.mov")), [])

    def test_one_channel_among_many(self):
        recorded = Segment(size=8 << 20)
        for picture in pictures():
            for channel in range(3):
                recorded.frame(Frame(4 + channel, picture.number, picture.number * SLOT, P))
            offset = recorded.frame(picture)
            if picture.number == 45:
                recorded.data[offset + 60] ^= 1
            recorded.frame(Frame(3, picture.number, picture.number * SLOT, P, stream=1))
            recorded.frame(Frame(4, picture.number, picture.number * SLOT, P, stream=1))
            if self.batches and picture.number == 47:
                recorded.commit()
        recorded.commit()
        self.folder.write(recorded.finish())
        out = self.export("a.h264", status=1)
        self.assertEqual(gap_lines(out), [f"  {clock(44 * SLOT)}  frame 45 cannot be read"])
        self.assertEqual(self.read("a.h264"), b"".join(one.payload for one in pictures()
                                                       if one.number != 45))

    def test_damage_before_the_span_is_none_of_it(self):
        recorded = Segment(size=8 << 20)
        for picture, tone in zip(pictures(), tones()):
            recorded.frame(picture)
            for frame in (tone, Frame(4, picture.number, picture.number * SLOT, P)):
                offset = recorded.frame(frame)
                if picture.number in (9, 11) and frame is not tone or tone.number == 11:
                    recorded.data[offset + 60] ^= 1
            if self.batches and picture.number % 10 == 9:
                recorded.commit()
        recorded.commit()
        self.folder.write(recorded.finish())
        for start in ("+0.4", "+0.52"):
            lost = [f"  {clock(10 * SLOT)}  audio: frame 11 cannot be read"] if start == "+0.4" else []
            out = self.export(f"{start}.mov", "--from", start, status=len(lost))
            self.assertEqual(gap_lines(out), lost)

    def test_of_jpeg_no_picture_before_the_span_is_taken(self):
        recorded = Segment(size=8 << 20)
        for picture in pictures(stream=2, count=20, key_every=1):
            offset = recorded.frame(picture)
            recorded.data[offset + 60] ^= picture.number == 5
            if self.batches and picture.number == 9:
                recorded.commit()
        recorded.commit()
        self.folder.write(recorded.finish())
        self.export("new/", "--from", "+0.2", stream="jpeg", status=1 if self.batches else 0)
        self.assertEqual(sorted(os.listdir(self.path("new"))),
                         [f"frame-{number:010d}.jpg" for number in range(6, 20)])

    def test_a_segment_that_is_gone(self):
        frames = pictures()
        one = Segment(size=8 << 20)
        for frame in frames[:13]:
            one.frame(frame)
        one.commit()
        one.finish()
        two = one.following()
        for frame in frames[13:27]:
            two.frame(frame)
        two.commit()
        two.finish()
        three = two.following()
        for frame in frames[27:]:
            three.frame(frame)
        three.commit()
        self.folder.write(one, two, three.finish())
        self.assertEqual(self.export("whole.h264"), self.export("whole.h264", "--force"))
        self.assertEqual(self.read("whole.h264"), b"".join(frame.payload for frame in frames))
        os.remove(self.folder.name(2))
        out = self.export("a.h264", status=1)
        self.assertEqual(gap_lines(out), [f"  {clock(12 * SLOT)}  frames 13 to 26 cannot be read"])
        self.assertEqual(self.read("a.h264"),
                         b"".join(frame.payload for frame in frames[:13] + frames[27:]))

    def test_the_last_records_missing(self):
        recorded = Segment(size=8 << 20)
        for picture in pictures():
            offset = recorded.frame(picture)
            if picture.number >= 48:
                recorded.data[offset + 12] ^= 1
        recorded.commit()
        self.folder.write(recorded.finish())
        out = self.export("a.mov", status=1)
        self.assertEqual(gap_lines(out), [f"  {clock(47 * SLOT)}  2 records cannot be read, perhaps of "
                                          "this channel"])
        # What is behind the span is none of it.
        self.assertEqual(gap_lines(self.export("b.mov", "--to", "+1")), [])

    def test_what_is_no_picture_is_told(self):
        frames = pictures()
        frames[5].payload = b"\0\0\0\1\x09\x10" + b"no picture"
        frames[7].payload = b""
        self.folder.write(segment(frames))
        out = self.export("a.mov", status=1)
        self.assertEqual(gap_lines(out), [
            f"  {clock(n * SLOT)}  frame {n} is no picture that this file can hold" for n in (5, 7)])
        for frame in frames:
            frame.payload = b"nothing"
        self.folder.write(segment(frames))
        self.assertEqual(self.refused("b.mov"), f"qmtool: {self.path('b.mov')}: nothing in this span can "
                                                "be written into it\n")

    def test_frames_without_a_key_frame_are_left_out(self):
        self.folder.write(segment([one for one in pictures() if one.number >= 5]))
        out = self.export("a.mov")
        self.assertIn("\n  5 frames are before the first key frame left out\n", out)
        self.assertIn("a.mov: main channel 3, 40 frames, ", out)
        self.export("b.mov", "--from", "+0", status=1)


class DamageBefore(Damage):
    """The same in batches before the last one: the directory tells of the damaged records."""
    batches = True


class Forged(ClipCase):
    def test_numbers_far_apart_are_no_search_without_end(self):
        newest = Segment(number=2, first=1 << 62)
        self.folder.write(segment(pictures(count=1)), newest)
        self.export("a.mov", status=1)
        done, _, err = self.run_tool("frame", "--channel", "3", "--at", "-0", "-o",
                                     self.path("a.png"), self.folder.ini)
        self.assertEqual(done, 0, err)


class Live(ClipCase):
    def test_a_database_that_is_recorded_is_exported_up_to_now(self):
        recorded = Segment(size=8 << 20)
        for picture, tone in zip(pictures(), tones()):
            recorded.frame(picture)
            recorded.frame(tone)
        recorded.commit()
        self.folder.write(recorded.open_ended())
        with Lock(self.folder):
            told = self.exported("a.mov")
        self.assertEqual((told["frames"], told["recorded_now"]), (50, True))
        self.assertEqual(len(self.frame_sums("a.mov")), 50)


class Stopped(ClipCase):
    def setUp(self):
        super().setUp()
        self.folder.write(segment(pictures(fill=4000) + tones()))

    def start(self, name, *words, **other):
        return subprocess.Popen([program(), "export", "--channel", "3", "--stream", "main", *words, "-o",
                                 self.path(name), self.folder.ini], stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, **other)

    def test_an_interruption_leaves_nothing(self):
        for which in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            end = time.monotonic() + PATIENCE
            while True:  # until it was caught in the middle
                running = self.start("a.mov", "--manifest")
                while running.poll() is None and not os.listdir(self.out):
                    pass
                running.send_signal(which)
                out, err = running.communicate(timeout=PATIENCE)
                if running.returncode == 3:
                    break
                self.assertEqual((running.returncode, err), (0, b""))
                for name in os.listdir(self.out):
                    os.remove(self.path(name))
                self.assertLess(time.monotonic(), end, "it was never caught")
            # It is caught in one of the two files.
            self.assertIn((out, err), [(b"", f"qmtool: {self.path(name)}: interrupted\n".encode())
                                       for name in ("a.mov", "a.mov.manifest.json")])
            self.assertEqual(os.listdir(self.out), [])

    def test_a_limit_of_file_sizes_is_an_error_of_writing(self):
        for words in ((), ("--manifest",)):
            running = self.start("a.mov", *words, preexec_fn=lambda: resource.setrlimit(
                resource.RLIMIT_FSIZE, (20_000, 20_000)))
            out, err = running.communicate(timeout=PATIENCE)
            self.assertEqual((running.returncode, out, err), (3, b"", (
                f"qmtool: {self.path('a.mov')}: cannot be written: File too large\n").encode()))
            self.assertEqual(os.listdir(self.out), [])

    def test_a_full_disk(self):
        for size, name, stream in (("16k", "a.mov", "main"), ("32k", "a.wav", "audio")):
            done = subprocess.run(
                ["unshare", "-m", "sh", "-c", 'mount -t tmpfs -o size=$1 none "$2" || exit 77; '
                 '"$3" export --channel 3 --stream "$4" -o "$2/$5" "$6"; echo $?; ls -A "$2"', "sh", size,
                 self.out, program(), stream, name, self.folder.ini],
                stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=PATIENCE)
            if done.returncode == 77 or b"unshare" in done.stderr:
                self.skipTest("no file system can be mounted here")
            if name == "a.wav":  # it is smaller than that
                self.assertEqual((done.stdout.splitlines()[-2:], done.stderr), ([b"0", b"a.wav"], b""))
                continue
            self.assertEqual((done.stdout, done.stderr), (b"3\n", (
                f"qmtool: {self.path(name)}: cannot be written: No space left on device\n").encode()))

    def test_what_a_killed_export_left_is_written_over(self):
        with open(self.path("a.mov.part"), "wb") as left:
            left.write(b"x" * 1_000_000)
        self.export("a.mov")
        self.assertEqual(os.listdir(self.out), ["a.mov"])
        self.assertLess(os.path.getsize(self.path("a.mov")), 1_000_000)

    def test_the_database_itself_is_not_written_over(self):
        recorded = os.path.join(self.folder.path, "rec.mov")
        os.rename(self.folder.ini, recorded)
        os.rename(self.folder.name(1), recorded + ".0000000001.seg")
        with open(recorded, "rb") as ini:
            before = ini.read()
        done, _, err = self.run_tool("export", "--channel", "3", "--stream", "main", "--force", "-o",
                                     recorded, recorded)
        self.assertEqual((done, err), (3, f"qmtool: {recorded}: it is the database\n"))
        with open(recorded, "rb") as ini:
            self.assertEqual(ini.read(), before)

    def test_a_file_with_another_name_is_not_written_over(self):
        recorded = self.folder.name(1)
        os.link(recorded, self.path("a.mov.part"))
        before = os.path.getsize(recorded)
        self.assertEqual(self.refused("a.mov"),
                         f"qmtool: {self.path('a.mov')}: cannot be written: Too many links\n")
        self.assertEqual(os.path.getsize(recorded), before)

    def test_two_exports_do_not_write_one_file(self):
        with open(self.path("a.mov.part"), "wb") as other:
            fcntl.flock(other, fcntl.LOCK_EX)
            self.assertEqual(self.refused("a.mov"),
                             f"qmtool: {self.path('a.mov')}: another export writes it now\n")

    def test_a_failed_export_leaves_the_old_file(self):
        with open(self.path("a.mov"), "wb") as old:
            old.write(b"precious")
        running = self.start("a.mov", "--force", preexec_fn=lambda: resource.setrlimit(
            resource.RLIMIT_FSIZE, (20_000, 20_000)))
        running.communicate(timeout=PATIENCE)
        self.assertEqual((running.returncode, self.read("a.mov"), os.listdir(self.out)),
                         (3, b"precious", ["a.mov"]))

    def test_a_folder_of_pictures_that_failed_leaves_nothing(self):
        self.folder.write(segment(pictures(stream=2, count=5)))
        os.mkdir(self.path("new"))
        with open(self.path("new/frame-0000000003.jpg"), "wb") as old:
            old.write(b"precious")
        done, _, err = self.run_tool("export", "--channel", "3", "--stream", "jpeg", "-o",
                                     self.path("new"), self.folder.ini)
        self.assertEqual(done, 3, err)
        self.assertEqual(os.listdir(self.path("new")), ["frame-0000000003.jpg"])
        os.remove(self.path("new/frame-0000000003.jpg"))
        os.mkdir(self.path("new/frame-0000000003.jpg"))
        done, _, err = self.run_tool("export", "--channel", "3", "--stream", "jpeg", "--force", "-o",
                                     self.path("new"), self.folder.ini)
        self.assertEqual((done, err), (3, f"qmtool: {self.path('new')}: frame-0000000003.jpg is there "
                                          "already, a folder\n"))
        self.assertEqual(os.listdir(self.path("new")), ["frame-0000000003.jpg"])
        done, _, err = self.run_tool("export", "--channel", "3", "--stream", "jpeg", "-o",
                                     self.path("none/deep/"), self.folder.ini)
        self.assertEqual((done, err), (3, f"qmtool: {self.path('none/deep/')}: the folder cannot be made: "
                                          "No such file or directory\n"))


if __name__ == "__main__":
    clips.main()
