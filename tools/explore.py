#!/usr/bin/env python3
"""Explores the upgrade on small cameras of three flash geometries and writes docs/what-happens-when.md.

    tools/explore.py BUILD [--quick] [--no-fail] [--page FILE.md] [--picture FILE.png] [--work FOLDER]

--quick explores one camera only; --no-fail leaves failing calls and kills out. Exit status 1 when a promise was broken.
"""
import argparse
import datetime
import json
import os
import pathlib
import shutil
import subprocess
import sys
import time

SETTINGS = {
    "network/network.conf": "ip_type=dhcp\nip_address=192.168.0.100\n", "network/wireless.conf": "wireless_enable=0\n",
    "system.conf": "system_name=new-firmware\n", "serverinfo.conf": "serverinfo=new-firmware\n", "cam_model.conf": "cam_model=ZM146\n",
    "tcp_server.conf": "server_port=1852\n", "stream.conf": "stream_1_port=1852\nstream_2_port=1853\nstream_3_port=1854\n",
    "videodecoder.conf": "video_type=0\n", "web.conf": "port=80\n"}
OWN = {  # the user's
    "network/network.conf": "ip_type=static\nip_address=10.20.30.40\n", "tcp_server.conf": "server_port=2852\n",
    "stream.conf": "stream_1_port=3001\nstream_2_port=3002\nstream_3_port=3003\n", "videodecoder.conf": "video_type=1\n",
    "web.conf": "port=8080\n"}
SMALL = ["--size", "mtd1=128K", "--size", "mtd2=256K", "--size", "mtd3=384K"]
GEOMETRIES = {  # name: options of vcam new, erase block in KiB
    "NOR, blocks of 64 KiB": (SMALL, 64),
    "NOR, blocks of 128 KiB": (SMALL + ["--size", "mtd0=512K", "--erase-block", "128K"], 128),
    "NAND with bad blocks": (["--flash", "nand", "--size", "mtd1=128K", "--size", "mtd2=256K", "--size", "mtd3=384K",
                              "--bad", "mtd1:7", "--bad", "mtd2:15", "--bad", "mtd3:3"], 16)}
COMMANDS = {
    "upgrade": ["upgrade", "/tmp/flash3", "-v"],
    "upgrade, factory settings": ["upgrade", "/tmp/flash3", "-v", "all", "-f"],
    "xupgrade": ["xupgrade", "-i", "-b"]}


def run(*words, **more):
    return subprocess.run([str(w) for w in words], check=True, **more)


class Bench:
    def __init__(self, build, work):
        self.vcam, self.fwpkg, self.work = build / "bin/vcam", build / "bin/fwpkg", work
        shutil.rmtree(work, ignore_errors=True)
        for base, files in (("package", SETTINGS), ("own", OWN)):
            for name, content in files.items():
                path = work / base / name
                path.parent.mkdir(parents=True, exist_ok=True)
                path.write_text(content)
        (work / "zImage").write_bytes(bytes(i * 7 >> 3 & 0xFF for i in range(60000)))
        (work / "rootfs").write_bytes(bytes(i * 13 >> 5 & 0xFF for i in range(120001)))
        run("mkimage", "-A", "arm", "-O", "linux", "-T", "kernel", "-C", "none", "-n", "camera", "-d", work / "zImage",
            work / "kernel", stdout=subprocess.DEVNULL)

    def camera(self, options, block, version):
        """A camera with the user's settings and a package for it."""
        camera, settings = self.work / "camera", self.work / "settings.jffs2"
        path = os.environ["PATH"] + ":/usr/sbin"
        run("mkfs.jffs2", "-l", "-n", "-e", f"{block}KiB", "-d", self.work / "package", "-o", settings, env=os.environ | {"PATH": path})
        run(self.fwpkg, "build", "--force", "--version", version, "-o", self.work / "pkg", self.work / "kernel", self.work / "rootfs",
            settings, stdout=subprocess.DEVNULL)
        run(self.vcam, "new", camera, "--force", "--version", version, *options)
        for name in OWN:
            run(self.vcam, "put", camera, self.work / "own" / name, "/etc/" + name)
        run(self.vcam, "put", camera, self.work / "pkg", "/tmp/flash3")
        return camera

    def explore(self, camera, command, *options):
        """The lines of one exploration, by kind, and how long it took."""
        begun = time.monotonic()
        done = subprocess.run([self.vcam, "explore", camera, "--json", *options, "--", *command], stdout=subprocess.PIPE, text=True)
        if done.returncode not in (0, 1):
            sys.exit(f"explore: {' '.join(command)}: exit status {done.returncode}")
        lines = {"class": [], "broken": [], "failures": []}
        for line in map(json.loads, done.stdout.splitlines()):
            if line["kind"] == "run":
                lines["run"] = line
            elif line["kind"] == "point":
                lines.setdefault("points", {}).setdefault(line["class"], []).append(line)
            else:
                lines[line["kind"]].append(line)
        return lines, time.monotonic() - begun


def state_rows(lines):
    """One row a name: points, what is left, what the same command makes of it, what a person does."""
    rows = {}
    for number, kind in enumerate(lines["class"]):
        row = rows.setdefault(kind["state"], {"points": 0, "again": {}, "left": kind["left"], "person": kind["person"]})
        row["points"] += len(lines.get("points", {}).get(number, []))
        for name, count in kind["again"].items():
            row["again"][name] = row["again"].get(name, 0) + count
    return rows


def runs(counts):
    return ", ".join(f"{name} ({count})" for name, count in counts.items()) or "not run"


LIMITS = """
- The kernel and the root file system have one place each. While they are written, there is no other to start from: a cut
  in that time leaves a camera that does not start, and somebody has to load them through the boot loader.
- A package has no signature and no sum over the whole; the kernel image has a sum of its own, the root file system none.
- The user's settings are in memory while their partition is written. A cut between its first erase and the last setting put
  back costs those that were not put back yet; the package's, or the product's defaults, stand in their place.
- The three partitions are written one after the other, so a cut between them leaves parts of two releases.
"""


def page_of(tables, main, command):
    out = ["# What happens when the power fails", "",
           "An upgrade writes kernel, root file system and settings into flash that has one place for each. This page says what is left",
           "when the power fails at any moment of it, and what to do then. It is made by a program that tries every moment:",
           "each operation on the flash, before it, torn inside it in several ways, after it.", "",
           "![The run from left to right, a band a partition; each point by its state](what-happens-when.png)", "",
           "## The states", "", "Of `upgrade` on NOR flash; the points are those of a small camera.", "",
           "| state | points | what is left | after the same command (runs) | what a person does |", "|---|---|---|---|---|"]
    for name, row in state_rows(main).items():
        out.append(f"| {name} | {row['points']} | {row['left']} | {runs(row['again'])} | {row['person']} |")
    out += ["", "## What was explored", "",
            "| camera | package | command | operations | points | states | runs | watchdog's longest gap | broken promises | seconds |",
            "|---|---|---|---|---|---|---|---|---|---|"]
    for (geometry, version, name), (lines, seconds) in tables.items():
        r = lines["run"]
        gap = f"{r['longest_gap']:.2f} s" if r["longest_gap"] else "-"
        out.append(f"| {geometry} | version {version} | {name} | {r['steps']} | {r['points']} | {r['states']} | {r['runs']} | {gap} | "
                   f"{len(lines['broken'])} | {seconds:.0f} |")
    failures = [(key, f) for key, (lines, _) in tables.items() for f in lines["failures"]]
    if failures:
        out += ["", "## When a call fails, or the program is killed", "",
                "Each call of the C library that the program makes fails with each error that it can give, once and from then on;",
                "\"killed\": SIGKILL at the call.", "", "| command | call | what is left (runs) |", "|---|---|---|"]
        out += [f"| {key[2]} | {f['call']} | {runs(f['left'])} |" for key, f in failures]
    out += ["", "## Limits of the format", "", LIMITS.strip(), "",
            f"Made by `{command}` on {datetime.date.today().isoformat()}. `vcam explore` tries the same on any camera and package;",
            "`--open POINT` makes a camera that stands at a point. See [the virtual camera](virtual-camera.md).", ""]
    return "\n".join(out)


def picture(bench, camera, file):
    html = bench.work / "page.html"
    subprocess.run([bench.vcam, "explore", camera, "--html", html, "--force", "--", *COMMANDS["upgrade"]], stdout=subprocess.DEVNULL)
    browser = next((b for b in ("chromium", "google-chrome") if shutil.which(b)), None)
    if not browser:
        sys.exit("explore: the picture needs a browser: install the Debian package chromium")
    run(browser, "--headless", "--no-sandbox", "--disable-gpu", "--hide-scrollbars", "--window-size=1300,760", f"--screenshot={file}",
        f"file://{html.resolve()}", stderr=subprocess.DEVNULL, stdout=subprocess.DEVNULL)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--no-fail", action="store_true")
    parser.add_argument("--page", type=pathlib.Path)
    parser.add_argument("--picture", type=pathlib.Path)
    parser.add_argument("--work", type=pathlib.Path, default=pathlib.Path("build/explore"))
    o = parser.parse_args()
    bench, tables, broken = Bench(o.build, o.work), {}, 0
    for geometry, (options, block) in GEOMETRIES.items():
        for version in (1, 3):
            for name, command in COMMANDS.items():
                if o.quick and tables:
                    continue
                first = not tables
                camera = bench.camera(options, block, version)
                # The library's calls do not depend on the flash: once a command is enough.
                fail = ["--fail"] if geometry == next(iter(GEOMETRIES)) and version == 1 and not o.quick and not o.no_fail else []
                lines, seconds = bench.explore(camera, command, *fail)
                tables[geometry, version, name] = lines, seconds
                broken += len(lines["broken"])
                print(f"{geometry}, version {version}, {name}: {lines['run']['points']} points, {lines['run']['runs']} runs, "
                      f"{len(lines['broken'])} broken promises, {seconds:.0f} s", flush=True)
                for b in lines["broken"][:5]:
                    print(f"    {b['promise']}: {b['point']}: {b['what']}")
                if first and o.picture:
                    picture(bench, camera, o.picture)
    if o.page:
        o.page.write_text(page_of(tables, next(iter(tables.values()))[0], "./dev explore" + " --no-fail" * o.no_fail + " --quick" * o.quick))
    return 1 if broken else 0


if __name__ == "__main__":
    sys.exit(main())
