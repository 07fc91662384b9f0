#!/usr/bin/env python3
"""Field names as people write them, end to end: a real kiv-server with the real Database
Module and Latin-1 pages that make a database with the fields "Contact Phone Number" and
"Prénom", fill it from a form, search it by key field and by a search text with the name in
brackets, list, export and import it; a spreadsheet's CSV file that becomes a new database
through the editor; headers from the real world; and the field-name rule in the error box.
Standard library only; run by ctest with --server and --module."""

import base64
import os
import re
import tempfile
import unittest
import urllib.parse

from site_server import parse_options, request, SiteServer, SiteTestCase

OPTIONS = None
OUTCOME = "[&kivPageVariable(kivResult);|&kivPageVariable(kivError);]"
ROW = "<li>&kivDBField(Prénom);|&kivDBField( Contact Phone Number );</li>"

# Pages in Latin-1: "Prénom" reaches the module with the byte 0xE9.
PAGES = {
    "setup.html": """
<kivModifyDatabase mode="createDatabase" databaseName="Contacts">
<kivModifyDatabase mode="addField" databaseName="Contacts" fieldName="Contact Phone Number" fieldType="Text"
    fieldLength="20" fieldFlags="X" resultVariableName="f">
<kivModifyDatabase mode="addField" databaseName="Contacts" fieldName="Prénom" fieldType="Text" fieldLength="40">
""" + OUTCOME + "field=&kivPageVariable(f_FieldName);",
    "fields.html": '<p>fields=<kivModifyDatabase mode="listFields" databaseName="&kivPathArgument(db);"></p>'
                   + OUTCOME,
    "add.html": """<kivModifyDatabase mode="addRecord" databaseName="Contacts" resultVariableName="a"
    fieldName="Contact Phone Number" postArgumentName="phone" fieldName="Prénom" postArgumentName="first">
""" + OUTCOME + "added=&kivPageVariable(a_ResultCount);",
    # The module builds "Contact Phone Number = '...' ORDER BY Prénom DESC" from these.
    "find.html": """<ul><kivSearchDatabase databaseName="&kivPathArgument(db);" keyFieldName="Contact Phone Number"
    pathArgumentName="phone" orderByField="Prénom" reverseOrder="yes" resultVariableName="r">""" + ROW
                 + "</kivSearchDatabase></ul>count=&kivPageVariable(r_ResultCount);" + OUTCOME,
    # The same without ordering, for databases whose fields an import made long texts.
    "lookup.html": """<ul><kivSearchDatabase databaseName="&kivPathArgument(db);" keyFieldName="Contact Phone Number"
    pathArgumentName="phone">""" + ROW + "</kivSearchDatabase></ul>" + OUTCOME,
    "search.html": """<ul><kivSearchDatabase databaseName="&kivPathArgument(db);" searchString="&kivPathArgument(q);"
    resultVariableName="r">""" + ROW + "</kivSearchDatabase></ul>count=&kivPageVariable(r_ResultCount);" + OUTCOME,
    "sorted.html": """<ul><kivSearchDatabase databaseName="Contacts" orderByField="Contact Phone Number"
    reverseOrder="yes">""" + ROW + "</kivSearchDatabase></ul>" + OUTCOME,
    "update.html": """<kivModifyDatabase mode="updateRecord" databaseName="Contacts" keyFieldName="Contact Phone Number"
    pathArgumentName="phone" fieldName="Prénom" pathArgumentName="first" resultVariableName="u">"""
                   + OUTCOME + "updated=&kivPageVariable(u_ResultCount);",
    "export.html": """<kivModifyDatabase mode="export" databaseName="Contacts" fileLocation="contacts.csv"
    resultVariableName="e">""" + OUTCOME + "exported=&kivPageVariable(e_ResultCount);",
    "import.html": """<kivModifyDatabase mode="createDatabase" databaseName="&kivPathArgument(db);">
<kivModifyDatabase mode="import" databaseName="&kivPathArgument(db);" fileLocation="&kivPathArgument(file);"
    resultVariableName="i">""" + OUTCOME + "imported=&kivPageVariable(i_ResultCount);",
    "badfield.html": """<kivModifyDatabase mode="createDatabase" databaseName="Rules">
<kivModifyDatabase mode="addField" databaseName="Rules" fieldName="Price.Net" fieldType="Number">""" + OUTCOME,
    "manage/editor.html": "<kivEditDatabase>",
}


class FieldNamesTest(SiteTestCase):
    @classmethod
    def setUpClass(cls):
        cls.base = tempfile.mkdtemp(prefix="kiv-fieldnames-")
        cls.site = os.path.join(cls.base, "site")
        cls.exports = os.path.join(cls.site + "-data", "exports")
        for name, text in PAGES.items():
            path = os.path.join(cls.site, name)
            os.makedirs(os.path.dirname(path), exist_ok=True)
            with open(path, "w", encoding="latin-1") as out:
                out.write(text)
        cls.server = SiteServer(OPTIONS.server, OPTIONS.module, cls.site)
        cls.port, cls.password = cls.server.port, cls.server.password
        os.makedirs(cls.exports, exist_ok=True)

    def get(self, page, **query):
        status, _, body = request(self.port, "GET", "/" + page + "?" + urllib.parse.urlencode(query, encoding="latin-1"))
        self.assertEqual(status, 200)
        return body

    def write(self, page, **query):
        """A page whose tags write, sent as a form post (writes never run for GET); its
        arguments stay in the query string, where the pages read them."""
        status, _, body = request(self.port, "POST", "/" + page + "?" + urllib.parse.urlencode(query, encoding="latin-1"),
                                  body="", headers={"Content-Type": "application/x-www-form-urlencoded"})
        self.assertEqual(status, 200)
        return body

    def succeeded(self, body):
        self.assertIn("[0|]", body)
        self.assertNotIn("kiv-error", body)
        return body

    def post(self, page, form):
        status, _, body = request(self.port, "POST", "/" + page, body=urllib.parse.urlencode(form, encoding="latin-1"),
                               headers={"Content-Type": "application/x-www-form-urlencoded"})
        self.assertEqual(status, 200)
        return body

    def editor(self, form):
        token = base64.b64encode(f"admin:{self.password}".encode()).decode()
        status, _, body = request(self.port, "POST", "/manage/editor.html",
                               body=urllib.parse.urlencode(form, encoding="latin-1"),
                               headers={"Authorization": "Basic " + token,
                                        "Origin": f"http://127.0.0.1:{self.port}",
                                        "Content-Type": "application/x-www-form-urlencoded"})
        self.assertEqual(status, 200)
        return body

    def write_export(self, name, data):
        with open(os.path.join(self.exports, name), "wb") as out:
            out.write(data)

    @staticmethod
    def rows(body):
        return re.findall(r"<li>([^<]*)</li>", body)

    def test_a_database_with_blanks_and_accents_in_its_field_names(self):
        self.assertIn("field=Contact Phone Number", self.succeeded(self.write("setup.html")))
        self.assertIn("fields=KIVIDFIELD.UInteger.0.XQ,Contact Phone Number.Text.20.X,Prénom.Text.40.",
                      self.succeeded(self.get("fields.html", db="Contacts")))
        for phone, first in (("555-0101", "Zoé"), ("555-0102", "Émile"), ("555-0100", "Ana"), ("555-0101", "Bo")):
            self.assertIn("added=1", self.succeeded(self.post("add.html", {"phone": phone, "first": first})))

        # The key field's pair, as the module writes it into a search: the name as it is.
        body = self.succeeded(self.get("find.html", db="Contacts", phone="555-0101"))
        self.assertEqual(self.rows(body), ["Zoé|555-0101", "Bo|555-0101"])
        self.assertIn("count=2", body)
        self.assertIn("count=0", self.succeeded(self.get("find.html", db="Contacts", phone="x' OR '1'='1")))
        # A search text with the names in brackets, any case; the values fold Latin-1 too.
        body = self.succeeded(self.get("search.html", db="Contacts",
                                       q="[prÉnom] = 'ÉMILE' OR [Contact Phone Number] < '555-0101'"))
        self.assertEqual(self.rows(body), ["Émile|555-0102", "Ana|555-0100"])
        body = self.succeeded(self.get("search.html", db="Contacts",
                                       q="Contact Phone Number BEGINSWITH '555' ORDER BY [Prénom]"))
        # Sorted as the store compares text: "É" as "é", after "z".
        self.assertEqual(self.rows(body), ["Ana|555-0100", "Bo|555-0101", "Zoé|555-0101", "Émile|555-0102"])
        self.assertEqual(self.rows(self.succeeded(self.get("sorted.html")))[0], "Émile|555-0102")
        body = self.get("search.html", db="Contacts", q="[Prenom] = 'Ana'")
        self.assertIn("no field &quot;Prenom&quot; in &quot;Contacts&quot;", body)
        body = self.get("search.html", db="Contacts", q='"Prénom" = \'Ana\'')
        self.assertIn("field name with blanks may be written in brackets, [Date of birth]", body)

        self.assertIn("updated=1", self.succeeded(self.write("update.html", phone="555-0100", first="Anaïs")))
        self.assertEqual(self.rows(self.get("find.html", db="Contacts", phone="555-0100")), ["Anaïs|555-0100"])

        # Exported with the names as they are, and imported back into a new database, which
        # takes its fields from the header.
        self.assertIn("exported=4", self.succeeded(self.get("export.html")))
        with open(os.path.join(self.exports, "contacts.csv"), "rb") as exported:
            header = exported.read().split(b"\r\n")[0]
        self.assertEqual(header, b"KIVIDFIELD,Contact Phone Number,Pr\xe9nom")
        self.assertIn("imported=4", self.succeeded(self.write("import.html", db="ContactsCopy", file="contacts.csv")))
        self.assertIn("fields=KIVIDFIELD.UInteger.0.XQ,Contact Phone Number.LongText.0.,Prénom.LongText.0.",
                      self.get("fields.html", db="ContactsCopy"))
        body = self.succeeded(self.get("lookup.html", db="ContactsCopy", phone="555-0101"))
        self.assertEqual(self.rows(body), ["Zoé|555-0101", "Bo|555-0101"])
        # Into the database that has the fields: headers in another case, with blanks around them.
        self.write_export("more.csv", b"  PR\xc9NOM ,\" contact phone number\"\r\nIda,555-0103\r\n")
        # (The page's createDatabase fails: the database is there. The import is what counts.)
        self.assertIn("[0|]imported=1", self.write("import.html", db="Contacts", file="more.csv"))
        self.assertEqual(self.rows(self.get("find.html", db="Contacts", phone="555-0103")), ["Ida|555-0103"])

    def test_a_spreadsheets_csv_becomes_a_new_database_in_the_editor(self):
        # As a spreadsheet saves it in Latin-1: quoted headers and values, a comma inside one.
        self.write_export("sheet.csv", b'"Pr\xe9nom","Contact Phone Number","Location Coordinates"\r\n'
                                       b'"Zo\xe9","555-0101","48.8566, 2.3522"\r\n'
                                       b'"\xc9mile","555-0102","45.7640, 4.8357"\r\n')
        body = self.editor({"kivEditDatabase_Action": "Import Now", "kivEditDatabase_Name": "Sheet",
                            "kivEditDatabase_ImportFilename": "sheet.csv"})
        self.assertNotIn("kiv-error", body)
        self.assertIn("Record Search (Sheet)", body)
        self.assertIn("2 Records Available", body)
        self.assertIn("fields=KIVIDFIELD.UInteger.0.XQ,Prénom.LongText.0.,Contact Phone Number.LongText.0.,"
                      "Location Coordinates.LongText.0.", self.get("fields.html", db="Sheet"))
        body = self.succeeded(self.get("lookup.html", db="Sheet", phone="555-0102"))
        self.assertEqual(self.rows(body), ["Émile|555-0102"])
        body = self.succeeded(self.get("search.html", db="Sheet", q="Location Coordinates CONTAINS ', 2.35'"))
        self.assertEqual(self.rows(body), ["Zoé|555-0101"])
        # The editor's own search form posts each field by its name and searches with it.
        body = self.editor({"kivEditDatabase_Action": "Search Now", "kivEditDatabase_Name": "Sheet",
                            "Contact Phone Number": "555-0102"})
        self.assertNotIn("kiv-error", body)
        self.assertIn("Showing 1 - 1 of 1 results", body)
        self.assertRegex(body, r"&nbsp;&Eacute;mile\s*</td>\s*<td[^>]*>\s*&nbsp;555-0102")

    def test_real_world_headers_import_and_a_header_that_cannot_be_a_name_is_named(self):
        self.write_export("realworld.csv", b"First Name,Last Name,Contact Phone Number,Location Coordinates,Zip Code\r\n"
                                           b"Ada,Lovelace,(555) 010-1815,\"51.5072, -0.1276\",10001\r\n"
                                           b"Alan,Turing,(555) 010-1912,\"53.4808, -2.2426\",10002\r\n")
        body = self.succeeded(self.write("import.html", db="RealWorld", file="realworld.csv"))
        self.assertIn("imported=2", body)
        self.assertIn("fields=KIVIDFIELD.UInteger.0.XQ,First Name.LongText.0.,Last Name.LongText.0.,"
                      "Contact Phone Number.LongText.0.,Location Coordinates.LongText.0.,Zip Code.Integer.0.",
                      self.get("fields.html", db="RealWorld"))
        body = self.succeeded(self.get("search.html", db="RealWorld", q="Zip Code > 10001"))
        self.assertIn("|(555) 010-1912</li>", body)

        self.write_export("units.csv", b"Name,Height (cm)\r\nAnn,170\r\n")
        body = self.write("import.html", db="Units", file="units.csv")
        self.assertIn("kiv-error", body)
        self.assertIn("Row 1, column 2: the header &quot;Height (cm)&quot; cannot become a field. "
                      "A field name cannot hold &quot;(&quot;. Field names are 1 to 64 bytes", body)
        self.assertIn("fields=KIVIDFIELD.UInteger.0.XQ</p>", self.get("fields.html", db="Units"))

    def test_a_refused_field_name_is_told_the_field_name_rule(self):
        body = self.write("badfield.html")
        self.assertIn("kiv-error", body)
        self.assertIn("A field name cannot hold &quot;.&quot;. Field names are 1 to 64 bytes of letters", body)
        self.assertNotIn("database name", body)
        body = self.editor({"kivEditDatabase_Action": "Add Field", "kivEditDatabase_Name": "Rules",
                            "kivEditDatabase_FieldName": "Height (cm)", "kivEditDatabase_FieldType": "integer",
                            "kivEditDatabase_FieldLength": "0"})
        self.assertIn("A field name cannot hold &quot;(&quot;.", body)
        self.assertNotIn("A database name", body)


def main():
    global OPTIONS
    OPTIONS, argv = parse_options("server", "module")
    unittest.main(argv=argv, verbosity=2)


if __name__ == "__main__":
    main()
