#!/usr/bin/env bash
# Installs what building and testing kofd needs, when it is missing. Debian packages only.
# "setup.sh build" installs only what building the Linux tool needs.
set -euo pipefail
mode=${1:-all}

packages=()
need() { # need PACKAGE TEST...: install PACKAGE unless the test succeeds
  local package=$1; shift
  "$@" >/dev/null 2>&1 || packages+=("$package")
}
has() { command -v "$1"; }
exists() { test -e "$1"; }

need g++ has g++
need cmake has cmake
need ninja-build has ninja
need libcli11-dev exists /usr/include/CLI/CLI.hpp
need libgtest-dev exists /usr/include/gtest/gtest.h
need nlohmann-json3-dev exists /usr/include/nlohmann/json.hpp
if [ "$mode" != build ]; then
need clang has clang++
need mingw-w64 has x86_64-w64-mingw32-g++
need wine64 exists /usr/lib/wine/wine64
need wine has wine
need xvfb has xvfb-run
need xauth has xauth
need imagemagick has import
need libbenchmark-dev exists /usr/include/benchmark/benchmark.h
need libclang-rt-14-dev exists /usr/lib/llvm-14/lib/clang/14.0.6/lib/linux/libclang_rt.fuzzer-x86_64.a
need binutils has readelf
need llvm has llvm-ar
need hyperfine has hyperfine
need python3-jsonschema python3 -c 'import jsonschema'
need pkgconf has pkg-config
fi

if ((${#packages[@]})); then
  echo "setup: installing ${packages[*]}"
  SUDO=""
  [ "$(id -u)" -eq 0 ] || SUDO=sudo
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${packages[@]}"
fi
