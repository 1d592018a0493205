# SPDX-License-Identifier: GPL-2.0-only
"""Reads the lists of mutants and applies one to a source text."""

import pathlib
import re
from dataclasses import dataclass, field

ROOMS = ("base", "core", "gatekeeper", "portal", "garden", "include")


class BadMutant(Exception):
    """A mutant that says nothing, changes nothing, or no longer fits the source."""


@dataclass
class Mutant:
    name: str
    file: str  # path from the project's root
    place: str  # file and line of the entry
    description: list = field(default_factory=list)
    edits: list = field(default_factory=list)  # of [old lines, new lines]

    def apply(self, text):
        """The source text with all edits made. Blanks are compared loosely, so a line that is wrapped anew still fits."""
        for old, new in self.edits:
            tokens = "\n".join(old).split()
            found = list(re.finditer(r"\s+".join(re.escape(token) for token in tokens), text))
            if len(found) != 1:
                raise BadMutant(f"the text occurs {len(found)} times in {self.file}: {' '.join(tokens)}")
            text = text[: found[0].start()] + "\n".join(new) + text[found[0].end() :]
        return text


def _finish(mutant):
    if not mutant.description:
        raise BadMutant(f"{mutant.place}: {mutant.name} does not say what it breaks")
    if not mutant.edits or any(not "".join(old).strip() for old, _ in mutant.edits):
        raise BadMutant(f"{mutant.place}: {mutant.name} has no old text")
    if any(old == new for old, new in mutant.edits):
        raise BadMutant(f"{mutant.place}: {mutant.name} changes nothing")
    if mutant.file.split("/")[0] not in ROOMS:
        raise BadMutant(f"{mutant.place}: {mutant.file} is no source of the module")


def _read_list(path):
    mutants = []
    new_lines = None
    for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
        if line.startswith("@ "):
            words = line.split()
            if len(words) != 3:
                raise BadMutant(f"{path.name}:{number}: not '@ name file'")
            mutants.append(Mutant(words[1], words[2], f"{path.name}:{number}"))
            new_lines = None
        elif not line or line.startswith("#"):
            continue
        elif not mutants:
            raise BadMutant(f"{path.name}:{number}: nothing may stand before the first mutant")
        elif line == "-" or line.startswith("- "):
            if new_lines is None or new_lines is not mutants[-1].edits[-1][0]:
                new_lines = []
                mutants[-1].edits.append([new_lines, []])
            new_lines.append(line[2:])
        elif line == "+" or line.startswith("+ "):
            if not mutants[-1].edits:
                raise BadMutant(f"{path.name}:{number}: a new text without an old one")
            mutants[-1].edits[-1][1].append(line[2:])
            new_lines = None
        else:
            mutants[-1].description.append(line)
    for mutant in mutants:
        _finish(mutant)
    return mutants


def read_all(directory):
    """Every mutant of the directory's lists, in the order of the lists' names."""
    mutants = [mutant for path in sorted(pathlib.Path(directory).glob("*.mutants")) for mutant in _read_list(path)]
    places = {}
    for mutant in mutants:
        if mutant.name in places:
            raise BadMutant(f"{mutant.place}: {mutant.name} is also at {places[mutant.name]}")
        places[mutant.name] = mutant.place
    return mutants
