"use strict";
// The fleet: a row a device. A row is made once and then only changed where its text changes.
// Once all devices are there, rows keep their places while somebody reads.

const SETTLED_MS = 1000; // without a new device or a retained message
const ARRANGE_MS = 300;
const UNATTENDED_MS = 30000;
const LAN_PORTS = [0, 1, 2, 3];

const COLUMNS = [
  {title: "Device", read: (device) => ({main: device.name, sub: ""})},
  {title: "State", read: stateReading, order: (reading) => reading.rank},
  {title: "HDMI", read: (device) => videoReading(inputs(device)["HDMI"])},
  {title: "USB-C video", read: (device) => videoReading(inputs(device)["USB-C"])},
  {title: "Audio", read: audioReading},
  {title: "LAN", read: lanSigns, order: (reading) => -reading.up},
  {title: "USB-C port", read: (device) => usbReading(usbPortOf(device, 1))},
  {title: "Power", read: powerReading},
];

const FILTERS = {
  all: () => true,
  offline: (device) => device.availability === "offline",
  problems: (device) => device.problems.length > 0,
};

function lanSigns(device) {
  const signs = LAN_PORTS.map((position) => lanReading(device, position));
  return {main: "", sub: "", signs, up: signs.filter((sign) => sign.tone === "good").length};
}

class Row {
  constructor(name) {
    this.link = element("a", {href: `#${encodeURIComponent(name)}`});
    this.cells = COLUMNS.map(({title}, index) => {
      const main = index === 0 ? this.link : element("span", {class: "main"});
      const sub = element("span", {class: "sub"});
      const signs = title === "LAN" ? LAN_PORTS.map((at) => element("span", {class: "lan", role: "img"}, `${at + 1}`)) : [];
      const node = element(index === 0 ? "th" : "td",
        {"role": index === 0 ? "rowheader" : "cell", "data-title": title}, ...(signs.length ? signs : [main, sub]));
      return {node, main, sub, signs};
    });
    this.cells[0].node.setAttribute("scope", "row");
    this.node = element("tr", {role: "row"}, ...this.cells.map((cell) => cell.node));
    this.isSeen = true;
    this.node.addEventListener("contentvisibilityautostatechange", (event) => this.isSeen = !event.skipped);
  }

  show(device) {
    const isChange = device.changes[0] !== this.newest; // more than a first document
    this.newest = device.changes[0];
    this.device = device;
    this.readings = COLUMNS.map((column) => column.read(device));
    this.readings.forEach((reading, index) => {
      const {node, main, sub, signs} = this.cells[index];
      let isOther = setText(main, reading.main);
      isOther = setText(sub, reading.sub) || isOther;
      signs.forEach((sign, at) => {
        const {name, main: state, sub: mode, tone} = reading.signs[at];
        const label = [`${name}: ${state}`, mode].filter(Boolean).join(", ");
        isOther = setAttribute(sign, "aria-label", label) || isOther;
        setAttribute(sign, "title", label);
        setAttribute(sign, "data-tone", tone);
      });
      setAttribute(node, "data-tone", reading.tone ?? "");
      if (isOther && isChange && this.isSeen) lightUp(node);
    });
    setAttribute(this.node, "data-availability", device.availability || "unknown");
    this.text = this.readings.map(({main, sub}) => `${main} ${sub}`).join(" ").toLowerCase();
  }
}

class Fleet {
  constructor(root, model) {
    Object.assign(this, {root, model, rows: new Map(), shown: [], column: 0, isDescending: false,
      filter: "all", isSettled: false, loadedAt: 0, touchedAt: 0, timer: 0, waitingFor: ""});
    this.collator = new Intl.Collator("en", {numeric: true});
    this.body = root.querySelector("tbody");
    this.search = root.querySelector("[type=search]");
    this.first = root.querySelector("#problems-first");
    this.again = root.querySelector("#sort-again");
    this.empty = root.querySelector("#no-rows");
    this.heads = COLUMNS.map(({title}, index) => {
      const button = element("button", {type: "button"}, title);
      button.addEventListener("click", () => this.sortBy(index));
      return element("th", {role: "columnheader", scope: "col"}, button);
    });
    root.querySelector("thead tr").append(...this.heads);
    this.search.addEventListener("input", () => this.arrange());
    this.first.addEventListener("change", () => this.arrange());
    this.again.addEventListener("click", () => this.arrange());
    this.buttons = [...root.querySelectorAll("[data-filter]")];
    for (const button of this.buttons) {
      button.addEventListener("click", () => {
        this.filter = button.dataset.filter === this.filter ? "all" : button.dataset.filter;
        this.arrange();
      });
    }
    for (const event of ["pointermove", "pointerdown", "keydown", "wheel", "scroll", "touchmove"]) {
      addEventListener(event, () => this.touchedAt = Date.now(), {passive: true});
    }
    this.arrange();
  }

  /** Shows these devices anew. */
  show(names) {
    if (this.rows.size && Date.now() - this.loadedAt > SETTLED_MS) this.isSettled = true;
    for (const name of names) {
      const device = this.model.devices.get(name);
      let row = this.rows.get(name);
      if (!device) {
        row?.node.remove();
        this.rows.delete(name);
        this.shown = this.shown.filter((one) => one !== row);
        continue;
      }
      if (!row) {
        this.rows.set(name, row = new Row(name));
        this.loadedAt = Date.now();
      }
      row.show(device);
    }
    this.timer ||= setTimeout(() => this.rearrange(), ARRANGE_MS);
  }

  count() {
    for (const button of this.buttons) {
      const count = [...this.model.devices.values()].filter(FILTERS[button.dataset.filter]).length;
      setText(button.querySelector("b"), count.toLocaleString("en"));
      setAttribute(button, "data-some", String(count > 0));
    }
  }

  sortBy(column) {
    this.isDescending = column === this.column && !this.isDescending;
    this.column = column;
    this.arrange();
  }

  /** The rows that are asked for, in the order that is asked for. */
  wanted() {
    const words = this.search.value.toLowerCase().split(/\s+/);
    const {order = (reading) => `${reading.main} ${reading.sub}`} = COLUMNS[this.column];
    const rows = [...this.rows.values()]
      .filter((row) => words.every((word) => row.text.includes(word)) && FILTERS[this.filter](row.device));
    for (const row of rows) row.order = order(row.readings[this.column]);
    const compare = (a, b) => typeof a === "number" ? a - b : this.collator.compare(a, b);
    return rows.sort((a, b) =>
      (this.first.checked && a.readings[1].rank - b.readings[1].rank) ||
      (this.isDescending ? -1 : 1) * compare(a.order, b.order) ||
      this.collator.compare(a.device.name, b.device.name));
  }

  /** Brings the rows into the order that is asked for, unless that would move them under a reader. */
  rearrange() {
    this.timer = 0;
    this.count();
    const wanted = this.wanted();
    if (wanted.length === this.shown.length && wanted.every((row, at) => row === this.shown[at])) {
      this.again.hidden = true;
      this.sayIfEmpty();
      return;
    }
    const isUnattended = Date.now() - this.touchedAt > UNATTENDED_MS && scrollY < 100;
    if (!this.isSettled || isUnattended || !this.shown.length) {
      this.arrange(wanted);
    } else {
      const shown = new Set(this.shown);
      const added = wanted.filter((row) => !shown.has(row));
      this.shown.push(...added);
      this.body.append(...added.map((row) => row.node));
      this.again.hidden = !this.shown.some((row, at) => row !== wanted[at]);
    }
  }

  arrange(wanted = this.wanted()) {
    this.again.hidden = true;
    const focused = document.activeElement;
    const kept = new Set(wanted);
    for (const row of this.shown) if (!kept.has(row)) row.node.remove();
    let next = this.body.firstChild;
    for (const row of wanted) {
      if (row.node === next) next = next.nextSibling;
      else this.body.insertBefore(row.node, next);
    }
    if (focused?.isConnected) focused.focus({preventScroll: true}); // a row that moves loses it
    this.shown = wanted;
    this.heads.forEach((head, at) => setAttribute(head, "aria-sort",
      at !== this.column ? "none" : this.isDescending ? "descending" : "ascending"));
    for (const button of this.buttons) {
      setAttribute(button, "aria-pressed", String(button.dataset.filter === this.filter));
    }
    this.sayIfEmpty();
  }

  sayIfEmpty() {
    this.empty.hidden = this.shown.length > 0;
    if (this.shown.length) return;
    setText(this.empty, this.rows.size ? "No device is like that." : this.waitingFor);
  }
}
