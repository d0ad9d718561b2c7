#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""coverage.py BUILD: prints which share of the product's lines and branches the tests have run in a
build that counts them, and writes BUILD/report/index.html, which shows every line. Branches are those
that the sources write: the edges that the compiler adds for exceptions do not count."""
import json
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
FOLDERS = ["src", "tesk", "daemon", "client", "program", "cli", "mqtt", "sim", "fleet", "include"]
# The folders whose coverage has a goal, with the goal for lines and for branches, in per cent.
GOALS = {"src": (98.0, 90.0)}


def read_counts(build):
    """Lets gcovr read the counts, write the pages, and print its summary of all files."""
    pages = build / "report" / "index.html"
    summary = build / "report" / "summary.json"
    pages.parent.mkdir(exist_ok=True)
    filters = [word for folder in FOLDERS for word in ("--filter", f"{ROOT}/{folder}/")]
    subprocess.run(
        ["gcovr", "--root", ROOT, *filters, "--exclude-throw-branches",
         "--exclude-unreachable-branches", "--json-summary", summary, "--html-details", pages, build],
        check=True)
    return json.loads(summary.read_text())["files"], pages


def folder_of(name):
    return name.split("/")[0]


def share(covered, total):
    return 100.0 * covered / total if total else 100.0


def sums(files):
    """By folder: lines covered, lines, branches covered, branches."""
    result = {folder: [0, 0, 0, 0] for folder in FOLDERS}
    for file in files:
        row = result[folder_of(file["filename"])]
        for place, key in enumerate(("line_covered", "line_total", "branch_covered", "branch_total")):
            row[place] += file[key]
    return result


def table(files):
    lines = [f"{'folder':<10}{'lines':>8}{'run':>9}{'goal':>7}{'branches':>11}{'run':>9}{'goal':>7}"]
    for folder, (lines_run, all_lines, branches_run, all_branches) in sums(files).items():
        goals = [f"{goal:.0f} %" for goal in GOALS[folder]] if folder in GOALS else ["", ""]
        lines.append(f"{folder:<10}{all_lines:>8}{share(lines_run, all_lines):>7.1f} %{goals[0]:>7}"
                     f"{all_branches:>11}{share(branches_run, all_branches):>7.1f} %{goals[1]:>7}")
    return "\n".join(lines)


def main():
    build = Path(sys.argv[1]).resolve()
    files, pages = read_counts(build)
    print(table(files))
    print("branches without the edges of exceptions (gcovr --exclude-throw-branches "
          "--exclude-unreachable-branches)")
    print(f"every line: {pages.relative_to(ROOT)}")


if __name__ == "__main__":
    main()
