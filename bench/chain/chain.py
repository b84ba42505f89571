#!/usr/bin/python3
"""What the whole chain costs, by process: video file to JSON lines, beside what OpenCV and Motion take for the same file.

All contestants take turns; a round is every one of them once, and a ratio is that of one round. Processor time of every
process, user and system, so that the load of others counts as little as it can. Without footage: made scenes.
"""
import argparse
import json
import os
import pathlib
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

FOOTAGE = {"320x240": "cdnet-highway/highway.mp4", "768x576": "pets09-s2l1/vtest.avi"}
WITHOUT_AVX512 = "AVX512F,AVX512-SKX,AVX512-KNL,AVX512-KNM,AVX512-CNL,AVX512-CLX,AVX512-ICL"


def run(argv, **options):
    """Seconds of processor time of a program and all its children, and its standard output."""
    process = subprocess.Popen(list(map(str, argv)), stdout=subprocess.PIPE, stderr=subprocess.PIPE, stdin=subprocess.DEVNULL,
                               text=True, **options)
    # A report that does not fit into a pipe would stop the program: nobody reads before it has ended.
    output = process.stdout.read()
    errors = process.stderr.read()
    _, status, used = os.wait4(process.pid, 0)
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0:
        sys.exit(f"chain.py: {argv[0]} ended with status {process.returncode}: {(errors or output)[-400:]}")
    return used.ru_utime + used.ru_stime, output


class Bench:
    def __init__(self, options, folder):
        self.options, self.folder = options, folder
        (folder / "bin").mkdir()
        self.times = folder / "times"
        self.stand_in("bin/ffmpeg", "ffmpeg", shutil.which("ffmpeg"))
        self.analyzer = self.stand_in("analyzer", "analyzer", options.build.resolve() / "fleifeisa")

    def stand_in(self, path, name, program):
        file = self.folder / path
        file.write_text(f'#!/bin/sh\nexec "{self.options.tools.resolve()}/child_time" "{self.times}" {name} "{program}" "$@"\n')
        file.chmod(0o755)
        return file

    def chain(self, video, kernels="", more=(), rate=None):
        """Seconds of ffmpeg, host and analyzer, and the frames that were analyzed."""
        self.times.write_text("")
        out = self.folder / "out"
        shutil.rmtree(out, ignore_errors=True)
        environment = {**os.environ, "PATH": f"{self.folder / 'bin'}:{os.environ['PATH']}", "FLEIFEISA_KERNELS": kernels}
        if not kernels:
            del environment["FLEIFEISA_KERNELS"]
        together, _ = run([self.options.build / "fleifeisa-host", "play", video, "--analyzer", self.analyzer, "--quiet", "--out",
                           out, "--output", "jsonl", *more], env=environment)
        parts = {"ffmpeg": 0.0, "analyzer": 0.0}
        for line in self.times.read_text().splitlines():
            name, user, system = line.split()
            parts[name] += float(user) + float(system)
        self.frames = [json.loads(line) for line in (out / "frames.jsonl").read_text().splitlines()]
        # What stands before the children takes a few milliseconds, which count as the host's.
        return {"ffmpeg": parts["ffmpeg"], "host": together - sum(parts.values()), "analyzer": parts["analyzer"]}

    def opencv(self, video, limited):
        environment = dict(os.environ)
        if limited:
            environment["OPENCV_CPU_DISABLE"] = WITHOUT_AVX512
        seconds, said = run([self.options.tools / "opencv_chain", video], env=environment)
        self.said = said.strip()
        return seconds, int(said.split()[0])

    def motion(self, video, rate, seconds):
        """A run of so many seconds: it plays a file at the file's own rate."""
        settings = self.folder / "motion.conf"
        settings.write_text(f"daemon off\nlog_level 4\nlog_file {self.folder}/motion.log\ntarget_dir {self.folder}\n"
                            f"netcam_url file://{video}\nwidth {self.size[0]}\nheight {self.size[1]}\nframerate {round(rate)}\n"
                            "picture_output off\nmovie_output off\nwebcontrol_port 0\nstream_port 0\n")
        process = subprocess.Popen(["motion", "-n", "-c", settings], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        time.sleep(seconds)
        process.terminate()
        _, _, used = os.wait4(process.pid, 0)
        process.returncode = 0
        return used.ru_utime + used.ru_stime

    def motion_per_1000(self, video, rate):
        """The difference of two runs, so that its start does not count."""
        short, long = self.motion(video, rate, 5), self.motion(video, rate, 5 + self.options.motion_seconds)
        return 1000 * (long - short) / (self.options.motion_seconds * round(rate))

    def probe(self, video):
        done = subprocess.run(["ffprobe", "-v", "error", "-select_streams", "v:0", "-show_entries",
                               "stream=width,height,avg_frame_rate,codec_name", "-of", "json", video], capture_output=True, text=True, check=True)
        stream = json.loads(done.stdout)["streams"][0]
        above, below = map(int, stream["avg_frame_rate"].split("/"))
        self.size = (stream["width"], stream["height"])
        return stream["codec_name"], above / below

    def recorded(self, scenes, size, video):
        """Made scenes, one behind the other, as H.264."""
        encoder = subprocess.Popen(["ffmpeg", "-v", "error", "-y", "-f", "rawvideo", "-pix_fmt", "rgb24", "-s", size, "-r", "10", "-i", "-",
                                    "-c:v", "libx264", "-preset", "fast", "-crf", "23", "-pix_fmt", "yuv420p", video],
                                   stdin=subprocess.PIPE)
        for scene in scenes:
            recording = self.folder / "scene.bin"
            run([self.options.build / "fleifeisa-host", "play", f"scene:{scene}&size={size}", "--tracks", "raw", "--quiet", "--output",
                 f"recording={recording}", "--bgframes", "1000000"])  # learning alone is quick
            with open(recording, "rb") as file:
                while line := file.readline():
                    length = 0
                    while line.strip():
                        if line.startswith(b"Content-Length:"):
                            length = int(line.split()[1])
                        line = file.readline()
                    if length:
                        encoder.stdin.write(file.read(length))
            recording.unlink()
        encoder.stdin.close()
        if encoder.wait() != 0:
            sys.exit("chain.py: ffmpeg could not encode a scene")
        return video

    def video(self, size):
        if not self.options.footage:
            return self.recorded(["street?frames=1000&noise=2"], size, self.folder / f"{size}.mp4")
        video = self.options.footage / FOOTAGE[size]
        if self.probe(video)[0] == "h264":
            return video
        encoded = self.folder / f"{size}.mp4"
        subprocess.run(["ffmpeg", "-v", "error", "-i", video, "-an", "-c:v", "libx264", "-preset", "fast", "-crf", "23", encoded],
                       check=True)
        return encoded


def middle(values):
    return statistics.median(values)


def compared(bench, size):
    video = bench.video(size).resolve()
    _, rate = bench.probe(video)
    rows = {name: [] for name in ("avx512", "avx2", "opencv", "opencv avx2", "motion")}
    opencv = (bench.options.tools / "opencv_chain").exists()
    for number in range(bench.options.rounds):
        print(f"{size}: round {number + 1} of {bench.options.rounds}", file=sys.stderr)
        for name, kernels in (("avx512", ""), ("avx2", "avx2")):
            parts = bench.chain(video, kernels)
            rows[name].append({part: 1000 * value / len(bench.frames) for part, value in parts.items()})
        for name, limited in (("opencv", False), ("opencv avx2", True)) if opencv else ():
            seconds, frames = bench.opencv(video, limited)
            rows[name].append({"all": 1000 * seconds / frames})
            print(bench.said, file=sys.stderr)
        if bench.options.motion_seconds and shutil.which("motion"):
            rows["motion"].append({"all": bench.motion_per_1000(video, rate)})
    return rows


def printed(size, rows):
    titles = {"avx512": "ffmpeg + host + analyzer, best kernels", "avx2": "the same, AVX2", "opencv": "OpenCV VideoCapture + MOG2 pipeline",
              "opencv avx2": "the same, without AVX-512", "motion": "Motion (luma difference, no tracks)"}
    print(f"\n{size}, CPU seconds per 1000 frames, median of the rounds\n")
    print("| | ffmpeg | host | analyzer | all (lowest to highest) | of OpenCV | of OpenCV without AVX-512 |\n|---|---|---|---|---|---|---|")
    for name, runs in rows.items():
        if not runs:
            continue
        sums = [sum(run.values()) for run in runs]
        cells = [f"{middle([run[part] for run in runs]):.2f}" if part in runs[0] else "" for part in ("ffmpeg", "host", "analyzer")]
        ratios = []
        for other in ("opencv", "opencv avx2"):
            ratios.append(f"{middle([a / sum(b.values()) for a, b in zip(sums, rows[other])]):.2f}" if rows[other] else "")
        print(f"| {titles[name]} | {' | '.join(cells)} | {middle(sums):.2f} ({min(sums):.2f} to {max(sums):.2f}) | {' | '.join(ratios)} |")


def first_seen(frames):
    """Times at which an object comes after five seconds without any."""
    times, latest = [], None
    for frame in frames:
        if frame["objects"]:
            if latest is None or frame["time_ns"] - latest > 5e9:
                times.append(frame["time_ns"] / 1e9)
            latest = frame["time_ns"]
    return times


def idle(bench, size):
    """A day in short: nobody for nine tenths of it, at all full rate and at idle rates."""
    # Quiet for as long as never divides by an interval, so that people come at all moments between two frames.
    visits = [f"stage?act=walk&seed=1&quiet={quiet}&frames={quiet + 370}" for quiet in (3301, 3303, 3307)]
    video = bench.recorded(visits, size, bench.folder / "day.mp4")
    results = []
    rates = (0, 1, 2, 4)
    for number in range(bench.options.rounds):
        print(f"a quiet day, {size}: round {number + 1}", file=sys.stderr)
        turn = []
        for rate in rates:
            parts = bench.chain(video, "", ["--bgframes", "200", *(["--idle-rate", rate] if rate else [])])
            turn.append((parts["host"] + parts["analyzer"], len(bench.frames), first_seen(bench.frames), parts))
        results.append(turn)
    print(f"\nA quiet day, {size} at 10 frames a second, {results[0][0][1]} frames with {len(results[0][0][2])} visits: host and analyzer\n")
    print("| idle rate | frames analyzed | ffmpeg, s | host, s | analyzer, s | host + analyzer, of the full rate | first seen later by, s: mean, most |\n|---|---|---|---|---|---|---|")
    for column, rate in enumerate(rates):
        share = middle([turn[column][0] / turn[0][0] for turn in results])
        full, now = results[0][0][2], results[0][column][2]
        late = [b - a for a, b in zip(full, now)] if len(full) == len(now) else []
        said = f"{statistics.mean(late):.2f}, {max(late):.2f}" if late else f"{len(now)} of {len(full)} visits"
        parts = [middle([turn[column][3][part] for turn in results]) for part in ("ffmpeg", "host", "analyzer")]
        print(f"| {rate or 'off'} | {results[0][column][1]} | " + " | ".join(f"{part:.2f}" for part in parts) + f" | {share:.2f} | {said} |")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--build", type=pathlib.Path, default=pathlib.Path("build/bench"), help="where fleifeisa and fleifeisa-host are")
    parser.add_argument("--tools", type=pathlib.Path, default=pathlib.Path("build/bench"), help="where child_time and opencv_chain are")
    parser.add_argument("--footage", type=pathlib.Path, default=os.environ.get("FLEIFEISA_FOOTAGE"), help="directory; else made scenes")
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--sizes", default="320x240,768x576", help="of the comparison, \"\": the quiet day alone")
    parser.add_argument("--motion-seconds", type=int, default=20, help="of Motion at the file's rate, 0: without it")
    parser.add_argument("--no-idle", action="store_true", help="without the quiet day")
    options = parser.parse_args()
    if options.footage:
        options.footage = pathlib.Path(options.footage)
    print(f"Load when it began: {os.getloadavg()[0]:.1f} on {os.cpu_count()} processors")
    with tempfile.TemporaryDirectory(prefix="fleifeisa-chain-") as folder:
        bench = Bench(options, pathlib.Path(folder))
        for size in filter(None, options.sizes.split(",")):
            printed(size, compared(bench, size))
        if not options.no_idle:
            idle(bench, "320x240")
    print(f"\nLoad when it ended: {os.getloadavg()[0]:.1f}")


if __name__ == "__main__":
    main()
