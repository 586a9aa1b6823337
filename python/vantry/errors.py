"""The exceptions of vantry. Catch Error for all of them, or the class of one family.

>>> import vantry
>>> try:
...     vantry.open("/nowhere/a.hpk")
... except vantry.Error as error:
...     print(type(error).__name__, error.number, error.text, error.arguments)
MissingFileError 0 Cannot open file: /nowhere/a.hpk (b'/nowhere/a.hpk',)
"""

import errno
import os
from typing import Optional, Tuple


class Error(Exception):
    """The library refused or failed.

    number: within the family of the error
    text: what happened; bytes that are not UTF-8 appear as \\xNN
    arguments: what it happened to, such as the package's file name and the key
    """

    def __init__(self, number: int, text: str, arguments: Tuple[bytes, ...] = ()) -> None:
        super().__init__(number, text, arguments)
        self.number = number
        self.text = text
        self.arguments = arguments

    def __str__(self) -> str:
        return self.text

    @classmethod
    def make(cls, number: int, text: str, arguments: Tuple[bytes, ...],
             reason: Optional[int]) -> "Error":
        """The exception for an error of the C++ library; reason: errno, where there is one."""
        return cls(number, text, arguments)


class PackageError(Error):
    """A package is damaged or does not allow the operation.

    0 it has no index; 1 its index cannot be read; 2 the open mode is invalid; 3 it is not a
    package; 4 an item is missing or damaged; 5 it is not open for update; 6 its old format has no
    identity or state; 7 a set of shards is incomplete or mixed. Arguments: the stream's name, and
    the key for number 4.
    """


class MissingKeyError(PackageError, KeyError):
    """There is no item with that key: a PackageError with number 4 that is also a KeyError."""


class StreamError(Error, OSError):
    """The file or buffer of a package failed; the argument is its name, "qtBuffer" for a buffer.

    0 opening; 1 closing; 2 positioning; 3 reading, mostly because the package is cut off or
    damaged; 4 writing; 5 the open mode is invalid. As for any OSError, `errno` is the system's
    reason, None where the system has not failed, and `filename` is the file.
    """

    def __init__(self, number: int, text: str, arguments: Tuple[bytes, ...] = (),
                 reason: Optional[int] = None) -> None:
        super().__init__(number, text, arguments)
        self.args = number, text, arguments, reason
        # As in an OSError that was made with a text alone, both may be None.
        self.errno = reason  # type: ignore[assignment]
        self.strerror = None if reason is None else os.strerror(reason)  # type: ignore[assignment]
        self.filename = os.fsdecode(arguments[0]) if arguments else None

    @classmethod
    def make(cls, number: int, text: str, arguments: Tuple[bytes, ...],
             reason: Optional[int]) -> "StreamError":
        if number == 0 and reason in (errno.ENOENT, errno.ENOTDIR):
            cls = MissingFileError
        elif number == 0 and reason in (errno.EACCES, errno.EPERM):
            cls = ForbiddenError
        elif number == 0 and reason == errno.EWOULDBLOCK:
            cls = BusyError
        return cls(number, text, arguments, reason)


class MissingFileError(StreamError, FileNotFoundError):
    """There is no such file: a StreamError with number 0 that is also a FileNotFoundError."""


class ForbiddenError(StreamError, PermissionError):
    """The file may not be opened: a StreamError with number 0 that is also a PermissionError."""


class BusyError(StreamError, BlockingIOError):
    """Another open package or program is changing the package, which can be tried again: a
    StreamError with number 0 that is also a BlockingIOError."""


class RegistryError(Error):
    """The registry cannot be opened, read or changed; the text says why. The number is 0."""


class EncryptionError(Error):
    """A text cannot be encrypted, or was not encrypted by this user. The number is 11."""


class HashError(Error, ValueError):
    """There is no hash of that degree. The number is 8."""
