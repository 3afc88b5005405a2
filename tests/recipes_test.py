#!/usr/bin/python3
"""Checks the recipes of packaging/ as far as that goes without the systems that they are for.

usage: recipes_test.py SOURCE_DIR BUILD_DIR [--build]

Buildroot: its configuration language, read by kconfiglib; its makefile, run by make with a stand-in for the package
infrastructure in every combination of options. Yocto: the grammar of what stands in layer and recipe, and that every file of
an installation falls into a package. vcpkg: the manifest, and the portfile, run by CMake with stand-ins for vcpkg's functions.
With --build they also build: Buildroot's with the aarch64 cross compiler where it is there, vcpkg's static, and a program
that uses it.
"""
import fnmatch
import itertools
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

SOURCE, BUILD = (pathlib.Path(argument).resolve() for argument in sys.argv[1:3])
BUILDING = "--build" in sys.argv
RECIPES = SOURCE / "packaging"
CMAKE = (SOURCE / "CMakeLists.txt").read_text()
VERSION = re.search(r"project\(korladownmixer VERSION (\S+)", CMAKE)[1]
OPTIONS = set(re.findall(r"(?:option|set)\((KORLA_\w+) .*", "".join(
    path.read_text() for path in [SOURCE / "CMakeLists.txt", SOURCE / "cmake/KorlaTarget.cmake"])))
PROGRAMS = {"KORLA_HOST", "KORLA_GSTREAMER", "KORLA_LV2", "KORLA_ALSA", "KORLA_PYTHON", "KORLA_TESTS", "KORLA_BENCHMARKS"}


def run(*command, **options):
    result = subprocess.run([str(c) for c in command], stdin=subprocess.DEVNULL, capture_output=True, text=True, **options)
    if result.returncode:
        raise AssertionError(f"{command}: {result.stdout[-3000:]}{result.stderr[-3000:]}")
    return result.stdout


class Recipes(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.work = pathlib.Path(folder.name)

    def check_options(self, arguments):
        """What a recipe gives to CMake: options that exist, and a word on each program that would else be built when it can."""
        given = dict(re.match(r"-D(\w+)=(.*)", argument).groups() for argument in arguments)
        self.assertLessEqual({name for name in given if name.startswith("KORLA")}, OPTIONS)
        self.assertLessEqual(PROGRAMS, set(given))
        return given

    # ---- Buildroot

    BUILDROOT_SYMBOLS = ("aarch64 x86_64 INSTALL_LIBSTDCPP TOOLCHAIN_GCC_AT_LEAST_12 STATIC_LIBS PACKAGE_CLI11 PACKAGE_FLAC "
                         "PACKAGE_JSON_FOR_MODERN_CPP PACKAGE_LIBSNDFILE PACKAGE_GSTREAMER1 PACKAGE_GST1_PLUGINS_BASE PACKAGE_LV2 "
                         "PACKAGE_ALSA_LIB").split()

    def test_buildroot_configuration(self):
        import kconfiglib
        (self.work / "Kconfig").write_text(
            "".join(f"config BR2_{name}\n\tbool \"{name}\"\n" for name in self.BUILDROOT_SYMBOLS) +
            f'source "{RECIPES}/buildroot/Config.in"\n')
        os.environ["BR2_EXTERNAL_KORLA_PATH"] = str(RECIPES / "buildroot")
        config = kconfiglib.Kconfig(str(self.work / "Kconfig"), warn_to_stderr=False)
        self.assertEqual(config.warnings, [])
        undefined = [s.name for s in config.syms.values() if not s.nodes and s.name.startswith("BR2_")]
        self.assertEqual([name for name in undefined if name != "BR2_EXTERNAL_KORLA_PATH"], [])
        config.syms["BR2_PACKAGE_KORLA"].set_value(2)
        self.assertEqual(config.syms["BR2_PACKAGE_KORLA"].tri_value, 0, "without a toolchain for it")
        for name in ("BR2_aarch64", "BR2_INSTALL_LIBSTDCPP", "BR2_TOOLCHAIN_GCC_AT_LEAST_12", "BR2_PACKAGE_KORLA",
                     "BR2_PACKAGE_KORLA_TOOL"):
            config.syms[name].set_value(2)
        self.assertEqual(config.syms["BR2_PACKAGE_KORLA_TOOL"].tri_value, 2)
        self.assertEqual(config.syms["BR2_PACKAGE_LIBSNDFILE"].tri_value, 2, "selected")
        mentioned = set(re.findall(r"BR2_PACKAGE_KORLA_\w+", (RECIPES / "buildroot/package/korla/korla.mk").read_text()))
        self.assertEqual(mentioned, {s for s in config.syms if s.startswith("BR2_PACKAGE_KORLA_")})

    def buildroot(self, *chosen):
        """(variables of the package, arguments for CMake) with these options"""
        external = RECIPES / "buildroot"
        (self.work / "Makefile").write_text(f"""
BR2_EXTERNAL_KORLA_PATH = {external}
{"".join(f"BR2_PACKAGE_KORLA_{name} = y" + chr(10) for name in chosen)}
define cmake-package
show: ; @printf '%s|' '$$(KORLA_VERSION)' '$$(KORLA_SITE)' '$$(KORLA_DEPENDENCIES)' '$$(KORLA_CONF_OPTS)'
endef
include $(BR2_EXTERNAL_KORLA_PATH)/external.mk
""")
        version, site, dependencies, options, _ = run("make", "-s", "-f", self.work / "Makefile", "show").split("|")
        self.assertEqual(version, VERSION)
        self.assertTrue((pathlib.Path(site) / "CMakeLists.txt").samefile(SOURCE / "CMakeLists.txt"))
        return dependencies.split(), options.split()

    def test_buildroot_makefile(self):
        self.assertRegex((RECIPES / "buildroot/external.desc").read_text(), r"\Aname: KORLA\ndesc: .+\n\Z")
        programs = {"TOOL": "KORLA_HOST", "GSTREAMER": "KORLA_GSTREAMER", "LV2": "KORLA_LV2", "ALSA": "KORLA_ALSA"}
        names = [*programs, "SMALL"]
        for chosen in itertools.chain.from_iterable(itertools.combinations(names, n) for n in range(len(names) + 1)):
            dependencies, options = self.buildroot(*chosen)
            given = self.check_options(options)
            for name, option in programs.items():
                self.assertEqual(given[option], "ON" if name in chosen else "OFF")
            self.assertEqual(bool(dependencies), bool(set(chosen) & set(programs)))

    @unittest.skipUnless(BUILDING, "builds")
    def test_buildroot_builds(self):
        toolchain = SOURCE / "cmake/aarch64-toolchain.cmake"
        for chosen in ([], ["SMALL"]):
            folder = self.work / "-".join(["b", *chosen])
            run("cmake", "-S", SOURCE, "-B", folder, "-DCMAKE_INSTALL_PREFIX=/usr", "-DBUILD_SHARED_LIBS=ON",
                "-DCMAKE_BUILD_TYPE=Release", f"-DCMAKE_TOOLCHAIN_FILE={toolchain}", *self.buildroot(*chosen)[1])
            run("cmake", "--build", folder, "-j", os.cpu_count())
            run("cmake", "--install", folder, env=os.environ | {"DESTDIR": str(folder / "target")})
            library = folder / f"target/usr/lib/libkorladownmixer.so.{VERSION}"
            self.assertIn("aarch64", run("file", library))
            self.assertNotIn("RUNPATH", run("readelf", "-d", library))
            self.assertEqual("KRL_r4_fft_64" in run("readelf", "--dyn-syms", "-W", library), not chosen)

    # ---- Yocto

    def yocto_variables(self, path):
        """Name -> value of a file of assignments and inherit lines, and nothing else."""
        variables = {}
        text = re.sub(r"\\\n", " ", path.read_text())
        for line in text.splitlines():
            if not line or line.startswith("#"):
                continue
            match = re.fullmatch(r'([A-Za-z_][\w:${}.-]*(?:\[\w+\])?)\s*(\?\?=|\?=|:=|\+=|\.=|=\+|=)\s*"([^"]*)"', line)
            if match:
                name, operator, value = match.groups()
                variables[name] = f"{value} {variables.get(name, '')}" if operator == "=+" else value
            else:
                self.assertRegex(line, r"\Ainherit [a-z ]+\Z", path)
                variables["inherit"] = line.split()[1:]
        return variables

    def test_yocto(self):
        layer = RECIPES / "yocto/meta-korla"
        config = self.yocto_variables(layer / "conf/layer.conf")
        self.assertEqual(config["BBFILE_COLLECTIONS"].strip(), "korla")
        self.assertLessEqual({"BBFILE_PATTERN_korla", "BBFILE_PRIORITY_korla", "LAYERSERIES_COMPAT_korla"}, set(config))
        sources = config["KORLA_SOURCES"].replace("${LAYERDIR}", str(layer))
        self.assertTrue((pathlib.Path(sources) / "CMakeLists.txt").samefile(SOURCE / "CMakeLists.txt"))
        recipes = list(layer.glob(config["BBFILES"].split("/", 1)[1]))
        self.assertEqual([r.name for r in recipes], [f"korla_{VERSION}.bb"])
        recipe = self.yocto_variables(recipes[0])
        self.assertEqual(recipe["inherit"], ["externalsrc", "cmake", "pkgconfig"])
        features = {name: value.split(",") for name, value in recipe.items() if name.startswith("PACKAGECONFIG[")}
        for state in (0, 1): # all on, all off
            self.check_options(recipe["EXTRA_OECMAKE"].split() + [f[state] for f in features.values()])

        # Every file of an installation falls into a package, and every package gets one.
        run("cmake", "--install", BUILD, "--prefix", "/usr", env=os.environ | {"DESTDIR": str(self.work)})
        folders = {"${PN}": "korla", "${libdir}": "/usr/lib", "${bindir}": "/usr/bin", "${datadir}": "/usr/share"}
        def expanded(text):
            for name, value in folders.items():
                text = text.replace(name, value)
            return text
        packages = expanded(recipe["PACKAGES"]).split()
        files = {expanded(n)[6:]: expanded(v).split() for n, v in recipe.items() if n.startswith("FILES:")}
        files["korla-dev"] += ["/usr/include", "/usr/lib/lib*.so", "/usr/lib/pkgconfig"] # the core's own
        files["korla-doc"] = ["/usr/share/doc", "/usr/share/man"]
        filled = set()
        for path in self.work.rglob("*"):
            name = "/" + str(path.relative_to(self.work))
            if path.is_dir() or "python" in name:
                continue
            owners = [p for p in [*packages, "korla-dev", "korla-doc"]
                      if any(fnmatch.fnmatch(name, glob) or name.startswith(glob + "/") for glob in files[p])]
            self.assertNotEqual(owners, [], name)
            filled.add(owners[0])
        self.assertLessEqual({"libkorladownmixer", "libkorlastream", "korla-dev", "korla-doc"}, filled)
        self.assertLessEqual(filled, set(packages) | {"korla-dev", "korla-doc"})
        if (self.work / "usr/bin/korla-host").exists(): # then the machine had what the wrappers need, too
            self.assertEqual(set(packages) - filled, set())

    # ---- vcpkg

    # What vcpkg's functions do, as far as a port sees it.
    VCPKG = """
set(CMAKE_EXECUTE_PROCESS_COMMAND_ECHO NONE)
function(vcpkg_cmake_configure)
  cmake_parse_arguments(arg "" "SOURCE_PATH" "OPTIONS" ${ARGN})
  if(arg_UNPARSED_ARGUMENTS OR NOT EXISTS "${arg_SOURCE_PATH}/CMakeLists.txt")
    message(FATAL_ERROR "${arg_UNPARSED_ARGUMENTS} ${arg_SOURCE_PATH}")
  endif()
  message("OPTIONS ${arg_OPTIONS}")
  foreach(type IN ITEMS Release Debug)
    if(BUILDING)
      set(prefix ${CURRENT_PACKAGES_DIR})
      if(type STREQUAL "Debug")
        set(prefix ${prefix}/debug)
      endif()
      execute_process(COMMAND ${CMAKE_COMMAND} -S ${arg_SOURCE_PATH} -B ${type} -G Ninja -DCMAKE_BUILD_TYPE=${type}
        -DBUILD_SHARED_LIBS=OFF -DCMAKE_INSTALL_PREFIX=${prefix} -DCMAKE_INSTALL_LIBDIR=lib ${arg_OPTIONS}
        OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
    endif()
  endforeach()
endfunction()
function(vcpkg_cmake_install)
  foreach(type IN ITEMS Release Debug)
    if(BUILDING)
      execute_process(COMMAND ${CMAKE_COMMAND} --build ${type} --target install OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
    endif()
  endforeach()
endfunction()
# Moves the package below share/, where its files go up three folders as before, and joins the debug libraries.
function(vcpkg_cmake_config_fixup)
  cmake_parse_arguments(arg "" "CONFIG_PATH;PACKAGE_NAME" "" ${ARGN})
  if(BUILDING)
    file(RENAME ${CURRENT_PACKAGES_DIR}/${arg_CONFIG_PATH} ${CURRENT_PACKAGES_DIR}/share/${PORT})
    file(GLOB files ${CURRENT_PACKAGES_DIR}/share/${PORT}/*.cmake)
    foreach(file IN LISTS files)
      file(READ ${file} text)
      string(REPLACE "${CMAKE_CURRENT_LIST_DIR}/../../../" "${CMAKE_CURRENT_LIST_DIR}/../../" text "${text}")
      string(REPLACE [[get_filename_component(_IMPORT_PREFIX "${_IMPORT_PREFIX}" PATH)
get_filename_component(_IMPORT_PREFIX "${_IMPORT_PREFIX}" PATH)
get_filename_component(_IMPORT_PREFIX "${_IMPORT_PREFIX}" PATH)]] [[get_filename_component(_IMPORT_PREFIX "${_IMPORT_PREFIX}" PATH)
get_filename_component(_IMPORT_PREFIX "${_IMPORT_PREFIX}" PATH)]] text "${text}")
      file(WRITE ${file} "${text}")
    endforeach()
  endif()
endfunction()
function(vcpkg_fixup_pkgconfig)
endfunction()
include(${PORTFILE})
if(NOT VCPKG_POLICY_SKIP_COPYRIGHT_CHECK)
  message(FATAL_ERROR "no copyright file")
endif()
"""

    def test_vcpkg(self):
        port = RECIPES / "vcpkg/korla"
        manifest = json.loads((port / "vcpkg.json").read_text())
        self.assertEqual((manifest["name"], manifest["version"]), ("korla", VERSION))
        self.assertEqual({d["name"] for d in manifest["dependencies"]}, {"vcpkg-cmake", "vcpkg-cmake-config"})
        (self.work / "run.cmake").write_text(self.VCPKG)
        packages = self.work / "packages"
        result = subprocess.run(
            ["cmake", f"-DPORTFILE={port}/portfile.cmake", f"-DCURRENT_PORT_DIR={port}", "-DPORT=korla",
             f"-DCURRENT_PACKAGES_DIR={packages}", f"-DBUILDING={BUILDING}", "-P", "run.cmake"],
            cwd=self.work, capture_output=True, text=True, check=False)
        self.assertEqual(result.returncode, 0, result.stderr)
        given = self.check_options(re.search(r"OPTIONS (.*)", result.stderr)[1].split(";"))
        self.assertEqual({given[name] for name in PROGRAMS}, {"OFF"})
        self.assertTrue((packages / "share/korla/usage").is_file())
        if not BUILDING:
            return
        self.assertEqual(sorted(p.name for p in (packages / "debug").iterdir()), ["lib"])
        user = self.work / "user"
        user.mkdir()
        usage = (packages / "share/korla/usage").read_text()
        (user / "CMakeLists.txt").write_text("cmake_minimum_required(VERSION 3.22)\nproject(user C)\nadd_executable(main main.c)\n" +
                                             "".join(re.findall(r"    (\w+\(.*\)\n)", usage)))
        (user / "main.c").write_text("#include <korla/acli.h>\n#include <korla/stream.h>\n#include <stdio.h>\n"
                                     "int main(void) { puts(ACLI.name); return korla_speaker_by_name(\"SL\") != 4; }\n")
        run("cmake", "-S", user, "-B", user / "b", f"-DCMAKE_PREFIX_PATH={packages}")
        run("cmake", "--build", user / "b")
        self.assertEqual(run(user / "b/main"), "KorlaDownmixer\n")


unittest.main(argv=sys.argv[:1])
