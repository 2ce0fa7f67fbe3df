"""Writes the man pages of the library's interface, made from the comments of the public headers.

    python3 -B man/interface --release "Quorvel 4.0" --date 2026-11-21 PAGES_FOLDER [--layout FILE.c]

With --layout it also writes a source in C that compiles where the records are laid out as the pages say.
"""

import argparse
import shutil
import sys
from pathlib import Path

from headers import Unreadable, read
from layout import assertions
from pages import Manual

SOURCES = Path(__file__).resolve().parent.parent.parent
HEADERS = ("NetCM.h", "NetPM.h", "NetDNS.h", "NetDebug.h")


def main() -> int:
    parser = argparse.ArgumentParser(prog="man/interface", description="Writes the man pages of the library's interface.")
    parser.add_argument("--release", required=True, help="what the pages say they are of")
    parser.add_argument("--date", required=True, help="of the release, as YYYY-MM-DD")
    parser.add_argument("--layout", type=Path, help="where to write the layout of the records as a source in C")
    parser.add_argument("folder", type=Path, help="where to write the pages; what is in it is deleted")
    options = parser.parse_args()
    try:
        found = [read(SOURCES / "include" / "quorvel" / name) for name in HEADERS]
        manual = Manual(found, options.release, options.date, SOURCES)
        shutil.rmtree(options.folder, ignore_errors=True)
        options.folder.mkdir(parents=True)
        manual.write(options.folder)
        if options.layout:
            options.layout.write_text(assertions(found), encoding="utf-8")
    except (Unreadable, OSError) as error:
        print(f"man/interface: {error}", file=sys.stderr)
        return 1
    return 0


sys.exit(main())
