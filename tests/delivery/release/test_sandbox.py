#!/usr/bin/env python3
"""The release executable and its C library, in emulation, in a root, network and process space of their own."""
import os
import re
import shutil
import signal
import subprocess
import unittest

from tree import InFolder, read

BUILD = os.environ["ZEP_BUILD"]
BANNER = """ZEP ver. 1.0.0 (2012.09.19-04:24+0000) multi-call binary
usage : [function] [arguments]...

currently defined functions:
qrn_arp, load_drv, get_boot_param, init_upgrade, upgrade, xupgrade, xbootenv, xgpio, xi2c, xgpioi2c, xkill, xtime, \
test_dio, test_led, test_rs485, test_rs232, test_sdcard, test_usb, test_key, test_rtc, test_send_watchdog, \
test_audio, get_cb_cam_info
"""


class Sandbox(InFolder):
    def setUp(self):
        super().setUp()
        for folder in ("etc", "dev", "tmp"):
            os.mkdir(os.path.join(self.folder, folder))
        shutil.copy(shutil.which("qemu-arm-static"), os.path.join(self.folder, "qemu"))
        for program in ("app/zep", "tests/delivery/release/c_library"):
            shutil.copy(os.path.join(BUILD, program), self.folder)

    def start(self, program, name, *arguments):
        """The program under a name, ended with all its children; no device, no shell, no network."""
        return subprocess.run(
            ["timeout", "600", "unshare", "--user", "--map-root-user", "--net", "--ipc", "--pid", "--fork",
             "--kill-child", "chroot", self.folder, "/qemu", "-cpu", "arm926", "-0", name, program, *arguments],
            stdin=subprocess.DEVNULL, capture_output=True, text=True)

    def ask(self, *words):
        return self.start("/c_library", "c_library", *words)

    def check(self, user, password):
        return self.ask("check", user, password).returncode == 0

    def test_lists_its_applets_under_any_other_name(self):
        for name in ("zep", "/sbin/unknown", "upgrade2"):
            run = self.start("/zep", name)
            self.assertEqual((run.stdout, run.stderr, run.returncode), (BANNER, "", 0))

    def test_every_applet_of_the_listing_answers_to_its_name_without_a_device(self):
        """What some say first, and that each ends in order, by no signal."""
        said = {"init_upgrade": "", "xbootenv": "", "qrn_arp": "Usage: qrn_arp ifname IP\n", "get_boot_param": "argc is 1",
                "xgpio": "xgpio", "xi2c": "xi2c", "xgpioi2c": "xgpioi2c",
                "test_rtc": "/dev/ds1339: No such file or directory"}
        for name in re.findall(r"\w+", BANNER.splitlines()[-1]):
            if name in ("upgrade", "xupgrade", "load_drv"):
                continue  # wait for daemons and loaded modules; the emulated machine runs them
            for arguments in (["-h"],) + (([],) if name in said else ()):
                with self.subTest(name, arguments=arguments):
                    run = self.start("/zep", name, *arguments)
                    self.assertIn("" if arguments else said[name], run.stdout + run.stderr)
                    self.assertNotIn("currently defined functions", run.stdout)
                    self.assertNotEqual(run.returncode, 124, "did not end")
                    self.assertGreaterEqual(run.returncode, 0)

    def test_the_c_library_resolves_dotted_and_hosts_file_names_and_says_why_not(self):
        self.write("etc/hosts", "127.0.0.1 localhost\n192.168.7.9 time.local ntp # the clock\n")
        for name, address in (("10.0.0.1", "10.0.0.1"), ("time.local", "192.168.7.9"), ("ntp", "192.168.7.9")):
            self.assertEqual(self.ask("resolve", name).stdout, address + "\n")
        # No name server: the text that herror prints for it differs from library to library.
        run = self.ask("resolve", "nowhere.invalid")
        self.assertEqual((run.stdout, run.returncode), ("", 1))
        self.assertRegex(run.stderr, r"^nowhere\.invalid: .*\n$")

    def test_passwords_are_set_and_checked_with_traditional_hashes(self):
        # crypt(anything, "") is "" here, which equals the stored text: an empty one lets nobody in.
        self.write("etc/passwd", "root::0:0:superuser:/:/bin/sh\nlocked:*:5:5::/:/bin/sh\n")
        for user, password in (("root", ""), ("root", "root"), ("locked", ""), ("locked", "*")):
            self.assertFalse(self.check(user, password))
        self.write("etc/passwd", "root:abJnggxhB/yWI:0:0:superuser:/:/bin/sh\n")
        self.assertTrue(self.check("root", "password"))
        self.assertFalse(self.check("root", "Password"))
        self.ask("set", "viewer", "secret12")
        self.assertRegex(read(self.folder, "etc/passwd"), r"\Aroot:abJnggxhB/yWI:0:0:superuser:/:/bin/sh\n"
                         r"viewer:[./0-9A-Za-z]{13}:65534:65534:viewer:/home:/bin/false\n\Z")
        self.assertTrue(self.check("viewer", "secret12"))

    def test_the_protection_ends_a_program_that_misbehaves(self):
        def run(*words):  # without a process space: its first process survives its own signals
            return subprocess.run(["qemu-arm-static", "-cpu", "arm926", "c_library", *words], cwd=self.folder,
                                  capture_output=True, text=True)
        self.assertEqual(run("overrun", "x").returncode, 0)
        self.assertEqual(run("constant", "x").returncode, -signal.SIGSEGV)
        overrun = run("overrun", "x" * 64)
        self.assertIn("stack smashing detected", overrun.stderr)
        self.assertLess(overrun.returncode, 0)


if __name__ == "__main__":
    unittest.main()
