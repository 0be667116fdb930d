#!/usr/bin/env python3
"""The release file is hardened: what its ELF headers tell."""
import glob
import os
import re
import sys
import unittest
from unittest import mock

from tree import TOP, quietly, read

sys.path.insert(0, os.path.join(TOP, "tools/release"))
import budget

BUILD = os.environ["ZEP_BUILD"]
TOOLCHAIN = os.environ["ZEP_TOOLCHAIN"]
FILE = os.path.join(BUILD, "app/zep")
FINAL = (".init_array", ".fini_array", ".got", ".got.plt")  # addresses that are final when a static program is linked


def faults(tool, file):
    """What is wrong with a file that is to go onto a camera."""
    header, attributes = quietly(tool, "-hW", file), quietly(tool, "-AW", file)
    program = re.findall(r"^  ([A-Z_]+) +(?:0x\w+ ){5}([R ][W ][E ])", quietly(tool, "-lW", file), re.M)  # type, flags
    section = dict(re.findall(r"^  \[ *\d+\] (\.\S+) +\S+ +\w+ \w+ \w+ \w+ +([A-Z]*) ", quietly(tool, "-SW", file), re.M))
    relro = [int(at, 16) + int(size, 16) for at, size in re.findall(
        r"^  GNU_RELRO +0x\w+ 0x(\w+) 0x\w+ 0x\w+ 0x(\w+) ", quietly(tool, "-lW", file), re.M)]
    text = " ".join(re.findall(r"[\t\n -~]{3,}(?=\0)", read(file)))
    checks = {
        "an ARM executable": "EXEC (Executable file)" in header and re.search(r"Machine: +ARM\n", header),
        "the soft-float ABI": "soft-float ABI" in header,
        "ARMv5TE code": re.search(r"Tag_CPU_arch: v5TEJ?$", attributes, re.M),
        "static": not {"INTERP", "DYNAMIC"} & {t for t, _ in program},
        "stripped": ".symtab" not in section,
        "a stack that is not executable": [f for t, f in program if t == "GNU_STACK" and "E" not in f],
        "no segment writable and executable": not [f for _, f in program if "W" in f and "E" in f],
        "constants where nothing can write": section.get(".constants") == "A" and not set(FINAL) & set(section),
        "read-only data to the end of a page": len(relro) == 1 and relro[0] % 4096 == 0,
        "free of numbers that toolchain/unreached.c cannot print": not re.search(r"%[-+ #0-9.*]*[aefgAEFG]", text),
        "a stack protector": "stack smashing detected" in read(file),
    }
    return [f"not {name}" for name, holds in checks.items() if not holds]


class ReleaseFile(unittest.TestCase):
    def test_has_no_fault(self):
        self.assertEqual(faults(os.path.join(TOOLCHAIN, "bin/arm-uclibc-readelf"), FILE), [])
        # A program of the PC has most of them.
        self.assertGreater(len(faults("readelf", "/bin/true")), 4)

    def test_every_library_of_ours_has_stack_protection(self):
        objects = glob.glob(os.path.join(glob.escape(BUILD), "**/libzep*.a"), recursive=True)
        self.assertGreater(len(objects), 8)
        for file in [*objects, os.path.join(BUILD, "app/zep_whole.o")]:
            symbols = quietly(os.path.join(TOOLCHAIN, "bin/arm-uclibc-readelf"), "-sW", file)
            if "libzepmppbase" not in file:  # has no function with an array
                self.assertIn("UND __stack_chk_fail", symbols, file)

    def test_growth_and_what_nobody_reaches_are_told(self):
        self.assertEqual(budget.faults(BUILD), [])
        with mock.patch.dict(budget.FOLDERS, {"app": 1}), mock.patch.object(budget, "UNREACHED", ["exit.o"]):
            self.assertRegex("|".join(budget.faults(BUILD)), r"^app: \d+ bytes, its budget is 1\|exit\.o is linked, see")

    def test_does_not_tell_where_it_was_built(self):
        for path in (BUILD, TOOLCHAIN, TOP):
            self.assertNotIn(path, read(FILE))


if __name__ == "__main__":
    unittest.main()
