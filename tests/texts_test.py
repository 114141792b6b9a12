#!/usr/bin/python3
"""Holds README, manuals, schemas, packaging and messages.h against the code and against what the
service does, and names each line that is wrong. Every number in them is in a row of `facts`.

    scripts/sandbox tests/texts_test.py FOLDER_OF_THE_EXECUTABLES"""
import json
import os
import re
import shlex
import subprocess
import sys
import time
from pathlib import Path

import jsonschema

from sweep import ROOT, Sweep, fields_of, listed_messages, source

BIN = Path(sys.argv[1])
problems = set()


def files(pattern):
    return sorted(str(path.relative_to(ROOT)) for path in ROOT.glob(pattern) if path.is_file())


def constant(path, pattern):
    found = re.search(pattern, source(path), re.M)
    return found[1] if found else sys.exit(f"tests/texts_test.py: {path} has no longer: {pattern}")


def wrong(path, where, what):
    """`where`: a position in the file, or a text of it."""
    position = where if isinstance(where, int) else max(source(path).find(where), 0)
    problems.add((path, source(path).count("\n", 0, position) + 1, what))


def compare(path, where, what, stated, true):
    for word in set(stated) ^ set(true):
        wrong(path, where, f"{what}: {word} is {'missing' if word in set(true) else 'not so'}")


def run(*command, stdin=""):
    environment = {**os.environ, "PATH": f"{BIN}:{os.environ['PATH']}"}
    return subprocess.run(command, env=environment, input=stdin, capture_output=True, text=True,
                          check=False)


DOCUMENTS = {name: (path, event, delay) for name, path, event, delay in re.findall(
    r'{"([\w-]+)", +"(/[^"]+)", +(?:"(\w+)"|nullptr), +(\d+),', source("store/documents.h"))}
PATHS = dict(re.findall(r'(\w+) =\s*"(/[^"]+)";', source("core/paths.h")))
CODE = "".join(source(path) for path in files("*/*.[ch]*") + files("tools/*/*.[ch]*")
               if not path.startswith(("tests", "bench", "fuzz")))
STRINGS = re.sub(r'"\s*\n?\s*"', "", re.sub(r"//.*", "", CODE))  # a literal in parts is one text
MESSAGES = listed_messages(run("statusctl", "send", "--list").stdout)
OPTIONS = {command: set(re.findall(r"(?m)^ +(--[\w-]+)", run("statusctl", command, "--help").stdout))
           for command in re.findall(r"(?m)^  (\w+)  ", run("statusctl", "--help").stdout)}
LOG = "etc/log4cpp/status_json_service.conf"
LOG_PATH = constant(LOG, r"fileName=(.*)")
HEADER = "core/messages.h"


def in_code(pattern):
    """What the pattern's group is in the code, wherever that stands."""
    found = set(re.findall(pattern, CODE))
    return found.pop() if len(found) == 1 else sys.exit(f"tests/texts_test.py: the code has not once: {pattern}")


class Schema:
    """A schema that remembers what documents have needed of it."""

    MEASURES = {"minimum": min, "maximum": max, "minItems": min, "maxItems": max}

    def __init__(self, path):
        self.path, self.met, self.schema = path, {}, json.loads(source(path))
        base = jsonschema.Draft7Validator
        rules = {keyword: self.watched(keyword, base.VALIDATORS[keyword])
                 for keyword in ("enum", "const", "type", "properties", *self.MEASURES)}
        self.validator = jsonschema.validators.extend(base, rules)(self.schema)

    def watched(self, keyword, rule):
        def watch(validator, value, instance, node):
            self.met.setdefault((id(node), keyword), []).append(instance)
            return rule(validator, value, instance, node)
        return watch

    def wrong(self, path, what):
        position = 0
        for key in path:
            position = max(position, source(self.path).find(f'"{key}"', position))
        wrong(self.path, position, what)

    def check(self, documents):
        for document in documents:
            for error in self.validator.iter_errors(document):
                self.wrong([key for key in error.absolute_path if isinstance(key, str)], error.message[:99])
        self.check_node(self.schema, (), False)

    def check_node(self, node, path, is_condition):
        """Whether all that the node allows was there, and all that it requires is all there always was."""
        met = {keyword: self.met.get((id(node), keyword), []) for keyword in node}
        words = node.get("enum", [node["const"]] if "const" in node else [])
        seen = [json.dumps(value) for value in met.get("enum", met.get("const", []))]
        for word in words:
            if json.dumps(word) not in seen:
                self.wrong((*path, word), f"no document says {word}")
        for kind in [node["type"]] if isinstance(node.get("type"), str) else node.get("type", []):
            if not any(isinstance(value, float) if kind == "number" else self.validator.is_type(value, kind)
                       for value in met["type"]):
                self.wrong((*path, kind), f"never of type {kind}")
        for keyword, measure in self.MEASURES.items():
            values = [len(value) if isinstance(value, list) else value for value in met.get(keyword, ())
                      if self.validator.is_type(value, "array" if "Items" in keyword else "number")]
            if node.get(keyword) != measure(values, default=None):
                self.wrong((*path, keyword), f"{keyword} could be {measure(values, default=None)}")
        objects = [set(value) for value in met.get("properties", ()) if isinstance(value, dict)]
        if objects and not is_condition:
            for member in set(node["properties"]) - set().union(*objects):
                self.wrong((*path, member), f"no document has {member}")
            if "required" in node or not node.get("additionalProperties", True):
                for member in set.intersection(*objects) - set(node.get("required", ())):
                    self.wrong((*path, member), f"{member} is always there, and so required")
        for key, part in node.items():
            for name, inner in part.items() if key in ("properties", "definitions") else ():
                self.check_node(inner, (*path, key, name), is_condition)
            if key in ("items", "if", "then", "else", "not", "allOf", "anyOf"):
                for inner in part if isinstance(part, list) else [part]:
                    self.check_node(inner, (*path, key), is_condition or key in ("if", "not", "anyOf"))


def check_manuals(changes):
    path = "man/status_json_documents.5"
    rows = re.findall(r"(?m)^\.It (?:Dv MSG_|Pa [\w-]+\.json Ta).*", source(path))
    true = []
    for name, (_, event, delay) in DOCUMENTS.items():
        sent = "at once" if delay == "0" else f"{delay} seconds after the last change"
        true.append(f".It Pa {name}.json Ta " +
                    (f"Li {event} Ta {sent}" if event else "none Ta watch the file with Xr inotify 7"))
    for name, number, record, items, _ in MESSAGES:
        payload = f"Vt {record}" if record else f"Ar {items.lower().replace('state', 'on|off')}"
        documents = ", ".join(document for document in DOCUMENTS if document in changes[name])
        true.append(f".It Dv {name} Ta {number} , {payload if record or items else 'No none'} Ta {documents}")
    for row in set(rows) ^ set(true):
        wrong(path, row.split(" Ta ")[0] + " Ta", f"{'missing' if row in true else 'not so'}: {row}")

    path, text = "man/status_mqtt.8", source("man/status_mqtt.8")
    options = re.findall(r'(?m)^    {"([\w-]+)", required', source("tools/status_mqtt/options.cpp"))
    for part in re.split(r"\.Sh (?:DESCRIPTION|OPTIONS|FILES)", text)[:3:2]:
        compare(path, part[:30], "options", re.findall(r"Fl -([\w-]+) Ar", part), options)
    shown = re.findall(r"(?m)^  --([\w-]+) ", run("status_mqtt", "--help").stdout)
    compare(path, ".Sh OPTIONS", "options of --help", shown, options)

    path, text = "man/statusctl.1", source("man/statusctl.1")
    for start, end, option in ((".Sh SYNOPSIS", ".Sh DESCRIPTION", r"Fl (-[\w-]+)"),
                               (".Cm send\nSends", ".Sh EXIT", r"(?m)^\.It Fl (-[\w-]+)")):
        part = text[text.rindex("\n", 0, text.index(start.split("\n", 1)[-1])):text.index(end)]
        names = re.split(r"(?:\.Nm\n\.|\.It )Cm (\w+)\n", "\n.It Cm send\n" * (end == ".Sh EXIT") + part)
        stated = {name: {f"-{word}" for word in re.findall(option, body)}
                  for name, body in zip(names[1::2], names[2::2])}
        compare(path, start, "commands", stated, OPTIONS)
        for command, options in stated.items():
            compare(path, start, command, options, OPTIONS.get(command, ()))
    names = re.search(r"is one of\n((?:\.Cm .*\n|and\n)+)", text)[1]
    compare(path, "is one of", "documents", re.findall(r"Cm (\S+)", names), DOCUMENTS)


def check_header():
    """The codes and words in the comments of messages.h against those of statusctl."""
    for name, number, record, items, words in MESSAGES:
        row = re.search(rf"(?s){name} = {number}, +/\* (?:text \"(.*?)\"|(\w+))(.*?)\*/", source(HEADER))
        if (row[1] or "", record and row[2]) != (items.replace("STATE", "on|off"), record):
            wrong(HEADER, row.start(), f"{name} holds {record or items}")
        comments = [(row.start(), row[3], texts) for texts in words.values()] if not record else [
            (field.position, field.comment, words.get(field.name)) for field in fields_of(record)]
        for position, comment, texts in comments:
            for code, word in (texts or {}).items():
                short = re.escape(re.sub(" (kHz|bpc)$", "", word))
                if any(stated != str(code) for stated in re.findall(rf"(?i)(\d+) {short}\b(?!:)", comment)):
                    wrong(HEADER, position, f"{word} is {code}")
            codes = {int(code) for code in re.findall(r"(?:^|[,:] )(\d+) ", comment)} if record and texts else ()
            if codes and "every other" not in comment and "yes" not in texts.values():
                compare(HEADER, position, "codes", codes, texts)


def check_dependencies():
    script = source("scripts/install-dependencies").replace("\\\n", "")
    groups = {name: names.split() for name, names in re.findall(r"(?m)^ +(\w+)\) #.*\n +echo (.*)$", script)}
    readme = source("README.md")
    table = re.findall(r"(?m)^\| (`.*?) \|", readme[readme.index("| Debian package"):])
    compare("README.md", "| Debian package", "packages", re.findall("`(.*?)`", "".join(table)),
            sum(groups.values(), []))
    control = source("debian/control")
    # A package's build runs no tests; g++ and perl-base are wherever packages are built.
    needed = set(groups["build"]) - {"g++", "perl-base", "libgtest-dev", "iproute2", "util-linux", "cmake"}
    cmake = constant("CMakeLists.txt", r"cmake_minimum_required\(VERSION ([\d.]+)")
    compare("debian/control", "Build-Depends", "Build-Depends",
            re.split(r",\s+", re.search(r"(?s)Build-Depends: (.*?)\n\n", control)[1]),
            needed | {"debhelper-compat (= 13)", f"cmake (>= {cmake})"})
    # The unit and the init script call statusctl.
    named = ", ".join(re.findall(r"(?m)^(?:Pre-Depends|Depends|Recommends|Suggests): (.*)", control)).split(", ")
    compare("debian/control", "Depends: statusctl", "Depends", [name for name in named if name[0] != "$"],
            # The user is made by the one or the other; apt takes the first where neither is there.
            ["systemd-standalone-sysusers | systemd", "statusctl (= ${binary:Version})",
             "libstatusjson1 (= ${binary:Version})", "status-json-service"])


def check_layout():
    rows = list(re.finditer(r"(?m)^\| (`[\w/]+/`.*?) \| (.*) \|$", source("README.md")))
    folders = {path.name for path in ROOT.iterdir() if path.is_dir() and path.name[0] != "."} - {"build"}
    compare("README.md", "| Folder", "folders",
            [name.split("/")[0] for row in rows for name in re.findall("`(.*?)`", row[1])], folders)
    for row in rows:
        for name in re.findall(r"`([\w.-]+\.(?:cpp|h|tsv))`", row[2]):
            if not any((ROOT / folder / name).exists() for folder in re.findall("`(.*?)`", row[1])):
                wrong("README.md", row.start(), f"no file {name} there")


def check_forgotten(emptied, seeded):
    """What nothing else misses when a message or a member is added."""
    steps = files("tests/transcripts/*.txt") + ["tests/service.cpp", "tests/transcripts_test.cpp"]
    transcripts = "".join(map(source, steps))
    for message in MESSAGES:
        name = message.name.removeprefix("MSG_TYPE_").lower()
        if not re.search(rf"\b{name}\b", transcripts):
            wrong(HEADER, message.name, f"no step of tests/transcripts/ sends {name}")

    def leaves(value, path=""):
        if not isinstance(value, (dict, list)):
            return {f"{path[1:]} {json.dumps(value)}"} if ".control." not in path else set()
        rows = value.items() if isinstance(value, dict) else enumerate(value)
        return set().union(*(leaves(part, f"{path}.{key}") for key, part in rows))
    for path, left, seed in (
            ("video/input_reset.cpp", emptied["inputs"]["inputs"][:2], seeded["inputs"]["inputs"][:2]),
            ("usb_power/usb_c_entry.cpp", emptied["usb-host"]["usb_c"][:1], seeded["usb-host"]["usb_c"][:1])):
        compare(path, 0, "after link down", leaves(left), leaves(seed))


def check_installation():
    """The manual of the service names all that is installed, and nothing else."""
    path = "man/status_json_service.8"
    named = re.findall(r"Pa (/(?:usr|etc)\S+)", source(path)[source(path).index(".Sh INSTALLATION"):])
    root = Path("/tmp/root")
    subprocess.run(["cmake", "--install", BIN.parent], env={**os.environ, "DESTDIR": str(root)},
                   stdout=subprocess.DEVNULL, check=True)
    for file in root.rglob("*"):
        if file.is_file() and not any(file.match(f"{root}{name}") or f"/{file.relative_to(root)}".startswith(name)
                                      for name in named):
            wrong(path, ".Sh INSTALLATION", f"/{file.relative_to(root)} is installed as well")
    for name in named:
        if not any(root.glob(name[1:])) and name != "/etc/inittab":
            wrong(path, ".Sh INSTALLATION", f"{name} is not installed")


def check_library():
    """What the client library declares, lets be seen, packages and explains."""
    declared = re.findall(r"\b(status_json_\w+)\(", source("client/client.h"))
    for path, pattern in (("client/libstatusjson.map", r"(\w+);"), ("debian/libstatusjson1.symbols", r"(?m)^ (status_\w+)@"),
                          ("man/status_json_client.3", r"\.Nm (\w+)"), ("man/status_json_client.3", r'\.Fn (\w+) (?:"|void)')):
        compare(path, 0, "functions", re.findall(pattern, source(path)), declared)


    compare("client/send.c", 0, "longest datagram", [constant("client/send.c", r"(\d+) - sizeof\(MessageHeader\)")],
            [str(int(in_code(r"message_slot_size = (\d+)")) - 1)])
    compare("page/model.js", 0, "documents", re.findall(r'"?([\w-]+)"?: \[?"', constant("page/model.js", r"DOCUMENTS = {([^}]*)}")), DOCUMENTS)


def check_benchmark():
    for call in re.finditer(r'log\.log\(info,\s*((?:"[^"]*"\s*)+)', source("bench/floor.cpp")):
        text, place, _ = re.sub(r'"\s*\n?\s*"', "", call[1]).partition(r"\n --[%s:%u]")
        if text not in STRINGS or place not in STRINGS or not place:
            wrong("bench/floor.cpp", call.start(), "not a log line of the service")


NUMBER = r"(?:\d+(?:,\d{3})*(?:\.\d+)?|two|three|four|five|six|seven|eight|nine|ten|tenth|hundredth|thousandths?)"
VALUES = dict(two="2", three="3", four="4", five="5", six="6", seven="7", eight="8", nine="9", ten="10",
              hundredth="100", thousandths="0.001")


def mqtt_facts():
    options = dict(re.findall(r'"([\w-]+)",(.*"[\d.]+")\);', source("tools/status_mqtt/options.cpp")))
    numbers = {name: re.findall(r"[\d.]+", row) for name, row in options.items()}
    plain, tls = re.search(r'"(\d+)" : "(\d+)"', source("tools/status_mqtt/options.cpp")).groups()
    return [
        (r"QoS (#)", in_code(r"at_least_once = (\d)")), (r"(?:in|and) MQTT (#)", 5), (r"(#) by default, and (#) with", plain, tls),
        (r"#port (#)$|^listener (#)\ncafile", tls), (r"tried; (#) by default, (#) at least", numbers["keepalive"][-1], numbers["keepalive"][0]),
        (r"of a topic; (#) by", numbers["pause"][-1]), (r"connect; (#) by", numbers["longest-wait"][-1]),
        (r"from (#) second to", int(in_code(r"first_\{(\d+)\}")) // 1000), (r"lasted (#) seconds", in_code(r"lasting\((\d+)\)")),
        (r"between (#) |of (#) connections", 2), (r"port (9642)", 9642), (r"port (#), where", 9641), (r"\.It (#)\s+The system", 1), (r"\.It (#)\s+An option", 2),
        # As bench/fleet.py measured.
        (r"with (#) devices.*took (#) MB.* (#) changes a second, (#) %", 9500, 105, 1000, 4),
        (r"again (#) seconds", 14), (r"some (#) devices or (#) changes", 100000, 10000),
    ]


def facts(inputs, usb_host, ethernet):
    """Patterns, where (#) is a number, and the true values of their groups. A number that the code
    has nowhere stands here alone."""
    video, ports = inputs[0]["video"], len(ethernet)
    event_size = 16 + int(in_code(r"event_payload_size = (\d+)"))
    slot_size = int(in_code(r"message_slot_size = (\d+)"))
    voltages = [in_code(rf"{of}_voltage_mv = (\d+)") for of in ("poe", "adapter")]
    modes = [in_code(r"O_TRUNC, (\d+)"),
             in_code(r"mkdir\(status_directory, (\d+)")]
    failure, misuse = (in_code(rf"status_{of} = (\d+)") for of in ("failure", "misuse"))
    kept, size = (int(constant(LOG, rf"{of}=(\d+)")) for of in ("maxBackupIndex", "maxFileSize"))
    umask, group_umask = (int(constant(f"packaging/{of}", r"UMask=(\d+)"), 8)
                          for of in ("status_json_service.service", "limit-senders.conf"))
    return [
        (r"(#) slots|(#) messages (?:together|wait)|queue_size=(#)|slot_count = (#)",
         in_code(r"message_slot_count = (\d+)")),
        (r"every (\w+) after it", in_code(r"message_dropped % (\d+) == 1")),
        (r"(#) JSON\s+documents", len(DOCUMENTS)), (r"(#) video inputs", sum("video" in one for one in inputs)),
        (r"(#) USB-C ports", len(usb_host)), (r"index`?\s+(#) and (#)", *(one["index"] for one in usb_host)),
        (r"(#) Ethernet ports|all (#) are named LAN|LAN1 to LAN(\d)", ports),
        (r"header of (#) (#)-bit numbers", 2, 32), (r"(#)-bit ARM", 32), (r"Debian (#)", 12),
        (r"inputs\.json: (#) s after|within (#) seconds|(#) seconds\W+after the last", DOCUMENTS["inputs"][2]),
        (r"message is (#) bytes long|event_size = (#)", event_size),
        (r"nlmsghdr\s+\((#) bytes, type (#)\)", 16, 0),
        (r"multicast group (#)", in_code(r"update_event_group = (\d+)")),
        (r"slot_size = (#)", slot_size), (r"at most (#) (?:bytes|of them)", slot_size - 1),
        (r"(#) with PoE(?: and|,) (#) with the adapter", *voltages), (r"_v\s+hold (\w+)\.", "0.001"),
        (r"number without a value is (#)|integer (#)\.|, (#) if not reported", video["refresh_rate_hz"]),
        (r"[Oo]nly\s+\.Va active_hdcp_version\s+is\s+\.Qq (\S+)", video["hdcp"]["active_hdcp_version"]),
        (r"text without a value is\s+\.Qq (\S+)", video["signal_type"]), (r"product id is (#)", "0000"),
        (r"HDMI input at position (#) and the USB-C input at position (#)",
         *(in_code(rf"{of}_input = (\d)") for of in ("hdmi", "usb_c"))),
        (r"(?:of|with) port (#)", in_code(r"if \(port == (\d)\)")),
        (r"not given is (#)", 0), (r"(#) upper-case", in_code(r"%0(\d)X")),
        (r"documents, mode (#), in a directory of mode (#)", *modes), (r"STATUS\s+(#) when the socket", 1),
        (r"\.It (#)\s+All went", 0), (r"\.It (#)\s+The service or", failure), (r"\.It (#)\s+The command", misuse),
        (r"(#) files of at most (#) MiB", kept + 1, size >> 20),
        (r"its (#) predecessors, \.(#) and \.(#)", kept, *range(1, kept + 1)),
        (r"user's with mode (#)", f"{0o777 & ~umask:04o}"), (r"-m (#) limit", 644),
        (r"documents' mode\W+becomes (#)", f"{0o666 & ~group_umask:04o}"),
        (r"RuntimeDirectory=(\S+)", Path(PATHS["status_directory"]).name),
        (r"LogsDirectory=(\S+)", Path(LOG_PATH).parent.name),
        (r"umask (\d+)", "022"),
        (r"milliseconds; (#) is not at all|send give (#), or", 0),
        (r"without the (#) seconds that its event", DOCUMENTS["inputs"][2]),
        (r"longer than the (#) bytes", slot_size - 1 - 8),
        (r"larger than (#) MiB", int(constant("client/read.c", r"largest_document = (\d+) << 20"))),
        (r"^User=(\S+)|^u (\S+) -|-o (\S+) -g|chown -hR ([\w-]+):",
         constant("packaging/status_json_service.service", r"User=(\S+)")),
        (r"groupadd --system (\S+)|-o \S+ -g (\S+)", constant("packaging/limit-senders.conf", r" -g (\S+)")),
        *((pattern, int(constant(f"page/{name}.js", rf"{of}_MS = (\d+)")) // 1000) for pattern, name, of in (
            (r"the page for (#) seconds", "fleet", "UNATTENDED"), (r"nothing of it\s+(#) seconds", "main", "SILENCE"),
            (r"after at most (#) seconds", "connection", "LONGEST_WAIT"))),
        *mqtt_facts(), (r"(?:for|in|from) C(\d\d)\b", 11), (r"C\+\+(\d+)", constant("CMakeLists.txt", r"CXX_STANDARD (\d+)")),
    ]


def blank(text, pattern):
    return re.sub(pattern, lambda match: re.sub(r"[^\n]", " ", match[0]), text)


def prose_of(path):
    """The text of the file with all else blanked out."""
    text = source(path)
    if path.startswith("schemas/"):
        kept = r'"description": "([^"]*)"'
    elif path == "debian/control":
        kept = r"(?m)^ ([A-Za-z].*)"
    elif path.startswith(("packaging/", "etc/", "scenarios/")):
        kept = r"(?m)^\s*# (?![A-Z][\w-]+: )(.*)"
    else:
        return blank(text, r'(?ms)^\.\\" example.*?^\.Ed|^\.D[dt] .*?$|^\.It (?:Dv MSG|Pa \S+\.json Ta).*?$|'
                           r"^\.Bd .*?^\.Ed|^\d\. |^```console.*?^```$|^\| `[a-z0-9+-]+`.*?$|Xr \S+ \d|\w\(\d\)")
    prose = blank(text, r"(?s).+")
    for match in re.finditer(kept, text):
        prose = prose[:match.start(1)] + match[1] + prose[match.end(1):]
    return prose


def check_numbers(path, rows):
    known = set()
    for pattern, *values in rows:
        for match in re.finditer(pattern.replace("#", NUMBER), source(path), re.I | re.M):
            stated = [VALUES.get(group.lower(), group.replace(",", "")) for group in match.groups() if group]
            if stated != [str(value) for value in values]:
                wrong(path, match.start(), f"{match[0]!r}: {', '.join(map(str, values))} is true")
            known |= set(range(*match.span()))
    words = {re.escape(word) for message in MESSAGES for texts in message.words.values() for word in texts.values()}
    prose = blank(prose_of(path), "|".join(sorted(words, key=len, reverse=True)))
    for match in re.finditer(rf"(?i)(?<![\w.:/+`\[-]){NUMBER}(?![\w:/]|\.\d)", prose):
        if match.start() not in known and not path.endswith((".h", ".cpp")):
            wrong(path, match.start(), f"no fact known here has the number {match[0]}")


def check_names(path, documents):
    def is_member(name):
        value = {key: part for document in documents.values() for key, part in document.items()}
        try:
            for key in re.findall(r"\w+", name):
                value = value[int(key) if key.isdigit() else key]
        except (KeyError, IndexError, TypeError):
            return False
        return True

    own, mqtt = "/run/status_json_service", "/run/credentials/status_mqtt.service"  # of the packaging
    paths = {row[0] for row in DOCUMENTS.values()} | set(PATHS.values()) | {
        LOG_PATH, "/usr/share/status_json_service/schemas", f"{own}.pid", f"{own}/json_app.sock",
        "/run/status_mqtt.pid", f"{mqtt}/key", f"{mqtt}/password"}
    paths |= {name.replace("/var/run", "/run") for name in paths}
    folders = "|".join(re.escape(name.name) for name in ROOT.iterdir() if name.is_dir() and name.name != "build")
    known = {
        r"\b(e_\w+)": lambda name: any(name == row[1] for row in DOCUMENTS.values()),
        r"\b(MSG_TYPE_\w+)": lambda name: any(name == message.name for message in MESSAGES),
        r"\b(CmdData\w+|TypeC_\w+)": lambda name: name in CODE,
        r"(?<![\w.*}/)])(/(?:tmp|run|var|sys/devices|etc/log4cpp|usr/share/status_json_service)\b[\w./-]*)":
            lambda name: any(f"{one}/".startswith(name.rstrip("./") + "/") for one in paths),
        r"/usr/(s?bin/status\w+)": ("sbin/status_json_service", "sbin/status_mqtt", "bin/statusctl").__contains__,
        r"(?<![\w.*/-])([\w-]+)\.json\b": lambda name: name in DOCUMENTS,
        rf"(?<![\w./-])((?:{folders})/[\w./-]*\w)(?![{{\w])": lambda name: (ROOT / name).exists(),
        r"[\w)/]\]\(([^)]+)\)": lambda name: (ROOT / name).exists(),
        r"(?:`|\.Ql |\.Ic |\$ )statusctl (\w+(?: --[\w-]+)*)|statusctl ((?:send|watch|get|check) --[\w-]+)":
            lambda call: set(call.split()[1:]) <= OPTIONS.get(call.split()[0], set()) and call.split()[0] in OPTIONS,
        r"(?<![\w-])((?!drop-in)[\w-]+\.conf)\b": lambda name: any(name in path for path in files("packaging/*") + [LOG]),
        r"((?:scripts/[\w-]+|\.ci/run) --[\w-]+)": lambda call: f"{call.split()[1]})" in source(call.split()[0]),
        r"\b(CAP_\w+)": lambda name: name in STRINGS,
        r"--preset (\w+)": lambda name: f'"name": "{name}"' in source("CMakePresets.json"),
        r"-D(\w+)=": lambda name: f"({name} " in source("CMakeLists.txt") or name.startswith("CMAKE_"),
        r"\b((?:inputs|usb_c|ethernet|power|outputs)(?:\[\d\])?\.(?!get\b|json|schema|service|conf)[\w.]*\w)\b":
            is_member,
        r"status\w+[ (]\d(?![\d.])": lambda page: (ROOT / "man" / re.sub(r"[ (]", ".", page)).exists(),
    }
    if path == "README.md":
        known[r"build/(\w+)"] = lambda name: f'"name": "{name}"' in source("CMakePresets.json")
        known[r"[`[]([\w/.-]+/)[`\]]"] = lambda name: (ROOT / name).exists() or name.startswith("build/")
    if path.startswith("man/"):
        known |= {
            r"(?m)^\.(?:Va|Dv|Er|Li|Ev|Vt struct|In [\w/]*?/)[ /]?([\w./-]+?)(?: .*)?$":
                lambda name: re.search(rf"\b{re.escape(name)}", CODE) or (ROOT / "core" / name).exists() or
                Path("/proc/sys", *name.split(".")).exists(),
            r'(?m)^\.It "(.*?)(?::? \.\.\.)?"$':
                lambda text: '"' + re.sub(r"=\d+$", "=%d", text.replace("\\&", "")) in STRINGS}
    for pattern, is_known in known.items():
        for match in re.finditer(pattern, source(path)):
            if not is_known(match[match.lastindex or 0]):
                wrong(path, match.start(), f"there is no {match[match.lastindex or 0]}")


def check_examples():
    """What the README shows is what a fresh service says; the manuals' commands work."""
    for path in [*Path(PATHS["status_directory"]).iterdir(), Path(PATHS["message_socket_path"])]:
        path.unlink()
    service = subprocess.Popen([BIN / "status_json_service"], stderr=subprocess.DEVNULL)
    while not Path(PATHS["message_socket_path"]).exists():
        time.sleep(0.01)
    block = re.search(r"(?s)```console\n(.*?)```", source("README.md"))[1]
    for call, *stated in (part.splitlines() for part in block.split("$ ")[1:]):
        if call.endswith("&"):
            call = [BIN / "statusctl", *shlex.split(call)[1:-1], "--for", "20"]
            watch = subprocess.Popen(call, stdout=subprocess.PIPE, text=True)
            shown = []
        else:
            shown = run(*shlex.split(call)).stdout.splitlines()
        shown += [watch.stdout.readline() for _ in stated[len(shown):]]
        for line, true in zip(stated, shown):
            line_is, true_is = (re.sub(r"^[\d:.]{12} +| +", " ", text).strip() for text in (line, true))
            if line_is != true_is:
                wrong("README.md", line, f"it shows: {true_is}")
    watch.kill()
    for path in files("man/*"):
        for match in re.finditer(r"(?m)^(statusctl [^|\n]*)$", source(path)):
            result = run(*shlex.split(match[1]), *(["--for", "0.01"] if " watch " in match[1] else []))
            if result.returncode:
                wrong(path, match.start(), result.stderr.strip())
    for path in files("scenarios/*.scenario"):
        for match in re.finditer(r"(?m)^(?!#|wait |say ).+$", source(path)):
            result = run("statusctl", "send", "--file", "-", stdin=match[0])
            if result.returncode:
                wrong(path, match.start(), result.stderr.strip())
    service.kill()


def main():
    Path(PATHS["log_configuration_path"]).unlink()
    sweep = Sweep(BIN / "status_json_service", MESSAGES, {name: row[0] for name, row in DOCUMENTS.items()},
                  PATHS["videoip_timing_path"], PATHS["ethernet_port_status_path"])
    seeded = {name: next(iter(texts.values())) for name, texts in sweep.texts.items()}
    compare("store/documents.h", 0, "schemas", files("schemas/*.json"),
            {f"schemas/{name}.schema.json" for name in DOCUMENTS})
    for name, texts in sweep.texts.items():
        Schema(f"schemas/{name}.schema.json").check(texts.values())
    check_manuals(sweep.changes)
    check_header()
    check_dependencies()
    check_layout()
    check_forgotten(sweep.emptied, seeded)
    check_installation()
    check_library()
    check_benchmark()
    rows = facts(*(seeded[name][key] for name, key in
                   (("inputs", "inputs"), ("usb-host", "usb_c"), ("ethernet", "ethernet"))))
    texts = ["README.md", "CONTRIBUTING.md", HEADER, "core/core.h", "bench/floor.cpp", "debian/control", LOG, "scenarios/device-day.scenario",
             *files("man/*"), *files("schemas/*.json"), *files("packaging/*")]
    for path in texts:
        check_numbers(path, rows)
    for path in texts + files("scripts/*") + [".ci/run"]:
        check_names(path, seeded)
    check_examples()
    for problem in sorted(problems):
        print("%s:%d: %s" % problem)
    sys.exit(1 if problems else 0)


main()
