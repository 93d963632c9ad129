#!/usr/bin/env bash
# Builds and runs examples/embed as an agent of somebody else's does: consumer.sh WAY BUILD COMPILER,
# where WAY is installed, pkg-config, build-tree, subproject or static, and BUILD a build of this
# project.
# Our headers must raise no warning there.
set -euo pipefail
way=$1 build=$2 compiler=$3
root=$(cd "$(dirname "$0")/.." && pwd)
work=$build/consumer/$way

rm -rf "$work" && mkdir -p "$work"
if [ "$way" = installed ] || [ "$way" = pkg-config ]; then
    cmake --install "$build" --prefix "$work/prefix" >/dev/null
fi
with_cmake() {
    cmake -S "$root/examples/embed" -B "$work/build" -G Ninja -DCMAKE_CXX_COMPILER="$compiler" \
        -DCMAKE_BUILD_TYPE=Debug "$@" >/dev/null
    cmake --build "$work/build" >"$work/log" || { cat "$work/log"; exit 1; }
    if grep 'warning:' "$work/log"; then exit 1; fi
    run=$work/build/embed
    "$work/build/check" "$root/examples/vela-20-4.0.registers.json"
}
case $way in
installed) with_cmake -DCMAKE_PREFIX_PATH="$work/prefix" ;;
build-tree) with_cmake -DVelaSwitchTable_DIR="$build" ;;
static)
    cmake -S "$root" -B "$work/vela" -G Ninja -DCMAKE_CXX_COMPILER="$compiler" \
        -DBUILD_SHARED_LIBS=OFF -DCMAKE_UNITY_BUILD=ON -DVELA_TOOLS=OFF -DVELA_TESTS=OFF \
        -DVELA_BENCH=OFF -DCMAKE_INSTALL_PREFIX="$work/prefix" >/dev/null
    cmake --build "$work/vela" --target install >/dev/null
    with_cmake -DCMAKE_PREFIX_PATH="$work/prefix"
    ;;
# Fetched, shared, and with none of our presets.
subproject) with_cmake -DVELA_SOURCE="$root" -DBUILD_SHARED_LIBS=ON -DCMAKE_UNITY_BUILD=ON ;;
pkg-config)
    lib=$(dirname "$(find "$work/prefix" -name libVelaRoutes.so)")
    PKG_CONFIG_PATH=$lib/pkgconfig LDFLAGS=-Wl,-rpath,$lib CXXFLAGS="-Wall -Wextra -Werror" \
        make -s -C "$root/examples/embed" CXX="$compiler" embed="$work/embed"
    run=$work/embed
    ;;
*) echo "$0: no way is called $way" >&2 && exit 2 ;;
esac
"$run" >"$work/output"
grep -qx '0 rows written' "$work/output"
# No header that is installed needs one that is not.
if [ "$way" = installed ]; then
    cd "$work/prefix"/include/vela
    find . -name '*.h' | sed 's|^\./\(.*\)|#include "\1"|' |
        "$compiler" -std=c++20 -fsyntax-only -Wall -Wextra -Wshadow -Wconversion -Werror -I. -x c++ -
fi
