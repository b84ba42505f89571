"""How good the tracks are, over every annotated clip that is there.

Each clip is played by the camera host at its profile's size and thresholds. Scored are the analyzer's own objects, OpenCV's
MOG2 with shadow removal through the same tracker (where OpenCV is installed), and the tracks. Below each clip's figures
stands what must be reached; the command fails where a figure misses it.

Clips are looked for in the directory of --footage, else in $FLEIFEISA_FOOTAGE. Needs ffmpeg.
"""
import argparse
import os
import re
import subprocess
import sys
import tempfile
from collections import namedtuple

import events
import scores

# Frames that count: learning lasts until just before, 300 frames at most. `least` is what must be reached: MOTA at
# overlaps of 0.5 and 0.3 and switches, or covered, boxes without, ids (None: not asked for).
Clip = namedtuple("Clip", "label video truth profile first last least")
CLIPS = [
    Clip("pets09-s2l1", "pets09-s2l1/vtest.avi", "gt.txt", "people-outdoor", 301, 795, (0.72, 0.87, 20)),
    Clip("cdnet-pedestrians", "cdnet-pedestrians/pedestrians.mp4", "gt_derived.txt", "people-outdoor", 300, 1099,
         (0.40, 0.50, None)),
    Clip("cdnet-pets2006", "cdnet-pets2006/pets2006.mp4", "gt_derived.txt", "indoor", 300, 1200, (0.42, 0.70, None)),
    Clip("cdnet-highway", "cdnet-highway/highway.mp4", "gt_derived.txt", "traffic", 470, 1700, (0.42, 0.60, None)),
    Clip("sbi-hallmonitor", "sbi-hallmonitor/hallmonitor.mp4", "masks.mkv", "indoor", 51, 296, (0.90, 0.08, None)),
    Clip("sbi-highway1", "sbi-highway1/highway1.mp4", "masks.mkv", "traffic", 51, 440, (0.70, 0.20, None)),
    Clip("sbi-caviar1", "sbi-caviar1/caviar1.mp4", "masks.mkv", "indoor", 51, 610, (0.90, 0.25, None)),
    Clip("possum", "thermal/possum_8bit.mkv", "possum_derived_boxes.txt", "thermal", 40, 160, (None, 0.50, None)),
    Clip("hedgehog", "thermal/hedgehog_8bit.mkv", "hedgehog_derived_boxes.txt", "thermal", 9, 119, (None, 0.50, None)),
]
# What a run changes of the clip: every N-th frame alone, and the analyzed size divided.
Variant = namedtuple("Variant", "title every divided")
FULL = Variant("full rate and size", 1, 1)
VARIANTS = [FULL, Variant("half rate", 2, 1), Variant("third rate", 3, 1), Variant("half size", 1, 2)]


def output_of(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout


def size_of(video):
    text = output_of("ffprobe", "-v", "error", "-select_streams", "v:0", "-show_entries", "stream=width,height", "-of",
                     "csv=p=0", video)
    return tuple(int(side) for side in text.strip().split(",")[:2])


class Run:
    """One clip at one rate and size, in a folder of its own."""

    def __init__(self, build, footage, clip, variant, folder):
        self.build, self.clip, self.variant, self.folder = build, clip, variant, folder
        self.video = f"{footage}/{clip.video}"
        self.truth = f"{os.path.dirname(self.video)}/{clip.truth}"
        self.learning = max(1, min(300, clip.first - 1) // variant.every)
        os.makedirs(folder, exist_ok=True)

    def play(self):
        """Recording and replies, unless they are there from the last time."""
        width, height = size_of(self.video)
        size = output_of(f"{self.build}/track_recording", "--profile", self.clip.profile, str(width), str(height))
        across, down = (int(side) // self.variant.divided for side in size.split("x"))
        self.scale = (width / across, height / down)
        if os.path.exists(f"{self.folder}/replies"):
            return
        video = self.video
        if self.variant.every > 1:
            video = f"{self.folder}/thinned.mkv"
            subprocess.run(["ffmpeg", "-v", "error", "-nostdin", "-y", "-i", self.video, "-an", "-vf",
                            f"select=not(mod(n\\,{self.variant.every}))", "-fps_mode", "passthrough", "-c:v", "ffv1", video],
                           check=True)
        subprocess.run([f"{self.build}/fleifeisa-host", "play", video, "--quiet", "--profile", self.clip.profile, "--bgframes",
                        str(self.learning), "--size", f"{across}x{down}", "--output", f"recording={self.folder}/recording",
                        "--output", f"replies={self.folder}/part"], check=True)
        os.rename(f"{self.folder}/part", f"{self.folder}/replies")
        if video != self.video:
            os.remove(video)

    def figures(self, what):
        """(figures, milliseconds a frame) of "tracks", "mog2" or "objects"; None where there is no OpenCV."""
        csv = f"{self.folder}/{what}.csv"
        with open(csv, "w", encoding="ascii") as out:
            run = subprocess.run([f"{self.build}/track_recording", f"{self.folder}/recording", f"{self.folder}/replies",
                                  self.clip.profile, str(self.learning), what], stdout=out, stderr=subprocess.PIPE, text=True)
        if "without OpenCV" in run.stderr:
            return None
        if run.returncode:
            sys.exit(f"{self.clip.label}: {run.stderr}")
        tracks = scores.read_tracks(csv, self.scale, self.variant.every)
        first, last, every = self.clip.first, self.clip.last, self.variant.every
        cost = float(re.search(r"([\d.]+) ms a frame", run.stderr).group(1))
        if self.clip.truth.endswith(".mkv"):
            return scores.against_masks(tracks, self.truth, first, last, every), cost
        truth = scores.read_truth(self.truth)
        truth = {frame: rows for frame, rows in truth.items() if (frame - 1) % every == 0}
        at = [scores.against_boxes(tracks, truth, first, last, least) for least in (0.5, 0.3)]
        return (at[0][0], at[1][0], at[0][1]), cost


def text(result):
    return "{:5.2f} /{:5.2f} {:4d}".format(*result[0]) if result else "-"


def reached(clip, figures):
    least = clip.least
    if clip.truth.endswith(".mkv"):
        return figures[0] >= least[0] and figures[1] <= least[1]
    return (all(limit is None or value >= limit for value, limit in zip(figures[:2], least[:2]))
            and (least[2] is None or figures[2] <= least[2]))


def above(clip, figures, other):
    """Better than the comparison: by MOTA at both overlaps, or by what is covered less what is empty."""
    if clip.truth.endswith(".mkv"):
        return figures[0] - figures[1] > other[0] - other[1]
    return figures[0] > other[0] and figures[1] > other[1]


def table(options, variant, clips):
    """Prints one table; False where something was missed."""
    print(f"\n{variant.title}\n{'clip':18} {'objects':>17} {'MOG2':>17} {'tracks':>17}   {'least':14} ms a frame")
    good = True
    with tempfile.TemporaryDirectory() as temporary:
        for clip in clips:
            if not os.path.exists(f"{options.footage}/{clip.video}"):
                print(f"{clip.label:18} is not there")
                continue
            folder = f"{options.keep or temporary}/{variant.every}-{variant.divided}/{clip.label}"
            run = Run(options.build, options.footage, clip, variant, folder)
            run.play()
            raw, mog2, tracks = run.figures("objects"), run.figures("mog2"), run.figures("tracks")
            mark, least = "", ""
            if variant == FULL:
                least = " / ".join("-" if value is None else str(value) for value in clip.least[:2])
                least += f" {clip.least[2]}" if clip.least[2] else ""
                mark = "" if reached(clip, tracks[0]) else "  MISSED"
                mark += "" if not mog2 or above(clip, tracks[0], mog2[0]) else "  NOT ABOVE MOG2"
                good = good and not mark
            print(f"{clip.label:18} {text(raw):>17} {text(mog2):>17} {text(tracks):>17}   {least:14} {tracks[1]:.2f}{mark}",
                  flush=True)
            if not options.keep:
                os.remove(f"{folder}/recording")
    return good


def main():
    parser = argparse.ArgumentParser(prog="./dev accuracy", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("clips", nargs="*", metavar="CLIP", help=f"only these, of {', '.join(c.label for c in CLIPS)}")
    parser.add_argument("--footage", metavar="DIR", default=os.environ.get("FLEIFEISA_FOOTAGE"), help="where the clips are")
    parser.add_argument("--build", metavar="DIR", default="build/bench",
                        help="with fleifeisa-host and track_recording (else they are built)")
    parser.add_argument("--variants", action="store_true", help="also at half rate, third rate and half size")
    parser.add_argument("--events", action="store_true", help="who crosses lines, enters zones, stands still, and nothing else")
    parser.add_argument("--keep", metavar="DIR", help="leave recordings and CSV files there, and use them the next time")
    options = parser.parse_args()
    if not options.footage:
        print("accuracy: skipped, no directory was named (--footage) and FLEIFEISA_FOOTAGE is not set")
        return 0
    unknown = set(options.clips) - {clip.label for clip in CLIPS}
    if unknown:
        parser.error(f"there is no clip {', '.join(sorted(unknown))}")
    if options.events:
        with tempfile.TemporaryDirectory() as temporary:
            return 0 if events.judge_all(options, options.keep or temporary) else 1
    clips = [clip for clip in CLIPS if not options.clips or clip.label in options.clips]
    print("Of boxes: MOTA at overlap 0.5 / 0.3, switches. Of masks: moving pixels in boxes / boxes without, ids.")
    good = True
    for variant in VARIANTS if options.variants else VARIANTS[:1]:
        good = table(options, variant, clips) and good
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main())
