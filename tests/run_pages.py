#!/usr/bin/env python3
"""Runs the cases of page files against the program: a page and a request in, a response out.

    tests/run_pages.py PROGRAM [--quiet] [--filter TEXT] [--env NAME=VALUE]... [--fastcgi SEED]
                       [--config-line KEY=VALUE]... FILE.page...

Every case gets a fresh directory with a configuration file, the directories site/, data/ and tmp/,
and a link named `vexa` to the program, which finds its configuration beside that name. A case is a
sequence of requests; what one leaves in the directory the next one finds. A request that does not
say what it expects is a mistake in the case: it could not fail. docs/testing.md describes the
format. With --fastcgi PROGRAM is a worker, whose one child serves all cases, but those with arguments,
twice, in an order that SEED gives, in one directory: what it keeps of a file must not survive another
file of that name. A --config-line stands behind every configuration that does not say that setting
itself. Texts are read as Latin-1, so that every byte is one character and stays what it is.

The last line is "N passed, N failed"; the exit status is 0 only when nothing failed, and something
ran or a filter was given."""

import argparse
import concurrent.futures
import contextlib
import os
import pathlib
import random
import re
import shutil
import signal
import socketserver
import subprocess
import sys
import tempfile
import threading
import time

import fastcgi

LIMIT_SECONDS = 60
OLD_ENOUGH_SECONDS = 0.03  # For a worker to keep what it reads of a file.
SCRIPT_RAN = "1"  # The program's exit status after a script ran.
LINES_SHOWN = 6
LONGEST = 120  # Bytes in a line of a page file.
CONFIG = """vexaroot={DIR}/site
stdmodedatadir={DIR}/data
tempdir={DIR}/tmp
usecookies=no
serveradmin=admin@example.com
"""
ENVIRONMENT = {
    "GATEWAY_INTERFACE": "CGI/1.1", "SERVER_PROTOCOL": "HTTP/1.1", "SERVER_NAME": "localhost",
    "SERVER_PORT": "80", "SCRIPT_NAME": "/cgi-bin/vexa", "REQUEST_METHOD": "GET",
    "PATH_INFO": "/index.vx", "QUERY_STRING": "", "REMOTE_ADDR": "127.0.0.1",
    "PATH": "/usr/bin:/bin", "TZ": "UTC"}

# The kinds of sections, and what each may have behind its name.
LASTING = {"config": "", "file": "PATH", "script": ""}  # What stays for the requests behind.
ASKED = {**LASTING, "get": "PATH?QUERY", "query": "", "post": "", "form": "", "env": "", "args": "",
         "exit": ""}
EXPECTED = {"output": "", "response": "", "contains": "", "lacks": "", "check": "PATH", "absent": "",
            "values": ""}
TABLES = {"errors": "", "refused": ""}  # Every row is a request, as where `rows` is said.
KINDS = {**ASKED, **EXPECTED, **TABLES, "request": ""}
MARKS = ("escaped", "joined", "rows")
HIDDEN = "This page has an error. Reference: "


class Mistake(Exception):
    """A page file that is not written as page files are; the text says where and what."""


class Section:
    def __init__(self, kind, place, argument="", lines=(), marks=()):
        self.kind, self.place, self.argument = kind, place, argument
        self.lines, self.marks = list(lines), marks

    @staticmethod
    def opened(line, place):
        """The section that a line `--- KIND ARGUMENT MARK...` opens, with `: TEXT` a whole one."""
        header, colon, text = line[4:].partition(": ")
        words = header.split()
        marks = [word for word in words if word in MARKS] + ["whole"] * bool(colon)
        words = [word for word in words if word not in marks]
        kind = words[0] if words else ""
        if (kind not in KINDS or len(words) != (2 if KINDS[kind] and "rows" not in marks else 1)
                or ("rows" in marks and kind not in ASKED)):
            raise Mistake(f"{place}: unknown section or wrong argument: {line}")
        return Section(kind, place, words[-1], [text] if colon else [], marks)

    def is_table(self):
        return self.kind in TABLES or "rows" in self.marks

    def finish(self, text):
        return unescape(text) if "escaped" in self.marks else text

    def text(self):
        return self.finish(("" if "joined" in self.marks else "\n").join(self.lines))

    def texts(self):
        """The lines that are not empty, each as a text."""
        return [self.finish(line) for line in self.lines if line]

    def rows(self):
        """The rows LEFT => RIGHT with their places; several stand on a line between ` ;; `, and a
        line that begins with a space goes on with the one above it."""
        file, _, first = self.place.rpartition(":")
        lines = []
        if not any(self.lines):
            raise Mistake(f"{self.place}: no rows")
        for number, line in enumerate(self.lines, int(first) + ("whole" not in self.marks)):
            if line.startswith(" ") and lines:
                lines[-1][1] += line
            else:
                lines.append([f"{file}:{number}", line])
        for place, line in lines:
            for row in filter(None, line.split(" ;; ")):
                left, arrow, right = f" {row.strip()} ".partition(" => ")
                if not arrow:
                    raise Mistake(f"{place}: a row without an arrow: {row}")
                yield self.finish(left.strip()), self.finish(right.strip()), place


def unescape(text):
    """The bytes that the text stands for; a backslash before anything else stands for itself."""
    named = {"n": "\n", "r": "\r", "t": "\t", "\\": "\\"}
    return re.sub(r"\\(?:([nrt\\])|x([0-9a-fA-F]{2}))",
                  lambda found: named[found[1]] if found[1] else chr(int(found[2], 16)), text)


def key_of(line):
    return line.partition("=")[0].strip().lower()


def shown(label, texts):
    return "".join(f"\n      {label}{text.encode('unicode_escape').decode()}" for text in texts)


def difference(expected, actual):
    """Where two texts differ: the line before, then what was expected and what came."""
    wanted, found = (re.findall("[^\n]*\n|[^\n]+", text) for text in (expected, actual))
    same = len(os.path.commonprefix([wanted, found]))
    report = (f"\n    first difference in line {same + 1}"
              + shown("same      ", wanted[max(same - 1, 0):same]))
    for label, lines in ("expected  ", wanted[same:]), ("actual    ", found[same:]):
        report += shown(label, lines[:LINES_SHOWN] or ["(the end)"])
        if len(lines) > LINES_SHOWN:
            report += f"\n                and {len(lines) - LINES_SHOWN} more lines"
    return report


def read_pages(file):
    """The cases of a page file: pairs of a name and the sections."""
    cases = []
    section = None
    with open(file, encoding="latin-1", newline="\n") as stream:
        lines = stream.read().removesuffix("\n").split("\n")
    for number, line in enumerate(lines, 1):
        place = f"{file}:{number}"
        if len(line) > LONGEST:
            raise Mistake(f"{place}: longer than {LONGEST} bytes")
        if line.startswith("=== "):
            while section and section.lines and section.lines[-1].startswith("#"):
                section.lines.pop()  # A comment on this case.
            if cases and not section:
                raise Mistake(f"{place}: empty case before this")
            cases.append((f"{file}: {line[4:]}", []))
            section = None
        elif line.startswith("--- "):
            if not cases:
                raise Mistake(f"{place}: section outside of a case")
            section = Section.opened(line, place)
            cases[-1][1].append(section)
        elif section and "whole" not in section.marks:
            section.lines.append(line)
        elif line.strip() and not line.startswith("#"):
            raise Mistake(f"{place}: text outside of a section: {line}")
    if not section:
        raise Mistake(f"{file}:{len(lines)}: no case at the end")
    return cases


def requests(sections):
    """The requests of a case, each as the list of its sections. One begins at `request` and at what
    is asked behind what is expected; every row of a table is one."""
    request = []
    for section in sections:
        expects = request and request[-1].kind in EXPECTED
        if section.kind == "request" or (expects and section.kind not in EXPECTED):
            if request:
                yield request
            request = []
        if not section.is_table():
            request.append(section)
            continue
        for left, right, place in section.rows():
            yield request + table_row(section.kind, left, right, place)
            request = [former for former in request if former.kind not in LASTING]
        request = []
    if request:
        yield request


def table_row(kind, left, right, place):
    """The sections for which a row stands."""
    asked = Section(kind, place, left, [left])
    if kind == "refused":
        syntax = "Syntax error in Configuration File: " if right.startswith("Line ") else ""
        right = (f"{syntax}{right}<BR>\nPlease contact the server administrator: "
                 "admin@example.com\r\n")
        return [asked, Section("exit", place, lines=["0"]), Section("output", place, lines=[right])]
    if kind == "errors":
        asked, right = Section("script", place, lines=[left]), f"index.vx: Line 1: {right}\r\n"
    return [asked, Section("output", place, lines=[right])]


class Request:
    """One request, put together and then checked by its sections. `faults` says what is wrong; it
    is empty when everything was as expected."""

    config_lines = []

    def __init__(self, directory, config, worker=None):
        self.directory, self.config, self.worker = directory, config, worker
        self.environment, self.arguments, self.body = dict(ENVIRONMENT), [], b""
        self.status, self.script, self.faults = SCRIPT_RAN, "", []

    def own(self, text):
        return text.replace("{URL}", Answers.url(self.directory)).replace(
            "{PORT}", str(Answers.port)).replace("{DIR}", str(self.directory))

    def write(self, name, text):
        path = self.directory / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(self.own(text).encode("latin-1"))

    def ask(self, section):
        kind = section.kind
        if kind == "config":
            self.config += section.text() + "\n"
        elif kind == "file":
            self.write(section.argument, section.text())
        elif kind == "script":
            self.script = section.text()
            self.write("site/index.vx", self.script)
        elif kind == "values":
            rows = [f"\x1e<VxEVAL EXPR={expression}>\x1f\n" for expression, _, _ in section.rows()]
            self.write("site/index.vx", self.script + "".join(rows))
        elif kind == "get":
            path, _, query = section.argument.partition("?")
            self.environment.update(PATH_INFO=path, QUERY_STRING=query)
        elif kind == "query":
            self.environment["QUERY_STRING"] = self.own(section.text())
        elif kind == "post":
            self.post("application/x-www-form-urlencoded", section.text())
        elif kind == "form":
            parts = [f"--b\r\nContent-Disposition: form-data; {head}\r\n\r\n{data}\r\n"
                     for head, data, _ in section.rows()]
            self.post("multipart/form-data; boundary=b", "".join(parts) + "--b--")
        elif kind == "args":
            self.arguments = [self.own(text) for text in section.texts()]
        elif kind == "exit":
            self.status = section.text()

    def post(self, kind, body):
        self.body = body.encode("latin-1")
        self.environment.update(REQUEST_METHOD="POST", CONTENT_TYPE=kind,
                                CONTENT_LENGTH=str(len(self.body)))

    def set_environment(self, section):
        for text in section.texts():
            name, equals, value = self.own(text).partition("=")
            self.environment.pop(name, None)
            if equals:
                self.environment[name] = value

    def make(self, sections, extra):
        for section in sections:
            self.ask(section)
        # The environment goes last, so that it has its way over what a body or a query implies.
        for section in sections:
            if section.kind == "env":
                self.set_environment(section)
        if not any(section.kind in (*EXPECTED, "exit") for section in sections):
            self.fault(sections[0], "the request expects nothing")
            return
        setting = [section.text() + "\n" for section in sections if section.kind == "refused"]
        config = self.config + "".join(setting)
        said = {key_of(line) for line in config.splitlines()}
        added = [line + "\n" for line in self.config_lines if key_of(line) not in said]
        self.write("vexa.conf", config + "".join(added))
        before = self.worker and state_of(self.directory)
        outputs = [self.run(sections[0], {**self.environment, **extra})]
        if before and before == state_of(self.directory):
            # Nothing was written, so it can be asked again: first of a worker that may keep the files
            # now, then of one that does.
            time.sleep(OLD_ENOUGH_SECONDS)
            outputs += [self.run(sections[0], {**self.environment, **extra}) for _ in range(2)]
        for output in outputs:
            # What was to show an error hides it where the configuration says so.
            hides = HIDDEN in output and any("rror" in section.text() for section in sections)
            for section in sections:
                if not hides or section.kind in ("check", "absent"):
                    self.check(section, output)

    def run(self, first, environment):
        """Runs the program; what it wrote to standard output."""
        if self.worker:
            output, errors, status = self.worker.ask(environment, self.body, LIMIT_SECONDS)
            return self.judged(first, output, errors + self.worker.errors(), status)
        process = subprocess.Popen(
            [self.directory / "vexa", *self.arguments], cwd=self.directory, env=environment,
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
            start_new_session=True)
        try:
            output, errors = process.communicate(self.body, LIMIT_SECONDS)
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)  # And the processes that it started.
            output, errors = process.communicate()
            self.fault(first, f"ran for more than {LIMIT_SECONDS} seconds")
        return self.judged(first, output, errors, process.returncode)

    def judged(self, first, output, errors, status):
        if str(status) != self.status:
            self.fault(first, f"exit status {status} instead of {self.status}")
        if errors and HIDDEN not in output.decode("latin-1"):
            self.fault(first, "wrote to standard error", shown("", [errors.decode("latin-1")]))
        return output.decode("latin-1")

    def fault(self, section, text, details=""):
        self.faults.append(f"  {section.place}: {text}{details}")

    def compare(self, section, what, expected, actual):
        if self.own(expected) != actual:
            self.fault(section, f"{what} is not as expected",
                       difference(self.own(expected), actual))

    def check(self, section, output):
        kind = section.kind
        if kind == "output":
            headers, blank, page = output.partition("\r\n\r\n")
            if not blank:
                self.fault(section, "the response has no end of headers", shown("", [headers]))
            self.compare(section, "the page", section.text(), page)
        elif kind == "response":
            self.compare(section, "the response", section.text(), output)
        elif kind in ("contains", "lacks"):
            for text in section.texts():
                if (self.own(text) in output) != (kind == "contains"):
                    self.fault(section, f"not so: the response {kind}" + shown("", [text]),
                               shown("actual    ", output.splitlines(True)))
        elif kind == "values":
            beside = re.sub("\x1e[^\x1e\x1f]*\x1f", "", output).partition("\r\n\r\n")[2].strip()
            if beside:
                self.fault(section, "the page says more than the values", shown("", [beside]))
            found = re.findall("\x1e([^\x1e\x1f]*)\x1f", output)
            for expression, value, place in section.rows():
                if not found:
                    self.fault(section, f"no value of {expression}", shown("", [output]))
                    break
                self.compare(Section("", place), expression, value, found.pop(0))
        elif kind == "check":
            path = self.directory / section.argument
            if path.is_file():
                self.compare(section, section.argument, section.text(),
                             path.read_bytes().decode("latin-1"))
            else:
                self.fault(section, f"{section.argument} does not exist")
        elif kind == "absent":
            for name in section.text().split():
                if os.path.lexists(self.directory / name):
                    self.fault(section, f"{name} exists")


class Answers(socketserver.StreamRequestHandler):
    """A server that answers {URL}/NAME with the bytes of the file answers/NAME of the case, and notes
    the request in requests/NAME."""

    port = 0

    @classmethod
    def url(cls, directory):
        return f"http://127.0.0.1:{cls.port}{directory}"

    @classmethod
    def start(cls):
        server = socketserver.ThreadingTCPServer(("127.0.0.1", 0), cls)
        server.daemon_threads, cls.port = True, server.server_address[1]
        threading.Thread(target=server.serve_forever, daemon=True).start()

    def handle(self):
        head = b""
        while not head.endswith(b"\r\n\r\n"):
            head += self.rfile.readline() or b"\r\n\r\n"
        length = re.search(rb"\r\nContent-Length: (\d+)", head)
        body = self.rfile.read(int(length[1])) if length else b""
        directory, name = os.path.split(re.split(rb"[ ?]", head)[1].decode())
        (pathlib.Path(directory) / "requests").mkdir(exist_ok=True)
        (pathlib.Path(directory) / "requests" / name).write_bytes(head + body)
        self.wfile.write((pathlib.Path(directory) / "answers" / name).read_bytes())


def new_directory():
    # As realpath: the program refuses script directories that lie behind links.
    return tempfile.TemporaryDirectory(
        prefix="vexa-page-", dir=os.path.realpath(tempfile.gettempdir()))


def state_of(directory):
    """What tells whether anything was written in a directory."""
    entries = (os.lstat(os.path.join(folder, name))
               for folder, folders, files in os.walk(directory) for name in folders + files)
    return [(entry.st_ino, entry.st_size, entry.st_mtime_ns) for entry in entries]


def clear(directory):
    for entry in os.scandir(directory):
        if entry.is_dir(follow_symlinks=False):
            shutil.rmtree(entry)
        else:
            os.unlink(entry)


def run_case(sections, program, extra, worker=None, place=None):
    """What went wrong, in lines; empty when the case passed."""
    with contextlib.nullcontext(place) if place else new_directory() as name:
        directory = pathlib.Path(name)
        clear(directory)
        for name in ("site", "data", "tmp"):
            (directory / name).mkdir()
        (directory / "vexa").symlink_to(program)
        config = CONFIG
        try:
            for request_sections in requests(sections):
                request = Request(directory, config, worker)
                request.make(request_sections, extra)
                if request.faults:
                    return request.faults
                config = request.config
        except Mistake as mistake:
            return [f"  {mistake}"]
    return []


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("program", type=pathlib.Path)
    parser.add_argument("--quiet", action="store_true")
    parser.add_argument("--filter", default="")
    parser.add_argument("--env", action="append", default=[], metavar="NAME=VALUE")
    parser.add_argument("--fastcgi", metavar="SEED")
    parser.add_argument("--config-line", action="append", default=[], metavar="KEY=VALUE")
    parser.add_argument("files", nargs="+")
    options = parser.parse_args()
    # How the sanitizers report is the business of whoever runs the tests.
    passed_on = [f"{name}={os.environ[name]}" for name in ("ASAN_OPTIONS", "UBSAN_OPTIONS")
                 if name in os.environ]
    extra = dict(setting.split("=", 1) for setting in passed_on + options.env)
    Request.config_lines = options.config_line
    passed = failed = 0
    cases = []
    for file in options.files:
        try:
            cases += [case for case in read_pages(file) if options.filter in case[0]]
        except (Mistake, OSError) as mistake:
            print(f"FAIL {mistake}")
            failed += 1
    with contextlib.ExitStack() as held:
        pool = held.enter_context(concurrent.futures.ThreadPoolExecutor(os.cpu_count()))
        program, runner = options.program.resolve(), pool.map
        worker = place = None
        if options.fastcgi is not None:
            fastcgi.leave_root()
            place, runner = held.enter_context(new_directory()), map
            (pathlib.Path(place) / "vexa.conf").touch()
            worker = held.enter_context(fastcgi.Worker(
                program, place, "--children", "1", "--requests", "1000000", "--config",
                f"{place}/vexa.conf", environment=dict(os.environ, **extra)))
            cases = [case for case in cases if not any(part.kind == "args" for part in case[1])] * 2
            random.Random(options.fastcgi).shuffle(cases)
        Answers.start()
        reports = runner(lambda case: run_case(case[1], program, extra, worker, place), cases)
        for (name, _), faults in zip(cases, reports):
            passed += not faults
            failed += bool(faults)
            if faults:
                print("\n".join([f"FAIL {name}", *faults]), flush=True)
            elif not options.quiet:
                print(f"PASS {name}", flush=True)
    print(f"{passed} passed, {failed} failed")
    return 0 if failed == 0 and (passed or options.filter) else 1


if __name__ == "__main__":
    sys.exit(main())
