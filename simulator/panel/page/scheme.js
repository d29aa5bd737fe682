// Light and dark. The page follows the system until somebody chooses.
import { setText } from "./dom.js";

const systemIsDark = matchMedia("(prefers-color-scheme: dark)");
const key = "scheme";

export function makeSchemeButton(node) {
  const chosen = () => localStorage.getItem(key);
  const isDark = () => (chosen() === null ? systemIsDark.matches : chosen() === "dark");
  const show = () => {
    if (chosen() !== null) document.documentElement.dataset.scheme = chosen();
    setText(node, isDark() ? "Light" : "Dark");
    node.setAttribute("aria-label", isDark() ? "Change to light colours" : "Change to dark colours");
  };
  node.addEventListener("click", () => {
    localStorage.setItem(key, isDark() ? "light" : "dark");
    show();
  });
  systemIsDark.addEventListener("change", show);
  show();
}
