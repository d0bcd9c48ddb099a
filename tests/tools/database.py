"""Writes databases by hand, byte for byte as docs/stream-database.md lays them out. Nothing of the
program is used, so that what it reads is held against the page."""
import fcntl
import os
import struct

BLOCK = 4096
START = 2 * BLOCK
SEGMENT_BYTES = 64 * 1024
IDR, P, JPEG, AUDIO, PAD, DIRECTORY = 0, 1, 2, 3, 64, 65
NEVER = -(1 << 63)
T0 = 1_795_225_588_000_000  # 2026-11-21T01:46:28Z

TABLE = []
for index in range(256):
    for _ in range(8):
        index = index >> 1 ^ (0x82F63B78 if index & 1 else 0)
    TABLE.append(index)


def crc32c(data, start=0):
    crc = start ^ 0xFFFFFFFF
    for byte in data:
        crc = crc >> 8 ^ TABLE[(crc ^ byte) & 0xFF]
    return crc ^ 0xFFFFFFFF


assert crc32c(b"123456789") == 0xE3069283


def round_up(value, to):
    return -(-value // to) * to


def ini_text(identity, segment_bytes=SEGMENT_BYTES, ring=10):
    text = ("; A stream database. The recordings are in the numbered .seg files beside this file.\n"
            f"[DATABASE]\nformat = 1\nidentity = {identity.hex()}\n"
            f"segment_bytes = {segment_bytes}\nring_segments = {ring}\n")
    return text + f"checksum = {crc32c(text.encode()):08x}\n"


class Frame:
    def __init__(self, channel=0, number=0, us=0, kind=P, stream=0, bytes=100, run=1, step_us=0):
        """`us`: monotonic time since T0; `step_us`: by how much UTC is ahead of it."""
        self.channel, self.number, self.kind, self.stream = channel, number, kind, stream
        self.mono, self.utc, self.run = T0 + us, T0 + us + step_us, run
        self.payload = bytes if isinstance(bytes, type(b"")) else b"x" * bytes


class Segment:
    """A segment as it grows. What the recorder never does is done by changing `data`, by the
    arguments of record(), or by the fields before header()."""

    def __init__(self, number=1, first=0, identity=b"\x11" * 16, size=SEGMENT_BYTES, own=7,
                 latest=NEVER, run=1, mono=T0, utc=T0):
        self.number, self.first, self.identity, self.size = number, first, identity, size
        self.own, self.latest, self.run, self.mono, self.utc = own, latest, run, mono, utc
        self.seed = crc32c(identity + struct.pack("<QQ", own, number))
        self.data = bytearray()
        self.next = first
        self.entries = []
        self.begins = True  # the next record begins a batch
        self.last = None
        self.data += self.header() * 2

    def header(self):
        head = b"QM7105SG" + struct.pack(
            "<II16sQQQQqqqI32s", 1, BLOCK, self.identity, self.own, self.number, self.size,
            self.first, self.utc, self.mono, self.latest, self.run, bytes(32))
        head += struct.pack("<I", crc32c(head))
        return head.ljust(BLOCK, b"\0")

    def record(self, kind, payload, frame=None, flags=None, hole=0, sequence=None, fill=b"\0"):
        """Appends a record of any kind; returns its offset."""
        frame = frame or self.last or Frame()
        flags = (1 if self.begins else 0) if flags is None else flags
        self.begins = False
        head = b"QMRC" + struct.pack(
            "<IBBBBIQqqII", len(payload), kind, frame.stream, frame.channel, flags, frame.number,
            self.next if sequence is None else sequence, frame.utc, frame.mono, frame.run, hole)
        filled = payload + fill * (round_up(len(payload), 8) - len(payload))
        head += struct.pack("<I", crc32c(head + filled, self.seed))
        head += struct.pack("<I", crc32c(head, self.seed))
        offset = len(self.data)
        self.data += head + filled
        return offset

    def frame(self, frame, **other):
        offset = self.record(frame.kind, frame.payload, frame, **other)
        self.entries.append(struct.pack("<qIBBBB", frame.utc, offset // 8, frame.kind, frame.stream,
                                        frame.channel, 0))
        self.next = other.get("sequence", self.next) + 1
        self.last = frame
        self.latest = max(self.latest, frame.utc)
        return offset

    def pad(self, to=None, fill=b"\0", **other):
        """Up to `to`, else the next block; ends the batch."""
        to = to or round_up(len(self.data), BLOCK)
        gap = to - len(self.data)
        if 0 < gap < 56:
            gap += BLOCK
        if gap:
            self.record(PAD, fill * (gap - 56), **other)
        self.begins = True

    def commit(self):
        self.pad()

    def finish(self, entries=None, full=False):
        """The directory; the file is cut behind it, or `full`."""
        entries = self.entries if entries is None else entries
        size = 56 + 16 * len(entries) + 16
        end = self.size if full else round_up(len(self.data) + size, BLOCK)
        gap = end - size - len(self.data)
        if 0 < gap < 56:
            end += BLOCK
        self.pad(to=end - size)
        self.begins = False
        offset = len(self.data)
        tail = struct.pack("<II8s", len(entries), offset // 8, b"QM7105DX")
        self.record(DIRECTORY, b"".join(entries) + tail)
        self.begins = True
        return self

    def open_ended(self):
        """As long as it was allocated, with zeros behind the records."""
        self.data = self.data.ljust(self.size, b"\0")
        return self

    def following(self, **other):
        """The segment behind this one."""
        other.setdefault("own", self.own + 1)
        return Segment(self.number + 1, self.next, self.identity, self.size, latest=self.latest,
                       **other)


class Folder:
    """A folder with one database, db.ini."""

    def __init__(self, path):
        self.path = path
        self.ini = os.path.join(path, "db.ini")

    def name(self, number):
        return f"{self.ini}.{number:010d}.seg"

    def write(self, *segments, ini=True):
        for segment in segments:
            with open(self.name(segment.number), "wb") as out:
                out.write(segment.data)
        if ini:
            self.put("db.ini", ini_text(segments[-1].identity).encode())
        return self

    def put(self, name, content):
        with open(os.path.join(self.path, name), "wb") as out:
            out.write(content)

    def get(self, name):
        with open(os.path.join(self.path, name), "rb") as content:
            return content.read()

    def contents(self):
        return {name: self.get(name) for name in sorted(os.listdir(self.path))
                if os.path.isfile(os.path.join(self.path, name))}


class Lock:
    """The lock of a recorder, as long as the object is entered."""

    def __init__(self, folder, name="db.ini.lock"):
        self.path = os.path.join(folder.path, name)

    def __enter__(self):
        self.file = os.open(self.path, os.O_RDWR | os.O_CREAT, 0o640)
        fcntl.fcntl(self.file, fcntl.F_OFD_SETLK,
                    struct.pack("hhqqi4x", fcntl.F_WRLCK, os.SEEK_SET, 0, 0, 0))
        return self

    def __exit__(self, *_):
        os.close(self.file)


def usual(frames=40, step=33_333, **other):
    """One finished segment: channel 0 of main, key frames every 10, and sound of channel 3."""
    segment = Segment(**other)
    for i in range(frames):
        segment.frame(Frame(0, i, i * step, IDR if i % 10 == 0 else P, bytes=300 + i))
        segment.frame(Frame(3, i, i * step + 5, AUDIO, bytes=64))
        if i % 10 == 9:
            segment.commit()
    return segment
