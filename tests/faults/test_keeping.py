"""Nothing lost, and who changed what, against a real kiv-server with the database module:

- a new embedded connection reports synchronous=FULL (commits survive a power loss) unless the
  region opts out with durable_commits = false, as SQLite itself answers for the connection;
- every write through the database service leaves exactly one audit entry with its values
  before and after and its user (the administrator's login, or "public" with the address),
  secret fields withheld, one summary entry for an import and for a Delete All;
- `kiv-server db audit` filters the log, the log is reopened on SIGUSR1, and the administration
  page shows the latest changes of each database;
- the recycle bin: the editor's Delete All and a page's delete come back with their IDs and
  values through `kiv-server db trash`, deleted records are invisible meanwhile, and a deleted
  database's file waits in the trash folder until it is restored.
Python standard library only, loopback only."""

import json
import os
import re
import signal
import subprocess
import sys
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import kivharness as kh  # noqa: E402

SERVER = MODULE = None

PAGES = {
    "t/update.html": '<kivModifyDatabase mode="updateRecord" databaseName="People" keyFieldName="FirstName" '
                     'postArgumentName="first" fieldName="City" postArgumentName="city" resultVariableName="u">'
                     '<p>updated=&kivPageVariable(u_ResultCount);</p>',
    "t/delete.html": '<kivModifyDatabase mode="deleteRecord" databaseName="People" keyFieldName="FirstName" '
                     'postArgumentName="first" resultVariableName="d"><p>deleted=&kivPageVariable(d_ResultCount);</p>',
    "t/vault.html": '<kivModifyDatabase mode="createDatabase" databaseName="Vault">'
                    '<kivModifyDatabase mode="addField" databaseName="Vault" fieldName="Login" fieldType="Text" '
                    'fieldLength="40">'
                    '<kivModifyDatabase mode="addField" databaseName="Vault" fieldName="Password" fieldType="Text" '
                    'fieldLength="40">'
                    '<kivModifyDatabase mode="addRecord" databaseName="Vault" fieldName="Login" fieldValue="ann" '
                    'fieldName="Password" fieldValue="hunter2-secret"><p>vault</p>',
    "t/dropfield.html": '<kivModifyDatabase mode="deleteField" databaseName="People" fieldName="Phone" '
                        'resultVariableName="f"><p>result=&kivPageVariable(kivResult);</p>',
}
# The same update page in the login area: its writes are the administrator's.
PAGES["manage/update.html"] = PAGES["t/update.html"]


def metric(port, name, **labels):
    """The value of one sample of /kiv-status/metrics, 0 when it is not there."""
    status, text = kh.get(port, "/kiv-status/metrics")
    if status != 200:
        raise AssertionError(f"metrics answered {status}")
    wanted = ",".join(f'{key}="{value}"' for key, value in sorted(labels.items()))
    match = re.search(r"^" + re.escape(f"{name}{{{wanted}}}") + r" (\S+)$", text, re.M)
    return float(match.group(1)) if match else 0


def make_site(region="public_write_rate = 0"):
    site = kh.Site(SERVER, MODULE, workers=2, region=region)
    for name, text in PAGES.items():
        path = os.path.join(site.root, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="latin-1") as out:
            out.write(text)
    return site


class DurableCommitsTest(unittest.TestCase):
    def test_new_connections_report_full_unless_the_region_opts_out(self):
        for region, expected, other in (("public_write_rate = 0", "full", "normal"),
                                        ("public_write_rate = 0\ndurable_commits = false", "normal", "full")):
            with self.subTest(expected=expected):
                site = make_site(region)
                server = kh.Server(SERVER, site)
                try:
                    self.assertTrue(kh.add_person(server.port, "Dora", "Durham"))
                    status, page = kh.get(server.port, "/t/count.html?db=People")
                    self.assertEqual(status, 200)
                    self.assertGreaterEqual(
                        metric(server.port, "kiv_database_connections_total", synchronous=expected), 1)
                    self.assertEqual(metric(server.port, "kiv_database_connections_total", synchronous=other), 0)
                finally:
                    server.stop()
                    site.remove()

    def test_wrong_settings_are_configuration_errors(self):
        for region, named in (('durable_commits = "yes"', "durable_commits"), ("trash_days = -1", "trash_days"),
                              ('audit_log = "site/audit.jsonl"', "audit log")):
            with self.subTest(region=region):
                site = make_site(region)
                try:
                    result = subprocess.run([SERVER, "check", "--config", site.config], capture_output=True,
                                            text=True, timeout=120)
                    self.assertNotEqual(result.returncode, 0)
                    self.assertIn(named, result.stdout + result.stderr)
                finally:
                    site.remove()


class AuditLogTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.site = make_site()
        cls.server = kh.Server(SERVER, cls.site)
        cls.port = cls.server.port
        cls.log = os.path.join(cls.site.data, "audit-main.jsonl")

    @classmethod
    def tearDownClass(cls):
        cls.server.stop()
        cls.site.remove()

    def entries(self):
        if not os.path.exists(self.log):
            return []
        with open(self.log, encoding="utf-8") as lines:
            return [json.loads(line) for line in lines]  # every line is one JSON object

    def write(self, post):
        """Runs `post` and answers the audit entries it added."""
        before = len(self.entries())
        post()
        return self.entries()[before:]

    def admin(self, path, form):
        status, page = kh.post(self.port, path, form,
                               headers=dict(kh.basic_auth(), Origin=f"http://127.0.0.1:{self.port}"))
        self.assertEqual(status, 200, page[:500])
        self.assertIsNone(kh.error_block(page), page[:2000])
        return page

    def editor(self, action, database, **form):
        return self.admin("/manage/editor.html", dict({"kivEditDatabase_Action": action,
                                                        "kivEditDatabase_Name": database,
                                                        "kivEditDatabase_Confirmation": "Yes"}, **form))

    def test_record_writes_leave_one_entry_each_with_values_and_user(self):
        added = self.write(lambda: self.assertTrue(kh.add_person(self.port, "Audra", "Auditville")))
        self.assertEqual(len(added), 1, added)
        entry = added[0]
        self.assertEqual((entry["action"], entry["database"], entry["user"], entry["address"], entry["page"]),
                         ("record added", "People", "public", "127.0.0.1", "/people/added.html"))
        self.assertEqual(entry["region"], "main")
        self.assertRegex(entry["time"], r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z$")
        self.assertEqual(entry["before"], {})
        self.assertEqual((entry["after"]["FirstName"], entry["after"]["City"]), ("Audra", "Auditville"))
        record = entry["record"]
        self.assertEqual(entry["after"]["KIVIDFIELD"], record)

        updated = self.write(lambda: self.admin("/manage/update.html", {"first": "Audra", "city": "Lyon"}))
        self.assertEqual(len(updated), 1, updated)
        self.assertEqual((updated[0]["action"], updated[0]["record"], updated[0]["user"], updated[0]["page"]),
                         ("record updated", record, "admin", "/manage/update.html"))
        self.assertEqual((updated[0]["before"], updated[0]["after"]), ({"City": "Auditville"}, {"City": "Lyon"}))

        def delete():
            status, page = kh.post(self.port, "/t/delete.html", {"first": "Audra"})
            self.assertIn("deleted=1", page)
        deleted = self.write(delete)
        self.assertEqual(len(deleted), 1, deleted)
        self.assertEqual((deleted[0]["action"], deleted[0]["record"], deleted[0]["user"]),
                         ("record deleted", record, "public"))
        self.assertEqual((deleted[0]["before"]["FirstName"], deleted[0]["before"]["City"]), ("Audra", "Lyon"))
        self.assertEqual(deleted[0]["after"], {})

    def test_database_field_import_and_delete_all_entries(self):
        def create():
            status, page = kh.post(self.port, "/t/create.html?db=Ledger")
            self.assertIn("created", page)
        created = self.write(create)
        self.assertEqual([(e["action"], e["database"], e.get("field")) for e in created],
                         [("database created", "Ledger", None), ("field added", "Ledger", "Name"),
                          ("field added", "Ledger", "Notes")])
        exports = os.path.join(self.site.data, "exports")
        os.makedirs(exports, exist_ok=True)
        with open(os.path.join(exports, "ledger.csv"), "w") as out:
            out.write("Name,Notes\nOne,first\nTwo,second\nThree,third\n")

        def import_file():
            status, page = kh.post(self.port, "/t/import.html?db=Ledger&file=ledger.csv")
            self.assertIn("imported=3", page)
        imported = self.write(import_file)
        self.assertEqual([(e["action"], e["count"], e["file"]) for e in imported], [("imported", 3, "ledger.csv")])

        removed = self.write(lambda: self.editor("DeleteField", "Ledger", kivEditDatabase_FieldName="Notes"))
        self.assertEqual([(e["action"], e["field"], e["user"]) for e in removed], [("field deleted", "Notes", "admin")])
        emptied = self.write(lambda: self.editor("DeleteAllRecords", "Ledger"))
        self.assertEqual([(e["action"], e["count"], e["page"]) for e in emptied],
                         [("all records deleted", 3, "/manage/editor.html")])
        dropped = self.write(lambda: self.editor("DeleteDatabase", "Ledger"))
        self.assertEqual([(e["action"], e["database"]) for e in dropped], [("database deleted", "Ledger")])

    def test_secret_fields_are_withheld(self):
        def vault():
            status, page = kh.post(self.port, "/t/vault.html")
            self.assertIsNone(kh.error_block(page), page)
        added = [e for e in self.write(vault) if e["action"] == "record added"]
        self.assertEqual(len(added), 1)
        self.assertEqual((added[0]["after"]["Login"], added[0]["after"]["Password"]), ("ann", "(withheld)"))
        with open(self.log, encoding="utf-8") as text:
            self.assertNotIn("hunter2", text.read())

    def db_audit(self, *filters):
        result = subprocess.run([SERVER, "db", "audit", "--config", self.site.config, *filters],
                                capture_output=True, text=True, timeout=120)
        self.assertEqual(result.returncode, 0, result.stderr)
        return [json.loads(line) for line in result.stdout.splitlines()]

    def test_db_audit_filters_by_database_record_user_and_time(self):
        self.assertTrue(kh.add_person(self.port, "Filtra", "Filterton"))
        self.admin("/manage/update.html", {"first": "Filtra", "city": "Nantes"})
        everything = self.entries()
        self.assertEqual(self.db_audit(), everything)
        mine = [e for e in everything if e["database"] == "People" and e["user"] == "admin"]
        self.assertTrue(mine)
        self.assertEqual(self.db_audit("--database", "people", "--user", "admin"), mine)
        record = [e for e in everything if e["action"] == "record added" and e["after"].get("FirstName") == "Filtra"]
        self.assertEqual([e["action"] for e in self.db_audit("--record", record[0]["record"], "--database", "People")],
                         ["record added", "record updated"])
        last = everything[-1]["time"]
        self.assertEqual(self.db_audit("--since", last), [e for e in everything if e["time"] >= last])
        self.assertEqual(self.db_audit("--until", "2000-01-01"), [])
        self.assertEqual(self.db_audit("--until", last[:10]), everything)  # a date includes its day

    def test_log_is_reopened_on_sigusr1_and_shown_on_the_admin_page(self):
        self.assertTrue(kh.add_person(self.port, "Rota", "Rotterdam"))
        rotated = self.log + ".1"
        os.rename(self.log, rotated)
        try:
            os.kill(self.server.process.pid, signal.SIGUSR1)
            # Every worker reopens; until then a worker may still write to the renamed file.
            self.assertTrue(kh.wait_until(lambda: kh.add_person(self.port, "Rota", "Reopen")
                                          and any(e["after"].get("City") == "Reopen" for e in self.entries()), 20))
        finally:
            with open(rotated) as old:
                kept = old.read()
            with open(self.log) as new:
                fresh = new.read()
            with open(self.log, "w") as whole:
                whole.write(kept + fresh)
        status, page = kh.get(self.port, "/kiv-admin/", headers=kh.basic_auth())
        self.assertEqual(status, 200)
        section = page[page.index("Latest changes"):]
        self.assertIn("<h3>People</h3>", section)
        self.assertIn("record added", section)
        self.assertIn("FirstName = Rota", section)


class RecycleBinTest(unittest.TestCase):
    def setUp(self):
        self.site = make_site()
        self.server = kh.Server(SERVER, self.site)
        self.port = self.server.port

    def tearDown(self):
        self.server.stop()
        self.site.remove()

    def trash(self, *arguments, status=0):
        result = subprocess.run([SERVER, "db", "trash", *arguments, "--config", self.site.config],
                                capture_output=True, text=True, timeout=120)
        self.assertEqual(result.returncode, status, result.stdout + result.stderr)
        return result.stdout + result.stderr

    def count(self, database="People"):
        status, page = kh.get(self.port, "/t/count.html?" + kh.query(db=database))
        match = re.search(r"count=(\d+)", page)
        return int(match.group(1)) if match else None

    def export(self, name):
        status, page = kh.post(self.port, "/t/export.html?" + kh.query(db="People", file=name))
        self.assertIsNone(kh.error_block(page), page)
        with open(os.path.join(self.site.data, "exports", name), encoding="latin-1") as rows:
            return rows.read()

    def editor(self, action, database):
        status, page = kh.post(self.port, "/manage/editor.html",
                               {"kivEditDatabase_Action": action, "kivEditDatabase_Name": database,
                                "kivEditDatabase_Confirmation": "Yes"},
                               headers=dict(kh.basic_auth(), Origin=f"http://127.0.0.1:{self.port}"))
        self.assertEqual(status, 200)
        self.assertIsNone(kh.error_block(page), page[:2000])

    def test_delete_all_and_a_delete_come_back_with_their_ids_and_values(self):
        before = self.export("before.csv")
        total = self.count()
        self.assertGreater(total, 10)
        status, page = kh.post(self.port, "/t/delete.html", {"first": "Ada"})
        self.assertIn("deleted=1", page)
        self.editor("DeleteAllRecords", "People")
        # Deleted records are nowhere: counts, searches, exports.
        self.assertEqual(self.count(), 0)
        status, page = kh.get(self.port, "/t/names.html?city=Lyon")
        self.assertIn("count=0", page)
        self.assertEqual(self.export("empty.csv").count("\n"), 1)  # the header row alone

        listed = self.trash("list").splitlines()
        self.assertEqual(len(listed), 2, listed)
        everything, one = (line.split("\t") for line in listed)  # newest first
        self.assertEqual((everything[0], everything[3], everything[4]), ("People", "admin", f"{total - 1} records"))
        self.assertEqual((one[3], one[4]), ("public 127.0.0.1", "1 records"))
        ada_id = one[5].removeprefix("IDs ")

        self.assertIn(f"restored {total - 1} records", self.trash("restore", "--database", "People", "--deletion",
                                                                 everything[1].split()[1]))
        self.assertEqual(self.count(), total - 1)
        self.assertIn("restored 1 records", self.trash("restore", "--database", "People", "--deletion",
                                                       one[1].split()[1], "--record", ada_id))
        self.assertEqual(self.export("after.csv"), before)  # every ID and value, in the order added
        self.assertIn("holds no such deleted record",
                      self.trash("restore", "--database", "People", "--deletion", one[1].split()[1], status=1))
        self.assertEqual(self.trash("list"), "")

    def test_a_deleted_field_comes_back_with_the_values_of_every_record(self):
        before = self.export("before.csv")
        self.assertIn("Phone", before.splitlines()[0])
        status, page = kh.post(self.port, "/t/dropfield.html")
        self.assertIn("result=0", page)
        self.assertNotIn("Phone", self.export("without.csv").splitlines()[0])
        # A record deleted while the field is gone comes back with its value of it too.
        status, page = kh.post(self.port, "/t/delete.html", {"first": "Ada"})
        self.assertIn("deleted=1", page)

        listed = [line.split("\t") for line in self.trash("list").splitlines()]
        self.assertEqual(len(listed), 2, listed)
        record, field = listed  # newest first
        self.assertEqual(field[4], f"{self.count() + 1} values of the field Phone")
        self.assertIn("restored", self.trash("restore", "--database", "People", "--deletion", field[1].split()[1]))
        self.assertIn("restored 1 records", self.trash("restore", "--database", "People", "--deletion",
                                                       record[1].split()[1]))
        # Both workers see the field again, each value where it was.
        for _ in range(4):
            self.assertEqual(self.export("after.csv"), before)
        self.assertEqual(self.trash("list"), "")

    def test_the_admin_page_lists_the_bin_and_restores_from_it(self):
        total = self.count()
        self.editor("DeleteAllRecords", "People")
        status, page = kh.get(self.port, "/kiv-admin/", headers=kh.basic_auth())
        self.assertEqual(status, 200)
        bin_section = page[page.index("<h2>Recycle bin</h2>"):]
        self.assertIn(f"<td>People</td>", bin_section)
        self.assertIn(f"{total} records", bin_section)
        button = re.search(r'name="kivAdminRestore" value="([^"]*)">Restore all', bin_section).group(1)
        self.assertIn('name="kivAdminAction" value="restore"', bin_section, "the button's form names its action")
        value = button.replace("&#9;", "\t").replace("&#x9;", "\t")
        # A post from another site is refused before the page sees it.
        status, _ = kh.post(self.port, "/kiv-admin/", {"kivAdminAction": "restore", "kivAdminRestore": value},
                            headers=dict(kh.basic_auth(), Origin="http://attacker.example"))
        self.assertEqual(status, 403)
        self.assertEqual(self.count(), 0)
        status, page = kh.post(self.port, "/kiv-admin/", {"kivAdminAction": "restore", "kivAdminRestore": value},
                               headers=dict(kh.basic_auth(), Origin=f"http://127.0.0.1:{self.port}"))
        self.assertEqual(status, 200, page)
        self.assertIn(f"Restored {total} records into People", page)
        self.assertEqual(self.count(), total)
        with open(os.path.join(self.site.data, "audit-main.jsonl")) as log:
            restored = json.loads(log.read().splitlines()[-1])
        self.assertEqual((restored["action"], restored["database"], restored["count"], restored["user"]),
                         ("restored", "People", total, "admin"))
        status, page = kh.post(self.port, "/kiv-admin/", {"kivAdminAction": "restore", "kivAdminRestore": value},
                               headers=dict(kh.basic_auth(), Origin=f"http://127.0.0.1:{self.port}"))
        self.assertEqual(status, 400)
        self.assertIn("Not restored", page)
        status, page = kh.post(self.port, "/kiv-admin/", {"kivAdminAction": "restore", "kivAdminRestore": "deletion\tPeople\t1e9"},
                               headers=dict(kh.basic_auth(), Origin=f"http://127.0.0.1:{self.port}"))
        self.assertEqual(status, 400)

    def test_a_deleted_database_waits_in_the_trash_folder(self):
        status, page = kh.post(self.port, "/t/create.html?db=Scratch")
        self.assertIn("created", page)
        self.editor("DeleteDatabase", "Scratch")
        self.assertFalse(os.path.exists(os.path.join(self.site.data, "Scratch.kivdb")))
        self.assertIsNone(self.count("Scratch"))
        status, listing = kh.get(self.port, "/t/count.html?db=.trash")
        self.assertNotIn("Scratch", listing)
        [line] = self.trash("list").splitlines()
        fields = line.split("\t")
        self.assertEqual((fields[0], fields[3]), ("Scratch", "admin"))
        trash_file = fields[1].removeprefix("database ")
        self.assertTrue(os.path.exists(os.path.join(self.site.data, ".trash", trash_file)))

        kh.post(self.port, "/t/create.html?db=Scratch")  # the name is taken again
        self.assertIn("exists again", self.trash("restore", "--file", trash_file, status=1))
        self.editor("DeleteDatabase", "Scratch")
        self.assertIn("restored the database", self.trash("restore", "--file", trash_file))
        self.assertEqual(self.count("Scratch"), 0)
        self.assertEqual(len(self.trash("list").splitlines()), 1)  # the second Scratch
        self.trash("empty")
        self.assertEqual(self.trash("list"), "")
        self.assertFalse(os.path.exists(os.path.join(self.site.data, ".trash")))


if __name__ == "__main__":
    def configure(server, module):
        global SERVER, MODULE
        SERVER, MODULE = server, module
    kh.main(configure)
