"use strict";
// What the broker has said of each device. A document comes from outside: nothing here takes for
// granted what it holds. A member that is absent and one of another kind are the same.

/** The documents, with the member that each holds. */
const DOCUMENTS = {
  inputs: "inputs", "usb-host": "usb_c", ethernet: "ethernet", power: "power", outputs: "outputs",
};
const LONGEST_HISTORY = 100;
const DEEPEST = 16; // levels of a document
const LONGEST_TEXT = 200;
const LARGEST_KIB = 256; // of a message; a real document has a few
const MOST_PROBLEMS = 100;

/** The value at the end of the path, or undefined. */
function at(value, ...path) {
  for (const key of path) {
    if (!isBranch(value) || !Object.hasOwn(value, key)) return undefined;
    value = value[key];
  }
  return value;
}

/** The text there; empty also for N/A, which says that there is none. */
function textAt(...path) {
  const text = at(...path);
  return typeof text === "string" && text !== "N/A" ? shortened(text) : "";
}

function shortened(text) {
  return text.length > LONGEST_TEXT ? `${text.slice(0, LONGEST_TEXT)}…` : text;
}

/** The number there, or 0, which says that there is none. */
function numberAt(...path) {
  const number = at(...path);
  return typeof number === "number" ? number : 0;
}

function flagAt(...path) {
  return at(...path) === true;
}

/** The whole document, of which `at` takes members. */
function documentOf(device, name) {
  return device.documents[name]?.value;
}

function entriesOf(device, name) {
  const entries = at(documentOf(device, name), DOCUMENTS[name]);
  return Array.isArray(entries) ? entries : [];
}

function isBranch(value) {
  return value !== null && typeof value === "object";
}

function isDeeper(value, levels) {
  return isBranch(value) &&
      (levels === 0 || Object.values(value).some((inner) => isDeeper(inner, levels - 1)));
}

/** The members that differ, as [path, before, after]. */
function* differences(before, after, path = "") {
  if (before === after) return;
  if (!isBranch(before) || !isBranch(after)) {
    yield [path, before, after];
    return;
  }
  for (const key of new Set([...Object.keys(before), ...Object.keys(after)])) {
    const step = Array.isArray(after) ? `[${key}]` : path ? `.${key}` : key;
    yield* differences(at(before, key), at(after, key), shortened(path + step));
  }
}

class Device {
  constructor(name) {
    this.name = name;
    this.availability = ""; // "online", "offline", or empty: not known
    this.since = null; // when the availability changed, if that was seen
    this.documents = {}; // by name: {text, value, problem, at}
    this.stated = null; // problems, as the device states them: lines, or null
    this.changes = []; // {at, document, path, before, after}, the newest first
    this.heard = 0; // the last message; times are milliseconds, as of Date.now()
  }

  get problems() {
    const found = Object.entries(this.documents).filter(([, document]) => document.problem);
    return [...this.stated ?? [], ...found.map(([name, document]) => `${name}: ${document.problem}`)];
  }

  get isEmpty() {
    return !this.availability && !this.stated && !Object.keys(this.documents).length;
  }

  take(part, text, now) {
    this.heard = now;
    if (Object.hasOwn(DOCUMENTS, part)) this.takeDocument(part, text, now);
    else if (part === "availability") this.takeAvailability(text, now);
    else if (part === "problems") this.takeProblems(text, now);
  }

  takeAvailability(text, now) {
    const next = text === "online" || text === "offline" ? text : "";
    if (this.availability && next !== this.availability) {
      this.since = now;
      this.note(now, "availability", [["", this.availability, next || undefined]]);
    }
    this.availability = next;
  }

  takeProblems(text, now) {
    const next = text === "" ? null : linesOf(text);
    if (this.stated && next) this.note(now, "problems", differences(this.stated, next));
    this.stated = next;
  }

  takeDocument(name, text, now) {
    const before = this.documents[name];
    if (text === "") { // the broker has it no longer
      delete this.documents[name];
      return;
    }
    const after = {text, at: now, ...parsed(name, text)};
    this.documents[name] = after;
    if (before?.value && after.value) {
      this.note(now, name, differences(before.value, after.value));
    }
  }

  note(now, document, found) {
    for (const [path, before, after] of found) {
      this.changes.unshift({at: now, document, path, before, after});
      if (this.changes.length > LONGEST_HISTORY) this.changes.pop();
    }
  }
}

function isTooLarge(text) {
  return text.length > LARGEST_KIB * 1024;
}

function linesOf(text) {
  if (isTooLarge(text)) return [`problems: larger than ${LARGEST_KIB} KiB`];
  try {
    const lines = JSON.parse(text);
    const isStated = Array.isArray(lines) && lines.every((line) => typeof line === "string");
    if (!isStated) return ["problems: no array of lines"];
    const more = lines.length - MOST_PROBLEMS;
    return [...lines.slice(0, MOST_PROBLEMS).map(shortened), ...more > 0 ? [`and ${more} more`] : []];
  } catch {
    return ["problems: not JSON"];
  }
}

function parsed(name, text) {
  if (isTooLarge(text)) return {text: "", problem: `larger than ${LARGEST_KIB} KiB`};
  let value;
  try {
    value = JSON.parse(text);
  } catch (error) {
    return {problem: `not JSON (${error.message})`};
  }
  if (isDeeper(value, DEEPEST)) return {problem: "nested too deeply"};
  const member = DOCUMENTS[name];
  const content = at(value, member);
  const wanted = name === "power" ? "object" : "array";
  const kind = Array.isArray(content) ? "array" : content === null ? "null" : typeof content;
  return kind === wanted ? {value} : {value, problem: `${member} is no ${wanted}`};
}

class Model {
  constructor(prefix) {
    this.prefix = prefix;
    this.devices = new Map();
  }

  /** Takes a message; gives the name of the device that it changed, or null. */
  take(topic, text, now) {
    const [name, part, ...more] = topic.slice(this.prefix.length + 1).split("/");
    if (!name || !part || more.length) return null;
    let device = this.devices.get(name);
    if (!device) this.devices.set(name, device = new Device(name));
    device.take(part, text, now);
    if (device.isEmpty) this.devices.delete(name);
    return name;
  }

  /** Devices of which the broker has said nothing since then: whether they are there is not known. */
  doubt(since) {
    const silent = [...this.devices.values()].filter((device) => device.heard < since);
    for (const device of silent) device.availability = "";
    return silent.map((device) => device.name);
  }
}
