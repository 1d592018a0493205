#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-2.0-only
"""Usage: scripts/tidy.py BUILD STAMPS FILE...

Runs clang-tidy on the files, as many at a time as there are processors, with the compile commands of BUILD. A file that
has passed leaves a stamp in STAMPS, named for all that its verdict depends on (the preprocessed source with its comments
and macros, the compile command, the checks, clang-tidy itself), and is not looked at again before one of those differs.
"""

import concurrent.futures
import hashlib
import json
import os
import pathlib
import shlex
import subprocess
import sys
import tempfile
import time

STAMP_SECONDS = 30 * 24 * 3600


def chosen_entries(build):
    """One compile command for each file: what is compiled for two programs is looked at once, and clang-tidy's analyzer is
    wrong about argument lists when it reads a file for the second time."""
    entries = json.loads((build / "compile_commands.json").read_text(encoding="utf-8"))
    return list({entry["file"]: entry for entry in entries}.values())


def compile_arguments(entries):
    arguments = {}
    for entry in entries:
        words = shlex.split(entry["command"])
        output = words.index("-o")
        arguments[entry["file"]] = [word for word in words[:output] + words[output + 2 :] if word not in ("-c", entry["file"])]
    return arguments


def output_of(command, build):
    # In one place, whose name the preprocessor writes down.
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, cwd=build).stdout


def stamp_name(version, arguments, file, build):
    name = hashlib.sha256(version)
    name.update(output_of(["clang-tidy", "--dump-config", file], build))
    name.update("\0".join([*arguments, file]).encode())
    name.update(output_of([*arguments, "-E", "-C", "-dD", file], build))
    return name.hexdigest()


def main():
    build, stamps = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
    files = sys.argv[3:]
    stamps.mkdir(parents=True, exist_ok=True)
    for stamp in stamps.iterdir():
        if stamp.stat().st_mtime < time.time() - STAMP_SECONDS:
            stamp.unlink()
    entries = chosen_entries(build)
    commands = compile_arguments(entries)
    database = tempfile.TemporaryDirectory()
    (pathlib.Path(database.name) / "compile_commands.json").write_text(json.dumps(entries), encoding="utf-8")
    # The rest of what it says of itself is about the processor.
    version = output_of(["clang-tidy", "--version"], build).splitlines()[0]

    def look_at(file):
        """Whether the file passes, and whether it was looked at now."""
        stamp = stamps / stamp_name(version, commands[file], file, build)
        if stamp.exists():
            stamp.touch()
            return True, False
        process = subprocess.run(
            ["clang-tidy", "-p", database.name, "--quiet", "--warnings-as-errors=*", file],
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            encoding="utf-8",
        )
        if process.returncode == 0:
            stamp.touch()
            return True, True
        print(process.stdout, flush=True)
        return False, True

    with concurrent.futures.ThreadPoolExecutor(len(os.sched_getaffinity(0))) as pool:
        verdicts = list(pool.map(look_at, files))
    failed = sum(not passed for passed, _ in verdicts)
    print(f"{len(files)} files, {sum(looked for _, looked in verdicts)} of them new or changed, {failed} with findings")
    return 1 if failed or not files else 0


if __name__ == "__main__":
    sys.exit(main())
