"""Events against what the annotations say: who crosses a line, enters a zone, stands still.

The truth is computed from the annotated boxes alone, by rules of its own: the foot is the middle of the lower edge; a line
is crossed by a way that leads through it, from clearly (1 % of the picture) on its one side to clearly on its other; a zone
is entered by a way from clearly outside to clearly inside. Each true event takes the nearest one of the camera host of its
kind and direction, at most two seconds away. What is left over on either side was missed or is false. Crossings of those who
are to be ignored there (confidence 0) may be found or not.
"""
import json
import math
import os
import subprocess
from collections import namedtuple

import scores

CLEAR = 0.01  # of the picture
NEAR = 2.0  # seconds between a true event and the one that was found

# What must be reached: forward and backward crossings, and how far the sum may be off; the least share found of all true
# events and the largest share of false ones; seconds within which something is told to stand.
Case = namedtuple("Case", "label video truth profile first last line zone least")
CASES = [
    Case("pets09-s2l1", "pets09-s2l1/vtest.avi", "gt.txt", "people-outdoor", 311, 795, ((0.45, 1.0), (0.45, 0.2)),
         ((0.3, 0.45), (0.6, 0.45), (0.6, 0.8), (0.3, 0.8)), {"found": 0.8, "false": 0.15}),
    Case("cdnet-highway", "cdnet-highway/highway.mp4", "crossings_y180.txt", "traffic", 470, 1700, ((0.0, 0.75), (1.0, 0.75)),
         None, {"off": 1}),
    Case("cdnet-pedestrians", "cdnet-pedestrians/pedestrians.mp4", "gt_derived.txt", "people-outdoor", 300, 1099,
         ((0.5, 1.0), (0.5, 0.0)), None, {"off": 0}),
    Case("cdnet-pets2006", "cdnet-pets2006/pets2006.mp4", "gt_derived.txt", "indoor", 300, 1200, None, None,
         {"stands": (8, 997, 10)}),
]
Found = namedtuple("Found", "what frame")  # what: forward, backward, enter


def side(point, line):
    """Distance to the endless line, more than 0 on its left as it is drawn (y downwards)."""
    (ax, ay), (bx, by) = line
    across, down = bx - ax, by - ay
    return ((point[0] - ax) * down - (point[1] - ay) * across) / math.hypot(across, down)


def leads_through(a, b, line):
    one, other = side(a, line), side(b, line)
    if (one > 0) == (other > 0):
        return False
    share = one / (one - other)
    meeting = [a[i] + (b[i] - a[i]) * share for i in (0, 1)]
    along = [line[1][i] - line[0][i] for i in (0, 1)]
    position = sum((meeting[i] - line[0][i]) * along[i] for i in (0, 1)) / sum(value * value for value in along)
    return 0 <= position <= 1


def crossings(way, line):
    """Of [(frame, foot)]."""
    clear = None
    through = None
    for (_, before), (frame, now) in zip(way, way[1:]):
        if clear is None and abs(side(before, line)) >= CLEAR:
            clear = side(before, line) > 0
        if leads_through(before, now, line):
            through = frame if through is None else None
        if abs(side(now, line)) >= CLEAR:
            left = side(now, line) > 0
            if clear is not None and left != clear and through is not None:
                yield Found("backward" if left else "forward", through)
            clear, through = left, None


def inside(point, zone):
    """By the edges that a ray to the right meets."""
    odd = False
    for (ax, ay), (bx, by) in zip(zone, zone[1:] + zone[:1]):
        if (ay > point[1]) != (by > point[1]) and point[0] < ax + (point[1] - ay) * (bx - ax) / (by - ay):
            odd = not odd
    return odd


def entries(way, zone):
    def clearly(point):
        corners = {inside((point[0] + x, point[1] + y), zone) for x in (-CLEAR, CLEAR) for y in (-CLEAR, CLEAR)}
        return corners.pop() if len(corners) == 1 else None

    was, edge = False, None
    for frame, foot in way:
        if inside(foot, zone) and edge is None:
            edge = frame
        elif not inside(foot, zone):
            edge = None
        now = clearly(foot)
        if now and not was:
            yield Found("enter", edge)
        was = was if now is None else now


def true_events(case, path, size):
    """(events that must be found, events that may be)."""
    if case.truth.startswith("crossings"):
        with open(path, encoding="ascii") as lines:
            return [Found("forward", int(line.split(",")[0])) for line in lines], []
    ways = {}
    for frame, rows in sorted(scores.read_truth(path).items()):
        for number, left, top, width, height, confidence in rows:
            foot = ((left - 1 + width / 2) / size[0], (top - 1 + height) / size[1])
            ways.setdefault(number, []).append((frame, foot, confidence))
    must, may = [], []
    for way in ways.values():
        ignored = {frame for frame, _, confidence in way if confidence <= 0}
        places = [(frame, foot) for frame, foot, _ in way]
        found = list(crossings(places, case.line)) if case.line else []
        found += entries(places, case.zone) if case.zone else []
        for event in found:
            if case.first <= event.frame <= case.last:
                (may if event.frame in ignored else must).append(event)
    return sorted(must, key=lambda event: event.frame), may


def match(must, may, found, most):
    """(pairs, missed, false): nearest first, one to one."""
    pairs, rest = [], list(found)
    for wanted, taken in ((must, pairs), (may, [])):
        near = sorted((abs(one.frame - other.frame), i, other) for i, one in enumerate(wanted) for other in rest
                      if one.what == other.what and abs(one.frame - other.frame) <= most)
        done = set()
        for _, i, other in near:
            if i not in done and other in rest:
                done.add(i)
                rest.remove(other)
                taken.append((wanted[i], other))
    missed = list(must)
    for wanted, _ in pairs:
        missed.remove(wanted)
    return pairs, missed, rest


def points(shape):
    return " ".join(f"{x:g},{y:g}" for x, y in shape)


def run(build, case, video, folder):
    """What the host tells, as JSON; also of the frames that do not count."""
    path = f"{folder}/{case.label}.events"
    if not os.path.exists(path):
        command = [f"{build}/fleifeisa-host", "play", video, "--quiet", "--profile", case.profile, "--bgframes",
                   str(min(300, case.first - 1)), "--output", f"events={path}.part"]
        command += ["--line", f"line={points(case.line)}"] if case.line else []
        command += ["--zone", f"zone={points(case.zone)}"] if case.zone else []
        subprocess.run(command, check=True)
        os.rename(f"{path}.part", path)
    with open(path, encoding="utf-8") as lines:
        return [json.loads(line) for line in lines]


def probe(video):
    """((width, height), frames a second)."""
    text = subprocess.run(["ffprobe", "-v", "error", "-select_streams", "v:0", "-show_entries", "stream=width,height,r_frame_rate",
                           "-of", "csv=p=0", video], capture_output=True, text=True, check=True).stdout
    width, height, rate = text.strip().split(",")[:3]
    above, below = rate.split("/")
    return (int(width), int(height)), int(above) / int(below)


def standing(case, told, path, size, rate):
    """Seconds from when a thing was put down until it is told to stand; None: never."""
    number, since, _ = case.least["stands"]
    rows = scores.read_truth(path)
    for message in told:
        frame = 1 + round(message["time_ns"] * rate / 1e9)
        if message["kind"] != "stopped" or message["state"] != "start" or frame < since:
            continue
        left, top, width, height = message["box"]
        across, down = (size[i] / message["size"][i] for i in (0, 1))
        box = (0, 1 + left * across, 1 + top * down, width * across, height * down)
        if any(row[0] == number and scores.overlap(row, box) >= 0.3 for row in rows.get(frame, [])):
            return (frame - since) / rate
    return None


def judge(options, case, folder):
    """Prints what became of one clip; False where too little was reached."""
    video = f"{options.footage}/{case.video}"
    truth = f"{os.path.dirname(video)}/{case.truth}"
    size, rate = probe(video)
    told = run(options.build, case, video, folder)
    if "stands" in case.least:
        took = standing(case, told, truth, size, rate)
        good = took is not None and took <= case.least["stands"][2]
        print(f"{case.label:18} what was put down is told to stand after "
              f"{'ever' if took is None else f'{took:.1f} s'} (at most {case.least['stands'][2]}){'' if good else '  MISSED'}")
        return good
    found = [Found(message["change"], 1 + round(message["time_ns"] * rate / 1e9)) for message in told
             if message["state"] == "start" and message["kind"] in ("line", "zone")]
    found = [event for event in found if case.first <= event.frame <= case.last]
    must, may = true_events(case, truth, size)
    good = True
    for what in ("forward", "backward", "enter"):
        wanted, here = ([event for event in events if event.what == what] for events in (must, found))
        optional = [event for event in may if event.what == what]
        if not (case.zone if what == "enter" else case.line):
            continue
        pairs, missed, false = match(wanted, optional, here, NEAR * rate)
        if "off" in case.least:
            reached = abs(len(here) - len(wanted)) <= (case.least["off"] if wanted else 0)
        else:
            least = case.least
            reached = len(pairs) >= least["found"] * len(wanted) and len(false) <= least["false"] * max(1, len(here))
        frames = "".join(f"; {word} at {', '.join(str(event.frame) for event in events)}"
                         for word, events in (("missed", missed), ("false", false)) if events)
        print(f"{case.label:18} {what:8} {len(wanted):3} true, {len(here):3} told: {len(pairs)} found, {len(missed)} missed, "
              f"{len(false)} false{frames}{'' if reached else '  MISSED'}", flush=True)
        good = good and reached
    return good


def judge_all(options, folder):
    good = True
    for case in CASES:
        if options.clips and case.label not in options.clips:
            continue
        if not os.path.exists(f"{options.footage}/{case.video}"):
            print(f"{case.label:18} is not there")
            continue
        good = judge(options, case, folder) and good
    return good
