#!/usr/bin/env bash
# Builds the Debian package, unpacks it into a scratch root and checks what a user's system
# would get: every file in its place, a menu entry, icon and metadata that the desktop's own
# validators accept, a binary that answers --version without a display, and no lintian error.
# Usage: check-package.sh BUILD_DIR SOURCE_DIR SCRATCH_DIR WITH_SIM(ON|OFF)
set -euo pipefail
build=$1 source=$2 scratch=$3 with_sim=$4
fail() { echo "FAIL: $*" >&2; exit 1; }

rm -rf "$scratch" && mkdir -p "$scratch/out" "$scratch/root"
cpack -G DEB --config "$build/CPackConfig.cmake" -B "$scratch/out" >"$scratch/cpack.log" 2>&1 \
    || { cat "$scratch/cpack.log"; fail "cpack could not build the package"; }
deb=$(ls "$scratch"/out/*.deb)
[[ $(echo "$deb" | wc -l) -eq 1 ]] || fail "expected one package, got: $deb"
dpkg-deb -x "$deb" "$scratch/root"
root=$scratch/root
id=org.varnex.Desktop

for file in usr/bin/varnex-desktop \
    usr/share/applications/$id.desktop \
    usr/share/mime/packages/$id.xml \
    usr/share/metainfo/$id.metainfo.xml \
    usr/share/icons/hicolor/scalable/apps/$id.svg \
    usr/share/man/man1/varnex-desktop.1.gz \
    usr/share/doc/varnex-desktop/copyright \
    usr/share/doc/varnex-desktop/changelog.gz \
    usr/share/nautilus-python/extensions/varnex-desktop.py; do
    [[ -f $root/$file ]] || fail "missing /$file"
done
[[ -x $root/usr/bin/varnex-desktop ]] || fail "/usr/bin/varnex-desktop is not executable"
for size in 48 128 256; do
    png=$root/usr/share/icons/hicolor/${size}x${size}/apps/$id.png
    file -b "$png" | grep -q "PNG image data, $size x $size," || fail "$png is not a $size px PNG"
done
if [[ $with_sim == ON ]]; then
    [[ -x $root/usr/bin/varnex-phone-sim ]] || fail "the simulator was asked for but is missing"
else
    [[ ! -e $root/usr/bin/varnex-phone-sim ]] || fail "the simulator is installed without being asked for"
fi
# Nothing outside the places a Debian package may use.
stray=$(cd "$root" && find . -mindepth 1 -maxdepth 2 | grep -v -e '^\./usr$' -e '^\./usr/bin$' -e '^\./usr/share$' || true)
[[ -z $stray ]] || fail "unexpected paths: $stray"

depends=$(dpkg-deb -f "$deb" Depends)
for library in libc6 libqt6widgets6 libqt6network6 libcurl4 libarchive13 libqrencode4; do
    [[ $depends == *"$library "* ]] || fail "Depends lacks $library: $depends"
done

[[ $(dpkg-deb -f "$deb" Recommends) == *python3-nautilus* ]] || fail "python3-nautilus is not recommended"
desktop-file-validate "$root/usr/share/applications/$id.desktop"
"$source/tests/package/check-desktop-files.sh" "$root/usr" "$scratch/desktop" /usr
appstreamcli validate --no-net "$root/usr/share/metainfo/$id.metainfo.xml"
# Each screenshot the metadata names is one of the project's own.
grep -o '<image>[^<]*</image>' "$root/usr/share/metainfo/$id.metainfo.xml" | sed 's/<[^>]*>//g' |
    while read -r url; do
        [[ -f $source/docs/screenshots/${url##*/} ]] || fail "screenshot ${url##*/} is not in docs/screenshots"
    done

# The installed binary answers without a display, settings or a home of its own.
home=$scratch/home && mkdir -p "$home"
version=$(env -i HOME="$home" "$root/usr/bin/varnex-desktop" --version)
[[ $version == "Varnex Desktop 1.0.0" ]] || fail "--version printed '$version'"
[[ -z $(ls -A "$home") ]] || fail "--version wrote into the home folder: $(ls -A "$home")"

status=0
report=$(lintian --fail-on error --tag-display-limit 0 "$deb" 2>&1) || status=$?
grep -v 'running with root privileges' <<<"$report" || true
[[ $status -eq 0 ]] || fail "lintian reports errors"
echo "package ok: $deb"
