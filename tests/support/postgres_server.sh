#!/bin/sh
# Starts or stops a throw-away PostgreSQL server for the tests:
#   postgres_server.sh start DIR   (initdb into DIR, listen on a Unix socket in DIR only)
#   postgres_server.sh stop DIR    (stop it and remove DIR)
# The server refuses to run as root, so under root it runs as "nobody".
# Durability is off: the tests check the library, not the server's disk.
set -e
action="$1"
dir="$2"
[ -n "$action" ] && [ -n "$dir" ] || { echo "usage: $0 start|stop DIR" >&2; exit 2; }

bindir="$(pg_config --bindir 2>/dev/null || true)"
if [ -z "$bindir" ] || [ ! -x "$bindir/initdb" ]; then
  bindir="$(ls -d /usr/lib/postgresql/*/bin 2>/dev/null | sort -V | tail -n 1)"
fi
[ -x "$bindir/initdb" ] || { echo "postgres_server.sh: no PostgreSQL server installed" >&2; exit 1; }

as_server() {
  if [ "$(id -u)" -eq 0 ]; then
    runuser -u nobody -- "$@"
  else
    "$@"
  fi
}

case "$action" in
  start)
    # A server left over by an interrupted run is stopped first.
    if [ -f "$dir/data/postmaster.pid" ]; then
      as_server "$bindir/pg_ctl" -D "$dir/data" -m immediate stop >/dev/null 2>&1 || true
    fi
    rm -rf "$dir"
    mkdir -p "$dir"
    [ "$(id -u)" -eq 0 ] && chown nobody "$dir"
    chmod 700 "$dir"
    as_server "$bindir/initdb" -D "$dir/data" -U alertdb --auth=trust -E UTF8 --no-locale \
      --no-sync >"$dir/initdb.log" 2>&1 || { cat "$dir/initdb.log" >&2; exit 1; }
    as_server "$bindir/pg_ctl" -D "$dir/data" -l "$dir/server.log" -w -t 60 \
      -o "-k $dir -c listen_addresses='' -c fsync=off -c synchronous_commit=off \
-c full_page_writes=off -c max_connections=200 -c shared_buffers=32MB \
-c dynamic_shared_memory_type=mmap" \
      start >/dev/null || { cat "$dir/server.log" >&2; exit 1; }
    ;;
  stop)
    if [ -f "$dir/data/postmaster.pid" ]; then
      as_server "$bindir/pg_ctl" -D "$dir/data" -m fast -w stop >/dev/null || true
    fi
    rm -rf "$dir"
    ;;
  *)
    echo "usage: $0 start|stop DIR" >&2
    exit 2
    ;;
esac
