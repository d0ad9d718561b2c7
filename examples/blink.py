#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Switches a relay on and off several times. Meanwhile prints every change of an input."""

import argparse
import sys

from gi.repository import Gio, GLib  # in the package python3-gi


def blink(args):
    def show(value):
        print(f"input {args.input}: {value}", flush=True)

    def on_signal(_proxy, _sender, signal, arguments):
        if signal == "OnValueChange" and arguments[0] == args.input:
            show(arguments[1])

    registers = Gio.DBusProxy.new_for_bus_sync(
        Gio.BusType.SYSTEM, Gio.DBusProxyFlags.NONE, None,
        "org.mirel.IoMapping", "/org/mirel/register", "org.mirel.Register", None)
    registers.connect("g-signal", on_signal)  # before the first read: no change is lost in between
    show(registers.Read("(i)", args.input))

    loop = GLib.MainLoop()
    for i in range(1, args.count + 1):
        registers.Write("(ii)", args.relay, i % 2)
        GLib.timeout_add(int(args.seconds * 1000), loop.quit)
        loop.run()  # calls on_signal() for each change


parser = argparse.ArgumentParser(description=__doc__)
parser.add_argument("relay", type=int, help="address of the relay")
parser.add_argument("input", type=int, help="address of the input")
parser.add_argument("count", type=int, nargs="?", default=10, help="number of writes to the relay")
parser.add_argument("seconds", type=float, nargs="?", default=0.5, help="seconds between two writes")
try:
    blink(parser.parse_args())
except GLib.Error as error:
    sys.exit(f"blink.py: {error.message}")
