#!/usr/bin/env python3
"""Types a session into the program, shows it, and checks what comes back.

Usage: tour.py PROGRAM ENVFILE      (started by ./run.sh --tour)

Records the main and the other streams, watches the rate tables, plays the recording back while it
goes on, and leaves in order. Exit status 0 only if everything seen was right; otherwise the last
line says what was not. Every wait has a deadline, so the tour never hangs.
"""
import os
import pty
import re
import select
import signal
import sys
import time

CHANNELS = 16
BOARDS_WITHOUT_SEARCH = (2, 6, 7)
KEY_PAUSE = 0.03
STEP_PAUSE = 0.4
ANSWER_TIME = 5
# A table a second; a busy machine may be late.
TABLE_TIME = 6
# The whole tour, whatever happens.
TOUR_TIME = 60

ROWS = r"((?: *\d+ +\d+ +\d+ +[\d.]+ +\d+\n){16})"
HEAD = r"\n={48}\nCH  tot_count  frame/sec  kbyte/sec kbitrate/sec\n-{48}\n"
MAIN_TABLE = re.compile("Main Stream Encode Status" + HEAD + ROWS +
                        r"-{48}\n\* Buffer Count : \d+\n={48}\n")
SEARCH_TABLE = re.compile("Search Status" + HEAD + ROWS +
                          r"-{48}\nTIME:\d+, DEC Frame:(\d+), BUF Count:\d+\n={48}\n")


class Wrong(Exception):
    """What the tour saw and did not like."""


class Session:
    """The program in a terminal of its own; everything it prints is shown."""

    def __init__(self, program, environment):
        self.seen = ""
        self.read_to = 0
        self.deadline = time.monotonic() + TOUR_TIME
        self.process, self.terminal = pty.fork()
        if self.process == 0:
            try:
                os.execv(program, [program, environment])
            finally:
                os._exit(127)

    def take(self, seconds):
        """Shows what arrives for at most `seconds`. False when the program has closed."""
        ready, _, _ = select.select([self.terminal], [], [], max(0, seconds))
        if not ready:
            return True
        try:
            data = os.read(self.terminal, 65536)
        except OSError:  # how a terminal tells that nobody holds its other end
            return False
        text = data.decode("ascii", "replace").replace("\r", "")
        sys.stdout.write(text)
        sys.stdout.flush()
        self.seen += text
        return bool(data)

    def watch(self, seconds):
        end = time.monotonic() + seconds
        while time.monotonic() < end and self.take(end - time.monotonic()):
            pass

    def expect(self, pattern, what, seconds=ANSWER_TIME):
        """The next match of `pattern` (a text or an expression) in what has not been read yet."""
        if isinstance(pattern, str):
            pattern = re.compile(re.escape(pattern))
        end = min(time.monotonic() + seconds, self.deadline)
        alive = True
        while True:
            found = pattern.search(self.seen, self.read_to)
            if found:
                self.read_to = found.end()
                return found
            if not alive:
                raise Wrong(f"the program ended before {what}")
            if time.monotonic() > end:
                raise Wrong(f"waited {seconds} seconds for {what}")
            alive = self.take(end - time.monotonic())

    def type(self, line):
        self.watch(STEP_PAUSE)
        self.read_to = len(self.seen)
        for key in line + "\n":
            os.write(self.terminal, key.encode())
            self.watch(KEY_PAUSE)

    def status(self):
        """Reads to the end and gives the program's exit status."""
        end = min(time.monotonic() + ANSWER_TIME, self.deadline)
        while self.take(end - time.monotonic()):
            if time.monotonic() > end:
                raise Wrong("the program did not end after its last Q")
        _, status = os.waitpid(self.process, 0)
        self.process = 0
        return os.waitstatus_to_exitcode(status)

    def close(self):
        if self.process:
            os.kill(self.process, signal.SIGKILL)
            os.waitpid(self.process, 0)
        os.close(self.terminal)


def caption(text):
    print(f"\n\n### {text}\n", flush=True)


def read_environment(file):
    """The values of an environment file by (section, key), as the program reads them."""
    if not os.path.isfile(file):
        raise Wrong("no such environment file: " + file)
    values = {}
    section = None
    with open(file, encoding="utf-8-sig", errors="replace") as lines:
        for line in lines:
            line = line.strip()
            if line.startswith("[") and "]" in line:
                section = line[1 : line.index("]")].strip().lower()
            elif section and "=" in line and line[0] not in ";#":
                key, value = (part.strip() for part in line.split("=", 1))
                values.setdefault((section, key.lower()), value.strip('"'))
    return values


def number_of(text):
    """A decimal number up to the first other character, or one in hexadecimal behind 0x; else 0."""
    found = re.match(r"\s*(0[xX][0-9a-fA-F]+|[+-]?\d+)", text)
    return int(found[1], 0 if found[1][:2] in ("0x", "0X") else 10) if found else 0


def main_frame_rates(ini):
    """Frames a second that each channel of the main stream is set to; 0 where it is off."""
    limit = 30 if number_of(ini.get(("general", "video_format"), "")) == 0 else 25
    rates = []
    for channel in range(1, CHANNELS + 1):
        words = ini.get(("main stream", f"ch_{channel:02d}"), "").split()
        on = len(words) > 2 and number_of(words[0]) != 0
        rates.append(min(number_of(words[2]), limit) if on else 0)
    return rates


def rows_of(table):
    """(total, frames in the last second) of each channel of a rate table."""
    rows = [line.split() for line in table.group(1).splitlines()]
    for channel, row in enumerate(rows):
        if int(row[0]) != channel:
            raise Wrong(f"row {channel} of a table is headed {row[0]}")
    return [(int(row[1]), int(row[2])) for row in rows]


def check_rates(session, rates):
    """Watches three tables: after the first period the rates are those of the settings."""
    totals = rows_of(session.expect(MAIN_TABLE, "the first main-stream table", TABLE_TIME))
    for _ in range(2):
        rows = rows_of(session.expect(MAIN_TABLE, "the next main-stream table", TABLE_TIME))
        for channel, (rate, before, row) in enumerate(zip(rates, totals, rows)):
            total, frames = row
            if abs(frames - rate) > 1 + rate // 4:
                raise Wrong(f"channel {channel} is set to {rate} frames/s and shows {frames}")
            # One frame may come between the reading of the two figures.
            if abs(total - before[0] - frames) > 1:
                raise Wrong(f"channel {channel} counts {frames} frames and its total grows by "
                            f"{total - before[0]}")
        totals = rows


def check_playback(session, tables):
    """Watches `tables` search tables: frames are decoded, and DEC Frame is their sum."""
    for _ in range(tables):
        table = session.expect(SEARCH_TABLE, "a search table", TABLE_TIME)
        decoded = sum(frames for _, frames in rows_of(table))
        if decoded != int(table.group(2)):
            raise Wrong(f"DEC Frame shows {table.group(2)}, the channels add up to {decoded}")
    if decoded == 0:
        raise Wrong("nothing is decoded during playback")


def tour(session, rates):
    session.expect("QM7105>", "the top-level prompt")

    caption("MAIN opens a codec session on all four chips.")
    session.type("MAIN")
    session.expect("MAIN>", "the prompt of MAIN")
    caption("ENCODE 0 records the main stream of every enabled channel, ENCODE 2 the others.")
    session.type("ENCODE 0")
    session.expect("Encode DB Stream : ", "the database of the main stream")
    session.type("ENCODE 2")
    session.expect("Encode DB Stream(Jpeg) : ", "the databases of the other streams")

    caption("STATUS, SET: the rate table of the main stream (A bit 0) and of JPEG (A bit 24).")
    session.type("STATUS")
    session.expect("STATUS>", "the prompt of STATUS")
    session.type("SET")
    session.expect("Select Operation : ", "the SET dialogue")
    session.type("t 1000001 0")
    session.expect("infomask 01000001 00000000\n", "the masks")
    session.expect("Select Operation : ", "the SET dialogue again")
    session.type("9")
    session.expect("STATUS>", "the prompt of STATUS")
    caption("RUN prints them once a second: the frame rates are those of the environment file.")
    session.type("RUN")
    session.expect(" !!  Status thread is running  !!", "the start of the status thread")
    check_rates(session, rates)

    caption("SET again: the search table instead. It stays silent until something is played.")
    session.type("SET")
    session.expect("Select Operation : ", "the SET dialogue")
    session.type("t 2 0")
    session.expect("infomask 00000002 00000000\n", "the masks")
    session.type("9")
    session.expect("STATUS>", "the prompt of STATUS")
    session.type("EXIT")
    session.expect("MAIN>", "the prompt of MAIN")

    caption("SEARCH opens the recording, which goes on meanwhile; PB 4 plays it forward.")
    session.type("SEARCH")
    session.expect("Decode DB Stream : ", "the search database")
    session.expect("SEARCH>", "the prompt of SEARCH")
    session.type("PB 4")
    check_playback(session, 3)
    caption("PB SPEED UP doubles the speed, PB 3 pauses.")
    session.type("PB SPEED UP")
    check_playback(session, 2)
    session.type("PB 3")
    session.type("EXIT")
    session.expect("MAIN>", "the prompt of MAIN")

    caption("ENCODE 3 and ENCODE 1 stop the recording; Q closes the session, Q the program.")
    session.type("ENCODE 3")
    session.expect("MAIN>", "the prompt of MAIN")
    session.type("ENCODE 1")
    session.expect("MAIN>", "the prompt of MAIN")
    session.type("Q")
    for line in (" !! Status thread is stopped !!\n", "Release ReleaseAVCodec - Begin\n",
                 "Release ReleaseAVCodec - End\n", "Destroy QM AV Codec.\n", "QM7105>"):
        session.expect(line, f'"{line.strip()}"')
    session.type("Q")
    session.expect("Exit QM7105 test program\n", "the farewell")
    status = session.status()
    if status != 0:
        raise Wrong(f"the program's exit status is {status}")


def main(arguments):
    if len(arguments) != 2:
        print("usage: tour.py PROGRAM ENVFILE", file=sys.stderr)
        return 2
    session = None
    try:
        ini = read_environment(arguments[1])
        rates = main_frame_rates(ini)
        if not any(rates):
            raise Wrong("no channel of the main stream is enabled in " + arguments[1])
        if number_of(ini.get(("general", "board_type"), "")) in BOARDS_WITHOUT_SEARCH:
            raise Wrong("the board of this environment file cannot search: " + arguments[1])
        session = Session(*arguments)
        tour(session, rates)
    except Wrong as wrong:
        print(f"\n\ntour: {wrong}")
        return 1
    except KeyboardInterrupt:
        print("\n\ntour: interrupted")
        return 130
    except BrokenPipeError:  # nobody watches any more
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        return 1
    finally:
        if session:
            session.close()
    print("\n\n### Everything seen on this tour was right.")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
