#!/usr/bin/env python3
"""Hostile end-to-end tests of kiv-server's connection layer: a real server on loopback with
the test module, attacked by the floods of hostile_clients.py while a public page is probed.

- slowloris, slow bodies, empty lines before the request line, idle connections and a flood
  of wrong logins each leave every probe answered in time and every worker's resident memory
  bounded;
- a client that keeps failing logins is answered 429, without locking out the others;
- HTTPS with a certificate made here by openssl: curl renders a page with the module, TLS
  1.2 and 1.3 are spoken, plain HTTP to the HTTPS port is refused cleanly, a plain port
  redirects, and `kiv-server check` names unusable certificate files.

The bounds are for availability, not speed: a probe must be answered within
KIV_HOSTILE_PROBE_SECONDS (2 by default) and a worker stay under KIV_HOSTILE_RSS_MIB (64 by
default); the sanitizer build raises both, since its allocator and shadow memory cost time
and memory by design.

Run by ctest; by hand: test_hostile_http.py --server build/server/kiv-server
--module build/tests/e2e/kiv_test_module.so"""

import http.client
import os
import shutil
import socket
import ssl
import subprocess
import sys
import tempfile
import time
import unittest
import warnings

import hostile_clients as hc
import kivharness as kh  # through hostile_clients, from tests/faults

SERVER = None
MODULE = None
PASSWORD = kh.PASSWORD
PROBE_SECONDS = float(os.environ.get("KIV_HOSTILE_PROBE_SECONDS", "2"))
RSS_MIB = float(os.environ.get("KIV_HOSTILE_RSS_MIB", "64"))
PUBLIC_PAGE = "/?q=probe"

PAGES = {
    "index.html": "<html><body><p>q=&kivPathArgument(q);</p><kivEcho a=\"1\"><p>end of page</p></body></html>\n",
    "manage/index.html": "<p>editor</p>\n",
    "style.css": "body { color: black; }\n" * 100,
}


def get(port, path, headers=None, source="127.0.0.1", timeout=20):
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=timeout, source_address=(source, 0))
    try:
        connection.request("GET", path, headers=headers or {})
        response = connection.getresponse()
        return response.status, response.headers, response.read()
    finally:
        connection.close()


class FloodTest(unittest.TestCase):
    """One server with two workers, each flood in turn. The worker limit is low enough that the
    thousand idle connections must make room for new clients."""

    @classmethod
    def setUpClass(cls):
        hc.raise_open_file_limit()
        cls.site = kh.Site(SERVER, MODULE, workers=2, extra_limits="max_connections = 300", pages=PAGES)
        cls.server = kh.Server(SERVER, cls.site, ready_path=PUBLIC_PAGE)
        cls.port = cls.server.port

    @classmethod
    def tearDownClass(cls):
        cls.server.stop()
        cls.site.remove()

    def workers(self):
        return kh.children_of(self.server.process.pid)

    def assert_available_during(self, flood, memory_after_stop=False):
        """Probes the public page 20 times while the flood is on; every probe must be
        answered with the page in time, and every worker stay within the memory bound."""
        workers = self.workers()
        self.assertEqual(len(workers), 2)
        flood.start()
        try:
            time.sleep(0.5)  # the flood takes hold
            results = hc.probe(self.port, PUBLIC_PAGE, count=20, timeout=PROBE_SECONDS + 1)
            rss = hc.workers_rss(self.server.process.pid) if not memory_after_stop else None
        finally:
            flood.stop()
        if memory_after_stop:
            # Each password check holds 64 MiB while it runs, by design; the checks still
            # queued when the flood ends finish and give their memory back.
            kh.wait_until(lambda: max(hc.workers_rss(self.server.process.pid).values()) < RSS_MIB * 1024, 60)
            rss = hc.workers_rss(self.server.process.pid)
        print(f"\n  {flood.name}: slowest probe {max(seconds for seconds, _ in results):.3f} s, worker RSS MiB "
              f"{', '.join(f'{kib / 1024:.1f}' for kib in rss.values())}", file=sys.stderr)
        slow = [(round(seconds, 2), status) for seconds, status in results
                if status != 200 or seconds > PROBE_SECONDS]
        self.assertEqual(slow, [], f"probes not answered within {PROBE_SECONDS} s during {flood.name}")
        for pid, kib in rss.items():
            self.assertLess(kib / 1024, RSS_MIB, f"worker {pid} during {flood.name}")
        self.assertEqual(self.workers(), workers, "no worker died")
        return results

    def test_slowloris(self):
        flood = hc.Slowloris(self.port, count=200)
        self.assert_available_during(flood)

    def test_slow_bodies(self):
        flood = hc.SlowBodies(self.port, count=64, path="/index.html")
        self.assert_available_during(flood)

    def test_blank_line_flood(self):
        flood = hc.BlankLineFlood(self.port, connections=4, megabytes=10)
        self.assert_available_during(flood)
        # Each connection was answered 431 long before its ten megabytes were through.
        self.assertGreater(flood.rounds, 0)
        self.assertEqual(set(flood.replies), {"HTTP/1.1 431"}, flood.replies)
        self.assertIn("bytes of blank lines before the request line", self.server.logged())

    def test_idle_connections(self):
        flood = hc.IdleConnections(self.port, count=1000)
        self.assert_available_during(flood)
        self.assertIn("to make room for a new one", self.server.logged())

    def test_wrong_login_flood(self):
        flood = hc.LoginFlood(self.port, threads=32, path="/manage/")
        self.assert_available_during(flood, memory_after_stop=True)
        self.assertTrue(any(key.startswith("HTTP/1.1 401") for key in flood.replies), flood.replies)


class LoginThrottleTest(unittest.TestCase):
    """One worker, so that every attempt meets the same counts."""

    def setUp(self):
        self.site = kh.Site(SERVER, MODULE, workers=1, extra_limits="max_login_failures = 4\nlogin_block = 30",
                            pages=PAGES)
        self.server = kh.Server(SERVER, self.site, ready_path=PUBLIC_PAGE)
        self.port = self.server.port

    def tearDown(self):
        self.server.stop()
        self.site.remove()

    def test_a_client_that_keeps_failing_is_refused_without_locking_out_others(self):
        status, _, _ = get(self.port, "/manage/", kh.basic_auth("admin", PASSWORD))
        self.assertEqual(status, 200)
        statuses = []
        started = time.monotonic()
        for attempt in range(6):
            status, headers, _ = get(self.port, "/manage/", kh.basic_auth("admin", f"guess{attempt}"), source="127.0.0.9")
            statuses.append(status)
        self.assertEqual(statuses, [401, 401, 401, 401, 429, 429])
        self.assertGreater(time.monotonic() - started, 0.7, "each failure after the first is answered later")
        retry_after = int(headers["Retry-After"])
        self.assertTrue(1 <= retry_after <= 30, retry_after)
        # The owner, whose password this worker has accepted before, still gets in; a new
        # client guessing the same user name does not even get its password checked.
        self.assertEqual(get(self.port, "/manage/", kh.basic_auth("admin", PASSWORD))[0], 200)
        self.assertEqual(get(self.port, "/manage/", kh.basic_auth("admin", "other"), source="127.0.0.10")[0], 429)
        # Pages that need no login are not affected at all.
        self.assertEqual(get(self.port, PUBLIC_PAGE, source="127.0.0.9")[0], 200)
        kh.wait_until(lambda: "failed logins as 'admin'" in self.server.logged(), 5)
        log = self.server.logged()
        self.assertEqual(log.count("failed login for user 'admin' from 127.0.0.9"), 1, log)
        self.assertEqual(log.count("failed logins from 127.0.0.9"), 1, log)
        self.assertEqual(log.count("failed logins as 'admin'"), 1, log)


class TlsTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix="kiv-tls-")
        cls.certificate = os.path.join(cls.folder, "cert.pem")
        cls.key = os.path.join(cls.folder, "key.pem")
        make_certificate(cls.certificate, cls.key)
        listener = f'[[listen]]\naddress = "127.0.0.1"\nport = 0\ntls_cert = "{cls.certificate}"\ntls_key = "{cls.key}"\n'
        cls.site = kh.Site(SERVER, MODULE, workers=1, pages=PAGES, extra_server="redirect_to_tls = true",
                           listeners=listener)
        cls.server = kh.Server(SERVER, cls.site, listeners=2, ready_path=None)
        cls.tls_port = cls.server.port_of("https")
        cls.plain_port = cls.server.port_of("http")

    @classmethod
    def tearDownClass(cls):
        cls.server.stop()
        cls.site.remove()
        shutil.rmtree(cls.folder, ignore_errors=True)

    def curl(self, *arguments):
        result = subprocess.run(["curl", "-sS", "--max-time", "20", "--cacert", self.certificate, "-D", "-",
                                 *arguments], capture_output=True, timeout=60)
        self.assertEqual(result.returncode, 0, result.stderr)
        return result.stdout.decode("latin-1")

    def test_curl_renders_a_page_with_the_module_over_tls(self):
        url = f"https://127.0.0.1:{self.tls_port}/?q=tls"
        for version in (["--tlsv1.2", "--tls-max", "1.2"], ["--tlsv1.3"]):
            reply = self.curl(*version, url)
            self.assertRegex(reply, r"^HTTP/1\.1 200 ")
            self.assertIn("<p>q=tls</p>", reply)
            self.assertIn("ECHO(a=1;)", reply)
            self.assertRegex(reply, r"(?i)strict-transport-security: max-age=\d+")
        # gzip, for a client that asks for it
        reply = self.curl("--compressed", f"https://127.0.0.1:{self.tls_port}/style.css")
        self.assertRegex(reply, r"(?i)content-encoding: gzip")
        self.assertIn("body { color: black; }", reply)

    def test_old_protocols_are_refused(self):
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
        context.load_verify_locations(self.certificate)
        with warnings.catch_warnings():  # asking for the old versions is the point here
            warnings.simplefilter("ignore", DeprecationWarning)
            context.minimum_version = ssl.TLSVersion.TLSv1
            context.maximum_version = ssl.TLSVersion.TLSv1_1
        context.set_ciphers("ALL:@SECLEVEL=0")
        with socket.create_connection(("127.0.0.1", self.tls_port), timeout=10) as raw:
            with self.assertRaises(ssl.SSLError):
                with context.wrap_socket(raw, server_hostname="127.0.0.1"):
                    pass

    def test_plain_http_to_the_tls_port_is_refused_cleanly(self):
        with socket.create_connection(("127.0.0.1", self.tls_port), timeout=10) as connection:
            connection.sendall(b"GET / HTTP/1.1\r\nHost: x\r\n\r\n")
            try:
                reply = connection.recv(4096)
            except ConnectionResetError:
                reply = b""
        self.assertFalse(reply.startswith(b"HTTP/"), reply[:40])
        self.assertTrue(kh.wait_until(lambda: "the TLS handshake failed" in self.server.logged(), 5))
        self.assertRegex(self.curl(f"https://127.0.0.1:{self.tls_port}/?q=after"), r"^HTTP/1\.1 200 ")

    def test_the_plain_port_redirects_to_tls(self):
        status, headers, _ = get(self.plain_port, "/people/?page=2")
        self.assertEqual(status, 301)
        self.assertEqual(headers["Location"], f"https://127.0.0.1:{self.tls_port}/people/?page=2")

    def test_check_names_unusable_certificates(self):
        other_key = os.path.join(self.folder, "other-key.pem")
        make_certificate(os.path.join(self.folder, "other-cert.pem"), other_key)
        cases = [(self.certificate, other_key, "does not belong to the certificate"),
                 (os.path.join(self.folder, "missing.pem"), self.key, "cannot read the TLS certificate"),
                 (self.key, self.key, "is not a PEM certificate")]
        for certificate, key, message in cases:
            result = subprocess.run([SERVER, "check", "--config", self.site.config, "--tls-cert", certificate,
                                     "--tls-key", key], capture_output=True, text=True, timeout=60)
            self.assertEqual(result.returncode, 1, message)
            self.assertIn(message, result.stderr)
        result = subprocess.run([SERVER, "check", "--config", self.site.config], capture_output=True, text=True,
                                timeout=60)
        self.assertEqual(result.returncode, 0, result.stderr)


def make_certificate(certificate, key):
    subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1",
                    "-nodes", "-keyout", key, "-out", certificate, "-days", "2", "-subj", "/CN=127.0.0.1",
                    "-addext", "subjectAltName=IP:127.0.0.1"], check=True, capture_output=True, timeout=60)


def configure(server, module):
    global SERVER, MODULE
    SERVER, MODULE = server, module


if __name__ == "__main__":
    kh.main(configure)
