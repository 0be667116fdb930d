#!/usr/bin/env python3
"""The release executable and its C library, in emulation, in a root, network and process space of their own."""
import os
import re
import shutil
import subprocess
import tempfile
import unittest

BUILD = os.environ["ZEP_BUILD"]
TOP = os.path.dirname(os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__)))))
BANNER = """ZEP ver. 1.0.0 (2012.09.19-04:24+0000) multi-call binary
usage : [function] [arguments]...

currently defined functions:
qrn_arp, load_drv, get_boot_param, init_upgrade, upgrade, xupgrade, xbootenv, xgpio, xi2c, xgpioi2c, xkill, xtime, \
test_dio, test_led, test_rs485, test_rs232, test_sdcard, test_usb, test_key, test_rtc, test_send_watchdog, \
test_audio, get_cb_cam_info
"""


class Sandbox(unittest.TestCase):
    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.root = scratch.name
        for folder in ("etc", "dev", "tmp"):
            os.mkdir(os.path.join(self.root, folder))
        shutil.copy(shutil.which("qemu-arm-static"), os.path.join(self.root, "qemu"))
        for program in ("app/zep", "tests/delivery/release/c_library"):
            shutil.copy(os.path.join(BUILD, program), self.root)

    def write(self, name, text):
        with open(os.path.join(self.root, name), "w") as file:
            file.write(text)

    def read(self, name):
        with open(os.path.join(self.root, name)) as file:
            return file.read()

    def start(self, program, name, *arguments):
        """The program under a name, ended after 20 s with all its children; no device, no shell, no network."""
        return subprocess.run(
            ["timeout", "600", "unshare", "--user", "--map-root-user", "--net", "--ipc", "--pid", "--fork",
             "--kill-child", "chroot", self.root, "/qemu", "-cpu", "arm926", "-0", name, program, *arguments],
            stdin=subprocess.DEVNULL, capture_output=True, text=True)


class Executable(Sandbox):
    def test_lists_its_applets_under_any_other_name(self):
        for name in ("zep", "/sbin/unknown", "upgrade2"):
            run = self.start("/zep", name)
            self.assertEqual((run.stdout, run.stderr, run.returncode), (BANNER, "", 0))

    def test_applets_answer_without_a_device(self):
        """What each says first, and that it ends in order, by no signal, with the status that scripts rely on."""
        said = {
            "init_upgrade": "",
            "xbootenv": "",
            "qrn_arp": "Usage: qrn_arp ifname IP\n",
            "get_boot_param": "argc is 1",
            "xgpio": "xgpio",
            "xi2c": "xi2c",
            "xgpioi2c": "xgpioi2c",
            "test_rtc": "/dev/ds1339: No such file or directory",
        }
        for name, text in said.items():
            with self.subTest(name):
                run = self.start("/zep", name)
                self.assertIn(text, run.stdout + run.stderr)
                self.assertGreaterEqual(run.returncode, 0)

    def test_every_applet_of_the_listing_answers_to_its_name(self):
        for name in re.findall(r"\w+", BANNER.splitlines()[-1]):
            if name in ("upgrade", "xupgrade", "load_drv"):
                continue  # wait for daemons and loaded modules; the emulated machine runs them
            with self.subTest(name):
                run = self.start("/zep", name, "-h")
                self.assertNotIn("currently defined functions", run.stdout)
                self.assertNotEqual(run.returncode, 124, "did not end")
                self.assertGreaterEqual(run.returncode, 0)


class CLibrary(Sandbox):
    def test_resolves_dotted_and_hosts_file_names_and_says_why_not(self):
        self.write("etc/hosts", "127.0.0.1 localhost\n192.168.7.9 time.local ntp # the clock\n")
        for name, address in (("10.0.0.1", "10.0.0.1"), ("time.local", "192.168.7.9"), ("ntp", "192.168.7.9")):
            self.assertEqual(self.start("/c_library", "c_library", "resolve", name).stdout, address + "\n")
        # No name server: the text that herror prints for it differs from library to library.
        run = self.start("/c_library", "c_library", "resolve", "nowhere.invalid")
        self.assertEqual((run.stdout, run.returncode), ("", 1))
        self.assertRegex(run.stderr, r"^nowhere\.invalid: .*\n$")

    def check(self, user, password):
        return self.start("/c_library", "c_library", "check", user, password).returncode == 0

    def test_an_empty_stored_hash_lets_nobody_in(self):
        # crypt(anything, "") is "" here, which equals the stored text.
        self.write("etc/passwd", "root::0:0:superuser:/:/bin/sh\nlocked:*:5:5::/:/bin/sh\n")
        for password in ("", "root", "*"):
            self.assertFalse(self.check("root", password))
            self.assertFalse(self.check("locked", password))

    def test_passwords_are_set_and_checked_with_traditional_hashes(self):
        self.write("etc/passwd", "root:abJnggxhB/yWI:0:0:superuser:/:/bin/sh\n")
        self.assertTrue(self.check("root", "password"))
        self.assertFalse(self.check("root", "Password"))
        self.start("/c_library", "c_library", "set", "viewer", "secret12")
        self.assertRegex(self.read("etc/passwd"), r"\Aroot:abJnggxhB/yWI:0:0:superuser:/:/bin/sh\n"
                         r"viewer:[./0-9A-Za-z]{13}:65534:65534:viewer:/home:/bin/false\n\Z")
        self.assertTrue(self.check("viewer", "secret12"))


if __name__ == "__main__":
    unittest.main()
