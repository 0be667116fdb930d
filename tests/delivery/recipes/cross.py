"""A cross build as an embedded build system's CMake class makes it, and what its image would get."""
import os
import re
import shutil
import string

from tree import files, quietly

WORK = os.environ["ZEP_WORK"]
CRYPT = os.environ["ZEP_CRYPT_FOLDER"]
TRIPLET = "arm-linux-gnueabi"


class Cross:
    """One build below WORK: its compilers, whose own folders hold <crypt.h> and libcrypt, and its CMake calls."""

    def __init__(self, name):
        self.home = os.path.join(WORK, name)
        shutil.rmtree(self.home, ignore_errors=True)
        os.makedirs(self.home + "/host")
        self.build, self.stage = self.home + "/build", self.home + "/stage"
        include = os.path.join(CRYPT, "../../include")
        for tool in ("gcc", "g++"):
            self.write(f"host/{tool}", f'#!/bin/sh\nexec {TRIPLET}-{tool} -march=armv5te -mfloat-abi=soft'
                                       f' -idirafter {include} -L{CRYPT} "$@"\n')
            os.chmod(f"{self.home}/host/{tool}", 0o755)

    def write(self, name, text):
        with open(os.path.join(self.home, name), "w") as file:
            file.write(text)

    def toolchain(self, system, compile_flags, link_flags):
        with open(os.path.join(os.path.dirname(__file__), "toolchain.cmake.in")) as file:
            text = string.Template(file.read())
        self.write("toolchain.cmake", text.substitute(home=self.home, system=system, compile_flags=compile_flags,
                                                      link_flags=link_flags))

    def configure(self, source, generator, *options):
        quietly("cmake", "-G", generator, "-S", source, "-B", self.build,
                f"-DCMAKE_TOOLCHAIN_FILE={self.home}/toolchain.cmake", "-DCMAKE_INSTALL_PREFIX=/usr", *options)

    def install(self):
        quietly("cmake", "--build", self.build, "-j", "2")
        quietly("cmake", "--install", self.build, env={**os.environ, "DESTDIR": self.stage})
        return files(self.stage)

    def executable(self):
        """What readelf and a run tell of the executable."""
        program = self.stage + "/usr/bin/zep"
        read_elf = quietly(f"{TRIPLET}-readelf", "-dSW", "--dyn-syms", program)
        needed = set(re.findall(r"NEEDED.*\[(.*)\]", read_elf))
        undefined = set(re.findall(r" UND (\w+)@", read_elf))
        libraries = f"{CRYPT}:{CRYPT}/../../../lib/{TRIPLET}"
        said = quietly("qemu-arm-static", "-cpu", "arm926", "-L", f"/usr/{TRIPLET}", "-E",
                       f"LD_LIBRARY_PATH={libraries}", program)
        return read_elf, needed, undefined, said.splitlines()[-1].split(", ")
