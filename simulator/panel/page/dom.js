// Making elements. Text goes in as text and nothing else: whatever the unit tells may be hostile.

const svgNamespace = "http://www.w3.org/2000/svg";

function fill(made, attributes, children) {
  for (const [name, value] of Object.entries(attributes)) {
    if (typeof value === "function") made.addEventListener(name, value);
    else if (value === true) made.setAttribute(name, "");
    else if (value !== false && value !== undefined) made.setAttribute(name, value);
  }
  made.append(...children);
  return made;
}

/// An HTML element. A function among the attributes is a listener; true is an attribute without a value.
export function element(name, attributes = {}, ...children) {
  return fill(document.createElement(name), attributes, children);
}

/// The same in a drawing.
export function drawn(name, attributes = {}, ...children) {
  return fill(document.createElementNS(svgNamespace, name), attributes, children);
}

export const byId = (id) => document.getElementById(id);

/// Sets a text only when it differs, so that a selection in it stays.
export function setText(node, text) {
  const shown = String(text ?? "");
  if (node.textContent !== shown) node.textContent = shown;
}

/// A text on one line: control characters as escapes.
export function onOneLine(text) {
  return String(text).replace(/[\x00-\x1f\x7f-\x9f\\]/g, (character) => {
    if (character === "\n") return "\\n";
    if (character === "\\") return "\\\\";
    return "\\x" + character.charCodeAt(0).toString(16).padStart(2, "0");
  });
}

/// Time of day of milliseconds since 1970, down to the millisecond.
export function timeOfDay(milliseconds) {
  const time = new Date(milliseconds);
  const digits = (number, count = 2) => String(number).padStart(count, "0");
  const clock = [time.getHours(), time.getMinutes(), time.getSeconds()].map((part) => digits(part)).join(":");
  return `${clock}.${digits(time.getMilliseconds(), 3)}`;
}
