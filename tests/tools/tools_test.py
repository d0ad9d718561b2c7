#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Tests of the programs that try the tests themselves."""
import unittest

import coverage


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
