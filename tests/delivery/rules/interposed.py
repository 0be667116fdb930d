#!/usr/bin/env python3
"""What the product asks of the C library must be either simulated or known to be harmless.

A function that reaches a device, a clock or a wait past the simulated drivers would make the virtual
camera lie without a word. Usage: interposed.py HARMLESS_LIST PRELOAD_LIBRARY ARCHIVE_OR_OBJECT...
"""
import re
import subprocess
import sys

# What the compiler and the C library's headers put in on their own account.
OWN = re.compile(r"_GLOBAL_OFFSET_TABLE_|__stack_chk_fail(_local)?|__dso_handle|__(u|)(div|mod|ash|lsh)\w*\d|"
                 r"__atomic_\w+|__x86\.\w+|___tls_get_addr|__tls_get_addr|__start_\w+|__stop_\w+|"
                 # The platform's modules call each other; one that is missing is the linker's to tell.
                 r"(HI_)?MPI_\w+")


def symbols(*arguments):
    text = subprocess.run(["nm", *arguments], capture_output=True, text=True, check=True).stdout
    for line in text.splitlines():
        words = line.split()
        if len(words) in (2, 3) and len(words[-2]) == 1:
            yield words[-2], words[-1].split("@")[0]


def harmless_names(path):
    """name -> reason. A line that ends in a colon gives the reason of the names below it."""
    names, reason = {}, None
    for line in open(path):
        line = line.split("#")[0].strip()
        if line.endswith(":"):
            reason = line[:-1]
        else:
            names.update((name, reason) for name in line.split())
    return names


def main():
    listing, library, *objects = sys.argv[1:]
    found = [s for o in objects for s in symbols(o)]
    defined = {name for kind, name in found if kind not in "Uwv"}
    called = {name for kind, name in found if kind == "U"} - defined
    bound = {name for kind, name in symbols("-D", "--defined-only", library)}
    harmless = harmless_names(listing)
    problems = [f"{name}: is both simulated and listed as harmless" for name in sorted(bound & set(harmless))]
    for name in sorted(called):
        if name.startswith("_Z") or name.startswith(("__cxa_", "__gxx_", "_Unwind_")):
            problems.append(f"{name}: of the C++ runtime library, which the product does without")
        elif not (name in bound or name in harmless or OWN.fullmatch(name)):
            problems.append(f"{name}: neither simulated by {library.split('/')[-1]} nor in {listing.split('/')[-1]}")
    print("\n".join(problems) or f"{len(called)} names: {len(called & bound)} simulated, "
          f"{len(called & set(harmless))} harmless")
    return 1 if problems or not called & bound else 0


if __name__ == "__main__":
    sys.exit(main())
