# Sourced by the corpus scripts: the real-world corpus, libc.a's ELF64 members converted into
# KELF objects by bench/make_corpus.cpp (RELA sections become type-22 tables, offsets and gaps
# kept).
#
#   make_kelf_corpus MAKE_CORPUS WORK [LIMIT]
#       WORK/elf: the members; WORK/kelf/NAME.kelf: the converted objects, every one or LIMIT of
#       them spread evenly over the archive. Returns 77 (skipped) when libc.a is absent.
#   begin_kelf_corpus PRESET LIMIT [KOFD [MAKE_CORPUS [SCRIPT_LIMIT]]]
#       For a corpus script, given the script's own arguments after PRESET and LIMIT: sets $kofd
#       (absolute) and $make_corpus, by default those of build/PRESET, and $limit (LIMIT unless
#       the script was given one; 0 is every object); sets $work to a temporary directory
#       removed at exit and makes the corpus there, ending the script with 77 (skipped) or 1 when
#       it cannot be made. Also starts $failures at 0, counted by `fail MESSAGE`.
corpus_archive=/usr/lib/x86_64-linux-gnu/libc.a

make_kelf_corpus() {
  local make_corpus=$1 work=$2 limit=${3:-0} inputs
  [ -r "$corpus_archive" ] || { echo "no $corpus_archive: skipped"; return 77; }
  mkdir -p "$work/elf" "$work/kelf"
  (cd "$work/elf" && ar x "$corpus_archive") || return 1
  inputs=$(ls "$work/elf"/*.o | sort)
  [ "$limit" -gt 0 ] && inputs=$(echo "$inputs" | awk -v n="$limit" 'NR % int(2070 / n + 1) == 1' | head -n "$limit")
  # shellcheck disable=SC2086
  "$make_corpus" "$work/kelf" $inputs >/dev/null
}

begin_kelf_corpus() {
  local status preset=$1
  kofd=$(realpath "${3:-build/$preset/cli/kofd}")
  make_corpus=${4:-build/$preset/bench/kofd_make_corpus}
  limit=${5:-$2}
  failures=0
  work=$(mktemp -d)
  trap 'rm -rf "$work"' EXIT
  make_kelf_corpus "$make_corpus" "$work" "$limit"
  status=$?
  [ "$status" -eq 77 ] && exit 77
  [ "$status" -eq 0 ] || { echo "the corpus could not be made"; exit 1; }
}

fail() {
  echo "FAIL: $*"
  failures=$((failures + 1))
}
