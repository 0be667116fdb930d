#!/usr/bin/env python3
"""What the release executable is made of, by folder and by applet, as a table for people and for the docs.

The executable's own code is compiled as a whole, which leaves no borders between folders. So folders are counted in
the map of app/zep_parts, the same program linked source by source. What an applet costs is measured there too: the
program is linked again without it, and what went away is its own; the rest is shared.
Usage: size_table.py BUILD_FOLDER [--record]
--record writes the table into the benchmarks page, between its two marker lines; without it a page that holds another
table is told.
"""
import collections
import concurrent.futures
import os
import re
import subprocess
import sys
import tempfile

import link

TOP = os.path.normpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), "../.."))
PAGE = os.path.join(TOP, "docs/benchmarks.md")
PARTS = "app/zep_parts"
BEGIN, END = "<!-- release sizes -->", "<!-- end of release sizes -->"
NOT_IN_FILE = (".bss", ".tbss", ".comment", ".ARM.attributes", ".debug")


def folder(file):
    library = re.sub(r"\(.*", "", file)
    name = os.path.basename(library)
    if name == "libc.a" or "/sysroot/" in library:
        return "C library"
    if name.startswith("libgcc") or name.startswith("crt"):
        return "compiler's library"
    return os.path.dirname(library).split("/CMakeFiles")[0]


def contents(build):
    """(bytes, file) of each section that is in the program, from the linker's map."""
    text = open(os.path.join(build, PARTS + ".map")).read().split("Linker script and memory map")[1]
    for section, address, size, file in re.findall(r"^ (\.\S+)\s+0x(\w+)\s+0x(\w+) (\S+)$", text, re.M):
        if int(address, 16) and int(size, 16) and not section.startswith(NOT_IN_FILE) and section != "COMMON":
            yield int(size, 16), file


def by_folder(build):
    sizes = collections.Counter()
    for size, file in contents(build):
        sizes[folder(file)] += size
    return sizes


def loaded_bytes(size_tool, file):
    text, data = subprocess.run([size_tool, file], capture_output=True, text=True,
                                check=True).stdout.splitlines()[1].split()[:2]
    return int(text) + int(data)


def by_applet(build, applets):
    """handler -> bytes that go away when the executable is linked without it."""
    words = link.without_map(link.command(build, PARTS))
    size_tool = words[0].removesuffix("gcc") + "size"
    whole = loaded_bytes(size_tool, os.path.join(build, PARTS))
    with tempfile.TemporaryDirectory() as scratch:
        def cost(handler):
            out = os.path.join(scratch, handler)
            cut = [out if w == PARTS else w for w in words] + [f"-Wl,--defsym={handler}=main"]
            subprocess.run(cut, cwd=build, check=True)
            return whole - loaded_bytes(size_tool, out)
        with concurrent.futures.ThreadPoolExecutor(2) as pool:
            handlers = sorted(set(applets.values()))
            return dict(zip(handlers, pool.map(cost, handlers)))


def applet_rows(main):
    rows = re.findall(r'^    \{"(\w+)", (\w+_main)\},$', open(main).read(), re.M)
    local = ("nothing_main", "missing_main")  # the table's own, a few bytes
    return {name: handler for name, handler in rows if handler not in local}


def table(build, main):
    total, parts = (os.path.getsize(os.path.join(build, file)) for file in ("app/zep", PARTS))
    lines = ["| part | bytes |", "|---|---|"]
    folders = by_folder(build)
    for name, size in folders.most_common():
        lines.append(f"| {name} | {size:,} |")
    lines.append(f"| headers and alignment | {parts - sum(folders.values()):,} |")
    lines.append(f"| gone by compiling our code as a whole | {total - parts:,} |")
    lines.append(f"| **the executable** | **{total:,}** |")

    applets = applet_rows(main)
    costs = by_applet(build, applets)
    names = collections.defaultdict(list)
    for name, handler in applets.items():
        names[handler].append(name)
    lines += ["", "| applet | bytes that no other needs |", "|---|---|"]
    for handler, size in sorted(costs.items(), key=lambda item: -item[1]):
        lines.append(f"| {', '.join(names[handler])} | {size:,} |")
    lines.append(f"| shared by several | {parts - sum(costs.values()):,} |")
    return "\n".join(lines) + "\n"


def main():
    build, *options = sys.argv[1:]
    if options not in ([], ["--record"]):
        sys.exit(f"size_table.py: unknown option {' '.join(options)}")
    text = table(build, os.path.join(TOP, "app/main.cpp"))
    print(text, end="")
    with open(PAGE) as file:
        head, rest = file.read().split(BEGIN + "\n")
    recorded, tail = rest.split(END)
    if options:
        with open(PAGE, "w") as file:
            file.write(f"{head}{BEGIN}\n{text}{END}{tail}")
    elif recorded != text:
        print("docs/benchmarks.md holds the table of another file; ./dev release --record writes this one", file=sys.stderr)


if __name__ == "__main__":
    main()
