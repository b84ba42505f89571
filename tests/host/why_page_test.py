"""The page's Why in a real browser: what it shows of a place is what the host answered. Skipped where there is no chromium.

    FLEIFEISA_HOST=build/release/fleifeisa-host /usr/bin/python3 tests/host/why_page_test.py [-v] [Class.test]
"""
import sys
import unittest

import web_test
from page_test import MISSING, PHONE, PageTest

if not MISSING:
    from selenium.webdriver.common.action_chains import ActionChains
    from selenium.webdriver.common.keys import Keys
    from selenium.webdriver.support.ui import Select

# Keeps what the host answers to Why, by frame.
LISTEN = """window.answers = {}; const plain = window.fetch;
window.fetch = async (address, options) => {
  const response = await plain(address, options);
  if (String(address).includes('/why')) response.clone().json().then(why => { window.answers[why.sequence] = why; }).catch(() => {});
  return response;
};"""
# What is shown of the place, with the answer for the same frame.
SHOWN = """(() => { const body = document.querySelector('.why[data-why]'), why = window.answers[body?.dataset.why];
const facts = (part) => Object.fromEntries([...part.querySelectorAll('[data-fact]')].map(e => [e.dataset.fact, e.textContent]));
const cells = [...document.querySelectorAll('.why .cell')];
return why?.analyzer?.place && cells.length ? [why, facts(body), cells.map(facts), cells.map(c => c.dataset.cell)] : null; })()"""


class Why(PageTest):
    def configured(self, old, new):
        plain = web_test.config
        web_test.config = lambda *a, **k: plain(*a, **k).replace(old, new)
        self.addCleanup(setattr, web_test, "config", plain)

    def shown(self, at):
        return self.wait(f"(() => {{ const s = {SHOWN}; return s && s[0].analyzer.place.at.join() === '{at}' && s; }})()", 30)

    def test_a_click_shows_the_numbers_of_its_frame(self):
        self.serve(cameras=("gate",))
        self.open("camera/gate")
        self.wait("document.querySelector('.picture canvas').dataset.sequence > 20", 40)
        self.driver.execute_script(LISTEN)
        why = next(b for b in self.all("button.toggle") if b.text == "Why")
        why.click()
        canvas = self.find(".picture canvas")
        left, top, scale = (float(canvas.get_dom_attribute("data-" + name)) for name in ("left", "top", "scale"))
        size = canvas.size
        x, y = int(80.5 * scale + left - size["width"] / 2), int(60.5 * scale + top - size["height"] / 2)
        ActionChains(self.driver).move_to_element_with_offset(canvas, x, y).click().perform()
        answer, facts, cells, numbers = self.shown("80,60")
        analyzer = answer["analyzer"]
        self.assertEqual(facts["at"], "80, 60")
        self.assertEqual(facts["sequence"], str(answer["sequence"]))
        self.assertEqual(numbers, [str(cell["cell"]) for cell in analyzer["place"]["cells"]])
        for told, cell in zip(cells, analyzer["place"]["cells"]):
            self.assertAlmostEqual(float(told["difference"]), cell["difference"], delta=0.5)
            self.assertAlmostEqual(float(told["confidence"]), cell["confidence"], delta=0.005)
            self.assertEqual(told["label"], str(cell["label"] or "none"))
        # By keys alone, and with a layer over the picture.
        field = self.find("input[aria-label=X]")
        field.send_keys(Keys.BACKSPACE * 3, "12", Keys.TAB)
        self.shown("12,60")
        Select(self.find(".why-panel select")).select_by_value("difference")
        self.wait("Object.values(window.answers).some(a => a.layer && a.analyzer.layer.name === 'difference')")
        self.wait("document.querySelector('.legend-ends').textContent.includes('threshold')")
        self.driver.save_screenshot(str(self.dir / "why.png"))
        self.size(PHONE)
        self.assertTrue(self.wait("document.documentElement.scrollWidth <= innerWidth"))
        # Off again: nothing more is asked.
        why.click()
        self.wait("document.querySelector('.why-panel').hidden")
        latest = self.wait("String(Math.max(...Object.keys(window.answers)))")
        self.wait(f"document.querySelector('.picture canvas').dataset.sequence > {latest} + 40", 30)
        self.assertLess(int(self.wait("String(Math.max(...Object.keys(window.answers)))")), int(latest) + 20)

    def test_an_event_says_why_it_began(self):
        self.serve(cameras=("gate",))
        event = self.events("kind=zone")[0]
        self.until(lambda: self.get(f"cameras/gate/events/{event['number']}")["media"]["why"], "its reasons")
        self.open("events?event=" + event["event"])
        self.find(".why-event summary").click()
        text = self.wait("document.querySelector('.why-event code')?.textContent && document.querySelector('.why-event').innerText")
        self.assertIn("zone all", text)
        self.assertIn(event["parameters"], text)
        self.assertIn(f"Track {event['track']}", text)

    def test_off_says_so(self):
        self.configured("live = true", "live = true\nexplain = false")
        self.serve(cameras=("gate",))
        self.open("camera/gate")
        self.wait("document.querySelector('.picture canvas').dataset.sequence > 0", 40)
        next(b for b in self.all("button.toggle") if b.text == "Why").click()
        self.wait("document.querySelector('.why-panel').innerText.includes('the configuration says so')")


if __name__ == "__main__":
    unittest.main(verbosity=2 if "-v" in sys.argv else 1)
