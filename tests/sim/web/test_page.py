#!/usr/bin/env python3
"""The page in a headless Chromium: every action, and its effect in the camera. Leaves pictures for README and docs.

Usage: VCAM=PROGRAM FWPKG=PROGRAM ZEP_AUDIO=PROGRAM PICTURES=FOLDER test_page.py
"""
import json
import os
import socket
import subprocess
import unittest
import wave

from browser import Browser
from served import Served, vcam

PICTURES = os.environ.get("PICTURES", "")
MAP = "[...document.querySelectorAll('.part')].map(p => p.innerText.replace(/\\n/g, ' ')).join('; ')"
PHASE = "document.querySelector('.phase')?.innerText"
PILL = "document.querySelector('.pill').innerText"
# A package of a kernel of 3 blocks, a root file system of 46 and a part of one, and settings of one.
PACKAGE = """cd "$1"; mkdir settings; echo a=1 > settings/system.conf; yes kernel | head -c 190000 > z; yes new | head -c 3072000 > root
mkimage -A arm -O linux -T kernel -C none -d z kernel; mkfs.jffs2 -n -e 64KiB -d settings -o jffs2; "$FWPKG" build -o pkg kernel root jffs2"""


class InBrowser(Served):
    pace = "40"

    def prepare(self):
        if PICTURES:
            os.makedirs(PICTURES, exist_ok=True)
        subprocess.run(["sh", "-euc", PACKAGE, "sh", self.folder], check=True, capture_output=True)
        vcam("put", self.cameras[0], self.folder + "/pkg", "/tmp/pkg")
        self.browser = Browser()
        self.addCleanup(self.browser.close)

    def picture(self, name, selector="html"):
        if PICTURES:
            self.browser.picture(f"{PICTURES}/{name}.png", selector)

    def start(self, words):
        self.browser.type("input[aria-label='program and arguments']", words)
        self.browser.press("Start")

    def record(self, expression):
        """Every value of it from now on, also one that stands for a moment."""
        self.browser.run(f"window.seen = []; new MutationObserver(() => seen.push({expression}))"
                         ".observe(document.querySelector('.camera'), {subtree: true, childList: true, characterData: true})")

    def recorded(self):
        return self.browser.run("return seen.join('\\n')")

    def plan(self, *values):
        for label, value in zip(("how often it goes well first", "how often it fails, -1 for ever", "effect"), values):
            self.browser.type(f"input[aria-label='{label}']", value)
        self.browser.press("Plan")

    def test_an_upgrade_is_watched_to_its_end(self):
        page = self.browser
        page.open(self.address)
        page.wait(PHASE, "the page")
        self.record(PHASE + " + ' | ' + " + MAP)
        self.start("upgrade /tmp/pkg -v")
        page.wait(PILL + " == '✔ off, upgraded'", "the end")
        self.assertEqual(page.run("return " + PHASE), "✔ Upgrade complete; rebooted")
        page.wait(MAP + ".match(/mtd1.*: 3 new, 45 erased; mtd2.*: 47 new, 137 erased; mtd3.*: 1 new, 15 erased/)", "the new blocks")
        for moment in ("step 1 of 9: erasing mtd1: .* erased", "step 4 of 9: erasing mtd2: .*mtd2.* unchanged, .* erased",
                       "step 5 of 9: writing mtd2, 2.9 MiB: .*mtd2.* new, .* erased", "upgrade complete, restarting programs"):
            self.assertRegex(self.recorded(), moment)
        # The same package once more: each block is as it was, and the bar follows the writing.
        vcam("put", self.cameras[0], self.folder + "/pkg", "/tmp/pkg")
        self.plan("3000", "-1", "slow=600000")
        self.start("upgrade /tmp/pkg -v")
        page.wait(PHASE + ".includes('writing mtd2, 2.9 MiB: 51 %')", "blocks as they were")
        page.press("Cut the power")
        page.wait(PHASE + " == '✖ power cut while writing mtd2, 51 %'", "the cut")
        self.assertEqual(page.complaints(), [])

    def test_an_upgrade_is_cut_replayed_and_frozen(self):
        page = self.browser
        page.open(self.address)
        page.wait("document.querySelectorAll('.camera .part').length == 8", "two cameras")
        self.assertIn("mtd2 · root file system 11.5 MiB NOR: 96 unchanged, 88 erased", page.run("return " + MAP))
        self.plan("3000", "-1", "slow=600000")  # the upgrade stands in this write until the cut
        self.start("upgrade /tmp/pkg -v")
        page.wait(MAP + ".match(/mtd2.*: 24 new, 160 erased/)", "blocks written")
        self.picture("running")
        page.press("Cut the power")
        page.wait(PILL + ".includes('✖ off, broken off')", "the cut")
        self.assertEqual(page.run("return document.querySelector('.phase.cut').innerText"), "✖ power cut while writing mtd2, 51 %")
        self.assertLess(page.run("return document.querySelector('.phase.cut progress').value"), 0.6)
        self.assertEqual(self.state("ending"), "powercut\n")
        page.wait(MAP + ".includes('mtd2 · root file system 11.5 MiB NOR: 23 new, 160 erased, 1 torn')", "the torn block")
        page.size(2560)
        self.picture("vcam-web", ".camera")
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
        self.start("upgrade /tmp/pkg -v")
        page.wait(MAP + ".match(/mtd2.* 1 torn/)", "the torn block")
        page.wait("document.querySelector('.phase').innerText.includes('by the fault mtd2 write 100')", "its cause")
        page.run("document.querySelectorAll('.part canvas')[2].focus()")
        page.run("document.querySelectorAll('.part canvas')[2].dispatchEvent(new KeyboardEvent('keydown', {key: 'Enter'}))")
        self.assertIn("6e 65 77 0a", page.wait("document.querySelector('dialog').innerText", "the block's bytes"))
        page.run("document.querySelector('dialog').close()")
        for width in (360, 768, 2560):
            page.size(width)
            self.assertLessEqual(page.run("return document.documentElement.scrollWidth"), width)
            self.picture(f"width-{width}")
        page.cdp("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": "dark"}])
        self.picture("dark", ".camera")
        self.assertEqual(page.complaints(), [])

    def test_a_point_of_an_exploration_opens_as_a_camera_and_a_hostile_map_stays_text(self):
        page, card = self.browser, "document.querySelector('.exploration').innerText"
        page.open(self.address)
        page.wait("document.querySelector('.exploration')?.innerText.includes('No exploration yet')", "the page")
        vcam("explore", self.cameras[0], "--replay-only", "--", "upgrade", "/tmp/pkg", "-v")
        page.wait(card + ".includes('Every promise was kept.')", "the map")
        for key, name in (("Home", "1/before"), ("ArrowDown", "1/half"), ("ArrowRight", "2/half"), ("End", r"\d+/after")):
            page.run("document.querySelector('.map canvas').dispatchEvent(new KeyboardEvent('keydown', {key: arguments[0]}))", key)
            self.assertRegex(page.run("return document.querySelector('.map canvas').getAttribute('aria-valuetext')"), f"^point {name}, mtd")
        point = page.run(f"return {card}.match(/point (\\d+)\\/after/)[1]")
        for name in (f"one-{point}-after", f"one-{point}-after-2"):
            page.press("Open this point")
            page.wait(f"[...document.querySelectorAll('.camera h2')].some(h => h.innerText.startsWith('{name} '))", name)
            with open(f"{self.folder}/{name}/flash/mtd1", "rb") as flash:
                self.assertIn(b"kernel\nkernel\n", flash.read(4096))
        self.picture("exploration", ".exploration")
        vcam("report", self.cameras[0], "-o", self.folder + "/report.html")
        with open(self.cameras[0] + "/flash/mtd1", "r+b") as flash:
            flash.write(b"another kernel")
        page.press("Open this point")
        page.wait(card + ".includes('explore it again')", "the refusal of a changed camera")
        kept = json.loads(self.state("exploration.json"))
        for change, shown in ((kept | {"command": "<img src=x>"}, "<img src=x>: "), (kept | {"points": [0, 0, 9999]}, "is no map"),
                              (kept | {"steps": [[1, {}, 0, 1, 0, "x"]]}, "is no map"), (kept | {"names": None}, "is no map"),
                              ([[[[[[]]]]]] * 99, "is no map"), ("x" * (9 << 20), "is no plain file of at most 8 MiB")):
            with open(self.cameras[0] + "/exploration.json", "w") as file:
                json.dump(change, file)
            page.wait(f"{card}.includes('{shown}')", shown)
        self.assertEqual(page.run("return document.querySelectorAll('.exploration img').length"), 0)
        page.open(f"file://{self.folder}/report.html")
        page.wait("document.querySelector('.map canvas') && " + card + ".includes('Every promise was kept.') && document.querySelector('.map canvas').clientHeight > 100", "the frozen map")
        self.assertRegex(" ".join(page.complaints()), "^[^ ]*/action[^ ]* - .* 400 [^/]*$")  # the one refusal

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

    def test_sound_is_seen_and_heard(self):
        page, tone = self.browser, self.folder + "/tone.wav"
        with wave.open(tone, "wb") as file:
            file.setparams((1, 2, 8000, 0, "NONE", ""))
            file.writeframes(b"\0\x20\0\xe0" * 8000)
        with socket.socket() as free:
            free.bind(("127.0.0.1", 0))
            port = str(free.getsockname()[1])
        page.open(self.address)
        page.wait(PHASE, "the page")
        page.press("Hear the microphone")
        page.wait("document.querySelector('.sound').innerText.includes('there is no mic.wav yet')", "no microphone")
        page.type("input[aria-label^='port of this machine']", port)
        page.click("input[aria-label='loudspeaker heard by the microphone']")
        self.record("[...document.querySelectorAll('.way text')].map(t => t.textContent).join(' ')")
        self.start("test_audio " + port)
        page.wait("document.body.textContent.includes('test_audio: port')", "the server")
        for way in (["play", "127.0.0.1", port, tone], ["record", "-t", "1", "127.0.0.1", port, self.folder + "/heard.wav"]):
            subprocess.run([os.environ["ZEP_AUDIO"], *way], check=True, capture_output=True)
        self.picture("sound", ".sound")
        page.press("Power off")
        page.wait(PILL + ".includes('off')", "the end")
        for moment in (r"ao 2,0: on [1-9]\d* frames \d+ under-runs -12.0 dB loudspeaker", r"ai 2,0: on [1-9]\d* taken 0 lost \S+"):
            self.assertRegex(self.recorded(), moment)
        page.press("Hear the loudspeaker")
        page.wait("document.querySelector('audio').duration > 1", "the loudspeaker's file")
        page.call(f"/element/{page.find('.sound input[type=file]')}/value", {"text": tone})
        page.wait("document.querySelector('.sound').innerText.includes('the microphone hears it')", "the microphone's file")
        page.press("Hear the microphone")
        page.wait("document.querySelector('audio').duration == 2", "it, heard")


if __name__ == "__main__":
    unittest.main()
