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
