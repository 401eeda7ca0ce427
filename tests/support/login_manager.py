"""A login manager on the bus of DBUS_SYSTEM_BUS_ADDRESS that writes down what it is asked for.

Prints "ready", then "WHAT MODE held" for each inhibitor and "released" when it is closed by all who have it. With the
argument "silent" it answers nothing and prints "asked" instead; with "useless" it gives no descriptor.
"""
import os
import sys

import dbus
import dbus.service
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib


def tell(text):
    print(text, flush=True)


class LoginManager(dbus.service.Object):
    def __init__(self, bus, mode):
        super().__init__(bus, "/org/freedesktop/login1")
        self._mode = mode

    @dbus.service.method("org.freedesktop.login1.Manager", in_signature="ssss", out_signature="h",
                         async_callbacks=("answer", "fail"))
    def Inhibit(self, what, who, why, mode, answer, fail):
        if self._mode == "silent":
            tell("asked")
            return
        if self._mode == "useless":
            fail(dbus.DBusException("No more inhibitors", name="org.freedesktop.DBus.Error.LimitsExceeded"))
            return
        ours, theirs = os.pipe()
        GLib.io_add_watch(ours, GLib.IO_HUP, self._released)
        answer(dbus.types.UnixFd(theirs))
        os.close(theirs)
        tell(f"{what} {mode} held" if who and why else "it does not say who or why")

    @staticmethod
    def _released(descriptor, condition):
        os.close(descriptor)
        tell("released")
        return False


DBusGMainLoop(set_as_default=True)
bus = dbus.SystemBus()
name = dbus.service.BusName("org.freedesktop.login1", bus)
manager = LoginManager(bus, sys.argv[1] if len(sys.argv) > 1 else "")
tell("ready")
GLib.MainLoop().run()
