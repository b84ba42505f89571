"""Clips end to end: every frame of a clip is the one that its list of times says, whatever the source is like.

    FLEIFEISA_HOST=build/fleifeisa-host python3 tests/host/clip_runs.py [-v] [Clips.test]
"""
import calendar
import json
import shutil
import signal
import subprocess
import time
import unittest

from support import HostTest, needs_ffmpeg, times

WIDTH, HEIGHT, BITS = 192, 64, 12
# Lately: clips of long ago would be removed at once.
START_TEXT = time.strftime("%Y-%m-%dT00:00:00Z", time.gmtime(time.time() - 86400))
START = calendar.timegm(time.strptime(START_TEXT, "%Y-%m-%dT%H:%M:%SZ")) * 1_000_000_000
H264 = ["-c:v", "libx264", "-preset", "ultrafast", "-tune", "fastdecode", "-bf", "3", "-x264-params", "b-adapt=0:scenecut=0"]
# An object that walks through the picture while frames 60 to 80 are seen.
WALKER = 'for n, stamp in frames(): answer(n, stamp, *([object(x=str(2 * n - 100), w="24", h="24")] if 60 <= n <= 80 else []))'


def painted(number):
    """A grey frame that shows its number: a white or black bar for each bit, the lowest first."""
    row = b"".join((b"\xff" if number >> bit & 1 else b"\0") * (WIDTH // BITS) for bit in range(BITS))
    return row * HEIGHT


def numbers(path):
    """What the frames of a file show."""
    raw = subprocess.run(["ffmpeg", "-v", "error", "-i", path, "-fps_mode", "passthrough", "-f", "rawvideo", "-pix_fmt",
                          "gray", "-"], check=True, capture_output=True).stdout
    size = WIDTH * HEIGHT
    bar = WIDTH // BITS
    return [sum((raw[at + size // 2 + bit * bar + bar // 2] > 127) << bit for bit in range(BITS))
            for at in range(0, len(raw), size)]


def shown_at(path):
    """Times at which a player shows the frames, in seconds."""
    text = subprocess.run(["ffprobe", "-v", "error", "-select_streams", "v", "-show_entries", "frame=pts_time", "-of",
                           "csv=p=0", path], check=True, capture_output=True, text=True).stdout
    return [float(line.split(",")[0]) for line in text.split()]


@needs_ffmpeg
class Clips(HostTest):
    def source(self, name, *codec, frames=200, rate=10, setpts=None):
        raw = b"".join(map(painted, range(frames)))
        subprocess.run(["ffmpeg", "-v", "error", "-y", "-f", "rawvideo", "-pix_fmt", "gray", "-s", f"{WIDTH}x{HEIGHT}", "-r",
                        str(rate), "-i", "-", *(["-vf", f"settb=1/1000,setpts={setpts}", "-enc_time_base", "1:1000"] if setpts else []), "-fps_mode", "passthrough",
                        "-pix_fmt", "yuv420p", *codec, name], cwd=self.dir, input=raw, check=True)
        return name

    def events(self):
        lines = self.host("events", "--state", "state", "--json").stdout.splitlines()
        return [json.loads(line) for line in lines]

    def clip(self, event):
        """Path of an event's clip, and its list of times."""
        number = event["event"].rsplit("-", 1)[1]
        path = next(self.dir.glob(f"state/media/*/*/{number}.mp4"))
        return path, json.loads(path.with_name(f"{number}-times.json").read_text())

    def told(self):
        path = self.dir / "out/gate/events.jsonl"
        return [json.loads(line) for line in path.read_text().splitlines()] if path.exists() else []

    def check(self, event, time_of, before=5):
        path, told = self.clip(event)
        seen = numbers(path)
        self.assertEqual(told["time_ns"], [START + round(time_of(n) * 1e9) for n in seen])
        for shown, pts in zip(shown_at(path), told["pts"], strict=True):
            self.assertAlmostEqual(shown, pts / told["timescale"], places=5)
        self.assertEqual(told["lead_ns"], event["start_ns"] - before * 1_000_000_000 - told["time_ns"][0])
        return seen, told

    def play(self, source, *more):
        shutil.rmtree(self.dir / "state", ignore_errors=True)
        self.host("play", source, "--quiet", "--analyzer", self.analyzer(WALKER), "--tracks", "raw", "--state", "state",
                  "--start-time", START_TEXT, "--output", "jsonl", "--zone", "all=0,0 1,0 1,1 0,1", *more)
        events = self.events()
        self.assertTrue(events)
        for event in events:
            self.assertEqual(event["clip"], "ready", event)
        return events

    def test_other_sources_are_encoded(self):
        """Also what ffmpeg cannot copy, because its packets have no times: frames are lost with none of them."""
        rows = [("MJPEG", self.source("m.avi", "-c:v", "mjpeg", "-q:v", "3")),
                ("packets without times", self.source("r.h264", *H264, "-g", "10")),
                ("a recording", "r.rec")]
        self.host("play", "m.avi", "--quiet", "--output", "recording=r.rec")
        for what, source in rows:
            with self.subTest(what):
                for event in self.play(source):
                    seen, told = self.check(event, lambda n: n / 10)
                    self.assertEqual(seen, list(range(seen[0], seen[-1] + 1)))
                    self.assertLessEqual(0, told["lead_ns"])
                self.assertEqual(len((self.dir / "out/frames.jsonl").read_text().splitlines()), 200)

    def test_every_frame_at_its_time(self):
        rows = [
            ("B-frames, a key frame each second", H264 + ["-g", "10"], "mp4", lambda n: n / 10, None, 10),
            ("a key frame in ten seconds", H264 + ["-g", "100"], "mkv", lambda n: n / 10, None, 100),
            ("open groups of pictures", H264 + ["-g", "8", "-x264-params", "b-adapt=0:scenecut=0:open-gop=1"], "ts", lambda n: n / 10, None, 8),
            ("a start that is not nought", H264 + ["-g", "10", "-output_ts_offset", "7.3"], "ts", lambda n: n / 10, None, 10),
            ("a variable rate", H264 + ["-g", "15"], "mkv", lambda n: (n + 0.3 * (n % 3)) / 10, "(N+0.3*mod(N\\,3))/10/TB+0.5", 15),
            ("H.265", ["-c:v", "libx265", "-preset", "ultrafast", "-x265-params", "log-level=error:keyint=20:bframes=3"],
             "mp4", lambda n: n / 10, None, 20),
        ]
        for what, codec, ending, time_of, setpts, keys in rows:
            with self.subTest(what):
                source = self.source("source." + ending, *codec, setpts=setpts)
                for event in self.play(source):
                    seen, told = self.check(event, time_of)
                    self.assertEqual(seen, list(range(seen[0], seen[-1] + 1)))
                    # At least as long before as asked for, and no earlier than the key frame; as long behind it.
                    self.assertLessEqual(0, told["lead_ns"])
                    self.assertLess(told["lead_ns"], keys * 0.14e9)
                    self.assertGreaterEqual(told["time_ns"][-1], min(event["end_ns"] + 10e9 - 0.14e9, START + time_of(199) * 1e9))
                    self.assertEqual(told["codec"], "hevc" if what == "H.265" else "h264")

    def live(self, source, *lines, walker=WALKER):
        """A configuration in which a file plays the camera; the walker's visit is an event."""
        return self.write("c.toml", f"""state = "state"
outputs = "out"
analyzer = "{self.analyzer(walker)}"
[[camera]]
name = "gate"
device = 1
source = "{source}"
start_time = "{START_TEXT}"
tracks = "raw"
outputs = ["events", "replies"]
""" + "\n".join(lines) + """
[camera.keep]
before = 1
after = 2
[[camera.zone]]
name = "all"
points = [[0.0, 0.0], [1.0, 0.0], [1.0, 1.0], [0.0, 1.0]]
""")

    def test_sound_only_where_it_is_asked_for(self):
        self.source("silent.mp4", *H264, "-g", "10", frames=120)
        self.ffmpeg("-i", "silent.mp4", "-f", "lavfi", "-i", "sine=duration=12", "-c:v", "copy", "-c:a", "aac", "source.mp4")
        for wanted in (False, True):
            shutil.rmtree(self.dir / "state", ignore_errors=True)
            self.live("source.mp4", f"audio = {str(wanted).lower()}")
            self.host("run", "c.toml")
            for event in self.events():
                path, _ = self.clip(event)
                kinds = subprocess.run(["ffprobe", "-v", "error", "-show_entries", "stream=codec_type", "-of", "csv=p=0", path],
                                       check=True, capture_output=True, text=True).stdout.split()
                self.assertEqual(kinds, ["video", "audio"] if wanted else ["video"])
                seen, _ = self.check(event, lambda n: n / 10, before=1)
                self.assertIn(60, seen)

    def test_a_killed_host_goes_on_with_its_clips(self):
        self.source("source.mp4", *H264, "-g", "10", frames=200, rate=30)
        self.live("source.mp4", "realtime = true", "live = true", "loop = true",
                  walker='for n, stamp in frames(): answer(n, stamp, *([object(x="60", w="24", h="24")] if n >= 60 else []))')
        process = self.start("run", "c.toml")
        running = self.until(lambda: [e for e in self.told() if e["kind"] == "zone"], "an event", timeout=40)[0]
        self.until(lambda: [p for p in self.dir.glob("state/ring/gate/*/*-k.ts")
                            if int(p.name.split("-")[3]) > running["start_ns"]], "its video on disk", timeout=40)
        self.assertEqual(self.end(process, signal.SIGKILL), -signal.SIGKILL)
        self.assertEqual({e["clip"] for e in self.events()}, {"recording"})
        process = self.start("run", "c.toml")
        def ready():
            return [e for e in self.events() if e["event"] == running["event"] and e["clip"] != "recording"]
        self.assertEqual(self.until(ready, "the clip", timeout=60)[0]["clip"], "ready", self.log())
        self.assertEqual(self.end(process), 0, self.log())
        path, told = self.clip(running)
        self.assertEqual(len(numbers(path)), len(told["time_ns"]))
        self.assertIn(running["start_ns"], told["time_ns"])
        # Its end was in order: what the camera saw last is on disk.
        latest = max(int(p.name.split("-")[3]) for p in self.dir.glob("state/ring/gate/*/*.ts"))
        self.assertGreater(latest / 1e9, times(self.dir / "out/gate/replies.txt")[-1] - 0.001)

    def test_video_that_cannot_be_written_is_told(self):
        self.source("source.mp4", *H264, "-g", "10", frames=120)
        (self.dir / "state/ring").mkdir(parents=True)
        self.write("state/ring/gate", "in the way of a directory")
        self.live("source.mp4")
        self.host("run", "c.toml")
        gaps = [e for e in self.told() if e["kind"] == "gap"]
        self.assertEqual([(e["change"], e["text"]) for e in gaps[:1]], [("recording", "Not a directory")])
        self.assertGreater(gaps[0]["value"], 0)


if __name__ == "__main__":
    unittest.main()
