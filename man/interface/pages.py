"""Makes man pages of what the headers say."""

import re
from dataclasses import dataclass
from pathlib import Path

import roff
from headers import Declaration, Documented, Header, Member, Section, Unreadable, one_line, paragraphs
from layout import Records

OVERVIEW = "quorvel"
INTRODUCTION = """
An application opens packet-data and Wi-Fi connections by their profiles, learns by callback when they come, change and
go, and resolves names over exactly the connection that it has opened. The library asks the CM server for all of it, over
the socket /tmp/psServSocket; cm-server(8) is the one to develop against, and netcm(1) the command line.
"""
PROGRAMS = {"netcm": 1, "cm-server": 8}


@dataclass
class Page:
    names: list[str]
    header: Header
    section: Section
    items: list[Documented]

    @property
    def name(self) -> str:
        return self.names[0]

    @property
    def declarations(self) -> list[Declaration]:
        return [d for item in self.items for d in item.declarations]

    @property
    def is_of_records(self) -> bool:
        return not any(d.kind in ("function", "object") for d in self.items[0].declarations)

    @property
    def parameters(self) -> list[str]:
        return [p.name for d in self.declarations for p in d.parameters if p.name]

    @property
    def text(self) -> str:
        return " ".join(line for item in self.items for line in item.comment)


def pages_of(header: Header) -> list[Page]:
    """A section's types and constants share a page, and so do functions, or objects, under one comment."""
    pages = []
    for section in header.sections:
        records = [item for item in section.items
                   if item.declarations[0].kind not in ("function", "object") or not item.comment]
        types = [d for item in records for d in item.declarations if d.kind in ("struct", "enum")]
        if types:
            structs = [d.name for d in types if d.kind == "struct"]
            name = structs[-1] if structs else types[0].name
            names = [d.name for item in records for d in item.declarations if d.kind != "define"]
            records.sort(key=lambda item: item.declarations[0].name != name)
            pages.append(Page([name] + [other for other in names if other != name], header, section, records))
        for item in section.items:
            if item.declarations[0].kind in ("function", "object") and item.comment:
                pages.append(Page([d.name for d in item.declarations], header, section, [item]))
    return pages


def sentences(text: str) -> list[str]:
    return re.split(r"(?<=[.!?])\s+(?=[A-Z`\"])", text)


@dataclass
class Entry:
    """Of a list in a comment. A list of three columns has the first two as its name."""

    name: str
    text: str


def entries(paragraph: list[str]) -> list[Entry]:
    found: list[Entry] = []
    for line in paragraph:
        if re.match(r"  \S", line):
            columns = re.split(r" {2,}", line.strip(), maxsplit=2)
            if len(columns) == 1:  # the longest name, with a single space behind it
                columns = line.strip().split(" ", 1)
            found.append(Entry(", ".join(columns[:-1]), columns[-1]))
        elif found:
            found[-1].text += " " + line.strip()
    return found


def is_list(paragraph: list[str]) -> bool:
    return all(line.startswith("  ") for line in paragraph)


def is_of_results(found: list[Entry]) -> bool:
    return all(re.match(r"NETCM_|any other$", entry.name) for entry in found)


@dataclass
class Said:
    """A comment, by what it is about."""

    text: list[str]
    arguments: list[Entry]
    returns: list[str]
    errors: list[Entry]  # behind the text about the result
    statuses: list[Entry]
    example: str = ""


def what_is_said(lines: list[str]) -> Said:
    said = Said([], [], [], [], [])
    for paragraph in paragraphs(lines):
        if is_list(paragraph):
            found = entries(paragraph)
            if is_of_results(found):
                said.statuses = found
            elif said.returns:
                said.errors = found[1:] if found[0].name.startswith("error code") else found
            else:
                said.arguments = found
            continue
        kept: list[str] = []
        result: list[str] = []
        for sentence in sentences(one_line(" ".join(paragraph))):
            if example := re.match(r"Example: (\S+)$", sentence):
                said.example = example[1]
            elif sentence.startswith("Set by "):
                pass
            elif sentence.startswith("Returns ") or result:
                result.append(sentence)
            else:
                kept.append(sentence)
        if kept:
            said.text.append(" ".join(kept))
        if result:
            said.returns.append(" ".join(result))
    return said


def setter_in(text: str) -> str:
    found = re.search(r"Set by ([^.]+)", one_line(text))
    return found[1].strip() if found else ""


class Manual:
    def __init__(self, headers: list[Header], release: str, date: str, sources: Path):
        self.headers = headers
        self.release = release
        self.date = date
        self.sources = sources
        self.pages = [page for header in headers for page in pages_of(header)]
        self.page_of = {name: page for page in self.pages for name in page.names}
        self.meaning = {c.name: c.comment for page in self.pages for d in page.declarations for c in d.constants}
        self.narrow, self.wide = Records(headers, 4).shapes, Records(headers, 8).shapes

    # -- words ------------------------------------------------------------------------------------------------------

    def inline(self, text: str, page: Page | None) -> str:
        """Names of the interface in bold, those of other pages with their section, parameters in italics."""
        parameters = page.parameters if page else []

        def word(found: re.Match[str]) -> str:
            name = found[0].strip("`")
            if found[0].startswith("`"):
                return roff.italic(name) if name in parameters else roff.bold(name)
            if name.startswith("*"):
                return found[0] if name[1:] not in parameters else "*" + roff.italic(name[1:])
            if name in self.page_of and self.page_of[name] is not page:
                return roff.bold(name) + "(3)"
            if name in self.page_of or re.match(r"(NETCM|NETPM|NETDB)_", name):
                return roff.bold(name)
            return found[0]

        marked = re.sub(r"`[^`]+`|\*\w+|\b\w+\b", word, roff.prose(text))
        for program, section in PROGRAMS.items():
            marked = marked.replace(f"{program}({section})", f"{roff.bold(program)}({section})")
        return marked

    def paragraph(self, text: str, page: Page | None) -> list[str]:
        return [".PP", *roff.filled(self.inline(text, page))]

    def tagged(self, tag: str, text: str, page: Page | None) -> list[str]:
        return [".TP", tag, *(roff.filled(self.inline(text, page)) or [r"\&"])]

    # -- declarations -----------------------------------------------------------------------------------------------

    def prototype(self, function: Declaration) -> list[str]:
        parts = []
        for parameter in function.parameters:
            head, name, tail = parameter.text.rpartition(parameter.name) if parameter.name else (parameter.text, "", "")
            if parameter.name and "(*" in parameter.text:
                head, name, tail = parameter.text.partition(parameter.name)
            marked = rf"\fB{roff.escaped(head)}\fI{name}\fB{roff.escaped(tail)}"
            parts.append((parameter.text, marked))
        start = f"{function.result}{function.name}("
        plain, lines = start, [rf"\fB{roff.escaped(start)}"]
        for at, (text, marked) in enumerate(parts):
            end = ", " if at + 1 < len(parts) else ");"
            if at > 0 and len(plain + text + end.rstrip()) > 72:
                lines[-1] = lines[-1].rstrip()
                lines.append(r"\fB    ")
                plain = "    "
            plain += text + end
            lines[-1] += marked + end
        return [line + r"\fR" for line in lines]

    def declared(self, declaration: Declaration) -> list[str]:
        if declaration.kind == "function":
            return self.prototype(declaration)
        if declaration.kind == "define":
            constant = declaration.constants[0]
            return [roff.bold(f"#define {constant.name} {constant.value}")]
        if declaration.kind in ("object", "typedef"):
            return [roff.bold(declaration.text + ";")]
        return []

    def constants_for(self, page: Page) -> list[Documented]:
        """Constants that no page of records shows, on the pages that speak of them."""
        return [item for item in page.section.items if item.declarations[0].kind == "define"
                and item.declarations[0].name in page.text and item not in page.items
                and not any(item in other.items for other in self.pages)]

    # -- parts of a page --------------------------------------------------------------------------------------------

    def summary(self, page: Page) -> str:
        structs = [item for item in page.items if item.declarations[0].kind == "struct"]
        if page.is_of_records and len(structs) != 1:
            return page.section.title
        comment = (structs or page.items)[0].comment
        first = re.sub(r"\s*\(.*?\)", "", sentences(one_line(" ".join(paragraphs(comment)[0])))[0])
        first = re.split(r"[:;.](?: |$)|, (?:as far as|whatever|with a pause|in place of|or null)", first)[0]
        return first.replace("`", "")

    def name(self, page: Page) -> list[str]:
        summary = self.summary(page)
        if not re.match(r"[A-Z]{2}|IP|DNS|Wi-Fi|UMTS", summary):
            summary = summary[0].lower() + summary[1:]
        names = ", ".join(page.names)
        return [".SH NAME", *roff.filled(rf"{names} \- {roff.prose(summary)}")]

    def synopsis(self, page: Page) -> list[str]:
        lines = [roff.bold(f"#include <quorvel/{page.header.name}>")]
        for item in self.constants_for(page) + page.items:
            shown = [self.declared(d) for d in item.declarations]
            if any(shown):
                lines += [".PP"] + [line for declared in shown for line in declared]
        return [".SH SYNOPSIS", ".nf", *lines, ".fi"]

    def arguments(self, page: Page, said: Said) -> list[str]:
        if not said.arguments:
            return []
        lines = [".SH ARGUMENTS"]
        for entry in said.arguments:
            if page.parameters and entry.name not in page.parameters:
                raise Unreadable(f"{page.name} has no parameter '{entry.name}'")
            lines += self.tagged(roff.italic(entry.name), entry.text, page)
        return lines

    def shared_statuses(self, page: Page) -> list[Entry]:
        """Of the section, or of the one before where that says so."""
        sections = page.header.sections
        at = sections.index(page.section)
        found: list[Entry] = []
        for section in sections[max(at - 1, 0) : at + 1]:
            if section is page.section or "of this group and of the next" in " ".join(section.text):
                for paragraph in paragraphs(section.text):
                    if is_list(paragraph) and is_of_results(entries(paragraph)):
                        found = entries(paragraph)
        return found

    def statuses(self, page: Page, said: Said) -> list[Entry]:
        own = {entry.name: entry.text for entry in said.statuses}
        merged = []
        for shared in self.shared_statuses(page):
            text = own.pop(shared.name, shared.text)
            merged.append(Entry(shared.name, re.sub(r"^also:", shared.text + ";", text)))
        added = [Entry(name, text) for name, text in own.items()]
        return merged[:-1] + added + merged[-1:] if merged else added

    def is_truth(self, said: Said) -> bool:
        return bool(said.returns) and "status" not in " ".join(said.returns)

    def result(self, page: Page, said: Said) -> list[str]:
        functions = [d for d in page.declarations if d.kind == "function"]
        if not functions or all(f.result.strip() == "void" for f in functions):
            return []
        lines = [".SH RETURN VALUE"]
        for text in said.returns:
            lines += self.paragraph(text, page)
        for entry in said.errors:
            tag = ", ".join(self.inline(part, page) for part in entry.name.split(", "))
            lines += self.tagged(tag, entry.text, page)
        if not self.is_truth(said):
            listed = self.statuses(page, said)
            for entry in listed:
                if re.match(r"rule \d+$", entry.text):
                    entry.text = f"{self.meaning[entry.name]} ({entry.text})"
                tag = self.inline(entry.name, page) if entry.name != "any other" else roff.italic("any other")
                lines += self.tagged(tag, entry.text, page)
            if not listed and not said.returns:
                rule = next((r for r in page.header.rules if r.startswith("Results. ")), None)
                if rule is None:
                    raise Unreadable(f"{page.name}: nothing is said about the result")
                lines += self.paragraph(rule.removeprefix("Results. "), page)
        return lines

    def example(self, path: str) -> list[str]:
        source = (self.sources / path).read_text(encoding="utf-8").rstrip("\n").split("\n")
        return [".SH EXAMPLES", *roff.literal(source)]

    def see_also(self, page: Page, said: Said) -> list[str]:
        mentioned = re.findall(r"\w+", page.text + " " + " ".join(page.section.text))
        beside = [other.name for other in self.pages if other.section is page.section]
        types = [word for d in page.declarations for word in re.findall(r"\w+", d.text)]
        users = [other.name for other in self.pages if page.is_of_records
                 for d in other.declarations if set(re.findall(r"\w+", d.text)) & set(page.names)]
        names = {self.page_of[word].name for word in mentioned + types + beside + users if word in self.page_of}
        references = [f"{roff.bold(name)}(3)" for name in sorted(names - {page.name}, key=str.lower)]
        return [".SH SEE ALSO", *roff.filled(", ".join(references + [f"{roff.bold(OVERVIEW)}(3)"]))]

    def notes(self, page: Page) -> list[str]:
        text = (f"Threads, callbacks, what blocks, who owns what, fork: the rules of {page.header.name} in quorvel(3)"
                " hold. A rule that is named by its number is one of them.")
        return [".SH NOTES", *roff.filled(self.inline(text, page).replace("quorvel(3)", roff.bold("quorvel") + "(3)"))]

    def section_text(self, page: Page) -> list[str]:
        lines = []
        for paragraph in paragraphs(page.section.text):
            text = " ".join(s for s in sentences(one_line(" ".join(paragraph))) if not s.startswith("Set by "))
            if text and not is_list(paragraph) and "where nothing else is said" not in text:
                lines += self.paragraph(text, page)
        return lines

    # -- records ----------------------------------------------------------------------------------------------------

    def size(self, narrow: int, wide: int) -> str:
        if narrow == wide == 1:
            return "1 byte"
        return f"{narrow} bytes" if narrow == wide else f"{narrow} or {wide} bytes"

    def members(self, record: str, members: list[Member], prefix: str, setter: str, page: Page) -> list[str]:
        lines: list[str] = []
        for member in members:
            if member.type == "union":
                place = self.narrow[record].places[(prefix + (member.name or member.members[0].name)).strip(".")]
                lines += [".TP", roff.italic(member.name) if member.name else "one of",
                          f"From offset {place.offset} on, one of these forms:", ".RS"]
                inner = prefix + member.name + "." if member.name else prefix
                lines += self.members(record, member.members, inner, setter, page) + [".RE"]
                continue
            who = setter_in(member.comment) or setter
            if not who:
                raise Unreadable(f"{record}: nothing says who sets '{member.name}'")
            if not member.comment:
                raise Unreadable(f"{record}: nothing is said about '{member.name}'")
            comment = re.sub(r"\.? *Set by .*$", "", member.comment)
            narrow = self.narrow[record].places[prefix + member.name]
            wide = self.wide[record].places[prefix + member.name]
            where = str(narrow.offset) if narrow.offset == wide.offset else f"{narrow.offset} or {wide.offset}"
            dimensions = "".join(f"[{dimension}]" for dimension in member.dimensions)
            lines += [".TP", rf"{roff.italic(member.name)}, {self.inline(member.type + dimensions, page)}",
                      *roff.filled(f"{self.size(narrow.size, wide.size)} at offset {where}, set by {self.inline(who, page)}."),
                      ".br", *roff.filled(self.inline(comment[0].upper() + comment[1:] + ".", page))]
        return lines

    def record(self, item: Documented, page: Page) -> list[str]:
        declaration = item.declarations[0]
        said = what_is_said(item.comment)
        lines = [f".SS {declaration.name if len(item.declarations) == 1 else 'Constants'}"]
        for text in said.text:
            lines += [".PP", *roff.filled(self.inline(text, page))]
        if declaration.kind == "struct":
            setter = setter_in(" ".join(item.comment)) or setter_in(" ".join(page.section.text))
            narrow, wide = self.narrow[declaration.name], self.wide[declaration.name]
            lines += [".PP", f"Size: {self.size(narrow.size, wide.size)}."]
            lines += self.members(declaration.name, declaration.members, "", setter, page)
        for constant in [c for d in item.declarations for c in d.constants]:
            value = f"{roff.bold(constant.name)} ({constant.value})"
            lines += self.tagged(value, constant.comment[:1].upper() + constant.comment[1:] + "." if constant.comment
                                 else "", page)
        return lines

    def records(self, page: Page) -> list[str]:
        lines = [".SH DESCRIPTION"]
        text = self.section_text(page)
        shapes = [d.name for d in page.declarations if d.kind == "struct"]
        if any(self.narrow[name] != self.wide[name] for name in shapes):
            text += self.paragraph("Where two sizes or offsets are given, the first is that of a system of 32 bits, the second"
                                   " that of one of 64 bits.", page)
        lines += text
        for item in page.items:
            if item.declarations[0].kind != "object":
                lines += self.record(item, page)
        return lines

    # -- pages ------------------------------------------------------------------------------------------------------

    def heading(self, name: str) -> list[str]:
        return ['.\\" Made from the comments of the public headers.',
                f'.TH "{roff.escaped(name.upper())}" 3 "{self.date}" "{self.release}" "Library Functions Manual"']

    def library(self) -> list[str]:
        return [".SH LIBRARY", rf"Client library of the connection manager (libquorvel, \fI\-lquorvel\fR)"]

    def content(self, page: Page) -> list[str]:
        lines = self.heading(page.name) + self.name(page) + self.library() + self.synopsis(page)
        said = what_is_said(page.items[0].comment)
        if page.is_of_records:
            lines += self.records(page)
        else:
            text = [line for paragraph in said.text for line in self.paragraph(paragraph, page)]
            if page.parameters:
                text += self.section_text(page)
            for item in self.constants_for(page):
                text += self.paragraph(f"{item.declarations[0].name}: {' '.join(item.comment)}", page)
            lines += [".SH DESCRIPTION", *text] + self.arguments(page, said) + self.result(page, said)
        lines += self.notes(page)
        if said.example:
            lines += self.example(said.example)
        return lines + self.see_also(page, said)

    def overview(self) -> list[str]:
        lines = self.heading(OVERVIEW) + [".SH NAME", rf"{OVERVIEW} \- client library of the connection manager"]
        lines += self.library()
        lines += [".SH SYNOPSIS", ".nf", *(roff.bold(f"#include <quorvel/{header.name}>") for header in self.headers),
                  ".PP", r"cc \fIPROGRAM\fR.c $(pkg\-config \-\-cflags \-\-libs quorvel)", ".fi"]
        lines += [".SH DESCRIPTION", *roff.filled(self.inline(one_line(INTRODUCTION), None))]
        for header in self.headers:
            lines += [f".SS {header.name}", *roff.filled(roff.prose(header.title))]
            for page in [page for page in self.pages if page.header is header]:
                names = ", ".join(f"{roff.bold(name)}(3)" for name in page.names)
                lines += [".TP", names, *roff.filled(roff.prose(self.summary(page)) + ".")]
        for header in self.headers:
            lines += [f'.SH "RULES OF {header.name}"',
                      "They hold for every function of this header" + (" beside those of NetCM.h." if header.name == "NetPM.h"
                                                                       else ".")]
            for number, rule in enumerate(header.rules, 1):
                lines += [f".IP {number}. 4", *roff.filled(self.inline(rule, None))]
        lines += self.example("examples/open.c")
        references = ", ".join(f"{roff.bold(program)}({section})" for program, section in PROGRAMS.items())
        return lines + [".SH SEE ALSO", references]

    def write(self, folder: Path) -> None:
        def put(name: str, lines: list[str]) -> None:
            # A heading stands right above its text.
            kept = [line for at, line in enumerate(lines) if line != ".PP" or not lines[at - 1].startswith((".SH", ".SS"))]
            (folder / f"{name}.3").write_text("\n".join(kept) + "\n", encoding="utf-8")

        put(OVERVIEW, self.overview())
        for page in self.pages:
            put(page.name, self.content(page))
            for name in page.names[1:]:
                (folder / f"{name}.3").symlink_to(f"{page.name}.3")
