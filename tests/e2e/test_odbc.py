#!/usr/bin/env python3
"""The three database tags on ODBC data sources, end to end: a real kiv-server with the real
Database Module, pages naming the SQLite ODBC driver's and psqlODBC's data sources that
tests/odbc/odbc-fixture.sh set up (through ODBCSYSINI and ODBCINI); and what one view of a
25-row search page costs the database server on a 100,000-row table. Standard library only;
run by ctest with --server, --module and --fixture."""

import glob
import os
import re
import sqlite3
import subprocess
import sys
import tempfile
import time
import unittest
import urllib.parse

from site_server import parse_options, request as site_request, SiteServer, SiteTestCase

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
    headers = {"Content-Type": "application/x-www-form-urlencoded"} if body is not None else {}
    status, _, text = site_request(port, method, path, body, headers)
    return status, text


class ServerTestCase(SiteTestCase):
    """A kiv-server on a free loopback port over cls.site, with the fixture's data sources."""

    @classmethod
    def start_server(cls, workers):
        fixture = OPTIONS.fixture
        env = dict(os.environ, ODBCSYSINI=fixture, ODBCINI=os.path.join(fixture, "odbc.ini"))
        cls.server = SiteServer(OPTIONS.server, OPTIONS.module, cls.site, env=env, workers=workers)
        cls.port = cls.server.port

    @classmethod
    def make_site(cls, prefix):
        if not os.path.exists(os.path.join(OPTIONS.fixture, "odbc.ini")):
            raise RuntimeError("the ODBC fixture is not set up (odbc_fixture_start)")
        cls.base = tempfile.mkdtemp(prefix=prefix)
        cls.site = os.path.join(cls.base, "site")

    @classmethod
    def write_page(cls, folder, name, text):
        path = os.path.join(cls.site, folder, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="latin-1") as out:
            out.write(text)


class OdbcSiteTest(ServerTestCase):
    @classmethod
    def setUpClass(cls):
        cls.make_site("kiv-odbc-e2e-")
        cls.table = "E2E%d" % os.getpid()
        for folder, source in SOURCES.items():
            odbc = 'odbcDataSource="%s" odbcUsername="kiv"' % source
            for name, text in PAGES.items():
                cls.write_page(folder, name, text.format(t=cls.table, odbc=odbc))
        cls.start_server(2)

    def get(self, folder, page_name, **query):
        status, body = request(self.port, "GET", "/%s/%s?%s" % (folder, page_name, urllib.parse.urlencode(query)))
        self.assertEqual(status, 200)
        self.assertNotIn("kiv-error", body, body)
        return body

    def post(self, folder, page_name, form, **query):
        status, body = request(self.port, "POST", "/%s/%s?%s" % (folder, page_name, urllib.parse.urlencode(query)),
                               urllib.parse.urlencode(form))
        self.assertEqual(status, 200)
        return body

    def write(self, folder, page_name, **query):
        """A page that changes a database: it runs only for POST."""
        body = self.post(folder, page_name, {}, **query)
        self.assertNotIn("kiv-error", body, body)
        return body

    def check_tags(self, folder):
        body = self.write(folder, "create.html")
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

        self.assertIn("updated=1", self.write(folder, "update.html", name="P03"))
        self.assertIn("count=1", self.get(folder, "search.html", city="Rome"))
        self.assertIn("deleted=1", self.write(folder, "delete.html", name="P03"))
        self.assertIn("count=0", self.get(folder, "search.html", city="Rome"))

        self.assertIn("exported=11", self.get(folder, "export.html"))
        self.assertIn("imported=11", self.write(folder, "import.html"))
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


COST_ROWS = 100000
COST_PAGE = """<ul><kivSearchDatabase databaseName="{t}" odbcDataSource="{source}" odbcUsername="kiv"
    keyFieldName="City" pathArgumentName="city" orderByField="Name" resultsPerPage="25" page="&kivPathArgument(page);"
    resultVariableName="f"><li>&kivDBField(Name);</li></kivSearchDatabase></ul>
<p>count=&kivPageVariable(f_ResultCount); first=&kivPageVariable(f_FirstIndex); last=&kivPageVariable(f_LastIndex);</p>"""


class OdbcPageCostTest(ServerTestCase):
    """One view of a 25-row search page on a 100,000-row table with an index that serves the
    search: the database server runs the count and one window, on statements prepared once per
    connection, and PostgreSQL reads about the rows the page needs, not the table. 1,000 cities
    of 100 people each; the page shows people 26-50 (or 51-75) of one city by name."""

    @classmethod
    def setUpClass(cls):
        cls.make_site("kiv-odbc-cost-")
        cls.table = "Cost%d" % os.getpid()
        versions = sorted(glob.glob("/usr/lib/postgresql/*/bin/psql"),
                          key=lambda path: [int(part) for part in re.findall(r"\d+", path)])
        if not versions:
            raise RuntimeError("psql is not installed (run scripts/setup.sh)")
        cls.psql_program = versions[-1]
        with open(os.path.join(OPTIONS.fixture, "pg-port")) as port:
            cls.pg_port = port.read().strip()
        with open(os.path.join(OPTIONS.fixture, "pgdata-path")) as data:
            cls.pg_log = os.path.join(data.read().strip(), "server.log")
        cls.psql('''DROP TABLE IF EXISTS "{t}";
CREATE TABLE "{t}" ("KIVIDFIELD" SERIAL PRIMARY KEY, "Name" VARCHAR(40), "City" VARCHAR(30), "Qty" INTEGER);
INSERT INTO "{t}" ("Name", "City", "Qty")
  SELECT 'Person ' || lpad(g::text, 6, '0'), 'City' || (g % 1000), g % 97 FROM generate_series(1, {n}) g;
CREATE INDEX "{t}_city_name" ON "{t}" (LOWER("City"), "Name");
VACUUM ANALYZE "{t}";
ALTER ROLE kiv IN DATABASE kivtest SET log_statement = 'all';
ALTER ROLE kiv IN DATABASE kivtest SET log_min_duration_statement = 0;'''.format(t=cls.table, n=COST_ROWS))
        with sqlite3.connect(os.path.join(OPTIONS.fixture, "sqlite.db")) as lite:
            lite.executescript('''DROP TABLE IF EXISTS "{t}";
CREATE TABLE "{t}" ("KIVIDFIELD" INTEGER PRIMARY KEY, "Name" VARCHAR(40), "City" VARCHAR(30), "Qty" INTEGER);
WITH RECURSIVE g(n) AS (SELECT 1 UNION ALL SELECT n + 1 FROM g WHERE n < {n})
  INSERT INTO "{t}" ("Name", "City", "Qty")
  SELECT 'Person ' || substr('000000' || n, -6), 'City' || (n % 1000), n % 97 FROM g;
CREATE INDEX "{t}_city_name" ON "{t}" (LOWER("City"), "Name");
ANALYZE;'''.format(t=cls.table, n=COST_ROWS))
        for folder, source in (("pg", "KivPostgres"), ("sqlite", "KivSqliteTraced")):
            cls.write_page(folder, "page.html", COST_PAGE.format(t=cls.table, source=source))
        cls.start_server(1)  # one worker: every view after the first finds its pool warm

    @classmethod
    def tearDownClass(cls):
        try:
            super().tearDownClass()
        finally:
            cls.psql('ALTER ROLE kiv IN DATABASE kivtest RESET log_statement;\n'
                     'ALTER ROLE kiv IN DATABASE kivtest RESET log_min_duration_statement;\n'
                     'DROP TABLE IF EXISTS "%s";' % cls.table)

    @classmethod
    def psql(cls, sql):
        """Runs the statements one after the other (each its own transaction); their output."""
        done = subprocess.run([cls.psql_program, "-h", "127.0.0.1", "-p", cls.pg_port, "-U", "kiv", "-d", "kivtest",
                               "-X", "-q", "-A", "-t", "-v", "ON_ERROR_STOP=1", "-f", "-"],
                              input=sql, capture_output=True, text=True, timeout=120)
        if done.returncode != 0:
            raise RuntimeError("psql failed: %s" % done.stderr)
        return done.stdout.strip()

    def view(self, folder, city, page):
        status, body = request(self.port, "GET", "/%s/page.html?city=%s&page=%d" % (folder, city, page))
        self.assertEqual(status, 200)
        self.assertNotIn("kiv-error", body, body)
        return body

    def check_page(self, body, city, page):
        number = int(city[4:])
        first = (page - 1) * 25
        people = ["Person %06d" % (number + 1000 * i if number else 1000 * (i + 1)) for i in range(first, first + 25)]
        self.assertEqual(re.findall(r"<li>([^<]*)</li>", body), people)
        self.assertIn("count=100 first=%d last=%d" % (first + 1, first + 25), body)

    @staticmethod
    def appended(path, action):
        """What `action` made the program writing to `path` append to it."""
        start = os.path.getsize(path) if os.path.exists(path) else 0
        action()
        with open(path, encoding="latin-1") as log:
            log.seek(start)
            return log.read()

    def server_statements(self, action):
        """What kiv-server's sessions did during `action`: the statements they ran, as
        (prepared name, SQL), and the statements they prepared (parsed)."""
        log = self.appended(self.pg_log, action)
        return (re.findall(r"LOG:  (?:statement|execute ([^:]+)): (.*)", log),
                re.findall(r"LOG:  duration: [\d.]+ ms  parse [^:]*: (.*)", log))

    def end_server_sessions(self):
        """Ends kiv-server's sessions, as a database restart would; a session flushes its
        statistics as it ends, which makes the rows it read countable at once."""
        others = "FROM pg_stat_activity WHERE datname = 'kivtest' AND backend_type = 'client backend' " \
                 "AND pid <> pg_backend_pid()"
        self.psql("SELECT pg_terminate_backend(pid) " + others)
        deadline = time.time() + 20
        while self.psql("SELECT count(*) " + others) != "0":
            self.assertLess(time.time(), deadline, "kiv-server's sessions did not end")
            time.sleep(0.05)

    def rows_read(self):
        return int(self.psql("SELECT COALESCE(seq_tup_read, 0) + COALESCE(idx_tup_fetch, 0) FROM pg_stat_user_tables "
                             "WHERE relname = '%s'" % self.table))

    def test_postgresql_page_view_is_a_count_and_a_window(self):
        # The first view reads the table's description and prepares the statements.
        _, prepared = self.server_statements(lambda: self.check_page(self.view("pg", "City7", 2), "City7", 2))
        self.assertEqual(len(prepared), 2, prepared)
        views = []
        for city, page in (("City8", 3), ("City9", 2)):
            statements, prepared = self.server_statements(
                lambda: self.check_page(self.view("pg", city, page), city, page))
            self.assertEqual(prepared, [], "the view runs the statements prepared before")
            views.append(statements)
        for statements in views:
            texts = [sql for _, sql in statements]
            self.assertEqual(len(texts), 2, texts)
            self.assertTrue(texts[0].startswith('SELECT COUNT(*) FROM "%s" WHERE' % self.table), texts[0])
            self.assertTrue(texts[1].startswith('SELECT * FROM "%s" WHERE' % self.table), texts[1])
            self.assertTrue(texts[1].endswith("LIMIT $2 OFFSET $3"), texts[1])
        self.assertEqual([name for name, _ in views[0]], [name for name, _ in views[1]],
                         "the second view runs the statements the first one prepared")
        self.assertNotIn("", [name for name, _ in views[0]])

        # With its sessions ended (as by a restart), the next view connects again without an
        # error, and PostgreSQL reads the count's 100 rows and the window's, not 100,000.
        self.end_server_sessions()
        before = self.rows_read()
        self.check_page(self.view("pg", "City10", 2), "City10", 2)
        self.end_server_sessions()
        read = self.rows_read() - before
        print("PostgreSQL read %d rows for one 25-row page view of %d rows" % (read, COST_ROWS), file=sys.stderr)
        self.assertGreater(read, 0)
        self.assertLessEqual(read, 300)

    def test_sqlite_driver_page_view_is_a_count_and_a_window(self):
        trace = os.path.join(OPTIONS.fixture, "sqlite-trace.log")
        self.check_page(self.view("sqlite", "City7", 2), "City7", 2)
        text = self.appended(trace, lambda: self.check_page(self.view("sqlite", "City0", 3), "City0", 3))
        statements = [line for line in text.splitlines() if line.strip() and not line.startswith("--")]
        self.assertEqual(len(statements), 2, statements)
        self.assertTrue(statements[0].startswith('SELECT COUNT(*) FROM "%s" WHERE' % self.table), statements[0])
        self.assertIn("LIMIT ? OFFSET ?", statements[1])
        self.assertIn("-- parameter 3: 50", text, "the window starts at the page's first record")


def main():
    global OPTIONS
    OPTIONS, argv = parse_options("server", "module", "fixture")
    unittest.main(argv=argv, verbosity=2)


if __name__ == "__main__":
    main()
