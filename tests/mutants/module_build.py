# SPDX-License-Identifier: GPL-2.0-only
"""Builds the tests once, and the module's shared library anew for each mutant."""

import json
import os
import pathlib
import shlex
import shutil
import subprocess

LIBRARY = "libcaptive_portal_machine.so"
ARCHIVE = "libcaptive_portal_core.a"


class BuildError(Exception):
    pass


def _run(command, **options):
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, errors="replace", **options)
    if done.returncode != 0:
        raise BuildError(done.stdout[-4000:])
    return done.stdout


class ModuleBuild:
    """The unmutated tree and its build directory."""

    def __init__(self, work):
        self.tree = pathlib.Path(work, "tree")
        self.build = pathlib.Path(work, "build")
        self.library_directory = self.build / "platform/host"
        self.model = self.tree / "tests/model/compare.py"
        self.model_peer = self.build / "tests/model/model_peer"

    def unit_tests(self):
        """Names of the test programs. Those of the host kernel, of test support, of the library and of the command line look
        at no module."""
        others = {path.stem for room in ("platform/host", "tests/support") for path in (self.tree / room).glob("*.cpp")}
        stems = {path.stem for path in (self.tree / "tests/unit").glob("*_test.cpp")}
        return sorted(stem for stem in stems if stem.removesuffix("_test") not in others and not stem.startswith(("cpctl_", "library_")))

    def program(self, test):
        return self.build / "tests/unit" / test

    def make(self, jobs):
        _run(["ninja", "-C", self.build, "-j", str(jobs), *self.unit_tests()])
        commands = json.loads((self.build / "compile_commands.json").read_text(encoding="utf-8"))
        self._compile = {
            os.path.relpath(entry["file"], self.tree): shlex.split(entry["command"])
            for entry in commands
            if "CMakeFiles/captive_portal_core.dir/" in entry["command"]
        }
        # ": && compiler ... && :"
        link = _run(["ninja", "-C", self.build, "-t", "commands", "captive_portal_machine"]).splitlines()[-1]
        self._link = shlex.split(link)[2:-2]
        self._includers = self._read_includers()

    def make_model_peer(self):
        """Builds the program that plays the model's sequences on the module; False where there is no model."""
        if self.model.exists():
            _run(["ninja", "-C", self.build, "model_peer"])
        return self.model.exists()

    def _read_includers(self):
        """For each file of the tree, the core's sources that it is part of."""
        includers = {}
        source = None
        sources = {self._output(command): source for source, command in self._compile.items()}
        for line in _run(["ninja", "-C", self.build, "-t", "deps"]).splitlines():
            if not line.startswith(" "):
                source = sources.get(line.partition(":")[0])
            elif source:
                path = os.path.relpath(line.strip(), self.tree)
                includers.setdefault(path, set()).add(source)
        return includers

    @staticmethod
    def _output(command):
        return command[command.index("-o") + 1]

    def build_mutant(self, mutant, directory):
        """Leaves the module's library with the mutant in the directory."""
        text = (self.tree / mutant.file).read_text(encoding="utf-8")
        overlay = pathlib.Path(directory, "overlay")
        mutated = overlay / mutant.file
        mutated.parent.mkdir(parents=True)
        mutated.write_text(mutant.apply(text), encoding="utf-8")
        objects = [self._compile_source(source, overlay, directory) for source in sorted(self._includers.get(mutant.file, ()))]
        if not objects:
            raise BuildError(f"no object of the module depends on {mutant.file}")
        archive = pathlib.Path(directory, ARCHIVE)
        shutil.copy(self.build / ARCHIVE, archive)
        _run(["ar", "r", archive, *objects])
        self._link_library(archive, pathlib.Path(directory, LIBRARY))

    def _compile_source(self, source, overlay, directory):
        command = self._compile[source]
        output = pathlib.Path(directory, pathlib.Path(self._output(command)).name)
        mutated = overlay / source
        path = mutated if mutated.exists() else self.tree / source
        # The overlay's headers come before the tree's. A mutant may leave something unused.
        options = [word for word in command[1:-4] if word not in ("-Werror", "-MD")]
        for flag in ("-MT", "-MF"):
            if flag in options:
                at = options.index(flag)
                del options[at : at + 2]
        _run([command[0], "-I", overlay, "-I", overlay / "include", *options, "-w", "-o", output, "-c", path], cwd=self.build)
        return output

    def _link_library(self, archive, library):
        command = list(self._link)
        command[command.index("-o") + 1] = str(library)
        replaced = [str(archive) if word.endswith("/" + ARCHIVE) or word == ARCHIVE else word for word in command]
        if replaced == command:
            raise BuildError(f"the link command names no {ARCHIVE}: {shlex.join(command)}")
        _run(replaced, cwd=self.build)
