#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-2.0-only
"""Usage: draw_screens.py DIRECTORY FILE.screen...

Draws each file, a command behind "# " and what it printed with its colours, as DIRECTORY/FILE.svg. The picture asks no
other host for anything: its letters are the reader's own monospaced ones."""

import io
import pathlib
import re
import sys

from rich.console import Console
from rich.terminal_theme import MONOKAI
from rich.text import Text

WIDEST = 120


def draw(text, title):
    command, _, output = text.partition("\n")
    lines = [Text("access-point" + command, style="bold"), *map(Text.from_ansi, output.rstrip("\n").split("\n"))]
    width = min(WIDEST, max(len(line) for line in lines) + 1)
    console = Console(record=True, width=width, file=io.StringIO(), color_system="truecolor", force_terminal=True)
    for line in lines:
        console.print(line, highlight=False)
    picture = console.export_svg(title=title, theme=MONOKAI, unique_id=title)
    # Some programs that draw it would drop the blanks at the beginning of a line.
    picture = picture.replace("<svg ", '<svg xml:space="preserve" ', 1)
    return re.sub(r"@font-face \{.*?\}\s*|<!--.*?-->\s*", "", picture, flags=re.DOTALL)


def main():
    if len(sys.argv) < 3:
        raise SystemExit(__doc__)
    directory = pathlib.Path(sys.argv[1])
    for name in map(pathlib.Path, sys.argv[2:]):
        picture = directory / (name.stem + ".svg")
        picture.write_text(draw(name.read_text(encoding="utf-8"), "cpctl-" + name.stem), encoding="utf-8")
        print(picture.name)


if __name__ == "__main__":
    main()
