#!/usr/bin/env python3
"""android_bp_test.py SOURCE-DIR CMAKE

Android.bp is formatted, and its modules are built from the files, with the definitions, that CMake
builds the targets of their names from; the library's units are optimised as by CMake. CMake is asked through its file API about two configurations
that are never built: a device's, and a host's with the fuzzers.
"""
import glob
import json
import os
import re
import subprocess
import sys
import tempfile

CONFIGURATIONS = {
    "device": ["-DZEM_WITH_SOFTMODEM=OFF", "-DBUILD_TESTING=OFF"],
    "host": ["-DZEM_SANITIZE=fuzzer-no-link", "-DBUILD_TESTING=ON"],
}
DEVICE_TYPES = {"cc_library_shared", "cc_binary"}
HOST_TYPES = {"cc_library", "cc_library_static", "cc_binary_host", "cc_test", "cc_test_host", "cc_fuzz", "cc_benchmark"}
OTHER_TYPES = {"cc_defaults", "filegroup"}
# The first asks the host's C library what its heap holds, which Android's cannot tell; the next two take the place of
# functions of the C library; the last is for a trace of system calls.
HOST_ALONE = {"zem_footprint": {"bench/CountedNew.cpp", "bench/zem_footprint.cpp"},
              "journal_test": {"tests/Journal.cpp", "tests/journal_test.cpp"},
              "schedules": {"tests/schedules/Atomics.cpp", "tests/schedules/Interposed.cpp",
                            "tests/schedules/Scheduler.cpp", "tests/schedules/SteppedModem.cpp",
                            "tests/schedules/schedules.cpp"},
              "traced_requests": {"tests/traced_requests.cpp"}}
OF_THE_TREE = {"liblog", "libpugixml", "libCLI11", "libnlohmann_json", "libgmock", "libgtest",
               "libgoogle-benchmark-main"}

complaints = []


def last_level(flags):
    return ([""] + [flag for flag in flags if flag.startswith("-O")])[-1]


class Blueprint:
    """The part of the language that the file uses: modules, variables, lists, maps, texts and +."""

    TOKEN = re.compile(r'\s*(?://[^\n]*\s*)*("(?:[^"\\]|\\.)*"|\w+|[][{}:,=+]|$)')

    def __init__(self, text):
        self.tokens, place = [], 0
        while place < len(text):
            match = self.TOKEN.match(text, place)
            if not match:
                raise SyntaxError(f"not understood: {text[place:].split(maxsplit=1)[0]}")
            self.tokens.append(match[1])
            place = match.end()
        self.tokens.append("")
        self.variables, self.modules = {}, {}
        while self.tokens[0]:
            name = self.take()
            if self.tokens[0] == "=":
                self.take()
                self.variables[name] = self.value()
                continue
            module = self.map()
            if module["name"] in self.modules:
                raise SyntaxError(f"two modules are named {module['name']}")
            self.modules[module["name"]] = {"type": name, **module}

    def take(self, wanted=None):
        token = self.tokens.pop(0)
        if wanted and token != wanted:
            raise SyntaxError(f"'{token}' instead of '{wanted}'")
        return token

    def map(self):
        result = {}
        self.take("{")
        while self.tokens[0] != "}":
            name = self.take()
            self.take(":")
            if name in result:
                raise SyntaxError(f"'{name}' is set twice")
            result[name] = self.value()
            self.take(",")
        self.take("}")
        return result

    def value(self):
        result = self.operand()
        while self.tokens[0] == "+":
            self.take()
            result = result + self.operand()
        return result

    def operand(self):
        if self.tokens[0] == "{":
            return self.map()
        token = self.take()
        if token == "[":
            result = []
            while self.tokens[0] != "]":
                result.append(self.value())
                if self.tokens[0] != "]":
                    self.take(",")
            self.take("]")
            return result
        if token in ("true", "false"):
            return token == "true"
        return json.loads(token) if token.startswith('"') else self.variables[token]

    def libraries(self, name):
        """The modules that it links; a device's not those that it loads."""
        module = self.modules[name]
        kinds = ["static_libs", "whole_static_libs"] + (["shared_libs"] if module["type"] not in DEVICE_TYPES else [])
        return [library for kind in kinds for library in module.get(kind, []) if library in self.modules]

    def sources(self, name):
        """Of the module and of the libraries that it links."""
        module, result = self.modules[name], set()
        for source in module.get("srcs", []):
            result |= self.sources(source[1:]) if source.startswith(":") else {source}
        for library in self.libraries(name):
            result |= self.sources(library)
        return result

    def levels(self, name):
        """The level of optimisation of each unit; empty: the platform's."""
        module = self.modules[name]
        result = dict.fromkeys(module.get("srcs", []), last_level(module.get("cflags", [])))
        for library in module.get("whole_static_libs", []):
            result |= self.levels(library)
        return result

    def definitions(self, name):
        module = self.modules[name]
        result = {flag[2:].replace('\\"', '"') for flag in module.get("cflags", []) if flag.startswith("-D")}
        for library in self.libraries(name):
            result |= self.definitions(library)
        return result


class CMakeTargets:
    """Follows what a target is linked with, but on a device not what that loads."""

    def __init__(self, build, follow):
        self.follow, self.targets = follow, {}
        reply = f"{build}/.cmake/api/v1/reply/"
        (model,) = glob.glob(reply + "codemodel-v2-*.json")
        with open(model, encoding="utf-8") as file:
            described = json.load(file)["configurations"][0]["targets"]
        for target in described:
            with open(reply + target["jsonFile"], encoding="utf-8") as file:
                self.targets[target["id"]] = json.load(file)
        self.ids = {target["name"]: id for id, target in self.targets.items()}

    def parts(self, name):
        found, left = {}, [self.ids[name]]
        while left:
            target = self.targets[left.pop()]
            if target["name"] not in found:
                found[target["name"]] = target
                left += [each["id"] for each in target.get("dependencies", [])
                         if self.targets[each["id"]]["type"] in self.follow]
        return found.values()

    @staticmethod
    def own_sources(target):
        return {source["path"] for source in target.get("sources", [])
                if "compileGroupIndex" in source and not os.path.isabs(source["path"])}

    def sources(self, name):
        return set().union(*map(self.own_sources, self.parts(name)))

    def definitions(self, name):
        return {each["define"] for target in self.parts(name) for group in target.get("compileGroups", [])
                for each in group.get("defines", []) if each["define"].startswith("ZEM")}

    def flags(self, name):
        """Those that each unit is compiled with."""
        result = {}
        for target in self.parts(name):
            for group in target.get("compileGroups", []):
                flags = " ".join(each["fragment"] for each in group.get("compileCommandFragments", [])).split()
                result |= {target["sources"][index]["path"]: flags for index in group["sourceIndexes"]}
        return result

    def programs(self):
        return {target["name"] for target in self.targets.values()
                if target["type"] == "EXECUTABLE" and self.own_sources(target)}


def ask_cmake(source, cmake, folder):
    running = {}
    for name, arguments in CONFIGURATIONS.items():
        query = f"{folder}/{name}/.cmake/api/v1/query"
        os.makedirs(query)
        with open(f"{query}/codemodel-v2", "w", encoding="utf-8"):
            pass
        # A device has no libedit.
        running[name] = subprocess.Popen([cmake, "-S", source, "-B", f"{folder}/{name}", "-G", "Ninja",
                                          "-DEDITLINE_LIBRARY=OFF", *arguments], stdout=subprocess.DEVNULL)
    for name, process in running.items():
        if process.wait():
            sys.exit(f"the configuration '{name}' failed")
    linked = {"STATIC_LIBRARY", "OBJECT_LIBRARY"}
    return {"device": CMakeTargets(f"{folder}/device", linked),
            "host": CMakeTargets(f"{folder}/host", linked | {"SHARED_LIBRARY"})}


def compare(what, ours, theirs):
    complaints.extend(f"{what}: CMake has no {each}" for each in sorted(ours - theirs))
    complaints.extend(f"{what}: {each} is missing" for each in sorted(theirs - ours))


def without_path(definitions):
    """Where a test finds its files is each build's own."""
    return {re.sub("^(ZEM_SOURCE_DIR|ZEMCTL_PROGRAM)=.*", r"\1", each) for each in definitions}


def check_modules(blueprint, cmake):
    """Returns the files and the programs of CMake that have a module."""
    files, programs = set(), set()
    parts = {part for module in blueprint.modules.values() for part in module.get("whole_static_libs", [])}
    for name, module in blueprint.modules.items():
        kind = module["type"]
        if kind not in DEVICE_TYPES | HOST_TYPES | OTHER_TYPES:
            complaints.append(f"{name}: unknown module type {kind}")
        uses = [used for key in module if re.search("^defaults$|_libs$|_bins$", key) for used in module[key]]
        for used in set(uses) - OF_THE_TREE - set(blueprint.modules):
            complaints.append(f"{name}: there is no {used}")
        named = [each for key in module if re.search("^data$|include_dirs$", key) for each in module[key]]
        for pattern in named:
            if not glob.glob(pattern):
                complaints.append(f"{name}: there is no {pattern}")
        if kind not in DEVICE_TYPES | HOST_TYPES:
            continue
        built = cmake["device" if kind in DEVICE_TYPES else "host"]
        stem = name.removeprefix("lib").removesuffix("_host")
        target = next((each for each in (stem, stem.removeprefix("zem_")) if each in built.ids), None)
        if not target:
            # Benchmarks are only built where their library is installed.
            if kind != "cc_benchmark" and name not in parts:
                complaints.append(f"{name}: CMake has no such target")
            continue
        compare(name, blueprint.sources(name), built.sources(target))
        compare(name, without_path(blueprint.definitions(name)), without_path(built.definitions(target)))
        files |= built.sources(target)
        programs.add(target)
    return files, programs


def check_optimisation(blueprint, cmake):
    flags = cmake["device"].flags("zem")
    compare("libzem", {f"{level} for {unit}" for unit, level in blueprint.levels("libzem").items()},
            {f"{last_level(used)} for {unit}" for unit, used in flags.items()})
    at_link = blueprint.modules["libzem"].get("lto", {}).get("thin", False)
    complaints.extend(f"libzem: optimised at the link only by {'Android.bp' if at_link else 'CMake'}: {unit}"
                      for unit, used in flags.items() if at_link != any(flag.startswith("-flto") for flag in used))


def main():
    source, cmake = sys.argv[1:]
    os.chdir(source)
    with open("Android.bp", encoding="utf-8") as file:
        text = file.read()
    # It exits with 0 either way.
    formatted = subprocess.run(["bpfmt", "-o", "Android.bp"], stdout=subprocess.PIPE, text=True, check=True).stdout
    if formatted != text:
        complaints.append("the format is not bpfmt's: bpfmt -w Android.bp")

    blueprint = Blueprint(text)
    with tempfile.TemporaryDirectory() as folder:
        targets = ask_cmake(source, cmake, folder)
    files, programs = check_modules(blueprint, targets)
    check_optimisation(blueprint, targets)
    for built in targets.values():
        for name in built.programs():
            if name not in programs and name not in HOST_ALONE:
                complaints.append(f"no module for {name}")
        for name in built.ids:
            for left in sorted(built.sources(name) - files - set().union(*HOST_ALONE.values())):
                complaints.append(f"no module has {left}")
    scripts = {each.get("target", {}).get("android", {}).get("version_script") for each in blueprint.modules.values()}
    complaints.extend(f"there is no {script}" for script in scripts if script and not os.path.exists(script))
    print("\n".join(complaints))
    sys.exit(1 if complaints else 0)


main()
