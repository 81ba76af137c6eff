#!/usr/bin/env bash
# Packaging test: installs the build tree into a scratch prefix with cmake --install,
# then builds a tiny host program against it twice, once through
# find_package(KXMP3Lib) and once through pkg-config, and runs both on the bundled
# sample, beside the installed kxhost and its man page.
#   install_test.sh BUILD_DIR SOURCE_DIR [EXTRA_CXX_FLAGS]
# Exit 77 (skipped) when a tool it needs is missing.
set -euo pipefail
build="$1"
source="$2"
flags="${3:-}"
for tool in cmake pkg-config c++; do
  command -v "$tool" >/dev/null || { echo "skipped: $tool is not installed"; exit 77; }
done
generator=()
command -v ninja >/dev/null && generator=(-G Ninja)
scratch="$(mktemp -d /tmp/kxmp3_install_XXXXXX)"
trap 'rm -rf "$scratch"' EXIT
prefix="$scratch/prefix"
sample="$source/tests/data/sample.mp3"
expected="44100 Hz, 2 channels, 176400 samples"

cmake --install "$build" --prefix "$prefix" >/dev/null
for f in bin/kxhost lib/kxmp3/plugins/KXMP3Lib.zss lib/libKXLibCore.so lib/libKXAFLib.so lib/libKXPlatform.so \
         include/kxmp3/host/kxaudiofile.h include/kxmp3/platform/kx_platform.h include/kxmp3/host/kx_mp3_info.h \
         lib/cmake/KXMP3Lib/KXMP3LibConfig.cmake lib/pkgconfig/kxmp3lib.pc share/man/man1/kxhost.1; do
  [ -e "$prefix/$f" ] || { echo "not installed: $f"; exit 1; }
done

# The installed kxhost finds the installed module by itself.
env -u KX_PLUGIN_PATH "$prefix/bin/kxhost" info --json "$sample" | grep -q '"total_samples": 176400' \
  || { echo "installed kxhost cannot read the sample"; exit 1; }
if command -v man >/dev/null; then
  MANPATH="$prefix/share/man" man -P cat kxhost 2>/dev/null | grep -q "kxhost" || { echo "man kxhost shows nothing"; exit 1; }
fi

# find_package
cmake -S "$source/tests/cli/install_consumer" -B "$scratch/consumer" "${generator[@]}" \
  -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_FLAGS="$flags" >/dev/null
cmake --build "$scratch/consumer" >/dev/null
module="$prefix/lib/kxmp3/plugins/KXMP3Lib.zss"
out="$("$scratch/consumer/tiny_host" "$module" "$sample")"
[ "$out" = "$expected" ] || { echo "find_package build printed: $out"; exit 1; }

# pkg-config
export PKG_CONFIG_PATH="$prefix/lib/pkgconfig"
plugindir="$(pkg-config --variable=plugindir kxmp3lib)"
[ -f "$plugindir/KXMP3Lib.zss" ] || { echo "pkg-config plugindir is wrong: $plugindir"; exit 1; }
libdir="$(pkg-config --variable=libdir kxmp3lib)"
# shellcheck disable=SC2046,SC2086
c++ -std=c++20 $flags "$source/tests/cli/install_consumer/tiny_host.cpp" -o "$scratch/tiny_host_pc" \
  $(pkg-config --cflags --libs kxmp3lib) -ldl -Wl,-rpath,"$libdir"
out="$("$scratch/tiny_host_pc" "$plugindir/KXMP3Lib.zss" "$sample")"
[ "$out" = "$expected" ] || { echo "pkg-config build printed: $out"; exit 1; }
echo "installed, and built against it with find_package and pkg-config: $out"
