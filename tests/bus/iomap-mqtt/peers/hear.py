#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""hear.py PORT TOPIC: says "subscribed", prints the payload of the first message of the topic, and ends."""
import sys

import paho.mqtt.client as mqtt


def on_connect(client, _data, _flags, _code):
    client.subscribe(sys.argv[2], qos=1)


def on_subscribe(_client, _data, _id, _granted):
    print("subscribed", flush=True)


def on_message(client, _data, message):
    print(message.payload.decode(), flush=True)
    client.disconnect()


client = mqtt.Client()
client.on_connect = on_connect
client.on_subscribe = on_subscribe
client.on_message = on_message
client.connect("127.0.0.1", int(sys.argv[1]))
client.loop_forever()
