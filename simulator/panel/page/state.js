// What the panel has told about the unit. Who shows a part of it is called when that part changes.

export class State {
  #parts = {};
  #watchers = [];

  /// Calls `show` with the named parts now, if they are known, and after each change of one of them.
  watch(names, show) {
    const watcher = { names, show };
    this.#watchers.push(watcher);
    this.#call(watcher);
  }

  /// Takes over new values of some parts.
  change(parts) {
    this.#parts = { ...this.#parts, ...parts };
    for (const watcher of this.#watchers)
      if (watcher.names.some((name) => name in parts)) this.#call(watcher);
  }

  #call({ names, show }) {
    if (names.every((name) => name in this.#parts)) show(...names.map((name) => this.#parts[name]));
  }
}
