#!/usr/bin/env python3
"""The release file is hardened, and the check that says so refuses files that are not."""
import glob
import os
import signal
import subprocess
import tempfile
import unittest

import hardening

BUILD = os.environ["ZEP_BUILD"]
TOOLCHAIN = os.environ["ZEP_TOOLCHAIN"]
FILE = os.path.join(BUILD, "app/zep")
HERE = os.path.dirname(os.path.abspath(__file__))
READELF = os.path.join(TOOLCHAIN, "bin/arm-uclibc-readelf")
COMPILER = os.path.join(TOOLCHAIN, "bin/arm-uclibc-gcc")
# As the release build links, but for -s; a later word wins over an earlier one.
COMPILE = ["-Os", "-mthumb", "-fstack-protector-strong", "-Wl,-z,relro,-z,now,-z,noexecstack"]


def build(source, out, *more):
    subprocess.run([COMPILER, *COMPILE, os.path.join(HERE, source), "-o", out, *more], check=True,
                   stderr=subprocess.PIPE)


class ReleaseFile(unittest.TestCase):
    def test_has_no_fault(self):
        self.assertEqual(hardening.faults(READELF, FILE), [])

    def test_every_library_of_ours_has_stack_protection(self):
        libraries = glob.glob(os.path.join(glob.escape(BUILD), "**/libzep*.a"), recursive=True)
        self.assertGreater(len(libraries), 8)
        for library in libraries:
            symbols = subprocess.run([COMPILER.removesuffix("gcc") + "nm", library], capture_output=True,
                                     text=True, check=True).stdout
            if "libzepmppbase" not in library:  # has no function with an array
                self.assertIn("U __stack_chk_fail", symbols, library)

    def test_does_not_tell_where_it_was_built(self):
        with open(FILE, "rb") as file:
            data = file.read()
        for path in (BUILD, TOOLCHAIN, os.path.dirname(os.path.dirname(os.path.dirname(HERE)))):
            self.assertNotIn(path.encode(), data)


class Check(unittest.TestCase):
    def refused(self, reason, *more, strip="-s"):
        with tempfile.TemporaryDirectory() as scratch:
            out = os.path.join(scratch, "program")
            build("bad_link.c", out, strip, *more)
            self.assertTrue(any(reason in f for f in hardening.faults(READELF, out)),
                            hardening.faults(READELF, out))

    def test_accepts_the_same_program_linked_well(self):
        with tempfile.TemporaryDirectory() as scratch:
            out = os.path.join(scratch, "program")
            build("bad_link.c", out, "-s")
            self.assertEqual(hardening.faults(READELF, out), [])

    def test_refuses_what_is_not_hardened(self):
        self.refused("the stack is executable", "-Wl,-z,execstack")
        self.refused("writable and executable", "-DWRITABLE_CODE")
        self.refused("no GNU_RELRO", "-Wl,-z,norelro")
        self.refused(".got stays writable", "-Wl,-z,lazy")
        self.refused("no stack protector", "-fno-stack-protector", "-Wl,--defsym=__stack_chk_fail=abort")
        self.refused("not stripped", strip="-Wl,-S")

    def test_refuses_another_machine_and_a_dynamic_program(self):
        found = hardening.faults("readelf", "/bin/true")
        self.assertIn("not an ARM executable", found)
        self.assertIn("not static: it asks for a loader", found)


class Protection(unittest.TestCase):
    def run_it(self, *fault):
        with tempfile.TemporaryDirectory() as scratch:
            out = os.path.join(scratch, "program")
            build("protected.c", out, "-w")
            return subprocess.run(["qemu-arm-static", "-cpu", "arm926", out, *fault], cwd=scratch,
                                  capture_output=True, text=True)

    def test_ends_a_program_that_misbehaves(self):
        self.assertEqual(self.run_it().returncode, 0)
        self.assertEqual(self.run_it("constant").returncode, -signal.SIGSEGV)
        overrun = self.run_it("stack")
        self.assertIn("stack smashing detected", overrun.stderr)
        self.assertLess(overrun.returncode, 0)


if __name__ == "__main__":
    unittest.main()
