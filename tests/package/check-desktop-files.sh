#!/usr/bin/env bash
# Checks the files that tie Varnex Desktop into the desktop, as installed under PREFIX (a
# scratch prefix of `cmake --install`, or /usr of the unpacked package): the type of encrypted
# files as shared-mime-info reads it, and the file managers' menu entries as each reads them.
# Usage: check-desktop-files.sh PREFIX SCRATCH_DIR [INSTALLED_PREFIX]
# INSTALLED_PREFIX is where PREFIX is on a user's system (/usr for the unpacked package).
set -euo pipefail
prefix=$1 scratch=$2 installed=${3:-$1}
share=$prefix/share
id=org.varnex.Desktop
fail() { echo "FAIL: $*" >&2; exit 1; }

for file in mime/packages/$id.xml \
    kio/servicemenus/$id.encrypt.desktop kio/servicemenus/$id.decrypt.desktop \
    nemo/actions/$id.encrypt.nemo_action nemo/actions/$id.decrypt.nemo_action \
    file-manager/actions/$id.encrypt.desktop file-manager/actions/$id.decrypt.desktop \
    nautilus-python/extensions/varnex-desktop.py Thunar/sendto/$id.desktop \
    bash-completion/completions/varnex-desktop dbus-1/services/$id.service; do
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

# Thunar's "Send To" entry is an application entry; the autostart entry "Start at login" writes too.
desktop-file-validate "$share/Thunar/sendto/$id.desktop"
grep -qx 'Exec=varnex-desktop -- %F' "$share/Thunar/sendto/$id.desktop" || fail "Send To does not pass the files"
desktop-file-validate "$(dirname "$0")/../../resources/autostart/$id.desktop"

# The session bus starts the installed program, hidden, for a call.
grep -qx "Name=$id" "$share/dbus-1/services/$id.service" || fail "the bus service file names another service"
grep -qx "Exec=$installed/bin/varnex-desktop --serve" "$share/dbus-1/services/$id.service" \
    || fail "the bus service does not start $installed/bin/varnex-desktop --serve: $(grep Exec "$share/dbus-1/services/$id.service")"

# GNOME Files' extension, with stand-ins for nautilus-python: the entries each selection gets.
python3 - "$share/nautilus-python/extensions/varnex-desktop.py" <<'PY' || fail "the GNOME Files extension"
import sys, types
class Item:
    def __init__(self, name, label, icon=None): self.name, self.label, self.submenu = name, label, None
    def connect(self, *args): pass
    def set_submenu(self, menu): self.submenu = menu
class Menu:
    def __init__(self): self.items = []
    def append_item(self, item): self.items.append(item)
repository = types.SimpleNamespace(GObject=types.SimpleNamespace(GObject=type("G", (), {})), Gio=None, GLib=None,
                                   Nautilus=types.SimpleNamespace(MenuItem=Item, Menu=Menu, MenuProvider=object))
sys.modules["gi"] = types.SimpleNamespace(require_version=lambda *args: None)
sys.modules["gi.repository"] = repository
extension = {}
exec(compile(open(sys.argv[1]).read(), sys.argv[1], "exec"), extension)
def names(paths, recent=lambda: ([], [])):
    shown = []
    for item in extension["menu_items"](paths, recent):
        shown.append(item.label)
        shown += ["  " + sub.label for sub in (item.submenu.items if item.submenu else [])]
    return shown
recent = lambda: (["Family"], ["ann@example.com"])
cases = [(["/a/r.pdf", "/a/b"], recent, ["Encrypt with Varnex Desktop", "Encrypt for", "  Group Family", "  ann@example.com"]),
         (["/a/r.pdf"], lambda: ([], []), ["Encrypt with Varnex Desktop"]),
         (["/a/r.pdf.vx", "/a/x.vx"], recent, ["Decrypt with Varnex Desktop"]),
         (["/a/r.pdf.vx", "/a/r.pdf"], recent, []), (["/a/r.VX"], lambda: ([], []), ["Encrypt with Varnex Desktop"])]
for paths, given, expected in cases:
    assert names(paths, given) == expected, (paths, names(paths, given))
PY

# Completion: commands, options, and e-mails and group names from the running program (a
# stand-in here, which must be asked without starting anything).
mkdir -p "$scratch/bin"
cat >"$scratch/bin/varnex-desktop" <<'SH'
#!/bin/sh
[ "$2" = --no-start ] || exit 9
[ "$1" = people ] && printf 'ann@example.com\tAnn Lee\nbob@example.com\tBob\n'
[ "$1" = groups ] && printf 'Project Apollo\tann@example.com\nFamily\tbob@example.com\n'
SH
chmod +x "$scratch/bin/varnex-desktop"
complete_line() {
    PATH="$scratch/bin:$PATH" bash -c 'source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1))
        _varnex_desktop; printf "%s\n" "${COMPREPLY[@]}"' _ "$share/bash-completion/completions/varnex-desktop" "$@"
}
[[ $(complete_line varnex-desktop pe) == people ]] || fail "completion of a command: $(complete_line varnex-desktop pe)"
[[ $(complete_line varnex-desktop encrypt --w) == --wait ]] || fail "completion of an option"
[[ $(complete_line varnex-desktop encrypt --to a) == ann@example.com ]] || fail "completion of an e-mail"
[[ $(complete_line varnex-desktop encrypt --group P) == 'Project\ Apollo' ]] \
    || fail "completion of a group: $(complete_line varnex-desktop encrypt --group P)"

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
