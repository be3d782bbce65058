#!/usr/bin/env bash
# Rebuilds examples/sample.a with kofd ar: the sample object and three driver objects, written by
# kofd_make_sample. Run from anywhere after building the default preset.
set -euo pipefail
cd "$(dirname "$0")/.."
build=build/default
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

"$build/examples/kofd_make_sample" --library "$work"
cp examples/sample.o "$work/"
rm -f examples/sample.a
# Run beside the objects so that the members are named by their file names.
kofd=$(realpath "$build/cli/kofd")
(cd "$work" && "$kofd" ar sample.a create sample.o uart.o timer.o music.o)
cp "$work/sample.a" examples/sample.a

# stale_index.a: sample.a without timer.o but with sample.a's linker member in front, the index a
# tool that skips an existing index leaves behind (`kofd ar stale_index.a check` finds it).
cp examples/sample.a "$work/old.a"
cp examples/sample.a "$work/new.a"
"$kofd" ar "$work/new.a" remove timer.o
python3 - "$work/old.a" "$work/new.a" examples/stale_index.a <<'PY'
import sys
old, new = (open(p, 'rb').read() for p in sys.argv[1:3])
end = lambda b: 8 + 60 + int(b[8 + 48:8 + 58].split()[0])
open(sys.argv[3], 'wb').write(old[:end(old)] + new[end(new):])
PY
