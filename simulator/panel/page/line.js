// The units of the production line that this unit is one of.
import { ask } from "./actions.js";
import { byId, element } from "./dom.js";

const readTime = 2000;

/// A link to another unit's panel; anything but a plain web address stays text.
function panelLink(address) {
  const isWeb = URL.canParse(address) && ["http:", "https:"].includes(new URL(address).protocol);
  return isWeb ? element("a", { href: address }, address) : address || "none";
}

export class LineUnits {
  #isShown = false;
  #reads = 0; // that are awaited

  constructor() {
    this.body = element("tbody");
    this.note = element("p", { class: "hint empty", role: "status" });
    const titles = ["Unit", "Address", "Phase", "Panel", "Folder"];
    const head = element("tr", {}, ...titles.map((title) => element("th", { scope: "col" }, title)));
    this.table = element("table", { "aria-label": "Units of the line" }, element("thead", {}, head), this.body);
    const region = { class: "scrolled", tabindex: 0, role: "region", "aria-label": "Production line" };
    byId("line-units").append(element("div", region, this.table, this.note));
    setInterval(() => this.#reads > 0 || this.read(), readTime);
  }

  setShown(isShown) {
    this.#isShown = isShown;
    this.read();
  }

  async read() {
    if (!this.#isShown) return;
    ++this.#reads;
    try {
      this.#show(await ask("/api/line"));
    } catch (error) {
      this.note.textContent = `The units could not be read: ${error.message}`;
    } finally {
      --this.#reads;
    }
  }

  #show(units) {
    const isAlone = units.length === 0;
    this.note.textContent = isAlone ? "This unit runs by itself. “gateway line” runs several side by side." : "";
    this.table.hidden = isAlone;
    this.body.replaceChildren(...units.map((unit) => this.#row(unit)));
  }

  #row(unit) {
    const name = element("th", { scope: "row" }, unit.name);
    const cells = [unit.address, unit.phase, panelLink(unit.panel), unit.folder];
    return element("tr", {}, name, ...cells.map((cell) => element("td", {}, cell)));
  }
}
