#!/usr/bin/env python3
"""How much of what moves is found: reported boxes against two annotated clips.

usage: accuracy.py ANALYZER FOOTAGE_DIR

Needs the ffmpeg command line. Uses the host of docs/examples. Prints the figures of docs/accuracy.md.
"""
import csv
import os
import re
import subprocess
import sys

HOST = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../docs/examples/minimal_host.py")
LINE = re.compile(r"frame (\d+): object (\d+) at left (-?\d+) top (-?\d+), (\d+) x (\d+)")


def decode(path, pixels):
    command = ["ffmpeg", "-v", "error", "-flags", "bitexact", "-i", path, "-f", "rawvideo", "-pix_fmt", pixels, "-"]
    return subprocess.Popen(command, stdout=subprocess.PIPE)


def detect(analyzer, path, width, height, learning):
    """{frame: {id: (left, top, width, height)}}, frames from 1."""
    video = decode(path, "rgb24")
    run = subprocess.run([sys.executable, HOST, analyzer, str(width), str(height), str(learning)], stdin=video.stdout,
                         capture_output=True, text=True)
    if video.wait() or run.returncode:
        sys.exit(f"{path}: decoding or analysing failed\n{run.stderr}")
    frames = {}
    for frame, number, *box in (map(int, found) for found in LINE.findall(run.stdout)):
        frames.setdefault(frame, {})[number] = tuple(box)
    return frames


def overlap(a, b):
    """Intersection over union of two boxes."""
    w = min(a[0] + a[2], b[0] + b[2]) - max(a[0], b[0])
    h = min(a[1] + a[3], b[1] + b[3]) - max(a[1], b[1])
    both = max(0, w) * max(0, h)
    return both / (a[2] * a[3] + b[2] * b[3] - both)


def pedestrians(analyzer, footage):
    """Boxes against annotated people: matched one to one, best overlap first."""
    learning = 50
    found = detect(analyzer, f"{footage}/pets09-s2l1/vtest.avi", 768, 576, learning)
    truth = {}
    with open(f"{footage}/pets09-s2l1/gt.txt", encoding="ascii") as f:
        for row in csv.reader(f):
            if float(row[6]) > 0:
                truth.setdefault(int(row[0]), {})[int(row[1])] = tuple(float(v) for v in row[2:6])
    print("pets09-s2l1: 745 detection frames, 768x576, people one or several at a time")
    for least in (0.5, 0.3):
        hits = reported = people = switches = 0
        last = {}
        for frame in range(learning + 1, 796):
            boxes, here = found.get(frame, {}), truth.get(frame, {})
            reported, people = reported + len(boxes), people + len(here)
            pairs = sorted(((overlap(b, p), i, j) for i, b in boxes.items() for j, p in here.items()), reverse=True)
            used = set()
            for share, i, j in pairs:
                if share < least or ("b", i) in used or ("p", j) in used:
                    continue
                used |= {("b", i), ("p", j)}
                hits += 1
                switches += last.get(j, i) != i
                last[j] = i
        print(f"  overlap of {least}: {hits / people:.0%} of {people} annotated boxes found, "
              f"{hits / reported:.0%} of {reported} reported boxes right, {switches} changes of identity")


def cars(analyzer, footage):
    """Boxes against the pixels that move."""
    first, width, height = 470, 320, 240
    found = detect(analyzer, f"{footage}/cdnet-highway/highway.mp4", width, height, 300)
    masks = decode(f"{footage}/cdnet-highway/highway_gt_all1700.mkv", "gray")
    moving = inside = reported = right = 0
    for frame in range(1, 1701):
        mask = bytearray(masks.stdout.read(width * height))
        if frame < first:
            continue
        total = mask.count(255)
        for left, top, w, h in found.get(frame, {}).values():
            rows = [slice(r * width + left, r * width + min(left + w, width)) for r in range(top, min(top + h, height))]
            reported += 1
            right += sum(mask[row].count(b"\xff") + mask[row].count(b"\x01") for row in rows) >= w * h / 4
            for row in rows:  # counted once, also where boxes overlap
                mask[row] = mask[row].replace(b"\xff", b"\x01")
        moving, inside = moving + total, inside + total - mask.count(255)
    print(f"cdnet-highway: 1231 evaluated frames, 320x240, cars\n  {inside / moving:.0%} of all moving pixels lie in a "
          f"reported box; {right / reported:.0%} of {reported} reported boxes are moving by a quarter or more")


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    pedestrians(sys.argv[1], sys.argv[2])
    cars(sys.argv[1], sys.argv[2])
