#!/usr/bin/env python3
"""Load against a real kiv-server on a loopback port with a scratch copy of the example site.

  load.py soak --server S --module M [--requests N]
      N requests of the search and directory pages (default 10000) over keep-alive
      connections; passes when every request succeeds, no worker was replaced, and each
      worker's resident memory stays flat after warming up (measured from /proc).

  load.py large --server S --module M [--requests N]
      N pages of 10,000 rows each (default 12), four at a time, from a database of 10,000
      records; passes when every page is complete and each worker, at rest afterwards, is
      resident in less than --resident-mib (32): the memory a large page took is given back.

  load.py concurrency --server S --module M [--requests N] [--sanitizer-log DIR]
      Mixed concurrent requests (pages with searches, adds, the editor, the administration
      page, static files) into one worker with several threads. With --sanitizer-log, the
      server was built with a sanitizer that writes its reports there (TSAN_OPTIONS
      log_path=DIR/report): the run fails when any report appears.
"""

import argparse
import glob
import http.client
import itertools
import os
import subprocess
import sys
import threading
import time
import urllib.parse

import kivharness as kh

CITIES = ["Paris", "Lyon", "Madrid", "Boston", "Nowhere", "O'Hare", "Sevilla", ""]


def search_paths():
    """An endless round of search and directory pages with varied arguments."""
    for i in itertools.count():
        city = CITIES[i % len(CITIES)]
        if i % 3 == 0:
            yield "/people/?" + urllib.parse.urlencode({"page": i % 4 + 1})
        else:
            yield "/people/search.html?" + urllib.parse.urlencode({"city": city, "page": i % 3 + 1})


class Client:
    """One keep-alive connection that reconnects when the server closes it."""

    def __init__(self, port):
        self.port = port
        self.connection = None

    def send(self, method, path, body=None, headers=None):
        for attempt in range(2):
            if self.connection is None:
                self.connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=60)
            try:
                self.connection.request(method, path, body=body, headers=headers or {})
                response = self.connection.getresponse()
                data = response.read()
                if response.getheader("Connection", "").lower() == "close":
                    self.close()
                return response.status, data
            except (http.client.RemoteDisconnected, ConnectionResetError, BrokenPipeError):
                # An idle keep-alive connection the server closed: one retry on a new one.
                self.close()
                if attempt == 1:
                    raise
        raise AssertionError("unreachable")

    def close(self):
        if self.connection is not None:
            self.connection.close()
            self.connection = None


def run_requests(port, count, connections, next_request, check=None):
    """Sends count requests over the given number of connections; returns the failures. check,
    when given, is called with each answer's status and body."""
    lock = threading.Lock()
    remaining = [count]
    failures = []

    def worker():
        client = Client(port)
        try:
            while True:
                with lock:
                    if remaining[0] == 0:
                        return
                    remaining[0] -= 1
                    method, path, body, headers = next_request()
                try:
                    status, data = client.send(method, path, body, headers)
                    if check:
                        check(status, data)
                    if status >= 400 or (path.endswith(".html") and b"</html>" not in data):
                        with lock:
                            failures.append(f"{method} {path}: {status} {data[:200]!r}")
                except OSError as error:
                    with lock:
                        failures.append(f"{method} {path}: {error}")
        finally:
            client.close()

    threads = [threading.Thread(target=worker) for _ in range(connections)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    return failures


def soak(arguments):
    site = kh.Site(arguments.server, arguments.module, workers=2, threads=4)
    server = kh.Server(arguments.server, site)
    try:
        paths = search_paths()
        lock = threading.Lock()

        def next_request():
            with lock:
                return "GET", next(paths), None, None

        warm_up = min(1000, arguments.requests // 5)
        failures = run_requests(server.port, warm_up, 4, next_request)
        workers = server.workers()
        baseline = {pid: kh.rss_kib(pid) for pid in workers}
        print(f"soak: {len(workers)} workers after {warm_up} warm-up requests, RSS KiB {baseline}", flush=True)
        remaining = arguments.requests - warm_up
        steps = 5
        samples = {pid: [] for pid in workers}
        for step in range(steps):
            share = remaining // steps + (remaining % steps if step == steps - 1 else 0)
            failures += run_requests(server.port, share, 4, next_request)
            for pid in workers:
                samples[pid].append(kh.rss_kib(pid))
            print(f"soak: after {warm_up + remaining * (step + 1) // steps} requests, RSS KiB "
                  f"{ {pid: values[-1] for pid, values in samples.items()} }", flush=True)
        problems = []
        if failures:
            problems.append(f"{len(failures)} requests failed, first: {failures[:3]}")
        if server.workers() != workers:
            problems.append(f"workers were replaced during the soak: {workers} -> {server.workers()}")
        for pid in workers:
            growth = samples[pid][-1] - baseline[pid]
            # Flat: a worker may settle a little after warming up (allocator pools, SQLite's
            # page cache) but must not keep growing with the number of requests.
            allowed = arguments.allowed_growth_kib
            print(f"soak: worker {pid} grew {growth} KiB over {remaining} requests (allowed {allowed})")
            if growth > allowed:
                problems.append(f"worker {pid} grew from {baseline[pid]} to {samples[pid][-1]} KiB: {samples[pid]}")
        if problems:
            print("soak FAILED:\n  " + "\n  ".join(problems))
            return 1
        print(f"soak: {arguments.requests} requests, memory flat")
        return 0
    finally:
        server.stop()
        site.remove()


LARGE_PAGE = """<html><body><table><kivSearchDatabase databaseName="Big" orderByField="Name" resultsPerPage="10000">\
<tr><td>&kivDBField(Name);</td><td>&kivDBField(City);</td><td>&kivDBField(Email);</td><td>&kivDBField(Note);</td></tr>
</kivSearchDatabase></table></body></html>
"""


def large(arguments):
    rows = 10000
    site = kh.Site(arguments.server, arguments.module, workers=2, threads=4, pages={"rows.html": LARGE_PAGE})
    try:
        source = os.path.join(site.base, "big.csv")
        with open(source, "w") as out:
            out.write("Name,City,Email,Note\n")
            for i in range(rows):
                note = f"note {i} " * 24  # a long value makes a page of about 3 MB
                out.write(f"Person {i:05d},City {i % 7},person{i}@example.org,{note}\n")
        for command in (["db", "create", "Big", "Name:Text:40", "City:Text:40", "Email:Text:80",
                         "Note:Text:255"],
                        ["db", "import", "Big", source]):
            subprocess.run([arguments.server, *command, "--data", site.data], check=True, capture_output=True,
                           timeout=120)
        # The search tag shows at most this many records a page; the page asks for all of them.
        with open(os.path.join(site.data, "kiv-preferences.txt"), "w") as out:
            out.write(f"Database%20Module kivSearchDatabasePref_MaxResults {rows}\n")
        server = kh.Server(arguments.server, site, ready_path="/rows.html")
        try:
            problems = []
            lock = threading.Lock()

            def next_request():
                return "GET", "/rows.html", None, None

            def check(status, data):
                if status != 200 or data.count(b"<tr>") != rows:
                    with lock:
                        problems.append(f"a page answered {status} with {data.count(b'<tr>')} rows")

            failures = run_requests(server.port, arguments.requests, 4, next_request, check)
            problems += failures
            workers = server.workers()
            # At rest: the last response is written and its connection idle or closed.
            time.sleep(1)
            resident = {pid: kh.rss_kib(pid) for pid in workers}
            print(f"large: {arguments.requests} pages of {rows} rows, worker RSS KiB {resident}", flush=True)
            for pid, kib in resident.items():
                if kib > arguments.resident_mib * 1024:
                    problems.append(f"worker {pid} keeps {kib} KiB after the large pages")
        finally:
            server.stop()
        if problems:
            print("large FAILED:\n  " + "\n  ".join(problems[:5]))
            return 1
        print(f"large: memory given back (under {arguments.resident_mib} MiB a worker)")
        return 0
    finally:
        site.remove()


def concurrency(arguments):
    site = kh.Site(arguments.server, arguments.module, workers=1, threads=8)
    env = dict(os.environ)
    if arguments.sanitizer_log:
        os.makedirs(arguments.sanitizer_log, exist_ok=True)
        for old in glob.glob(os.path.join(arguments.sanitizer_log, "report*")):
            os.remove(old)
    server = kh.Server(arguments.server, site, env=env)
    try:
        counter = itertools.count()
        paths = search_paths()
        lock = threading.Lock()
        form_headers = {"Content-Type": "application/x-www-form-urlencoded"}
        editor_headers = dict(kh.basic_auth())

        def next_request():
            with lock:
                i = next(counter)
                kind = i % 6
                if kind == 0:
                    body = urllib.parse.urlencode({"FirstName": f"T{i}", "LastName": "Thread", "City": "Racetown",
                                                   "Email": f"t{i}@example.org", "Phone": ""})
                    return "POST", "/people/added.html", body, form_headers
                if kind == 1:
                    return "GET", "/manage/editor.html", None, editor_headers
                if kind == 2:
                    return "GET", "/kiv-admin/", None, editor_headers
                if kind == 3:
                    return "GET", "/style.css", None, None
                return "GET", next(paths), None, None

        failures = run_requests(server.port, arguments.requests, 8, next_request)
    finally:
        code = server.stop()
        site.remove()
    problems = []
    if failures:
        problems.append(f"{len(failures)} requests failed, first: {failures[:3]}")
    if code not in (0, None):
        problems.append(f"the server exited with status {code}")
    log = "".join(server.log)
    if "ThreadSanitizer" in log or "AddressSanitizer" in log:
        problems.append("sanitizer report on standard error:\n" + log[-4000:])
    if arguments.sanitizer_log:
        for report in sorted(glob.glob(os.path.join(arguments.sanitizer_log, "report*"))):
            with open(report, errors="replace") as text:
                problems.append(f"sanitizer report {report}:\n{text.read()[:6000]}")
    if problems:
        print("concurrency FAILED:\n" + "\n".join(problems))
        return 1
    print(f"concurrency: {arguments.requests} mixed requests on 8 connections, no failure, no report")
    return 0


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("what", choices=["soak", "concurrency", "large"])
    parser.add_argument("--server", required=True)
    parser.add_argument("--module", required=True)
    parser.add_argument("--requests", type=int, default=0)
    parser.add_argument("--allowed-growth-kib", type=int, default=3072)
    parser.add_argument("--resident-mib", type=float, default=32)
    parser.add_argument("--sanitizer-log")
    arguments = parser.parse_args()
    arguments.server = os.path.abspath(arguments.server)
    arguments.module = os.path.abspath(arguments.module)
    if arguments.what == "soak":
        arguments.requests = arguments.requests or 10000
        return soak(arguments)
    if arguments.what == "large":
        arguments.requests = arguments.requests or 12
        return large(arguments)
    arguments.requests = arguments.requests or 1200
    return concurrency(arguments)


if __name__ == "__main__":
    sys.exit(main())
