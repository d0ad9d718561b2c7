#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Holds the schema of map files, the maps of tests/maps, the service and its check against each other.

Usage: schema_test.py [IOMAPPINGD]

Without the path of the service's program only the schema is tried. The service runs on the bus of
DBUS_SYSTEM_BUS_ADDRESS, or on a bus of its own where that is not set.
"""

import contextlib
import json
import os
import pathlib
import select
import subprocess
import sys
import tempfile
import unittest

from jsonschema import Draft202012Validator

ROOT = pathlib.Path(__file__).resolve().parents[3]
MAPS = ROOT / "tests" / "maps"
SERVICE = "org.mirel.IoMapping"
SECONDS = 10


def no_json(constant):
    raise ValueError(f"{constant} is no JSON")


def read_json(path):
    """What the file holds. Raises ValueError where that is not JSON."""
    return json.loads(path.read_bytes().decode("utf-8"), parse_constant=no_json)


def maps_in(directory):
    maps = sorted(directory.glob("*.json"))
    assert maps, f"there are no maps in {directory}"
    return maps


GOOD_MAPS = maps_in(MAPS / "good") + maps_in(ROOT / "data" / "maps")
BAD_MAPS = maps_in(MAPS / "bad")
TOLERATED_MAPS = maps_in(MAPS / "tolerated")
EXPECTED = read_json(MAPS / "expected.json")


class MapTest(unittest.TestCase):
    def for_each(self, maps, check):
        for path in maps:
            with self.subTest(map=path.name):
                check(path)


class Corpus(MapTest):
    def test_every_map_has_its_expectation_and_every_expectation_its_map(self):
        for kind, maps in (("bad", BAD_MAPS), ("tolerated", TOLERATED_MAPS)):
            self.assertEqual({path.name for path in maps}, EXPECTED[kind].keys())

    def test_what_a_schema_cannot_tell_has_a_reason(self):
        for name, expected in EXPECTED["bad"].items():
            with self.subTest(map=name):
                self.assertIn(expected["schema"], ("refuses", "cannot tell", "not JSON"))
                self.assertEqual(expected["schema"] == "cannot tell", "why" in expected)


class Schema(MapTest):
    @classmethod
    def setUpClass(cls):
        cls.schema = read_json(ROOT / "data" / "io-mapping.schema.json")
        cls.validator = Draft202012Validator(cls.schema)

    def assert_accepts(self, path):
        errors = self.validator.iter_errors(read_json(path))
        self.assertEqual([f"{error.json_path}: {error.message}" for error in errors], [])

    def assert_refuses(self, path):
        self.assertFalse(self.validator.is_valid(read_json(path)), "the schema accepts it")

    def assert_keeps_to_the_verdict(self, path):
        verdict = EXPECTED["bad"][path.name]["schema"]
        if verdict == "not JSON":
            self.assertRaises(ValueError, read_json, path)
        elif verdict == "refuses":
            self.assert_refuses(path)
        else:
            self.assert_accepts(path)

    def test_is_itself_valid(self):
        self.assertEqual(self.schema["$schema"], Draft202012Validator.META_SCHEMA["$id"])
        Draft202012Validator.check_schema(self.schema)

    def test_accepts_its_own_examples(self):
        for example in self.schema["examples"]:
            self.validator.validate(example)

    def test_accepts_every_good_map(self):
        self.for_each(GOOD_MAPS, self.assert_accepts)

    def test_refuses_every_bad_map_unless_it_cannot_tell(self):
        self.for_each(BAD_MAPS, self.assert_keeps_to_the_verdict)

    def test_refuses_what_the_service_merely_tolerates(self):
        self.for_each(TOLERATED_MAPS, self.assert_refuses)


class LabelsSchema(MapTest):
    """Of the files of labels. The programs that read labels are tried on the same files elsewhere."""

    BEYOND_A_SCHEMA = {"address-beyond-32-bits", "name-twice", "state-is-named-twice"}

    @classmethod
    def setUpClass(cls):
        cls.schema = read_json(ROOT / "data" / "labels.schema.json")
        cls.validator = Draft202012Validator(cls.schema)

    def assert_refuses(self, path):
        if path.stem == "not-json":
            self.assertRaises(ValueError, read_json, path)
        else:
            accepted = self.validator.is_valid(read_json(path))
            self.assertEqual(accepted, path.stem in self.BEYOND_A_SCHEMA)

    def test_is_itself_valid(self):
        Draft202012Validator.check_schema(self.schema)

    def test_accepts_its_own_examples_and_every_good_file(self):
        for example in self.schema["examples"]:
            self.validator.validate(example)
        good = maps_in(ROOT / "tests" / "labels" / "good") + maps_in(ROOT / "data" / "labels")
        self.for_each(good, lambda path: self.validator.validate(read_json(path)))

    def test_refuses_every_bad_file_unless_it_cannot_tell(self):
        self.for_each(maps_in(ROOT / "tests" / "labels" / "bad"), self.assert_refuses)


def wait_for_either(*processes):
    """Waits until one of the processes has ended."""
    with contextlib.ExitStack() as stack:
        ends = [stack.enter_context(open(os.pidfd_open(p.pid), "rb")) for p in processes]
        select.select(ends, [], [], SECONDS + 1)


def expected_lines(path):
    """The texts that the service prints for a bad map, a line each."""
    expected = EXPECTED["bad"][path.name]
    *reason, fatal = [text.replace("{map}", str(path)) for text in expected["prints"]]
    place = f", {expected['place']}" if "place" in expected else ""
    return [*reason, f"the fault is in map file '{path}'{place}", fatal]


class Service(MapTest):
    program = None

    def test_serves_every_good_map_until_it_is_told_to_end(self):
        self.for_each(GOOD_MAPS, self.assert_serves)

    def test_serves_maps_that_only_the_schema_refuses(self):
        self.for_each(TOLERATED_MAPS, self.assert_serves)

    def test_ends_with_status_1_on_every_bad_map_and_says_why_and_where(self):
        self.for_each(BAD_MAPS, self.assert_refuses)

    def assert_serves(self, path):
        wait = ["gdbus", "wait", "--system", "--timeout", str(SECONDS), SERVICE]
        serve = [self.program, "--map", path]
        with subprocess.Popen(wait) as name, subprocess.Popen(
            serve, stderr=subprocess.PIPE
        ) as service:
            wait_for_either(service, name)
            served = service.poll() is None and name.poll() == 0
            service.terminate()
            name.terminate()
            try:
                _, printed = service.communicate(timeout=SECONDS)
            finally:
                service.kill()
        self.assertTrue(served, printed.decode(errors="replace"))
        self.assertEqual(service.returncode, 0)

    def assert_refuses(self, path):
        service = subprocess.run(
            [self.program, "--map", path], stderr=subprocess.PIPE, timeout=SECONDS, check=False
        )
        printed = service.stderr.decode(errors="replace")
        self.assertEqual(service.returncode, 1, printed)
        lines = iter(printed.splitlines())
        for text in expected_lines(path):
            self.assertTrue(any(text in line for line in lines), f"no '{text}' in\n{printed}")


class Check(MapTest):
    """The check says of every map what the service says."""

    program = None

    def findings(self, path, status):
        """What --check prints, as JSON. There is no bus."""
        check = subprocess.run(
            [self.program, "--check", "--json", "--map", path],
            env={**os.environ, "DBUS_SYSTEM_BUS_ADDRESS": "unix:path=/nowhere"},
            capture_output=True,
            timeout=SECONDS,
            check=False,
        )
        self.assertEqual(check.stderr, b"")
        self.assertEqual(check.returncode, status, check.stdout)
        return json.loads(check.stdout)

    def test_finds_no_fault_in_a_map_that_the_service_serves(self):
        self.for_each(GOOD_MAPS + TOLERATED_MAPS, self.assert_without_faults)

    def test_finds_the_fault_of_a_map_that_the_service_refuses(self):
        self.for_each(BAD_MAPS, self.assert_finds_the_fault)

    def assert_without_faults(self, path):
        for finding in self.findings(path, 0):
            self.assertEqual(finding["severity"], "warning", finding)

    def assert_finds_the_fault(self, path):
        findings = self.findings(path, 1)
        expected = EXPECTED["bad"][path.name]
        first = next(f for f in findings if f["severity"] == "error")
        self.assertIn(expected["prints"][0].replace("{map}", str(path)), first["message"])
        if "place" in expected:
            self.assertTrue(
                expected["place"].startswith(f"field io_mapping[{first['field']}], "), first
            )
        else:
            self.assertIsNone(first["field"])
        lines = path.read_bytes().decode(errors="replace").split("\n")
        for finding in findings:
            self.assertTrue(finding["remedy"], finding)
            self.assertLessEqual(finding["column"], len(lines[finding["line"] - 1]) + 1, finding)


@contextlib.contextmanager
def system_bus():
    """The bus that the environment names, or else one of our own, which it names then."""
    if "DBUS_SYSTEM_BUS_ADDRESS" in os.environ:
        yield
        return
    with tempfile.TemporaryDirectory() as directory:
        command = [
            "dbus-daemon",
            f"--config-file={ROOT}/tests/support/private-bus.conf",
            f"--address=unix:path={directory}/bus",
            "--nofork",
            "--nopidfile",
            "--print-address=1",
        ]
        with subprocess.Popen(command, stdout=subprocess.PIPE, text=True) as bus:
            address = bus.stdout.readline().strip()
            if not address:
                sys.exit("schema_test.py: dbus-daemon did not start")
            os.environ["DBUS_SYSTEM_BUS_ADDRESS"] = address
            yield
            bus.terminate()


def main(arguments):
    if len(arguments) > 1:
        sys.exit(__doc__)
    cases = [Corpus, Schema, LabelsSchema]
    if arguments:
        Service.program = os.path.abspath(arguments[0])
        if not os.access(Service.program, os.X_OK):
            sys.exit(f"schema_test.py: there is no program '{Service.program}'; build iomappingd")
        Check.program = Service.program
        cases += [Service, Check]
    loader = unittest.defaultTestLoader
    suite = unittest.TestSuite(loader.loadTestsFromTestCase(case) for case in cases)
    with system_bus() if arguments else contextlib.nullcontext():
        result = unittest.TextTestRunner(verbosity=2).run(suite)
    return 0 if result.wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
