"""A kiv-server process serving a site folder with one module, for the end-to-end tests: started
on a free loopback port (the port and the first-run password of the editor's account read from
its standard error), its standard error kept on a thread for the tests that look at the log,
and stopped with SIGTERM; and the one request the tests make of it. Standard library only."""

import argparse
import http.client
import re
import shutil
import signal
import subprocess
import sys
import threading
import time
import unittest


def parse_options(*names):
    """The required --NAME VALUE options of a test script, and the arguments left for unittest."""
    parser = argparse.ArgumentParser()
    for name in names:
        parser.add_argument("--" + name, required=True)
    options, rest = parser.parse_known_args()
    return options, [sys.argv[0]] + rest


def request(port, method, path, body=None, headers=None, timeout=60):
    """One request on a fresh connection: the status, the headers and the body as Latin-1 text."""
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=timeout)
    try:
        connection.request(method, path, body=body, headers=headers or {})
        response = connection.getresponse()
        return response.status, response.headers, response.read().decode("latin-1")
    finally:
        connection.close()


class SiteServer:
    def __init__(self, server, module, site, env=None, workers=2):
        self.process = subprocess.Popen([server, "serve", "--root", site, "--module", module, "--port", "0",
                                         "--workers", str(workers)],
                                        stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, env=env)
        self.port, self.password = None, None
        deadline = time.time() + 120
        while time.time() < deadline and self.port is None:
            line = self.process.stderr.readline().decode(errors="replace")
            if not line and self.process.poll() is not None:
                break
            if match := re.search(r"the password (\S+)", line):
                self.password = match.group(1)
            if match := re.search(r"listening on http://127\.0\.0\.1:(\d+)/", line):
                self.port = int(match.group(1))
        if self.port is None:
            self.process.kill()
            self.process.wait()
            raise RuntimeError("kiv-server did not start")
        # Read on so that the server never blocks on a full pipe; the lines stay for the tests.
        self.log = []
        self.drain = threading.Thread(target=lambda: self.log.extend(
            line.decode("latin-1") for line in iter(self.process.stderr.readline, b"")), daemon=True)
        self.drain.start()

    def stop(self):
        self.process.send_signal(signal.SIGTERM)
        try:
            self.process.wait(timeout=40)
        finally:
            if self.process.poll() is None:
                self.process.kill()
            self.drain.join(timeout=5)
            self.process.stderr.close()


class SiteTestCase(unittest.TestCase):
    """Tests whose setUpClass makes a temporary folder `base` and starts `server` in it."""

    @classmethod
    def tearDownClass(cls):
        try:
            cls.server.stop()
        finally:
            shutil.rmtree(cls.base, ignore_errors=True)
