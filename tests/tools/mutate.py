#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""mutate.py [COUNT [SEED]]: changes the library's sources, one place at a time, and prints the changes
that no test notices. COUNT places (200 unless told) are chosen at random, the same ones for the same
SEED (1 unless told). The sources are changed in copies of the checkout, one for each processor, below
build/mutate."""
import filecmp
import os
import queue
import random
import re
import shutil
import signal
import subprocess
import sys
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
COPIES = ROOT / "build" / "mutate"
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


def has_own_suite(path):
    return bool(list((ROOT / "tests" / "unit").glob(f"**/{path.stem}Test.cpp")))


class Copy:
    """A copy of the checkout, and its build."""

    # Those left out take minutes, or look at other programs.
    LEFT_OUT = r"\.(StormTest|EnduranceTest|LifecycleTest|maps|Iomap[A-Z].*)$"

    def __init__(self, number):
        self.folder = COPIES / str(number)
        self.build_folder = self.folder / "build"
        # How long the tests may take: a change may let a test wait for ever.
        self.unit_seconds = self.bus_seconds = BUILD_SECONDS

    def succeeds(self, command, seconds=BUILD_SECONDS):
        """Whether a command succeeds in time. What it has started ends with it."""
        process = subprocess.Popen(command, cwd=self.folder, stdout=subprocess.DEVNULL,
                                   stderr=subprocess.DEVNULL, start_new_session=True,
                                   env=os.environ | {"GTEST_FAIL_FAST": "1"})
        try:
            return process.wait(seconds) == 0
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            process.wait()
            return False

    def build(self, *targets):
        return self.succeeds(["cmake", "--build", self.build_folder, "--target", *targets])

    def passes_suite(self, name):
        return self.succeeds(["tests/support/sandbox", self.build_folder / "tests" / "unit-tests",
                              f"--gtest_filter={name}.*:*/{name}.*:{name}/*"], self.unit_seconds)

    def passes(self, kind, seconds):
        # Most tests wait for something most of the time.
        return self.succeeds(["ctest", "--test-dir", self.build_folder, "--stop-on-failure",
                              "--no-tests=error", "--parallel", str(2 * os.cpu_count()),
                              "--tests-regex", rf"\.{kind}\.", "--exclude-regex", self.LEFT_OUT],
                             seconds)

    def passes_unit(self):
        return self.passes("unit", self.unit_seconds)

    def passes_bus(self):
        return self.passes("bus", self.bus_seconds)

    def prepare(self):
        listed = subprocess.run(
            ["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
            cwd=ROOT, check=True, stdout=subprocess.PIPE, text=True).stdout
        names = {name for name in listed.split("\0") if (ROOT / name).is_file()}
        for name in names:
            copied = self.folder / name
            # What has not changed keeps its time, and is not built again.
            if not (copied.exists() and filecmp.cmp(ROOT / name, copied, shallow=False)):
                copied.parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(ROOT / name, copied)
        for copied in self.folder.glob("*/**/*"):
            name = copied.relative_to(self.folder)
            if name.parts[0] != "build" and copied.is_file() and str(name) not in names:
                copied.unlink()
        subprocess.run(
            ["cmake", "-S", self.folder, "-B", self.build_folder, "-G", "Ninja",
             "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS_DEBUG=-O0",
             "-DCMAKE_EXE_LINKER_FLAGS=-Wl,--strip-debug",
             f"-DCMAKE_PROJECT_INCLUDE={self.folder}/cmake/ForDevelopers.cmake"],
            check=True, stdout=subprocess.DEVNULL)
        if not self.build("unit-tests", "bus-tests"):
            sys.exit("mutate: the sources do not build without any change")

    def measure(self):
        self.unit_seconds = self.limit_of(self.passes_unit)
        self.bus_seconds = self.limit_of(self.passes_bus)

    @staticmethod
    def limit_of(passes):
        start = time.monotonic()
        if not passes():
            sys.exit("mutate: tests fail without any change; see ./dev test")
        # The other copies use the machine, too.
        return 60 + 3 * (time.monotonic() - start)

    def verdict_on(self, mutant):
        """What notices a change; None where nothing does; "compiler" where it does not compile."""
        path, index, changed = mutant
        lines = (ROOT / path).read_text().splitlines(keepends=True)
        (self.folder / path).write_text("".join([*lines[:index], changed + "\n", *lines[index + 1:]]))
        try:
            if not self.build("unit-tests"):
                return "compiler"
            if has_own_suite(path) and not self.passes_suite(f"{path.stem}Test"):
                return "its own suite"
            if not self.passes_unit():
                return "another unit test"
            return None if self.build("bus-tests") and self.passes_bus() else "a test on the bus"
        finally:
            shutil.copy(ROOT / path, self.folder / path)


def verdicts_on(mutants, copies):
    """Each mutant and the verdict on it, in their order."""
    idle = queue.Queue()
    for copy in copies:
        idle.put(copy)

    def try_one(mutant):
        copy = idle.get()
        try:
            return mutant, copy.verdict_on(mutant)
        finally:
            idle.put(copy)

    pool = ThreadPoolExecutor(len(copies))
    try:
        yield from pool.map(try_one, mutants)
    finally:
        pool.shutdown(cancel_futures=True)


def main():
    count = int(sys.argv[1]) if len(sys.argv) > 1 else 200
    seed = int(sys.argv[2]) if len(sys.argv) > 2 else 1
    mutants = list(all_mutants())
    random.Random(seed).shuffle(mutants)
    copies = [Copy(number) for number in range(1, os.cpu_count() + 1)]
    for copy in copies:
        copy.prepare()
        copy.measure()
    tried = 0
    survivors = []
    verdicts = verdicts_on(mutants, copies)
    for (path, index, changed), verdict in verdicts:
        if verdict == "compiler":
            continue
        tried += 1
        old = (ROOT / path).read_text().splitlines()[index].strip()
        text = f"{path}:{index + 1}\n    - {old}\n    + {changed.strip()}"
        print(f"[{tried}/{count}] {verdict or 'NOTHING'} notices {text}", flush=True)
        if verdict is None:
            survivors.append(text)
        if tried == count:
            break
    verdicts.close()
    print("\nNo test notices:" if survivors else "\nTests notice every change.", *survivors, sep="\n")
    print(f"mutate: of {len(mutants)} places {tried} were changed; tests notice "
          f"{tried - len(survivors)}, {100 * (tried - len(survivors)) / max(tried, 1):.1f} % "
          f"(the goal is {GOAL} %)")


if __name__ == "__main__":
    main()
