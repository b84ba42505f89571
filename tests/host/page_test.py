"""The page in a real browser, without a head: what people do, from the wall to a clip. Skipped where there is no chromium.

    FLEIFEISA_HOST=build/release/fleifeisa-host /usr/bin/python3 tests/host/page_test.py [-v] [Class.test]
"""
import json
import re
import shutil
import subprocess
import sys
import unittest

import clip_runs
import web_test
from support import needs_ffmpeg
from web_test import PASSWORD, WebTest

try:
    from selenium import webdriver
    from selenium.webdriver import ActionChains
    from selenium.common.exceptions import JavascriptException, StaleElementReferenceException
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.by import By
    from selenium.webdriver.common.keys import Keys
    from selenium.webdriver.support.ui import WebDriverWait
    MISSING = "" if shutil.which("chromium") and shutil.which("chromedriver") else "chromium or its driver is not installed"
except ImportError:
    MISSING = "python3-selenium is not installed"

PHONE, SCREEN = (360, 740), (1280, 800)
VIEWS = ("wall", "camera/gate", "events", "events?list=each", "state", "settings")
# Pixels of a canvas, as [red, green, blue] each; points in shares of it.
PIXELS = """const c = document.querySelector(arguments[0]), x = c.getContext('2d');
return arguments[1].map(([l, t]) => [...x.getImageData(Math.round(l), Math.round(t), 1, 1).data].slice(0, 3));"""
# For so many frames of the camera's view: what it shows in words and numbers, and what the interface says of the same frame.
SAMPLE = """const [count, done] = [arguments[0], arguments[arguments.length - 1]], seen = new Map(), told = new Map();
const look = async () => {
  const panel = document.querySelector('aside .panel'), rows = [...panel.querySelectorAll('tbody tr')];
  seen.set(panel.dataset.sequence, Object.fromEntries(rows.map(r => [r.cells[0].textContent, r.dataset.box])));
  const frame = await (await fetch('api/v1/cameras/gate/tracks')).json();
  told.set(String(frame.sequence), Object.fromEntries(frame.tracks.map(t => [t.track, t.box.join(',')])));
  const both = [...told.keys()].filter(s => seen.has(s));
  if (both.length < count) return setTimeout(look, 20);
  done(both.map(s => [seen.get(s), told.get(s)]));
};
look();"""


@unittest.skipIf(MISSING, MISSING)
class PageTest(WebTest):
    @classmethod
    def setUpClass(cls):
        options = webdriver.ChromeOptions()
        options.binary_location = shutil.which("chromium")
        for argument in ("headless=new", "no-sandbox", "disable-gpu", "disable-dev-shm-usage", "window-size=1280,800",
                         "force-device-scale-factor=1", "autoplay-policy=no-user-gesture-required"):
            options.add_argument("--" + argument)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        cls.driver = webdriver.Chrome(service=Service(shutil.which("chromedriver")), options=options)
        cls.driver.set_script_timeout(30)
        cls.driver.set_page_load_timeout(30)
        cls.addClassCleanup(cls.driver.quit)

    def setUp(self):
        super().setUp()
        self.driver.get("about:blank")
        self.driver.get_log("browser")
        self.driver.delete_all_cookies()
        self.size(SCREEN)

    def tearDown(self):
        """Nothing is thrown, nothing refused by the page's own policy."""
        faults = [line["message"] for line in self.driver.get_log("browser")
                  if line["level"] == "SEVERE" and not re.search(r"Failed to load resource|ERR_CONNECTION|ERR_INCOMPLETE", line["message"])]
        self.assertEqual(faults, [])

    def size(self, size):
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": size[0], "height": size[1], "deviceScaleFactor": 1, "mobile": size == PHONE})

    def open(self, place=""):
        self.driver.get("about:blank")
        self.driver.get(f"http://127.0.0.1:{self.port}/#/{place}")

    def find(self, selector, timeout=20):
        """The first one that is seen, waited for."""
        def shown(driver):
            try:
                return next((e for e in driver.find_elements(By.CSS_SELECTOR, selector) if e.is_displayed()), None)
            except StaleElementReferenceException:
                return None
        return WebDriverWait(self.driver, timeout, 0.05).until(shown, f"{selector}; log: {self.log()}")

    def all(self, selector):
        return self.driver.find_elements(By.CSS_SELECTOR, selector)

    def wait(self, script, timeout=20):
        """For a script's result; one that looks for what is not there yet is asked again."""
        return WebDriverWait(self.driver, timeout, 0.05, [JavascriptException]).until(
            lambda d: d.execute_script("return " + script), f"{script}; log: {self.log()}")

    def press(self, *keys):
        for key in keys:
            self.driver.switch_to.active_element.send_keys(key)

    def sign_in(self, user, password):
        for name, text in (("username", user), ("password", password)):
            field = self.find(f"input[name={name}]")
            field.clear()
            field.send_keys(text)
        self.press(Keys.ENTER)


class Looking(PageTest):
    def test_the_wall_asks_for_what_is_in_view(self):
        self.serve(cameras=("gate", *(f"yard{n}" for n in range(5))))
        self.size(PHONE)
        self.open()
        self.find(".tile.pictured")
        self.assertEqual(self.find(".tile strong").text, "<b>gate</b>")
        self.wait("document.querySelector('.tile .badge').textContent === 'watching'")
        self.wait("document.querySelectorAll('.tile.pictured').length >= 2")
        self.assertEqual(self.driver.execute_script("return document.querySelectorAll('.tile')[5].className"), "tile")
        self.driver.execute_script("scrollTo(0, 1e5)")
        self.wait("document.querySelectorAll('.tile')[5].classList.contains('pictured')")
        # What is out of view stands still, what is in view goes on.
        first, last = (f"document.querySelectorAll('.tile canvas')[{n}].dataset.sequence" for n in (0, 5))
        before = self.driver.execute_script(f"return [{first}, {last}]")
        self.wait(f"Number({last}) > Number({before[1]}) + 15")
        self.assertLess(int(self.driver.execute_script("return " + first)) - int(before[0]), 10)

    def test_boxes_are_those_of_their_own_frame(self):
        self.serve()
        self.open("camera/gate?layers=tracks")
        self.wait("document.querySelectorAll('aside tbody tr').length > 1")
        pairs = self.driver.execute_async_script(SAMPLE, 8)
        for shown, told in pairs:
            self.assertEqual(shown, told)
        self.assertGreater(len({box for shown, _ in pairs for box in shown.values()}), 8, "nothing moves")
        # And in pixels: the middle of each box's left edge has the colour that stands beside its number.
        drawn = self.driver.execute_script("""const c = document.querySelector('.picture canvas'), x = c.getContext('2d'), d = c.dataset;
            return [...document.querySelectorAll('aside tbody tr')].map(r => { const [l, t, w, h] = r.dataset.box.split(',').map(Number);
              const at = [+d.left + l * d.scale, +d.top + (t + h / 2) * d.scale].map(Math.round);
              const near = [-1, 0, 1].map(o => 'rgb(' + [...x.getImageData(at[0] + o, at[1], 1, 1).data].slice(0, 3).join(', ') + ')');
              return [getComputedStyle(r.querySelector('.swatch')).backgroundColor, near]; });""")
        covered = sum(colour in near for colour, near in drawn)  # another box may lie over one's edge
        self.assertGreaterEqual(covered, max(1, len(drawn) - 1), drawn)
        # A closer look: the same place of the picture, larger.
        scale = float(self.find(".picture canvas").get_attribute("data-scale"))
        self.find(".picture canvas").send_keys("++")
        self.assertAlmostEqual(float(self.find(".picture canvas").get_attribute("data-scale")) / scale, 1.25 ** 2, 3)

    def test_a_phone(self):
        self.serve()
        self.size(PHONE)
        for view in VIEWS:
            self.open(view)
            self.find("h1")
            self.wait("!document.querySelector('.foot') || document.querySelector('.foot').textContent !== 'Loading'")
            self.assertLessEqual(self.driver.execute_script("return document.documentElement.scrollWidth"), PHONE[0], view)

    def test_eight_tabs(self):
        """Browsers open six connections to a host; pages nobody looks at hold none."""
        self.serve()
        first = self.driver.current_window_handle
        for _ in range(8):
            self.driver.switch_to.new_window("tab")
            self.open("camera/gate")
            self.find(".picture canvas[data-sequence]")
        while len(self.driver.window_handles) > 1:
            self.driver.switch_to.window(self.driver.window_handles[-1])
            self.driver.close()
        self.driver.switch_to.window(first)


class Finding(PageTest):
    def test_an_event_appears_and_keys_suffice(self):
        self.serve()
        self.open()
        self.find(".tile.pictured")
        self.press("e")
        self.find(".filters")
        self.find(".card a")
        self.find(".filters select[name=list]").send_keys("each")
        self.wait("location.hash === '#/events?list=each'")
        self.wait("document.querySelectorAll('.card').length > 3")
        before = len(self.all(".card"))
        self.wait(f"document.querySelectorAll('.card').length > {before} || !document.querySelector('.news').hidden", 30)
        self.driver.execute_script("document.querySelector('.card a').focus()")
        self.press(Keys.ARROW_RIGHT)
        card = self.driver.switch_to.active_element
        event = re.search(r"event=([\w-]+)", card.get_attribute("href")).group(1)
        self.assertNotIn(f"event={event}", self.find(".card a").get_attribute("href"))
        self.press(Keys.ENTER)
        self.wait("document.querySelector('dialog.player .facts')")
        self.assertIn(event, self.find("dialog .facts").text)
        self.press("y")
        self.until(lambda: next(e for e in self.get("events?limit=500")["events"] if e["event"] == event)["mark"] == "right", "a mark")
        self.press(Keys.ESCAPE)
        self.wait("!document.querySelector('dialog') && !location.hash.includes('event=')")
        self.assertIn(event, self.driver.switch_to.active_element.get_attribute("href"))
        # A link leads to the same event, on whatever view.
        self.open(f"wall?event={event}")
        self.assertIn(event, self.find("dialog .facts").text)


class Drawing(PageTest):
    def corners(self, *points):
        """Clicks on the picture, in shares of it."""
        surface = self.find(".drawing svg")
        for x, y in points:
            ActionChains(self.driver).move_to_element_with_offset(surface, int((x - 0.5) * surface.rect["width"]),
                                                                  int((y - 0.5) * surface.rect["height"])).click().perform()

    def test_a_zone_is_drawn_gives_its_event_and_is_taken_back(self):
        self.serve()
        self.open("camera/gate")
        self.find(".head a[href='#/workbench/gate']").click()
        self.find("[aria-label='Add a zone']").click()
        frozen = self.driver.execute_script("return document.querySelector('.drawing img').src")
        self.corners((0.05, 0.3), (0.95, 0.3), (0.95, 0.95), (0.5, 0.6), (0.05, 0.95), (0.05, 0.3))  # the first again closes
        self.wait("document.querySelectorAll('.handle.point').length === 5 && document.querySelectorAll('.handle.middle').length === 5")
        targets = self.driver.execute_script("return [...document.querySelectorAll('.handle .target')].map(t => t.getBoundingClientRect().width)")
        self.assertGreaterEqual(min(targets), 44)
        # A point is pulled, an edge broken in its middle, and taken back.
        handle = self.find(".handle[data-target=point3]")
        ActionChains(self.driver).drag_and_drop_by_offset(handle, 0, 150).perform()
        ActionChains(self.driver).drag_and_drop_by_offset(self.find(".handle[data-target=middle0]"), 0, -20).perform()
        self.wait("document.querySelectorAll('.handle.point').length === 6")
        self.assertIn("Point 2 of 6, 50 %", self.find(".handle[data-target=point1]").get_attribute("aria-label"))
        self.find(".tools button:nth-child(2)").click()
        self.wait("document.querySelectorAll('.handle.point').length === 5")
        self.wait("Number(document.querySelector('.whatif').dataset.events) >= 0")
        self.assertEqual(self.driver.execute_script("return document.querySelector('.drawing img').src"), frozen)
        name = self.find(".shapeform input[name=name]")
        name.clear()
        name.send_keys("drawn")
        self.find(".tools .primary").click()
        self.find(".saved")
        zone = next(z for z in self.get("cameras/gate")["zones"] if z["name"] == "drawn")
        self.assertAlmostEqual(zone["points"][3][1], 0.95, delta=0.12)
        self.events("camera=gate&rule=drawn")
        self.find(".saved button").click()
        self.until(lambda: all(z["name"] != "drawn" for z in self.get("cameras/gate")["zones"]), "it is gone")
        self.open("workbench/gate?tab=changes")
        self.wait("document.querySelectorAll('.history tbody tr').length === 2 && document.querySelector('.history .undone')")

    def test_keys_suffice_on_a_phone(self):
        self.serve()
        self.size(PHONE)
        self.open("workbench/gate")
        self.find("[aria-label='Add a line']")
        self.driver.execute_script("document.querySelector('[aria-label=\"Add a line\"]').focus()")
        self.press(Keys.ENTER)
        self.wait("document.activeElement.matches('.drawing svg')")
        self.press(Keys.ARROW_LEFT)
        self.press(*[Keys.SHIFT + Keys.ARROW_LEFT] * 4, " ", *[Keys.SHIFT + Keys.ARROW_RIGHT] * 8, " ")
        self.wait("document.activeElement.name === 'name'")
        self.driver.execute_script("document.querySelector('.handle[data-target=point1]').focus()")
        self.press(Keys.SHIFT + Keys.ARROW_DOWN)
        self.wait("document.activeElement.dataset.target === 'point1'")
        self.assertLessEqual(self.driver.execute_script("return document.documentElement.scrollWidth"), PHONE[0])
        self.press(Keys.ENTER)
        self.driver.execute_script("document.querySelector('.tools .primary').focus()")
        self.press(Keys.ENTER)
        self.find(".saved")
        (x0, y0), (x1, y1) = self.get("cameras/gate")["lines"][0]["points"]
        self.assertAlmostEqual(x1 - x0, 0.4, delta=0.01)
        self.assertAlmostEqual(y1 - y0, 0.05, delta=0.01)

    def test_values_are_tried_beside_and_applied(self):
        self.serve()
        self.open("workbench/gate?tab=tune")
        slider = self.find("input[name=high]")
        slider.send_keys(Keys.ARROW_RIGHT)
        self.find(".tune .tools button").click()
        self.wait("[...document.querySelectorAll('.pair canvas')].filter(c => c.dataset.sequence).length === 2")
        self.assertEqual(self.get("cameras/gate/settings")["changed"], [])
        self.find(".tune .primary").click()
        self.find(".saved")
        self.assertEqual(self.get("cameras/gate/settings")["changed"], ["control"])
        self.assertEqual(self.ask("cameras/gate/trials/1")[0], 404)


    def test_not_again(self):
        """From a wrong event to a change that keeps it from coming, and back, with one click each."""
        self.serve()
        self.login()
        event = self.until(lambda: next((e for e in self.get("events?camera=gate&kind=zone&limit=100")["events"] if e["end_ns"]), None), "an ended event", 40)
        self.open(f"events?event={event['event']}")
        self.wait("document.querySelector('dialog.player .facts')")
        self.press("n")
        button = "[...document.querySelectorAll('dialog.player button')].find(b => b.textContent.startsWith('Not again'))"
        self.wait(button)
        self.driver.execute_script(button + ".click()")
        self.find(".notagain li[data-kind=least_age] .primary").click()
        self.wait("document.activeElement.textContent === 'Take back'")
        zone = self.get("cameras/gate/settings")["zones"][0]
        self.assertGreater(zone["least_age"], 0)
        self.press(Keys.ENTER)
        self.until(lambda: self.get("cameras/gate/settings")["changed"] == [], "as it was")


# What the video shows, read from its pixels; the clip's own word for it; and the boxes that lie on it.
LOOK = """const v = document.querySelector('dialog video'), o = document.querySelector('dialog .clip canvas'), c = new OffscreenCanvas(192, 64), x = c.getContext('2d');
x.drawImage(v, 0, 0, 192, 64);
let n = 0;
for (let bit = 0; bit < 12; ++bit) n += (x.getImageData(bit * 16 + 8, 32, 1, 1).data[0] > 127) << bit;
return [n, Number(o.dataset.index), JSON.parse(o.dataset.boxes || '[]')];"""


def between(points, time_ns, axis):
    """Of a track's way: its value at that moment."""
    for a, b in zip(points, points[1:]):
        if a[0] <= time_ns <= b[0]:
            return a[axis] + (b[axis] - a[axis]) * (time_ns - a[0]) / (b[0] - a[0])
    return points[0][axis]


@needs_ffmpeg
class Clip(PageTest):
    def test_boxes_lie_on_their_own_frame(self):
        event, _, times = web_test.Media.record(self, *clip_runs.H264, "-g", "10")
        self.open(f"events?event={event['event']}")
        self.wait("document.querySelector('dialog video').readyState >= 2")
        self.wait("document.querySelector('dialog video').paused || document.querySelector('dialog video').pause()")
        paths = self.get(f"cameras/{event['camera']}/paths?since={times['time_ns'][0]}&until={times['time_ns'][-1] + 1}")["paths"]
        first = times["time_ns"].index(event["start_ns"])
        boxed = 0
        for index in (first, *range(2, len(times["pts"]), 5)):
            time_ns = times["time_ns"][index]
            self.driver.execute_script("const [v, s] = [document.querySelector('dialog video'), arguments[0]]; v.pause(); v.currentTime = s;",
                                       (times["pts"][index] + 4500) / times["timescale"])
            number = (time_ns - clip_runs.START) // 100_000_000
            self.until(lambda: self.driver.execute_script(LOOK)[:2] == [number, index], f"frame {number}: {self.driver.execute_script(LOOK)}")
            boxes = self.driver.execute_script(LOOK)[2]
            there = [p for p in paths if p["points"] and p["points"][0][0] <= time_ns <= p["points"][-1][0]]
            self.assertEqual([b["track"] for b in boxes], [p["track"] for p in there], number)
            for box, path in zip(boxes, there):
                x, y, width, height = (float(between(path["points"], time_ns, axis)) for axis in (1, 2, 3, 4))
                for got, wanted in zip(box["box"], (x - width / 2, y - height, width, height), strict=True):
                    self.assertAlmostEqual(got, wanted, delta=1e-4, msg=number)  # the way is kept in coarser steps
                boxed += 1
        self.assertGreater(boxed, 5)


class Rights(PageTest):
    def test_signing_in_and_what_a_viewer_may(self):
        self.user("add", "ann", "--role", "admin")
        self.user("add", "bob", "--role", "admin")
        self.user("add", "guest", "--camera", "gate")
        self.serve()
        self.open("events?list=each")
        self.sign_in("guest", "wrong horse")
        self.assertEqual(self.find(".signin .bad").text, "Name and password do not fit.")
        self.sign_in("guest", PASSWORD)
        self.find(".filters")  # where one wanted to go
        self.find(".card a", 40)
        self.wait("document.querySelector('dialog .facts') || document.querySelector('.card a').click()")
        self.assertEqual(set(self.driver.execute_script("return [...document.querySelectorAll('dialog button')].map(b => b.textContent)")) & {"Keep", "Delete"}, set())
        self.open()
        self.find(".tile.pictured")
        self.assertEqual(len(self.all(".tile")), 1)
        self.open("workbench/gate")
        self.wait("document.querySelector('.empty')?.textContent.includes('Only administrators')")
        self.open("camera/yard")
        self.wait("document.querySelector('.empty')?.textContent.includes('There is no camera yard')")
        self.open("state")
        self.assertIn("for administrators", self.find(".state > div > p.muted").text)
        self.open("settings")
        self.assertEqual(self.all(".arming select"), [])
        self.find(".who").click()
        self.sign_in("ann", PASSWORD)
        menu = self.find(".arming select")
        # The camera goes on changing: the menu that was found stays the one to use.
        self.driver.execute_script("""window.answered = 0;
            setInterval(async () => { window.answered = (await (await fetch('/api/v1/cameras/gate')).json()).answered; }, 100);""")
        self.wait("answered > 0")
        before = self.driver.execute_script("return answered")
        self.wait(f"answered > {before} + 15")
        menu.send_keys("for 1 hour")
        self.wait("document.querySelector('.arming td').textContent.startsWith('silent until')")
        # An account that is changed signs its browsers out.
        self.user("remove", "ann")
        self.find(".signin", 30)


if __name__ == "__main__":
    unittest.main(verbosity=2 if "-v" in sys.argv else 1)
