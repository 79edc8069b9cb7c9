#!/usr/bin/python3
"""A registrar client written from the interface file alone.

Run by the started-server tests as "registrar_client.py ADDRESS observe BUNDLE":
observes the bundle, prints "observing", then the first token it is sent, and
exits 0, or 3 when python3-dbus is missing.
"""
import ctypes
import sys
import time

try:
    import dbus
    from dbus.mainloop.glib import DBusGMainLoop
except ImportError:
    print("python3-dbus is not installed")
    sys.exit(3)

SERVICE = "com.tamber.Tessel.Registrar"
PATH = "/com/tamber/Tessel/Registrar"
REGISTRAR = "com.tamber.Tessel.Registrar1"
CLIENT = "com.tamber.Tessel.RegistrarClient1"
TIMEOUT = 10


def print_first_token(bus, registrar, bundle_identifier):
    """Observes the bundle and prints the first token that arrives."""
    tokens = []
    bus.add_signal_receiver(
        lambda token, bundle, destination=None: tokens.append((bytes(token), str(bundle), destination)),
        signal_name="DidReceiveDeviceToken", dbus_interface=CLIENT, byte_arrays=True,
        destination_keyword="destination")
    registrar.SetObservingRemoteNotifications(True, bundle_identifier, timeout=TIMEOUT)
    print("observing", flush=True)

    # Signals are dispatched by GLib's default context; a short timeout source
    # keeps each blocking iteration bounded without python3-gi.
    glib = ctypes.CDLL("libglib-2.0.so.0")
    wake = ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_void_p)(lambda _: 0)
    deadline = time.monotonic() + TIMEOUT
    while not tokens and time.monotonic() < deadline:
        glib.g_timeout_add(100, wake, None)
        glib.g_main_context_iteration(None, 1)
    for token, bundle, destination in tokens[:1]:
        addressed = "unicast" if destination == bus.get_unique_name() else "broadcast"
        print("token", token.hex(), bundle, addressed)


def main():
    DBusGMainLoop(set_as_default=True)
    bus = dbus.bus.BusConnection(sys.argv[1])
    registrar = dbus.Interface(bus.get_object(SERVICE, PATH), REGISTRAR)
    print_first_token(bus, registrar, sys.argv[3])
    return 0


if __name__ == "__main__":
    sys.exit(main())
