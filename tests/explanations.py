"""Lists of what no test reaches or notices, each with its reason."""

from pathlib import Path

REASON = "why"


def read(path: Path, keys):
    """The records of a list: lines "key: value", records apart by an empty line, "#" before a remark.

    Returns a dictionary of reasons by tuples of the values of `keys`, a list each: a record may stand more than once.
    Raises ValueError when a record lacks a value.
    """
    explanations = {}
    for block in path.read_text().split("\n\n"):
        lines = [line for line in block.splitlines() if line and not line.startswith("#")]
        if not lines:
            continue
        record = dict(line.split(": ", 1) for line in lines)
        missing = {*keys, REASON} - record.keys()
        if missing:
            raise ValueError(f"{path}: no {', '.join(sorted(missing))} in\n{block}")
        explanations.setdefault(tuple(record[key] for key in keys), []).append(record[REASON])
    return explanations
