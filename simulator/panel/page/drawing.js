// The unit's front and back as a drawing: what it shows, and what can be pressed and plugged on it.
import { act } from "./actions.js";
import { byId, drawn, setText } from "./dom.js";
import { clickable, holdable, press, release } from "./fields.js";

const frontLamps = [
  ["Power", "POWER"],
  ["DSL", "DSL"],
  ["Internet", "INTERNET"],
  ["Wireless", "WIRELESS"],
  ["USB", "USB"],
  ["Voice1", "VOICE 1"],
  ["Voice2", "VOICE 2"],
  ["Eth0", "LAN 1"],
  ["Eth1", "LAN 2"],
  ["Eth2", "LAN 3"],
  ["Eth3", "LAN 4"],
];
const buttonLamp = "EC";
const firstLampAt = 230;
const lampPitch = 60;
const labelAt = 82;
const wordAt = 95;
const socketTop = 103;
const cableTop = 157;
const cableEnd = 246;
const relayAt = 176;

/// The LEDs by the lamps that they are in: "ePowerGrnLed" and "ePowerRedLed" are in "Power".
function lampsOf(leds) {
  const lamps = new Map();
  for (const led of leds) {
    const [, lamp, colour] = /^e(.+?)(Grn|Red)?Led$/.exec(led.name) ?? [null, led.name, undefined];
    if (!lamps.has(lamp)) lamps.set(lamp, { green: false, red: false, leds: [] });
    const found = lamps.get(lamp);
    found.leds.push(led);
    found[colour === "Red" ? "red" : "green"] ||= led.on;
  }
  return lamps;
}

function shownBy({ green, red }) {
  if (green && red) return "both";
  if (green) return "green";
  return red ? "red" : "off";
}

/// A lamp: each colour has a shape too. Green fills the round lamp, red is a bar, both are a round with a bar.
class Lamp {
  constructor(name, label, x, y) {
    this.label = label;
    this.title = drawn("title");
    this.word = drawn("text", { class: "lamp-word", x, y: y + 36 });
    this.node = drawn(
      "g",
      { class: "lamp", "data-lamp": name, role: "img" },
      this.title,
      drawn("circle", { class: "glow", cx: x, cy: y, r: 15 }),
      drawn("circle", { class: "lens", cx: x, cy: y, r: 7.5 }),
      drawn("rect", { class: "bar-mark", x: x - 5.5, y: y - 2, width: 11, height: 4, rx: 1 }),
      drawn("circle", { class: "spark", cx: x - 2.4, cy: y - 2.6, r: 1.7 }),
      drawn("text", { class: "lamp-label", x, y: y + 22 }, label),
      this.word,
    );
  }

  show(lamp) {
    const shows = shownBy(lamp);
    this.node.dataset.shows = shows;
    setText(this.word, shows === "both" ? "green+red" : shows);
    const leds = lamp.leds.map((led) => `${led.number} ${led.name} ${led.on ? "on" : "off"}`).join(", ");
    setText(this.title, `${this.label}: ${shows} (${leds})`);
  }
}

/// A button of the unit that is pressed while it is held.
function pressable(name, label, ...shape) {
  const attributes = { class: "pressable", "data-button": name, role: "button", tabindex: 0, "aria-label": label };
  const node = drawn("g", attributes, ...shape);
  holdable(node, () => press(name), () => release(name));
  return node;
}

/// A socket with its label above, its state in words below, and the cable that is in it.
class Socket {
  constructor(name, label, x, width, kind, clicked) {
    this.word = drawn("text", { class: "socket-word", x, y: wordAt });
    this.title = drawn("title");
    const bend = `${x} ${cableTop + 60} ${x + 7} ${cableTop + 64} ${x + 7} ${cableEnd}`;
    const d = `M${x} ${cableTop - 6}V${cableTop + 30}C${bend}`;
    const cord = [drawn("path", { class: "cord-edge", d }), drawn("path", { class: "cord", d })];
    this.node = drawn(
      "g",
      { class: `socket ${kind}`, "data-socket": name },
      this.title,
      drawn("text", { class: "socket-label emboss", x, y: labelAt }, label),
      ...shapes[kind](x, width),
      drawn("g", { class: "cable" }, ...cord, ...plugs[kind](x, width)),
      this.word,
    );
    if (clicked === undefined) return;
    this.node.setAttribute("tabindex", 0);
    this.node.setAttribute("role", "switch");
    clickable(this.node, () => clicked(this.isPlugged));
  }

  show(isPlugged, word, title) {
    this.isPlugged = isPlugged;
    this.node.classList.toggle("plugged", isPlugged);
    if (this.node.getAttribute("role") === "switch") this.node.setAttribute("aria-checked", isPlugged);
    setText(this.word, word);
    setText(this.title, title);
  }
}

const frame = (x, width, height = 58) =>
  drawn("rect", { class: "socket-frame", x: x - width / 2, y: socketTop, width, height, rx: 3 });

function modularSocket(x, width) {
  const inner = width - 14;
  const left = x - inner / 2;
  const contacts = width > 60 ? 8 : 4;
  const contactAt = (index) => left + (inner * (index + 0.7)) / (contacts + 0.4) - 1;
  const notch = `h-${inner * 0.2}v9h-${inner * 0.6}v-9h-${inner * 0.2}`;
  return [
    frame(x, width),
    drawn("path", { class: "hole", d: `M${left} ${socketTop + 7}h${inner}v32${notch}z` }),
    ...Array.from({ length: contacts }, (_, index) =>
      drawn("rect", { class: "contact", x: contactAt(index), y: socketTop + 7, width: 2, height: 10 })),
  ];
}

function modularPlug(x, width) {
  const inner = width - 20;
  return [
    drawn("rect", { class: "plug", x: x - inner / 2, y: socketTop + 12, width: inner, height: 42, rx: 3 }),
    drawn("rect", { class: "latch", x: x - inner / 6, y: socketTop + 30, width: inner / 3, height: 28, rx: 2 }),
  ];
}

const shapes = {
  lan: (x, width) => [
    ...modularSocket(x, width),
    drawn("rect", { class: "link", x: x - width / 2 + 3, y: socketTop + 49, width: 12, height: 6, rx: 1 }),
  ],
  dsl: modularSocket,
  voice: modularSocket,
  usb: (x, width) => [
    drawn("rect", { class: "socket-frame", x: x - width / 2, y: socketTop + 10, width, height: 32, rx: 2 }),
    drawn("rect", { class: "hole", x: x - width / 2 + 4, y: socketTop + 14, width: width - 8, height: 24 }),
    drawn("rect", { class: "tongue", x: x - width / 2 + 8, y: socketTop + 17, width: width - 16, height: 8 }),
  ],
  power: (x) => [
    drawn("circle", { class: "socket-frame", cx: x, cy: socketTop + 28, r: 19 }),
    drawn("circle", { class: "hole", cx: x, cy: socketTop + 28, r: 13 }),
    drawn("circle", { class: "contact", cx: x, cy: socketTop + 28, r: 3.5 }),
  ],
};
const plugs = {
  lan: modularPlug,
  dsl: modularPlug,
  voice: modularPlug,
  usb: (x, width) => [
    drawn("rect", { class: "plug", x: x - width / 2 + 4, y: socketTop + 14, width: width - 8, height: 62, rx: 4 }),
    drawn("rect", { class: "latch", x: x - width / 2 + 10, y: socketTop + 40, width: width - 20, height: 28, rx: 2 }),
  ],
  power: (x) => [
    drawn("circle", { class: "plug", cx: x, cy: socketTop + 28, r: 11 }),
    drawn("rect", { class: "plug", x: x - 7, y: socketTop + 28, width: 14, height: 40, rx: 4 }),
  ],
};

/// Contacts of a relay, closed or open.
function relay(x) {
  return drawn(
    "g",
    { class: "relay" },
    drawn("path", { class: "wire", d: `M${x - 24} ${relayAt}h14M${x + 10} ${relayAt}h14` }),
    drawn("path", { class: "arm", d: `M${x - 10} ${relayAt}h20` }),
    drawn("circle", { class: "dot", cx: x - 10, cy: relayAt, r: 2 }),
    drawn("circle", { class: "dot", cx: x + 10, cy: relayAt, r: 2 }),
  );
}

const shortened = (text) => (text.length > 16 ? text.slice(0, 15) + "…" : text);

/// The type plate, with what the station has given the unit for an identity.
function makePlate() {
  const serial = drawn("text", { x: 976, y: 128 });
  const mac = drawn("text", { x: 976, y: 156 });
  const node = drawn(
    "g",
    { class: "plate" },
    drawn("rect", { x: 902, y: 104, width: 80, height: 60, rx: 3 }),
    drawn("text", { class: "plate-name", x: 908, y: 116 }, "S/N"),
    serial,
    drawn("text", { class: "plate-name", x: 908, y: 144 }, "MAC"),
    mac,
  );
  return {
    node,
    show(unit) {
      setText(serial, shortened(unit.serial));
      setText(mac, unit.mac.length > 17 ? shortened(unit.mac) : unit.mac);
    },
  };
}

function drawFront(state) {
  const lamps = new Map(
    frontLamps.map(([name, label], index) => [name, new Lamp(name, label, firstLampAt + index * lampPitch, 48)]),
  );
  byId("lamps").append(...[...lamps.values()].map((lamp) => lamp.node));

  const wps = pressable(
    "wps",
    "WPS button: hold it down to press it",
    drawn("circle", { class: "key-rim", cx: 918, cy: 56, r: 28 }),
    drawn("circle", { class: "key", cx: 918, cy: 56, r: 22 }),
    drawn("path", { class: "key-sign", d: "M908 60a13 13 0 0 1 20-8M929 46v7h-7M928 53a13 13 0 0 1-20 8M907 67v-7h7" }),
  );
  const wpsLamp = new Lamp(buttonLamp, "WPS", 962, 48);
  lamps.set(buttonLamp, wpsLamp);
  byId("front-buttons").append(wps, wpsLamp.node);

  state.watch(["leds"], (leds) => {
    for (const [name, lamp] of lampsOf(leds)) lamps.get(name)?.show(lamp);
  });
}

function drawSockets(state) {
  const place = byId("sockets");
  const power = new Socket("power", "POWER", 68, 40, "power");
  const usb = new Socket("usb", "USB", 236, 52, "usb", (isPlugged) => {
    if (isPlugged) act("usb", "unplug");
    else byId("usb-vendor").focus();
  });
  const lan = [1, 2, 3, 4].map(
    (number) =>
      new Socket(`port-${number}`, `LAN ${number}`, 334 + (number - 1) * 88, 76, "lan", (isPlugged) =>
        act("port", number, isPlugged ? "down" : "up")),
  );
  const dsl = new Socket("line", "DSL", 712, 52, "dsl", (isPlugged) => act("line", isPlugged ? "down" : "train"));
  const voice = [1, 2].map((number) => {
    const x = 792 + (number - 1) * 74;
    const socket = new Socket(`voice-${number}`, `VOICE ${number}`, x, 52, "voice");
    socket.node.append(relay(x));
    return socket;
  });
  const reset = pressable(
    "reset",
    "Reset button: hold it down to press it",
    drawn("text", { class: "socket-label emboss", x: 150, y: labelAt }, "RESET"),
    drawn("rect", { class: "reach", x: 116, y: 72, width: 68, height: 78 }),
    drawn("circle", { class: "key-rim", cx: 150, cy: socketTop + 28, r: 14 }),
    drawn("circle", { class: "pin", cx: 150, cy: socketTop + 28, r: 7 }),
    drawn("text", { class: "socket-word", x: 150, y: wordAt }),
  );
  const plate = makePlate();
  const sockets = [...lan, dsl, ...voice].map((socket) => socket.node);
  place.append(plate.node, power.node, reset, usb.node, ...sockets);

  state.watch(["unit"], (unit) => {
    const isOff = unit.phase === "off" || unit.phase === "gone";
    power.show(!isOff, isOff ? "off" : "on", isOff ? "The unit is off" : "The unit has power");
    setText(byId("front-model"), shortened(unit.model));
    plate.show(unit);
  });
  state.watch(["usb"], (devices) => {
    if (devices.length === 0) return usb.show(false, "empty", "USB: nothing plugged in. Click to plug something in");
    const names = devices.map((device) => `${device.vendor} ${device.model}`).join(", ");
    usb.show(true, devices.length > 1 ? `${devices.length} devices` : "plugged", `USB: ${names}. Click to unplug`);
  });
  state.watch(["ports"], (ports) => {
    for (const port of ports) {
      const link = port.up ? `${port.megabits} Mbit/s` : "no link";
      const title = `LAN ${port.number}: ${link}. Click to ${port.up ? "unplug" : "plug in"}`;
      lan[port.number - 1]?.show(port.up, link, title);
    }
  });
  state.watch(["line"], (line) => {
    dsl.node.dataset.state = line.state;
    const isDown = line.state === "down";
    dsl.show(!isDown, line.state, `DSL line: ${line.state}. Click to ${isDown ? "let it train" : "cut it"}`);
  });
  state.watch(["relays"], (relays) => {
    relays.forEach((closed, index) => {
      const socket = voice[index];
      if (socket === undefined) return;
      socket.node.classList.toggle("closed", closed.on);
      const word = closed.on ? "closed" : "open";
      socket.show(false, word, `Telephone line ${index + 1}: relay ${closed.name} is ${word}`);
    });
  });
}

function drawRadio(state) {
  for (const x of [70, 930])
    for (const radius of [16, 25, 34]) {
      const left = `M${x - radius} 36a${radius} 28 0 0 1 0-26`;
      const right = `M${x + radius} 36a${radius} 28 0 0 0 0-26`;
      byId("waves").append(drawn("path", { class: "wave", d: left + right }));
    }
  state.watch(["radio"], (radio) => byId("back").classList.toggle("radiates", radio.up));
}

function showButton(name, isPressed) {
  for (const node of document.querySelectorAll(`[data-button="${CSS.escape(name)}"]`)) {
    node.setAttribute("aria-pressed", isPressed);
    const word = node.querySelector(".socket-word");
    if (word !== null) setText(word, isPressed ? "pressed" : "released");
  }
}

/// Draws the unit and keeps the drawing as the unit is.
export function draw(state) {
  drawFront(state);
  drawSockets(state);
  drawRadio(state);
  state.watch(["buttons"], (buttons) => {
    for (const { name, pressed } of buttons) showButton(name, pressed);
  });
  state.watch(["testMode"], (isHeld) => {
    byId("held").hidden = !isHeld;
    byId("front").classList.toggle("held", isHeld);
  });
}
