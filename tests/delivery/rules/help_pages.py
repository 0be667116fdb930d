#!/usr/bin/env python3
"""The options of --help and of the manual page are the same, and no line of a help passes 80 columns.

Usage: help_pages.py MANDOC PAGE PROGRAM
"""
import re
import subprocess
import sys

OPTION = re.compile(r"(?<![-\w])--[a-z][-a-z0-9]+")


def output(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout


def helps(program):
    yield "", output(program, "--help")
    listed = re.search(r"^commands\n(.*?)\n\n", output(program, "--help"), re.S | re.M).group(1)
    for name in re.findall(r"^  (\w+) ", listed, re.M):
        yield name, output(program, name, "--help")


def main():
    mandoc, page, program = sys.argv[1:]
    text = re.sub(".\x08", "", output(mandoc, "-Tascii", page))
    own = program.rsplit("/", 1)[-1]
    text = re.sub(rf"\b(?!{own}\b)(vcam|fwpkg|zep-audio|zep-station) \w+\s+--[-\w]+", "", text)  # of another tool
    text = re.sub(r"(?m) -- --.*", "", text)  # passed on to one
    documented = set(OPTION.findall(text))
    known, problems = set(), []
    for name, said in helps(program):
        known |= set(OPTION.findall("\n".join(re.findall(r"^  .{0,24}--\S*", said, re.M))))
        problems += [f"{name} --help: longer than 80 columns: {l}" for l in said.splitlines() if len(l) > 80]
    problems += [f"{page}: lacks {o}" for o in sorted(known - documented)]
    problems += [f"{page}: no help knows {o}" for o in sorted(documented - known)]
    print("\n".join(problems) or f"{len(known)} options")
    return 1 if problems or len(known) < 4 else 0


if __name__ == "__main__":
    sys.exit(main())
