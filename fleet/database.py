# SPDX-License-Identifier: MIT
"""What becomes of the messages: a PostgreSQL server, and a table that is partitioned by time."""
import datetime
import os
import pathlib
import subprocess

import psycopg2
import psycopg2.extras

from processes import Failure, free_ports, wait_until

PATIENCE = 60
# The server refuses to run as root.
OWNER = "postgres"
HOURS = 3


class Database:
    def __init__(self, processes):
        self.port, = free_ports(1)
        programs = sorted(pathlib.Path("/usr/lib/postgresql").glob("*/bin"))[-1]
        directory = processes.directory / "postgresql"
        directory.mkdir()
        as_owner = []
        if os.geteuid() == 0:
            subprocess.run(["chown", OWNER, directory], check=True)
            processes.directory.chmod(0o711)
            as_owner = ["setpriv", f"--reuid={OWNER}", f"--regid={OWNER}", "--clear-groups", "--"]
        done = subprocess.run([*as_owner, programs / "initdb", "--pgdata", directory / "data", "--auth=trust",
                               "--username=fleet", "--no-sync", "--encoding=UTF8", "--locale=C"],
                              capture_output=True, text=True, check=False, cwd="/")
        if done.returncode != 0:
            raise Failure(f"initdb: {done.stderr}")
        # A program that changes its user is no longer bound to the end of who has started it.
        server = processes.start(
            [*as_owner, "setpriv", "--pdeathsig", "KILL", "--", programs / "postgres", "-D",
             directory / "data", "-p", self.port, "-c", "listen_addresses=127.0.0.1", "-c",
             "unix_socket_directories="], "postgresql.log")
        wait_until(lambda: server.poll() is not None or self._answers(), PATIENCE, "postgresql")
        if server.poll() is not None:
            raise Failure(f"postgresql: {processes.log('postgresql.log')}")
        self._make_tables()

    def _answers(self):
        try:
            connect(self.port).close()
        except psycopg2.OperationalError:
            return False
        return True

    def _make_tables(self):
        start = datetime.datetime.now(datetime.timezone.utc).replace(minute=0, second=0, microsecond=0)
        with connect(self.port) as connection, connection.cursor() as cursor:
            # The key has what makes a message one, so that a message stored twice is there once.
            cursor.execute("""
                CREATE TABLE messages (device text, session text, sequence bigint, time timestamptz,
                    changes jsonb, PRIMARY KEY (device, session, sequence, time)) PARTITION BY RANGE (time);
                CREATE TABLE other_messages PARTITION OF messages DEFAULT;
                CREATE TABLE consumers (name text PRIMARY KEY, delivered bigint, stored bigint);
                CREATE TABLE acknowledged (device text, session text, sequence bigint)""")
            for hour in range(-1, HOURS):
                begin = start + datetime.timedelta(hours=hour)
                cursor.execute(f"CREATE TABLE messages_{begin:%Y%m%d_%H} PARTITION OF messages "
                               "FOR VALUES FROM (%s) TO (%s)", (begin, begin + datetime.timedelta(hours=1)))

    def rows(self, query, arguments=None):
        with connect(self.port) as connection, connection.cursor() as cursor:
            cursor.execute(query, arguments)
            return cursor.fetchall()

    def value(self, query, arguments=None):
        return self.rows(query, arguments)[0][0]

    def add_acknowledged(self, entries):
        """entries -- device, session and sequence number of each message that a device knows is kept"""
        with connect(self.port) as connection, connection.cursor() as cursor:
            psycopg2.extras.execute_values(cursor, "INSERT INTO acknowledged VALUES %s", entries)


def connect(port):
    return psycopg2.connect(host="127.0.0.1", port=port, user="fleet", dbname="postgres")
