#!/usr/bin/env python3
"""Types a session into the program, shows it, and checks what comes back.

Usage: tour.py PROGRAM QMTOOL ENVFILE      (started by ./run.sh --tour)

Records the main and the other streams, watches the rate tables, and leaves the program. Then qmtool
verifies the databases, the program is started again and plays them back, and qmtool exports a clip
and writes a report. With a main database in memory the recording is played back while it goes on
instead. Exit status 0 only if everything seen was right; otherwise the last line says what was not.
Every wait has a deadline, so the tour never hangs.

Databases on disk may hold recordings of earlier runs: they stay, and count as well.
"""
import json
import os
import pty
import re
import select
import signal
import subprocess
import sys
import time

CHANNELS = 16
MAIN, DUAL, JPEG = "main", "dual", "jpeg"
TYPES_ON_DISK = (0, 1)
BOARDS_WITHOUT_SEARCH = (2, 6, 7)
KEY_PAUSE = 0.03
STEP_PAUSE = 0.4
# A table comes every second and an answer at once; a busy machine may be late.
ANSWER_TIME = 60
TABLE_TIME = 60
# Until the tables show what they should.
SETTLE_TIME = 60
# The whole tour, whatever happens.
TOUR_TIME = 300
# Of the clip that the tour ends with.
CLIP_SECONDS = 5
# Of a larger database qmtool looks at the headers, directories and ends only.
QUICK_FROM = 512 << 20

ROWS = r"((?: *\d+ +\d+ +\d+ +[\d.]+ +\d+\n){16})"
HEAD = r"\n={48}\nCH  tot_count  frame/sec  kbyte/sec kbitrate/sec\n-{48}\n"
MAIN_TABLE = re.compile("Main Stream Encode Status" + HEAD + ROWS +
                        r"-{48}\n\* Buffer Count : \d+\n={48}\n")
SEARCH_TABLE = re.compile("Search Status" + HEAD + ROWS +
                          r"-{48}\nTIME:(\d+), DEC Frame:(\d+), BUF Count:\d+\n={48}\n")


class Wrong(Exception):
    """What the tour saw and did not like."""


class Session:
    """The program in a terminal of its own; everything it prints is shown."""

    def __init__(self, program, environment, deadline):
        self.seen = ""
        self.read_to = 0
        self.deadline = deadline
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
        start = time.monotonic()
        end = min(start + seconds, self.deadline)
        alive = True
        while True:
            found = pattern.search(self.seen, self.read_to)
            if found:
                self.read_to = found.end()
                return found
            if not alive:
                raise Wrong(f"the program ended before {what}{self.complaint()}")
            if time.monotonic() > end:
                waited = round(time.monotonic() - start)
                raise Wrong(f"waited {waited} seconds for {what}{self.complaint()}")
            alive = self.take(end - time.monotonic())

    def complaint(self):
        """The last thing that the board had to say."""
        lines = re.findall(r"qm7105 board: .*", self.seen)
        return f" ({lines[-1]})" if lines else ""

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


def wrong_rates(rates, totals, rows):
    """What is wrong with a table, `totals` being the one before; None when nothing is."""
    for channel, (rate, before, row) in enumerate(zip(rates, totals, rows)):
        total, frames = row
        if abs(frames - rate) > 1 + rate // 4:
            return f"channel {channel} is set to {rate} frames/s and shows {frames}"
        # One frame may come between the reading of the two figures.
        if abs(total - before[0] - frames) > 1:
            return (f"channel {channel} counts {frames} frames and its total grows by "
                    f"{total - before[0]}")
    return None


def wrong_growth(rates, first, last, seconds):
    """What is wrong with the growth of the totals over so many tables, which no single late one
    explains; None when nothing is."""
    for channel, (rate, before, after) in enumerate(zip(rates, first, last)):
        grown = after[0] - before[0]
        if abs(grown - rate * seconds) > 1 + rate * seconds // 8:
            return (f"channel {channel} is set to {rate} frames/s and its total grows by {grown} in "
                    f"{seconds} seconds")
    return None


def check_rates(session, rates):
    """Watches tables until the last two show the rates of the settings, and all together as well:
    after the first period each does, but one that a busy machine prints late has the frames of a
    longer time. The last totals and rates."""
    end = time.monotonic() + SETTLE_TIME
    first = rows_of(session.expect(MAIN_TABLE, "the first main-stream table", TABLE_TIME))
    totals = first
    right = 0
    seconds = 0
    while True:
        rows = rows_of(session.expect(MAIN_TABLE, "the next main-stream table", TABLE_TIME))
        seconds += 1
        wrong = wrong_rates(rates, totals, rows)
        right = 0 if wrong else right + 1
        wrong = wrong or wrong_growth(rates, first, rows, seconds)
        if right >= 2 and not wrong:
            return rows
        if wrong and time.monotonic() > end:
            raise Wrong(wrong)
        totals = rows


def check_playback(session, tables, held=None):
    """Watches search tables until so many in a row are right: frames are decoded, DEC Frame is
    their sum, and with `held`, what qmtool says of the database, they are frames that it holds.
    The first tables may still show what was played before. Where a busy machine made the tour late,
    all frames may have been played already."""
    end = time.monotonic() + SETTLE_TIME
    right = 0
    begun = False
    while right < tables:
        table = session.expect(SEARCH_TABLE, "a search table", TABLE_TIME)
        rows = rows_of(table)
        decoded = sum(frames for _, frames in rows)
        if decoded != int(table.group(3)):
            raise Wrong(f"DEC Frame shows {table.group(3)}, the channels add up to {decoded}")
        wrong = wrong_playback(rows, decoded and int(table.group(2)), held) if held else None
        if wrong and begun:
            raise Wrong(wrong)
        if not wrong and not decoded and not (held and all_played(rows, held)):
            wrong = "nothing is decoded during playback"
        if wrong and time.monotonic() > end:
            raise Wrong(wrong)
        right = 0 if wrong else right + 1
        begun = begun or right > 0


def all_played(rows, held):
    played = [rows[channel][0] == frames for channel, frames in held.frames.items()]
    return bool(played) and all(played)


def wrong_playback(rows, seconds, held):
    """What the database does not hold; `seconds` is 0 when nothing was played. None when all is
    there."""
    for channel, (total, _) in enumerate(rows):
        if total > held.frames.get(channel, 0):
            return (f"channel {channel} has played {total} frames, qmtool lists "
                    f"{held.frames.get(channel, 0)}")
    if seconds and not held.first_us // 10**6 <= seconds <= held.last_us // 10**6:
        return f"playback shows a frame of the time {seconds}, which is not recorded"
    return None


class Holdings:
    """What a database holds of one stream, by `qmtool list --json`."""

    def __init__(self, listed, stream):
        channels = [entry for entry in listed["channels"] if entry["stream"].lower() == stream]
        self.frames = {entry["channel"]: entry["frames"] for entry in channels}
        self.first_us = min((entry["first"]["us"] for entry in channels), default=0)
        self.last_us = max((entry["last"]["us"] for entry in channels), default=0)
        self.runs = listed["run_count"]


class Database:
    """One database on disk, looked at with qmtool."""

    def __init__(self, tool, stream, path, deadline):
        self.tool = tool
        self.stream = stream
        self.path = path
        self.deadline = deadline

    def bytes(self):
        folder, name = os.path.split(self.path)
        try:
            names = os.listdir(folder or ".")
        except FileNotFoundError:
            return 0
        return sum(os.path.getsize(os.path.join(folder, entry)) for entry in names
                   if entry.startswith(name + ".") and entry.endswith(".seg"))

    def ask(self, *words, shown=True):
        """What qmtool answers; anything but the exit status 0 is wrong."""
        command = f"qmtool {' '.join(words)} {self.path}"
        if shown:
            print("\n$ " + command, flush=True)
        try:
            run = subprocess.run([self.tool, *words, self.path], capture_output=True, text=True,
                                 check=False, stdin=subprocess.DEVNULL,
                                 timeout=max(1, self.deadline - time.monotonic()))
        except subprocess.TimeoutExpired as expired:
            raise Wrong(f"{command} took too long") from expired
        if shown:
            print(run.stdout + run.stderr, end="", flush=True)
        if run.returncode != 0:
            raise Wrong(f"the exit status of {command} is {run.returncode}")
        return run.stdout

    def verify(self, decode=False):
        """Of earlier recordings nobody knows whose pictures they have: only new ones are decoded."""
        quick = self.bytes() > QUICK_FROM
        self.ask("verify", *(["--quick"] if quick else ["--decode"] if decode else []))

    def take_home(self, channel):
        """A clip of the last seconds of a channel, and a page about the whole database."""
        folder = os.path.dirname(self.path) or "."
        clip = os.path.join(folder, f"tour-channel-{channel:02d}.mov")
        page = os.path.join(folder, "tour-report.html")
        self.ask("export", "--channel", str(channel), "--stream", self.stream, "--from",
                 f"-{CLIP_SECONDS}", "--force", "-o", clip)
        self.ask("report", "--force", "-o", page)
        for file in (clip, page):
            if os.path.getsize(file) == 0:
                raise Wrong(f"{file} is empty")
        return clip, page

    def holdings(self):
        """None when there is nothing yet, or too much to be counted on a tour."""
        if not 0 < self.bytes() <= QUICK_FROM:
            return None
        try:
            listed = self.ask("list", "--json", shown=False)
        except Wrong:
            self.verify()  # it shows what is wrong
            raise
        return Holdings(json.loads(listed), self.stream)


class Tour:
    """The whole of it. `places` are the databases on disk by their group."""

    def __init__(self, program, environment, rates, places, deadline):
        self.program = program
        self.environment = environment
        self.rates = rates
        self.places = places
        self.deadline = deadline
        self.session = None

    def start(self):
        self.session = Session(self.program, self.environment, self.deadline)
        self.session.expect("QM7105>", "the top-level prompt")

    def answer(self, line, text, what):
        self.session.type(line)
        self.session.expect(text, what)

    def select(self, mask):
        """SET: the reports of mask A."""
        self.answer("SET", "Select Operation : ", "the SET dialogue")
        self.answer(f"t {mask:x} 0", f"infomask {mask:08x} 00000000\n", "the masks")
        self.session.expect("Select Operation : ", "the SET dialogue again")
        self.answer("9", "STATUS>", "the prompt of STATUS")

    def record(self):
        """Opens a session, records everything, watches it; ends in MAIN."""
        caption("MAIN opens a codec session on all four chips.")
        self.answer("MAIN", "MAIN>", "the prompt of MAIN")
        caption("ENCODE 0 records the main stream of every enabled channel, ENCODE 2 the others.")
        self.answer("ENCODE 0", "Encode DB Stream : ", "the database of the main stream")
        self.answer("ENCODE 2", "Encode DB Stream(Jpeg) : ", "the databases of the other streams")
        caption("STATUS, SET: the rate table of the main stream (A bit 0) and of JPEG (A bit 24).")
        self.answer("STATUS", "STATUS>", "the prompt of STATUS")
        self.select(0x1000001)
        caption("RUN prints them once a second: the frame rates are those of the environment file.")
        self.answer("RUN", " !!  Status thread is running  !!", "the start of the status thread")
        return check_rates(self.session, self.rates)

    def leave(self):
        """From MAIN: Q, Q."""
        self.session.type("Q")
        for line in (" !! Status thread is stopped !!\n", "Release ReleaseAVCodec - Begin\n",
                     "Release ReleaseAVCodec - End\n", "Destroy QM AV Codec.\n", "QM7105>"):
            self.session.expect(line, f'"{line.strip()}"')
        self.answer("Q", "Exit QM7105 test program\n", "the farewell")
        status = self.session.status()
        if status != 0:
            raise Wrong(f"the program's exit status is {status}")
        self.close()

    def close(self):
        if self.session:
            self.session.close()
        self.session = None

    def in_memory(self):
        """Plays what is being recorded, since it is gone afterwards."""
        self.start()
        self.record()
        caption("SET again: the search table instead. It stays silent until something is played.")
        self.select(2)
        self.answer("EXIT", "MAIN>", "the prompt of MAIN")

        caption("SEARCH opens the recording, which goes on meanwhile; PB 4 plays it forward.")
        self.answer("SEARCH", "Decode DB Stream : ", "the search database")
        self.session.expect("SEARCH>", "the prompt of SEARCH")
        self.session.type("PB 4")
        check_playback(self.session, 3)
        caption("PB SPEED UP doubles the speed, PB 3 pauses.")
        self.session.type("PB SPEED UP")
        check_playback(self.session, 2)
        self.session.type("PB 3")
        self.answer("EXIT", "MAIN>", "the prompt of MAIN")

        caption("ENCODE 3 and ENCODE 1 stop the recording; Q closes the session, Q the program.")
        self.answer("ENCODE 3", "MAIN>", "the prompt of MAIN")
        self.answer("ENCODE 1", "MAIN>", "the prompt of MAIN")
        self.leave()

    def on_disk(self):
        """Records, leaves, looks at the databases, and plays them in another program."""
        before = {group: place.holdings() for group, place in self.places.items()}
        self.start()
        counted = self.record()
        self.answer("EXIT", "MAIN>", "the prompt of MAIN")
        caption("Q stops the recording and closes the session, Q leaves the program.")
        self.leave()

        caption("The recordings are on disk. qmtool verifies every byte and decodes every picture.")
        for group, place in self.places.items():
            place.verify(decode=before[group] is None)
        after = {group: place.holdings() for group, place in self.places.items()}
        check_growth(before, after, counted)
        caption("And what is there, channel by channel; recordings of earlier runs as well.")
        main = self.places[MAIN]
        main.ask("list" if after[MAIN] else "info")

        caption("The program again: STATUS, SET and RUN for the search table.")
        self.start()
        self.answer("MAIN", "MAIN>", "the prompt of MAIN")
        self.answer("STATUS", "STATUS>", "the prompt of STATUS")
        self.select(2)
        self.answer("RUN", " !!  Status thread is running  !!", "the start of the status thread")
        self.answer("EXIT", "MAIN>", "the prompt of MAIN")
        self.play(after)
        caption("EXIT leaves SEARCH; Q closes the session, Q the program.")
        self.answer("EXIT", "MAIN>", "the prompt of MAIN")
        self.leave()
        self.take_home()

    def take_home(self):
        recorded = [channel for channel, rate in enumerate(self.rates) if rate]
        if not recorded or MAIN not in self.places:
            return
        caption("qmtool exports the last seconds of a channel, and writes a page about all of it.")
        clip, page = self.places[MAIN].take_home(recorded[0])
        caption(f"The clip is in {os.path.abspath(clip)}")
        print(f"    the page in {os.path.abspath(page)}\n", flush=True)

    def play(self, held):
        caption("SEARCH opens what was recorded, the oldest first; PB 4 plays it forward.")
        self.session.type("SEARCH")
        found = self.session.expect(re.compile(r"Decode DB Stream : ([01]), "),
                                    "the search database")
        self.session.expect("SEARCH>", "the prompt of SEARCH")
        groups = (MAIN, DUAL) if found[1] == "0" else (DUAL, MAIN)
        self.session.type("PB 4")
        check_playback(self.session, 2, held.get(groups[0]))
        caption("PB SPEED UP doubles the speed.")
        self.session.type("PB SPEED UP")
        check_playback(self.session, 1, held.get(groups[0]))
        other = self.places.get(groups[1])
        if other and other.bytes():
            caption("SETDB opens the other database and plays it forward.")
            self.answer(f"SETDB {1 - int(found[1])}", "Decode DB Stream : ", "the other database")
            check_playback(self.session, 2, held[groups[1]])
        self.session.type("PB 3")


def check_growth(before, after, counted):
    """What the tables counted is on disk, beside what was there before."""
    for group, now in after.items():
        was = before[group]
        if not now or (was and was.first_us != now.first_us):  # the ring has turned
            continue
        if now.runs <= (was.runs if was else 0) and now.frames:
            raise Wrong(f"no new recording is in the {group} database")
        for channel, (total, _) in enumerate(counted if group == MAIN else []):
            old = was.frames.get(channel, 0) if was else 0
            grown = now.frames.get(channel, 0) - old
            if grown < total:
                raise Wrong(f"channel {channel} counted {total} frames, {grown} are recorded")


def places_on_disk(ini, tool, deadline):
    places = {}
    for group in (MAIN, DUAL, JPEG):
        kind = ini.get(("general", group + "_database_type"), "")
        if kind and number_of(kind) in TYPES_ON_DISK:
            path = ini.get(("general", group + "_stream_db"), "")
            places[group] = Database(tool, group, path, deadline)
    return places


def main(arguments):
    if len(arguments) != 3:
        print("usage: tour.py PROGRAM QMTOOL ENVFILE", file=sys.stderr)
        return 2
    program, tool, environment = arguments
    deadline = time.monotonic() + TOUR_TIME
    tour = None
    try:
        ini = read_environment(environment)
        rates = main_frame_rates(ini)
        if not any(rates):
            raise Wrong("no channel of the main stream is enabled in " + environment)
        if number_of(ini.get(("general", "board_type"), "")) in BOARDS_WITHOUT_SEARCH:
            raise Wrong("the board of this environment file cannot search: " + environment)
        places = places_on_disk(ini, tool, deadline)
        tour = Tour(program, environment, rates, places, deadline)
        if MAIN in places:
            tour.on_disk()
        else:
            tour.in_memory()
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
        if tour:
            tour.close()
    print("\n\n### Everything seen on this tour was right.")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
