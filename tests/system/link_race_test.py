#!/usr/bin/env python3
"""Somebody exchanges a directory, or a file, and a link to another's all the time, while pages do with
the files there whatever pages can do: nothing behind the link is ever read, changed, made or removed.
Then the same where the system's call that refuses links is missing or forbidden. VEXA_TEST_TRIES sets
how often each is tried; a hundred thousand is a good number by hand."""

import contextlib
import ctypes
import errno
import os
import struct
import subprocess
import sys
import threading

from harness import ProgramSite, Suite, expect

suite = Suite("link races")
TRIES = int(os.environ.get("VEXA_TEST_TRIES", "1000"))
LIBC = ctypes.CDLL(None, use_errno=True)
TOLD = '<VxIF EXPR="{0}">!<VxELSE>?</VxIF>'  # of each try: done, or refused
ERRORS = (0, errno.ENOSYS, errno.EPERM)
DONE = TOLD.format("{0}_Error EQ ''")
SHOW = '<VxLET v=""><FILE READ="c" NAME="v">&[v]'


def file(action, *, before="", after=""):
    return before + f"<FILE {action}>" + DONE.format("FILE") + after


# What a page does with @, a file that is there in both places; pages that only a directory can be under.
WITH_FILE = {
    "read": file('READ="@" NAME="v"', before='<VxLET v="">', after="&[v]"),
    "write": file('WRITE="@" VALUE="w"'), "append": file('APPEND="@" VALUE="w"'), "touch": file('TOUCH="@"'),
    "copy": file('COPY="@" TO="c"', after=SHOW), "copy over": file('COPY="own" TO="@"'),
    "move": file('RENAME="@" TO="c"', before='<FILE WRITE="@" VALUE="w">', after=SHOW),
    "move over": file('RENAME="c" TO="@"', before='<FILE WRITE="c" VALUE="w">'),
    "delete": file('DELETE="@"', before='<FILE WRITE="@" VALUE="w">'),
    "mode": TOLD.format("fchmod('@', 438)"), "length": TOLD.format("fsize('@') EQ 107") +
    "<VxIF EXPR=\"fsize('@') EQ 108 OR fmode('@') EQ '0604'\">SECRET</VxIF>",
    "export": '<VxEXPORT FILE="@" FIELDS="n" DELIMITER=",">' + DONE.format("VxEXPORT"),
    "import": '<VxIMPORT FILE="@" FIELDS="v" DELIMITER=",">&[v]</VxIMPORT>' + DONE.format("VxIMPORT"),
    "table": '<VxOPEN NAME="t" DATABASE="@">' + DONE.format("VxOPEN") +
    '&[t.v]<VxLET v="w"><VxUPDATE><VxCLOSE NAME="t">',
}
IN_DIRECTORY = {
    "list": file('LIST="d" NAME="v"', before='<VxLET v="">', after="&[v]"),
    "exists": TOLD.format("fexists('d/f')") + "<VxIF EXPR=\"fexists('d/SECRET')\">SECRET</VxIF>",
    "make": file('WRITE="d/new" VALUE="w"', after='<FILE DELETE="d/new">'),
    "create": '<VxCREATE NAME="t" DATABASE="d/c.dbf" FIELDS="a CHAR(3)">' + DONE.format("VxCREATE") +
    '<VxADD><VxMAKEINDEX INDEXFILE="d/c.vxx" EXPR="a"><VxPACK><VxCLOSE NAME="t">',
    "SQL file": '<VxCREATE NAME="t" TYPE="sqlite3" DATABASE="d/s.db#t" FIELDS="a CHAR(3)">' + DONE.format("VxCREATE") +
    '<VxQUERY NAME="t" QUERY="DROP TABLE t"><VxCLOSE NAME="t">',
    "directory": file('MAKEDIR="d/m"', after='<FILE REMOVEDIR="d/m">'), "remove": file('REMOVEDIR="d/e"'),
    "link": TOLD.format("fsymlink('own', 'd/s')") + '<FILE DELETE="d/s">',
    "lock": '<VxLOCKFILE FILE="d/l"></VxLOCKFILE>' + DONE.format("VxLOCKFILE"),
    "script": "<VxDO FILE='d/' $ s $ 'p.vx'><VxLET s=s $ './'>" + DONE.format("VxDO"),
}


def table(value):
    """The bytes of a table with one field and one record."""
    return struct.pack("<4BIHH20x", 3, 99, 1, 1, 1, 65, 41) + struct.pack("<11sc4xB15x", b"V", b"C", 40) + b"\r " + \
        value.ljust(40) + b"\x1a"


def without_openat2(error):
    """Lets that call of this process, and of those it becomes, fail with `error`."""
    program = ctypes.create_string_buffer(struct.pack(
        "<HBBIHBBIHBBIHBBI", 0x20, 0, 0, 0, 0x15, 0, 1, 437, 6, 0, 0, 0x50000 | error, 6, 0, 0, 0x7FFF0000))
    if LIBC.prctl(38, 1, 0, 0, 0) or LIBC.prctl(22, 2, struct.pack("HxxxxxxP", 4, ctypes.addressof(program))):
        raise OSError("the filter of calls was refused")


class Race(ProgramSite):
    """A site with data in `own` and `d`, and what a neighbour keeps behind the link `k`."""

    def __init__(self, error=0):
        super().__init__(suite.build, "lockhostname=h\nmaxfiles=3")
        self.secret = self.directory / "secret"
        self.before_start = (lambda: without_openat2(error)) if error else None

    def prepare(self, place, name):
        """Puts a directory of two of that name and a link to the other into the directory `place`."""
        for directory, value in ((place / name, b"mine"), (self.secret, b"SECRET")):
            (directory / "e").mkdir(parents=True, exist_ok=True)
            for file in ("f", "p.vx", "s.db-journal", value.decode()):
                (directory / file).write_bytes(table(value) + (b"\x1a" if directory == self.secret else b""))
                (directory / file).chmod(0o604 if directory == self.secret else 0o600)
        (self.data / "own").write_text("own")

    def state(self):
        """All there is to be known of what lies behind the link, but when it was read."""
        paths = [self.secret, *sorted(self.secret.rglob("*"))]
        return [(path.name, status.st_mode, status.st_nlink, status.st_size, status.st_mtime_ns, status.st_ctime_ns)
                for path in paths for status in [path.stat()]]

    @contextlib.contextmanager
    def exchanged(self, path, link, target):
        """While it lasts, `path` and a link to `target` change places. Nothing behind the link changes."""
        ended = threading.Event()
        link.unlink(missing_ok=True)
        link.symlink_to(target)
        before = self.state()

        def exchange():
            while not ended.is_set():
                for _ in range(64):
                    LIBC.renameat2(-100, bytes(path), -100, bytes(link), 2)
                if not path.is_symlink() and not link.is_symlink():  # The page has removed it.
                    with contextlib.suppress(FileNotFoundError):
                        link.unlink()
                    link.symlink_to(target)
        thread = threading.Thread(target=exchange)
        thread.start()
        try:
            yield
        finally:
            ended.set()
            thread.join()
            if path.is_symlink():
                LIBC.renameat2(-100, bytes(path), -100, bytes(link), 2)
        expect("what lies behind the link", self.state(), before)


def run(site, body, path, link, target):
    site.write("index.vx", '<VEXA VxDO_ERROR="nonfatal" VxLOCKFILE_ERROR="nonfatal" VxCREATE_ERROR="nonfatal" '
               'VxMAKEINDEX_ERROR="nonfatal"><VxWHILE EXPR="i LT count">' + body + "<VxLET i=i + 1></VxWHILE>")
    pages, tries = "", 0
    with site.exchanged(path, link, target):
        # At least until it came upon the file as well as upon the link.
        wanted = TRIES // 10 if site.before_start else TRIES
        while tries < wanted or (tries < 100 * wanted and not ("!" in pages and "?" in pages)):
            pages += site.page(query="count=100")
            tries += 100
    expect("secrets", pages.count("SECRET"), 0)
    expect("met", ("!" in pages, "?" in pages), (True, True))


for name, body in WITH_FILE.items():
    @suite.case(f"{name}: a directory, and a file, that becomes a link")
    def _(name=name, body=body):
        for error in ERRORS:
            with Race(error) as site:
                site.prepare(site.data, "d")
                run(site, body.replace("@", "d/f"), site.data / "d", site.data / "k", site.secret)
                site.prepare(site.data, "d")
                (site.data / "d/f").rename(site.data / "f")
                run(site, body.replace("@", "f"), site.data / "f", site.data / "k", site.secret / "f")

for name, body in IN_DIRECTORY.items():
    @suite.case(f"{name}: a directory that becomes a link")
    def _(name=name, body=body):
        for error in ERRORS:
            with Race(error) as site:
                place = site.site if name == "script" else site.data
                site.prepare(place, "d")
                run(site, body, place / "d", place / "k", site.secret)


@suite.case("upload, session, file to be sent: a data directory that becomes a link")
def _():
    body = b'--x\r\nContent-Disposition: form-data; name="f"; filename="f"\r\n\r\ntext\r\n--x--\r\n'
    page = ('<VxFUNCTION NAME="Vexa_ValidateFileUpload" PARAMETERS="f, n, t"><VxFUNCRETURN VALUE="0"></VxFUNCTION>'
            '<VxFUNCTION NAME="Vexa_ProcessFileUpload" PARAMETERS="f, n, t, path, size, status"></VxFUNCTION>'
            "<VxEVAL EXPR=\"vexa_sendfile('f', '', '')\"><VxEVAL EXPR=\"vexa_setsessionvalue('a', 'b')\">")
    request(page, lambda site: site.data, "index.vx", stdin=subprocess.PIPE, REQUEST_METHOD="POST",
            HTTP_COOKIE="vexasession=" + "a" * 32, CONTENT_TYPE="multipart/form-data; boundary=x",
            CONTENT_LENGTH=str(len(body)), body=body)


@suite.case("the page itself: a directory that becomes a link")
def _():
    request("", lambda site: site.site / "d", "d/p.vx")


def request(page, path_of, name, body=b"", **how):
    for error in ERRORS:
        with Race(error) as site:
            path = path_of(site)
            site.write("index.vx", page)
            site.prepare(path.parent, path.name)
            secrets, met, tries = [], set(), 0
            wanted = TRIES // 10 if error else TRIES
            with site.exchanged(path, site.directory / "k", site.secret):
                # A page that opens many files seldom finds each of them.
                while tries < wanted or (tries < 100 * wanted and len(met) < 2):
                    answer = site.start(name, **how).communicate(body)[0]
                    secrets += [answer] if b"SECRET" in answer else []
                    met.add(b"mine" in answer)
                    tries += 1
            expect("secrets", secrets, [])
            expect("met", met, {True, False})


if __name__ == "__main__":
    sys.exit(suite.main())
