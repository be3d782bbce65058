#!/usr/bin/env bash
# Runs a Win32 program under Wine, in a Wine prefix of the build tree: on the X display that is
# already set (as under `xvfb-run -a scripts/wine-run.sh ...`), or else on a virtual X server of
# its own.
set -euo pipefail
program=$(realpath "$1"); shift
root=$(cd "$(dirname "$0")/.." && pwd)

export WINEPREFIX="$root/build/wineprefix"
export WINEDEBUG=-all
export WINEDLLOVERRIDES="mscoree,mshtml="
wine=/usr/lib/wine/wine64
[ -x "$wine" ] || wine=$(command -v wine64 || command -v wine)

on_display=(xvfb-run -a)
[ -n "${DISPLAY:-}" ] && on_display=()

if [ ! -d "$WINEPREFIX" ]; then
  mkdir -p "$WINEPREFIX"
  "${on_display[@]}" "$wine" wineboot --init >/dev/null 2>&1 || true
fi
cd "$(dirname "$program")"
exec "${on_display[@]}" "$wine" "$program" "$@"
