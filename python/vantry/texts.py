"""Packages of texts."""

from typing import Iterator, MutableMapping

from .package import Package


class Text(MutableMapping[str, str]):
    """A package as a mapping from str to str; text() makes one. Keys and bodies are UTF-8: others
    are a UnicodeDecodeError when they are read."""

    def __init__(self, package: Package) -> None:
        self.package = package

    def __getitem__(self, key: str) -> str:
        return self.package[key].decode()

    def __setitem__(self, key: str, body: str) -> None:
        if not isinstance(body, str):
            raise TypeError(f"a text is str, not {type(body).__name__}")
        self.package[key] = body

    def __delitem__(self, key: str) -> None:
        del self.package[key]

    def __contains__(self, key: object) -> bool:
        return isinstance(key, str) and key.encode() in self.package

    def __iter__(self) -> Iterator[str]:
        return map(bytes.decode, self.package)

    def __reversed__(self) -> Iterator[str]:
        return map(bytes.decode, reversed(self.package))

    def __len__(self) -> int:
        return len(self.package)

    def __repr__(self) -> str:
        return f"vantry.text({self.package!r})"


def text(package: Package) -> Text:
    """A package's items as str.

    >>> import vantry
    >>> with vantry.open("greetings.hpk", "w") as package:
    ...     vantry.text(package)["de"] = "Grüße"
    >>> with vantry.open("greetings.hpk") as package:
    ...     dict(vantry.text(package)), package["de"]
    ({'de': 'Grüße'}, b'Gr\\xc3\\xbc\\xc3\\x9fe')
    """
    return Text(package)
