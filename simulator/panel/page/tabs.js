// Tabs, one panel each. Arrow keys go from tab to tab.
import { byId, element } from "./dom.js";

/// Makes the tabs of all panels in the page. `shown` is called with the id of the panel that comes to the front.
export function makeTabs(shown) {
  const panels = [...document.querySelectorAll("[role=tabpanel]")];
  const tabs = panels.map((panel) => tabOf(panel));
  const choose = (chosen) => {
    tabs.forEach((tab, index) => {
      const isChosen = index === chosen;
      tab.setAttribute("aria-selected", isChosen);
      tab.tabIndex = isChosen ? 0 : -1;
      panels[index].hidden = !isChosen;
    });
    shown(panels[chosen].id);
  };
  tabs.forEach((tab, index) => {
    tab.addEventListener("click", () => choose(index));
    tab.addEventListener("keydown", (event) => {
      const step = { ArrowRight: 1, ArrowLeft: tabs.length - 1 }[event.key];
      if (step === undefined) return;
      const next = (index + step) % tabs.length;
      choose(next);
      tabs[next].focus();
    });
  });
  byId("tabs").append(...tabs);
  choose(0);
}

function tabOf(panel) {
  panel.setAttribute("aria-labelledby", `tab-${panel.id}`);
  const attributes = { type: "button", role: "tab", id: `tab-${panel.id}`, "aria-controls": panel.id };
  return element("button", attributes, panel.dataset.title);
}
