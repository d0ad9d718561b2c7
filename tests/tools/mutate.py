#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""mutate.py [COUNT [SEED]]: changes the library's sources, one place at a time, and prints the changes
that no test notices. COUNT places (200 unless told) are chosen at random, the same ones for the same
SEED (1 unless told). The sources are changed in a copy of the checkout, build/mutate."""
import filecmp
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
COPY = ROOT / "build" / "mutate"
BUILD = COPY / "build"
BUILD_SECONDS = 1800
GOAL = 95

# What is changed into what. Each pattern has one group, which is replaced.
CHANGES = [
    (r" (==) ", "!="),
    (r" (!=) ", "=="),
    (r" (<=) ", "<"),
    (r" (>=) ", ">"),
    (r" (<) ", "<="),
    (r" (>) ", ">="),
    (r" (&&) ", "||"),
    (r" (\|\|) ", "&&"),
    (r"[\w)] (\+) [\w(]", "-"),
    (r"[\w)] (-) [\w(]", "+"),
    (r"[\w)] (\*) [\w(]", "/"),
    (r"(\+\+)", "--"),
    (r"\b(true)\b", "false"),
    (r"\b(false)\b", "true"),
]
# A condition of one part is turned round. One of several parts would need brackets.
CONDITION = re.compile(r"\bif \((!?)(?!.*(&&|\|\||==|!=|<|>|;)).*\) \{")
NUMBER = re.compile(r"(?<![\w.'])(\d+)(?![\w.'])")
# A call whose result nobody takes is left out.
CALL = re.compile(r"^ +((?!return|throw|delete|using|static_assert|case|else)[\w.:>-]+\(.*\);)$")
NOT_CODE = re.compile(r"^\s*(//|/\*|\*|#|\[\[|template|using|namespace)")


def code_only(line):
    """The line with its texts and comments blanked; columns stay."""
    blanked = re.sub(r'"(\\.|[^"\\])*"', lambda text: '"' + "~" * (len(text[0]) - 2) + '"', line)
    return re.sub(r"//.*$", lambda comment: " " * len(comment[0]), blanked)


def changes_of(line):
    """All lines that one change makes of a line."""
    if NOT_CODE.match(line):
        return
    code = code_only(line)
    spans = [(match.span(1), new) for pattern, new in CHANGES for match in re.finditer(pattern, code)]
    spans += [(match.span(1), "" if match[1] else "!") for match in CONDITION.finditer(code)]
    spans += [(match.span(1), str(int(match[1]) + 1)) for match in NUMBER.finditer(code)]
    spans += [(match.span(1), ";") for match in CALL.finditer(code)]
    for (first, last), new in spans:
        yield line[:first] + new + line[last:]


def all_mutants():
    """Every change of a place in the library's sources: file, index of the line, new line."""
    for path in sorted((ROOT / "src").glob("**/*.cpp")):
        for index, line in enumerate(path.read_text().splitlines()):
            for changed in changes_of(line):
                yield path.relative_to(ROOT), index, changed


def succeeds(command, seconds):
    """Whether a command succeeds in time. What it has started ends with it."""
    process = subprocess.Popen(command, cwd=COPY, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                               start_new_session=True)
    try:
        return process.wait(seconds) == 0
    except subprocess.TimeoutExpired:
        os.killpg(process.pid, signal.SIGKILL)
        process.wait()
        return False


def build(*targets):
    return succeeds(["cmake", "--build", BUILD, "--target", *targets], BUILD_SECONDS)


class Suites:
    """A set of tests, and how long it may take: a change may let a test wait for ever."""

    def __init__(self, command):
        self.command = command
        self.seconds = BUILD_SECONDS

    def passes(self):
        return succeeds(self.command, self.seconds)

    def measure(self):
        start = time.monotonic()
        if not self.passes():
            sys.exit(f"mutate: tests fail without any change: {self.command}")
        # Others may use the machine more than now.
        self.seconds = 60 + 5 * (time.monotonic() - start)


def suite(name):
    """One suite of the unit tests."""
    return Suites(["tests/support/sandbox", BUILD / "tests" / "unit-tests", "--gtest_fail_fast",
                   f"--gtest_filter={name}.*:*/{name}.*:{name}/*"])


def suites_of(kind, *options):
    # Most tests wait for something most of the time.
    return Suites(["ctest", "--test-dir", BUILD, "--stop-on-failure", "--no-tests=error",
                   "--parallel", str(3 * os.cpu_count()), "--tests-regex", rf"\.{kind}\.", *options])


ALL_UNIT = suites_of("unit")
# Those left out take minutes, or look at other programs.
BUS = suites_of("bus", "--exclude-regex",
                r"\.(StormTest|EnduranceTest|LifecycleTest|maps|Iomap[A-Z].*)$")


def own_suite(path):
    """The suite of the class that a file holds; none where the class has no file of tests."""
    name = f"{path.stem}Test"
    return [suite(name)] if list((ROOT / "tests" / "unit").glob(f"**/{name}.cpp")) else []


def verdict_on(path, index, changed):
    """What notices a change; None where nothing does; "compiler" where it does not compile."""
    lines = (ROOT / path).read_text().splitlines(keepends=True)
    (COPY / path).write_text("".join([*lines[:index], changed + "\n", *lines[index + 1:]]))
    try:
        if not build("unit-tests"):
            return "compiler"
        for suites in own_suite(path):
            suites.seconds = ALL_UNIT.seconds
            if not suites.passes():
                return "its own suite"
        if not ALL_UNIT.passes():
            return "another unit test"
        return None if build("bus-tests") and BUS.passes() else "a test on the bus"
    finally:
        shutil.copy(ROOT / path, COPY / path)


def prepare_copy():
    files = subprocess.run(["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
                           cwd=ROOT, check=True, stdout=subprocess.PIPE, text=True).stdout
    for name in filter(None, files.split("\0")):
        copied = COPY / name
        # What has not changed keeps its time, and is not built again.
        if not (copied.exists() and filecmp.cmp(ROOT / name, copied, shallow=False)):
            copied.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(ROOT / name, copied)
    subprocess.run(["cmake", "-S", COPY, "-B", BUILD, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug",
                    "-DCMAKE_CXX_FLAGS_DEBUG=-O0", "-DCMAKE_EXE_LINKER_FLAGS=-Wl,--strip-debug",
                    f"-DCMAKE_PROJECT_INCLUDE={COPY}/cmake/ForDevelopers.cmake"],
                   check=True, stdout=subprocess.DEVNULL)
    if not succeeds(["cmake", "--build", BUILD, "--target", "unit-tests", "bus-tests"], None):
        sys.exit("mutate: the sources do not build without any change")
    ALL_UNIT.measure()
    BUS.measure()


def main():
    count = int(sys.argv[1]) if len(sys.argv) > 1 else 200
    seed = int(sys.argv[2]) if len(sys.argv) > 2 else 1
    mutants = list(all_mutants())
    places = len(mutants)
    random.Random(seed).shuffle(mutants)
    prepare_copy()
    tried = 0
    survivors = []
    for path, index, changed in mutants:
        if tried == count:
            break
        verdict = verdict_on(path, index, changed)
        if verdict == "compiler":
            continue
        tried += 1
        old = (ROOT / path).read_text().splitlines()[index].strip()
        text = f"{path}:{index + 1}\n    - {old}\n    + {changed.strip()}"
        print(f"[{tried}/{count}] {verdict or 'NOTHING'} notices {text}", flush=True)
        if verdict is None:
            survivors.append(text)
    print("\nNo test notices:" if survivors else "\nTests notice every change.", *survivors, sep="\n")
    print(f"mutate: of {places} places {tried} were changed; tests notice {tried - len(survivors)}, "
          f"{100 * (tried - len(survivors)) / max(tried, 1):.1f} % (the goal is {GOAL} %)")


if __name__ == "__main__":
    main()
