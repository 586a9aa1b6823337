"""The C interface, called as other languages call it.

    ctypes_test.py LIBRARY
"""

import ctypes
import os
import sys
import tempfile
import threading
import types
import unittest
from ctypes import POINTER, byref, c_char, c_char_p, c_int, c_size_t, c_void_p

FAILED, OK, ABSENT = -1, 0, 1
PACKAGE, STREAM, CALLER = 1, 2, 4


class Error(ctypes.Structure):
    _fields_ = [("family", c_int), ("number", c_int), ("text", c_char_p)]


lib = ctypes.CDLL(sys.argv.pop(1))
c = types.SimpleNamespace()
BYTES = c_char_p, c_size_t
FOUND = POINTER(c_void_p), POINTER(c_size_t)
for name, result, *arguments in (
        ("last_error", POINTER(Error)),
        ("open", c_void_p, c_char_p, c_char),
        ("open_memory", c_void_p, *BYTES, c_char),
        ("bytes", c_int, c_void_p, *FOUND),
        ("count", c_size_t, c_void_p),
        ("get", c_int, c_void_p, *BYTES, *FOUND),
        ("free", None, c_void_p),
        ("view", c_int, c_void_p, *BYTES, *FOUND),
        ("put", c_int, c_void_p, *BYTES, *BYTES),
        ("delete", c_int, c_void_p, *BYTES),
        ("rename", c_int, c_void_p, *BYTES, *BYTES),
        ("iterate", c_void_p, c_void_p, *BYTES),
        ("next", c_int, c_void_p, *FOUND),
        ("walk_free", None, c_void_p),
        ("save", c_int, c_void_p),
        ("close", c_int, c_void_p),
        ("discard", None, c_void_p)):
    function = getattr(lib, "vantry_hpack_" + name)
    function.restype, function.argtypes = result, arguments
    setattr(c, name, function)


def error():
    last = c.last_error().contents
    return last.family, last.number, last.text.decode()


def found(function, *arguments):
    """The bytes that `function` finds, or its result."""
    at, length = c_void_p(), c_size_t()
    result = function(*arguments, byref(at), byref(length))
    if result != OK:
        assert at.value is None and length.value == 0
        return result
    content = ctypes.string_at(at, length.value)
    if function is c.get:
        assert ctypes.string_at(at.value + length.value, 1) == b"\0"
        c.free(at)
    return content


def item(package, key):
    copied = found(c.get, package, key, len(key))
    viewed = found(c.view, package, key, len(key))
    if viewed == FAILED and copied != FAILED:
        assert error() == (CALLER, 0, "the package is not open in mode 'r'")
    else:
        assert copied == viewed
    return copied


def keys(package, prefix=b""):
    walk = c.iterate(package, prefix, len(prefix))
    listed = []
    while isinstance(key := found(c.next, walk), bytes):
        listed.append(key)
    assert key == ABSENT and found(c.next, walk) == ABSENT
    c.walk_free(walk)
    return listed


def add(package, key, body):
    return c.put(package, key, len(key), body, len(body))


class CInterface(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.path = os.fsencode(os.path.join(folder.name, "a.hpk"))

    def change(self, package):
        """Fills a new package; it holds a, ab and an empty key afterwards."""
        self.assertEqual(c.rename(package, b"a", 1, b"b", 1), FAILED)
        self.assertEqual(error(), (PACKAGE, 5, "File is not open in update mode"))
        self.assertEqual(c.delete(package, b"a", 1), FAILED)
        for key in b"ab", b"a", b"", b"b\0":
            self.assertEqual(add(package, key, key * 3), OK)
        self.assertEqual(c.save(package), OK)
        self.assertEqual([item(package, key) for key in (b"a", b"b\0", b"", b"x")],
                         [b"aaa", b"b\0b\0b\0", b"", ABSENT])
        self.assertEqual(keys(package, b"a"), [b"a", b"ab"])
        self.assertEqual(c.delete(package, b"x", 1), ABSENT)
        self.assertEqual(c.delete(package, b"a", 1), OK)
        self.assertEqual(c.rename(package, b"a", 1, b"c", 1), ABSENT)
        self.assertEqual(c.rename(package, b"b\0", 2, b"a", 1), OK)
        self.assertEqual(c.count(package), 3)

    def check(self, package):
        self.assertEqual(keys(package), [b"", b"a", b"ab"])
        self.assertEqual(item(package, b"a"), b"b\0b\0b\0")
        self.assertEqual(item(package, b"b\0"), ABSENT)
        self.assertEqual(c.count(package), 3)

    def test_file(self):
        package = c.open(self.path, b"w")
        self.change(package)
        self.assertEqual(c.close(package), OK)
        for mode in b"r", b"u":
            package = c.open(self.path, mode)
            self.check(package)
            self.assertEqual(c.save(package), OK if mode == b"u" else FAILED)
            self.assertEqual(add(package, b"late", b""), OK if mode == b"u" else FAILED)
            if mode == b"r":
                self.assertEqual(error(), (CALLER, 0, "the package is open for reading"))
            c.discard(package)
        package = c.open(self.path, b"r")
        self.check(package)
        self.assertEqual(c.close(package), OK)

    def test_memory(self):
        package = c.open_memory(None, 0, b"w")
        self.change(package)
        content = found(c.bytes, package)
        self.assertEqual(c.close(package), OK)
        package = c.open_memory(content, len(content), b"r")
        self.check(package)
        self.assertEqual(found(c.bytes, package), content)
        c.discard(package)
        package = c.open_memory(content, len(content), b"u")
        self.check(package)
        add(package, b"more", b"body")
        record, index = 12 + 4 + 4, 8 + (8 + 0) + (8 + 1) + (8 + 2) + (8 + 4)
        self.assertEqual(len(found(c.bytes, package)), len(content) + record + index)
        self.assertEqual(item(package, b"more"), b"body")
        c.discard(package)

    def test_errors(self):
        name = self.path.decode()
        self.assertIsNone(c.open(self.path, b"r"))
        self.assertEqual(error(), (STREAM, 0, "Cannot open file: " + name))
        self.assertIsNone(c.open(self.path, b"x"))
        self.assertEqual(error(), (STREAM, 5, "Invalid open mode"))
        self.assertIsNone(c.open_memory(b"x" * 16, 16, b"u"))
        self.assertEqual(error(), (PACKAGE, 3, "Input file is not in expected format: qtBuffer"))
        for refused, text in (
                (lambda: c.open(None, b"r"), "a null path"),
                (lambda: c.open_memory(None, 1, b"r"), "a null pointer with a length"),
                (lambda: c.get(None, b"", 0, None, None), "a null handle"),
                (lambda: found(c.bytes, package), "the package is in a file")):
            package = c.open(self.path, b"w")
            self.assertIn(refused(), (None, FAILED))
            self.assertEqual(error(), (CALLER, 0, text))
            c.discard(package)
        self.assertEqual((c.count(None), c.close(None)), (0, OK))
        c.discard(None)
        c.walk_free(None)
        c.free(None)

    def test_damaged_item(self):
        package = c.open_memory(None, 0, b"w")
        add(package, b"key", b"body")
        content = bytearray(found(c.bytes, package))
        c.discard(package)
        content[16] ^= 1
        damaged = bytes(content)
        for mode in b"r", b"u":
            package = c.open_memory(damaged, len(damaged), mode)
            self.assertEqual(found(c.get, package, b"key", 3), FAILED)
            self.assertEqual(error(), (PACKAGE, 4, "Key points to invalid item: key"))
            c.discard(package)

    def test_each_thread_has_its_error(self):
        self.assertIsNone(c.open(None, b"r"))
        seen = []
        thread = threading.Thread(target=lambda: seen.append(error()))
        thread.start()
        thread.join()
        self.assertEqual(seen, [(0, 0, "")])
        self.assertEqual(error()[0], CALLER)

    def test_closing_that_fails(self):
        package = c.open(b"/dev/full", b"w")
        add(package, b"key", b"x" * 100)
        self.assertEqual(c.close(package), FAILED)
        self.assertEqual(error()[0], STREAM)
        c.discard(package)


if __name__ == "__main__":
    unittest.main()
