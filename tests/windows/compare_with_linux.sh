#!/usr/bin/env bash
# kxhost.exe under Wine against the Linux build's kxhost, on every fixture of
# tests/data and every conformance stream of ../shared/conformance: the same standard
# output, standard error and exit status of "info" and "info --json", and the same
# bytes of every decoded file, 16-bit and 64-bit float, as WAV and as raw samples.
# WAV files of 64-bit float carry the time they were written (in libsndfile's PEAK
# chunk, bytes 60 to 63); those four bytes are left out of the comparison. Every
# other byte must be the same: the decoder's tables hold the same bits on both systems
# (they are built from stored constants, not from the C library's pow, sin and cos),
# and kxhost.exe keeps the PEAK chunk as libsndfile does.
#   compare_with_linux.sh LINUX_KXHOST WINE_RUN KXHOST_EXE WORK_DIR
# Exit 77 (skipped) when the Linux kxhost is missing.
set -uo pipefail
source "$(dirname "$0")/beside_linux.sh" "$@"
failures=0
fail() { echo "DIFFERENT: $*"; failures=$((failures + 1)); }

inputs=(tests/data)
if [ -d ../shared/conformance ]; then inputs+=(../shared/conformance); fi
mapfile -t files < <(find "${inputs[@]}" -type f | LC_ALL=C sort)
echo "${#files[@]} files"

# compare NAME ARGS...: one kxhost command on both builds, outputs and status compared.
compare() {
  local name="$1"; shift
  "$linux" "$@" >"$work/$name.linux.out" 2>"$work/$name.linux.err"; echo $? >"$work/$name.linux.rc"
  "$wine_run" "$exe" "$@" >"$work/$name.windows.out" 2>"$work/$name.windows.err"; echo $? >"$work/$name.windows.rc"
  for part in out err rc; do
    cmp -s "$work/$name.linux.$part" "$work/$name.windows.$part" || {
      fail "$name ($part)"; diff "$work/$name.linux.$part" "$work/$name.windows.$part" | head -5; }
  done
}

compare info -q info "${files[@]}"
compare info_json -q info --json "${files[@]}"

# Every file that is MPEG audio, decoded by both into one folder each.
for variant in wav16 wavfloat raw16 rawfloat; do
  case "$variant" in
    wav16) args=() ;; wavfloat) args=(--float) ;;
    raw16) args=(--format raw) ;; rawfloat) args=(--format raw --float) ;;
  esac
  for source in "${inputs[@]}"; do
    tag="$(basename "$source")"
    l="$work/decoded/linux/$variant/$tag"; w="$work/decoded/windows/$variant/$tag"
    "$linux" -q decode -r "$source" --out-dir "$l" -j 2 "${args[@]}" >/dev/null 2>"$work/decode.linux.err"
    "$wine_run" "$exe" -q decode -r "$source" --out-dir "$w" -j 2 "${args[@]}" >/dev/null 2>"$work/decode.windows.err"
    # The messages name each build's own output folder, and parallel workers finish
    # in any order: compared with the folder named alike, line by line in sorted order.
    cmp -s <(sed "s|$l|OUT|g" "$work/decode.linux.err" | LC_ALL=C sort) \
           <(sed "s|$w|OUT|g" "$work/decode.windows.err" | LC_ALL=C sort) || {
      fail "decode $variant $tag (messages)"; diff "$work/decode.linux.err" "$work/decode.windows.err" | head -5; }
    count=0
    while IFS= read -r file; do
      relative="${file#"$l"/}"
      other="$w/$relative"
      count=$((count + 1))
      if [ ! -f "$other" ]; then fail "$variant $tag/$relative missing"; continue; fi
      if [ "$variant" = wavfloat ]; then
        cmp -s <(head -c 60 "$file") <(head -c 60 "$other") &&
          cmp -s <(tail -c +65 "$file") <(tail -c +65 "$other") || fail "$variant $tag/$relative"
      else
        cmp -s "$file" "$other" || fail "$variant $tag/$relative"
      fi
    done < <(find "$l" -type f | LC_ALL=C sort)
    echo "$variant $tag: $count files compared"
    [ "$count" -gt 0 ] || fail "$variant $tag: nothing decoded"
  done
done

if [ "$failures" -ne 0 ]; then
  echo "$failures differences"
  exit 1
fi
echo "kxhost.exe and the Linux kxhost agree on every file"
