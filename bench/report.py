#!/usr/bin/env python3
"""Prints the results of measure.py as a table; with --check, also which goal of goals.json is met, and fails if one is
missed.

Usage: report.py [--check] RESULTS_DIRECTORY
"""

import json
import os
import sys

# Holds with fewer entries are not worth a line; results.json has them all.
SHOWN_HOLD_ENTRIES = 32


def short(value):
    """A figure in at most six characters."""
    if value is None:
        return "-"
    if value == float("inf"):
        return "unknown"
    for unit, factor in (("G", 1e9), ("M", 1e6), ("k", 1e3)):
        if abs(value) >= factor * 10:
            return f"{value / factor:.3g}{unit}" if abs(value) < factor * 1000 else f"{value / factor:.0f}{unit}"
    return f"{value:.1f}" if abs(value) < 10 else f"{value:.0f}"


def ratio(full, empty):
    if full is None or empty is None:
        return "-"
    if empty <= 0:
        return "-"
    return f"{full / empty:.3g}" if full / empty < 1000 else short(full / empty)


def by_operation(cases):
    operations = {}
    for case in cases:
        if case["baseline"] != "":
            operations.setdefault(case["operation"], []).append(case)
    return operations


def print_table(results):
    print("Costs of one operation, the measuring itself taken off. Instructions repeat exactly; times are the fastest"
          " of several batches.\n")
    print(f"{'':46}{'':>15}  {'instructions':^22}  {'nanoseconds':^22}")
    print(f"{'operation':46}{'size':>15}  {'empty':>7}{'full':>8}{'ratio':>7}  {'empty':>7}{'full':>8}{'ratio':>7}")
    unit = None
    for name, cases in by_operation(results["cases"]).items():
        if cases[0]["unit"] != unit:
            unit = cases[0]["unit"]
            print(f"  -- by {unit}")
        empty, full = cases[0], cases[-1]
        line = f"{name:46}{empty['size']:>6} ..{full['size']:>8}"
        for figure in ("instructions", "nanoseconds"):
            small, large = empty.get(figure), full.get(figure)
            line += f" {short(small):>7}{short(large):>8}{ratio(large, small):>7} "
        print(line)
        not_repeated = [case["size"] for case in cases if case.get("instructions_repeat") is False]
        if not_repeated:
            print(f"{'':8}(the count depends on which entry is asked for at size {not_repeated})")

    shown = sorted((hold for hold in results["holds"] if hold["entries"] >= SHOWN_HOLD_ENTRIES),
                   key=lambda hold: -hold["entries"])
    if shown:
        print(f"\nLongest hold of a lock in one operation at full tables: entries looked at or freed"
              f" (from {SHOWN_HOLD_ENTRIES} on), and time\n")
        for hold in shown:
            size = "" if hold["full"] else f"  (at size {min(hold['size_of_entries'], hold['size_of_nanoseconds'])})"
            print(f"{hold['operation']:46}{hold['lock']:>20}{hold['entries']:>10} entries"
                  f"{short(hold['nanoseconds']):>8} ns{size}")
    if results["capacity"]:
        print()
        for name, value in results["capacity"].items():
            print(f"{name.replace('_', ' '):46}{'not judged: processors busy' if value is None else value}")


class Figures:
    """Looks up what a goal is about; None where it was not measured."""

    def __init__(self, results):
        self.cases = {(case["operation"], case["size"]): case for case in results["cases"]}
        self.holds = results["holds"]
        self.capacity = results["capacity"]

    def case(self, operation, size, figure):
        known = {name for name, _ in self.cases}
        if not self.holds or operation in known:
            return self.cases.get((operation, size), {}).get(figure)
        raise SystemExit(f"goals.json: there is no operation \"{operation}\"")

    def value(self, goal):
        """The figure, and what to say about it."""
        kind = goal["figure"]
        if kind == "capacity":
            return self.capacity.get(goal["name"]), ""
        if kind == "hold entries":
            return self.longest_hold()
        full = self.case(goal["operation"], goal["size"], kind)
        if "of_size" not in goal:
            return full, ""
        base = self.case(goal.get("of_operation", goal["operation"]), goal["of_size"], kind)
        if "and" in goal:
            more = self.case(goal["and"], goal["size"], kind)
            base = None if base is None or more is None else base + more
        if full is None or base is None or base <= 0:
            return None, ""
        return full / base, f"({short(full)} of {short(base)})"

    def longest_hold(self):
        if not self.holds:
            return None, ""
        worst = max(self.holds, key=lambda hold: hold["entries"])
        # A size that took too long is no proof for the full one.
        if not all(hold["full"] for hold in self.holds):
            partial = sorted({hold["operation"] for hold in self.holds if not hold["full"]})
            note = f"({worst['operation']}; not at full size: {', '.join(partial)})"
            return float("inf") if worst["entries"] <= 256 else worst["entries"], note
        return worst["entries"], f"({worst['operation']})"


def check(results, goals):
    figures = Figures(results)
    counts = {"met": 0, "missed": 0, "not measured": 0}
    print("\nGoals\n")
    for goal in goals:
        value, note = figures.value(goal)
        bound = goal.get("at_most", goal.get("at_least"))
        if value is None:
            verdict = "not measured"
        elif ("at_most" in goal and value <= bound) or ("at_least" in goal and value >= bound):
            verdict = "met"
        else:
            verdict = "missed"
        counts[verdict] += 1
        relation = "at most" if "at_most" in goal else "at least"
        shown = "-" if value is None else f"{value:.3g}" if value < 1000 else short(value)
        bound_text = short(bound) if bound >= 1e4 else f"{bound:g}"
        print(f"{verdict:12} {goal['what']:72} {shown:>8}, {relation} {bound_text} {note}")
    print("\n" + ", ".join(f"{count} {verdict}" for verdict, count in counts.items()))
    # A short run leaves things out on purpose.
    return counts["missed"] == 0 and (results["quick"] or counts["not measured"] == 0)


def main():
    arguments = sys.argv[1:]
    checking = "--check" in arguments
    if checking:
        arguments.remove("--check")
    directory, = arguments
    with open(os.path.join(directory, "results.json"), encoding="utf-8") as file:
        results = json.load(file)
    print_table(results)
    if checking:
        with open(os.path.join(os.path.dirname(__file__), "goals.json"), encoding="utf-8") as file:
            goals = json.load(file)
        if not check(results, goals):
            sys.exit(1)


if __name__ == "__main__":
    main()
