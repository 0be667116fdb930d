#!/usr/bin/env python3
"""The page in a headless Chromium: every action, and its effect in the camera. Leaves pictures for README and docs.

Usage: VCAM=PROGRAM PICTURES=FOLDER test_page.py
"""
import os
import unittest

from browser import Browser
from served import Served, vcam

PICTURES = os.environ.get("PICTURES", "")
MAP = "[...document.querySelectorAll('.part')].map(p => p.innerText.replace(/\\n/g, ' ')).join('; ')"
PILL = "document.querySelector('.pill').innerText"
# Erases the partition and writes 46 blocks and a part of one.
WRITER = ("import fcntl, os, struct, time\nfd = os.open('/dev/mtd2', os.O_RDWR)\n"
          "for at in range(0, 0xB80000, 0x10000): fcntl.ioctl(fd, 0x40084D02, struct.pack('II', at, 0x10000))\n"
          "for _ in range(1500): os.write(fd, b'new ' * 512)\ntime.sleep(600)\n")


class Page(Served):
    pace = "40"

    def prepare(self):
        if PICTURES:
            os.makedirs(PICTURES, exist_ok=True)
        with open(self.folder + "/writer.py", "w") as file:
            file.write(WRITER)
        vcam("put", self.cameras[0], self.folder + "/writer.py", "/tmp/writer.py")
        self.browser = Browser()
        self.addCleanup(self.browser.close)

    def picture(self, name, selector="html"):
        if PICTURES:
            self.browser.picture(f"{PICTURES}/{name}.png", selector)

    def start(self, words):
        self.browser.type("input[aria-label='program and arguments']", words)
        self.browser.press("Start")

    def test_an_upgrade_is_watched_cut_replayed_and_frozen(self):
        page = self.browser
        page.open(self.address)
        page.wait("document.querySelectorAll('.camera .part').length == 8", "two cameras")
        self.assertIn("mtd2 · root file system 11.5 MiB NOR: 96 unchanged, 88 erased", page.run("return " + MAP))
        self.start("/usr/bin/python3 /tmp/writer.py")
        page.wait(PILL + ".includes('running')", "the run")
        page.wait(MAP + ".match(/mtd2.*: 184 erased/)", "all of mtd2 erased")
        page.wait(MAP + ".match(/mtd2.*: 47 new, 137 erased/)", "blocks written")
        self.picture("running")
        page.press("Cut the power")
        page.wait(PILL + ".includes('✖ off, broken off')", "the cut")
        self.assertEqual(page.run("return document.querySelector('.phase.cut').innerText"), "✖ power cut while writing mtd2, 25 %")
        self.assertLess(page.run("return document.querySelector('.phase.cut progress').value"), 0.3)
        self.assertEqual(self.state("ending"), "powercut\n")
        page.wait(MAP + ".includes('mtd2 · root file system 11.5 MiB NOR: 46 new, 137 erased, 1 torn')", "the torn block")
        page.run("const s = document.querySelector('input[type=range]'); s.value = 0; s.dispatchEvent(new Event('input'))")
        page.wait(MAP + ".includes('mtd2 · root file system 11.5 MiB NOR: 96 unchanged, 88 erased')", "the beginning, replayed")
        vcam("report", self.cameras[0], "-o", self.folder + "/report.html")
        page.open(f"file://{self.folder}/report.html")
        page.wait(MAP + ".match(/mtd2.*new, /)", "the frozen map")
        self.assertEqual(page.run("return document.querySelectorAll('.do, input[type=file]').length"), 0)
        self.assertEqual(page.complaints(), [])

    def test_a_fault_that_the_page_plans_tears_a_block(self):
        page = self.browser
        page.open(self.address)
        page.wait("document.querySelector('.do form select')", "the page")
        page.press("Plan")
        page.wait("document.querySelector('.do').innerText.includes('mtd2 write 100 1 powercut')", "the plan")
        self.assertEqual(self.state("faults"), "mtd2 write 100 1 powercut\n")
        self.start("/usr/bin/python3 /tmp/writer.py")
        page.wait(MAP + ".match(/mtd2.* 1 torn/)", "the torn block")
        page.wait("document.querySelector('.phase').innerText.includes('by the fault mtd2 write 100')", "its cause")
        page.run("document.querySelectorAll('.part canvas')[2].focus()")
        page.run("document.querySelectorAll('.part canvas')[2].dispatchEvent(new KeyboardEvent('keydown', {key: 'Enter'}))")
        self.assertIn("6e 65 77 20", page.wait("document.querySelector('dialog').innerText", "the block's bytes"))
        page.run("document.querySelector('dialog').close()")
        for width in (360, 768, 2560):
            page.size(width)
            self.assertLessEqual(page.run("return document.documentElement.scrollWidth"), width)
            self.picture(f"width-{width}")
        self.picture("vcam-web", ".camera")
        page.cdp("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": "dark"}])
        self.picture("dark", ".camera")
        self.assertEqual(page.complaints(), [])

    def test_the_board_is_wired_pressed_and_set_and_hostile_text_stays_text(self):
        page = self.browser
        page.open(self.address)
        page.wait("document.querySelector('.board form')", "the page")
        self.start("sh -c \"logger '<img src=x onerror=alert(1)>'; echo '<b>bold</b>'; /usr/bin/sleep 600\"")
        page.wait("document.body.innerText.includes('<img src=x onerror') || document.body.textContent.includes('<img src=x')", "the log line")
        page.wait("document.body.textContent.includes('<b>bold</b>')", "the console")
        self.assertEqual(page.run("return document.querySelectorAll('img, .log b').length"), 0)
        pin = "document.querySelector('.pin[title^=\"8.1\"]').innerText"
        page.wait(pin + " == '1'", "the key's idle level")
        page.run("document.querySelector('select[aria-label=\"how long the key is held\"]').value = '5'")
        page.press("Press reset key")
        page.wait(pin + " == '0'", "the key pressed")
        self.assertIn("8.1 press", self.state("pins"))
        page.type("input[list=wirings]", "4.0 wire 5.0")
        page.press("Wire")
        page.wait("document.querySelector('.board').innerText.includes('4.0 wire 5.0')", "the wire")
        page.type("input[aria-label='time for the clock']", "2012-02-28 23:59:58")
        page.press("Set")
        page.wait("document.querySelector('.board').innerText.includes('2012-02-')", "the clock")
        page.type("input[aria-label='far end of ttyAMA1']", "loopback wrong@17")
        page.press("Plug")
        page.wait("document.querySelector('.board').innerText.includes('RS-485: loopback wrong@17')", "the plug")
        page.press("Power off")
        page.wait(PILL + ".includes('off')", "the end")
        self.assertEqual(self.state("ending"), "poweroff\n")
        self.start("/usr/bin/true")
        page.wait("document.querySelector('.phase').innerText.includes('■ exit 0')", "the next run's end")
        self.start("xupgrade -i")
        page.wait("document.querySelector('.phase.bad')?.innerText.endsWith('/tmp/flash3 cannot be used: No such file or directory; exit 0')", "a verdict of the console")
        self.start("upgrade /tmp/missing -v")
        page.wait("document.querySelector('.phase.bad')?.innerText.startsWith('✖ Upgrade fail: /tmp/missing cannot be used')", "the refusal")
        self.assertIn("✖ Upgrade fail: /tmp/missing", vcam("watch", self.cameras[0]))
        self.assertEqual(page.complaints(), [])


if __name__ == "__main__":
    unittest.main()
