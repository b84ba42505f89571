"""Events of running hosts: rules that change, a clock that is stepped, a disk that stalls, what is told when.

    FLEIFEISA_HOST=build/fleifeisa-host python3 tests/host/event_runs.py [-v] [Events.test]
"""
import json
import os
import re
import shutil
import signal
import subprocess
import sys
import unittest

from support import HOST, HostTest, needs_ffmpeg

FAULTS = os.environ.get("FLEIFEISA_FAULTS", "")
CROWD = "scene:crowd?size=160x120&rate=25&quiet=10"
GATE = '[[camera.line]]\nname = "gate"\npoints = [[0.5,0],[0.5,1]]\n'
YARD = '[[camera.zone]]\nname = "yard"\npoints = [[0.2,0.2],[0.8,0.2],[0.8,0.98],[0.2,0.98]]\n'


def camera(rules, source=CROWD, top="", **more):
    values = {"name": '"gate"', "device": 1, "source": f'"{source}"', "live": "true", "control": "{ bgframes = 10 }",
              "outputs": '["recording", "events"]', **more}
    return (f'state = "state"\nroot = "root"\noutputs = "out"\n{top}[[camera]]\n'
            + "".join(f"{key} = {value}\n" for key, value in values.items()) + rules)


class Events(HostTest):
    def told(self):
        path = self.dir / "out/gate/events.jsonl"
        text = path.read_text() if path.exists() else ""
        return [json.loads(line) for line in text[:text.rfind("\n") + 1].splitlines()]  # the last may still be being written

    def until_told(self, what, **wanted):
        def found():
            return [e for e in self.told() if all(e.get(key) == value for key, value in wanted.items())]
        return self.until(found, what, timeout=60)

    def start(self, *args, **environment):
        os.environ.update(environment)
        try:
            return super().start(*args)
        finally:
            for name in environment:
                del os.environ[name]

    def assertReplayed(self):
        found = self.host("replay", "out/gate/recording.bin", "--verify", "--output", "events=again")
        self.assertIn("every track and event", found.stdout)
        self.assertEqual((self.dir / "again").read_bytes(), (self.dir / "out/gate/events.jsonl").read_bytes())

    def test_new_rules_reach_a_camera_that_goes_on(self):
        hook = self.script("hook", "import sys\nopen(sys.argv[1], 'a').write(sys.argv[2] + '\\n')\n")
        top = f'on_event = ["{hook}", "{self.dir}/hooked", "{{event}}"]\n'
        outputs = '["recording", "events", "tracks"]'
        self.write("c.toml", camera(GATE, top=top, outputs=outputs, notify='"2099-01-01T00:00:00Z"'))
        process = self.start("-v", "run", "c.toml")
        before = self.until_told("a crossing", kind="line")[0]
        analyzer = self.analyzer_of(process, 1)
        self.write("c.toml", camera(YARD, top=top, outputs=outputs))
        process.send_signal(signal.SIGHUP)
        after = self.until_told("a stay", kind="zone")[0]
        self.assertEqual(self.analyzer_of(process, 1), analyzer)
        self.assertNotEqual(before["parameters"], after["parameters"])
        self.until_told("the end of what ran", kind="motion", reason="configuration")
        self.until(lambda: (self.dir / "hooked").exists(), "the hook")
        self.assertEqual(self.end(process), 0)
        first = min(int(e["event"].split("-")[1]) for e in self.told() if e["parameters"] == after["parameters"])
        hooked = [int(line.split("-")[1]) for line in (self.dir / "hooked").read_text().splitlines()]
        self.assertGreaterEqual(min(hooked), first, "told while telling was off")
        # A track that lived then lives on.
        changed = next(e["time_ns"] for e in self.told() if e.get("reason") == "configuration")
        tracks = [json.loads(line) for line in (self.dir / "out/gate/tracks.jsonl").read_text().splitlines()]
        self.assertTrue([t for t in tracks if t["start_ns"] < changed < t["time_ns"]], "no track lived through it")
        self.assertFalse([e for e in self.told() if e["kind"] == "line" and e["time_ns"] > changed])
        self.assertReplayed()

    @unittest.skipUnless(FAULTS, "no library of faults")
    def test_a_clock_that_is_stepped(self):
        self.write("c.toml", camera(YARD, outputs='["recording", "events", "tracks"]'))
        clock = self.dir / "clock"
        process = self.start("run", "c.toml", LD_PRELOAD=FAULTS, FAULT_CLOCK=str(clock), ASAN_OPTIONS="verify_asan_link_order=0")
        self.until_told("a stay", kind="zone")
        self.write("step", "-60").rename(clock)
        back = self.until_told("a step back", kind="clock")[0]
        self.assertAlmostEqual(back["value"], -60, delta=2)
        ended = [e for e in self.told() if e.get("reason") == "clock"]
        self.assertTrue({"motion", "zone"} <= {e["kind"] for e in ended}, ended)
        self.assertLess(back["time_ns"], ended[0]["time_ns"])
        clock.unlink()
        self.until(lambda: [e for e in self.told() if e["kind"] == "clock"][1:], "a step forward")
        forward = [e for e in self.told() if e["kind"] == "clock"][1]
        self.assertAlmostEqual(forward["value"], 60, delta=2)
        self.assertEqual(self.end(process), 0)
        self.assertReplayed()
        self.assertIn('"ended":"clock"', (self.dir / "out/gate/tracks.jsonl").read_text())
        numbers = [int(e["event"].split("-")[1]) for e in self.told() if e["state"] == "start"]
        self.assertEqual(numbers, sorted(set(numbers)))

    @unittest.skipUnless(FAULTS, "no library of faults")
    def test_a_disk_that_stalls_costs_no_frame_and_nothing_that_was_told(self):
        zones = "".join(YARD.replace('"yard"', f'"yard{i}"') for i in range(700))
        self.write("c.toml", camera(zones, outputs='["events", "replies"]'))
        disk = self.dir / "disk"
        process = self.start("-v", "run", "c.toml", LD_PRELOAD=FAULTS, FAULT_DISK=str(disk), ASAN_OPTIONS="verify_asan_link_order=0")
        self.until_told("a stay", kind="zone")
        disk.touch()
        replies = self.dir / "out/gate/replies.txt"
        stalled = replies.stat().st_size
        self.until(lambda: replies.stat().st_size > stalled + 200_000, "frames while the disk stalls", timeout=90)
        told = len(self.told())
        disk.unlink()
        gap = self.until_told("what is missing", kind="gap")[0]
        self.assertEqual((gap["change"], gap["text"]), ("events", "the disk was too slow"))
        self.assertGreater(gap["value"], 0)
        self.assertEqual(self.end(process), 0)
        stored = {e["event"] for e in map(json.loads, self.host("events", "--state", "state", "--json").stdout.splitlines())}
        self.assertGreater(len(self.told()), told)
        self.assertFalse({e["event"] for e in self.told()} - stored)

    @needs_ffmpeg
    def test_what_happens_before_the_first_frame_is_told(self):
        self.write("c.toml", camera("scene = { lost_after = 0.3, back_after = 0.1 }\n", source="late.mkv"))
        process = self.start("run", "c.toml")
        self.host_tells("anybody there?")
        self.until(lambda: '"lost"' in self.host("events", "--state", "state", "--json").stdout, "a source that is not there")
        os.rename(self.video("early.mkv", frames=500), self.dir / "late.mkv")
        self.until_told("what was told early", kind="external", text="anybody there?")
        self.until_told("the source that was not there", kind="scene", change="lost", state="end")
        self.assertEqual([e["event"] for e in self.told()[:2]], ["gate-1", "gate-2"])
        self.assertEqual(self.end(process), 0)

    def host_tells(self, text):
        def tell():
            return subprocess.run([HOST, "tell", "gate", text, "--state", "state"], cwd=self.dir, capture_output=True).returncode == 0
        self.until(tell, "somebody who listens")

    @unittest.skipUnless(shutil.which("strace"), "no strace")
    def test_told_after_the_disk_has_it(self):
        """By system calls: the bytes of an event are written, then the disk is waited for, then anybody is told."""
        hook = self.script("hook", "")
        self.write("c.toml", camera(GATE, top=f'on_event = ["{hook}", "{{json}}"]\n', outputs='["events"]'))
        process = self.start("run", "c.toml")
        trace = subprocess.Popen(["strace", "-f", "-y", "-s", "65536", "-o", self.dir / "trace", "-e",
                                  "trace=pwrite64,write,fsync,fdatasync,execve", "-p", str(process.pid)],
                                 stderr=subprocess.PIPE, text=True)
        self.addCleanup(trace.kill)
        if "attached" not in trace.stderr.readline():
            self.skipTest("strace may not look at processes")
        self.host_tells("marker-of-this-test")
        self.until_told("what was told", kind="external")
        self.until(lambda: re.search(r"execve\(.*marker-of-this-test", (self.dir / "trace").read_text()), "the hook")
        trace.send_signal(signal.SIGINT)
        trace.wait(timeout=20)
        self.assertEqual(self.end(process), 0)
        calls = (self.dir / "trace").read_text().splitlines()

        def first(pattern, begin=0):
            for number, line in enumerate(calls[begin:], begin):
                if re.search(pattern, line):
                    return number
            self.fail(f"no {pattern}")
        written = first(r"pwrite64\(\d+<[^>]*events.db-wal>.*marker-of-this-test")
        # What is waited for has come back: "fdatasync(..) = 0" or its resumed half.
        begun = first(r"(fsync|fdatasync)\(\d+<[^>]*events.db-wal>", written)
        thread = calls[begun].split()[0]
        synced = begun if calls[begun].endswith("= 0") else first(rf"^{thread} <\.\.\. (fsync|fdatasync) resumed>\) += 0", begun)
        self.assertLess(synced, first(r"write\(\d+<[^>]*events.jsonl>.*marker-of-this-test"))
        self.assertLess(synced, first(r"execve\(.*marker-of-this-test"))


if __name__ == "__main__":
    if len(sys.argv) > 1 and not sys.argv[1].startswith(("-", "Events")):
        sys.argv[1] = "Events." + sys.argv[1]
    unittest.main()
