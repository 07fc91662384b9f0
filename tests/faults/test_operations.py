#!/usr/bin/env python3
"""kiv-server as an administrator runs it, against a real server on loopback with a scratch copy
of the example site and the database module:

- SIGHUP applies a changed configuration (a new region) while 2,000 requests are sent, none of
  which fails; a configuration that fails its checks is refused with a log line and the running
  one goes on serving; SIGUSR1 reopens the logs after they were renamed;
- SIGKILL of the master leaves no worker behind and the port free;
- systemd is told READY=1, RELOADING=1 and STOPPING=1 through NOTIFY_SOCKET;
- /kiv-status/metrics parses (Debian's python3-prometheus-client) and counts exactly the
  requests and tag calls the test sent, across both workers; /kiv-status/health answers 200
  or 503 and only to local clients and logged-in users;
- the command line: --version, `check` naming the line of an unknown key, `passwd` refusing a
  short password.

Run by ctest; by hand: test_operations.py --server build/server/kiv-server
--module build/database/libkivdatabase.so [unittest arguments]"""

import csv
import fcntl
import os
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time
import unittest

import kivharness as kh

try:
    from prometheus_client.parser import text_string_to_metric_families
except ImportError:  # an interpreter other than Debian's: use the Debian package's files
    sys.path.append("/usr/lib/python3/dist-packages")
    from prometheus_client.parser import text_string_to_metric_families

SERVER = None
MODULE = None
HELLO = "<p>hello from the main region</p>"


def fetch_all(port, paths, threads=4, gate=None):
    """Gets every path, each on a new connection, from a few threads. Returns the threads, the
    outcomes (the status, or the exception's text) in order, and a one-item list counting the
    requests done. With gate = (index, event), the requests from index on wait for the event."""
    outcomes = [None] * len(paths)
    done = [0]
    lock = threading.Lock()

    def work(start):
        for index in range(start, len(paths), threads):
            if gate and index >= gate[0]:
                gate[1].wait(timeout=120)
            try:
                status, body = kh.get(port, paths[index], timeout=30)
                outcomes[index] = status if status != 200 or HELLO in body else "wrong body"
            except Exception as error:  # noqa: BLE001 - every failure is an outcome to report
                outcomes[index] = repr(error)
            with lock:
                done[0] += 1

    workers = [threading.Thread(target=work, args=(start,)) for start in range(threads)]
    for worker in workers:
        worker.start()
    return workers, outcomes, done


def serve(site, workers, **options):
    """A server of the site once all its workers run (the harness waits for the first only)."""
    server = kh.Server(SERVER, site, **options)
    if not kh.wait_until(lambda: len(server.workers()) == workers, 60):
        server.stop()
        raise AssertionError(f"{workers} workers did not start: {server.logged()[-2000:]}")
    return server


def free_port_outside_the_ephemeral_range():
    """A free port below the range the kernel gives connecting sockets: once the server that
    had it is gone, no client connection can take it meanwhile."""
    with open("/proc/sys/net/ipv4/ip_local_port_range") as ports:
        first = int(ports.read().split()[0])
    for port in range(first - 1, max(1024, first - 2000), -1):
        with socket.socket() as probe:
            probe.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
            try:
                probe.bind(("127.0.0.1", port))
                return port
            except OSError:
                continue
    raise AssertionError("no free port below the ephemeral range")


def read_text(path):
    with open(path, encoding="latin-1") as file:
        return file.read()


def metrics_of(port, headers=None):
    """The metric samples of /kiv-status/metrics as {(name, sorted labels): value}."""
    status, text = kh.get(port, "/kiv-status/metrics", headers=headers)
    if status != 200:
        raise AssertionError(f"metrics answered {status}: {text[:300]}")
    samples = {}
    for family in text_string_to_metric_families(text):
        for sample in family.samples:
            samples[(sample.name, tuple(sorted(sample.labels.items())))] = sample.value
    return samples


def sample(samples, name, **labels):
    return samples.get((name, tuple(sorted(labels.items()))), 0)


class OperationsSite(kh.Site):
    """The example site with a plain page, and a second site for a region added by a reload."""

    def __init__(self, **options):
        super().__init__(SERVER, MODULE, **options)
        with open(os.path.join(self.root, "t", "hello.html"), "w") as page:
            page.write(HELLO)
        self.second_root = os.path.join(self.base, "second")
        os.makedirs(self.second_root)
        with open(os.path.join(self.second_root, "index.html"), "w") as page:
            page.write("<p>the second region</p>")
        self.options = options

    def rewrite(self, extra_region="", extra_server=""):
        """The same configuration, with TOML lines added to [server] and after the region."""
        self.write_config(SERVER, MODULE, self.options.get("workers", 2), self.options.get("threads", 4),
                          extra_server=extra_server)
        with open(self.config, "a") as out:
            out.write(extra_region)

    def second_region(self):
        return f'\n[[region]]\nname = "second"\nhosts = ["second.test"]\nroot = "{self.second_root}"\n' \
               f'data = "{self.second_root}-data"\n'


class ReloadTest(unittest.TestCase):
    def setUp(self):
        self.site = OperationsSite(workers=2)
        self.server = serve(self.site, 2)

    def tearDown(self):
        self.server.stop()
        self.site.remove()

    def wait_for_log(self, text, seconds=30):
        self.assertTrue(kh.wait_until(lambda: text in self.server.logged(), seconds),
                        f"no '{text}' in the log:\n{self.server.logged()[-3000:]}")

    def test_a_new_region_is_applied_while_requests_go_on_without_one_failing(self):
        old_workers = self.server.workers()
        self.assertEqual(len(old_workers), 2)
        # The new configuration is written beside the old one first and moved over it at once.
        config = self.site.config
        self.site.config = config + ".new"
        self.site.rewrite(self.site.second_region())
        self.site.config = config
        # Requests from the 1,500th on wait until the reload is applied, so that the reload
        # always falls between the 500th and the 1,500th, whatever the speed of the machine.
        applied = threading.Event()
        workers, outcomes, done = fetch_all(self.server.port, ["/t/hello.html"] * 2000, gate=(1500, applied))
        self.assertTrue(kh.wait_until(lambda: done[0] >= 500, 120), "the first 500 requests did not finish")
        os.replace(config + ".new", config)
        self.server.process.send_signal(signal.SIGHUP)
        self.wait_for_log("reload applied")
        applied.set()
        for worker in workers:
            worker.join(timeout=300)
        failed = [(index, outcome) for index, outcome in enumerate(outcomes) if outcome != 200]
        self.assertEqual(failed, [], f"{len(failed)} of 2000 requests failed")
        status, page = kh.get(self.server.port, "/", headers={"Host": "second.test"})
        self.assertEqual((status, "the second region" in page), (200, True))
        status, page = kh.get(self.server.port, "/t/hello.html")
        self.assertEqual((status, HELLO in page), (200, True))
        # The old workers finished and went; two new ones serve.
        self.assertTrue(kh.wait_until(lambda: len(self.server.workers()) == 2 and
                                      not set(self.server.workers()) & set(old_workers), 30),
                        f"workers {self.server.workers()}, before the reload {old_workers}")
        self.assertTrue(self.server.running())

    def test_a_configuration_that_fails_its_checks_is_refused_and_the_old_one_serves(self):
        old_workers = self.server.workers()
        broken = [
            ("workerz = 3\n", "unknown key 'workerz' in [server]"),
            ('gzip = "yes"\n', "'gzip' must be true or false"),
        ]
        for extra_server, message in broken:
            self.site.rewrite(self.site.second_region(), extra_server=extra_server)
            with open(self.site.config) as config:
                line = 1 + config.read().split("\n").index(extra_server.strip())
            self.server.process.send_signal(signal.SIGHUP)
            self.wait_for_log(f"server.toml:{line}: {message}")
        self.assertIn("reload refused, configuration 1 goes on serving", self.server.logged())
        self.assertEqual(self.server.workers(), old_workers)
        status, page = kh.get(self.server.port, "/t/hello.html")
        self.assertEqual((status, HELLO in page), (200, True))
        status, page = kh.get(self.server.port, "/", headers={"Host": "second.test"})
        self.assertNotIn("the second region", page)
        samples = metrics_of(self.server.port)
        self.assertEqual(sample(samples, "kiv_config_reloads_total", result="refused"), 2)
        self.assertEqual(sample(samples, "kiv_config_reloads_total", result="applied"), 0)

    def test_usr1_opens_the_logs_again_after_they_were_renamed(self):
        log = os.path.join(self.site.base, "access.log")
        self.assertEqual(kh.get(self.server.port, "/t/hello.html?before")[0], 200)
        # A worker writes its access line once the response is sent, so the client can be
        # answered before the line is in the file.
        self.assertTrue(kh.wait_until(lambda: "?before" in read_text(log), 10))
        os.rename(log, log + ".1")
        self.server.process.send_signal(signal.SIGUSR1)
        self.wait_for_log("logs opened again")
        # Every worker has been told; the requests spread over both.
        self.assertTrue(kh.wait_until(lambda: os.path.exists(log), 10))
        for index in range(20):
            self.assertEqual(kh.get(self.server.port, f"/t/hello.html?after={index}")[0], 200)
        kh.wait_until(lambda: read_text(log).count("?after=") >= 20, 10)
        fresh_lines, rotated_lines = read_text(log), read_text(log + ".1")
        self.assertIn("?before", rotated_lines)
        self.assertNotIn("?after", rotated_lines)
        self.assertEqual(fresh_lines.count("?after="), 20, fresh_lines)


class SupervisionTest(unittest.TestCase):
    def test_workers_die_with_their_master_and_the_port_is_free(self):
        site = OperationsSite(workers=2)
        # A port no connecting socket can be given while the test looks at it.
        port = free_port_outside_the_ephemeral_range()
        with open(site.config) as config:
            text = config.read()
        with open(site.config, "w") as config:
            config.write(text.replace("port = 0\n", f"port = {port}\n", 1))
        server = serve(site, 2)
        try:
            self.assertEqual(server.port, port)
            workers = server.workers()
            server.process.send_signal(signal.SIGKILL)
            server.process.wait(timeout=10)
            self.assertTrue(kh.wait_until(lambda: all(is_gone(pid) for pid in workers), 2),
                            f"workers left: {[pid for pid in workers if not is_gone(pid)]}")
            with socket.socket() as listener:
                listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
                listener.bind(("127.0.0.1", port))
                listener.listen()
        finally:
            server.stop()
            site.remove()

    def test_a_single_process_reloads_in_place(self):
        site = OperationsSite(workers=1)
        server = kh.Server(SERVER, site, arguments=["--single-process"])
        try:
            site.rewrite(site.second_region())
            server.process.send_signal(signal.SIGHUP)
            self.assertTrue(kh.wait_until(lambda: "reload applied" in server.logged(), 30), server.logged())
            status, page = kh.get(server.port, "/", headers={"Host": "second.test"})
            self.assertEqual((status, "the second region" in page), (200, True))
            self.assertEqual(server.workers(), [], "no worker processes")
            self.assertEqual(server.stop(), 0)
        finally:
            server.stop()
            site.remove()

    def test_systemd_hears_ready_reloading_and_stopping(self):
        site = OperationsSite(workers=1)
        folder = tempfile.mkdtemp(prefix="kiv-notify-")
        path = os.path.join(folder, "notify")
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as notify:
            notify.bind(path)
            notify.settimeout(60)
            server = kh.Server(SERVER, site, env=dict(os.environ, NOTIFY_SOCKET=path))
            try:
                def next_message():
                    return notify.recv(4096).decode()

                ready = next_message()
                self.assertIn("READY=1", ready)
                self.assertIn(f"MAINPID={server.process.pid}", ready)
                self.assertIn("STATUS=serving 1 region(s)", ready)
                server.process.send_signal(signal.SIGHUP)
                self.assertIn("RELOADING=1", next_message())
                self.assertIn("READY=1", next_message())
                self.assertEqual(server.stop(), 0)
                self.assertIn("STOPPING=1", next_message())
            finally:
                server.stop()
                site.remove()
                shutil.rmtree(folder, ignore_errors=True)


def is_gone(pid):
    """Whether a process has ended with all its threads (a zombie's main thread can end while
    the others still run, holding its files)."""
    try:
        for task in os.listdir(f"/proc/{pid}/task"):
            with open(f"/proc/{pid}/task/{task}/stat") as stat:
                if stat.read().rsplit(")", 1)[1].split()[0] not in ("Z", "X"):
                    return False
    except OSError:
        pass
    return True


class StatusPagesTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.site = OperationsSite(workers=2)
        cls.server = serve(cls.site, 2)
        cls.port = cls.server.port

    @classmethod
    def tearDownClass(cls):
        cls.server.stop()
        cls.site.remove()

    def test_metrics_count_the_requests_and_tags_sent(self):
        before = metrics_of(self.port)
        for _ in range(30):
            self.assertEqual(kh.get(self.port, "/t/hello.html")[0], 200)
        for _ in range(10):
            self.assertEqual(kh.get(self.port, "/no-such-page.html")[0], 404)
        for _ in range(5):
            status, page = kh.get(self.port, "/t/count.html?db=People")
            self.assertEqual(status, 200)
            self.assertIn("count=", page)
        after = metrics_of(self.port)

        def delta(name, **labels):
            return sample(after, name, **labels) - sample(before, name, **labels)

        # The first scrape is counted once it has been answered.
        self.assertEqual(delta("kiv_http_requests_total", region="main", status="2xx"), 30 + 5 + 1)
        self.assertEqual(delta("kiv_http_requests_total", region="main", status="4xx"), 10)
        self.assertEqual(delta("kiv_http_request_duration_seconds_count", region="main"), 46)
        self.assertGreater(delta("kiv_http_request_duration_seconds_sum", region="main"), 0)
        self.assertEqual(delta("kiv_tag_calls_total", tag="kivSearchDatabase", result="0"), 5)
        self.assertEqual(delta("kiv_database_open_duration_seconds_count", store="embedded"), 5)
        self.assertEqual(delta("kiv_database_search_duration_seconds_count", store="embedded"), 5)
        self.assertGreater(delta("kiv_database_search_duration_seconds_sum", store="embedded"), 0)
        self.assertGreaterEqual(sample(after, "kiv_http_open_connections"), 1, "the scrape's own")
        self.assertEqual(sample(after, "kiv_workers"), 2)
        self.assertEqual(sample(after, "kiv_metrics_dropped_series_total"), 0)

    def test_a_replaced_worker_is_counted(self):
        before = sample(metrics_of(self.port), "kiv_worker_restarts_total")
        victim = self.server.workers()[0]
        os.kill(victim, signal.SIGKILL)
        self.assertTrue(kh.wait_until(lambda: victim not in self.server.workers() and
                                      len(self.server.workers()) == 2, 30))
        self.assertTrue(kh.wait_until(lambda: self.server.status("/t/hello.html") == 200, 10))
        self.assertEqual(sample(metrics_of(self.port), "kiv_worker_restarts_total"), before + 1)

    def test_health_answers_whether_the_worker_can_serve(self):
        self.assertEqual(kh.get(self.port, "/kiv-status/health"), (200, "ok\n"))
        hidden = self.site.data + ".hidden"
        os.rename(self.site.data, hidden)
        try:
            status, text = kh.get(self.port, "/kiv-status/health")
            self.assertEqual(status, 503)
            self.assertIn("data folder", text)
        finally:
            os.rename(hidden, self.site.data)
        self.assertEqual(kh.get(self.port, "/kiv-status/health"), (200, "ok\n"))

    def test_only_local_clients_and_logged_in_users_see_the_status(self):
        for header in ("X-Forwarded-For", "X-Real-IP", "Forwarded"):
            for path in ("/kiv-status/health", "/kiv-status/metrics"):
                status, _ = kh.get(self.port, path, headers={header: "203.0.113.9"})
                self.assertEqual(status, 401, (header, path))
        proxied = dict(kh.basic_auth(), **{"X-Forwarded-For": "203.0.113.9"})
        self.assertEqual(kh.get(self.port, "/kiv-status/health", headers=proxied), (200, "ok\n"))
        self.assertIn(("kiv_workers", ()), metrics_of(self.port, headers=proxied))
        wrong = dict(kh.basic_auth(password="wrong password"), **{"X-Forwarded-For": "203.0.113.9"})
        self.assertEqual(kh.get(self.port, "/kiv-status/metrics", headers=wrong)[0], 401)
        self.assertEqual(kh.get(self.port, "/kiv-status/other")[0], 404)


class CommandLineTest(unittest.TestCase):
    def run_server(self, *arguments, stdin=""):
        return subprocess.run([SERVER, *arguments], input=stdin, capture_output=True, text=True, timeout=120)

    def test_version_names_the_server_and_the_module(self):
        result = self.run_server("--version")
        self.assertEqual(result.returncode, 0, result.stderr)
        lines = result.stdout.splitlines()
        self.assertRegex(lines[0], r"^kiv-server \d+\.\d+\.\d+$")
        self.assertRegex(lines[1], r"^Database Module \d+\.\d+\.\d+ \(.*libkivdatabase\.so\)$")
        self.assertEqual(lines[0].split()[-1], lines[1].split()[2], "one version for the server and module")

    def test_help_lists_every_command_and_option(self):
        result = self.run_server("--help")
        self.assertEqual(result.returncode, 0, result.stderr)
        for option in ("--version", "serve", "--single-process", "--workers", "--tls-cert", "render", "--cookie",
                       "passwd", "check"):
            self.assertIn(option, result.stdout)

    def test_check_names_the_line_of_every_unknown_key(self):
        site = OperationsSite(workers=1)
        try:
            self.assertEqual(self.run_server("check", "--config", site.config).returncode, 0)
            site.rewrite(site.second_region() + "show_error = false\n", extra_server="workerz = 4\n")
            with open(site.config) as config:
                lines = config.read().split("\n")
            result = self.run_server("check", "--config", site.config)
            self.assertEqual(result.returncode, 1)
            self.assertIn(f"server.toml:{lines.index('workerz = 4') + 1}: unknown key 'workerz' in [server]",
                          result.stderr)
            self.assertIn(f"server.toml:{lines.index('show_error = false') + 1}: unknown key 'show_error'",
                          result.stderr)
            # The same refusal at start.
            result = self.run_server("serve", "--config", site.config)
            self.assertEqual(result.returncode, 1)
            self.assertIn("unknown key 'workerz'", result.stderr)
        finally:
            site.remove()

    def test_passwd_refuses_a_short_password(self):
        result = self.run_server("passwd", stdin="eleven-char\n")
        self.assertEqual(result.returncode, 1)
        self.assertIn("at least 12", result.stderr)
        self.assertEqual(result.stdout, "")
        result = self.run_server("passwd", stdin="twelve-chars\n")
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertTrue(result.stdout.startswith("$argon2id$"))


class DatabaseCommandsTest(unittest.TestCase):
    """kiv-server db against the data folder of a running server."""

    def setUp(self):
        self.site = OperationsSite(workers=2)
        self.server = kh.Server(SERVER, self.site)
        self.scratch = tempfile.mkdtemp(prefix="kiv-db-")

    def tearDown(self):
        self.server.stop()
        self.site.remove()
        shutil.rmtree(self.scratch, ignore_errors=True)

    def db(self, *arguments, data=None):
        result = subprocess.run([SERVER, "db", *arguments, "--data", data or self.site.data], capture_output=True,
                                text=True, timeout=120)
        return result.returncode, result.stdout, result.stderr

    def first_names(self, data):
        """The FirstName of every record of People in a data folder, through `db export`."""
        target = os.path.join(self.scratch, f"export-{len(os.listdir(self.scratch))}.csv")
        status, out, err = self.db("export", "People", target, "--fields", "FirstName", data=data)
        self.assertEqual(status, 0, err)
        with open(target, newline="", encoding="latin-1") as rows:
            return [row[0] for row in list(csv.reader(rows))[1:]]

    def people_count(self):
        status, page = kh.get(self.server.port, "/t/count.html?db=People")
        self.assertEqual(status, 200)
        return int(kh.re.search(r"count=(\d+)", page).group(1))

    def test_backups_during_2000_adds_hold_every_acknowledged_record_and_pass_the_check(self):
        acknowledged = []
        failures = []
        lock = threading.Lock()

        def add(prefix):
            for i in range(500):
                name = f"{prefix}{i:03d}"
                if kh.add_person(self.server.port, name, "Backuptown"):
                    with lock:
                        acknowledged.append(name)
                else:
                    failures.append(name)

        writers = [threading.Thread(target=add, args=(prefix,)) for prefix in "ABCD"]
        for writer in writers:
            writer.start()
        backups = []
        for mark in (400, 1000, 1600):
            self.assertTrue(kh.wait_until(lambda: len(acknowledged) >= mark, 300), f"{len(acknowledged)} adds")
            with lock:
                before = list(acknowledged)
            folder = os.path.join(self.scratch, f"backup-{mark}")
            status, out, err = self.db("backup", "People", "--to", folder)
            self.assertEqual(status, 0, err)
            self.assertIn("People: backed up to", out)
            backups.append((folder, before, len(acknowledged)))
        for writer in writers:
            writer.join(timeout=600)
        self.assertEqual(failures, [])
        self.assertEqual(len(acknowledged), 2000)
        for folder, before, after in backups:
            self.assertEqual(self.db("check", data=folder)[:2], (0, "People: ok\n"))
            names = set(self.first_names(folder))
            self.assertEqual([name for name in before if name not in names], [],
                             f"acknowledged before the backup to {folder} but not in it")
        self.assertLess(backups[0][2], 2000, "the adds went on while the backups were made")
        # The live database holds them all, and passes the check too.
        self.assertEqual(self.db("check")[:2], (0, "People: ok\n"))
        self.assertLessEqual(set(acknowledged), set(self.first_names(self.site.data)))

    def test_restore_waits_for_the_exclusive_lock_and_pages_see_the_restored_records(self):
        folder = os.path.join(self.scratch, "backup")
        original = self.people_count()
        self.assertEqual(self.db("backup", "--to", folder)[0], 0)
        for i in range(5):
            self.assertTrue(kh.add_person(self.server.port, f"Later{i}", "Restoretown"))
        self.assertEqual(self.people_count(), original + 5)
        # A page that has the database open (here: a shared lock held for it) keeps a restore out.
        with open(os.path.join(self.site.data, ".kivlocks", "people.lock"), "a+") as held:
            fcntl.flock(held, fcntl.LOCK_SH)
            status, _, err = self.db("restore", "People", "--from", folder)
            self.assertEqual(status, 1)
            self.assertIn("'MLkd'", err)
        self.assertEqual(self.people_count(), original + 5)
        status, out, err = self.db("restore", "people", "--from", folder)
        self.assertEqual(status, 0, err)
        for _ in range(6):  # every worker sees it, whatever connections it keeps
            self.assertEqual(self.people_count(), original)
        self.assertTrue(kh.add_person(self.server.port, "AfterRestore", "Restoretown"))
        self.assertEqual(self.db("check")[:2], (0, "People: ok\n"))

    def test_check_reports_damaged_files_and_restore_refuses_them(self):
        folder = os.path.join(self.scratch, "backup")
        self.assertEqual(self.db("backup", "People", "--to", folder)[0], 0)
        damaged = os.path.join(self.scratch, "damaged")
        os.makedirs(damaged)
        shutil.copy(os.path.join(folder, "People.kivdb"), os.path.join(damaged, "People.kivdb"))
        with open(os.path.join(damaged, "People.kivdb"), "r+b") as file:
            size = file.seek(0, os.SEEK_END)
            for offset in range(4096, size, 4096):  # every page after the first: its header
                file.seek(offset)
                file.write(b"\x0d\xff\xff\xff\xff\x00\x00")
        with open(os.path.join(damaged, "Notes.kivdb"), "wb") as file:
            file.write(b"this is no database" * 100)
        status, out, _ = self.db("check", data=damaged)
        self.assertEqual(status, 1)
        self.assertRegex(out, r"Notes: 1 problem\(s\)\n  .*not a database")
        self.assertRegex(out, r"People: \d+ problem\(s\)")
        status, _, err = self.db("restore", "People", "--from", damaged)
        self.assertEqual(status, 1)
        self.assertIn("fails its check", err)
        self.assertEqual(self.db("check")[:2], (0, "People: ok\n"))

    def test_import_dry_run_lists_every_bad_line_and_writes_nothing(self):
        source = os.path.join(self.scratch, "people.csv")
        with open(source, "w", encoding="latin-1") as out:
            out.write("LastName,FirstName,City,Email\n"
                      "Dry,Ann,Lyon,ann.dry@example.org\n"
                      "Dry,Bob,Lyon\n"
                      "Dry,Cid,Lyon,cid.dry@example.org\n"
                      + "Dry,Dee,Lyon,dee.dry@example.org,extra\n"
                      + "Dry,\"Eve\nwith a line break\",Lyon,eve.dry@example.org\n"
                      + "Dry,Fay,Lyon," + "x" * 81 + "@example.org\n")
        count = self.people_count()
        status, out, _ = self.db("import", "People", source, "--dry-run")
        self.assertEqual(status, 1)
        lines = out.splitlines()
        self.assertEqual([line.split(": ", 1)[1].split(":")[0].split(",")[0] for line in lines[:-1]],
                         ["line 3", "line 5"], out)
        self.assertIn("6 rows checked, 2 problem(s); nothing was written", lines[-1])
        self.assertEqual(self.people_count(), count)
        # The import itself takes all rows or none.
        status, _, err = self.db("import", "People", source)
        self.assertEqual(status, 1)
        self.assertIn("line 3", err)
        self.assertEqual(self.people_count(), count)
        with open(source, "w", encoding="latin-1") as out:
            out.write("LastName,FirstName,City,Email\nGood,Gus,Lyon,gus@example.org\nGood,Hal,Lyon,hal@example.org\n")
        self.assertEqual(self.db("import", "People", source, "--dry-run")[:2],
                         (0, "2 rows checked, 0 problem(s); nothing was written (--dry-run)\n"))
        self.assertEqual(self.db("import", "People", source)[:2], (0, "imported 2 records into People\n"))
        self.assertEqual(self.people_count(), count + 2)

    def test_create_index_list_export_and_the_region_of_a_configuration(self):
        status, out, err = self.db("create", "Books", "Title:Text:80:X", "Year:Integer:0:X", "Shelf:Text")
        self.assertEqual((status, out), (0, "created Books with 3 fields\n"), err)
        self.assertEqual(self.db("create", "Books2", "Title:Txt")[0], 1)
        self.assertEqual(self.db("index", "add", "People", "City,LastName")[:2],
                         (0, "People: index on City, LastName\n"))
        status, out, _ = self.db("index", "list", "People")
        self.assertIn("City, LastName\n", out)
        self.assertIn("Email\n", out)
        self.assertEqual(self.db("index", "add", "People", "City,Nothing")[0], 1)
        # Searches go on as before, through the declared index.
        status, page = kh.get(self.server.port, "/t/names.html?" + kh.query(city="Lyon", page=1))
        self.assertEqual(status, 200)
        self.assertIn("Ada", page)
        result = subprocess.run([SERVER, "db", "list", "--config", self.site.config, "--region", "main"],
                                capture_output=True, text=True, timeout=60)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertRegex(result.stdout, r"Books\t4 fields\t0 records\nPeople\t6 fields\t\d+ records\n")
        result = subprocess.run([SERVER, "db", "list", "--config", self.site.config, "--region", "elsewhere"],
                                capture_output=True, text=True, timeout=60)
        self.assertEqual(result.returncode, 1)
        self.assertIn("no region is named 'elsewhere' (main)", result.stderr)
        target = os.path.join(self.scratch, "lyon.csv")
        status, out, _ = self.db("export", "People", target, "--fields", "LastName,City", "--search",
                                 "City = 'Lyon'")
        self.assertEqual(status, 0)
        with open(target, newline="") as rows:
            exported = list(csv.reader(rows))
        self.assertEqual(exported[0], ["LastName", "City"])
        self.assertEqual({row[1] for row in exported[1:]}, {"Lyon"})
        self.assertEqual(out, f"exported {len(exported) - 1} records to {target}\n")
        # The server's own files are not an export target.
        status, _, err = self.db("export", "People", os.path.join(self.site.data, "kiv-preferences.txt"))
        self.assertEqual(status, 1)
        self.assertIn("server's own files", err)


def configure(server, module):
    global SERVER, MODULE
    SERVER, MODULE = server, module


if __name__ == "__main__":
    kh.main(configure)
