"""Looks at every page of the site: each link and anchor leads somewhere in it, and nothing is loaded from elsewhere.

    python3 -B site/check.py FOLDER
"""

import sys
from html.parser import HTMLParser
from pathlib import Path
from urllib.parse import unquote, urlsplit


class Page(HTMLParser):
    def __init__(self) -> None:
        super().__init__()
        self.links: list[str] = []
        self.loaded: list[str] = []
        self.anchors: set[str] = {"", "top"}

    def handle_starttag(self, tag: str, attributes: list[tuple[str, str | None]]) -> None:
        values = {name: value or "" for name, value in attributes}
        self.anchors |= {values[name] for name in ("id", "name") if name in values}
        if tag == "a" and "href" in values:
            self.links.append(values["href"])
        elif tag == "link" and "href" in values:
            self.loaded.append(values["href"])
        elif "src" in values:
            self.loaded.append(values["src"])


def read(file: Path) -> Page:
    page = Page()
    page.feed(file.read_text(encoding="utf-8"))
    return page


def main() -> int:
    folder = Path(sys.argv[1]).resolve()
    pages = {file: read(file) for file in sorted(folder.rglob("*.html"))}
    faults, links = [], 0
    for file, page in pages.items():
        for target in page.links + page.loaded:
            parts = urlsplit(target)
            if parts.scheme in ("data", "mailto"):
                continue
            if parts.scheme or parts.netloc:
                if target in page.loaded:
                    faults.append(f"{file.relative_to(folder)} loads {target}")
                continue
            links += 1
            there = (file.parent / unquote(parts.path)).resolve() if parts.path else file
            if not there.is_file():
                faults.append(f"{file.relative_to(folder)} points to {target}, which is not there")
            elif there in pages and unquote(parts.fragment) not in pages[there].anchors:
                faults.append(f"{file.relative_to(folder)} points to {target}, which has no such place")
    print("\n".join(faults), file=sys.stderr, end="\n" if faults else "")
    print(f"{len(pages)} pages, {links} links, {len(faults)} faults")
    return 1 if faults or not links else 0


sys.exit(main())
