#!/usr/bin/env bash
# Test data sources for the ODBC suites, in a folder of their own:
#   odbc-fixture.sh start FOLDER   writes odbcinst.ini and odbc.ini there (the SQLite ODBC driver
#                                  over a file in FOLDER, psqlODBC over a PostgreSQL server that
#                                  it starts on a free loopback port with its data in /tmp)
#   odbc-fixture.sh stop FOLDER    stops that server and removes its data
# The tests find the files through ODBCSYSINI and ODBCINI, so no system-wide configuration
# is read or changed. PostgreSQL refuses to run as root: as root the server runs as the
# "postgres" account (or "nobody" without one).
set -euo pipefail

action=${1:?start or stop}
folder=${2:?fixture folder}
driverFolder=/usr/lib/x86_64-linux-gnu/odbc
pgBin=$(ls -d /usr/lib/postgresql/*/bin 2>/dev/null | sort -V | tail -n 1 || true)

as_server_user() {
    if [[ $(id -u) -eq 0 ]]; then
        local user=postgres
        getent passwd postgres >/dev/null || user=nobody
        runuser -u "$user" -- "$@"
    else
        "$@"
    fi
}

stop_server() {
    [[ -f "$folder/pgdata-path" ]] || return 0
    local data
    data=$(cat "$folder/pgdata-path")
    if [[ -d "$data/cluster" && -x "$pgBin/pg_ctl" ]]; then
        as_server_user "$pgBin/pg_ctl" -D "$data/cluster" -m immediate -w stop >/dev/null 2>&1 || true
    fi
    rm -rf "$data"
    rm -f "$folder/pgdata-path"
}

case $action in
stop)
    stop_server
    echo "odbc fixture: stopped"
    exit 0
    ;;
start) ;;
*)
    echo "usage: $0 start|stop FOLDER" >&2
    exit 2
    ;;
esac

mkdir -p "$folder"
stop_server # whatever an interrupted run left behind
rm -f "$folder"/sqlite.db*

for driver in libsqlite3odbc.so psqlodbca.so; do
    if [[ ! -f "$driverFolder/$driver" ]]; then
        echo "odbc fixture: the ODBC driver $driverFolder/$driver is missing (run scripts/setup.sh)" >&2
        exit 1
    fi
done
if [[ -z "$pgBin" || ! -x "$pgBin/initdb" ]]; then
    echo "odbc fixture: PostgreSQL is not installed (run scripts/setup.sh)" >&2
    exit 1
fi

data=$(mktemp -d /tmp/kiv-odbc-pg.XXXXXX)
echo "$data" >"$folder/pgdata-path"
chmod 755 "$data"
if [[ $(id -u) -eq 0 ]]; then
    user=postgres
    getent passwd postgres >/dev/null || user=nobody
    chown "$user" "$data"
fi
as_server_user "$pgBin/initdb" -D "$data/cluster" -U kiv -A trust -E LATIN1 --locale=C --no-sync \
    >"$data/initdb.log" 2>&1 || {
    cat "$data/initdb.log" >&2
    echo "odbc fixture: initdb failed" >&2
    exit 1
}

# A free port can be taken by someone else before the server binds it: try a few.
started=no
for attempt in 1 2 3 4 5; do
    port=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
    if as_server_user "$pgBin/pg_ctl" -D "$data/cluster" -w -t 60 -l "$data/server.log" \
        -o "-p $port -c listen_addresses=127.0.0.1 -c unix_socket_directories= -c fsync=off" start \
        >/dev/null 2>&1; then
        started=yes
        break
    fi
done
if [[ $started != yes ]]; then
    cat "$data/server.log" >&2 || true
    echo "odbc fixture: PostgreSQL did not start" >&2
    exit 1
fi
as_server_user "$pgBin/createdb" -h 127.0.0.1 -p "$port" -U kiv -E LATIN1 -T template0 kivtest

cat >"$folder/odbcinst.ini" <<INI
[KivSQLite3]
Description=SQLite 3 ODBC driver
Driver=$driverFolder/libsqlite3odbc.so

[KivPostgreSQL]
Description=PostgreSQL ODBC driver (ANSI)
Driver=$driverFolder/psqlodbca.so
INI
sqliteSource="Driver=KivSQLite3
Database=$folder/sqlite.db
Timeout=10000"
postgresSource="Driver=KivPostgreSQL
Servername=127.0.0.1
Port=$port
Database=kivtest
BoolsAsChar=0
ConnSettings=SET client_encoding TO 'LATIN1'"
# Each source twice: as it is, and opted out of case-insensitive text ("...Exact").
cat >"$folder/odbc.ini" <<INI
[KivSqlite]
$sqliteSource

[KivPostgres]
$postgresSource

[KivSqliteExact]
$sqliteSource
KivCaseSensitiveText=yes

[KivPostgresExact]
$postgresSource
KivCaseSensitiveText=yes
INI
echo "$port" >"$folder/pg-port"
echo "odbc fixture: PostgreSQL on 127.0.0.1:$port, data in $data"
