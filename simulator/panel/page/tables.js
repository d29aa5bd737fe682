// The tables of the configuration store. While they are in sight they are read again and again, because many things
// change them: the station, the drivers, traffic.
import { act, ask } from "./actions.js";
import { byId, element, setText } from "./dom.js";
import { Field } from "./fields.js";

const readTime = 1000;

export class Tables {
  #isShown = false;
  #reads = 0; // that are awaited
  #name = "";
  #shape = "";
  #fields = [];

  constructor() {
    this.choice = element("select", { "aria-label": "Table", id: "table-name" });
    this.problem = element("span", { class: "hint", role: "status" });
    const hint = element("span", { class: "hint" }, "Enter or leaving a cell writes it; Escape gives up.");
    const label = element("label", { for: "table-name" }, "Table");
    const region = { class: "scrolled", tabindex: 0, role: "region", "aria-label": "Cells of the table" };
    this.place = element("div", region);
    byId("tables").append(element("div", { class: "tools" }, label, this.choice, hint, this.problem), this.place);
    this.choice.addEventListener("change", () => this.read());
    setInterval(() => this.#reads > 0 || this.read(), readTime);
  }

  setShown(isShown) {
    this.#isShown = isShown;
    this.read();
  }

  /// Reads the chosen table if it is in sight.
  async read() {
    if (!this.#isShown) return;
    ++this.#reads;
    try {
      if (this.choice.options.length === 0) await this.#readNames();
      const name = this.choice.value;
      const table = await ask(`/api/tables/${encodeURIComponent(name)}`);
      if (name === this.choice.value) this.#show(table);
      setText(this.problem, "");
    } catch (error) {
      setText(this.problem, `The table could not be read: ${error.message}`);
    } finally {
      --this.#reads;
    }
  }

  async #readNames() {
    const names = await ask("/api/tables");
    this.choice.replaceChildren(...names.map((name) => element("option", {}, name)));
  }

  #show(table) {
    const shape = JSON.stringify([table.name, table.columns, table.rows.length]);
    if (shape !== this.#shape) this.#build(table);
    this.#shape = shape;
    table.rows.forEach((row, index) => row.forEach((value, column) => this.#fields[index][column].show(value)));
  }

  /// A line for each column and a column for each row: tables have few rows and up to 36 columns.
  #build({ name, columns, rows }) {
    const fieldOf = (column, row) => {
      const write = (text) => act("set", name, column, "--row", row, "--", text);
      return new Field(`${column}, row ${row}`, write);
    };
    this.#fields = rows.map((_, row) => columns.map((column) => fieldOf(column, row)));
    const titles = ["Column", ...rows.map((_, row) => `Row ${row}`)];
    const head = element("tr", {}, ...titles.map((title) => element("th", { scope: "col" }, title)));
    const lines = columns.map((column, index) => {
      const cells = this.#fields.map((fields) => element("td", {}, fields[index].node));
      return element("tr", { "data-column": column }, element("th", { scope: "row" }, column), ...cells);
    });
    const parts = [element("thead", {}, head), element("tbody", {}, ...lines)];
    this.place.replaceChildren(element("table", { class: "cells" }, ...parts));
    if (rows.length === 0) this.place.append(element("p", { class: "hint" }, "The table has no rows."));
  }
}
