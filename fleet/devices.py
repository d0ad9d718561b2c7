# SPDX-License-Identifier: MIT
"""The devices of a fleet, and the broker of the demonstration."""
import pathlib
import selectors
import subprocess
import time

from processes import Failure, listens, wait_until

HERE = pathlib.Path(__file__).resolve().parent
# Devices that start at the same time: the machine has few processors.
AT_ONCE = 4


def start_mosquitto(processes, port):
    """Starts the broker with what it takes to be reached on this machine, and waits for it."""
    config = processes.directory / "mosquitto.conf"
    config.write_text(f"user root\nlistener {port} 127.0.0.1\nallow_anonymous true\nlog_dest stderr\n"
                      "max_queued_messages 0\n")
    broker = processes.start(["mosquitto", "-c", config], "mosquitto.log")
    wait_until(lambda: broker.poll() is not None or listens(port), 10, "mosquitto")
    if broker.poll() is not None:
        raise Failure(f"mosquitto: {processes.log('mosquitto.log')}")
    return broker


class Devices:
    """Simulated devices with numbers from 1, each of processes of its own (see the script `device`).

    build -- the directory where the programs have been built"""

    def __init__(self, processes, port, build, patience):
        self.processes = processes
        self.port = port
        self.build = build
        self.patience = patience
        self.running = {}  # number -> process
        self.directories = {}  # number -> the device's own directory

    @staticmethod
    def name(number):
        return f"device-{number:02}"

    def start(self, numbers):
        """Starts devices and waits until their programs run."""
        numbers = list(numbers)
        for first in range(0, len(numbers), AT_ONCE):
            batch = numbers[first:first + AT_ONCE]
            for number in batch:
                self.running[number] = self.processes.start(
                    [HERE / "device", self.name(number), self.port, number, self.build],
                    f"{self.name(number)}.log", stdout=subprocess.PIPE)
            for number in batch:
                self._wait(number)

    def _wait(self, number):
        output = self.running[number].stdout
        with selectors.DefaultSelector() as selector:
            selector.register(output, selectors.EVENT_READ)
            line = output.readline() if selector.select(self.patience) else ""
        if not line:
            log = self.processes.log(f"{self.name(number)}.log")
            raise Failure(f"{self.name(number)} does not start: {log or 'it says nothing'}")
        self.directories[number] = pathlib.Path(line.strip())

    def cut_power(self, number):
        """Ends all programs of a device at once."""
        self.processes.kill(self.running.pop(number))

    def expect_relay(self, number, relay, value):
        """Waits until a relay of the simulated hardware has a value. Raises Failure if it does not."""
        start = time.monotonic()
        done = subprocess.run(
            [self.build / "iomap-sim", "expect", f"kr62/relays/{relay}", str(value), "--within",
             str(self.patience)], capture_output=True, text=True, check=False,
            env={"IOMAP_SIM_ROOT": str(self.directories[number] / "board")})
        if done.returncode != 0:
            raise Failure(f"relay {relay} of {self.name(number)} after {time.monotonic() - start:.1f} s: "
                          f"{done.stderr.strip()}")
