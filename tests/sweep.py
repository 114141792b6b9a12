"""Drives the service through the codes of all messages and keeps every text that its documents
had: what the schemas and the manuals are held against. For a sandbox."""
import collections
import itertools
import json
import os
import pathlib
import re
import shutil
import socket
import subprocess
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
SOCKET = "/tmp/json_app.sock"
# `command` is its name for statusctl, `fields` has the kind and the words by code of each field or item.
Message = collections.namedtuple("Message", "name command number record items fields")
NUMBERS = (0, 1, 2, 3, 4, 10, 240)  # the least and the highest frame rate are among them
# Makes a timing valid. All other fields are 1, so that members come to say other than their default.
VALID = {"scan_mode": 0, "pixel_clock": 74250000, "h_total_pixels": 1650, "h_active_pixels": 1280,
         "v_total_pixels": 750, "v_active_pixels": 720, "v_sync_frequency_hz": 60}
LIMITS = {"uint8": (255,), "uint16": (65535,), "uint32": (2**32 - 1,), "int32": (-(2**31), 2**31 - 1)}


def source(path):
    return (ROOT / path).read_text(encoding="utf-8")


def listed_messages(listing):
    """The messages that `statusctl send --list` shows."""
    messages = []
    for line in listing.splitlines():
        if line.startswith("MSG_TYPE_"):
            name, command, number, items = re.match(r"(MSG_TYPE_(\w+)) \((\d+)\)(?:, a text: (.*))?", line).groups()
            record = re.search(rf"{{{name}, +sizeof\((\w+)\)", source("core/dispatch.cpp"))
            messages.append(Message(name, command.lower(), int(number), record and record[1], items or "", {}))
        else:
            name, kind, words = re.match(r" +(\w+) +(text|\w+)(?:, \d+ bytes)? *(.*)", line).groups()
            rows = re.findall(r"(?:(\d+) )?([^,]+)(?:, |$)", words.strip())
            messages[-1].fields[name] = kind, {code or word: word for code, word in rows}
    return messages


def lines_of(message):
    """Lines for statusctl: each code of each field of a record, each combination of a text's items."""
    if message.record:
        for port, (name, (kind, words)) in itertools.product((1, 0), message.fields.items()):
            for code in ("", "Text") if kind == "text" else {*NUMBERS, *map(int, words), *LIMITS[kind]}:
                yield record_line(message, **{"port": port, name: code})
    elif message.items:
        choices = (words or NUMBERS + LIMITS["int32"] for _, words in message.fields.values())
        for items in itertools.product(*choices):
            yield " ".join(map(str, (message.command, *items)))
    else:
        for ports in itertools.product((0, 1), range(4), range(3)):
            yield "ports %d %d %d" % ports
            yield message.command


def record_line(message, **values):
    values = {**dict.fromkeys(message.fields, 1), **VALID, **values}
    return " ".join([message.command] + [f'{name}="{values[name]}"' for name in message.fields])


def datagrams_of(lines, statusctl):
    """What statusctl sends for the lines, by line."""
    messages = [line for line in lines if not line.startswith("ports ")]
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as receiver:
        receiver.bind(SOCKET)
        receiver.settimeout(20)
        with subprocess.Popen([statusctl, "send", "--file", "-"], stdin=subprocess.PIPE,
                              stderr=subprocess.DEVNULL, text=True) as sender:
            sender.stdin.write("\n".join(messages))
            sender.stdin.close()
            datagrams = {line: receiver.recv(2048) for line in messages}
    os.unlink(SOCKET)
    return datagrams


def sweep(programs, messages, documents, timing_path, ports_path):
    """Gives the parsed texts of each document, the documents that each message has changed, and the
    documents after all links went down. The log must go to standard error."""
    texts, changes, last = collections.defaultdict(dict), collections.defaultdict(set), {}
    links_up, links_down = ([f"link_status port={port} isConnect={state}" for port in (1, 0)] for state in (1, 0))
    filled = [line for message in messages if message.record for port, link in zip((1, 0), links_up)
              for line in (record_line(message, port=port), link)]
    steps = {power: [line for message in messages for line in
                     ("usb_host_in2 1", f"power_status {power}", *filled, *lines_of(message))] for power in (0, 1)}
    datagrams = datagrams_of({*steps[0], *steps[1], *links_down}, programs / "statusctl")
    shutil.copy(ROOT / "scenarios/timing_info", timing_path)
    service = subprocess.Popen([programs / "status_json_service"], stderr=subprocess.PIPE)
    sender = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)

    def look(command):
        for name, path in documents.items():
            text = pathlib.Path(path).read_text() if os.path.exists(path) else None
            if text is not None and last.get(name) != text:
                texts[name].setdefault(text, json.loads(text))
                changes[command].add(name)
            last[name] = text

    def play(lines, is_lost=False):
        """Sends the lines; a document that `is_lost` is not there when a message comes."""
        for line in lines:
            if line.startswith("ports "):
                pathlib.Path(ports_path).write_text(f"{line.removeprefix('ports ')}\n" * 4)
                continue
            for path in documents.values() if is_lost else ():
                pathlib.Path(path).unlink(missing_ok=True)
            # No message has type 0; once its line is in the log, the message before it is done.
            for datagram in (datagrams[line], bytes(8)):
                sender.sendto(datagram, SOCKET)
            while b"Unknown message type 0 " not in service.stderr.readline():
                pass
            look(line.split()[0])

    while not os.path.exists(SOCKET):
        time.sleep(0.01)
    look("start")
    play(filled + links_down)
    emptied = {name: json.loads(text) for name, text in last.items()}
    for power, is_lost in itertools.product((0, 1), (False, True)):
        play(steps[power], is_lost)
    service.kill()
    return texts, changes, emptied
