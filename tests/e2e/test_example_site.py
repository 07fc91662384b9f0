#!/usr/bin/env python3
"""The example site served with the real Database Module: first-run sample data, the
directory's paging, the search, adding a record from a form and saying whether it was added,
the editor's stylesheet, and what the database service promises pages: errors that say what to
do (logged once), exports and imports that stay inside the exports folder, imports with a
byte-order mark or a NUL byte, long texts kept whole. The attacks on the same site (stored
scripts, links around the login, writes on GET, floods) are in test_security.py. Standard
library only; run by ctest with --server, --module and --site."""

import base64
import os
import re
import shutil
import tempfile
import time
import unittest
import urllib.parse

from site_server import parse_options, request, SiteServer, SiteTestCase

OPTIONS = None

OUTCOME = "[&kivPageVariable(kivResult);|&kivPageVariable(kivError);]"
# Pages that only the tests add to their copy of the site.
TEST_PAGES = {
    "t/search.html": '<kivSearchDatabase databaseName="&kivPathArgument(db);" searchString="&kivPathArgument(q);">'
                     '<p>&kivDBField(FirstName);</p></kivSearchDatabase>' + OUTCOME,
    "t/export.html": '<kivModifyDatabase mode="export" databaseName="People" fileLocation="&kivPathArgument(file);"'
                     ' resultVariableName="e">' + OUTCOME + "exported=&kivPageVariable(e_ResultCount);",
    "t/import.html": '<kivModifyDatabase mode="createDatabase" databaseName="&kivPathArgument(db);">'
                     '<kivModifyDatabase mode="import" databaseName="&kivPathArgument(db);"'
                     ' fileLocation="&kivPathArgument(file);" resultVariableName="i">' + OUTCOME
                     + "imported=&kivPageVariable(i_ResultCount);"
                     '<kivModifyDatabase mode="listFields" databaseName="&kivPathArgument(db);">',
}


def read_bytes(path):
    with open(path, "rb") as file:
        return file.read()


class ExampleSiteTest(SiteTestCase):
    @classmethod
    def setUpClass(cls):
        cls.base = tempfile.mkdtemp(prefix="kiv-example-")
        cls.site = os.path.join(cls.base, "site")
        cls.data = cls.site + "-data"
        shutil.copytree(OPTIONS.site, cls.site)
        for name, text in TEST_PAGES.items():
            os.makedirs(os.path.dirname(os.path.join(cls.site, name)), exist_ok=True)
            with open(os.path.join(cls.site, name), "w", encoding="latin-1") as out:
                out.write(text)
        cls.server = SiteServer(OPTIONS.server, OPTIONS.module, cls.site)
        cls.port, cls.password, cls.log = cls.server.port, cls.server.password, cls.server.log
        # Taken before any test adds a record, so that it shows the sample data alone.
        cls.second_page = request(cls.port, "GET", "/people/?page=2")

    def editor(self, form):
        token = base64.b64encode(f"admin:{self.password}".encode()).decode()
        status, _, body = request(self.port, "POST", "/manage/editor.html", body=urllib.parse.urlencode(form),
                                  headers={"Authorization": "Basic " + token, "Origin": f"http://127.0.0.1:{self.port}",
                                           "Content-Type": "application/x-www-form-urlencoded"})
        self.assertEqual(status, 200)
        return body

    def add_person(self, **fields):
        form = urllib.parse.urlencode(fields, encoding="latin-1")
        status, _, body = request(self.port, "POST", "/people/added.html", body=form,
                                  headers={"Content-Type": "application/x-www-form-urlencoded"})
        self.assertEqual(status, 200)
        return body

    def write(self, path, **query):
        """A test page that changes a database: it runs only for POST."""
        status, _, body = request(self.port, "POST", path + "?" + urllib.parse.urlencode(query), body="",
                                  headers={"Content-Type": "application/x-www-form-urlencoded"})
        self.assertEqual(status, 200)
        return body

    def page(self, path, **query):
        status, _, body = request(self.port, "GET", path + "?" + urllib.parse.urlencode(query))
        self.assertEqual(status, 200)
        return body

    def logged(self, text):
        deadline = time.time() + 5
        while time.time() < deadline and not any(text in line for line in self.log):
            time.sleep(0.05)
        return [line for line in self.log if text in line]

    def test_directory_pages_through_the_sample_people(self):
        status, _, body = self.second_page
        self.assertEqual(status, 200)
        self.assertNotIn("kiv-error", body)
        text = " ".join(body.split())
        self.assertIn("Showing 21-40 of 45", text)
        self.assertIn('href="?page=1"', body)
        self.assertIn('href="?page=3"', body)
        self.assertEqual(body.count('<a href="mailto:'), 20)

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

    def test_the_page_after_a_write_says_whether_it_worked(self):
        body = self.add_person(FirstName="Zed", LastName="Zulu", City="Reykjavik", Email="zed@example.org",
                               Phone="1")
        self.assertNotIn("kiv-error", body)
        self.assertIn("Added Zed Zulu (Reykjavik).", body)
        self.assertNotIn("Not added", body)
        self.assertIn("Zed Zulu", self.page("/people/search.html", city="Reykjavik"))
        # The same email address again: the unique field refuses it, and the page says so.
        body = self.add_person(FirstName="Zed", LastName="Again", City="Reykjavik", Email="zed@example.org",
                               Phone="2")
        self.assertIn("kiv-error", body)
        self.assertIn("Not added: The database system was unable to add a record to the &quot;People&quot;", body)
        self.assertNotIn("Added Zed", body)
        self.assertIn("Another record already holds this value in the unique field Email", body)
        self.assertNotIn("Zed Again", self.page("/people/search.html", city="Reykjavik"))
        # Every module tag leaves its outcome: "0" and no error, or the code and the headline.
        self.assertIn("[0|]", self.page("/t/search.html", db="People", q="City = 'Lyon'"))
        self.assertRegex(self.page("/t/search.html", db="Bookz"), r"\[M[A-Za-z]{3}\|The database system")

    def test_the_error_box_says_what_went_wrong_and_the_log_has_it_once(self):
        body = self.page("/t/search.html", db="Bookz")
        self.assertRegex(body, r"no database named &quot;Bookz&quot; \(databases: [^)]*People")
        body = self.page("/t/search.html", db="People", q="LastName 'Nmae'")
        self.assertRegex(body, r"kiv-error-detail[^>]*>search: [^<]*at position 10 but found &quot;Nmae&quot;")
        body = self.page("/t/search.html", db="People", q="Nmae = 'x'")
        self.assertIn("no field &quot;Nmae&quot; in &quot;People&quot;", body)
        body = self.page("/t/search.html", db="People", q="City = 'Lyon' ORDER BY Nmae")
        self.assertIn("no field &quot;Nmae&quot; in &quot;People&quot;", body)
        lines = self.logged("Bookz")
        self.assertEqual(len([line for line in lines if "unable to" in line]), 1, lines)
        self.assertIn("Database service: no database named \"Bookz\"", lines[0])
        self.assertFalse([line for line in self.log if "The operation succeeded" in line])

    def test_exports_never_touch_the_servers_own_files(self):
        own = [os.path.join(self.data, name) for name in ("People.kivdb", "users.toml")]
        own.append(os.path.join(self.data, ".kivlocks", "people.lock"))
        before = [read_bytes(path) for path in own]
        names = ["../People.kivdb", "./../PEOPLE.KIVDB", "../People.kivdb-wal", "../users.toml",
                 "../.kivlocks/people.lock", "../kiv-preferences.txt", "People.kivdb", "USERS.TOML",
                 os.path.join(self.data, "People.kivdb"), "../../elsewhere.csv"]
        for name in names:
            body = self.page("/t/export.html", file=name)
            self.assertIn("[MNAu|", body, name)
        body = self.editor({"kivEditDatabase_Action": "Export Now", "kivEditDatabase_Name": "People",
                            "kivEditDatabase_ExportFilename": "../users.toml"})
        self.assertNotIn("unable to export", body)  # refused before the export: no message of the module's own
        self.assertEqual([read_bytes(path) for path in own], before)
        self.assertFalse(os.path.exists(os.path.join(self.data, "kiv-preferences.txt")))
        body = self.page("/t/export.html", file="everyone.csv")
        self.assertIn("[0|]", body)
        self.assertTrue(read_bytes(os.path.join(self.data, "exports", "everyone.csv")).startswith(
            b"KIVIDFIELD,LastName,FirstName"))

    def test_imports_take_a_byte_order_mark_refuse_a_nul_and_make_the_fields(self):
        exports = os.path.join(self.data, "exports")
        os.makedirs(exports, exist_ok=True)
        with open(os.path.join(exports, "guests.csv"), "wb") as out:
            out.write(b"\xef\xbb\xbfName,Visits\r\nAnn,3\r\nBo,5\r\n")
        with open(os.path.join(exports, "nul.csv"), "wb") as out:
            out.write(b"Name,Visits\r\nCy,1\r\nD\x00i,2\r\n")
        body = self.write("/t/import.html", db="Guests", file="guests.csv")
        self.assertIn("[0|]imported=2", body)
        self.assertIn("Name.LongText.0.,Visits.Integer.0.", body)
        body = self.write("/t/import.html", db="Guests", file="nul.csv")
        self.assertIn("Row 3 (line 3): the row holds a NUL byte", body)
        self.assertNotIn("[0|]", body)
        # The editor imports into a database it has just made: the file's columns become its fields.
        with open(os.path.join(exports, "visitors.csv"), "wb") as out:
            out.write(b"Name,Visits\r\nEve,7\r\n")
        body = self.editor({"kivEditDatabase_Action": "Import Now", "kivEditDatabase_Name": "Visitors",
                            "kivEditDatabase_ImportFilename": "visitors.csv"})
        self.assertNotIn("kiv-error", body)
        self.assertIn("Record Search (Visitors)", body)
        self.assertIn("1 Record Available", body)
        self.assertIn("Visits", body)

    def test_the_editor_says_a_field_already_exists_and_texts_are_kept_whole(self):
        body = self.editor({"kivEditDatabase_Action": "Add Field", "kivEditDatabase_Name": "People",
                            "kivEditDatabase_FieldName": "city", "kivEditDatabase_FieldType": "text",
                            "kivEditDatabase_FieldLength": "40"})
        self.assertIn("The field already exists.", body)
        self.assertIn("the field &quot;city&quot; already exists in &quot;People&quot;", body)
        long_name = "Maximilian-Alexander-Bartholomew-Christopher-Montgomery"  # longer than its 40
        body = self.add_person(FirstName=long_name, LastName="Long", City="Tromso", Email="long@example.org",
                               Phone="")
        self.assertIn("Added " + long_name, body)
        self.assertIn(long_name + " Long", self.page("/people/search.html", city="Tromso"))
        self.assertTrue(self.logged("bytes was stored whole in FirstName, whose length is 40"))

    def test_a_latin1_name_is_added(self):
        body = self.add_person(FirstName="Ren\u00e9e", LastName="M\u00fcller", City="G\u00f6ttingen",
                               Email="renee@example.org", Phone="")
        self.assertIn("Added Ren\u00e9e M\u00fcller", body)
        _, _, found = request(self.port, "GET", "/people/search.html?city=G%F6ttingen")
        self.assertIn("Ren\u00e9e M\u00fcller", found)

    def test_the_result_limit_preference_refuses_numbers_out_of_range(self):
        token = base64.b64encode(f"admin:{self.password}".encode()).decode()
        headers = {"Authorization": "Basic " + token, "Origin": f"http://127.0.0.1:{self.port}",
                   "Content-Type": "application/x-www-form-urlencoded"}
        preferences = os.path.join(self.data, "kiv-preferences.txt")

        def save(limit):
            form = urllib.parse.urlencode({"kivAdminModule": "0", "kivEditDatabase": "yes", "kivModifyDatabase": "yes",
                                           "kivSearchDatabase": "yes", "maxResults": limit})
            return request(self.port, "POST", "/kiv-admin/", body=form, headers=headers)

        status, _, body = save("250")
        self.assertEqual(status, 200)
        self.assertIn("saved", body)
        stored = read_bytes(preferences)
        self.assertIn(b"250", stored)
        for limit in ("4294967297", "1e9", "0", "-5", " 25", "100000", "12abc"):
            status, _, body = save(limit)
            self.assertEqual(status, 400, limit)
            self.assertIn("Not saved: The search result limit must be a whole number from 1 to 99999", body)
            self.assertEqual(read_bytes(preferences), stored, f"{limit!r} changed the stored preferences")
        self.assertTrue(self.logged("refused: The search result limit"))
        self.assertIn('name="maxResults" value="250"', request(self.port, "GET", "/kiv-admin/",
                                                              headers={"Authorization": "Basic " + token})[2])
        status, _, _ = save("100")
        self.assertEqual(status, 200)

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
    OPTIONS, argv = parse_options("server", "module", "site")
    unittest.main(argv=argv, verbosity=2)


if __name__ == "__main__":
    main()
