#!/usr/bin/env bash
# Runs a Win32 program under Wine on a virtual X server, in a Wine prefix of the build tree.
set -euo pipefail
program=$(realpath "$1"); shift
root=$(cd "$(dirname "$0")/.." && pwd)

export WINEPREFIX="$root/build/wineprefix"
export WINEDEBUG=-all
export WINEDLLOVERRIDES="mscoree,mshtml="
wine=/usr/lib/wine/wine64
[ -x "$wine" ] || wine=$(command -v wine64 || command -v wine)

if [ ! -d "$WINEPREFIX" ]; then
  mkdir -p "$WINEPREFIX"
  xvfb-run -a "$wine" wineboot --init >/dev/null 2>&1 || true
fi
cd "$(dirname "$program")"
exec xvfb-run -a "$wine" "$program" "$@"
