"""What people ask of a running analyzer, and what is kept with events: the numbers of the same frame, from the exact requests.

    FLEIFEISA_HOST=build/release/fleifeisa-host python3 tests/host/why_test.py [-v] [Class.test]
"""
import base64
import json
import os
import pathlib
import signal
import socket
import subprocess
import sys
import threading
import unittest

import web_test
from support import HOST
from web_test import WebTest

EXPLAIN = pathlib.Path(HOST).resolve().parent / "fleifeisa-explain"
LAYERS = ("difference", "confidence", "edges", "labels", "age")


class Why(WebTest):
    def recorded(self, learning):
        """Asks the program itself, over a recording: `ask(sequence, words)` gives the JSON of its answer."""
        root = self.dir / "again"
        control = root / "opt/tesra/var/conf/1"
        control.mkdir(parents=True, exist_ok=True)
        (control / "qelparams2.conf").write_text(f'<param name="-bgframes" value="{learning}"/>\n')
        here, there = socket.socketpair()
        self.addCleanup(here.close)
        here.settimeout(60)

        def child():
            os.dup2(there.fileno(), 3)
        process = subprocess.Popen([EXPLAIN, "COLOR", "STREAMING", "1", "1"], stdin=subprocess.PIPE, stdout=subprocess.DEVNULL,
                                   stderr=subprocess.DEVNULL, env={**os.environ, "FLEIFEISA_ROOT": str(root)}, close_fds=False,
                                   preexec_fn=child)
        there.close()
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        requests = self.dir / "out/gate/recording.bin"
        return process, here, requests

    def ask_recorded(self, sequence, words, learning=20):
        process, here, requests = self.recorded(learning)
        here.sendall(f"1 {sequence} {words}".rstrip().encode() + b"\n")

        def feed():
            try:
                process.stdin.write(requests.read_bytes())
                process.stdin.flush()
            except BrokenPipeError:
                pass
        thread = threading.Thread(target=feed)
        thread.start()
        file = here.makefile("rb")
        _, length, _ = map(int, file.readline().split())
        answer = json.loads(file.read(length))
        process.kill()
        thread.join()
        process.stdin.close()
        return answer

    def serve_gate(self, *lines, **more):
        process = self.serve(*lines, cameras=("gate",), **more)
        self.until(lambda: (self.ask("cameras/gate/why")[2] or {}).get("analyzer", {}).get("phase") == "detection", "detection", 40)
        return process

    def configured(self, old, new):
        """The tests' configuration with something else in it, for this case."""
        plain = web_test.config
        web_test.config = lambda *a, **k: plain(*a, **k).replace(old, new)
        self.addCleanup(setattr, web_test, "config", plain)

    def test_the_numbers_are_those_of_the_same_frame(self):
        self.configured('outputs = ["replies"]', 'outputs = ["recording"]')
        process = self.serve_gate()
        asked = []
        for x, y in ((0, 0), (80, 70), (159, 119)):
            why = self.get(f"cameras/gate/why?x={x}&y={y}")
            self.check(why, "Why")
            self.assertEqual(why["analyzer"]["background"], "compared")
            self.assertEqual(why["analyzer"]["sequence"], why["sequence"])
            self.assertEqual(why["analyzer"]["place"]["at"], [x, y])
            self.assertIsNotNone(why["filter"])
            asked.append((why["sequence"], f"cell {x} {y}", why["analyzer"]))
        busy = self.until(lambda: (lambda w: w if w["analyzer"].get("objects") else None)(self.get("cameras/gate/why")), "an object", 40)
        asked.append((busy["sequence"], "", busy["analyzer"]))
        for layer in LAYERS:
            why = self.get(f"cameras/gate/why?layer={layer}")
            shape = why["analyzer"]["layer"]
            self.assertEqual(shape["name"], layer)
            self.assertEqual(len(base64.b64decode(why["layer"])), shape["width"] * shape["height"])
            self.assertEqual((shape["width"] * shape["step"], shape["height"] * shape["step"]), (160, 120))
        self.end(process)
        for sequence, words, analyzer in asked:
            self.assertEqual(self.ask_recorded(sequence, words), analyzer, (sequence, words))

    def test_events_keep_why_they_began(self):
        self.serve_gate()
        event = self.events("kind=zone")[0]
        path = f"cameras/gate/events/{event['number']}"
        media = self.until(lambda: self.get(path)["media"]["why"], "its reasons")
        why = self.get(media["href"])
        self.check(why, "Why")
        self.assertEqual(why["event"], event["event"])
        self.assertEqual(why["rule"], "all")
        self.assertTrue(why["rule_values"].startswith("zone all 0,0 1,0 1,1 0,1 dwell"), why["rule_values"])
        self.assertEqual(why["parameters"], event["parameters"])
        self.assertEqual([track["track"] for track in why["filter"]["tracks"] if track["track"]], [event["track"]])
        self.assertIn(why["analyzer"]["sequence"] - why["sequence"], (0, 1))
        self.assertLess(media["bytes"], 20_000)
        file = next((self.dir / "state/media").rglob("*-why.json"))
        self.assertEqual(json.loads(file.read_text())["event"].split("-")[0], "gate")
        # It goes with its event.
        ended = self.until(lambda: [e for e in self.get("events?kind=zone")["events"] if e["end_ns"]], "an ended event", 40)[0]
        gone = f"cameras/gate/events/{ended['number']}"
        self.until(lambda: self.get(gone)["media"]["why"], "its reasons")
        self.login()
        self.assertEqual(self.ask(gone, "DELETE")[0], 204)
        self.until(lambda: not list((self.dir / "state/media").rglob(f"{ended['number']}-why.json")), "its file's removal")

    def test_hostile_requests_and_rights(self):
        self.user("add", "ann", "--role", "admin")
        self.user("add", "guest", "--camera", "gate")
        self.serve()
        self.assertEqual(self.ask("cameras/gate/why")[0], 401)
        self.login("guest")
        self.until(lambda: self.ask("cameras/gate/why?layer=age")[0] == 200, "an answer of an analyzer that has learned", 40)
        self.assertEqual(self.ask("cameras/yard/why")[0], 404)
        self.assertEqual(self.ask("cameras/nobody/why")[0], 404)
        for query in ("x=1", "y=1", "x=-1&y=0", "x=1.5&y=0", "x=a&y=b", "x=99999999999&y=0", "x=160&y=0", "x=0&y=120", "layer=all",
                      "layer=age%0a1%200", "object=-1", "object=1%20layer%20age", "x=1%0a&y=1"):
            self.assertEqual(self.ask("cameras/gate/why?" + query)[0], 400, query)
        self.until(lambda: self.ask("cameras/gate/why?layer=age")[0] == 200, "a frame that was searched", 40)
        # Many at once: each has an answer or is refused with a reason; frames go on.
        before = self.get("cameras/gate")["answered"]
        statuses = []
        threads = [threading.Thread(target=lambda: statuses.append(self.ask("cameras/gate/why?layer=age")[0])) for _ in range(40)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual(len(statuses), 40)
        self.assertLessEqual(set(statuses), {200, 503})
        self.assertIn(200, statuses)
        self.until(lambda: self.get("cameras/gate")["answered"] > before + 5, "more frames")
        self.assertEqual(self.get("cameras/gate")["restarts"], 0)

    def test_an_analyzer_that_dies_or_hangs_leaves_nobody_waiting(self):
        process = self.serve_gate()
        for number in (signal.SIGKILL, signal.SIGSTOP):
            analyzer = self.analyzer_of(process, 1)
            os.kill(analyzer, number)
            status, _, data = self.ask("cameras/gate/why?x=1&y=1")
            self.assertIn(status, (200, 503), data)
            self.until(lambda: self.analyzer_of(process, 1) != analyzer, "another analyzer", 30)
            self.until(lambda: self.ask("cameras/gate/why")[0] == 200, "an answer of it", 30)

    def test_off_where_it_is_said(self):
        self.configured("live = true", "live = true\nexplain = false")
        process = self.serve(cameras=("gate",))
        self.analyzer_of(process, 1)
        self.assertEqual([os.path.basename(argv[0]) for _, argv in self.children(process)], ["fleifeisa"])
        self.assertEqual(self.get("cameras/gate")["explain_off"], "the configuration says so")
        status, _, data = self.ask("cameras/gate/why")
        self.assertEqual((status, data["error"]), (503, "explain is off: the configuration says so"))
        event = self.events("kind=zone")[0]
        self.assertIsNone(self.get(f"cameras/gate/events/{event['number']}")["media"]["why"])


if __name__ == "__main__":
    unittest.main(verbosity=2 if "-v" in sys.argv else 1)
