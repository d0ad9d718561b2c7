# SPDX-License-Identifier: MIT
"""What the messages of a fleet tell about its devices."""
import json


class Sequence:
    """Which numbers of a session came. The first one that comes is where counting begins."""

    def __init__(self):
        self.first = None
        self.last = None
        self.missing = set()
        self.duplicates = 0

    def add(self, number):
        if self.first is None:
            self.first = self.last = number
        elif number > self.last:
            self.missing.update(range(self.last + 1, number))
            self.last = number
        elif number in self.missing:
            self.missing.remove(number)
        elif number >= self.first:
            self.duplicates += 1


class Device:
    def __init__(self):
        self.online = None  # None: nothing is known yet
        self.registers = 0
        self.messages = 0
        self.values = {}  # by address; None: the service does not know the value
        self.sessions = {}
        self.acks = {}  # by token

    def missing(self):
        return sum(len(sequence.missing) for sequence in self.sessions.values())


class Registry:
    """All devices, by name."""

    def __init__(self, prefix="iomap"):
        self.prefix = prefix
        self.devices = {}

    def take(self, topic, payload):
        """Takes a message. What is no message of a device changes nothing."""
        parts = topic.split("/")
        if len(parts) != 3 or parts[0] != self.prefix:
            return
        handler = {"status": self._status, "info": self._info, "data": self._data,
                   "replay": self._data, "ack": self._ack}.get(parts[2])
        if handler:
            handler(self.devices.setdefault(parts[1], Device()), payload)

    @staticmethod
    def _status(device, payload):
        device.online = payload == b"online"

    @staticmethod
    def _info(device, payload):
        device.registers = json.loads(payload)["registers"]

    @staticmethod
    def _data(device, payload):
        batch = json.loads(payload)
        device.messages += 1
        device.sessions.setdefault(batch["session"], Sequence()).add(batch["sequence"])
        for change in batch["changes"]:
            device.values[change[0]] = change[1]

    @staticmethod
    def _ack(device, payload):
        answer = json.loads(payload)
        device.acks[answer.get("token")] = answer


# The columns of the view: heading, width, and the text of a device.
COLUMNS = (
    ("device", 10, lambda name, device: name),
    ("state", 8, lambda name, device: {True: "online", False: "OFFLINE", None: "?"}[device.online]),
    ("registers", 9, lambda name, device: str(device.registers)),
    ("relays", 6, lambda name, device: "".join(_lamp(device.values.get(n)) for n in range(1, 5))),
    ("inputs", 8, lambda name, device: "".join(_lamp(device.values.get(n)) for n in range(21, 29))),
    ("supply V", 8, lambda name, device: _scaled(device.values.get(61), 1000)),
    ("cpu C", 6, lambda name, device: _scaled(device.values.get(100), 1000)),
    ("messages", 8, lambda name, device: str(device.messages)),
    ("missing", 7, lambda name, device: str(device.missing())),
)


def _lamp(value):
    return "?" if value is None else "#" if value else "."


def _scaled(value, divisor):
    return "?" if value is None else f"{value / divisor:.1f}"


def table(registry):
    """The view: one line for each device, under a heading, and the sums."""
    lines = ["  ".join(heading.ljust(width) for heading, width, _ in COLUMNS)]
    for name, device in sorted(registry.devices.items()):
        lines.append("  ".join(text(name, device).ljust(width) for _, width, text in COLUMNS))
    devices = registry.devices.values()
    lines.append(f"{sum(device.online is True for device in devices)} of {len(devices)} devices online, "
                 f"{sum(device.messages for device in devices)} messages, "
                 f"{sum(device.missing() for device in devices)} missing")
    return lines
