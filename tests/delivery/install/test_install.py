#!/usr/bin/env python3
"""The installed tree: what each component holds, and that programs of others build and run with it."""
import os
import re
import unittest

from tree import TOP, InFolder, files, quietly, read

BUILD = os.environ["ZEP_BUILD"]
TOOLCHAIN_FILE = os.environ.get("ZEP_TOOLCHAIN_FILE", "")
TOOLCHAIN = os.environ.get("ZEP_TOOLCHAIN", "")
LAUNCHER = os.environ.get("ZEP_LAUNCHER", "").split()
COMPILER = {"c": os.environ["ZEP_CC"], "cpp": os.environ["ZEP_CXX"]}
CONSUMER = os.path.join(TOP, "tests/delivery/install/consumer")
APPLETS = """qrn_arp load_drv get_boot_param init_upgrade upgrade xupgrade xbootenv xgpio xi2c xgpioi2c xkill xtime
             test_dio test_led test_rs485 test_rs232 test_sdcard test_usb test_key test_rtc test_send_watchdog
             test_audio get_cb_cam_info""".split()
# A-law of 1000 in 16 bits, and the first account with uid and gid 0.
SAID = "fa root\n"


def install(component, stage):
    quietly("cmake", "--install", BUILD, "--prefix", "/usr", "--component", component,
            env={**os.environ, "DESTDIR": stage})


def pages(sections):
    """The manual pages of these sections, where they are installed; section 1 brings those of the tools' files."""
    of_tools = {"camera.conf.5": "1", "vcam-faults.5": "1", "zep-audio.7": "1",
                "zep-line.5": "1"}
    names = os.listdir(os.path.join(TOP, "docs/man"))
    return {f"usr/share/man/man{name[-1]}/{name}" for name in names if of_tools.get(name, name[-1]) in sections}


class Installed(InFolder):
    def setUp(self):
        super().setUp()
        self.stage = os.path.join(self.folder, "stage")
        self.work = os.path.join(self.folder, "work")
        os.mkdir(self.work)

    def test_runtime_is_the_executable_one_link_an_applet_and_manual_pages(self):
        install("runtime", self.stage)
        install("runtime", self.stage)  # over itself
        found = files(self.stage)
        self.assertEqual(found, {"usr/bin/zep", *("usr/bin/" + a for a in APPLETS), *pages("8")})
        for applet in APPLETS:
            self.assertEqual(os.readlink(os.path.join(self.stage, "usr/bin", applet)), "zep")

    def test_tools_make_and_run_a_camera_from_where_they_stand(self):
        install("tools", self.stage)
        if LAUNCHER:  # a camera has no use for them
            self.assertEqual(files(self.stage), set())
            return
        commands = [f for f in files(self.stage) if f.startswith("usr/bin/")]
        self.assertEqual(sorted(commands), ["usr/bin/fwpkg", "usr/bin/vcam", "usr/bin/zep-audio", "usr/bin/zep-station"])
        self.assertEqual({f for f in files(self.stage) if "/man/" in f}, pages("1"))
        for component in ("runtime", "development"):
            install(component, self.work + component)
            self.assertEqual(files(self.stage) & files(self.work + component), set(), component)
        bin_folder = os.path.join(self.stage, "usr/bin")
        quietly(TOP + "/packaging/debian/tests/upgrade-a-camera",
                env={**os.environ, "AUTOPKGTEST_TMP": self.work, "PATH": bin_folder + ":" + os.environ["PATH"]})
        listed = quietly(bin_folder + "/vcam", "run", self.work + "/camera", "--", "zep").splitlines()[-1]
        self.assertEqual(sorted(listed.split(", ")), sorted(APPLETS))

    def test_every_installed_header_has_its_functions_in_an_installed_library(self):
        install("development", self.stage)
        defined = "".join(quietly(os.environ["ZEP_NM"], "-g", "--defined-only", os.path.join(self.stage, f))
                          for f in files(self.stage) if f.endswith(".a"))
        names = set(defined.split())
        seen = 0
        for header in (f for f in files(self.stage) if f.endswith(".h")):
            text = re.sub(r"/\*.*?\*/|^#.*?(?<!\\)$", "", read(self.stage, header), flags=re.S | re.M)
            for function in re.findall(r"^\w[\w \*]*?\b(\w+)\([^;{}]*\);", text, re.M):
                self.assertTrue(function in names, f"{function} of {header}")
                seen += 1
        self.assertGreater(seen, 300)

    def test_examples_compile_as_plain_c11(self):
        install("development", self.stage)
        examples = os.path.join(TOP, "docs/examples")
        sources = [os.path.join(examples, name) for name in os.listdir(examples) if name.endswith(".c")]
        quietly(COMPILER["c"], "-std=c11", "-Wall", "-Wextra", "-Werror", "-fsyntax-only",
                "-I" + self.stage + "/usr/include/zep", *sources)

    def test_development_tells_nothing_of_where_it_was_built_or_staged(self):
        install("development", self.stage)
        self.assertFalse([f for f in files(self.stage) if f.startswith("usr/bin")])
        self.assertEqual({f for f in files(self.stage) if "/man/" in f}, pages("357"))
        for name in files(self.stage):
            if name.endswith((".pc", ".cmake", ".h")):
                for path in (BUILD, self.stage):
                    self.assertNotIn(path, read(self.stage, name), name)

    def run_all(self, programs):
        for program in programs:
            self.assertEqual(quietly(*LAUNCHER, os.path.join(self.work, program)), SAID, program)

    def test_programs_build_by_the_cmake_package(self):
        install("development", self.stage)
        for languages in ("C", "C;CXX"):  # a project in C alone needs no C++ compiler
            build = os.path.join(self.work, languages.replace(";", "_"))
            compilers = ["-DCMAKE_CXX_COMPILER=" + COMPILER["cpp"]] if "CXX" in languages else []
            quietly("cmake", "-G", "Ninja", "-S", CONSUMER, "-B", build, "-Dzep_ROOT=" + self.stage + "/usr",
                    "-DCMAKE_FIND_ROOT_PATH_MODE_PACKAGE=BOTH", "-DCMAKE_TOOLCHAIN_FILE=" + TOOLCHAIN_FILE,
                    "-DZEP_TOOLCHAIN=" + TOOLCHAIN, "-DCMAKE_C_COMPILER=" + COMPILER["c"], *compilers,
                    "-DLANGUAGES=" + languages)
            quietly("cmake", "--build", build)
            self.run_all([os.path.join(build, "by_cmake_" + language) for language in languages.split(";")])

    def test_programs_build_by_pkg_config(self):
        install("development", self.stage)
        libraries = [os.path.join(at) for at, _, names in os.walk(self.stage) if "zepmpp.pc" in names]
        environment = {**os.environ, "PKG_CONFIG_LIBDIR": libraries[0], "PKG_CONFIG_SYSROOT_DIR": self.stage}
        flags = quietly("pkg-config", "--cflags", "--libs", "zepmpp", "zepcommon", env=environment).split()
        for language in ("c", "cpp"):
            out = os.path.join(self.work, "by_pkg_config_" + language)
            standard = {"c": "-std=gnu11", "cpp": "-std=gnu++20"}[language]
            quietly(COMPILER["c"], standard, os.path.join(CONSUMER, "main." + language), *flags, "-o", out)
        self.run_all(["by_pkg_config_c", "by_pkg_config_cpp"])

    def test_page_of_a_device_of_ones_own_shows_what_its_commands_print(self):
        if LAUNCHER:
            self.skipTest("a virtual camera is the PC's")
        self.page_shows_what_its_commands_print("own-device", "## What a model may", 0)

    def test_page_of_the_first_daemon_shows_what_its_commands_print(self):
        self.page_shows_what_its_commands_print("first-daemon", "## For the camera", bool(LAUNCHER))

    def page_shows_what_its_commands_print(self, name, parts_at, part):
        os.mkdir(self.work + "/build")
        os.symlink(BUILD, self.work + ("/build/release" if LAUNCHER else "/build/host"))
        for folder in ("docs", "sim", "toolchain"):
            os.symlink(os.path.join(TOP, folder), os.path.join(self.work, folder))
        with open(TOP + "/docs/" + name + ".md") as file:
            page = file.read().split(parts_at)[part]
        blocks = re.findall(r"^```sh\n(.*?)^```$(?:\n\n^```\n(.*?)^```$)?", page, re.S | re.M)
        said = quietly("bash", "-euc", "echo ===\n".join(commands for commands, _ in blocks), cwd=self.work)
        for (commands, shown), output in zip(blocks, said.split("===\n"), strict=True):
            self.assertRegex(output, "(?s)^" + re.escape(shown).replace(r"\.\.\.", ".*") + "$", commands)


if __name__ == "__main__":
    unittest.main()
