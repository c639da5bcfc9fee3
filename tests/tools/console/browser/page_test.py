"""The console's page in a real browser, with simulated cameras.

    page_test.py PROGRAM_FOLDER COUNTS_FILE [TEST...]

COUNTS_FILE gets "PASSED FAILED SKIPPED".

Needs ports 554 and 3556 to 4556 of its own (tests/support/in-namespace), Chromium, its driver and Selenium.
KOLVEX_SCREENSHOTS names a folder that gets pictures of the page.
"""

import json
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest
import urllib.request

from selenium import webdriver
from selenium.webdriver import ActionChains, Keys
from selenium.webdriver.chrome.options import Options
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By

PROGRAMS = ""
PASSWORD = "correct horse"
CONTROL = "127.0.0.1:8099"
LIMIT = 60  # seconds, of any wait
STOP_LIMIT = 6  # seconds; a second is promised when the page falls silent, the rest is for a busy machine

# Reads the counter that the simulated camera draws as black and white cells into the lower left corner; null when
# its check bits don't fit, so a torn or empty picture is no number.
READ_COUNTER = """
const canvas = [...document.querySelectorAll('.tile')].find((tile) => tile.dataset.camera === arguments[0])?.querySelector('canvas');
if (!canvas) return null;
const cell = canvas.width >= 640 ? 16 : 8;
const top = Math.floor((canvas.height - 2 * cell) / 8) * 8;
const pixels = canvas.getContext('2d').getImageData(0, top, 20 * cell, 2 * cell).data;
let cells = 0n;
for (let i = 0; i < 40; ++i) {
  const x = (i % 20) * cell + cell / 2, y = Math.floor(i / 20) * cell + cell / 2;
  cells = cells << 1n | (pixels[(y * 20 * cell + x) * 4 + 1] >= 128 ? 1n : 0n);
}
const counter = Number(cells >> 8n);
let crc = 0xA5;
for (let shift = 24; shift >= 0; shift -= 8) {
  crc ^= counter >>> shift & 0xff;
  for (let bit = 0; bit < 8; ++bit) crc = crc & 0x80 ? (crc << 1 ^ 0x07) & 0xff : crc << 1 & 0xff;
}
return crc === Number(cells & 0xffn) ? counter : null;
"""


def until(what, holds, limit=LIMIT):
    """Waits for a truth and gives it."""
    end = time.monotonic() + limit
    while True:
        value = holds()
        if value:
            return value
        if time.monotonic() >= end:
            raise AssertionError(f"not within {limit} s: {what}")
        time.sleep(0.05)


def ask(url):
    with urllib.request.urlopen(url, timeout=LIMIT) as reply:
        return reply.read()


def control(address, commands):
    """Has a simulated camera misbehave, or moves its pins."""
    ask(f"http://{CONTROL}/?camera={address}&{commands}")


def camera(address):
    """The state of a simulated camera."""
    return json.loads(ask(f"http://{address}/sim.cgi"))


def browser(phone=False):
    options = Options()
    for flag in ("--headless=new", "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-sync",
                 "--disable-background-networking", "--disable-component-update", "--disable-dev-shm-usage",
                 "--window-size=1280,800"):
        options.add_argument(flag)
    if os.geteuid() == 0:
        options.add_argument("--no-sandbox")
    if phone:
        options.add_experimental_option("mobileEmulation", {"deviceMetrics": {"width": 390, "height": 844, "pixelRatio": 1.5}})
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
    driver.set_script_timeout(LIMIT)
    return driver


class Server:
    """kolvex-host serve in a folder of its own."""

    def __init__(self, folder, *arguments):
        self.log = open(os.path.join(folder, "serve.log"), "w+")
        environment = dict(os.environ, KOLVEX_USER="admin", KOLVEX_PASSWORD=PASSWORD)
        self.process = subprocess.Popen(
            [os.path.join(folder, "kolvex-host"), "--json", "--library",
             os.path.join(PROGRAMS, "../lib/libkolvexipcapture.so"), "serve", "--listen", "127.0.0.1:0", *arguments],
            stdout=subprocess.PIPE, stderr=self.log, env=environment, text=True)
        self.url = json.loads(self.process.stdout.readline())["url"]

    def state(self, name):
        return json.loads(ask(self.url + "cameras/" + urllib.request.quote(name, safe="")))

    def end(self, number=signal.SIGINT):
        self.process.send_signal(number)
        return self.process.wait(timeout=LIMIT)


class PageTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp()
        cls.addClassCleanup(shutil.rmtree, cls.folder, ignore_errors=True)
        # A copy, since the library keeps the names of positions beside the program.
        shutil.copy(os.path.join(PROGRAMS, "kolvex-host"), cls.folder)
        environment = dict(os.environ, KOLVEX_CAMERA_USER="admin", KOLVEX_CAMERA_PASSWORD=PASSWORD)
        cls.cameras = subprocess.Popen(
            [os.path.join(PROGRAMS, "kolvex-camera"), "--quiet", "--control", CONTROL,
             "--camera", "group=1,address=127.0.1.1,caption=Yard,serial=2,inputs=2,outputs=2",
             "--camera", "group=1,address=127.0.1.2,caption=Gate,serial=1",
             "--camera", "group=2,address=127.0.2.1,caption=Hall,inputs=2,outputs=2",
             "--camera", "group=2,address=127.0.2.2,caption=Quay",
             "--camera", "group=1,address=127.0.1.3,caption=Late"],
            stdout=subprocess.PIPE, env=environment, text=True)
        cls.addClassCleanup(cls.finish, cls.cameras)
        until("the cameras are ready", lambda: cls.cameras.stdout.readline().strip() == "ready")
        cls.server = Server(
            cls.folder, "--folder", os.path.join(cls.folder, "kept"), "--simulated", CONTROL,
            "--camera", "127.0.1.1,name=Yard", "--camera", "127.0.1.2,name=Gate,codec=mpeg4",
            "--camera", "127.0.2.1,name=Hall", "--camera", "127.0.2.2,name=Quay,codec=mpeg4")
        cls.addClassCleanup(lambda: cls.server.process.poll() is None and cls.server.end())
        cls.driver = browser()
        cls.addClassCleanup(cls.driver.quit)

    @staticmethod
    def finish(process):
        process.terminate()
        process.wait(timeout=LIMIT)
        process.stdout.close()

    def setUp(self):
        self.open()

    def open(self, name=""):
        self.driver.get("about:blank")
        self.driver.get(self.server.url + ("#" + name if name else ""))

    def find(self, selector, driver=None):
        return until(selector, lambda: next(
            (each for each in (driver or self.driver).find_elements(By.CSS_SELECTOR, selector) if each.is_displayed()), None))

    def counter(self, name, driver=None):
        return (driver or self.driver).execute_script(READ_COUNTER, name)

    def wait_for_pictures(self, name, driver=None):
        """Two different counters, the later one higher: the picture moves."""
        first = until(f"a picture of {name}", lambda: self.counter(name, driver) is not None and (self.counter(name, driver),))[0]
        if first is None:
            first = 0
        until(f"a later picture of {name}", lambda: (self.counter(name, driver) or 0) > first)

    def pan(self):
        return camera("127.0.1.1")["head"]["pan"]

    def moving(self):
        return camera("127.0.1.1")["head"]["moving"]

    def hold_pad(self, driver=None, by=-50):
        pad = self.find(".pad", driver)
        (driver or self.driver).execute_script("arguments[0].scrollIntoView({block: 'center'})", pad)
        ActionChains(driver or self.driver).move_to_element(pad).click_and_hold().move_by_offset(by, 0).perform()
        until("the head moves", self.moving)

    def stops_soon(self, what):
        until(what, lambda: not self.moving(), STOP_LIMIT)
        # And it stays so: nobody has the head go on.
        pan = self.pan()
        time.sleep(0.5)
        self.assertEqual(self.pan(), pan, what)

    def screenshot(self, name, driver=None):
        folder = os.environ.get("KOLVEX_SCREENSHOTS")
        if folder:
            (driver or self.driver).save_screenshot(os.path.join(folder, name + ".png"))

    def test_01_the_wall_shows_moving_pictures_of_both_codecs_over_one_connection(self):
        for name in ("Yard", "Gate", "Hall", "Quay"):
            self.wait_for_pictures(name)
            label = self.find(f".tile[data-camera='{name}'] .open").get_attribute("aria-label")
            self.assertIn(name, label)
        until("facts", lambda: "fps" in self.find(".tile[data-camera='Yard'] .facts").text)
        time.sleep(1)  # a second of steady figures for the screenshot
        self.screenshot("console-wall")
        for width in (130, 185, 205, 245, 300):  # of tiles of large walls
            room = self.driver.execute_script("""
                const tile = document.querySelector(".tile[data-camera='Yard']");
                tile.style.width = arguments[0] + "px";
                const room = tile.getBoundingClientRect().right - tile.querySelector(".facts").lastChild.getBoundingClientRect().right;
                tile.style.width = "";
                return room;""", width)
            self.assertGreater(room, 0, f"the age is inside of a tile of {width} pixels")
        loads = self.driver.execute_script("return performance.getEntriesByType('resource').map((entry) => entry.name)")
        self.assertTrue(all(load.startswith(self.server.url) for load in loads), loads)
        self.assertEqual(sum("/wall?" in load for load in loads), 0, "the one stream goes on, so it isn't in the list")
        complaints = [entry for entry in self.driver.get_log("browser") if entry["level"] == "SEVERE"]
        self.assertEqual(complaints, [], "the content security policy refuses nothing of the page's own")

    def test_02_a_press_moves_the_head_and_a_release_stops_it(self):
        self.open("Yard")
        before = self.pan()
        self.hold_pad()
        until("it went on for longer than one wish holds", lambda: abs(self.pan() - before) > 1.5)
        time.sleep(1.3)  # longer than one wish holds
        until("held, it goes on", self.moving)
        ActionChains(self.driver).release().perform()
        self.stops_soon("the head stops on release")

    def test_03_keys_move_the_head(self):
        self.open("Yard")
        self.find(".pad")
        ActionChains(self.driver).key_down(Keys.ARROW_RIGHT).perform()
        until("the head moves", self.moving)
        ActionChains(self.driver).key_up(Keys.ARROW_RIGHT).perform()
        self.stops_soon("the head stops when the key is let go")

    def test_04_a_closed_tab_stops_the_head(self):
        first = self.driver.current_window_handle
        self.driver.switch_to.new_window("tab")
        self.open("Yard")
        self.hold_pad()
        self.driver.close()
        self.driver.switch_to.window(first)
        self.stops_soon("the head stops when the tab is closed")

    def test_05_a_cut_network_stops_the_head_and_the_page_says_so(self):
        self.open("Yard")
        self.wait_for_pictures("Yard")
        self.hold_pad()
        self.driver.set_network_conditions(offline=True, latency=0, throughput=0)
        try:
            self.stops_soon("the head stops when the browser falls silent")
        finally:
            self.driver.delete_network_conditions()
        ActionChains(self.driver).release().perform()

    def test_06_a_stored_position_is_recalled(self):
        self.open("Yard")
        name = self.find("input[aria-label='Name of the new position']")
        name.send_keys("Square é")
        name.send_keys(Keys.ENTER)
        self.find("[data-position='Square é'] img")
        stored = self.pan()
        self.hold_pad(by=50)
        until("it has moved", lambda: abs(self.pan() - stored) > 2)
        ActionChains(self.driver).release().perform()
        self.stops_soon("the head stops")
        self.screenshot("console-camera")
        self.find("[data-position='Square é']").click()
        until("it is back", lambda: abs(self.pan() - stored) < 0.5 and not self.moving())
        self.find("[data-position='Square é'].here")

    def test_07_lamps_and_outputs(self):
        self.open("Hall")
        control("127.0.2.1", "input1=1")
        self.find("[data-input='1'] .lamp.high")
        control("127.0.2.1", "input1=0")
        self.find("[data-input='1'] .lamp.low")
        self.find("[data-output='1']").click()
        self.find("[data-output='1'][aria-checked='true']")
        until("the camera has it", lambda: camera("127.0.2.1")["outputs"][:2] == [True, False])

    def test_08_a_camera_that_dies_says_why_and_comes_back(self):
        self.wait_for_pictures("Quay")
        control("127.0.2.2", "http=refuse&rtsp=refuse&silent=1")
        tile = ".tile[data-camera='Quay'] .why"
        until("the tile says why", lambda: "127.0.2.2" in self.find(tile).text)
        self.assertIn("no new picture for", self.find(tile).text)
        self.wait_for_pictures("Yard")
        control("127.0.2.2", "heal=1")
        self.wait_for_pictures("Quay")
        until("the reason goes", lambda: not self.driver.find_element(By.CSS_SELECTOR, tile).is_displayed())

    def add(self, **facts):
        self.find("#add").click()
        for name, text in facts.items():
            self.find(f"#add-form [name='{name}']").send_keys(text)
        self.find("#add-form [type=submit]").click()
        until("an answer", lambda: self.find("#add-result").text not in ("", "Asking the camera…"))
        return self.find("#add-result").text

    def test_09_adding_tells_a_wrong_password_and_keeps_what_is_found(self):
        wrong = self.add(address="127.0.1.3", name="<i>Late</i>", user="admin", password="wrong")
        self.assertIn("password", wrong)
        self.open()
        found = self.add(address="127.0.1.3", name="<i>Late</i>", user="admin", password=PASSWORD)
        self.assertIn("Found", found)
        self.find("#add-cancel").click()
        self.wait_for_pictures("<i>Late</i>")
        self.assertEqual(self.driver.find_elements(By.CSS_SELECTOR, "#wall i:not(.lamp)"), [], "a name is text")
        kept = os.path.join(self.folder, "kept")
        files = sorted(os.listdir(kept))
        self.assertIn("%3ci%3eLate%3c%2fi%3e.json", files)
        for file in files:
            if file.endswith(".json"):
                self.assertEqual(os.stat(os.path.join(kept, file)).st_mode & 0o777, 0o600, file)
        # Nothing that the server gives holds a password.
        for path in ("cameras", "metrics", "cameras/Yard/history"):
            self.assertNotIn(PASSWORD.encode(), ask(self.server.url + path))

    def test_10_a_second_browser_sees_the_same(self):
        other = browser(phone=True)
        try:
            other.get(self.server.url + "#Yard")
            self.open("Yard")
            self.wait_for_pictures("Yard", other)
            self.wait_for_pictures("Yard")
            self.find("[data-position='Square é']", other)
            control("127.0.1.1", "input1=1")
            for driver in (self.driver, other):
                self.find("[data-input='1'] .lamp.high", driver)
            self.screenshot("console-phone", other)
        finally:
            other.quit()

    def test_11_a_server_that_ends_stops_the_head_and_the_page_says_so(self):
        self.open("Yard")
        self.wait_for_pictures("Yard")
        self.hold_pad(by=50)
        type(self).server.end()
        self.assertFalse(self.moving(), "the server has stopped the head before it ended")
        until("the page says so", lambda: "lost" in self.find("#link").text)
        self.assertIn("doesn't answer", self.find(".tile .why").text)
        self.server.log.seek(0)
        self.assertEqual(self.server.log.read(), "")


if __name__ == "__main__":
    PROGRAMS = sys.argv.pop(1)
    counts = sys.argv.pop(1)
    result = unittest.main(verbosity=2, exit=False).result
    failed = len(result.failures) + len(result.errors)
    with open(counts, "w") as file:
        print(result.testsRun - failed - len(result.skipped), failed, len(result.skipped), file=file)
    sys.exit(0 if result.testsRun and not failed else 1)
