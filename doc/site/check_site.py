#!/usr/bin/env python3
"""Looks at the site as a reader does: in a browser, at two widths, in a light and a dark theme.

    check_site.py FOLDER

Fails where a page scrolls sideways, a picture has no alternative text or too little contrast, or the
search does not answer one of the questions below. Leaves screenshots in FOLDER/../docs-screens.
"""
import html
import http.server
import json
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import threading
import urllib.parse

BROWSER = ["chromium", "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic",
           "--no-first-run", "--disable-background-networking", "--disable-component-update",
           "--disable-sync", "--hide-scrollbars"]
THEMES = {"light": "preferredColorScheme=1", "dark": "preferredColorScheme=0"}
SHOWN = ["index", "classHpack", "md_doc_packages", "md_bench_README", "man_hpk_1"]
# What people type, and the page that has to be among the answers.
QUESTIONS = [
    ("rename an item", "classHpack.html"),
    ("delete", "classHpack.html"),
    ("open a package", "md_doc_packages.html"),
    ("damaged package", "md_doc_reliability.html"),
    ("recover", "man_hpk_1.html"),
    ("power loss", "md_doc_reliability.html"),
    ("dead space", "md_doc_packages.html"),
    ("compact", "man_hpk_1.html"),
    ("error number 4", "md_doc_errors.html"),
    ("exit status", "md_doc_errors.html"),
    ("thread safety", "md_doc_packages.html"),
    ("registry password", "md_doc_registry.html"),
    ("python", "md_python_README.html"),
    ("install", "index.html"),
    ("pkg-config", "index.html"),
    ("magic", "md_doc_package_format.html"),
    ("endian", "md_doc_package_format.html"),
    ("progress cancel", "md_doc_progress.html"),
]


class Server:
    """Serves the site and the harness on a port of its own."""

    def __init__(self, folder):
        harness = (pathlib.Path(__file__).parent / "harness.html").read_bytes()

        class Handler(http.server.SimpleHTTPRequestHandler):
            def __init__(self, *arguments, **options):
                super().__init__(*arguments, directory=str(folder), **options)

            def do_GET(self):
                if not self.path.startswith("/harness.html"):
                    super().do_GET()
                    return
                self.send_response(200)
                self.send_header("Content-Type", "text/html")
                self.end_headers()
                self.wfile.write(harness)

            def log_message(self, *arguments):
                pass

        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        threading.Thread(target=self.server.serve_forever, daemon=True).start()

    def url(self, path, **query):
        port = self.server.server_address[1]
        return f"http://127.0.0.1:{port}/{path}?{urllib.parse.urlencode(query)}"


def browse(theme, *arguments):
    with tempfile.TemporaryDirectory() as profile:
        result = subprocess.run(
            [*BROWSER, f"--user-data-dir={profile}", f"--blink-settings={THEMES[theme]}",
             *arguments], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, timeout=300)
    return result.stdout


def main():
    folder = pathlib.Path(sys.argv[1])
    screens = folder.parent / "docs-screens"
    shutil.rmtree(screens, ignore_errors=True)
    screens.mkdir()
    server = Server(folder)
    pages = sorted(path.name for path in folder.glob("*.html") if not path.name.startswith("dir_"))
    pictures = sorted(path.name for path in folder.glob("*.svg")
                      if not re.match(r"doxygen|.*dark", path.name))
    checked, faults = 0, []
    for theme in THEMES:
        url = server.url("harness.html", pages=",".join(pages), pictures=",".join(pictures),
                         questions=json.dumps(QUESTIONS))
        shown = browse(theme, "--virtual-time-budget=600000", "--dump-dom", url)
        report = re.search(r'<pre id="report">(.*?)</pre>', shown, re.S)
        if report is None:
            sys.exit("the browser gave no report")
        report = json.loads(html.unescape(report[1]))
        checked += report["checked"]
        faults += [f"{theme}: {fault}" for fault in report["faults"]]
        for page in SHOWN:
            for width in (1280, 500):  # the narrowest window that the browser opens
                browse(theme, f"--window-size={width},1600",
                       f"--screenshot={screens}/{page}-{width}-{theme}.png",
                       server.url(page + ".html"))
    print(*faults, sep="\n", end="\n" * bool(faults))
    print(f"{len(pages)} pages, {len(pictures)} pictures, {checked} looks, {len(faults)} faults; "
          f"screenshots in {screens}")
    return 1 if faults or checked == 0 else 0


sys.exit(main())
