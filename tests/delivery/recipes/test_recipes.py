#!/usr/bin/env python3
"""Buildroot's external tree and Yocto's layer: their files read as the systems read them, and the build, the
installation and the sorting of files that the systems make of them."""
import fnmatch
import glob
import hashlib
import os
import re
import shutil
import unittest

import kconfiglib
from cross import WORK, Cross
from tree import TOP as SOURCE, InFolder, files, quietly, read

PACKAGING = os.path.join(SOURCE, "packaging")
EXTERNAL = os.path.join(PACKAGING, "buildroot")
LAYER = os.path.join(PACKAGING, "yocto")
HOST = WORK + "/host"  # where the build system keeps its tools
VERSION = re.search(r"project\(zep VERSION (\S+)", read(SOURCE, "CMakeLists.txt"))[1]
APPLETS = re.findall(r'^    {"(\w+)", \w+_main},$', read(SOURCE, "app/main.cpp"), re.M)
C_LIBRARY = {"libc.so.6", "libm.so.6", "libpthread.so.0", "libcrypt.so.1", "ld-linux.so.3"}
# Of a C library whose programs were asked to have time_t of 64 bits.
OLD_TIME = """clock_gettime clock_settime gettimeofday settimeofday time localtime_r localtime gmtime_r gmtime mktime
              nanosleep select fstat64 stat64 lstat64 utime setsockopt recvmsg""".split()


def programs():
    return {"usr/bin/zep", *("usr/bin/" + a for a in APPLETS)}


def promised():
    """What all components hold, but for the headers."""
    pages = [p for p in glob.glob(os.path.join(SOURCE, "docs/man/*.[3578]"))
             if not p.endswith(("camera.conf.5", "vcam-faults.5", "zep-line.5", "zep-audio.7"))]  # the tools'
    return {*programs(),
            *(f"usr/lib/libzep{name}.a" for name in ("common", "service", "board", "upgrade", "mpp")),
            *(f"usr/lib/pkgconfig/{name}.pc" for name in ("zepcommon", "zepmpp")),
            *(f"usr/share/man/man{p[-1]}/{os.path.basename(p)}" for p in pages),
            *(f"usr/share/doc/zep/examples/etc/{f}" for f in files(os.path.join(SOURCE, "docs/examples/etc")))}


def make_images():
    """The images folder of a build with a kernel and a root file system, and its target folder with settings."""
    images, target = WORK + "/images", WORK + "/target"
    for folder in (images, target + "/etc"):
        os.makedirs(folder, exist_ok=True)
    for path, content in ((images + "/zImage", b"kernel" * 9999), (images + "/rootfs.squashfs", b"hsqs" * 9999),
                          (target + "/etc/web.conf", b"port=80\n")):
        with open(path, "wb") as file:
            file.write(content)
    quietly("mkimage", "-A", "arm", "-O", "linux", "-T", "kernel", "-C", "none", "-d", images + "/zImage",
            images + "/uImage")
    return images, target


class Recipe(InFolder):
    def check_tree(self, stage):
        found = files(stage)
        headers = {f for f in found if f.startswith("usr/include/zep/") and f.endswith(".h")}
        package = {f for f in found if fnmatch.fnmatch(f, "usr/lib/cmake/zep/*.cmake")}
        self.assertEqual(found - headers - package, promised())
        self.assertIn("usr/lib/cmake/zep/zepConfig.cmake", package)
        for header in headers:
            for other in re.findall(r'^#include "(.*)"', read(stage, header), re.M):
                self.assertIn("usr/include/zep/" + other, headers, header)
        for name in ("common/cutil_conf.h", "mpi/audio/g711.h"):
            self.assertIn("usr/include/zep/" + name, headers)

    def check_program(self, cross):
        read_elf, needed, undefined, listed = cross.executable()
        self.assertLessEqual(needed, C_LIBRARY)
        self.assertEqual(sorted(listed), sorted(APPLETS))
        self.assertIn(".symtab", read_elf, "the system strips, when it has taken the debug information")
        for word in ("RPATH", "RUNPATH", "TEXTREL"):
            self.assertNotIn(word, read_elf)
        return read_elf, undefined


class Buildroot(Recipe):
    def variables(self):
        """zep.mk's, as make has them where the infrastructure takes over."""
        self.write("Makefile", f"BR2_EXTERNAL_ZEP_PATH := {EXTERNAL}\nBR2_PACKAGE_LIBXCRYPT := y\n"
                   "cmake-package = $(foreach v,$(filter ZEP_%,$(.VARIABLES)),$(info $(v)=$($(v))))\n"
                   "host-cmake-package = $(foreach v,BUILD_CMDS INSTALL_CMDS CONF_OPTS,"
                   "$(info HOST_ZEP_$(v)=$(strip $(HOST_ZEP_$(v)))))\n"
                   f"BR2_CMAKE := cmake\nINSTALL := install\nHOST_MAKE_ENV := nice\nPARALLEL_JOBS := 2\n"
                   f"HOST_DIR := {HOST}\nHOST_ZEP_BUILDDIR := {HOST}/build\n"
                   "include $(BR2_EXTERNAL_ZEP_PATH)/external.mk\nall: ;\n")
        said = quietly("make", "-s", "--warn-undefined-variables", "-C", self.folder, env={"PATH": os.environ["PATH"]})
        return dict(line.split("=", 1) for line in said.splitlines() if re.match("(HOST_)?ZEP_", line))

    def test_menu_offers_it_where_it_can_be_built(self):
        names = ["BR2_arm", "BR2_USE_MMU", "BR2_INSTALL_LIBSTDCPP", "BR2_TOOLCHAIN_GCC_AT_LEAST_11",
                 "BR2_TOOLCHAIN_HAS_THREADS_NPTL", "BR2_TOOLCHAIN_USES_GLIBC"]
        self.write("Config.in", "".join(f'config {name}\n\tbool "{name}"\n\n' for name in
                                        [*names, "BR2_PACKAGE_LIBXCRYPT"])
                   + 'source "$BR2_EXTERNAL_ZEP_PATH/Config.in"\n')
        os.environ["BR2_EXTERNAL_ZEP_PATH"] = EXTERNAL
        menu = kconfiglib.Kconfig(os.path.join(self.folder, "Config.in"), warn_to_stderr=False)
        self.assertEqual(menu.warnings, [])
        hint = next(node for node in menu.node_iter() if node.item == kconfiglib.COMMENT)
        #        what lacks       offered  hint  libxcrypt
        for lacks, offered, hinted, crypt in ((None, 2, 0, 2), ("BR2_arm", 0, 0, 0), ("BR2_USE_MMU", 0, 0, 0),
                                              ("BR2_INSTALL_LIBSTDCPP", 0, 2, 0),
                                              ("BR2_TOOLCHAIN_GCC_AT_LEAST_11", 0, 2, 0),
                                              ("BR2_TOOLCHAIN_HAS_THREADS_NPTL", 0, 2, 0),
                                              ("BR2_TOOLCHAIN_USES_GLIBC", 2, 0, 0)):
            for name in names:
                menu.syms[name].set_value(0 if name == lacks else 2)
            package = menu.syms["BR2_PACKAGE_ZEP"]
            package.set_value(2)
            self.assertEqual((package.visibility, kconfiglib.expr_value(hint.dep),
                              menu.syms["BR2_PACKAGE_LIBXCRYPT"].tri_value), (offered, hinted, crypt), lacks)

    def test_build_leaves_the_programs_on_the_target(self):
        recipe = {name: value for name, value in self.variables().items() if not name.startswith("HOST_")}
        known = """VERSION SITE SITE_METHOD OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS INSTALL_STAGING SUPPORTS_IN_SOURCE_BUILD
                   CONF_OPTS DEPENDENCIES LICENSE LICENSE_FILES""".split()
        self.assertEqual(sorted(recipe), sorted("ZEP_" + name for name in known))
        self.assertEqual((recipe["ZEP_VERSION"], recipe["ZEP_SITE_METHOD"]), (VERSION, "local"))
        self.assertEqual((recipe["ZEP_LICENSE"], recipe["ZEP_LICENSE_FILES"]), ("MIT", "LICENSE"))
        self.assertEqual(recipe["ZEP_DEPENDENCIES"].split(), ["libxcrypt"])

        cross = Cross("buildroot")
        words = recipe["ZEP_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS"].split()
        self.assertEqual(set(words[::2]), {"--exclude"})
        site = os.path.realpath(recipe["ZEP_SITE"])
        self.assertEqual(site, os.path.realpath(SOURCE))
        left_out = {".git", *(word[1:] for word in words[1::2])}  # at the top of the tree
        shutil.copytree(site, cross.home + "/zep", symlinks=True,
                        ignore=lambda at, names: left_out & set(names) if at == site else ())
        os.mkdir(cross.home + "/host/Platform")
        cross.write("host/Platform/Buildroot.cmake", "include(Platform/Linux)\n")
        cross.toolchain("Buildroot", "-D_LARGEFILE_SOURCE -D_LARGEFILE64_SOURCE -D_FILE_OFFSET_BITS=64 -Os -g0"
                        " -D_FORTIFY_SOURCE=1", "")
        never = ("DOC", "DOCS", "EXAMPLE", "EXAMPLES", "TEST", "TESTS", "TESTING")
        cross.configure(cross.home + "/zep", "Unix Makefiles", "-DCMAKE_BUILD_TYPE=Release", "-DBUILD_SHARED_LIBS=ON",
                        "-DCMAKE_COLOR_MAKEFILE=OFF", *(f"-DBUILD_{name}=OFF" for name in never),
                        *recipe["ZEP_CONF_OPTS"].split())
        target = cross.install()
        self.check_tree(cross.stage)
        self.check_program(cross)
        removed = ("usr/include/*", "usr/lib/pkgconfig/*", "usr/lib/cmake/*", "usr/lib/*.a", "usr/share/man/*",
                   "usr/share/doc/*")
        self.assertEqual({f for f in target if not any(fnmatch.fnmatch(f, p) for p in removed)}, programs())


    def test_host_fwpkg_packs_the_images_of_a_build(self):
        recipe = self.variables()
        shutil.rmtree(HOST, ignore_errors=True)
        quietly("cmake", "-G", "Unix Makefiles", "-S", SOURCE, "-B", HOST + "/build", *recipe["HOST_ZEP_CONF_OPTS"].split())
        for step in ("BUILD", "INSTALL"):
            quietly("sh", "-ec", recipe[f"HOST_ZEP_{step}_CMDS"])
        images, target = make_images()
        quietly(EXTERNAL + "/firmware.sh", images, "uImage", "rootfs.squashfs", "64KiB", "--marker", "3510",
                env={**os.environ, "HOST_DIR": HOST, "TARGET_DIR": target})
        self.assertIn("3510", quietly(HOST + "/bin/fwpkg", "info", images + "/firmware.pkg"))

        # The same tool is Yocto's native one; its class gives these commands to the shell.
        text = read(LAYER, "classes/zep-firmware.bbclass")
        known = {"DEPLOY_DIR_IMAGE": images, "IMGDEPLOYDIR": images, "IMAGE_NAME": "rootfs", "WORKDIR": images,
                 "IMAGE_ROOTFS": target, **dict(re.findall(r'^(\w+) \?= "(.*)"$', text, re.M))}
        body = re.search(r"^IMAGE_CMD:zepfw \(\) {\n(.*?)^}", text, re.S | re.M)[1]
        while "${" in body:
            body = re.sub(r"\$\{(\w+)}", lambda name: known[name[1]], body)
        quietly("sh", "-ec", body, env={**os.environ, "PATH": HOST + "/bin:" + os.environ["PATH"]})
        self.assertIn("rootfs.zepfw", os.listdir(images))


class Yocto(Recipe):
    def variables(self, path):
        text = read(path).replace("\\\n", "")
        return {name: value for name, value in re.findall(r'^([\w:${}-]+) (?:[.:+?]?=|\+=) "(.*)"$', text, re.M)}, text

    def test_layer_finds_its_recipe(self):
        layer, _ = self.variables(LAYER + "/conf/layer.conf")
        self.assertEqual(layer["BBFILE_COLLECTIONS"], "zep")
        recipes = glob.glob(layer["BBFILES"].replace("${LAYERDIR}", LAYER))
        self.assertEqual({os.path.basename(r) for r in recipes}, {f"zep_{VERSION}.bb", f"zep-fwpkg_{VERSION}.bb"})
        for recipe in recipes:
            self.assertRegex(recipe, layer["BBFILE_PATTERN_zep"].replace("${LAYERDIR}", re.escape(LAYER)))
            checksum = hashlib.md5(read(SOURCE, "LICENSE").encode("latin-1")).hexdigest()
            self.assertEqual(self.variables(recipe)[0]["LIC_FILES_CHKSUM"], "file://LICENSE;md5=" + checksum)
        for name in ("PRIORITY", "SERIES_COMPAT"):
            self.assertTrue(any(key.endswith(name + "_zep") for key in layer), name)

    def test_build_gives_files_that_all_belong_to_a_package(self):
        path = glob.glob(LAYER + "/recipes-*/*/zep_*.bb")[0]
        recipe, text = self.variables(path)
        self.assertIn("inherit cmake externalsrc\n", text)
        self.assertEqual(recipe["LICENSE"], "MIT")
        shown = type("Data", (), {"getVar": staticmethod({"THISDIR": os.path.dirname(path)}.get)})
        source = eval(recipe["EXTERNALSRC"].removeprefix("${@").removesuffix("}"), {"os": os, "d": shown})
        self.assertEqual(os.path.realpath(source), os.path.realpath(SOURCE))
        for triplet, fits in (("arm-poky-linux-gnueabi", True), ("x86_64-poky-linux", False),
                              ("aarch64-poky-linux", False)):
            self.assertEqual(bool(re.match(recipe["COMPATIBLE_HOST"], triplet)), fits, triplet)

        cross = Cross("yocto")
        cross.toolchain("Linux", "-O2 -pipe -g -feliminate-unused-debug-types -fstack-protector-strong"
                        " -D_FORTIFY_SOURCE=2 -Wformat -Wformat-security -Werror=format-security"
                        f" -ffile-prefix-map={cross.build}=/usr/src/debug -ffile-prefix-map={source}=/usr/src/debug"
                        " -D_TIME_BITS=64 -D_FILE_OFFSET_BITS=64",
                        "-Wl,-O1 -Wl,--hash-style=gnu -Wl,--as-needed -Wl,-z,relro,-z,now")
        cross.configure(source, "Ninja", f"-DCMAKE_MAKE_PROGRAM={shutil.which('ninja')}", "-DCMAKE_INSTALL_BINDIR=bin",
                        "-DCMAKE_INSTALL_LIBDIR=lib", "-DCMAKE_INSTALL_INCLUDEDIR=include",
                        "-DCMAKE_INSTALL_DATAROOTDIR=share", "-DCMAKE_INSTALL_SYSCONFDIR=/etc",
                        "-DCMAKE_NO_SYSTEM_FROM_IMPORTED=1", "-Wno-dev", *recipe["EXTRA_OECMAKE"].split())
        found = cross.install()
        self.check_tree(cross.stage)
        read_elf, undefined = self.check_program(cross)
        self.assertIn(".gnu.hash", read_elf, "linked with the system's flags")
        self.assertNotRegex(read_elf, r" \.hash ")
        self.assertEqual(undefined & set(OLD_TIME), set())
        for name in found:
            self.assertNotIn(WORK, read(cross.stage, name), name)

        packages = {}
        sorting = (("staticdev", "usr/lib/*.a"), ("dev", "usr/include/*"), ("dev", "usr/lib/pkgconfig/*"),
                   ("dev", "usr/lib/cmake/*"), ("doc", "usr/share/man/*"), ("doc", "usr/share/doc/*"), ("", "usr/bin/*"))
        for name in found:
            owner = next((package for package, pattern in sorting if fnmatch.fnmatch(name, pattern)), "nobody's")
            packages.setdefault(owner, set()).add(name)
        self.assertEqual(set(packages), {"", "dev", "staticdev", "doc"})
        self.assertEqual(packages[""], programs())
        self.assertIn("${PN}-staticdev", recipe["RDEPENDS:${PN}-dev"])


class Debian(unittest.TestCase):
    def test_version_is_the_project_s(self):
        self.assertTrue(read(PACKAGING, "debian/changelog").startswith(f"zep ({VERSION}) "))
        self.assertEqual(re.findall(r"^## (\S+?),", read(SOURCE, "CHANGELOG.md"), re.M)[0], VERSION)


if __name__ == "__main__":
    unittest.main()
