"""Cameras and the page's server, for the tests of this folder."""
import http.client
import json
import os
import re
import subprocess
import tempfile
import unittest

VCAM = os.environ["VCAM"]


def vcam(*words):
    done = subprocess.run([VCAM, *words], capture_output=True, text=True)
    assert done.returncode == 0, (words, done.stdout, done.stderr)
    return done.stdout


class Served(unittest.TestCase):
    """Two cameras, "one" and "two", and the server's address."""
    pace = "0"

    def setUp(self):
        self.scratch = tempfile.TemporaryDirectory()
        self.folder = self.scratch.name
        self.cameras = [f"{self.folder}/{name}" for name in ("one", "two")]
        for camera in self.cameras:
            vcam("new", camera)
        self.prepare()
        self.server = subprocess.Popen([VCAM, "web", *self.cameras, "--no-open", "--pace", self.pace],
                                       stdout=subprocess.PIPE, text=True, cwd=self.folder)
        self.address = self.server.stdout.readline().strip()
        self.port, self.token = re.fullmatch(r"http://127\.0\.0\.1:(\d+)/\?token=(\w{32})", self.address).groups()

    def prepare(self):
        pass

    def tearDown(self):
        self.server.terminate()
        self.assertEqual(self.server.wait(60), 0)
        self.server.stdout.close()
        self.scratch.cleanup()

    def request(self, method, path, body=None, **headers):
        connection = http.client.HTTPConnection("127.0.0.1", int(self.port), timeout=60)
        connection.request(method, path, body, {"X-Token": self.token} | {k.replace("_", "-"): v for k, v in headers.items()})
        answer = connection.getresponse()
        text = answer.read().decode()
        connection.close()
        return answer.status, text

    def act(self, camera=0, **request):
        return self.request("POST", f"/action?camera={camera}", json.dumps(request))

    def state(self, name, camera=0):
        with open(f"{self.cameras[camera]}/{name}") as file:
            return file.read()
