#!/usr/bin/env python3
"""End-to-end tests of kiv-server: a real server process on a loopback port, driven over
HTTP with the test module (tests/server/modules/TestModule.cpp) loaded. Standard library
only. Run by ctest; by hand: test_server.py --server build/server/kiv-server --module
build/tests/e2e/kiv_test_module.so"""

import argparse
import base64
import http.client
import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time
import unittest

SERVER = None
MODULE = None
PASSWORD = "correct horse"

INDEX_PAGE = """<html><body>
<p>q=&kivPathArgument(q);</p>
<kivEcho a="1" b='&kivPathArgument(q);' a="2">
<kivSetVar name="v" value="x<y">
<p>var=&kivPageVariable(v);</p>
<kivGetVar name="v">
<kivBody>inner &kivPathArgument(q); <kivEcho c=3></kivBody>
<kivRawBody>raw &kivPathArgument(q); <kivEcho c=3></kivRawBody>
<kivEmit text="<kivEcho d=4> &amp;kivPathArgument(q);">
<kivDoNotProcess><kivEcho e=5> &kivPathArgument(q);</kivDoNotProcess>
<p>end of page</p>
</body></html>
"""

PAGES = {
    "index.html": INDEX_PAGE,
    "args.html": '<kivArgs path="q" post="name" cookie="session" cgi="REQUEST_METHOD">',
    "error.html": '<p>before</p><kivFail headline="Lookup of &lt;x&gt; failed <script>alert(1)</script>" '
                  'hint="Check &quot;x&quot;."><p>after the tag</p>',
    "crash.html": "<p>about to crash</p><kivAbort>",
    "status.html": '<kivStatus code="404" header="X-Test" value="yes">missing',
    "redirect.html": '<kivStatus location="/index.html">',
    "badheader.html": '<kivStatus header="Content-Length" value="0">',
    "pref.html": '<kivPref key="testPref">',
    "files.html": '<kivFile path="list.csv"> <kivFile path="../outside.txt"> '
                  '<kivFile path="/etc/passwd"> <kivFile path="missing/../out/list.csv"> '
                  '<kivFile path="dangling/list.csv"> <kivFile path="../kiv-preferences.txt">',
    "inject.html": '<kivStatus header="X-Split" value="a&#13;&#10;Set-Cookie: evil=1">'
                   '<kivStatus location="/index.html&#13;&#10;Set-Cookie: evil=2">',
    "sub/inner/page.txt": "inner\n",
    "info.html": "<kivInfo>",
    "slow.html": '<p>start</p><kivSleep ms="1500"><p>done</p>',
    "manage/editor.html": "<p>editor</p>",
    "sub/readme.txt": "plain text\n",
    "style.css": "body { color: black; }\n",
}


def make_site(base):
    site = os.path.join(base, "site")
    for name, text in PAGES.items():
        path = os.path.join(site, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="latin-1") as out:
            out.write(text)
    outside = os.path.join(base, "outside")
    os.makedirs(outside)
    with open(os.path.join(outside, "secret.txt"), "w") as out:
        out.write("TOP-SECRET\n")
    with open(os.path.join(base, "secret.txt"), "w") as out:
        out.write("TOP-SECRET\n")
    os.symlink(outside, os.path.join(site, "escape"))
    # Links in the data folder that a module's file path must not reach.
    data = os.path.join(base, "data")
    os.makedirs(data)
    os.makedirs(os.path.join(data, "exports"), exist_ok=True)
    os.symlink(outside, os.path.join(data, "exports", "out"))
    os.symlink(os.path.join(outside, "no-such-folder"), os.path.join(data, "exports", "dangling"))
    return site


def password_hash():
    result = subprocess.run([SERVER, "passwd"], input=PASSWORD + "\n", capture_output=True, text=True,
                            timeout=60, check=True)
    return result.stdout.strip()


def write_config(base, site, workers=2, keep_alive=2):
    config = os.path.join(base, "server.toml")
    with open(config, "w") as out:
        out.write(f"""
[server]
listen = "127.0.0.1"
port = 0
workers = {workers}
threads = 4
modules = ["{MODULE}"]
server_log = "logs/server.log"
access_log = "logs/access.log"

[limits]
max_request_line = 2048
max_header_bytes = 8192
max_body_bytes = 65536
header_timeout = 2
body_timeout = 3
keep_alive_timeout = {keep_alive}

[[region]]
name = "main"
root = "{site}"
data = "data"
protected = ["/manage/"]
directory_listing = true
[region.users]
admin = "{password_hash()}"

[[region]]
name = "quiet"
hosts = ["quiet.test"]
root = "{site}"
data = "data"
show_errors = false
""")
    return config


class Server:
    """A kiv-server process; stopped (and waited for) by stop()."""

    def __init__(self, config, env=None):
        self.process = subprocess.Popen([SERVER, "serve", "--config", config], stdout=subprocess.DEVNULL,
                                        stderr=subprocess.PIPE, env=env)
        self.port = None
        deadline = time.time() + 60
        line = b""
        while time.time() < deadline:
            line = self.process.stderr.readline()
            match = re.search(rb"listening on http://127\.0\.0\.1:(\d+)/", line)
            if match:
                self.port = int(match.group(1))
                break
            if not line and self.process.poll() is not None:
                break
        if self.port is None:
            self.process.kill()
            raise RuntimeError("kiv-server did not start: " + line.decode(errors="replace"))
        # Keep reading standard error so that the server never blocks on a full pipe.
        self.drain = threading.Thread(target=self.process.stderr.read, daemon=True)
        self.drain.start()
        wait_until(lambda: self.try_get("/style.css") == 200, 30)

    def try_get(self, path):
        try:
            return request(self.port, "GET", path)[0]
        except OSError:
            return None

    def stop(self, sig=signal.SIGTERM):
        if self.process.poll() is None:
            self.process.send_signal(sig)
        try:
            return self.process.wait(timeout=40)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
            raise
        finally:
            self.drain.join(timeout=5)
            self.process.stderr.close()


def wait_until(condition, seconds):
    deadline = time.time() + seconds
    while time.time() < deadline:
        if condition():
            return True
        time.sleep(0.1)
    return False


def request(port, method, path, body=None, headers=None, host=None):
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=20)
    try:
        all_headers = dict(headers or {})
        if host:
            all_headers["Host"] = host
        connection.request(method, path, body=body, headers=all_headers)
        response = connection.getresponse()
        return response.status, response.headers, response.read()
    finally:
        connection.close()


def raw_exchange(port, data, timeout=10, pause_after=None):
    """Sends bytes on a fresh connection and returns everything received until close."""
    with socket.create_connection(("127.0.0.1", port), timeout=timeout) as connection:
        connection.sendall(data)
        if pause_after is not None:
            time.sleep(pause_after)
        received = b""
        try:
            while True:
                chunk = connection.recv(65536)
                if not chunk:
                    break
                received += chunk
        except (socket.timeout, ConnectionResetError):
            pass
        return received


def basic(user, password):
    token = base64.b64encode(f"{user}:{password}".encode()).decode()
    return {"Authorization": "Basic " + token}


class ServerTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.base = tempfile.mkdtemp(prefix="kiv-e2e-")
        cls.site = make_site(cls.base)
        cls.config = write_config(cls.base, cls.site)
        cls.server = Server(cls.config)
        cls.port = cls.server.port

    @classmethod
    def tearDownClass(cls):
        cls.server.stop()
        shutil.rmtree(cls.base, ignore_errors=True)

    def get(self, path, **kwargs):
        return request(self.port, "GET", path, **kwargs)

    def server_log(self):
        with open(os.path.join(self.base, "logs", "server.log"), encoding="latin-1") as log:
            return log.read()

    # Rendering -----------------------------------------------------------------------------

    def test_page_tags_render_in_document_order_with_placeholders(self):
        status, headers, body = self.get("/?q=A%26B")
        text = body.decode("latin-1")
        self.assertEqual(status, 200)
        self.assertEqual(headers["Content-Type"], "text/html; charset=ISO-8859-1")
        self.assertIn("<p>q=A&amp;B</p>", text)  # page text: HTML-encoded
        self.assertIn("ECHO(a=1;b=A&B;a=2;second-a=2;)", text)  # parameters: plain, in order, repeated
        self.assertIn("<p>var=x&lt;y</p>", text)  # a variable set by an earlier tag
        self.assertIn("VAR=x<y", text)
        self.assertIn("BODY[inner A&amp;B ECHO(c=3;)]", text)  # container body rendered first
        self.assertIn("RAW[raw &kivPathArgument(q); <kivEcho c=3>]", text)  # raw body untouched
        self.assertIn("<kivEcho d=4> &kivPathArgument(q);", text)  # module output never processed
        self.assertIn("<kivEcho e=5> &kivPathArgument(q);", text)  # author's unprocessed section
        self.assertNotIn("kivDoNotProcess", text)
        self.assertIn("end of page", text)

    def test_path_post_arguments_cookies_and_cgi_reach_the_module(self):
        form = "name=first&name=second&other=x"
        status, _, body = request(self.port, "POST", "/args.html?q=p1&q=p2", body=form,
                                  headers={"Content-Type": "application/x-www-form-urlencoded",
                                           "Cookie": "theme=dark; session=abc123"})
        self.assertEqual(status, 200)
        self.assertIn(b"PATH=p1;POST=first;COOKIE=abc123;CGI=POST;POSTS=name:5,name:6,other:1,", body)

    def test_multipart_posts_keep_field_order_and_bytes(self):
        boundary = "XyZzY"
        content = bytes(range(256))
        body = (f"--{boundary}\r\nContent-Disposition: form-data; name=\"name\"\r\n\r\nAnn\r\n"
                f"--{boundary}\r\nContent-Disposition: form-data; name=\"upload\"; filename=\"b.bin\"\r\n"
                f"Content-Type: application/octet-stream\r\n\r\n").encode() + content + \
               f"\r\n--{boundary}--\r\n".encode()
        status, _, reply = request(self.port, "POST", "/args.html", body=body,
                                   headers={"Content-Type": f"multipart/form-data; boundary={boundary}"})
        self.assertEqual(status, 200)
        self.assertIn(b"POST=Ann;", reply)
        self.assertIn(b"POSTS=name:3,upload:256,", reply)

    def test_request_information_services(self):
        _, _, body = self.get("/info.html")
        self.assertIn(b"URL=/info.html;PARENT=/;REGION=main;LANG=16777216;PAGEID=set", body)

    # Errors -----------------------------------------------------------------------------

    def test_tag_error_is_shown_in_place_and_logged(self):
        status, _, body = self.get("/error.html")
        text = body.decode("latin-1")
        self.assertEqual(status, 200)
        self.assertIn('class="kiv-error"', text)
        self.assertLess(text.index("before"), text.index("kiv-error"))
        self.assertLess(text.index("kiv-error"), text.index("after the tag"))
        self.assertIn("&lt;script&gt;", text)  # error texts cannot inject markup
        self.assertNotIn("<script>", text)
        self.assertIn("partial output", text)
        self.assertTrue(wait_until(lambda: "tag=kivFail" in self.server_log(), 5))

    def test_region_can_hide_tag_errors_from_visitors(self):
        status, _, body = self.get("/error.html", host="quiet.test")
        self.assertEqual(status, 200)
        self.assertNotIn(b"kiv-error", body)
        self.assertIn(b"after the tag", body)
        self.assertTrue(wait_until(lambda: "region=quiet page=/error.html tag=kivFail" in self.server_log(), 5))

    def test_modules_set_status_headers_and_redirects(self):
        status, headers, body = self.get("/status.html")
        self.assertEqual(status, 404)
        self.assertEqual(headers["X-Test"], "yes")
        self.assertIn(b"HEADER-OK", body)
        status, headers, _ = self.get("/redirect.html")
        self.assertEqual(status, 302)
        self.assertEqual(headers["Location"], "/index.html")
        status, headers, body = self.get("/badheader.html")
        self.assertIn(b"HEADER-REFUSED", body)  # framing headers stay the server's

    def test_module_file_paths_stay_in_the_exports_folder(self):
        _, _, body = self.get("/files.html")
        text = body.decode("latin-1")
        data = os.path.realpath(os.path.join(self.base, "data"))
        self.assertIn("FILE-OK:" + os.path.join(data, "exports", "list.csv"), text)
        # Two plain escapes, a link reached after a missing folder and "..", a dangling link,
        # and the server's own preferences.
        self.assertEqual(text.count("FILE-REFUSED"), 5)
        self.assertTrue(wait_until(lambda: "missing/../out/list.csv" in self.server_log(), 5))

    def test_module_headers_and_redirects_cannot_split_the_response(self):
        reply = raw_exchange(self.port, b"GET /inject.html HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n")
        head, _, body = reply.partition(b"\r\n\r\n")
        self.assertTrue(head.startswith(b"HTTP/1.1 200 "), head[:40])
        self.assertNotIn(b"Set-Cookie", head)
        self.assertNotIn(b"X-Split", head)
        self.assertNotIn(b"Location", head)
        self.assertIn(b"HEADER-REFUSED", body)

    # Administration and access control ------------------------------------------------------

    def test_admin_page_needs_a_login(self):
        status, headers, _ = self.get("/kiv-admin/")
        self.assertEqual(status, 401)
        self.assertIn("Basic", headers["WWW-Authenticate"])
        status, _, _ = self.get("/kiv-admin/", headers=basic("admin", "wrong"))
        self.assertEqual(status, 401)
        status, headers, body = self.get("/kiv-admin/", headers=basic("admin", PASSWORD))
        self.assertEqual(status, 200)
        self.assertEqual(headers["X-Frame-Options"], "DENY")
        self.assertIn(b"Test Module", body)
        self.assertIn(b"&lt;kivRawBody&gt;", body)
        self.assertIn(b"body passed unprocessed", body)

    def test_admin_preferences_are_stored_per_region_and_seen_by_every_worker(self):
        origin = f"http://127.0.0.1:{self.port}"
        form = "kivAdminModule=0&testPref=blue%20sky"
        headers = dict(basic("admin", PASSWORD), **{"Content-Type": "application/x-www-form-urlencoded",
                                                     "Origin": origin})
        status, _, body = request(self.port, "POST", "/kiv-admin/", body=form, headers=headers)
        self.assertEqual(status, 200)
        self.assertIn(b"saved", body)
        for _ in range(6):  # the requests spread over both workers
            _, _, page = self.get("/pref.html")
            self.assertIn(b"PREF=blue sky", page)
        _, _, admin = self.get("/kiv-admin/", headers=basic("admin", PASSWORD))
        self.assertIn(b'value="blue sky"', admin)

    def test_cross_origin_posts_to_protected_areas_are_refused(self):
        form = "kivAdminModule=0&testPref=evil"
        base = dict(basic("admin", PASSWORD), **{"Content-Type": "application/x-www-form-urlencoded"})
        for extra in ({}, {"Origin": "http://attacker.example"}, {"Referer": "http://attacker.example/x"}):
            status, _, _ = request(self.port, "POST", "/kiv-admin/", body=form, headers=dict(base, **extra))
            self.assertEqual(status, 403, extra)
        _, _, page = self.get("/pref.html")
        self.assertNotIn(b"evil", page)

    def test_protected_paths_cannot_be_reached_by_another_spelling(self):
        for path in ("//manage/editor.html", "/./manage/editor.html", "/%2fmanage/editor.html",
                     "/sub/..%2f..%2fmanage/editor.html", "/manage//editor.html", "/.//manage/editor.html"):
            reply = raw_exchange(self.port, f"GET {path} HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n".encode())
            self.assertRegex(reply, rb"^HTTP/1\.1 (400|401) ", path)
            self.assertNotIn(b"<p>editor</p>", reply, path)

    def test_protected_paths_need_a_login(self):
        status, _, _ = self.get("/manage/editor.html")
        self.assertEqual(status, 401)
        status, headers, body = self.get("/manage/editor.html", headers=basic("admin", PASSWORD))
        self.assertEqual(status, 200)
        self.assertIn(b"editor", body)
        self.assertEqual(headers["X-Frame-Options"], "DENY")

    # Static files -----------------------------------------------------------------------

    def test_static_files_have_types_and_validators(self):
        status, headers, body = self.get("/style.css")
        self.assertEqual(status, 200)
        self.assertEqual(headers["Content-Type"], "text/css")
        self.assertEqual(headers["X-Content-Type-Options"], "nosniff")
        self.assertEqual(body, b"body { color: black; }\n")
        status, _, body = self.get("/style.css", headers={"If-None-Match": headers["ETag"]})
        self.assertEqual(status, 304)
        self.assertEqual(body, b"")
        status, headers, _ = self.get("/sub")
        self.assertEqual(status, 301)
        self.assertEqual(headers["Location"], "/sub/")
        status, _, body = self.get("/sub/")
        self.assertEqual(status, 200)
        self.assertIn(b'href="readme.txt"', body)
        status, _, _ = self.get("/nothing-here.html")
        self.assertEqual(status, 404)

    def test_folder_redirects_stay_on_this_site(self):
        # "//sub" must not become "Location: //sub/", which a browser reads as the host "sub".
        for path, location in (("//sub", "/sub/"), ("/sub//inner", "/sub/inner/"), ("/sub/./inner?a=1", "/sub/inner/?a=1")):
            status, headers, _ = self.get(path)
            self.assertEqual(status, 301, path)
            self.assertEqual(headers["Location"], location, path)

    def test_directory_listing_encodes_file_names(self):
        name = '"><img src=x onerror=alert(1)>.txt'
        with open(os.path.join(self.site, "sub", name), "w") as out:
            out.write("x")
        try:
            status, _, body = self.get("/sub/")
            self.assertEqual(status, 200)
            self.assertNotIn(b"<img", body)
            self.assertIn(b"&lt;img", body)
        finally:
            os.remove(os.path.join(self.site, "sub", name))

    def test_no_request_reaches_files_outside_the_site(self):
        attempts = ["/../secret.txt", "/%2e%2e/secret.txt", "/sub/%2E%2E/%2e%2e/secret.txt",
                    "/sub/..%2f..%2fsecret.txt", "/escape/secret.txt", "/escape/", "/sub/%5c..%5csecret.txt",
                    "/%00/etc/passwd"]
        for path in attempts:
            reply = raw_exchange(self.port, f"GET {path} HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n".encode())
            self.assertRegex(reply, rb"^HTTP/1\.1 (400|403|404) ", path)
            self.assertNotIn(b"TOP-SECRET", reply, path)

    # Limits -----------------------------------------------------------------------------

    def test_oversized_requests_are_refused(self):
        reply = raw_exchange(self.port, b"GET /" + b"a" * 4000 + b" HTTP/1.1\r\nHost: x\r\n\r\n")
        self.assertTrue(reply.startswith(b"HTTP/1.1 414 "), reply[:40])
        reply = raw_exchange(self.port, b"GET / HTTP/1.1\r\nHost: x\r\nX-Big: " + b"b" * 9000 + b"\r\n\r\n")
        self.assertTrue(reply.startswith(b"HTTP/1.1 431 "), reply[:40])
        reply = raw_exchange(self.port, b"POST /args.html HTTP/1.1\r\nHost: x\r\nContent-Length: 999999\r\n\r\n")
        self.assertTrue(reply.startswith(b"HTTP/1.1 413 "), reply[:40])
        status, _, _ = self.get("/style.css")
        self.assertEqual(status, 200)

    def test_bodies_have_exactly_one_framing(self):
        smuggled = b"GET /manage/editor.html HTTP/1.1\r\nHost: x\r\n\r\n"
        attempts = [
            b"POST /args.html HTTP/1.1\r\nHost: x\r\nContent-Length: %d\r\nTransfer-Encoding: identity\r\n\r\n"
            % len(smuggled) + smuggled,
            b"POST /args.html HTTP/1.1\r\nHost: x\r\nTransfer-Encoding: identity\r\nTransfer-Encoding: chunked\r\n"
            b"Content-Length: 5\r\n\r\n0\r\n\r\n" + smuggled,
            b"POST /args.html HTTP/1.1\r\nHost: x\r\nContent-Length: 5\r\nContent-Length: 50\r\n\r\nq=1&x" + smuggled,
            b"GET /args.html HTTP/1.1\r\nHost: x\r\nHost: quiet.test\r\n\r\n",
        ]
        for data in attempts:
            reply = raw_exchange(self.port, data)
            self.assertRegex(reply, rb"^HTTP/1\.1 (400|411) ", data[:80])
            self.assertEqual(reply.count(b"HTTP/1.1 "), 1, data[:80])  # nothing after it was served

    def test_chunked_bodies_and_expect_continue_reach_the_module(self):
        form = b"name=chunked&other=x"
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=20)
        try:
            connection.request("POST", "/args.html", body=iter([form[:7], form[7:]]),
                               headers={"Content-Type": "application/x-www-form-urlencoded"}, encode_chunked=True)
            response = connection.getresponse()
            self.assertEqual(response.status, 200)
            self.assertIn(b"POST=chunked;", response.read())
        finally:
            connection.close()
        # A client that waits for "100 Continue" before it sends its body.
        with socket.create_connection(("127.0.0.1", self.port), timeout=10) as raw:
            raw.sendall(b"POST /args.html HTTP/1.1\r\nHost: x\r\nExpect: 100-continue\r\nConnection: close\r\n"
                        b"Content-Type: application/x-www-form-urlencoded\r\nContent-Length: 9\r\n\r\n")
            self.assertEqual(raw.recv(100), b"HTTP/1.1 100 Continue\r\n\r\n")
            raw.sendall(b"name=cont")
            reply = b""
            while chunk := raw.recv(65536):
                reply += chunk
        self.assertRegex(reply, rb"^HTTP/1\.1 200 ")
        self.assertIn(b"POST=cont;", reply)

    def test_pipelined_requests_and_head_are_answered_in_order(self):
        reply = raw_exchange(self.port, b"GET /style.css HTTP/1.1\r\nHost: x\r\n\r\n"
                                        b"HEAD /?q=head HTTP/1.1\r\nHost: x\r\n\r\n"
                                        b"GET /?q=last HTTP/1.0\r\n\r\n")
        answers = reply.split(b"HTTP/1.")
        self.assertEqual(len(answers), 4, reply[:300])
        self.assertIn(b"body { color: black; }", answers[1])
        head_length = int(re.search(rb"Content-Length: (\d+)", answers[2]).group(1))
        self.assertGreater(head_length, 100, "HEAD tells the length of the page")
        self.assertTrue(answers[2].endswith(b"\r\n\r\n"), "and sends none of it")
        self.assertIn(b"<p>q=last</p>", answers[3])
        self.assertIn(b"Connection: close", answers[3])

    def test_forms_with_too_many_fields_are_refused(self):
        status, _, _ = request(self.port, "POST", "/args.html", body="a&" * 10001,
                               headers={"Content-Type": "application/x-www-form-urlencoded"})
        self.assertEqual(status, 400)
        status, _, _ = request(self.port, "POST", "/args.html", body="a&" * 100,
                               headers={"Content-Type": "application/x-www-form-urlencoded"})
        self.assertEqual(status, 200)

    def test_error_pages_do_not_reflect_the_request(self):
        reply = raw_exchange(self.port, b"GET /%3Cscript%3Ealert(1)%3C/script%3E.txt HTTP/1.1\r\nHost: x\r\n"
                                        b"Connection: close\r\n\r\n")
        self.assertTrue(reply.startswith(b"HTTP/1.1 404 "), reply[:40])
        self.assertNotIn(b"<script>", reply)

    def test_slow_clients_are_cut_off(self):
        started = time.time()
        reply = raw_exchange(self.port, b"GET / HTTP/1.1\r\nHost: x\r\n", timeout=15)
        self.assertTrue(reply == b"" or reply.startswith(b"HTTP/1.1 408 "), reply[:40])
        self.assertLess(time.time() - started, 12)
        # A client that trickles its head one byte at a time is cut off just the same.
        with socket.create_connection(("127.0.0.1", self.port), timeout=15) as connection:
            closed = False
            started = time.time()
            for byte in b"GET /index.html HTTP/1.1\r\nHost: x\r\nX-Slow: " + b"z" * 40:
                if time.time() - started > 8:
                    break
                try:
                    connection.sendall(bytes([byte]))
                except OSError:
                    closed = True
                    break
                time.sleep(0.25)
            if not closed:
                connection.settimeout(5)
                try:
                    reply = connection.recv(100)
                except OSError:
                    reply = b""
                closed = reply == b"" or reply.startswith(b"HTTP/1.1 408")
            self.assertTrue(closed)
        status, _, _ = self.get("/style.css")
        self.assertEqual(status, 200)

    # Processes --------------------------------------------------------------------------

    def test_a_worker_crash_does_not_stop_the_service(self):
        with self.assertRaises((http.client.HTTPException, OSError)):
            self.get("/crash.html")
        self.assertTrue(wait_until(lambda: "killed by signal" in self.server_log(), 10))
        for _ in range(10):
            status, _, body = self.get("/?q=ok")
            self.assertEqual(status, 200)
            self.assertIn(b"<p>q=ok</p>", body)


class LifecycleTest(unittest.TestCase):
    def test_graceful_stop_terminates_the_modules(self):
        base = tempfile.mkdtemp(prefix="kiv-e2e-stop-")
        try:
            site = make_site(base)
            config = write_config(base, site, workers=2)
            marker = os.path.join(base, "terminated.txt")
            server = Server(config, env=dict(os.environ, KIV_TEST_TERMINATE_FILE=marker))
            self.assertEqual(request(server.port, "GET", "/?q=1")[0], 200)
            self.assertEqual(server.stop(signal.SIGTERM), 0)
            with open(marker) as lines:
                self.assertEqual(lines.read().count("terminated"), 2)  # 'MTrm' in each worker
        finally:
            shutil.rmtree(base, ignore_errors=True)

    def test_idle_keep_alive_connections_do_not_hold_the_threads(self):
        # One worker with four threads and more idle keep-alive connections than threads: a
        # new visitor is still served, long before the idle connections time out.
        base = tempfile.mkdtemp(prefix="kiv-e2e-idle-")
        server = None
        idle = []
        try:
            site = make_site(base)
            server = Server(write_config(base, site, workers=1, keep_alive=60))
            for _ in range(6):
                connection = http.client.HTTPConnection("127.0.0.1", server.port, timeout=30)
                connection.request("GET", "/style.css")
                response = connection.getresponse()
                response.read()
                self.assertEqual(response.status, 200)
                self.assertEqual(response.headers["Connection"], "keep-alive")
                idle.append(connection)
            connection = http.client.HTTPConnection("127.0.0.1", server.port, timeout=15)
            connection.request("GET", "/?q=fresh")
            response = connection.getresponse()
            self.assertEqual(response.status, 200)
            self.assertIn(b"q=fresh", response.read())
            connection.close()
            # The idle ones still answer their next request.
            idle[0].request("GET", "/style.css")
            self.assertEqual(idle[0].getresponse().status, 200)
        finally:
            for connection in idle:
                connection.close()
            if server:
                server.stop()
            shutil.rmtree(base, ignore_errors=True)

    def test_requests_in_flight_finish_when_the_server_stops(self):
        base = tempfile.mkdtemp(prefix="kiv-e2e-inflight-")
        try:
            site = make_site(base)
            server = Server(write_config(base, site, workers=1))
            replies = []
            worker = threading.Thread(target=lambda: replies.append(request(server.port, "GET", "/slow.html")))
            worker.start()
            time.sleep(0.5)  # the request is now inside the module
            self.assertEqual(server.stop(signal.SIGINT), 0)
            worker.join(timeout=30)
            self.assertEqual(len(replies), 1)
            status, _, body = replies[0]
            self.assertEqual(status, 200)
            self.assertIn(b"SLEPT<p>done</p>", body)
            with self.assertRaises(OSError):
                request(server.port, "GET", "/style.css")
        finally:
            shutil.rmtree(base, ignore_errors=True)

    def test_commands_check_render_and_passwd(self):
        base = tempfile.mkdtemp(prefix="kiv-e2e-cli-")
        try:
            site = make_site(base)
            config = write_config(base, site)
            result = subprocess.run([SERVER, "check", "--config", config], capture_output=True, text=True, timeout=60)
            self.assertEqual(result.returncode, 0, result.stderr)
            with open(os.path.join(base, "bad.toml"), "w") as bad:
                bad.write('[server]\nport = "eighty"\n[[region]]\nroot = "nowhere"\n')
            result = subprocess.run([SERVER, "check", "--config", os.path.join(base, "bad.toml")],
                                    capture_output=True, text=True, timeout=60)
            self.assertEqual(result.returncode, 1)
            self.assertIn("port", result.stderr)
            result = subprocess.run([SERVER, "render", "--config", config, "--page", "/index.html", "--query", "q=cli"],
                                    capture_output=True, timeout=60)
            self.assertEqual(result.returncode, 0, result.stderr)
            self.assertIn(b"<p>q=cli</p>", result.stdout)
            self.assertTrue(password_hash().startswith("$argon2id$"))
        finally:
            shutil.rmtree(base, ignore_errors=True)


def main():
    global SERVER, MODULE
    parser = argparse.ArgumentParser()
    parser.add_argument("--server", required=True)
    parser.add_argument("--module", required=True)
    options, rest = parser.parse_known_args()
    SERVER = os.path.abspath(options.server)
    MODULE = os.path.abspath(options.module)
    unittest.main(argv=[sys.argv[0]] + rest, verbosity=2)


if __name__ == "__main__":
    main()
