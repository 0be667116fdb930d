#!/usr/bin/env python3
"""The release file can be made again: from another folder, and by whoever relinks it, with the same bytes."""
import os
import shutil
import subprocess
import tempfile
import unittest

BUILD = os.environ["ZEP_BUILD"]
TOOLCHAIN = os.environ["ZEP_TOOLCHAIN"]
TOP = os.path.dirname(os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__)))))
# What the executable is built from; tests and tools have no say in its bytes.
SOURCES = ("app", "board", "cmake", "common", "factory", "mpp", "service", "toolchain", "upgrade",
           "CMakeLists.txt", "CMakePresets.json")


def content(*path):
    with open(os.path.join(*path), "rb") as file:
        return file.read()


class Again(unittest.TestCase):
    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.folder = scratch.name

    def run_quietly(self, *words, **more):
        run = subprocess.run(words, capture_output=True, text=True, **more)
        self.assertEqual(run.returncode, 0, run.stdout + run.stderr)

    def archive_of(self, build, name="zep-relink.tar.gz"):
        archive = os.path.join(self.folder, name)
        self.run_quietly(os.path.join(TOP, "tools/release/relink.py"), build, archive)
        return archive

    def test_a_build_in_another_folder_gives_the_same_bytes(self):
        tree = os.path.join(self.folder, "another folder")
        os.mkdir(tree)
        for name in SOURCES:
            source = os.path.join(TOP, name)
            if os.path.isdir(source):
                shutil.copytree(source, os.path.join(tree, name))
            else:
                shutil.copy(source, tree)
        # No compiler cache: it would give back the objects of the first build.
        self.run_quietly("cmake", "--preset", "release", "-DZEP_TESTS=OFF", "-DCMAKE_C_COMPILER_LAUNCHER=",
                         "-DCMAKE_CXX_COMPILER_LAUNCHER=", f"-DZEP_TOOLCHAIN={TOOLCHAIN}", cwd=tree)
        self.run_quietly("cmake", "--build", "--preset", "release", "--target", "zep", cwd=tree)
        self.assertEqual(content(tree, "build/release/app/zep"), content(BUILD, "app/zep"))
        self.assertEqual(content(self.archive_of(os.path.join(tree, "build/release"))),
                         content(self.archive_of(BUILD, "first.tar.gz")))

    def test_the_objects_that_accompany_it_link_to_the_same_bytes(self):
        self.run_quietly("tar", "-xzf", self.archive_of(BUILD), cwd=self.folder)
        self.run_quietly("sh", os.path.join(self.folder, "zep-relink/relink.sh"),
                         env={"PATH": os.environ["PATH"], "CC": TOOLCHAIN + "/bin/arm-uclibc-gcc"})
        self.assertEqual(content(self.folder, "zep-relink/app/zep"), content(BUILD, "app/zep"))


if __name__ == "__main__":
    unittest.main()
