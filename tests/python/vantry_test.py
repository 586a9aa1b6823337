"""Tests of the Python module; the argument names a class of tests, or `doctests`, `pages`
or `types`."""

import array
import concurrent.futures
import doctest
import errno
import fcntl
import http.server
import importlib
import importlib.metadata
import importlib.util
import io
import mmap
import multiprocessing
import os
import pathlib
import pickle
import random
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
import unittest
import urllib.request
import warnings

import vantry
import vantry.errors
import vantry.places
import vantry.repair

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))


class Packages(unittest.TestCase):
    def fails(self, kind, number, action, *arguments):
        with self.assertRaises(kind) as caught:
            action(*arguments)
        self.assertEqual(caught.exception.number, number)
        self.assertEqual(str(caught.exception), caught.exception.text)
        return caught.exception

    def test_random_operations_agree_with_a_dictionary(self):
        chance = random.Random(7)
        for where in "model.hpk", vantry.Buffer():
            model = {}
            package = vantry.open(where, "w")
            for step in range(2000):
                key = bytes(chance.choices(b"ab\0\xff", k=chance.randrange(4)))
                body = chance.randbytes(chance.choice((0, 9, 30, 20000)))
                if step % 50 == 0:
                    package.close()
                    package = vantry.open(where, "u")
                elif step % 3 == 1:
                    self.assertEqual(package.pop(key, None), model.pop(key, None))
                elif step % 3 == 2:
                    package.write(key, io.BytesIO(body))
                    model[key] = body
                else:
                    package[key] = model[key] = body
                self.assertEqual((len(package), package.get(b"a")), (len(model), model.get(b"a")))
            self.assertEqual(list(package.items()), sorted(model.items()))
            package.clear()
            package.close()
            with vantry.open(where) as package:
                self.assertEqual(dict(package), {})

    def test_keys_and_bodies_of_any_kind(self):
        with vantry.open(vantry.Buffer(), "w") as package:
            package["Grüße"] = "text"
            package["array"] = array.array("H", [0x6161])
            package[bytearray(b"b")] = memoryview(b"body")
            for key in 1, None, ["a"], array.array("d"):
                with self.assertRaisesRegex(TypeError, "^a key is bytes or str, not [a-zA-Z.]+$"):
                    package[key] = b""
            with self.assertRaisesRegex(TypeError, "^a body is bytes, str or a buffer, not list$"):
                package["b"] = [0] * 200000
            with self.assertRaisesRegex(TypeError, "bytes, str or a buffer is expected, not int"):
                vantry.tokenize(5)
            self.assertRaises(UnicodeEncodeError, package.__setitem__, "\ud800", b"")
            self.assertEqual(package, {b"b": b"body", "Grüße".encode(): b"text", b"array": b"aa"})

    def test_errors(self):
        pathlib.Path("other.hpk").write_bytes(bytes(99))
        error = self.fails(vantry.PackageError, 3, vantry.open, b"other.hpk")
        self.assertEqual(error.text, "Input file is not in expected format: other.hpk")
        self.assertEqual(error.arguments, (b"other.hpk",))
        for name, mode in ("a", ""), ("a", "x"), ("a", "rw"), ("a\0.hpk", "w"):
            self.assertRaises(ValueError, vantry.open, name, mode)

        with vantry.open("e.hpk", "w") as package:
            package[b"a"] = b"body"
            package.identity = 1, 2, 3
            for wrong in (1 << 32, 0, 0), (0, 1 << 16, 0), (0, 0, 256), (-1, 0, 0):
                self.assertRaises(ValueError, setattr, package, "identity", wrong)
            self.assertRaises(ValueError, setattr, package, "state", 256)
            self.assertRaisesRegex(TypeError, "not list", setattr, package, "state", [0])
            for action in (lambda: package["a"], lambda: package.update(a=b""),
                           lambda: package.write("a", []), lambda: package.rename("a", "b"),
                           lambda: package.pop("a"), lambda: package.size("a")):
                error = self.fails(vantry.PackageError, 5, action)
                self.assertIn("e.hpk is being created: close it and open it with 'u'", str(error))
            self.assertIn("a", package)
        with vantry.open("e.hpk") as package:
            error = self.fails(vantry.MissingKeyError, 4, package.__getitem__, b"\xff")
            self.assertIsInstance(error, KeyError)
            self.assertEqual(error.arguments, (b"e.hpk", b"\xff"))
            self.assertEqual(error.text, "Missing key in index: \\xff")
            for action in (lambda: package.rename("a", "b"), lambda: package.update(b=b"c"),
                           lambda: package.pop("a"), package.save, package.dead_space):
                error = self.fails(vantry.PackageError, 5, action)
                self.assertEqual(error.arguments, (b"e.hpk",))
            self.fails(vantry.MissingKeyError, 4, package.size, "b")
            file = package.file("a")
        self.assertTrue(package.closed)
        for action in package.__iter__, package.__len__, file.read, package.save:
            self.assertRaisesRegex(ValueError, "closed", action)

    def test_damage_gives_what_is_right_or_an_error(self):
        buffer = vantry.Buffer()
        with vantry.open(buffer, "w") as package:
            package.update(one="first body", two="second")
        content = bytes(buffer)
        at = content.index(b"second") - 4
        long = vantry.Buffer(content[:at] + b"\xff" * 4 + content[at + 4:])
        self.fails(vantry.StreamError, 3, vantry.open(long).get, "two")
        with vantry.open(long, "u") as package, package.file("two") as file:
            file.seek(2**32 - at - 4)  # around to the header
            self.assertRaises(vantry.StreamError, file.read, 4)
        for bit in range(8 * len(content)):
            damaged = bytearray(content)
            damaged[bit // 8] ^= 1 << bit % 8
            try:
                with vantry.open(vantry.Buffer(damaged)) as package:
                    for key, body in package.items():
                        with package.file(key) as file:
                            self.assertEqual((package.size(key), file.read()), (len(body), body))
            except vantry.Error as error:
                self.assertIn(error.number, range(7))
                # Whatever reading meets, the check has found.
                self.assertTrue(vantry.check(vantry.Buffer(damaged)))

    def test_repair_replaces_in_one_step(self):
        items = {b"one": b"first", b"two": b"longer than before"}
        with vantry.open("a.hpk", "w") as package:
            package.update(one="first", two="second")
        with vantry.open("a.hpk", "u") as package:
            package.update(items)
        size = os.path.getsize("a.hpk")
        os.symlink("a.hpk", "link")
        os.symlink("nowhere", "dangling")
        with open("a.hpk") as file:
            fcntl.flock(file, fcntl.LOCK_EX)
            waiting = threading.Thread(target=vantry.compact, args=["link"])
            waiting.start()
            time.sleep(0.1)
            self.assertEqual(os.path.getsize("a.hpk"), size)
            # What another program puts in its place meanwhile is what gets compacted.
            shutil.copy("a.hpk", "new")
            with vantry.open("new", "u") as package:
                package["one"] = items[b"one"] = b"first, replaced"
            os.chmod("new", 0o640)
            os.replace("new", "a.hpk")
        waiting.join()
        self.assertTrue(os.path.islink("link") and os.path.getsize("a.hpk") < size)
        self.assertEqual(vantry.check("a.hpk"), [])
        self.assertEqual(os.stat("a.hpk").st_mode & 0o777, 0o640)
        vantry.compact("a.hpk", "b.hpk", order="offset")
        recovery = vantry.recover("a.hpk", "c.hpk")
        self.assertEqual(recovery, ("good", True, 2, 2, 0, []))
        for name in "abc":
            with vantry.open(name + ".hpk") as package:
                self.assertEqual(dict(package), items)
        pathlib.Path("a.hpk").write_bytes(b"no package")
        for action in vantry.compact, vantry.recover:
            for taken in "link", "dangling":
                self.assertRaises(FileExistsError, action, "a.hpk", taken)
            self.fails(vantry.PackageError, 3, action, "a.hpk", "d.hpk")
        with vantry.open("a.hpk", "w") as package:
            package.update((b"%d" % i, b"") for i in range(50000))
        signal.signal(signal.SIGALRM, lambda *_: 1 // 0)
        for action in vantry.compact, vantry.recover:
            signal.setitimer(signal.ITIMER_REAL, 0.004)
            self.assertRaises(ZeroDivisionError, action, "a.hpk", "d.hpk")
        self.assertFalse([name for name in os.listdir() if name[0] == "." or name == "d.hpk"])

    def test_saving_and_letting_go(self):
        with vantry.open("s.hpk", "w") as package:
            package["a"] = b"1"
        package = vantry.open("s.hpk", "u")
        package["b"] = b"2"
        package.save()
        package["c"] = b"3"
        with self.assertWarnsRegex(ResourceWarning, r"<vantry.Package 's.hpk' mode='u'> was not"):
            del package
        with self.assertRaises(ZeroDivisionError), vantry.open("s.hpk", "u") as package:
            package["d"] = b"4"
            1 // 0
        large = mmap.mmap(-1, 1 << 31)  # a body that no package can have
        with vantry.open("s.hpk", "u") as package:
            self.assertEqual(list(package), [b"a", b"b"])
            package["a"] = bytes(100)
            package.write("a", [b"1" * 50, b"", b"2" * 50])
            package.save()
            size = os.path.getsize("s.hpk")
            package.write("a", [b"1"])
            package.save()
            self.assertEqual((package["a"], os.path.getsize("s.hpk")), (b"1", size))
            self.fails(vantry.StreamError, 4, package.write, "a", [bytes(1 << 21), large])
            self.assertEqual(package["a"], b"1")
        with warnings.catch_warnings():
            warnings.simplefilter("error")
            package = vantry.open("s.hpk")
            del package

    def test_errors_of_the_system(self):
        for mode in "ru":
            error = self.fails(vantry.StreamError, 0, vantry.open, "none/a.hpk", mode)
            self.assertIsInstance(error, FileNotFoundError)
            self.assertEqual((error.errno, error.filename), (errno.ENOENT, "none/a.hpk"))
            copy = pickle.loads(pickle.dumps(error))
            self.assertEqual((copy.errno, str(copy)), (errno.ENOENT, "Cannot open file: none/a.hpk"))
        self.fails(vantry.MissingFileError, 0, vantry.open, "none/a.hpk", "w")
        error = self.fails(vantry.StreamError, 0, vantry.open, ".", "w")
        self.assertEqual(error.errno, errno.EISDIR)
        package = vantry.open("/dev/full", "w")
        self.assertEqual(self.fails(vantry.StreamError, 2, package.close).errno, errno.ENOSPC)
        package.discard()
        pathlib.Path("cut.hpk").write_bytes(b"J[lf\0\0")
        self.assertIsNone(self.fails(vantry.StreamError, 3, vantry.open, "cut.hpk").errno)
        if os.geteuid() == 0:
            os.chmod("cut.hpk", 0o600)
            os.chmod(".", 0o755)
            os.seteuid(65534)
            try:
                for mode in "ruw":
                    error = self.fails(vantry.ForbiddenError, 0, vantry.open, "cut.hpk", mode)
                    self.assertIsInstance(error, PermissionError)
                    self.assertEqual(error.errno, errno.EACCES)
            finally:
                os.seteuid(0)

    def test_one_changes_a_package_at_a_time(self):
        vantry.open("l.hpk", "w").close()

        def others(expected):
            """Whether another program can change it, by the module and by the tools' lock."""
            program = "import sys, vantry; vantry.open('l.hpk', sys.argv[1]).discard()"
            for mode in "uw":
                run = subprocess.run([sys.executable, "-c", program, mode], stderr=subprocess.PIPE)
                message = b"BusyError: l.hpk is being changed by another program: process %d (py"
                self.assertEqual(message % os.getpid() not in run.stderr, expected, run.stderr)
            with open("l.hpk") as file:
                try:
                    fcntl.flock(file, fcntl.LOCK_EX | fcntl.LOCK_NB)
                except BlockingIOError:
                    self.assertFalse(expected)
                else:
                    self.assertTrue(expected)
                    error = self.fails(vantry.BusyError, 0, vantry.open, "l.hpk", "u")
                    self.assertIsInstance(error, BlockingIOError)

        with vantry.open("l.hpk", "u") as package:
            package["a"] = b"1"
            with self.assertRaisesRegex(vantry.BusyError, "is being changed by this program"):
                vantry.open("l.hpk", "u")
            others(False)
            read, write = os.pipe()
            child = os.fork()
            if child == 0:
                try:
                    with self.assertRaisesRegex(ValueError, "by another process"):
                        package["b"] = b"2"
                    package.discard()
                    os.write(write, b"done")
                    time.sleep(60)
                finally:
                    os._exit(1)
            os.close(write)
            self.assertEqual(os.read(read, 4), b"done")
            others(False)
        others(True)  # although the child has inherited the lock
        os.kill(child, 9)
        os.waitpid(child, 0)
        with vantry.open("l.hpk", "w") as package:
            others(False)
        others(True)

    def test_creating_replaces_at_the_end(self):
        os.mkdir("folder")
        os.symlink("folder/n.hpk", "n")
        for text in b"1", b"2":
            former = os.listdir("folder")
            with self.assertRaises(ZeroDivisionError), vantry.open("n", "w") as package:
                package["a"] = b"none"
                1 // 0
            package = vantry.open("n", "w")
            with self.assertWarns(ResourceWarning):
                del package
            self.assertEqual(os.listdir("folder"), former)
            with vantry.open("n", "w") as package:
                package["a"] = text
                if former:
                    with vantry.open("n") as former:
                        self.assertEqual(former["a"], b"1")
            with vantry.open("n") as package:
                self.assertEqual(package["a"], text)
            os.chmod("n", 0o640)
        self.assertEqual(os.stat("n").st_mode & 0o777, 0o640)
        self.assertTrue(os.path.islink("n"))

    def test_a_buffer_has_readers_or_one_writer(self):
        buffer = vantry.Buffer()
        with vantry.open(buffer, "w") as package:
            package["a"] = b"1"
            for action in (lambda: bytes(buffer), lambda: len(buffer), lambda: vantry.open(buffer)):
                self.assertRaises(BufferError, action)
        with vantry.open(buffer) as first, vantry.open(buffer) as second:
            self.assertEqual(first, second)
            self.assertRaises(BufferError, vantry.open, buffer, "u")
        content = bytes(buffer)
        self.assertRaises(vantry.StreamError, vantry.open, vantry.Buffer(content[:7]), "u")
        with vantry.open(buffer, "u") as package:
            del package["a"]

    def test_items_in_pieces(self):
        def source(size, end=lambda: None):
            for start in range(0, size, 70000):
                yield b"x" * min(70000, size - start)
            end()
            yield b""

        def memory():
            with open("/proc/self/status") as status:
                return int(re.search(r"VmHWM:\s+(\d+)", status.read())[1])

        before = memory()
        with vantry.open("pieces.hpk", "w") as package:
            package.write("large", source(100_000_000))
            package.write("empty", [])
        self.assertLess(memory() - before, 16_000)
        with vantry.open("pieces.hpk", "u") as package:
            self.assertEqual((package.size("large"), package["empty"]), (100_000_000, b""))
            package["a"] = b"former"
            for size in 10, 3_000_000:
                self.assertRaises(ZeroDivisionError, package.write, "a",
                                  source(size, lambda: 1 // 0))
                self.assertRaises(ValueError, package.write, "a", source(
                    3_000_000, lambda: package.write("b", source(3_000_000))))
                self.fails(vantry.StreamError, 4, package.write, "a", source(
                    3_000_000, lambda: package.update(c=bytes(size))))
                self.assertEqual(package["a"], b"former")
            waiting = threading.Thread(target=package.update, kwargs={"c": b"1"})
            package.write("a", source(3_000_000, waiting.start))
            waiting.join()
            self.assertEqual((package.size("a"), package["c"]), (3_000_000, b"1"))
            self.assertRaises(ValueError, package.write, "b", source(3_000_000, package.discard))
        self.assertEqual(vantry.check("pieces.hpk"), [])

    def test_sorted_reading(self):
        chance = random.Random(5)
        keys = {bytes(chance.choices(b"a\0\xff", k=chance.randrange(5))) for _ in range(600)}
        model = {key: chance.randbytes(chance.choice((3, 70000))) for key in sorted(keys)}
        buffer = vantry.Buffer()
        for where in "sorted.hpk", buffer:
            with vantry.open(where, "w") as package:
                package.update(model)
        file = io.BytesIO(bytes(buffer))
        for where, mode in ("sorted.hpk", "r"), (buffer, "r"), ("sorted.hpk", "u"), (file, "r"):
            with vantry.open(where, mode) as package:
                self.assertEqual(list(package.items()), list(model.items()))
                self.assertEqual(list(reversed(package.items())), list(model.items())[::-1])
                self.assertEqual(list(package.values()), list(model.values()))
                self.assertEqual(list(reversed(package)), list(model)[::-1])
                for start in b"", b"a", b"\xff", b"a\xff", b"\0\0\0\0\0", b"b", b"\xff\xff\xff\xff":
                    expected = {key: model[key] for key in model if key.startswith(start)}
                    prefix = package.prefix(start)
                    self.assertEqual((dict(prefix), len(prefix)), (expected, len(expected)))
                    for stop in b"", b"a", b"\xff\0", None:
                        part = package.range(start, stop)
                        self.assertEqual(list(part), [
                            key for key in model if key >= start and (stop is None or key < stop)])
                        both = [key for key in part if key.startswith(b"a")]
                        self.assertEqual(list(part.prefix("a")), both)
                        self.assertEqual(list(package.prefix("a").range(start, stop)), both)
                self.assertRaises(vantry.MissingKeyError, package.prefix("a").__getitem__, b"\xff")
                self.assertEqual(package.prefix("a").get(b"\xff"), None)
                self.assertRaises(TypeError, package.prefix, 5)
                self.assertEqual((package.get("none"), package.get("none", 1)), (None, 1))

    def test_views_outlive_the_package(self):
        buffer = vantry.Buffer()
        for where in "v.hpk", buffer:
            with vantry.open(where, "w") as package:
                package.update(small=b"body", large=bytes(100000))
            with vantry.open(where) as package:
                views = package.view("small"), package.view("large")
                for key in "small", "large":
                    self.assertEqual(package[key], package.view(key))
                self.assertRaises(vantry.MissingKeyError, package.view, "none")
            self.assertTrue(views[0].readonly and views[0].format == "B")
            if where is buffer:
                self.assertRaises(BufferError, vantry.open, buffer, "u")
            else:
                os.unlink(where)
            self.assertEqual((bytes(views[0]), len(views[1])), (b"body", 100000))
            del views
        with vantry.open(buffer, "u") as package:
            self.assertRaises(io.UnsupportedOperation, package.view, "small")

    def test_iteration_reaches_an_error_last(self):
        with vantry.open("i.hpk", "w") as package:
            package.update((b"%d" % i, b"x") for i in range(9))
        content = bytearray(pathlib.Path("i.hpk").read_bytes())
        content[content.index(b"5") - 1] ^= 1  # the length of the key in the record
        pathlib.Path("i.hpk").write_bytes(content)
        with vantry.open("i.hpk") as package:
            for walk, read in (package.items(), 5), (reversed(package.items()), 3):
                found = []
                with self.assertRaises(vantry.PackageError):
                    found.extend(iter(walk))
                self.assertEqual(len(found), read)
            self.assertEqual(len(list(package)), 9)

    def test_creating_where_missing(self):
        for count in range(2):
            for where in "a.hpk", vantry.Buffer():
                with vantry.open(where, "a") as package:
                    self.assertEqual(package.mode, "a")
                    package["a"] = b"%d" % len(package)
            with vantry.open("a.hpk") as package:
                self.assertEqual((package.name, package.mode, dict(package)),
                                 ("a.hpk", "r", {b"a": b"%d" % count}))

    def test_other_processes_get_a_package_by_its_path(self):
        os.mkdir("deeper")
        with vantry.open("deeper/p.hpk", "w") as package:
            package["a"] = b"1"
            self.assertRaises(TypeError, pickle.dumps, package)
        with vantry.open("deeper/p.hpk") as package:
            copy = pickle.dumps(package)
        os.chdir("deeper")
        with pickle.loads(copy) as package:
            self.assertEqual(package["a"], b"1")
            for method in "fork", "spawn", "forkserver":
                with multiprocessing.get_context(method).Pool(2) as pool:
                    self.assertEqual(pool.map(package.get, ["a", "b"]), [b"1", None])
        os.chdir("..")
        with vantry.open(io.BytesIO(pathlib.Path("deeper/p.hpk").read_bytes())) as package:
            self.assertEqual(pickle.loads(pickle.dumps(package))["a"], b"1")

    def test_texts(self):
        buffer = vantry.Buffer()
        with vantry.open(buffer, "w") as package:
            texts = vantry.text(package)
            texts.update(a="ä", b="")
            package[b"\xff"] = b"\xff"
            self.assertRaises(TypeError, texts.__setitem__, "c", b"bytes")
        with vantry.open(buffer) as package:
            texts = vantry.text(package)
            self.assertEqual((texts["a"], "a" in texts, b"a" in texts, len(texts)),
                             ("ä", True, False, 3))
            self.assertRaises(UnicodeDecodeError, list, texts)

    def test_names_that_are_offered(self):
        self.assertEqual({name for name in dir(vantry) if name[0] != "_"}, set(vantry.__all__))

    def test_installation(self):
        self.assertEqual(importlib.metadata.version("vantry"), vantry.__version__)
        shutil.copytree(os.path.dirname(vantry.__file__), "other/vantry",
                        ignore_dangling_symlinks=True)
        extension = next(pathlib.Path("other/vantry").glob("_vantry.*.so"))
        program = [sys.executable, "-c", "import vantry"]
        for name, text in (("_vantry.cpython-27-any.so", b"vantry is built for Python 2.7; this is"),
                           (extension.name, b"file too short")):
            extension.unlink()
            extension = extension.with_name(name)
            extension.touch()
            run = subprocess.run(program, env=dict(os.environ, PYTHONPATH="other"),
                                 stderr=subprocess.PIPE)
            self.assertIn(text, run.stderr)

    def test_hash_and_tokens(self):
        hash = vantry.PolyHash()
        self.assertEqual(hash.hash(b"hello world"), 0xDF1A7DD9)
        self.assertEqual(hash.extend(hash.hash(b"hello"), b" world"), 0xDF1A7DD9)
        self.assertLess(vantry.PolyHash(16, 0xA011, 0).hash(b"hello world"), 1 << 16)
        self.fails(vantry.HashError, 8, vantry.PolyHash, 33)
        self.assertEqual(vantry.tokenize(b"a,b;\0", ",;"), [b"a", b"b", b"\0"])


class RangeServer(http.server.BaseHTTPRequestHandler):
    """Serves ranges of `content`, and counts the requests."""

    content = b""
    requests = 0

    def do_GET(self):
        first, last = map(int, self.headers["Range"][len("bytes="):].split("-"))
        RangeServer.requests += 1
        self.send_response(206)
        self.end_headers()
        self.wfile.write(self.content[first:last + 1])

    def log_message(self, *_):
        pass


class RemoteFile:
    """A file object without a buffer: each read is a request."""

    def __init__(self, url, size):
        self.url, self.size, self.position = url, size, 0

    def seek(self, offset, whence=0):
        self.position = offset + (self.size if whence == 2 else 0)
        return self.position

    def readinto(self, into):
        last = self.position + len(into) - 1
        request = urllib.request.Request(
            self.url, headers={"Range": f"bytes={self.position}-{last}"})
        with urllib.request.urlopen(request) as answer:
            data = answer.read()
        into[:len(data)] = data
        self.position += len(data)
        return len(data)


class Sources(unittest.TestCase):
    def setUp(self):
        self.items = {b"%04d" % i: random.Random(i).randbytes(i * 20) for i in range(500)}
        buffer = vantry.Buffer()
        with vantry.open(buffer, "w") as package:
            package.update(self.items)
            package.identity = 7, 1, 0
            package.state = 4
        self.content = bytes(buffer)

    def test_requests(self):
        server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), RangeServer)
        serving = threading.Thread(target=server.serve_forever)
        serving.start()

        def requests(action, *arguments):
            before = RangeServer.requests
            action(*arguments)
            return RangeServer.requests - before

        try:
            RangeServer.content = self.content
            url = "http://127.0.0.1:%d/" % server.server_port
            with vantry.open(RemoteFile(url, len(self.content))) as package:
                self.assertEqual(RangeServer.requests, 2)  # the header and the index
                self.assertEqual(requests(lambda: (list(package), len(package), "x" in package)), 0)
                for key in b"0000", b"0007", b"0499":
                    self.assertEqual(requests(
                        lambda: self.assertEqual(package[key], self.items[key])), 1)
                self.assertEqual(requests(package.get, "none"), 0)
                file = package.file("0499")
                self.assertEqual(requests(file.read, 9), 2)
                self.assertEqual(requests(file.read), 0)
                self.assertEqual((package.identity[:3], package.state), ((7, 1, 0), 4))
        finally:
            server.shutdown()
            serving.join()
            server.server_close()

    def test_equal_to_a_package_in_a_file(self):
        def outcome(where, key):
            try:
                with vantry.open(where) as package:
                    return list(package), package[key], package.size(key), package.identity
            except vantry.Error as error:
                return error.number, type(error)

        chance = random.Random(3)
        buffer = vantry.Buffer()
        with vantry.open(buffer, "w") as package:
            package.update(one=b"first", two=b"second", three=b"")
        content = bytes(buffer)
        changed = [content[:length] for length in range(len(content))]
        for bit in range(8 * len(content)):
            changed.append(bytearray(content))
            changed[-1][bit // 8] ^= 1 << bit % 8
        for damaged in changed:
            pathlib.Path("equal.hpk").write_bytes(damaged)
            key = chance.choice(("one", "two", "three", "none"))
            self.assertEqual(outcome(io.BytesIO(damaged), key), outcome("equal.hpk", key))

    def test_index_before_other_data(self):
        with vantry.open("later.hpk", "w") as package:
            package.update(self.items)
        with vantry.open("later.hpk", "u") as package:
            package["0001"] = self.items[b"0001"] = bytes(100)  # after the index
        with open("later.hpk", "rb", buffering=0) as file, vantry.open(file) as package:
            self.assertEqual((package.name, dict(package)), ("later.hpk", self.items))

    def test_failures_of_the_file_object(self):
        class Slow(io.BytesIO):
            def readinto(self, into):
                kept.append(into)
                return super().readinto(into[:7])

        kept = []
        with vantry.open(Slow(self.content)) as package:
            self.assertEqual(package["0100"], self.items[b"0100"])
        self.assertEqual(bytes(kept[0][:4]), b"J[lf")

        class Failing(io.BytesIO):
            def readinto(self, into):
                if self.tell() > 16:
                    raise ZeroDivisionError
                return super().readinto(into)

        self.assertRaises(ZeroDivisionError, vantry.open, Failing(self.content))
        self.assertRaises(ValueError, vantry.open, io.BytesIO(self.content), "u")
        self.assertRaises(TypeError, vantry.open, 5)
        file = io.BytesIO(self.content)
        with vantry.open(file) as package:
            file.truncate(100)
            self.assertRaises(vantry.StreamError, package.get, "0400")


class Threads(unittest.TestCase):
    def run_all(self, works):
        with concurrent.futures.ThreadPoolExecutor(len(works)) as pool:
            for done in [pool.submit(work) for work in works]:
                done.result(60)

    def test_one_package_takes_calls_from_many(self):
        vantry.open("t.hpk", "w").close()
        with vantry.open("t.hpk", "u") as package:
            def work(number):
                for i in range(300):
                    key = b"%d/%d" % (number, i)
                    package[key] = key * 50
                    self.assertEqual(package[key], key * 50)
                    if i % 3 == 0:
                        del package[key]

            self.run_all([lambda n=n: work(n) for n in range(4)])
            self.assertEqual(len(package), 800)
            self.assertTrue(all(body == key * 50 for key, body in package.items()))

    def test_others_run_during_a_long_call(self):
        # Storing waits for another writer's lock, which ends with a thread that runs meanwhile.
        with vantry.Registry() as registry:
            lock = open(vantry.Registry.path()[:-3] + ".db.lock", "rb")
            fcntl.flock(lock, fcntl.LOCK_EX)

            def release():
                time.sleep(0.1)
                self.assertNotIn("key", vantry.Registry("r"))
                lock.close()

            self.run_all([lambda: registry.update(key="value"), release])
            self.assertEqual(registry["key"], b"value")

    def test_forks_while_others_read(self):
        with vantry.open("f.hpk", "w") as package:
            package["a"] = bytes(1000)
        vantry.open("f.hpk", "u").close()
        done = False
        with vantry.open("f.hpk") as package, vantry.Registry() as registry:
            registry["a"] = "1"

            def read():
                while not done:
                    self.assertEqual((len(package["a"]), registry["a"]), (1000, b"1"))

            with concurrent.futures.ThreadPoolExecutor(4) as pool:
                reading = [pool.submit(read) for _ in range(3)]
                hangs = 0
                for _ in range(int(os.environ.get("VANTRY_TEST_FORKS", 20))):
                    child = os.fork()
                    if child == 0:
                        signal.alarm(5)
                        grandchild = os.fork()
                        os._exit(len(package["a"]) != 1000 or registry["a"] != b"1" or
                                 grandchild != 0 and os.waitpid(grandchild, 0)[1])
                    hangs += os.waitpid(child, 0)[1] != 0
                done = True
                for thread in reading:
                    thread.result(60)
            self.assertEqual(hangs, 0)

    def test_closing_while_others_read(self):
        for _ in range(50):
            buffer = vantry.Buffer()
            with vantry.open(buffer, "w") as package:
                package["a"] = bytes(100)
            package = vantry.open(buffer)

            def read():
                try:
                    while True:
                        self.assertEqual(package["a"], bytes(100))
                except ValueError:
                    pass

            self.run_all([read, read, package.close])
            self.assertEqual(len(buffer), len(bytes(buffer)))


class Registries(unittest.TestCase):
    def setUp(self):
        os.environ["BASEKIT_REGISTRY"] = os.path.abspath(self.id())

    def test_mapping(self):
        with vantry.Registry() as registry:
            registry[b""] = b"\0any\xff"
            registry.update([("b", "2"), (b"c", b"3")], d="4")
            self.assertEqual(registry, {b"": b"\0any\xff", b"b": b"2", b"c": b"3", b"d": b"4"})
            del registry["b"]
            for action in registry.__delitem__, registry.__getitem__:
                self.assertRaises(KeyError, action, "b")
            self.assertEqual((registry.get("b"), "b" in registry), (None, False))
            with vantry.Registry("r") as reader:
                self.assertEqual(dict(reader), dict(registry))
                self.assertRaises(vantry.RegistryError, reader.__setitem__, "x", "y")

            class Overtaken(vantry.Registry):
                def __iter__(self):
                    keys = list(super().__iter__())
                    for key in keys[:1]:
                        del registry[key]
                    return iter(keys)

            Overtaken().clear()
            self.assertEqual(len(registry), 0)
        self.assertRaises(vantry.RegistryError, registry.get, "d")

    def test_damage_and_passwords(self):
        with vantry.Registry() as registry:
            self.assertRaises(vantry.RegistryError, registry.set_password, "x", "nobody")
            self.assertRaises(ValueError, registry.set_password, "a\0b")
        secret = vantry.encrypt(b"plain")
        self.assertEqual(vantry.decrypt(secret), b"plain")
        self.assertRaises(vantry.EncryptionError, vantry.decrypt, secret[:-1])
        os.truncate(vantry.Registry.path(), 700)
        with self.assertRaisesRegex(vantry.RegistryError, "damaged"):
            vantry.Registry()


class Shards(unittest.TestCase):
    def test_a_set_is_one_sorted_mapping(self):
        items = {b"%d" % i: random.Random(i).randbytes(i % 50) for i in range(1000)}
        vantry.create_shards("set", 7, items.items())
        vantry.create_shards("set-2", 2, items.items())
        for pattern in "set", "set-*-of-00007.hpk", pathlib.Path("set"):
            with vantry.open_shards(pattern) as shards:
                self.assertEqual(list(shards.items()), sorted(items.items()))
                self.assertEqual(list(shards.values()), [items[key] for key in sorted(items)])
                self.assertEqual((len(shards), shards.get("x"), "12" in shards), (1000, None, True))
                self.assertEqual(shards.view("9"), items[b"9"])
                self.assertEqual(list(pickle.loads(pickle.dumps(shards))), sorted(items))
                self.assertGreater(min(map(len, shards.packages)), 80)
        self.assertTrue(all(package.closed for package in shards.packages))

    def test_what_is_no_set(self):
        def refused(text, pattern):
            with self.assertRaises(vantry.PackageError) as caught:
                vantry.open_shards(pattern)
            self.assertEqual((str(caught.exception), caught.exception.number), (text, 7))

        refused("No shards: none", "none")
        vantry.create_shards("wrong", 3, [(b"%d" % i, b"") for i in range(20)])
        os.rename("wrong-00001-of-00003.hpk", "other")
        refused("Missing shard: wrong-00001-of-00003.hpk", "wrong")
        shutil.copy("wrong-00000-of-00003.hpk", "wrong-00001-of-00003.hpk")
        refused(f"Foreign shard: {os.getcwd()}/wrong-00001-of-00003.hpk", "wrong")
        os.rename("other", "wrong-00001-of-00003.hpk")
        with vantry.open_shards("wrong-00002-of-00003.hpk") as shards:
            copy = pickle.dumps(shards)
        shutil.copy("wrong-00000-of-00003.hpk", "wrong-00003-of-00003.hpk")
        refused("Foreign shard: wrong-00003-of-00003.hpk", "wrong")
        os.rename("wrong-00003-of-00003.hpk", "wrong-00000-of-00004.hpk")
        refused("Foreign shard: wrong-00000-of-00004.hpk", "wrong-*.hpk")
        self.assertEqual(len(pickle.loads(copy)), 20)  # of the same set, whatever else is there
        for count in 0, 100000:
            self.assertRaises(ValueError, vantry.create_shards, "wrong", count, [])
        with self.assertRaises(vantry.PackageError):
            vantry.create_shards("twice", 2, [(b"a", b""), (b"a", b"")])
        self.assertFalse(list(pathlib.Path().glob("twice*")))


def square_once_killed(item, flag):
    """What a worker does with an item; the first to come to one item is killed."""
    if item[0] == b"7" and flag:
        try:
            os.close(os.open(flag, os.O_CREAT | os.O_EXCL))
        except FileExistsError:
            pass
        else:
            os.kill(os.getpid(), signal.SIGKILL)
    return item[0], b"%d" % (int(item[0]) ** 2)


@unittest.skipUnless(importlib.util.find_spec("distributed"), "python3-distributed is not installed")
class Dask(unittest.TestCase):
    def test_a_cluster_agrees_with_a_loop(self):
        import dask
        import distributed
        import vantry.dask
        count = int(os.environ.get("VANTRY_TEST_ITEMS", 2000))
        shards = 16 if count > 2000 else 4
        items = [(b"%d" % i, random.Random(i).randbytes(20)) for i in range(count)]
        vantry.create_shards("in", shards, items)
        expected = {key: square_once_killed((key, b""), None)[1] for key, _ in items}
        folder = os.getcwd()
        dask.config.set({"distributed.worker.daemon": False, "temporary-directory": folder})
        for workers in (1, 2) if count > 2000 else (2,):
            with distributed.LocalCluster(workers, threads_per_worker=1, dashboard_address=None,
                                          silence_logs=50) as cluster, cluster.get_client():
                killed = f"{folder}/killed{workers}"
                for flag in (None, killed) if count > 2000 else (killed,):
                    bag = vantry.dask.bag_from_shards(f"{folder}/in")
                    self.assertEqual(bag.npartitions, shards)
                    start = time.perf_counter()
                    files = vantry.dask.to_shards(
                        bag.map(square_once_killed, flag), f"{folder}/out", shards // 2)
                    print(f"{count} items, {workers} workers, {'one' if flag else 'none'} killed: "
                          f"{time.perf_counter() - start:.2f} s")
                    self.assertEqual(len(files), shards // 2)
                    with vantry.open_shards("out") as out:
                        self.assertEqual(dict(out.items()), expected)
                    self.assertTrue(flag is None or os.path.exists(flag))

    def test_file_systems_of_fsspec(self):
        import dask.bag
        import vantry.dask
        bag = dask.bag.from_sequence([("a", b"1"), ("b", b"2"), ("a", b"3")], npartitions=2)
        vantry.dask.to_shards(bag, "memory://folder/set", scheduler="sync")
        again = vantry.dask.bag_from_shards("memory://folder/set")
        self.assertEqual(sorted(again.compute(scheduler="sync")), [(b"a", b"3"), (b"b", b"2")])
        self.assertRaises(vantry.PackageError, vantry.dask.bag_from_shards, "memory://none")


def doctests():
    modules = [vantry, vantry._vantry, vantry.errors, vantry.package, vantry.places,
               vantry.registry, vantry.repair, vantry.shards, vantry.texts]
    if importlib.util.find_spec("dask"):
        modules.append(importlib.import_module("vantry.dask"))
    results = [doctest.testmod(module) for module in modules]
    unused = [module.__name__ for module, result in zip(modules, results) if not result.attempted]
    silent = [name for name in vantry.__all__ if not getattr(vantry, name).__doc__]
    print("without an example:", unused, "without a docstring:", silent)
    return int(any(result.failed for result in results) or bool(unused + silent))


def pages():
    """The guide's snippets."""
    page = os.path.join(ROOT, "doc", "coming-from.md")
    result = doctest.testfile(page, module_relative=False, parser=PageParser())
    return int(result.failed > 0 or result.attempted < 20)


class PageParser(doctest.DocTestParser):
    """Only the blocks of Python: the text between them is no expected output."""

    def parse(self, text, name="<page>"):
        return super().parse("\n".join(re.findall(r"```python\n(.*?)```", text, re.DOTALL)), name)


class Examples(unittest.TestCase):
    def test_programs(self):
        for name, needed, printed in (
                ("zarr_store", "zarr", "(1000, 1000) 1050000 101\n"),
                ("map_dataset", "vantry", "1000 sample/0007 450000\n"),
                ("package_files", "fsspec",
                 "['en/farewell', 'en/greeting'] ['de/greeting', 'en/greeting']\nHallo b'ye'\n")):
            if not importlib.util.find_spec(needed):
                print(f"{name} is skipped: python3-{needed} is not installed")
                continue
            program = os.path.join(ROOT, "examples", name + ".py")
            run = subprocess.run([sys.executable, program], stdout=subprocess.PIPE, text=True)
            self.assertEqual((run.stdout, run.returncode), (printed, 0))


RIGHT_AND_WRONG = """
from typing import MutableMapping
import io
import vantry

def use(items: MutableMapping[bytes, bytes]) -> int:
    return len(items)

with vantry.open("a.hpk", "u") as package:
    use(package)
    package["a"] = b"b"
    package[b"a"] = "b"
    body: bytes = package["a"]
    maybe: int = package.get("a", 1)  # wrong
    other: bytes = package.get("a", b"")
    text: str = package["a"]  # wrong
    package["a"] = 5  # wrong
    package[5] = b""  # wrong
    package.update({b"a": b"b"})
    package.update({b"a": 5})  # wrong
    for key, value in package.prefix("a").items():
        length: int = len(key + value)
        key.encode()  # wrong
    del package.prefix("a")[b"a"]  # wrong
    view: memoryview = package.view("a")
    package.identity = vantry.Identity(1, 2, 3)
    package.state = "1"  # wrong
    letters = vantry.text(package)
    letters["a"] = "b"
    letters["a"] = b"b"  # wrong
vantry.open("a.hpk", "x")  # wrong
vantry.open(io.BytesIO(b""))
vantry.open(5)  # wrong
vantry.open("a.hpk", mode="a")
"""


def types():
    """The annotations are complete and right; wrong code fails, right code passes."""
    if shutil.which("mypy", path="/usr/bin") is None:
        return 77
    folder = os.path.dirname(os.path.realpath(vantry.__file__))
    pathlib.Path("use.py").write_text(RIGHT_AND_WRONG)
    environment = dict(os.environ, MYPYPATH=os.path.dirname(folder))
    pathlib.Path("mypy.ini").write_text("[mypy]\n" + "".join(
        f"[mypy-{name}]\nfollow_imports = skip\n" for name in ("dask.*", "fsspec.*")))
    mypy = ["/usr/bin/mypy", "--strict", "--no-error-summary", "--cache-dir", "cache"]
    checked = subprocess.run([*mypy, "-p", "vantry"], env=environment)
    found = subprocess.run([*mypy, "use.py"], env=environment, stdout=subprocess.PIPE, text=True)
    failing = {int(line.split(":")[1]) for line in found.stdout.splitlines() if ": error:" in line}
    wrong = {number for number, line in enumerate(RIGHT_AND_WRONG.splitlines(), 1)
             if "# wrong" in line}
    print(found.stdout if failing != wrong else "", "lines judged otherwise:", failing ^ wrong)
    members = {name for kind in vars(vantry._vantry).values() if isinstance(kind, type)
               for name in dir(kind)}
    with open(os.path.join(folder, "_vantry.pyi")) as file:
        stubs = file.read()
    missing = [name for name in members if not name.startswith("_") and f"def {name}(" not in stubs]
    print("not in the stubs:", missing)
    return checked.returncode or len(missing) or len(failing ^ wrong)


if __name__ == "__main__":
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        os.environ["BASEKIT_REGISTRY"] = os.path.join(folder, "registry")
        if sys.argv[1] in ("doctests", "pages", "types"):
            sys.exit(globals()[sys.argv[1]]())
        unittest.main(argv=sys.argv[:1] + sys.argv[1:])
