"""How the release executable is linked: the command that the build itself uses."""
import re
import shlex
import subprocess


def command(build, program="app/zep"):
    """The words of the link command of a program, to be run in the build folder."""
    text = subprocess.run(["ninja", "-C", build, "-t", "commands", program],
                          capture_output=True, text=True, check=True).stdout
    last = text.splitlines()[-1]
    # Ninja wraps what follows the link: ": && LINK && AFTERWARDS".
    link = next(part for part in re.split(r" && ", last) if f" -o {program} " in part)
    words = shlex.split(link)
    while not words[0].endswith("-gcc"):  # a compiler launcher
        words = words[1:]
    return words


def inputs(words):
    """The files of our own among them, as relative paths."""
    named = [w.removeprefix("-Wl,-z,relro,-T,") for w in words]
    return [w for w in named if re.fullmatch(r"[\w.+/-]+\.(o|a|ld)", w) and not w.startswith(("/", "-"))]


def without_map(words):
    return [w for w in words if not w.startswith("-Wl,-Map=")]
