#!/usr/bin/python3
"""Draws time and memory against image size and number of objects from a sweep of bench/compare.

usage: plot.py SWEEP.json PLOT.svg
"""
import json
import statistics
import sys

try:
    import matplotlib
except ImportError:
    sys.exit("plot.py: matplotlib is missing (Debian: python3-matplotlib)")
matplotlib.use("svg")
matplotlib.rcParams["svg.hashsalt"] = "bench"  # the same data give the same file
import matplotlib.pyplot as plt

CONTESTANTS = [  # key, label, colour, marker
    ("analyzer", "analyzer process, with protocol", "#0b6e4f", "o"),
    ("mog2", "OpenCV MOG2 pipeline", "#b3541e", "s"),
    ("cnt", "OpenCV CNT pipeline", "#3b5b92", "^"),
]
BUDGETS = [("mog2", 0.10, "a tenth of MOG2"), ("cnt", 0.25, "a quarter of CNT")]
PEAK_LIMITS = [(320 * 240, 20), (768 * 576, 64), (1920 * 1080, 256)]  # pixels, MiB


def milliseconds(point, key):
    """Median over the rounds of the mean detection frame: one disturbed round does not show."""
    return statistics.median(r[key]["detection_mean_seconds"] for r in point["rounds"]) * 1e3


def draw_times(axes, points, x):
    for key, label, colour, marker in CONTESTANTS:
        if key in points[0]["rounds"][0]:
            axes.plot(x, [milliseconds(p, key) for p in points], color=colour, marker=marker, label=label)
    for (key, share, label), colour in zip(BUDGETS, ("#b3541e", "#3b5b92")):
        if key in points[0]["rounds"][0]:
            axes.plot(x, [milliseconds(p, key) * share for p in points], color=colour, linestyle=":", label=label)
    axes.set_yscale("log")
    axes.set_ylabel("CPU time of a detection frame, ms")


def draw_memory(axes, points, x):
    peaks = [max(r["analyzer"]["peak_kib"] for r in p["rounds"]) / 1024 for p in points]
    axes.plot(x, peaks, color="#0b6e4f", marker="o", label="analyzer, peak")
    axes.set_ylabel("resident memory, MiB")


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    with open(sys.argv[1]) as file:
        sweep = json.load(file)
    figure, ((size_time, object_time), (size_memory, object_memory)) = plt.subplots(2, 2, figsize=(13, 9))

    sizes = sweep["sizes"]
    pixels = [p["width"] * p["height"] for p in sizes]
    draw_times(size_time, sizes, pixels)
    draw_memory(size_memory, sizes, pixels)
    size_memory.plot(*zip(*PEAK_LIMITS), "_", color="black", markersize=16, label="limit", markeredgewidth=2)
    size_memory.set_yscale("log")
    for axes in (size_time, size_memory):
        axes.set_xscale("log")
        axes.minorticks_off()
        axes.set_xticks(pixels, [f"{p['width']}x{p['height']}" for p in sizes], rotation=35, ha="right")
        axes.set_xlabel("image size")

    objects = sweep["objects"]
    shown = [p["objects_shown"] for p in objects]
    draw_times(object_time, objects, shown)
    draw_memory(object_memory, objects, shown)
    object_memory.set_ylim(bottom=0)
    for axes in (object_time, object_memory):
        axes.set_xscale("symlog", linthresh=1)
        axes.set_xlim(-0.4, max(shown) * 1.5)
        axes.minorticks_off()
        axes.set_xticks(shown, [f"{n:.0f}" for n in shown])
        axes.set_xlabel(f"objects in a {objects[0]['width']}x{objects[0]['height']} frame")

    for axes in figure.axes:
        axes.grid(True, which="major", color="#dddddd")
        axes.legend(fontsize=8)
    figure.suptitle(f"Time and memory against image size and number of objects ({sweep['label']})")
    figure.tight_layout()
    figure.savefig(sys.argv[2], metadata={"Date": None})


if __name__ == "__main__":
    main()
