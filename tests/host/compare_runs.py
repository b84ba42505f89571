#!/usr/bin/env python3
"""Comparisons and searches from end to end, on synthetic scenes."""
import csv
import re
import unittest

from support import HostTest

QUIET = "scene:street?size=96x64&frames=60&quiet=60&noise=2&seed=7"
BUSY = "scene:crowd?size=96x64&frames=120&quiet=30&seed=3"
OTHER = "scene:crowd?size=96x64&frames=120&quiet=30&seed=4"


class Compare(HostTest):
    def setUp(self):
        super().setUp()
        self.write("a.toml", "[[camera]]\nname = 'default'\n[camera.control]\nbgframes = 20\n")
        self.write("b.toml", "[[camera]]\nname = 'default'\nleast_area = 0.02\n[camera.control]\nbgframes = 20\n")

    def page(self, out="compare"):
        return (self.dir / out / "compare.html").read_text()

    def test_what_differs_is_shown_and_told_by_the_status(self):
        done = self.host("compare", "a.toml", "b.toml", "--clips", BUSY, QUIET, "--fail-on-change", expect=1)
        self.assertRegex(done.stdout, r"frames=120\S+: \d+ tracks? in both, .*[1-9]\d* only in A, \d+ only in B")
        self.assertRegex(done.stdout, r"frames=60\S+: alike")
        page = self.page()
        self.assertIn('<th scope="row">least_area</th><td></td><td>0.02</td>', page)
        self.assertRegex(page, r"They part at 0:\d\d.\d, where A shows track \d+ and B nothing there")
        self.assertGreater(page.count("data:image/jpeg;base64,"), 3)
        self.assertRegex((self.dir / "compare/cost.txt").read_text(), r"^A: \d+\.\d\d s of processor time for 1\d\.\d s of video")
        # From scratch, with one process: the same bytes. Again from what there is: nothing is run.
        self.host("compare", "a.toml", "b.toml", "--clips", QUIET, BUSY, "--out", "again", "--jobs", 1)
        self.assertEqual(self.page("again"), page)
        self.host("compare", "a.toml", "b.toml", "--clips", QUIET, BUSY, "--out", "again", "--analyzer", "/bin/false", "-q")
        self.assertEqual(self.page("again"), page)

        # What was good once stands in place of a configuration.
        done = self.host("compare", "compare/a", "a.toml", "--clips", BUSY, QUIET, "--out", "kept", "--fail-on-change")
        self.assertEqual(done.stdout.count(": alike"), 2)
        self.host("compare", "compare/b", "a.toml", "--clips", BUSY, QUIET, "--out", "kept", "--fail-on-change", expect=1)
        done = self.host("compare", "compare/a", "compare/b", "--out", "stored")
        self.assertIn("No pictures: the clip itself is not at hand.", self.page("stored"))

    def test_results_of_play_have_pictures_where_there_is_a_recording(self):
        for name, more in (("one", []), ("other", ["--least-area", "0.02"])):
            self.host("play", BUSY, "--bgframes", 20, "--out", name, "--output", "jsonl", "--output", "mot", "--output", "recording", *more)
        self.host("compare", "one", "other", "--fail-on-change", expect=1)
        self.assertGreater(self.page().count("data:image/jpeg;base64,"), 3)

    def test_faults_are_named(self):
        self.write("bad.toml", "[[camera]]\nname = 'default'\nleast_area = 7\n")
        (self.dir / "empty").mkdir()
        self.write("no.mp4", "no video")
        for words, status, text in (
                (["a.toml", "bad.toml", "--clips", BUSY], 78, "bad.toml:3: camera[1].least_area: expected a number"),
                (["a.toml", "none.toml", "--clips", BUSY], 78, "none.toml"),
                (["a.toml", "b.toml"], 64, "a configuration needs --clips"),
                (["a.toml", "empty", "--clips", BUSY], 66, "empty: no results in it"),
                (["a.toml", "b.toml", "--clips", "none.mp4"], 78, "none.mp4")):
            self.assertIn(text, self.host("compare", *words, expect=status).stderr)
        self.host("compare", "a.toml", "b.toml", "--clips", "no.mp4", "--fail-on-change", expect=1)
        self.assertRegex(self.page(), r"no\.mp4</a></th><td colspan=\"10\" class=\"change\">\S+")


class Tune(HostTest):
    def test_a_search_finds_what_is_better_and_goes_on(self):
        truth = "".join(f"[[clip]]\nfile = '{clip}'\n[[clip.thing]]\nfrom = 2\nto = 12\n" for clip in (BUSY, OTHER))
        self.write("truth.toml", truth + f"[[clip]]\nfile = '{QUIET}'\nnothing = true\n")
        # Sees things everywhere, and everything twice as finely as there is to see.
        self.write("now.toml", "[[camera]]\nname = 'default'\nleast_area = 0.1\nidle_rate = 1\n[camera.control]\nbgframes = 20\n")
        words = ["tune", "--clips", BUSY, OTHER, QUIET, "--truth", "truth.toml", "--config", "now.toml", "--least-seconds", 3]
        done = self.host(*words, "--candidates", 12)
        found = re.search(r"1[0-2] candidates\. Now: (\d) of 2 found, .* Best: (\d) of 2 found", done.stdout)
        self.assertTrue(found, done.stdout)
        self.assertGreater(int(found[2]), int(found[1]))
        page = (self.dir / "tune/tune.html").read_text()
        self.assertIn("held out", page)
        rows = list(csv.DictReader((self.dir / "tune/candidates.csv").read_text().splitlines()))
        self.assertGreater(int(rows[0]["found"]), 0)
        self.assertIn("0.1", {row["least_area"].rstrip("0") for row in rows})
        self.assertTrue((self.dir / "tune/compare/compare.html").exists())
        # The lines to copy are those of best.toml, and it is a configuration.
        lines = re.search(r"<pre>(.*?)</pre>", page, re.S).group(1)
        for line in lines.splitlines():
            if " = " in line:
                key, value = line.split(" = ")
                self.assertRegex((self.dir / "tune/best.toml").read_text(), rf"{key} = ['\"]?{re.escape(value.replace('&quot;', ''))}")
        trials = sorted(path.name for path in (self.dir / "tune/trials/results").iterdir())
        again = self.host(*words, "--candidates", 12, "--analyzer", "/bin/false")
        self.assertEqual(again.stdout, done.stdout)
        self.assertEqual(sorted(path.name for path in (self.dir / "tune/trials/results").iterdir()), trials)

        # Only the truth changed: nothing that was tried is taken for the answer.
        self.write("truth.toml", truth.replace("to = 12", "to = 11") + f"[[clip]]\nfile = '{QUIET}'\nnothing = true\n")
        self.host(*words, "--candidates", 2)
        self.assertGreater(len(list((self.dir / "tune/trials/results").iterdir())), len(trials))

    def test_what_cannot_be_judged_is_named(self):
        self.write("now.toml", "[[camera]]\nname = 'default'\n[camera.control]\nbgframes = 20\n")
        self.write("truth.toml", f"[[clip]]\nfile = '{BUSY}'\nnothing = true\n")
        words = ["tune", "--clips", BUSY, "--truth", "truth.toml", "--config", "now.toml"]
        done = self.host(*words, expect=65)
        self.assertIn("12.0 s long, shorter than learning (2.0 s) and 60 s", done.stderr)
        self.assertIn("nobody says what is in it", self.host(*words[:1], "--clips", OTHER, *words[3:], expect=66).stderr)
        self.write("truth.toml", f"[[clip]]\nfile = '{BUSY}'\nnothing = 3\n")
        self.assertIn("truth.toml:3: clip[1].nothing: expected true or false", self.host(*words, expect=78).stderr)
        self.write("now.toml", "[[camera]]\nname = 'a'\n[[camera]]\nname = 'b'\n")
        self.assertIn("has several cameras, --camera says which: a, b", self.host(*words, expect=64).stderr)


if __name__ == "__main__":
    unittest.main()
