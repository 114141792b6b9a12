"use strict";
// Joins the parts: what comes from the broker is gathered, and shown once a frame.

const SILENCE_MS = 5000; // after a connection, until what was not heard again is doubted

const parameters = new URLSearchParams(location.search);
const model = new Model(parameters.get("prefix") ?? "status");
const fleet = new Fleet(document.querySelector("#fleet"), model);
const view = new DeviceView(document.querySelector("#device"), model);
const line = document.querySelector("#connection");
const login = document.querySelector("#login");
const changed = new Set();
let frame = 0;
let scrolled = 0; // how far the fleet was, when it was left
let lastContact = 0;
let isOnline = false;

function schedule(names) {
  for (const name of names) changed.add(name);
  frame ||= requestAnimationFrame(render);
}

function render() {
  frame = 0;
  // The fleet waits while it is not seen.
  if (view.name === null) {
    fleet.show(changed);
    changed.clear();
  } else if (changed.has(view.name)) {
    view.show();
  }
}

/** The part of the address behind # names a device; without one, the fleet is shown. */
function follow() {
  let name = "";
  try {
    name = decodeURIComponent(location.hash.slice(1));
  } catch { // no name of ours
  }
  const left = view.name;
  if (name) view.open(name);
  else view.close();
  document.querySelector("#fleet").hidden = Boolean(name);
  document.querySelector("#device").hidden = !name;
  document.title = name ? `${name} – device status` : "Device status";
  if (name) {
    if (left === null) scrolled = scrollY;
    view.heading.focus({preventScroll: true});
    scrollTo(0, 0);
  } else {
    schedule([]);
    scrollTo(0, scrolled);
    if (left) fleet.rows.get(left)?.link.focus({preventScroll: true});
  }
}

function tell(kind, text) {
  if (isOnline && kind !== "online") lastContact = Date.now();
  isOnline = kind === "online";
  const old = lastContact && !isOnline ? ` What is shown is of ${clock(lastContact)} and may be old.` : "";
  if (kind === "waiting") {
    const what = lastContact ? `The connection to ${connection.address} is lost` : `No answer from ${connection.address}`;
    text = `${what}${text && ` (${text})`}.${old} Trying again by itself.`;
  } else {
    text = isOnline ? text : `${text.replace(/\.$/, "")}.${old}`;
  }
  // While it tries again and again, the text stays, so that a screen reader says it once.
  if (kind !== "connecting" || line.dataset.kind !== "waiting") {
    setText(line, text);
    line.dataset.kind = kind;
  }
  document.body.dataset.connection = isOnline ? "online" : lastContact ? "lost" : "none";
  fleet.waitingFor = isOnline ? `Nothing has come below ${model.prefix}/: no device has published, or this user may not read it.` : "";
  fleet.sayIfEmpty();
  login.hidden = kind !== "login" && (kind !== "connecting" || login.hidden);
  if (kind === "login") login.elements.user.focus();
  if (isOnline) {
    const {since} = connection;
    setTimeout(() => isOnline && since === connection.since && schedule(model.doubt(since)), SILENCE_MS);
  }
}

function take(topic, text, isRetained) {
  if (isRetained) fleet.loadedAt = Date.now();
  const name = model.take(topic, text, Date.now());
  if (name !== null) schedule([name]);
}

let connection;
function start() {
  let address;
  try {
    address = brokerAddress(parameters.get("broker"), location);
  } catch (error) {
    tell("refused", error.message);
    return;
  }
  const {origin, hostname} = new URL(address);
  if (!hostname.startsWith("[")) { // a policy can't name an IPv6 address
    // From here on, the browser itself lets this page speak with the broker only.
    document.head.append(element("meta",
      {"http-equiv": "Content-Security-Policy", "content": `connect-src ${origin}`}));
  }
  connection = new Connection(address, `${model.prefix}/+/+`, tell, take);
  login.addEventListener("submit", (event) => {
    event.preventDefault();
    connection.open({username: login.elements.user.value, password: login.elements.password.value});
  });
  connection.open();
}

addEventListener("hashchange", follow);
follow();
start();
