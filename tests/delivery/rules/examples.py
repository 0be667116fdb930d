#!/usr/bin/env python3
"""Every example program stands, word for word, on exactly one page of section 3.

examples.py TOP: compares docs/examples/*.c with the literal blocks of docs/man/*.3.
"""
import pathlib
import re
import sys


def blocks(page):
    """The literal blocks of a page with the escapes of mdoc(7) undone."""
    for block in re.findall(r'^\.Bd -literal.*?\n(.*?)^\.Ed$', page, re.S | re.M):
        yield re.sub(r'^\\&', '', block, flags=re.M).replace('\\e', '\\')


def main(top):
    shown = {}
    for page in sorted((top / 'docs/man').glob('*.3')):
        for block in blocks(page.read_text()):
            shown.setdefault(block, []).append(page.name)
    examples = sorted((top / 'docs/examples').glob('*.c'))
    wrong = [e.name for e in examples if len(shown.get(e.read_text(), [])) != 1]
    for name in wrong:
        print(f'docs/examples/{name} is not on exactly one page as it is')
    if not examples:
        print('no examples')
    return 1 if wrong or not examples else 0


sys.exit(main(pathlib.Path(sys.argv[1])))
