#!/usr/bin/env bash
# Builds kofd if needed and runs it on the bundled sample object.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh build
# The example preset leaves the Google Benchmark programs out: "setup.sh build" does not install them.
cmake --preset example >/dev/null
cmake --build --preset example -j "$(nproc)" --target kofd_cli >/dev/null
kofd=build/example/cli/kofd

run() { printf '$ kofd %s\n' "$*"; "$kofd" "$@"; }
run --version
run info examples/sample.o
run reloc examples/sample.o
run dump examples/sample.o --file-header --section .symtab
run ar examples/sample.a list
run ar examples/sample.a symbols
run ar examples/sample.a find uart_putc
run symbols examples/sample.o
run browse examples/sample.o --select .relxeb.text
