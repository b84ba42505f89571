#!/usr/bin/env python3
"""How good the tracks are, over every annotated clip that is there.

usage: tracks.py BUILD_DIR [--footage DIR] [--keep DIR] [--every N]

Plays each clip by BUILD_DIR/fleifeisa-host at its profile's size and scores the analyzer's own objects, MOG2 with shadow
removal through the tracker (where OpenCV is installed), and the tracks. Clips are looked for in DIR, else in
$FLEIFEISA_FOOTAGE. --keep leaves recordings and CSV files in a directory, and takes them from there the next time.
--every scores only every N-th frame's tracks, as if the camera were slower. Needs ffmpeg.
"""
import argparse
import os
import re
import subprocess
import sys
import tempfile
from collections import namedtuple

import scores

# Frames that count: learning lasts until just before, 300 frames at most. `least` is what must be reached: MOTA at
# overlaps of 0.5 and 0.3 and switches, or covered, boxes without, ids (None: not asked for).
Clip = namedtuple("Clip", "name video truth profile first last size scale least")
CLIPS = [
    Clip("pets09-s2l1", "vtest.avi", "gt.txt", "people-outdoor", 301, 795, "384x288", 2, (0.72, 0.87, 20)),
    Clip("cdnet-pedestrians", "pedestrians.mp4", "gt_derived.txt", "people-outdoor", 300, 1099, "360x240", 1, (0.40, 0.50, None)),
    Clip("cdnet-pets2006", "pets2006.mp4", "gt_derived.txt", "indoor", 300, 1200, "360x288", 2, (0.42, 0.70, None)),
    Clip("cdnet-highway", "highway.mp4", "gt_derived.txt", "traffic", 470, 1700, "320x240", 1, (0.42, 0.60, None)),
    Clip("sbi-hallmonitor", "hallmonitor.mp4", "masks.mkv", "indoor", 51, 296, "352x240", 1, (0.90, 0.08, None)),
    Clip("sbi-highway1", "highway1.mp4", "masks.mkv", "traffic", 51, 440, "320x240", 1, (0.70, 0.20, None)),
    Clip("sbi-caviar1", "caviar1.mp4", "masks.mkv", "indoor", 51, 610, "384x256", 1, (0.90, 0.25, None)),
    Clip("thermal", "possum_8bit.mkv", "possum_derived_boxes.txt", "thermal", 40, 160, "160x120", 1, (None, 0.50, None)),
    Clip("thermal", "hedgehog_8bit.mkv", "hedgehog_derived_boxes.txt", "thermal", 9, 119, "160x120", 1, (None, 0.50, None)),
]
THRESHOLDS = ("1.0", "2.0")  # of every profile


def play(build, clip, footage, folder, learning):
    """Recording, replies and the analyzer's objects, in `folder`."""
    if os.path.exists(f"{folder}/raw.csv"):
        return
    kind = "ir" if clip.profile == "thermal" else "color"
    command = [f"{build}/fleifeisa-host", "play", f"{footage}/{clip.name}/{clip.video}", "--quiet", "--size", clip.size,
               "--bgframes", str(learning), "--type", kind, f"--{kind}-low", THRESHOLDS[0], f"--{kind}-high", THRESHOLDS[1],
               "--output", f"recording={folder}/recording", "--output", f"replies={folder}/replies",
               "--output", f"mot={folder}/raw.part"]
    subprocess.run(command, check=True)
    os.rename(f"{folder}/raw.part", f"{folder}/raw.csv")


def follow(build, clip, folder, learning, every, mog2=False):
    """CSV of the tracks and the milliseconds a frame; None where there is no OpenCV."""
    path = f"{folder}/{'mog2' if mog2 else 'tracks'}.csv"
    command = [f"{build}/track_recording", f"{folder}/recording", f"{folder}/replies", clip.profile, str(learning),
               "--every", str(every)] + (["--mog2"] if mog2 else [])
    with open(path, "w", encoding="ascii") as out:
        run = subprocess.run(command, stdout=out, stderr=subprocess.PIPE, text=True)
    if run.returncode and "without OpenCV" in run.stderr:
        return None
    if run.returncode:
        sys.exit(f"{clip.video}: {run.stderr}")
    return path, float(re.search(r"([\d.]+) ms a frame", run.stderr).group(1))


def truth_of(path):
    """Derived boxes of the infrared clips are `frame,left,top,width,height,pixels` of one animal, from 0."""
    if not path.endswith("_derived_boxes.txt"):
        return scores.read_tracks(path)
    rows = {}
    with open(path, encoding="ascii") as lines:
        for line in lines:
            frame, left, top, width, height = map(int, line.split(",")[:5])
            rows[frame] = [(1, left + 1, top + 1, width, height, 1.0)]
    return rows


def score(clip, csv, footage, every=1):
    tracks = scores.read_tracks(csv, clip.scale)
    path = f"{footage}/{clip.name}/{clip.truth}"
    if clip.truth.endswith(".mkv"):
        return scores.against_masks(tracks, path, clip.first, clip.last, every)
    truth = truth_of(path)
    if every > 1:
        truth = {frame: rows for frame, rows in truth.items() if (frame - 1) % every == 0}
    at = [scores.against_boxes(tracks, truth, clip.first, clip.last, least) for least in (0.5, 0.3)]
    return at[0][0], at[1][0], at[0][1]


def text(figures):
    return "{:5.2f} /{:5.2f} {:4d}".format(*figures) if figures else "      -"


def reached(clip, figures):
    least = clip.least
    if clip.truth.endswith(".mkv"):
        return figures[0] >= least[0] and figures[1] <= least[1]
    mota = all(limit is None or value >= limit for value, limit in zip(figures[:2], least[:2]))
    return mota and (least[2] is None or figures[2] <= least[2])


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build")
    parser.add_argument("--footage", default=os.environ.get("FLEIFEISA_FOOTAGE"))
    parser.add_argument("--keep")
    parser.add_argument("--every", type=int, default=1)
    options = parser.parse_args()
    if not options.footage:
        sys.exit("tracks.py: where are the clips? (--footage or FLEIFEISA_FOOTAGE)")
    print("MOTA at 0.5 / 0.3, switches; of masks: moving pixels in boxes / boxes without, ids")
    print(f"{'clip':32} {'objects':>17} {'MOG2':>17} {'tracks':>17}   least      ms")
    with tempfile.TemporaryDirectory() as temporary:
        for clip in CLIPS:
            label = clip.name if clip.name != "thermal" else clip.video.split("_")[0]
            if not os.path.exists(f"{options.footage}/{clip.name}/{clip.video}"):
                print(f"{label:32} (not there)")
                continue
            folder = f"{options.keep or temporary}/{label}"
            os.makedirs(folder, exist_ok=True)
            learning = min(300, clip.first - 1)
            play(options.build, clip, options.footage, folder, learning)
            raw = score(clip, f"{folder}/raw.csv", options.footage)
            mog2 = follow(options.build, clip, folder, learning, options.every, mog2=True)
            other = score(clip, mog2[0], options.footage, options.every) if mog2 else None
            csv, cost = follow(options.build, clip, folder, learning, options.every)
            figures = score(clip, csv, options.footage, options.every)
            least = " ".join("-" if value is None else str(value) for value in clip.least)
            mark = "" if reached(clip, figures) else "  MISSED"
            print(f"{label:32} {text(raw):>17} {text(other):>17} {text(figures):>17}   {least} {cost:.2f}{mark}", flush=True)
            if not options.keep:
                os.remove(f"{folder}/recording")


if __name__ == "__main__":
    main()
