#!/usr/bin/env bash
# Runs every test of kofd: the Linux suites (warnings as errors), the same suites under
# AddressSanitizer and UndefinedBehaviorSanitizer, and the DLL suite under Wine.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh
jobs=$(nproc)

step() { printf '\n==== %s\n' "$*"; }

step "Linux suites"
cmake --preset ci >/dev/null
cmake --build --preset ci -j "$jobs"
ctest --preset ci -j "$jobs"

step "Sanitizer suites"
cmake --preset asan >/dev/null
cmake --build --preset asan -j "$jobs"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 ctest --preset asan -j "$jobs"

step "DLL suite under Wine"
cmake --preset mingw >/dev/null
cmake --build --preset mingw -j "$jobs"
scripts/wine-run.sh build/mingw/host/kofd_dll_suite.exe

step "Fuzz targets, bounded run from the seed corpus"
scripts/fuzz.sh "${KOFD_FUZZ_SECONDS:-60}"
