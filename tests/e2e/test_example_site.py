#!/usr/bin/env python3
"""The example site served with the real Database Module: first-run sample data, the
directory's paging, the search, adding a record from a form, the protected editor and its
stylesheet.
Standard library only; run by ctest with --server, --module and --site."""

import argparse
import base64
import http.client
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
import unittest
import urllib.parse

OPTIONS = None


def request(port, method, path, body=None, headers=None):
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=30)
    try:
        connection.request(method, path, body=body, headers=headers or {})
        response = connection.getresponse()
        return response.status, response.headers, response.read().decode("latin-1")
    finally:
        connection.close()


class ExampleSiteTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.base = tempfile.mkdtemp(prefix="kiv-example-")
        cls.site = os.path.join(cls.base, "site")
        shutil.copytree(OPTIONS.site, cls.site)
        cls.process = subprocess.Popen([OPTIONS.server, "serve", "--root", cls.site, "--module", OPTIONS.module,
                                        "--port", "0", "--workers", "2"],
                                       stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        cls.port, cls.password = None, None
        deadline = time.time() + 120
        while time.time() < deadline and cls.port is None:
            line = cls.process.stderr.readline().decode(errors="replace")
            if not line and cls.process.poll() is not None:
                break
            if match := re.search(r"the password (\S+)", line):
                cls.password = match.group(1)
            if match := re.search(r"listening on http://127\.0\.0\.1:(\d+)/", line):
                cls.port = int(match.group(1))
        if cls.port is None:
            cls.process.kill()
            raise RuntimeError("kiv-server did not start")
        cls.drain = threading.Thread(target=cls.process.stderr.read, daemon=True)
        cls.drain.start()
        # Taken before any test adds a record, so that it shows the sample data alone.
        cls.second_page = request(cls.port, "GET", "/people/?page=2")

    @classmethod
    def tearDownClass(cls):
        cls.process.send_signal(signal.SIGTERM)
        try:
            cls.process.wait(timeout=40)
        finally:
            if cls.process.poll() is None:
                cls.process.kill()
            cls.drain.join(timeout=5)
            cls.process.stderr.close()
            shutil.rmtree(cls.base, ignore_errors=True)

    def test_directory_pages_through_the_sample_people(self):
        status, _, body = self.second_page
        self.assertEqual(status, 200)
        self.assertNotIn("kiv-error", body)
        text = " ".join(body.split())
        self.assertIn("Showing 21-40 of 45", text)
        self.assertIn('href="?page=1"', body)
        self.assertIn('href="?page=3"', body)
        self.assertEqual(body.count("@example.org"), 20)

    def test_paging_links_show_only_where_there_is_a_page(self):
        _, _, first = request(self.port, "GET", "/people/")
        self.assertNotIn("Previous", first)
        self.assertIn('href="?page=2"', first)
        self.assertNotIn("page=0", first)
        self.assertNotIn("kivShowIf", first)
        _, _, last = request(self.port, "GET", "/people/?page=3")
        self.assertIn('href="?page=2"', last)
        self.assertNotIn("Next", last)
        self.assertNotIn("page=0", last)
        _, _, one = request(self.port, "GET", "/people/search.html?city=Lyon")
        self.assertNotIn("Previous", one)
        self.assertNotIn("Next", one)

    def test_search_by_city(self):
        status, _, body = request(self.port, "GET", "/people/search.html?city=Lyon")
        self.assertEqual(status, 200)
        self.assertNotIn("kiv-error", body)
        self.assertIn("<td>Lyon</td>", body)
        self.assertNotIn("<td>Madrid</td>", body)

    def test_a_posted_form_adds_a_record(self):
        form = urllib.parse.urlencode({"FirstName": "Zed", "LastName": "Zulu", "City": "Reykjavik",
                                       "Email": "zed@example.org", "Phone": "1"})
        status, _, body = request(self.port, "POST", "/people/added.html", body=form,
                                  headers={"Content-Type": "application/x-www-form-urlencoded"})
        self.assertEqual(status, 200)
        self.assertNotIn("kiv-error", body)
        self.assertIn("Records added: 1", body)
        _, _, found = request(self.port, "GET", "/people/search.html?city=Reykjavik")
        self.assertIn("Zed Zulu", found)

    def test_markup_in_a_public_form_is_refused_and_not_stored(self):
        form = urllib.parse.urlencode({"FirstName": "Mallory", "LastName": "<script>alert(1)</script>",
                                       "City": "Scriptville", "Email": "", "Phone": ""})
        status, _, body = request(self.port, "POST", "/people/added.html", body=form,
                                  headers={"Content-Type": "application/x-www-form-urlencoded"})
        self.assertEqual(status, 400)
        self.assertIn("&lt; and &gt;", body)
        self.assertNotIn("<script>", body)
        _, _, found = request(self.port, "GET", "/people/search.html?city=Scriptville")
        self.assertNotIn("Mallory", found)
        # In the query of a page that adds, too: the module may take values from either.
        status, _, _ = request(self.port, "GET", "/people/added.html?x=%3Cb%3E")
        self.assertEqual(status, 400)

    def test_a_latin1_name_is_added(self):
        form = urllib.parse.urlencode({"FirstName": "Ren\u00e9e", "LastName": "M\u00fcller", "City": "G\u00f6ttingen",
                                       "Email": "", "Phone": ""}, encoding="latin-1")
        status, _, body = request(self.port, "POST", "/people/added.html", body=form,
                                  headers={"Content-Type": "application/x-www-form-urlencoded"})
        self.assertEqual(status, 200)
        self.assertIn("Records added: 1", body)
        _, _, found = request(self.port, "GET", "/people/search.html?city=G%F6ttingen")
        self.assertIn("Ren\u00e9e M\u00fcller", found)

    def test_editor_is_protected(self):
        status, _, _ = request(self.port, "GET", "/manage/editor.html")
        self.assertEqual(status, 401)
        token = base64.b64encode(f"admin:{self.password}".encode()).decode()
        status, headers, body = request(self.port, "GET", "/manage/editor.html",
                                        headers={"Authorization": "Basic " + token})
        self.assertEqual(status, 200)
        self.assertEqual(headers["X-Frame-Options"], "DENY")
        self.assertIn("kivEditDatabase_Action", body)
        self.assertNotIn("kivDoNotProcess", body)

    def test_the_editor_stylesheet_comes_from_the_server_without_a_login(self):
        # The protected editor page links it; a browser fetches it like any stylesheet.
        token = base64.b64encode(f"admin:{self.password}".encode()).decode()
        _, _, page = request(self.port, "GET", "/manage/editor.html", headers={"Authorization": "Basic " + token})
        self.assertIn('<link rel="stylesheet" href="/kiv-assets/editor.css">', page)
        self.assertIn('name="viewport"', page)
        status, headers, body = request(self.port, "GET", "/kiv-assets/editor.css")
        self.assertEqual(status, 200)
        self.assertEqual(headers["Content-Type"], "text/css; charset=utf-8")
        self.assertEqual(headers["X-Content-Type-Options"], "nosniff")
        self.assertIn("max-age=", headers["Cache-Control"])
        self.assertIn("prefers-color-scheme: dark", body)
        status, _, body = request(self.port, "GET", "/kiv-assets/editor.css", headers={"If-None-Match": headers["ETag"]})
        self.assertEqual((status, body), (304, ""))
        self.assertEqual(request(self.port, "GET", "/kiv-assets/editor.css?v=2")[0], 200)
        self.assertEqual(request(self.port, "GET", "/kiv-assets/other.css")[0], 404)
        self.assertEqual(request(self.port, "POST", "/kiv-assets/editor.css", body="")[0], 405)


def main():
    global OPTIONS
    parser = argparse.ArgumentParser()
    parser.add_argument("--server", required=True)
    parser.add_argument("--module", required=True)
    parser.add_argument("--site", required=True)
    OPTIONS, rest = parser.parse_known_args()
    unittest.main(argv=[sys.argv[0]] + rest, verbosity=2)


if __name__ == "__main__":
    main()
