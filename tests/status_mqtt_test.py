#!/usr/bin/python3 -B
"""Holds status_mqtt against a real broker and the real service, and against what goes wrong
between them.

    scripts/sandbox tests/status_mqtt_test.py FOLDER_OF_THE_EXECUTABLES [CASE...]"""
import fcntl
import json
import pathlib
import re
import shlex
import signal
import socket
import subprocess
import time
import unittest

import paho.mqtt.client as mqtt

from programs import BIN, NAMES, Broker, Publisher, Service, document, send, shipped, wait_until

STATUS = pathlib.Path("/var/run/status")
TOPICS = {*NAMES, "problems", "availability"}


class Observer:
    """A subscriber of all topics, from nothing. `messages`: what came, as topic and payload."""

    def __init__(self, port=1883, certificate=None):
        self.messages, self.client = [], mqtt.Client(protocol=mqtt.MQTTv5)
        if certificate:
            self.client.tls_set("/tmp/fleet-ca.crt", f"/tmp/{certificate}.crt", f"/tmp/{certificate}.key")
        self.client.on_message = lambda _, __, one: self.messages.append((one.topic, one.payload.decode()))
        self.client.connect("localhost", port)
        self.client.subscribe("#", 1)
        self.client.loop_start()

    def close(self):
        self.client.disconnect()
        self.client.loop_stop()

    def state(self, device="d1"):
        return {topic.split("/")[2]: payload for topic, payload in self.messages[:]
                if topic.startswith(f"status/{device}/")}

    def wait_for(self, name, payload, device="d1"):
        wait_until(lambda: f"{name} {payload}, but {self.state(device)}",
                   lambda: self.state(device).get(name) == payload)

    def wait_until_right(self, device="d1"):
        """All topics are there, and the documents as they are in their files."""
        def is_right():
            state = self.state(device)
            return set(state) == TOPICS and state["availability"] == "online" and state["problems"] == "[]" and all(
                json.loads(state[name]) == document(name) for name in NAMES)
        wait_until(lambda: f"all topics right: {self.state(device)}", is_right)


class Case(unittest.TestCase):
    def setUp(self):
        self.service = self.start(Service)

    def start(self, kind, *arguments, **options):
        """Starts something that ends with the case."""
        thing = kind(*arguments, **options)
        self.addCleanup(self.finish, thing)
        return thing

    def finish(self, thing):
        thing.close()
        if isinstance(thing, Publisher):
            self.assertIn(thing.returncode, (-signal.SIGKILL, -signal.SIGTERM), thing.output())
            self.assertRegex(thing.output(), r"^(status_mqtt: .*\n)*$")


class Options(unittest.TestCase):
    def test_what_is_wrong_is_one_line_and_status_2(self):
        layer = pathlib.Path("/tmp/etc")
        layer.mkdir()
        with_file = ("unshare", "--mount", "sh", "-c",
                     f"mount -t overlay -o lowerdir={layer}:/etc etc /etc && exec \"$@\"", "sh")
        for options, reason, *file in (
                ("", "give --host"),
                ("--hos x", "no option --hos"),
                ("x", "x is no option"),
                ("--host", "--host needs a value"),
                ("--host ''", "--host needs a value"),
                ("--host a --host b", "--host is given twice"),
                ("--host a --port 0", "port is a number from 1 to 65535, not 0"),
                ("--host a --keepalive 4", "keepalive is a number from 5 to 65535"),
                ("--host a --pause nan", "pause is a number from 0 to 86400, not nan"),
                ("--host a --longest-wait 0", "longest-wait is a number from 0.01 to"),
                ("--host a --device a/b", "/+#: a/b"),
                ("--host a --device 'a\nb'", "UTF-8"),
                (f"--host a --device {'x' * 256}", "at most 255 bytes"),
                ("--host a --prefix a/#", "none of +#: a/#"),
                ("--host a --ca /none", "ca: can't read /none: No such file"),
                ("--host a --ca /tmp", "can't read /tmp: Is a directory"),
                ("--host a --ca /dev/null --key /dev/null", "key needs cert"),
                ("--host a --ca /dev/null --cert /dev/null", "cert needs key"),
                ("--host a --cert /dev/null --key /dev/null", "cert needs ca"),
                ("--host a --password-file /dev/null", "password-file needs user"),
                # The file has the same options, and the command line wins.
                ("", "give --host", "# only\n\n"),
                ("", "conf:1: host needs a value", "host"),
                ("", "conf:2: there is no option hosts", "\nhosts x"),
                ("", "conf:2: host is there twice", "host x\nhost y"),
                ("", "no option help", "help x"),
                ("", "not 99999", "  host  localhost \nport 99999\n"),
                ("--port 7x", "not 7x", "host localhost\nport 99999\n")):
            with self.subTest(options=options, file=file):
                (layer / "status_mqtt.conf").write_text("".join(file))
                result = subprocess.run([*with_file, BIN / "status_mqtt", *shlex.split(options)],
                                        capture_output=True, text=True, timeout=60, check=False)
                self.assertEqual((result.returncode, result.stdout), (2, ""), result)
                self.assertRegex(result.stderr, r"^status_mqtt: .+\n$")
                self.assertIn(reason, result.stderr)


class Publishing(Case):
    def test_the_whole_state_and_then_what_changes(self):
        self.start(Publisher).wait_for("localhost:1883: Connection refused")
        self.start(Broker)
        observer = self.start(Observer)
        observer.wait_until_right()
        self.assertEqual(observer.messages[-1], ("status/d1/availability", "online"))
        self.start(Observer).wait_until_right()  # all is retained
        send("link_status port=USB-C isConnect=1", "power_status Adapter")
        wait_until("the service", lambda: document("power")["power"]["power_source"] == "Adapter")
        observer.wait_until_right()  # inputs too, whose event it may not hear

        del observer.messages[:]
        start = time.monotonic()
        send(*(f"power_v_value {number}" for number in range(1, 2001)))
        while document("power")["power"]["measured_power_current_a"] != 2001:
            send("power_v_value 2001")  # the service may have dropped what came too fast
        wait_until("the last change", lambda: '_a":2001' in observer.state().get("power", ""))
        self.assertLessEqual(len(observer.messages), (time.monotonic() - start) / 0.05 + 2)
        self.assertEqual({topic for topic, _ in observer.messages}, {"status/d1/power"})

    def test_documents_that_are_not_as_the_service_writes_them(self):
        # Blanks go from between values only.
        (STATUS / "power.json").write_text('{"a b" : [ 1,\n\t"c  \\" d", "\\\\" , true ] }\n')
        self.start(Broker)
        self.start(Publisher)
        observer = self.start(Observer)
        observer.wait_until_right()
        good = observer.state()
        self.assertEqual(good["power"], r'{"a b":[1,"c  \" d","\\",true]}')

        (STATUS / "inputs.json").write_text("")
        (STATUS / "power.json").write_text('{"power": {')
        (STATUS / "ethernet.json").unlink()
        with open(STATUS / "outputs.json") as locked:
            fcntl.flock(locked, fcntl.LOCK_EX)
            with open(STATUS / "outputs.json", "a"):
                pass  # closed by a writer, as far as can be seen
            problems = ('["inputs.json: empty","ethernet.json: No such file or directory","power.json: damaged",'
                        '"outputs.json: locked by another process"]')
            observer.wait_for("problems", problems)
        observer.wait_for("problems", problems.replace(',"outputs.json: locked by another process"', ""))
        self.assertEqual(observer.state() | {"problems": "[]"}, good)
        # A publisher that starts meanwhile says so too, and nothing of what it has not read.
        self.start(Publisher, device="d2")
        observer.wait_for("availability", "online", "d2")
        self.assertEqual(set(observer.state("d2")), TOPICS - {"inputs", "ethernet", "power"})
        for file in STATUS.iterdir():
            file.unlink()
        STATUS.rmdir()
        self.service.close()
        self.start(Service)
        observer.wait_until_right()
        observer.wait_until_right("d2")


class Connections(Case):
    def test_many_in_a_row(self):
        """The broker is a stand-in. No wait lasts, but strace lists them."""
        listener = self.start(socket.create_server, ("127.0.0.1", 1883))
        publisher = self.start(Publisher, wait="60", under=(
            "strace", "-D", "-qq", "-o", "/tmp/waits", "-e", "inject=clock_nanosleep:retval=0"))

        process = pathlib.Path(f"/proc/{publisher.pid}")

        def connect(count, farewell=b""):
            """Accepts that many, each until all is published. Gives the publisher's descriptors and pages then."""
            for _ in range(count):
                with listener.accept()[0] as connection:
                    # MQTT 5, from nothing, with a will of QoS 1 that is retained, and the keepalive.
                    self.assertIn(b"\0\4MQTT\5\x2e\2\x58", connection.recv(1000))
                    connection.send(b"\x20\x03\0\0\0")  # accepted
                    received = b""
                    while b"online" not in received:
                        received += connection.recv(100000) or self.fail("not all is published")
                    connection.send(farewell)
                    held = len(list((process / "fd").iterdir())), int((process / "statm").read_text().split()[5])
            return held

        before, after = connect(30), connect(200)
        self.assertLessEqual(after[0], before[0] + 1)  # which may be a document that it has open for a moment
        if "san.so" not in (process / "maps").read_text():  # sanitizers keep what is freed
            self.assertLess(after[1], before[1] + 50)
        for farewell, line in (
                (b"", "localhost:1883: The connection was lost."),
                (b"\xe0\2\x8b\0", "the broker ends the connection: Server shutting down"),
                (b"\xe0\2\x8e\0", "another client has the name d1: each device needs a name of its own")):
            connect(1, farewell)
            publisher.wait_for(line)
        listener.close()

        def waits():
            calls = pathlib.Path("/tmp/waits").read_text()
            return [int(seconds) for seconds in re.findall(r"REALTIME, 0, {tv_sec=(\d+)", calls)]
        wait_until("more attempts", lambda: len(waits()) > 300)
        self.assertEqual(publisher.output().count("Connection refused"), 1)
        for number, wait in enumerate(waits()):
            self.assertLessEqual(wait, min(4 * 2**number, 60))  # as a wait of 0 is none, and not in the list
        self.assertLess(min(waits()[6:]), 20)
        self.assertGreater(max(waits()), 40)

    def test_passwords_and_two_of_one_name(self):
        subprocess.run(["mosquitto_passwd", "-b", "-c", "/tmp/passwords", "d1", "right"], check=True)
        self.start(Broker, "listener 1883 127.0.0.1\npassword_file /tmp/passwords")
        for password, line in (("wrong", "the broker refuses the connection: Not authorized"), ("right", "connected as d1"),
                               ("right", "; once more within a minute: does another device have the name d1?")):
            pathlib.Path("/tmp/password").write_text(f"{password}\n")
            self.start(Publisher, "--user", "d1", "--password-file", "/tmp/password").wait_for(line)


class Ends(Case):
    def test_of_publishers_and_brokers(self):
        silent = self.start(socket.create_server, ("127.0.0.1", 1900))
        waiting = self.start(Publisher, device="d4", port=1900, keepalive=5)
        broker = self.start(Broker)
        observer = self.start(Observer)
        for device, number in (("d1", signal.SIGKILL), ("d2", signal.SIGTERM)):
            publisher = self.start(Publisher, device=device)
            observer.wait_until_right(device)
            publisher.send_signal(number)
            observer.wait_for("availability", "offline", device)

        publisher = self.start(Publisher, device="d3")
        observer.wait_until_right("d3")
        broker.close()
        send("power_status Adapter")
        publisher.wait_for("localhost:1883: Connection refused")
        send("ethernet_control 4 on 1")
        self.start(Broker)  # which knows nothing
        self.start(Observer).wait_until_right("d3")

        waiting.wait_for("localhost:1900: no answer")  # after its keepalive
        self.assertNotIn("connected", waiting.output())
        silent.close()
        self.start(Broker, "listener 1900 127.0.0.1\nallow_anonymous true")
        self.start(Observer, 1900).wait_until_right("d4")


def make_certificate(name, *issuer):
    """An authority's own without an issuer."""
    subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes",
                    "-keyout", f"{name}.key", "-out", f"{name}.crt", "-subj", f"/CN={name}",
                    "-addext", "subjectAltName=DNS:localhost", *issuer], check=True, capture_output=True, cwd="/tmp")


class Certificates(Case):
    def test_the_example_of_a_broker(self):
        for authority in ("fleet-ca", "foreign"):
            make_certificate(authority)
        for name in ("broker", "d1", "operator"):
            make_certificate(name, "-CA", "fleet-ca.crt", "-CAkey", "fleet-ca.key")
        self.start(Broker, shipped("devices"))
        own = ("--ca", "/tmp/fleet-ca.crt", "--cert", "/tmp/d1.crt", "--key", "/tmp/d1.key")
        self.start(Publisher, *own, port=8883)
        observer = self.start(Observer, 8883, "operator")
        observer.wait_until_right()
        other = self.start(Publisher, *own, device="d2", port=8883)
        other.wait_for("status/d2/inputs: the broker refuses it: Not authorized")
        self.assertEqual(observer.state("d2"), {})
        for options, host, reason in (
                (("--ca", "/tmp/foreign.crt"), "localhost",
                 "certificate verify failed: self-signed certificate in certificate chain"),
                (own, "127.0.0.1", "host name verification failed"),
                (own[:2], "localhost", "certificate required")):
            self.start(Publisher, *options, device="d3", host=host, port=8883).wait_for(reason)


if __name__ == "__main__":
    socket.setdefaulttimeout(60)
    unittest.main(verbosity=2, warnings="ignore")
