// TFTP transfers as they happen, block by block, the newest on top.
import { byId, element, onOneLine, setText, timeOfDay } from "./dom.js";
import { Chart } from "./chart.js";

const keptTransfers = 200;
const drawnBlocks = 16;
const outcomes = { running: "… running", done: "✓ done", error: "✗ error", abandoned: "– abandoned" };

const columns = [
  ["time", "Time"],
  ["direction", ""],
  ["file", "File"],
  ["blocks", "Blocks"],
  ["bytes", "Bytes"],
  ["repeats", "Repeats"],
  ["duration", "Took"],
  ["outcome", "Outcome"],
  ["station", "Station"],
];

/// Time that a transfer took, in milliseconds.
export function duration(transfer) {
  return Math.max(0, transfer.end - transfer.start) / 1000;
}

const milliseconds = (time) => `${time.toLocaleString("en", { maximumFractionDigits: time < 10 ? 2 : 0 })} ms`;

function outcomeText({ outcome, message }) {
  const text = outcomes[outcome] ?? outcome;
  return message ? `${text}: ${onOneLine(message)}` : text;
}

/// A transfer's blocks as a row of squares; the one that is under way is open.
class Blocks {
  constructor() {
    this.squares = element("span", { class: "squares", "aria-hidden": "true" });
    this.count = element("span");
    this.node = element("span", { class: "block-row" }, this.squares, this.count);
  }

  show(transfer) {
    const isRunning = transfer.outcome === "running";
    const wanted = Math.min(drawnBlocks, transfer.blocks + (isRunning ? 1 : 0));
    while (this.squares.childElementCount < wanted) this.squares.append(element("i"));
    while (this.squares.childElementCount > wanted) this.squares.lastChild.remove();
    [...this.squares.children].forEach((square, index) => {
      square.classList.toggle("open", isRunning && index === wanted - 1);
    });
    setText(this.count, transfer.blocks);
  }
}

class Row {
  constructor() {
    this.blocks = new Blocks();
    this.cells = new Map(columns.map(([name]) => [name, element("td", { class: name })]));
    this.cells.get("blocks").append(this.blocks.node);
    this.node = element("tr", {}, ...this.cells.values());
  }

  show(transfer) {
    this.node.dataset.outcome = transfer.outcome;
    this.node.dataset.file = transfer.file;
    this.blocks.show(transfer);
    const texts = {
      time: timeOfDay(Math.floor(transfer.start / 1000)),
      direction: transfer.write ? "▲ write" : "▼ read",
      file: onOneLine(transfer.file),
      station: transfer.station,
      bytes: transfer.bytes.toLocaleString("en"),
      repeats: transfer.repeats || "",
      duration: transfer.outcome === "running" ? "" : milliseconds(duration(transfer)),
      outcome: outcomeText(transfer),
    };
    for (const [name, text] of Object.entries(texts)) setText(this.cells.get(name), text);
  }
}

export class Transfers {
  #all = new Map();
  #rows = new Map();

  constructor() {
    this.chart = new Chart();
    this.body = element("tbody");
    this.nothing = element("p", { class: "hint empty" }, "No station has asked for anything yet.");
    const titles = columns.map(([name, title]) => element("th", { scope: "col", class: name }, title));
    const head = element("thead", {}, element("tr", {}, ...titles));
    const table = element("table", { class: "transfer-table", "aria-label": "Transfers" }, head, this.body);
    const region = { class: "scrolled", tabindex: 0, role: "region", "aria-label": "Transfers" };
    byId("transfers").append(this.chart.node, element("div", region, table, this.nothing));
  }

  restart(transfers) {
    this.#all.clear();
    this.#rows.clear();
    this.body.replaceChildren();
    this.add(transfers);
  }

  /// Takes transfers that are new or have gone on.
  add(transfers) {
    for (const transfer of transfers) {
      this.#all.set(transfer.number, transfer);
      this.#row(transfer.number).show(transfer);
    }
    for (const number of [...this.#all.keys()].slice(0, -keptTransfers)) this.#drop(number);
    this.nothing.hidden = this.#all.size > 0;
    this.chart.show([...this.#all.values()]);
  }

  #row(number) {
    if (!this.#rows.has(number)) {
      this.#rows.set(number, new Row());
      this.body.prepend(this.#rows.get(number).node);
    }
    return this.#rows.get(number);
  }

  #drop(number) {
    this.#rows.get(number).node.remove();
    this.#rows.delete(number);
    this.#all.delete(number);
  }
}
