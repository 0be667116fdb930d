#!/usr/bin/env python3
"""The release file can be made again: from another folder, and by whoever relinks it, with the same bytes."""
import os
import shutil
import unittest

from tree import TOP, InFolder, quietly, read

BUILD = os.environ["ZEP_BUILD"]
TOOLCHAIN = os.environ["ZEP_TOOLCHAIN"]


class Again(InFolder):
    def archive_of(self, build, name="zep-relink.tar.gz"):
        archive = os.path.join(self.folder, name)
        quietly(os.path.join(TOP, "tools/release/relink.py"), build, archive)
        return archive

    def test_a_build_in_another_folder_gives_the_same_bytes(self):
        tree = os.path.join(self.folder, "another folder")
        shutil.copytree(TOP, tree, ignore=shutil.ignore_patterns(".*", "build", "docs", "tests", "sim"))
        # No compiler cache: it would give back the objects of the first build.
        quietly("cmake", "--preset", "release", "-DZEP_TESTS=OFF", "-DCMAKE_C_COMPILER_LAUNCHER=",
                "-DCMAKE_CXX_COMPILER_LAUNCHER=", f"-DZEP_TOOLCHAIN={TOOLCHAIN}", cwd=tree)
        quietly("cmake", "--build", "--preset", "release", "--target", "zep", cwd=tree)
        again = os.path.join(tree, "build/release")
        self.assertTrue(read(again, "app/zep") == read(BUILD, "app/zep"))
        self.assertTrue(read(self.archive_of(again)) == read(self.archive_of(BUILD, "first.tar.gz")))

    def test_the_objects_that_accompany_it_link_to_the_same_bytes(self):
        quietly("tar", "-xzf", self.archive_of(BUILD), cwd=self.folder)
        quietly("sh", os.path.join(self.folder, "zep-relink/relink.sh"),
                env={"PATH": os.environ["PATH"], "CC": TOOLCHAIN + "/bin/arm-uclibc-gcc"})
        self.assertTrue(read(self.folder, "zep-relink/app/zep") == read(BUILD, "app/zep"))


if __name__ == "__main__":
    unittest.main()
