#!/usr/bin/env bash
# The whole chain on one machine, from a product's crash to the server:
#
#   bash tools/demo.sh        (as root, on a fresh Debian 12 machine)
#
# Installs the Debian packages, builds, installs into a private machine root
# under a temporary folder (MARLOWEN_ROOT), starts the test collector and a
# log listener, crashes the sample product, and shows the report arriving at
# the collector, the report's XML and the crashing thread's backtrace read
# from the minidump with LLDB. It ends by itself and leaves nothing running
# and nothing behind but the build folder (ML_DEMO_BUILD_DIR, default
# build-demo in the source tree).
set -euo pipefail

source_dir=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build_dir=${ML_DEMO_BUILD_DIR:-$source_dir/build-demo}
product_name="Orbit Designer"

step() { printf '\n=== %s\n' "$*"; }
fail() { printf 'demo: %s\n' "$*" >&2; exit 1; }

# Waits up to $2 seconds for the command in $1 to succeed.
wait_until() {
  local rounds=$(($2 * 10))
  until eval "$1"; do
    rounds=$((rounds - 1))
    [ "$rounds" -gt 0 ] || return 1
    sleep 0.1
  done
}

step "Debian packages"
bash "$source_dir/tools/install-deps.sh"

demo=$(mktemp -d /tmp/marlowen-demo.XXXXXX)
children=()
cleanup() {
  local pid
  for pid in "${children[@]}"; do kill "$pid" 2>/dev/null || true; done
  for pid in "${children[@]}"; do wait "$pid" 2>/dev/null || true; done
  rm -rf "$demo"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

step "Build in $build_dir"
cmake -S "$source_dir" -B "$build_dir" -DML_BUILD_TESTS=OFF -DML_BUILD_BENCH=OFF >"$demo/configure.log" ||
  { cat "$demo/configure.log"; fail "configuring failed"; }
cmake --build "$build_dir" -j"$(nproc)"

export MARLOWEN_ROOT=$demo/root
prefix=$MARLOWEN_ROOT/usr
step "Install into the private machine root $MARLOWEN_ROOT"
cmake --install "$build_dir" --prefix "$prefix"
echo "--- $MARLOWEN_ROOT/etc/marlowen/registry.reg"
cat "$MARLOWEN_ROOT/etc/marlowen/registry.reg"
report_folder="$MARLOWEN_ROOT/var/lib/Marlowen/Crash Reports"
ls -ld "$MARLOWEN_ROOT/var/lib/Marlowen" "$report_folder"

step "Test collector and log listener"
python3 "$source_dir/tools/collector/collector.py" --state "$demo/collector" \
  --env-file "$demo/collector.env" --timeout 300 >/dev/null &
children+=($!)
wait_until '[ -e "$demo/collector.env" ]' 30 || fail "the collector did not start"
set -a
. "$demo/collector.env"
set +a
echo "information server: https://$MARLOWEN_INFO_SERVER/CrashReportServer/ServerInfo"
"$prefix/bin/ml-log-listener" >"$demo/log.txt" 2>&1 &
children+=($!)
wait_until '[ -S "$MARLOWEN_ROOT/run/marlowen/MLLog.1" ]' 10 || fail "the log listener did not start"

step "Crash of the sample product \"$product_name\""
status=0
"$build_dir/tools/sample_product/ml-sample-product" --name "$product_name" null-write || status=$?
echo "ml-sample-product ended with exit status $status (254: the capture's -2)"

step "The report arrives at the collector"
wait_until '[ -s "$demo/collector/uploads.jsonl" ]' 60 || fail "no upload reached the collector"
# The tool deletes the zip once the server took it; then the folder is empty.
wait_until '[ -z "$(ls -A "$report_folder")" ]' 30 || fail "the report folder did not empty"
# The tool that the crash started runs detached; let it finish its purge.
tool_running() {
  local exe
  for exe in /proc/[0-9]*/exe; do
    [ "$(readlink "$exe" 2>/dev/null)" = "$prefix/lib/marlowen/MLCrashReporter" ] && return 0
  done
  return 1
}
wait_until '! tool_running' 30 || fail "the reporter tool did not end"
zip=$(ls "$demo/collector/received/"*.zip | head -n 1)
unzip -l "$zip"
echo "report folder afterwards: $(ls -A "$report_folder" | wc -l) files"

step "The report's XML"
unzip -p "$zip" '*.xml' | xmllint --format -

step "The crashing thread, read from the minidump with LLDB"
mkdir "$demo/unpacked"
unzip -q "$zip" -d "$demo/unpacked"
dump=$(ls "$demo/unpacked/"*.dmp | head -n 1)
timeout 120 lldb-15 --batch -c "$dump" "$build_dir/tools/sample_product/ml-sample-product" \
  -o 'thread backtrace' 2>&1 | sed -n '/thread backtrace/,$p'

step "The log"
cat "$demo/log.txt"

step "Uninstall"
xargs -d '\n' rm -f -- <"$build_dir/install_manifest.txt"
rmdir "$prefix/lib/marlowen"
printf '\n[-HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\App Paths\\MLCrashReporter.exe]\n' \
  >>"$MARLOWEN_ROOT/etc/marlowen/registry.reg"
echo "files left under $prefix: $(find "$prefix" -type f | wc -l)"
echo "--- $MARLOWEN_ROOT/etc/marlowen/registry.reg"
cat "$MARLOWEN_ROOT/etc/marlowen/registry.reg"
echo "demo finished"
