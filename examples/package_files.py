"""A read-only file system of fsspec: the items of a package as files."""

import fsspec
import vantry
from fsspec.archive import AbstractArchiveFileSystem


class PackageFileSystem(AbstractArchiveFileSystem):
    protocol = "hpk"
    root_marker = ""

    def __init__(self, path, **options):
        super().__init__(path, **options)
        self.package = vantry.open(path)
        self.dir_cache = None

    @classmethod
    def _strip_protocol(cls, path):
        return super()._strip_protocol(path).lstrip("/")

    def _get_dirs(self):
        if self.dir_cache is None:
            keys = [key.decode() for key in self.package]
            self.dir_cache = {
                folder: {"name": folder, "size": 0, "type": "directory"}
                for folder in self._all_dirnames(keys)}
            self.dir_cache.update(
                (key, {"name": key, "size": self.package.size(key), "type": "file"})
                for key in keys)

    def cat_file(self, path, start=None, end=None, **options):
        return bytes(self.package.view(self._strip_protocol(path))[start:end])

    def _open(self, path, mode="rb", **options):
        if mode != "rb":
            raise ValueError(f"the file system is read-only; the mode cannot be {mode!r}")
        return self.package.file(path)


if __name__ == "__main__":
    with vantry.open("texts.hpk", "w") as package:
        package.update({"en/greeting": "Hello", "en/farewell": "Bye", "de/greeting": "Hallo"})
    fsspec.register_implementation("hpk", PackageFileSystem)
    files = fsspec.filesystem("hpk", path="texts.hpk")
    print(files.ls("en", detail=False), files.glob("*/greeting"))
    with files.open("de/greeting", "r") as file:
        print(file.read(), files.cat_file("en/farewell", 1))
