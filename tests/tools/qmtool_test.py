#!/usr/bin/env python3
"""Holds qmtool's command line, list and info to docs/qmtool.md."""
import json
import os
import subprocess

import case
from case import PATIENCE, Case, clock, program
from database import AUDIO, IDR, JPEG, P, SEGMENT_BYTES, START, T0, Frame, Lock, Segment, ini_text, usual

ID = "11" * 16
COMMANDS = ("list", "info", "verify", "rebuild")


class CommandLine(Case):
    def test_help_of_the_program_names_every_command(self):
        status, out, err = self.run_tool("--help")
        self.assertEqual((status, err), (0, ""))
        self.assertTrue(out.startswith("Usage: qmtool COMMAND [OPTIONS] DB\n"), out)
        for command in COMMANDS:
            self.assertIn(f"\n  {command} ", out)
        self.assertIn("Exit status: 0 fine, 1 something was found, 2 wrong usage, 3 it cannot be "
                      "read, or written.\n", out)

    def test_every_command_has_help(self):
        for command in COMMANDS:
            for words in ((command, "--help"), (command, "x.ini", "--help")):
                status, out, err = self.run_tool(*words)
                self.assertEqual((status, err), (0, ""))
                self.assertTrue(out.startswith(f"Usage: qmtool {command} "), out)
                self.assertIn("--json", out)
                self.assertEqual("--quick" in out, command == "verify")

    def test_wrong_usage_is_2_and_says_what(self):
        for words, text in (
                ((), "a command is missing\nTry: qmtool --help\n"),
                (("frob",), "there is no command frob\nTry: qmtool --help\n"),
                (("list",), "the database is missing\nTry: qmtool list --help\n"),
                (("list", "--quick", "x"), "there is no option --quick\nTry: qmtool list --help\n"),
                (("info", "a", "b"), "one database, not two: b\nTry: qmtool info --help\n"),
                (("info", "--j\x1bson"), "there is no option --j\\x1Bson\nTry: qmtool info --help\n"),
        ):
            self.assertEqual(self.run_tool(*words), (2, "", "qmtool: " + text))

    def test_options_end_at_two_dashes(self):
        status, _, err = self.run_tool("info", "--", "--json")
        self.assertEqual((status, err), (3, "qmtool: --json: there is no such database\n"))

    def test_what_is_not_there_is_3(self):
        for command in COMMANDS:
            for path, why in (
                    (self.folder.ini, "there is no such database"),
                    (self.folder.path, "there is no database in this folder"),
                    (self.folder.path + "/none/db.ini", "there is no such database"),
                    ("", "the path is empty"),
            ):
                status, out, err = self.run_tool(command, path)
                self.assertEqual((status, out, err), (3, "", f"qmtool: {path}: {why}\n"))
                status, out, err = self.run_tool(command, "--json", path)
                self.assertEqual((status, json.loads(out)), (3, {"error": why}))
        self.assertEqual(os.listdir(self.folder.path), [])

    def test_a_folder_with_one_database_is_enough(self):
        self.folder.write(usual().finish())
        self.folder.put("qm7105.ini", b"[GENERAL]\nboard_type = 0\n")
        self.assertEqual(self.run_tool("verify", self.folder.path)[0], 0)
        self.folder.put("other.ini", ini_text(b"\x22" * 16).encode())
        status, _, err = self.run_tool("verify", self.folder.path)
        self.assertEqual(status, 3)
        self.assertIn("several databases in this folder", err)

    def test_a_full_output_is_3(self):
        self.folder.write(usual().finish())
        with open("/dev/full", "wb") as full:
            done = subprocess.run([program(), "list", self.folder.ini], stdout=full,
                                  stderr=subprocess.PIPE, timeout=PATIENCE)
        self.assertEqual((done.returncode, done.stderr),
                         (3, b"qmtool: cannot write the output\n"))


class List(Case):
    def test_a_channel_with_frames_of_every_stream(self):
        segment = Segment()
        streams = ("main", "dual", "JPEG", "preview", "third", "fourth")
        for stream in range(6):
            kind = JPEG if stream == 2 else IDR
            segment.frame(Frame(stream, 0, stream, kind, stream, bytes=50))
        segment.frame(Frame(15, 0, 6, AUDIO, bytes=7))
        self.folder.write(segment.finish())
        channels = self.json("list")["channels"]
        self.assertEqual([(c["stream"], c["channel"], c["frames"], c["key_frames"], c["bytes"])
                          for c in channels],
                         [(streams[i], i, 1, 1, 50) for i in range(6)] + [("audio", 15, 1, 0, 7)])

    def test_the_whole_text(self):
        self.folder.write(usual().finish())
        last = 39 * 33_333
        status, out, err = self.run_tool("list", self.folder.ini)
        self.assertEqual((status, err), (0, ""))
        self.assertEqual(out, f"""Database {self.folder.ini}
80 frames in 1 segment

Stream   Channel      Frames  Key frames           Bytes  First                     Last                         Gaps
main           0          40           4           12780  {clock(0)}  {clock(last)}        0
audio          3          40           0            2560  {clock(5)}  {clock(last + 5)}        0

Runs
  {clock(0)}  record 0, recording began
""")

    def test_all_keys(self):
        self.folder.write(usual().finish())
        listed = self.json("list")
        self.assertEqual(sorted(listed), [
            "channels", "damaged_stretches", "database", "frames", "gap_count", "gaps",
            "missing_record_count", "missing_records", "recorded_now", "run_count", "runs",
            "segments", "segments_not_read"])
        self.assertEqual(listed["channels"][0], {
            "stream": "main", "channel": 0, "frames": 40, "key_frames": 4, "bytes": 12780,
            "first": {"utc": clock(0), "us": T0},
            "last": {"utc": clock(39 * 33_333), "us": T0 + 39 * 33_333},
            "gaps": 0, "missing_frames": 0, "longest_gap_us": 0})

    def test_gaps_by_number_and_by_time(self):
        segment = Segment()
        us = 0
        for number in (0, 1, 2, 3, 10, 11, 12, 13):
            us += 100_000
            if number == 12:
                us += 5_000_000  # no number is missing, but seconds are
            segment.frame(Frame(0, number, us, IDR))
        # Slow, but steadily so.
        for i in range(6):
            segment.frame(Frame(1, i, us + i * 3_000_000, IDR))
        self.folder.write(segment.finish())
        listed = self.json("list")
        self.assertEqual([(c["channel"], c["gaps"], c["missing_frames"], c["longest_gap_us"])
                          for c in listed["channels"]], [(0, 2, 6, 5_100_000), (1, 0, 0, 0)])
        self.assertEqual([(g["channel"], g["after"]["us"] - T0, g["until"]["us"] - T0,
                           g["missing_frames"]) for g in listed["gaps"]],
                         [(0, 400_000, 500_000, 6), (0, 600_000, 5_700_000, 0)])
        out = self.run_tool("list", self.folder.ini)[1]
        self.assertIn(f"\nGaps\n  main channel 0: {clock(400_000)} to {clock(500_000)}, 6 frames "
                      f"missing\n  main channel 0: {clock(600_000)} to {clock(5_700_000)}\n", out)

    def test_one_missing_frame_is_one(self):
        segment = Segment()
        for number in (0, 2):
            segment.frame(Frame(0, number, number * 40_000, IDR))
        self.folder.write(segment.finish())
        self.assertTrue(self.run_tool("list", self.folder.ini)[1].endswith(
            f"\nGaps\n  main channel 0: {clock(0)} to {clock(80_000)}, 1 frame missing\n"))

    def test_runs_tell_why_they_began(self):
        segment = Segment()
        hour = 3_600_000_000
        segment.frame(Frame(0, 0, 0, IDR, run=1))
        segment.frame(Frame(0, 1, 40_000, IDR, run=2, step_us=-hour))  # the clock, set back
        segment.frame(Frame(0, 0, 80_000, IDR, run=3, step_us=-hour))  # at once, from number 0
        segment.frame(Frame(0, 1, hour, IDR, run=4, step_us=hour))     # long after
        self.folder.write(segment.finish())
        runs = self.json("list")["runs"]
        self.assertEqual([(r["run"], r["first_record"], r["why"], r["step_us"]) for r in runs], [
            (1, 0, "recording_began", 0), (2, 1, "clock_stepped", -hour),
            (3, 2, "recording_began", 0), (4, 3, "recording_began", 0)])
        out = self.run_tool("list", self.folder.ini)[1]
        self.assertIn("  2026-11-21T00:46:28.040Z  record 1, the clock was stepped by -3600.000 s\n",
                      out)

    def test_missing_segments_and_damage_are_told(self):
        first = usual().finish(full=True)
        second = first.following()
        second.frame(Frame(0, 40, 2_000_000, IDR))
        third_frame = Frame(0, 41, 2_033_333, IDR)
        second.finish(full=True)
        third = second.following(mono=third_frame.mono, utc=third_frame.utc)
        third.frame(third_frame)
        self.folder.write(first, third.finish())
        listed = self.json("list", status=1)
        self.assertEqual(listed["missing_records"], [
            {"first": 80, "count": 1,
             "after": {"utc": clock(39 * 33_333 + 5), "us": T0 + 39 * 33_333 + 5},
             "until": {"utc": clock(2_033_333), "us": T0 + 2_033_333}}])
        out = self.run_tool("list", self.folder.ini)[1]
        self.assertIn("\nMissing records\n  1 from number 80 on, between ", out)

    def test_damaged_records_are_told(self):
        segment = usual()
        segment.data[START + 100] ^= 1
        self.folder.write(segment.open_ended())
        self.assertEqual(self.json("list", status=1)["damaged_stretches"], 1)
        out = self.run_tool("list", self.folder.ini)[1]
        self.assertIn("\nDamaged: 1 stretch cannot be read; qmtool verify tells where\n", out)

    def test_a_given_up_segment_counts_up_to_the_next(self):
        first = usual()
        second = Segment(2, 30, own=8, latest=T0 + 14 * 33_333 + 5, mono=T0 + 15 * 33_333,
                         utc=T0 + 15 * 33_333)
        for i in range(15, 40):
            second.frame(Frame(0, i, i * 33_333, P))
            second.frame(Frame(3, i, i * 33_333 + 5, AUDIO))
        end = len(first.data)
        self.folder.write(first.open_ended(), second.finish())
        self.assertEqual(self.json("list")["frames"], 80)
        self.assertEqual(self.json("info")["records"], 80)
        self.assert_found(f"note: segment 1, offset {end}, near " + clock(39 * 33_333 + 5) +
                          ": no directory ends the segment; its records are found without")


class Info(Case):
    def test_the_whole_text(self):
        self.folder.write(usual().finish())
        status, out, err = self.run_tool("info", self.folder.ini)
        self.assertEqual((status, err), (0, ""))
        size = len(self.folder.get("db.ini.0000000001.seg"))
        self.assertEqual(out, f"""database         {self.folder.ini}
format           1
identity         {ID}
ring             10 segments
segment size     65536 bytes
segments         1, numbers 1 to 1
on disk          {size} bytes
records          80
first            {clock(0)}
durable up to    {clock(39 * 33_333 + 5)}
being recorded   no
.ini file        whole
""")

    def test_all_keys(self):
        self.folder.write(usual().finish())
        info = self.json("info")
        self.assertEqual(sorted(info), [
            "bytes_on_disk", "damaged_stretches", "database", "durable_up_to", "first", "format",
            "identity", "ini", "ini_of_another_database", "recorded_now", "records",
            "ring_segments", "segment_bytes", "segments"])
        self.assertEqual(info["segments"], {"whole": 1, "not_begun": 0, "foreign": 0,
                                            "without_header": 0, "unreadable": 0, "first": 1,
                                            "last": 1})

    def test_a_ring_of_one(self):
        self.folder.write(usual().finish())
        self.folder.put("db.ini", ini_text(b"\x11" * 16, ring=1).encode())
        self.assertIn("\nring             1 segment\n", self.run_tool("info", self.folder.ini)[1])
        self.assertIn("\n  ring          1 segment\n", self.run_tool("rebuild", self.folder.ini)[1])

    def test_segments_of_every_state(self):
        foreign = usual(number=2, identity=b"\x22" * 16).finish()
        self.folder.write(foreign, usual().finish())
        self.folder.put("db.ini.0000000003.seg", bytes(SEGMENT_BYTES))
        self.folder.put("db.ini.0000000004.seg", b"\x55" * SEGMENT_BYTES)
        info = self.json("info", status=1)
        self.assertEqual(info["segments"], {"whole": 1, "not_begun": 1, "foreign": 1,
                                            "without_header": 1, "unreadable": 0, "first": 1,
                                            "last": 4})
        out = self.run_tool("info", self.folder.ini)[1]
        self.assertIn("segments         1, numbers 1 to 4\n                 1 not begun\n"
                      "                 1 of another database\n"
                      "                 1 without a header\n", out)

    def test_an_unfinished_segment_is_scanned(self):
        self.folder.write(usual().open_ended())
        info = self.json("info")
        self.assertEqual((info["records"], info["durable_up_to"]["us"]),
                         (80, T0 + 39 * 33_333 + 5))

    def test_a_database_without_segments(self):
        self.folder.put("db.ini", ini_text(b"\x11" * 16).encode())
        info = self.json("info")
        self.assertEqual((info["records"], info["first"], info["segments"]["first"]),
                         (0, None, None))
        self.assert_whole()

    def test_states_of_the_ini(self):
        self.folder.write(usual().finish(), ini=False)
        self.assertEqual(self.json("info", status=1)["ini"], "missing")
        self.folder.put("db.ini", b"garbage")
        self.assertEqual(self.json("info", status=1)["ini"], "damaged")
        self.folder.put("db.ini", ini_text(b"\x22" * 16).encode())
        info = self.json("info", status=1)
        self.assertEqual((info["ini"], info["ini_of_another_database"]), ("whole", True))
        self.assertIn("\n.ini file        whole, of another database\n",
                      self.run_tool("info", self.folder.ini)[1])

    def test_recorded_by_any_of_the_locks(self):
        self.folder.write(usual().open_ended())
        for name in ("db.ini.lock", "db.ini", "db.ini.0000000001.seg"):
            with Lock(self.folder, name):
                self.assertTrue(self.json("info")["recorded_now"])
            self.assertFalse(self.json("info")["recorded_now"])


if __name__ == "__main__":
    case.main()
