#!/usr/bin/env python3
"""The page-test runner itself: a runner that lets everything pass would hide every other fault.

The program under test is a shell script that answers with what the case tells it to."""

import os
import pathlib
import subprocess
import sys
import tempfile

from harness import ROOT, Failure, Suite, expect, expect_in

suite = Suite("page runner")

# Answers with the page and what it knows of the request; ends as the page's first word says.
PROGRAM = r"""#!/bin/sh
page="${0%/*}/site$PATH_INFO"
case $(cat "$page" 2>/dev/null) in
  "die"*) kill -9 $$ ;;
  "grumble"*) echo trouble >&2 ;;
  "status 3"*) exit 3 ;;
  "bare"*) printf 'no headers'; exit 1 ;;
  *"write"*) printf 'left\n' > "${0%/*}/data/left.txt" ;;
esac
if grep -q ^refuse "$0.conf"; then cat "${0%/*}/reason"; exit 0; fi
printf 'Content-type: text/html\r\n\r\n'
cat "$page"
printf '%s' "$QUERY_STRING$EXTRA"
[ "$REQUEST_METHOD" = GET ] || { printf '%s %s ' "$CONTENT_TYPE" "$CONTENT_LENGTH"; cat; }
for argument in "$@"; do printf '[%s]' "$argument"; done
exit 1
"""
REFUSED = ("--- file reason joined escaped\nContent-type: text/html\\r\\n\\r\\n{}Line 6: bad<BR>\\n\n"
           "Please contact the server administrator: admin@example.com\\r\\n\n"
           "--- refused: refuse => Line 6: bad\n")


def run(cases, *options):
    """The exit status and the lines that the runner prints for a page file with these cases."""
    with tempfile.TemporaryDirectory() as directory:
        program = pathlib.Path(directory) / "program"
        program.write_text(PROGRAM)
        program.chmod(0o755)
        page = pathlib.Path(directory) / "t.page"
        page.write_text(cases)
        done = subprocess.run(
            [sys.executable, ROOT / "tests/run_pages.py", program, *options, page],
            env={**os.environ, "TMPDIR": directory}, stdin=subprocess.DEVNULL, capture_output=True,
            text=True)
        expect("what is left behind", sorted(os.listdir(directory)), ["program", "t.page"])
        return done.returncode, done.stdout.splitlines()


@suite.case("what is as expected passes")
def _():
    for sections in (
            "--- script\nHello\n--- output\nHello\n",  # No final line feed on either side.
            "--- script: Hello\n--- response escaped\nContent-type: text/html\\r\\n\\r\\nHello\n",
            "--- script: Hello\n--- contains\nHell\nContent-type\n--- lacks: hello\n",
            "--- script: status 3\n--- exit: 3\n",
            "--- script joined\na\n b\n--- output: a b\n",
            "--- script rows escaped\na => a\n\\x20 => \\x20\nwrite => write\n--- check data/left.txt\nleft\n\n",
            "--- values: 1 => <VxEVAL EXPR=1> ;; a => <VxEVAL EXPR=a>\n",
            "--- script\n--- get /index.vx?a=1&b=2\n--- output: a=1&b=2\n--- output\na=1&b=2\n"
            "--- script\n--- query: c\n--- output: c\n",
            "--- script\n--- post escaped: a=1\\x00\n--- output escaped\n"
            "application/x-www-form-urlencoded 4 a=1\\x00\n",
            "--- script\n--- env: CONTENT_TYPE=x\n--- post: {DIR\n--- output: x 4 {DIR\n",
            "--- script\n--- form: name=a => 1\n--- output escaped\nmultipart/form-data; boundary=b "
            "55 --b\\r\\nContent-Disposition: form-data; name=a\\r\\n\\r\\n1\\r\\n--b--",
            "--- script\n--- args\none two\nthree\n--- output: [one two][three]\n",
            "--- file site/d/x.vx: there\n--- get /d/x.vx\n--- output: there\n",
            REFUSED.format("Syntax error in Configuration File: ")):
        status, lines = run("=== it\n" + sections)
        if (status, lines[-1]) != (0, "1 passed, 0 failed"):
            raise Failure("\n".join([sections, *lines]))


@suite.case("what is otherwise fails, and the report says where and how")
def _():
    for sections, *reasons in (
            ("--- script\none\ntwo\tx\n--- output\none\ntwo x\n", "t.page:5", "expected  two x",
             "actual    two\\tx", "first difference in line 2"),
            ("--- script\none\n\n--- output\none\ntwo\n", "(the end)"),
            ("--- script\nHello\n\n--- output\nHello\n",),
            ("--- script: one\n--- response: one\n",),
            ("--- script: Hello\n--- contains\nHell\nhell\n", "contains", "hell"),
            ("--- script: Hello\n--- lacks: Hello\n", "lacks"),
            ("--- script: bare\n--- output: bare\n", "no end of headers"),
            ("--- script rows\na => a\nb => a\n", "t.page:4"),
            ("--- errors: a => a\n",), (REFUSED.format(""),),
            ("--- values: 1 => 1\n", "1 is not"), ("--- errors\n", "no rows"),
            ("--- script: x\n--- values\n", "no rows"),
            ("--- script: x\n--- values: 1 => <VxEVAL EXPR=1>\n", "says more"),
            ("--- script: status 3\n--- values: 1 =>\n", "no v"),
            ("--- script: write\n--- absent: data/left.txt\n", "data/left.txt exists"),
            ("--- script: x\n--- check data/left.txt: left\n", "does not exist"),
            ("--- script: write\n--- check data/left.txt\nright\n\n", "data/left.txt is not"),
            ("--- script: status 3\n--- lacks: x\n", "exit status 3 instead of 1"),
            ("--- script: die\n--- lacks: x\n", "exit status -9 instead of 1"),
            ("--- script: grumble\n--- output: grumble\n", "standard error", "trouble"),
            ("--- script: Hello\n", "expects nothing"),
            ("--- script: a\n--- output: a\n--- script: a\n", "expects nothing"),
            ("--- script rows: a\n", "without an arrow"), ("--- outputs\nHello\n", "t.page:2: unknown"),
            ("--- script: " + 120 * "x" + "\n", "longer"),
            ("Hello\n",), ("--- check\nHello\n",), ("",), ("=== that\n--- exit\n1\n",),
            ("--- output: a\nHello\n", "outside of a section")):
        status, lines = run("=== it\n" + sections)
        expect(f"result of {sections}", (status, lines[-1]), (1, "0 passed, 1 failed"))
        for reason in reasons:
            expect_in("report", "\n".join(lines), reason)


@suite.case("cases are apart, comments no text, and failures shown when quiet")
def _():
    cases = ("# file\n\n=== one\n# why\n--- script\n# a\nwrite\n--- output\n# a\nwrite\n# on two\n"
             "=== two\n--- script: b\n--- output: c\n--- absent: data/left.txt\n")
    for options, expected in (([], (1, "1 passed, 1 failed")),
                              (["--filter", "one"], (0, "1 passed, 0 failed")),
                              (["--filter", "neither"], (0, "0 passed, 0 failed")),
                              (["--env", "EXTRA=x"], (1, "0 passed, 2 failed"))):
        status, lines = run(cases, *options)
        expect(f"result with {options}", (status, lines[-1]), expected)
    for options, first in ([], ": one"), (["--quiet"], ": two"):
        expect_in("first line", run(cases, *options)[1][0], first)


if __name__ == "__main__":
    sys.exit(suite.main())
