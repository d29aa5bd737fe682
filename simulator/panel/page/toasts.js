// Messages that pass: what was refused and why.
import { byId, element } from "./dom.js";

const shownTime = 8000;

export function toast(text) {
  const message = element("p", { class: "toast" }, text);
  const close = element("button", { type: "button", class: "quiet", "aria-label": "Close this message" }, "×");
  close.addEventListener("click", () => message.remove());
  message.append(close);
  byId("toasts").append(message);
  setTimeout(() => message.remove(), shownTime);
}
