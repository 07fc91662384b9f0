#!/usr/bin/env python3
"""Faults a running kiv-server must survive, each against a real server on a loopback port with
a scratch copy of the example site and the database module:

- a worker killed with SIGKILL while a request loop adds records: the service keeps answering
  and every add it acknowledged is in the database afterwards;
- a full disk during export and import (a file-size limit, and a small tmpfs where mounting is
  allowed): a clear error on the page, no half-written file, no record lost;
- database files that are corrupt or not databases at all: a clear error on the page while the
  server and the other databases go on working.

Run by ctest; by hand: test_faults.py --server build/server/kiv-server
--module build/database/libkivdatabase.so [unittest arguments, e.g. WorkerKillTest]"""

import os
import resource
import signal
import sqlite3
import subprocess
import sys
import threading
import time
import unittest

import kivharness as kh

SERVER = None
MODULE = None


def names_in(port, city):
    names = set()
    page_number = 1
    while True:
        status, page = kh.get(port, "/t/names.html?" + kh.query(city=city, page=page_number))
        match = kh.re.search(r"count=(\d+) last=(\d+)", page)
        if status != 200 or not match:
            raise AssertionError(f"names page answered {status}: {page[:500]}")
        names |= set(kh.re.findall(r"\[([^\]]*)\]", page))
        if page_number >= int(match.group(2)):
            return names
        page_number += 1


class WorkerKillTest(unittest.TestCase):
    """SIGKILL to a worker in the middle of a stream of adds."""

    def setUp(self):
        self.site = kh.Site(SERVER, MODULE, workers=2, threads=4)
        self.server = kh.Server(SERVER, self.site)

    def tearDown(self):
        self.server.stop()
        self.site.remove()

    def test_killed_workers_are_replaced_and_acknowledged_adds_survive(self):
        acknowledged = []
        failures = []
        stop = threading.Event()

        def load(prefix, count):
            for i in range(count):
                if stop.is_set():
                    return
                name = f"{prefix}{i:04d}"
                try:
                    if kh.add_person(self.server.port, name, "Killtown"):
                        acknowledged.append(name)
                    else:
                        failures.append(name)
                except OSError:
                    failures.append(name)  # cut off by the kill: not acknowledged, may or may not exist

        # The loop is bounded: it stops once the kills are done, or after 2000 adds a thread.
        threads = [threading.Thread(target=load, args=(p, 2000)) for p in ("A", "B", "C")]
        for thread in threads:
            thread.start()
        killed = []
        try:
            for target in (100, 300, 500, 700):
                self.assertTrue(kh.wait_until(lambda: len(acknowledged) >= target, 120),
                                f"the load stalled at {len(acknowledged)} adds")
                if len(killed) == 3:
                    break  # adds go on after the last replacement
                self.assertTrue(kh.wait_until(lambda: len(self.server.workers()) == 2, 60),
                                f"no two workers to kill from: {self.server.workers()}")
                victim = self.server.workers()[len(killed) % 2]
                os.kill(victim, signal.SIGKILL)
                killed.append(victim)
        finally:
            stop.set()
            for thread in threads:
                thread.join(timeout=300)

        print(f"\n  {len(acknowledged)} adds acknowledged, {len(failures)} cut off by {len(killed)} kills",
              file=sys.stderr)
        self.assertTrue(self.server.running(), "the master process ended")
        self.assertTrue(kh.wait_until(lambda: len(self.server.workers()) == 2
                                      and not set(self.server.workers()) & set(killed), 60),
                        f"killed workers were not replaced: {self.server.workers()} (killed {killed})")
        self.assertEqual(self.server.status("/people/"), 200)
        self.assertGreaterEqual(len(acknowledged), 700)
        stored = names_in(self.server.port, "Killtown")
        missing = sorted(set(acknowledged) - stored)
        self.assertEqual(missing, [], f"{len(missing)} acknowledged adds are missing")
        # Adds keep working after the kills.
        self.assertTrue(kh.add_person(self.server.port, "After", "Killtown"))
        self.assertIn("After", names_in(self.server.port, "Killtown"))


def big_csv(path, rows, prefix):
    with open(path, "w", encoding="latin-1", newline="") as out:
        out.write("Name,Notes\r\n")
        for i in range(rows):
            out.write(f'{prefix}{i:05d},"{"filler text, with a comma and ""quotes"" " * 4}"\r\n')


def record_count(port, database):
    status, page = kh.get(port, "/t/count.html?" + kh.query(db=database))
    match = kh.re.search(r"count=(\d+)", page)
    if status != 200 or not match:
        raise AssertionError(f"count page answered {status}: {page[:500]}")
    return int(match.group(1))


def limit_file_size(limit):
    def apply():
        # The signal is ignored so that a write past the limit fails with EFBIG, as on a full
        # disk, instead of killing the process; ignored signals stay ignored across exec.
        signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
        resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit))
    return apply


class FullDiskTest(unittest.TestCase):
    """Export and import when the disk is full."""

    ROWS = 3000
    LIMIT = 128 * 1024

    @classmethod
    def setUpClass(cls):
        cls.site = kh.Site(SERVER, MODULE, workers=1, threads=2)
        cls.exports = os.path.join(cls.site.data, "exports")
        os.makedirs(cls.exports)
        big_csv(os.path.join(cls.exports, "big.csv"), cls.ROWS, "Big")
        big_csv(os.path.join(cls.exports, "more.csv"), cls.ROWS, "More")
        # Fill a database while the disk has room; it is larger than the later limit.
        server = kh.Server(SERVER, cls.site)
        try:
            status, page = kh.post(server.port, "/t/create.html?db=Big")
            assert status == 200 and kh.error_block(page) is None, page
            status, page = kh.post(server.port, "/t/import.html?" + kh.query(db="Big", file="big.csv"))
            assert f"imported={cls.ROWS}" in page, page
            status, page = kh.get(server.port, "/t/export.html?" + kh.query(db="Big", file="whole.csv"))
            assert f"exported={cls.ROWS}" in page, page
        finally:
            server.stop()
        cls.export_size = os.path.getsize(os.path.join(cls.exports, "whole.csv"))
        assert cls.export_size > 2 * cls.LIMIT

    @classmethod
    def tearDownClass(cls):
        cls.site.remove()

    def exports_listing(self):
        return sorted(os.listdir(self.exports))

    def check_database_intact(self):
        """Record count and SQLite's own integrity check, with the server stopped."""
        database = os.path.join(self.site.data, "Big.kivdb")
        connection = sqlite3.connect(f"file:{database}?mode=ro", uri=True)
        # The schema names the service's own collation; the quick check only needs it to exist.
        connection.create_collation("KIVNOCASE", lambda a, b: (a.lower() > b.lower()) - (a.lower() < b.lower()))
        try:
            self.assertEqual(connection.execute("PRAGMA quick_check").fetchone()[0], "ok")
        finally:
            connection.close()
        server = kh.Server(SERVER, self.site)
        try:
            self.assertEqual(record_count(server.port, "Big"), self.ROWS)
        finally:
            server.stop()

    def test_export_and_import_past_a_file_size_limit(self):
        keep = os.path.join(self.exports, "keep.csv")
        with open(keep, "w") as out:
            out.write("precious\n")
        before = self.exports_listing()
        server = kh.Server(SERVER, self.site, preexec_fn=limit_file_size(self.LIMIT))
        try:
            with self.subTest("export to a new file"):
                status, page = kh.get(server.port, "/t/export.html?" + kh.query(db="Big", file="new.csv"))
                self.assertEqual(status, 200)
                self.assertIsNotNone(kh.error_block(page), f"no error shown for a failed export: {page[-800:]}")
                self.assertNotIn(f"exported={self.ROWS}", page)
                self.assertEqual(self.exports_listing(), before, "a failed export left a file behind")
            with self.subTest("export over an existing file"):
                status, page = kh.get(server.port, "/t/export.html?" + kh.query(db="Big", file="keep.csv"))
                self.assertEqual(status, 200)
                self.assertIsNotNone(kh.error_block(page), page[-800:])
                with open(keep) as kept:
                    self.assertEqual(kept.read(), "precious\n", "a failed export damaged the file it replaces")
                self.assertEqual(self.exports_listing(), before)
            with self.subTest("import"):
                status, page = kh.post(server.port, "/t/import.html?" + kh.query(db="Big", file="more.csv"))
                self.assertEqual(status, 200)
                self.assertIsNotNone(kh.error_block(page), f"no error shown for a failed import: {page[-800:]}")
                self.assertEqual(record_count(server.port, "Big"), self.ROWS, "a failed import wrote records")
            with self.subTest("the server goes on"):
                self.assertTrue(server.running())
                self.assertEqual(server.status("/people/"), 200)
        finally:
            server.stop()
        self.check_database_intact()

    def test_export_onto_a_full_tmpfs(self):
        mount_point = os.path.join(self.exports, "small")
        os.makedirs(mount_point, exist_ok=True)
        mounted = subprocess.run(["mount", "-t", "tmpfs", "-o", "size=64k", "tmpfs", mount_point],
                                 capture_output=True).returncode == 0
        if not mounted:
            os.rmdir(mount_point)
            self.skipTest("mounting a tmpfs is not allowed here; the file-size limit test covers it")
        try:
            server = kh.Server(SERVER, self.site)
            try:
                status, page = kh.get(server.port, "/t/export.html?" + kh.query(db="Big", file="small/x.csv"))
                self.assertEqual(status, 200)
                self.assertIsNotNone(kh.error_block(page), f"no error shown for a full disk: {page[-800:]}")
                self.assertEqual(os.listdir(mount_point), [], "a failed export left a file on the full disk")
                self.assertEqual(record_count(server.port, "Big"), self.ROWS)
            finally:
                server.stop()
        finally:
            subprocess.run(["umount", mount_point], check=False)
            os.rmdir(mount_point)


class CorruptDatabaseTest(unittest.TestCase):
    """Database files that are damaged or were never databases."""

    @classmethod
    def setUpClass(cls):
        cls.site = kh.Site(SERVER, MODULE, workers=2, threads=2)
        server = kh.Server(SERVER, cls.site)  # loads People from the example's CSV
        server.stop()
        people = os.path.join(cls.site.data, "People.kivdb")
        with open(people, "rb") as source:
            valid = source.read()
        damaged = {
            "Garbage": b"this is not a database, just some text\n" * 200,
            "Zeros": bytes(8192),
            "Truncated": valid[:len(valid) // 3 + 7],
            # The header says SQLite, the schema page is noise.
            "Scrambled": valid[:100] + bytes((i * 131 + 17) % 256 for i in range(len(valid) - 100)),
        }
        for name, content in damaged.items():
            with open(os.path.join(cls.site.data, name + ".kivdb"), "wb") as out:
                out.write(content)
        cls.server = kh.Server(SERVER, cls.site)

    @classmethod
    def tearDownClass(cls):
        cls.server.stop()
        cls.site.remove()

    def test_each_damaged_database_gives_a_clear_error_and_the_server_goes_on(self):
        for name in ("Garbage", "Zeros", "Truncated", "Scrambled"):
            for fetch, page_path in ((kh.get, "/t/count.html?" + kh.query(db=name)),
                                     (kh.post, "/t/add.html?" + kh.query(db=name, name="x", notes="y")),
                                     (kh.get, "/t/export.html?" + kh.query(db=name, file=f"{name}.csv"))):
                with self.subTest(database=name, page=page_path):
                    status, page = fetch(self.server.port, page_path)
                    self.assertEqual(status, 200)
                    error = kh.error_block(page)
                    self.assertIsNotNone(error, f"no error shown: {page[-600:]}")
                    self.assertGreater(len(error), 20)
                    self.assertNotIn("count=1", page)
        self.assertTrue(self.server.running())
        status, page = kh.get(self.server.port, "/people/")
        self.assertEqual(status, 200)
        self.assertIn("of 45", page)
        self.assertIsNone(kh.error_block(page))

    def test_the_editor_lists_and_refuses_them_without_failing(self):
        status, page = kh.get(self.server.port, "/manage/editor.html", headers=kh.basic_auth())
        self.assertEqual(status, 200)
        self.assertIn("People", page)
        for name in ("Garbage", "Truncated"):
            with self.subTest(database=name):
                status, page = kh.get(self.server.port, "/manage/editor.html?" + kh.query(databaseName=name),
                                      headers=kh.basic_auth())
                self.assertEqual(status, 200)
                self.assertIn("</html>", page)
        self.assertEqual(self.server.status("/people/search.html?city=Paris"), 200)


def configure(server, module):
    global SERVER, MODULE
    SERVER, MODULE = server, module


if __name__ == "__main__":
    kh.main(configure)
