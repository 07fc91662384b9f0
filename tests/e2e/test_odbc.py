#!/usr/bin/env python3
"""The three database tags on ODBC data sources, end to end: a real kiv-server with the real
Database Module, pages naming the SQLite ODBC driver's and psqlODBC's data sources that
tests/odbc/odbc-fixture.sh set up (through ODBCSYSINI and ODBCINI). Standard library only;
run by ctest with --server, --module and --fixture."""

import argparse
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
SOURCES = {"sqlite": "KivSqlite", "pg": "KivPostgres"}

PAGES = {
    "create.html": """
<kivModifyDatabase mode="createDatabase" databaseName="{t}" {odbc} resultVariableName="c">
<kivModifyDatabase mode="addField" databaseName="{t}" {odbc} fieldName="Name" fieldType="Text" fieldLength="40" fieldFlags="X">
<kivModifyDatabase mode="addField" databaseName="{t}" {odbc} fieldName="City" fieldType="Text" fieldLength="30">
<kivModifyDatabase mode="addField" databaseName="{t}" {odbc} fieldName="Qty" fieldType="Integer">
<kivModifyDatabase mode="addField" databaseName="{t}" {odbc} fieldName="Price" fieldType="Number">
<kivModifyDatabase mode="createDatabase" databaseName="{t}Copy" {odbc}>
<kivModifyDatabase mode="addField" databaseName="{t}Copy" {odbc} fieldName="Name" fieldType="Text" fieldLength="40">
<kivModifyDatabase mode="addField" databaseName="{t}Copy" {odbc} fieldName="City" fieldType="Text" fieldLength="30">
<kivModifyDatabase mode="addField" databaseName="{t}Copy" {odbc} fieldName="Qty" fieldType="Integer">
<kivModifyDatabase mode="addField" databaseName="{t}Copy" {odbc} fieldName="Price" fieldType="Number">
<p>created &kivPageVariable(c_DatabaseName);</p>""",
    "add.html": """<kivModifyDatabase mode="addRecord" databaseName="{t}" {odbc} resultVariableName="a"
    fieldName="Name" postArgumentName="Name" fieldName="City" postArgumentName="City" fieldName="Qty" postArgumentName="Qty">
<p>added=&kivPageVariable(a_ResultCount); result=&kivPageVariable(kivResult);</p>""",
    "search.html": """<ul><kivSearchDatabase databaseName="{t}" {odbc} keyFieldName="City" pathArgumentName="city"
    orderByField="Qty" resultsPerPage="5" page="&kivPathArgument(page);" resultVariableName="f">
<li>&kivDBField(Name);|&kivDBField(Qty);</li></kivSearchDatabase></ul>
<p>count=&kivPageVariable(f_ResultCount); next=&kivPageVariable(f_NextPage);</p>""",
    "fields.html": """<p>fields=<kivModifyDatabase mode="listFields" databaseName="{t}" {odbc}></p>""",
    "update.html": """<kivModifyDatabase mode="updateRecord" databaseName="{t}" {odbc} keyFieldName="Name"
    pathArgumentName="name" fieldName="City" fieldValue="Rome" resultVariableName="u">
<p>updated=&kivPageVariable(u_ResultCount);</p>""",
    "delete.html": """<kivModifyDatabase mode="deleteRecord" databaseName="{t}" {odbc} keyFieldName="Name"
    pathArgumentName="name" resultVariableName="d">
<p>deleted=&kivPageVariable(d_ResultCount);</p>""",
    "export.html": """<kivModifyDatabase mode="export" databaseName="{t}" {odbc} fileLocation="{t}.csv" resultVariableName="e">
<p>exported=&kivPageVariable(e_ResultCount);</p>""",
    "import.html": """<kivModifyDatabase mode="import" databaseName="{t}Copy" {odbc} fileLocation="{t}.csv" resultVariableName="i">
<p>imported=&kivPageVariable(i_ResultCount);</p>""",
    "editor.html": """<kivEditDatabase {odbc}>""",
}


def request(port, method, path, body=None):
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=60)
    headers = {"Content-Type": "application/x-www-form-urlencoded"} if body is not None else {}
    try:
        connection.request(method, path, body=body, headers=headers)
        response = connection.getresponse()
        return response.status, response.read().decode("latin-1")
    finally:
        connection.close()


class OdbcSiteTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        fixture = OPTIONS.fixture
        if not os.path.exists(os.path.join(fixture, "odbc.ini")):
            raise RuntimeError("the ODBC fixture is not set up (odbc_fixture_start)")
        cls.base = tempfile.mkdtemp(prefix="kiv-odbc-e2e-")
        cls.site = os.path.join(cls.base, "site")
        cls.table = "E2E%d" % os.getpid()
        for folder, source in SOURCES.items():
            odbc = 'odbcDataSource="%s" odbcUsername="kiv"' % source
            for name, text in PAGES.items():
                path = os.path.join(cls.site, folder, name)
                os.makedirs(os.path.dirname(path), exist_ok=True)
                with open(path, "w", encoding="latin-1") as out:
                    out.write(text.format(t=cls.table, odbc=odbc))
        env = dict(os.environ, ODBCSYSINI=fixture, ODBCINI=os.path.join(fixture, "odbc.ini"))
        cls.process = subprocess.Popen([OPTIONS.server, "serve", "--root", cls.site, "--module", OPTIONS.module,
                                        "--port", "0", "--workers", "2"],
                                       stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, env=env)
        cls.port = None
        deadline = time.time() + 120
        while time.time() < deadline and cls.port is None:
            line = cls.process.stderr.readline().decode(errors="replace")
            if not line and cls.process.poll() is not None:
                break
            if match := re.search(r"listening on http://127\.0\.0\.1:(\d+)/", line):
                cls.port = int(match.group(1))
        if cls.port is None:
            cls.process.kill()
            raise RuntimeError("kiv-server did not start")
        cls.drain = threading.Thread(target=cls.process.stderr.read, daemon=True)
        cls.drain.start()

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

    def get(self, folder, page_name, **query):
        status, body = request(self.port, "GET", "/%s/%s?%s" % (folder, page_name, urllib.parse.urlencode(query)))
        self.assertEqual(status, 200)
        self.assertNotIn("kiv-error", body, body)
        return body

    def post(self, folder, page_name, form):
        status, body = request(self.port, "POST", "/%s/%s" % (folder, page_name), urllib.parse.urlencode(form))
        self.assertEqual(status, 200)
        return body

    def check_tags(self, folder):
        body = self.get(folder, "create.html")
        self.assertIn("created " + self.table, body)
        for i in range(12):
            body = self.post(folder, "add.html", {"Name": "P%02d" % i, "City": "Oslo" if i % 3 else "Lima",
                                                  "Qty": str(i)})
            self.assertIn("added=1", body)

        # The search tag with paging: eight in Oslo, five a page.
        first = self.get(folder, "search.html", city="Oslo")
        self.assertIn("count=8", first)
        self.assertEqual(re.findall(r"<li>(P\d\d)\|", first), ["P01", "P02", "P04", "P05", "P07"])
        second = self.get(folder, "search.html", city="Oslo", page="2")
        self.assertEqual(re.findall(r"<li>(P\d\d)\|", second), ["P08", "P10", "P11"])
        # A quote in the value stays a value.
        hostile = self.get(folder, "search.html", city="x' OR '1'='1")
        self.assertIn("count=0", hostile)

        fields = self.get(folder, "fields.html")
        self.assertRegex(fields, r"Name\.[a-z0-9 ]+\.40\.X")
        self.assertRegex(fields, r"Qty\.[a-z0-9 ]+\.\d+\.")
        self.assertNotIn("unknown type", fields)
        if folder == "pg":
            self.assertRegex(fields, r"(?i)Price\.numeric\.")
        # Text compares without regard to case on both data sources, as on the embedded store.
        self.assertIn("count=8", self.get(folder, "search.html", city="OSLO"))

        self.assertIn("updated=1", self.get(folder, "update.html", name="P03"))
        self.assertIn("count=1", self.get(folder, "search.html", city="Rome"))
        self.assertIn("deleted=1", self.get(folder, "delete.html", name="P03"))
        self.assertIn("count=0", self.get(folder, "search.html", city="Rome"))

        self.assertIn("exported=11", self.get(folder, "export.html"))
        self.assertIn("imported=11", self.get(folder, "import.html"))
        # A text longer than its column: PostgreSQL refuses it where the page can see it, SQLite
        # keeps it whole; it is never cut.
        body = self.post(folder, "add.html", {"Name": "L" * 41, "City": "Far", "Qty": "1"})
        if folder == "pg":
            self.assertIn("kiv-error", body)
            self.assertIn("result=MTLg", body)
            self.assertIn("22001", body)
        else:
            self.assertIn("result=0", body)
            self.assertIn("L" * 41, self.get(folder, "search.html", city="Far"))

    def check_editor(self, folder):
        listing = self.get(folder, "editor.html")
        self.assertIn(self.table, listing)
        self.assertIn('value="ODBC"', listing)
        report = self.post(folder, "editor.html", {"kivEditDatabase_Action": "ODBC"})
        self.assertIn("ODBC Driver Reported Capabilites", report)
        self.assertIn("SQL_VARCHAR", report)
        self.assertRegex(report, r"CREATE TABLE \.\.\.(&nbsp;)?</td>\s*<td[^>]*>(&nbsp;)?Yes")
        # The field manager of a table with records lists its columns by the driver's type names.
        manager = self.post(folder, "editor.html", {"kivEditDatabase_Action": "Fields",
                                                    "kivEditDatabase_SelectedDatabase": self.table})
        self.assertIn("Fields (" + self.table + ")", manager)
        self.assertRegex(manager, r"Name \(<em>varchar 40, indexed </em>\)")
        # A new name opens an empty table (the editor creates it), whose type select offers the
        # driver's types; a field added with one of them gets that SQL type.
        empty = self.table + "Empty"
        manager = self.post(folder, "editor.html", {"kivEditDatabase_Action": "Fields",
                                                    "kivEditDatabase_Name": empty})
        self.assertIn("<select", manager)
        self.assertIn('<option value="varchar"', manager)
        added = self.post(folder, "editor.html", {"kivEditDatabase_Action": "Add Field", "kivEditDatabase_Name": empty,
                                                  "kivEditDatabase_FieldName": "Title",
                                                  "kivEditDatabase_FieldType": "varchar",
                                                  "kivEditDatabase_FieldLength": "20",
                                                  "kivEditDatabase_FieldIndexed": "indexed",
                                                  "kivEditDatabase_FieldUnique": "notunique"})
        self.assertNotIn("kiv-error", added, added)
        self.assertRegex(added, r"Title \(<em>varchar 20, indexed")

    def test_sqlite_driver(self):
        self.check_tags("sqlite")
        self.check_editor("sqlite")

    def test_postgresql_driver(self):
        self.check_tags("pg")
        self.check_editor("pg")


def main():
    global OPTIONS
    parser = argparse.ArgumentParser()
    parser.add_argument("--server", required=True)
    parser.add_argument("--module", required=True)
    parser.add_argument("--fixture", required=True)
    OPTIONS, rest = parser.parse_known_args()
    unittest.main(argv=[sys.argv[0]] + rest, verbosity=2)


if __name__ == "__main__":
    main()
