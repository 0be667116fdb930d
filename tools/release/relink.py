#!/usr/bin/env python3
"""Packs what is needed to link the release executable again with a changed C library, which its licence asks for.

The archive holds our code as objects of machine code, the link command as a script, what the C library is built with,
and a note where it comes from.
Usage: relink.py BUILD_FOLDER ARCHIVE.tar.gz
"""
import gzip
import io
import os
import shlex
import sys
import tarfile

import link

SCRIPT = """#!/bin/sh
# Links the executable again: CC names the compiler driver of the toolchain whose C library is to be
# used (its bin/arm-uclibc-gcc). The result is app/zep in this folder.
set -eu
cd "$(dirname "$0")"
"$CC" {words}
"""

NOTE = """This archive accompanies the static executable zep. Its C library, uClibc-ng, is under the GNU Lesser
General Public License 2.1 (COPYING.LIB). To use a changed C library:

1. Get the source: Debian's package uclibc-source, of this version and checksum of the archive inside it:

{source}
   toolchain/atomic.h, which replaces one header of it, is part of the library too.
2. Unpack and change it, and build it: sh toolchain/build.sh --source <folder>
   It names the toolchain's folder in its last line. Any other way will do that keeps the ARM EABI, ARMv5TE,
   soft float.
3. CC=<toolchain>/bin/arm-uclibc-gcc sh relink.sh

With the unchanged library the result equals the executable byte for byte.
"""


RECIPE = os.path.normpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../toolchain"))


def recipe():
    """The files of the toolchain's folder, as paths relative to it."""
    return sorted(os.path.relpath(os.path.join(at, name), RECIPE) for at, _, names in os.walk(RECIPE) for name in names)


def add(tar, name, data, mode=0o644):
    entry = tarfile.TarInfo("zep-relink/" + name)
    entry.size, entry.mode = len(data), mode
    tar.addfile(entry, io.BytesIO(data))


def main():
    build, archive = sys.argv[1:3]
    words = link.without_map(link.command(build))
    toolchain = os.path.dirname(os.path.dirname(words[0]))
    read = lambda *path: open(os.path.join(*path), "rb").read()
    with open(archive, "wb") as raw, gzip.GzipFile("", "wb", fileobj=raw, mtime=0) as packed, \
            tarfile.open(fileobj=packed, mode="w", format=tarfile.USTAR_FORMAT) as tar:
        add(tar, "README", NOTE.format(source=read(toolchain, "source").decode()).encode())
        add(tar, "COPYING.LIB", read(toolchain, "COPYING.LIB"))
        add(tar, "relink.sh", SCRIPT.format(words=shlex.join(words[1:])).encode(), 0o755)
        for file in sorted(set(link.inputs(words))):
            add(tar, file, read(build, file))
        for file in recipe():
            add(tar, "toolchain/" + file, read(RECIPE, file), 0o755 if file.endswith(".sh") else 0o644)


if __name__ == "__main__":
    main()
