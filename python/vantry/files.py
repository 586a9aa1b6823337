"""How packages in files are replaced and locked."""

import contextlib
import fcntl
import os
import secrets
import stat
from typing import Iterator, Optional, Set

from .errors import BusyError, StreamError


class NewFile:
    """An empty file next to `target`, which takes its name by commit()."""

    def __init__(self, target: bytes) -> None:
        self._target = os.path.realpath(target)
        self._folder, name = os.path.split(self._target)
        self.path = os.path.join(
            self._folder, b".%b.%b.tmp" % (name[:200], secrets.token_hex(8).encode()))
        self._file = os.open(self.path, os.O_RDWR | os.O_CREAT | os.O_EXCL | os.O_CLOEXEC, 0o666)
        self._owner = os.getpid()
        try:
            with contextlib.suppress(FileNotFoundError):
                former = os.stat(self._target)
                with contextlib.suppress(PermissionError):
                    os.fchown(self._file, former.st_uid, former.st_gid)
                os.fchmod(self._file, stat.S_IMODE(former.st_mode))
        except BaseException:
            self.discard()
            raise

    def commit(self) -> None:
        os.fsync(self._file)
        os.replace(self.path, self._target)
        self._close()
        folder = os.open(self._folder, os.O_RDONLY | os.O_DIRECTORY | os.O_CLOEXEC)
        try:
            os.fsync(folder)  # the new name
        finally:
            os.close(folder)

    def discard(self) -> None:
        if self._file >= 0 and self._owner == os.getpid():
            with contextlib.suppress(FileNotFoundError):
                os.unlink(self.path)
        self._close()

    def _close(self) -> None:
        file, self._file = self._file, -1
        if file >= 0:
            os.close(file)


@contextlib.contextmanager
def appearing(target: bytes) -> Iterator[bytes]:
    """The path of a new file, which takes the target's name unless something is raised."""
    file = NewFile(target)
    try:
        yield file.path
        file.commit()
    finally:
        file.discard()


_held: Set["Lock"] = set()


class Lock:
    """The lock that programs take on a package which they change: flock() on the file."""

    def __init__(self, path: bytes, *, wait: bool) -> None:
        while True:
            self._file = os.open(path, os.O_RDWR | os.O_CLOEXEC)
            _held.add(self)
            try:
                if self._acquire(path, wait) and self._is_named(path):
                    return
            except BaseException:
                self.release()
                raise
            self.release()

    def _acquire(self, path: bytes, wait: bool) -> bool:
        try:
            fcntl.flock(self._file, fcntl.LOCK_EX | (0 if wait else fcntl.LOCK_NB))
        except BlockingIOError as error:
            holder = _holder(self._file)
            who = "this program" if holder == os.getpid() else \
                "another program" + (f" (process {holder})" if holder else "")
            text = f"{os.fsdecode(path)} is being changed by {who}"
            raise BusyError(0, text, (path,), error.errno) from None
        except OSError:
            pass  # a file system without locks
        return True

    def _is_named(self, path: bytes) -> bool:
        # Another program may have replaced the file before it released the lock.
        try:
            return os.path.samestat(os.fstat(self._file), os.stat(path))
        except FileNotFoundError:
            return False

    def release(self) -> None:
        file, self._file = self._file, -1
        _held.discard(self)
        if file >= 0:
            with contextlib.suppress(OSError):
                fcntl.flock(file, fcntl.LOCK_UN)  # also if children of this process have it open
            os.close(file)

    def abandon(self) -> None:
        """Closes the file in a child, which leaves its parent's lock as it is."""
        file, self._file = self._file, -1
        if file >= 0:
            os.close(file)


def _abandon_all() -> None:
    for lock in list(_held):
        lock.abandon()
    _held.clear()


os.register_at_fork(after_in_child=_abandon_all)


def _holder(file: int) -> Optional[int]:
    """The process that holds a lock on the file, if the system names it."""
    status = os.fstat(file)
    identity = "%02x:%02x:%d" % (os.major(status.st_dev), os.minor(status.st_dev), status.st_ino)
    with contextlib.suppress(OSError), open("/proc/locks") as locks:
        for line in locks:
            fields = line.split()
            if fields[1] == "FLOCK" and fields[5] == identity and int(fields[4]) > 0:
                return int(fields[4])
    return None


def stream_error(error: OSError, path: bytes) -> StreamError:
    """The error of a package that cannot be opened, for one of the system."""
    return StreamError.make(0, "Cannot open file: " + os.fsdecode(path), (path,), error.errno)
