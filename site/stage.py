"""Lays out what the web site is made of: documents, man pages, headers and the sources that documents point to.

    python3 -B site/stage.py PAGES_FOLDER OUTPUT_FOLDER

PAGES_FOLDER holds the man pages of a build. Documents stay where they are in the tree, so that links between them hold;
every other file that one points to gets a page that shows it.
"""

import argparse
import html
import os
import re
import subprocess
import sys
from pathlib import Path, PurePosixPath

ROOT = Path(__file__).resolve().parent.parent
FRONT = "README.md"
PROJECT = ["CONTRIBUTING.md", "CHANGELOG.md"]
LANGUAGES = {".h": "c", ".hpp": "cpp", ".c": "c", ".cpp": "cpp", ".py": "python", "": "text"}
LINK = re.compile(r"(?<!\!)\[(?P<text>(?:[^\[\]]|\[[^\]]*\])*)\]\((?P<target>[^)#\s]*)(?P<anchor>#[^)\s]*)?\)")
IMAGE = re.compile(r"!\[[^\]]*\]\((?P<target>[^)\s]+)\)")
FENCE = re.compile(r"^```mermaid$", re.MULTILINE)


class Site:
    def __init__(self, pages: Path, folder: Path):
        self.pages = pages
        self.folder = folder
        self.sources: set[str] = set()

    def put(self, path: str, text: str) -> None:
        target = self.folder / path
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_text(text, encoding="utf-8")

    # -- documents --------------------------------------------------------------------------------------------------

    def place_of(self, path: str) -> str:
        """Where the site has a file of the tree."""
        if path == FRONT:
            return "index.md"
        if path.endswith(".md"):
            return path
        self.sources.add(path)
        return path + ".md"

    def document(self, path: str) -> str:
        folder = PurePosixPath(path).parent

        def link(found: re.Match[str]) -> str:
            target, anchor = found["target"], found["anchor"] or ""
            if not target or "://" in target or target.startswith("mailto:"):
                return found[0]
            file = os.path.normpath(folder / target)
            if not (ROOT / file).exists():
                raise SystemExit(f"site/stage.py: {path} points to {target}, which is not there")
            return f"[{found['text']}]({os.path.relpath(self.place_of(file), folder)}{anchor})"

        text = (ROOT / path).read_text(encoding="utf-8")
        for image in IMAGE.finditer(text):
            file = os.path.normpath(folder / image["target"])
            (self.folder / file).parent.mkdir(parents=True, exist_ok=True)
            (self.folder / file).write_bytes((ROOT / file).read_bytes())
        return FENCE.sub("```{mermaid}", LINK.sub(link, text))

    def documents(self) -> list[str]:
        """Those of docs/, in the order in which docs/README.md names them."""
        named = re.findall(r"\]\((\w[\w-]*\.md)\)", (ROOT / "docs/README.md").read_text(encoding="utf-8"))
        there = sorted(path.name for path in (ROOT / "docs").glob("*.md"))
        return [f"docs/{name}" for name in dict.fromkeys(["README.md", *named, *there])]

    # -- man pages --------------------------------------------------------------------------------------------------

    def man_pages(self) -> dict[str, Path]:
        """By name and section: netcm.1. Names that share a page are links to it."""
        files = list(self.pages.glob("*.[18]"))
        for folder in ("netcm", "cm-server", "interface"):
            files += (self.pages / folder).iterdir()
        return {file.name: file for file in sorted(files)}

    def man_page(self, file: Path, places: dict[str, str]) -> str:
        command = ["mandoc", "-T", "html", "-O", "fragment", str(file)]
        set_page = subprocess.run(command, check=True, capture_output=True, text=True).stdout

        def reference(found: re.Match[str]) -> str:
            place = places.get(f"{found['name']}.{found['section']}")
            return f'<a href="{place}.html">{found[0]}</a>' if place else found[0]

        set_page = re.sub(r"<b>(?P<name>[\w.-]+)</b>\((?P<section>\d)\)", reference, set_page)
        # A section of the page is one of the site's, so that it stands in its table of contents.
        heading = r'<section class="Sh">\s*<h1 class="Sh"[^>]*>(?:<a[^>]*>)?(.*?)(?:</a>)?</h1>'
        parts = re.split(heading, set_page, flags=re.DOTALL)
        name, section = file.name.rsplit(".", 1)
        lines = [f"# {name}({section})"]
        for title, body in zip(parts[1::2], parts[2::2]):
            body = body.rsplit("</section>", 1)[0].replace("<h2 ", "<h3 ").replace("</h2>", "</h3>")
            # An empty line would end the block.
            block = "\n".join(line or "&#8203;" for line in body.strip().split("\n"))
            lines += [f"## {html.unescape(' '.join(re.sub(r'<[^>]*>', '', title).split())).capitalize()}",
                      f'``````{{raw}} html\n<div class="manual">\n{block}\n</div>\n``````']
        return "\n\n".join(lines) + "\n"

    def manual(self) -> None:
        files = self.man_pages()
        places = {name: file.resolve().name for name, file in files.items()}
        groups: dict[str, list[str]] = {"Programs": [], "Library": []}
        for name, file in files.items():
            if places[name] != name:
                continue
            self.put(f"manual/{name}.md", self.man_page(file, places))
            roff = file.read_text(encoding="utf-8")
            summary = " ".join(roff.split(".SH NAME\n")[1].split("\n.")[0].split()).split(" \\- ", 1)[1].replace("\\-", "-")
            names = sorted(other for other, place in places.items() if place == name)
            names.sort(key=lambda other: other != name)
            entry = ", ".join(f"[{other.rsplit('.', 1)[0]}]({name}.md)" for other in names)
            header = re.search(r"#include <quorvel/(\w+\.h)>", roff)
            group = header[1] if header and name != "quorvel.3" else "Library" if name.endswith(".3") else "Programs"
            groups.setdefault(group, []).append(f"| {entry} | {summary} |")
        text = ["# Manual", "The man pages, as `man` shows them.", self.tree(sorted(set(places.values())), hidden=True)]
        for group, entries in groups.items():
            text += [f"## {group}", "\n".join(["| page | |", "|---|---|", *entries])]
        self.put("manual/index.md", "\n\n".join(text) + "\n")

    # -- sources ----------------------------------------------------------------------------------------------------

    def source(self, path: str) -> None:
        title = f"---\norphan: true\nhide-toc: true\n---\n\n# {path}\n\n"
        if (ROOT / path).is_dir():
            files = sorted(file.name for file in (ROOT / path).glob("[A-Za-z]*") if file.is_file())
            links = [f"- [{name}]({Path(path).name}/{name}.md)\n" for name in files]
            self.put(path + ".md", title + "".join(links))
            for name in files:
                self.source(f"{path}/{name}")
            return
        text = (ROOT / path).read_text(encoding="utf-8")
        language = LANGUAGES.get(Path(path).suffix, "text")
        self.put(path + ".md", f"{title}``````{{code-block}} {language}\n:class: source\n\n{text}``````\n")

    def tree(self, pages: list[str], caption: str = "", hidden: bool = False) -> str:
        options = (f":caption: {caption}\n" if caption else "") + (":hidden:\n" if hidden else "") + ":maxdepth: 1\n"
        return "```{toctree}\n" + options + "\n" + "\n".join(f"{page}" for page in pages) + "\n```"

    def build(self) -> None:
        documents = self.documents()
        for path in documents + PROJECT:
            self.put(path, self.document(path))
        self.manual()
        headers = sorted(f"include/quorvel/{file.name}" for file in (ROOT / "include/quorvel").glob("[A-Za-z]*"))
        self.sources.update(headers)
        front = [self.document(FRONT)]
        front.append(self.tree(documents, "Documents", hidden=True))
        front.append(self.tree(["manual/index", *headers], "Interface", hidden=True))
        front.append(self.tree(PROJECT, "Project", hidden=True))
        self.put("index.md", "\n\n".join(front) + "\n")
        for path in sorted(self.sources):
            self.source(path)


def main() -> int:
    parser = argparse.ArgumentParser(prog="site/stage.py", description=(__doc__ or "").split("\n")[0])
    parser.add_argument("pages", type=Path)
    parser.add_argument("folder", type=Path)
    options = parser.parse_args()
    Site(options.pages, options.folder).build()
    return 0


sys.exit(main())
