// How long transfers took, on a logarithmic scale: reads are round, writes are triangles, failures are crosses.
import { drawn, element } from "./dom.js";
import { duration } from "./transfers.js";

const shownTransfers = 50;
const height = 190;
const margin = { left: 74, right: 14, top: 14, bottom: 40 };
const decades = [0.01, 0.1, 1, 10, 100, 1000, 10000, 100000];
const gap = 90; // between two labels of the time axis

const place = (value, from, to, start, end) => start + ((value - from) / (to - from)) * (end - start);
const amount = (time) => (time >= 1000 ? `${time / 1000} s` : `${time} ms`);

/// The decades that the times lie between, two at the least.
function rangeOf(times) {
  const low = decades.filter((decade) => decade <= Math.min(...times)).at(-1) ?? decades[0];
  const high = decades.find((decade) => decade >= Math.max(...times) && decade > low) ?? decades.at(-1);
  return [low, high];
}

const marks = {
  read: (x, y) => drawn("circle", { cx: x, cy: y, r: 4 }),
  write: (x, y) => drawn("path", { d: `M${x} ${y - 5}l5 9h-10z` }),
  failed: (x, y) => drawn("path", { d: `M${x - 4} ${y - 4}l8 8M${x + 4} ${y - 4}l-8 8` }),
};

function markOf(transfer) {
  if (transfer.outcome !== "done") return "failed";
  return transfer.write ? "write" : "read";
}

function legendEntry(kind, text) {
  const box = { viewBox: "0 0 14 14", width: 14, height: 14, "aria-hidden": "true", class: `mark ${kind}` };
  const sign = drawn("svg", box, marks[kind](7, 7));
  return element("li", {}, sign, text);
}

export class Chart {
  #transfers = [];

  constructor() {
    this.svg = drawn("svg", { class: "chart", role: "img", height });
    const legend = element(
      "ul",
      { class: "legend" },
      legendEntry("read", "read"),
      legendEntry("write", "write"),
      legendEntry("failed", "failed or abandoned"),
    );
    const title = element("span", {}, `Time taken by the last ${shownTransfers} transfers`);
    const head = element("figcaption", {}, title, legend);
    this.node = element("figure", { class: "chart-figure" }, head, this.svg);
    new ResizeObserver(() => this.#draw()).observe(this.node);
  }

  show(transfers) {
    this.#transfers = transfers.filter((transfer) => transfer.outcome !== "running").slice(-shownTransfers);
    this.#draw();
  }

  #draw() {
    const width = this.node.clientWidth;
    if (width === 0) return;
    this.svg.setAttribute("width", width);
    this.svg.setAttribute("viewBox", `0 0 ${width} ${height}`);
    const times = this.#transfers.map(duration);
    this.svg.setAttribute("aria-label", this.#inWords(times));
    const [low, high] = times.length > 0 ? rangeOf(times) : [0.1, 100];
    const across = (index) => place(index + 0.5, 0, shownTransfers, margin.left, width - margin.right);
    const up = (time) => {
      const shown = Math.min(high, Math.max(low, time));
      return place(Math.log10(shown), Math.log10(low), Math.log10(high), height - margin.bottom, margin.top);
    };
    const clock = this.#clock(width, across);
    this.svg.replaceChildren(...this.#axes(width, low, high, up), ...clock, ...this.#points(across, up));
  }

  #inWords(times) {
    if (times.length === 0) return "No transfers yet";
    const done = this.#transfers.filter((transfer) => transfer.outcome === "done").length;
    return `${times.length} transfers, ${done} of them done; the longest took ${Math.max(...times)} ms`;
  }

  #axes(width, low, high, up) {
    const lines = decades
      .filter((decade) => decade >= low && decade <= high)
      .flatMap((decade) => [
        drawn("path", { class: "grid", d: `M${margin.left} ${up(decade)}H${width - margin.right}` }),
        drawn("text", { class: "tick end", x: margin.left - 8, y: up(decade) + 4 }, amount(decade)),
      ]);
    const middle = (margin.top + height - margin.bottom) / 2;
    return [
      ...lines,
      drawn("text", { class: "axis-name", transform: `translate(12 ${middle}) rotate(-90)` }, "time taken"),
      drawn("text", { class: "axis-name", x: (margin.left + width - margin.right) / 2, y: height - 4 }, "started at"),
    ];
  }

  /// Times of day below some of the transfers, as many as there is room for.
  #clock(width, across) {
    const step = Math.max(1, Math.ceil((gap * shownTransfers) / (width - margin.left - margin.right)));
    const axis = height - margin.bottom;
    return this.#transfers.flatMap((transfer, index) => {
      if (index % step !== 0) return [];
      const time = new Date(transfer.start / 1000).toLocaleTimeString("en-GB");
      return [
        drawn("path", { class: "grid", d: `M${across(index)} ${axis}v5` }),
        drawn("text", { class: "tick", x: across(index), y: axis + 17 }, time),
      ];
    });
  }

  #points(across, up) {
    return this.#transfers.map((transfer, index) => {
      const kind = markOf(transfer);
      const time = duration(transfer);
      const what = `${transfer.write ? "write" : "read"} ${transfer.file}`;
      const title = drawn("title", {}, `${transfer.number} ${what}: ${transfer.outcome}, ${time} ms`);
      return drawn("g", { class: `mark ${kind}` }, title, marks[kind](across(index), up(time)));
    });
  }
}
