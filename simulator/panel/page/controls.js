// The cards beside the drawing: what the unit is connected to, and what somebody can do to it.
import { act } from "./actions.js";
import { byId, element, setText } from "./dom.js";
import { Field, Switch, button, card, holdable, press, release } from "./fields.js";

const speeds = ["10", "100", "1000"];
const insidePort = 5;

/// Lines of a name and a value in a list.
function facts(...names) {
  const values = new Map(names.map((name) => [name, element("dd")]));
  const node = element("dl", { class: "facts" });
  for (const [name, value] of values) node.append(element("dt", {}, name), value);
  return { node, set: (name, text) => setText(values.get(name), text) };
}

const spacer = () => element("span", { class: "grow" });
const hexadecimal = (number) => "0x" + Number(number).toString(16).padStart(4, "0");
const megabits = (bits) => (Number(bits) / 1e6).toLocaleString("en", { maximumFractionDigits: 3 });

/// Shows names in a list, which is left alone when it shows them already: each change of it is read out.
function showTests(list, names) {
  const shown = [...list.children].map((item) => item.textContent);
  if (shown.join() !== names.join()) list.replaceChildren(...names.map((name) => element("li", {}, name)));
}

function serviceCard(state) {
  const shown = facts("Boot", "Next boot", "Image", "Boot mode", "FTM mode", "Boots", "Last end");
  const tests = element("ul", { class: "chips", id: "active-tests", "aria-live": "polite" });
  state.watch(["unit"], (unit) => {
    shown.set("Boot", unit.boot);
    shown.set("Next boot", unit.nextBoot);
    shown.set("Image", unit.image);
    shown.set("Boot mode", hexadecimal(unit.bootMode));
    shown.set("FTM mode", hexadecimal(unit.ftmMode));
    shown.set("Boots", unit.boots);
    shown.set("Last end", unit.lastEnd || "none yet");
    showTests(tests, unit.activeTests.length > 0 ? unit.activeTests : ["none"]);
  });
  const actions = element(
    "p",
    { class: "buttons" },
    button("Reboot", () => act("reboot")),
    button("Safe boot", () => act("reboot", "--safe")),
    button("Kill service", () => act("kill"), { class: "danger" }),
  );
  return card("Service", [], shown.node, element("h3", {}, "Active tests"), tests, actions);
}

function buttonRow(name, label, state) {
  const named = { "data-button": name, "aria-label": `Press ${label} while held down` };
  const key = button("Press", () => {}, { class: "key-button", ...named });
  holdable(key, () => press(name), () => release(name));
  const turn = (isWanted) => (isWanted ? press(name) : release(name));
  const hold = new Switch(`Hold ${label} down`, ["Hold", "Held"], turn);
  state.watch(["buttons"], (buttons) => {
    const found = buttons.find((one) => one.name === name);
    if (found === undefined) return;
    hold.show(found.pressed);
    setText(key, found.pressed ? "Pressed" : "Press");
  });
  return element("div", { class: "row" }, element("span", { class: "grow" }, label), key, hold.node);
}

function buttonsCard(state) {
  return card("Buttons", [], buttonRow("reset", "Reset", state), buttonRow("wps", "WPS", state));
}

function lineCard(state) {
  const positions = ["down", "train", "up"].map((word) => button(word, () => act("line", word), { "data-line": word }));
  const shown = facts("Down / up", "Circuit", "Pair");
  state.watch(["line"], (line) => {
    const isPosition = (node) => node.dataset.line === (line.state === "training" ? "train" : line.state);
    for (const node of positions) node.setAttribute("aria-pressed", isPosition(node));
    const speeds = `${megabits(line.speedDown)} / ${megabits(line.speedUp)} Mbit/s`;
    shown.set("Down / up", line.state === "up" ? speeds : "no link");
    shown.set("Circuit", line.circuit || "none");
  });
  state.watch(["outputs"], (outputs) => {
    shown.set("Pair", outputs.find((output) => output.name === "eDSLPair")?.on ? "outer" : "inner");
  });
  const segments = element("div", { class: "segments", role: "group", "aria-label": "DSL line" }, ...positions);
  return card("DSL line", [segments], shown.node);
}

class PortRow {
  constructor(number) {
    const name = number === insidePort ? `${number} inside` : `LAN ${number}`;
    const plug = (isWanted) => act("port", number, isWanted ? "up" : "down");
    this.link = new Switch(`${name}: link`, ["down", "up"], plug);
    this.speed = element("select", { "aria-label": `${name}: speed in Mbit/s` });
    this.speed.append(element("option", { value: "" }, "–"), ...speeds.map((speed) => element("option", {}, speed)));
    this.speed.addEventListener("change", () => this.speed.value && act("speed", number, this.speed.value));
    this.received = element("td", { class: "number" });
    this.sent = element("td", { class: "number" });
    this.node = element(
      "tr",
      { "data-port": number },
      element("th", { scope: "row" }, name),
      element("td", {}, this.link.node),
      element("td", {}, this.speed),
      this.received,
      this.sent,
    );
  }

  show(port) {
    this.link.show(port.up);
    this.speed.value = port.up && speeds.includes(String(port.megabits)) ? String(port.megabits) : "";
    setText(this.received, port.received);
    setText(this.sent, port.sent);
  }
}

function portsCard(state) {
  const rows = new Map();
  const body = element("tbody");
  const title = (text, kind = "") => element("th", { scope: "col", class: kind }, text);
  const titles = [title("Port"), title("Link"), title("Mbit/s"), title("Received", "number"), title("Sent", "number")];
  const head = element("thead", {}, element("tr", {}, ...titles));
  const turn = (isWanted) => act("traffic", isWanted ? "on" : "off");
  const traffic = new Switch("Traffic", ["Traffic off", "Traffic on"], turn);
  state.watch(["ports"], (ports) => {
    for (const port of ports) {
      if (!rows.has(port.number)) {
        rows.set(port.number, new PortRow(port.number));
        body.append(rows.get(port.number).node);
      }
      rows.get(port.number).show(port);
    }
  });
  state.watch(["traffic"], (isOn) => traffic.show(isOn));
  return card("Ethernet", [traffic.node], element("table", { class: "compact" }, head, body));
}

function radioCard(state) {
  const power = new Switch("Radio", ["Off", "On"], (isWanted) => act("radio", isWanted ? "up" : "down"));
  const ssid = new Field("SSID", (text) => act("radio", "ssid", "--", text), { maxlength: 32, id: "ssid" });
  const channels = { type: "number", min: 1, max: 14, class: "short" };
  const channel = new Field("Channel", (text) => act("radio", "channel", text), channels);
  const stations = element("output", { id: "stations" });
  const hint = element("span", { class: "hint" });
  const shown = facts("Country", "MAC");
  const join = button("Join", () => act("station", "join"), { "aria-label": "A station joins" });
  const leave = button("Leave", () => act("station", "leave"), { "aria-label": "A station leaves" });
  state.watch(["radio"], (radio) => {
    power.show(radio.up);
    ssid.show(radio.ssid);
    channel.show(radio.channel);
    ssid.node.disabled = !radio.up;
    channel.node.disabled = radio.up;
    join.disabled = !radio.up;
    leave.disabled = !radio.up || Number(radio.stations) === 0;
    setText(hint, radio.up ? "set while off" : "");
    setText(stations, radio.stations);
    shown.set("Country", radio.country);
    shown.set("MAC", radio.mac);
  });
  return card(
    "Radio",
    [power.node],
    element("div", { class: "row" }, element("label", { for: "ssid" }, "SSID"), ssid.node),
    element("div", { class: "row" }, element("span", {}, "Channel"), channel.node, hint),
    element("div", { class: "row" }, element("span", {}, "Stations"), stations, spacer(), join, leave),
    shown.node,
  );
}

function phoneRow(number, relay, led) {
  return element(
    "div",
    { class: "row" },
    element("span", { class: "grow" }, `Line ${number}`),
    element("span", { class: "lamp-state" }, `lamp ${led?.on ? "on" : "off"}`),
    element("span", { class: "relay-word" }, `relay ${relay.on ? "closed" : "open"}`),
  );
}

function phonesCard(state) {
  const rows = element("div");
  state.watch(["relays", "leds"], (relays, leds) => {
    const ledOf = (number) => leds.find((led) => led.name === `eVoice${number}GrnLed`);
    rows.replaceChildren(...relays.map((relay, index) => phoneRow(index + 1, relay, ledOf(index + 1))));
  });
  return card("Telephone lines", [], rows);
}

function usbCard(state) {
  const input = (name, label, maxlength, attributes = {}) => {
    const labels = { "aria-label": label, placeholder: label };
    return element("input", { id: `usb-${name}`, name, maxlength, autocomplete: "off", ...labels, ...attributes });
  };
  const vendor = input("vendor", "Vendor", 8, { required: true });
  const model = input("model", "Model", 16, { required: true });
  const rev = input("rev", "Rev", 4);
  const list = element("ul", { class: "devices" });
  const form = element("form", { class: "row plug" }, vendor, model, rev, element("button", {}, "Plug"));
  form.addEventListener("submit", async (event) => {
    event.preventDefault();
    const options = [vendor, model, rev].filter((one) => one.value !== "").map((one) => `--${one.name}=${one.value}`);
    if (await act("usb", "plug", ...options)) form.reset();
  });
  const unplug = button("Unplug all", () => act("usb", "unplug"));
  state.watch(["usb"], (devices) => {
    unplug.disabled = devices.length === 0;
    const names = devices.map((device) => `${device.vendor} ${device.model} ${device.rev} · ${device.type}`);
    const lines = names.length > 0 ? names : ["Nothing is plugged in"];
    list.replaceChildren(...lines.map((line) => element("li", {}, line)));
  });
  return card("USB", [unplug], list, form);
}

/// Makes the cards of the board.
export function makeControls(state) {
  byId("controls").append(
    serviceCard(state),
    buttonsCard(state),
    lineCard(state),
    portsCard(state),
    radioCard(state),
    phonesCard(state),
    usbCard(state),
  );
}
