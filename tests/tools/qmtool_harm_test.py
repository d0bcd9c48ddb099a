#!/usr/bin/env python3
"""Holds qmtool to what it does with databases that are being recorded, that somebody made to do harm,
and that have lost their .ini file."""
import json
import os
import pty
import random
import resource
import select
import subprocess
import threading
import time

import case
from case import PATIENCE, Case, clock, program
from database import (BLOCK, IDR, P, SEGMENT_BYTES, START, T0, Folder, Frame, Lock, Segment,
                      ini_text, usual)

COMMANDS = ("list", "info", "verify", "rebuild")
MEMORY = 256 << 20


def little_memory():
    resource.setrlimit(resource.RLIMIT_AS, (MEMORY, MEMORY))


def limit():
    """None for a program with sanitizers, which take addresses in plenty."""
    with open(program(), "rb") as content:
        sanitized = b"__asan_init" in (text := content.read()) or b"__tsan_init" in text
    return None if sanitized else little_memory


class Rebuild(Case):
    def rebuilt(self, status=0):
        """What rebuild says, after a look that it changed nothing but the .ini."""
        before = self.folder.contents()
        told = self.json("rebuild", status=status)
        after = self.folder.contents()
        for contents in (before, after):
            contents.pop("db.ini", None)
            contents.pop("db.ini.lock", None)
        self.assertEqual(before, after)
        return told

    def test_missing_damaged_and_of_another_database(self):
        self.folder.write(usual().finish())
        right = ini_text(b"\x11" * 16, ring=1920)
        for before, state in ((None, "missing"), ("", "damaged"), (right[:50], "damaged"),
                              ("\0" * 5000, "damaged")):
            os.remove(self.folder.ini)
            if before is not None:
                self.folder.put("db.ini", before.encode())
            told = self.rebuilt()
            self.assertEqual((told["written"], told["ini_before"]), (True, state))
            self.assertEqual(self.folder.get("db.ini").decode(), right)
            self.assert_whole()

    def test_one_of_another_database(self):
        self.folder.write(usual().finish())
        self.folder.put("db.ini", ini_text(b"\x22" * 16, ring=3000).encode())
        status, out, err = self.run_tool("rebuild", self.folder.ini)
        self.assertEqual((status, err), (0, ""))
        self.assertEqual(out, "db.ini was that of another database; it was written again\n"
                              f"  identity      {'11' * 16}\n"
                              "  segment size  65536 bytes\n"
                              "  ring          3000 segments\n"
                              "  found         1 segment of it\n")
        self.assertEqual(self.folder.get("db.ini").decode(), ini_text(b"\x11" * 16, ring=3000))

    def test_one_that_is_right_stays(self):
        self.folder.write(usual().finish())
        inode = os.stat(self.folder.ini).st_ino
        told = self.rebuilt()
        self.assertEqual((told["written"], told["ring_segments"], told["segments"]), (False, 10, 1))
        self.assertEqual(os.stat(self.folder.ini).st_ino, inode)

    def test_the_database_that_most_segments_have(self):
        ours = [usual(number=n, frames=1).finish() for n in (1, 2)]
        foreign = usual(number=3, frames=1, identity=b"\x22" * 16).finish()
        self.folder.write(*ours, foreign, ini=False)
        self.folder.put("db.ini.0000000004.seg", b"\x55" * SEGMENT_BYTES)
        told = self.rebuilt()
        self.assertEqual((told["identity"], told["segments"], told["foreign_segments"],
                          told["segments_without_header"]), ("11" * 16, 2, 1, 1))

    def test_the_ring_is_no_shorter_than_what_is_there(self):
        self.folder.write(*(usual(number=n, frames=1).finish() for n in (1, 2, 3)))
        self.folder.put("db.ini", ini_text(b"\x22" * 16, ring=2).encode())
        self.assertEqual(self.rebuilt()["ring_segments"], 3)

    def test_it_refuses_while_the_database_is_recorded(self):
        self.folder.write(usual().open_ended(), ini=False)
        for name in ("db.ini.lock", "db.ini.0000000001.seg"):
            with Lock(self.folder, name):
                status, out, err = self.run_tool("rebuild", self.folder.ini)
            self.assertEqual((status, out, err),
                             (3, "", f"qmtool: {self.folder.ini}: it is being recorded\n"))
            self.assertFalse(os.path.exists(self.folder.ini))

    def test_leftovers_and_modes(self):
        self.folder.write(usual().finish(), ini=False)
        self.folder.put("db.ini.new", b"x" * 9000)
        self.assertTrue(self.json("rebuild")["written"])
        self.assertFalse(os.path.exists(self.folder.ini + ".new"))
        self.assertEqual(os.stat(self.folder.ini).st_mode & 0o777, 0o640)

    def test_without_any_header_nothing_is_written(self):
        self.folder.put("db.ini.0000000001.seg", bytes(SEGMENT_BYTES))
        status, _, err = self.run_tool("rebuild", self.folder.ini)
        self.assertEqual((status, err),
                         (3, f"qmtool: {self.folder.ini}: no segment of it has a header\n"))
        self.assertFalse(os.path.exists(self.folder.ini))

    def test_what_is_in_the_way(self):
        self.folder.write(usual().finish(), ini=False)
        os.mkdir(self.folder.ini + ".lock")
        status, _, err = self.run_tool("rebuild", self.folder.ini)
        self.assertEqual(status, 3)
        self.assertIn(": cannot lock db.ini.lock: ", err)
        os.rmdir(self.folder.ini + ".lock")
        os.mkdir(self.folder.ini + ".new")
        status, _, err = self.run_tool("rebuild", self.folder.ini)
        self.assertEqual(status, 3)
        self.assertIn(": cannot write the .ini file: ", err)


class Recorded(Case):
    def test_the_tail_that_grows_is_no_finding(self):
        segment = usual()
        offset = segment.frame(Frame(0, 40, 2_000_000, IDR, bytes=5000))
        for cut in (offset + 30, offset + 56, offset + 4000):
            torn = Segment()
            torn.data = segment.data[:cut]
            self.folder.write(torn.open_ended())
            with Lock(self.folder):
                self.assert_whole()
                self.assertEqual(self.json("list")["frames"], 80)
                self.assertEqual(self.json("list")["recorded_now"], True)

    def test_a_first_batch_that_comes_before_its_header(self):
        first = usual().finish(full=True)
        self.folder.write(first)
        self.folder.put("db.ini.0000000002.seg",
                        bytes(START) + b"QMRC" + bytes(SEGMENT_BYTES - START - 4))
        with Lock(self.folder):
            self.assert_whole()
            self.json("info")
        self.assert_found("segment 2: neither header can be read")

    def test_damage_is_told_while_it_is_recorded(self):
        segment = Segment()
        for i in range(6):
            offset = segment.frame(Frame(9, i, i * 40_000, P, stream=1, bytes=500))
            if i == 3:
                damaged = offset
            segment.commit()
        segment.data[damaged + 100] ^= 4
        self.folder.write(segment.open_ended())
        with Lock(self.folder):
            self.assert_found(f"segment 1, offset {damaged}, dual channel 9, {clock(120_000)}: 560 "
                              "bytes cannot be read; 1 record is missing")

    def test_a_ring_that_turns(self):
        """A recorder in the test: batches grow, segments are finished, the oldest is renamed."""
        stop = threading.Event()
        ring, segments = 3, []
        size = SEGMENT_BYTES

        def put(name, offset, content):
            file = os.open(name, os.O_RDWR | os.O_CREAT, 0o640)
            if os.fstat(file).st_size < size:
                os.ftruncate(file, size)
            os.pwrite(file, content, offset)
            os.close(file)

        def record():
            number, frames, segment = 1, 0, Segment()
            while not stop.is_set():
                if number > ring:
                    os.rename(self.folder.name(number - ring), self.folder.name(number))
                written = 0
                for _ in range(4):
                    for _ in range(5):
                        segment.frame(Frame(0, frames, frames * 33_333, IDR, bytes=700))
                        frames += 1
                    segment.commit()
                    put(self.folder.name(number), written, bytes(segment.data[written:]))
                    written = len(segment.data)
                segment.finish(full=True)
                put(self.folder.name(number), written, bytes(segment.data[written:]))
                segments.append(number)
                segment = segment.following(mono=T0 + frames * 33_333, utc=T0 + frames * 33_333)
                number += 1

        self.folder.put("db.ini", ini_text(b"\x11" * 16, ring=ring).encode())
        with Lock(self.folder):
            recorder = threading.Thread(target=record)
            recorder.start()
            try:
                start = time.monotonic()
                # On a busy machine until the ring has turned more than once.
                while time.monotonic() < start + 4 or (
                        len(segments) <= 2 * ring and recorder.is_alive() and
                        time.monotonic() < start + PATIENCE):
                    self.assert_whole()
                    self.assertEqual(self.run_tool("list", self.folder.ini)[0], 0)
                    self.assertEqual(self.run_tool("info", self.folder.ini)[0], 0)
            finally:
                stop.set()
                recorder.join()
        self.assertGreater(len(segments), 2 * ring)


class Harm(Case):
    def run_all(self, *statuses, path=None):
        """Each command ends in time, with little memory, with one of the statuses and, for an
        error, one line without control characters."""
        for command in COMMANDS:
            for words in ((), ("--json",)):
                status, out, err = self.run_tool(command, *words, path or self.folder.ini,
                                                 preexec_fn=limit())
                self.assertIn(status, statuses, (command, out[-300:], err[-300:]))
                text = out + err
                self.assertTrue(all(c >= " " or c == "\n" for c in text), text[-300:])
                if words:
                    json.loads(out)
                if status == 3:
                    self.assertEqual(len(err.splitlines()), 1, err)

    def test_other_things_in_place_of_files(self):
        makers = {
            "fifo": os.mkfifo,
            "folder": os.mkdir,
            "link": lambda name: os.symlink("/dev/zero", name),
            "loop": lambda name: os.symlink(name, name),
            "dangling": lambda name: os.symlink("nowhere", name),
        }
        for name in ("db.ini.0000000002.seg", "db.ini.lock", "db.ini.new", "db.ini"):
            for kind, make in makers.items():
                with self.subTest(name=name, kind=kind):
                    self.folder.write(usual().finish())
                    place = os.path.join(self.folder.path, name)
                    if os.path.exists(place):
                        os.remove(place)
                    make(place)
                    in_folder = name == "db.ini" and kind == "folder"
                    self.run_all(*((3,) if in_folder else (0, 1, 3)))
                    (os.rmdir if os.path.isdir(place) and kind == "folder" else os.remove)(place)
        os.mkfifo(self.folder.name(1) + "x")
        os.mkfifo(os.path.join(self.folder.path, "pipe"))
        self.run_all(3, path=os.path.join(self.folder.path, "pipe"))

    def test_any_bytes_in_any_file(self):
        dice = random.Random(7)
        for round in range(12):
            segment = usual()
            content = bytearray(segment.finish(full=round % 2 == 0).data)
            if round % 3 == 0:
                content = bytearray(dice.randbytes(dice.randrange(20_000)))
            for _ in range(dice.randrange(200)):
                if content:
                    content[dice.randrange(len(content))] = dice.randrange(256)
            self.folder.put("db.ini.0000000001.seg", bytes(content))
            self.folder.put("db.ini", dice.randbytes(dice.randrange(6000)) if round % 4 else
                            ini_text(b"\x11" * 16).encode())
            self.run_all(0, 1, 3)

    def test_records_that_claim_much(self):
        segment = Segment(size=1 << 30)
        segment.frame(Frame(0, 0, 0, IDR, bytes=16))
        for length in (0xFFFFFFFF, 1 << 30, (1 << 30) - START - 200):
            data = bytearray(segment.data)
            forged = Segment(size=1 << 30)
            forged.begins = False
            forged.data = bytearray(len(data))
            forged.next = 1
            offset = forged.record(P, b"x" * 8, Frame(0, 1, 10, P))
            record = forged.data[offset:]
            record[4:8] = length.to_bytes(4, "little")
            self.folder.put("db.ini.0000000001.seg", bytes(data + record))
            os.truncate(self.folder.name(1), 1 << 30)
            self.folder.put("db.ini", ini_text(b"\x11" * 16, 1 << 30).encode())
            self.run_all(0, 1)

    def test_a_directory_that_claims_much(self):
        segment = usual().finish()
        segment.data[-16:-12] = (0xFFFFFFFF).to_bytes(4, "little")
        self.folder.write(segment)
        self.run_all(0, 1)
        segment.data[-12:-8] = (0xFFFFFFFF).to_bytes(4, "little")
        self.folder.write(segment)
        self.run_all(0, 1)

    def test_files_that_are_huge(self):
        self.folder.write(usual().finish())
        self.folder.put("db.ini.0000000002.seg", b"")
        os.truncate(self.folder.name(2), 1 << 40)
        os.truncate(self.folder.name(1), 1 << 40)
        self.run_all(0, 1)
        os.truncate(self.folder.ini, 1 << 40)
        self.run_all(0, 1)

    def test_thousands_of_segments(self):
        for number in range(1, 5001):
            self.folder.put(f"db.ini.{number:010d}.seg", b"QM7105SG" + number.to_bytes(8, "little"))
        self.folder.put("db.ini.9999999999.seg", b"")
        started = time.monotonic()
        self.run_all(0, 1, 3)
        self.assertLess(time.monotonic() - started, PATIENCE)
        status, out, _ = self.run_tool("verify", self.folder.ini)
        self.assertEqual((status, len(out.splitlines())), (1, 1002))

    def test_sequence_numbers_and_times_at_their_limits(self):
        least, most = -(1 << 63), (1 << 63) - 1
        for utc, mono in ((least, most), (most, least), (least, least), (most, most)):
            self.run_with_numbers_from((1 << 62) - 3, utc, mono, most, 0, 1)
            # No recorder gets there: it is taken for no header.
            self.run_with_numbers_from((1 << 64) - 3, utc, mono, most, 0, 1, 3)

    def run_with_numbers_from(self, first, utc, mono, latest, *statuses):
        segment = Segment(first=first, latest=latest)
        for number, run in ((0, 1), (0xFFFFFFFF, 1), (0, 0xFFFFFFFF)):
            frame = Frame(0, number, 0, IDR, run=run)
            frame.utc, frame.mono = utc, mono
            segment.frame(frame, sequence=segment.next)
            utc, mono = mono, utc
            if segment.next == 1 << 64:
                break
        segment.data = segment.data.ljust(SEGMENT_BYTES, b"\0")
        self.folder.write(segment)
        self.run_all(*statuses)

    def test_names_are_printed_without_control_characters(self):
        path = os.path.join(self.folder.path, "a\x1b[2J\nb\x85\u202e\udcff\u00e4")
        os.mkdir(path)
        inner = Folder(path)
        inner.write(usual().finish())
        self.run_all(0, path=inner.ini)
        self.run_all(3, path=inner.ini + "\x07")
        out = self.run_tool("info", inner.ini)[1]
        self.assertIn("/a\\x1B[2J\\x0Ab\\xC2\\x85\\xE2\\x80\\xAE\\xFF\u00e4/db.ini\n", out)
        told = json.loads(self.run_tool("info", "--json", inner.ini)[1])
        self.assertTrue(told["database"].endswith("b\\xC2\\x85\\xE2\\x80\\xAE\\xFF\u00e4/db.ini"))

    def test_nothing_is_written_but_by_rebuild(self):
        self.folder.write(usual().finish(), ini=False)
        self.folder.put("db.ini.0000000002.seg", bytes(SEGMENT_BYTES))
        os.chmod(self.folder.name(1), 0o440)
        before = {entry.name: (entry.stat().st_mtime_ns, entry.stat().st_ino)
                  for entry in os.scandir(self.folder.path)}
        for command in ("list", "info", "verify"):
            self.run_tool(command, self.folder.ini)
        after = {entry.name: (entry.stat().st_mtime_ns, entry.stat().st_ino)
                 for entry in os.scandir(self.folder.path)}
        self.assertEqual(before, after)


class Progress(Case):
    def long_work(self, first=1, count=2):
        """Zeros to look through for a second and more, in files that take no room."""
        for number in range(first, first + count):
            self.folder.put(f"db.ini.{number:010d}.seg", b"")
            os.truncate(self.folder.name(number), 1 << 30)

    def shown_by_verify(self):
        """What it prints on a terminal beside its output."""
        master, slave = pty.openpty()
        run = subprocess.Popen([program(), "verify", self.folder.ini], stderr=slave,
                               stdout=subprocess.PIPE)
        os.close(slave)
        shown = b""
        try:
            while True:
                self.assertTrue(select.select([master], [], [], PATIENCE)[0], "it stands still")
                read = os.read(master, 4096)
                if not read:
                    break
                shown += read
        except OSError:  # the other side is closed
            pass
        os.close(master)
        out = run.communicate(timeout=PATIENCE)[0]
        self.assertIn(b"nothing was written into it yet", out)
        return shown

    def test_a_bar_on_a_terminal(self):
        shown, files = b"", 0
        # A machine that is through before a bar is worth while gets more to do.
        while not shown and files < 16:
            self.long_work(files + 1, max(files, 2))
            files += max(files, 2)
            shown = self.shown_by_verify()
        self.assertRegex(shown, rb"\r\[#+\.*\] +\d+ %  [\d.]+ MiB")
        self.assertTrue(shown.endswith(b"\r\x1b[K"), shown[-30:])

    def test_none_elsewhere(self):
        self.long_work()
        self.assertEqual(self.run_tool("verify", self.folder.ini)[2], "")


if __name__ == "__main__":
    case.main()
