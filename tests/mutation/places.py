"""Places of a C++ source that can be broken by a small change: operators, constants, conditions and messages."""

import random
import re
from dataclasses import dataclass
from pathlib import Path

_TOKEN = re.compile(
    r"""
      (?P<skipped>//[^\n]*|/\*.*?\*/|^[ \t]*\#(?:\\\n|[^\n])*|extern\ "C"|__attribute__.*?\)\)|'(?:\\.|[^'\\])')
    | "(?P<string>(?:\\.|[^"\\\n])*)"
    | (?<![\w'.])(?P<number>0[xX][0-9A-Fa-f']+|[0-9][0-9']*)
    | \b(?:if|while)\ (?P<condition>\()
    | \bfor\ (?P<loop>\()
    | \b(?P<constant>true|false)\b
    | (?<=[ ])(?P<operator><<=?|>>=?|[=!<>]=|&&|\|\||[-+]=|[-+*/%<>&|])(?=\s)
    | (?P<step>\+\+|--)
    | (?P<negation>!)(?=[\w(*])
    """,
    re.VERBOSE | re.DOTALL | re.MULTILINE,
)
_OPERATORS = {
    "==": ["!="], "!=": ["=="], "<": ["<=", ">="], "<=": ["<", ">"], ">": [">=", "<="], ">=": [">", "<"],
    "&&": ["||"], "||": ["&&"], "+": ["-"], "-": ["+"], "*": ["/"], "/": ["*"], "%": ["*"], "+=": ["-="], "-=": ["+="],
    "<<": [">>"], ">>": ["<<"], "&": ["|"], "|": ["&"], "++": ["--"], "--": ["++"], "!": [""],
    "true": ["false"], "false": ["true"],
}  # fmt: skip
# What of a message isn't its own text: escapes and the conversions of printf().
_NOT_TEXT = re.compile(r"\\.|%[-+ #0]*[\d*]*(?:\.[\d*]+)?[hljzt]*[A-Za-z%]")


@dataclass(frozen=True)
class Change:
    """A replacement of a piece of a file."""

    file: str
    start: int
    end: int
    number: int  # of the line
    line: str  # its text
    nth: int  # of what stands there in the line, from 1
    old: str
    new: str

    def text(self):
        which = f" ({self.nth})" if self.nth > 1 else ""
        return f"{' '.join(self.old.split())} -> {' '.join(self.new.split())}{which}"

    def apply(self, source):
        return source[: self.start] + self.new + source[self.end :]


class Source:
    def __init__(self, root: Path, file: str):
        self.file = file
        self.text = (root / file).read_text()

    def places(self):
        """The changes possible at each place, place by place from the top."""
        for token in _TOKEN.finditer(self.text):
            changes = list(self._changes(token))
            if changes:
                yield changes

    def _changes(self, token):
        kind = token.lastgroup
        start, end = token.span(kind)
        if kind == "string":
            yield from (self._change(start - 1, end + 1, f'"{text}"') for text in _other_texts(token[kind]))
        elif kind == "number":
            yield self._change(start, end, str(int(token[kind].replace("'", ""), 0) + 1))
        elif kind in ("condition", "loop"):
            first, last = self._condition(start, kind == "loop")
            if first < last:
                yield self._change(first, last, f"!({self.text[first:last]})")
        elif kind != "skipped":
            yield from (self._change(start, end, new) for new in _OPERATORS.get(token[kind], []))

    def _change(self, start, end, new):
        first = self.text.rfind("\n", 0, start) + 1
        line = self.text[first : self.text.find("\n", start)].strip()
        number = self.text.count("\n", 0, start) + 1
        old = self.text[start:end]
        return Change(self.file, start, end, number, line, self.text.count(old, first, start) + 1, old, new)

    def _condition(self, opening, is_loop):
        """Where the condition stands that an opening bracket begins with, perhaps after a declaration."""
        depth = 0
        ends = [opening + 1]
        for position in range(opening, len(self.text)):
            character = self.text[position]
            depth += (character in "([{") - (character in ")]}")
            if depth == 0:
                ends.append(position)
                break
            if character == ";" and depth == 1:
                ends.append(position + 1)
        if is_loop:  # for (a; b; c) has its condition in the middle, for (a : b) none
            return (ends[1], ends[2] - 1) if len(ends) == 4 and self.text[ends[1] : ends[2] - 1].strip() else (0, 0)
        return ends[-2], ends[-1]


def _other_texts(text):
    """The text with one letter or digit of it changed, each in turn."""
    if text == "":
        yield "x"
    hidden = {index for match in _NOT_TEXT.finditer(text) for index in range(*match.span())}
    for index, character in enumerate(text):
        if character.isalnum() and index not in hidden:
            other = {"z": "a", "Z": "A", "9": "0"}.get(character, chr(ord(character) + 1))
            yield text[:index] + other + text[index + 1 :]


def _quotas(sizes, count):
    """How many of `count` fall to each of several parts: one at least where there are enough, then by their sizes."""
    least = 1 if count >= len(sizes) else 0
    rest = count - least * len(sizes)
    exact = [rest * size / sum(sizes) for size in sizes]
    quotas = [least + int(share) for share in exact]
    by_remainder = sorted(range(len(sizes)), key=lambda index: int(exact[index]) - exact[index])
    for index in by_remainder[: count - sum(quotas)]:
        quotas[index] += 1
    return quotas


def choose(sources, count, seed):
    """`count` lists of changes, spread evenly over the places of all sources.

    Each list belongs to one stretch of a source. The first of its changes that makes another program is to be tried.
    """
    places = {source.file: list(source.places()) for source in sources}
    places = {file: found for file, found in places.items() if found}
    chosen = []
    for (file, found), quota in zip(places.items(), _quotas([len(found) for found in places.values()], count)):
        for part in range(quota):
            dice = random.Random(f"{seed} {file} {part}")
            stretch = found[len(found) * part // quota : len(found) * (part + 1) // quota] or found
            chosen.append([dice.choice(changes) for changes in dice.sample(stretch, len(stretch))])
    return chosen
