"""Drives the service through the codes of all messages and keeps every text that its documents
had: what the schemas and the manuals are held against. For a sandbox."""
import collections
import functools
import itertools
import json
import os
import pathlib
import re
import shlex
import shutil
import socket
import struct
import subprocess
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
Message = collections.namedtuple("Message", "name number record items words")
Field = collections.namedtuple("Field", "name format comment position")
FORMATS = {"uint8_t": "B", "uint16_t": "H", "uint32_t": "I", "int32_t": "i", "char": "s"}
LIMITS = {"B": (255,), "H": (65535,), "I": (2**32 - 1,), "i": (-(2**31), 2**31 - 1)}
NUMBERS = (0, 1, 2, 3, 4, 10, 240)  # the least and the highest frame rate are among them


def source(path):
    return (ROOT / path).read_text(encoding="utf-8")


def listed_messages(listing):
    """The messages that `statusctl send --list` shows, with the words of their fields by code."""
    messages = []
    for line in listing.splitlines():
        if line.startswith("MSG_TYPE_"):
            name, number, items = re.match(r"(\w+) \((\d+)\)(?:, a text: (.*))?", line).groups()
            record = re.search(rf"{{{name}, +sizeof\((\w+)\)", source("core/dispatch.cpp"))
            messages.append(Message(name, int(number), record and record[1], items or "", {}))
        else:
            name, words = re.match(r" +(\w+) +(?:text, \d+ bytes|\w+) *(.*)", line).groups()
            rows = re.findall(r"(?:(\d+) )?([^,]+)(?:, |$)", words.strip())
            messages[-1].words[name] = {int(code) if code else word: word for code, word in rows}
    return messages


@functools.cache
def fields_of(record):
    """The fields of a record of messages.h, those of a record inside it among them."""
    header = source("core/messages.h")
    body = re.search(rf"struct [^;]* {record} {{(.*?)}} {record};", header, re.S)
    fields = []
    for field in re.finditer(r"(\w+) (\w+)(?:\[(\d+)\])?;(?: */\* (.*?) \*/)?", body[1]):
        kind, name, size, comment = field.groups()
        if kind in FORMATS:
            form = (size or "") + ("s" if size else FORMATS[kind])
            fields.append(Field(name, form, comment or "",
                                body.start(1) + field.start()))
        else:
            fields += fields_of(kind)
    return fields


class Sweep:
    """`texts`: the parsed texts of each document; `changes`: the documents that each message has
    changed; `emptied`: the documents after all links went down. The log must go to standard error: its lines tell when a message is done."""

    def __init__(self, service, messages, documents, timing_path, ports_path):
        self.messages = {message.name: message for message in messages}
        self.documents, self.ports_path = documents, ports_path
        self.texts = collections.defaultdict(dict)
        self.changes = collections.defaultdict(set)
        self.last, self.is_lost = {}, False
        self.emptied = {}
        shutil.copy(ROOT / "scenarios/timing_info", timing_path)
        self.service = subprocess.Popen([service], stderr=subprocess.PIPE)
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        while not os.path.exists("/tmp/json_app.sock"):
            time.sleep(0.01)
        self.look("start")
        lines = (shlex.split(line, comments=True) or [""]
                 for line in source("scenarios/device-day.scenario").splitlines())
        # The usual fields of a record are those of the longest line that sends one.
        self.usual = {f"MSG_TYPE_{name.upper()}": dict(item.split("=") for item in items)
                      for name, *items in sorted(lines, key=len) if "=" in "".join(items)}

        for power, self.is_lost in itertools.product((b"0", b"1"), (False, True)):
            for message in messages:
                self.send("MSG_TYPE_USB_HOST_IN2", b"1")
                self.send("MSG_TYPE_POWER_STATUS", power)
                for record, port in itertools.product((m for m in messages if m.record), (1, 0)):
                    self.send_record(record, port=port)
                    self.send_record(self.messages["MSG_TYPE_LINK_STATUS"], port=port, isConnect=1)
                self.sweep(message)
            if not self.emptied:
                for port in (1, 0):
                    self.send_record(self.messages["MSG_TYPE_LINK_STATUS"], port=port, isConnect=0)
                self.emptied = {name: json.loads(text) for name, text in self.last.items()}
        self.service.kill()

    def look(self, message):
        for name, path in self.documents.items():
            text = pathlib.Path(path).read_text() if os.path.exists(path) else None
            if text is not None and self.last.get(name) != text:
                self.texts[name].setdefault(text, json.loads(text))
                self.changes[message].add(name)
            self.last[name] = text

    def send(self, message, payload):
        if self.is_lost:
            for path in self.documents.values():
                pathlib.Path(path).unlink(missing_ok=True)
        # No message has type 0; once its line is in the log, the message before it is done.
        for number, text in ((self.messages[message].number, payload), (0, b"")):
            self.socket.sendto(struct.pack("=II", number, len(text)) + text, "/tmp/json_app.sock")
        while b"Unknown message type 0 " not in self.service.stderr.readline():
            pass
        self.look(message)

    def send_record(self, message, **values):
        numbers = []
        fields = fields_of(message.record)
        for field in fields:
            is_text = field.format.endswith("s")
            usual = self.usual.get(message.name, {}).get(field.name, "" if is_text else 0)
            value = values.get(field.name, usual)
            codes = {word: code for code, word in message.words.get(field.name, {}).items()}
            if isinstance(value, str):
                value = value.encode() if is_text else int(str(codes.get(value, value)), 0)
            numbers.append(value)
        self.send(message.name, struct.pack("=" + "".join(f.format for f in fields), *numbers))

    def sweep(self, message):
        if message.record:
            for port, field in itertools.product((1, 0), fields_of(message.record)):
                words = message.words.get(field.name, {})
                codes = {*NUMBERS, *words, *LIMITS.get(field.format, ())}
                for code in ("", "Text") if field.format.endswith("s") else codes:
                    self.send_record(message, **{"port": port, field.name: code})
        elif message.words:
            choices = (words or NUMBERS + LIMITS["i"] for words in message.words.values())
            for items in itertools.product(*choices):
                self.send(message.name, " ".join(map(str, items)).encode())
        else:
            for port in itertools.product((0, 1), range(4), range(3)):
                pathlib.Path(self.ports_path).write_text(("%d %d %d\n" % port) * 4)
                self.send(message.name, b"")
