"""Scores of tracks (MOTChallenge CSV, frames from 1) against annotated boxes and against masks."""
import collections
import subprocess


def read_tracks(path, scale=(1.0, 1.0), every=1):
    """{frame: [(id, left, top, width, height, confidence)]}, scaled in x and y, frame n being 1 + (n - 1) * every."""
    frames = collections.defaultdict(list)
    across, down = scale
    with open(path, encoding="ascii") as lines:
        for line in lines:
            values = [float(v) for v in line.split(",")[:7]]
            if len(values) < 6:
                continue
            confidence = values[6] if len(values) > 6 else 1.0
            frame, number, left, top, width, height = values[:6]
            frames[1 + (int(frame) - 1) * every].append(
                (int(number), 1 + across * (left - 1), 1 + down * (top - 1), across * width, down * height, confidence))
    return frames


def read_truth(path):
    """As read_tracks; derived boxes of infrared clips are `frame,left,top,width,height,pixels` of one animal, from 0."""
    if not path.endswith("_derived_boxes.txt"):
        return read_tracks(path)
    rows = {}
    with open(path, encoding="ascii") as lines:
        for line in lines:
            frame, left, top, width, height = map(int, line.split(",")[:5])
            rows[frame] = [(1, left + 1, top + 1, width, height, 1.0)]
    return rows


def overlap(a, b):
    """Intersection over union of two rows."""
    width = min(a[1] + a[3], b[1] + b[3]) - max(a[1], b[1])
    height = min(a[2] + a[4], b[2] + b[4]) - max(a[2], b[2])
    both = max(0.0, width) * max(0.0, height)
    return both / (a[3] * a[4] + b[3] * b[4] - both) if both else 0.0


def against_boxes(tracks, truth, first, last, least):
    """(MOTA, switches) of frames first..last: largest overlaps first, rows of confidence 0 may be found or not."""
    errors = switches = total = 0
    latest = {}
    for frame in range(first, last + 1):
        found = tracks.get(frame, [])
        here = [row for row in truth.get(frame, []) if row[5] > 0]
        ignored = [row for row in truth.get(frame, []) if row[5] <= 0]
        pairs = sorted(((overlap(row, box), i, k) for i, row in enumerate(here) for k, box in enumerate(found)), reverse=True)
        matched, used = set(), set()
        for share, i, k in pairs:
            if share < least:
                break
            if i in matched or k in used:
                continue
            matched.add(i)
            used.add(k)
            switches += latest.get(here[i][0], found[k][0]) != found[k][0]
            latest[here[i][0]] = found[k][0]
        false = sum(k not in used and not any(overlap(box, row) > least for row in ignored) for k, box in enumerate(found))
        errors += len(here) - len(matched) + false
        total += len(here)
    return 1 - (errors + switches) / max(1, total), switches


def against_masks(tracks, path, first, last, every=1):
    """(share of moving pixels in boxes, share of boxes of which less than 8 % moves, ids) of a grey video of masks."""
    probe = ["ffprobe", "-v", "error", "-select_streams", "v:0", "-show_entries", "stream=width,height", "-of", "csv=p=0", path]
    columns, rows = map(int, subprocess.run(probe, capture_output=True, text=True, check=True).stdout.split(",")[:2])
    video = subprocess.Popen(["ffmpeg", "-v", "error", "-i", path, "-pix_fmt", "gray", "-f", "rawvideo", "-"],
                             stdin=subprocess.DEVNULL, stdout=subprocess.PIPE)
    moving = covered = boxes = empty = frame = 0
    ids = set()
    while len(mask := video.stdout.read(columns * rows)) == columns * rows:
        frame += 1
        if not first <= frame <= last or (frame - 1) % every or mask.count(b"\x55") == len(mask):
            continue
        rest = bytearray(mask)
        for number, left, top, width, height, _ in tracks.get(frame, []):
            x0, x1 = max(0, round(left - 1)), min(columns, round(left - 1 + width))
            y0, y1 = max(0, round(top - 1)), min(rows, round(top - 1 + height))
            if x0 >= x1 or y0 >= y1:
                continue
            slices = [slice(y * columns + x0, y * columns + x1) for y in range(y0, y1)]
            area = (x1 - x0) * (y1 - y0)
            if 2 * sum(mask[part].count(b"\x55") for part in slices) > area:
                continue  # not evaluated there
            boxes += 1
            ids.add(number)
            empty += sum(mask[part].count(b"\xff") for part in slices) < 0.08 * area
            for part in slices:
                rest[part] = bytes(x1 - x0)
        here = mask.count(b"\xff")
        moving += here
        covered += here - rest.count(b"\xff")
    video.wait()
    return covered / max(1, moving), empty / max(1, boxes), len(ids)
