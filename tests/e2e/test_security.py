#!/usr/bin/env python3
"""Attacks on a real kiv-server with the real Database Module and a scratch copy of the example
site, over HTTP, grouped by attack:

- stored markup: a stored <script> and a stored '" onfocus="' come back encoded on the public
  pages (also for data that came in by CSV import), rawFields="yes" and a region without
  encoding give them as stored, and such a region refuses markup in visitors' values instead;
- the Content-Security-Policy: every response of a region carries it, login areas refuse
  framing, the pages carry no inline script or style, and a region may send none;
- protection follows the file: the editor asks for a login whatever URL reaches it (a symbolic
  link, doubled slashes, another case, percent-encoded letters), and refuses cross-site posts;
- writes need POST: a GET or HEAD of a page that writes changes nothing, whatever the mode;
- a flood of public adds is answered 429 with Retry-After;
- injection strings in a search, path traversal and log injection.

The server has three regions over one site: "main" with the default policy, "raw.test" that opts
out of encoding, of the policy header and of POST-only writes, and "flood.test" with a low write
rate. Standard library only; run by ctest with --server and --module."""

import http.client
import os
import re
import shutil
import socket
import sys
import time
import unittest
import urllib.parse

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "faults"))
import kivharness as kh  # noqa: E402  (the shared harness of the tests that run a server)

SERVER = None
MODULE = None
SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
DEFAULT_POLICY = ("default-src 'self'; script-src 'self'; object-src 'none'; base-uri 'self'; "
                  "frame-ancestors 'self'")
LOGIN_POLICY = DEFAULT_POLICY.replace("frame-ancestors 'self'", "frame-ancestors 'none'")
FLOOD_RATE = 3  # writes a minute per address and worker in the flood region
WORKERS = 2
OUTCOME = "[&kivPageVariable(kivResult);|&kivPageVariable(kivError);]"
# The regions beside "main": name (and host name.test), data folder and policy.
REGIONS = [("raw", "{data}", 'encode_fields = false\ncontent_security_policy = ""\nwrites_need_post = false'),
           ("flood", "{base}/flood-data", f"public_write_rate = {FLOOD_RATE}")]

# Pages of the tests, beside the example site's own and the harness's (t/count.html,
# t/import.html, ...).
PAGES = {
    "t/raw.html": '<table><kivSearchDatabase databaseName="People" keyFieldName="City" pathArgumentName="city" '
                  'rawFields="yes"><tr><td>&kivDBField(FirstName);</td><td><a href="mailto:&kivDBField(Email);">'
                  'mail</a></td></tr></kivSearchDatabase></table>',
    "t/list.html": '<ul><kivSearchDatabase databaseName="&kivPathArgument(db);" resultsPerPage="100">'
                   '<li>&kivDBField(Name);</li></kivSearchDatabase></ul>',
    "t/search.html": '<kivSearchDatabase databaseName="People" searchString="&kivPathArgument(q);" resultsPerPage="1" '
                     'resultVariableName="s"></kivSearchDatabase>count=&kivPageVariable(s_ResultCount);' + OUTCOME,
    "t/getadd.html": '<kivModifyDatabase mode="addRecord" databaseName="People" resultVariableName="a" '
                     'fieldName="FirstName" pathArgumentName="name" fieldName="City" fieldValue="Getville" '
                     'fieldName="Email" pathArgumentName="email">' + OUTCOME,
    "t/victim.html": '<kivModifyDatabase mode="createDatabase" databaseName="Victim">'
                     '<kivModifyDatabase mode="addField" databaseName="Victim" fieldName="Name" fieldType="Text">'
                     '<kivModifyDatabase mode="addRecord" databaseName="Victim" fieldName="Name" fieldValue="kept">'
                     + OUTCOME,
    # Every mode that writes, spelled as the module accepts it; none may run for GET or HEAD.
    "t/writes.html": '<p>databases=<kivModifyDatabase mode="listDatabases"></p>'
                     '<kivModifyDatabase mode="deleteRecord" databaseName="Victim" keyFieldName="Name" fieldValue="kept">'
                     '<kivModifyDatabase mode="updateRecord" databaseName="Victim" keyFieldName="Name" fieldValue="kept" '
                     'fieldName="Name" fieldValue="changed">'
                     '<kivModifyDatabase mode="ADDRECORD" databaseName="Victim" fieldName="Name" fieldValue="added">'
                     '<kivModifyDatabase mode="addField" databaseName="Victim" fieldName="Extra" fieldType="Text">'
                     '<kivModifyDatabase mode="deleteField" databaseName="Victim" fieldName="Name">'
                     '<kivModifyDatabase mode="import" databaseName="Victim" fileLocation="victim.csv">'
                     '<kivModifyDatabase mode="createDatabase" databaseName="Crawled">'
                     '<kivModifyDatabase mode="deleteDatabase" databaseName="Victim">'
                     '<p>fields=<kivModifyDatabase mode="listFields" databaseName="Victim"></p>' + OUTCOME,
    "t/guests.html": '<kivModifyDatabase mode="createDatabase" databaseName="Guests">'
                     '<kivModifyDatabase mode="import" databaseName="Guests" fileLocation="guests.csv">' + OUTCOME,
    "manage/secret.csv": "Name\nonly for the logged-in\n",
}


class SecurityTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        # The region "main" keeps the default policy; the others share the site.
        cls.site = kh.Site(SERVER, MODULE, workers=WORKERS, region="", more_regions="".join(
            f'[[region]]\nname = "{name}"\nhosts = ["{name}.test"]\nroot = "{{root}}"\ndata = "{data}"\n'
            f'protected = ["/manage/"]\n{policy}\n' for name, data, policy in REGIONS))
        root, base = cls.site.root, cls.site.base
        cls.access_log = os.path.join(base, "access.log")
        for name, text in PAGES.items():
            os.makedirs(os.path.dirname(os.path.join(root, name)), exist_ok=True)
            with open(os.path.join(root, name), "w", encoding="latin-1") as out:
                out.write(text)
        # A link from a public folder to the protected one, and one out of the site.
        os.symlink("../manage", os.path.join(root, "t", "mlink"))
        os.makedirs(os.path.join(base, "outside"))
        for folder in (base, os.path.join(base, "outside")):
            with open(os.path.join(folder, "secret.txt"), "w") as out:
                out.write("TOP-SECRET\n")
        os.symlink(os.path.join(base, "outside"), os.path.join(root, "escape"))
        os.makedirs(os.path.join(cls.site.data, "exports"))
        with open(os.path.join(cls.site.data, "exports", "guests.csv"), "w") as out:
            out.write('Name\r\n<svg onload=alert(1)>\r\n"a"" onmouseover=""alert(2)"\r\n')
        with open(os.path.join(cls.site.data, "exports", "victim.csv"), "w") as out:
            out.write("Name\r\nimported\r\n")
        cls.server = kh.Server(SERVER, cls.site)
        cls.port = cls.server.port
        cls.origin = f"http://127.0.0.1:{cls.port}"

    @classmethod
    def tearDownClass(cls):
        cls.server.stop()
        cls.site.remove()

    # Helpers -------------------------------------------------------------------------------

    def request(self, method, path, form=None, headers=None, host=None):
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=60)
        all_headers = dict(headers or {})
        if host:
            all_headers["Host"] = host
        body = None
        if form is not None:
            body = urllib.parse.urlencode(form, encoding="latin-1")
            all_headers.setdefault("Content-Type", "application/x-www-form-urlencoded")
        try:
            connection.request(method, path, body=body, headers=all_headers)
            response = connection.getresponse()
            return response.status, response.headers, response.read().decode("latin-1")
        finally:
            connection.close()

    def raw(self, target, headers=b""):
        """A request sent as written, so that no client library tidies its path."""
        with socket.create_connection(("127.0.0.1", self.port), timeout=30) as connection:
            connection.sendall(b"GET " + target.encode("latin-1") + b" HTTP/1.1\r\nHost: x\r\n" + headers
                               + b"Connection: close\r\n\r\n")
            reply = b""
            while chunk := connection.recv(65536):
                reply += chunk
        return reply.decode("latin-1")

    def add_person(self, host=None, **fields):
        return self.request("POST", "/people/added.html", form=fields, host=host)

    def count(self, search, host=None):
        _, _, body = self.request("GET", "/t/search.html?" + kh.query(q=search), host=host)
        match = re.search(r"count=(\d+)\[0\|\]", body)
        self.assertIsNotNone(match, body[-500:])
        return int(match.group(1))

    def logged_in(self, extra=None):
        return dict(kh.basic_auth(), **(extra or {}))

    # Stored markup -------------------------------------------------------------------------

    def test_stored_markup_comes_back_encoded_unless_the_page_or_region_asks_for_it_raw(self):
        script = "<script>alert(1)</script>"
        breakout = 'x" autofocus onfocus="alert(2)'
        status, _, body = self.add_person(FirstName=script, LastName="Zed <i>", City="Scriptville",
                                          Email=breakout + "@example.org", Phone="&kivDBField(Email);")
        self.assertEqual(status, 200, "honest values with '<' are accepted while fields are encoded")
        self.assertIn("Added &lt;script&gt;", body)
        _, _, page = self.request("GET", "/people/search.html?city=Scriptville")
        self.assertIn("&lt;script&gt;alert(1)&lt;/script&gt;", page)
        self.assertIn('href="mailto:x&quot; autofocus onfocus=&quot;alert(2)@example.org"', page)
        self.assertIn("Zed &lt;i&gt;", page)
        self.assertNotIn(script, page)
        self.assertNotIn('" autofocus', page)
        _, _, page = self.request("GET", "/people/?page=3")
        self.assertIn("<td>&amp;kivDBField(Email);</td>", page, "a stored placeholder stays text")
        self.assertNotIn(script, page)
        # The author's opt-out, and a region that shows every value as stored.
        _, _, page = self.request("GET", "/t/raw.html?city=Scriptville")
        self.assertIn("<td>" + script + "</td>", page)
        self.assertIn('href="mailto:' + breakout + '@example.org"', page)
        self.assertNotIn("rawFields", page)
        _, _, page = self.request("GET", "/people/search.html?city=Scriptville", host="raw.test")
        self.assertIn(script, page)
        # Such a region refuses markup in what visitors send instead, before the tag runs.
        status, _, page = self.add_person(host="raw.test", FirstName="<b>bold</b>", LastName="Guard",
                                          City="Rawtown", Email="guard@example.org")
        self.assertEqual(status, 400)
        self.assertNotIn("<b>bold", page)
        self.assertEqual(self.count("City = 'Rawtown'"), 0)

    def test_imported_markup_is_encoded_too(self):
        status, page = kh.post(self.port, "/t/guests.html")
        self.assertEqual(status, 200)
        self.assertIn("[0|]", page)
        _, _, page = self.request("GET", "/t/list.html?db=Guests")
        self.assertIn("<li>&lt;svg onload=alert(1)&gt;</li>", page)
        self.assertIn("<li>a&quot; onmouseover=&quot;alert(2)</li>", page)
        self.assertNotIn("<svg", page)

    def test_error_pages_do_not_reflect_the_request(self):
        reply = self.raw("/%3Cscript%3Ealert(1)%3C/script%3E.txt")
        self.assertTrue(reply.startswith("HTTP/1.1 404 "), reply[:40])
        self.assertNotIn("<script>", reply)

    # Content-Security-Policy ---------------------------------------------------------------

    def test_every_response_carries_the_policy_and_pages_need_no_inline_code(self):
        public = ["/", "/people/", "/people/search.html?city=Lyon", "/people/add.html", "/people/added.html",
                  "/style.css", "/kiv-assets/kiv.css", "/no-such-page.html", "/t/"]
        for path in public:
            status, headers, body = self.request("GET", path)
            with self.subTest(path=path, status=status):
                self.assertEqual(headers["Content-Security-Policy"], DEFAULT_POLICY)
                if path.endswith((".html", "/", "Lyon")):
                    self.assertNotRegex(body, r"(?i)<script|<style|\sstyle=|\son[a-z]+=")
        for path, headers in (("/manage/editor.html", {}), ("/manage/editor.html", self.logged_in()),
                              ("/kiv-admin/", self.logged_in()), ("/t/mlink/editor.html", self.logged_in())):
            status, answer, body = self.request("GET", path, headers=headers)
            with self.subTest(path=path, status=status):
                self.assertEqual(answer["Content-Security-Policy"], LOGIN_POLICY)
                self.assertEqual(answer["X-Frame-Options"], "DENY")
                self.assertNotRegex(body, r"(?i)<script|<style|\sstyle=|\son[a-z]+=")
        # The error box of a failed tag needs no inline style either.
        _, _, body = self.request("GET", "/people/added.html")
        self.assertIn('<div class="kiv-error" role="alert">', body)
        status, headers, _ = self.request("GET", "/people/", host="raw.test")
        self.assertEqual(status, 200)
        self.assertNotIn("Content-Security-Policy", headers, "a region may send no policy")

    # Protection follows the file -----------------------------------------------------------

    def test_the_editor_asks_for_a_login_whatever_url_reaches_it(self):
        spellings = ["/manage/editor.html", "/t/mlink/editor.html", "//manage//editor.html", "/./manage/editor.html",
                     "/MANAGE/editor.html", "/%6danage/editor.html", "/%2fmanage/editor.html",
                     "/t/%6dlink/editor.html", "/t/mlink//editor.html", "/t/./mlink/editor.html",
                     "/t/mlink/../mlink/editor.html", "/people/..%2f..%2fmanage/editor.html",
                     "/t/mlink/secret.csv", "/t/mlink/", "/manage"]
        for path in spellings:
            reply = self.raw(path)
            with self.subTest(path=path):
                self.assertRegex(reply, r"^HTTP/1\.1 (400|401) ")
                self.assertNotIn("kivEditDatabase_Action", reply)
                self.assertNotIn("only for the logged-in", reply)
        status, _, body = self.request("GET", "/t/mlink/editor.html", headers=self.logged_in())
        self.assertEqual(status, 200, "the login checked for the link is the protected folder's")
        self.assertIn("kivEditDatabase_Action", body)
        status, _, _ = self.request("GET", "/t/mlink/editor.html", headers=kh.basic_auth(password="wrong"))
        self.assertEqual(status, 401)

    def test_cross_site_posts_to_protected_files_are_refused(self):
        form = {"kivEditDatabase_Action": "Fields", "kivEditDatabase_Name": "CrossSite"}
        variants = [{}, {"Origin": "http://attacker.example"}, {"Origin": "null"},
                    {"Origin": self.origin + ".attacker.example"}, {"Referer": "http://attacker.example/x"},
                    {"Referer": "http://attacker.example/?" + self.origin + "/"},
                    {"Origin": "http://attacker.example", "Referer": self.origin + "/manage/editor.html"}]
        for path in ("/manage/editor.html", "/t/mlink/editor.html", "//manage/editor.html"):
            for extra in variants:
                status, _, _ = self.request("POST", path, form=form, headers=self.logged_in(extra))
                self.assertEqual(status, 403, (path, extra))
        for extra in variants[:2]:
            status, _, _ = self.request("POST", "/kiv-admin/", form={"kivAdminModule": "0"},
                                        headers=self.logged_in(extra))
            self.assertEqual(status, 403, extra)
        self.assertFalse([name for name in os.listdir(self.site.data) if name.lower().startswith("crosssite")],
                         "a refused post created the database")
        status, _, body = self.request("POST", "/t/mlink/editor.html", form={"kivEditDatabase_Action": "Databases"},
                                       headers=self.logged_in({"Origin": self.origin}))
        self.assertEqual(status, 200, "posts from the site itself are served")
        self.assertIn("People", body)

    def test_no_request_reaches_files_outside_the_site(self):
        attempts = ["/../secret.txt", "/%2e%2e/secret.txt", "/people/%2E%2E/%2e%2e/secret.txt",
                    "/people/..%2f..%2fsecret.txt", "/escape/secret.txt", "/escape/", "/people/%5c..%5csecret.txt",
                    "/%00/etc/passwd", "/t/mlink/../../secret.txt", "/t/mlink/%2e%2e/%2e%2e/secret.txt"]
        for path in attempts:
            reply = self.raw(path)
            with self.subTest(path=path):
                self.assertRegex(reply, r"^HTTP/1\.1 (400|401|403|404) ")
                self.assertNotIn("TOP-SECRET", reply)

    # Writes need POST ----------------------------------------------------------------------

    def test_get_and_head_of_pages_that_write_change_nothing(self):
        status, page = kh.post(self.port, "/t/victim.html")
        self.assertEqual(status, 200)
        self.assertIn("[0|]", page)
        people = self.count("")
        for method in ("GET", "HEAD"):
            status, _, page = self.request(method, "/people/added.html?" + kh.query(
                FirstName="Crawler", LastName="Bot", City="Prefetch", Email="bot@example.org"))
            self.assertEqual(status, 200)
            if method == "GET":
                self.assertIn("Not added: The &lt;kivModifyDatabase&gt; tag with mode &quot;addRecord&quot;", page)
                self.assertIn("POST", page)
            status, _, page = self.request(method, "/t/getadd.html?" + kh.query(name="Crawler",
                                                                                 email="crawler@example.org"))
            self.assertEqual(status, 200)
            _, _, page = self.request(method, "/t/writes.html")
            if method == "GET":
                self.assertEqual(page.count('class="kiv-error"'), 8, page)
                databases = re.search(r"<p>databases=([^<]*)</p>", page).group(1).split(",")
                self.assertIn("Victim", databases, "reading modes still run")
                self.assertNotIn("Crawled", databases)
                fields = re.search(r"<p>fields=([^<]*)</p>", page).group(1)
                self.assertRegex(fields, r"(^|,)Name\.Text\.")
                self.assertNotIn("Extra", fields)
        self.assertEqual(self.count(""), people)
        _, _, page = self.request("GET", "/t/list.html?db=Victim")
        self.assertIn("<li>kept</li>", page)
        self.assertNotIn("<li>added</li>", page)
        self.assertNotIn("<li>changed</li>", page)
        self.assertFalse([name for name in os.listdir(self.site.data) if name.lower().startswith("crawled")])
        # A region may allow writes on GET.
        status, _, page = self.request("GET", "/t/getadd.html?" + kh.query(name="Allowed", email="get@example.org"),
                                       host="raw.test")
        self.assertIn("[0|]", page)
        self.assertEqual(self.count("City = 'Getville'"), 1)

    # Floods of writes ----------------------------------------------------------------------

    def test_a_flood_of_public_adds_is_answered_429_with_retry_after(self):
        started = time.time()
        answers = []
        for i in range(20):
            status, headers, page = self.add_person(host="flood.test", FirstName=f"F{i}", LastName="Flood",
                                                    City="Floodville", Email=f"flood{i}@example.org")
            answers.append((status, headers.get("Retry-After"), "Added F" in page))
        elapsed = time.time() - started
        added = [answer for answer in answers if answer[0] == 200]
        refused = [answer for answer in answers if answer[0] == 429]
        self.assertEqual(len(added) + len(refused), 20, answers)
        self.assertTrue(all(answer[2] for answer in added), answers)
        # Each worker grants a minute's allowance, then the rate.
        self.assertLessEqual(len(added), WORKERS * (FLOOD_RATE + int(elapsed * FLOOD_RATE / 60) + 1), answers)
        self.assertGreaterEqual(len(refused), 1)
        self.assertTrue(all(retry and retry.isdigit() and int(retry) >= 1 for _, retry, _ in refused), refused)
        status, _, page = self.request("GET", "/t/search.html?" + kh.query(q="City = 'Floodville'"),
                                       host="flood.test")
        self.assertEqual(status, 200, "reading goes on")
        self.assertIn(f"count={len(added)}[0|]", page, "a refused add stored nothing")
        lines = [line for line in self.server.logged().split("\n") if "refused writes from 127.0.0.1" in line]
        self.assertGreaterEqual(len(lines), 1)
        self.assertLess(len(lines), len(refused) + 1 if len(refused) < 4 else len(refused))

    # Injection strings in a search ---------------------------------------------------------

    def test_injection_strings_in_a_search_stay_values(self):
        people = self.count("")
        for search in ("LastName = '' OR '1'='1'", "LastName = 'x'' OR ''1''=''1'",
                       "LastName = 'x''; DROP TABLE kiv_records; --'", "City = 'x' OR 1=1",
                       "LastName = 'a' UNION SELECT name FROM sqlite_master --"):
            _, _, page = self.request("GET", "/t/search.html?" + kh.query(q=search))
            with self.subTest(search=search):
                self.assertTrue("count=0[0|]" in page or "kiv-error" in page, page[-400:])
        _, _, page = self.request("GET", "/people/search.html?" + kh.query(city="x' OR '1'='1"))
        self.assertIn("of 0 in", page)
        hostile = os.path.join(SOURCE, "tests", "data", "search_hostile.txt")
        with open(hostile, encoding="latin-1") as lines:
            for line in lines:
                text = line.rstrip("\n")
                if not text or text.startswith("## "):
                    continue
                status, _, page = self.request("GET", "/t/search.html?" + kh.query(q=text.replace("Name", "LastName")))
                self.assertEqual(status, 200, text)
        self.assertEqual(self.count(""), people, "the table is whole")

    # Log injection -------------------------------------------------------------------------

    def test_line_breaks_from_visitors_cannot_forge_log_lines(self):
        forged = "%0d%0a2030-01-01T00:00:00.000Z%20[error]%20forged"
        self.raw("/missing" + forged + ".html")
        self.raw("/t/search.html?q=Nmae%20%3D%20'" + forged + "'")
        self.raw("/../" + forged)
        self.request("POST", "/people/added.html", form={"FirstName\r\n2030 [error] forged": "<b>"}, host="raw.test")
        self.raw("/people/", headers=b"Referer: http://x/" + forged.encode() + b"\r\nUser-Agent: a\"\\ forged\r\n")
        self.assertTrue(kh.wait_until(lambda: self.server.logged().count("forged") >= 2, 10), self.server.logged())
        server_lines = [line for line in self.server.logged().split("\n") if "forged" in line]
        for line in server_lines:
            self.assertRegex(line, r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z \[(note|warning|error|failure)\] pid \d+ ")
        self.assertTrue(kh.wait_until(lambda: "forged" in self.read_access_log(), 10))
        for line in self.read_access_log().split("\n"):
            if line:
                self.assertRegex(line, r"^127\.0\.0\.1 ")

    def read_access_log(self):
        with open(self.access_log, encoding="latin-1") as log:
            return log.read()


def configure(server, module):
    global SERVER, MODULE
    SERVER, MODULE = server, module


if __name__ == "__main__":
    kh.main(configure)
