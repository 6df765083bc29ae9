#!/usr/bin/env python3
"""The project's own scripts: the demo, and the check of the layers, which must find each kind of
fault that it is there for."""

import pathlib
import re
import subprocess
import sys
import tempfile

from harness import ROOT, Failure, Suite, expect, expect_in

suite = Suite("tools")


def check_layers(files):
    """Status and output of scripts/check-layers for a source tree with these files."""
    with tempfile.TemporaryDirectory() as directory:
        for name, text in files.items():
            path = pathlib.Path(directory) / name
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text)
        done = subprocess.run([ROOT / "scripts/check-layers", directory], capture_output=True,
                              text=True)
        return done.returncode, done.stdout


def file(*includes):
    return "// A file.\n" + "".join(f'#include "{name}"\n' for name in includes)


BASE = {
    "vexa.h": file("core/text.h"),
    "core/text.h": file(),
    "files/file.h": file("core/text.h"),
    "engine/parser.h": file("vexa.h", "files/file.h"),
    "tags/file_tags.h": file("engine/parser.h"),
    "tags/file_tags.cpp": file("tags/file_tags.h", "files/file.h"),
    "xbase/change/change.h": file("core/text.h"),
    "xbase/table/table.h": file("xbase/change/change.h"),
    "net/mail.h": file(),
}


@suite.case("sources that keep to the layers pass")
def _():
    status, output = check_layers(BASE)
    expect("status and output", (status, output), (0, "9 files read, 0 faults\n"))


@suite.case("each fault against the layers is found with its place")
def _():
    faults = {
        "core/low.cpp": (file("files/file.h"), "core/low.cpp:2:"),
        "files/other.cpp": (file("engine/parser.h"), "files/other.cpp:2:"),
        "xbase/table/side.cpp": (file("net/mail.h"), "xbase/table/side.cpp:2:"),
        "xbase/index/up.cpp": (file("files/file.h"), "xbase/index/up.cpp:2:"),
        "engine/user.cpp": (file("tags/file_tags.h"), "engine/user.cpp:2:"),
        "vexa.h": (file("files/file.h"), "vexa.h:2:"),
        "core/gone.cpp": (file("core/nothing.h"), "core/gone.cpp:2:"),
        "odd/new.cpp": (file("core/text.h"), "odd/new.cpp:2:"),
        "core/bare.h": ("#include <cstdio>\n", "core/bare.h:1: no opening comment"),
        "core/text.h": (file("core/text.h"), "circle"),
    }
    for name, (text, complaint) in faults.items():
        status, output = check_layers({**BASE, name: text})
        expect(f"status for {name}", status, 1)
        expect_in(f"output for {name}", output, complaint)
    circle = {**BASE, "core/a.h": file("core/b.h"), "core/b.h": file("core/a.h")}
    expect_in("output", check_layers(circle)[1], "core/a.h -> core/b.h -> core/a.h")


@suite.case("every page of the demo runs without an error message")
def _():
    pages = {
        "/": "Hello, world!",
        "/query.vx?city=%3Cb%3ELisbon&days=3": "<strong>&lt;b&gt;Lisbon</strong>",
        "/query.vx": "No city was named",
        "/form.vx": "<textarea",
        "/contact.vx": "<textarea",
        "/loop.vx?rows=5": '<td class="number">120</td>',
        # The demo keeps its data, so these must not depend on what the shop holds.
        "/shop/": "<h1>Catalogue</h1>",
        "/shop/admin/login.vx": "<h1>Log in</h1>",
    }
    for page, part in pages.items():
        response = demo(page)
        expect_in(page, response, part)
        expect("end of the page", response.rstrip().endswith("</html>"), True)
        for word in ("Error:", "Vx", "&["):
            if word in response:
                raise Failure(f"{page} contains {word!r}: {response}")


@suite.case("the pages of the demo and the examples of the manual give the check nothing to say")
def _():
    with tempfile.TemporaryDirectory() as directory:
        directory = pathlib.Path(directory)
        (directory / "vexa").symlink_to(suite.build / "vexa")
        (directory / "vexa.conf").symlink_to(ROOT / "examples/vexa.conf")
        for manual in sorted((ROOT / "docs").glob("*.md")):
            # What is indented is an example; some are parts of pages, and no whole ones.
            blocks = re.findall(r"(?:^    .*\n|^\n)+", manual.read_text(), re.MULTILINE)
            for number, block in enumerate(block for block in blocks if "<" in block or "&[" in block):
                (directory / f"{manual.stem}-{number}.vx").write_text(block)

        def check(pages):
            done = subprocess.run([directory / "vexa", "--check", *sorted(pages)], capture_output=True,
                                  text=True)
            return done.returncode, done.stdout, done.stderr

        expect("status and output", check((ROOT / "examples").rglob("*.vx")), (0, "", ""))
        examples = list(directory.glob("*.vx"))
        expect("examples found", len(examples) > 25, True)
        warnings = [line for line in check(examples)[1].splitlines() if "Warning" in line]
        expect("warnings about the manual", warnings, [])


@suite.case("one request of the demo tells by its status whether the page ran")
def _():
    expect_in("response", demo("/missing.vx", status=1), "Unable to open missing.vx")


def demo(page, status=0):
    done = subprocess.run([ROOT / "scripts/demo", "--once", page], stdin=subprocess.DEVNULL,
                          capture_output=True, text=True)
    if done.returncode != status:
        raise Failure(f"{page} ended with {done.returncode}: {done.stdout}{done.stderr}")
    return done.stdout


if __name__ == "__main__":
    sys.exit(suite.main())
