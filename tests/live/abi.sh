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
    -DCMAKE_UNITY_BUILD=ON >/dev/null
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

# Breaks on purpose: some of each library is compiled as it is, and once for each change of a header.
described() { # sources, output
    (cd $copy && g++ -std=c++20 -Og -g -shared -fPIC -fvisibility=hidden -fvisibility-inlines-hidden \
        -fno-semantic-interposition -I. -Iplatform $1 -o some.so) &&
        describe $copy/some.so $copy "$2" || exit 2
}
changed() { # sources, header, sed script
    sed -i "$3" "$copy/$2"
    if cmp -s "$2" "$copy/$2"; then echo "abi.sh: nothing to change in $2" >&2; exit 2; fi
    described "$1" $copy/changed.abi
    cp "$2" "$copy/$2"
    different $copy/original.abi $copy/changed.abi
}
breaks() { # sources, header of a virtual operation, two of its lines, header of a value type, its line
    described "$1" $copy/original.abi
    if changed "$1" "$2" 's/^#pragma once/&\n/'; then
        cat $build/report
        echo "an empty line in $2 is taken for a break" >&2
        failed=1
    fi
    changed "$1" "$2" "/$3/{h;d};/$4/{G}" ||
        { echo "virtual operations that change places in $2 are not found" >&2; failed=1; }
    changed "$1" "$5" "s/^ *$6/&\n  U64 added = 0;/" ||
        { echo "a value type that grows in $5 is not found" >&2; failed=1; }
}
copy=$build/changed
rm -rf $copy && mkdir $copy && cp -r VelaRoutes VelaSwitchTable platform $copy
breaks platform/VelaSwitchApi/SwTable.cpp \
    platform/VelaSwitchApi/SwTable.h 'virtual void syncEntries(U32' 'virtual void handleRebuilt' \
    platform/VelaSwitchApi/SwTable.h 'bool corrupt = false;'
breaks "VelaSwitchTable/VelaTableLpmBase.cpp VelaSwitchTable/VelaTableLpm.cpp" \
    VelaSwitchTable/VelaTableHashHelper.h 'virtual RowLayout makeLayout' 'virtual Orb::Ptr<HashBaseCuckooEntry> makeNull' \
    VelaSwitchTable/family/LpmRoutes.h 'Orb::Seconds lastHit;'
breaks VelaRoutes/RouteWriter.cpp \
    VelaRoutes/RouteLevel.h 'virtual Routes routesAt' 'virtual bool marked' \
    VelaSwitchTable/family/LpmRoutes.h 'Orb::Seconds lastHit;'
[ $failed = 0 ] && echo "abi: as the last release, and breaks would be found"
exit $failed
