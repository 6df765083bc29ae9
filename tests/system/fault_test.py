#!/usr/bin/env python3
"""Requests that are killed before, or in the middle of, the Nth call that changes a file, and calls that
fail: whoever comes next sees a change wholly or not at all, in the table, its texts and its indexes, and
can make it again. Then many requests at once, some of them killed.

A run takes some positions and a few seconds of the crowd; VEXA_ALL_FAULTS=1 takes all of them and two
minutes."""

import os
import random
import shutil
import sqlite3
import struct
import subprocess
import sys
import time

from database_life_test import OPEN, Database
from harness import Failure, Skip, Suite, expect

suite = Suite("faults")

ALL = os.environ.get("VEXA_ALL_FAULTS") == "1"
STEP = 1 if ALL else 2
CROWD_SECONDS = 120 if ALL else 5
CROWD = 16
PEOPLE = 60

FIND = '<VxPRIMARY NAME="t" INDEX="id.vxx"><VxFIND VALUE=n EXACT>'
DONE = "<VxIF EXPR=\"{0}_Error EQ ''\">done</VxIF>"

# What changes a table: a page, and the rows it makes of {id: [name, note]}. All can be made again.
LONG = "x" * 9000
CHANGES = {
    "add": ("<VxLET id=100><VxLET name='new'><VxLET note=\"" + LONG + "\"><VxADD>",
            lambda rows: {**rows, 100: ["new", LONG]}),
    "update": ("<VxLET n=33>" + FIND + "<VxIF EXPR=\"EOF NE 0\"><VxLET n=333>" + FIND + "</VxIF>"
               "<VxLET id=333><VxLET name='zed'><VxLET note='changed'><VxUPDATE>",
               lambda rows: {**{n: row for n, row in rows.items() if n != 33}, 333: ["zed", "changed"]}),
    "delete": ("<VxLET n=7>" + FIND + "<VxDELETE>",
               lambda rows: {n: row for n, row in rows.items() if n != 7}),
    "pack": ("<VxPACK>", dict),
    "reindex": ("<VxREINDEX>", dict),
    "makeindex": ('<VxMAKEINDEX INDEXFILE="name.vxx" EXPR="name">', dict),
}
# Pages that change other files: the file, its content before, and after.
FILES = {
    "write": ('<FILE WRITE="f" VALUE="1000">', "999", "1000"),
    "create": ('<FILE WRITE="f" VALUE="' + LONG + '">', None, LONG),
    "copy": ('<FILE COPY="g" TO="f">', "old", "g" * 9000),
    "export": ("<VxLET v=\"" + LONG + "\"><VxEXPORT FILE=\"f\" FIELDS=\"v\" DELIMITER=\",\">", "one\n",
               "one\n" + LONG + "\n"),
}
LOOK = OPEN + """\
<VxFILTER FILTER="NOT deleted"><VxPRIMARY NAME="t" INDEX="id.vxx"><VxGO ROW="top">\
<VxWHILE EXPR="EOF EQ 0">&[id]|&[name]|&[note]
<VxSKIP></VxWHILE>=
<VxPRIMARY NAME="t" INDEX="name.vxx"><VxGO ROW="top">\
<VxWHILE EXPR="EOF EQ 0">&[id]|&[name]|&[note]
<VxSKIP></VxWHILE>=
<VxLET n=0><VxWHILE EXPR="n LT 400">""" + FIND + """\
<VxIF EXPR="EOF EQ 0">&[n]|&[name]|&[note]
</VxIF><VxLET n=n + 1></VxWHILE>"""


class Site(Database):
    """A site whose requests may meet faults. `data` is put back from a copy before each."""

    def __init__(self, build):
        super().__init__(build)
        self.library = build / "libfault_calls.so"
        self.body = b""  # of the requests that meet faults
        if b"__asan_init" in self.program.read_bytes():
            raise Skip("the sanitizers want to be the first library themselves")
        self.kept = self.directory / "kept"
        self.write("look.vx", LOOK)

    def keep(self):
        shutil.copytree(self.data, self.kept, dirs_exist_ok=True)

    def restore(self):
        shutil.rmtree(self.data)
        shutil.copytree(self.kept, self.data)

    def meet(self, page, fault):
        """Whether the fault was reached, and the page; None when the process was killed, also by itself."""
        note = self.directory / "note"
        note.unlink(missing_ok=True)
        process = subprocess.run(
            [self.program], cwd=self.directory, input=self.body, capture_output=True,
            env={"GATEWAY_INTERFACE": "CGI/1.1", "PATH_INFO": "/" + page, "TZ": "UTC",
                 "CONTENT_TYPE": "multipart/form-data; boundary=b", "CONTENT_LENGTH": str(len(self.body)),
                 "LD_PRELOAD": str(self.library), "VEXA_FAULT": fault, "VEXA_FAULT_NOTE": str(note)})
        killed = process.returncode < 0
        return note.exists(), None if killed else process.stdout.decode("latin-1")

    def state(self):
        """The live rows that a request sees, which must be the same in all ways of looking."""
        page = self.page("look.vx")
        if "Error" in page:
            raise Failure(f"the next request: {page[:300]}")
        ways = [sorted(way.splitlines()) for way in page.split("=\r\n" if "=\r\n" in page else "=\n")]
        for way in ways[1:]:
            expect("rows by another index, or found one by one", way, ways[0])
        rows = {int(row.split("|")[0]): row.split("|")[1:] for row in ways[0]}
        expect("rows", len(rows), len(ways[0]))
        self.check()
        live, _ = self.counted_rows()
        if {n: row[1:] for n, row in live.items()} != rows:
            raise Failure(f"another reader sees {len(live)} rows, not {len(rows)}, or others")
        return rows

    def counted_rows(self):
        """What dbfread sees of the records that count: it goes on to the end mark, where a record may
        stand that was not to be."""
        table = (self.data / "t.dbf").read_bytes()
        count, header, length = struct.unpack_from("<IHH", table, 4)
        kept, self.data = self.data, self.directory / "counted"
        self.data.mkdir(exist_ok=True)
        (self.data / "t.dbf").write_bytes(table[:header + count * length] + b"\x1a")
        shutil.copy(kept / "t.dbt", self.data / "t.dbt")
        try:
            return self.rows()
        finally:
            self.data = kept


def positions(site, page, kinds, step=1, most=1000):
    """Meets each fault in turn; yields its name and what came of it."""
    count = 0
    for kind in kinds:
        for at in range(1 + random.randrange(step), most, step):
            site.restore()
            reached, text = site.meet(page, f"{kind}:{at}")
            if not reached:
                break
            count += 1
            try:
                yield text
            except GeneratorExit:
                print(f"  at {kind}:{at} of {page}")
                raise
    print(f"  {page}: {count} positions")
    expect(f"{page}: whether there were any", count > 0, True)


@suite.case("a change of a table is whole or nothing, and can be made again")
def tables():
    with Site(suite.build) as site:
        site.page("create.vx")
        site.page("add.vx", f"first=0&count={PEOPLE}")
        site.keep()
        before = site.state()
        for name, (change, make) in CHANGES.items():
            site.write(f"{name}.vx", OPEN + change)
            after = make(before)
            for text in positions(site, f"{name}.vx", ("kill", "tear", "fail", "failon"), STEP):
                found = site.state()
                if found not in (before, after):
                    raise Failure(f"{name}: {sorted(found)[:99]}")
                if text is not None and "Error" not in text and found != after:
                    raise Failure(f"{name} said nothing, but was not done")
                if name != "add" or found == before:
                    page = site.page(f"{name}.vx")
                    expect(f"{name} made again", page.strip(), "")
                expect(f"rows after {name} was made again", site.state(), after)


@suite.case("a change that waits for the disk is the same change")
def durable():
    with Site(suite.build) as site:
        with open(site.directory / "vexa.conf", "a") as config:
            config.write("durable=1\n")
        site.page("create.vx")
        site.page("add.vx", "first=0&count=9")
        site.keep()
        before = site.state()
        for name in ("add", "pack"):
            site.write(f"{name}.vx", OPEN + CHANGES[name][0])
            after = CHANGES[name][1](before)
            for _ in positions(site, f"{name}.vx", ("kill", "fail"), 2 * STEP):
                if site.state() not in (before, after):
                    raise Failure(f"{name} is neither done nor undone")


@suite.case("making a table when it is missing gets there in the end")
def creating():
    with Site(suite.build) as site:
        site.write("make.vx", """\
<VxIF EXPR="NOT fexists('t.dbf')">\
<VxCREATE NAME="t" DATABASE="t.dbf" FIELDS="id NUMBER(6), note MEMO"><VxCLOSE></VxIF>\
<VxIF EXPR="NOT fexists('id.vxx')"><VxOPEN NAME="t" DATABASE="t.dbf">\
<VxMAKEINDEX INDEXFILE="id.vxx" EXPR="id"><VxCLOSE></VxIF>\
<VxOPEN NAME="t" DATABASE="t.dbf" INDEXES="id.vxx"><VxLET id=1><VxLET note='text'><VxADD>&[totrec]""")
        site.write("again.vx", '<VxCREATE NAME="t" DATABASE="t.dbf" FIELDS="id NUMBER(6), note MEMO">&[totrec]')
        site.keep()
        for _ in positions(site, "make.vx", ("kill", "tear")):
            if site.page("make.vx").strip() not in ("1", "2"):
                raise Failure(site.page("make.vx"))
        site.restore()
        site.page("make.vx")
        site.keep()
        site.write("count.vx", '<VxOPEN NAME="t" DATABASE="t.dbf">&[totrec]&[note]')
        for text in positions(site, "again.vx", ("kill", "fail")):
            if site.page("count.vx").strip() not in ("0", "1text"):
                raise Failure(site.page("count.vx"))
            expect("creating again", site.page("again.vx").strip(), "0")


@suite.case("a file is written, copied or exported to wholly or not at all")
def files():
    with Site(suite.build) as site:
        for name, (change, before, after) in FILES.items():
            site.write(f"{name}.vx", change)
            shutil.rmtree(site.kept, ignore_errors=True)
            site.kept.mkdir()
            (site.kept / "g").write_text("g" * 9000)
            if before is not None:
                (site.kept / "f").write_text(before)
            for text in positions(site, f"{name}.vx", ("kill", "tear", "fail")):
                found = (site.data / "f").read_text() if (site.data / "f").exists() else None
                whole = found in (before, after)
                # Half a record ends its line before the next one begins.
                if not whole and name == "export":
                    site.write("next.vx", '<VxLET v="next"><VxEXPORT FILE="f" FIELDS="v" DELIMITER=",">')
                    site.page("next.vx")
                    whole = (site.data / "f").read_text().endswith("x\nnext\n")
                if not whole:
                    raise Failure(f"{name} left {found[:60] if found else found!r}")


@suite.case("a page for which there is no memory says so, gives its locks back and leaves all whole")
def memory():
    whole, message = "u" * 20000, "Fatal Error: Out of memory\r\n"
    with Site(suite.build) as site:
        site.page("create.vx")
        site.page("add.vx", "first=0&count=9")
        site.write("short.vx", """\
<VxFUNCTION NAME="Vexa_ValidateFileUpload" PARAMETERS="n, f, t"><VxFUNCRETURN VALUE="0"></VxFUNCTION>\
<VxFUNCTION NAME="Vexa_ProcessFileUpload" PARAMETERS="n, f, t, p, s, c"><FILE COPY=p TO="kept">\
</VxFUNCTION><VxFUNCTION NAME="twice" PARAMETERS="n"><VxFUNCRETURN VALUE=n $ n></VxFUNCTION>""" + OPEN + """\
<VxLOCKFILE FILE="short"><VxWHILE EXPR="i LT 3"><VxLET i=i + 1><VxLET s=twice(s $ big)></VxWHILE>\
<FILE WRITE="f" VALUE=s>""" + CHANGES["add"][0] + """</VxLOCKFILE>\
<VxEXPORT FILE="e" FIELDS="s" DELIMITER=","><VxEVAL EXPR="len(s) $ vexa_field('x')">""")
        site.body = (b'--b\r\nContent-Disposition: form-data; name="big"\r\n\r\n' + whole[:5000].encode()
                     + b'\r\n--b\r\nContent-Disposition: form-data; name="x"\r\n\r\n1\r\n'
                     b'--b\r\nContent-Disposition: form-data; name="u"; filename="u.txt"\r\n\r\n'
                     + whole.encode() + b"\r\n--b--\r\n")
        site.keep()
        before = site.state()
        after = CHANGES["add"][1](before)
        done = site.meet("short.vx", "short:1000000")[1].partition("\r\n\r\n")[2]
        files = {name: (site.data / name).read_text() for name in ("kept", "f", "e")}
        for text in positions(site, "short.vx", ("short",), 1 if ALL else 29, 100000):
            if text is None:
                raise Failure("the process ended by itself")
            head, _, page = text.partition("\r\n\r\n")
            # What can be done without may be missing.
            if not head.startswith("Content-type: ") or (page != done and not page.endswith(message)):
                raise Failure(f"the page: {text[-300:]}")
            left = {path.name for path in site.data.iterdir()} - {path.name for path in site.kept.iterdir()}
            if not left <= files.keys() or page == done != "" and left != files.keys():
                raise Failure(f"files of the page: {left}")
            wrong = [name for name in left if (site.data / name).read_text() not in
                     (files[name], "" if name == "e" else files[name])]
            expect("files that are not whole", wrong, [])
            if site.state() not in (before, after):
                raise Failure("the table is neither as before nor as after")


@suite.case("an SQL file is changed wholly or not at all where there is no memory for its engine")
def sql_memory():
    with Site(suite.build) as site:
        opened = '<VxOPEN NAME="p" TYPE="sqlite3" DATABASE="p.db#p">'
        site.write("make.vx", opened.replace("VxOPEN", "VxCREATE").replace(">", ' FIELDS="a CHAR(9)">'))
        site.write("sql.vx", opened + """<VxQUERY QUERY="BEGIN"><VxLET p.d.a=1><VxADD><VxLET p.d.a=2><VxADD>\
<VxLET p.d.a=3><VxUPDATE><VxQUERY QUERY="COMMIT"><VxOPENVIEW VIEW="v" QUERY="SELECT a FROM p"><VxSKIP VIEW="v">""")
        site.page("make.vx")
        site.keep()
        for text in positions(site, "sql.vx", ("short",), 1 if ALL else 29, 100000):
            if text is None or "already exists" in text:
                raise Failure(f"the page: {text}")
            with sqlite3.connect(site.data / "p.db") as base:
                rows = base.execute("SELECT a FROM p ORDER BY id").fetchall()
            expect("whether the rows are whole", rows in ([], [("1",), ("3",)]), True)


@suite.case("an upload is kept wholly or not at all, and leaves no file behind")
def uploads():
    whole = "u" * 20000
    old = "VEXA_FUP0000000A"
    with Site(suite.build) as site:
        site.write("up.vx", """\
<VxFUNCTION NAME="Vexa_ValidateFileUpload" PARAMETERS="n, f, t"><VxFUNCRETURN VALUE="0"></VxFUNCTION>\
<VxFUNCTION NAME="Vexa_ProcessFileUpload" PARAMETERS="n, f, t, p, s, c"><FILE COPY=p TO="kept">\
</VxFUNCTION>&[n]""")
        site.body = (b'--b\r\nContent-Disposition: form-data; name="u"; filename="u.txt"\r\n\r\n'
                     + whole.encode() + b"\r\n--b--\r\n")
        (site.data / old).write_text("of a request that was killed long ago")
        os.utime(site.data / old, (1000, 1000))
        site.keep()
        collected = False
        for text in positions(site, "up.vx", ("kill", "tear", "fail")):
            names = {path.name for path in site.data.iterdir()}
            collected = collected or old not in names
            if "kept" in names and (site.data / "kept").read_text() != whole:
                raise Failure("half of the upload was kept")
            left = {name for name in names - {old, "kept"} if name.startswith("VEXA_FUP")}
            # Only the last call, which removes the file, may have been the one that failed.
            if text is not None and left and "kept" not in names:
                raise Failure(f"a request that ended left {left}")
        expect("what was left long ago is collected where files must have names", collected, True)


@suite.case("a crowd, some of it killed, loses nothing")
def crowd():
    with Site(suite.build) as site:
        with open(site.directory / "vexa.conf", "a") as config:
            config.write("maxfiles=3\n")
        site.page("create.vx")
        site.write("one.vx", OPEN + """\
<VxLET n=int(number)><VxLET id=n><VxLET name='n' $ (n MOD 7)><VxLET note='note ' $ n><VxADD>\
<VxIF EXPR="VxADD_Error EQ ''">done</VxIF>""")
        site.write("move.vx", OPEN + """\
<VxLET n=int(number)>""" + FIND + """<VxLET name='m' $ (n MOD 5)><VxLET note='moved ' $ n><VxUPDATE>\
<VxIF EXPR="VxUPDATE_Error EQ '' AND EOF EQ 0">done</VxIF>""")
        sure, perhaps, moved, maybe_moved, running = set(), set(), set(), set(), []
        longest, number, end = 0, 0, time.monotonic() + CROWD_SECONDS
        while time.monotonic() < end or running:
            if len(running) < CROWD and time.monotonic() < end:
                kind = random.choices(["one", "move", "pack", "reindex"], [10, 8, 1, 1])[0]
                if kind == "one":
                    number += 1
                target = number if kind == "one" else random.choice(sorted(sure) or [0])
                if kind == "move" and not sure:
                    continue
                process = site.start(f"{kind}.vx", f"number={target}")
                kill_at = time.monotonic() + random.uniform(0, 0.03) if random.random() < 0.3 else None
                running.append((process, kind, target, time.monotonic(), kill_at))
            for entry in list(running):
                process, kind, target, begun, kill_at = entry
                if kill_at is not None and time.monotonic() >= kill_at:
                    process.kill()
                if process.poll() is None:
                    if time.monotonic() - begun > 60:
                        raise Failure(f"{kind} waits for more than a minute")
                    continue
                running.remove(entry)
                text = process.communicate()[0].decode("latin-1")
                if process.returncode >= 0 and kill_at is None:
                    longest = max(longest, time.monotonic() - begun)
                if kind in ("one", "move"):
                    done = text.endswith("done")
                    if process.returncode >= 0 and not done and "replaced by another process" not in text:
                        raise Failure(f"{kind} {target}: {text[-300:]}")
                    if kind == "one":
                        (sure if done else perhaps).add(target)
                    else:
                        (moved if done else maybe_moved).add(target)
            time.sleep(0.001)
        # The next request completes what the last ones left.
        site.page("list.vx", "index=id.vxx")
        site.check()
        rows = site.rows()[0]
        lost = sorted(sure - rows.keys())
        expect("records that were lost", lost, [])
        expect("records that nobody added", sorted(rows.keys() - sure - perhaps), [])
        for n, row in rows.items():
            forms = [[n, f"n{n % 7}", f"note {n}"], [n, f"m{n % 5}", f"moved {n}"]]
            allowed = forms[1:] if n in moved else forms if n in maybe_moved else forms[:1]
            if row not in allowed:
                raise Failure(f"record {n} is {row}, not one of {allowed}")
        for index in ("id.vxx", "name.vxx"):
            expect(f"entries of {index}", len(site.listed(index)), len(rows))
        print(f"  {number} adds, {len(moved)} updates, longest request {longest:.3f} s")


if __name__ == "__main__":
    sys.exit(suite.main())
