"""The programs that the tests of status_mqtt and of the page run, in a sandbox. The first argument is
the folder of the executables."""
import json
import pathlib
import re
import socket
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
BIN = pathlib.Path(sys.argv.pop(1)).resolve()
NAMES = ("inputs", "usb-host", "ethernet", "power", "outputs")


def wait_until(what, holds):
    """Gives what `holds` gives at last. `what` names it, or is a function that says how things are."""
    deadline = time.monotonic() + 60
    while not (found := holds()):
        if time.monotonic() > deadline:
            raise AssertionError(f"not within a minute: {what() if callable(what) else what}")
        time.sleep(0.005)
    return found


class Process(subprocess.Popen):
    """Runs until it is killed; `output` has what it says."""

    def __init__(self, *command):
        self.log = pathlib.Path(f"/tmp/{time.monotonic_ns()}.log")
        with self.log.open("w") as file:
            super().__init__(list(map(str, command)), stdout=file, stderr=file)

    def output(self):
        return self.log.read_text()

    def wait_for(self, text):
        wait_until(lambda: f"{text!r} in:\n{self.output()}", lambda: text in self.output())

    def close(self):
        self.kill()
        self.wait()


def shipped(name):
    """A broker's configuration as it is shipped, but with certificates and passwords in /tmp."""
    text = (ROOT / f"packaging/mosquitto-{name}.conf").read_text()
    text = re.sub(r"/etc/mosquitto/(\S+\.acl)", rf"{ROOT}/packaging/\1", text)
    return re.sub("/etc/mosquitto(/certs)?", "/tmp", text).replace("/usr/share/status_json_page", f"{ROOT}/page")


class Broker(Process):
    def __init__(self, settings="listener 1883 127.0.0.1\nallow_anonymous true"):
        ports = [int(port) for port in re.findall(r"(?m)^listener (\d+)", settings)]
        path = pathlib.Path(f"/tmp/mosquitto-{ports[0]}.conf")
        path.write_text(f"{settings}\nuser root\n")
        super().__init__("/usr/sbin/mosquitto", "-c", path)

        def is_open(port):
            with socket.socket() as client:
                return client.connect_ex(("127.0.0.1", port)) == 0
        wait_until(self.output, lambda: all(map(is_open, ports)))


class Service(Process):
    def __init__(self):
        super().__init__(BIN / "status_json_service")
        wait_until(self.output, lambda: subprocess.run(
            [BIN / "statusctl", "send", "--raw", "00"], capture_output=True, check=False).returncode == 0)


class Publisher(Process):
    """status_mqtt, quick to be back, and never woken by its keepalive before a test gives up. No
    privilege is needed, so none is left."""

    def __init__(self, *options, device="d1", host="localhost", port=1883, keepalive=600, wait="0.1", under=()):
        super().__init__(*under, "setpriv", "--no-new-privs", "--inh-caps=-all", "--bounding-set=-all",
                         BIN / "status_mqtt", "--host", host, "--port", port, "--device", device,
                         "--keepalive", keepalive, "--pause", "0.05", "--longest-wait", wait, *options)


def document(name):
    return json.loads(subprocess.check_output([BIN / "statusctl", "get", name]))


def send(*lines):
    subprocess.run([BIN / "statusctl", "send", "--file", "-"], input="\n".join(lines), text=True, check=True)
