"use strict";
// The connection to the broker: one client object for each try, and the reasons in words.

const KEEPALIVE_S = 20;
const PATIENCE_MS = 10000;
const LONGEST_WAIT_MS = 15000;
const WRONG_LOGIN = new Set([4, 5, 134, 135]); // reason codes of MQTT 3.1.1 and 5

/** The broker's address: as asked for, or where the page came from. Throws what is wrong with it. */
function brokerAddress(asked, page) {
  const scheme = page.protocol === "https:" ? "wss:" : "ws:";
  if (!asked && !page.host) throw new Error("Name a broker in the address: ?broker=ws://HOST:PORT");
  const text = asked ? (/^\w+:\/\//.test(asked) ? asked : `${scheme}//${asked}`) : `${scheme}//${page.host}/mqtt`;
  const url = URL.canParse(text) ? new URL(text) : null;
  if (!url || !/^([\w.-]+|\[.*\])$/.test(url.hostname)) {
    throw new Error(`“${asked}” is no address of a broker: say ws://HOST:PORT or wss://HOST:PORT`);
  }
  if (!["ws:", "wss:"].includes(url.protocol)) {
    throw new Error(`A browser reaches a broker by ws:// or wss://, not by ${url.protocol}//`);
  }
  if (url.username || url.password) throw new Error("Leave user and password out of the address");
  return url.origin + url.pathname;
}

class Connection {
  /**
   * `tell(kind, text)`: "connecting", "online", "waiting" (for the next try), "login" (user and
   * password are wanted) or "refused" (for good). `take(topic, text, isRetained)`: a message,
   * and whether the broker had it already when the page asked.
   */
  constructor(address, filter, tell, take) {
    Object.assign(this, {address, filter, tell, take, failures: 0, login: {}, timer: 0, since: 0});
    addEventListener("online", () => this.timer && this.open());
  }

  open(login = this.login) {
    clearTimeout(this.timer);
    this.timer = 0;
    this.login = login;
    this.client?.end(true);
    this.tell("connecting", `Connecting to ${this.address}`);
    const id = [...crypto.getRandomValues(new Uint8Array(6))].map((byte) => byte.toString(16)).join("");
    let client;
    try {
      client = mqtt.connect(this.address, {
        ...login, clientId: `status-page-${id}`, protocolVersion: 5, clean: true,
        keepalive: KEEPALIVE_S, connectTimeout: PATIENCE_MS, reconnectPeriod: 0,
        timerVariant: "native", // any other needs a worker, which the page's policy forbids
      });
    } catch (error) { // the browser's own refusal, as of ws:// on a page of https://
      this.tell("refused", `The browser does not connect to ${this.address}: ${error.message}`);
      return;
    }
    this.client = client;
    this.follow(client);
  }

  follow(client) {
    let reason = "";
    let isOver = false;
    client.on("connect", () => {
      this.since = Date.now();
      client.subscribe(this.filter, {qos: 0}, (error, grants) => {
        const isRefused = error || grants.some((grant) => grant.qos >= 128);
        if (isRefused && !client.disconnecting) {
          isOver = true;
          client.end(true);
          this.tell("login", `The broker does not let this user read ${this.filter}`);
        } else if (!isRefused) {
          this.failures = 0;
          this.tell("online", `Connected to ${this.address}`);
        }
      });
    });
    const decoder = new TextDecoder();
    client.on("message", (topic, payload, {retain}) => this.take(topic, decoder.decode(payload), retain));
    client.on("disconnect", (packet) => reason = `it said ${packet.reasonCode}`);
    client.on("error", (error) => {
      if (WRONG_LOGIN.has(error.code)) {
        isOver = true;
        client.end(true);
        this.tell("login", this.login.username ? "Wrong user or password" : "The broker wants a user and a password");
      } else {
        reason = error.message;
      }
    });
    client.on("close", () => {
      if (isOver || client !== this.client) return;
      isOver = true;
      client.end(true);
      this.wait(reason);
    });
  }

  /** The waits double, so that a broker that comes back is not run over by all pages at once. */
  wait(reason) {
    const longest = Math.min(1000 * 2 ** this.failures++, LONGEST_WAIT_MS);
    const wait = longest * (0.5 + Math.random() / 2);
    this.timer = setTimeout(() => this.open(), wait);
    this.tell("waiting", reason);
  }
}
