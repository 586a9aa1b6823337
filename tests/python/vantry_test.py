"""Tests of the Python module; the argument names a class of tests, or `doctests`, or `types`."""

import array
import concurrent.futures
import doctest
import errno
import fcntl
import io
import os
import pathlib
import pickle
import random
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
import unittest

import vantry
import vantry.errors
import vantry.places
import vantry.repair


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
            self.assertRaises(TypeError, setattr, package, "identity", (1 << 32, 0, 0))
            self.assertRaises(TypeError, setattr, package, "state", 256)
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
            self.fails(vantry.PackageError, 5, package.rename, "a", "b")
            self.fails(vantry.StreamError, 4, package.__setitem__, "b", b"c")
            for action in package.size, package.__delitem__:
                self.fails(vantry.MissingKeyError, 4, action, "b")
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
        with vantry.open(long) as package, package.file("two") as file:
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
        os.chmod("a.hpk", 0o640)
        os.symlink("a.hpk", "link")
        with open("a.hpk") as file:
            fcntl.flock(file, fcntl.LOCK_EX)
            waiting = threading.Thread(target=vantry.compact, args=["link"])
            waiting.start()
            time.sleep(0.1)
            self.assertEqual(os.path.getsize("a.hpk"), size)
        waiting.join()
        self.assertTrue(os.path.islink("link") and os.path.getsize("a.hpk") < size)
        self.assertEqual(os.stat("a.hpk").st_mode & 0o777, 0o640)
        vantry.compact("a.hpk", "b.hpk", order="offset")
        recovery = vantry.recover("a.hpk", "c.hpk")
        self.assertEqual(recovery, ("good", True, 2, 2, 0, []))
        for name in "abc":
            with vantry.open(name + ".hpk") as package:
                self.assertEqual(dict(package), items)
        pathlib.Path("a.hpk").write_bytes(b"no package")
        for action in vantry.compact, vantry.recover:
            self.assertRaises(FileExistsError, action, "a.hpk", "link")
            self.fails(vantry.PackageError, 3, action, "a.hpk", "d.hpk")
        self.assertFalse([name for name in os.listdir() if name[0] in ".d"])

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
        with vantry.open("s.hpk") as package:
            self.assertEqual(list(package), [b"a", b"b"])

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
        self.assertEqual(self.fails(vantry.StreamError, 4, package.close).errno, errno.ENOSPC)
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
                message = b"BusyError: l.hpk is being changed by another program (process %d)"
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

    def test_hash_and_tokens(self):
        hash = vantry.PolyHash()
        self.assertEqual(hash.hash(b"hello world"), 0xDF1A7DD9)
        self.assertEqual(hash.extend(hash.hash(b"hello"), b" world"), 0xDF1A7DD9)
        self.assertLess(vantry.PolyHash(16, 0xA011, 0).hash(b"hello world"), 1 << 16)
        self.fails(vantry.HashError, 8, vantry.PolyHash, 33)
        self.assertEqual(vantry.tokenize(b"a,b;\0", ",;"), [b"a", b"b", b"\0"])


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


def doctests():
    results = [doctest.testmod(module) for module in
               (vantry, vantry._vantry, vantry.errors, vantry.places, vantry.repair)]
    silent = [name for name in vantry.__all__ if not getattr(vantry, name).__doc__]
    print("without a docstring:", silent)
    return int(sum(result.failed for result in results) > 0 or results[0].attempted < 15 or
               results[1].attempted < 6 or len(silent) > 0)


def types():
    """The stubs, and the annotations by them, are whole and right, where mypy is there."""
    if shutil.which("mypy", path="/usr/bin") is None:
        return 77
    folder = os.path.dirname(os.path.realpath(vantry.__file__))
    checked = subprocess.run(["/usr/bin/mypy", "--strict", "--cache-dir", os.devnull, folder])
    module = {*dir(vantry._vantry.Package), *dir(vantry._vantry.Registry)}
    with open(os.path.join(folder, "_vantry.pyi")) as file:
        stubs = file.read()
    missing = [name for name in module if not name.startswith("_") and f"def {name}(" not in stubs]
    print("not in the stubs:", missing)
    return checked.returncode or len(missing)


if __name__ == "__main__":
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        os.environ["BASEKIT_REGISTRY"] = os.path.join(folder, "registry")
        if sys.argv[1] in ("doctests", "types"):
            sys.exit(globals()[sys.argv[1]]())
        unittest.main(argv=sys.argv[:1] + sys.argv[1:])
