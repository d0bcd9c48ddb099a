#!/usr/bin/env python3
"""Holds qmtool verify to the rules of docs/stream-database.md: each is broken once, by hand, and the
finding is compared as a whole."""
import os
import struct

import case
from case import Case, clock
from database import BLOCK, IDR, P, SEGMENT_BYTES, START, T0, Frame, Segment, ini_text, usual

NEAR_LAST = "near " + clock(39 * 33_333 + 5)


class Whole(Case):
    def test_finished_full_and_unfinished_segments(self):
        first = usual().finish(full=True)
        second = first.following(mono=T0 + 2_000_000, utc=T0 + 2_000_000)
        second.frame(Frame(0, 40, 2_000_000, IDR))
        second.finish()
        self.folder.write(first, second)
        self.assert_whole()
        second.frame(Frame(0, 41, 2_033_333, IDR))  # a recording goes on behind the directory
        second.commit()
        self.folder.write(first, second.open_ended())
        self.assert_whole()

    def test_what_an_interrupted_write_left_is_told_of_by_the_next_record(self):
        segment = usual()
        end = len(segment.data) + 300
        segment.data += b"\x55" * 300
        segment.data = segment.data.ljust(len(segment.data) + BLOCK - end % BLOCK, b"\x55")
        segment.begins = True
        segment.frame(Frame(0, 40, 2_000_000, IDR, run=2), hole=len(segment.data) - end + 300)
        self.folder.write(segment.finish())
        self.assert_whole()

    def test_a_clock_that_was_set_back_and_frames_that_change_places(self):
        segment = Segment()
        segment.frame(Frame(0, 0, 500_000, IDR))
        segment.mono, segment.utc = T0 + 500_000, T0 + 500_000
        segment.data[:START] = segment.header() * 2
        segment.frame(Frame(1, 0, 0, IDR))
        segment.frame(Frame(0, 1, 540_000, P, run=2, step_us=-3_600_000_000))
        self.folder.write(segment.finish())
        self.assert_whole()

    def test_files_that_pass(self):
        self.folder.write(usual().finish())
        for name in ("db.ini.new", "db.ini.probe", "db.ini.lock", "db.ini2", "other"):
            self.folder.put(name, b"")
        self.assert_whole()


class Headers(Case):
    def test_each_copy(self):
        for copy in (0, 1):
            segment = usual().finish()
            segment.data[copy * BLOCK + 60] ^= 1
            self.folder.write(segment)
            self.assert_found(f"segment 1, offset {copy * BLOCK}, {NEAR_LAST}: one of the two "
                              "headers is not that of the segment")

    def test_copies_that_differ(self):
        segment = usual().finish()
        segment.size *= 2
        segment.data[BLOCK:START] = segment.header()
        self.folder.write(segment)
        self.assert_found(f"segment 1, offset {BLOCK}, {NEAR_LAST}: one of the two headers is not "
                          "that of the segment")

    def test_bytes_behind_a_header(self):
        for offset in (128, BLOCK - 1, BLOCK + 128, START - 1):
            segment = usual().finish()
            segment.data[offset] = 1
            self.folder.write(segment)
            self.assert_found(f"segment 1, offset {offset // BLOCK * BLOCK + 128}, {NEAR_LAST}: "
                              "bytes behind the header are not 0")

    def test_both(self):
        segment = usual().finish()
        segment.data[50] ^= 1
        segment.data[BLOCK + 50] ^= 1
        self.folder.write(segment)
        self.assert_found("segment 1: neither header can be read")
        segment.data[:START] = bytes(START)
        self.folder.write(segment)
        self.assert_found("segment 1: neither header can be read")

    def test_a_segment_that_was_not_begun(self):
        first = usual().finish()
        self.folder.write(first)
        for content in (b"", bytes(SEGMENT_BYTES)):
            self.folder.put("db.ini.0000000002.seg", content)
            self.assert_found("note: segment 2: nothing was written into it yet")
        self.folder.put("db.ini.0000000002.seg", bytes(BLOCK * 5))  # of no size it could have
        self.assert_found("segment 2: neither header can be read")

    def test_a_file_that_the_ring_renamed(self):
        old = usual(number=1).finish(full=True)
        kept = usual(number=2, first=80, own=8, latest=T0 + 39 * 33_333 + 5).finish(full=True)
        self.folder.write(kept)
        self.folder.put("db.ini.0000000003.seg", bytes(old.data))
        self.assert_found("note: segment 3: nothing was written into it yet")
        self.folder.write(old)  # its own file is there: the other is none of the ring's
        self.assert_found("segment 3: neither header can be read")

    def test_a_segment_of_another_database(self):
        first = usual().finish()
        foreign = usual(number=2, identity=b"\x22" * 16).finish()
        self.folder.write(foreign, first)
        self.assert_found("segment 2: it belongs to another database")

    def test_the_size_of_the_file(self):
        segment = usual().finish(full=True)
        segment.data += b"\0"
        self.folder.write(segment)
        self.assert_found(f"segment 1, offset {SEGMENT_BYTES}, {NEAR_LAST}: the file is 65537 bytes "
                          "long, its header tells 65536")

    def test_times_that_are_not_those_of_the_records(self):
        for field in ("utc", "mono", "run"):
            segment = usual()
            setattr(segment, field, getattr(segment, field) + 1)
            segment.data[:START] = segment.header() * 2
            self.folder.write(segment.finish())
            self.assert_found(f"segment 1, offset 0, main channel 0, {clock(0)}: the times in the "
                              "header are not those of the records")

    def test_the_latest_time_before(self):
        first = usual().finish(full=True)
        second = first.following(mono=T0 + 2_000_000, utc=T0 + 2_000_000)
        second.latest -= 1
        second.data[:START] = second.header() * 2
        second.frame(Frame(0, 40, 2_000_000, IDR))
        self.folder.write(first, second.finish())
        self.assert_found(f"segment 2, {clock(2_000_000)}: the times in the header are not those of "
                          "the records")


class Records(Case):
    def test_a_damaged_payload_tells_channel_and_time(self):
        segment = Segment()
        for i in range(6):
            offset = segment.frame(Frame(9, i, i * 40_000, P, stream=1, bytes=500))
            if i == 3:
                damaged = offset
            segment.commit()
        segment.data[damaged + 100] ^= 4
        self.folder.write(segment.finish())
        found = self.assert_found(
            f"segment 1, offset {damaged}, dual channel 9, {clock(120_000)}: 560 bytes cannot be "
            "read; 1 record is missing")
        self.assertEqual(found, [{
            "kind": "damage", "note": False, "segment": 1, "offset": damaged, "stream": "dual",
            "channel": 9, "time": {"utc": clock(120_000), "us": T0 + 120_000},
            "time_is_near": False, "name": None,
            "text": "560 bytes cannot be read; 1 record is missing"}])

    def test_a_damaged_header_tells_the_time_near_by(self):
        segment = Segment()
        for i in range(6):
            offset = segment.frame(Frame(9, i, i * 40_000, P, stream=1, bytes=500))
            if i == 3:
                damaged = offset
            segment.commit()
        segment.data[damaged + 20] ^= 4
        self.folder.write(segment.finish())
        self.assert_found(f"segment 1, offset {damaged}, near {clock(80_000)}: 560 bytes cannot be "
                          "read; 1 record is missing")

    def test_the_last_batch_of_a_finished_segment(self):
        segment = usual(frames=35)  # five of them in the batch with the directory
        segment.finish()
        offset = struct.unpack_from("<I", segment.entries[65], 8)[0] * 8
        directory = struct.unpack_from("<I", segment.data, len(segment.data) - 12)[0] * 8
        segment.data[offset + 80] ^= 1
        self.folder.write(segment)
        status, lines = self.verify()
        self.assertEqual((status, len(lines)), (1, 2), lines)
        self.assertIn(f"{directory - offset} bytes cannot be read; ", lines[0])

    def test_records_that_are_missing(self):
        segment = usual()
        offset = segment.frame(Frame(0, 40, 2_000_000, IDR, bytes=20), sequence=85)
        segment.commit()
        self.folder.write(segment.open_ended())
        self.assert_found(f"segment 1, offset {offset}, main channel 0, {clock(2_000_000)}: 5 "
                          "records are missing before it, from number 80 on")

    def test_records_missing_between_segments(self):
        first = usual().finish(full=True)
        second = first.following(mono=T0 + 2_000_000, utc=T0 + 2_000_000)
        second.next = second.first = 81
        second.data[:START] = second.header() * 2
        second.frame(Frame(0, 40, 2_000_000, IDR))
        self.folder.write(first, second.finish())
        self.assert_found(f"segment 2, {clock(2_000_000)}: 1 record is missing before it, from "
                          "number 80 on")

    def test_numbers_that_go_back_between_segments(self):
        first = usual(first=100).finish(full=True)
        second = first.following(mono=T0 + 2_000_000, utc=T0 + 2_000_000)
        second.next = second.first = 99
        second.data[:START] = second.header() * 2
        second.frame(Frame(0, 40, 2_000_000, IDR))
        self.folder.write(first, second.finish())
        self.assert_found(f"segment 2, {clock(2_000_000)}: its records come before those of the "
                          "segment before it")

    def test_runs_that_go_back_between_segments(self):
        first = usual(run=1).finish(full=True)
        second = first.following(mono=T0 + 2_000_000, utc=T0 + 2_000_000, run=0)
        second.frame(Frame(0, 40, 2_000_000, IDR, run=0))
        self.folder.write(first, second.finish())
        self.assert_found(f"segment 2, {clock(2_000_000)}: the run is below that of the record "
                          "before")

    def test_flags(self):
        first = Segment()
        first.frame(Frame(0, 0, 0, IDR), flags=0)
        self.folder.write(first.finish())
        where = f"segment 1, offset {START}, main channel 0, {clock(0)}"
        self.assert_found(where + ": the flag for the first record of a batch is wrong")
        later = Segment()
        later.frame(Frame(0, 0, 0, IDR))
        later.commit()
        offset = later.frame(Frame(0, 1, 33_333, P), flags=0)
        later.commit()
        later.frame(Frame(0, 2, 66_666, P))
        later.commit()
        self.folder.write(later.open_ended())
        self.assert_found(f"segment 1, offset {offset}, main channel 0, {clock(33_333)}: the flag "
                          "for the first record of a batch is wrong")

    def test_a_hole_that_is_not_there(self):
        segment = Segment()
        segment.frame(Frame(0, 0, 0, IDR))
        segment.commit()
        offset = segment.frame(Frame(0, 1, 33_333, P), hole=512)
        self.folder.write(segment.finish())
        self.assert_found(f"segment 1, offset {offset}, main channel 0, {clock(33_333)}: tells of "
                          "512 bytes that an interrupted write left, but they are not there")

    def test_fill_bytes(self):
        segment = Segment()
        offset = segment.frame(Frame(0, 0, 0, IDR, bytes=101), fill=b"\1")
        self.folder.write(segment.finish())
        self.assert_found(f"segment 1, offset {offset}, main channel 0, {clock(0)}: the bytes that "
                          "fill up the record are not 0")

    def test_pads(self):
        segment = Segment()
        segment.frame(Frame(0, 0, 0, IDR))
        offset = len(segment.data)
        segment.pad(fill=b"\1")
        segment.frame(Frame(0, 1, 33_333, P))
        self.folder.write(segment.finish())
        self.assert_found(f"segment 1, offset {offset}, near {clock(0)}: the bytes of the pad are "
                          "not 0")

    def test_runs_and_times(self):
        for second, text in (
                (Frame(0, 1, 33_333, P, step_us=5), "the time does not fit the run"),
                (Frame(0, 1, -2_000_000, P), "the time does not fit the run"),
        ):
            segment = Segment()
            segment.frame(Frame(0, 0, 0, IDR))
            offset = segment.frame(second)
            self.folder.write(segment.finish())
            status, lines = self.verify()
            self.assertEqual((status, len(lines)), (1, 2), lines)
            self.assertTrue(lines[0].startswith(f"segment 1, offset {offset}, main channel 0, "))
            self.assertTrue(lines[0].endswith(": " + text), lines)


class Ends(Case):
    def test_a_directory_that_is_not_that_of_the_records(self):
        segment = usual()
        entries = list(segment.entries)
        entries[5] = entries[6]
        before = len(segment.data)
        segment.finish(entries=entries)
        self.folder.write(segment)
        offset = struct.unpack_from("<I", segment.data, len(segment.data) - 12)[0] * 8
        self.assertGreaterEqual(offset, before)
        self.assert_found(f"segment 1, offset {offset}, {NEAR_LAST}: the directory is damaged, or "
                          "not that of the records")

    def test_a_damaged_directory(self):
        for full in (False, True):
            segment = usual().finish(full=full)
            offset = struct.unpack_from("<I", segment.data, len(segment.data) - 12)[0] * 8
            for at in (offset + 1, offset + 60, len(segment.data) - 1):
                segment.data[at] ^= 1
                self.folder.write(segment)
                self.assert_found(f"segment 1, offset {offset}, {NEAR_LAST}: the directory is "
                                  "damaged, or not that of the records")
                segment.data[at] ^= 1

    def test_a_file_that_was_cut(self):
        segment = usual().finish()
        self.folder.write(segment)
        offset = struct.unpack_from("<I", segment.data, len(segment.data) - 12)[0] * 8
        os.truncate(self.folder.name(1), offset)
        self.assert_found(f"segment 1, offset {offset}, {NEAR_LAST}: the records end here, but not "
                          "with a directory")

    def test_unused_bytes_are_a_note(self):
        segment = usual().finish()
        end = len(segment.data)
        self.folder.write(segment.open_ended())
        self.assert_found(f"note: segment 1, offset {end}, {NEAR_LAST}: {SEGMENT_BYTES - end} unused "
                          "bytes behind the directory")
        segment.data = segment.data[:end] + b"\0"
        self.folder.write(segment)
        self.assert_found(f"note: segment 1, offset {end}, {NEAR_LAST}: 1 unused byte behind the directory")

    def test_what_an_older_interrupted_write_left_at_the_end_is_a_note(self):
        def begun():
            segment = usual(frames=10)
            segment.commit()
            return segment

        interrupted = begun()
        interrupted.frame(Frame(1, 40, 2_000_000, IDR))
        interrupted.finish(full=True)
        first = begun()
        first.frame(Frame(2, 40, 2_000_000, IDR, run=2))
        first.commit()
        end = len(first.data)
        first.data += bytes(SEGMENT_BYTES - end)
        directory = struct.unpack_from("<I", interrupted.data, SEGMENT_BYTES - 12)[0] * 8
        first.data[directory:] = interrupted.data[directory:]
        second = first.following(mono=T0 + 2_100_000, utc=T0 + 2_100_000, run=3)
        second.frame(Frame(2, 0, 2_100_000, IDR, run=3))
        self.folder.write(first, second.finish())
        self.assert_found(f"note: segment 1, offset {end}, near {clock(2_000_000)}: an interrupted "
                          "write left a part of a record")

    def test_a_directory_that_was_interrupted_is_a_note(self):
        segment = usual().finish()
        directory = struct.unpack_from("<I", segment.data, len(segment.data) - 12)[0] * 8
        segment.data = segment.data[:directory + 100]
        self.folder.write(segment.open_ended())
        status, lines = self.verify()
        self.assertEqual(status, 0, lines)
        self.assertEqual(len(lines), 2, lines)
        self.assertTrue(lines[0].startswith(f"note: segment 1, offset {directory}, "), lines)
        self.assertTrue(lines[0].endswith(": an interrupted write left a part of a record"), lines)

    def test_a_segment_without_room_for_its_directory(self):
        first = usual()
        first.pad(to=SEGMENT_BYTES - BLOCK)
        second = first.following(mono=T0 + 2_000_000, utc=T0 + 2_000_000)
        second.frame(Frame(0, 40, 2_000_000, IDR))
        self.folder.write(first.open_ended(), second.finish())
        self.assert_whole()

    def test_a_torn_end_is_a_note(self):
        segment = usual()
        offset = segment.frame(Frame(0, 40, 2_000_000, IDR))
        segment.data[-1] ^= 1
        self.folder.write(segment.open_ended())
        self.assert_found(f"note: segment 1, offset {offset}, main channel 0, {clock(2_000_000)}: "
                          "an interrupted write left a part of a record")


class Beside(Case):
    def test_states_of_the_ini(self):
        self.folder.write(usual().finish(), ini=False)
        self.assert_found("db.ini: is missing; qmtool rebuild writes it again")
        text = ini_text(b"\x11" * 16)
        for damaged in ("", text[:-1], text + " ", text.replace("10", "11")):
            self.folder.put("db.ini", damaged.encode())
            self.assert_found("db.ini: is damaged; qmtool rebuild writes it again")
        self.folder.put("db.ini", ini_text(b"\x22" * 16).encode())
        self.assert_found("db.ini: belongs to another database; qmtool rebuild writes it again")
        self.folder.put("db.ini", ini_text(b"\x11" * 16, segment_bytes=2 * SEGMENT_BYTES).encode())
        self.assert_found("note: db.ini: tells segments of 131072 bytes; the newest has 65536")

    def test_names_that_look_like_segments(self):
        self.folder.write(usual().finish())
        for name in ("db.ini.1.seg", "db.ini.0000000001.seg.bak", "db.ini.0000000001",
                     "db.ini.0000000000.seg", "db.ini.00\x1b[31m.seg"):
            self.folder.put(name, b"")
        self.assert_found(*(f"{name}: looks like a segment's name and is none" for name in (
            "db.ini.00\\x1B[31m.seg", "db.ini.0000000000.seg", "db.ini.0000000001",
            "db.ini.0000000001.seg.bak", "db.ini.1.seg")))

    def test_a_thousand_lines_then_a_count(self):
        self.folder.write(usual().finish())
        for i in range(1234):
            self.folder.put(f"db.ini.{i}x", b"")
        status, lines = self.verify()
        self.assertEqual((status, len(lines)), (1, 1002))
        self.assertEqual(lines[1000], "and 234 more")
        self.assertTrue(lines[1001].startswith("1234 findings in 1 segment, "), lines[1001])
        told = self.json("verify", status=1)
        self.assertEqual((told["finding_count"], len(told["findings"])), (1234, 1000))


class Quick(Case):
    def test_headers_directories_and_ends(self):
        segment = usual().finish()
        self.folder.write(segment)
        status, lines = self.verify("--quick")
        self.assertEqual((status, lines), (0, ["nothing wrong in 1 segment; headers, directories "
                                               "and ends only"]))
        segment.data[START + 100] ^= 1
        self.folder.write(segment)
        self.assertEqual(self.verify("--quick")[0], 0)  # no payload is looked at
        segment.data[START + 100] ^= 1
        for at, text in ((200, "bytes behind the header are not 0"),
                         (BLOCK + 3, "one of the two headers is not that of the segment"),
                         (len(segment.data) - 60, "the directory is damaged, or not that of the "
                          "records"),
                         (len(segment.data) - 1, "the records end here, but not with a directory")):
            segment.data[at] ^= 1
            self.folder.write(segment)
            status, lines = self.verify("--quick")
            self.assertEqual((status, len(lines)), (1, 2), lines)
            self.assertTrue(lines[0].endswith(text), lines)
            segment.data[at] ^= 1


if __name__ == "__main__":
    case.main()
