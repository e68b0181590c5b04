#!/bin/sh
# Installs the Debian packages the build needs, when any is missing.
# `deps.sh tests` adds what only the tests need (clang's libFuzzer, a PostgreSQL server).
set -e
packages="build-essential cmake pkg-config libsqlite3-dev sqlite3 libpq-dev libinih-dev libgtest-dev libgmock-dev libbenchmark-dev libxxhash-dev libfmt-dev libcli11-dev nlohmann-json3-dev locales"
if [ "$1" = tests ]; then
  packages="$packages clang-14 libclang-rt-14-dev postgresql"
fi
missing=""
for p in $packages; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing="$missing $p"
done
if [ -n "$missing" ]; then
  echo "installing:$missing"
  SUDO=""
  [ "$(id -u)" -ne 0 ] && SUDO=sudo
  $SUDO apt-get update
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y --no-install-recommends $missing
fi
