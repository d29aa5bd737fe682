// How the unit is: up, booting, dark, off, gone, or out of reach. The last restart is shown step by step, because it may be
// over before anybody has looked.
import { ask } from "./actions.js";
import { byId, element, setText, timeOfDay } from "./dom.js";

const words = { up: "● up", booting: "◐ booting", dark: "○ dark", off: "✕ off", gone: "✕ no unit", lost: "✕ out of reach" };
const dimTime = 1200;
const steps = ["end", "boot", "ready"];

/// The last end, boot and ready among the journal's rows, as far as they belong to one restart.
class Restart {
  #rows = {};
  #last = 0;

  add(rows) {
    for (const row of rows.filter((one) => one.id > this.#last)) {
      this.#take(row);
      this.#last = row.id;
    }
  }

  #take(row) {
    const step = steps.indexOf(row.kind);
    if (step < 0) return;
    for (const later of steps.slice(step + 1)) delete this.#rows[later];
    // A boot without an end before it is the first one, or follows an end that nobody has written down.
    if (step > 0 && !(steps[step - 1] in this.#rows)) this.#rows = {};
    this.#rows[row.kind] = row;
  }

  texts() {
    const { end, boot, ready } = this.#rows;
    return [
      end && `dark ${timeOfDay(end.time)} (${end.text})`,
      boot && `booting ${timeOfDay(boot.time)} (${boot.text})`,
      ready && `up ${timeOfDay(ready.time)}`,
    ].filter(Boolean);
  }
}

function bannerText(phase, unit, lostAt) {
  const end = unit?.lastEnd ? ` (${unit.lastEnd})` : "";
  switch (phase) {
    case "lost":
      return `The panel is out of reach since ${timeOfDay(lostAt)}. What is shown below is old. Trying again.`;
    case "gone":
      return `No unit can be read in ${unit.folder}. What is shown below is old.`;
    case "off":
      return "The unit is off: no supervisor runs it.";
    case "dark":
      return `The unit is dark: the service has ended${end} and has not been started again yet.`;
    case "booting":
      return `The unit boots: ${unit.boot}. It does not answer yet.`;
    default:
      return unit?.boot === "safe boot" ? "The unit runs its safe-boot image." : "";
  }
}

export class Life {
  #unit = null;
  #lostAt = null;
  #restart = new Restart();
  #heard = []; // rows of restarts since the connection was made

  constructor(state) {
    state.watch(["unit"], (unit) => {
      this.#unit = unit;
      this.#show();
    });
  }

  /// Starts over, as after a lost connection: finds the last restart, however long ago it was.
  async restart(rows) {
    this.#heard = rows.filter((row) => steps.includes(row.kind));
    const questions = steps.map((kind) => ask(`/api/journal?kind=${kind}&limit=1`));
    const found = await Promise.all(questions).catch(() => []);
    this.#restart = new Restart();
    this.#restart.add(found.flatMap((page) => page.rows).sort((one, other) => one.id - other.id));
    this.add([]);
  }

  /// Takes new rows of the journal. A boot dims the drawing for a moment, for those who look at nothing else.
  add(rows) {
    this.#heard.push(...rows.filter((row) => steps.includes(row.kind)));
    this.#restart.add(this.#heard);
    if (rows.some((row) => row.kind === "boot")) this.#dim();
    byId("boot-steps").replaceChildren(...this.#restart.texts().map((text) => element("li", {}, text)));
  }

  #dim() {
    if (matchMedia("(prefers-reduced-motion: reduce)").matches) return;
    for (const drawing of document.querySelectorAll(".drawn"))
      drawing.animate([{ filter: "brightness(0.45)" }, { filter: "brightness(1)" }], dimTime);
  }

  setLost(isLost) {
    this.#lostAt = isLost ? Date.now() : null;
    this.#show();
  }

  #show() {
    const phase = this.#lostAt !== null ? "lost" : (this.#unit?.phase ?? "lost");
    document.body.dataset.phase = phase;
    setText(byId("phase"), words[phase] ?? phase);
    const text = bannerText(phase, this.#unit, this.#lostAt ?? Date.now());
    const banner = byId("banner");
    banner.hidden = text === "";
    banner.dataset.phase = phase;
    setText(banner, text);
    for (const part of document.querySelectorAll(".live")) part.inert = phase === "lost" || phase === "gone";
    this.#showIdentity();
  }

  #showIdentity() {
    if (this.#unit === null) return;
    const { model, serial, mac, folder } = this.#unit;
    const entries = [["Model", model], ["Serial", serial], ["MAC", mac], ["Folder", folder]];
    const entry = ([name, text]) => element("div", {}, element("dt", {}, name), element("dd", { title: text }, text));
    byId("identity").replaceChildren(...entries.map(entry));
    document.title = `${serial} ${document.body.dataset.phase} – Gateway panel`;
  }
}
