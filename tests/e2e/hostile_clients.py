#!/usr/bin/env python3
"""Attackers and a probe for kiv-server on loopback, shared by the hostile tests
(test_hostile_http.py) and the benchmark script (scripts/bench.sh). Standard library only.

Every attacking connection comes from its own loopback address (127.10.x.y; all of 127/8 is
loopback on Linux), so the server's per-address limits do not simply turn the flood away; the
probe comes from 127.0.0.1. Each flood runs in background threads until stopped.

As a program (for the benchmark):
  hostile_clients.py --port P --flood NAME [--probes 20] [--path /page] [--server-pid PID]
prints one line per probe, "probe MILLISECONDS STATUS", then "rss KIB KIB ..." for the
workers of the server process PID while the flood is on; --then COMMAND runs a shell command
(a load generator, say) after the probes, with the flood still on.
"""

import argparse
import base64
import http.client
import os
import resource
import socket
import subprocess
import sys
import threading
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "faults"))
import kivharness as kh  # noqa: E402  (the shared harness of the tests that run a server)

REQUEST_HEAD = b"GET / HTTP/1.1\r\nHost: hostile.test\r\n"


def raise_open_file_limit():
    """A thousand connections need more descriptors than a shell usually allows."""
    soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    if soft < hard:
        resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard))
    return resource.getrlimit(resource.RLIMIT_NOFILE)[0]


def attacker_address(index):
    return f"127.10.{index // 250}.{index % 250 + 1}"


def connect_from(address, port, timeout=10):
    connection = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
    connection.settimeout(timeout)
    try:
        connection.bind((address, 0))
        connection.connect(("127.0.0.1", port))
    except OSError:
        connection.close()
        raise
    return connection


class Flood:
    """Background attackers; start() returns once the flood is under way."""

    name = "flood"

    def __init__(self, port):
        self.port = port
        self.stopping = threading.Event()
        self.threads = []
        self.lock = threading.Lock()
        self.replies = {}  # what the server answered: status line prefix -> count

    def note(self, reply):
        key = reply[:12].decode("latin-1", "replace") if reply else "closed"
        with self.lock:
            self.replies[key] = self.replies.get(key, 0) + 1

    def spawn(self, target, *arguments):
        thread = threading.Thread(target=target, args=arguments, daemon=True)
        thread.start()
        self.threads.append(thread)

    def start(self):
        raise NotImplementedError

    def stop(self):
        self.stopping.set()
        for thread in self.threads:
            thread.join(timeout=15)


class HeldConnections(Flood):
    """Connections that each send an opening and then hold on, reopened when the server
    closes them: slowloris (a byte of the head now and then), slow bodies (a head that
    announces a body that never comes) and idle connections (nothing at all)."""

    def __init__(self, port, count, opening, trickle=None, interval=1.0):
        super().__init__(port)
        self.count = count
        self.opening = opening
        self.trickle = trickle
        self.interval = interval
        self.connections = [None] * count

    def open(self, index):
        try:
            connection = connect_from(attacker_address(index), self.port, timeout=5)
            if self.opening:
                connection.sendall(self.opening)
            connection.setblocking(False)
            self.connections[index] = connection
        except OSError:
            self.connections[index] = None

    def start(self):
        for index in range(self.count):
            self.open(index)
        self.spawn(self.keep_up)
        return self

    def keep_up(self):
        while not self.stopping.wait(self.interval):
            for index, connection in enumerate(self.connections):
                if self.stopping.is_set():
                    break
                if connection is None:
                    self.open(index)
                    continue
                try:
                    reply = connection.recv(4096)
                    # The server answered (408) or closed: count it and come back.
                    self.note(reply)
                    connection.close()
                    self.open(index)
                    continue
                except BlockingIOError:
                    pass
                except OSError:
                    connection.close()
                    self.open(index)
                    continue
                if self.trickle:
                    try:
                        connection.send(self.trickle)
                    except OSError:
                        pass

    def stop(self):
        super().stop()
        for connection in self.connections:
            if connection is not None:
                connection.close()


class Slowloris(HeldConnections):
    name = "slowloris"

    def __init__(self, port, count=200):
        super().__init__(port, count, REQUEST_HEAD, trickle=b"X", interval=1.0)


class SlowBodies(HeldConnections):
    name = "slow-body"

    def __init__(self, port, count=64, path="/"):
        opening = f"POST {path} HTTP/1.1\r\nHost: hostile.test\r\nContent-Length: 100\r\n\r\n".encode()
        super().__init__(port, count, opening, interval=1.0)


class IdleConnections(HeldConnections):
    name = "idle"

    def __init__(self, port, count=1000):
        super().__init__(port, count, b"", interval=2.0)


class BlankLineFlood(Flood):
    """Connections that each try to send ten megabytes of empty lines before a request line,
    reading what the server answers meanwhile; each starts again when the server closes."""

    name = "blank-lines"

    def __init__(self, port, connections=4, megabytes=10):
        super().__init__(port)
        self.connections = connections
        self.chunk = b"\r\n" * 32768
        self.chunks = megabytes * 1024 * 1024 // len(self.chunk)
        self.rounds = 0

    def start(self):
        for index in range(self.connections):
            self.spawn(self.flood, index)
        return self

    def flood(self, index):
        while not self.stopping.is_set():
            try:
                connection = connect_from(attacker_address(index), self.port, timeout=5)
            except OSError:
                time.sleep(0.1)
                continue
            received = []
            reader = threading.Thread(target=self.read_all, args=(connection, received), daemon=True)
            reader.start()
            try:
                for _ in range(self.chunks):
                    if self.stopping.is_set():
                        # Cut short by stop(): what the server would have said is not known.
                        try:
                            connection.shutdown(socket.SHUT_RDWR)  # wakes the reader
                        except OSError:
                            pass
                        connection.close()
                        reader.join(timeout=10)
                        return
                    connection.sendall(self.chunk)
            except OSError:
                pass
            reader.join(timeout=10)
            connection.close()
            self.note(b"".join(received))
            with self.lock:
                self.rounds += 1

    @staticmethod
    def read_all(connection, received):
        try:
            while True:
                data = connection.recv(65536)
                if not data:
                    return
                received.append(data)
        except OSError:
            return


class LoginFlood(Flood):
    """Threads that keep sending wrong passwords, each from its own address, each new
    attempt on a new connection."""

    name = "wrong-logins"

    def __init__(self, port, threads=32, path="/manage/", user=None):
        super().__init__(port)
        self.thread_count = threads
        self.path = path
        self.user = user

    def start(self):
        for index in range(self.thread_count):
            self.spawn(self.attack, index)
        return self

    def attack(self, index):
        user = self.user or f"user{index}"
        attempt = 0
        while not self.stopping.is_set():
            attempt += 1
            token = base64.b64encode(f"{user}:wrong-{attempt}".encode()).decode()
            request = (f"GET {self.path} HTTP/1.1\r\nHost: hostile.test\r\nAuthorization: Basic {token}\r\n"
                       f"Connection: close\r\n\r\n").encode()
            try:
                with connect_from(attacker_address(index), self.port, timeout=15) as connection:
                    connection.sendall(request)
                    self.note(connection.recv(64))
            except OSError:
                self.note(b"")
                time.sleep(0.05)


FLOODS = {flood.name: flood for flood in (Slowloris, SlowBodies, BlankLineFlood, IdleConnections, LoginFlood)}


def probe(port, path, count=20, timeout=2.0, pause=0.1):
    """Fetches path count times from 127.0.0.1, each on a new connection; returns a list of
    (seconds, status) with status None when no answer came within timeout."""
    results = []
    for _ in range(count):
        started = time.monotonic()
        status = None
        connection = http.client.HTTPConnection("127.0.0.1", port, timeout=timeout)
        try:
            connection.request("GET", path)
            response = connection.getresponse()
            response.read()
            status = response.status
        except (OSError, http.client.HTTPException):
            pass
        finally:
            connection.close()
        results.append((time.monotonic() - started, status))
        time.sleep(pause)
    return results


def workers_rss(master_pid):
    """Resident memory of each worker of a kiv-server master, in KiB."""
    return {pid: kh.rss_kib(pid) for pid in kh.children_of(master_pid)}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--port", type=int, required=True)
    parser.add_argument("--flood", choices=sorted(FLOODS), required=True)
    parser.add_argument("--probes", type=int, default=20)
    parser.add_argument("--path", default="/")
    parser.add_argument("--login-path", default="/manage/")
    parser.add_argument("--server-pid", type=int)
    parser.add_argument("--timeout", type=float, default=10.0)
    parser.add_argument("--then", help="a shell command to run after the probes, while the flood is still on")
    arguments = parser.parse_args()
    raise_open_file_limit()
    kind = FLOODS[arguments.flood]
    flood = kind(arguments.port, path=arguments.login_path) if kind is LoginFlood else kind(arguments.port)
    flood.start()
    try:
        time.sleep(1)  # let the flood take hold
        for seconds, status in probe(arguments.port, arguments.path, arguments.probes, arguments.timeout):
            print(f"probe {seconds * 1000:.1f} {status if status else 'none'}", flush=True)
        if arguments.server_pid:
            print("rss " + " ".join(str(kib) for kib in workers_rss(arguments.server_pid).values()), flush=True)
        if arguments.then:
            subprocess.run(arguments.then, shell=True, check=False)
    finally:
        flood.stop()


if __name__ == "__main__":
    main()
