"""Of a kmemleak report on standard input, prints the objects that nothing explains, and on standard error how many are
kept on purpose, by their kinds.

usage: unexplained_leaks.py [--since JIFFIES] [KIND=MOST...]

Of a kind that is named no more than so many are explained: those that the module's lists held when it was unloaded. An
object that is older than the given moment does not count: a stale address somewhere can hide a whole list from the detector
until something writes over it. What the module deliberately never gives back is named in kept-memory.json, with a reason
each. User Mode Linux reports no backtrace, so such an object is known by its size and by what is in it, which is an address
of a station of the lab.
"""

import argparse
import collections
import json
import os
import re
import sys


def known_kinds():
    with open(os.path.join(os.path.dirname(os.path.abspath(__file__)), "kept-memory.json"), encoding="utf-8") as file:
        kinds = json.load(file)
    for kind in kinds:
        if not kind["reason"] or not kind["content"]:
            raise SystemExit(f"kept-memory.json does not say why or how {kind['name']} is known")
    return kinds


def is_of(kind, size, content):
    return size == kind["bytes"] and all(
        content[int(offset):].startswith(bytes.fromhex(digits)) for offset, digits in kind["content"].items())


def main(*arguments):
    parser = argparse.ArgumentParser()
    parser.add_argument("--since", type=int, default=0)
    parser.add_argument("limits", nargs="*")
    given = parser.parse_args(arguments)
    kinds = known_kinds()
    most = {name: int(number) for name, number in (limit.split("=") for limit in given.limits)}
    if strange := most.keys() - {kind["name"] for kind in kinds}:
        raise SystemExit(f"kept-memory.json knows no {strange}")
    kept = collections.Counter()
    older = collections.Counter()
    for report in re.split(r"^(?=unreferenced object )", sys.stdin.read(), flags=re.M):
        if not report.strip():
            continue
        size = int(re.search(r"\(size (\d+)\)", report).group(1))
        content = bytes.fromhex("".join(re.findall(r"^    ((?:[0-9a-f]{2} ){1,16})", report, flags=re.M)))
        for kind in kinds:
            if is_of(kind, size, content):
                if int(re.search(r", jiffies (\d+)", report).group(1)) < given.since:
                    older[kind["name"]] += 1
                    break
                kept[kind["name"]] += 1
                if kept[kind["name"]] > most.get(kind["name"], kept[kind["name"]]):
                    print(report, end="")
                break
        else:
            print(report, end="")
    for name, count in sorted(kept.items()):
        listed = f", of {most[name]} that may be" if name in most else ""
        print(f"kept on purpose: {name}, {count} times{listed}", file=sys.stderr)
    for name, count in sorted(older.items()):
        print(f"kept on purpose before: {name}, {count} times, seen only now", file=sys.stderr)


main(*sys.argv[1:])
