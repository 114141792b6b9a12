#!/usr/bin/python3
"""Holds status_mqtt against a real broker and the real service, and against what goes wrong
between them.

    scripts/sandbox tests/status_mqtt_test.py FOLDER_OF_THE_EXECUTABLES [CASE...]"""
import fcntl
import json
import os
import pathlib
import re
import signal
import socket
import subprocess
import sys
import threading
import time
import unittest

import jsonschema
import paho.mqtt.client as mqtt

ROOT = pathlib.Path(__file__).resolve().parent.parent
BIN = pathlib.Path(sys.argv.pop(1)).resolve()
STATUS = pathlib.Path("/var/run/status")
NAMES = ("inputs", "usb-host", "ethernet", "power", "outputs")
TOPICS = {*NAMES, "problems", "availability"}
# No privilege is needed, so none is left.
UNPRIVILEGED = ("setpriv", "--no-new-privs", "--inh-caps=-all", "--bounding-set=-all")


def wait_until(what, holds):
    deadline = time.monotonic() + 60
    while not holds():
        if time.monotonic() > deadline:
            raise AssertionError(f"not within a minute: {what() if callable(what) else what}")
        time.sleep(0.005)


def is_open(port):
    with socket.socket() as client:
        return client.connect_ex(("127.0.0.1", port)) == 0


class Process:
    """Runs until it is killed; `output` has what it says on standard error."""

    def __init__(self, *command):
        self.path = pathlib.Path(f"/tmp/{pathlib.Path(command[0]).name}-{time.monotonic_ns()}.log")
        with self.path.open("w") as file:
            self.process = subprocess.Popen(list(map(str, command)), stdout=file, stderr=file)
        self.pid = self.process.pid

    def output(self):
        return self.path.read_text()

    def wait_for(self, text, count=1):
        wait_until(lambda: f"{text!r} in:\n{self.output()}", lambda: self.output().count(text) >= count)

    def end(self, number=signal.SIGKILL):
        self.process.send_signal(number)
        return self.process.wait()


class Broker(Process):
    def __init__(self, port=1883, settings="allow_anonymous true\n"):
        path = pathlib.Path(f"/tmp/mosquitto-{port}.conf")
        path.write_text(f"listener {port} 127.0.0.1\n{settings}" if "listener" not in settings else settings)
        super().__init__("/usr/sbin/mosquitto", "-c", path)
        wait_until("a broker", lambda: is_open(port))


class Publisher(Process):
    """status_mqtt, quick to be back."""

    def __init__(self, *options, device="d1", host="localhost", port=1883, pause="0.05", wait="0.1"):
        super().__init__(*UNPRIVILEGED, BIN / "status_mqtt", "--host", host, "--port", port, "--device", device,
                         "--keepalive", "5", "--pause", pause, "--longest-wait", wait, *options)


class Observer:
    """A subscriber of all topics, from nothing. `messages`: what came, as topic and payload."""

    def __init__(self, port=1883, certificate=None):
        self.messages, self.client = [], mqtt.Client(protocol=mqtt.MQTTv5)
        if certificate:
            self.client.tls_set("/tmp/ca.crt", f"/tmp/{certificate}.crt", f"/tmp/{certificate}.key")
        subscribed = threading.Event()
        self.client.on_connect = lambda client, *_: client.subscribe("#", 1)
        self.client.on_subscribe = lambda *_: subscribed.set()
        self.client.on_message = lambda _, __, one: self.messages.append((one.topic, one.payload.decode()))
        self.client.connect("localhost", port)
        self.client.loop_start()
        if not subscribed.wait(60):
            raise AssertionError("no subscription within a minute")

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


def document(name):
    while True:
        try:
            return json.loads((STATUS / f"{name}.json").read_text())
        except json.JSONDecodeError:
            time.sleep(0.005)  # it is being rewritten


def send(*lines):
    subprocess.run([BIN / "statusctl", "send", "--file", "-"], input="\n".join(lines), text=True, check=True)


def start_service():
    service = Process(BIN / "status_json_service")
    wait_until("a service", lambda: subprocess.run(
        [BIN / "statusctl", "send", "--raw", "00"], capture_output=True, check=False).returncode == 0)
    return service


class Case(unittest.TestCase):
    def setUp(self):
        self.service = self.start(start_service)

    def start(self, kind, *arguments, **options):
        """Starts something that ends with the case."""
        thing = kind(*arguments, **options)
        self.addCleanup(self.finish, thing)
        return thing

    def finish(self, thing):
        if isinstance(thing, Publisher):
            if thing.process.poll() is None:
                thing.end()
            self.assertIn(thing.process.returncode, (-signal.SIGKILL, -signal.SIGTERM), thing.output())
            self.assertRegex(thing.output(), r"^(status_mqtt: .*\n)*$")
        elif isinstance(thing, Process):
            thing.end()
        else:
            thing.close()


class Options(unittest.TestCase):
    def refused(self, *options, prefix=()):
        result = subprocess.run([*prefix, BIN / "status_mqtt", *options], capture_output=True, text=True, timeout=60,
                                check=False)
        self.assertEqual((result.returncode, result.stdout), (2, ""), result)
        self.assertRegex(result.stderr, r"^status_mqtt: .+\n$")
        return result.stderr

    def test_what_is_wrong_is_one_line_and_status_2(self):
        pathlib.Path("/tmp/readable").write_text("x\n")
        host = ("--host", "localhost")
        for options, reason in {
                (): "give --host",
                ("--hosts", "x"): "no option --hosts", ("--hos", "x"): "no option --hos", ("x",): "x is no option",
                ("--host",): "--host needs a value", ("--host", ""): "--host needs a value",
                (*host, *host): "--host is given twice", ("--password", "x"): "no option --password",
                (*host, "--port", "0"): "port is a number from 1 to 65535, not 0",
                (*host, "--port", "1x"): "port is a number", (*host, "--port", ""): "--port needs a value",
                (*host, "--keepalive", "4"): "keepalive is a number from 5 to 65535",
                (*host, "--pause", "-1"): "pause is a number from 0 to", (*host, "--pause", "nan"): "pause",
                (*host, "--longest-wait", "0"): "longest-wait is a number from 0.01 to",
                (*host, "--device", "a/b"): "/+#: a/b", (*host, "--device", "a+"): "device", (*host, "--device", "#"): "device",
                (*host, "--device", "a\nb"): "UTF-8", (*host, "--device", b"\xff"): "UTF-8",
                (*host, "--device", "x" * 256): "at most 255 bytes", (*host, "--prefix", "a/#"): "prefix",
                (*host, "--ca", "/none"): "can't read /none: No such file", (*host, "--ca", "/tmp"): "can't read /tmp: Is a directory",
                (*host, "--ca", "/tmp/readable", "--key", "/tmp/readable"): "key needs cert",
                (*host, "--ca", "/tmp/readable", "--cert", "/tmp/readable"): "cert needs key",
                (*host, "--cert", "/tmp/readable", "--key", "/tmp/readable"): "cert needs ca",
                (*host, "--user", "x", "--password-file", "/none"): "password-file: can't read /none",
                (*host, "--password-file", "/tmp/readable"): "password-file needs user"}.items():
            with self.subTest(options):
                self.assertIn(reason, self.refused(*options))

    def test_the_file_has_the_same_options_and_the_command_line_wins(self):
        layer = pathlib.Path("/tmp/etc")
        layer.mkdir()
        with_file = ("unshare", "--mount", "sh", "-c",
                     f"mount -t overlay -o lowerdir={layer}:/etc etc /etc && exec \"$@\"", "sh")
        for text, reason in {"# only\n\n": "give --host", "host": "conf:1: host needs a value",
                             "\nhosts x": "conf:2: there is no option hosts",
                             "host x\nhost y": "conf:2: host is there twice", "help x": "no option help",
                             "  host  localhost \nport 99999\n": "not 99999"}.items():
            with self.subTest(text):
                (layer / "status_mqtt.conf").write_text(text)
                self.assertIn(reason, self.refused(prefix=with_file))
        self.assertIn("not 7x", self.refused("--port", "7x", prefix=with_file))


class Publishing(Case):
    def test_the_whole_state_and_then_what_changes(self):
        publisher = self.start(Publisher)
        publisher.wait_for("localhost:1883: Connection refused")
        self.start(Broker)
        observer = self.start(Observer)
        observer.wait_until_right()
        self.assertEqual(observer.messages[-1], ("status/d1/availability", "online"))
        self.assertEqual(publisher.output().count("Connection refused"), 1)
        late = self.start(Observer)
        late.wait_until_right()  # all is retained
        send("link_status port=USB-C isConnect=1", "power_status Adapter")
        wait_until("the service", lambda: document("power")["power"]["power_source"] == "Adapter")
        observer.wait_until_right()  # inputs too, whose event it may not hear
        for name in NAMES:
            schema = json.loads((ROOT / f"schemas/{name}.schema.json").read_text())
            jsonschema.Draft7Validator(schema).validate(json.loads(late.state()[name]))

        del observer.messages[:]
        start = time.monotonic()
        send(*(f"power_v_value {number}" for number in range(1, 2001)))
        while document("power")["power"]["measured_power_current_a"] != 2001:
            send("power_v_value 2001")  # the service may have dropped what came too fast
        wait_until("the last change", lambda: '_a":2001' in observer.state().get("power", ""))
        self.assertLessEqual(len(observer.messages), (time.monotonic() - start) / 0.05 + 2)
        self.assertEqual({topic for topic, _ in observer.messages}, {"status/d1/power"})

    def test_blanks_go_from_between_values_only(self):
        self.start(Broker)
        text = '{"a b" : [ 1,\n\t"c  \\" d", "\\\\" , true ] }\n'
        (STATUS / "power.json").write_text(text)
        self.start(Publisher)
        self.start(Observer).wait_for("power", r'{"a b":[1,"c  \" d","\\",true]}')

    def test_documents_that_cannot_be_read(self):
        self.start(Broker)
        self.start(Publisher)
        observer = self.start(Observer)
        observer.wait_until_right()
        good = observer.state()
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
        self.service.end()
        self.start(start_service)
        observer.wait_until_right()
        observer.wait_until_right("d2")


class Connections(Case):
    def test_a_broker_that_forgets_is_right_again(self):
        broker = self.start(Broker)
        publisher = self.start(Publisher)
        self.start(Observer).wait_until_right()
        broker.end()
        send("power_status Adapter")
        publisher.wait_for("localhost:1883: The connection was lost.")
        send("ethernet_control 4 on 1")
        self.start(Broker)
        self.start(Observer).wait_until_right()

    def test_two_of_one_name(self):
        self.start(Broker)
        twins = [self.start(Publisher, wait="60") for _ in range(2)]
        for twin in twins:
            twin.wait_for("does another device have the name d1?")
        start = time.monotonic()
        wait_until("some attempts", lambda: time.monotonic() > start + 3)
        self.assertLess(sum(twin.output().count("connected as") for twin in twins), 20)

    def test_a_password(self):
        subprocess.run(["mosquitto_passwd", "-b", "-c", "/tmp/passwords", "d1", "right"], check=True, capture_output=True)
        self.start(Broker, settings="user root\nallow_anonymous false\npassword_file /tmp/passwords\n")
        for password, line in (("wrong", "the broker refuses the connection: Not authorized"), ("right", "connected as d1")):
            pathlib.Path(f"/tmp/{password}").write_text(password + "\n")
            publisher = self.start(Publisher, "--user", "d1", "--password-file", f"/tmp/{password}")
            publisher.wait_for(line)

    def test_reconnections_keep_nothing(self):
        listener = self.start(socket.create_server, ("127.0.0.1", 1883))
        publisher = self.start(Publisher, wait="0.01")

        def connect():
            connection = listener.accept()[0]
            connection.recv(1000)
            connection.send(b"\x20\x03\0\0\0")  # accepted
            connection.recv(1000)  # a first message
            return connection

        def reconnect(count):
            """What the publisher holds in the connection behind that many."""
            for _ in range(count):
                connect().close()
            with connect():
                fewest = 1000  # but for a document that it has open for a moment
                for _ in range(50):
                    fewest = min(fewest, len(os.listdir(f"/proc/{publisher.pid}/fd")))
                    time.sleep(0.002)
                status = pathlib.Path(f"/proc/{publisher.pid}/status").read_text()
                return fewest, int(re.search(r"RssAnon:\s+(\d+)", status)[1])

        descriptors, kilobytes = reconnect(50)
        after = reconnect(300)
        self.assertEqual(after[0], descriptors)
        if "SANITIZED" not in os.environ:
            self.assertLess(after[1], kilobytes + 200)


class Ends(Case):
    def test_ends_and_silence(self):
        self.start(Broker)
        ends = {signal.SIGKILL: "d1", signal.SIGTERM: "d2", signal.SIGSTOP: "d3"}
        publishers = {number: self.start(Publisher, device=device) for number, device in ends.items()}
        silent = self.start(socket.create_server, ("127.0.0.1", 1900))
        waiting = self.start(Publisher, device="d4", port=1900)
        observer = self.start(Observer)
        for number, device in ends.items():
            observer.wait_until_right(device)
            publishers[number].process.send_signal(number)
        for device in ends.values():
            observer.wait_for("availability", "offline", device)
        publishers[signal.SIGSTOP].process.send_signal(signal.SIGCONT)
        observer.wait_for("availability", "online", "d3")
        waiting.wait_for("localhost:1900: no answer")
        silent.close()
        self.start(Broker, 1900)
        self.start(Observer, 1900).wait_until_right("d4")


def make_certificate(name, subject, issuer="ca", days=1, extension="subjectAltName=DNS:localhost"):
    """By an authority; by itself where that is its own name."""
    def openssl(*arguments):
        subprocess.run(["openssl", *arguments], check=True, capture_output=True, cwd="/tmp")
    openssl("req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-keyout", f"{name}.key",
            "-out", f"{name}.csr", "-subj", f"/CN={subject}", "-addext", extension)
    by = ("-signkey", f"{name}.key") if issuer == name else ("-CA", f"{issuer}.crt", "-CAkey", f"{issuer}.key")
    openssl("x509", "-req", "-in", f"{name}.csr", "-out", f"{name}.crt", *by, "-days", str(days),
            "-copy_extensions", "copy")


class Certificates(Case):
    def test_the_example_of_a_broker(self):
        for name in ("ca", "foreign"):
            make_certificate(name, name, name, extension="basicConstraints=critical,CA:true")
        make_certificate("broker", "broker")
        make_certificate("expired", "broker", days=-1)
        for name in ("d1", "operator"):
            make_certificate(name, name)
        example = (ROOT / "packaging/mosquitto-devices.conf").read_text()
        for port, certificate in ((8883, "broker"), (8884, "expired")):
            text = re.sub(r"(?m)^(\w+file) .*/(.*)$", lambda line: f"{line[1]} /tmp/{line[2]}", example)
            text = text.replace("fleet-ca.crt", "ca.crt").replace("8883", str(port))
            text = text.replace("broker.", f"{certificate}.").replace("/tmp/mosq", f"{ROOT}/packaging/mosq")
            self.start(Broker, port, settings=f"user root\n{text}")
        own = ("--ca", "/tmp/ca.crt", "--cert", "/tmp/d1.crt", "--key", "/tmp/d1.key")
        self.start(Publisher, *own, port=8883)
        observer = self.start(Observer, 8883, "operator")
        observer.wait_until_right()
        other = self.start(Publisher, *own, device="d2", port=8883)
        other.wait_for("status/d2/inputs: the broker refuses it: Not authorized")
        self.assertEqual(observer.state("d2"), {})
        verify = "certificate verify failed: "
        for options, host, port, reason in (
                (("--ca", "/tmp/foreign.crt"), "localhost", 8883, verify + "self-signed certificate in certificate chain"),
                (own, "localhost", 8884, verify + "certificate has expired"),
                (own, "127.0.0.1", 8883, "host name verification failed"),
                (("--ca", "/tmp/ca.crt"), "localhost", 8883, "certificate required")):
            with self.subTest(reason):
                self.start(Publisher, *options, device="d3", host=host, port=port).wait_for(reason)


if __name__ == "__main__":
    unittest.main(verbosity=2, warnings="ignore")
