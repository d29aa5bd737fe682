// Faults of the unit, and what the wire does to datagrams.
import { act, ask } from "./actions.js";
import { byId, element, setText } from "./dom.js";
import { Field, button, card } from "./fields.js";
import { toast } from "./toasts.js";

const paths = ["/dev/flshmgmt", "/dev/gpioctrl", "/dev/bcmadsl0", "socket", "/proc/net/dev", "/proc/scsi/scsi"];

/// The words of a form that somebody has to choose: those in capitals.
const isChosen = (word) => /^[A-Z]+$/.test(word);

class FaultForm {
  constructor(list) {
    this.list = list;
    this.choice = element("select", { "aria-label": "Fault" });
    this.words = element("span", { class: "words" });
    this.effect = element("p", { class: "hint" });
    const row = element("div", { class: "row" }, this.choice, this.words, element("button", {}, "Switch on"));
    this.node = element("form", { class: "fault-form" }, row, this.effect);
    this.choice.addEventListener("change", () => this.#choose());
    this.node.addEventListener("submit", (event) => this.#submit(event));
  }

  offer(forms) {
    this.forms = forms;
    this.choice.replaceChildren(...forms.map(({ form }) => element("option", { value: form }, form)));
    this.#choose();
  }

  #choose() {
    const chosen = this.forms.find(({ form }) => form === this.choice.value);
    setText(this.effect, chosen.effect);
    const inputs = chosen.form.split(" ").filter(isChosen);
    this.words.replaceChildren(...inputs.map((word) => this.#input(word)));
  }

  #input(word) {
    const labels = { name: word, placeholder: word, "aria-label": word };
    return element("input", { required: true, autocomplete: "off", list: this.list[word], ...labels });
  }

  async #submit(event) {
    event.preventDefault();
    const inputs = [...this.words.children];
    const words = this.choice.value.split(" ").map((word) => (isChosen(word) ? inputs.shift().value.trim() : word));
    if (await act("fault", "on", ...words)) for (const input of this.words.children) input.value = "";
  }
}

/// Suggestions for the words of a fault.
function suggestions(id, values) {
  return element("datalist", { id }, ...values.map((value) => element("option", { value })));
}

function faultRow(name) {
  const off = button("Off", () => act("fault", "off", ...name.split(" ")), { "aria-label": `Switch ${name} off` });
  return element("li", {}, element("span", { class: "grow" }, `⚠ ${name}`), off);
}

function faultsCard(state) {
  const columns = suggestions("fault-columns", []);
  const form = new FaultForm({ PATH: "fault-paths", NAME: "fault-tables", COLUMN: "fault-columns" });
  const tables = suggestions("fault-tables", []);
  form.choice.addEventListener("change", () => {
    const isNeeded = form.choice.value.includes("COLUMN") && columns.childElementCount === 0;
    if (isNeeded) fillColumns(columns).catch((error) => toast(`The columns that there are: ${error.message}`));
  });
  const list = element("ul", { class: "faults", id: "faults", "aria-live": "polite" });
  const count = element("span", { class: "count" });
  state.watch(["faults"], (faults) => {
    setText(count, faults.length > 0 ? `${faults.length} on` : "none on");
    list.replaceChildren(...faults.map(faultRow));
  });
  offerFaults(form, tables).catch((error) => toast(`The faults that there are: ${error.message}`));
  return card("Faults", [count], list, form.node, suggestions("fault-paths", paths), tables, columns);
}

async function offerFaults(form, tables) {
  form.offer(await ask("/api/faults"));
  const names = await ask("/api/tables");
  tables.replaceChildren(...names.map((value) => element("option", { value })));
}

/// Suggests the columns of all tables.
async function fillColumns(columns) {
  const names = await ask("/api/tables");
  const all = await Promise.all(names.map((name) => ask(`/api/tables/${encodeURIComponent(name)}`)));
  const known = new Set(all.flatMap((table) => table.columns));
  columns.replaceChildren(...[...known].sort().map((value) => element("option", { value })));
}

function wireCard(state) {
  const number = { type: "number", min: 0, class: "short" };
  const delay = (time, jitter) => act("wire", "delay", time, "--jitter", jitter);
  const percent = { ...number, max: 100, step: "any" };
  const fields = {
    loss: new Field("Loss in percent", (text) => act("wire", "loss", text), percent),
    duplicate: new Field("Duplicates in percent", (text) => act("wire", "duplicate", text), percent),
    delay: new Field("Delay in milliseconds", (text) => delay(text, fields.jitter.node.value), number),
    jitter: new Field("Jitter in milliseconds", (text) => delay(fields.delay.node.value, text), number),
    seed: new Field("Seed", (text) => act("wire", "seed", text), number),
  };
  const units = { loss: "%", duplicate: "%", delay: "ms", jitter: "ms", seed: "" };
  const cells = Object.entries(fields).map(([name, field]) => {
    const unit = element("span", { class: "unit-of" }, units[name]);
    return element("label", { class: "measure" }, element("span", {}, name), field.node, unit);
  });
  const clear = button("Clear", () => act("wire", "clear"));
  state.watch(["wire"], (wire) => {
    for (const [name, field] of Object.entries(fields)) field.show(wire[name]);
    clear.disabled = ["loss", "duplicate", "delay", "jitter"].every((name) => Number(wire[name]) === 0);
  });
  return card("Wire", [clear], element("div", { class: "measures" }, ...cells));
}

/// Makes the cards of what can go wrong.
export function makeFaults(state) {
  byId("controls").append(faultsCard(state), wireCard(state));
}
