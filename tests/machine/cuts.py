#!/usr/bin/env python3
"""Cuts the power in an upgrade that was recorded on the board with NOR flash, and judges what is left.

    cuts.py FOLDER BOARD VCAM [--inside N] [--compared N] [--boots N] [--again N] [--seed N] [--jobs N] [--table FILE]

FOLDER has of the recorded run: flash (before it), log, pkg. BOARD is a command that boots the board; with `-e look=1` it
looks at the settings, with `again=1` too it then upgrades. VCAM is the virtual camera's command.

Erases and images: the chip holds byte for byte what the virtual camera predicts for the same cut. Settings: the board
boots, and the kernel finds the files that the virtual camera reads from the same flash.
"""
import argparse
import concurrent.futures
import json
import os
import random
import shlex
import shutil
import struct
import subprocess
import sys
import zlib
from collections import Counter
from pathlib import Path

from flash_log import Chip, read

SIZES = [1 << 20, 2 << 20, 4 << 20, 1 << 20]  # mtd0 to mtd3
STARTS = [sum(SIZES[:n]) for n in range(4)]
COMMAND = ["upgrade", "/tmp/pkg", "-v"]
BATCH = 40  # dumps that one call names
MAGIC = 0x1985
NO_MOUNT = 20  # what the look at a chip ends with
RESET = 123


class Wrong(Exception):
    """What a cut left is not what it should be."""


def dump(flash, folder):
    """The chip's content as the files mtd0 to mtd3."""
    folder.mkdir(parents=True, exist_ok=True)
    for number, (start, size) in enumerate(zip(STARTS, SIZES)):
        (folder / f"mtd{number}").write_bytes(flash[start:start + size])
    return folder


class Model:
    """A virtual camera that stands before the same upgrade."""

    def __init__(self, vcam, folder, flash, package):
        self.vcam, self.camera = vcam, str(folder)
        sizes = [word for n, size in enumerate(SIZES) for word in ("--size", f"mtd{n}={size >> 20}M")]
        self.call("new", self.camera, "--flash", "nor", *sizes)
        dump(flash, folder / "flash")
        self.call("put", self.camera, str(package), "/tmp/pkg")
        lines = [json.loads(line) for line in self.explore("--json", "--no-map").splitlines()]
        self.steps = list({line["step"]: line for line in lines if line["kind"] == "point"}.values())
        self.classes = [line for line in lines if line["kind"] == "class"]
        self.points = [line for line in lines if line["kind"] == "point"]

    def call(self, *words):
        return subprocess.run([self.vcam, *words], check=True, stdout=subprocess.PIPE, text=True).stdout

    def explore(self, *options):
        # 1: a promise is broken, or a dump has no name: judged here
        words = [self.vcam, "explore", self.camera, *options, "--", *COMMAND]
        done = subprocess.run(words, stdout=subprocess.PIPE, text=True, check=False)
        if done.returncode > 1:
            raise SystemExit(f"cuts: {shlex.join(words)} ended with {done.returncode}")
        return done.stdout

    def name(self, folders):
        options = [word for folder in folders for word in ("--name-flash", str(folder))]
        names = [json.loads(line) for line in self.explore("--json", *options).splitlines()]
        if len(names) != len(folders):
            raise SystemExit("cuts: the virtual camera did not name all dumps")
        return names


class Run:
    """The recorded run: its events, which of the model's operations they belong to, and the settings' nodes."""

    def __init__(self, folder):
        self.before = (folder / "flash").read_bytes()
        self.steps, self.events = read(folder / "log")
        kernel = range(STARTS[1], STARTS[2])
        self.begin = next(first for first, at, what in self.steps if isinstance(what, int) and at in kernel) - 1

    def chip(self, event=0):
        chip = Chip(self.before, self.steps)
        chip.go_to(event)
        return chip

    def match(self, steps):
        """The events of the erases and image writes, [begin, end) each; the model does them in the same order."""
        flat = []  # (event, address, size) of what comes next, bytes one by one
        for first, at, what in self.steps:
            if first <= self.begin:
                continue
            flat.append([first, at, what])
        spans, position = [], 0
        for step in steps:
            at = STARTS[step["partition"]] + step["offset"]
            first, address, what = flat[position]
            if step["operation"] == "erase":
                if (address, what) != (at, step["size"]):
                    raise Wrong(f"operation {len(spans) + 1}: erase of {at:#x}, the board did {address:#x}")
                spans.append((first, first + 1))
                position += 1
                continue
            if isinstance(what, int) or address != at or len(what) < step["size"]:
                raise Wrong(f"operation {len(spans) + 1}: write of {step['size']} at {at:#x}, the board was at {address:#x}")
            spans.append((first, first + step["size"]))
            if len(what) == step["size"]:
                position += 1
            else:
                flat[position] = [first + step["size"], at + step["size"], what[step["size"]:]]
        return spans

    def nodes(self, event):
        """The events of each run of bytes behind `event`, runs of several JFFS2 nodes cut into nodes; erases too."""
        spans = []
        for first, _, what in self.steps:
            if isinstance(what, int):
                if first > event:
                    spans.append((first, first + 1))
                continue
            begin = max(0, event + 1 - first)
            while begin < len(what):
                end = len(what)
                if end - begin >= 12:
                    magic, _, size = struct.unpack_from("<HHI", what, begin)
                    if magic == MAGIC and 12 <= size <= end - begin:
                        end = begin + min(end - begin, size + 3 & ~3)
                spans.append((first + begin, first + end))
                begin = end
        return spans


class Images:
    """Cuts in erases and image writes: no boot is needed."""

    def __init__(self, run, model, folder):
        self.run, self.model, self.folder = run, model, folder
        self.steps = package_steps(model)
        self.spans = run.match(self.steps)

    def cuts(self, inside, most, draw):
        """(event, bytes of the next erase that are done)"""
        edges = [(begin - 1, 0) for begin, _ in self.spans] + [(self.spans[-1][1] - 1, 0)]
        within = [event for begin, end in self.spans for event in range(begin, end - 1)]
        erases = [begin - 1 for (begin, _), step in zip(self.spans, self.steps) if step["operation"] == "erase"]
        size = next(step["size"] for step in self.steps if step["operation"] == "erase")
        torn = [(event, done) for event in erases for done in (size // 2, draw.randrange(1, size))]
        every = sorted(set(edges + torn + [(event, 0) for event in draw.sample(within, min(inside, len(within)))]))
        return every if most is None else sorted(draw.sample(every, most))

    def judge(self, cuts):
        """The cuts that the model predicts otherwise; each is compared with the model's state at the same place."""
        wrong, chip, batch = [], self.run.chip(), []
        expected = Expected(self.run, self.spans)
        for number, (event, erased) in enumerate(cuts):
            chip.go_to(event)
            flash = chip.torn(erased) if erased else chip.flash
            place = expected.torn(erased, chip) if erased else expected.at(event)
            batch.append((dump(flash, self.folder / f"dump{len(batch)}"), f"event {event}, {erased} bytes erased", place))
            if len(batch) == BATCH or number == len(cuts) - 1:
                for (_, what, place), is_ in zip(batch, self.model.name([row[0] for row in batch])):
                    if is_["point"] != place:
                        wrong.append(f"{what}: the model has it at '{is_['point']}', not {place}")
                batch = []
        return wrong


class Expected:
    """The model's name for a cut of the board: where the last change of the flash was. Cuts that changed nothing behind
    it, such as programming 0xff or erasing an erased block, leave the same bytes."""

    def __init__(self, run, spans):
        self.chip, self.spans, self.run = run.chip(run.begin), spans, run
        self.operation, self.changed = 0, "1/0"

    def at(self, event):
        while self.chip.event < event:
            while self.spans[self.operation][1] <= self.chip.event + 1:
                self.operation += 1
            begin = self.spans[self.operation][0]
            _, address, what = self.run.steps[self.chip.step]
            old = bytes(self.chip.flash[address:address + what]) if isinstance(what, int) else None
            done = self.chip.event + 2 - begin
            first = self.run.steps[self.chip.step][0]
            if old is not None:
                done = len(old.rstrip(b"\xff"))
            elif self.chip.flash[address + self.chip.event + 1 - first] & ~what[self.chip.event + 1 - first] == 0:
                done = 0
            self.chip.go_to(self.chip.event + 1)
            if done:
                self.changed = f"{self.operation + 1}/{done}"
        return self.changed

    def torn(self, erased, chip):
        before = self.at(chip.event)
        _, address, _ = self.run.steps[chip.step]
        done = len(bytes(chip.flash[address:address + erased]).rstrip(b"\xff"))
        number = next(n for n, (begin, _) in enumerate(self.spans) if begin == chip.event + 1)
        return f"{number + 1}/{done}" if done else before


def package_steps(model):
    """The operations of the writing program on kernel, root file system and the package's settings."""
    last = max(n for n, step in enumerate(model.steps) if step["operation"] == "erase" and step["partition"] == 3)
    end = last + 1
    while end < len(model.steps) and model.steps[end]["operation"] == "write" and model.steps[end]["partition"] == 3 \
            and model.steps[end]["process"] == model.steps[last]["process"]:
        end += 1
    return model.steps[:end]


class Boots:
    """Cuts that are booted."""

    def __init__(self, run, model, images, options, folder):
        self.run, self.model, self.options, self.folder = run, model, options, folder
        self.restoring = images.spans[-1][1] - 1  # the last event before it
        self.nodes = run.nodes(self.restoring)
        self.package = len(images.spans)

    def cuts(self, draw):
        edges = [end - 1 for _, end in self.nodes]
        inside = [draw.randrange(begin, end - 1) for begin, end in self.nodes if end - begin > 1]
        chosen = set(edges + inside + [self.restoring])
        if self.options.boots < len(chosen):
            # The shortest form: over the whole run, most where the settings change.
            early = draw.sample(range(self.run.begin, self.restoring), self.options.boots // 4)
            return sorted(early + draw.sample(sorted(chosen), self.options.boots - len(early)))
        while len(chosen) < self.options.boots:
            chosen.add(draw.randrange(self.run.begin, self.run.events + 1))
        return sorted(chosen)

    def phase(self, event):
        return "restoring the settings" if event >= self.restoring else "erasing and writing"

    def judge(self, cuts, again):
        results, chip = [], self.run.chip()
        for event in cuts:
            chip.go_to(event)
            folder = self.folder / f"cut{event}"
            folder.mkdir()
            (folder / "flash").write_bytes(chip.flash)
            results.append({"event": event, "folder": folder, "phase": self.phase(event), "wrong": [], "again": ""})
        for result, is_ in zip(results, self.names_of(results)):
            result.update(name=is_["name"], words=is_["words"], files=is_["files"])
        with concurrent.futures.ThreadPoolExecutor(self.options.jobs) as workers:
            boots = [workers.submit(self.boot, result, result["event"] in again) for result in results]
            for done, boot in enumerate(concurrent.futures.as_completed(boots), 1):
                result = boot.result()
                print(f"{done}/{len(cuts)} event {result['event']} ({result['name']}): {result['wrong'] or 'as the model reads it'}",
                      file=sys.stderr, flush=True)
        again = [result for result in results if result["event"] in again and not result["wrong"]]
        for result, left in zip(again, self.names_of(again)):
            self.finished(result, left)
        self.in_order(results)
        for result in results:
            if not result["wrong"]:
                shutil.rmtree(result["folder"])
        return results

    def names_of(self, results):
        """What the model says of the chips of these cuts as they are now."""
        for first in range(0, len(results), BATCH):
            dumps = [dump((result["folder"] / "flash").read_bytes(), self.folder / f"dump{number}")
                     for number, result in enumerate(results[first:first + BATCH])]
            yield from self.model.name(dumps)

    def boot(self, result, again):
        """Boots the board on the chip; the kernel looks, and then perhaps upgrades."""
        folder, name = result["folder"], result["name"]
        if not name:
            result["wrong"].append("the model has no name for it")
        elif result["event"] >= self.restoring and name not in self.names():
            result["wrong"].append(f"'{name}' is no state of the model's restoring phase")
        words = shlex.split(self.options.board)
        words[1:1] = ["-f", str(folder / "flash"), "-o", str(folder / "out"), "-e", f"look=1{' again=1' if again else ''}"]
        with open(folder / "console", "w", encoding="utf-8") as console:
            status = subprocess.run(words, stdout=console, stderr=subprocess.STDOUT, check=False).returncode
        if status != (RESET if again else 0):
            result["wrong"].append("JFFS2 does not mount" if status == NO_MOUNT else f"the boot ended with {status}")
        else:
            result["wrong"] += self.compare(folder / "out", result["files"])
        return result

    def names(self):
        return {self.classes(p)["state"] for p in self.model.points if p["step"] > self.package} | {"finished"}

    def classes(self, point):
        return self.model.classes[point["class"]]

    def compare(self, out, files):
        """The kernel's files against those that the model reads from the same flash."""
        seen = {}
        for path in (out / "seen").rglob("*"):
            if path.is_file():
                seen["/etc/" + str(path.relative_to(out / "seen"))] = f"{zlib.crc32(path.read_bytes()):08x}"
        damaged = out / "damaged"
        for line in damaged.read_text().splitlines() if damaged.exists() else []:
            seen[line] = None
        expected = {path: row["crc32"] for path, row in files.items() if "crc32" in row}
        return [f"{path}: kernel {seen.get(path, 'has none')}, model {expected.get(path, 'has none')}"
                for path in sorted(seen.keys() | expected.keys())
                if seen.get(path, 0) != expected.get(path, 0)]

    def finished(self, result, left):
        """The same upgrade was run on the cut chip."""
        said = (result["folder"] / "out/console").read_text().splitlines()
        if said[-1:] != ["Upgrade complete."]:
            result["wrong"].append(f"the upgrade again said {said}")
        result["again"] = left["name"]
        known = {name for row in self.model.classes for name in row["again"]}
        if not left["words"].startswith("mtd1 new, mtd2 new") or left["name"] not in known:
            result["wrong"].append(f"the upgrade again left {left['name'] or 'no known state'} ({left['words']})")

    def in_order(self, results):
        """A setting once put back stays so, and at most one file at a time is neither old nor new."""
        back = set()
        for result in results:
            if result["event"] < self.restoring:
                continue
            files = {path: row["whose"] for path, row in result["files"].items()}
            now = {path for path, whose in files.items() if whose in ("user's", "finished")}
            if not back <= now:
                result["wrong"].append(f"no longer put back: {' '.join(sorted(back - now))}")
            between = [f"{path} {whose}" for path, whose in files.items()
                       if whose in ("damaged", "empty", "missing", "partly restored", "left over")
                       and not path.endswith(".kept")]  # the user's own, whole, until all are put back
            if len(between) > 2:  # the file itself and its writer's temporary one
                result["wrong"].append(f"more than one file is neither old nor new: {', '.join(between)}")
            back |= now


PAGE = """# Power cuts on the emulated machine

One upgrade was recorded on the board with NOR flash; the power is cut in it at the events of its log. Compared cuts hold
byte for byte what the virtual camera predicts; at booted ones the kernel mounts the settings and finds the files that the
virtual camera reads, and from every fourth the same upgrade is run. Made by `./dev machine --cuts`.

"""


def table(results, images, wrong):
    """The results as a page."""
    rows = ["| phase | cuts | state, as the model names it | the same upgrade again |", "|---|---|---|---|"]
    rows.append(f"| erasing and writing, bytes only | {images} | {images - len(wrong)} as predicted byte for byte | - |")
    groups = {}
    for result in results:
        groups.setdefault((result["phase"], result["name"]), []).append(result)
    for (phase, name), rows_of in groups.items():
        again = Counter(r["again"] for r in rows_of if r["again"])
        said = ", ".join(f"{text} {count}" for text, count in sorted(again.items())) or "-"
        rows.append(f"| {phase}, booted | {len(rows_of)} | {name} | {said} |")
    bad = [f"- event {r['event']} ({r['name']}): {line}" for r in results for line in r["wrong"]]
    return PAGE + "\n".join(rows + ["", "Cuts that were not as predicted:", "", *bad] if bad else rows) + "\n"


def arguments():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("folder", type=Path)
    parser.add_argument("board", help="command that boots a chip and looks")
    parser.add_argument("vcam")
    parser.add_argument("--inside", type=int, default=500, help="cuts inside writes that are compared byte for byte")
    parser.add_argument("--compared", type=int, help="compare no more than so many cuts, drawn from all")
    parser.add_argument("--boots", type=int, default=200, help="cuts that are booted, at least")
    parser.add_argument("--again", type=int, default=4, help="every N-th of them gets the same upgrade again")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--jobs", type=int, default=1)
    parser.add_argument("--table", type=Path)
    return parser.parse_args()


def main():
    options = arguments()
    draw = random.Random(options.seed)
    run = Run(options.folder)
    scratch = options.folder / "cuts"
    scratch.mkdir()
    model = Model(options.vcam, scratch / "camera", run.chip(run.begin).flash, options.folder / "pkg")
    images = Images(run, model, scratch)
    compared = images.cuts(options.inside, options.compared, draw)
    wrong = images.judge(compared)
    print(f"{len(compared)} cuts in erases and images, {len(wrong)} of them not as the model has them", file=sys.stderr, flush=True)
    boots = Boots(run, model, images, options, scratch)
    cuts = boots.cuts(draw)
    results = boots.judge(cuts, set(cuts[options.again - 1::options.again]))
    for line in wrong:
        print(line)
    for result in results:
        for line in result["wrong"]:
            print(f"event {result['event']} ({result['name']}): {line}")
    text = table(results, len(compared), wrong)
    if options.table:
        options.table.write_text(text)
    bad = len(wrong) + sum(bool(result["wrong"]) for result in results)
    print(f"{len(compared)} cuts compared, {len(cuts)} booted, the upgrade again from "
          f"{sum(bool(r['again']) for r in results)}: {bad} wrong")
    return 1 if bad else 0


if __name__ == "__main__":
    sys.exit(main())
