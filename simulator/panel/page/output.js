// What the service and its supervisor print.
import { byId, element, onOneLine } from "./dom.js";

const keptLines = 2000;

export class Output {
  constructor() {
    const log = { role: "log", tabindex: 0, "aria-label": "Output of the service", "aria-live": "off" };
    this.list = element("div", { class: "output-list", ...log });
    byId("output").append(this.list);
  }

  restart(lines) {
    this.list.replaceChildren();
    this.add(lines);
  }

  add(lines) {
    const { scrollTop, scrollHeight, clientHeight } = this.list;
    const isAtEnd = scrollHeight - clientHeight - scrollTop < 40;
    this.list.append(...lines.map((line) => element("div", {}, onOneLine(line))));
    while (this.list.childElementCount > keptLines) this.list.firstChild.remove();
    if (isAtEnd) this.showEnd();
  }

  showEnd() {
    this.list.scrollTop = this.list.scrollHeight;
  }
}
