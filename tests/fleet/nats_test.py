#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""How the consumers of a fleet read the protocol of the cluster's nodes, from a node that is played."""
import json
import pathlib
import socket
import sys
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "fleet"))
from nats import Client  # noqa: E402


class NatsTest(unittest.TestCase):
    def setUp(self):
        listener = socket.create_server(("127.0.0.1", 0))
        self.client = Client(listener.getsockname()[1])
        self.node, _ = listener.accept()
        self.node.settimeout(60)
        listener.close()
        self.heard = self.node.makefile("rb")
        self.heard.readline()  # CONNECT
        self.inbox = self.heard.readline().split()[1].decode().removesuffix("*")
        self.addCleanup(self.node.close)
        self.addCleanup(self.heard.close)
        self.addCleanup(self.client.close)

    def answer(self, *parts):
        """Plays the node beside the client: answers with these bytes what it asks."""
        self.node.sendall(b"".join(parts))

    def message(self, subject, body, reply="", headers=b""):
        head = f" {len(headers)}" if headers else ""
        line = f"{'H' if headers else ''}MSG {subject} 1 {reply + ' ' if reply else ''}".rstrip()
        return f"{line}{head} {len(headers) + len(body)}\r\n".encode() + headers + body + b"\r\n"

    def test_a_request_gets_the_answer_of_its_own_inbox(self):
        self.answer(b"INFO {}\r\n", self.message(self.inbox + "7", b"{}"),
                    self.message(self.inbox + "1", b'{"ok":true}'))
        self.assertEqual(self.client.request("STREAM.INFO.x", a=1), {"ok": True})
        self.assertEqual(self.heard.readline(), f"PUB $JS.API.STREAM.INFO.x {self.inbox}1 8\r\n".encode())
        self.assertEqual(json.loads(self.heard.readline()), {"a": 1})

    def test_two_clients_have_inboxes_of_their_own(self):
        listener = socket.create_server(("127.0.0.1", 0))
        other = Client(listener.getsockname()[1])
        self.addCleanup(other.close)
        listener.close()
        self.assertNotEqual(other.inbox, self.client.inbox)

    def test_a_fetch_ends_with_the_status_that_there_are_no_more(self):
        self.answer(self.message("a.data", b"one", "$JS.ACK.1"),
                    self.message("a.data", b"two\r\n", "$JS.ACK.2", b"NATS/1.0\r\nX: y\r\n\r\n"),
                    self.message(self.inbox + "1", b"", headers=b"NATS/1.0 408 Request Timeout\r\n\r\n"))
        messages = self.client.fetch("place", 5, 1)
        self.assertEqual([message.body for message in messages], [b"one", b"two\r\n"])
        self.assertEqual([message.subject for message in messages], ["a.data", "a.data"])

    def test_a_fetch_ends_with_the_last_message_that_was_asked_for(self):
        self.answer(self.message("a.data", b"one", "$JS.ACK.1"), self.message("a.data", b"", "$JS.ACK.2"))
        self.assertEqual(len(self.client.fetch("place", 2, 1)), 2)

    def test_each_message_is_acknowledged(self):
        self.answer(self.message("a.data", b"one", "$JS.ACK.1"), self.message("a.data", b"", "$JS.ACK.2"))
        messages = self.client.fetch("place", 2, 1)
        for _ in range(2):
            self.heard.readline()  # the request
        self.client.acknowledge(messages)
        lines = [self.heard.readline() for _ in range(4)]
        self.assertEqual(lines, [b"PUB $JS.ACK.1 0\r\n", b"\r\n", b"PUB $JS.ACK.2 0\r\n", b"\r\n"])

    def test_a_sign_of_life_is_answered(self):
        self.answer(b"PING\r\n", self.message(self.inbox + "1", b"{}"))
        self.client.request("STREAM.INFO.x")
        for _ in range(2):
            self.heard.readline()  # the request
        self.assertEqual(self.heard.readline(), b"PONG\r\n")

    def test_a_refusal_and_a_lost_node_are_errors(self):
        self.answer(b"-ERR 'no'\r\n")
        with self.assertRaisesRegex(OSError, "no"):
            self.client.request("STREAM.INFO.x")
        self.node.shutdown(socket.SHUT_RDWR)
        with self.assertRaises(OSError):
            self.client.fetch("place", 1, 1)


if __name__ == "__main__":
    unittest.main()
