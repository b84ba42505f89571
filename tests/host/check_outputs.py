#!/usr/bin/env python3
"""Reads the outputs of one run with the parsers of Python's library and compares them with one another.

    check_outputs.py DIRECTORY START...

DIRECTORY holds the files jsonl, mot, onvif, tracks and report of the same run; START are the sequence numbers of the
frames that a fresh analyzer answered first. What the other files ought to say is worked out from the JSON Lines anew.
"""
import base64
import csv
import datetime
import html.parser
import json
import math
import re
import sys
import xml.etree.ElementTree as xml
from fractions import Fraction

TT = "{http://www.onvif.org/ver10/schema}"


def check(condition, *what):
    if not condition:
        sys.exit("check_outputs.py: " + " ".join(map(str, what)))


def read_frames(path):
    frames = [json.loads(line) for line in open(path, encoding="utf-8", newline="\n")]
    for number, frame in enumerate(frames, 1):
        check(frame["sequence"] == number, "sequence numbers with gaps")
        whole, nanoseconds = re.fullmatch(r"(.{19})\.(\d{9})Z", frame["timestamp"]).groups()
        moment = datetime.datetime.fromisoformat(whole + "+00:00")
        check(int(moment.timestamp()) * 10**9 + int(nanoseconds) == frame["time_ns"], "timestamp", frame)
    return frames


def follow(frames, starts):
    """Track number of every object of every frame, and the tracks as lists of (frame, object)."""
    used, loose, tracks, numbers, current = {}, 0, {}, [], {}
    for frame in frames:
        if frame["sequence"] in starts:
            current = {}
        row, here = [], set()
        for item in frame["objects"]:
            key = item["id"]
            if not 0 < key < 100000 or key in here:
                loose += 1
                row.append(100000 * loose)
                continue
            here.add(key)
            if key in current and frame["sequence"] - tracks[current[key]][-1][0]["sequence"] > 25:
                del current[key]
            if key not in current:
                current[key] = key + 100000 * used.get(key, 0)
                used[key] = used.get(key, 0) + 1
                tracks[current[key]] = []
            tracks[current[key]].append((frame, item))
            row.append(current[key])
        numbers.append(row)
    return numbers, tracks


def check_mot(path, frames, numbers):
    rows = [list(map(int, row)) for row in csv.reader(open(path, newline=""))]
    expected = [[frame["sequence"], number, item["left"] + 1, item["top"] + 1, item["width"], item["height"], 1, -1, -1, -1]
                for frame, row in zip(frames, numbers) for item, number in zip(frame["objects"], row)]
    check(rows == expected, "MOTChallenge rows differ")
    keys = [(row[0], row[1]) for row in rows]
    check(len(keys) == len(set(keys)) and all(row[1] > 0 for row in rows), "an id twice in a frame")


def close(text, exact):
    check(re.fullmatch(r"-?\d\.\d{6}", text), "no coordinate:", text)
    value = Fraction(text)
    return -1 <= value <= 1 and abs(value - exact) <= Fraction(1, 2000000)


def check_onvif(path, frames, numbers):
    """Order and names of elements, attributes and their types as the schema has them; then every value."""
    root = xml.parse(path).getroot()
    check(root.tag == TT + "MetadataStream" and [child.tag for child in root] == [TT + "VideoAnalytics"], "root")
    found = [(frame, row) for frame, row in zip(frames, numbers) if frame["detection"]]
    check(len(root[0]) == len(found), "number of frames")
    for element, (frame, row) in zip(root[0], found):
        check(element.tag == TT + "Frame" and list(element.attrib) == ["UtcTime"], "Frame")
        check(element.get("UtcTime") == frame["timestamp"], "UtcTime")
        check(len(element) == len(row) and len(set(row)) == len(row), "objects, ObjectId twice in a frame")
        for child, number, item in zip(element, row, frame["objects"]):
            check(child.tag == TT + "Object" and child.attrib == {"ObjectId": str(number)}, "Object")
            (appearance,), = [list(child)]
            (shape,), = [list(appearance)]
            check(appearance.tag == TT + "Appearance" and shape.tag == TT + "Shape", "Appearance, Shape")
            check([e.tag for e in shape] == [TT + "BoundingBox", TT + "CenterOfGravity"], "Shape's children")
            box, centre = shape
            check(sorted(box.attrib) == ["bottom", "left", "right", "top"] and sorted(centre.attrib) == ["x", "y"], "attributes")
            width, height = frame["width"], frame["height"]
            left, right = (min(max(x, 0), width) for x in (item["left"], item["left"] + item["width"]))
            top, bottom = (min(max(y, 0), height) for y in (item["top"], item["top"] + item["height"]))
            across = lambda x: Fraction(2 * x, width) - 1
            up = lambda y: 1 - Fraction(2 * y, height)
            for text, exact in ((box.get("left"), across(left)), (box.get("right"), across(right)),
                                (box.get("top"), up(top)), (box.get("bottom"), up(bottom)),
                                (centre.get("x"), (across(left) + across(right)) / 2),
                                (centre.get("y"), (up(top) + up(bottom)) / 2)):
                check(close(text, exact), "coordinate", text, float(exact), item)


def check_tracks(path, frames, tracks, starts):
    lines = [json.loads(line) for line in open(path, encoding="utf-8")]
    check(sorted(line["track"] for line in lines) == sorted(tracks), "other tracks")
    stamp = lambda frame: (frame["timestamp"], frame["time_ns"])
    ends = []
    for line in lines:
        sightings = tracks[line["track"]]
        first, last = sightings[0][0], sightings[-1][0]
        check((line["start"], line["start_ns"]) == stamp(first), "start", line)
        check((line["time"], line["time_ns"]) == stamp(last), "time", line)
        check(line["objects"] == [line["track"] % 100000] and line["camera"] == first["camera"], "id or camera", line)
        item = sightings[-1][1]
        check(line["box"] == [item[k] for k in ("left", "top", "width", "height")], "box", line)
        check(line["area"] == item["width"] * item["height"] * item["density"] // 100, "area", line)
        check(line["state"] == "ended" and line["size"] == [last["width"], last["height"]] and line["region"] is None, line)
        check(line["frames"] == len(sightings), "frames", line)
        points = [(f["time_ns"], o["left"] + o["width"] / 2, o["top"] + o["height"] / 2) for f, o in sightings]
        check([tuple(p) for p in line["path"]] == points, "path", line["path"], points)
        check(line["centre"] == list(points[-1][1:]), "centre", line)
        if len(points) > 1:
            (t, x, y), (now, right, down) = points[-2:]
            for value, way in zip(line["velocity"], (right - x, down - y)):
                check(abs(value - way * 1e9 / (now - t)) <= 0.0501, "velocity", line["velocity"])
        length = sum(math.hypot(b[1] - a[1], b[2] - a[2]) for a, b in zip(points, points[1:]))
        check(abs(line["path_px"] - length) <= 0.0501, "path_px", line["path_px"], length)
        # What ends it first: 25 frames without it, a fresh analyzer (told with its first frame), the end of the input.
        unseen = last["sequence"] + 25
        restart = min([s for s in starts if s > last["sequence"]], default=len(frames) + 1)
        over = min(unseen, restart)
        reason = "lost" if over <= len(frames) else "source"
        check(line["ended"] == reason, "ended", line["ended"], reason)
        ends.append((over if reason == "lost" else len(frames) + 1, line["track"]))
    check(ends == sorted(ends), "tracks not in the order of their ends")


class Page(html.parser.HTMLParser):
    VOID = {"meta", "img", "input"}

    def __init__(self):
        super().__init__(convert_charrefs=True)
        self.open, self.ids, self.rows, self.map, self.images, self.links, self.text = [], [], [], [], [], [], ""

    def handle_starttag(self, tag, attributes):
        values = dict(attributes)
        check(len(values) == len(attributes), "an attribute twice", tag)
        if tag not in self.VOID:
            self.open.append(tag)
        if "id" in values:
            self.ids.append(values["id"])
        if tag == "tr" and "data-t" in values:
            self.rows.append(int(values["data-t"]))
        if tag == "g" and "track" in values.get("class", "").split():
            self.map.append(int(values["data-t"]))
        if tag in ("img", "image"):
            self.images.append(values.get("src") or values.get("href"))
        elif "href" in values:
            self.links.append(values["href"])
        check("src" not in values or tag == "img", "src on", tag)
        check(tag not in ("link", "iframe", "object", "embed", "base"), "an element that fetches:", tag)

    def handle_startendtag(self, tag, attributes):
        self.handle_starttag(tag, attributes)
        if tag not in self.VOID:
            self.open.pop()

    def handle_endtag(self, tag):
        check(self.open and self.open.pop() == tag, "tags cross at", tag)

    def handle_data(self, data):
        self.text += data


def check_report(path, frames, tracks):
    text = open(path, encoding="utf-8").read()
    page = Page()
    page.feed(text)
    page.close()
    check(page.open == [] and len(page.ids) == len(set(page.ids)), "tags left open, or an id twice")
    check(sorted(page.rows) == sorted(tracks) and sorted(page.map) == sorted(tracks), "tracks of the page")
    check(len(page.images) == len(tracks) + 1, "one thumbnail a track and the background")
    for image in page.images:
        check(image.startswith("data:image/jpeg;base64,"), "image from elsewhere:", image[:60])
        data = base64.b64decode(image.split(",", 1)[1], validate=True)
        check(data[:3] == b"\xff\xd8\xff" and data[-2:] == b"\xff\xd9", "no JPEG")
    for link in page.links:
        check(link[0] == "#" and link[1:] in page.ids, "link to elsewhere:", link)
    check("url(" not in text and "@import" not in text, "a style sheet that fetches")
    check(frames[0]["camera"] in page.text, "the camera's name")


def main(directory, *starts):
    starts = set(map(int, starts))
    frames = read_frames(directory + "/jsonl")
    numbers, tracks = follow(frames, starts)
    check(len(tracks) > 30 and any(n % 100000 == 0 for row in numbers for n in row), "the run is too tame")
    check_mot(directory + "/mot", frames, numbers)
    check_onvif(directory + "/onvif", frames, numbers)
    check_tracks(directory + "/tracks", frames, tracks, starts)
    check_report(directory + "/report", frames, tracks)


main(*sys.argv[1:])
