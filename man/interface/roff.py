"""Text as roff."""

import re
import textwrap

WIDTH = 79


def escaped(text: str) -> str:
    """As it is printed: a dash that can be typed and copied."""
    return text.replace("\\", "\\e").replace("-", "\\-").replace("'", "\\(aq")


def bold(text: str) -> str:
    return rf"\fB{escaped(text)}\fR"


def italic(text: str) -> str:
    return rf"\fI{escaped(text)}\fR"


def prose(text: str) -> str:
    """Hyphens stay hyphens; what begins a number or an option is a dash."""
    return re.sub(r"(?<![\w)])-(?=\w)", r"\\-", text.replace("\\", "\\e"))


def filled(text: str) -> list[str]:
    """Lines of input, none of which is taken for a request."""
    lines = textwrap.wrap(text, WIDTH - 2, break_long_words=False, break_on_hyphens=False)
    return [r"\&" + line if line.startswith((".", "'")) else line for line in lines]


def literal(lines: list[str]) -> list[str]:
    """Lines as they are, a program's for example."""
    return [".PP", ".nf", *((r"\&" if line.startswith((".", "'")) else "") + escaped(line) for line in lines), ".fi"]
