#!/usr/bin/env bash
# Compares the libraries with those of the last release, whose descriptions are in abi/:
#   abi.sh            fails when what was built with the release would not run with these
#   abi.sh baseline   writes the descriptions anew, for a release
# Once VELA_SOVERSION is above that of the release, differences are told and no more. It also tries
# that a break would be found.
set -euo pipefail
cd "$(dirname "$0")/../.."
build=build/abi
libraries="Platform SwitchTable Routes"

# Templates that are inlined elsewhere are no part of a library: the same flags each time.
cmake -S . -B $build -G Ninja -DCMAKE_CXX_COMPILER=g++ -DCMAKE_CXX_FLAGS="-Og -g" \
    -DVELA_TOOLS=OFF -DVELA_TESTS=OFF -DVELA_BENCH=OFF -DVELA_DEVICE=OFF \
    -DCMAKE_UNITY_BUILD=ON -DCMAKE_UNITY_BUILD_BATCH_SIZE=8 >/dev/null
cmake --build $build
cmake --install $build --prefix $build/prefix >/dev/null
describe() { # library file, its headers, output
    abidw --headers-dir "$2" --drop-private-types --no-show-locs \
        --no-comp-dir-path --no-corpus-path --out-file "$3" "$1"
}
# 0 when they differ, 1 when they do not; a tool that fails ends it all.
different() { # description, description
    local code=0
    abidiff --no-added-syms "$1" "$2" >$build/report || code=$?
    if [ $((code & 3)) != 0 ]; then cat $build/report; echo "abi.sh: abidiff failed" >&2; exit 2; fi
    [ $code != 0 ]
}
for library in $libraries; do
    describe $build/libVela$library.so $build/prefix/include/vela $build/$library.abi
done
if [ "${1-}" = baseline ]; then
    for library in $libraries; do xz -9 <$build/$library.abi >abi/$library.abi.xz; done
    echo "abi/ describes this release now"
    exit
fi

soversion=$(sed -n 's/^set(VELA_SOVERSION \([0-9]*\))/\1/p' CMakeLists.txt)
failed=0
for library in $libraries; do
    xz -d <abi/$library.abi.xz >$build/$library-release.abi
    different $build/$library-release.abi $build/$library.abi || continue
    cat $build/report
    if grep -q "soname='libVela$library.so.$soversion'" $build/$library-release.abi; then
        echo "libVela$library: what was built with the last release would not run with this;" \
            "mend it, or raise VELA_SOVERSION (docs/releasing.md)" >&2
        failed=1
    fi
done

# Breaks on purpose, in the smallest library, which is linked by hand.
changed() { # sed script, header
    local copy=$build/changed
    rm -rf $copy && mkdir $copy && cp -r VelaRoutes VelaSwitchTable platform $copy
    sed -i "$1" "$copy/$2"
    if cmp -s "$2" "$copy/$2"; then echo "abi.sh: nothing to change in $2" >&2 && exit 1; fi
    # One source, as in the build: what is described depends on that.
    (cd $copy && printf '#include "%s"\n' VelaRoutes/*.cpp >all.cpp) || exit 2
    g++ -std=c++20 -Og -g -shared -fPIC -fvisibility=hidden -fvisibility-inlines-hidden \
        -fno-semantic-interposition -I$copy -I$copy/platform $copy/all.cpp \
        -Wl,-soname,libVelaRoutes.so.$soversion -o $copy/libVelaRoutes.so || exit 2
    describe $copy/libVelaRoutes.so $copy $copy/Routes.abi || exit 2
    different $build/Routes.abi $copy/Routes.abi
}
if changed 's/^#pragma once/&\n/' VelaRoutes/RouteLevel.h; then
    cat $build/report
    echo "an empty line is taken for a break" >&2
    failed=1
fi
changed '/virtual Routes routesAt/{h;d};/virtual bool marked/{G}' VelaRoutes/RouteLevel.h ||
    { echo "virtual operations that change places are not found" >&2; failed=1; }
changed 's/^  Orb::Seconds lastHit;/&\n  U64 added = 0;/' VelaSwitchTable/family/LpmRoutes.h ||
    { echo "a value type that grows is not found" >&2; failed=1; }
[ $failed = 0 ] && echo "abi: as the last release, and breaks would be found"
exit $failed
