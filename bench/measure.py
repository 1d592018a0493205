#!/usr/bin/env python3
"""Runs the bench programs of a build directory and writes what they say into one file, results.json.

Usage: measure.py [--quick] BUILD_DIRECTORY RESULTS_DIRECTORY
"""

import json
import os
import re
import subprocess
import sys

# What a run may take, in nanoseconds, to be run under valgrind, which is about fifty times slower; and up to what it is
# run more than once there.
COUNTED_BELOW = 20e6
COUNTED_OFTEN_BELOW = 50e3
OFTEN = 8

QUICK_COUNTED_BELOW = 1e6
# What --quick leaves out: minutes of filling and refilling.
SLOW = ("UPDATE_DEFAULT_RULE", "client: flush all", "client: add all to 24 x 5 lists")


def say(text):
    print(f"== {text}", file=sys.stderr, flush=True)


def quick_filter(program):
    """A pattern for the smallest and the largest size of each operation that is not slow."""
    listed = subprocess.run([program, "--benchmark_list_tests"], check=True, capture_output=True, text=True)
    names = {}
    for line in listed.stdout.splitlines():
        operation = line.split("/")[0]
        if operation not in SLOW:
            names.setdefault(operation, []).append(line)
    chosen = {name for lines in names.values() for name in (lines[0], lines[-1])}
    return "^(" + "|".join(re.sub(r"([.*+?()\[\]{}|^$\\])", r"\\\1", name) for name in sorted(chosen)) + ")$"


def measure_times(build, results, quick):
    program = os.path.join(build, "bench_time")
    output = os.path.join(results, "google-benchmark.json")
    command = [program, f"--benchmark_out={output}", "--benchmark_out_format=json"]
    if quick:
        command.append(f"--benchmark_filter={quick_filter(program)}")
    with open(os.path.join(results, "google-benchmark.log"), "w", encoding="utf-8") as log:
        subprocess.run(command, check=True, stdout=log, stderr=subprocess.STDOUT)
    with open(output, encoding="utf-8") as file:
        measured = json.load(file)

    cases = []
    for entry in measured["benchmarks"]:
        if entry.get("error_occurred"):
            raise SystemExit(f"{entry['name']}: {entry.get('error_message')}")
        unit, baseline = entry["label"].split("|")
        cases.append({
            "operation": entry["name"].split("/")[0],
            "unit": unit,
            "baseline": baseline,
            "size": int(entry["size"]),
            "nanoseconds": entry["fastest_ns"],
            "median_nanoseconds": entry["median_ns"],
        })
    return measured["context"], cases


def count_instructions(build, results, cases, quick):
    """Adds "instructions" to the cases that are not too slow for it."""
    limit = QUICK_COUNTED_BELOW if quick else COUNTED_BELOW
    plan = []
    for case in cases:
        if case["nanoseconds"] < limit:
            runs = OFTEN if case["nanoseconds"] < COUNTED_OFTEN_BELOW and not quick else 1
            plan.append(f"{runs} {case['size']} {case['operation']}\n")

    output = os.path.join(results, "callgrind.out")
    subprocess.run(
        ["valgrind", "--tool=callgrind", "--quiet", "--instr-atstart=no", "--collect-atstart=no",
         "--combine-dumps=yes", f"--callgrind-out-file={output}", os.path.join(build, "bench_instructions")],
        input="".join(plan), check=True, text=True)

    counts = {}
    label = None
    dumped = "desc: Trigger: Client Request: "
    with open(output, encoding="utf-8", errors="replace") as file:
        for line in file:
            if line.startswith(dumped):
                label = line.removeprefix(dumped).strip()
            elif line.startswith("summary: ") and label is not None:
                counts[label] = int(line.split()[1])
                label = None
    os.unlink(output)

    for line in plan:
        runs, size, name = line.strip().split(" ", 2)
        runs = int(runs)
        first, second = (counts[f"{which} {line.strip()}"] for which in ("first", "second"))
        case = next(case for case in cases if (case["operation"], case["size"]) == (name, int(size)))
        case["instructions"] = first if runs == 1 else (second - first) / runs
        # But for an instruction or two that are spent once.
        case["instructions_repeat"] = abs(second - (first if runs == 1 else 2 * first)) <= 2


def take_baselines_off(cases):
    """What the driver itself spends is no part of an operation."""
    baselines = {case["operation"]: case for case in cases if case["baseline"] == ""}
    for case in cases:
        if case["baseline"] == "":
            continue
        baseline = baselines[case["baseline"]]
        for figure in ("nanoseconds", "median_nanoseconds", "instructions"):
            if figure in case:
                case[figure] -= baseline[figure]


def measure_holds(build):
    holds = {}
    for program, figure in (("bench_hold_entries", "entries"), ("bench_hold_times", "nanoseconds")):
        output = subprocess.run([os.path.join(build, program)], check=True, capture_output=True, text=True).stdout
        for hold in json.loads(output):
            entry = holds.setdefault((hold["operation"], hold["lock"]),
                                     {"operation": hold["operation"], "lock": hold["lock"], "holds": hold["holds"]})
            entry[figure] = hold[figure]
            entry[f"size_of_{figure}"] = hold["size"]
            entry["full"] = entry.get("full", True) and hold["full"]
    return list(holds.values())


def main():
    arguments = sys.argv[1:]
    quick = "--quick" in arguments
    if quick:
        arguments.remove("--quick")
    build, results = arguments

    say("times")
    context, cases = measure_times(build, results, quick)
    say("instructions")
    count_instructions(build, results, cases, quick)
    take_baselines_off(cases)
    holds = []
    capacity = {}
    if not quick:
        say("lock holds")
        holds = measure_holds(build)
        say("memory, and two processors at once")
        output = subprocess.run([os.path.join(build, "bench_capacity")], check=True, capture_output=True, text=True)
        capacity = json.loads(output.stdout)
    with open(os.path.join(results, "results.json"), "w", encoding="utf-8") as file:
        json.dump({"quick": quick, "context": context, "cases": cases, "holds": holds, "capacity": capacity}, file,
                  indent=1)


if __name__ == "__main__":
    main()
