"""Reads the public headers: what they declare, and the comments that document it.

How the headers are written is what this relies on:

  - The comment at the top says what the header is for, and its numbered rules.
  - A comment that begins with a line of dashes opens a section; what it says behind its title holds for all of it.
  - Any other comment in the first column documents the declarations right below it, up to the next empty line.
    Functions that share one share a page.
  - In such a comment, lines that are indented by two more columns are a list: a name, and what it is.
  - A paragraph or sentence that begins with "Returns" says the result. "Example: PATH" names a program to show.
  - "Set by ..." in a section, above a record or behind a field says who sets the fields, the nearest one holds.
"""

import re
from dataclasses import dataclass, field
from pathlib import Path


class Unreadable(Exception):
    pass


@dataclass
class Member:
    """A field, or a union whose forms are its members. A union without a name has an empty one."""

    name: str
    type: str
    dimensions: list[str]
    comment: str
    members: list["Member"] = field(default_factory=list)


@dataclass
class Constant:
    name: str
    value: str
    comment: str


@dataclass
class Parameter:
    name: str  # empty: "void" or "..."
    text: str


@dataclass
class Declaration:
    kind: str  # function, object, struct, enum, typedef, define
    name: str
    text: str = ""  # as C, on one line
    result: str = ""  # of a function: its type
    parameters: list[Parameter] = field(default_factory=list)
    members: list[Member] = field(default_factory=list)
    constants: list[Constant] = field(default_factory=list)


@dataclass
class Documented:
    comment: list[str]
    declarations: list[Declaration]


@dataclass
class Section:
    title: str
    text: list[str]
    items: list[Documented] = field(default_factory=list)


@dataclass
class Header:
    name: str
    title: str
    rules: list[str]
    sections: list[Section] = field(default_factory=list)


def plain(comment: str) -> list[str]:
    """The lines of a comment without what makes it one."""
    lines = comment.removeprefix("/*").removesuffix("*/").rstrip().split("\n")
    return [lines[0].strip()] + [re.sub(r"^ \*( |$)", "", line).rstrip() for line in lines[1:]]


def paragraphs(lines: list[str]) -> list[list[str]]:
    found: list[list[str]] = [[]]
    for line in lines:
        if line.strip():
            found[-1].append(line)
        elif found[-1]:
            found.append([])
    return [paragraph for paragraph in found if paragraph]


def one_line(text: str) -> str:
    return " ".join(text.split())


def parts_of(parameters: str) -> list[str]:
    """Parts between the commas that stand in no brackets."""
    parts, depth, start = [], 0, 0
    for at, c in enumerate(parameters):
        depth += (c in "([") - (c in ")]")
        if c == "," and depth == 0:
            parts.append(parameters[start:at].strip())
            start = at + 1
    return parts + [parameters[start:].strip()]


def parameter(text: str) -> Parameter:
    if text in ("void", "..."):
        return Parameter("", text)
    found = re.search(r"\(\*(\w+)\)", text) or re.search(r"(\w+)(?:\[\w*\])?$", text)
    if found is None:
        raise Unreadable(f"no name of a parameter in '{text}'")
    return Parameter(found.group(1), text)


MEMBER = re.compile(
    r"(?P<comment>/\*.*?\*/)"
    r"|(?P<union>(?:QUORVEL_EXTENSION\s+)?union\s*\{)"
    r"|\}\s*(?P<close>\w*)\s*;"
    r"|(?P<type>(?:const\s+)?\w+)\s+(?P<pointer>\*?)(?P<name>\w+)(?P<dimensions>(?:\[\w+\])*)\s*;"
    r"|(?P<rest>\S+)",
    re.DOTALL,
)


def members(body: str, where: str) -> list[Member]:
    levels: list[list[Member]] = [[]]
    last = None
    for found in MEMBER.finditer(body):
        if found["rest"]:
            raise Unreadable(f"{where}: cannot read '{found['rest']}'")
        if found["comment"]:
            if last is None:
                raise Unreadable(f"{where}: a comment belongs behind a field")
            last.comment = one_line(" ".join(plain(found["comment"])))
        elif found["union"]:
            last = None
            levels.append([])
        elif found["close"] is not None:
            forms = levels.pop()
            last = Member(found["close"], "union", [], "", forms)
            levels[-1].append(last)
        else:
            last = Member(found["name"], (found["type"] + " " + found["pointer"]).strip(),
                          re.findall(r"\[(\w+)\]", found["dimensions"]), "")
            levels[-1].append(last)
    return levels[0]


CONSTANT = re.compile(r"(\w+) = (\w+),?\s*(?:/\*(.*?)\*/)?", re.DOTALL)
DEFINE = re.compile(r"#define (\w+) +(\w+)(?: +/\*(.*?)\*/)?\n?")


def constants(pattern: re.Pattern[str], text: str) -> list[Constant]:
    return [Constant(name, value, one_line(" ".join(plain("/*" + comment + "*/"))))
            for name, value, comment in pattern.findall(text)]


def declaration(code: str) -> Declaration:
    text = one_line(re.sub(r"/\*.*?\*/", "", code, flags=re.DOTALL)).removesuffix(";")
    if found := re.match(r"typedef struct (\w+) \{(.*)\} \1;$", code, re.DOTALL):
        return Declaration("struct", found[1], members=members(found[2], found[1]))
    if found := re.match(r"enum (\w+) \{(.*)\};$", code, re.DOTALL):
        return Declaration("enum", found[1], constants=constants(CONSTANT, found[2]))
    if found := re.match(r"typedef .*\(\*(\w+)\)\(.*\)$", text):
        return Declaration("typedef", found[1], text)
    if found := re.match(r"extern .*?(\w+)(?:\[\w+\])*$", text):
        return Declaration("object", found[1], text)
    text = re.sub(r" QUORVEL_PRINTF\(.*?\)$", "", text)
    if found := re.match(r"([\w ]+[ *])(\w+)\((.*)\)$", text):
        return Declaration("function", found[2], text, found[1],
                           [parameter(part) for part in parts_of(found[3])])
    raise Unreadable(f"cannot read '{text}'")


def declarations(chunk: str) -> list[Declaration]:
    if chunk.startswith("#define"):
        return [Declaration("define", c.name, constants=[c]) for c in constants(DEFINE, chunk)]
    if re.match(r"(typedef struct|enum) ", chunk):
        return [declaration(chunk)]
    return [declaration(code.strip() + ";") for code in chunk.split(";") if code.strip()]


def rules(lines: list[str]) -> list[str]:
    found: list[str] = []
    for line in lines:
        if rule := re.match(r" {0,2}\d+\. (.*)", line):
            found.append(rule[1])
        elif found:
            found[-1] += " " + line.strip()
    return [rule.strip() for rule in found]


# A comment in the first column, or what stands up to the next empty line.
PIECE = re.compile(r"(?P<comment>^/\*.*?\*/)\n|(?P<code>^\S.*?)(?=\n\n|\n/\*|\Z)", re.DOTALL | re.MULTILINE)


def read(path: Path) -> Header:
    top, found, body = path.read_text(encoding="utf-8").partition('extern "C" {\n#endif\n')
    intro = re.match(r"/\*.*?\*/", top, re.DOTALL)
    if not found or intro is None:
        raise Unreadable(f"{path}: no comment at its top, or no extern \"C\"")
    lines = plain(intro[0])
    title = paragraphs(lines)[0]
    header = Header(path.name, one_line(" ".join(title)), rules(lines))
    comment: list[str] = []
    for piece in PIECE.finditer(body):
        if piece["comment"] and piece["comment"].startswith("/* ---"):
            first, *rest = paragraphs(plain(piece["comment"])[1:])
            text = "\n\n".join("\n".join(paragraph) for paragraph in rest).split("\n") if rest else []
            header.sections.append(Section(one_line(" ".join(first)), text))
        elif piece["comment"]:
            comment = plain(piece["comment"])
        elif piece["code"].startswith(("#if", "#ifdef", "#endif", "#undef")):
            comment = []
        else:
            if not header.sections:
                raise Unreadable(f"{path}: declarations before the first section")
            try:
                header.sections[-1].items.append(Documented(comment, declarations(piece["code"])))
            except Unreadable as error:
                raise Unreadable(f"{path}: {error}") from None
            comment = []
    return header
