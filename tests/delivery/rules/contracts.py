#!/usr/bin/env python3
"""Every public function of the libraries has its contract, in its header and on its page.

In the header a comment stands directly above it or the group that it is in, with @return when it has a result; of two
lines without any such word the result is what they say. The SYNOPSIS of the one page of section 3 that includes the
header gives its prototype, with the constants and records of the header but for the numbers of a driver's requests.

contracts.py TOP [--write]: compares; --write makes the pages' SYNOPSIS anew from the headers.
"""
import pathlib
import re
import sys

ROOTS = {"": ("common", "service", "board", "upgrade"), "mpp/code": ("base", "mkp", "mpi")}
HANDLERS = "/applets.h"  # of the executable's dispatcher: section 8


def statements(text):
    """The statements of a header outside of preprocessor conditions, each with the comment directly above."""
    text = re.sub(r'^#ifdef __cplusplus\n(?:(?!^#endif|^#else).*\n)*(?:#else\n((?:(?!^#endif).*\n)*))?#endif\n',
                  lambda c: c[1] or "", text, flags=re.M)
    text = re.sub(r"^#(?:ifndef \w+_H|define \w+_(?:H|DEVICE|REQ_\w+)\b.*|include .*|endif|undef .*)$\n?", "", text,
                  flags=re.M)
    pattern = re.compile(r'(?P<comment>/\*.*?\*/)|(?P<define>^#(?:[^\n]*\\\n)*[^\n]*)|(?P<code>[^\s/#](?:/\*.*?\*/|'
                         r'\{(?:/\*.*?\*/|[^{}]|\{[^{}]*\})*\}|[^;{}/])*;[ \t]*)', re.S | re.M)
    comment = ""
    end = 0
    for found in pattern.finditer(text):
        gap = text[end:found.start()]
        end = found.end()
        if found["comment"]:
            comment = found["comment"]
            # Behind a constant on its line: part of it, and no contract of what follows.
            continue
        comment = comment if gap.count("\n") <= 1 else ""
        yield comment, found["define"] or found["code"].strip()


def function(code):
    """(result, name, parameters) of a prototype, None for anything else."""
    code = re.sub(r' __attribute__\(\(.*\)\)', '', code)
    found = re.fullmatch(r'((?:const )?[\w ]+?[ *]+)(\w+)\(([^{}]*)\);', code, re.S)
    if not found or code.startswith("typedef"):
        return None
    parameters = [" ".join(p.split()) for p in re.split(r',(?![^()]*\))', found[3])]
    return " ".join(found[1].split()), found[2], parameters


def as_page(text):
    """A type as mdoc(7) writes it, with the star at the name."""
    return re.sub(r'(\*+) (?=\w)', r' \1', text).replace("  ", " ")


def literal(code):
    lines = code.replace("\\", "\\e").split("\n")
    return "\n".join("\\&" + line if line[:1] in (".", "'") else line for line in lines)


def synopsis_of(header, text):
    out, types = [f".In {header}"], []
    for _, code in statements(text):
        called = function(code)
        if not called:
            types.append(literal(code))
            continue
        result, name, parameters = called
        out += [f'.Ft "{as_page(result)}"', f".Fo {name}"]
        out += [f'.Fa "{as_page(p)}"' for p in parameters] + [".Fc"]
    if types:
        out += [".Bd -literal", *types, ".Ed"]
    return "\n".join(out) + "\n"


def main(top, write):
    wrong = []
    headers = {h.relative_to(top / root).as_posix(): h.read_text() for root, folders in ROOTS.items()
               for folder in folders for h in sorted((top / root / folder).rglob("*.h"))}
    headers = {name: text for name, text in headers.items() if not name.endswith(HANDLERS)}
    count = 0
    functions = set()
    for header, text in headers.items():
        for comment, code in statements(text):
            called = function(code)
            if not called:
                continue
            count += 1
            functions.add(header)
            result, name, _ = called
            if not comment.startswith("/**"):
                wrong.append(f"{header}: {name} has no contract")
            elif result != "void" and "@return" not in comment and ("@" in comment or comment.count("\n") > 1):
                wrong.append(f"{header}: {name} does not name its result")
    named = {}
    for page in sorted((top / "docs/man").glob("*.3")):
        text = page.read_text()
        found = re.search(r'^\.Sh SYNOPSIS\n(.*?)(?=^\.Sh )', text, re.S | re.M)
        included = [h for h in re.findall(r'^\.In (\S+)$', found[1], re.M) if h in headers]
        if not included:
            continue
        for header in included:
            named.setdefault(header, []).append(page.name)
        wanted = "".join(synopsis_of(h, headers[h]) for h in included)
        if wanted == found[1]:
            continue
        if write:
            page.write_text(text[:found.start(1)] + wanted + text[found.end(1):])
        else:
            wrong.append(f"docs/man/{page.name}: SYNOPSIS differs from {' '.join(included)}: contracts.py . --write")
    for header in functions:
        if len(named.get(header, [])) != 1:
            wrong.append(f"{header}: on {len(named.get(header, []))} pages of section 3")
    print("\n".join(wrong) or f"{count} functions, all with their contracts")
    return 1 if wrong or not count else 0


if __name__ == "__main__":
    sys.exit(main(pathlib.Path(sys.argv[1]), "--write" in sys.argv[2:]))
