#!/usr/bin/python3
"""Simulates a fleet on one MQTT broker: for each device a connection with the topics that
status_mqtt publishes, as a device has them that has just been started.

    scripts/sandbox bench/fleet.py [--devices N] [--changes N]     measures a broker of its own
    bench/fleet.py --host HOST [--port PORT] [--devices N] [--changes N] [--documents FOLDER]
                                                 feeds a broker that runs, until it is interrupted

--changes is how many documents change a second in the whole fleet. A device comes back as
status_mqtt does: after a wait of up to a limit that doubles from 1 s to 60 s."""
import argparse
import heapq
import json
import os
import pathlib
import random
import selectors
import subprocess
import sys
import tempfile
import time

import paho.mqtt.client as mqtt

ROOT = pathlib.Path(__file__).resolve().parent.parent
NAMES = ("inputs", "usb-host", "ethernet", "power", "outputs")
LONGEST_WAIT = LASTING = 60  # as status_mqtt's
CHANGING_SECONDS = 20


class Device:
    """One simulated device. Its topics are published anew with each connection."""

    def __init__(self, fleet, number):
        self.fleet, self.name = fleet, f"device-{number:05}"
        self.state = dict(fleet.documents)
        self.client, self.limit, self.accepted = None, 0.5, time.monotonic()

    def topic(self, name):
        return f"status/{self.name}/{name}"

    def connect_later(self):
        self.limit = min(2 * self.limit, LONGEST_WAIT)
        self.fleet.connect_later(self, random.uniform(0, self.limit))

    def on_disconnect(self, *_):
        if time.monotonic() >= self.accepted + LASTING:
            self.limit = 0.5
        self.connect_later()

    def connect(self):
        self.client = client = mqtt.Client(self.name, protocol=mqtt.MQTTv5)
        client.will_set(self.topic("availability"), "offline", 1, True)
        client.on_connect = lambda *_: self.publish_all()
        client.on_disconnect = self.on_disconnect
        client.on_socket_open = lambda _, __, sock: self.fleet.poll.register(sock, selectors.EVENT_READ, self)
        client.on_socket_close = lambda _, __, sock: self.fleet.poll.unregister(sock)
        try:
            client.connect(self.fleet.host, self.fleet.port, 60)
        except OSError:
            self.connect_later()

    def publish_all(self):
        self.accepted = time.monotonic()
        for name, value in (*self.state.items(), ("problems", "[]"), ("availability", "online")):
            self.client.publish(self.topic(name), value, 1, True)

    def change(self):
        power = json.loads(self.state["power"])
        power["power"]["measured_power_current_a"] = random.randrange(3000)
        self.state["power"] = json.dumps(power, separators=(",", ":"))
        if self.client.is_connected():
            self.client.publish(self.topic("power"), self.state["power"], 1, True)


class Fleet:
    def __init__(self, options):
        self.host, self.port = options.host, options.port
        self.poll, self.due = selectors.DefaultSelector(), []
        self.documents = {name: json.dumps(json.loads((options.documents / f"{name}.json").read_text()),
                                           separators=(",", ":")) for name in NAMES}
        self.devices = [Device(self, number) for number in range(options.devices)]
        self.pause = 1 / options.changes if options.changes else None
        self.next_change = self.next_care = time.monotonic()
        self.changes = 0

    def connect_later(self, device, wait):
        heapq.heappush(self.due, (time.monotonic() + wait, id(device), device))

    def start(self):
        for number, device in enumerate(self.devices):
            self.connect_later(device, number / 2000)  # as fast as one broker takes them

    def work(self, changing=True):
        """One turn: what has come in, connections and changes that are due."""
        for key, _ in self.poll.select(0.01):
            key.data.client.loop_read()
            key.data.client.loop_write()  # what a callback has queued
        now = time.monotonic()
        while self.due and self.due[0][0] <= now:
            heapq.heappop(self.due)[2].connect()
        while changing and self.pause and self.next_change <= now:
            self.next_change += self.pause
            self.changes += 1
            random.choice(self.devices).change()
        if now >= self.next_care:
            self.next_care = now + 10
            for device in self.devices:
                if device.client and device.client.is_connected():
                    device.client.loop_misc()


class Observer:
    """Subscribes to all topics and knows which of them are as the devices have them."""

    def __init__(self, fleet):
        self.fleet, self.seen = fleet, {}
        self.client = None

    def connect(self):
        self.seen.clear()
        self.client = mqtt.Client("observer", protocol=mqtt.MQTTv5)
        self.client.on_connect = lambda client, *_: client.subscribe("status/#", 0)
        self.client.on_message = lambda _, __, message: self.seen.__setitem__(message.topic, message.payload)
        self.client.on_socket_open = lambda _, __, sock: self.fleet.poll.register(sock, selectors.EVENT_READ, self)
        self.client.on_socket_close = lambda _, __, sock: self.fleet.poll.unregister(sock)
        self.client.connect(self.fleet.host, self.fleet.port, 60)

    def is_right(self):
        if len(self.seen) < 7 * len(self.fleet.devices):
            return False
        return all(self.seen.get(device.topic("availability")) == b"online" and
                   all(self.seen.get(device.topic(name)) == value.encode() for name, value in device.state.items())
                   for device in self.fleet.devices)

    def wait_until_right(self):
        """Seconds until all topics are right."""
        start = next_look = time.monotonic()
        while True:
            self.fleet.work(changing=False)
            if time.monotonic() >= next_look:
                if self.is_right():
                    return time.monotonic() - start
                next_look = time.monotonic() + 0.2


class Broker:
    def __init__(self, port):
        self.folder = tempfile.TemporaryDirectory()
        self.configuration = pathlib.Path(self.folder.name, "mosquitto.conf")
        shipped = (ROOT / "packaging/mosquitto-devices.conf").read_text()
        self.configuration.write_text(f"listener {port} 127.0.0.1\nallow_anonymous true\nlog_type none\n" +
                                      shipped[shipped.index("\npersistence"):])
        self.process = None

    def start(self):
        self.process = subprocess.Popen(["/usr/sbin/mosquitto", "-c", self.configuration])
        while not pathlib.Path(f"/proc/{self.process.pid}/net/tcp").read_text().count(" 0A "):
            time.sleep(0.05)

    def kill(self):
        self.process.kill()
        self.process.wait()

    def processor_seconds(self):
        fields = pathlib.Path(f"/proc/{self.process.pid}/stat").read_text().rsplit(")", 1)[1].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    def resident_megabytes(self):
        status = pathlib.Path(f"/proc/{self.process.pid}/status").read_text()
        return int(status.split("VmRSS:")[1].split()[0]) / 1024


def measure(fleet):
    broker = Broker(fleet.port)
    broker.start()
    observer = Observer(fleet)
    observer.connect()
    fleet.start()
    print(f"{len(fleet.devices)} devices, {7 * len(fleet.devices)} topics")
    print(f"all right after the start: {observer.wait_until_right():.1f} s")
    print(f"broker's memory: {broker.resident_megabytes():.0f} MB")
    used, start = broker.processor_seconds(), time.monotonic()
    fleet.next_change = start
    while time.monotonic() < start + CHANGING_SECONDS:
        fleet.work()
    took = time.monotonic() - start
    print(f"broker's processor: {100 * (broker.processor_seconds() - used) / took:.1f} % of one with "
          f"{fleet.changes / took:.0f} changes a second and one subscriber")
    broker.kill()
    broker.start()
    observer.connect()
    print(f"all right after the broker was killed and started: {observer.wait_until_right():.1f} s")
    broker.kill()


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--host")
    parser.add_argument("--port", type=int, default=1883)
    parser.add_argument("--devices", type=int, default=1000)
    parser.add_argument("--changes", type=float, default=100)
    parser.add_argument("--documents", type=pathlib.Path, default=ROOT / "fuzz/seeds/documents")
    options = parser.parse_args()
    feeds = options.host is not None
    options.host = options.host or "127.0.0.1"
    fleet = Fleet(options)
    if not feeds:
        measure(fleet)
        return
    fleet.start()
    while True:
        fleet.work()


try:
    main()
except KeyboardInterrupt:
    sys.exit(130)
