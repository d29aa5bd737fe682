"""Breaks the service in many places, one at a time, and lists those that no test notices."""

import argparse
import collections
import json
import queue
import sys
import threading
import time
from dataclasses import asdict, dataclass
from pathlib import Path

from tests import explanations
from tests.mutation import places, workshop

ROOT = Path.cwd()
FOLDER = ROOT / "build/mutation"
LIST = ROOT / "tests/mutation/unnoticed.txt"
KEYS = ("file", "line", "change")
MOST_UNNOTICED = 3
UNNOTICED_SHARE = 0.1  # of a sample
NOBODY = ""


@dataclass(frozen=True)
class Result:
    """What became of a stretch."""

    change: places.Change  # the one that was made
    noticed: str  # by the test of that name, or NOBODY
    end: str  # how that test ended
    passed_over: dict  # how many changes were no use, by their effect

    @staticmethod
    def read(entry):
        return Result(**{**entry, "change": places.Change(**entry["change"])})

    def text(self):
        who = f"noticed by {self.noticed}, which {self.end}" if self.noticed else "NOT NOTICED"
        return f"{self.change.file}:{self.change.number}: {self.change.text()}: {who}"


def key_of(change):
    return change.file, change.line, change.text()


class Results:
    """What became of each stretch. Kept on disk, line by line.

    Those of an earlier run are taken over when it was the same, or, with `only_unnoticed`, when they were noticed.
    """

    def __init__(self, path, state, choice, chosen, only_unnoticed):
        self._path = path
        self._lock = threading.Lock()
        self._found = {}  # by the number of the stretch
        # A state that is no project's: what it is mixed from must not pass for a whole run.
        heading = {"state": "mixed" if only_unnoticed else state, "choice": choice}
        lines = [json.loads(line) for line in path.read_text().splitlines()] if path.exists() else []
        is_taken_over = bool(lines) and (lines[0] == heading or only_unnoticed and lines[0]["choice"] == choice)
        path.write_text(json.dumps(heading) + "\n")
        for entry in lines[1:] if is_taken_over else []:
            result = Result.read(entry["result"])
            if result.change in chosen[entry["stretch"]] and not (only_unnoticed and result.noticed == NOBODY):
                self._keep(entry["stretch"], result)

    def _keep(self, stretch, result):
        self._found[stretch] = result
        with self._path.open("a") as file:
            file.write(json.dumps({"stretch": stretch, "result": asdict(result)}) + "\n")

    def add(self, stretch, result, total):
        with self._lock:
            self._keep(stretch, result)
            print(f"[{len(self._found)}/{total}] {result.text()}", flush=True)

    def has(self, stretch):
        return stretch in self._found

    def all(self):
        return list(self._found.values())


def first_to_notice(shop, tests):
    """The name of the first test that notices the change made, and how it ended."""
    for test in tests:
        if (end := shop.ends(test)) is not workshop.End.GOOD:
            return test.name, end.value
    return NOBODY, workshop.End.GOOD.value


def try_stretch(shop, changes, units, systems):
    """Makes the first of the changes that makes another service. Returns what became of it; None: there is none."""
    passed_over = collections.Counter()
    for change in changes:
        try:
            effect = shop.change(change)
            if effect is workshop.Effect.ANOTHER:
                ordered = [test for tests in (units, systems) for test in shop.by_relevance(tests, change.file)]
                return Result(change, *first_to_notice(shop, ordered), dict(passed_over))
            passed_over[effect.value] += 1
        finally:
            shop.restore(change)
    return None


class Run:
    """Tries all stretches that have no result yet, several at a time."""

    def __init__(self, chosen, results, has_systems):
        self._chosen = chosen
        self._results = results
        self._left = queue.SimpleQueue()
        self._failure = None
        self._units, systems = workshop.tests_of(ROOT)
        self._systems = systems if has_systems else []
        # Headers last: what includes them has to be compiled again.
        for stretch in sorted(range(len(chosen)), key=lambda stretch: chosen[stretch][0].file.endswith(".h")):
            if not results.has(stretch):
                self._left.put(stretch)

    def work(self, jobs):
        if self._left.empty():
            return
        tests = self._units + self._systems
        shops = [workshop.Workshop(ROOT, FOLDER, number) for number in range(jobs)]
        shops[0].prepare(tests, jobs)
        for shop in shops[1:]:
            shop.prepare_like(shops[0])
        threads = [threading.Thread(target=self._serve, args=(shop,)) for shop in shops]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        if self._failure:
            raise self._failure

    def _serve(self, shop):
        try:
            while not self._failure and not self._left.empty():
                stretch = self._left.get_nowait()
                if tried := try_stretch(shop, self._chosen[stretch], self._units, self._systems):
                    self._results.add(stretch, tried, len(self._chosen))
        except queue.Empty:
            pass
        except Exception as failure:
            self._failure = failure


def stale(explained, sources, results):
    """The explanations of changes that can't be made, or that a test notices."""
    possible = {key_of(change) for source in sources for changes in source.places() for change in changes}
    noticed = {key_of(result.change) for result in results if result.noticed != NOBODY}
    unnoticed = {key_of(result.change) for result in results if result.noticed == NOBODY}
    return [key for key in explained if key not in possible or key in noticed - unnoticed]


def report(sources, results, is_sample):
    """Prints what remains to be done. Returns whether that is nothing, or of a sample whether it is little."""
    explained = explanations.read(LIST, KEYS)
    unnoticed = [result.change for result in results if result.noticed == NOBODY]
    unexplained = [change for change in unnoticed if key_of(change) not in explained]
    for change in unexplained:
        print(f"Unnoticed and unexplained: {change.file}:{change.number}: {change.text()}\n  {change.line}")
    gone = stale(explained, sources, results)
    for key in gone:
        print(f"Explained, but noticed or no longer there: {': '.join(key)}")
    by_tests = collections.Counter((result.noticed, result.end) for result in results if result.noticed != NOBODY)
    for (name, end), count in by_tests.most_common():
        print(f"{count:5} {name} {end}")
    passed_over = sum((collections.Counter(result.passed_over) for result in results), collections.Counter())
    for effect, count in passed_over.most_common():
        print(f"{count:5} passed over for another change nearby: {effect}")
    print(f"{len(results)} places broken, {len(unnoticed)} unnoticed, {len(unexplained)} of them unexplained")
    if is_sample:  # of which system tests might have noticed more
        return bool(results) and len(unexplained) <= len(results) * UNNOTICED_SHARE and not gone
    return bool(results) and len(unnoticed) <= MOST_UNNOTICED and not unexplained and not gone


def main():
    parser = argparse.ArgumentParser(prog="script/mutate", description=__doc__)
    parser.add_argument("--count", type=int, default=100, help="how many places (default: %(default)s)")
    parser.add_argument("--seed", default="1", help="which places (default: %(default)s)")
    parser.add_argument("--jobs", type=int, default=2, help="how many at a time (default: %(default)s)")
    parser.add_argument("--units", action="store_true", help="a sample: without the system tests")
    parser.add_argument("--unnoticed", action="store_true", help="only those that no test has noticed yet")
    arguments = parser.parse_args()
    FOLDER.mkdir(parents=True, exist_ok=True)
    files = [name for name in workshop.project_files(ROOT) if name.startswith("userapps/FTM/")]
    sources = [places.Source(ROOT, name) for name in files if name.endswith((".cpp", ".h"))]
    chosen = places.choose(sources, arguments.count, arguments.seed)
    choice = [arguments.count, arguments.seed, arguments.units]
    path = FOLDER / "results.jsonl"
    results = Results(path, workshop.fingerprint(ROOT), choice, chosen, arguments.unnoticed)
    begin = time.monotonic()
    Run(chosen, results, has_systems=not arguments.units).work(arguments.jobs)
    good = report(sources, results.all(), is_sample=arguments.units)
    print(f"{time.monotonic() - begin:.0f} s")
    sys.exit(0 if good else 1)


if __name__ == "__main__":
    main()
