// The stream of events from the panel. It tells when nothing has come for so long that the panel must be gone, and goes
// on trying.

const longestSilence = 3000;
const longestStart = 15000;
const checkTime = 500;
const retryTime = 1000;
const kinds = ["state", "change", "journal", "output", "transfers"];

/// Sends "state", "change", "journal", "output" and "transfers" with what the panel sent, and "lost".
export class Connection extends EventTarget {
  #source = null;
  #limit = 0;
  #isLost = false;

  constructor() {
    super();
    setInterval(() => this.#check(), checkTime);
    this.#open();
  }

  #open() {
    this.#limit = performance.now() + longestStart;
    this.#source = new EventSource("/api/events");
    for (const kind of kinds)
      this.#source.addEventListener(kind, (event) => this.#take(kind, event.data));
    this.#source.addEventListener("alive", () => this.#heard());
    this.#source.addEventListener("error", () => this.#lose());
  }

  #heard() {
    this.#limit = performance.now() + longestSilence;
  }

  #take(kind, data) {
    this.#heard();
    this.#isLost &&= kind !== "state";
    this.dispatchEvent(new CustomEvent(kind, { detail: JSON.parse(data) }));
  }

  #check() {
    if (this.#source !== null && performance.now() > this.#limit) this.#lose();
  }

  #lose() {
    this.#source.close();
    this.#source = null;
    setTimeout(() => this.#open(), retryTime);
    if (this.#isLost) return;
    this.#isLost = true;
    this.dispatchEvent(new Event("lost"));
  }
}
