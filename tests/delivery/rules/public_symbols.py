#!/usr/bin/env python3
"""A C program that takes the address of every function the media platform's public headers declare: it links only
where each of them is defined. Usage: public_symbols.py INCLUDE_ROOT OUTPUT
"""
import re
import sys
from pathlib import Path

COMMENT = re.compile(r"/\*.*?\*/|//[^\n]*", re.S)
# A declaration at the start of a line; a typedef of a function has its name in parentheses and is none.
DECLARATION = re.compile(r"^(?!typedef\b|static\b|#)[A-Za-z_][\w \t*]*?[ *](\w+)\s*\(", re.M)


def functions(header):
    return DECLARATION.findall(COMMENT.sub("", header.read_text()))


def main():
    root, output = Path(sys.argv[1]), Path(sys.argv[2])
    headers = sorted(root.rglob("*.h"))
    names = sorted({name for h in headers for name in functions(h)} - {"defined", "static_assert"})
    lines = [f'#include "{h.relative_to(root).as_posix()}"' for h in headers]
    lines += ["#include <stdio.h>", "", "void (*const functions[])(void) = {"]
    lines += [f"    (void (*)(void)){name}," for name in names]
    lines += ["};", "", "int main(void)", "{", "    unsigned missing = 0;",
              "    for (unsigned i = 0; i < sizeof functions / sizeof functions[0]; ++i) missing += !functions[i];",
              f'    printf("%u of {len(names)} missing\\n", missing);',
              f"    return missing || {len(names)} < 150;", "}", ""]
    output.write_text("\n".join(lines))


if __name__ == "__main__":
    main()
