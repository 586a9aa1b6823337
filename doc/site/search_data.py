#!/usr/bin/env python3
"""Writes what the site's search looks through: the text of each section of each page.

    search_data.py FOLDER    reads FOLDER/*.html, writes FOLDER/search-data.js
"""
import html.parser
import json
import pathlib
import re
import sys

# Lists of members and files repeat what their pages say.
SKIPPED = re.compile(r"-members\.html$|^(dir_|functions|globals|namespacemembers|hierarchy|files"
                     r"|annotated|classes|pages|namespaces)")
HEADINGS = {"h1", "h2", "h3"}


class Sections(html.parser.HTMLParser):
    """Collects [anchor, heading, text] of a page's contents."""

    def __init__(self):
        super().__init__()
        self.page_title = ""
        self.found = [["", "", []]]
        self.anchor = ""
        self.depth = 0  # of <div class="contents">, 0 outside
        self.hidden = 0
        self.heading = None
        self.in_title = False

    def handle_starttag(self, tag, attributes):
        attributes = dict(attributes)
        classes = (attributes.get("class") or "").split()
        if tag == "div" and "title" in classes:
            self.in_title = True
        if tag == "div":
            if self.depth > 0:
                self.depth += 1
            elif "contents" in classes:
                self.depth = 1
        if tag in ("script", "style"):
            self.hidden += 1
        if self.depth > 0:
            if tag == "a" and "anchor" in classes:
                self.anchor = attributes.get("id") or ""
            elif tag == "a" and attributes.get("id", "").startswith("a"):
                self.anchor = attributes["id"]
            if tag in HEADINGS:
                self.heading = attributes.get("id") or ""
                self.found.append([self.heading, "", []])

    def handle_endtag(self, tag):
        if tag == "div":
            self.in_title = False
            self.depth = max(0, self.depth - 1)
        if tag in ("script", "style"):
            self.hidden -= 1
        if tag in HEADINGS and self.heading is not None:
            self.found[-1][0] = self.found[-1][0] or self.anchor
            self.heading = None
            self.anchor = ""

    def handle_data(self, data):
        if self.in_title:
            self.page_title += data
        elif self.depth > 0 and not self.hidden:
            if self.heading is not None:
                self.found[-1][1] += data
            else:
                self.found[-1][2].append(data)


def clean(text):
    return re.sub(r"\s+", " ", text.replace("\u25c6", "").replace("\xa0", " ")).strip()


def sections(path):
    page = Sections()
    page.feed(path.read_text(encoding="utf-8"))
    title = clean(page.page_title) or path.stem
    guide = path.name == "index.html" or path.name.startswith(("md_", "man_", "python_"))
    for anchor, heading, parts in page.found:
        text = clean(" ".join(parts))
        heading = clean(heading)
        if text or heading:
            yield {"url": path.name + ("#" + anchor if anchor else ""),
                   "title": f"{title}: {heading}" if heading else title,
                   "text": text, "guide": guide}


def main():
    folder = pathlib.Path(sys.argv[1])
    found = [section for path in sorted(folder.glob("*.html")) if not SKIPPED.search(path.name)
             for section in sections(path)]
    (folder / "search-data.js").write_text(
        "const searchPages = " + json.dumps(found, ensure_ascii=False) + ";\n", encoding="utf-8")


main()
