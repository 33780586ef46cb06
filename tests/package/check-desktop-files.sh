#!/usr/bin/env bash
# Checks the files that tie Varnex Desktop into the desktop, as installed under PREFIX (a
# scratch prefix of `cmake --install`, or /usr of the unpacked package): the type of encrypted
# files as shared-mime-info reads it, and the file managers' menu entries as each reads them.
# Usage: check-desktop-files.sh PREFIX SCRATCH_DIR
set -euo pipefail
prefix=$1 scratch=$2
share=$prefix/share
id=org.varnex.Desktop
fail() { echo "FAIL: $*" >&2; exit 1; }

for file in mime/packages/$id.xml \
    kio/servicemenus/$id.encrypt.desktop kio/servicemenus/$id.decrypt.desktop \
    nemo/actions/$id.encrypt.nemo_action nemo/actions/$id.decrypt.nemo_action \
    file-manager/actions/$id.encrypt.desktop file-manager/actions/$id.decrypt.desktop; do
    [[ -f $share/$file ]] || fail "missing $share/$file"
done

# The menu entry takes files and says it opens encrypted ones.
grep -qx 'Exec=varnex-desktop %F' "$share/applications/$id.desktop" || fail "the menu entry does not take files"
grep -qx 'MimeType=application/x-varnex-encrypted;' "$share/applications/$id.desktop" \
    || fail "the menu entry does not name the type of encrypted files"

# desktop-file-validate knows application entries only; a service menu (Type=Service) and a
# FileManager-Actions file (Type=Action) are desktop entries with keys of their own. Those
# complaints are expected, anything else (syntax, escapes, locales, unknown keys) fails.
validate() {
    local file=$1 allowed=$2 report
    report=$(desktop-file-validate "$file" 2>&1 || true)
    report=$(grep -v -E "$allowed" <<<"$report" || true)
    [[ -z $report ]] || fail "desktop-file-validate: $report"
}
for action in encrypt decrypt; do
    validate "$share/kio/servicemenus/$id.$action.desktop" \
        'key "(MimeType|Actions)" is present in group "Desktop Entry", but the type is "Service"'
    validate "$share/file-manager/actions/$id.$action.desktop" \
        'value "Action" for key "Type"|key "(Tooltip|Profiles)" in group "Desktop Entry", but keys extending'
    for file in "$share/kio/servicemenus/$id.$action.desktop" "$share/file-manager/actions/$id.$action.desktop" \
        "$share/nemo/actions/$id.$action.nemo_action"; do
        grep -qx 'Exec=varnex-desktop %F' "$file" || fail "$file does not start varnex-desktop with the files"
        grep -q '^Name\[de\]=' "$file" || fail "$file has no German name"
    done
    # Nemo reads its own group; these keys decide whether the entry shows at all.
    nemo=$share/nemo/actions/$id.$action.nemo_action
    [[ $(head -n1 "$nemo") == '[Nemo Action]' ]] || fail "$nemo is not a Nemo action"
    for key in Name Exec Selection Quote; do
        grep -q "^$key=" "$nemo" || fail "$nemo lacks $key"
    done
done
grep -qx 'MimeType=application/x-varnex-encrypted;' "$share/kio/servicemenus/$id.decrypt.desktop" \
    || fail "the KDE decrypt entry is not limited to encrypted files"

# The type as shared-mime-info builds it (update-mime-database refuses a malformed package),
# then as a desktop asks for it: xdg-mime answers through GIO, which reads that database.
rm -rf "$scratch/data" && mkdir -p "$scratch/data/mime/packages"
cp "$share/mime/packages/$id.xml" "$scratch/data/mime/packages/"
errors=$(XDG_DATA_HOME="$scratch/data" update-mime-database "$scratch/data/mime" 2>&1) || fail "update-mime-database: $errors"
[[ -z $errors ]] || fail "update-mime-database: $errors"
head -c 64 /dev/urandom >"$scratch/x.vx"
cp "$scratch/x.vx" "$scratch/x.VX"
query() {
    env XDG_CURRENT_DESKTOP=GNOME XDG_DATA_HOME="$scratch/data" XDG_DATA_DIRS="$scratch/data:/usr/share" \
        xdg-mime query filetype "$1"
}
[[ $(query "$scratch/x.vx") == application/x-varnex-encrypted ]] || fail "x.vx is $(query "$scratch/x.vx")"
# Only a lower-case extension counts as encrypted, in the program and in the type.
[[ $(query "$scratch/x.VX") != application/x-varnex-encrypted ]] || fail "x.VX counts as encrypted"
echo "desktop files ok: $prefix"
