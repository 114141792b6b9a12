#!/usr/bin/python3 -B
"""Shows the page in a real browser: a real broker with the shipped configuration, a real device, and
a thousand simulated ones. An exception or an error in the browser's console fails each case.

    scripts/sandbox tests/page_test.py FOLDER_OF_THE_EXECUTABLES FOLDER_OF_THE_SCREENSHOTS [CASE...]"""
import copy
import json
import os
import re
import shutil
import subprocess
import sys
import time
import unittest
from pathlib import Path

import paho.mqtt.publish
from selenium import webdriver
from selenium.webdriver.chrome.service import Service as Driver
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

from programs import NAMES, ROOT, Broker, Publisher, Service, document, send, shipped, wait_until

SCREENSHOTS = Path(sys.argv.pop(1)).resolve()
PAGE = "http://127.0.0.1:8080/"
USED = {"button", "link", "searchbox", "textbox", "checkbox", "img", "table", "columnheader", "heading"}


def publish(messages):
    """Pairs of a topic below status/ and a text or what becomes JSON."""
    paho.mqtt.publish.multiple([
        (f"status/{topic}", value if isinstance(value, (str, bytes)) else json.dumps(value), 1, True)
        for topic, value in messages])


def damaged(value):
    """The value with itself and each of its members in turn of another kind."""
    yield from (None, 5, -1e308, "constructor", True, [], {"toString": 5}, [None, [], {}], "<b>" * 1000)
    for key in value if isinstance(value, dict) else range(len(value)) if isinstance(value, list) else ():
        for other in damaged(value[key]):
            changed = value.copy()
            changed[key] = other
            yield changed


class Page(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        shutil.copy(ROOT / "scenarios/timing_info", "/sys/devices/platform/videoip")
        shutil.copy(ROOT / "scenarios/Q42_all_port_status", "/sys/devices/platform/ftgmac")
        Service()
        day = (ROOT / "scenarios/device-day.scenario").read_text().split("say Evening")[0]
        send(*sorted((line for line in day.splitlines() if not line.startswith(("wait", "say"))),
                     key=lambda line: line.startswith("power_v_value")))  # the last to be applied
        wait_until("the day", lambda: document("power")["power"]["measured_power_current_a"] == 510)
        cls.documents = {name: document(name) for name in NAMES}

    def setUp(self):
        self.broker = Broker(shipped("page"))
        self.publisher = Publisher(device="studio")
        options = webdriver.ChromeOptions()
        for argument in ("headless=new", "no-sandbox", "hide-scrollbars", "disable-dev-shm-usage", "window-size=1400,1000"):
            options.add_argument(f"--{argument}")
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        self.browser = webdriver.Chrome(service=Driver("/usr/bin/chromedriver"), options=options)
        self.run_in_page = self.browser.execute_script

    def tearDown(self):
        faults = [entry["message"] for entry in self.browser.get_log("browser") if entry["level"] == "SEVERE"]
        self.browser.quit()
        self.publisher.close()
        self.broker.close()
        # The browser itself states each connection that fails.
        self.assertEqual([fault for fault in faults if "WebSocket connection to" not in fault], [])

    def state_of(self, device, number=0):
        """What a device publishes; the number makes them differ."""
        documents = copy.deepcopy(self.documents)
        video = documents["inputs"]["inputs"][0]["video"]
        video.update(connected=number % 4 < 3, signal_present=number % 3 < 2, refresh_rate_hz=60 - number % 2 * 0.06)
        if number % 3 == 1:
            documents["power"]["power"].update(power_source="PoE", measured_power_voltage_v=11900)
        return [*((f"{device}/{name}", document) for name, document in documents.items()),
                (f"{device}/availability", "online"), (f"{device}/problems", [])]

    def media(self, scheme):
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": [
            {"name": "prefers-color-scheme", "value": scheme}, {"name": "prefers-reduced-motion", "value": "reduce"}]})

    def open(self, address=PAGE):
        self.browser.get("about:blank")
        self.browser.get(address)

    def text(self, selector):
        return self.run_in_page("const node = document.querySelector(arguments[0]);"
                                "return node?.checkVisibility() ? node.innerText : ''", selector)

    def wait_for_text(self, selector, text):
        wait_until(lambda: f"{text!r} in {selector}: {self.text(selector)!r}", lambda: text in self.text(selector))

    def each(self, selector, expression):
        """What the expression is for each `node` of the page."""
        return self.run_in_page(f"return Array.from(document.querySelectorAll(arguments[0]), (node) => {expression})", selector)

    def find(self, selector):
        return self.browser.find_element(By.CSS_SELECTOR, selector)

    def row(self, device):
        return f'#fleet tr:has([href="#{device}"])'

    def cell(self, device, title):
        return f'{self.row(device)} [data-title="{title}"]'

    def check_looks(self, name):
        """All that is read has the contrast of AA, all that is used has a name, nothing sticks out."""
        for scheme in ("dark", "light"):
            self.media(scheme)
            self.assertEqual(self.run_in_page((ROOT / "tests/page_contrast.js").read_text()), [], f"{name}, {scheme}")
            self.browser.save_screenshot(str(SCREENSHOTS / f"page-{name}-{scheme}.png"))
        tree = self.browser.execute_cdp_cmd("Accessibility.getFullAXTree", {})["nodes"]
        used = [(node["role"]["value"], node.get("name", {}).get("value")) for node in tree if not node["ignored"]]
        self.assertEqual([role for role, label in used if role in USED and not label], [], f"{name}: without a name")
        root = "document.documentElement"
        self.assertLessEqual(self.run_in_page(f"return {root}.scrollWidth - {root}.clientWidth"), 0, name)
        return [role for role, _ in used]

    def test_device(self):
        self.open()
        for title, text in (("State", "Online"), ("HDMI", "1280×720p 60 Hz\nHDMI · HDCP 1.4"),
                            ("USB-C video", "3840×2160p 60 Hz\nDP · no HDCP"), ("Power", "Adapter\n24 V · current 510"),
                            ("Audio", "HDMI LPCM 48 kHz 2 ch\nUSB-C LPCM 96 kHz 8 ch"),
                            ("USB-C port", "Laptop, Lenovo\nCharging 20 V, 3 A")):
            self.wait_for_text(self.cell("studio", title), text)
        wait_until("the LAN", lambda: self.each(self.row("studio") + " .lan", "node.ariaLabel") == [
            "LAN1: 1000 Mbps, full duplex", "LAN2: Off", "LAN3: No link", "LAN4: 1000 Mbps, full duplex"])
        self.assertFalse(self.run_in_page("return document.getAnimations().length"), "what was there lights up")

        self.run_in_page("const own = Element.prototype.animate; window.lit = [];"
                         "Element.prototype.animate = function (frames, way) {"
                         "lit.push([this.dataset.title, way.easing]); return own.call(this, frames, way); }")
        send("power_status PoE")
        self.wait_for_text(self.cell("studio", "Power"), "PoE\n11.9 V")
        self.media("light")
        send("power_status Adapter")
        self.wait_for_text(self.cell("studio", "Power"), "Adapter\n24 V")
        lit = {(title, way) for title, way in self.run_in_page("return lit") if title != "USB-C port"}  # which charges
        self.assertEqual(lit, {("Power", "ease-in"), ("Power", "step-end")})

        self.find('[href="#studio"]').send_keys(Keys.ENTER)
        wait_until("a heading with the focus", lambda: self.text("#device h2:focus") == "studio")
        ports = self.each(".port", r"[node.innerText.replace(/\s+/g, ' '), node.dataset.tone]")
        self.assertEqual(ports[5:8], [["LAN1 UTP 1000 Mbps full duplex", "good"], ["LAN2 UTP Off", "off"],
                                      ["LAN3 SFP No link", "idle"]])
        self.assertIn("Front porch\t–\t–\n", self.text(".card:nth-child(1) .timing tbody"))
        self.assertEqual(self.text(".card:nth-child(2) .timing tbody"), "\n".join((
            "Active\t3840\t2160", "Front porch\t176\t8", "Sync pulse\t88\t10", "Back porch\t296\t72", "Total\t4400\t2250",
            "Frequency\t135 kHz\t60 Hz", "Polarity\tpositive\tpositive")))
        self.find("details:nth-of-type(2) summary").click()
        self.wait_for_text("details[open] pre", '"product": "Laptop"')
        self.check_looks("device")
        send("typec_info ChargingState=Charging Charging_mV=20000 PeerDevicePID=1 PeerDeviceMFT_String=Phone")
        self.wait_for_text(".usb", "Phone")
        self.wait_for_text("details[open] pre", "Phone")
        self.wait_for_text(".changes", "usb-host usb_c[0].generic.partner.product")
        self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": 360, "height": 740, "deviceScaleFactor": 1, "mobile": True})
        self.check_looks("device-on-a-phone")
        self.browser.back()
        self.wait_for_text(self.cell("studio", "USB-C port"), "Phone")
        self.check_looks("fleet-on-a-phone")

    def test_losses(self):
        publish([("ghost/availability", "online"), *self.state_of("gone")])
        self.open()
        self.wait_for_text(self.cell("studio", "Power"), "Adapter")
        self.wait_for_text(self.cell("ghost", "Power"), "Not known")
        self.publisher.close()
        self.wait_for_text(self.cell("studio", "State"), "Offline")
        self.run_in_page("location.hash = 'studio'")
        self.wait_for_text("#device .state", "Offline since")
        self.assertNotIn("before", self.text("#device .state"))
        self.run_in_page("location.hash = ''")
        self.publisher = Publisher(device="studio")
        self.wait_for_text(self.cell("studio", "State"), "Online")
        self.wait_for_text(self.cell("gone", "State"), "Online")
        publish([(f"gone/{part}", "") for part in (*NAMES, "availability", "problems")])
        wait_until("the device to leave", lambda: not self.text(self.row("gone")))

        self.broker.close()
        self.wait_for_text("#connection", "may be old. Trying again by itself.")
        send("power_status PoE")
        self.broker = Broker(shipped("page"))
        self.wait_for_text("#connection", "Connected to ws://127.0.0.1:8080/mqtt")
        self.wait_for_text(self.cell("studio", "Power"), "PoE")
        self.wait_for_text(self.cell("ghost", "State"), "Not known")  # as this broker has never heard of it
        send("power_status Adapter")
        self.wait_for_text(self.cell("studio", "Power"), "Adapter")
        self.open(PAGE + "#no%20such%20device")
        self.wait_for_text("#device .state", "nothing of a device of this name")

    def test_refusals(self):
        self.publisher.close()
        self.broker.close()
        Path("/tmp/password").write_text("right", encoding="utf-8")
        passwords = Path("/tmp/mosquitto-page.passwords")
        passwords.write_text("operator:right\nstudio:right\nstranger:right\n", encoding="utf-8")
        subprocess.run(["mosquitto_passwd", "-U", passwords], check=True)
        # The lines that serve the page, beside the configuration for devices but for their certificates.
        self.broker = Broker("\n".join((*re.findall("(?m)^#(\\w.*)", shipped("page")),
                                        shipped("devices").partition("_username true")[2], "listener 1883")))
        self.publisher = Publisher("--user", "studio", "--password-file", "/tmp/password", device="studio")
        for user, password, place, text in (
                ("stranger", "right", "#no-rows", "this user may not read"),
                ("operator", "wrong", "#connection", "Wrong user or password"), ("operator", "right", "#connection", "Connected")):
            if not self.text("#login"):
                self.open()
                self.wait_for_text("#connection", "wants a user and a password")
            for name, value in (("user", user), ("password", password)):
                field = self.find(f"[name={name}]")
                field.clear()
                field.send_keys(value)
            field.send_keys(Keys.ENTER)
            self.wait_for_text(place, text)
        self.wait_for_text(self.cell("studio", "State"), "Online")
        self.assertEqual(self.text("#login"), "")
        for broker, text in (("ws://127.0.0.1:9", "No answer from ws://127.0.0.1:9"), ("http://a", "not by http://"),
                             ("ws://a:b@c", "Leave user and password out"), ("a b", "no address of a broker")):
            self.open(f"{PAGE}?broker={broker}")
            self.wait_for_text("#connection", text)

        self.open(PAGE + "?broker=ws://127.0.0.1:8080")
        self.wait_for_text("#connection", "wants a user")
        self.run_in_page("""
            window.found = new Set();
            addEventListener("securitypolicyviolation", (event) =>
                found.add(`${event.effectiveDirective} ${event.blockedURI.split(':')[0]}`));
            fetch("http://127.0.0.1:1883/").catch(() => 0);
            try { new WebSocket("ws://127.0.0.1:1883/"); } catch {}
            document.body.append(element("img", {src: "x.png"}), element("script", {src: "http://127.0.0.1:9/x.js"}));
            document.body.insertAdjacentHTML("beforeend", "<b style='color: red' onclick='x()'>x</b>");""")
        wait_until("the policy", lambda: sorted(self.run_in_page("return [...found]")) == [
            "connect-src http", "connect-src ws", "img-src http", "script-src-attr inline", "script-src-elem http",
            "style-src-attr inline"])
        self.browser.get_log("browser")  # which states them

    def test_damage(self):
        """No view fails, whatever comes."""
        deep = ['{"inputs": ' + "[" * 50000 + end + "]" * 50000 + "}" for end in "12"]
        cases = [(name, text) for name in NAMES for text in (
            "", "{", "[" * 100000, '{"__proto__": {}}', "\0", *deep, *map(json.dumps, damaged(self.documents[name])))]
        cases += [(name, text) for name in ("problems", "availability") for text in ("", "x", "5", "{}", '[5, {}, "<b>"]')]
        for address in (PAGE, PAGE + "#victim"):
            self.open(address)
            self.wait_for_text("#connection", "Connected")
            failures = self.run_in_page("""
                const failures = [];
                for (const [part, text] of arguments[0]) {
                  try {
                    take(`status/victim/${part}`, text), render();
                    const shown = view.name ? view.root : fleet.rows.get("victim")?.node;
                    if (text && !shown?.textContent.includes("victim")) throw "blank";
                    if (shown?.querySelector("b") || /function|\\[object/.test(shown?.textContent)) throw "not text";
                  } catch (error) { failures.push(`${part} ${text.slice(0, 200)}: ${error}`); }
                }
                return failures;""", cases)
            self.assertEqual(failures[:5], [])
        publish([*self.state_of("a"), ("a/power", "{"), ("a/power", " " * 70000), ("a/usb-host", {"usb_c": 5}), ("a/problems", ["outputs: locked"] * 150),
                 ("x <b>/power", '{"power": {"power_source": "<i>PoE</i>"}}'), ("a", "1"), ("a/b/c", "1"), ("a/other", "1")])
        self.open()
        self.wait_for_text(self.cell("a", "State"), "103 problems")
        self.wait_for_text(self.cell("x%20%3Cb%3E", "Power"), "<i>PoE</i>")
        self.wait_for_text("[data-filter=problems] b", "1")
        self.assertEqual(self.run_in_page("""const own = Date.now; Date.now = () => own() + 5000; // silence in the first load
            fleet.isSettled = false, fleet.touchedAt = Date.now(), take("status/0/power", "{}", true), render(), fleet.rearrange();
            return document.querySelector("tbody th").textContent;"""), "0")
        self.assertEqual(self.run_in_page("""location.hash = "a", follow(), take("status/a/outputs", "5".repeat(300000));
            for (const n of [1, 2, 3]) take("status/a/inputs", JSON.stringify({inputs: Array(150).fill({["x".repeat(999)]: n})})), render();
            return [...document.querySelectorAll(".changes li")].map((row) => row.textContent.slice(-6));"""), 100 * ["…2 → 3"])
        for text in ("outputs: locked", "and 50 more", "power: not JSON (Expected", "usb-host: usb_c is no array", "outputs: larger than 256 KiB"):
            self.wait_for_text(".problems", text)

    def test_thousand(self):
        names = [f"room-{number}" for number in range(1, 1001)]
        publish(message for number, name in enumerate(names) for message in self.state_of(name, number))
        publish([("room-4/availability", "offline"), ("room-7/problems", ["inputs: locked by another process"])])
        self.open()
        wait_until("all devices", lambda: self.order() == [*names, "studio"])
        self.wait_for_text("[data-filter=problems] b", "1")
        self.wait_for_text(self.cell("room-2", "HDMI"), "1280×720p 59.94 Hz")
        self.assertGreater(min(map(self.check_looks("fleet").count, ("row", "columnheader", "rowheader", "cell"))), 7)
        self.settled(self.drawings, 3)  # without a change, nothing is drawn

        self.find("#problems-first").click()
        self.assertEqual(self.order()[:3], ["room-4", "room-7", "room-1"])
        self.run_in_page("document.querySelector(arguments[0]).scrollIntoView({block: 'center'})", self.row("room-400"))
        place = "return document.querySelector(arguments[0]).getBoundingClientRect().top"
        before = self.settled(lambda: self.run_in_page(place, self.row("room-400")), 0.3)
        publish([("room-300/availability", "offline"), ("annex/availability", "online"),
                 ("room-400/power", {"power": {"power_source": "PoE"}})])
        self.wait_for_text(self.cell("room-400", "Power"), "PoE")
        self.wait_for_text(".tools", "Sort again")
        self.assertAlmostEqual(self.run_in_page(place, self.row("room-400")), before, delta=1)
        self.find("#sort-again").click()
        self.assertEqual(self.order()[:4], ["room-4", "room-300", "room-7", "annex"])

        self.find("#problems-first").click()
        search = self.find("[type=search]")
        search.send_keys("room-40 poe")
        self.assertEqual(self.order(), ["room-400", "room-401", "room-404", "room-407"])
        search.send_keys("x")
        self.wait_for_text("#no-rows", "No device is like that.")
        search.send_keys(Keys.BACKSPACE * 12)
        self.find("[data-filter=offline]").click()
        self.assertEqual(self.order(), ["room-4", "room-300"])
        self.find("[data-filter=all]").click()
        for way, first in (("ascending", "room-1"), ("descending", "room-2")):
            self.find("thead th:last-child button").click()  # the power
            self.assertEqual((self.order()[0], self.each("thead th", "node.ariaSort")[-1]), (first, way))

    def order(self):
        return self.each("tbody th a", "node.textContent")

    def drawings(self):
        self.browser.execute_cdp_cmd("Performance.enable", {})
        metrics = self.browser.execute_cdp_cmd("Performance.getMetrics", {})["metrics"]
        return [metric["value"] for metric in metrics if metric["name"] in ("LayoutCount", "RecalcStyleCount")]

    def settled(self, read, seconds):
        """What it reads, once that has stayed so long."""
        wait_until("a page at rest", lambda: [read()] == (time.sleep(seconds), [read()])[1])
        return read()


if __name__ == "__main__":
    os.environ["HOME"] = "/tmp"
    unittest.main(verbosity=2, warnings="ignore")
