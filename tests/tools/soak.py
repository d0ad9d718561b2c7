#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""soak.py HOURS FUZZER...: runs the fuzzers and the long suites in turn until the hours are over, each
at least once, and prints one table of what they did. The status is 1 if any of them failed.

FUZZER is the command of a fuzz target behind its name, as one word: "map-file tests/...". The suites
are those of build/dev that CTest labels "soak". Their tests record the figures as properties."""
import json
import os
import re
import shlex
import subprocess
import sys
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
REPORTS = ROOT / "build" / "soak"
# In a turn a fuzzer gets this many seconds, or less: all fuzzers get half the time of a short soak.
LONGEST_FUZZ = 60
SHORTEST_FUZZ = 2
# A suite that has not ended by then hangs.
SUITE_SECONDS = 3600
# What tests record. Growth is the largest of all turns, everything else the sum.
FIGURES = ["faults", "told", "lost", "growth"]
HEAD = ["", "runs", "faults injected", "changes told", "lost", "growth (kB)", "result"]


class Row:
    """What one fuzzer or one suite has done in all turns."""

    def __init__(self, name):
        self.name = name
        self.runs = 0
        self.figures = {}
        self.failures = 0

    def add(self, figure, value):
        if figure == "growth":
            value = max(value, self.figures.get(figure, value))
        else:
            value += self.figures.get(figure, 0)
        self.figures[figure] = value

    def cells(self):
        figures = [f"{self.figures[figure]:.0f}" if figure in self.figures else "-" for figure in FIGURES]
        result = "FAILED" if self.failures or self.figures.get("lost") else "passed"
        return [self.name, str(self.runs), *figures, result]


def table(rows):
    lines = [HEAD, *(row.cells() for row in rows)]
    widths = [max(map(len, column)) for column in zip(*lines)]
    return "\n".join("  ".join(cell.ljust(width) if place == 0 else cell.rjust(width)
                               for place, (cell, width) in enumerate(zip(line, widths)))
                     for line in lines)


def take_report(row, report):
    """Adds what GoogleTest has written of a run of a suite. A run without one test is a failure."""
    tests = [test for suite in report["testsuites"] for test in suite["testsuite"]
             if test["status"] == "RUN"]
    row.runs += len(tests)
    row.failures += sum("failures" in test for test in tests) + (0 if tests else 1)
    for test in tests:
        for figure in FIGURES:
            if figure in test:
                row.add(figure, float(test[figure]))


def take_fuzzing(row, status, text):
    """Adds what a fuzzer has printed of a run."""
    units = re.search(r"^stat::number_of_executed_units: *(\d+)", text, re.MULTILINE)
    row.runs += int(units[1]) if units else 0
    row.failures += 0 if status == 0 and units else 1


def run_suite(row, test):
    """Runs a suite as CTest would, but for CTest's time limit: at full length a suite takes longer."""
    report = REPORTS / f"{row.name}.json"
    report.unlink(missing_ok=True)
    properties = {each["name"]: each["value"] for each in test["properties"]}
    settings = dict(setting.split("=", 1) for setting in properties["ENVIRONMENT"])
    try:
        status = subprocess.run(
            test["command"], cwd=properties["WORKING_DIRECTORY"], timeout=SUITE_SECONDS,
            env={**os.environ, **settings, "IO_MAPPING_SOAK": "1",
                 "GTEST_OUTPUT": f"json:{report}"}).returncode
    except subprocess.TimeoutExpired:
        print(f"soak: {row.name} has not ended after {SUITE_SECONDS} s", flush=True)
        status = 1
    failures = row.failures
    if report.exists():
        take_report(row, json.loads(report.read_text()))
    if status != 0 and row.failures == failures:
        row.failures += 1


def run_fuzzer(row, words, seconds):
    found = ROOT / "build" / "fuzz" / "found" / row.name
    found.mkdir(parents=True, exist_ok=True)
    done = subprocess.run(
        ["tests/support/sandbox", f"build/fuzz/tests/fuzz/fuzz-{row.name}", f"-max_total_time={seconds}",
         "-timeout=60", "-print_final_stats=1", f"-artifact_prefix={found}/", found, *words],
        cwd=ROOT, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, errors="replace")
    take_fuzzing(row, done.returncode, done.stdout)
    if done.returncode != 0:
        print(done.stdout, flush=True)


def suites():
    """The suites of the build that are to be run at full length."""
    listed = subprocess.run(["ctest", "--test-dir", "build/dev", "--show-only=json-v1", "-L", "^soak$"],
                            cwd=ROOT, check=True, stdout=subprocess.PIPE).stdout
    return {test["name"].split(".")[-1]: test for test in json.loads(listed)["tests"]}


def main():
    seconds = 3600 * float(sys.argv[1])
    fuzzers = {words[0]: words[1:] for words in map(shlex.split, sys.argv[2:])}
    share = int(min(LONGEST_FUZZ, max(SHORTEST_FUZZ, seconds / 2 / len(fuzzers))))
    tests = suites()
    rows = {name: Row(name) for name in [*fuzzers, *tests]}
    REPORTS.mkdir(parents=True, exist_ok=True)
    end = time.monotonic() + seconds
    turns = 0
    try:
        while turns == 0 or time.monotonic() < end:
            for name, row in rows.items():
                if turns > 0 and time.monotonic() >= end:
                    break
                print(f"soak: turn {turns + 1}, {name}", flush=True)
                if name in fuzzers:
                    run_fuzzer(row, fuzzers[name], share)
                else:
                    run_suite(row, tests[name])
            turns += 1
    finally:
        print(table(rows.values()))
    return 1 if any(row.cells()[-1] == "FAILED" for row in rows.values()) else 0


if __name__ == "__main__":
    sys.exit(main())
