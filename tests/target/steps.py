#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""steps.py: reads what ctest --show-only=json-v1 prints for build/armhf, and prints the script that
runs the same tests in the machine of ./dev target."""
import json
import re
import shlex
import sys

# What does not run in the machine, and why.
LEFT_OUT = {
    r"armhf\.bus\.(EnduranceTest|LimitsTest|StormTest)": "bound how fast a service is that is not emulated",
    r"armhf\.valgrind\..*": "counts references, which are the same there, fifty times slower",
    r"armhf\.bus\.IomapMqtt.*": "needs a broker, which the machine has not",
    r"armhf\.fleet\..*": "needs Python and a broker, which the machine has not",
    r"armhf\.bus\.maps": "needs Python with jsonschema; its maps run through bus.* and fuzz.*",
    r"armhf\.(completion|demo\..*|examples|installed)": "for users of a whole Debian, not of the machine",
    r"armhf\.(documents|reference|tools)": "do not depend on the machine",
}

# How many times as long as on the host a test may take.
SLOWER = 4


def main():
    for test in json.load(sys.stdin)["tests"]:
        reason = next((text for name, text in LEFT_OUT.items() if re.fullmatch(name, test["name"])), None)
        if reason:
            print(shlex.join(["echo", f"     {test['name']} is left out: {reason}"]))
            continue
        properties = {entry["name"]: entry["value"] for entry in test["properties"]}
        command = [re.sub(".*/tests/support/sandbox", "tests/target/guest/sandbox", word)
                   for word in test["command"]]
        limit = SLOWER * int(properties["TIMEOUT"])
        alone = properties.get("RUN_SERIAL") or properties.get("RESOURCE_LOCK")
        step = "step_alone" if alone else "step"
        print(shlex.join([step, test["name"], str(limit), "env", *properties["ENVIRONMENT"], *command]))


main()
