"""Runs what a page of docs/ shows, and holds what comes back against what the page says.

    page.py PAGE

Blocks that begin with "```console" are run, from the page's top to its end:

    access-point# COMMAND       in the access point, by bash
    client$ COMMAND             in the name space client-1-1; client-NAME$ in client-NAME

Lines below a command are what it must say, errors included: "..." as a line stands for any lines, in a line for any text.
"(exit code N)" as the last one is how it must end; without that it must end well. A command with <<'END' goes on to a
line END. A comment <!-- lab: COMMAND --> is a command that readers are not shown; what it says is not looked at.

Other blocks are not run, and listed. The first difference ends the program with exit code 1.
"""

import re
import subprocess
import sys
import tempfile

PROMPT = re.compile(r"(access-point# |client(?:-[a-z0-9-]+)?\$ )(.*)$")
HIDDEN = re.compile(r"<!-- lab: (.*) -->$")
EXIT_CODE = re.compile(r"\(exit code (\d+)\)$")
SECONDS = 90


class Step:
    def __init__(self, number, place, command):
        self.number, self.place, self.command = number, place, command
        self.said = []
        self.hidden = place == "lab"


def steps_of(lines):
    """The commands of a page with what they say, and the lines of blocks that are not run."""
    steps, not_run, block, ends_at = [], [], None, None
    for number, line in enumerate(lines, 1):
        if block is None:
            hidden = HIDDEN.match(line)
            if hidden:
                steps.append(Step(number, "lab", hidden[1]))
            elif line.startswith("```"):
                block = line[3:] or "text"
                if block != "console":
                    not_run.append(number)
                first = True
        elif ends_at:
            steps[-1].command += "\n" + line
            ends_at = None if line == ends_at else ends_at
        elif line == "```":
            block = None
        elif block == "console":
            prompt = PROMPT.match(line)
            if prompt:
                steps.append(Step(number, prompt[1][:-2], prompt[2]))
                here = re.search(r"<<'(\w+)'", prompt[2])
                ends_at = here[1] if here else None
            elif first:
                sys.exit(f"line {number}: a console block begins with a prompt")
            else:
                steps[-1].said.append(line)
            first = False
    return steps, not_run


def as_expression(said):
    """What was said as a regular expression over lines that all end."""
    text = ""
    for line in said:
        if line.strip() == "...":
            text += r"(?:.*\n)*?"
        else:
            text += ".*".join(re.escape(part.rstrip()) for part in line.split("...")) + r"\n"
    return re.compile(text + r"\Z")


def run(step):
    words = ["bash", "-c", step.command]
    if step.place == "client":
        words = ["ip", "netns", "exec", "client-1-1"] + words
    elif step.place.startswith("client-"):
        words = ["ip", "netns", "exec", step.place] + words
    # A file and no pipe: what a command leaves running keeps it open.
    with tempfile.TemporaryFile() as output:
        ended = subprocess.run(words, stdin=subprocess.DEVNULL, stdout=output, stderr=output, timeout=SECONDS)
        output.seek(0)
        said = output.read().decode("utf-8", "replace").replace("\r", "")
    return ended.returncode, "".join(line.rstrip() + "\n" for line in said.splitlines())


def main():
    with open(sys.argv[1], encoding="utf-8") as page:
        steps, not_run = steps_of(page.read().splitlines())
    if not any(not step.hidden for step in steps):
        sys.exit("the page shows no command that could be run")
    for step in steps:
        wanted_code = 0
        ending = EXIT_CODE.match(step.said[-1]) if step.said else None
        if ending:
            wanted_code = int(ending[1])
            step.said.pop()
        print(f"line {step.number}: {step.place}: {step.command.splitlines()[0]}", flush=True)
        code, said = run(step)
        print("".join(f"    {line}\n" for line in said.splitlines()), end="", flush=True)
        if code != wanted_code:
            sys.exit(f"line {step.number}: exit code {code}, not {wanted_code}")
        if not step.hidden and not as_expression(step.said).match(said):
            wanted = "\n".join(step.said)
            sys.exit(f"line {step.number}: the page says:\n{wanted}\nand this came:\n{said}")
    shown = sum(not step.hidden for step in steps)
    print(f"{shown} commands of the page were run, and {len(steps) - shown} that it does not show;"
          f" blocks that are not run: lines {not_run or 'none'}")


main()
