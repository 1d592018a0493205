# SPDX-License-Identifier: GPL-2.0-only
"""Runs the unit tests on mutants of the module. Called by tests/mutants/run, which has made a copy of the tree."""

import argparse
import concurrent.futures
import os
import pathlib
import re
import shlex
import signal
import subprocess
import sys
import tempfile
import threading
import time

import mutant_files
from module_build import BuildError, ModuleBuild

# A mutant that the unit tests let pass is shown to the model, where there is one.
MODEL_STEPS = 20000
MODEL_SECONDS = 600

# The module as it is passes each test program in this time, or nothing is run.
UNMUTATED_SECONDS = 300

# What a mutant may do to the machine: a loop that allocates or prints without end is stopped like one that hangs.
MEMORY_LIMIT = 4 << 30
OUTPUT_LIMIT = 64 << 20


def jobs():
    return len(os.sched_getaffinity(0))


def chosen(mutants, arguments):
    if arguments.names:
        known = {mutant.name: mutant for mutant in mutants}
        missing = [name for name in arguments.names if name not in known]
        if missing:
            sys.exit(f"error: no such mutant: {' '.join(missing)}")
        return [known[name] for name in arguments.names]
    part, parts = 0, 1
    if arguments.tenth_of:
        # Any word will do; a commit's own number spreads well.
        part, parts = int.from_bytes(arguments.tenth_of.encode(), "big") % 9973 % 10, 10
    elif arguments.part:
        part, parts = (int(word) for word in arguments.part.split("/"))
        if not 1 <= part <= parts:
            sys.exit(f"error: there is no part {arguments.part}")
        part -= 1
    return mutants[part::parts]


# Verdicts that say nothing of the tests, and fail the run.
ERRORS = ("NOT APPLIED", "NOT BUILT", "NOT JUDGED")


class NotJudged(Exception):
    """The tests cannot say whether a mutant is caught."""


class TimeLimit(Exception):
    """The program was stopped; says where it was."""


def run_program(command, library_directory, directory, limit):
    """Why the program failed, or None."""
    output = pathlib.Path(directory, "output")
    with open(output, "wb") as file:
        process = subprocess.Popen(
            ["prlimit", f"--as={MEMORY_LIMIT}", f"--fsize={OUTPUT_LIMIT}", "--core=0", *command],
            env={**os.environ, "LD_LIBRARY_PATH": str(library_directory)},
            cwd=directory,
            stdin=subprocess.DEVNULL,
            stdout=file,
            stderr=subprocess.STDOUT,
            start_new_session=True,
        )
        try:
            status = process.wait(limit)
        except subprocess.TimeoutExpired:
            status = None
            os.killpg(process.pid, signal.SIGKILL)
            process.wait()
    if status == 0:
        return None
    text = output.read_text(encoding="utf-8", errors="replace")
    failed = re.findall(r"^\[  FAILED  \] ([\w./]+)", text, re.MULTILINE)
    begun = re.findall(r"^\[ RUN      \] ([\w./]+)", text, re.MULTILINE)
    case = failed[0] if failed else begun[-1] if begun else "before its first case"
    if status is None:
        raise TimeLimit(f"{case} (time limit of {limit:.0f} s)")
    if failed:
        return case
    return f"{case} ({signal.Signals(-status).name if status < 0 else f'status {status}'})"


class Judge:
    """The test programs, and the order and time limit in which they run."""

    def __init__(self, module):
        self.module = module
        self.tests = module.unit_tests()
        self.seconds = {}
        self.model_lock = threading.Lock()
        self.model_works = None  # not known before it is needed

    def _run(self, test, library_directory, directory, limit):
        command = [self.module.program(test), "--gtest_fail_fast", "--gtest_color=no"]
        return run_program(command, library_directory, directory, limit)

    def run_unmutated(self, test):
        with tempfile.TemporaryDirectory() as directory:
            started = time.monotonic()
            try:
                reason = self._run(test, self.module.library_directory, directory, UNMUTATED_SECONDS)
            except TimeLimit as error:
                reason = str(error)
            self.seconds[test] = time.monotonic() - started
        return reason

    def _limit(self, test):
        return 15 + 10 * self.seconds[test]

    def _run_mutant(self, test, library_directory, directory):
        """Why the test failed, or None. A hang counts only if the test is still quick on the module as it is."""
        while True:
            limit = self._limit(test)
            try:
                return self._run(test, library_directory, directory, limit)
            except TimeLimit as error:
                # The machine may have become busy with something else.
                failure = self.run_unmutated(test)
                if failure:
                    raise NotJudged(f"{test} now fails on the module as it is: {failure}") from error
                if self._limit(test) <= limit * 1.5:
                    return str(error)

    def in_order_for(self, file):
        """Programs named for the mutated file first, then the quick ones."""
        stem = pathlib.Path(file).stem
        return sorted(self.tests, key=lambda test: (not test.startswith(stem), self.seconds[test]))

    def judge(self, mutant, library_directory, directory):
        """Which test caught the mutant, or None."""
        for test in self.in_order_for(mutant.file):
            reason = self._run_mutant(test, library_directory, directory)
            if reason:
                return f"{test}: {reason}"
        return self._ask_model(library_directory, directory)

    def _compare_with_model(self, library_directory, directory):
        command = [sys.executable, "-B", self.module.model, "--peer", shlex.quote(str(self.module.model_peer))]
        command += ["--jobs", "1", "--no-branches", "--keep", directory, str(MODEL_STEPS)]
        try:
            return run_program(command, library_directory, directory, MODEL_SECONDS)
        except TimeLimit as error:
            return str(error)

    def _ask_model(self, library_directory, directory):
        with self.model_lock:
            if self.model_works is None:
                self.model_works = self._try_model()
        if self.model_works and self._compare_with_model(library_directory, directory):
            return "the model differs"
        return None

    def _try_model(self):
        """Whether there is a model, and the module as it is does what it says."""
        if not self.module.make_model_peer():
            return False
        with tempfile.TemporaryDirectory() as directory:
            reason = self._compare_with_model(self.module.library_directory, directory)
        if reason:
            print(f"the model is not asked: it differs from the module as it is, {reason}", flush=True)
        return not reason


def try_mutant(mutant, module, judge):
    """(verdict, reason)."""
    with tempfile.TemporaryDirectory() as directory:
        try:
            module.build_mutant(mutant, directory)
        except mutant_files.BadMutant as error:
            return "NOT APPLIED", str(error)
        except BuildError as error:
            return "NOT BUILT", str(error)
        try:
            reason = judge.judge(mutant, directory, directory)
        except NotJudged as error:
            return "NOT JUDGED", str(error)
    return ("caught", reason) if reason else ("SURVIVED", " ".join(mutant.description))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("work", help="where the copy of the tree and its build directory are")
    parser.add_argument("--list", action="store_true")
    parser.add_argument("--part")
    parser.add_argument("--tenth-of")
    parser.add_argument("names", nargs="*")
    arguments = parser.parse_args()

    mutants = chosen(mutant_files.read_all(pathlib.Path(__file__).parent), arguments)
    if arguments.list:
        for mutant in mutants:
            print(f"{mutant.name:40} {mutant.file:36} {' '.join(mutant.description)}")
        return 0

    started = time.monotonic()
    module = ModuleBuild(arguments.work)
    module.make(jobs())
    judge = Judge(module)
    with concurrent.futures.ThreadPoolExecutor(jobs()) as pool:
        bad = [(test, reason) for test, reason in zip(judge.tests, pool.map(judge.run_unmutated, judge.tests)) if reason]
        if bad:
            for test, reason in bad:
                print(f"the module as it is fails {test}: {reason}")
            return 1
        built = time.monotonic()
        print(f"{len(judge.tests)} test programs pass on the module as it is ({built - started:.0f} s)", flush=True)

        tries = {pool.submit(try_mutant, mutant, module, judge): mutant for mutant in mutants}
        verdicts = {}
        for done in concurrent.futures.as_completed(tries):
            verdict, reason = done.result()
            mutant = tries[done]
            verdicts.setdefault(verdict, []).append(mutant)
            print(f"{verdict:8}  {mutant.name}  {reason}", flush=True)

    for verdict in (*ERRORS, "SURVIVED"):
        for mutant in verdicts.get(verdict, []):
            print(f"{verdict}: {mutant.name} ({mutant.place})")
    seconds = time.monotonic() - built
    print(f"{seconds:.0f} s for {len(mutants)} mutants, {seconds / max(1, len(mutants)):.1f} s each")
    errors = sum(len(verdicts.get(verdict, [])) for verdict in ERRORS)
    if errors:
        print(f"{errors} could not be tried")
    survived = len(verdicts.get("SURVIVED", []))
    print(f"{len(verdicts.get('caught', []))} caught, {survived} survived")
    return 1 if survived or errors or not mutants else 0


if __name__ == "__main__":
    sys.exit(main())
