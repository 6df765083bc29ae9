#!/usr/bin/env python3
"""The page-test runner itself: a runner that lets everything pass would hide every other fault.

The program under test is a shell script that answers with what the case tells it to."""

import os
import pathlib
import subprocess
import sys
import tempfile

from harness import Failure, Suite, expect, expect_in

suite = Suite("page runner")

# Answers with the page itself and its environment's names on request; ends as the page's first
# word says.
PROGRAM = r"""#!/bin/sh
page="${0%/*}/site$PATH_INFO"
case $(cat "$page" 2>/dev/null) in
  "die"*) kill -9 $$ ;;
  "grumble"*) echo trouble >&2 ;;
  "status 3"*) exit 3 ;;
  "bare"*) printf 'no headers'; exit 1 ;;
  "write"*) printf 'left\n' > "${0%/*}/data/left.txt" ;;
esac
printf 'Content-type: text/html\r\n\r\n'
cat "$page"
[ -z "$QUERY_STRING" ] || printf 'query=%s\n' "$QUERY_STRING"
if [ "$REQUEST_METHOD" = POST ]; then
  printf '%s %s ' "$CONTENT_TYPE" "$CONTENT_LENGTH"
  cat
fi
[ -z "$SHOW" ] || cat "$0.conf"
for argument in "$@"; do printf '[%s]' "$argument"; done
exit 1
"""


def run(cases, *options):
    """The exit status and the lines that the runner prints for a page file with these cases."""
    with tempfile.TemporaryDirectory() as directory:
        program = pathlib.Path(directory) / "program"
        program.write_text(PROGRAM)
        program.chmod(0o755)
        page = pathlib.Path(directory) / "t.page"
        page.write_text(cases)
        environment = {**os.environ, "TMPDIR": directory}
        done = subprocess.run(
            [suite.build / "page_runner", program, *options, page], env=environment,
            stdin=subprocess.DEVNULL, capture_output=True, text=True)
        left = [name for name in os.listdir(directory) if name.startswith("vexa-page-")]
        expect("directories left behind", left, [])
        return done.returncode, done.stdout.splitlines()


def expect_pass(sections):
    status, lines = run("=== it\n" + sections)
    if lines[-1] != "1 passed, 0 failed" or status != 0:
        raise Failure(f"status {status}, output:\n" + "\n".join(lines))


def expect_fail(sections, *reasons):
    status, lines = run("=== it\n" + sections)
    expect("last line", lines[-1], "0 passed, 1 failed")
    expect("exit status", status, 1)
    for reason in reasons:
        expect_in("report", "\n".join(lines), reason)


@suite.case("a response as expected passes, in each way to say it")
def _():
    expect_pass("--- script\nHello\n--- output\nHello\n")  # No final line feed on either side.
    expect_fail("--- script\nHello\n\n--- output\nHello\n")
    expect_pass("--- script\nHello\n--- response escaped\n"
                "Content-type: text/html\\r\\n\\r\\nHello\n")
    expect_pass("--- script\nHello\n--- contains\nHell\nContent-type\n--- lacks\nhello\n")
    expect_pass("--- script\nstatus 3\n--- exit\n3\n")


@suite.case("another response fails and the difference is shown")
def _():
    expect_fail("--- script\none\ntwo\tx\n--- output\none\ntwo x\n", "t.page:5",
                "expected  two x", "actual    two\\tx", "first difference in line 2")
    expect_fail("--- script\none\n\n--- output\none\ntwo\n", "(the end)")
    expect_fail("--- script\none\n--- response\none\n")
    expect_fail("--- script\nHello\n--- contains\nHell\nhell\n", "lacks: hell")
    expect_fail("--- script\nHello\n--- lacks\nHello\n", "contains: Hello")
    expect_fail("--- script\nbare\n--- output\nbare\n", "no end of headers")


@suite.case("the way a program ends is part of the result")
def _():
    expect_fail("--- script\nstatus 3\n--- lacks\nx\n", "exit status 3 instead of 1")
    expect_fail("--- script\ndie\n--- lacks\nx\n", "killed by a signal")
    expect_fail("--- script\ngrumble\n--- output\ngrumble\n", "standard error", "trouble")


@suite.case("a mistake in a case is a failure")
def _():
    expect_fail("--- script\nHello\n", "expects nothing")
    for broken in ("=== it\n--- outputs\nHello\n", "--- output\nHello\n", "=== it\nHello\n",
                   "=== it\n--- check\nHello\n", "=== it\n", "=== it\n=== that\n--- exit\n1\n"):
        status, lines = run(broken)
        if status == 0 or not lines[-1].endswith("1 failed"):
            raise Failure(f"{broken!r} gave {status}, {lines}")
    expect_in("place of the mistake", run("=== it\n--- outputs\nHello\n")[1][0], "t.page:2:")


@suite.case("the request is as the sections say")
def _():
    expect_pass("--- script\n\n--- query\na=1&b=2\n--- output\nquery=a=1&b=2\n\n")
    expect_pass("--- script\n\n--- post escaped\na=1\\x00\n--- output escaped\n"
                "application/x-www-form-urlencoded 4 a=1\\x00\n")
    expect_pass("--- script\n\n--- env\nCONTENT_TYPE=text/plain\n--- post\n{DIR}\n--- output\n"
                "text/plain 5 {DIR\\x7D\n".replace("output\n", "output escaped\n"))
    expect_pass("--- script\n\n--- args\none two\nthree\n--- output\n[one two][three]\n")
    expect_pass("--- file site/d/x.vx\nthere\n--- env\nPATH_INFO=/d/x.vx\n--- output\nthere\n")
    expect_pass("--- script\n\n--- config\nnice=0\n--- env\nSHOW=1\n--- contains\n"
                "vexaroot={DIR}/site\nnice=0\nusecookies=no\n")


@suite.case("requests of one case share a directory, cases do not")
def _():
    expect_pass("--- script\nwrite\n--- output\nwrite\n--- check data/left.txt\nleft\n\n"
                "--- request\n--- script\nagain\n--- output\nagain\n"
                "--- check data/left.txt escaped\nleft\\n\n")
    expect_fail("--- script\nwrite\n--- absent\ndata/left.txt\n", "data/left.txt exists")
    expect_fail("--- script\nx\n--- check data/left.txt\nleft\n", "does not exist")
    expect_fail("--- script\nwrite\n--- check data/left.txt\nright\n\n", "other content")
    status, lines = run("=== one\n--- script\nwrite\n--- exit\n1\n=== two\n--- script\nx\n"
                        "--- absent\ndata/left.txt\n")
    expect("result", (status, lines[-1]), (0, "2 passed, 0 failed"))


@suite.case("comments belong to no section")
def _():
    status, lines = run("# file\n\n=== one\n# why\n--- script\n# a\n--- output\n# a\n"
                        "# on the next\n=== two\n--- script\nb\n--- output\nb\n")
    # A "#" line directly above a case is taken for its comment, the first output's too.
    expect("result", (status, lines[-1]), (1, "1 passed, 1 failed"))
    status, lines = run("=== one\n--- script\n# a\n--- output\n# a\n--- exit\n1\n# on the next\n"
                        "=== two\n--- script\nb\n--- output\nb\n")
    expect("result", (status, lines[-1]), (0, "2 passed, 0 failed"))


@suite.case("cases are chosen by name, and failures are shown when quiet")
def _():
    cases = "=== one\n--- script\na\n--- output\na\n=== two\n--- script\nb\n--- output\nc\n"
    status, lines = run(cases, "--filter", "one")
    expect("one", (status, len(lines), lines[-1]), (0, 2, "1 passed, 0 failed"))
    status, lines = run(cases, "--filter", "neither")
    expect("neither", (status, lines), (0, ["0 passed, 0 failed"]))
    status, lines = run(cases, "--quiet")
    expect("status", status, 1)
    expect("PASS lines", [line for line in lines if line.startswith("PASS")], [])
    expect_in("first line", lines[0], ": two")


if __name__ == "__main__":
    sys.exit(suite.main())
