#!/usr/bin/env python3
"""Every path of the tree that a page names exists. Usage: paths.py SOURCE_ROOT

A path is a word with a slash, in `code` or in an indented or fenced block, that begins with a folder of the tree;
in docs/architecture.md every word with a slash, from the root or from one of the rooms that the page has just named.
Each picture of docs/ is shown on a page. `*` stands for any part of a name. What a build makes (build/) and what lies outside (/etc, ~/.cache) is not looked at.
"""
import re
import sys
from pathlib import Path

PAGES = ("*.md", "docs/*.md", "packaging/*.md", "docs/man/*.[1-8]")
STRICT = "docs/architecture.md"
# Rooms whose inner folders the architecture page names without repeating the room.
ROOMS = ("", "common", "docs", "mpp/code", "mpp/code/mpi/audio", "sim", "tests", "tests/delivery", "tools")
WORD = re.compile(r"(?<![\w/.~$:*{}-])\.?[\w*][\w.*+-]*/[\w./*+-]*")


def code(page, text):
    """The parts of a page that are typed as they stand."""
    if page.suffix != ".md":
        return text.replace("\\-", "-")
    fenced = re.findall(r"^```.*?$(.*?)^```", text, re.S | re.M)
    text = re.sub(r"^```.*?^```", "", text, flags=re.S | re.M)
    return "\n".join(fenced + re.findall(r"`([^`\n]+)`", text))


def missing(root, page):
    """What the page names and the tree does not have."""
    strict = page.relative_to(root).as_posix() == STRICT
    for word in WORD.findall(code(page, page.read_text())):
        word = word.rstrip("./")
        top = word.split("/")[0].removeprefix("./")
        if top == "build" or not (strict or (root / top).is_dir()):
            continue
        if not any(list(root.glob(f"{room}/{word}".lstrip("/"))) for room in (ROOMS if strict else ("",))):
            yield word


def main():
    root = Path(sys.argv[1]).resolve()
    pages = [p for pattern in PAGES for p in sorted(root.glob(pattern))]
    wrong = [f"{p.relative_to(root)}: {word} does not exist" for p in pages for word in sorted(set(missing(root, p)))]
    shown = {page.parent / name for page in pages for name in re.findall(r"!\[.+?]\((\S+?)\)", page.read_text())}
    wrong += [f"{p.relative_to(root)} is shown or there, not both" for p in shown ^ {p for kind in ("svg", "png") for p in root.glob("docs/*." + kind)}]
    print("\n".join(wrong) or f"{len(pages)} pages, all paths exist")
    return 1 if wrong or not pages else 0


if __name__ == "__main__":
    sys.exit(main())
