#!/usr/bin/env bash
# Installs the packages of build/deb into a Debian of their own and has the agent of examples/embed
# built and run there, as their autopkgtest does. Where a root of one's own is not to be had, it is
# done under an empty prefix.
set -euo pipefail
cd "$(dirname "$0")/../.."
root=$PWD/build/live/root
debs=(build/deb/*.deb)
needs=$(sed -n 's/^Depends: //p' debian/tests/control | sed 's/,//g; s/libvela[a-z-]*//; s/velatable//')
mirror=$(sed -n 's/^URIs: //p' /etc/apt/sources.list.d/debian.sources 2>/dev/null | head -n 1)
release=$(. /etc/os-release && echo "$VERSION_CODENAME")

rm -rf "$root" && mkdir -p "$root"
if [ "$(id -u)" = 0 ] && debootstrap --variant=minbase "$release" "$root" \
        "${mirror:-http://deb.debian.org/debian}" >build/live/debootstrap.log 2>&1; then
    mkdir -p "$root/debs" "$root/source/debian"
    cp "${debs[@]}" "$root/debs"
    rm -f "$root"/debs/*-dbgsym_*
    cp -r examples "$root/source"
    cp -r debian/tests "$root/source/debian"
    chroot "$root" apt-get install -y -qq --no-install-recommends $needs >build/live/install.log 2>&1 ||
        { tail build/live/install.log; exit 1; }
    # Nothing but what the packages depend on themselves.
    chroot "$root" sh -c 'apt-get install -y -qq --no-install-recommends /debs/*.deb' \
        >>build/live/install.log 2>&1 || { tail build/live/install.log; exit 1; }
    chroot "$root" sh -ec 'cd /source && sh debian/tests/consumer'
    chroot "$root" sh -ec 'velatable --version && test -e /usr/share/man/man1/velatable-run.1.gz'
    rm -rf "$root"
else
    echo "no Debian of our own is to be had: the packages are unpacked beneath an empty prefix"
    for deb in "${debs[@]}"; do dpkg-deb -x "$deb" "$root"; done
    lib=$(dirname "$(find "$root" -name 'libVelaRoutes.so')")
    env -i HOME="$root" LD_LIBRARY_PATH="$lib" PATH="$root/usr/bin:/usr/bin:/bin" \
        CMAKE_PREFIX_PATH="$root/usr" PKG_CONFIG_PATH="$lib/pkgconfig" sh -e debian/tests/consumer
fi
echo "packages: the agent of examples/embed was built and run with them"
