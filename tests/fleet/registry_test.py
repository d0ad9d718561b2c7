#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""What the view of a fleet makes of the messages of devices."""
import json
import pathlib
import sys
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "fleet"))
from registry import Registry, Sequence, table  # noqa: E402


def batch(sequence, changes=(), session="s1"):
    return json.dumps({"session": session, "sequence": sequence, "changes": list(changes)}).encode()


class SequenceTest(unittest.TestCase):
    @staticmethod
    def of(*numbers):
        sequence = Sequence()
        for number in numbers:
            sequence.add(number)
        return sequence

    def test_numbers_in_order_miss_nothing(self):
        self.assertEqual(self.of(1, 2, 3).missing, set())

    def test_numbers_before_the_first_are_neither_missing_nor_duplicates(self):
        sequence = self.of(7, 8, 3)
        self.assertEqual((sequence.missing, sequence.duplicates), (set(), 0))

    def test_a_gap_is_missing(self):
        self.assertEqual(self.of(1, 5).missing, {2, 3, 4})

    def test_a_number_that_comes_late_is_no_longer_missing_and_no_duplicate(self):
        sequence = self.of(1, 4, 2)
        self.assertEqual((sequence.missing, sequence.duplicates), ({3}, 0))

    def test_a_number_that_comes_twice_is_a_duplicate(self):
        self.assertEqual(self.of(1, 2, 2, 1).duplicates, 2)


class RegistryTest(unittest.TestCase):
    def setUp(self):
        self.registry = Registry()

    def device(self):
        return self.registry.devices["d1"]

    def test_a_device_is_online_until_its_status_says_offline(self):
        self.registry.take("iomap/d1/status", b"online")
        self.assertIs(self.device().online, True)
        self.registry.take("iomap/d1/status", b"offline")
        self.assertIs(self.device().online, False)

    def test_the_newest_value_of_a_register_is_kept(self):
        self.registry.take("iomap/d1/data", batch(1, [[1, 0, 0], [2, None, 0, "no sensor"]]))
        self.registry.take("iomap/d1/data", batch(2, [[1, 1, 0]]))
        self.assertEqual(self.device().values, {1: 1, 2: None})

    def test_a_new_session_counts_anew(self):
        self.registry.take("iomap/d1/data", batch(8))
        self.registry.take("iomap/d1/data", batch(1, session="s2"))
        self.assertEqual(self.device().missing(), 0)

    def test_a_replayed_batch_fills_the_gap_that_it_left(self):
        for number in (1, 4):
            self.registry.take("iomap/d1/data", batch(number))
        self.registry.take("iomap/d1/replay", batch(2))
        self.assertEqual(self.device().missing(), 1)

    def test_messages_of_others_are_no_devices(self):
        for topic in ("iomap/d1/r/door", "other/d1/status", "iomap/d1/set/1", "iomap"):
            self.registry.take(topic, b"1")
        self.assertEqual(self.registry.devices, {})

    def test_the_table_has_a_line_for_each_device_and_the_sums(self):
        self.registry.take("iomap/d2/status", b"offline")
        self.registry.take("iomap/d1/status", b"online")
        self.registry.take("iomap/d1/data", batch(1, [[2, 1, 0], [61, 12001, 0]]))
        lines = table(self.registry)
        self.assertEqual(len(lines), 4)
        self.assertRegex(lines[1], r"^d1 +online +0 +\?#\?\? +\?{8} +12\.0 +\? +1 +0 *$")
        self.assertRegex(lines[2], r"^d2 +OFFLINE ")
        self.assertEqual(lines[3], "1 of 2 devices online, 1 messages, 0 missing")


if __name__ == "__main__":
    unittest.main()
