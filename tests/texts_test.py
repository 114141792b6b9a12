#!/usr/bin/python3
"""Holds README, manuals, schemas, packaging and messages.h against the code and against what the
service does, and names each line that is wrong. `complete_lists` are the lists in the texts that
name all there is; `numbers` and `names` are what the texts say wherever they do.

    scripts/sandbox tests/texts_test.py FOLDER_OF_THE_EXECUTABLES"""
import fnmatch
import itertools
import json
import os
import re
import shlex
import subprocess
import sys
import time
from pathlib import Path

import jsonschema

from sweep import ROOT, SOCKET, listed_messages, source, sweep

BIN = Path(sys.argv[1])
problems = set()


def wrong(path, position, what):
    problems.add((path, source(path).count("\n", 0, position) + 1, what))


def compare(path, where, stated, true):
    """What the text names behind `where`, and what it should name."""
    start, stated, true = max(source(path).find(where), 0), set(stated), set(true)
    for word in true - stated:
        wrong(path, start, f"missing: {word}")
    for word in stated - true:
        wrong(path, max(source(path).find(word, start), start), f"not so: {word}")


def run(*command):
    environment = {**os.environ, "PATH": f"{BIN}:{os.environ['PATH']}"}
    return subprocess.run(command, env=environment, capture_output=True, text=True, check=False)


# --- what there is ---

def files(*patterns):
    return sorted(str(path.relative_to(ROOT)) for pattern in patterns for path in ROOT.glob(pattern))


FOLDERS = {path.name for path in ROOT.iterdir() if path.is_dir() and path.name[0] != "."} - {"build"}
CODE = "".join(map(source, files(*(f"{folder}/**/*.[chj]*" for folder in FOLDERS - {
    "bench", "debian", "fuzz", "packaging", "schemas", "tests"}))))
STRINGS = re.sub(r'"\s*\n?\s*"', "", re.sub(r"//.*", "", CODE))  # a literal in parts is one text
LOG = "etc/log4cpp/status_json_service.conf"
HEADER = "core/messages.h"
TEXTS = ["README.md", "CONTRIBUTING.md", "client/client.h", "client/send.c", HEADER, "core/core.h", "debian/control",
         "bench/floor.cpp", "scenarios/device-day.scenario", "tools/status_mqtt/options.cpp", LOG,
         *files("man/*", "schemas/*.json", "packaging/*")]


def in_code(pattern, *paths):
    """What the pattern's group, or the number that # stands for, is in the code or in the files."""
    text = "".join(map(source, paths)) or CODE
    found = set(re.findall(pattern.replace("#", r"(\d+)"), text, re.M))
    return found.pop() if len(found) == 1 else sys.exit(
        f"tests/texts_test.py: {', '.join(paths) or 'the code'} has not once: {pattern}")


PATHS = dict(re.findall(r'(\w+) =\s*"(/[^"]+)";', source("core/paths.h")))
LOG_PATH = in_code(r"fileName=(.*)", LOG)
DOCUMENTS = {name: (path, event, delay) for name, path, event, delay in re.findall(
    r'{"([\w-]+)", +"(/[^"]+)", +(?:"(\w+)"|nullptr), +(\d+),', source("store/documents.h"))}
MESSAGES = listed_messages(run("statusctl", "send", "--list").stdout)
OPTIONS = {command: set(re.findall(r"(?m)^ +(--[\w-]+)", run("statusctl", command, "--help").stdout))
           for command in re.findall(r"(?m)^  (\w+)  ", run("statusctl", "--help").stdout)}


def leaves(value, path=""):
    """The paths of all that is no object and no array, with what stands there."""
    if not isinstance(value, (dict, list)):
        return [(path[1:], value)]
    rows = value.items() if isinstance(value, dict) else enumerate(value)
    return [leaf for key, part in rows for leaf in leaves(part, f"{path}.{key}")]


# --- lists that name all there is ---

def section(path, start, end):
    return source(path)[source(path).index(start):].split(end)[0]


def rows_of_the_manual(changes):
    """The rows of the tables of events and of messages."""
    for name, (_, event, delay) in DOCUMENTS.items():
        sent = f"{delay} seconds after the last change" if delay != "0" else "at once"
        row = f"Li {event} Ta {sent}" if event else "none Ta watch the file with Xr inotify 7"
        yield f".It Pa {name}.json Ta {row}"
    for message in MESSAGES:
        items = message.items.lower().replace("state", "on|off")
        payload = f"Vt {message.record}" if message.record else f"Ar {items}" if items else "No none"
        documents = ", ".join(document for document in DOCUMENTS if document in changes[message.command])
        yield f".It Dv {message.name} Ta {message.number} , {payload} Ta {documents}"


def rows_of_the_header():
    width = max(len(f"{message.name} = {message.number},") for message in MESSAGES)
    for message in MESSAGES:
        items = message.items.replace("STATE", "on|off")
        payload = message.record or (f'text "{items}"' if items else "no payload")
        yield f"{message.name} = {message.number},".ljust(width) + f" /* {payload}"


def complete_lists(changes):
    """A file, where a list begins and ends, what in it is a name, and what it should name."""
    mqtt_options = re.findall(r'(?m)^    {"([\w-]+)", required', source("tools/status_mqtt/options.cpp"))
    functions = re.findall(r"\b(status_json_\w+)\(", source("client/client.h"))
    packages = {group: set(names.replace("\\\n", "").split()) for group, names in re.findall(
        r"(?m)^ +(\w+)\) #.*\n +echo ((?:.*\\\n)*.*)$", source("scripts/install-dependencies"))}
    # A package's build runs no tests; g++ and perl-base are wherever packages are built.
    cmake = in_code(r"cmake_minimum_required\(VERSION ([\d.]+)", "CMakeLists.txt")
    build = packages["build"] - {"g++", "perl-base", "libgtest-dev", "iproute2", "util-linux", "cmake"} | {
        "debhelper-compat (= 13)", f"cmake (>= {cmake})"}
    # The unit and the init script call statusctl. The user is made by the one or the other of the two
    # in front; apt takes the first where neither is there.
    depends = {"systemd-standalone-sysusers | systemd, statusctl (= ${binary:Version})", "status-json-service",
               "libstatusjson1 (= ${binary:Version})"}
    return [
        (HEADER, "enum MessageType", "};", r'^ +(MSG_TYPE_.*?/\* (?:text ".*?"|no payload|\w+))', rows_of_the_header()),
        ("man/status_json_documents.5", ".Sh EVENTS", ".Sh SEE", r"^\.It (?:Dv MSG_|Pa [\w-]+\.json Ta).*",
         rows_of_the_manual(changes)),
        ("man/status_mqtt.8", ".Sh SYNOPSIS", ".Sh DESCRIPTION", r"Fl -([\w-]+) Ar", mqtt_options),
        ("man/status_mqtt.8", ".Sh OPTIONS", ".Sh FILES", r"Fl -([\w-]+) Ar", mqtt_options),
        ("tools/status_mqtt/options.cpp", "Usage:", ')"', r"^  --([\w-]+) ", mqtt_options),
        ("man/statusctl.1", "is one of\n", ";", r"^\.Cm (\S+)", DOCUMENTS),
        ("man/status_json_client.3", ".Sh NAME", ".Sh LIBRARY", r"\.Nm (\w+)", functions),
        ("man/status_json_client.3", ".Sh SYNOPSIS", ".Sh DESCRIPTION", r"\.Fn (\w+)", functions),
        ("client/libstatusjson.map", "{", "local:", r"(\w+);", functions),
        ("debian/libstatusjson1.symbols", "", "\n\n", r"^ (status_\w+)@", functions),
        ("page/model.js", "DOCUMENTS = {", "};", r'"?([\w-]+)"?: \[?"', DOCUMENTS),
        ("README.md", "| Folder", "\n\n", r"`(\w+)/(?:\w+/)?`(?=.* \|.* \|)", FOLDERS),
        ("README.md", "| Debian package", "\n\n", r"`([a-z0-9+.-]+)`(?=.* \|.* \|)", set().union(*packages.values())),
        ("debian/control", "Build-Depends", "\n\n", r"\s([a-z][\w.-]+(?: \(.*\))?)(?:,|$)", build),
        ("debian/control", "Package:", "\n\n\n", r"^(?:Depends|Recommends): ((?!\$).*?)(?:, \${misc.*)?$", depends),
    ]


def check_commands():
    """The manual has all commands of statusctl with all their options."""
    for start, end, heading, option in ((".Sh SYNOPSIS", ".Sh DESCRIPTION", r"\.Nm\n\.Cm ", r"Fl (-[\w-]+)"),
                                        (".It Cm send", ".Sh EXIT", r"\.It Cm ", r"\.It Fl (-[\w-]+)")):
        # A command also stands by itself, with nothing for an option.
        stated = {f"{part.split()[0]} {word}" for part in re.split(heading, section("man/statusctl.1", start, end))[1:]
                  for word in re.findall(option, part) + [""]}
        compare("man/statusctl.1", start, {word.replace(" -", " --") for word in stated},
                {f"{name} {option}" for name in OPTIONS for option in OPTIONS[name] | {""}})


def check_installation():
    """The manual of the service names all that is installed, and nothing else."""
    path, where = "man/status_json_service.8", ".Sh INSTALLATION"
    named = set(re.findall(r"Pa (/(?:usr|etc)\S+)", section(path, where, ".Sh EXIT"))) - {"/etc/inittab"}
    root = Path("/tmp/root")
    subprocess.run(["cmake", "--install", BIN.parent], env={**os.environ, "DESTDIR": str(root)},
                   stdout=subprocess.DEVNULL, check=True)
    installed = [f"/{file.relative_to(root)}" for file in root.rglob("*") if file.is_file()]
    compare(path, where, named, {name for file in installed for name in [
        name for name in named if fnmatch.fnmatch(file, name) or fnmatch.fnmatch(file, f"{name}/*")] or [file]})


def check_forgotten(emptied, seeded):
    """What nothing else misses when a message or a member is added."""
    steps = "".join(map(source, files("tests/transcripts/*.txt", "tests/service.cpp", "tests/transcripts_test.cpp")))
    for message in MESSAGES:
        if not re.search(rf"\b{message.command}\b", steps):
            wrong(HEADER, source(HEADER).index(message.name), f"no step of tests/transcripts/ sends {message.command}")
    for path, name, member, count in (("video/input_reset.cpp", "inputs", "inputs", 2),
                                      ("usb_power/usb_c_entry.cpp", "usb-host", "usb_c", 1)):
        left, seed = ({f"{where} {value}" for where, value in leaves(documents[name][member][:count])
                       if ".control." not in where} for documents in (emptied, seeded))
        compare(path, "", left, seed)


def check_header():
    """The codes and words in the comments of messages.h against those of statusctl."""
    words_of = {}  # a field of a record, or a message that is a text: "CODE WORD"
    for message in MESSAGES:
        for field, (_, words) in message.fields.items():
            if not (message.record and "yes" in words.values()):
                words_of.setdefault(field if message.record else message.name, set()).update(
                    f"{code} {re.sub(' (kHz|bpc)$', '', word)}".lower() for code, word in words.items())
    for line in re.finditer(r"(?s)(\w+)(?:\[\d+\])?(?:;| = \d+,) +/\* (.*?) \*/", source(HEADER)):
        true, comment = words_of.get(line[1]), line[2].lower()
        if not true:
            continue
        words = "|".join(re.escape(pair.split(" ", 1)[1]) for pair in true)
        is_text = line[1].startswith("MSG_TYPE_")
        stated = set(re.findall(rf"\b\d+ (?:{words})\b" if is_text else r"(?:^|[,:] )(\d+ [\w.: -]+)", comment))
        is_partial = is_text or "every other" in comment or not stated
        for pair in stated - true if is_partial else stated ^ true:
            wrong(HEADER, line.start(), f"{'missing' if pair in true else 'not so'}: {pair}")


# --- the schemas ---

def parts_of(node, key=""):
    """The parts of a schema that are no condition, with the key of each, in the order of the text."""
    yield key, node
    for name, part in node.items():
        if name in ("properties", "definitions"):
            for key, inner in part.items():
                yield from parts_of(inner, key)
        elif name in ("items", "then", "else", "allOf"):
            for inner in part if isinstance(part, list) else [part]:
                yield from parts_of(inner, name)


def strictest(node, values):
    """What the keywords of a part could say and still allow the values."""
    kinds = {{bool: "boolean", int: "integer", float: "number", str: "string", list: "array", dict: "object"}
             .get(type(value), "null") for value in values}
    objects = [set(value) for value in values if isinstance(value, dict)]
    numbers = [value for value in values if type(value) in (int, float)]
    lengths = [len(value) for value in values if isinstance(value, list)]
    always = set.intersection(*objects) if objects else set()
    return {"type": kinds - {"integer"} if "number" in kinds else kinds, "enum": values, "const": values,
            "minimum": [min(numbers, default=None)], "maximum": [max(numbers, default=None)],
            "minItems": [min(lengths, default=None)], "maxItems": [max(lengths, default=None)],
            "properties": set().union(*objects) & set(node.get("properties", ())),
            # Where other members may be, only some are spoken of.
            "required": always if "required" in node or node.get("additionalProperties") is False else ()}


def check_schema(path, documents):
    """The schema allows all documents, and could not be stricter."""
    schema, text, position = json.loads(source(path)), source(path), 0
    parts = list(parts_of(schema))
    met = [[] for _ in parts]
    for number, (_, node) in enumerate(parts):
        node["met"] = number
    validator = jsonschema.validators.extend(
        jsonschema.Draft7Validator, {"met": lambda _, part, value, __: met[part].append(value)})(schema)
    for error in itertools.chain(*map(validator.iter_errors, documents)):
        wrong(path, 0, f"{error.json_path}: {error.message[:99]}")
    for (key, node), values in zip(parts, met):
        position = max(position, text.find(f'"{key}":', position))
        for keyword, true in strictest(node, values).items():
            stated = node.get(keyword, ())
            words = {json.dumps(word) for word in ([stated] if isinstance(stated, (str, int)) else stated)}
            if keyword in node or keyword == "required":
                for word in words ^ set(map(json.dumps, true)):
                    is_so = "which is never so" if word in words else "could be said"
                    wrong(path, position, f"{key or 'all'}: {keyword} {word}, {is_so}")


# --- what texts say here and there ---

WORDS = {word: number for number, word in enumerate("two three four five six seven eight nine ten".split(), 2)}
WORDS["hundredth"] = 100
NUMBER = rf"((?i:\d+(?:,\d{{3}})*(?:\.\d+)?|{'|'.join(WORDS)})\b)"


def numbers():
    """What a number, #, of a pattern is wherever a text says it. None: that is not in the code."""
    slot_size, backups = int(in_code("message_slot_size = #")), int(in_code("maxBackupIndex=#", LOG))
    rows = [
        (in_code("message_slot_count = #"), r"# slots|# messages (?:together|wait)|queue_size=#|slot_count = #"),
        (in_code("message_dropped % # == 1"), r"every # after it"),
        (slot_size, r"slot_size = #|service holds # bytes"),
        (slot_size - 1, r"at most # (?:bytes|of them)|LONGEST_PAYLOAD = # - sizeof"),
        (slot_size - 1 - 8, r"longer than the # bytes|above # bytes"),
        (16 + int(in_code("event_payload_size = #")), r"message is # bytes long|event_size = #"),
        (in_code("update_event_group = #"), r"multicast group #"),
        (DOCUMENTS["inputs"][2],
         r"inputs\.json: # s after|(?:within|without the) # seconds|# seconds\W+after the last"),
        (len(DOCUMENTS), r"# JSON\s+documents"),
        (in_code(r"if \(port == #\)"), r"(?:of|with) port #"),
        (in_code("poe_voltage_mv = #"), r"# with PoE"),
        (in_code("adapter_voltage_mv = #"), r"# with the adapter"),
        (in_code('"refresh_rate_hz": #'), r"number without a value is #|integer #\.|, # if not reported"),
        ("0" * int(in_code(r"%0#X")), r"product id is #"),
        (in_code("largest_document = # << 20"), r"(?:larger than|above) # MiB"),
        (in_code("status_failure = #"), r"\.It #\s+The service or"),
        (in_code("status_misuse = #", "tools/statusctl/main.cpp"), r"\.It #\s+The command"),
        (in_code("status_misuse = #", "tools/status_mqtt/main.cpp"), r"\.It #\s+An option"),
        (in_code(r"return #;", "tools/status_mqtt/main.cpp"), r"\.It #\s+The system"),
        (in_code(r"exit\(#\)", "core/ingress.cpp"), r"STATUS\s+# when|process with status #"),
        (in_code("O_TRUNC, #"), r"documents, mode #"),
        (in_code("mkdir.status_directory, #"), r"in a directory of mode #"),
        (in_code("umask #", "packaging/status_json_service.init"), r"umask #"),
        (backups, r"its # predecessors"),
        (backups + 1, r"# files of at most"),
        (int(in_code("maxFileSize=#", LOG)) >> 20, r"at most # MiB"),
        (in_code("at_least_once = #"), r"QoS #"),
        (in_code('"#" : "'), r"# by default, and|port; #"),
        (in_code('" : "#"'), r"default, and # with|or # with|^.port #$|listener #\ncafile"),
        (in_code('"keepalive", #,'), r", # at least"),
        (in_code('"keepalive", .*"#"'), r"tried; #|^.keepalive #$"),
        (in_code('"pause", .*"#"'), r"messages of a (?:topic|document); #|^.pause #$"),
        (in_code('"longest-wait", .*"#"'), r"attempts to connect; #|^.longest-wait #$"),
        (in_code("first_{#000}"), r"from # second to"),
        (in_code(r"lasting\(#\)"), r"lasted # seconds"),
        (in_code("UNATTENDED_MS = #000"), r"the page for # seconds"),
        (in_code("[^_]SILENCE_MS = #000"), r"nothing of it\s+# seconds"),
        (in_code("LONGEST_WAIT_MS = #000"), r"after at most # seconds"),
        (in_code("CMAKE_C_STANDARD #", "CMakeLists.txt"), r"(?:for|in|from|For) C#"),
        (in_code("CMAKE_CXX_STANDARD #", "CMakeLists.txt"), r"C\+\+#"),
        # Of the systems that it runs on; as it was measured; no number of anything.
        (None, r"#-bit|# #-bit|Debian #|MQTT #|nlmsghdr\s+\(# bytes, type #|-m # limit|port 964\d"),
        (None, r"# devices|# MB|# changes|# %|again # seconds"),
        (None, r"(?:between|of) two|not given is #|\.It #\s+All went|; # is not at all|give #, or"),
    ]
    return [(None if value is None else {str(value)}, pattern) for value, pattern in rows]


def names(documents):
    """What the last group of a pattern may be wherever a text says it."""
    words = set(re.findall(r"\w+", CODE)) | set(DOCUMENTS)
    tree = set(files("*", "*/**/*", ".ci/*"))
    paths = {row[0] for row in DOCUMENTS.values()} | set(PATHS.values()) | {
        LOG_PATH, "/usr/share/status_json_service/schemas",  # and those of the packaging:
        "/run/status_json_service.pid", "/run/status_json_service/json_app.sock", "/run/status_mqtt.pid",
        "/run/credentials/status_mqtt.service/key", "/run/credentials/status_mqtt.service/password"}
    paths |= {name.replace("/var/run", "/run") for name in paths}
    presets = {preset["name"] for preset in json.loads(source("CMakePresets.json"))["configurePresets"]}
    calls = {" ".join((name, *some)) for name, options in OPTIONS.items() for count in range(3)
             for some in itertools.permutations(options, count)}
    nothing = documents["inputs"]["inputs"][0]["video"]
    rows = [
        ({row[1] for row in DOCUMENTS.values()}, r"\b(e_\w+)"),
        ({message.name for message in MESSAGES}, r"\b(MSG_TYPE_\w+)"),
        (words, r"\b(CmdData\w+|TypeC_\w+|CAP_\w+)|^\.(?:It )?(?:Va|Dv|Er|Li|Ev|Vt struct) /?([\w-]+)(?=[ /]|$)"),
        # The lines that the programs write, and the benchmark's copy of those of the service's log.
        (STRINGS, r'^\.It (".*?)(?:=\d+)?(?::? \.\.\.)?"$|log\(info,\s*("[^"\\\n]*)|^ +"([^"\\\n]*=%[du][^"\\\n]*)'),
        (STRINGS, r'^ .*(\\n --\[.*?\])"'),
        ({nothing["signal_type"]}, r"text without a value is\s+\.Qq (\S+)"),
        ({nothing["hdcp"]["active_hdcp_version"]}, r"\.Va active_hdcp_version\s+is\s+\.Qq (\S+)"),
        (paths.union(*(map(str, Path(name).parents) for name in paths)),
         r"(?<![\w.*}/-])(/(?:tmp|run|var|sys/devices|etc/log4cpp|usr/share/status_json_service)\b(?:[\w./-]*\w)?)"),
        ({"sbin/status_json_service", "sbin/status_mqtt", "bin/statusctl"}, r"/usr/(s?bin/status\w+)"),
        (set(DOCUMENTS), r"(?<![\w.*/-])([\w-]+)\.json\b"),
        ({Path(name).name for name in [LOG, *files("packaging/*")]}, r"(?<![\w-])((?!drop-in)[\w-]+\.conf)\b"),
        (tree, rf"(?<![\w./-])((?:{'|'.join(FOLDERS)}|\.ci)/[\w./-]*\w)(?![{{\w])"),
        (tree, r"[\w)/]\]\(([^)\s]+?)/?\)|[`[]((?!build)[\w/.-]+)/[`\]]"),
        ({Path(name).name for name in files("core/*.h", "client/*.h")}, r"^\.In status_json_service/(.*)"),
        (presets | {"ci"}, r"--preset (\w+)|(?:`|\.Ql |--install )build/(\w+)"),
        (set(re.findall(r"\((\w+) ", source("CMakeLists.txt"))), r"-D((?!CMAKE_)\w+)="),
        ({f"{script} {option}" for script in files("scripts/*", ".ci/run")
          for option in re.findall(r"(--[\w-]+)\)", source(script))}, r"((?:scripts/[\w-]+|\.ci/run) --[\w-]+)"),
        (calls, r"(?:`|\.Ql |\.Ic |\$ )statusctl (\w+(?: --[\w-]+)*)|statusctl ((?:send|watch|get|check) --[\w-]+)"),
        ({re.sub(r"\.(\d)", rf"{mark}\1", Path(name).name) for name in files("man/*") for mark in " ("},
         r"\b(status\w+[ (]\d)(?![\d.])"),
        ({Path(PATHS["status_directory"]).name}, r"RuntimeDirectory=(\S+)"),
        ({Path(LOG_PATH).parent.name}, r"LogsDirectory=(\S+)"),
        ({in_code(r"User=(\S+)", "packaging/status_json_service.service")},
         r"^User=(\S+)|^u (\S+) -|-o (\S+) -g|chown -hR ([\w-]+):"),
        ({in_code(r" -g (\S+)", "packaging/limit-senders.conf")}, r"groupadd --system (\S+)|-o \S+ -g (\S+)"),
    ]
    for root, value in itertools.chain(*(document.items() for document in documents.values())):
        keys = [[key for key in path.split(".") if not key.isdigit()] for path, _ in leaves(value)]
        rows.append(({path for row in keys for path in itertools.accumulate(row, "{}.{}".format)},
                     rf"\b{root}(?:\.?\[\w+\])?\.(?!get\b|json|schema|service|conf)([\w.]*\w)"))
    return rows


def check_statements(path, rows):
    """Gives the positions in the text that the rows know."""
    known = set()
    for true, pattern in rows:
        for match in re.finditer(pattern.replace("#", NUMBER), source(path), re.M):
            known |= set(range(*match.span()))
            stated = match[match.lastindex or 0].replace("\\&", "")
            number = str(WORDS.get(stated.lower(), stated.replace(",", "")))
            if true is not None and stated not in true and number not in true:
                is_so = f"{next(iter(true))} is true" if len(true) == 1 else "there is no such thing"
                wrong(path, match.start(), f"{stated} in {match[0]!r}: {is_so}")
    return known


def check_numbers(path, rows):
    """Each number in the prose of a text is that of a row."""
    def blank(text):
        return re.sub(r"[^\n]", " ", text)
    known = check_statements(path, rows)
    kept = {"man": "", "README.md": "", "CONTRIBUTING.md": "", "schemas": '"description": ', "packaging": "# ",
            "etc": "# ", "scenarios": "# "}.get(path.split("/")[0], "\n")
    prose = "\n".join(line if kept in line else blank(line) for line in source(path).split("\n"))
    for other in (r"(?s)^\.Bd .*?^\.Ed|^```console.*?^```$", r"^\.D[dt] .*|Xr \S+ \d|^\.It (?:Dv MSG|Pa \S+ Ta).*",
                  r'^\d\. |\w\(\d\)|"\w+": [-\d[][^"\n]*|"enum": .*|^# [A-Z][\w-]+: .*'):
        prose = re.sub(other, lambda match: blank(match[0]), prose, flags=re.M)
    for match in re.finditer(rf"(?<![\w.:/+`\[-]){NUMBER}(?![\w:/]|\.\d)", prose):
        if match.start() not in known:
            wrong(path, match.start(), f"`numbers` has no row for {match[0]}")


# --- examples ---

def check_examples():
    """What the README shows is what a fresh service says; the commands of the manuals work."""
    for path in [*Path(PATHS["status_directory"]).iterdir(), Path(SOCKET)]:
        path.unlink()
    service = subprocess.Popen([BIN / "status_json_service"], stderr=subprocess.DEVNULL)
    while not Path(SOCKET).exists():
        time.sleep(0.01)
    watch = subprocess.Popen([BIN / "statusctl", "watch", "power", "--for", "20"], stdout=subprocess.PIPE, text=True)
    for block in section("README.md", "```console\n", "```\n\n").split("$ ")[1:]:
        call, *stated = block.splitlines()
        shown = [] if call == "statusctl watch power &" else run(*shlex.split(call)).stdout.splitlines()
        shown += [watch.stdout.readline() for _ in stated[len(shown):]]
        for line, true in zip(stated, shown):
            line_is, true_is = (re.sub(r"^[\d:.]{12} +| +", " ", text).strip() for text in (line, true))
            if line_is != true_is:
                wrong("README.md", source("README.md").index(f"\n{line}\n") + 1, f"it shows: {true_is}")
    watch.kill()
    for path in files("man/*"):
        for match in re.finditer(r"(?m)^(statusctl [^|\n]*)$", source(path)):
            result = run(*shlex.split(match[1]), *(["--for", "0.01"] if " watch " in match[1] else []))
            if result.returncode:
                wrong(path, match.start(), result.stderr.strip())
    service.kill()


def main():
    Path(PATHS["log_configuration_path"]).unlink()
    scenario = "scenarios/device-day.scenario"  # All of it is read before its first line is sent.
    for line, what in re.findall(r"line (\d+): (.*)", run("statusctl", "send", "--file", ROOT / scenario).stderr):
        problems.add((scenario, int(line), what))
    texts, changes, emptied = sweep(BIN, MESSAGES, {name: row[0] for name, row in DOCUMENTS.items()},
                                    PATHS["videoip_timing_path"], PATHS["ethernet_port_status_path"])
    seeded = {name: next(iter(parsed.values())) for name, parsed in texts.items()}
    for path, start, end, pattern, true in complete_lists(changes):
        compare(path, start, re.findall(pattern, section(path, start, end), re.M), true)
    compare("store/documents.h", "", files("schemas/*"), {f"schemas/{name}.schema.json" for name in DOCUMENTS})
    for name, parsed in texts.items():
        check_schema(f"schemas/{name}.schema.json", parsed.values())
    check_commands()
    check_installation()
    check_forgotten(emptied, seeded)
    check_header()
    all_numbers, all_names = numbers(), names(seeded)
    for path in TEXTS:
        check_numbers(path, all_numbers)
    for path in TEXTS + files("scripts/*", ".ci/run"):
        check_statements(path, all_names)
    check_examples()
    for problem in sorted(problems):
        print("%s:%d: %s" % problem)
    sys.exit(1 if problems else 0)


main()
