"""A login manager on the bus of DBUS_SYSTEM_BUS_ADDRESS that writes down what it is asked for.

Prints "ready", then "WHAT MODE held" for each inhibitor and "released" when it is closed by all who have it. With the
argument "silent" it answers nothing and prints "asked" instead; with "useless" it gives no descriptor.
"""
import functools
import os
import sys

import dbus
import dbus.service
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib

tell = functools.partial(print, flush=True)


class LoginManager(dbus.service.Object):
    @dbus.service.method("org.freedesktop.login1.Manager", in_signature="ssss", out_signature="h",
                         async_callbacks=("answer", "fail"))
    def Inhibit(self, what, who, why, mode, answer, fail):
        if "silent" in sys.argv:
            return tell("asked")
        if "useless" in sys.argv:
            return fail(dbus.DBusException("No more inhibitors", name="org.freedesktop.DBus.Error.LimitsExceeded"))
        ours, theirs = os.pipe()
        GLib.io_add_watch(ours, GLib.IO_HUP, lambda *_: os.close(ours) or tell("released"))
        answer(dbus.types.UnixFd(theirs))
        os.close(theirs)
        tell(f"{what} {mode} held" if who and why else "it does not say who or why")


DBusGMainLoop(set_as_default=True)
name = dbus.service.BusName("org.freedesktop.login1", dbus.SystemBus())
manager = LoginManager(name, "/org/freedesktop/login1")
tell("ready")
GLib.MainLoop().run()
