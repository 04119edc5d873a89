#!/usr/bin/python3
"""The flat functions from Python: prints the samples of the first attached pad until Enter is pressed."""

import ctypes
import sys

velawrap = ctypes.CDLL("libvelawrap.so.1")
PenEventHandler = ctypes.CFUNCTYPE(None, ctypes.c_int32, ctypes.c_int32, ctypes.c_int32, ctypes.c_uint8,
                                   ctypes.c_uint32, ctypes.c_uint32)


def declare(name, result, *arguments):
    function = getattr(velawrap, name)
    function.restype = result
    function.argtypes = arguments
    return function


handle = ctypes.c_void_p
new = declare("newgIIVela", handle)
delete = declare("deletegIIVela", None, handle)
num_providers = declare("GetNumProviders", ctypes.c_short, handle)
class_id = declare("GetProviderClassID", ctypes.c_char_p, handle, ctypes.c_short)
description = declare("GetProviderDescription", ctypes.c_char_p, handle, ctypes.c_short)
open_provider = declare("OpenProvider", ctypes.c_bool, handle, ctypes.c_char_p)
close_provider = declare("CloseProvider", None, handle)
num_devices = declare("GetNumDevices", ctypes.c_short, handle)
register = declare("RegisterEventHandler", ctypes.c_bool, handle, PenEventHandler)
open_connection = declare("OpenConnection", ctypes.c_bool, handle)
close_connection = declare("CloseConnection", None, handle)


@PenEventHandler  # called on a thread of the SDK
def show_sample(x, y, pressure, touch, timestamp, sequence):
    print(f"{sequence}: x {x} y {y} pressure {pressure} {'down' if touch else 'up'}", flush=True)


def first_attached(vela):
    """Leaves the provider of an attached pad open and returns its name."""
    for index in range(num_providers(vela)):
        open_provider(vela, class_id(vela, index))
        if num_devices(vela) > 0:
            return description(vela, index).decode()
        close_provider(vela)
    return None


vela = new()
name = first_attached(vela)
if name is None:
    sys.exit("No pad is attached.")
print(f"{name}, press Enter to end", flush=True)
register(vela, show_sample)
open_connection(vela)
sys.stdin.readline()
close_connection(vela)
close_provider(vela)
delete(vela)
