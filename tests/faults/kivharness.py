"""Shared pieces of the tests that run a real kiv-server (the fault and load tests here, the
hostile tests in tests/e2e): a scratch copy of the example site with extra test pages, a
configuration, a kiv-server process on free loopback ports, its workers and their memory,
and small HTTP helpers. Standard library only; every process started here is stopped by its
owner."""

import argparse
import base64
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

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCE = os.path.dirname(os.path.dirname(HERE))
EXAMPLE_SITE = os.path.join(SOURCE, "examples", "site")
PASSWORD = "proof-of-work"

# Pages the tests add to their copy of the site, beside the example's own.
TEST_PAGES = {
    # The first names of a city, a page of 100 (the region's result limit) at a time.
    "t/names.html": '<kivSearchDatabase databaseName="People" keyFieldName="City" pathArgumentName="city" '
                    'resultsPerPage="100" page="&kivPathArgument(page);" resultVariableName="n">'
                    '[&kivDBField(FirstName);]</kivSearchDatabase>'
                    '<p>count=&kivPageVariable(n_ResultCount); last=&kivPageVariable(n_LastPage);</p>',
    "t/count.html": '<kivSearchDatabase databaseName="&kivPathArgument(db);" resultsPerPage="1" '
                    'resultVariableName="c"></kivSearchDatabase><p>count=&kivPageVariable(c_ResultCount);</p>',
    "t/export.html": '<kivModifyDatabase mode="export" databaseName="&kivPathArgument(db);" '
                     'fileLocation="&kivPathArgument(file);" resultVariableName="r">'
                     '<p>exported=&kivPageVariable(r_ResultCount);</p>',
    "t/import.html": '<kivModifyDatabase mode="import" databaseName="&kivPathArgument(db);" '
                     'fileLocation="&kivPathArgument(file);" resultVariableName="r">'
                     '<p>imported=&kivPageVariable(r_ResultCount);</p>',
    "t/add.html": '<kivModifyDatabase mode="addRecord" databaseName="&kivPathArgument(db);" '
                  'resultVariableName="a" fieldName="Name" pathArgumentName="name" '
                  'fieldName="Notes" pathArgumentName="notes"><p>added=&kivPageVariable(a_ResultCount);</p>',
    "t/create.html": '<kivModifyDatabase mode="createDatabase" databaseName="&kivPathArgument(db);">'
                     '<kivModifyDatabase mode="addField" databaseName="&kivPathArgument(db);" fieldName="Name" '
                     'fieldType="Text" fieldLength="64" fieldFlags="X">'
                     '<kivModifyDatabase mode="addField" databaseName="&kivPathArgument(db);" fieldName="Notes" '
                     'fieldType="LongText"><p>created</p>',
}


def password_hash(server):
    result = subprocess.run([server, "passwd"], input=PASSWORD + "\n", capture_output=True, text=True,
                            timeout=120, check=True)
    return result.stdout.strip()


class Site:
    """A scratch site, its data folder and a configuration: a copy of the example site with the
    test pages, or only the given pages. extra_server and extra_limits are TOML lines for
    [server] and [limits]; listeners, [[listen]] tables; region, the policy lines of the region
    "main" (by default it writes without a rate limit: these tests put their own load on the
    server); more_regions, further [[region]] tables, in which {root}, {data} and {base} stand
    for the site's folders."""

    def __init__(self, server, module, workers=2, threads=4, extra_limits="", pages=None, extra_server="",
                 listeners="", region="public_write_rate = 0", more_regions=""):
        self.base = tempfile.mkdtemp(prefix="kiv-faults-")
        self.root = os.path.join(self.base, "site")
        self.data = os.path.join(self.base, "data")
        if pages is None:
            shutil.copytree(EXAMPLE_SITE, self.root)
            pages = TEST_PAGES
        os.makedirs(self.data)
        for name, text in pages.items():
            path = os.path.join(self.root, name)
            os.makedirs(os.path.dirname(path), exist_ok=True)
            with open(path, "w", encoding="latin-1") as out:
                out.write(text)
        self.config = os.path.join(self.base, "server.toml")
        self.write_config(server, module, workers, threads, extra_limits, extra_server, listeners, region,
                          more_regions)

    def write_config(self, server, module, workers, threads, extra_limits="", extra_server="", listeners="",
                     region="public_write_rate = 0", more_regions=""):
        with open(self.config, "w") as out:
            out.write(f"""
[server]
listen = "127.0.0.1"
port = 0
workers = {workers}
threads = {threads}
modules = ["{module}"]
access_log = "{os.path.join(self.base, 'access.log')}"
{extra_server}

{listeners}

[limits]
keep_alive_timeout = 30
max_requests_per_connection = 100000
{extra_limits}

[[region]]
name = "main"
root = "{self.root}"
data = "{self.data}"
protected = ["/manage/"]
{region}
[region.users]
admin = "{password_hash(server)}"

{more_regions.format(root=self.root, data=self.data, base=self.base)}
""")

    def remove(self):
        shutil.rmtree(self.base, ignore_errors=True)


class Server:
    """A kiv-server process serving a Site (anything with a config attribute); its standard
    error is kept for the assertions. urls lists what it listens on, as printed; port is the
    first. With ready_path, start-up waits until that path answers 200 over plain HTTP.
    arguments go to `serve` after the configuration."""

    def __init__(self, server, site, env=None, preexec_fn=None, listeners=1, ready_path="/style.css", arguments=()):
        self.log = []
        self.process = subprocess.Popen([server, "serve", "--config", site.config, *arguments], stdout=subprocess.DEVNULL,
                                        stderr=subprocess.PIPE, env=env, preexec_fn=preexec_fn)
        self.urls = []
        deadline = time.time() + 120
        while len(self.urls) < listeners and time.time() < deadline:
            line = self.process.stderr.readline()
            if not line and self.process.poll() is not None:
                break
            self.log.append(line.decode("latin-1"))
            match = re.search(rb"listening on (https?)://127\.0\.0\.1:(\d+)/", line)
            if match:
                self.urls.append((match.group(1).decode(), int(match.group(2))))
        if len(self.urls) < listeners:
            self.process.kill()
            self.process.wait()
            self.process.stderr.close()
            raise RuntimeError("kiv-server did not start:\n" + "".join(self.log))
        self.port = self.urls[0][1]
        self.drain = threading.Thread(target=self._drain, daemon=True)
        self.drain.start()
        if ready_path and not wait_until(lambda: self.status(ready_path) == 200, 60):
            self.stop()
            raise RuntimeError("kiv-server does not answer")

    def port_of(self, scheme):
        return next(port for kind, port in self.urls if kind == scheme)

    def logged(self):
        """What the server wrote to standard error (its log, without a log file) so far."""
        return "".join(self.log)

    def _drain(self):
        for line in self.process.stderr:
            self.log.append(line.decode("latin-1"))

    def status(self, path):
        try:
            return get(self.port, path)[0]
        except OSError:
            return None

    def workers(self):
        """The process ids of the master's children (its workers)."""
        return children_of(self.process.pid)

    def running(self):
        return self.process.poll() is None

    def stop(self):
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)
        try:
            self.process.wait(timeout=45)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        self.drain.join(timeout=5)
        self.process.stderr.close()
        return self.process.returncode


def wait_until(condition, seconds):
    deadline = time.time() + seconds
    while time.time() < deadline:
        if condition():
            return True
        time.sleep(0.1)
    return False


def get(port, path, headers=None, timeout=60):
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=timeout)
    try:
        connection.request("GET", path, headers=headers or {})
        response = connection.getresponse()
        return response.status, response.read().decode("latin-1")
    finally:
        connection.close()


def post(port, path, form=None, headers=None, timeout=60):
    """A form post (pages that write run only for POST); the query of path stays path arguments."""
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=timeout)
    try:
        connection.request("POST", path, body=urllib.parse.urlencode(form or {}),
                           headers=dict({"Content-Type": "application/x-www-form-urlencoded"}, **(headers or {})))
        response = connection.getresponse()
        return response.status, response.read().decode("latin-1")
    finally:
        connection.close()


def add_person(port, first, city):
    """Posts the example site's add-a-person form; True when the page acknowledged the add."""
    status, page = post(port, "/people/added.html",
                        {"FirstName": first, "LastName": "Proof", "City": city,
                         "Email": f"{first.lower()}.{city.lower()}@example.org", "Phone": ""}, timeout=30)
    # The page says "Added ..." only when the tag's kivResult is 0.
    return status == 200 and f"Added {first} Proof" in page and "kiv-error" not in page


def query(**arguments):
    return urllib.parse.urlencode(arguments)


def basic_auth(user="admin", password=PASSWORD):
    return {"Authorization": "Basic " + base64.b64encode(f"{user}:{password}".encode()).decode()}


def children_of(pid):
    """The process ids of a process's living children."""
    children = []
    for entry in os.listdir("/proc"):
        if not entry.isdigit():
            continue
        try:
            with open(f"/proc/{entry}/stat") as stat:
                fields = stat.read().rsplit(")", 1)[1].split()
        except OSError:
            continue
        if int(fields[1]) == pid and fields[0] != "Z":
            children.append(int(entry))
    return sorted(children)


def rss_kib(pid):
    """The resident set size of a process in KiB, from /proc."""
    with open(f"/proc/{pid}/status") as status:
        for line in status:
            if line.startswith("VmRSS:"):
                return int(line.split()[1])
    raise OSError(f"no VmRSS for {pid}")


def error_block(page):
    """The text of the error block a tag left on the page, or None."""
    match = re.search(r'<div class="kiv-error"[^>]*>(.*?)</div>', page, re.S)
    return re.sub(r"<[^>]+>", " ", match.group(1)).strip() if match else None


def main(configure):
    """Runs the unittest cases of the calling script against --server and --module (the other
    arguments go to unittest), after configure(server, module)."""
    parser = argparse.ArgumentParser()
    parser.add_argument("--server", required=True)
    parser.add_argument("--module", required=True)
    arguments, rest = parser.parse_known_args()
    configure(os.path.abspath(arguments.server), os.path.abspath(arguments.module))
    unittest.main(module="__main__", argv=[sys.argv[0]] + rest, verbosity=2)
