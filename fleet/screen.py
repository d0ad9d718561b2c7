# SPDX-License-Identifier: MIT
"""The view in a terminal: the table of the fleet, and a line for commands."""
import curses

import registry
from processes import Failure

HELP = "relay DEVICE on|off   kill DEVICE   start DEVICE   quit      (DEVICE is a number: relay 7 on)"
# The relay that the command `relay` switches.
RELAY = 1
# Milliseconds between two looks at the table.
ROUND = 250
# Seconds until an answer.
PATIENCE = 10


def execute(line, watcher, devices):
    """Carries a command out and returns what to tell; None ends the view. Raises Failure."""
    words = line.split()
    try:
        if words == ["quit"]:
            return None
        name, number = words[0], int(words[1])
        if name == "relay" and words[2:] in (["on"], ["off"]):
            watcher.write(_running(devices, number), RELAY, int(words[2] == "on"), PATIENCE)
            return f"relay {RELAY} of {devices.name(number)} is {words[2]}"
        if name == "kill" and len(words) == 2:
            _running(devices, number)
            devices.cut_power(number)
            return f"{devices.name(number)} was killed"
        if name == "start" and len(words) == 2 and number not in devices.running:
            if number not in devices.directories:
                raise Failure(f"there is no device {number}")
            devices.start([number])
            return f"{devices.name(number)} has started"
    except (IndexError, ValueError):
        pass
    raise Failure(f"not understood: {line}")


def _running(devices, number):
    if number not in devices.running:
        raise Failure(f"device {number} does not run")
    return devices.name(number)


def run(watcher, devices):
    """Shows the view until the command `quit`."""
    curses.wrapper(lambda window: _run(window, watcher, devices))


def _run(window, watcher, devices):
    window.timeout(ROUND)
    line, told = "", ""
    while told is not None:
        _draw(window, watcher.look(registry.table), told, line)
        key = window.getch()
        if key in (curses.KEY_ENTER, 10, 13):
            try:
                told = execute(line, watcher, devices) if line.strip() else ""
            except Failure as failure:
                told = str(failure)
            line = ""
        elif key in (curses.KEY_BACKSPACE, 8, 127):
            line = line[:-1]
        elif 32 <= key < 127:
            line += chr(key)


def _draw(window, lines, told, line):
    height, width = window.getmaxyx()
    window.erase()
    # The last line of the table has the sums, so a small terminal leaves devices out.
    shown = lines if len(lines) <= height - 4 else lines[:max(height - 5, 0)] + lines[-1:]
    for row, text in enumerate(shown):
        style = curses.A_REVERSE if "OFFLINE" in text else curses.A_BOLD if row == 0 else 0
        window.addnstr(row, 0, text, width - 1, style)
    for row, text in ((3, told), (2, HELP), (1, "> " + line)):
        if height >= row:
            window.addnstr(height - row, 0, text, width - 1)
    window.refresh()
