#!/usr/bin/env bash
# Saves screenshots of the viewer (host/viewer.cpp) on the sample object and archive into
# docs/images/:
# each runs under Wine on a virtual X server of its own and is taken with ImageMagick's import.
# Builds the mingw preset first when needed.
set -euo pipefail
cd "$(dirname "$0")/.."

cmake --preset mingw >/dev/null
cmake --build --preset mingw -j "$(nproc)" --target kofd_viewer kofd_dll_suite_files >/dev/null
viewer=build/mingw/host/kofd_viewer.exe
cp examples/sample.o examples/sample.a build/mingw/host/
mkdir -p docs/images

# shoot PNG FILE ITEM: the viewer on FILE (a name beside it) with ITEM chosen.
shoot() {
  local png=$1 file=$2 item=$3
  xvfb-run -a -s "-screen 0 1280x760x24" bash -c '
    scripts/wine-run.sh "$1" "$2" "$3" --quit-after 12 &
    viewer=$!
    sleep 9
    import -window root -crop 1240x720+0+0 +repage "$4"
    wait "$viewer"' shoot "$viewer" "$file" "$item" "$png"
  echo "screenshots: $png"
}

shoot docs/images/viewer-object-symbols.png sample.o .symtab
shoot docs/images/viewer-object-relocations.png sample.o .relxeb.text
shoot docs/images/viewer-archive-link-member.png sample.a "Link Member"
