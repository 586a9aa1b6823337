"""Explains why the extension cannot be imported."""

import glob
import os
import re
import sys


def explain(error: ImportError) -> ImportError:
    """The error to raise for the one that importing the extension has raised: it names the Python
    that the module is built for, if this is another one."""
    files = glob.glob(os.path.join(glob.escape(os.path.dirname(__file__)), "_vantry.cpython-*"))
    built = {(int(tag[1]), int(tag[2])) for tag in
             (re.search(r"\.cpython-(\d)(\d+)", file) for file in files) if tag}
    if not built or sys.version_info[:2] in built:
        return error
    names = ", ".join(f"{major}.{minor}" for major, minor in sorted(built))
    return ImportError(f"vantry is built for Python {names}; this is Python "
                       f"{sys.version_info[0]}.{sys.version_info[1]} ({sys.executable})")
