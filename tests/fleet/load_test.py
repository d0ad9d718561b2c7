#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""load_test.py BUILD_DIR: measures a small fleet as ./dev fleet load does, and checks what can be
checked on any machine: that all messages arrive, and that the figures belong together."""
import json
import os
import pathlib
import subprocess
import sys
import tempfile

LOAD = pathlib.Path(__file__).resolve().parents[2] / "fleet/load"
CONNECTIONS, SECONDS, WARM_UP, PERIOD = 60, 2, 1, 500
SENT = CONNECTIONS * (SECONDS + WARM_UP) * 1000 // PERIOD
MEASURED = CONNECTIONS * SECONDS * 1000 // PERIOD


def load(*options):
    done = subprocess.run(
        [LOAD, "--connections", str(CONNECTIONS), "--seconds", str(SECONDS), "--warm-up", str(WARM_UP),
         "--period", str(PERIOD), *options, sys.argv[1]], capture_output=True, text=True, check=False)
    if done.returncode != 0:
        sys.exit(f"load_test: it ended with status {done.returncode}: {done.stderr}")
    return done.stdout


def expect(holds, text):
    if not holds:
        sys.exit(f"load_test: {text}")
    print(f"load_test: {text}: yes")


with tempfile.TemporaryDirectory() as directory:
    os.environ["TMPDIR"] = directory
    figures = json.loads(load("--json"))
    for end in ("sent", "acknowledged", "delivered"):
        expect(figures[end] == SENT, f"{SENT} messages are {end}")
    for key in ("lateness", "acknowledgment", "delivery"):
        latency = figures[key]
        expect(latency["count"] == MEASURED, f"{MEASURED} messages are measured for {key}")
        times = [latency[name] for name in ("p50", "p90", "p99", "p999", "max")]
        expect(0 < times[0] and times == sorted(times), f"the figures of {key} rise")
    expect(figures["acknowledgment"]["p50"] >= figures["lateness"]["p50"],
           "no message is acknowledged before it is sent")
    for who in ("broker", "generator"):
        expect(figures["end"][who]["resident_kb"] > figures["before"][who]["resident_kb"] // 2 > 0,
               f"the memory of the {who} is told")
    text = load()
    expect(f"{SENT} messages sent, {SENT} acknowledged, {SENT} delivered" in text,
           "the table tells what was sent")
    expect("100000 devices (arithmetic" in text, "arithmetic is marked as such")
    expect(not os.listdir(directory), "nothing is left")
