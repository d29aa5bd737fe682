// The journal as it grows. Only the rows in sight are elements of the page, so that any number of them stays quick.
// What is filtered out is never fetched; what is older is fetched when somebody scrolls to it.
import { ask } from "./actions.js";
import { byId, element, onOneLine, setText, timeOfDay } from "./dom.js";
import { toast } from "./toasts.js";

const rowHeight = 22;
const spareRows = 12;
const fetchedAtOnce = 1000;
const keptRows = 50000;
const recentRows = 2000;
const typingPause = 200;
const knownKinds = [
  "action", "boot", "button", "circuit", "command", "end", "line", "log", "message", "radio", "ready", "reboot",
  "remove", "request", "reset", "signal", "switch", "usb", "wire", "write",
];

export class Journal {
  #rows = []; // what passes the filter, oldest first
  #recent = []; // the newest of all
  #filter = { kind: "", text: "" };
  #hasOlder = true;
  #fetching = 0; // number of the fetch that is awaited, or 0
  #fetches = 0;
  #isFollowing = true;
  #isDrawing = false;

  constructor() {
    this.kind = element("select", { "aria-label": "Kind of rows" }, element("option", { value: "" }, "all kinds"));
    this.kind.append(...knownKinds.map((kind) => element("option", {}, kind)));
    const labels = { placeholder: "text in a row", "aria-label": "Text in a row" };
    this.text = element("input", { type: "search", autocomplete: "off", spellcheck: "false", ...labels });
    this.count = element("output", { class: "hint" });
    this.follow = element("button", { type: "button", class: "follow", hidden: true }, "↓ Newest");
    this.window = element("div", { class: "rows" });
    const table = { class: "journal-list", role: "table", tabindex: 0, "aria-label": "Journal" };
    this.list = element("div", table, this.window);
    const tools = element("div", { class: "tools" }, this.kind, this.text, this.count, this.follow);
    byId("journal").append(tools, this.list);
    this.#listen();
  }

  /// Starts over with the newest rows, as after a lost connection.
  restart(rows) {
    this.#recent = [];
    this.add(rows);
    this.#refill();
  }

  /// Takes rows that are new. Of a flood the panel sends only the newest; the others are then fetched.
  add(rows) {
    const last = this.#recent.at(-1)?.id ?? 0;
    const fresh = rows.filter((row) => row.id > last);
    if (fresh.length === 0) return;
    if (last !== 0 && fresh[0].id > last + 1) return this.restart(fresh);
    this.#recent.push(...fresh);
    if (this.#recent.length > 2 * recentRows) this.#recent.splice(0, this.#recent.length - recentRows);
    this.#append(fresh);
    this.#draw();
  }

  #append(rows) {
    const last = this.#rows.at(-1)?.id ?? 0;
    this.#rows.push(...rows.filter((row) => row.id > last && this.#passes(row)));
    if (this.#rows.length <= keptRows || !this.#isFollowing) return;
    this.#rows.splice(0, this.#rows.length - keptRows);
    this.#hasOlder = true;
  }

  #passes(row) {
    const { kind, text } = this.#filter;
    return (kind === "" || row.kind === kind) && row.text.toLowerCase().includes(text.toLowerCase());
  }

  #listen() {
    let pause;
    const filter = () => {
      this.#filter = { kind: this.kind.value, text: this.text.value };
      this.#refill();
    };
    this.kind.addEventListener("change", filter);
    this.text.addEventListener("input", () => {
      clearTimeout(pause);
      pause = setTimeout(filter, typingPause);
    });
    this.follow.addEventListener("click", () => {
      this.#isFollowing = true;
      this.#draw();
    });
    this.list.addEventListener("scroll", () => this.#scrolled());
    new ResizeObserver(() => this.#draw()).observe(this.list);
  }

  #scrolled() {
    const { scrollTop, scrollHeight, clientHeight } = this.list;
    this.#isFollowing = scrollHeight - clientHeight - scrollTop < rowHeight;
    if (scrollTop < spareRows * rowHeight) this.#fetchOlder();
    this.#draw();
  }

  /// Begins anew with the filter as it is now.
  #refill() {
    this.#rows = [];
    this.#hasOlder = true;
    this.#isFollowing = true;
    this.#fetching = 0;
    this.#append(this.#recent);
    this.#draw();
    this.#fetchOlder();
  }

  async #fetchOlder() {
    if (!this.#hasOlder || this.#fetching !== 0) return;
    const number = (this.#fetching = ++this.#fetches);
    const oldest = this.#rows[0]?.id;
    const query = new URLSearchParams({ limit: fetchedAtOnce });
    if (oldest !== undefined) query.set("before", oldest);
    if (this.#filter.kind !== "") query.set("kind", this.#filter.kind);
    if (this.#filter.text !== "") query.set("text", this.#filter.text);
    try {
      const older = await ask(`/api/journal?${query}`);
      if (this.#fetching === number) this.#prepend(older);
    } catch (error) {
      toast(`The journal could not be read: ${error.message}`);
    } finally {
      if (this.#fetching === number) this.#fetching = 0;
    }
  }

  #prepend({ rows, more }) {
    const first = this.#rows[0]?.id ?? Infinity;
    const older = rows.filter((row) => row.id < first);
    this.#rows = [...older, ...this.#rows];
    this.#hasOlder = more;
    const place = this.list.scrollTop + older.length * rowHeight;
    this.#stretch();
    if (!this.#isFollowing) this.list.scrollTop = place;
    this.#draw();
  }

  #stretch() {
    this.window.style.height = `${this.#rows.length * rowHeight}px`;
  }

  #draw() {
    if (this.#isDrawing) return;
    this.#isDrawing = true;
    requestAnimationFrame(() => {
      this.#isDrawing = false;
      this.#drawNow();
    });
  }

  #drawNow() {
    this.#stretch();
    if (this.#isFollowing) this.list.scrollTop = this.list.scrollHeight;
    const first = Math.max(0, Math.floor(this.list.scrollTop / rowHeight) - spareRows);
    const end = Math.min(this.#rows.length, first + Math.ceil(this.list.clientHeight / rowHeight) + 2 * spareRows);
    const shown = this.#rows.slice(first, end).map((row, index) => this.#row(row, first + index));
    this.window.replaceChildren(...shown);
    this.list.setAttribute("aria-rowcount", this.#rows.length);
    this.follow.hidden = this.#isFollowing;
    setText(this.count, `${this.#rows.length}${this.#hasOlder ? "+" : ""} rows`);
  }

  #row(row, index) {
    const node = element(
      "div",
      { class: "journal-row", role: "row", "data-kind": row.kind, "data-id": row.id, "aria-rowindex": index + 1 },
      element("span", { role: "cell", class: "id" }, String(row.id)),
      element("span", { role: "cell", class: "time" }, timeOfDay(row.time)),
      element("span", { role: "cell", class: "kind" }, row.kind),
      element("span", { role: "cell", class: "text" }, onOneLine(row.text)),
    );
    node.style.top = `${index * rowHeight}px`;
    return node;
  }
}
