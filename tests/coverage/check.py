"""Compares what the tests reached of the service with the list of what they can't reach."""

import argparse
import collections
import json
import sys
from pathlib import Path

from tests import explanations

LIST = Path("tests/coverage/unreached.txt")
KEYS = ("file", "line", "missing")


def share(reached, all_):
    return f"{reached} of {all_} ({100 * reached / all_:.2f} %)" if all_ else "none"


class Totals:
    """Lines and branches of all files, and those unreached, by file, text of the line and what is missing."""

    def __init__(self):
        self.lines = self.reached_lines = 0
        self.branches = self.reached_branches = 0
        self.unreached = collections.defaultdict(list)

    def add_file(self, root, file):
        name = file["file"]
        texts = (root / name).read_text().splitlines()
        for line in file["lines"]:
            if not line.get("gcovr/noncode"):
                self._add_line(name, texts[line["line_number"] - 1].strip(), line)

    def _add_line(self, name, text, line):
        branches = line.get("branches", [])
        reached = sum(branch["count"] > 0 for branch in branches)
        self.lines += 1
        self.reached_lines += line["count"] > 0
        self.branches += len(branches)
        self.reached_branches += reached
        if line["count"] == 0:
            self.unreached[name, text, "line"].append(line["line_number"])
        elif reached < len(branches):
            what = f"{len(branches) - reached} of {len(branches)} branches"
            self.unreached[name, text, what].append(line["line_number"])


def compare(unreached, explained):
    """Prints what is unreached without a reason, and the reasons for what is reached. Returns their number."""
    problems = 0
    for key in sorted(unreached.keys() | explained.keys(), key=lambda key: (key[0], unreached.get(key, []))):
        numbers = unreached.get(key, [])
        surplus = len(explained.get(key, [])) - len(numbers)
        if surplus == 0:
            continue
        name, text, what = key
        problems += 1
        if surplus < 0:
            print(f"{name}:{','.join(map(str, numbers))}: {what} unreached: {text}")
        else:
            print(f"{LIST}: {name}: {what} is explained, but reached or gone: {text}")
    return problems


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("report", type=Path, help="gcovr's JSON report")
    arguments = parser.parse_args()
    totals = Totals()
    for file in json.loads(arguments.report.read_text())["files"]:
        totals.add_file(Path(), file)
    if totals.lines == 0:
        sys.exit("The report has no lines: nothing was counted.")
    explained = explanations.read(LIST, KEYS)
    problems = compare(totals.unreached, explained)
    print(f"Lines reached: {share(totals.reached_lines, totals.lines)}")
    print(f"Branches reached: {share(totals.reached_branches, totals.branches)}")
    print(f"Explained: {sum(map(len, explained.values()))}")
    if problems:
        sys.exit(f"{problems} differences from {LIST}")


if __name__ == "__main__":
    main()
