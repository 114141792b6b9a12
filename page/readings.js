"use strict";
// Documents in words, for both views. A tone says how it stands: "good", "weak" (there, but not in
// use), "bad", "off" (switched off), "idle" (nothing there) or "" (not known).

const NOT_KNOWN = "Not known";

/** The entry of a port: by its type, else one without a type at the position. */
function inputOf(device, type, position) {
  const entries = entriesOf(device, "inputs");
  const isOther = textAt(entries[position], "port_type");
  return entries.find((entry) => at(entry, "port_type") === type) ??
      (isOther ? undefined : entries[position]);
}

function inputs(device) {
  return {"HDMI": inputOf(device, "HDMI", 0), "USB-C": inputOf(device, "USB-C", 1)};
}

function rounded(number, digits) {
  return String(Number(number.toFixed(digits)));
}

function hertz(number) {
  if (!number) return "–";
  const [size, unit] = number >= 1e6 ? [1e6, "MHz"] : number >= 1e3 ? [1e3, "kHz"] : [1, "Hz"];
  return `${rounded(number / size, 3)} ${unit}`;
}

/** The word for a document's word; empty for one that is none of these. */
function worded(words, word) {
  return Object.hasOwn(words, word) ? words[word] : "";
}

/** {main, sub, tone} of a video input. */
function videoReading(entry) {
  const video = at(entry, "video");
  if (at(video, "connected") === undefined) return {main: NOT_KNOWN, sub: "", tone: ""};
  if (!flagAt(video, "connected")) return {main: "No cable", sub: "", tone: "idle"};
  if (!flagAt(video, "signal_present")) return {main: "No signal", sub: "", tone: "weak"};
  const hdcp = textAt(video, "hdcp", "active_hdcp_version");
  const sub = [textAt(video, "signal_type"), hdcp === "None" ? "no HDCP" : hdcp];
  return {main: modeOf(video) || "Signal", sub: sub.filter(Boolean).join(" · "), tone: "good"};
}

/** "1920×1080p 60 Hz" */
function modeOf(video) {
  const scan = worded({Progressive: "p", Interlaced: "i"}, textAt(video, "timing", "scan"));
  const size = textAt(video, "active_resolution").replace("x", "×");
  const rate = numberAt(video, "refresh_rate_hz");
  return size && size + scan + (rate ? ` ${rounded(rate, 2)} Hz` : "");
}

/** "LPCM 48 kHz 2 ch", or empty if there is no sound. */
function audioText(audio) {
  if (!flagAt(audio, "signal_present")) return "";
  const channels = numberAt(audio, "channel");
  const words = [textAt(audio, "format"), textAt(audio, "sample_frequency")].filter(Boolean);
  return [words.join(" "), channels && `${channels} ch`].filter(Boolean).join(" ") || "Sound";
}

/** {main, sub, tone} of all sound that comes in: a line for each video input. */
function audioReading(device) {
  const lines = Object.entries(inputs(device))
    .map(([name, entry]) => [name, audioText(at(entry, "audio"))])
    .filter(([, text]) => text)
    .map(([name, text]) => `${name} ${text}`);
  if (!entriesOf(device, "inputs").length) return {main: NOT_KNOWN, sub: "", tone: ""};
  return {main: lines[0] ?? "No sound", sub: lines[1] ?? "", tone: lines.length ? "good" : "idle"};
}

/** {main, sub, tone} of the USB audio port: in and out. */
function usbAudioReading(device) {
  const input = inputOf(device, "UAC", 2);
  const output = entriesOf(device, "outputs")[0];
  if (at(input, "audio") === undefined && at(output, "audio") === undefined) {
    return {main: NOT_KNOWN, sub: "", tone: ""};
  }
  if (at(input, "control", "enabled") === false) return {main: "Off", sub: "", tone: "off"};
  const [to, from] = [audioText(at(output, "audio")), audioText(at(input, "audio"))];
  const lines = [from && `In ${from}`, to && `Out ${to}`].filter(Boolean);
  return {main: lines[0] ?? "Idle", sub: lines[1] ?? "", tone: lines.length ? "good" : "idle"};
}

/** {name, type, main, sub, tone} of the port at the position, 0 to 3. */
function lanReading(device, position) {
  const entry = entriesOf(device, "ethernet")[position];
  const name = `LAN${position + 1}`;
  const type = textAt(entry, "type");
  if (at(entry, "link", "status") === undefined) return {name, type, main: NOT_KNOWN, sub: "", tone: ""};
  if (flagAt(entry, "link", "status")) {
    const speed = textAt(entry, "link", "speed").replace("Mbps", " Mbps");
    const mode = worded({FULL: "full duplex", HALF: "half duplex"}, textAt(entry, "link", "mode"));
    return {name, type, main: speed || "Link", sub: mode, tone: "good"};
  }
  if (at(entry, "control", "enabled") === false) return {name, type, main: "Off", sub: "", tone: "off"};
  return {name, type, main: "No link", sub: "", tone: "idle"};
}

/** The USB-C port with the index 1 or 2; after a loss, an entry without an index stands for 1. */
function usbPortOf(device, index) {
  const entries = entriesOf(device, "usb-host");
  return entries.find((entry) => at(entry, "index") === index) ??
      (index === 1 ? entries.find((entry) => !numberAt(entry, "index")) : undefined);
}

function partnerText(port) {
  const partner = at(port, "generic", "partner");
  const product = textAt(partner, "product");
  const vendor = textAt(partner, "vendor");
  const names = [product === "Not Supported" ? "" : product, vendor === "Unknown" ? "" : vendor];
  return names.filter(Boolean).join(", ");
}

/** "20 V, 3 A": the documents hold thousandths. */
function chargeText(port) {
  const [voltage, current] = ["vbus_voltage_nominal_v", "max_vbus_current_a"]
    .map((member) => numberAt(port, "charging", member) / 1000);
  return [voltage && `${rounded(voltage, 1)} V`, current && `${rounded(current, 2)} A`]
    .filter(Boolean).join(", ");
}

/** {main, sub, tone} of a USB-C port. */
function usbReading(port) {
  if (!at(port, "charging") && !at(port, "generic")) return {main: NOT_KNOWN, sub: "", tone: ""};
  const state = textAt(port, "charging", "charging_state");
  const charge = [state, state === "Charging" && chargeText(port)].filter(Boolean).join(" ");
  const partner = partnerText(port);
  if (flagAt(port, "connected") || partner) {
    return {main: partner || "Connected", sub: charge, tone: "good"};
  }
  return {main: "Free", sub: charge, tone: "idle"};
}

/** {main, sub, tone} of the supply. */
function powerReading(device) {
  const power = at(documentOf(device, "power"), "power");
  const source = textAt(power, "power_source");
  const voltage = numberAt(power, "measured_power_voltage_v") / 1000;
  const current = numberAt(power, "measured_power_current_a");
  // The current is in its sender's unit, which nobody states.
  const sub = [voltage && `${rounded(voltage, 1)} V`, current && `current ${current}`];
  return {main: source || NOT_KNOWN, sub: sub.filter(Boolean).join(" · "), tone: source ? "good" : ""};
}

/** {main, sub, tone, rank} of the device as a whole; what needs a look has the lower rank. */
function stateReading(device) {
  const count = device.problems.length;
  const sub = count ? `${count} problem${count > 1 ? "s" : ""}` : "";
  if (device.availability === "offline") return {main: "Offline", sub, tone: "bad", rank: 0};
  if (count) return {main: device.availability ? "Online" : NOT_KNOWN, sub, tone: "weak", rank: 1};
  if (!device.availability) return {main: NOT_KNOWN, sub, tone: "", rank: 2};
  return {main: "Online", sub, tone: "good", rank: 3};
}

function clock(milliseconds) {
  return new Date(milliseconds).toLocaleTimeString("en-GB");
}
