#!/usr/bin/env python3
"""A host in Python: loads the library with ctypes and turns frames into Pillow pictures.

    capture.py ADDRESS GROUP COUNT [LIBRARY]

Saves COUNT pictures of a camera (GROUP 1 or 2) as picture-1.png and so on. The password of the user "admin" comes from
KOLVEX_PASSWORD. Exit codes: 0 all came, 1 wrong usage, 3 the library refused, 4 too few pictures in 20 seconds.

An object of a C++ interface is a pointer to a table of functions. On Linux (the ABI of Itanium C++) the destructor
takes the first two places, so slot N of the interface is place N + 1; each function gets the object first. Tables of
the library's objects are read here, tables of the host's objects are made.
"""
import io
import os
import queue
import sys
from ctypes import (CDLL, CFUNCTYPE, POINTER, c_bool, c_char_p, c_uint16, c_uint32, c_void_p, cast, create_string_buffer,
                    string_at)

from PIL import Image

JPEG, MOST_SLOTS = 1, 24


def call(this, slot, result, *arguments):
    """Calls slot number slot of an object of the library. Arguments are pairs of ctypes type and value."""
    table = cast(cast(this, POINTER(c_void_p))[0], POINTER(c_void_p))
    function = CFUNCTYPE(result, c_void_p, *[kind for kind, _ in arguments])(table[slot + 1])
    return function(this, *[value for _, value in arguments])


class HostObject:
    """An object of the host's: slots maps a number to (result type, argument types, function)."""

    def __init__(self, slots):
        nothing = CFUNCTYPE(c_uint32, c_void_p)(lambda this: 0)
        self.keep = [nothing]  # what the library points to must not be collected
        self.table = (c_void_p * MOST_SLOTS)(*[cast(nothing, c_void_p).value] * MOST_SLOTS)
        for slot, (result, arguments, function) in slots.items():
            # The lambda drops the object itself, which Python functions have no use for.
            made = CFUNCTYPE(result, c_void_p, *arguments)(lambda this, *rest, f=function: f(*rest))
            self.keep.append(made)
            self.table[slot + 1] = cast(made, c_void_p).value
        self.place = c_void_p(cast(self.table, c_void_p).value)
        self.pointer = cast(POINTER(c_void_p)(self.place), c_void_p).value


class Text(bytes):
    """A text that stays where it is while the library reads it."""

    def pointer(self):
        self.buffer = create_string_buffer(self)
        return cast(self.buffer, c_void_p).value


def gives(kind, value):
    return (kind, (), lambda: value)


def camera_params(address, group, texts):
    """IIPDriverParams for one camera, with all that hangs on it. texts keeps the texts."""

    def text(value):
        texts.append(Text(value.encode()))
        return texts[-1].pointer()

    settings = {2: text(group), 3: text("1"), 4: text("16"), 5: text("4")}
    device = HostObject({2: gives(c_void_p, text("unknown")), 3: gives(c_uint32, 1), 5: gives(c_uint32, 0),
                         6: gives(c_uint32, 0)})
    connection = HostObject({1: gives(c_void_p, text(address)), 2: gives(c_uint16, 80), 4: gives(c_uint32, JPEG),
                             5: gives(c_void_p, text("admin")),
                             6: gives(c_void_p, text(os.environ.get("KOLVEX_PASSWORD", "")))})
    params = HostObject({1: gives(c_void_p, device.pointer), 2: gives(c_void_p, connection.pointer),
                         4: (c_void_p, (c_uint32,), lambda index: settings.get(index, 0))})
    texts += [device, connection]
    return params


def video_params(width, height, interval_ms, quality, keep):
    resolution = HostObject({1: gives(c_uint16, width), 2: gives(c_uint16, height)})
    layout = HostObject({3: gives(c_void_p, resolution.pointer)})
    rate = HostObject({1: gives(c_uint16, interval_ms), 3: gives(c_uint16, quality)})
    keep += [resolution, layout, rate]
    return HostObject({1: gives(c_void_p, layout.pointer), 2: gives(c_void_p, rate.pointer)})


class Frames:
    """IFrameAllocator and IFrameSink of one channel. The library has one frame at a time; its bytes are copied."""

    def __init__(self):
        self.pictures = queue.Queue(maxsize=10)
        self.size, self.buffer = 0, create_string_buffer(0)
        self.frame = HostObject({2: (c_void_p, (), lambda: cast(self.buffer, c_void_p).value),
                                 4: (c_uint32, (c_uint32,), self.set_size)})
        self.allocator = HostObject({2: (c_void_p, (c_uint32, c_uint32, c_char_p), self.allocate)})
        self.sink = HostObject({1: (c_bool, (c_void_p,), self.on_frame)})

    def set_size(self, size):
        self.size = size
        return 0

    def allocate(self, four_cc, capacity, owner):
        if len(self.buffer) < capacity:
            self.buffer = create_string_buffer(capacity)
        return self.frame.pointer

    def on_frame(self, frame):
        # On the library's receive thread: nothing slow here.
        try:
            self.pictures.put_nowait(string_at(self.buffer, self.size))
        except queue.Full:
            pass
        return True


def main():
    if not 4 <= len(sys.argv) <= 5:
        print(__doc__.split("\n\n")[1].strip(), file=sys.stderr)
        return 1
    address, group, count = sys.argv[1], sys.argv[2], int(sys.argv[3])
    library = CDLL(sys.argv[4] if len(sys.argv) == 5 else "libkolvexipcapture.so.0")
    library.CreateIPCaptureEx3.restype = c_void_p
    library.DeleteIPCaptureEx3.argtypes = [c_void_p]
    keep, frames, came = [], Frames(), 0
    params, wanted = camera_params(address, group, keep), video_params(640, 480, 40, 60, keep)
    driver = library.CreateIPCaptureEx3()
    try:
        if not call(driver, 1, c_bool, (c_void_p, None), (c_void_p, frames.allocator.pointer),
                    (c_void_p, params.pointer)):  # Open
            return 3
        video = call(driver, 3, c_void_p)  # GetVideoCapture
        if not call(video, 2, c_bool, (c_uint32, 0), (c_void_p, frames.sink.pointer),
                    (c_void_p, wanted.pointer)):  # StartCapture
            return 3
        while came < count:
            picture = Image.open(io.BytesIO(frames.pictures.get(timeout=20)))
            came += 1
            picture.save(f"picture-{came}.png")
            print(f"picture-{came}.png: {picture.width}x{picture.height}")
    except queue.Empty:
        return 4
    finally:
        library.DeleteIPCaptureEx3(driver)  # ends everything; no callback comes after it
    return 0


if __name__ == "__main__":
    sys.exit(main())
