#!/usr/bin/env bash
# Builds kofd if needed and runs it on the bundled sample object.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh build
cmake --preset default >/dev/null
cmake --build --preset default -j "$(nproc)" --target kofd_cli >/dev/null
kofd=build/default/cli/kofd

run() { printf '$ kofd %s\n' "$*"; "$kofd" "$@"; }
run --version
run info examples/sample.o
run reloc examples/sample.o
run dump examples/sample.o --file-header --section .symtab
run ar examples/sample.a list
run ar examples/sample.a symbols
run ar examples/sample.a find uart_putc
run browse examples/sample.o --select .relxeb.text
