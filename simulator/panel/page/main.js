// Puts the page together: the panel's events go to the parts that show them.
import { Connection } from "./connection.js";
import { makeControls } from "./controls.js";
import { byId } from "./dom.js";
import { draw } from "./drawing.js";
import { makeFaults } from "./faults.js";
import { Journal } from "./journal.js";
import { Life } from "./life.js";
import { LineUnits } from "./line.js";
import { Output } from "./output.js";
import { makeSchemeButton } from "./scheme.js";
import { State } from "./state.js";
import { Tables } from "./tables.js";
import { makeTabs } from "./tabs.js";
import { Transfers } from "./transfers.js";

/// What is said of a unit that is not there yet, or not any more, in place of what the panel leaves out.
const noTexts = { model: "", serial: "", mac: "", boot: "", nextBoot: "", image: "", lastEnd: "" };
const noUnit = { ...noTexts, boots: 0, bootMode: 0, ftmMode: 0, activeTests: [] };

const state = new State();
const life = new Life(state);
const journal = new Journal();
const output = new Output();
const transfers = new Transfers();
const tables = new Tables();
const lineUnits = new LineUnits();

draw(state);
makeControls(state);
makeFaults(state);
makeSchemeButton(byId("scheme"));
makeTabs((id) => {
  tables.setShown(id === "tables");
  lineUnits.setShown(id === "line-units");
  if (id === "output") output.showEnd();
});

const connection = new Connection();
const on = (kind, take) => connection.addEventListener(kind, (event) => take(event.detail));
const whole = (unit) => ("model" in unit ? unit : { ...noUnit, ...unit, phase: "gone" });
const change = (parts) => state.change("unit" in parts ? { ...parts, unit: whole(parts.unit) } : parts);
on("state", (all) => {
  const { journal: rows = [], output: lines = [], transfers: known = [], ...parts } = all;
  change(parts);
  life.setLost(false);
  life.restart(rows);
  journal.restart(rows);
  output.restart(lines);
  transfers.restart(known);
});
on("change", change);
on("journal", (rows) => {
  life.add(rows);
  journal.add(rows);
});
on("output", (lines) => output.add(lines));
on("transfers", (some) => transfers.add(some));
on("lost", () => life.setLost(true));
