"""The exceptions of vantry. Catch Error for all of them, or the class of one family.

>>> import vantry
>>> try:
...     vantry.open("/nowhere/a.hpk")
... except vantry.Error as error:
...     print(type(error).__name__, error.number, error.text, error.arguments)
StreamError 0 Cannot open file: /nowhere/a.hpk (b'/nowhere/a.hpk',)
"""

from typing import Tuple


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


class PackageError(Error):
    """A package has a fault or does not allow the operation.

    0 it has no index; 1 its index can not be read; 2 the open mode is invalid; 3 it is no package;
    4 an item is missing or damaged; 5 it is not open for update; 6 its old format has no identity
    or state. Arguments: the stream's name, and the key for number 4.
    """


class MissingKeyError(PackageError, KeyError):
    """There is no item of that name: a PackageError with number 4 that is a KeyError too."""


class StreamError(Error):
    """The file or buffer of a package failed; the argument is its name, "qtBuffer" for a buffer.

    0 opening; 1 closing; 2 positioning; 3 reading, mostly since the package is cut off or damaged;
    4 writing; 5 the open mode is invalid.
    """


class RegistryError(Error):
    """The registry can not be opened, read or changed; the text says why. The number is 0."""


class EncryptionError(Error):
    """A text can not be encrypted, or it is no encrypted text of this user's. The number is 11."""


class HashError(Error, ValueError):
    """A hash of that degree does not exist. The number is 8."""
