# SPDX-License-Identifier: MIT
"""A cluster of three nodes of nats-server on this machine, a balancer in front of them, and a client of
the protocol that the nodes have besides MQTT."""
import json
import secrets
import socket

from paho.mqtt import client as mqtt

from processes import Failure, free_ports, listens, wait_until

NODES = 3
PATIENCE = 120
# Where the nodes keep MQTT messages of quality of service 1.
STREAM = "$MQTT_msgs"
# What a topic becomes.
SUBJECT = "$MQTT.msgs."
# Seconds after which a node that says nothing is given up.
SILENCE = 5


class Message:
    def __init__(self, subject, reply, headers, body):
        self.subject = subject
        self.reply = reply
        self.headers = headers
        self.body = body


class Client:
    """A connection to a node. All methods raise OSError when the node is lost."""

    def __init__(self, port):
        self.socket = socket.create_connection(("127.0.0.1", port), SILENCE)
        self.input = self.socket.makefile("rb")
        self.requests = 0
        # All clients of the cluster share one space of subjects.
        self.inbox = f"_INBOX.{secrets.token_hex(8)}"
        self._send(b'CONNECT {"verbose":false,"headers":true,"no_responders":true}\r\n' +
                   f"SUB {self.inbox}.* 1\r\n".encode())

    def close(self):
        self.input.close()
        self.socket.close()

    def _send(self, data):
        self.socket.sendall(data)

    def _receive(self):
        """The next message; what the node says besides is answered or left."""
        while True:
            words = self.input.readline().decode().split()
            if not words or words[0] == "-ERR":
                raise OSError(" ".join(words) or "the node has closed the connection")
            if words[0] == "PING":
                self._send(b"PONG\r\n")
            elif words[0] in ("MSG", "HMSG"):
                return self._read_message(words)

    def _read_message(self, words):
        sizes = 2 if words[0] == "HMSG" else 1  # of the headers, if there are some, and of all
        head = int(words[-2]) if sizes == 2 else 0
        content = self.input.read(int(words[-1]))
        self.input.read(2)
        reply = words[3] if len(words) == 4 + sizes else None
        return Message(words[1], reply, content[:head], content[head:])

    def _ask(self, subject, body):
        self.requests += 1
        inbox = f"{self.inbox}.{self.requests}"
        self._send(f"PUB {subject} {inbox} {len(body)}\r\n{body}\r\n".encode())
        return inbox

    def request(self, subject, **arguments):
        """Asks JetStream, and returns its answer, which may be an error."""
        inbox = self._ask(f"$JS.API.{subject}", json.dumps(arguments) if arguments else "")
        message = self._receive()
        while message.subject != inbox:
            message = self._receive()
        return json.loads(message.body) if message.body else {"error": "nobody answers"}

    def fetch(self, consumer, count, seconds):
        """Up to so many messages, those that are there within so many seconds."""
        inbox = self._ask(f"$JS.API.CONSUMER.MSG.NEXT.{STREAM}.{consumer}",
                          json.dumps({"batch": count, "expires": int(seconds * 1e9)}))
        messages = []
        while len(messages) < count:
            message = self._receive()
            if message.reply and message.reply.startswith("$JS.ACK."):
                messages.append(message)
            elif message.subject == inbox:
                break  # a status: there are no more
        return messages

    def acknowledge(self, messages):
        self._send(b"".join(f"PUB {message.reply} 0\r\n\r\n".encode() for message in messages))


class Node:
    def __init__(self, number, ports):
        self.name = f"node{number}"
        self.client, self.route, self.mqtt = ports
        self.process = None


class Cluster:
    def __init__(self, processes):
        self.processes = processes
        ports = free_ports(3 * NODES)
        self.nodes = [Node(i + 1, ports[3 * i:3 * i + 3]) for i in range(NODES)]

    def start(self):
        """Starts all nodes and the balancer, whose port is returned: devices know one address."""
        routes = ", ".join(f'"nats://127.0.0.1:{node.route}"' for node in self.nodes)
        for node in self.nodes:
            config = self.processes.directory / f"{node.name}.conf"
            config.write_text(f"""server_name: {node.name}
listen: "127.0.0.1:{node.client}"
jetstream {{ store_dir: "{self.processes.directory}/{node.name}" }}
cluster {{ name: fleet, listen: "127.0.0.1:{node.route}", routes: [{routes}] }}
mqtt {{ listen: "127.0.0.1:{node.mqtt}" }}
""")
            node.process = self.processes.start(["nats-server", "-c", config], f"{node.name}.log")
        for node in self.nodes:
            wait_until(lambda node=node: node.process.poll() is not None or listens(node.mqtt), PATIENCE,
                       node.name)
            if node.process.poll() is not None:
                raise Failure(f"{node.name}: {self.processes.log(f'{node.name}.log')}")
        port = self._start_balancer()
        self._make_stream(port)
        return port

    def _start_balancer(self):
        port, = free_ports(1)
        config = self.processes.directory / "haproxy.cfg"
        servers = "\n".join(f"  server {node.name} 127.0.0.1:{node.mqtt} check inter 500ms fall 2 rise 2 "
                            "on-marked-down shutdown-sessions" for node in self.nodes)
        config.write_text(f"""defaults
  mode tcp
  timeout connect 2s
  timeout client 1h
  timeout server 1h
listen mqtt
  bind 127.0.0.1:{port}
  balance leastconn
  option redispatch
{servers}
""")
        balancer = self.processes.start(["haproxy", "-db", "-f", config], "haproxy.log")
        wait_until(lambda: balancer.poll() is not None or listens(port), PATIENCE, "haproxy")
        if balancer.poll() is not None:
            raise Failure(f"haproxy: {self.processes.log('haproxy.log')}")
        return port

    def _make_stream(self, port):
        """The nodes make it for their first MQTT client."""
        client = mqtt.Client(client_id="first")
        client.connect_async("127.0.0.1", port)
        client.loop_start()
        wait_until(lambda: self._replicas() == NODES, PATIENCE, f"a stream on {NODES} nodes")
        client.disconnect()
        client.loop_stop()

    def _replicas(self):
        """How many nodes have all of the stream."""
        others = self.stream().get("cluster", {}).get("replicas", [])
        return 1 + sum(node["current"] for node in others)

    def ask(self, subject, **arguments):
        """The answer of a node that lives."""
        for node in self.nodes:
            if node.process.poll() is None:
                try:
                    client = Client(node.client)
                    try:
                        return client.request(subject, **arguments)
                    finally:
                        client.close()
                except OSError:
                    continue
        return {"error": "no node answers"}

    def stream(self):
        return self.ask(f"STREAM.INFO.{STREAM}")

    def add_consumer(self, name, subjects):
        """A place in the stream that the cluster keeps. Several processes may take messages from it."""
        answer = self.ask(
            f"CONSUMER.DURABLE.CREATE.{STREAM}.{name}", stream_name=STREAM,
            config={"durable_name": name, "deliver_policy": "all", "ack_policy": "explicit",
                    "ack_wait": 10 * 10**9, "max_ack_pending": 2000, "filter_subject": SUBJECT + subjects})
        if "error" in answer:
            raise Failure(f"the consumer {name}: {answer['error']}")

    def kill_leader(self):
        """SIGKILL to the node that leads the stream, the worst one to lose. Returns its name."""
        name = self.stream()["cluster"]["leader"]
        node = next(node for node in self.nodes if node.name == name)
        self.processes.kill(node.process)
        return name
