#!/usr/bin/env python3
"""Holds the pages that qmtool report writes to figures worked out from what was recorded."""
import base64
import html.parser
import os

import clips
from clips import SLOT, ClipCase, pictures, segment, tones
from database import AUDIO, Folder, Frame, Lock, Segment

VOID = {"meta", "img", "br"}


class Page(html.parser.HTMLParser):
    """What a browser finds in a page: its elements, each with the text in it."""

    def __init__(self, text):
        super().__init__()
        self.open, self.all = [], []
        self.feed(text)
        self.close()
        assert not self.open, self.open

    def handle_starttag(self, tag, attributes):
        element = {"tag": tag, "text": "", **dict(attributes)}
        self.all.append(element)
        if tag not in VOID:
            self.open.append(element)

    def handle_startendtag(self, tag, attributes):
        self.all.append({"tag": tag, "text": "", **dict(attributes)})

    def handle_endtag(self, tag):
        assert self.open and self.open[-1]["tag"] == tag, (tag, [one["tag"] for one in self.open])
        self.open.pop()

    def handle_data(self, data):
        for element in self.open:
            element["text"] += data

    def find(self, tag, **attributes):
        return [one for one in self.all if one["tag"] == tag and
                all(one.get(name.strip("_")) == value for name, value in attributes.items())]

    def table(self, number=0):
        """The rows of a table, each by the names of its columns."""
        at = [self.all.index(one) for one in self.find("table")] + [len(self.all)]
        inside = self.all[at[number]:at[number + 1]]
        heads = [one["text"] for one in inside if one["tag"] == "th" and one.get("scope") == "col"]
        cells = [one["text"] for one in inside
                 if one["tag"] == "td" or one["tag"] == "th" and one.get("scope") == "row"]
        return [dict(zip(heads, cells[i:i + len(heads)])) for i in range(0, len(cells), len(heads))]

    def totals(self):
        return {name["text"]: value["text"]
                for name, value in zip(self.find("dt"), self.find("dd"))}


class Report(ClipCase):
    def report(self, *words, status=0, folder=None):
        done, out, err = self.run_tool("report", *words, "-o", self.path("a.html"),
                                       (folder or self.folder).ini)
        self.assertEqual((done, err), (status, ""), out)
        self.assertEqual(os.listdir(self.out), ["a.html"])
        self.text = self.read("a.html").decode()
        return Page(self.text)

    def test_figures_of_a_channel(self):
        frames = [frame for frame in pictures() if frame.number != 34]
        self.folder.write(segment(frames + tones()))
        page = self.report()
        row, = page.table()
        sizes = [len(frame.payload) for frame in frames]
        keys = [len(frame.payload) for frame in frames if frame.number % 10 == 0]
        # 48 frames came in the 1.96 s after the first one.
        bits = 8 * sum(sizes[1:]) / 1.96
        self.assertGreater(bits, 1000)
        self.assertLess(bits, 1e6)
        self.assertTrue(all(size >= 1000 for size in keys) and min(sizes) < 1000)
        self.assertEqual(row, {
            "Channel": "3", "Frames": "49", "Dropped": "1", "Gaps": "1", "Frames/s": "24.49",
            "Bit rate": f"{bits / 1000:.1f} kbit/s", "Key frames": "5", "Key distance": "10",
            "Mean key size": f"{sum(keys) / 5 / 1000:.1f} kB",
            "Mean size": f"{sum(sizes) / 49:.0f} B" if sum(sizes) < 49000 else
                         f"{sum(sizes) / 49000:.1f} kB",
            "Least": f"{min(sizes)} B", "Most": f"{max(sizes) / 1000:.1f} kB",
            "First": "2026-11-21T01:46:28Z", "Last": "2026-11-21T01:46:29Z"})
        sound, = page.table(1)
        self.assertEqual(
            {name: sound[name] for name in ("Channel", "Frames", "Dropped", "Frames/s", "Bit rate",
                                            "Mean size", "Least", "Most")},
            {"Channel": "3", "Frames": "50", "Dropped": "0", "Frames/s": "25.00",
             "Bit rate": "64.0 kbit/s", "Mean size": "320 B", "Least": "320 B", "Most": "320 B"})
        totals = page.totals()
        self.assertEqual((totals["From"], totals["To"], totals["Length"]),
                         ("2026-11-21T01:46:28.000Z", "2026-11-21T01:46:29.960Z", "1.96 s"))
        self.assertEqual([totals[name] for name in ("Frames", "Channels and streams", "Segments",
                                                    "Runs", "Dropped frames", "Gaps")],
                         ["99", "2", "1", "1", "1", "1"])

    def test_plots(self):
        # 25 frames in the first second, none in the second, 5 in the third: four steps a second.
        frames = [Frame(5, n, n * SLOT, AUDIO, bytes=1000) for n in range(25)]
        frames += [Frame(5, n + 25, 2_000_000 + n * SLOT, AUDIO, bytes=1000) for n in range(5)]
        frames += [Frame(6, n, n * 20_000, AUDIO, bytes=10) for n in range(150)]
        self.folder.write(segment(frames))
        page = self.report()
        lines = page.find("svg", class_="line")
        self.assertEqual(len(lines), 3)
        self.assertTrue(all(one["viewbox"] == "0 0 12 100" for one in lines))
        areas = [one["d"] for one in page.find("path", class_="area")]
        self.assertEqual(areas[:2], ["M0,100V0H4V100ZM8,100V0H9V100Z", "M0,100V0H12V100Z"])
        # Frames a second, up to 25; then 200 kbit/s, up to 200.
        self.assertEqual(areas[2], "M0,100V0H4V100ZM8,100V0H9V100Z")
        self.assertEqual(areas[3], areas[2])
        self.assertIn("up to 25<", self.text)
        self.assertIn("up to 200.0 kbit/s", self.text)
        # 50 a second; 80 * 50 = 4000 bit/s.
        self.assertEqual(areas[4:], ["M0,100V0H12V100Z"] * 2)
        self.assertIn("up to 50<", self.text)
        self.assertIn("up to 4.0 kbit/s", self.text)

    def test_plots_go_up_and_down(self):
        # 10 frames, 20 and 5 in a second each; up to 20 a second and, of 1000 bytes, 200 kbit/s.
        times = [n * 100_000 for n in range(10)] + [1_000_000 + n * 50_000 for n in range(20)]
        times += [2_000_000 + n * 200_000 for n in range(5)]
        self.folder.write(segment([Frame(5, n, us, AUDIO, bytes=1000) for n, us in enumerate(times)]))
        page = self.report()
        self.assertEqual([one["d"] for one in page.find("path", class_="area")][1:],
                         ["M0,100V50H4V0H8V75H12V100Z", "M0,100V60H4V20H8V80H12V100Z"])
        self.assertEqual([one["d"] for one in page.find("path", class_="edge")],
                         ["M0,50H4V0H8V75H12", "M0,60H4V20H8V80H12"])
        self.assertIn("up to 20<", self.text)
        self.assertIn("up to 200.0 kbit/s", self.text)

    def two_runs(self):
        """25 frames a second of 1000 bytes, 200 kbit/s: from 0 to 2.52 s, and from 10.6 to 13.12 s."""
        return [Frame(5, n, at + n * SLOT, AUDIO, bytes=1000, run=run)
                for at, run in ((0, 1), (10_600_000, 2)) for n in range(63)]

    def test_where_a_run_begins_and_ends_its_rate_is_the_same(self):
        self.folder.write(segment(self.two_runs()))
        page = self.report()
        # Quarters of a second: 2.48 s is in the tenth, 10.6 s in the 43rd, 13.08 s in the 53rd.
        flat = "M0,0H10M42,0H53"
        self.assertEqual([one["d"] for one in page.find("path", class_="edge")], [flat, flat])
        self.assertIn("up to 25<", self.text)
        self.assertIn("up to 200.0 kbit/s", self.text)
        self.assertIn("mean 25.00, most 25.00, 0 dropped", self.text)

    def test_rates_do_not_depend_on_where_a_step_ends(self):
        # 7.5 a second: 8 and 7 frames by turns.
        frames = [Frame(5, n, n * 400_000 // 3, AUDIO, bytes=300) for n in range(60)]
        self.folder.write(segment(frames))
        page = self.report()
        # Of 8 a second they are 94 of 100, and 18 kbit/s of 20 are 90.
        self.assertEqual([one["d"] for one in page.find("path", class_="edge")],
                         ["M0,6H32", "M0,10H32"])
        self.assertIn("up to 8<", self.text)
        self.assertIn("up to 20.0 kbit/s", self.text)

    def test_what_is_left_of_a_second_belongs_to_the_one_before(self):
        # Each second begins with 10,000 bytes, then come 24 times 1000: 272 kbit/s. In
        # the last 0.24 s there are six frames: of 31 frames in 1.24 s are 49,000 bytes, 316,129 bit/s.
        frames = [Frame(5, n, n * SLOT, AUDIO, bytes=1000 if n % 25 else 10_000) for n in range(56)]
        self.folder.write(segment(frames, size=64 << 20))
        page = self.report()
        # Up to 400: 272 are 68 of 100, 316 are 79.
        self.assertEqual([one["d"] for one in page.find("path", class_="edge")],
                         ["M0,0H9", "M0,32H4V21H9"])
        self.assertIn("up to 400.0 kbit/s", self.text)

    def test_where_frames_are_missing_the_rate_is_0(self):
        # A second of frames, 75 that are missing, a second of frames.
        frames = [Frame(5, n, n * SLOT, AUDIO, bytes=1000) for n in range(125) if not 25 <= n < 100]
        self.folder.write(segment(frames))
        page = self.report()
        self.assertEqual([one["d"] for one in page.find("path", class_="edge")],
                         ["M0,0H4V100H16V0H20"] * 2)
        self.assertEqual([one["d"] for one in page.find("path", class_="area")][0],
                         "M0,100V0H4V100ZM16,100V0H20V100Z")

    def test_the_axis_begins_with_the_earliest_frame(self):
        # The first record is of another channel, 5 ms later.
        frames = [Frame(6, 0, 5_000, AUDIO, bytes=10)]
        frames += [Frame(5, n, n * SLOT, AUDIO, bytes=1000) for n in range(50)]
        made = Segment(size=8 << 20)
        for frame in frames:
            made.frame(frame)
        made.commit()
        self.folder.write(made.finish())
        page = self.report()
        self.assertEqual([one["viewbox"] for one in page.find("svg", class_="line")],
                         ["0 0 8 100"] * 3)
        self.assertEqual(page.find("path", class_="area")[0]["d"], "M0,100V0H8V100Z")
        axes = page.find("div", class_="axis five")
        self.assertEqual([one["text"] for one in axes],
                         ["01:46:28.001:46:28.501:46:29.001:46:29.501:46:30.0"] * 2)

    def test_drops_are_marked(self):
        # The one behind it stands at 1.24 s.
        frames = [Frame(5, n, n * SLOT, AUDIO, bytes=320) for n in range(75) if n != 30]
        self.folder.write(segment(frames))
        page = self.report()
        self.assertEqual([one["d"] for one in page.find("path", class_="drop")],
                         ["M4.5,0V100", "M4.5,85V100", "M4.5,85V100"])

    def test_key_frames_at_another_distance_are_marked(self):
        # Keys at 0, 10, 30 and 40: 10 is usual, 20 is not, and ends at 30 * 0.04 s.
        self.folder.write(segment([frame for frame in pictures() if frame.number != 20]))
        page = self.report()
        self.assertEqual(page.table()[0]["Key distance"], "10, 1 other: 20")
        self.assertIn("key frame every 10, 1 other: 20", page.find("figcaption")[0]["text"])
        self.assertEqual([one["d"] for one in page.find("path", class_="odd")], ["M4.5,0V15"])
        self.folder.write(segment(pictures() + pictures(channel=4, stream=2)))
        page = self.report("--force")
        self.assertEqual(page.table()[0]["Key distance"], "10")
        self.assertEqual(page.find("path", class_="odd"), [])

    def test_scales_end_near_their_values(self):
        # 15 a second, 30 and 7.
        frames = [Frame(channel, n, n * 1_000_000 // rate, AUDIO, bytes=1000)
                  for channel, rate in ((1, 15), (2, 30), (3, 7)) for n in range(2 * rate)]
        self.folder.write(segment(frames))
        page = self.report()
        tops = [one["text"] for one in page.find("span") if one["text"].startswith("up to")]
        self.assertEqual(tops, ["up to 15", "up to 120.0 kbit/s", "up to 30", "up to 250.0 kbit/s",
                                "up to 8", "up to 60.0 kbit/s"])

    def test_runs_are_marked_where_they_begin(self):
        self.folder.write(segment(self.two_runs()))
        page = self.report()
        self.assertEqual(page.find("path", class_="area")[0]["d"],
                         "M0,100V0H10V100ZM42,100V0H53V100Z")
        self.assertEqual([one["d"] for one in page.find("path", class_="begin")],
                         ["M0,0V100M42,0V100"])
        self.assertEqual(page.totals()["Runs"], "2")

    def test_it_tells_how_channels_are_counted(self):
        said = ("Channels are counted from 0 here, and from 1 in the pictures of the virtual board: "
                "channel 3 is CH04 in its picture.")
        self.folder.write(segment(pictures() + tones(channel=1)))
        self.assertEqual([one["text"] for one in self.report().find("p", class_="note")][0], said)
        self.folder.write(segment(tones()))
        self.assertNotIn("counted from", self.report("--force").find("header")[0]["text"])

    def test_pictures_are_those_of_the_streams(self):
        self.folder.write(segment(pictures() + pictures(channel=4, stream=2) +
                                  pictures(channel=5, stream=4, size=(1280, 720))))
        page = self.report()
        images = page.find("img")
        self.assertEqual([(one["alt"], one["width"], one["height"]) for one in images], [
            ("What main channel 3 shows in frame 20", "192", "144"),
            ("What JPEG channel 4 shows in frame 24", "192", "144"),
            ("What third channel 5 shows in frame 20", "192", "108")])
        for image in images:
            head, coded = image["src"].split(",")
            self.assertEqual(head, "data:image/jpeg;base64")
            self.assertLess(len(coded), 40_000)
            with open(self.path("a.jpg"), "wb") as out:
                out.write(base64.b64decode(coded, validate=True))
            found = self.probe("a.jpg", "stream=codec_name,width,height")["streams"][0]
            self.assertEqual(found, {"codec_name": "mjpeg", "width": int(image["width"]),
                                     "height": int(image["height"])})
            self.assertEqual(len(self.decoded("a.jpg", "-f", "rawvideo")),
                             int(image["width"]) * int(image["height"]) * 3 // 2)
            os.remove(self.path("a.jpg"))

    def test_the_page_stands_alone_and_can_be_read_aloud(self):
        self.folder.write(segment(pictures() + pictures(channel=4, stream=2) + tones()))
        page = self.report()
        self.assertEqual([one["lang"] for one in page.find("html")], ["en"])
        self.assertEqual(len(page.find("h1")), 1)
        for tag in ("script", "link", "iframe", "object"):
            self.assertEqual(page.find(tag), [])
        self.assertNotRegex(self.text, r"https?:|@import|url\(")
        ids = [one["id"] for one in page.all if "id" in one]
        self.assertEqual(len(ids), len(set(ids)))
        for one in page.all:
            for name in one.get("aria-labelledby", "").split():
                self.assertIn(name, ids)
            if one.get("href"):
                self.assertIn(one["href"].lstrip("#"), ids)
        drawings = page.find("svg")
        self.assertEqual(len(drawings), 1 + 3 + 2 * 3)
        for one in drawings:
            self.assertEqual((one["role"], len(one["aria-labelledby"].split())), ("img", 2))
        self.assertEqual((len(page.find("title")), len(page.find("desc"))), (11, 10))
        self.assertEqual(len(page.find("caption")), len(page.find("table")))
        self.assertIn("prefers-color-scheme:dark", self.text)
        self.assertIn("@media print", self.text)

    def test_names_are_escaped(self):
        path = os.path.join(self.folder.path, "<b>&\"'\x1b[1m")
        os.mkdir(path)
        odd = Folder(path).write(segment(tones()))
        page = self.report(folder=odd)
        self.assertEqual(page.find("b"), [])
        self.assertEqual(page.find("p", class_="path")[0]["text"],
                         os.path.join(self.folder.path, "<b>&\"'\\x1B[1m", "db.ini"))

    def test_what_cannot_be_read_is_said(self):
        frames = pictures()
        for frame in frames:
            if frame.number % 10 == 0:
                frame.payload = b"\0\0\0\1\x09\x10" + frame.payload[6:40]
        whole = segment(frames)
        self.folder.write(whole)
        page = self.report("--force", status=1)
        self.assertEqual(page.find("img"), [])
        self.assertIn("No picture: a key frame cannot be shown", self.text)
        frames = pictures()
        frames[20].payload = frames[20].payload[:40]
        self.folder.write(segment(frames))
        self.assertEqual([one["alt"] for one in self.report("--force").find("img")],
                         ["What main channel 3 shows in frame 30"])
        whole = segment(pictures())
        whole.data[whole.data.index(b"QMRC", 9000) + 20] ^= 1
        self.folder.write(whole)
        page = self.report("--force", status=1)
        self.assertIn("1 stretch cannot be read", page.find("section")[0]["text"])
        self.assertEqual(page.totals()["Frames"], "49")
        self.assertEqual(len(page.find("img")), 1)

    def test_segments_of_another_database_are_said(self):
        foreign = segment(tones(count=7), number=2, identity=b"\x22" * 16)
        self.folder.write(foreign, segment(tones()))
        page = self.report()
        self.assertEqual(page.find("section")[0]["text"],
                         "Not read1 segment belongs to another database")
        self.assertEqual((page.totals()["Frames"], page.totals()["Segments"]), ("50", "1"))

    def test_damage_anywhere_leaves_a_page(self):
        whole = segment(pictures() + tones())
        step = len(whole.data) // 40
        for at in range(0, len(whole.data), step):
            harmed = segment(pictures() + tones())
            harmed.data[at:at + 300] = b"\xa5" * len(harmed.data[at:at + 300])
            self.folder.write(harmed)
            done, out, err = self.run_tool("report", "--force", "-o", self.path("a.html"),
                                           self.folder.ini)
            self.assertIn(done, (0, 1), (at, err))
            page = Page(self.read("a.html").decode())
            self.assertLessEqual(int(page.totals()["Frames"]), 100)
            self.assertGreaterEqual(int(page.totals()["Frames"]), 90, at)

    def test_every_channel_of_every_stream(self):
        frames = []
        for channel in range(16):
            frames += tones(channel=channel, count=3)
            for stream in range(6):
                frames += pictures(channel=channel, stream=stream, count=2)
        self.folder.write(segment(frames))
        page = self.report()
        self.assertEqual((len(page.find("img")), len(page.find("article"))), (96, 112))
        self.assertEqual([len(page.table(number)) for number in range(7)], [16] * 7)
        self.assertLess(len(self.text), 6_000_000)
        ids = [one["id"] for one in page.all if "id" in one]
        self.assertEqual(len(ids), len(set(ids)))

    def test_nothing_recorded(self):
        empty = Segment()
        self.folder.write(empty.open_ended())
        page = self.report()
        self.assertIn("Nothing is recorded in it.", self.text)
        self.assertEqual(page.totals()["Frames"], "0")

    def test_while_it_is_recorded(self):
        self.folder.write(segment(tones()))
        with Lock(self.folder):
            self.assertIn("being recorded", self.report().find("p", class_="path")[0]["text"])

    def test_a_file_that_is_there_stays(self):
        self.folder.write(segment(tones()))
        with open(self.path("a.html"), "w") as out:
            out.write("mine")
        done, out, err = self.run_tool("report", "-o", self.path("a.html"), self.folder.ini)
        self.assertEqual((done, out), (3, ""))
        self.assertIn(self.path("a.html"), err)
        self.assertEqual(self.read("a.html"), b"mine")
        self.report("--force")
        self.assertEqual(self.run_tool("report", "-o", self.path("a.txt"), self.folder.ini)[0], 2)
        self.assertEqual(self.run_tool("report", "-o", self.path("no/a.html"), self.folder.ini)[0], 3)
        self.assertEqual(os.listdir(self.out), ["a.html"])


if __name__ == "__main__":
    clips.main()
