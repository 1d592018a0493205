#!/usr/bin/env python3
"""Prints what the machines measured as one table and writes it as results.json; with --check, also which goal of
kernel_goals.json is met, and fails if one is missed or a row has no figure.

Usage: report.py [--check] RESULTS_DIRECTORY RUN...

A RUN is a directory below, KERNEL-BOOT. Runs of one kernel are boots of the same machine: their first is shown, the
others say how well it repeats.
"""

import json
import os
import sys

EMPTY, FULL = 1, 1034
RULESETS = ("verdict_map", "verdict_map_by_index", "five_sets")
# For the module's rows: the row of a ruleset that does the same. A verdict map asks for every table at once.
ADMISSION = {"verdict_map": "admitted by login", "verdict_map_by_index": "admitted by login"}
GARDEN, GARDEN_OF_RULESET = "walled garden: address that is listed", "garden: address that is listed"
DNS = "unadmitted: DNS query"


class Kernel:
    """The figures of one kernel: what each row costs more than the bridge alone costs with the same frames."""

    def __init__(self, name, boots):
        self.name, self.unit, self.pktgen = name, boots[0]["unit"], boots[0]["pktgen"]
        self.commands = boots[0]["commands"]
        self.failures = [f"{boot['failure']}" for boot in boots if boot["failure"]]
        self.rows = {self.key(row): row for row in boots[0]["rows"]}
        for boot in boots:
            self.failures += [f"{row['group']}, {row['name']}: {row['failure']}"
                              for row in boot["rows"] + boot["pktgen"] if "failure" in row and row.setdefault("group", "pktgen")]
            bare = {row["name"]: row.get("cost") for row in boot["rows"] if row["group"] == "bridge alone"}
            for row in boot["rows"]:
                own = self.rows.get(self.key(row))
                if own is not None and "cost" in row and bare.get(row["bare"]) is not None:
                    own.setdefault("costs", []).append(row["cost"])
                    own.setdefault("additions", []).append(row["cost"] - bare[row["bare"]])
        for row in self.rows.values():
            bare = self.rows.get(("bridge alone", row["bare"], None), {})
            if "cost" in row and "cost" in bare:
                row["added"] = row["cost"] - bare["cost"]

    @staticmethod
    def key(row):
        return row["group"], row["name"], row.get("size")

    def get(self, group, name, size=None, figure="added"):
        return self.rows.get((group, name, size), {}).get(figure)

    def ruleset_figure(self, ruleset, name):
        """What the ruleset adds to a frame of the module's row `name`; None where it has nothing like it."""
        if name == GARDEN:
            name = GARDEN_OF_RULESET
        elif name.startswith("admitted by"):
            name = ADMISSION.get(ruleset, name)
        return self.get(ruleset, name)

    def best_ruleset(self, name):
        figures = [(self.ruleset_figure(ruleset, name), ruleset) for ruleset in RULESETS]
        return min(((figure, ruleset) for figure, ruleset in figures if figure is not None), default=(None, None))

    def of_best(self, name, size):
        added, best = self.get("module", name, size), self.best_ruleset(name)[0]
        return None if added is None or not best else added / best

    def pktgen_figures(self):
        """Of each of its rows: name, the whole cost, what was added to the bridge alone, and what the table has."""
        costs = {row["name"]: row["cost"] for row in self.pktgen if "failure" not in row}
        bare_stranger, bare_client = (costs.pop(name, None) for name in ("bridge alone", "bridge alone: client"))
        for name, cost in costs.items():
            bare = bare_client if name.startswith("admitted") else bare_stranger
            own = self.get("three empty hooks", "DNS query") if name == "three empty hooks" else \
                self.get("module", name, 1)
            yield name, cost, None if bare is None else cost - bare, own

    def added_by_an_add(self):
        """What adding a client costs more than a command that does nothing."""
        return self.commands["add"] - self.commands["nothing"] if self.commands else None

    def worst_difference_from_pktgen(self):
        differences = [(None if added is None or own is None else abs(added - own) / cost, name)
                       for name, cost, added, own in self.pktgen_figures()]
        return (None, "") if any(part is None for part, _ in differences) else max(differences, default=(None, ""))

    def worst_difference(self):
        """Between two boots, of what the module adds, as a part of a frame's whole cost; and the row."""
        return max((((max(row["additions"]) - min(row["additions"])) / min(row["costs"]), row["name"])
                    for row in self.rows.values() if row["group"] == "module" and len(row.get("additions", [])) > 1),
                   default=(None, ""))


def shown(value, digits=0):
    return "-" if value is None else f"{value:,.{digits}f}"


def print_table(kernels):
    print("What a frame costs more than on the bridge alone; of nftables: of what the best ruleset that does the same"
          " adds.\n")
    head = f"{'':78}"
    for kernel in kernels:
        head += f"{kernel.name + ', ' + kernel.unit:>30}"
    print(head)
    print(f"{'':78}" + f"{'added':>14}{'of nftables':>16}" * len(kernels))
    order = {}
    for kernel in kernels:
        for key, row in kernel.rows.items():
            order.setdefault(key, row)
    group = None
    for key, row in order.items():
        if key[0] != group:
            group = key[0]
            print(f"  -- {group}" + (": the whole cost" if group == "bridge alone" else ""))
        name = row["name"] + (f" ({row['state']})" if "state" in row else "")
        line = f"{name:78}"
        for kernel in kernels:
            figure = "cost" if group == "bridge alone" else "added"
            digits = 0 if kernel.unit == "instructions" else 1
            line += f"{shown(kernel.get(*key, figure=figure), digits):>14}"
            ratio = kernel.of_best(row["name"], row["size"]) if group == "module" and "size" in row else None
            line += f"{shown(ratio, 2):>16}" if ratio is not None else f"{'':16}"
        print(line.rstrip())
    print()
    for kernel in kernels:
        for name in ("admitted by login", DNS, GARDEN):
            figure, ruleset = kernel.best_ruleset(name)
            if ruleset:
                print(f"{kernel.name}: the best ruleset for \"{name}\" is {ruleset}, {shown(figure)} {kernel.unit}")
        print_pktgen(kernel)
        if kernel.commands:
            print(f"{kernel.name}: adding a client to full tables costs {shown(kernel.added_by_an_add())} nanoseconds of the"
                  f" machine's clock more than a command that does nothing ({shown(kernel.commands['nothing'])})")
        difference, name = kernel.worst_difference()
        if difference is not None:
            print(f"{kernel.name}: what the module adds differs between boots by at most {difference:.3%} of a frame's"
                  f" cost ({name})")
        for failure in kernel.failures:
            print(f"{kernel.name}: NO FIGURE: {failure}")


def print_pktgen(kernel):
    """The same by the kernel's own generator, which makes UDP only."""
    for name, cost, added, own in kernel.pktgen_figures():
        print(f"{kernel.name}: {name}: by pktgen {shown(added)} added, {shown(cost)} in all; above {shown(own)}")


def value_of(kernel, goal, name):
    added = kernel.get("module", name, goal.get("size"))
    figure = goal["figure"]
    if figure == "added":
        return added
    if added is None:
        return None
    if figure == "of best nftables":
        return kernel.of_best(name, goal["size"])
    if figure == "of five_sets":
        other = kernel.ruleset_figure("five_sets", name)
    elif figure == "of nearly empty tables":
        other = kernel.get("module", name, EMPTY)
    elif figure == "own":
        hook = kernel.get("post-routing hook that accepts", "TCP of the access point")
        return None if hook is None else added - hook
    else:
        raise SystemExit(f"kernel_goals.json: there is no figure \"{figure}\"")
    return added / other if other else None


def judge(kernels, goal):
    """The worst value of the goal's rows, and which row it is."""
    kernel = next((kernel for kernel in kernels if kernel.name == goal["kernel"]), None)
    if kernel is None:
        return None, ""
    if goal["figure"] == "difference between boots":
        return kernel.worst_difference()
    if goal["figure"] == "a client's adding":
        return kernel.added_by_an_add(), ""
    if goal["figure"] == "difference from pktgen":
        return kernel.worst_difference_from_pktgen()
    values = [(value_of(kernel, goal, name), name) for name in goal["rows"]]
    return (None, "") if any(value is None for value, _ in values) else max(values)


def check(kernels):
    with open(os.path.join(os.path.dirname(__file__), "../kernel_goals.json"), encoding="utf-8") as file:
        goals = json.load(file)
    counts = {"met": 0, "missed": 0, "not measured": 0}
    print("\nGoals\n")
    for goal in goals:
        value, name = judge(kernels, goal)
        verdict = "not measured" if value is None else "met" if value <= goal["at_most"] else "missed"
        counts[verdict] += 1
        digits = 0 if goal["at_most"] >= 10 else 4 if goal["at_most"] < 0.01 else 2
        print(f"{verdict:12} {goal['what']:84} {shown(value, digits):>8}, at most {goal['at_most']:g}  ({name})")
    print("\n" + ", ".join(f"{count} {verdict}" for verdict, count in counts.items()))
    return counts["missed"] == counts["not measured"] == 0


def main():
    arguments = sys.argv[1:]
    checking = "--check" in arguments
    if checking:
        arguments.remove("--check")
    directory, *runs = arguments
    boots = {}
    for run in runs:
        with open(os.path.join(directory, run, "figures.json"), encoding="utf-8") as file:
            boots.setdefault(run.rsplit("-", 1)[0], []).append(json.load(file))
    kernels = [Kernel(name, measured) for name, measured in boots.items()]
    with open(os.path.join(directory, "results.json"), "w", encoding="utf-8") as file:
        json.dump([{"kernel": kernel.name, "unit": kernel.unit, "rows": list(kernel.rows.values()),
                    "pktgen": kernel.pktgen, "commands": kernel.commands, "failures": kernel.failures} for kernel in kernels], file, indent=1)
    print_table(kernels)
    # Without --check as well: a frame that went another way is no matter of goals.
    is_good = not any(kernel.failures for kernel in kernels)
    if checking:
        is_good = check(kernels) and is_good
    sys.exit(0 if is_good else 1)


if __name__ == "__main__":
    main()
