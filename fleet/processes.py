# SPDX-License-Identifier: MIT
"""Processes that do not outlive this one, and the times they may take."""
import contextlib
import os
import pathlib
import random
import shutil
import signal
import socket
import subprocess
import tempfile
import time


# Seconds that a program may take for its end.
END_LIMIT = 10


class Failure(Exception):
    """A message for the user."""


def wait_until(condition, seconds, what):
    """Looks again and again whether something has happened. For what cannot tell that it has.

    Raises Failure after so many seconds."""
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            raise Failure(f"{what}: not within {seconds} s")
        time.sleep(0.05)


def listens(port):
    """Whether somebody listens at this port of the loopback."""
    with contextlib.suppress(OSError), socket.create_connection(("127.0.0.1", port), 1):
        return True
    return False


def free_ports(count):
    """Ports of the loopback that nobody listens on, outside those that the kernel gives to clients."""
    with contextlib.ExitStack() as stack:
        ports = []
        for port in random.sample(range(20000, 32000), 1000):
            attempt = stack.enter_context(socket.socket())
            with contextlib.suppress(OSError):
                attempt.bind(("127.0.0.1", port))
                ports.append(port)
            if len(ports) == count:
                return ports
    raise Failure(f"there are no {count} free ports")


@contextlib.contextmanager
def signals_later():
    """Lets the signals that end this program wait. One amid the start of another program would leave a
    program that nobody knows of."""
    came = []
    handlers = {number: signal.signal(number, lambda number, _: came.append(number))
                for number in (signal.SIGINT, signal.SIGTERM)}
    try:
        yield
    finally:
        for number, handler in handlers.items():
            signal.signal(number, handler)
        for number in came:
            signal.raise_signal(number)


class Processes:
    """Programs in the background, each in a session of its own, and a directory for their files. At the
    end of the `with` block neither is left. start() is for the main thread: the kernel ends a program
    with the thread that has started it."""

    def __enter__(self):
        self.directory = pathlib.Path(tempfile.mkdtemp(prefix="fleet."))
        self.running = []
        return self

    def __exit__(self, *_):
        for process in self.running:
            with contextlib.suppress(ProcessLookupError):
                process.terminate()
        for process in list(self.running):
            with contextlib.suppress(subprocess.TimeoutExpired):
                process.wait(END_LIMIT)
            self.kill(process)
        shutil.rmtree(self.directory, ignore_errors=True)

    def start(self, command, log, stdout=None, **environment):
        """Starts a program; `log` names the file in the directory that takes what it prints."""
        with signals_later(), open(self.directory / log, "ab") as file:
            process = subprocess.Popen(
                ["setpriv", "--pdeathsig", "KILL", "--", *map(str, command)],
                stdin=subprocess.DEVNULL, stdout=stdout or file, stderr=file, text=True,
                start_new_session=True, env={**os.environ, "TMPDIR": str(self.directory), **environment})
            self.running.append(process)
        return process

    def kill(self, process):
        """Ends a program, and all of its session, at once."""
        with contextlib.suppress(ProcessLookupError):
            os.killpg(process.pid, signal.SIGKILL)
        process.wait()
        if process.stdout:
            process.stdout.close()
        self.running.remove(process)

    def log(self, name):
        """What a program has printed."""
        return (self.directory / name).read_text(errors="replace").strip()
