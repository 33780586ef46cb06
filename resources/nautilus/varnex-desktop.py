# "Encrypt with Varnex Desktop" / "Decrypt with Varnex Desktop" in GNOME Files (nautilus-python),
# and "Encrypt for" the groups and people the last encryptions were for, straight through the
# running program's session bus service (org.varnex.Desktop). The menu never starts the program
# to build itself: without it running, only the two entries that open its window show.
import locale
import subprocess

import gi

try:
    gi.require_version("Nautilus", "4.0")
except ValueError:
    gi.require_version("Nautilus", "3.0")
from gi.repository import GObject, Gio, GLib, Nautilus  # noqa: E402

BUS_NAME = "org.varnex.Desktop"
PROGRAM = "varnex-desktop"
GERMAN = (locale.getlocale()[0] or "").startswith("de")
TEXTS = {
    "encrypt": "Mit Varnex Desktop verschlüsseln" if GERMAN else "Encrypt with Varnex Desktop",
    "decrypt": "Mit Varnex Desktop entschlüsseln" if GERMAN else "Decrypt with Varnex Desktop",
    "encrypt_for": "Verschlüsseln für" if GERMAN else "Encrypt for",
    "group": "Gruppe {}" if GERMAN else "Group {}",
}


def is_encrypted(name):
    # The program's rule: the last non-empty dot-separated piece is exactly "vx".
    pieces = [piece for piece in name.split(".") if piece]
    return bool(pieces) and pieces[-1] == "vx"


def local_paths(files):
    paths = []
    for item in files:
        location = item.get_location()
        path = location.get_path() if location else None
        if not path or item.is_directory():
            return []
        paths.append(path)
    return paths


def open_in_window(paths):
    # The window takes the files into the list their names fit.
    subprocess.Popen([PROGRAM, "--", *paths], stdin=subprocess.DEVNULL,
                     stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True)


def recent_recipients():
    """The recent groups and people, when the program runs; quickly, or nothing."""
    try:
        bus = Gio.bus_get_sync(Gio.BusType.SESSION, None)
        proxy = Gio.DBusProxy.new_sync(
            bus, Gio.DBusProxyFlags.DO_NOT_AUTO_START | Gio.DBusProxyFlags.DO_NOT_LOAD_PROPERTIES,
            None, BUS_NAME, "/", BUS_NAME, None)
        if proxy.get_name_owner() is None:
            return [], []
        groups = proxy.call_sync("RecentGroups", None, Gio.DBusCallFlags.NO_AUTO_START, 300, None)
        people = proxy.call_sync("RecentPeople", None, Gio.DBusCallFlags.NO_AUTO_START, 300, None)
        return list(groups.unpack()[0]), list(people.unpack()[0])
    except GLib.Error:
        return [], []


def encrypt_for(paths, groups, people):
    def done(bus, result):
        try:
            bus.call_finish(result)
        except GLib.Error:
            # Refused (the phone is gone, a recipient unknown): the window shows the files.
            open_in_window(paths)

    bus = Gio.bus_get_sync(Gio.BusType.SESSION, None)
    bus.call(BUS_NAME, "/", BUS_NAME, "Encrypt", GLib.Variant("(asasas)", (people, groups, paths)),
             GLib.VariantType("(s)"), Gio.DBusCallFlags.NONE, 30000, None, done)


def menu_items(paths, recent):
    if not paths:
        return []
    encrypted = [is_encrypted(path.rsplit("/", 1)[-1]) for path in paths]
    if all(encrypted):
        item = Nautilus.MenuItem(name="VarnexDesktop::decrypt", label=TEXTS["decrypt"],
                                 icon="org.varnex.Desktop")
        item.connect("activate", lambda *_: open_in_window(paths))
        return [item]
    if any(encrypted):
        return []
    item = Nautilus.MenuItem(name="VarnexDesktop::encrypt", label=TEXTS["encrypt"], icon="org.varnex.Desktop")
    item.connect("activate", lambda *_: open_in_window(paths))
    items = [item]
    groups, people = recent()
    if groups or people:
        parent = Nautilus.MenuItem(name="VarnexDesktop::encryptFor", label=TEXTS["encrypt_for"])
        submenu = Nautilus.Menu()
        parent.set_submenu(submenu)
        for index, group in enumerate(groups):
            entry = Nautilus.MenuItem(name="VarnexDesktop::group%d" % index, label=TEXTS["group"].format(group))
            entry.connect("activate", lambda *_, g=group: encrypt_for(paths, [g], []))
            submenu.append_item(entry)
        for index, person in enumerate(people):
            entry = Nautilus.MenuItem(name="VarnexDesktop::person%d" % index, label=person)
            entry.connect("activate", lambda *_, p=person: encrypt_for(paths, [], [p]))
            submenu.append_item(entry)
        items.append(parent)
    return items


class VarnexDesktopMenu(GObject.GObject, Nautilus.MenuProvider):
    # Nautilus 43 passes the files alone, older ones the window first.
    def get_file_items(self, *args):
        return menu_items(local_paths(args[-1]), recent_recipients)
