#!/usr/bin/env bash
# End-to-end benchmark: kiv-server against the peers a site builder would pick instead, over
# the same 100,000 people records, in one run on this machine, then docs/benchmarks.md.
#
#   scripts/bench.sh            the whole comparison (about 20 minutes on 2 cores)
#   scripts/bench.sh --quick    2 runs of 3 s each and a shorter memory run, to try the script
#                               (or BENCH_QUICK=1: also 20,000 records and one run of 2 s)
#   scripts/bench.sh --postgres-only [--quick]    only the PostgreSQL pages (below)
#
# Settings (environment): BENCH_RUNS (3), BENCH_DURATION seconds per measurement (10),
# BENCH_CONNECTIONS (16), BENCH_RECORDS (100000), BENCH_MEMORY_REQUESTS (100000),
# BENCH_BUILD (build-bench), BENCH_WORK (<build>/bench-run), BENCH_PORT_BASE (18180),
# BENCH_BEFORE (the work folder of an earlier run, say of an older revision, kept elsewhere:
# the report then compares the 25-row page before and after), BENCH_DOCS (docs: where the
# report goes; point it elsewhere for a trial), BENCH_FLOODS and BENCH_POSTGRES (1: 0 leaves
# those parts out of a trial).
#
# Pages, each over both index setups (fields Name and City indexed one by one, on which
# kiv-server makes itself a (City, Name) index at the first search; or that index alone,
# declared with the service's addIndex as `kiv-server db index add` does):
#   page25    a 25-row search page: City = Lyon, ORDER BY Name, page 2, paging footer
#   rows10000 every record ordered by name, 10,000 rows (the result limit raised)
#   editor    the editor's search-results page (the same search, posted)
# Peers: the 25-row and 10,000-row pages in PHP (PDO SQLite, prepared statements,
# htmlspecialchars) under php-fpm behind nginx; nginx serving the rendered bytes as a static
# file (the ceiling); sqlite3 -html running the same queries (the floor). After kiv-server's
# first search, the peers' database gets the very indexes kiv-server's holds (`kiv-server db
# index list`), and both lists go into the report.
# Floods (one index on (City, Name)): 200 slowloris connections, 64 slow bodies, ten megabytes
# of empty lines before a request line, 1,000 idle connections and 32 threads of wrong logins,
# each while the 25-row page is probed 20 times (tests/e2e/hostile_clients.py): the latency of
# every probe and the workers' memory; then the page's throughput under wrk, flood still on.
# PostgreSQL: the same 25-row page through ODBC (psqlODBC, the data source comparing text
# exactly, as the PHP page does) from tables of 100,000 and 10,000 people with one index on
# (City, Name), against the same page in PHP with PDO_PGSQL under php-fpm on the same server and
# tables; the CPU that kiv-server, php-fpm, nginx and PostgreSQL spend per page view; then two
# kiv-servers on the one PostgreSQL at once, with the CPU of each. PostgreSQL is the ODBC
# tests' fixture server (tests/odbc/odbc-fixture.sh: a free loopback port, data under /tmp).
# The peers are installed here from Debian's packages; nothing else in the project needs
# them. Everything listens on 127.0.0.1 only and is stopped at the end.
set -euo pipefail

ROOT=$(cd "$(dirname "$0")/.." && pwd)
BUILD=${BENCH_BUILD:-$ROOT/build-bench}
WORK=${BENCH_WORK:-$BUILD/bench-run}
RUNS=${BENCH_RUNS:-3}
DURATION=${BENCH_DURATION:-10}
CONNECTIONS=${BENCH_CONNECTIONS:-16}
RECORDS=${BENCH_RECORDS:-100000}
MEMORY_REQUESTS=${BENCH_MEMORY_REQUESTS:-100000}
PORT_BASE=${BENCH_PORT_BASE:-18180}
DOCS=${BENCH_DOCS:-$ROOT/docs}
FLOODS=${BENCH_FLOODS:-1}
POSTGRES=${BENCH_POSTGRES:-1}
PARTS=all
if [[ ${BENCH_QUICK:-0} == 1 ]]; then
    RUNS=1 DURATION=2 MEMORY_REQUESTS=2000 RECORDS=${BENCH_RECORDS:-20000}
fi
for argument in "$@"; do
    case $argument in
    --quick) RUNS=2 DURATION=3 MEMORY_REQUESTS=20000 ;;
    --postgres-only) PARTS=postgres ;;
    *)
        echo "usage: $0 [--quick] [--postgres-only]" >&2
        exit 2
        ;;
    esac
done
KIV_PORT=$((PORT_BASE + 1))
NGINX_PORT=$((PORT_BASE + 2))
PHP_PORT=$((PORT_BASE + 3))
PG_KIV_PORT=$((PORT_BASE + 4))
PG_KIV2_PORT=$((PORT_BASE + 5))
PG_TABLES=(People People10k)
PG_SOURCE=KivPostgresExact # the fixture's source that compares text exactly
SETUPS=(separate city-name)
CITY=Lyon

log() { echo "bench: $*" >&2; }

install_peers() {
    local missing=0
    for program in php-fpm8.2 nginx wrk gnuplot sqlite3 curl; do
        command -v "$program" >/dev/null || [[ -x /usr/sbin/$program ]] || missing=1
    done
    php -m 2>/dev/null | grep -qx pdo_pgsql || missing=1
    ((missing)) || return 0
    log "installing the peers (php-fpm, php-sqlite3, php-pgsql, nginx, wrk, gnuplot)"
    export DEBIAN_FRONTEND=noninteractive
    # policy-rc.d keeps the packages from starting their system services.
    local policy=/usr/sbin/policy-rc.d created=0
    if [[ ! -e $policy ]]; then
        printf '#!/bin/sh\nexit 101\n' >"$policy" && chmod +x "$policy" && created=1
    fi
    apt-get update -q >/dev/null
    apt-get install -y -q php-fpm php-sqlite3 php-pgsql nginx wrk gnuplot-nox sqlite3 curl >/dev/null
    ((created)) && rm -f "$policy"
    return 0
}

build() {
    log "building kiv-server, the module and the loader in $BUILD"
    cmake -S "$ROOT" -B "$BUILD" -G Ninja -DCMAKE_BUILD_TYPE=Release -DKIV_BENCH=ON >/dev/null
    ninja -C "$BUILD" kiv-server kivdatabase kiv-bench-load >/dev/null
}

make_csv() {
    log "generating $RECORDS people records"
    "$BUILD/bench/kiv-bench-load" csv "$WORK/people.csv" "$RECORDS"
}

make_data() {
    for setup in "${SETUPS[@]}"; do
        "$BUILD/bench/kiv-bench-load" load "$WORK/data-$setup" People "$WORK/people.csv" "$setup"
        # The search tag caps its page at this preference; the 10,000-row page needs it raised.
        printf 'Database%%20Module kivSearchDatabasePref_MaxResults 10000\n' >"$WORK/data-$setup/kiv-preferences.txt"
        # Without indexes: match_indexes gives it kiv-server's once kiv-server has searched.
        sqlite3 "$WORK/peer-$setup.sqlite" <<SQL
CREATE TABLE people(id INTEGER PRIMARY KEY, Name TEXT NOT NULL, City TEXT NOT NULL, Age INTEGER NOT NULL,
                    Email TEXT NOT NULL, Phone TEXT NOT NULL);
CREATE TEMP TABLE csv(Name, City, Age, Email, Phone);
.import --csv --skip 1 $WORK/people.csv csv
INSERT INTO people(Name, City, Age, Email, Phone) SELECT Name, City, Age, Email, Phone FROM csv;
SQL
    done
    cp "$ROOT"/bench/site/*.html "$WORK/site/"
}

PIDS=()
stop_servers() {
    local pid
    for pid in "${PIDS[@]}"; do
        kill -TERM "$pid" 2>/dev/null || true
    done
    for pid in "${PIDS[@]}"; do
        wait "$pid" 2>/dev/null || true
    done
    PIDS=()
}
trap 'stop_servers; stop_postgres' EXIT

wait_for() { # url
    for _ in $(seq 100); do
        curl -sf -o /dev/null "$1" && return 0
        sleep 0.1
    done
    log "no answer from $1"
    return 1
}

# A PHP page of bench/peers over a PDO data source name, user (PHP), persistent (PHP), table
# and ID column.
php_page() { # page dsn user persistent table id
    sed -e "s|@DSN@|$2|" -e "s|@USER@|$3|" -e "s|@PERSISTENT@|$4|" -e "s|@TABLE@|$5|g" -e "s|@ID@|$6|" \
        "$ROOT/bench/peers/$1.php"
}

# Whether two pages' bytes are the same, as a word in $WORK/floor/<name>.txt.
compare_bytes() { # name file file
    if cmp -s "$2" "$3"; then
        echo identical >"$WORK/floor/$1.txt"
    else
        echo different >"$WORK/floor/$1.txt"
    fi
}

# php-fpm and nginx for the PHP pages in $WORK/php; their masters in PHP_PID and NGINX_PID.
start_peers() {
    sed -e "s|@WORK@|$WORK|g" -e "s|@PHP_PORT@|$PHP_PORT|g" "$ROOT/bench/peers/php-fpm.conf.in" >"$WORK/php/php-fpm.conf"
    php-fpm8.2 -R -F -y "$WORK/php/php-fpm.conf" &
    PHP_PID=$!
    PIDS+=($!)
    sed -e "s|@WORK@|$WORK|g" -e "s|@PHP_PORT@|$PHP_PORT|g" -e "s|@NGINX_PORT@|$NGINX_PORT|g" \
        "$ROOT/bench/peers/nginx.conf.in" >"$WORK/nginx/nginx.conf"
    nginx -p "$WORK/nginx" -c "$WORK/nginx/nginx.conf" &
    NGINX_PID=$!
    PIDS+=($!)
}

# The indexes of kiv-server's People, as `kiv-server db index list` gives them (one line per
# index, its fields), made on the peers' table too; both lists in $WORK/indexes/<setup>.txt.
match_indexes() { # setup
    local setup=$1 fields number=0 out="$WORK/indexes/$1.txt"
    : >"$out"
    while IFS= read -r fields; do
        echo "kiv-server $fields" >>"$out"
        # The unique ID field is kiv-server's own; the peers' row id is their primary key.
        [[ $fields == KIVIDFIELD ]] && continue
        number=$((number + 1))
        sqlite3 "$WORK/peer-$setup.sqlite" "CREATE INDEX peer_index_$number ON people($fields);"
    done < <("$BUILD/server/kiv-server" db index list People --data "$WORK/data-$setup")
    sqlite3 "$WORK/peer-$setup.sqlite" "SELECT sql FROM sqlite_master WHERE type = 'index' ORDER BY name;" |
        sed 's/^/peers /' >>"$out"
}

start_servers() { # setup
    local setup=$1
    "$BUILD/server/kiv-server" serve --root "$WORK/site" --data "$WORK/data-$setup" --listen 127.0.0.1 \
        --port "$KIV_PORT" --workers 2 --server-log "$WORK/logs/kiv-$setup.log" --access-log /dev/null &
    PIDS+=($!)
    wait_for "http://127.0.0.1:$KIV_PORT/page25.html?city=$CITY&page=2" # its first search
    match_indexes "$setup"
    local page
    for page in page25 rows10000; do
        php_page "$page" "sqlite:$WORK/peer-$setup.sqlite" null false people id >"$WORK/php/$page.php"
    done
    start_peers
    wait_for "http://127.0.0.1:$NGINX_PORT/page25.php"
}

# One wrk measurement into $WORK/wrk/<setup>__<target>__<run>.txt.
measure() { # setup target run url connections [wrk options]
    local setup=$1 target=$2 run=$3 url=$4 connections=$5
    shift 5
    local threads=$((connections < 2 ? 1 : 2))
    # A generous timeout: a slow answer must count in the latencies, not vanish as a timeout.
    wrk -t"$threads" -c"$connections" -d"${DURATION}s" --latency --timeout 10s "$@" "$url" \
        >"$WORK/wrk/${setup}__${target}__${run}.txt" 2>&1 || true
}

# Resident memory of each worker: children of the kiv-server master, php-fpm pool and nginx.
record_memory() { # setup label
    local out="$WORK/rss/$1__$2.txt" master
    : >"$out"
    for master in "${PIDS[@]}"; do
        local name
        name=$(ps -o comm= -p "$master" 2>/dev/null || true)
        ps -o pid=,rss= --ppid "$master" 2>/dev/null | sed "s/^/$name /" >>"$out" || true
    done
}

# Each flood while the 25-row page is probed, then measured with wrk as in the quiet runs (its
# throughput against the quiet figure); the kiv-server master is the first of PIDS.
floods() { # setup
    local setup=$1 flood
    for flood in slowloris slow-body blank-lines idle wrong-logins; do
        log "setup $setup: flood $flood"
        python3 "$ROOT/tests/e2e/hostile_clients.py" --port "$KIV_PORT" --flood "$flood" \
            --path "/page25.html?city=$CITY&page=2" --login-path /manage/ --server-pid "${PIDS[0]}" \
            --then "wrk -t2 -c$CONNECTIONS -d${DURATION}s --latency --timeout 10s \
                    'http://127.0.0.1:$KIV_PORT/page25.html?city=$CITY&page=2' \
                    >'$WORK/wrk/${setup}__flood-${flood}__1.txt' 2>&1" \
            >"$WORK/floods/${setup}__${flood}.txt" 2>&1 || true
    done
}

# sqlite3 -html over the same queries, in one process: seconds for `count` pages.
sqlite_floor() { # setup name count sql
    local setup=$1 name=$2 count=$3 sql=$4 script="$WORK/floor/$2.sql"
    : >"$script"
    for _ in $(seq "$count"); do echo "$sql" >>"$script"; done
    local start end
    start=$(date +%s%N)
    sqlite3 -html "$WORK/peer-$setup.sqlite" <"$script" >/dev/null
    end=$(date +%s%N)
    echo "$count $(((end - start) / 1000))" >"$WORK/floor/${setup}__${name}.txt"
}

# Worker memory over many requests of the 25-row page: before, then after at least
# MEMORY_REQUESTS requests (30 s rounds of wrk, at most 10 minutes).
memory_run() { # setup
    local setup=$1 url="http://127.0.0.1:$KIV_PORT/page25.html?city=$CITY&page=2"
    record_memory "$setup" before-memory-run
    log "memory run: at least $MEMORY_REQUESTS requests"
    local total=0 round=0 done_now
    while ((total < MEMORY_REQUESTS && round < 20)); do
        round=$((round + 1))
        local out="$WORK/wrk/${setup}__memory-run__$round.txt"
        wrk -t2 -c"$CONNECTIONS" -d30s --latency --timeout 10s "$url" >"$out" 2>&1 || true
        done_now=$(awk '/requests in/ {print $1}' "$out")
        total=$((total + ${done_now:-0}))
    done
    record_memory "$setup" after-memory-run
}

# The Google Benchmark programs of bench/, each built only when its code is in the tree.
micro_benchmarks() {
    mkdir -p "$WORK/micro"
    ninja -C "$BUILD" $(ninja -C "$BUILD" -t targets all 2>/dev/null | grep -o '^kiv-bench-[a-z-]*' | sort -u) >/dev/null
    local program
    for program in "$BUILD"/bench/kiv-bench-*; do
        [[ $program == */kiv-bench-load ]] && continue
        log "micro-benchmarks: $(basename "$program")"
        KIV_BENCH_RECORDS=$RECORDS "$program" --benchmark_min_time=0.2 --benchmark_format=json \
            --benchmark_out="$WORK/micro/$(basename "$program").json" >/dev/null 2>&1 || true
    done
}

PG_BIN=$(ls -d /usr/lib/postgresql/*/bin 2>/dev/null | sort -V | tail -n 1 || true)
PG_PORT=
PG_PID=

pg_sql() {
    "$PG_BIN/psql" -h 127.0.0.1 -p "$PG_PORT" -U kiv -d kivtest -X -q -v ON_ERROR_STOP=1 -f - >/dev/null
}

# The fixture's PostgreSQL with the people in two tables, each with one index on (City, Name).
start_postgres() {
    log "postgres: starting PostgreSQL, loading $RECORDS and 10,000 people"
    bash "$ROOT/tests/odbc/odbc-fixture.sh" start "$WORK/pg" >"$WORK/logs/pg-fixture.log"
    PG_PORT=$(cat "$WORK/pg/pg-port")
    PG_PID=$(head -n 1 "$(cat "$WORK/pg/pgdata-path")/cluster/postmaster.pid")
    head -n 10001 "$WORK/people.csv" >"$WORK/people10k.csv"
    local table csv
    for table in "${PG_TABLES[@]}"; do
        csv=$WORK/people.csv
        [[ $table == People10k ]] && csv=$WORK/people10k.csv
        pg_sql <<SQL
CREATE TABLE "$table" ("KIVIDFIELD" SERIAL PRIMARY KEY, "Name" VARCHAR(80) NOT NULL, "City" VARCHAR(80) NOT NULL,
                       "Age" INTEGER NOT NULL, "Email" VARCHAR(80) NOT NULL, "Phone" VARCHAR(80) NOT NULL);
\copy "$table" ("Name", "City", "Age", "Email", "Phone") FROM '$csv' WITH (FORMAT csv, HEADER true)
CREATE INDEX "${table}_city_name" ON "$table" ("City", "Name");
VACUUM ANALYZE "$table";
SQL
    done
}

stop_postgres() {
    if [[ -n $PG_PORT ]]; then
        bash "$ROOT/tests/odbc/odbc-fixture.sh" stop "$WORK/pg" >/dev/null
    fi
    PG_PORT=
}

# A kiv-server over the PostgreSQL pages; its master's pid in the variable named by $1.
start_pg_kiv() { # variable port name
    mkdir -p "$WORK/data-pg-$3"
    ODBCSYSINI=$WORK/pg ODBCINI=$WORK/pg/odbc.ini "$BUILD/server/kiv-server" serve --root "$WORK/site-pg" \
        --data "$WORK/data-pg-$3" --listen 127.0.0.1 --port "$2" --workers 2 \
        --server-log "$WORK/logs/kiv-pg-$3.log" --access-log /dev/null &
    PIDS+=($!)
    printf -v "$1" '%s' "$!"
    wait_for "http://127.0.0.1:$2/People.html?city=$CITY&page=2"
}

# CPU seconds of the labelled process trees before and after one measurement, in
# $WORK/cpu/<setup>__<target>__<run>.txt ("before LABEL SECONDS", "after LABEL SECONDS").
cpu_reading() { # before|after file label=pid...
    local when=$1 file=$2
    shift 2
    python3 "$ROOT/bench/proc_cpu.py" "$@" | sed "s/^/$when /" >>"$file"
}

measure_cpu() { # setup target run url label=pid...
    local setup=$1 target=$2 run=$3 url=$4 file="$WORK/cpu/$1__$2__$3.txt"
    shift 4
    : >"$file"
    cpu_reading before "$file" "$@"
    measure "$setup" "$target" "$run" "$url" "$CONNECTIONS"
    cpu_reading after "$file" "$@"
}

postgres_pages() {
    start_postgres
    mkdir -p "$WORK/site-pg"
    local table
    for table in "${PG_TABLES[@]}"; do
        sed "s|databaseName=\"People\"|databaseName=\"$table\" odbcDataSource=\"$PG_SOURCE\" odbcUsername=\"kiv\"|" \
            "$ROOT/bench/site/page25.html" >"$WORK/site-pg/$table.html"
        php_page page25 "pgsql:host=127.0.0.1;port=$PG_PORT;dbname=kivtest" "'kiv'" true "$table" KIVIDFIELD \
            >"$WORK/php/$table.php"
    done
    log "postgres: starting kiv-server, php-fpm and nginx"
    local kiv_a kiv_b
    start_pg_kiv kiv_a "$PG_KIV_PORT" a
    start_peers
    wait_for "http://127.0.0.1:$NGINX_PORT/People.php?city=$CITY&page=2"
    local query="city=$CITY&page=2"
    for table in "${PG_TABLES[@]}"; do
        curl -s "http://127.0.0.1:$PG_KIV_PORT/$table.html?$query" >"$WORK/static/pg-$table.html"
        curl -s "http://127.0.0.1:$NGINX_PORT/$table.php?$query" >"$WORK/php/pg-$table.out"
        compare_bytes "postgres__php-bytes-$table" "$WORK/static/pg-$table.html" "$WORK/php/pg-$table.out"
    done
    for run in $(seq "$RUNS"); do
        for table in "${PG_TABLES[@]}"; do
            log "postgres: run $run of $RUNS, $table"
            measure_cpu postgres "kiv-$table" "$run" "http://127.0.0.1:$PG_KIV_PORT/$table.html?$query" \
                kiv-server="$kiv_a" postgres="$PG_PID"
            measure_cpu postgres "php-$table" "$run" "http://127.0.0.1:$NGINX_PORT/$table.php?$query" \
                php-fpm="$PHP_PID" nginx="$NGINX_PID" postgres="$PG_PID"
        done
    done
    # Two kiv-servers on the one PostgreSQL, each loaded by its own wrk at the same time.
    start_pg_kiv kiv_b "$PG_KIV2_PORT" b
    local half=$(((CONNECTIONS + 1) / 2))
    for run in $(seq "$RUNS"); do
        log "postgres: run $run of $RUNS, two kiv-servers"
        local file="$WORK/cpu/postgres__kiv-two__$run.txt"
        : >"$file"
        cpu_reading before "$file" kiv-server-a="$kiv_a" kiv-server-b="$kiv_b" postgres="$PG_PID"
        measure postgres kiv-two-a "$run" "http://127.0.0.1:$PG_KIV_PORT/People.html?$query" "$half" &
        local first=$!
        measure postgres kiv-two-b "$run" "http://127.0.0.1:$PG_KIV2_PORT/People.html?$query" "$half"
        wait "$first"
        cpu_reading after "$file" kiv-server-a="$kiv_a" kiv-server-b="$kiv_b" postgres="$PG_PID"
    done
    stop_servers
    stop_postgres
}

# Adds per second through a public page, with commits durable (synchronous=FULL, the default)
# and without (durable_commits = false): what the fsync of each commit costs. Into
# $WORK/wrk/adds__kiv-adds-<durable|fast>__<run>.txt.
adds_per_second() {
    local mode durable port=$((PORT_BASE + 6)) pid
    for mode in durable fast; do
        durable=$([[ $mode == durable ]] && echo true || echo false)
        mkdir -p "$WORK/adds-$mode/site" "$WORK/adds-$mode/data"
        printf '%s' '<kivModifyDatabase mode="addRecord" databaseName="Adds" fieldName="Name" fieldValue="bench">' \
            >"$WORK/adds-$mode/site/add.html"
        echo ready >"$WORK/adds-$mode/site/ready.txt"
        "$BUILD/server/kiv-server" db create Adds Name:Text:40 --data "$WORK/adds-$mode/data" >/dev/null
        cat >"$WORK/adds-$mode/server.toml" <<TOML
[server]
listen = "127.0.0.1"
port = $port
workers = 2
access_log = "/dev/null"
server_log = "$WORK/logs/kiv-adds-$mode.log"
[[region]]
root = "$WORK/adds-$mode/site"
data = "$WORK/adds-$mode/data"
public_write_rate = 0
durable_commits = $durable
TOML
        "$BUILD/server/kiv-server" serve --config "$WORK/adds-$mode/server.toml" >/dev/null 2>&1 &
        pid=$!
        wait_for "http://127.0.0.1:$port/ready.txt"
        for run in $(seq "$RUNS"); do
            log "adds: $mode, run $run of $RUNS"
            measure adds "kiv-adds-$mode" "$run" "http://127.0.0.1:$port/add.html" 4 \
                -s "$ROOT/bench/peers/post-empty.lua"
        done
        kill "$pid"
        wait "$pid" 2>/dev/null || true
    done
}

main() {
    install_peers
    build
    rm -rf "$WORK"
    mkdir -p "$WORK"/{site,static,php,nginx,logs,wrk,rss,floor,floods,cpu,indexes}
    make_csv
    if [[ $PARTS == postgres ]]; then
        postgres_pages
        report
        return
    fi
    make_data
    local page25="page25.html?city=$CITY&page=2"
    local sql25="SELECT Name, City, Age, Email, Phone FROM people WHERE City = '$CITY' ORDER BY Name, id LIMIT 25 OFFSET 25;"
    local sql10k="SELECT Name, City, Age, Email, Phone FROM people ORDER BY Name, id LIMIT 10000;"
    for setup in "${SETUPS[@]}"; do
        log "setup $setup: starting kiv-server, php-fpm and nginx"
        start_servers "$setup"
        # The ceiling serves exactly the bytes kiv-server renders; the PHP page should match them.
        curl -s "http://127.0.0.1:$KIV_PORT/$page25" >"$WORK/static/page25.html"
        curl -s "http://127.0.0.1:$NGINX_PORT/page25.php?city=$CITY&page=2" >"$WORK/php/page25-$setup.out"
        compare_bytes "${setup}__php-bytes" "$WORK/static/page25.html" "$WORK/php/page25-$setup.out"
        curl -s "http://127.0.0.1:$KIV_PORT/rows10000.html" >"$WORK/static/rows10000-$setup.html"
        sqlite3 -html "$WORK/peer-$setup.sqlite" "$sql10k" >"$WORK/floor/rows10000-$setup.html"
        compare_bytes "${setup}__rows10000-bytes" "$WORK/static/rows10000-$setup.html" "$WORK/floor/rows10000-$setup.html"
        curl -s "http://127.0.0.1:$NGINX_PORT/rows10000.php" >"$WORK/php/rows10000-$setup.out"
        compare_bytes "${setup}__php-rows10000-bytes" "$WORK/static/rows10000-$setup.html" "$WORK/php/rows10000-$setup.out"
        record_memory "$setup" start
        for run in $(seq "$RUNS"); do
            log "setup $setup: run $run of $RUNS"
            # Interleaved, so that noise from other work on the machine spreads over every peer.
            measure "$setup" kiv-page25 "$run" "http://127.0.0.1:$KIV_PORT/$page25" "$CONNECTIONS"
            measure "$setup" php-page25 "$run" "http://127.0.0.1:$NGINX_PORT/page25.php?city=$CITY&page=2" "$CONNECTIONS"
            measure "$setup" static-page25 "$run" "http://127.0.0.1:$NGINX_PORT/page25.html" "$CONNECTIONS"
            measure "$setup" kiv-editor "$run" "http://127.0.0.1:$KIV_PORT/editor.html" "$CONNECTIONS" \
                -s "$ROOT/bench/peers/editor-search.lua"
            # One connection: the latency is the time to make one 10,000-row page.
            measure "$setup" kiv-rows10000 "$run" "http://127.0.0.1:$KIV_PORT/rows10000.html" 1 --timeout 60s
            measure "$setup" php-rows10000 "$run" "http://127.0.0.1:$NGINX_PORT/rows10000.php" 1 --timeout 60s
        done
        record_memory "$setup" after-runs
        if [[ $setup == city-name ]]; then
            ((FLOODS)) && floods "$setup"
            memory_run "$setup"
        fi
        stop_servers
        sqlite_floor "$setup" sqlite-page25 2000 "$sql25"
        sqlite_floor "$setup" sqlite-rows10000 20 "$sql10k"
    done
    adds_per_second
    ((POSTGRES)) && postgres_pages
    micro_benchmarks
    report
}

report() {
    log "writing $DOCS/benchmarks.md and $DOCS/benchmarks.png"
    mkdir -p "$DOCS"
    python3 "$ROOT/bench/report.py" --work "$WORK" --docs "$DOCS" --notes "$ROOT/bench/profile-notes.md" \
        --settings "runs=$RUNS duration=${DURATION}s connections=$CONNECTIONS records=$RECORDS" \
        ${BENCH_BEFORE:+--before "$BENCH_BEFORE"}
}

main "$@"
