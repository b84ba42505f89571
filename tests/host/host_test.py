"""The camera host end to end, with real processes: sources, supervision, signals, exit codes, recordings.

    FLEIFEISA_HOST=build/fleifeisa-host python3 tests/host/host_test.py [-v] [Class.test]
"""
import fcntl
import json
import os
import pathlib
import random
import re
import resource
import shutil
import signal
import subprocess
import sys
import termios
import time
import unittest

from support import (HAVE_FFMPEG, HOST, HostTest, RtspServer, StallingServer, needs_ffmpeg, recorded_frames, sequences, times)

SMALL = "scene:street?size=96x64&frames=120&quiet=10"


def config(*cameras):
    """A configuration of cameras given as dictionaries of TOML values."""
    text = 'root = "root"\noutputs = "out"\n'
    for camera in cameras:
        text += "[[camera]]\n" + "".join(f"{key} = {value}\n" for key, value in camera.items())
    return text


GATE = '[{ name = "gate", points = [[0.5, 0.0], [0.5, 1.0]] }]'


def scene_camera(name, device, frames=0, **more):
    return {"name": f'"{name}"', "device": device, "source": f'"scene:street?size=96x64&rate=50&frames={frames}"',
            "realtime": "true", "outputs": '["replies"]', "control": "{ bgframes = 10 }", **more}


def sequences_or_none(path):
    return sequences(path) if path.exists() else None


# Stands between host and analyzer; answers come late, by times that nobody knows.
RELAY = r"""
import os, random, subprocess, sys, time
child = subprocess.Popen([os.environ["RELAYED"]] + sys.argv[1:], stdout=subprocess.PIPE)
while data := os.read(child.stdout.fileno(), 65536):
    time.sleep(random.choice((0, 0, 0, 0.005)))
    sys.stdout.buffer.write(data)
    sys.stdout.buffer.flush()
sys.exit(child.wait())
"""


class Play(HostTest):
    def test_every_frame_is_answered_and_runs_repeat(self):
        table = self.host("play", SMALL, "--out", "a", "--bgframes", 20, "--output", "replies", "--output", "recording")
        self.host("play", SMALL, "--out", "b", "--bgframes", 20, "--output", "replies", "--quiet")
        self.assertEqual(sequences(self.dir / "a/replies.txt"), list(range(1, 121)))
        self.assertEqual((self.dir / "a/replies.txt").read_bytes(), (self.dir / "b/replies.txt").read_bytes())
        self.assertIn("median box", table.stdout)
        self.assertIn("120 frames", table.stdout)
        self.assertIn("detection on 100 of them", table.stdout)
        self.assertEqual(table.stderr, "")  # no progress where nobody watches
        # The recorded run, once more: from the exact requests, and as a source of frames.
        self.host("replay", "a/recording.bin", "--verify", "--replies", "c.txt")
        self.assertEqual((self.dir / "a/replies.txt").read_bytes(), (self.dir / "c.txt").read_bytes())
        self.host("play", "a/recording.bin", "--out", "d", "--bgframes", 20, "--output", "replies", "--quiet")
        self.assertEqual((self.dir / "a/replies.txt").read_bytes(), (self.dir / "d/replies.txt").read_bytes())

    def test_a_changed_recording_is_found_out(self):
        self.host("play", SMALL, "--output", "recording=r", "--quiet", "--frames", 40, "--bgframes", 5)
        data = bytearray((self.dir / "r").read_bytes())
        where = data.rindex(b"Sequence-Number: 40\r\n\r\n") + 23
        data[where:where + 3000] = bytes(3000)
        (self.dir / "r2").write_bytes(data)
        self.assertIn("frame 40", self.host("replay", "r2", "--verify", expect=65).stderr)
        (self.dir / "r3").write_bytes(data[:len(data) // 2])
        self.assertIn("damaged", self.host("replay", "r3", "--verify", expect=65).stderr)
        # One bit that changes no answer, and an end between two messages.
        data = bytearray((self.dir / "r").read_bytes())
        data[data.rindex(b"Sequence-Number: 40\r\n\r\n") + 25] ^= 1
        (self.dir / "r4").write_bytes(data)
        found = self.host("replay", "r4", "--verify", expect=65).stderr
        self.assertIn("1 frames are not those that were recorded, the first of them frame 40", found)
        self.assertNotIn("replies differ", found)
        data = (self.dir / "r").read_bytes()
        (self.dir / "r5").write_bytes(data[:data.rindex(b"ANALYTICS.CARTRIDGE")])
        self.assertIn("the end is missing", self.host("replay", "r5", "--verify", expect=65).stderr)

    def test_size_region_and_rate(self):
        self.host("play", SMALL, "--output", "recording=full", "--frames", 3, "--quiet")
        self.host("play", SMALL, "--output", "recording=part", "--frames", 3, "--quiet", "--region", "40x20+8+4")
        self.host("play", SMALL, "--output", "recording=half", "--frames", 3, "--quiet", "--size", "48x32")
        full, part, half = (recorded_frames(self.dir / name) for name in ("full", "part", "half"))
        for (w, _, whole), (pw, ph, cut), (hw, hh, _) in zip(full, part, half):
            self.assertEqual((pw, ph, hw, hh), (40, 20, 48, 32))
            rows = b"".join(whole[((4 + y) * w + 8) * 3:((4 + y) * w + 48) * 3] for y in range(20))
            self.assertEqual(cut, rows)
        self.host("play", SMALL, "--out", "r", "--output", "replies", "--rate", 5, "--quiet")
        self.assertEqual(times(self.dir / "r/replies.txt"), [n / 5 for n in range(60)])

    def test_exit_codes_and_messages(self):
        self.write("empty.avi", "")
        self.write("noise.mp4", "this is no video\n" * 200)
        rows = [(("play",), 64, "SOURCE"), (("play", "scene:nowhere"), 64, "walkers"),
                (("play", "missing.avi"), 66, "missing.avi: No such file"), (("play", "empty.avi"), 65, "empty"),
                (("play", SMALL, "--analyzer", "./nothing"), 69, "./nothing"),
                (("play", SMALL, "--size", "12"), 64, "320x240"), (("play", SMALL, "--output", "smoke"), 64, "replies"),
                (("play", SMALL, "--output", "replies=no/such/dir"), 73, "no/such/dir"), (("fly",), 64, "fly"),
                (("play", SMALL, "--zone", "yard=0,0 1,1"), 64, "at least 3 points"),
                (("play", SMALL, "--zone", "yard"), 64, "NAME=X,Y"), (("play", SMALL, "--zone", "a=0,0 1,1 1,0 0,1"), 64, "cross"),
                (("play", SMALL, "--line", "gate=0,0 2,0"), 64, "0 to 1"),
                (("play", SMALL, "--line", "a=0,0 1,0", "--zone", "a=0,0 1,0 1,1"), 64, "same name"),
                (("replay", "noise.mp4"), 65, "this is no recording"),
                (("pley", SMALL), 64, "did you mean play?"), (("play", SMALL, "--bgframe", 3), 64, "did you mean --bgframes?"),
                (("play", SMALL, "--output", "jsnol"), 64, "did you mean jsonl?"), (("run", "missing.toml"), 78, "missing.toml")]
        for args, code, words in rows:
            done = self.host(*args, expect=code)
            self.assertIn(words, done.stderr, args)
            self.assertEqual(done.stderr.count("\n"), 1, done.stderr)
        self.assertIn("Examples", self.host("play", "--help").stdout)
        self.assertIn("scene:street", self.host("scenes").stdout)

    def test_a_full_disk_costs_the_output_only(self):
        done = self.host("play", SMALL, "--output", "replies=/dev/full", "--output", "recording=good", expect=74)
        self.assertIn("No space left on device", done.stderr)
        self.assertEqual(len(recorded_frames(self.dir / "good")), 120)

    def test_broken_analyzers(self):
        frame = SMALL + "&frames=20"
        rows = {"raise SystemExit(3)": "", 'say("hello")\nsys.stdin.read()': "begins with other text",
                'answer(999, "0")\nsys.stdin.read()': "a frame that it was not sent",
                'sys.stderr.write("assertion\\nfailed: no\\x07 more")\nos.abort()':
                    "signal 6 (Aborted) (it last said: assertion; failed: no\ufffd more)"}
        for body, words in rows.items():
            done = self.host("play", frame, "--analyzer", self.analyzer(body + "\n"), expect=69)
            self.assertIn("given up", done.stderr, body)
            self.assertIn(words, done.stderr)

    def test_deaths_cost_no_more_than_they_must(self):
        """An analyzer that dies over every tenth frame, once or always: numbers without gaps, and the outputs are told."""
        outputs = [x for kind in ("jsonl", "tracks", "recording") for x in ("--output", f"{kind}={kind}")]
        outputs += ["--tracks", "raw"]
        dying = """
for number, stamp in frames():
    tenth = float(stamp) > 0 and float(stamp) == int(float(stamp))
    if tenth and (ALWAYS or not os.path.exists(stamp)):
        open(stamp, "w").close()
        raise SystemExit(3)
    answer(number, stamp, object())
"""
        once = self.host("play", SMALL + "&frames=35", *outputs, "--analyzer",
                         self.analyzer(dying.replace("ALWAYS", "False")))
        self.assertIn("The analyzer was restarted 3 times, 0 frames were lost.", once.stdout)
        lines = [json.loads(line) for line in (self.dir / "jsonl").read_text().splitlines()]
        self.assertEqual([(l["sequence"], l["time_ns"], l["dropped"]) for l in lines],
                         [(n + 1, n * 10**8, 0) for n in range(35)])
        tracks = [json.loads(line) for line in (self.dir / "tracks").read_text().splitlines()]
        self.assertEqual([(t["track"], t["frames"], t["ended"]) for t in tracks],
                         [(3, 10, "lost"), (100003, 10, "lost"), (200003, 10, "lost"), (300003, 5, "source")])
        self.assertEqual(len(recorded_frames(self.dir / "recording")), 35)
        self.assertEqual((self.dir / "recording").read_bytes().count(b"Recording-Start"), 4)
        always = self.host("play", SMALL + "&frames=15", *outputs, "--analyzer",
                           self.analyzer(dying.replace("ALWAYS", "True")), expect=70)
        self.assertIn("frame 11 is given up: 3 analyzers died over it", always.stderr)
        lines = [json.loads(line) for line in (self.dir / "jsonl").read_text().splitlines()]
        self.assertEqual([(l["sequence"], l["dropped"]) for l in lines],
                         [(n, 1 if n == 11 else 0) for n in range(1, 15)])
        self.assertEqual([l["time_ns"] // 10**8 for l in lines], [n for n in range(15) if n != 10])
        # Of a live source the frames in work are lost: the next one says so, and its number is the next.
        live = self.analyzer("for number, stamp in frames():\n"
                             "    if number in (4, 8) and not os.path.exists(str(number)):\n"
                             "        open(str(number), 'w').close()\n        raise SystemExit(3)\n"
                             "    answer(number, stamp)\n")
        self.host("play", SMALL + "&frames=0&rate=20", "--live", "--frames", 100, "--output", "jsonl=jsonl", "--analyzer", live)
        lines = [json.loads(line) for line in (self.dir / "jsonl").read_text().splitlines()]
        self.assertEqual([l["sequence"] for l in lines], list(range(1, len(lines) + 1)))
        self.assertTrue(all(lines[n - 1]["dropped"] > 0 for n in (4, 8)), lines)
        self.assertEqual(len(lines) + sum(l["dropped"] for l in lines), 100)

    def test_answers_may_be_far_apart(self):
        """A run, and each pause in it, longer than the time an answer may take."""
        done = self.host("play", SMALL + "&frames=6&rate=3", "--realtime", "--answer-timeout", 0.25, "--quiet",
                         "--output", "replies=r")
        self.assertEqual(done.stderr, "")
        self.assertEqual(sequences(self.dir / "r"), list(range(1, 7)))

    def test_nothing_is_overwritten_that_is_still_of_use(self):
        self.host("play", SMALL, "--output", "recording=in.rec", "--frames", 3, "--quiet")
        (self.dir / "pictures").mkdir()
        self.write("pictures/1.ppm", "P6 2 2 255 123456789012")
        self.write("some.txt", "pictures/1.ppm\n")
        self.write("keep", "last run's")
        os.link(self.dir / "in.rec", self.dir / "alias")
        os.symlink("keep", self.dir / "other")
        before = {path: path.read_bytes() for path in self.dir.rglob("*") if path.is_file()}
        rows = [(("play", "missing.mp4", "--output", "jsonl=keep"), 66, "missing.mp4"),
                (("play", "scene:nowhere", "--output", "jsonl=keep"), 64, "nowhere"),
                (("play", "in.rec", "--output", "jsonl=in.rec"), 64, "in.rec is an input"),
                (("play", "in.rec", "--output", "jsonl=./alias"), 64, "alias is an input"),
                (("play", "pictures", "--output", "jsonl=pictures/1.ppm"), 64, "is an input"),
                (("play", "list:some.txt", "--output", "jsonl=pictures/1.ppm"), 64, "is an input"),
                (("play", "list:some.txt", "--output", "jsonl=some.txt"), 64, "is an input"),
                (("play", SMALL, "--output", "jsonl=keep", "--output", "mot=other"), 64, "written by another output"),
                (("play", SMALL, "--output", "jsonl=new", "--output", "mot=./new"), 64, "written by another output"),
                (("play", SMALL, "--output", "jsonl=-", "--output", "mot=-"), 64, "standard output is written")]
        for args, code, words in rows:
            self.assertIn(words, self.host(*args, expect=code).stderr, args)
            self.assertEqual({path: path.read_bytes() for path in self.dir.rglob("*") if path.is_file()}, before, args)
        self.write("c.toml", config(scene_camera("a", 1, outputs='["jsonl=in.rec"]'),
                                    scene_camera("b", 2, source='"in.rec"', outputs='["jsonl=x", "mot=./x"]')))
        done = self.host("run", "--check-config", "c.toml", expect=78)
        self.assertIn("in.rec is an input", done.stderr)
        self.assertIn("x is written by another output", done.stderr)

    def test_standard_output_and_real_time(self):
        done = self.host("play", SMALL, "--output", "jsonl=-", "--output", "replies=r")
        self.assertEqual([json.loads(line)["sequence"] for line in done.stdout.splitlines()], list(range(1, 121)))
        # What plays in real time can be followed: the first lines are there long before the end.
        process = self.start("play", SMALL + "&frames=0", "--realtime", "--output", "jsonl=now")
        seen = self.until(lambda: (self.dir / "now").exists() and (self.dir / "now").read_text().count("\n"), "a line", timeout=8)
        self.until(lambda: (self.dir / "now").read_text().count("\n") > seen, "another one", timeout=8)
        self.assertTrue((self.dir / "now").read_text().endswith("\n"))
        self.assertEqual(self.end(process), 0)

    def test_progress_at_a_terminal(self):
        """One line that is written over, with what is known of the length, and gone at the end."""
        reader, terminal = os.openpty()
        process = subprocess.Popen([HOST, "play", SMALL + "&rate=100", "--realtime", "--output", "replies=r"], cwd=self.dir,
                                   stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=terminal)
        os.close(terminal)
        shown = b""
        try:
            while chunk := os.read(reader, 65536):
                shown += chunk
        except OSError:  # the terminal's other end is closed
            pass
        os.close(reader)
        self.assertEqual(process.wait(timeout=30), 0)
        self.assertRegex(shown.decode(), r"\S+: frame \d+ of 120 \(\d+ %\), \d+ frames/s")
        self.assertNotIn(b"\n", shown)
        self.assertTrue(shown.endswith(b"\r\x1b[K"), shown[-40:])


class Completion(HostTest):
    FILES = pathlib.Path(__file__).parents[2] / "packaging/completions"

    def offers(self, *verbs):
        """What `--help` names: verbs, long options."""
        text = self.host(*verbs, "--help").stdout
        listed = re.search(r"Subcommands:\n((?:  .*\n)+)", text)
        options = {o for line in re.findall(r"^  (-\S+)", text, re.M) for o in re.findall(r"--[\w-]+", line)}
        return re.findall(r"^  ([a-z]\S*)", listed.group(1), re.M) if listed else [], options

    def bash(self, *words):
        """What bash would put behind these words."""
        script = (f"COMP_WORDS=(fleifeisa-host {' '.join(words)}); COMP_CWORD=$((${{#COMP_WORDS[@]}} - 1)); _fleifeisa_host; "
                  "printf '%s\\n' \"${COMPREPLY[@]}\"")
        done = subprocess.run(["bash", "-c", f"source '{self.FILES}/fleifeisa-host.bash'; {script}"], capture_output=True, text=True,
                              check=True)
        return set(done.stdout.split())

    def test_every_verb_and_option_is_known_to_all_shells(self):
        zsh, fish = ((self.FILES / name).read_text() for name in ("_fleifeisa-host", "fleifeisa-host.fish"))
        fish_lists = {word for line in re.findall(r"^for \w+ in (.*)$", fish, re.M) for word in line.split()}
        in_fish = fish_lists | set(re.findall(r" -l ([\w-]+)", fish))
        verbs, general = self.offers()
        self.assertGreater(len(verbs), 8)
        found = self.bash("''")
        self.assertLessEqual(set(verbs), found)
        for verb in ((), *((verb,) for verb in verbs)):
            inner, options = self.offers(*verb)
            for each in inner if verb else []:
                options |= self.offers(*verb, each)[1]
            with self.subTest(verb):
                self.assertLessEqual(options, self.bash(*verb, "--"), "bash")
                self.assertLessEqual(set(inner), self.bash(*verb, "''"), "bash")
                self.assertFalse([o for o in options if not re.search(re.escape(o) + r"\b(?!-)", zsh)], "zsh")
                self.assertFalse([o for o in options if o[2:] not in in_fish], "fish")
                for each in inner:
                    for shell in (zsh, fish):
                        self.assertRegex(shell, rf"\b{each}\b")
                self.assertTrue(not verb or verb == ("scenes",) or re.search(rf"^  {verb[0]}\) _arguments", zsh, re.M), verb)


# What the hostile analyzer of a camera answers (an expression), and whether that is within the bounds of a reply.
HOSTILE = [("object(w=2147483647, h=20, x=0, y=0)", False), ("object(x=-2147483648)", False),
           ("object(y=2147483647)", False), ("object(w=2147483648)", False), ("object(w=0)", False),
           ("object(h=-5)", False), ("object(x=-17)", False), ("object(x=16396, w=16)", False),
           ("object(w=16417, x=8208)", False), ("object(id=100000)", False), ("object(id=-1)", False),
           ("object(density=101)", False), ("object(density=-1)", False), ("*[object()] * 5001", False),
           ("object(id='')", False), ("object(density='9' * 900000)", False),
           ("object(x=8192, y=8192, w=16416, h=16416)", True), ("object(x=-16, y=-16, w=1, h=1)", True),
           ("object(x=16399, y=16399, w=1, h=1)", True), ("object(id=0, density=0)", True),
           ("object(id=99999, density=100)", True), ("*[object(id=n) for n in range(5000)]", True)]


class Hostile(HostTest):
    def test_every_field_of_a_reply_at_its_bounds(self):
        """One camera a field, all outputs, side by side: its own trouble at most, and the good one notices nothing."""
        self.write("real", os.environ["FLEIFEISA"])
        analyzer = self.analyzer(f"ROWS = {[row for row, _ in HOSTILE]!r}\n" + """
for number, stamp in frames():
    time.sleep(0 if device < len(ROWS) else 0.01)
    answer(number, stamp, *eval(f"[{ROWS[device] if device < len(ROWS) else 'object()'}]"))
""")
        kinds = ("jsonl", "mot", "onvif", "tracks", "video", "report", "replies", "recording")
        outputs = str([kind for kind in kinds if kind != "video" or HAVE_FFMPEG])
        self.write("c.toml", f'analyzer = "{analyzer}"\n' + config(*(
            scene_camera(f"c{n}", n, 4, outputs=outputs, source='"scene:street?size=64x48&frames=4"', realtime="false")
            for n in range(len(HOSTILE) + 1))))
        done = self.host("run", "c.toml", timeout=200, expect=69)
        for number, (row, sound) in enumerate([*HOSTILE, ("good", True)]):
            lines = self.dir / f"out/c{number}/frames.jsonl"
            answered = [json.loads(line) for line in lines.read_text().splitlines()] if lines.exists() else []
            self.assertEqual(len(answered), 4 if sound else 0, row)
            told = [line for line in done.stderr.splitlines() if f" c{number}: " in line]
            self.assertEqual(any("given up" in line and "not a reply" in line for line in told), not sound, (row, told))
            self.assertLess(len("".join(told)), 5000, "the log repeats the reply")
            for kind in ("onvif.xml", "report.html", "mot.csv", "tracks.jsonl"):
                path = self.dir / f"out/c{number}" / kind
                if sound:
                    self.assertTrue(path.exists(), (row, kind))
                    self.assertNotRegex(path.read_text()[:200000], r"-?\d{10}[^0-9]{2}(?<!Z..)", row)


class Video(HostTest):
    @needs_ffmpeg
    def test_pixels_are_those_of_the_definition(self):
        """RGB bytes against a conversion of the decoder's planes, in Python's integers."""
        self.video("v.avi", frames=12, size="34x22", codec=("-c:v", "ffv1", "-pix_fmt", "yuv420p"))
        self.ffmpeg("-i", "v.avi", "-f", "rawvideo", "-pix_fmt", "yuv420p", "planes")
        planes = (self.dir / "planes").read_bytes()
        self.host("play", "v.avi", "--output", "recording=r", "--quiet")
        frames = recorded_frames(self.dir / "r")
        self.assertEqual(len(frames), 12)
        w, h = 34, 22
        size = w * h + 2 * (w // 2) * (h // 2)

        def byte(value):
            return max(0, min(255, value >> 16))
        for n, (_, _, rgb) in enumerate(frames):
            y_plane, rest = planes[n * size:n * size + w * h], planes[n * size + w * h:(n + 1) * size]
            for i in range(0, w * h, 7):
                x, y = i % w, i // w
                chroma = y // 2 * (w // 2) + x // 2
                luma = (y_plane[i] - 16) * 76309 + 32768
                u, v = rest[chroma] - 128, rest[(w // 2) * (h // 2) + chroma] - 128
                expected = (byte(luma + 104597 * v), byte(luma - 25675 * u - 53279 * v), byte(luma + 132201 * u))
                self.assertEqual(tuple(rgb[3 * i:3 * i + 3]), expected, (n, x, y))

    @needs_ffmpeg
    def test_times_are_presentation_times(self):
        """Also of a file with a variable rate, and of one whose first frame is not at zero."""
        self.ffmpeg("-f", "lavfi", "-i", "testsrc=size=64x48:rate=30000/1001", "-frames:v", 40, "-vf",
                    "select='not(between(n,5,15))',setpts=PTS+2/TB", "-fps_mode", "vfr", "-c:v", "mpeg4", "v.mkv")
        shown = subprocess.run(["ffprobe", "-v", "error", "-select_streams", "v:0", "-show_entries", "frame=pts_time",
                                "-of", "csv=p=0", self.dir / "v.mkv"], capture_output=True, text=True, check=True)
        expected = [float(line.strip(",")) for line in shown.stdout.split()]
        self.host("play", "v.mkv", "--out", "o", "--output", "replies", "--quiet")
        found = times(self.dir / "o/replies.txt")
        self.assertEqual(len(found), len(expected))
        self.assertGreater(max(b - a for a, b in zip(found, found[1:])), 0.3)
        for have, want in zip(found, expected):
            self.assertAlmostEqual(have - found[0], want - expected[0], places=3)

    @needs_ffmpeg
    def test_outputs_know_the_rate_with_the_first_frame(self):
        self.host("play", self.video("v.avi", frames=1, rate=2), "--output", "report=r", "--quiet")
        self.assertIn("0:00.5", (self.dir / "r").read_text())  # one frame lasts half a second

    @needs_ffmpeg
    def test_a_decoder_that_stalls_loses_no_frame(self):
        self.video("v.avi", frames=100, size="320x240", rate=25)  # far more than the pipe holds
        process = self.start("-v", "play", "v.avi", "--realtime", "--stall-timeout", 1, "--out", "o", "--output", "replies")
        decoder = self.until(lambda: self.children(process, "ffmpeg"), "ffmpeg")[0][0]
        self.until(lambda: sequences_or_none(self.dir / "o/replies.txt"), "answers")
        os.kill(decoder, signal.SIGSTOP)
        self.assertEqual(process.wait(timeout=40), 0, self.log())
        self.assertIn("no frame for 1 s", self.log())
        self.assertEqual(sequences(self.dir / "o/replies.txt"), list(range(1, 101)))
        found = times(self.dir / "o/replies.txt")
        self.assertEqual(found, sorted(set(found)))


class Live(HostTest):
    @needs_ffmpeg
    def test_a_stream_that_stalls_or_ends_is_opened_again(self):
        self.video("v.ts", frames=100, rate=25, codec=("-c:v", "mpeg2video", "-f", "mpegts"))
        for close in (False, True):
            server = StallingServer(self.dir / "v.ts", close=close)
            process = self.start("-v", "play", server.url, "--stall-timeout", 3, "--out", "o", "--output", "replies",
                                 "--bgframes", 5)
            self.until(lambda: server.requests >= 2, "a second request")
            self.until(lambda: "again" in self.log(), "a report")
            self.assertEqual(self.end(process), 0)
            self.assertIn("the source ended" if close else "no frame for 3 s", self.log())
            server.close()
            self.assertEqual(len(set(sequences(self.dir / "o/replies.txt"))), len(sequences(self.dir / "o/replies.txt")))
            self.assertLess(abs(times(self.dir / "o/replies.txt")[0] - time.time()), 60)  # wall clock

    @needs_ffmpeg
    def test_rtsp_over_tcp(self):
        self.video("v.avi", frames=50, size="128x96", rate=25)
        server = RtspServer(self.dir / "v.avi")
        self.addCleanup(server.close)
        process = self.start("play", server.url, "--frames", 40, "--out", "o", "--output", "replies", "--bgframes", 5)
        self.assertEqual(process.wait(timeout=40), 0, self.log())
        numbers = sequences(self.dir / "o/replies.txt")
        self.assertEqual(numbers, list(range(1, len(numbers) + 1)))
        self.assertGreater(len(numbers), 5)
        self.assertTrue(all("TCP" in transport for transport in server.transports), server.transports)

    def test_the_newest_frame_wins(self):
        """An analyzer of 20 frames a second on a camera of 200: answers stay fresh, drops are counted."""
        slow = self.script("slow", f"""
import subprocess, sys, threading, time, os
child = subprocess.Popen([os.environ["REAL"]] + sys.argv[1:], stdin=subprocess.PIPE)
while True:
    lines = []
    while not lines or lines[-1].strip():
        line = sys.stdin.buffer.readline()
        if not line: raise SystemExit(0)
        lines.append(line)
    size = sum(int(l.split(b": ")[1]) for l in lines if l.startswith(b"Content-Length"))
    child.stdin.write(b"".join(lines) + sys.stdin.buffer.read(size))
    child.stdin.flush()
    if any(b"SHUTDOWN" in l for l in lines): raise SystemExit(child.wait())
    time.sleep(0.05)
""")
        os.environ["REAL"] = os.environ["FLEIFEISA"]
        done = self.host("play", "scene:street?size=96x64&rate=200&frames=0", "--live", "--frames", 300, "--analyzer", slow,
                         "--out", "o", "--output", "replies")
        answered = len(sequences(self.dir / "o/replies.txt"))
        self.assertEqual(sequences(self.dir / "o/replies.txt"), list(range(1, answered + 1)))
        self.assertIn(f"{300 - answered} live frames were dropped", done.stdout)
        self.assertLess(answered, 60)
        gaps = [b - a for a, b in zip(times(self.dir / "o/replies.txt"), times(self.dir / "o/replies.txt")[1:])]
        self.assertLess(sorted(gaps)[len(gaps) // 2], 0.2)


class Service(HostTest):
    def test_a_killed_and_a_stopped_analyzer(self):
        """Frames of a file are all answered, in order, and the other camera notices nothing."""
        scene = '"scene:crowd?size=160x120&rate=50&quiet=10&frames=150"'
        self.write("c.toml", config(scene_camera("killed", 1, 150, source=scene, region='"150x110+4+2"',
                                                 outputs='["replies", "recording", "tracks", "mot", "events"]', line=GATE), scene_camera("stopped", 2, 150, answer_timeout=0.5),
                                    scene_camera("other", 3, 150)))
        process = self.start("-v", "run", "c.toml")
        tracked = self.dir / "out/killed/mot.csv"
        self.until(lambda: tracked.exists() and tracked.stat().st_size > 0, "a track")
        killed, stopped = self.analyzer_of(process, 1), self.analyzer_of(process, 2)
        os.kill(killed, signal.SIGKILL)
        os.kill(stopped, signal.SIGSTOP)
        self.assertEqual(process.wait(timeout=30), 0, self.log())
        for name in ("killed", "stopped", "other"):
            self.assertEqual(sequences(self.dir / f"out/{name}/replies.txt"), list(range(1, 151)), name)
        self.assertIn("killed: the analyzer died: signal 9", self.log())
        self.assertIn("stopped: the analyzer gave no answer for 0.5 s", self.log())
        self.assertIn("other: 150 frames answered, 0 dropped, 0 lost, analyzer restarted 0 times", self.log())
        # Tracks lived through it, and the recording gives them again, byte by byte.
        found = self.host("replay", "out/killed/recording.bin", "--verify", "--output", "tracks=again",
                          "--output", "events=told")
        self.assertIn("150 frames replayed, every reply is the same, and every track and event", found.stdout)
        events = (self.dir / "out/killed/events.jsonl").read_bytes()
        self.assertEqual((self.dir / "told").read_bytes(), events)
        kinds = [json.loads(line)["kind"] for line in events.splitlines()]
        self.assertTrue({"motion", "line", "analyzer"} <= set(kinds), kinds)
        tracks = (self.dir / "out/killed/tracks.jsonl").read_bytes()
        self.assertEqual((self.dir / "again").read_bytes(), tracks)
        starts = [number for number, header in enumerate(re.findall(rb"Recording-(Start|Reply)",
                  (self.dir / "out/killed/recording.bin").read_bytes())) if header == b"Start"]
        self.assertEqual(len(starts), 2)
        restart = (starts[1] - 1) * 20_000_000
        lived = [t for t in map(json.loads, tracks.splitlines()) if t["start_ns"] < restart - 40_000_000 and t["time_ns"] > restart]
        self.assertTrue(lived, "no track lived through the restart")

    def test_a_quiet_camera_is_analyzed_less(self):
        """The same frames however slow the analyzer is; a replay of them makes the same tracks; all of the visit is there."""
        relay = self.script("relay", RELAY)
        os.environ["RELAYED"] = os.environ["FLEIFEISA"]
        self.addCleanup(os.environ.pop, "RELAYED")
        source = ("play", "scene:stage?act=walk&size=160x120&quiet=400&frames=720", "--bgframes", 20, "--quiet")
        outputs = ("--output", "recording", "--output", "replies", "--output", "tracks")
        self.host(*source, "--out", "full", *outputs)
        self.host(*source, "--out", "a", *outputs, "--idle-rate", 2)
        self.host(*source, "--out", "b", *outputs, "--idle-rate", 2, "--analyzer", relay)
        for name in ("replies.txt", "tracks.jsonl"):
            self.assertEqual((self.dir / "a" / name).read_bytes(), (self.dir / "b" / name).read_bytes(), name)
        analyzed = times(self.dir / "a/replies.txt")
        steps = [round(10 * (b - a)) for a, b in zip(analyzed, analyzed[1:])]
        self.assertLess(len(analyzed), 500)
        self.assertEqual(set(steps), {1, 2, 4, 5})  # 2, 4: into and out of the idle rate
        self.assertEqual(steps[:69], [1] * 69)  # learns, and waits for five seconds
        found = self.host("replay", "a/recording.bin", "--verify", "--output", "tracks=again")
        self.assertIn("every reply is the same, and every track", found.stdout)
        self.assertEqual((self.dir / "again").read_bytes(), (self.dir / "a/tracks.jsonl").read_bytes())
        starts = [[json.loads(line)["start_ns"] for line in (self.dir / d / "tracks.jsonl").read_text().splitlines()]
                  for d in ("full", "a")]
        self.assertEqual(len(starts[0]), len(starts[1]))
        for full, idle in zip(*starts):
            self.assertLess(abs(idle - full), 1e9)  # half a second until it is seen, and the next frames
        self.assertIn("lower than the rate", self.host("play", "scene:street", "--rate", 1, "--idle-rate", 1, expect=64).stderr)

    def test_what_happened_is_stored_told_and_replayed(self):
        """A live camera that is lost and comes back, with store, hook, and somebody who tells; then a second run."""
        hook = self.script("hook", "import sys\nopen(sys.argv[1], 'a').write(' '.join(sys.argv[2:]) + '\\n')\n")
        source = '"scene:crowd?size=160x120&rate=25&quiet=10&frames=50"'
        camera = scene_camera("gate", 1, source=source, live="true", outputs='["recording", "events"]',
                              line=GATE, scene="{ lost_after = 0.2, back_after = 0.1 }")
        desk = f'state = "state"\non_event = ["{hook}", "{self.dir}/hooked", "{{event}}", "{{kind}}"]\n'
        self.write("c.toml", desk + config(camera))
        events, hooked = self.dir / "out/gate/events.jsonl", self.dir / "hooked"

        def told():
            return [json.loads(line) for line in events.read_text().splitlines()] if events.exists() else []
        for run in range(2):
            events.unlink(missing_ok=True)
            process = self.start("run", "c.toml")
            self.until(lambda: any(e["change"] == "lost" and e["state"] == "end" for e in told()), "a source that is back")
            self.host("tell", "nobody", "x", "--state", "state", expect=65)
            self.host("tell", "gate", "ding  dong", "--state", "state")
            self.until(lambda: any(e.get("text") == "ding  dong" for e in told()), "what was told")
            self.until(lambda: "external" in hooked.read_text() if hooked.exists() else False, "the hook")
            bell = next(e["event"] for e in told() if e["kind"] == "external")
            self.until(lambda: f'"{bell}"' in self.host("events", "--state", "state", "--json", "--kind", "external").stdout, "it")
            self.host("events", "keep", bell, "--state", "state")  # by the running host
            self.host("events", "delete", "gate-99999", "--state", "state", expect=65)
            self.assertIn("is used by another host", self.host("run", "c.toml", expect=73).stderr)
            self.assertEqual(self.end(process), 0)
            found = self.host("replay", "out/gate/recording.bin", "--verify", "--output", "events=again")
            self.assertIn("every track and event", found.stdout)
            self.assertEqual((self.dir / "again").read_bytes(), events.read_bytes())
            stored = self.host("events", "--state", "state", "--json").stdout.splitlines()
            stored = {e["event"]: e for e in map(json.loads, stored)}
            for event in told():  # as it was told last
                self.assertIn(event["event"], stored)
            self.assertTrue(all(e["end_ns"] for e in stored.values()), "an event still runs")
            visits = {e["event"] for e in told() if e["kind"] == "motion"}
            self.assertTrue(visits and all(stored[visit]["pictures"] == 1 for visit in visits))
            self.host("events", "export", *visits, "-o", f"export{run}", "--state", "state")
            exported = {e["event"]: e for e in json.loads((self.dir / f"export{run}/events.json").read_text())}
            for visit in visits:
                self.assertLessEqual({"picture", "box", "thumb", "strip"}, {file["kind"] for file in exported[visit]["files"]})
            if run == 1:  # without a host
                self.host("events", "delete", *visits, bell, "--state", "state")
                left = [p.name.split("-")[0].split(".")[0] for p in (self.dir / "state/media").rglob("*.*")]
                self.assertFalse({e.rpartition("-")[2] for e in {bell, *visits}} & set(left))
            if run == 0:
                first = {e["event"] for e in told()}
            else:
                self.assertFalse(first & {e["event"] for e in told()}, "numbers were used again")
            self.assertIn("the store is whole", self.host("db", "check", "--state", "state").stdout)
            hooked.unlink()

    def test_track_numbers_go_on_after_a_restart(self):
        crowd = scene_camera("gate", 1, source='"scene:crowd?size=160x120&rate=50&quiet=10"', outputs='["mot=gate.csv"]')
        self.write("c.toml", 'state = "state"\n' + config(crowd))
        runs = []
        for number in (signal.SIGTERM, signal.SIGKILL, signal.SIGTERM):
            process = self.start("run", "c.toml")
            csv = self.dir / "gate.csv"
            self.until(lambda: csv.exists() and csv.stat().st_size > 0, "a track")
            if number == signal.SIGKILL:  # the lock: one host a state directory
                self.assertIn("state", self.host("run", "c.toml", expect=73).stderr)
            self.end(process, number)
            runs.append({int(line.split(",")[1]) for line in csv.read_text().splitlines()})
            csv.unlink()
        first, killed, last = runs
        self.assertEqual(min(first), 1)
        self.assertEqual(min(killed), max(first) + 1)
        self.assertGreater(min(last), max(killed))

    def test_a_live_camera_loses_less_than_a_second(self):
        self.write("c.toml", config(scene_camera("gate", 1, live="true")))
        process = self.start("-v", "run", "c.toml")
        analyzer = self.analyzer_of(process, 1)
        time.sleep(0.7)
        os.kill(analyzer, signal.SIGKILL)
        time.sleep(0.7)
        self.assertEqual(self.end(process), 0)
        found = times(self.dir / "out/gate/replies.txt")
        self.assertLess(max(b - a for a, b in zip(found, found[1:])), 1)
        self.assertIn("analyzer restarted 1 times", self.log())

    def test_reload_reaches_only_what_changed(self):
        kept, tuned = scene_camera("kept", 1), scene_camera("tuned", 2, seamless="false")
        self.write("c.toml", config(kept, tuned, scene_camera("removed", 3)))
        process = self.start("-v", "run", "c.toml")
        pids = [self.analyzer_of(process, device) for device in (1, 2, 3)]
        time.sleep(0.5)
        tuned["control"] = "{ bgframes = 12, color_low = 0.3 }"
        self.write("c.toml", config(kept, tuned, scene_camera("new", 4)))
        process.send_signal(signal.SIGHUP)
        self.analyzer_of(process, 4)
        self.until(lambda: "learnt anew" in self.log(), "new parameters")
        self.assertEqual([self.analyzer_of(process, device) for device in (1, 2)], pids[:2])
        self.assertNotIn("3", [argv[3] for _, argv in self.children(process)])
        self.assertIn('"-color_low" value="0.3"',
                      (self.dir / "root/opt/tesra/var/conf/2/qelparams2.conf").read_text())
        # A file with errors changes nothing.
        self.write("c.toml", config(kept) + "colour = 3\n")
        process.send_signal(signal.SIGHUP)
        self.until(lambda: "stays" in self.log(), "the refusal")
        self.assertEqual(self.end(process), 0)
        self.assertIn("kept: ", self.log())
        # The next run keeps what this one wrote.
        self.write("c.toml", config(scene_camera("kept", 1, 20)))
        before = (self.dir / "out/kept/replies.txt").read_bytes()
        self.host("run", "c.toml")
        self.assertEqual((self.dir / "out/kept/replies.txt.1").read_bytes(), before)

    def test_changes_and_deaths_leave_no_gap(self):
        def cameras(low):
            live = {"source": '"scene:walkers?size=160x120&rate=10&frames=0"', "live": "true", "warm_up": 8,
                    "outputs": '["replies", "recording"]', "control": f"{{ bgframes = 12, color_low = {low} }}"}
            return config(scene_camera("gate", 1, **live), scene_camera("yard", 2, **live, seamless="false"))
        self.write("c.toml", cameras(0.25))
        process = self.start("-v", "run", "c.toml")
        first = self.analyzer_of(process, 1)
        self.until(lambda: (self.dir / "out/gate/replies.txt").exists(), "replies")
        time.sleep(1.5)
        self.write("c.toml", cameras(0.3))
        process.send_signal(signal.SIGHUP)
        self.until(lambda: "when the latest" in self.log(), "the ring is short at the start")
        self.until(lambda: "parameters: a new analyzer has taken over" in self.log(), "the hand-over", timeout=40)
        self.assertIn('"-color_low" value="0.3"', (self.dir / "root/opt/tesra/var/conf/1/qelparams2.conf").read_text())
        second = self.analyzer_of(process, 1)
        self.assertNotEqual(first, second)
        for device in (1, 2):
            os.kill(self.analyzer_of(process, device), signal.SIGKILL)
        self.until(lambda: "restart: a new analyzer has taken over" in self.log(), "the second one")
        time.sleep(1.5)
        self.assertEqual(self.end(process), 0)
        # A plain OK, while it learns, has no blank there.
        answers = {name: [b"Sequence-Number: " in answer for answer in
                          (self.dir / f"out/{name}/replies.txt").read_bytes().split(b"ANALYTICS.CARTRIDGE\r\n")[1:]]
                   for name in ("gate", "yard")}
        self.assertEqual(answers["gate"].count(False), 12, "it learned at the start alone")
        self.assertGreater(answers["yard"].count(False), 12 + 6, "the other one at each of them")
        self.assertEqual(sequences(self.dir / "out/gate/replies.txt"), list(range(1, len(answers["gate"]) + 1)))
        self.assertIn("handed over 2 times", self.log())
        done = self.host("replay", "out/gate/recording.bin", "--verify")
        self.assertIn("again for hand-overs) replayed, every reply is the same, and every track", done.stdout)

    def test_a_full_disk_for_a_while(self):
        self.write("c.toml", config(scene_camera("gate", 1, outputs='["jsonl"]')))
        process = self.start("run", "c.toml")
        lines = self.dir / "out/gate/frames.jsonl"
        self.until(lambda: lines.exists() and lines.stat().st_size > 0, "lines")
        _, hard = resource.prlimit(process.pid, resource.RLIMIT_FSIZE)
        resource.prlimit(process.pid, resource.RLIMIT_FSIZE, (lines.stat().st_size + 100, hard))
        self.until(lambda: "output jsonl fails, it is tried again" in self.log(), "the failure")
        resource.prlimit(process.pid, resource.RLIMIT_FSIZE, (hard, hard))
        self.until(lambda: "output jsonl is written again" in self.log(), "the recovery")
        self.assertEqual(self.end(process), 0)  # all that was held back is there
        self.assertEqual(self.log().count("File too large"), 1, self.log())
        numbers = [json.loads(line)["sequence"] for line in lines.read_text().splitlines()]
        self.assertEqual(numbers, list(range(1, len(numbers) + 1)))

    def test_rotation_by_size_and_by_logrotate(self):
        gate = scene_camera("gate", 1, outputs='["jsonl", "recording"]', rotate='{ size = "60 kB", keep = 3 }')
        self.write("c.toml", config(gate, scene_camera("yard", 2, outputs='["jsonl"]')))
        process = self.start("run", "c.toml")
        out = self.dir / "out"
        # The recording grows by a frame more than that, then a fresh analyzer begins the next file.
        self.until(lambda: (out / "gate/recording.bin.5").exists(), "five recordings")
        self.until(lambda: (out / "yard/frames.jsonl").stat().st_size > 5000, "lines")
        example = (pathlib.Path(__file__).parents[2] / "packaging/logrotate/fleifeisa-host").read_text()
        self.write("rotate.conf", example.replace("/var/lib/fleifeisa/out", str(out)).replace("*/", "yard/"))
        tool = shutil.which("logrotate") or "/usr/sbin/logrotate"
        if os.path.exists(tool):
            subprocess.run([tool, "-f", "-s", self.dir / "state", self.dir / "rotate.conf"], check=True)
        else:
            os.rename(out / "yard/frames.jsonl", out / "yard/frames.jsonl.1")
        self.until(lambda: (out / "yard/frames.jsonl").exists(), "a new file")
        process.send_signal(signal.SIGHUP)
        self.assertEqual(self.end(process), 0, self.log())
        text = (out / "yard/frames.jsonl.1").read_text() + (out / "yard/frames.jsonl").read_text()
        self.assertEqual([json.loads(line)["sequence"] for line in text.splitlines()], list(range(1, text.count("\n") + 1)))
        recordings = sorted(path.name for path in out.glob("gate/recording.bin.*"))
        self.assertEqual(len(recordings), 3, recordings)
        self.host("replay", f"out/gate/{recordings[-1]}", "--verify")

    def test_a_pipe_that_nobody_reads(self):
        for name in ("pipe", "late"):
            os.mkfifo(self.dir / name)
        self.write("c.toml", config(scene_camera("lonely", 1, outputs='["jsonl=pipe"]'),
                                    scene_camera("late", 2, outputs='["jsonl=late"]'), scene_camera("other", 3)))
        process = self.start("run", "c.toml")
        self.until(lambda: (self.dir / "out/other/replies.txt").exists(), "the other camera's output")
        self.until(lambda: "nobody reads this pipe" in self.log(), "a word about it")
        with open(self.dir / "late") as reader:
            lines = [json.loads(next(reader)) for _ in range(5)]
        self.assertEqual([line["sequence"] for line in lines], list(range(lines[0]["sequence"], lines[0]["sequence"] + 5)))
        begin = time.monotonic()
        self.assertEqual(self.end(process), 74)
        self.assertLess(time.monotonic() - begin, 3.5)

    def test_a_reader_that_stops_reading(self):
        """`play` waits for it; one signal ends that after three seconds, two at once."""
        os.mkfifo(self.dir / "pipe")
        for signals, longest in ((1, 3.5), (2, 1)):
            reader = os.open(self.dir / "pipe", os.O_RDONLY | os.O_NONBLOCK)
            process = self.start("play", "scene:street?size=48x32&frames=0", "--output", "jsonl=pipe")
            waiting = lambda: int.from_bytes(fcntl.ioctl(reader, termios.FIONREAD, bytes(4)), sys.byteorder)
            self.until(lambda: waiting() > 60000, "a full pipe")
            begin = time.monotonic()
            for _ in range(signals):
                process.send_signal(signal.SIGTERM)
                time.sleep(0.1)
            self.assertEqual(process.wait(timeout=20), 128 + signal.SIGTERM)
            self.assertLess(time.monotonic() - begin, longest)
            os.close(reader)

    def test_whatever_hangs_a_stop_takes_three_seconds(self):
        cameras = [scene_camera(f"c{n}", n, live=n % 2 and "true" or "false") for n in range(1, 5)]
        self.write("c.toml", config(*cameras))
        process = self.start("-v", "run", "c.toml")
        for device in range(1, 5):
            analyzer = self.analyzer_of(process, device)
            self.until(lambda: sequences_or_none(self.dir / f"out/c{device}/replies.txt"), "an answer")
            os.kill(analyzer, signal.SIGSTOP)
        # Two that hang are removed, one takes the place of a third.
        cameras[2]["rate"] = "25"
        self.write("c.toml", config(*cameras[2:], scene_camera("new", 5)))
        begin = time.monotonic()
        process.send_signal(signal.SIGHUP)
        self.analyzer_of(process, 5)
        self.assertLess(time.monotonic() - begin, 1.5)
        self.until(lambda: "c1: " in self.log() and "c2: " in self.log() and self.log().count("c3: starts") == 2, "the rest")
        self.assertLess(time.monotonic() - begin, 4)
        begin = time.monotonic()
        self.end(process)
        self.assertLess(time.monotonic() - begin, 3.5)
        self.assertEqual(self.children(process), [])

    def test_signals(self):
        self.write("c.toml", config(scene_camera("gate", 1, outputs='["replies", "recording", "report"]')))
        process = self.start("run", "c.toml")
        analyzer = self.analyzer_of(process, 1)
        time.sleep(0.4)
        self.assertEqual(self.end(process, signal.SIGINT), 0)
        self.assertEqual(self.log(), "")
        self.assertFalse(os.path.exists(f"/proc/{analyzer}"))
        self.assertTrue((self.dir / "out/gate/recording.bin").read_bytes().endswith(b"Command: SHUTDOWN\r\n\r\n"))
        self.assertEqual(len(recorded_frames(self.dir / "out/gate/recording.bin")),
                         len(sequences(self.dir / "out/gate/replies.txt")))
        # With an analyzer that hangs, the first signal waits for it and the second does not.
        process = self.start("run", "c.toml")
        analyzer = self.analyzer_of(process, 1)
        os.kill(analyzer, signal.SIGSTOP)
        time.sleep(0.3)
        process.send_signal(signal.SIGTERM)
        time.sleep(0.3)
        self.assertIsNone(process.poll())
        begin = time.monotonic()
        self.assertEqual(self.end(process), 128 + signal.SIGTERM)
        self.assertLess(time.monotonic() - begin, 1)
        self.until(lambda: not os.path.exists(f"/proc/{analyzer}"), "the end of the analyzer")
        self.assertFalse((self.dir / "out/gate/report.html.part").exists())

    def test_bad_cameras_do_not_disturb_good_ones(self):
        self.write("c.toml", config(scene_camera("good", 1, 60), scene_camera("gone", 2, source='"gone.avi"'),
                                    scene_camera("full", 3, 30, outputs='["replies=/dev/full"]')))
        done = self.host("run", "c.toml", expect=66)
        self.assertEqual(sequences(self.dir / "out/good/replies.txt"), list(range(1, 61)))
        self.assertIn("gone.avi", done.stderr)
        self.assertIn("No space left", done.stderr)


if __name__ == "__main__":
    unittest.main()
