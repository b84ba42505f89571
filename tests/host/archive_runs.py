"""Archives end to end: by one process, two, a cluster; killed, changed, cut; the merge is the same bytes.

    FLEIFEISA_HOST=build/fleifeisa-host python3 tests/host/archive_runs.py [-v] [Archive.test]
"""
import json
import os
import pathlib
import signal
import sqlite3
import subprocess
import time
import unittest

from support import HOST, HostTest, needs_ffmpeg

CLUSTER = str(pathlib.Path(__file__).with_name("cluster.sh"))
CONFIG = """timezone = "Europe/Berlin"
[[camera]]
name = "gate"
title = "Main gate"
[[camera.line]]
name = "middle"
points = [[0.5, 0], [0.5, 1]]
[[camera]]
name = "default"
"""


def scene(seed, frames=300):
    return f"scene:street?size=96x72&quiet=60&frames={frames}&seed={seed}"


class Archive(HostTest):
    def setUp(self):
        super().setUp()
        (self.dir / "config.toml").write_text(CONFIG)

    def list(self, *rows):
        (self.dir / "clips.csv").write_text("camera,file,start\n" + "".join(f'{camera},"{file}",{start}\n' for camera, file, start in rows))

    def batch(self, out, *options, expect=0):
        return self.host("batch", "clips.csv", "--config", "config.toml", "--out", out, *options, expect=expect, timeout=120)

    def merged(self, out):
        root = self.dir / out / "merged"
        return {str(path.relative_to(root)): path.read_bytes() for path in root.rglob("*") if path.is_file()}

    def completed(self, out):
        lines = [line.split() for file in (self.dir / out / "journal").iterdir() for line in file.read_text().splitlines()]
        return sorted(words[0] for words in lines if words[1] == "1")

    def query(self, out, sql):
        with sqlite3.connect(f"file:{self.dir}/{out}/merged/archive.db?mode=ro", uri=True) as database:
            return database.execute(sql).fetchall()

    def some_clips(self, count=5):
        (self.dir / "broken.mp4").write_bytes(b"no video" * 500)
        self.list(*((f"{('gate', 'yard')[i % 2]}", scene(i), f"2026-03-0{1 + i}T22:30:00Z") for i in range(count)), ("yard", "broken.mp4", ""))

    def test_the_merge_does_not_depend_on_who_worked(self):
        self.some_clips()
        one = self.batch("one", "--jobs", "1", expect=65)
        self.assertIn("5 of 6 clips are done, 5 of them now; 1 failed.", one.stdout)
        self.batch("two", "--jobs", "2", expect=65)
        self.assertEqual(self.merged("one"), self.merged("two"))
        self.assertEqual(self.query("one", "SELECT state, count(*) FROM clips GROUP BY 1 ORDER BY 1"), [("done", 5), ("failed", 1)])
        # Every event of the results is there, with its pictures, and in the hour of the place.
        results = [path for path in (self.dir / "one/results").iterdir()]
        told = {(path.name, json.loads(line)["event"].rsplit("-", 1)[1]) for path in results for line in (path / "events.jsonl").read_text().splitlines()}
        stored = self.query("one", "SELECT result, number, thumb, hour, kind, changes FROM events JOIN clips ON clip = clips.id")
        self.assertEqual({(result, str(number)) for result, number, *_ in stored}, told)
        self.assertTrue(told)
        for result, _, thumb, hour, *_ in stored:
            self.assertTrue((self.dir / "one/results" / result / thumb).read_bytes().startswith(b"\xff\xd8"))
            self.assertEqual(hour, 23)
        crossings = sum(kind == "line" for *_, kind, _ in stored)
        self.assertGreater(crossings, 0)
        self.assertEqual(self.query("one", "SELECT sum(forward + backward) FROM counts"), [(crossings,)])
        data = "".join(text.decode() for name, text in self.merged("one").items() if name.startswith("data/"))
        self.assertEqual(data.count("archive.event("), len(stored))
        status = self.host("batch", "status", "one").stdout
        self.assertRegex(status, r"(?s)^5 of 6 clips, 1 failed\n1500 frames so far.*broken.mp4")

    def test_a_batch_that_is_killed_goes_on(self):
        self.list(*(("gate", scene(i, 800), f"2026-03-01T0{i}:00:00Z") for i in range(6)))
        self.batch("whole", "--jobs", "2")
        for kill in range(3):
            # Killed once another clip is ready, and with it its children, who see that nobody wants them any more.
            process = self.start("batch", "clips.csv", "--config", "config.toml", "--out", "killed", "--jobs", "2")
            results = self.dir / "killed/results"
            deadline = time.monotonic() + 60
            while not results.exists() or len(list(results.iterdir())) <= kill:
                self.assertLess(time.monotonic(), deadline)
                time.sleep(0.01)
            process.kill()
            process.wait()
        self.batch("killed", "--jobs", "2")
        self.assertEqual(self.merged("whole"), self.merged("killed"))
        self.assertLessEqual(len(self.completed("killed")), 6)
        self.assertEqual(list((self.dir / "killed/parts").iterdir()), [])

    def test_what_changed_is_run_again(self):
        self.some_clips(4)
        self.batch("out", expect=65)
        first = self.completed("out")
        (self.dir / "config.toml").write_text("# the same\n" + CONFIG.replace("Main", "Back"))
        self.batch("out", expect=65)
        self.assertEqual(self.completed("out"), first)
        self.assertIn(b"Back gate", self.merged("out")["index.html"])
        (self.dir / "config.toml").write_text(CONFIG.replace("[0.5, 1]", "[0.6, 1]"))
        self.batch("out", expect=65)
        again = set(self.completed("out")) - set(first)
        self.assertEqual(len(again), 2)
        self.assertTrue(all(name.startswith("gate.") for name in again), again)

    def test_two_batches_and_a_second_look(self):
        self.list(("gate", scene(1, 100_000_000), ""))
        process = self.start("batch", "clips.csv", "--out", "out")
        deadline = time.monotonic() + 60
        while "1 running" not in self.host("batch", "status", "out", expect=None).stdout:
            self.assertLess(time.monotonic(), deadline)
            time.sleep(0.05)
        self.assertIn("another batch is at work", self.batch("out", expect=75).stderr)
        process.send_signal(signal.SIGINT)
        self.assertEqual(process.wait(20), 75)
        self.assertEqual(list((self.dir / "out/parts").iterdir()), [])

    def test_faults_are_told_before_anything_runs(self):
        self.list(("gate", "gone.mp4", ""), ("gate", scene(1), "yesterday"))
        fault = self.batch("out", expect=78).stderr
        self.assertIn("gone.mp4: No such file", fault)
        self.assertIn("clips.csv:3: start: expected a date and time", fault)
        self.assertIn("holds no archive", self.host("batch", "status", "out", expect=66).stderr)
        (self.dir / "config.toml").write_text("clip_times = 'YYYY'\n[[camera]]\nname = 'gate'\noutputs = ['mot=x.csv']\nzoom = 3\n")
        fault = self.batch("out", expect=78).stderr
        for part in ("config.toml:1: clip_times: expected %Y", "config.toml:4: camera[1].outputs", "config.toml:5: camera[1].zoom: unknown key"):
            self.assertIn(part, fault)

    @needs_ffmpeg
    def test_a_cut_file_tells_the_same_but_at_its_seams(self):
        # A block that crosses every 12 s, in good time before and behind the seams.
        subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i", "color=gray:s=160x96:r=10:d=144", "-f", "lavfi", "-i", "color=white:s=16x24:r=10",
                        "-filter_complex", "[0][1]overlay=x='-100+30*mod(t,12)':y=40:shortest=1", "-g", "50", "film.avi"], cwd=self.dir, check=True)
        self.list(("gate", "film.avi", "2026-03-01T08:00:00Z"))
        self.batch("whole")
        self.batch("cut", "--cut", "48 s", "--warm-up", "24 s")
        self.assertEqual(self.query("cut", "SELECT part_from_ns / 1000000000, part_to_ns / 1000000000 FROM clips"), [(0, 48), (48, 96), (96, 0)])
        for sql in ("SELECT kind, rule, changes, start_ns FROM events WHERE kind = 'line' ORDER BY start_ns",
                    "SELECT count(*) FROM tracks"):
            self.assertEqual(self.query("whole", sql), self.query("cut", sql))
        self.assertEqual(self.query("whole", "SELECT count(*) > 8 FROM events WHERE kind = 'line'"), [(1,)])
        visits = self.query("cut", "SELECT result, video FROM events JOIN clips ON clip = clips.id WHERE kind = 'motion'")
        self.assertTrue(all(video and (self.dir / "cut/results" / result / video).exists() for result, video in visits), visits)


class Cluster(HostTest):
    """By three nodes of a cluster inside of this machine."""

    def setUp(self):
        super().setUp()
        started = subprocess.run([CLUSTER, "start", self.dir / "cluster"], capture_output=True, text=True)
        if started.returncode == 77:
            self.skipTest(started.stderr.strip())
        self.assertEqual(started.returncode, 0, started.stderr)
        self.addCleanup(subprocess.run, [CLUSTER, "stop", self.dir / "cluster"])

    def run_there(self, *command, expect=0):
        done = subprocess.run([CLUSTER, "run", self.dir / "cluster", *map(str, command)], cwd=self.dir, capture_output=True, text=True, timeout=120)
        self.assertEqual(done.returncode, expect, done.stdout + done.stderr)
        return done.stdout

    def test_the_same_bytes_and_a_node_that_errs(self):
        clips = [f'cam{i % 2},"{scene(i)}",2026-03-01T0{i}:00:00Z\n' for i in range(8)]
        (self.dir / "clips.csv").write_text("camera,file,start\n" + "".join(clips))
        self.host("batch", "clips.csv", "--out", "here")
        # An analyzer that errs on one node: all ids are those of another device.
        analyzer = self.dir / "analyzer"
        analyzer.write_text(f'#!/bin/sh\n[ "$SLURMD_NODENAME" != n2 ] || set -- "$1" "$2" 7 "$4"\nexec {os.environ["FLEIFEISA"]} "$@"\n')
        analyzer.chmod(0o755)
        for out, options in (("right", []), ("wrong", ["--analyzer", analyzer])):
            self.assertIn("Submitted", self.run_there(HOST, "batch", "clips.csv", "--out", out, "--slurm", "--task-time", "0.1 s", *options))
        deadline = time.monotonic() + 100
        while not all((self.dir / out / "merged").exists() for out in ("right", "wrong")):
            self.assertLess(time.monotonic(), deadline, self.run_there("squeue"))
            time.sleep(0.2)
        nodes = {json.loads(path.read_text())["node"] for path in (self.dir / "wrong/results").glob("*/run.json")}
        self.assertLessEqual({"n1", "n2"}, nodes)

        def files(out):
            root = self.dir / out / "merged"
            return {str(path.relative_to(root)): path.read_bytes() for path in root.rglob("*") if path.is_file()}
        self.assertEqual(files("right"), files("here"))
        told = self.run_there(HOST, "batch", "verify", "wrong", "--share", "1", "--slurm", "--analyzer", analyzer, expect=70)
        self.assertRegex(told, r"differs: cam\d\.street\.\w+, in its replies.*: node n2 is wrong")
        self.assertIn("Node n2 computed something wrong in", told)
        self.assertNotRegex(told, "Node n[13] ")
        self.assertEqual(self.host("batch", "verify", "here", "--share", "20").returncode, 0)
        self.assertIn("asked to end", self.run_there(HOST, "batch", "cancel", "right"))


if __name__ == "__main__":
    unittest.main()
