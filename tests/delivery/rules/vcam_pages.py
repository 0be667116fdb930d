#!/usr/bin/env python3
"""vcam-faults(5) names every device and operation, vcam takes its examples and makes that of camera.conf(5).

Usage: vcam_pages.py PAGES VCAM
"""
import re
import subprocess
import sys
import tempfile
from pathlib import Path

ALWAYS = {"open", "mmap", "ioctl"}  # operations of every device, which the page says once


def main():
    pages, vcam = Path(sys.argv[1]), sys.argv[2]
    page, conf = ((pages / name).read_text() for name in ("vcam-faults.5", "camera.conf.5"))
    scratch = tempfile.TemporaryDirectory()
    camera, replies = scratch.name + "/cam", Path(scratch.name, "replies")

    def run(command, *words):
        return subprocess.run([vcam, command, camera, *words], capture_output=True, text=True).stderr

    def known(line):  # what a refusal lists
        return set(re.findall(r"\w+", re.search("there are (.*); see", run("fault", line))[1]))

    options = re.search(r"^\.Ic vcam new Ar cam (.*)", conf, re.M)[1]
    wrong = [run("new", *options.replace("Fl -", "--").replace("Li ", "").split())]
    if Path(camera, "camera.conf").read_text() != re.search(r"^\.Bd -literal.*\n((?:.*\n)*?)\.Ed", conf, re.M)[1]:
        wrong.append("camera.conf(5): the example is not what its command makes")

    table = re.search(r"of each:\n.*\n((?:.*\n)*?)\.El", page)[1]
    told = {device: ALWAYS | set(words.replace("no others", "").split())
            for devices, words in re.findall(r"^\.It Cm (.*)\n((?:\w.*\n)+)", table, re.M)
            for device in devices.split()}
    wrong += [f"{d}: {sorted(known(f'{d} none 0 1 EIO') ^ words)}" for d, words in told.items()
              if known(f"{d} none 0 1 EIO") != words]
    wrong += [f"no {t} on the page" for t in known("none 0 1 EIO") - set(told) if not re.search(rf"\b{t}\b", page)]

    examples = re.findall(r"^\.Pa (\S+) :\n\.Bd -literal.*\n((?:.*\n)*?)\.Ed", page, re.M)
    for file, lines in examples:
        replies.write_text(lines)
        if file.endswith("replies"):
            wrong.append(run("plug", "ttyAMA2", "block", str(replies)))
        else:
            wrong += [run(file[:-1], *(line.split() if file == "plugs" else [line])) for line in lines.splitlines()]
    wrong = [w for w in wrong if w]
    print("\n".join(wrong) or f"{len(told)} devices, {len(examples)} examples")
    return 1 if wrong or len(examples) != 4 or len(told) < 20 else 0


if __name__ == "__main__":
    sys.exit(main())
