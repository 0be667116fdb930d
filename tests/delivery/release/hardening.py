"""What is wrong with a file that is to go onto a camera, told by its ELF headers."""
import re
import subprocess

CONSTANT = (".init_array", ".fini_array", ".data.rel.ro", ".got")
PAGE = 4096


def readelf(tool, *arguments):
    return subprocess.run([tool, "-W", *arguments], capture_output=True, text=True, check=True).stdout


def segments(text):
    """(type, virtual address, memory size, flags) of each program header."""
    row = re.compile(r"^  ([A-Z_]+) +0x\w+ 0x(\w+) 0x\w+ 0x\w+ 0x(\w+) ([R ][W ][E ])", re.M)
    return [(t, int(a, 16), int(s, 16), f) for t, a, s, f in row.findall(text)]


def sections(text):
    """name -> (address, size, flags)."""
    row = re.compile(r"^  \[ *\d+\] (\.\S+) +\S+ +(\w+) \w+ (\w+) \w\w +([A-Zop]*)", re.M)
    return {n: (int(a, 16), int(s, 16), f) for n, a, s, f in row.findall(text)}


def memory_faults(program):
    stack = [f for t, _, _, f in program if t == "GNU_STACK"]
    if not stack:
        yield "no GNU_STACK header: the kernel makes the stack executable"
    if any("E" in f for f in stack):
        yield "the stack is executable"
    for t, address, _, flags in program:
        if t == "LOAD" and "W" in flags and "E" in flags:
            yield f"the segment at {address:#x} is writable and executable"


def relro_faults(program, section):
    relro = [(a, a + s) for t, a, s, _ in program if t == "GNU_RELRO"]
    if len(relro) != 1:
        yield "no GNU_RELRO header"
        return
    begin, end = relro[0]
    if end % PAGE:
        yield f"the read-only data end at {end:#x}, inside a page that stays writable"
    for name in CONSTANT:
        address, size, _ = section.get(name, (begin, 0, ""))
        if address < begin or address + size > end:
            yield f"{name} stays writable"


def kind_faults(header, program, section, attributes):
    if "EXEC (Executable file)" not in header or "Machine:                           ARM" not in header:
        yield "not an ARM executable"
    if "soft-float ABI" not in header:
        yield "not the soft-float ABI"
    if not re.search(r"Tag_CPU_arch: v5TEJ?$", attributes, re.M):
        yield "not ARMv5TE code"
    if {"INTERP", "DYNAMIC"} & {t for t, *_ in program}:
        yield "not static: it asks for a loader"
    if ".symtab" in section:
        yield "not stripped"


def faults(tool, file):
    header, program = readelf(tool, "-h", file), segments(readelf(tool, "-l", file))
    section = sections(readelf(tool, "-S", file))
    found = [*kind_faults(header, program, section, readelf(tool, "-A", file)), *memory_faults(program),
             *relro_faults(program, section)]
    with open(file, "rb") as program_file:
        if b"stack smashing detected" not in program_file.read():
            found.append("no stack protector")
    return found
