// Parts that several cards are made of.
import { act } from "./actions.js";
import { element, setText } from "./dom.js";

const settleTime = 1500; // in which the unit's own value comes, if the text has changed it

/// A card with a title. What stands beside the title goes in `beside`.
export function card(title, beside, ...children) {
  const id = "card-" + title.toLowerCase().replace(/\W+/g, "-");
  const head = element("header", {}, element("h2", { id }, title), ...beside);
  return element("section", { class: "card", "aria-labelledby": id, "data-card": title }, head, ...children);
}

export function button(text, pressed, attributes = {}) {
  return element("button", { type: "button", click: pressed, ...attributes }, text);
}

/// A switch with two words for its positions. `turn` is called with the position that is wanted; what it shows is what
/// `show` was last told.
export class Switch {
  #isOn = false;

  constructor(label, words, turn) {
    this.words = words;
    this.node = button("", () => turn(!this.#isOn), { role: "switch", class: "switch", "aria-label": label });
    this.show(false);
  }

  show(isOn) {
    this.#isOn = isOn;
    this.node.setAttribute("aria-checked", isOn);
    setText(this.node, this.words[isOn ? 1 : 0]);
  }
}

/// A field that shows a value of the unit and follows it, unless somebody is typing. Enter or leaving the field takes
/// the text over, Escape gives it up. What the unit makes of the text is what it shows in the end.
export class Field {
  #value = "";
  #told = ""; // what `show` was last given
  #isSending = false;
  #isLeft = false; // since something was typed

  constructor(label, commit, attributes = {}) {
    this.commit = commit;
    const plain = { type: "text", "aria-label": label, autocomplete: "off", spellcheck: "false" };
    this.node = element("input", { ...plain, ...attributes });
    this.node.addEventListener("keydown", (event) => this.#key(event));
    this.node.addEventListener("input", () => this.#type());
    this.node.addEventListener("blur", () => this.#leave());
  }

  show(value) {
    const isTyping = this.#isChanged() && document.activeElement === this.node;
    this.#told = String(value ?? "");
    this.#value = this.#told;
    if (isTyping) this.#mark();
    else this.#restore();
  }

  #isChanged() {
    return this.node.value !== this.#value;
  }

  #restore() {
    if (this.#isChanged()) this.node.value = this.#value;
    this.#mark();
  }

  #mark() {
    this.node.classList.toggle("changed", this.#isChanged());
  }

  #type() {
    this.#isLeft = false;
    this.#mark();
  }

  #key(event) {
    if (event.key === "Escape") this.#restore();
    else if (event.key === "Enter") this.#leave();
  }

  async #leave() {
    this.#isLeft = true;
    if (this.#isSending) return;
    this.#isSending = true;
    while (this.#isLeft && this.#isChanged() && this.node.reportValidity()) {
      this.#isLeft = false;
      await this.#send();
    }
    this.#isSending = false;
  }

  /// What is typed meanwhile stays, and is sent after it if the field has been left again.
  async #send() {
    const wanted = this.node.value;
    const isDone = await this.commit(wanted);
    const isTyping = this.#isChanged() && this.node.value !== wanted;
    if (isDone) {
      this.#value = wanted;
      setTimeout(() => this.show(this.#told), settleTime);
    }
    if (isTyping) this.#mark();
    else this.#restore();
  }
}

/// Makes a node press a button of the unit for as long as it is held down, by pointer or keyboard.
export function holdable(node, press, release) {
  let isHeld = false;
  const down = () => {
    if (isHeld) return;
    isHeld = true;
    press();
  };
  const up = () => {
    if (!isHeld) return;
    isHeld = false;
    release();
  };
  const isKey = (event) => event.key === " " || event.key === "Enter";
  node.addEventListener("pointerdown", (event) => {
    if (event.button !== 0) return;
    node.setPointerCapture(event.pointerId);
    down();
  });
  for (const end of ["pointerup", "pointercancel", "lostpointercapture", "blur"]) node.addEventListener(end, up);
  node.addEventListener("keydown", (event) => {
    if (!isKey(event)) return;
    event.preventDefault();
    down();
  });
  node.addEventListener("keyup", (event) => {
    if (isKey(event)) up();
  });
  window.addEventListener("pagehide", up);
}

/// Makes a part of a drawing work like a button, by pointer and keyboard.
export function clickable(node, clicked) {
  node.addEventListener("click", clicked);
  node.addEventListener("keydown", (event) => {
    if (event.key !== " " && event.key !== "Enter") return;
    event.preventDefault();
    clicked();
  });
}

/// The unit's buttons, which are pressed in the drawing and beside it.
export const press = (name) => act("press", name);
export const release = (name) => act("release", name);
