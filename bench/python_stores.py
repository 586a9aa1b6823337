#!/usr/bin/python3
"""Compares the Python module with what its users would take instead, in one run.

    PYTHONPATH=build/bench/python bench/python_stores.py [ITEMS [ROUNDS]]

Prints processor time per item or per opening, the least of all rounds, and its ratio to lmdb's. The
stores take turns in each round. Stores that are not installed are left out. The last table reads one
object by one thread and by two, in elapsed time.
"""

import os
import random
import sqlite3
import sys
import tempfile
import threading
import time
import zipfile

import vantry

try:
    import lmdb
except ImportError:
    lmdb = None
try:
    from dbm import gnu
except ImportError:
    gnu = None

COUNT = int(sys.argv[1]) if len(sys.argv) > 1 else 100_000
ROUNDS = int(sys.argv[2]) if len(sys.argv) > 2 else 7


class Vantry:
    name = "vantry"

    def create(self, items):
        with vantry.open("p.hpk", "w") as package:
            for key, body in items:
                package[key] = body

    def open(self):
        self.package = vantry.open("p.hpk")

    def read(self, keys):
        package = self.package
        for key in keys:
            package[key]

    def walk(self):
        return sum(1 for key, body in self.package.items())

    def close(self):
        self.package.close()


class Lmdb:
    name = "lmdb"

    def create(self, items):
        with lmdb.open("lmdb", map_size=1 << 30) as store, store.begin(write=True) as change:
            for key, body in items:
                change.put(key, body)

    def open(self):
        self.store = lmdb.open("lmdb", readonly=True)
        self.look = self.store.begin()

    def read(self, keys):
        get = self.look.get
        for key in keys:
            get(key)

    def walk(self):
        return sum(1 for key, body in self.look.cursor())

    def close(self):
        self.look.abort()
        self.store.close()


class Gnu:
    name = "dbm.gnu"

    def create(self, items):
        with gnu.open("gnu", "nf") as store:
            for key, body in items:
                store[key] = body

    def open(self):
        self.store = gnu.open("gnu", "r")

    def read(self, keys):
        store = self.store
        for key in keys:
            store[key]

    def walk(self):
        store = self.store
        count = 0
        key = store.firstkey()
        while key is not None:
            store[key]
            count += 1
            key = store.nextkey(key)
        return count

    def close(self):
        self.store.close()


class Sqlite:
    name = "sqlite3"

    def create(self, items):
        store = sqlite3.connect("sqlite")
        store.execute("CREATE TABLE items (key BLOB PRIMARY KEY, body BLOB) WITHOUT ROWID")
        store.executemany("INSERT INTO items VALUES (?, ?)", items)
        store.commit()
        store.close()

    def open(self):
        self.store = sqlite3.connect("sqlite")

    def read(self, keys):
        look = self.store.execute
        for key in keys:
            look("SELECT body FROM items WHERE key = ?", (key,)).fetchone()

    def walk(self):
        return sum(1 for key, body in self.store.execute("SELECT key, body FROM items ORDER BY key"))

    def close(self):
        self.store.close()


class Zip:
    name = "zipfile"

    def create(self, items):
        with zipfile.ZipFile("zip", "w") as store:
            for key, body in items:
                store.writestr(key.decode(), body)

    def open(self):
        self.store = zipfile.ZipFile("zip")

    def read(self, keys):
        read = self.store.read
        for key in keys:
            read(key.decode())

    def walk(self):
        return sum(1 for name in self.store.namelist() if self.store.read(name) is not None)

    def close(self):
        self.store.close()


def spent(action, *arguments):
    start = time.process_time()
    action(*arguments)
    return time.process_time() - start


def print_table(title, unit, times, baseline):
    print(f"\n{title:24}{unit:>10}{'of ' + baseline:>12}")
    for name, least in times.items():
        print(f"{name:24}{least:>10.2f}{least / times.get(baseline, least):>12.2f}")


def compare_stores():
    chance = random.Random(1)
    items = [(b"%08d" % i, chance.randbytes(100)) for i in range(COUNT)]
    order = [key for key, _ in items]
    chance.shuffle(order)
    stores = [Vantry(), Lmdb() if lmdb else None, Gnu() if gnu else None, Sqlite(), Zip()]
    stores = [store for store in stores if store]
    times = {}

    def note(work, store, time):
        by_name = times.setdefault(work, {})
        by_name[store.name] = min(time, by_name.get(store.name, time))

    for store in stores:
        note("create", store, spent(store.create, items) / COUNT * 1e6)
    for _ in range(ROUNDS):
        for store in stores:
            note("open, look up one", store,
                 spent(lambda: (store.open(), store.read(order[:1]))) * 1e6)
            note("look up, random order", store, spent(store.read, order) / COUNT * 1e6)
            note("walk all items", store, spent(store.walk) / COUNT * 1e6)
            store.close()
    print(f"{COUNT:,} items of 8 + 100 bytes, in microseconds of processor time")
    for work, by_name in times.items():
        print_table(work, "us" + (" " if "open" in work else " each"), by_name, "lmdb")


def compare_threads():
    print(f"\n{'two threads, one object':24}{'1 thread':>10}{'2 threads':>12}{'times':>8}")
    for count, size in (4096, 100), (4096, 16384), (256, 1 << 20):
        with vantry.open("t.hpk", "w") as package:
            for i in range(count):
                package[b"%08d" % i] = bytes(size)
        with vantry.open("t.hpk") as package:
            keys = list(package)
            repeats = max(1, 40_000_000 // (count * (size + 1000)))

            def read(part):
                for _ in range(repeats):
                    for key in part:
                        package[key]

            def elapsed(parts):
                threads = [threading.Thread(target=read, args=[part]) for part in parts]
                start = time.perf_counter()
                for thread in threads:
                    thread.start()
                for thread in threads:
                    thread.join()
                return time.perf_counter() - start

            read(keys)
            one, two = (min(elapsed(parts) for _ in range(ROUNDS))
                        for parts in ([keys], [keys[::2], keys[1::2]]))
        print(f"{f'bodies of {size} bytes':24}{one * 1e3:>7.1f} ms{two * 1e3:>9.1f} ms"
              f"{one / two:>8.2f}")


with tempfile.TemporaryDirectory() as folder:
    os.chdir(folder)
    compare_stores()
    compare_threads()
