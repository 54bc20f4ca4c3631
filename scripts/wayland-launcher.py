#!/usr/bin/env python3
"""A window on Wayland that asks for activation tokens, as launchers do. For each line that it reads, it
has a key pressed, and then prints a token. Without the key, the compositor gives no valid one."""

import subprocess

import gi

gi.require_version("Gtk", "4.0")
from gi.repository import Gio, GLib, Gtk

loop = GLib.MainLoop()
window = Gtk.Window(title="launcher")
keys = Gtk.EventControllerKey()
application = Gio.AppInfo.create_from_commandline(
    "viewer", None, Gio.AppInfoCreateFlags.SUPPORTS_STARTUP_NOTIFICATION)


def press_key(standard_input, _condition):
    if standard_input.readline():
        subprocess.Popen(["wtype", "a"])
    else:
        loop.quit()
    return True  # watch on


def print_token(*_key):
    context = window.get_display().get_app_launch_context()
    print(context.get_startup_notify_id(application, []), flush=True)


keys.connect("key-pressed", print_token)
window.add_controller(keys)
GLib.io_add_watch(GLib.IOChannel.unix_new(0), GLib.IO_IN | GLib.IO_HUP, press_key)
window.present()
loop.run()
