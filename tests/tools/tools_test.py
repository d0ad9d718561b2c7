#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Tests of the programs that try the tests themselves."""
import unittest

import coverage
import mutate
import soak


def report(*tests):
    return {"testsuites": [{"testsuite": [{"status": "RUN", **test} for test in tests]}]}


class SoakTest(unittest.TestCase):
    def setUp(self):
        self.row = soak.Row("StormTest")

    def test_figures_are_added_and_the_largest_growth_counts(self):
        soak.take_report(self.row, report({"told": "20", "growth": "12.5"}, {"told": "3", "faults": "2"}))
        soak.take_report(self.row, report({"growth": "-4"}))
        self.assertEqual(self.row.cells(), ["StormTest", "3", "2", "23", "-", "12", "passed"])

    def test_a_failed_test_fails_the_row(self):
        soak.take_report(self.row, report({}, {"failures": [{}]}))
        self.assertEqual(self.row.cells()[-1], "FAILED")

    def test_a_lost_value_fails_the_row(self):
        soak.take_report(self.row, report({"lost": "1"}))
        self.assertEqual(self.row.cells()[-1], "FAILED")

    def test_a_run_without_tests_fails_the_row(self):
        soak.take_report(self.row, report())
        self.assertEqual(self.row.cells()[-1], "FAILED")

    def test_a_fuzzer_tells_its_rounds(self):
        soak.take_fuzzing(self.row, 0, "#2 DONE\nstat::number_of_executed_units: 1234\n")
        self.assertEqual(self.row.cells(), ["StormTest", "1234", "-", "-", "-", "-", "passed"])

    def test_a_fuzzer_that_ends_otherwise_fails_the_row(self):
        for status, text in (77, "stat::number_of_executed_units: 5\n"), (0, "usage"):
            row = soak.Row("labels")
            soak.take_fuzzing(row, status, text)
            self.assertEqual(row.cells()[-1], "FAILED")

    def test_columns_stand_below_their_heads(self):
        lines = soak.table([self.row, soak.Row("map-file")]).splitlines()
        self.assertEqual(len({len(line) for line in lines}), 1)


class MutateTest(unittest.TestCase):
    def expect(self, line, *changed):
        self.assertEqual(sorted(mutate.changes_of(line)), sorted(changed))

    def test_conditions_are_changed(self):
        self.expect("    return a == b && c;", "    return a != b && c;", "    return a == b || c;")
        self.expect("    if (isOpen()) {", "    if (!isOpen()) {")
        self.expect("    if (!isOpen()) {", "    if (isOpen()) {")

    def test_constants_are_changed(self):
        self.expect("    return 9;", "    return 10;")
        self.expect("    bool found{false};", "    bool found{true};")

    def test_calls_are_left_out(self):
        self.expect("    files.clear();", "    ;")

    def test_texts_comments_and_names_stay(self):
        self.expect('constexpr const char* A1 = "1 == 2";  // 3 && true')
        self.expect("    // if (isOpen()) {")


class CoverageTest(unittest.TestCase):
    def test_files_are_summed_by_folder_beside_the_goals(self):
        counts = {"line_covered": 9, "line_total": 10, "branch_covered": 1, "branch_total": 4}
        rows = coverage.table([{"filename": "src/A.cpp", **counts},
                               {"filename": "src/support/B.cpp", **counts},
                               {"filename": "daemon/C.cpp", **counts}]).splitlines()
        self.assertEqual(rows[1].split(), "src 20 90.0 % 98 % 8 25.0 % 90 %".split())
        self.assertIn("daemon 10 90.0 % 4 25.0 %".split(), [row.split() for row in rows])


if __name__ == "__main__":
    unittest.main()
