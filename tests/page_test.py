#!/usr/bin/python3
"""Shows the page in a real browser: a real broker with the shipped configuration, a real device, and
a thousand simulated ones. An exception or an error in the browser's console fails each case.

    scripts/sandbox tests/page_test.py FOLDER_OF_THE_EXECUTABLES FOLDER_OF_THE_SCREENSHOTS"""
import copy
import json
import os
import shutil
import signal
import socket
import subprocess
import sys
import time
import unittest
from pathlib import Path

import paho.mqtt.client
from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

ROOT = Path(__file__).resolve().parent.parent
BIN, SCREENSHOTS = (Path(argument).resolve() for argument in sys.argv[1:3])
PAGE = "http://127.0.0.1:8080/"
DOCUMENTS = ("inputs", "usb-host", "ethernet", "power", "outputs")
PUBLISHER = (BIN / "status_mqtt", "--host", "127.0.0.1", "--device", "studio", "--longest-wait", "1")
PATIENCE = 60
running = []


def start(*command):
    process = subprocess.Popen([str(part) for part in command], stderr=subprocess.DEVNULL)
    running.append(process)
    return process


def wait_for(what, condition):
    end = time.monotonic() + PATIENCE
    while not (found := condition()):
        if time.monotonic() > end:
            raise AssertionError(f"waited in vain: {what}")
        time.sleep(0.02)
    return found


def is_open(port):
    with socket.socket() as probe:
        return probe.connect_ex(("127.0.0.1", port)) == 0


def start_broker(edit=lambda text: text):
    """With the shipped configuration, but for the user and the places of the files."""
    folder = Path("/tmp/broker")
    folder.mkdir(exist_ok=True)
    for path in (ROOT / "packaging").glob("mosquitto-*.acl"):
        shutil.copy(path, folder)
    text = edit((ROOT / "packaging/mosquitto-page.conf").read_text()).replace("/etc/mosquitto", str(folder))
    text = text.replace("/usr/share/status_json_page", str(ROOT / "page"))
    (folder / "conf").write_text(text + "\nuser root\n")
    broker = start("mosquitto", "-c", folder / "conf")
    wait_for("the broker", lambda: broker.poll() is not None or is_open(1883) and is_open(8080))
    return broker


def stop(process, number=signal.SIGKILL):
    process.send_signal(number)
    process.wait()


def publish(messages):
    """Pairs of a topic below status/ and a text or what becomes JSON."""
    client = paho.mqtt.client.Client()
    client.connect("127.0.0.1", 1883)
    client.loop_start()
    wait_for("the broker's consent", client.is_connected)  # or the last message may count as lost
    for topic, value in messages:
        text = value if isinstance(value, (str, bytes)) else json.dumps(value)
        last = client.publish(f"status/{topic}", text, qos=1, retain=True)
    last.wait_for_publish()
    client.disconnect()


def send(*words):
    subprocess.run([BIN / "statusctl", "send", *words], check=True)


def make_browser():
    options = webdriver.ChromeOptions()
    for argument in ("headless=new", "no-sandbox", "disable-gpu", "hide-scrollbars", "window-size=1400,1000",
                     "user-data-dir=/tmp/browser", "disable-dev-shm-usage"):
        options.add_argument(f"--{argument}")
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    return webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)


class Page(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        shutil.copy(ROOT / "scenarios/timing_info", "/sys/devices/platform/videoip")
        shutil.copy(ROOT / "scenarios/Q42_all_port_status", "/sys/devices/platform/ftgmac")
        start(BIN / "status_json_service")
        wait_for("the service", Path("/tmp/json_app.sock").exists)
        day = (ROOT / "scenarios/device-day.scenario").read_text().split("say Evening")[0]
        day = "\n".join(sorted((line for line in day.splitlines() if not line.startswith(("wait", "say"))),
                               key=lambda line: line.startswith("power_v_value")))  # the last to be applied
        subprocess.run([BIN / "statusctl", "send", "--file", "-"], input=day, text=True, check=True)
        wait_for("the day", lambda: "510" in (text := Path("/var/run/status/power.json").read_text()) and
                 text.count("{") == text.count("}"))  # all of it is written
        cls.documents = {name: json.loads(Path(f"/var/run/status/{name}.json").read_text()) for name in DOCUMENTS}

    def setUp(self):
        self.broker = start_broker()
        self.browser = make_browser()
        self.publisher = start(*PUBLISHER)
        self.media("light")
        self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                                     {"width": 1400, "height": 1000, "deviceScaleFactor": 1, "mobile": False})

    def tearDown(self):
        faults = [entry["message"] for entry in self.browser.get_log("browser") if entry["level"] == "SEVERE"]
        self.browser.quit()
        stop(self.publisher)
        stop(self.broker)
        # The browser itself states each connection that fails.
        self.assertEqual([fault for fault in faults if "WebSocket connection to" not in fault], [])

    def state_of(self, device, number=0):
        """What a device publishes; the number makes them differ."""
        documents = copy.deepcopy(self.documents)
        for position, entry in enumerate(documents["inputs"]["inputs"][:2]):
            entry["video"]["signal_present"] = entry["audio"]["signal_present"] = number % (3 + position) < 2
            entry["video"]["connected"] = number % (4 + position) < 3
            entry["video"]["refresh_rate_hz"] -= number % 2 * 0.06
        for position, port in enumerate(documents["ethernet"]["ethernet"]):
            port["link"]["status"] = number * 7 >> position & 1 == 0
        if number % 3 == 1:
            documents["power"]["power"].update(power_source="PoE", measured_power_voltage_v=11900)
        return [*((f"{device}/{name}", document) for name, document in documents.items()),
                (f"{device}/availability", "online"), (f"{device}/problems", [])]

    def media(self, scheme, motion="no-preference"):
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": [
            {"name": "prefers-color-scheme", "value": scheme}, {"name": "prefers-reduced-motion", "value": motion}]})

    def open(self, address=PAGE):
        self.browser.get("about:blank")
        self.browser.get(address)

    def run_in_page(self, script, *arguments):
        return self.browser.execute_script(script, *arguments)

    def text(self, selector):
        return self.run_in_page("const node = document.querySelector(arguments[0]);"
                                "return node?.checkVisibility() ? node.innerText : ''", selector)

    def wait_for_text(self, selector, text):
        try:
            wait_for("", lambda: text in self.text(selector))
        except AssertionError:
            self.fail(f"{selector} says {self.text(selector)!r} and never {text!r}")

    def row(self, device):
        return f'#fleet tr:has([href="#{device}"])'

    def cell(self, device, title):
        return f'{self.row(device)} [data-title="{title}"]'

    def screenshot(self, name):
        self.run_in_page("scrollTo(0, 0)")
        for scheme in ("dark", "light"):
            self.media(scheme, "reduce")
            self.browser.save_screenshot(str(SCREENSHOTS / f"page-{name}-{scheme}.png"))

    def check_looks(self, name):
        """All that is read has the contrast of AA, all that is used has a name, nothing sticks out."""
        for scheme in ("light", "dark"):
            self.media(scheme, "reduce")
            self.assertEqual(self.run_in_page((ROOT / "tests/page_contrast.js").read_text()), [], f"{name}, {scheme}")
        tree = self.browser.execute_cdp_cmd("Accessibility.getFullAXTree", {})["nodes"]
        used = [(node["role"]["value"], node.get("name", {}).get("value")) for node in tree if not node["ignored"]]
        for role, label in used:
            if role in ("button", "link", "searchbox", "textbox", "checkbox", "img", "table", "columnheader", "heading"):
                self.assertTrue(label, f"a {role} without a name")
        self.assertLessEqual(self.run_in_page("const root = document.documentElement; return root.scrollWidth - root.clientWidth"), 0, name)
        return [role for role, _ in used]

    def phone(self):
        self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                                     {"width": 360, "height": 740, "deviceScaleFactor": 1, "mobile": True})

    def test_device(self):
        self.open()
        self.wait_for_text(self.cell("studio", "State"), "Online")
        for title, text in (("HDMI", "1280×720p 60 Hz\nHDMI · HDCP 1.4"), ("USB-C video", "3840×2160p 60 Hz\nDP · no HDCP"),
                            ("Audio", "HDMI LPCM 48 kHz 2 ch\nUSB-C LPCM 96 kHz 8 ch"), ("Power", "Adapter\n24 V · current 510"),
                            ("USB-C port", "Laptop, Lenovo\nCharging 20 V, 3 A")):
            self.wait_for_text(self.cell("studio", title), text)
        signs = wait_for("the LAN", lambda: "Not known" not in str(signs := self.run_in_page(
            "return [...document.querySelectorAll(arguments[0])].map((sign) => sign.ariaLabel)", self.row("studio") + " .lan")) and signs)
        self.assertEqual(signs, ["LAN1: 1000 Mbps, full duplex", "LAN2: Off", "LAN3: No link",
                                 "LAN4: 1000 Mbps, full duplex"])
        self.assertFalse(self.run_in_page("return document.getAnimations().length"), "what was there lights up")

        self.run_in_page("const own = Element.prototype.animate; window.lit = [];"
                         "Element.prototype.animate = function (frames, way) {"
                         "lit.push([this.dataset.title, way.easing]); return own.call(this, frames, way); }")
        send("power_status", "PoE")
        self.wait_for_text(self.cell("studio", "Power"), "PoE\n11.9 V")
        self.media("light", "reduce")
        send("power_status", "Adapter")
        self.wait_for_text(self.cell("studio", "Power"), "Adapter\n24 V")
        lit = self.run_in_page("return lit")
        self.assertIn(["Power", "ease-in"], lit)
        self.assertIn(["Power", "step-end"], lit)
        self.assertEqual({title for title, _ in lit} - {"Power", "USB-C port"}, set())  # which charges with the adapter

        self.browser.find_element(By.CSS_SELECTOR, '[href="#studio"]').send_keys(Keys.ENTER)
        self.wait_for_text("#device h2", "studio")
        self.assertEqual(self.browser.switch_to.active_element.text, "studio")
        ports = self.run_in_page("return [...document.querySelectorAll('.port')].map((port) =>"
                                 "[port.innerText.replace(/\\s+/g, ' '), port.dataset.tone])")
        self.assertEqual(ports[5:8], [["LAN1 UTP 1000 Mbps full duplex", "good"], ["LAN2 UTP Off", "off"],
                                      ["LAN3 SFP No link", "idle"]])
        self.assertIn("Front porch\t–\t–\n", self.text(".card:nth-child(1) .timing tbody"))
        self.assertEqual(self.text(".card:nth-child(2) .timing tbody"), "\n".join((
            "Active\t3840\t2160", "Front porch\t176\t8", "Sync pulse\t88\t10", "Back porch\t296\t72", "Total\t4400\t2250",
            "Frequency\t135 kHz\t60 Hz", "Polarity\tpositive\tpositive")))
        self.browser.find_element(By.CSS_SELECTOR, "details:nth-of-type(2) summary").click()
        self.wait_for_text("details[open] pre", '"product": "Laptop"')
        self.screenshot("device")
        hostile = "<img src=x onerror=1>"
        send("typec_info", "ChargingState=Charging", "Charging_mV=20000", "PeerDevicePID=1", f"PeerDeviceMFT_String={hostile}")
        self.wait_for_text(".usb", hostile)
        self.wait_for_text("details[open] pre", hostile)
        self.wait_for_text(".changes", "usb-host usb_c[0].generic.partner.product")
        self.assertFalse(self.run_in_page("return document.querySelectorAll('img').length"))
        self.check_looks("device")
        self.phone()
        self.check_looks("device on a phone")
        self.browser.back()
        self.wait_for_text(self.cell("studio", "USB-C port"), hostile)
        self.check_looks("fleet on a phone")

    def test_losses(self):
        publish([("ghost/availability", "online"), *self.state_of("gone")])
        self.open()
        self.wait_for_text(self.cell("studio", "Power"), "Adapter")
        self.wait_for_text(self.cell("ghost", "Power"), "Not known")
        stop(self.publisher)
        self.wait_for_text(self.cell("studio", "State"), "Offline")
        self.run_in_page("location.hash = 'studio'")
        self.wait_for_text("#device .state", "Offline since")
        self.assertNotIn("before", self.text("#device .state"))
        self.run_in_page("location.hash = ''")
        self.publisher = start(*PUBLISHER)
        self.wait_for_text(self.cell("studio", "State"), "Online")
        self.wait_for_text(self.cell("gone", "State"), "Online")
        publish([(f"gone/{part}", "") for part in (*DOCUMENTS, "availability", "problems")])
        wait_for("the device to leave", lambda: not self.text(self.row("gone")))

        stop(self.broker)
        self.wait_for_text("#connection", "is lost")
        self.wait_for_text("#connection", "may be old")
        send("power_status", "PoE")
        self.broker = start_broker()
        self.wait_for_text("#connection", "Connected to ws://127.0.0.1:8080/mqtt")
        self.wait_for_text(self.cell("studio", "Power"), "PoE")
        self.wait_for_text(self.cell("ghost", "State"), "Not known")  # as this broker has never heard of it
        send("power_status", "Adapter")
        self.wait_for_text(self.cell("studio", "Power"), "Adapter")
        self.open(PAGE + "#no%20such%20device")
        self.wait_for_text("#device .state", "nothing of a device of this name")

    def test_refusals(self):
        stop(self.publisher)
        stop(self.broker)
        Path("/tmp/password").write_text("right", encoding="utf-8")
        Path("/tmp/broker/mosquitto-page.passwords").touch()
        for user in ("operator", "studio", "stranger"):
            subprocess.run(["mosquitto_passwd", "-b", "/tmp/broker/mosquitto-page.passwords", user, "right"], check=True)
        # The lines that serve the page, beside the configuration for devices but for their certificates.
        self.broker = start_broker(lambda text: text[text.index("#listener"):text.index("per_listener")].replace("#", "") +
                                   (ROOT / "packaging/mosquitto-devices.conf").read_text().partition("_username true")[2] +
                                   "listener 1883")
        self.publisher = start(*PUBLISHER, "--user", "studio", "--password-file", "/tmp/password")
        for user, password, place, text in (
                ("stranger", "right", "#no-rows", "this user may not read"),
                ("operator", "wrong", "#connection", "Wrong user or password"), ("operator", "right", "#connection", "Connected")):
            if not self.text("#login"):
                self.open()
                self.wait_for_text("#connection", "wants a user and a password")
            for name, value in (("user", user), ("password", password)):
                field = self.browser.find_element(By.NAME, name)
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
        wait_for("the policy", lambda: sorted(self.run_in_page("return [...found]")) == [
            "connect-src http", "connect-src ws", "img-src http", "script-src-attr inline", "script-src-elem http",
            "style-src-attr inline"])
        self.browser.get_log("browser")  # which states them

    def test_damage(self):
        """Each member of each document in turn is of another kind, and no view fails."""
        deep = ['{"inputs": ' + "[" * 50000 + end + "]" * 50000 + "}" for end in "12"]
        cases = [(name, text) for name in DOCUMENTS for text in (
            "", "{", "5", "null", "[]", '""', "[" * 100000, '{"__proto__": {}}', "\ufffd\0", json.dumps({name: {}}), *deep)]
        for name, document in self.documents.items():
            for path in paths_of(document):
                for other in (None, 5, -1e308, "constructor", True, [], {"toString": 5}, [None, [], {}], "<b>" * 1000):
                    damaged = copy.deepcopy(document)
                    owner = damaged
                    for key in path[:-1]:
                        owner = owner[key]
                    owner[path[-1]] = other
                    cases.append((name, json.dumps(damaged)))
        cases += [(name, text) for name in ("problems", "availability") for text in ("", "x", "5", "{}", '[5, {}, "<b>"]')]
        for address in (PAGE, PAGE + "#victim"):
            self.open(address)
            self.wait_for_text("#connection", "Connected")
            failures = self.run_in_page("""
                const [cases] = arguments, failures = [];
                for (const [part, text] of cases) {
                  try {
                    take(`status/victim/${part}`, text);
                    render();
                    const shown = view.name ? view.root : fleet.rows.get("victim")?.node;
                    if (text && !shown?.textContent.includes("victim")) throw new Error("blank");
                    if (shown?.querySelector("b") || shown?.textContent.includes("function")) throw new Error("not text");
                  } catch (error) {
                    failures.push(`${part} ${text.slice(0, 200)}: ${error}`);
                  }
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
        began = time.monotonic()
        self.open()
        wait_for("all rows", lambda: self.run_in_page("return document.querySelectorAll('tbody tr').length") == 1001)
        wait_for("the last", lambda: self.run_in_page("return fleet.rows.get('room-1000').text.includes('lenovo')"))
        self.wait_for_text("[data-filter=problems] b", "1")
        print(f"\n1,000 devices are shown {time.monotonic() - began:.1f} s after the page is asked for")
        order = "return [...document.querySelectorAll('tbody th a')].map((link) => link.textContent)"
        self.assertEqual(self.run_in_page(order), [*names, "studio"])
        self.wait_for_text(self.cell("room-2", "HDMI"), "1280×720p 59.94 Hz")
        self.screenshot("fleet")
        roles = self.check_looks("fleet")
        self.assertGreaterEqual(roles.count("row"), 10)
        self.assertEqual(roles.count("columnheader"), 8)

        idle = self.measure(3)
        self.assertLess(idle["LayoutCount"] + idle["RecalcStyleCount"], 5, "without a change, it is drawn anew")
        print(f"idle: {100 * idle['TaskDuration'] / 3:.2f} % of a processor")

        self.browser.find_element(By.ID, "problems-first").click()
        self.assertEqual(self.run_in_page(order)[:3], ["room-4", "room-7", "room-1"])
        self.run_in_page("document.querySelector(arguments[0]).scrollIntoView({block: 'center'})", self.row("room-400"))
        place = "return document.querySelector(arguments[0]).getBoundingClientRect().top"
        before = wait_for("a still page", lambda: self.is_still(place, self.row("room-400")))
        self.run_in_page("dispatchEvent(new Event('pointermove')); new MutationObserver(() => window.shown ||= Date.now())"
                         ".observe(document.querySelector(arguments[0]), {subtree: true, childList: true})",
                         self.cell("room-400", "Power"))
        began = time.time()
        publish([("room-300/availability", "offline"), ("annex/availability", "online"),
                 ("room-400/power", {"power": {"power_source": "PoE"}})])
        self.wait_for_text(self.cell("room-400", "Power"), "PoE")
        print(f"a change is shown {self.run_in_page('return shown') - 1000 * began:.0f} ms after it is published")
        wait_for("the button", lambda: "Sort again" in self.text(".tools"))
        self.assertAlmostEqual(self.run_in_page(place, self.row("room-400")), before, delta=1)
        self.assertIn("PoE", self.text(self.cell("room-400", "Power")))
        self.browser.find_element(By.ID, "sort-again").click()
        self.assertEqual(self.run_in_page(order)[:4], ["room-4", "room-300", "room-7", "annex"])

        self.browser.find_element(By.ID, "problems-first").click()
        search = self.browser.find_element(By.CSS_SELECTOR, "[type=search]")
        search.send_keys("room-40 poe")
        self.assertEqual(self.run_in_page(order), ["room-400", "room-401", "room-404", "room-407"])
        search.send_keys("x")
        self.wait_for_text("#no-rows", "No device is like that.")
        search.send_keys(Keys.BACKSPACE * 12)
        self.browser.find_element(By.CSS_SELECTOR, "[data-filter=offline]").click()
        self.assertEqual(self.run_in_page(order), ["room-4", "room-300"])
        self.browser.find_element(By.CSS_SELECTOR, "[data-filter=all]").click()
        head = self.browser.find_element(By.XPATH, "//th[button='Power']")
        for way, first in (("ascending", "room-1"), ("descending", "room-2")):
            head.find_element(By.TAG_NAME, "button").click()
            self.assertEqual((head.get_attribute("aria-sort"), self.run_in_page(order)[0]), (way, first))

    def is_still(self, place, row):
        before = self.run_in_page(place, row)
        time.sleep(0.3)
        return before == self.run_in_page(place, row) and before

    def measure(self, seconds):
        self.browser.execute_cdp_cmd("Performance.enable", {})
        def read():
            metrics = self.browser.execute_cdp_cmd("Performance.getMetrics", {})["metrics"]
            return {metric["name"]: metric["value"] for metric in metrics}
        wait_for("an idle page", lambda: read()["LayoutCount"] == (time.sleep(0.5), read()["LayoutCount"])[1])
        before = read()
        time.sleep(seconds)
        return {name: value - before[name] for name, value in read().items()}


def paths_of(value, path=()):
    for key in value if isinstance(value, dict) else range(len(value)) if isinstance(value, list) else ():
        yield (*path, key)
        yield from paths_of(value[key], (*path, key))


if __name__ == "__main__":
    os.environ["HOME"] = "/tmp"
    try:
        result = unittest.main(argv=[sys.argv[0], "-v", *sys.argv[3:]], exit=False).result
    finally:
        for process in running:
            process.kill()
    sys.exit(not result.wasSuccessful())
