# SPDX-License-Identifier: MIT
"""A client of the broker that hears all devices and may write their registers."""
import json
import threading

from paho.mqtt import client as mqtt

from processes import Failure
from registry import Device, Registry


class Watcher:
    """Keeps a Registry from what it hears. All methods are for any thread."""

    def __init__(self, port):
        self.registry = Registry()
        self.changed = threading.Condition()
        self.tokens = 0
        self.client = mqtt.Client(client_id="fleet-view")
        self.client.on_connect = lambda client, *_: client.subscribe("iomap/#", qos=1)
        self.client.on_message = self._on_message
        self.client.connect("127.0.0.1", port)
        self.client.loop_start()

    def _on_message(self, _client, _data, message):
        with self.changed:
            self.registry.take(message.topic, message.payload)
            self.changed.notify_all()

    def look(self, function):
        """What a function of the registry returns, while no message changes it."""
        with self.changed:
            return function(self.registry)

    def wait(self, condition, seconds, what):
        """Waits until a function of the registry is true. Raises Failure after so many seconds."""
        with self.changed:
            if not self.changed.wait_for(lambda: condition(self.registry), seconds):
                raise Failure(f"{what}: not within {seconds} s")

    def request(self, name, register, value):
        """Asks a device to write a register, and returns the token of the answer."""
        with self.changed:
            self.tokens += 1
            token = f"view-{self.tokens}"
        self.client.publish(f"iomap/{name}/set/{register}", json.dumps({"token": token, "value": value}),
                            qos=1)
        return token

    def write(self, name, register, value, seconds):
        """Writes a register of a device, and waits for its answer. Raises Failure with the reason."""
        token = self.request(name, register, value)
        with self.changed:
            acks = self.registry.devices.setdefault(name, Device()).acks
        self.wait(lambda _: token in acks, seconds, f"an answer of {name}")
        answer = self.look(lambda _: acks.pop(token))
        if not answer["ok"]:
            raise Failure(f"{name}: {answer['error']}")

    def close(self):
        self.client.disconnect()
        self.client.loop_stop()
