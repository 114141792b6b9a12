"use strict";
// One device, drawn as what it is. The view is made once when it is opened; what can change is
// bound to the device's state, so a change touches only what it changes, and what is unfolded stays so.

const SHAPES = { // of the connectors, 64 x 40
  "HDMI": ["M7 8h50v13l-7 11H14L7 21z", "M15 18h34"],
  "USB-C": ["M18 10h28a10 10 0 0 1 0 20H18a10 10 0 0 1 0-20z", "M20 20h24"],
  "UTP": ["M10 5h44v23h-8v4h-7v4H25v-4h-7v-4h-8z", "M18 5v8M24 5v8M30 5v8M36 5v8M42 5v8M48 5v8"],
  "SFP": ["M5 10h54v21H5z", "M5 16h54M22 31v-7h20v7"],
  "power": ["M32 5a15 15 0 0 1 0 30a15 15 0 0 1 0-30z", "M32 17a3 3 0 0 1 0 6a3 3 0 0 1 0-6z"],
  "audio": ["M10 7h44v26H10z", "M15 20h5l3-5 5 12 5-16 5 14 4-7 2 2h5"],
};

const SIGNAL_ROWS = [
  ["Signal", (video) => textAt(video, "signal_type")],
  ["Active picture", (video) => textAt(video, "active_resolution").replace("x", " × ")],
  ["With blanking", (video) => textAt(video, "total_resolution").replace("x", " × ")],
  ["Colour", (video) => ["color_space", "color_depth"].map((name) => textAt(video, "color", name)).filter(Boolean).join(", ")],
  ["Range", (video) => textAt(video, "color", "color_range").toLowerCase()],
  ["HDCP", (video) => textAt(video, "hdcp", "active_hdcp_version").replace("HDCP ", "").replace("None", "none")],
  ["HDCP allowed", (video) => textAt(video, "hdcp", "control", "allowed_hdcp_version").replace("HDCP ", "").toLowerCase()],
  ["Audio", (video, entry) => audioText(at(entry, "audio"))],
  ["Pixel clock", (video) => hertz(numberAt(video, "timing", "pixel_clock_hz"))],
  ["Scan", (video) => textAt(video, "timing", "scan").toLowerCase()],
];

const TIMING_ROWS = [
  ["Active", "active_pixels"], ["Front porch", "sync_front_porch"], ["Sync pulse", "sync_pulse_width"],
  ["Back porch", "sync_back_porch"], ["Total", "total_pixels"], ["Frequency", "sync_frequency_hz"],
  ["Polarity", "sync_polarity"],
];

const USB_ROWS = [
  ["Partner", (port) => textAt(port, "generic", "partner", "product")],
  ["Maker", (port) => textAt(port, "generic", "partner", "vendor")],
  ["Vendor and product id", (port) => ["vendor_id", "product_id"]
    .map((name) => textAt(port, "generic", "partner", name)).filter(Boolean).join(":")],
  ["DisplayPort pins", (port) => textAt(port, "generic", "active_dp_alt_mode_pins")],
  ["Charging", (port) => textAt(port, "charging", "charging_state")],
  ["Voltage and current", chargeText],
  ["Charging allowed", (port) => {
    const isAllowed = at(port, "charging", "control", "charging_enabled");
    return isAllowed === true ? "yes" : isAllowed === false ? "no" : "";
  }],
];

function timingText(video, prefix, member) {
  const value = at(video, "timing", `${prefix}_${member}`);
  if (member === "sync_frequency_hz") return hertz(numberAt(value));
  return numberAt(value) ? String(value) : textAt(value).toLowerCase() || "–";
}

class DeviceView {
  constructor(root, model) {
    Object.assign(this, {root, model, name: null, bindings: []});
  }

  open(name) {
    this.name = name;
    this.bindings = [];
    this.heading = element("h2", {tabindex: "-1"}, name);
    const changes = element("ol", {class: "changes"});
    this.bindings.push((device) => this.showChanges(changes, device));
    this.root.replaceChildren(
      element("a", {href: "#", class: "back"}, "← All devices"),
      element("div", {class: "title"}, this.heading, this.text("p", {class: "state"}, stateText)),
      this.problems(),
      this.panel(),
      element("div", {class: "cards"}, this.videoCard("HDMI"), this.videoCard("USB-C"),
        this.card("USB-C ports", this.usbTable()),
        element("section", {class: "card"}, element("h3", {}, "Last changes"),
          element("p", {class: "note"}, "Since this page was opened, the newest first."), changes)),
      element("section", {class: "card documents"}, element("h3", {}, "Documents"),
        ...Object.keys(DOCUMENTS).map((name) => this.document(name))));
    this.newest = this.model.devices.get(name)?.changes[0];
    this.show();
  }

  close() {
    this.name = null;
    this.root.replaceChildren();
  }

  show() {
    const device = this.model.devices.get(this.name) ?? new Device(this.name);
    const isChange = device.changes[0] !== this.newest; // more than a first document
    this.newest = device.changes[0];
    setAttribute(this.root, "data-availability", device.availability || "unknown");
    for (const show of this.bindings) show(device, isChange);
  }

  /** An element whose text follows the device. */
  text(tag, attributes, read) {
    const node = element(tag, attributes);
    this.bindings.push((device, isChange) => setText(node, read(device)) && isChange && lightUp(node));
    return node;
  }

  problems() {
    const list = element("ul", {});
    const box = element("section", {class: "problems"}, element("h3", {}, "Problems"), list);
    let shown = null;
    this.bindings.push((device) => {
      const lines = device.problems;
      box.hidden = lines.length === 0;
      if (JSON.stringify(lines) === shown) return;
      shown = JSON.stringify(lines);
      list.replaceChildren(...lines.map((line) => element("li", {}, line)));
    });
    return box;
  }

  panel() {
    const lan = (at) => this.port((device) => lanReading(device, at), `LAN${at + 1}`);
    const usb = (index) => (device) => usbReading(usbPortOf(device, index));
    const video = (type) => (device) => videoReading(inputs(device)[type]);
    const group = (title, ...ports) => element("div", {class: "group", role: "group", "aria-label": title},
      element("h3", {}, title), element("div", {class: "ports"}, ...ports));
    return element("section", {"class": "panel", "aria-label": "Ports"},
      group("Video in", this.port(video("HDMI"), "HDMI", "HDMI"), this.port(video("USB-C"), "USB-C", "USB-C")),
      group("USB", this.port(usb(1), "Port 1", "USB-C"), this.port(usb(2), "Port 2", "USB-C"),
        this.port(usbAudioReading, "Audio", "audio")),
      group("Network", ...LAN_PORTS.map(lan)),
      group("Power", this.port(powerReading, "Supply", "power")));
  }

  port(read, label, shape) {
    const [outline, inside] = [element("path", {class: "outline"}), element("path", {class: "inside"})];
    const type = element("span", {class: "type"});
    const port = element("div", {class: "port"},
      element("span", {class: "label"}, element("span", {class: "light"}), label, type),
      element("svg", {"viewBox": "0 0 64 40", "aria-hidden": "true"}, outline, inside),
      this.text("span", {class: "main"}, (device) => read(device).main),
      this.text("span", {class: "sub"}, (device) => read(device).sub));
    this.bindings.push((device) => {
      const reading = read(device);
      const [outer, inner] = SHAPES[shape ?? (reading.type === "SFP" ? "SFP" : "UTP")];
      setAttribute(outline, "d", outer);
      setAttribute(inside, "d", inner);
      setAttribute(port, "data-tone", reading.tone);
      setText(type, reading.type?.replace("USB-Ethernet", "USB") ?? "");
    });
    return port;
  }

  card(title, ...content) {
    return element("section", {class: "card"}, element("h3", {}, title), ...content);
  }

  videoCard(type) {
    const entry = (device) => inputs(device)[type];
    const video = (device) => at(entry(device), "video");
    const facts = element("dl", {}, ...SIGNAL_ROWS.map(([title, read]) => element("div", {},
      element("dt", {}, title),
      this.text("dd", {}, (device) => read(video(device), entry(device)) || "–"))));
    const rows = TIMING_ROWS.map(([title, member]) => element("tr", {}, element("th", {scope: "row"}, title),
      ...["h", "v"].map((prefix) => this.text("td", {}, (device) => timingText(video(device), prefix, member)))));
    return this.card(`${type} input`,
      this.text("p", {class: "reading"}, (device) => videoReading(entry(device)).main),
      element("div", {class: "pair"}, facts,
        element("table", {class: "timing"}, element("caption", {}, "Timing, in pixels and lines"),
          element("thead", {}, element("tr", {}, element("td", {}),
            ...["Horizontal", "Vertical"].map((title) => element("th", {scope: "col"}, title)))),
          element("tbody", {}, ...rows))));
  }

  usbTable() {
    return element("table", {class: "usb"}, element("caption", {}, "Partner and charging"),
      element("thead", {}, element("tr", {}, element("td", {}),
        ...[1, 2].map((index) => element("th", {scope: "col"}, `Port ${index}`)))),
      element("tbody", {}, ...USB_ROWS.map(([title, read]) => element("tr", {}, element("th", {scope: "row"}, title),
        ...[1, 2].map((index) => this.text("td", {}, (device) => read(usbPortOf(device, index)) || "–"))))));
  }

  showChanges(list, device) {
    const newest = device.changes[0];
    if (newest === list.newest) return;
    const known = device.changes.indexOf(list.newest);
    const added = known < 0 ? device.changes : device.changes.slice(0, known); // < 0: too many at once
    list.newest = newest;
    list.prepend(...added.map(({at, document, path, before, after}) => element("li", {},
      element("time", {}, clock(at)), element("code", {}, [document, path].filter(Boolean).join(" ")),
      element("span", {}, `${valueText(before)} → ${valueText(after)}`))));
    while (list.children.length > LONGEST_HISTORY) list.lastChild.remove();
  }

  document(name) {
    const text = element("pre", {tabindex: "0", "aria-label": name});
    const fold = element("details", {}, element("summary", {}, element("code", {}, name),
      this.text("span", {class: "note"}, (device) => documentText(device.documents[name]))), text);
    const show = (device) => fold.open && setText(text, prettyText(device.documents[name]));
    this.bindings.push(show);
    fold.addEventListener("toggle", () => show(this.model.devices.get(this.name) ?? new Device(this.name)));
    return fold;
  }
}

function stateText(device) {
  const since = device.since ? `since ${clock(device.since)}` : "since before this page was opened";
  if (device.availability === "offline") return `Offline ${since}. What is shown is the last that it said.`;
  if (device.availability) return "Online";
  if (device.isEmpty) return "The broker has nothing of a device of this name.";
  return `Nobody says whether it is online. Last heard at ${clock(device.heard)}.`;
}

function valueText(value) {
  return value === undefined ? "nothing" : shortened(JSON.stringify(value));
}

function documentText(document) {
  if (!document) return "has not come";
  return document.problem || `came at ${clock(document.at)}`;
}

function prettyText(document) {
  if (!document) return "";
  return "value" in document ? JSON.stringify(document.value, null, 2) : document.text;
}
