#!/usr/bin/env python3
"""The release file is hardened: what its ELF headers tell."""
import glob
import os
import re
import unittest

from tree import TOP, quietly, read

BUILD = os.environ["ZEP_BUILD"]
TOOLCHAIN = os.environ["ZEP_TOOLCHAIN"]
FILE = os.path.join(BUILD, "app/zep")
CONSTANT = (".init_array", ".fini_array", ".data.rel.ro", ".got")
PAGE = 4096


def faults(tool, file):
    """What is wrong with a file that is to go onto a camera."""
    header, attributes = quietly(tool, "-hW", file), quietly(tool, "-AW", file)
    # (type, virtual address, memory size, flags) of each program header; name -> (address, size)
    program = [(t, int(a, 16), int(s, 16), f) for t, a, s, f in re.findall(
        r"^  ([A-Z_]+) +0x\w+ 0x(\w+) 0x\w+ 0x\w+ 0x(\w+) ([R ][W ][E ])", quietly(tool, "-lW", file), re.M)]
    section = {n: (int(a, 16), int(s, 16)) for n, a, s in re.findall(
        r"^  \[ *\d+\] (\.\S+) +\S+ +(\w+) \w+ (\w+)", quietly(tool, "-SW", file), re.M)}
    relro = [(a, a + s) for t, a, s, _ in program if t == "GNU_RELRO"] or [(0, 0)]
    behind = [n for n in CONSTANT if n in section and
              not relro[0][0] <= section[n][0] <= section[n][0] + section[n][1] <= relro[0][1]]
    checks = {
        "an ARM executable": "EXEC (Executable file)" in header and re.search(r"Machine: +ARM\n", header),
        "the soft-float ABI": "soft-float ABI" in header,
        "ARMv5TE code": re.search(r"Tag_CPU_arch: v5TEJ?$", attributes, re.M),
        "static": not {"INTERP", "DYNAMIC"} & {t for t, *_ in program},
        "stripped": ".symtab" not in section,
        "a stack that is not executable": [f for t, *_, f in program if t == "GNU_STACK" and "E" not in f],
        "no segment writable and executable": not [f for *_, f in program if "W" in f and "E" in f],
        "read-only data to the end of a page": len(relro) == 1 and relro[0][1] and relro[0][1] % PAGE == 0,
        "read-only constants": not behind,
        "a stack protector": "stack smashing detected" in read(file),
    }
    return [f"not {name}" for name, holds in checks.items() if not holds]


class ReleaseFile(unittest.TestCase):
    def test_has_no_fault(self):
        self.assertEqual(faults(os.path.join(TOOLCHAIN, "bin/arm-uclibc-readelf"), FILE), [])
        # A program of the PC has most of them.
        self.assertGreater(len(faults("readelf", "/bin/true")), 4)

    def test_every_library_of_ours_has_stack_protection(self):
        libraries = glob.glob(os.path.join(glob.escape(BUILD), "**/libzep*.a"), recursive=True)
        self.assertGreater(len(libraries), 8)
        for library in libraries:
            symbols = quietly(os.path.join(TOOLCHAIN, "bin/arm-uclibc-nm"), library)
            if "libzepmppbase" not in library:  # has no function with an array
                self.assertIn("U __stack_chk_fail", symbols, library)

    def test_does_not_tell_where_it_was_built(self):
        for path in (BUILD, TOOLCHAIN, TOP):
            self.assertNotIn(path, read(FILE))


if __name__ == "__main__":
    unittest.main()
