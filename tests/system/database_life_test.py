#!/usr/bin/env python3
"""The life of a database, in pages that many processes run: it grows, changes, is packed and
indexed anew, and at every stage the checker finds it good and another reader finds in it what was
put there. Then what must not cost it anything: full disks and files that may not be written."""

import os
import pathlib
import re
import subprocess
import sys
import tempfile

from harness import ROOT, Failure, ProgramSite, Suite, expect, expect_in, page_of

# Where Debian keeps dbfread, for a python3 that is not Debian's.
sys.path.append("/usr/lib/python3/dist-packages")
import dbfread  # noqa: E402

suite = Suite("database life")

AT_ONCE = 4
REQUESTS = 1000
ADDS = 10
RECORDS = REQUESTS * ADDS
PAGE_BYTES = 4096  # what a tmpfs gives out at a time

CREATE = """\
<VxCREATE NAME="t" DATABASE="t.dbf" FIELDS="id NUMBER(6), name CHAR(12), note MEMO">\
<VxMAKEINDEX INDEXFILE="id.vxx" EXPR="id" FLAGS="unique">\
<VxMAKEINDEX INDEXFILE="name.vxx" EXPR="name">"""

OPEN = '<VxOPEN NAME="t" DATABASE="t.dbf" INDEXES="id.vxx, name.vxx">'

# Keys repeat: a tenth as many names as records. Every third record has a text.
ADD = OPEN + """\
<VxLET first=int(first)><VxWHILE EXPR="i LT count"><VxLET n=first + i><VxLET i=i + 1><VxLET id=n>\
<VxLET name='n' $ ((n * 7919) MOD 1000)>\
<VxLET note=''><VxIF EXPR="n MOD 3 EQ 0"><VxLET note='note ' $ n></VxIF>\
<VxADD><VxIF EXPR="VxADD_Error EQ ''"><VxLET done=done + 1></VxIF></VxWHILE>[&[done]]"""

UPDATE = OPEN + """\
<VxLET n=int(first)><VxWHILE EXPR="i LT count"><VxLET i=i + 1><VxFIND VALUE=n EXACT>\
<VxLET name='moved' $ (n MOD 97)><VxIF EXPR="n MOD 7 EQ 0"><VxLET note='changed ' $ n></VxIF>\
<VxUPDATE><VxIF EXPR="VxUPDATE_Error EQ ''"><VxLET done=done + 1></VxIF>\
<VxLET n=n + step></VxWHILE>[&[done]]"""

DELETE = OPEN + """\
<VxWHILE EXPR="EOF EQ 0"><VxIF EXPR="id MOD 11 EQ 0"><VxDELETE></VxIF><VxSKIP></VxWHILE>"""

LIST = OPEN + """\
<VxPRIMARY NAME="t" INDEX=index><VxIF EXPR="live"><VxFILTER FILTER="NOT deleted"></VxIF>\
<VxGO ROW="top"><VxWHILE EXPR="EOF EQ 0">&[id],&[name],&[note]
<VxSKIP></VxWHILE>"""


def note_of(number):
    return f"note {number}" if number % 3 == 0 else ""


def added(number):
    return [number, f"n{number * 7919 % 1000}", note_of(number)]


class Database(ProgramSite):
    """A site with the pages above."""

    def __init__(self, build, data=None):
        super().__init__(build, "globaltimeout=300", data)
        for name, text in {"create": CREATE, "add": ADD, "update": UPDATE, "delete": DELETE,
                           "list": LIST, "pack": OPEN + "<VxPACK>",
                           "reindex": OPEN + "<VxREINDEX>"}.items():
            self.write(f"{name}.vx", text)

    def run_all(self, requests):
        """Pages of (page, query) pairs, several at once, in their order."""
        waiting, pages = [], []
        for page, query in requests:
            waiting.append(self.start(page, query))
            if len(waiting) == AT_ONCE:
                pages.append(page_of(waiting.pop(0)))
        return pages + [page_of(process) for process in waiting]

    def check(self):
        """The checker must find nothing wrong with table, memo file and indexes."""
        done = subprocess.run(
            [self.program, "--check-table", "t.dbf", "id.vxx", "name.vxx"], cwd=self.data,
            stdin=subprocess.DEVNULL, capture_output=True, text=True,
            env={name: value for name, value in os.environ.items()
                 if name not in ("GATEWAY_INTERFACE", "PATH_INFO")})
        if done.returncode != 0:
            raise Failure(f"the checker found faults:\n{done.stdout}{done.stderr}")

    def rows(self):
        """All records as dbfread sees them: ({id: row}, {id: deleted row})."""
        table = dbfread.DBF(self.data / "t.dbf", encoding="latin-1", load=True)

        def by_id(records):
            rows = [[int(r["ID"]), r["NAME"], r["NOTE"] or ""] for r in records]
            expect("records with the same id", len({row[0] for row in rows}), len(rows))
            return {row[0]: row for row in rows}

        return by_id(table.records), by_id(table.deleted)

    def listed(self, index, live=""):
        return [line.split(",") for line in
                self.page("list.vx", f"index={index}&live={live}").splitlines()]

    def expect_rows(self, live, deleted=()):
        """Checks files, another reader, and both orders against rows {id: row}."""
        self.check()
        read, read_deleted = self.rows()
        expect("live records", read, live)
        expect("deleted records", sorted(read_deleted), sorted(deleted))
        as_text = [[str(row[0]), row[1], row[2]] for row in live.values()]
        expect("in the order of ids", self.listed("id.vxx", "1"),
               sorted(as_text, key=lambda row: int(row[0])))
        by_name = self.listed("name.vxx", "1")
        expect("names in order", [row[1] for row in by_name], sorted(row[1] for row in as_text))
        expect("all records", sorted(by_name), sorted(as_text))


@suite.case("ten thousand records: added, updated, deleted, packed, indexed")
def whole_life():
    with Database(suite.build) as site:
        expect("creating", site.page("create.vx"), "")
        pages = site.run_all(("add.vx", f"first={i * ADDS}&count={ADDS}") for i in range(REQUESTS))
        expect("adds that were done", {*pages}, {f"[{ADDS}]"})
        rows = {n: added(n) for n in range(RECORDS)}
        site.expect_rows(rows)

        # Each of these goes through every fifth id, so they meet on the same pages of the indexes.
        pages = site.run_all(("update.vx", f"first={i}&count=400&step=5") for i in range(3))
        expect("updates that were done", pages, ["[400]"] * 3)
        for n in (i + 5 * k for i in range(3) for k in range(400)):
            rows[n] = [n, f"moved{n % 97}", f"changed {n}" if n % 7 == 0 else rows[n][2]]
        site.expect_rows(rows)

        expect("deleting", site.page("delete.vx"), "")
        live = {n: row for n, row in rows.items() if n % 11 != 0}
        site.expect_rows(live, [n for n in rows if n not in live])

        expect("packing", site.page("pack.vx"), "")
        site.expect_rows(live)
        expect("indexing anew", site.page("reindex.vx"), "")
        site.expect_rows(live)


@suite.case("packing and indexing while others add")
def changing_together():
    with Database(suite.build) as site:
        expect("creating", site.page("create.vx"), "")
        requests = []
        for i in range(60):
            requests.append(("add.vx", f"first={i * 5}&count=5"))
            if i % 6 == 5:
                requests.append(("pack.vx", ""))
            if i % 10 == 9:
                requests.append(("reindex.vx", ""))
        site.run_all(requests)
        site.expect_rows({n: added(n) for n in range(300)})


def documented_example():
    """The page that the documentation shows in full."""
    text = (ROOT / "docs/databases.md").read_text().split("## A complete example")[1]
    lines = text.split("\n## ")[0].splitlines()
    return "\n".join(line[4:] for line in lines if line.startswith("    ")) + "\n"


@suite.case("the example of the documentation lists, searches, adds, edits and deletes")
def example():
    with ProgramSite(suite.build, "sitekey={DIR}/sitekey") as site:
        site.write("people.vx", documented_example())
        first = site.start("people.vx").communicate()[0].decode()
        cookie, token = (re.search(pattern, first)[1] for pattern in ("Set-Cookie: ([^;]*)", 'token" VALUE="([^"]*)'))

        def page(query="", form="", **environment):
            with tempfile.TemporaryFile() as body:
                body.write(form.encode())
                body.seek(0)
                if form:
                    environment = {"REQUEST_METHOD": "POST", "CONTENT_TYPE": "application/x-www-form-urlencoded",
                                   "CONTENT_LENGTH": str(len(form)), "HTTP_HOST": "a.org", **environment}
                text = page_of(site.start("people.vx", query, stdin=body, HTTP_COOKIE=cookie, **environment))
            if "Error" in text:
                raise Failure(f"{query} {form}: {text}")
            return text

        def names(text):
            return re.findall("<TR><TD>([^<]*)<TD>", text)

        expect("the first visit", names(page()), [])
        forged = f"do=save&name=Eve&token={token}"
        for attempt in ({"query": forged}, {"form": "do=save&name=Eve"}, {"form": forged + "x"},
                        {"form": forged, "HTTP_ORIGIN": "http://b.org"}, {"form": forged, "HTTP_ORIGIN": "null"},
                        {"form": forged, "query": "HTTP_SEC_FETCH_SITE=same-origin", "HTTP_ORIGIN": "https://b.org"},
                        {"form": forged, "HTTP_SEC_FETCH_SITE": "same-site", "HTTP_ORIGIN": "http://a.org"}):
            expect(f"forged: {attempt}", names(page(**attempt)), [])
        for i in range(45):
            page(form=f"do=save&name=Person+{i:02}&age={i}&notes=a+%26+b&token={token}", HTTP_ORIGIN="http://a.org")
        expect("the first page", names(page()), [f"Person {i:02}" for i in range(20)])
        expect("the last page", names(page("from=40")), [f"Person {i:02}" for i in range(40, 45)])
        expect("a search", names(page("search=person+3"))[0], "Person 30")
        expect("a search for nothing", names(page("search=x")), [])
        form = page("edit=8")
        expect_in("the form", form, '<INPUT NAME="name" VALUE="Person 07">')
        expect_in("the form", form, "a &amp; b</TEXTAREA>")
        page(form=f"do=save&id=8&name=%3CAda%3E&age=x&notes=&token={token}", HTTP_SEC_FETCH_SITE="same-origin")
        expect("the first name", names(page())[0], "&lt;Ada&gt;")
        page(form=f"do=delete&id=1&token={token}")
        expect("after deleting", names(page())[:2], ["&lt;Ada&gt;", "Person 01"])
        expect_in("a new form", page("edit=1"), '<INPUT NAME="name">')
        expect_in("the way on", page("from=20"), 'people.vx?from=40')


# --- Disks -----------------------------------------------------------------------------------


class SmallDisk:
    """A file system of its own in memory."""

    def __init__(self, pages):
        self.pages = pages

    def __enter__(self):
        self.directory = pathlib.Path(os.path.realpath(tempfile.mkdtemp(prefix="vexa-disk-")))
        self.mount("tmpfs", "-o", f"size={self.pages * PAGE_BYTES},nr_inodes=64,mode=755")
        return self

    def mount(self, *arguments):
        done = subprocess.run(["mount", "-t", "tmpfs", *arguments, self.directory],
                              stdin=subprocess.DEVNULL, capture_output=True, text=True)
        if done.returncode != 0:
            os.rmdir(self.directory)
            raise OSError(done.stderr)

    def make_read_only(self):
        subprocess.run(["mount", "-o", "remount,ro", self.directory], check=True)

    def leave(self, pages):
        """Fills the disk but for so many pages."""
        status = os.statvfs(self.directory)
        size = (status.f_bavail - pages) * status.f_bsize
        (self.directory / "filler").write_bytes(b"x" * size)

    def make_room(self):
        (self.directory / "filler").unlink()

    def __exit__(self, *ignored):
        subprocess.run(["umount", self.directory], check=True)
        os.rmdir(self.directory)


def can_mount():
    if os.geteuid() != 0:
        return False
    try:
        with SmallDisk(4):
            return True
    except OSError:
        return False


def disk_case(name):
    """Registers a case that needs a disk of its own; says so where there cannot be one."""
    if can_mount():
        return suite.case(name)
    print(f"SKIP {suite.name}: {name}: no file system can be mounted here")
    return lambda function: function


def number_in_brackets(page):
    return int(page[page.rindex("[") + 1:page.rindex("]")] or 0)


@disk_case("a disk that fills up while records are added")
def full_while_adding():
    failed = 0
    for room in range(12):
        with SmallDisk(64) as disk, Database(suite.build, disk.directory) as site:
            site.page("create.vx")
            expect("adding", site.page("add.vx", "first=0&count=30"), "[30]")
            disk.leave(room)
            page = site.page("add.vx", "first=1000&count=60")
            done = number_in_brackets(page)
            if done < 60:
                failed += 1
                expect_in("the error", page, "No space left on device")
            site.check()
            live, deleted = site.rows()
            expect(f"records with room for {room} pages", len(live), 30 + done)
            for number, row in live.items():
                expect("a record", row, added(number))
            expect("entries of an index", len(site.listed("name.vxx")), 30 + done)
            disk.make_room()
            expect("adding again", site.page("add.vx", "first=2000&count=20"), "[20]")
            site.check()
    if failed < 3:
        raise Failure(f"the disk was full only {failed} times")


@disk_case("a disk that is full while records change, and while files are made anew")
def full_while_changing():
    with SmallDisk(96) as disk, Database(suite.build, disk.directory) as site:
        site.page("create.vx")
        expect("adding", site.page("add.vx", "first=0&count=200"), "[200]")
        site.page("delete.vx")
        live, deleted = site.rows()
        before = {name: (site.data / name).read_bytes() for name in os.listdir(site.data)}
        disk.leave(0)
        for page in ("pack.vx", "reindex.vx"):
            expect_in(f"the error of {page}", site.page(page), "No space left on device")
            for name, content in before.items():
                if (site.data / name).read_bytes() != content:
                    raise Failure(f"{page} changed {name}")
            expect("files", sorted(os.listdir(site.data)), sorted([*before, "filler"]))
        # Texts need new blocks; keys find room here and there.
        page = site.page("update.vx", "first=0&count=200&step=1")
        expect_in("the error of updates", page, "No space left on device")
        done = number_in_brackets(page)
        site.check()
        now, now_deleted = site.rows()
        changed = [n for n, row in {**now, **now_deleted}.items() if row != added(n)]
        expect("records that changed", len(changed), done)
        for n in changed:
            note = f"changed {n}" if n % 7 == 0 else note_of(n)
            expect("a record", {**now, **now_deleted}[n], [n, f"moved{n % 97}", note])
        disk.make_room()
        expect("updating again", site.page("update.vx", "first=0&count=200&step=1"), "[200]")
        expect("packing", site.page("pack.vx"), "")
        site.check()
        expect("records that are left", sorted(site.rows()[0]), sorted(live))


@disk_case("files that may only be read")
def read_only():
    with SmallDisk(96) as disk, Database(suite.build, disk.directory) as site:
        site.page("create.vx")
        site.page("add.vx", "first=0&count=5")
        disk.make_read_only()
        expect("listing", site.listed("id.vxx"), [[str(n), *added(n)[1:]] for n in range(5)])
        site.write("change.vx", OPEN + """\
<VEXA VxMAKEINDEX_Error="nonfatal"><VxLET name='x'><VxADD>
<VxUPDATE>
<VxDELETE>
<VxREINDEX>
<VxMAKEINDEX INDEXFILE="new.vxx" EXPR="name">
<VxCREATE NAME="n" DATABASE="n.dbf" FIELDS="a CHAR(1)">
&[totrec]&[recno]<VxPACK>""")
        lines = site.page("change.vx").split("\r\n")
        reason = "Read-only file system"
        for line, name in zip(lines, ["t.dbf"] * 3 + ["id.vxx", "new.vxx", "n.dbf"]):
            expect_in("an error", line, f"'{name}'")
        for line in (lines[0], lines[1], lines[2], lines[4], lines[5]):
            expect_in("an error", line, reason)
        expect_in("after all errors", lines[6], "51")
        expect_in("the error of packing", lines[6], f"Error writing to 't.dbf': {reason}")
        site.check()


if __name__ == "__main__":
    sys.exit(suite.main())
