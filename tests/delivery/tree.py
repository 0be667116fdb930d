"""What the tests of the delivery share."""
import os
import subprocess
import tempfile
import unittest

TOP = os.path.realpath(os.path.join(os.path.dirname(__file__), "../.."))


def quietly(*words, **more):
    """What a command prints; it must succeed."""
    run = subprocess.run(words, capture_output=True, text=True, stdin=subprocess.DEVNULL, **more)
    if run.returncode:
        raise AssertionError(f"{' '.join(words)}: status {run.returncode}\n{run.stdout[-4000:]}{run.stderr[-4000:]}")
    return run.stdout


def files(folder):
    return {os.path.relpath(os.path.join(at, name), folder) for at, _, names in os.walk(folder) for name in names}


def read(*path):
    """A file's bytes, each as the character of its number."""
    with open(os.path.join(*path), encoding="latin-1", newline="") as file:
        return file.read()


class InFolder(unittest.TestCase):
    """A case with an empty folder of its own."""

    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.folder = scratch.name

    def write(self, name, text):
        with open(os.path.join(self.folder, name), "w") as file:
            file.write(text)
