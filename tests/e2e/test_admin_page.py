#!/usr/bin/env python3
"""The administration page's files, overview and backups, and UTF-8 regions, over HTTP against a
real kiv-server with the real Database Module and a scratch copy of the example site:

- files: an upload into the exports folder comes back byte for byte as an attachment, is never
  written over unless the form says so, and the editor's import reads it;
- attacks on the files: traversal and hidden names, the region's own files, links out of the
  folder, an oversized upload, an upload without a login or from another site: each refused
  with its status, and nothing written;
- the overview: databases with their record counts, the server log's errors HTML-encoded, and
  the backup button that makes a backup folder the shell's restore takes;
- a UTF-8 region: pages and the administration page are served as UTF-8, the module's own
  French words and UTF-8 data imported from a file both arrive as UTF-8.

Standard library only; run by ctest with --server and --module."""

import os
import re
import subprocess
import sys
import unittest
import urllib.parse

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "faults"))
import kivharness as kh  # noqa: E402  (the shared harness of the tests that run a server)

SERVER = None
MODULE = None
UPLOAD_LIMIT = 4096
SAME_SITE = {"Origin": "http://127.0.0.1"}  # the port is added per request
SEEDED_ERROR = '2026-01-01T00:00:00.000Z [error] pid 1 region=main: a <script>alert(1)</script> in a log line'


def multipart(fields, files):
    """A multipart/form-data body: fields {name: value}, files {name: (file name, bytes)}."""
    boundary = "kivBoundary7MA4YWxk"
    parts = []
    for name, value in fields.items():
        parts.append(f'--{boundary}\r\nContent-Disposition: form-data; name="{name}"\r\n\r\n'.encode()
                     + value.encode("utf-8") + b"\r\n")
    for name, (file_name, content) in files.items():
        parts.append(f'--{boundary}\r\nContent-Disposition: form-data; name="{name}"; filename="{file_name}"\r\n'
                     f'Content-Type: text/csv\r\n\r\n'.encode() + content + b"\r\n")
    return b"".join(parts) + f"--{boundary}--\r\n".encode(), "multipart/form-data; boundary=" + boundary


class AdminPage(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.site = kh.Site(SERVER, MODULE, region=f"public_write_rate = 0\nmax_upload_bytes = {UPLOAD_LIMIT}",
                           extra_server=f'server_log = "{{log}}"',
                           more_regions='[[region]]\nname = "utf"\nhosts = ["utf.test"]\nroot = "{root}"\n'
                                        'data = "{base}/utf-data"\nlanguage = "fr"\ncharset = "UTF-8"\n'
                                        'protected = ["/manage/"]\n[region.users]\nadmin = "' +
                                        kh.password_hash(SERVER) + '"\n')
        cls.log = os.path.join(cls.site.base, "server.log")
        with open(cls.site.config) as config:
            text = config.read().replace("{log}", cls.log)
        with open(cls.site.config, "w") as config:
            config.write(text)
        with open(cls.log, "w") as log:
            log.write(SEEDED_ERROR + "\n")
        cls.exports = os.path.join(cls.site.data, "exports")
        cls.server = kh.Server(SERVER, cls.site)
        cls.port = cls.server.port

    @classmethod
    def tearDownClass(cls):
        cls.server.stop()
        cls.site.remove()

    def send(self, method, path, body=None, headers=None, login=True, host=None):
        all_headers = dict(kh.basic_auth() if login else {}, **(headers or {}))
        if host:
            all_headers["Host"] = host
        if "Origin" in all_headers:
            all_headers["Origin"] = all_headers["Origin"].replace("127.0.0.1", host or f"127.0.0.1:{self.port}")
        connection = kh.http.client.HTTPConnection("127.0.0.1", self.port, timeout=60)
        try:
            connection.request(method, path, body=body, headers=all_headers)
            response = connection.getresponse()
            return response.status, response.headers, response.read()
        finally:
            connection.close()

    def upload(self, file_name, content, login=True, headers=None, host=None, **fields):
        body, content_type = multipart(dict({"kivAdminAction": "upload"}, **fields), {"file": (file_name, content)})
        return self.send("POST", "/kiv-admin/", body, dict({"Content-Type": content_type}, **(headers or SAME_SITE)),
                         login, host)

    def exported(self):
        return sorted(os.listdir(self.exports)) if os.path.isdir(self.exports) else []

    def test_upload_download_round_trip_and_no_silent_overwrite(self):
        content = b"LastName,FirstName,City,Email,Phone\r\nRound,Trip,Uploadville,round.trip@example.org,1\r\n"
        status, _, page = self.upload("round-trip.csv", content)
        self.assertEqual(status, 200, page[-600:])
        self.assertIn(b"Uploaded round-trip.csv", page)
        self.assertIn(b'href="/kiv-admin/files/round-trip.csv"', page, "the list links the file")
        status, headers, body = self.send("GET", "/kiv-admin/files/round-trip.csv")
        self.assertEqual((status, body), (200, content))
        self.assertTrue(headers["Content-Disposition"].startswith('attachment; filename="round-trip.csv"'))
        self.assertEqual(headers["Content-Type"], "text/csv")

        status, _, page = self.upload("round-trip.csv", b"other")
        self.assertEqual(status, 409, "a second upload of the name is refused without replace")
        self.assertIn(b"Replace", page)
        self.assertEqual(self.send("GET", "/kiv-admin/files/round-trip.csv")[2], content)
        status, _, _ = self.upload("ignored.csv", content + b"Two,More,Uploadville,two.more@example.org,2\r\n",
                                   name="round-trip.csv", replace="yes")
        self.assertEqual(status, 200)
        self.assertNotIn("ignored.csv", self.exported(), "the typed name wins over the browser's")
        self.assertEqual([name for name in self.exported() if name.startswith(".upload")], [],
                         "no temporary file is left")

        # The editor's import (here the page tag's) reads the uploaded file by its name.
        status, page = kh.post(self.port, "/t/import.html?" + kh.query(db="People", file="round-trip.csv"))
        self.assertIn("imported=2", page, kh.error_block(page))
        self.assertIn("[Trip][More]", kh.get(self.port, "/t/names.html?city=Uploadville")[1])

    def test_hostile_names_and_links_are_refused_and_nothing_is_written(self):
        before = self.exported()
        outside = os.path.join(self.site.base, "evil.csv")
        for name in ["..", ".", "../evil.csv", "../../evil.csv", ".hidden.csv", "a/b.csv", "a\\b.csv",
                     "users.toml", "People.kivdb", "x.csv\x00.txt", "x.sh", "caf\u00e9.csv"]:
            status, _, page = self.upload("fine.csv", b"a,b\r\n", name=name)
            self.assertEqual(status, 400, f"{name!r}: {page[-300:]}")
            self.assertIn(b"Not uploaded", page)
        # A browser's file name loses its folders: it lands inside the exports folder or nowhere.
        status, _, _ = self.upload("../../evil.csv", b"a,b\r\n")
        self.assertEqual(status, 200)
        self.assertFalse(os.path.exists(outside))
        self.assertIn("evil.csv", self.exported())
        for name in ["..", ".hidden.csv"]:
            self.assertEqual(self.upload(name, b"a,b\r\n")[0], 400, name)
        self.assertEqual(set(self.exported()) - set(before), {"evil.csv"})

        # Downloads: only regular files directly in the folder.
        os.makedirs(self.exports, exist_ok=True)
        os.symlink(os.path.join(self.site.data, "users.toml"), os.path.join(self.exports, "accounts.csv"))
        os.symlink("/etc/passwd", os.path.join(self.exports, "passwd.csv"))
        os.makedirs(os.path.join(self.exports, "folder.csv"), exist_ok=True)
        with open(os.path.join(self.exports, ".secret.csv"), "w") as hidden:
            hidden.write("hidden")
        for path in ["accounts.csv", "passwd.csv", "folder.csv", ".secret.csv", "..%2Fusers.toml",
                     "%2E%2E/users.toml", "nothing.csv", ""]:
            status, _, body = self.send("GET", "/kiv-admin/files/" + path)
            self.assertIn(status, (400, 404), path)
            self.assertNotIn(b"root:", body)
        status, _, page = self.send("GET", "/kiv-admin/")
        for unlisted in [b"accounts.csv", b"passwd.csv", b"folder.csv", b".secret.csv"]:
            self.assertNotIn(unlisted, page)

    def test_oversized_unauthenticated_and_cross_site_uploads_write_nothing(self):
        before = self.exported()
        status, _, page = self.upload("big.csv", b"x" * (UPLOAD_LIMIT + 1))
        self.assertEqual(status, 413)
        self.assertIn(b"max_upload_bytes", page)
        self.assertEqual(self.upload("anon.csv", b"a\r\n", login=False)[0], 401)
        self.assertEqual(self.send("GET", "/kiv-admin/files/round-trip.csv", login=False)[0], 401)
        self.assertEqual(self.upload("cross.csv", b"a\r\n", headers={"Origin": "http://evil.example"})[0], 403)
        self.assertEqual(self.upload("cross.csv", b"a\r\n", headers={"Referer": "http://evil.example/x"})[0], 403)
        self.assertEqual(self.upload("bare.csv", b"a\r\n", headers={"X-None": "1"})[0], 403, "no origin at all")
        self.assertEqual(self.exported(), before)
        self.assertEqual(self.send("POST", "/kiv-admin/", b"kivAdminAction=upload",
                                   dict({"Content-Type": "application/x-www-form-urlencoded"}, **SAME_SITE))[0], 400)
        self.assertEqual(self.send("POST", "/kiv-admin/", b"kivAdminAction=format-disk",
                                   dict({"Content-Type": "application/x-www-form-urlencoded"}, **SAME_SITE))[0], 400)

    def test_overview_backup_button_and_errors(self):
        status, _, page = self.send("GET", "/kiv-admin/")
        self.assertEqual(status, 200)
        cells = re.sub(r"<td[^>]*>", "<td>", page.decode("latin-1"))
        self.assertRegex(cells, r"<tr><td>People</td><td>45</td><td>[\d.]+ (bytes|KiB|MiB)</td>"
                                r"<td>\d{4}-\d\d-\d\d \d\d:\d\d UTC</td><td>KIVIDFIELD, LastName")
        self.assertIn(b"a &lt;script&gt;alert(1)&lt;/script&gt; in a log line", page, "errors shown encoded")
        self.assertNotIn(b"<script>", page)
        self.assertIn(b"No backups yet.", page)

        self.assertEqual(self.send("POST", "/kiv-admin/", b"kivAdminAction=backup",
                                   {"Content-Type": "application/x-www-form-urlencoded",
                                    "Origin": "http://evil.example"})[0], 403)
        status, _, page = self.send("POST", "/kiv-admin/", b"kivAdminAction=backup",
                                    dict({"Content-Type": "application/x-www-form-urlencoded"}, **SAME_SITE))
        self.assertEqual(status, 200, page[-500:])
        backups = os.path.join(self.site.data, "backups")
        made = os.listdir(backups)
        self.assertEqual(len(made), 1)
        self.assertTrue(re.fullmatch(r"\d{4}-\d\d-\d\dT\d{6}Z", made[0]), made[0])
        self.assertIn(b"Backed up 1 databases", page)
        self.assertIn(f'<tr><td data-label="Backup">{made[0]}</td>'.encode(), page)
        # The shell's restore takes the folder back, and its check finds it sound.
        check = subprocess.run([SERVER, "db", "check", "--data", os.path.join(backups, made[0])],
                               capture_output=True, text=True, timeout=120)
        self.assertEqual((check.returncode, check.stdout.strip()), (0, "People: ok"), check.stderr)
        self.assertEqual(self.send("POST", "/kiv-admin/", b"kivAdminAction=backup",
                                   dict({"Content-Type": "application/x-www-form-urlencoded"}, **SAME_SITE))[0], 200)
        self.assertEqual(len(os.listdir(backups)), 2, "a second backup in the same second gets its own folder")

    def test_utf8_region_serves_module_words_and_utf8_data_as_utf8(self):
        host = "utf.test"
        status, headers, page = self.send("GET", "/manage/editor.html", host=host)
        self.assertEqual(status, 200)
        self.assertEqual(headers["Content-Type"], "text/html; charset=UTF-8")
        self.assertIn("Bases de donn\u00e9es".encode("utf-8"), page)
        page.decode("utf-8")  # the whole page is valid UTF-8
        csv = "LastName,FirstName,City,Email,Phone\r\nN\u00fa\u00f1ez,Jos\u00e9,M\u00e1laga,jose@example.org,3\r\n"
        status, _, _ = self.upload("utf8.csv", csv.encode("utf-8"), host=host)
        self.assertEqual(status, 200)
        connection_headers = {"Host": host, "Content-Type": "application/x-www-form-urlencoded"}
        status, _, page = self.send("POST", "/t/import.html?" + kh.query(db="People", file="utf8.csv"), b"",
                                    connection_headers, login=False)
        self.assertIn(b"imported=1", page)
        city = urllib.parse.quote("M\u00e1laga".encode("utf-8"))
        status, headers, page = self.send("GET", f"/t/names.html?city={city}", login=False, host=host)
        self.assertEqual(headers["Content-Type"], "text/html; charset=UTF-8")
        self.assertIn("[Jos\u00e9]".encode("utf-8"), page, "kept as imported, not converted twice")
        status, headers, page = self.send("GET", "/kiv-admin/", host=host)
        self.assertEqual(headers["Content-Type"], "text/html; charset=UTF-8")
        page.decode("utf-8")
        # The ISO 8859-1 region next to it sends the same module words as single bytes.
        status, headers, page = self.send("GET", "/manage/editor.html")
        self.assertEqual(headers["Content-Type"], "text/html; charset=ISO-8859-1")
        self.assertIn("Databases".encode(), page)


def configure(server, module):
    global SERVER, MODULE
    SERVER, MODULE = server, module


if __name__ == "__main__":
    kh.main(configure)
