"""Fifty cameras of 320x240 at 10 frames a second from video files: every frame answered, in time, and at what cost.

    FLEIFEISA_HOST=build/fleifeisa-host python3 tests/host/fifty_cameras.py [--cameras N] [--seconds N]

Prints processor seconds a second (1 = one core), decoding apart from the host and from analysis.
"""
import argparse
import collections
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import time

HOST = os.environ["FLEIFEISA_HOST"]
RATE, VIDEOS = 10, 5


def make_video(directory, seed, frames):
    """A street scene as H.264, through a recording."""
    recording = directory / "recording"
    subprocess.run([HOST, "play", f"scene:street?seed={seed}&frames={frames}", "--quiet", "--output",
                    f"recording={recording}", "--bgframes", "1000000"], check=True, cwd=directory)
    pixels = re.compile(rb"Sequence-Number: \d+\r\n\r\n")
    data = recording.read_bytes()
    path = directory / f"street{seed}.mp4"
    encoder = subprocess.Popen(["ffmpeg", "-v", "error", "-y", "-f", "rawvideo", "-pix_fmt", "rgb24", "-s", "320x240",
                                "-r", str(RATE), "-i", "-", "-c:v", "libx264", "-preset", "veryfast", "-pix_fmt", "yuv420p",
                                path], stdin=subprocess.PIPE)
    at = 0
    while match := pixels.search(data, at):
        at = match.end() + 320 * 240 * 3
        encoder.stdin.write(data[match.end():at])
    encoder.stdin.close()
    if encoder.wait() != 0:
        raise SystemExit("ffmpeg could not encode")
    recording.unlink()
    return path


def write_config(directory, videos, cameras):
    text = 'root = "root"\noutputs = "out"\n'
    for n in range(1, cameras + 1):
        text += (f'[[camera]]\nname = "camera{n}"\ndevice = {n}\nsource = "{videos[n % len(videos)]}"\nrealtime = true\n'
                 'control = { bgframes = 50 }\noutputs = ["jsonl"]\n')
    (directory / "cameras.toml").write_text(text)


def sample(parent, usage):
    """Processor seconds of the host and of its children, by process."""
    ticks = os.sysconf("SC_CLK_TCK")
    for entry in pathlib.Path("/proc").glob("[0-9]*"):
        try:
            name, rest = (entry / "stat").read_text().split("(", 1)[1].rsplit(")", 1)
        except OSError:
            continue
        fields = rest.split()
        if int(entry.name) == parent or int(fields[1]) == parent:
            usage[(int(entry.name), name)] = (int(fields[11]) + int(fields[12])) / ticks


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--cameras", type=int, default=50)
    parser.add_argument("--seconds", type=int, default=30)
    options = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="fleifeisa-fifty-") as name:
        directory = pathlib.Path(name)
        frames = options.seconds * RATE
        videos = [make_video(directory, seed, frames) for seed in range(1, VIDEOS + 1)]
        write_config(directory, videos, options.cameras)
        begin = time.monotonic()
        process = subprocess.Popen([HOST, "run", "cameras.toml"], cwd=directory)
        usage = {}
        while process.poll() is None:
            sample(process.pid, usage)
            time.sleep(0.25)
        elapsed = time.monotonic() - begin
        answered = [len((directory / f"out/camera{n}/frames.jsonl").read_text().splitlines())
                    for n in range(1, options.cameras + 1)]
    total = collections.Counter()
    for (_, program), used in usage.items():
        total[program] += used
    print(f"{options.cameras} cameras, {frames} frames each at {RATE} a second: took {elapsed:.1f} s, "
          f"load of others {os.getloadavg()[0]:.1f}")
    for program, role in (("ffmpeg", "decoding"), ("fleifeisa-host", "host"), ("fleifeisa", "analysis")):
        print(f"  {role:9} {total[program] / options.seconds:.2f} cores, "
              f"{1000 * total[program] / sum(answered):.2f} ms a frame")
    if process.returncode != 0 or set(answered) != {frames}:
        print(f"failed: status {process.returncode}, frames answered from {min(answered)} to {max(answered)}, not {frames}")
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
