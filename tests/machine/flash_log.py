#!/usr/bin/env python3
"""The log of a NOR chip: what was erased and programmed, byte for byte, in its order.

    flash_log.py TRACE LOG    makes the log from the emulator's trace

A line of the log is an erase or a run of bytes that were programmed one behind the other; numbers are hexadecimal:

    erase ADDRESS SIZE
    program ADDRESS BYTES

An event is one erase or one programmed byte. Cutting the power after event N leaves what the first N events leave.
"""
import re
import sys

PROGRAM = re.compile(r"m25p80_page_program .*cur_addr=0x([0-9a-f]+) data=0x([0-9a-f]+)")
ERASE = re.compile(r"m25p80_flash_erase .*offset = 0x([0-9a-f]+), len = (\d+)")


def shorten(trace, log):
    """Writes the log of a trace, without the emulator's addresses, which differ from run to run."""
    run, begin = bytearray(), 0

    def end_run():
        if run:
            log.write(f"program {begin:x} {run.hex()}\n")
            run.clear()

    for line in trace:
        if match := PROGRAM.search(line):
            address, value = int(match[1], 16), int(match[2], 16)
            if address != begin + len(run) or not run:
                end_run()
                begin = address
            run.append(value)
        elif match := ERASE.search(line):
            end_run()
            size = int(match[2])
            log.write(f"erase {int(match[1], 16) // size * size:x} {size:x}\n")
        elif "m25p80_chip_erase" in line:
            raise SystemExit("flash_log: the chip was erased as a whole, which has no line in the log")
    end_run()


def read(path):
    """The lines of a log: (first event's number, address, size) of an erase, (..., bytes) of a run."""
    steps, event = [], 1
    with open(path, encoding="ascii") as log:
        for line in log:
            kind, address, what = line.split()
            what = int(what, 16) if kind == "erase" else bytes.fromhex(what)
            steps.append((event, int(address, 16), what))
            event += 1 if kind == "erase" else len(what)
    return steps, event - 1


class Chip:
    """What the chip holds as the power fails later and later."""

    def __init__(self, flash, steps):
        self.flash, self.steps = bytearray(flash), steps
        self.event, self.step = 0, 0  # done; in which the next one is

    def go_to(self, event):
        """Does all events up to this one."""
        while self.event < event:
            first, address, what = self.steps[self.step]
            if isinstance(what, int):
                self.flash[address:address + what] = b"\xff" * what
                self.event, self.step = first, self.step + 1
                continue
            begin, end = self.event - first + 1, min(len(what), event - first + 1)
            for i in range(begin, end):
                self.flash[address + i] &= what[i]  # programming only clears bits
            self.event = first + end - 1
            self.step += end == len(what)

    def torn(self, erased):
        """The chip when the next event, an erase, was cut after so many bytes of its block."""
        _, address, size = self.steps[self.step]
        assert isinstance(size, int), f"event {self.event + 1} is no erase"
        left = bytearray(self.flash)
        left[address:address + erased] = b"\xff" * erased
        return left


if __name__ == "__main__":
    if len(sys.argv) != 3:
        raise SystemExit(__doc__)
    with open(sys.argv[1], encoding="ascii") as source, open(sys.argv[2], "w", encoding="ascii") as target:
        shorten(source, target)
