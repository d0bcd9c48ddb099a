"""What tests with other decoders share: streams are exported by qmtool, decoded by FFmpeg or
GStreamer, and their pictures and block codes are read here, with nothing of the program's own."""
import collections
import os
import shutil
import subprocess
import sys
import unittest

QMTOOL, MAKER, MATRIX = "", "", ""
NAMES = ("main", "dual", "JPEG", "preview", "third", "fourth")
JPEG = 2
FORMATS = (0, 1)  # NTSC, PAL
PATIENCE = 300
DARK, LIGHT = 16, 208

Frame = collections.namedtuple("Frame", "stream channel number time key")
Code = collections.namedtuple("Code", "stream channel number")
Picture = collections.namedtuple("Picture", "width height data")  # planar 4:2:0


def run(*words):
    return subprocess.run(words, check=False, stdin=subprocess.DEVNULL, timeout=PATIENCE,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE)


def has_gstreamer():
    return bool(shutil.which("gst-launch-1.0")) and \
        run("gst-inspect-1.0", "openh264dec").returncode == 0


def main():
    """For a script's end: QMTOOL COMMANDED_STREAMS RECORDED_STREAMS, then what unittest takes."""
    global QMTOOL, MAKER, MATRIX
    QMTOOL, MAKER, MATRIX = (os.path.abspath(word) for word in sys.argv[1:4])
    unittest.main(module="__main__", argv=sys.argv[:1] + sys.argv[4:], verbosity=2)


def record(folder, name, number):
    """What the maker recorded: the path of its database, and what it printed."""
    path = os.path.join(folder, f"{name}-{number}", "db.ini")
    os.mkdir(os.path.dirname(path))
    words = (MATRIX, "make", path) if name == "matrix" else (MAKER, name, path)
    made = run(*words, str(number))
    assert made.returncode == 0, made.stderr
    return path, made.stdout.decode()


def lanes(database):
    """The frames of each stream of each channel, in order."""
    found = collections.defaultdict(list)
    for line in run(MATRIX, "list", database).stdout.splitlines():
        frame = Frame(*map(int, line.split()))
        found[frame.stream, frame.channel].append(frame)
    return found


# ---- block codes

def crc16(data):
    """CRC-16/CCITT-FALSE."""
    crc = 0xFFFF
    for byte in data:
        crc ^= byte << 8
        for _ in range(8):
            crc = crc << 1 ^ (0x1021 if crc & 0x8000 else 0)
        crc &= 0xFFFF
    return crc


def code_bits(picture, tolerance):
    """The 64 squares as an integer; None when one has another value than light or dark."""
    top = (picture.height // 16 - 2) * 16
    bits = 0
    for row in range(4):
        at = (top + 8 * row) * picture.width
        lines = [picture.data[at + y * picture.width:at + y * picture.width + 128]
                 for y in range(8)]
        for column in range(0, 128, 8):
            square = b"".join(line[column:column + 8] for line in lines)
            low, high = min(square), max(square)
            if low >= LIGHT - tolerance and high <= LIGHT + tolerance:
                bits = bits << 1 | 1
            elif low >= DARK - tolerance and high <= DARK + tolerance:
                bits = bits << 1
            else:
                return None
    return bits


def read_code(picture, tolerance=0):
    """The block code of a picture; None when there is none that is whole."""
    bits = code_bits(picture, tolerance)
    if bits is None:
        return None
    data = bits.to_bytes(8, "big")
    if data[5] != 0 or crc16(data[:6]) != int.from_bytes(data[6:], "big"):
        return None
    return Code(data[0] >> 5, data[0] & 31, int.from_bytes(data[1:5], "big"))


# ---- sizes of pictures, from the bytes of a stream

class Bits:
    def __init__(self, data):
        self.bits = "".join(f"{byte:08b}" for byte in data.replace(b"\0\0\3", b"\0\0"))
        self.at = 0

    def take(self, count):
        self.at += count
        return int(self.bits[self.at - count:self.at], 2)

    def golomb(self):
        zeros = self.bits.index("1", self.at) - self.at
        self.at += zeros
        return self.take(zeros + 1) - 1


def sequence_size(unit):
    """Of a sequence parameter set of the baseline profile."""
    bits = Bits(unit[1:])
    assert bits.take(8) == 66, "baseline"
    bits.take(16)  # constraints, level
    bits.golomb()  # number of the set
    bits.golomb()  # frame numbers
    if bits.golomb() == 0:
        bits.golomb()
    bits.golomb()  # references
    bits.take(1)
    columns, rows = bits.golomb() + 1, bits.golomb() + 1
    assert bits.take(1) == 1, "progressive"
    bits.take(1)
    left, right, top, bottom = (bits.golomb() for _ in range(4)) if bits.take(1) else (0, 0, 0, 0)
    return 16 * columns - 2 * (left + right), 16 * rows - 2 * (top + bottom)


def units_of(data):
    at = data.find(b"\0\0\1")
    while at >= 0:
        following = data.find(b"\0\0\1", at + 3)
        yield data[at + 3:following if following >= 0 else len(data)]
        at = following


def h264_sizes(data):
    """The size of each access unit's picture."""
    sizes, size = [], None
    for unit in units_of(data):
        kind = unit[0] & 31
        if kind == 7:
            size = sequence_size(unit.rstrip(b"\0"))
        elif kind == 9:
            sizes.append(None)
        elif kind in (1, 5):
            sizes[-1] = size
    return sizes


def jpeg_size(data):
    at = 2
    while data[at + 1] != 0xC0:
        at += 2 + int.from_bytes(data[at + 2:at + 4], "big")
    return int.from_bytes(data[at + 7:at + 9], "big"), int.from_bytes(data[at + 5:at + 7], "big")


def jpeg_steps(data):
    """What a whole block's value may be off by, of luma and of chroma: half a step of its DC
    coefficient, which is 8 times the value."""
    steps, at = {}, 2
    while data[at + 1] != 0xDA:
        size = int.from_bytes(data[at + 2:at + 4], "big")
        if data[at + 1] == 0xDB:
            for table in range(at + 4, at + 2 + size, 65):
                steps[data[table] & 15] = data[table + 1] / 16
        at += 2 + size
    return steps[0], steps[1]


# ---- exports and what decoders make of them

def export(database, lane, output, *words):
    done = run(QMTOOL, "export", "--channel", str(lane[1]), "--stream", NAMES[lane[0]], *words,
               "--force", "-o", output, database)
    assert (done.returncode, done.stderr) == (0, b""), (lane, done.stderr)
    return done.stdout.decode()


def clip_of(database, lane, folder):
    """All of a lane as bare access units or JPEG files one after the other; its path and the sizes
    of its pictures."""
    name = os.path.join(folder, "-".join(map(str, lane)))
    if lane[0] != JPEG:
        clip = name + ".h264"
        export(database, lane, clip)
        with open(clip, "rb") as file:
            return clip, h264_sizes(file.read())
    stills = name + ".stills"
    export(database, lane, stills + "/")
    clip, sizes = name + ".mjpeg", []
    with open(clip, "wb") as film:
        for name in sorted(os.listdir(stills)):
            with open(os.path.join(stills, name), "rb") as file:
                data = file.read()
            sizes.append(jpeg_size(data))
            film.write(data)
    shutil.rmtree(stills)
    return clip, sizes


def ffmpeg(clip, jpeg):
    kind = ["-f", "mjpeg"] if clip.endswith(".mjpeg") else []
    return ["ffmpeg", "-v", "warning", "-xerror", *kind, "-probesize", "50M", "-i", clip,
            "-autoscale", "0", "-map", "0:v", "-fps_mode", "passthrough", "-f", "rawvideo",
            "-pix_fmt", "yuvj420p" if jpeg else "yuv420p", "-"]


def gstreamer(clip, jpeg):
    elements = ["jpegparse", "!", "jpegdec", "idct-method=islow"] if jpeg else \
        ["h264parse", "!", "openh264dec"]
    # Its parsers and decoders tell what they take exception to at level 2 only; basesrc tells of
    # every file at that level that it is being opened.
    return ["gst-launch-1.0", "-q", "--gst-debug=*:2,basesrc:1", "--gst-debug-no-color",
            "filesrc", "location=" + clip, "!", *elements, "!", "video/x-raw,format=I420",
            "!", "fdsink", "fd=1", "sync=false"]


def pictures(command, sizes):
    """What a decoder writes, picture by picture; fails when it says anything, or has more or fewer
    pictures than sizes."""
    with subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE) as decoding:
        try:
            for width, height in sizes:
                data = decoding.stdout.read(width * height * 3 // 2)
                assert len(data) == width * height * 3 // 2, (command, decoding.stderr.read())
                yield Picture(width, height, data)
            assert decoding.stdout.read(1) == b"", (command, "more pictures than were recorded")
            message = decoding.stderr.read()
            assert (decoding.wait(PATIENCE), message) == (0, b""), (command, message)
        finally:
            decoding.kill()
