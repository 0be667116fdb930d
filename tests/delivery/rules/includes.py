#!/usr/bin/env python3
"""Who may include whom. A folder includes itself and what stands in its row, nothing else.

Includes in quotes are spelled from the root of the tree (from mpp/code inside the media platform), so
the direction is visible in the line itself. Usage: includes.py SOURCE_ROOT
"""
import re
import sys
from pathlib import Path

PLATFORM = "mpp/code/"
AUDIO, BASE, BIND, MODULES = (PLATFORM + f for f in ("mpi/audio", "base", "mkp/bind", "mpi/src"))

# Folder -> prefixes of what its files may include beside the folder itself.
ALLOWED = {
    "common": [],
    "service": ["common/"],
    "board": ["common/", "service/"],
    "upgrade": ["common/", "service/"],
    "factory": ["common/", "service/", "board/*.h", MODULES + "/*.h", AUDIO + "/*.h", BIND + "/*.h", BASE + "/*.h",
                BASE + "/mpp_lock.hpp"],
    "app": ["*/applets.h", "common/build_stamp.h"],
    BASE: [],
    AUDIO: [BASE + "/", "common/base/bytes.hpp"],
    BIND: [BASE + "/"],
    MODULES: [AUDIO + "/", BIND + "/", BASE + "/"],
    "sim/base": ["common/base/fd.hpp"],
    "sim/clock": ["sim/base/"],
    "sim/jffs2": ["sim/base/", "sim/clock/flash.hpp"],
    "sim/board": ["sim/base/", "sim/clock/"],
    "sim/models": ["sim/base/", "sim/clock/", "sim/board/"],
    "sim/preload": ["sim/base/", "sim/clock/", "sim/board/", "sim/jffs2/", "sim/models/"],
    "sim/sandbox": ["sim/base/"],
    "sim/guest": ["sim/base/", "sim/clock/", "sim/board/", "sim/jffs2/", "sim/models/", "sim/sandbox/"],
    "sim/cuse": ["common/base/fd.hpp", "sim/base/", "sim/clock/", "sim/board/", "sim/models/", "sim/guest/power_on.hpp",
                 "sim/guest/syslog_server.hpp", "sim/vcam/commands.hpp", "tools/cli/"],
    "sim/view": ["sim/base/", "sim/clock/", "sim/board/", "sim/models/", "sim/sandbox/mark.hpp", "tools/cli/"],
    "sim/explore": ["sim/base/", "sim/clock/", "sim/jffs2/jffs2_log.hpp", "sim/sandbox/pieces.hpp",
                    "sim/sandbox/tmp_memory.hpp", "tools/cli/"],
    "sim/web": ["sim/base/", "sim/clock/power.hpp", "sim/jffs2/jffs2_log.hpp", "sim/models/table.hpp", "sim/view/",
                "tools/cli/", "tools/audio/wav.hpp"],
    "sim/vcam": ["sim/view/", "sim/explore/explorer.hpp", "sim/web/page.hpp", "sim/base/", "sim/clock/", "sim/board/", "sim/models/", "sim/sandbox/", "sim/guest/guest.hpp",
                 "tools/cli/", "tools/audio/wav.hpp"],
    "tools/cli": [],
    "tools": ["upgrade/", "common/", "factory/audio_wire.h", AUDIO + "/*.h", BASE + "/*.h"],
}
# Inside the modules of the platform: a file's rank by its prefix; equals do not know each other. Encoder
# channels fetch the frames of a bound input, so they stand above it.
RANKS = {"mpi_sys": 0, "mpi_vb": 1, "mpi_ai": 2, "mpi_ao": 2, "mpi_adec": 2, "mpi_aenc": 3}
# The codecs are arithmetic: no descriptors, no clock, no threads.
NOT_IN_AUDIO = re.compile(r"(fcntl|unistd|c?time|pthread|c?signal|poll|mutex|thread|chrono|sys/.*|linux/.*|atomic)(\.h)?")

INCLUDE = re.compile(r'^\s*#\s*include\s*(["<])([^">]+)[">]')


def folder_of(path):
    """The row of a file: its longest matching folder."""
    rows = [f for f in ALLOWED if path.startswith(f + "/")]
    return max(rows, key=len) if rows else None


def matches(path, pattern):
    if pattern.endswith("/"):
        return path.startswith(pattern)
    return re.fullmatch(pattern.replace(".", r"\.").replace("*", "[^/]*"), path) is not None


def module_of(path):
    name = Path(path).name
    found = [m for m in RANKS if re.match(m + r"(_|\.)", name)]
    return found[0] if found else None


def wrong_direction(source, target):
    """What is wrong with source including target, both as paths from the root; None when nothing is."""
    row = folder_of(source)
    if target.startswith(row + "/"):
        mine, theirs = module_of(source), module_of(target)
        if row == MODULES and mine and theirs and mine != theirs and RANKS[theirs] >= RANKS[mine]:
            return f"{mine} must not know {theirs}"
        return None
    if any(matches(target, p) for p in ALLOWED[row]):
        return None
    return f"{row}/ may include only {' '.join(ALLOWED[row]) or 'itself'}"


def check_file(root, path):
    source = path.relative_to(root).as_posix()
    in_platform = source.startswith(PLATFORM)
    for number, line in enumerate(path.read_text().splitlines(), 1):
        found = INCLUDE.match(line)
        if not found:
            continue
        kind, name = found.groups()
        where = f"{source}:{number}: {name}"
        if kind == "<":
            if source.startswith(AUDIO + "/") and NOT_IN_AUDIO.fullmatch(name):
                yield f"{where}: the codecs use nothing but arithmetic and memory"
            continue
        places = [PLATFORM + name, name] if in_platform else [name, PLATFORM + name]
        target = next((p for p in places if (root / p).exists()), None)
        if target is None:
            yield f"{where}: not spelled from the root of the tree"
        elif reason := wrong_direction(source, target):
            yield f"{where}: {reason}"


def main():
    root = Path(sys.argv[1]).resolve()
    files = [p for top in sorted({f.split("/")[0] for f in ALLOWED}) for p in sorted((root / top).rglob("*"))
             if p.suffix in (".h", ".hpp", ".c", ".cpp")]
    problems = [p for f in files for p in check_file(root, f)]
    unknown = [f.relative_to(root).as_posix() for f in files if folder_of(f.relative_to(root).as_posix()) is None]
    problems += [f"{f}: stands in no row of the table of folders" for f in unknown]
    print("\n".join(problems) or f"{len(files)} files, all directions right")
    return 1 if problems or not files else 0


if __name__ == "__main__":
    sys.exit(main())
