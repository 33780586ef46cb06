#!/usr/bin/env bash
# Builds the benchmarks, makes their inputs (1 GiB) in a scratch folder, and runs them.
# Needs about 5 GiB free in the scratch folder (VARNEX_BENCH_DIR, /tmp/varnex-bench by default).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build="${VARNEX_BUILD_DIR:-$root/build}"
"$root/scripts/build"
scratch="${VARNEX_BENCH_DIR:-/tmp/varnex-bench}"
mkdir -p "$scratch"
if [[ ! -f "$scratch/big.bin" ]]; then
    head -c 1073741824 /dev/urandom > "$scratch/big.bin"
fi
if [[ ! -f "$scratch/big.zip" ]]; then
    (cd "$scratch" && bsdtar -c --format zip --options zip:compression=store -f big.zip big.bin)
fi
"$build/bench/bench_recipients"
# With the accessibility bridge on, as for every screen-reader user: an X server, a session bus
# and its accessibility bus (started by asking for its address).
xvfb-run -a dbus-run-session -- sh -c 'dbus-send --session --print-reply --dest=org.a11y.Bus /org/a11y/bus \
    org.a11y.Bus.GetAddress >/dev/null && QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1 QT_QPA_PLATFORM=xcb "$0"' \
    "$build/bench/bench_intake"
"$build/bench/bench_pairing"
"$build/bench/bench_transfer" upload "$scratch/big.bin"
"$build/bench/bench_transfer" unpack "$scratch/big.zip"
VARNEX_PHONE_SIM_BINARY="$build/tools/phone-sim/varnex-phone-sim" "$build/bench/bench_transfer" encrypt "$scratch/big.bin"
for what in movein cancel encrypt refused; do
    VARNEX_PHONE_SIM_BINARY="$build/tools/phone-sim/varnex-phone-sim" "$build/bench/bench_operations" "$what" "$scratch"
done
# Commands and the session bus service, answered by the running program on a bus of its own.
VARNEX_PHONE_SIM_BINARY="$build/tools/phone-sim/varnex-phone-sim" VARNEX_DESKTOP_BINARY="$build/varnex-desktop" \
    dbus-run-session -- "$build/bench/bench_scripting"
