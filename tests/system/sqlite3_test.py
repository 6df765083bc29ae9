#!/usr/bin/env python3
"""Databases of the embedded SQL engine against that engine itself: orders, finds and changes compared
with what another program makes of the same file; files and texts meant to do harm; many processes."""

import os
import random
import re
import shutil
import sqlite3
import subprocess
import sys
import time

from harness import ROOT, ProgramSite, Suite, WebServer, expect, expect_in, page_of, until, wait_until_stuck

suite = Suite("sqlite3")

# Index, columns and directions as ORDER BY writes them.
ORDERS = [("i_real", "r"), ("i_real_down", "r DESC, s"), ("i_fold", "s COLLATE NOCASE, r DESC"),
          ("i_upper", "upper(s), w"), ("i_mixed", "w DESC"), ("i_three", "b, w DESC, s")]
WALK = """<VxWHILE EXPR="t.d.EOF EQ 0">&[key] <VxSKIP NAME="t" ROWS="{step}"></VxWHILE>|"""


def mixed_values(chance):
    """Values of every kind, among them reals that no short decimal names, and many that are equal."""
    return chance.choice([None, 0, 1, -5, 0.1 + 0.2, 1 / 3, 1e300, -1e-7, 2**53 + 1, 2**62, "", "a", "A", "ab", "Ab",
                          "z\xe9", "10", "9", b"a", b"\x00\xff", chance.randrange(40), chance.random()])


@suite.case("pages go through rows in the engine's own order, both ways")
def orders():
    chance = random.Random(seed := random.randrange(10**6))
    for shape, key in (("key INTEGER PRIMARY KEY", "key"), ("key TEXT PRIMARY KEY", "key, rowid"),
                       ("key TEXT COLLATE NOCASE PRIMARY KEY", "key, rowid")):
        for suffix in ("", " WITHOUT ROWID") if "TEXT" in shape else ("",):
            with ProgramSite(suite.build) as site:
                base = sqlite3.connect(site.data / "t.db")
                base.execute(f"CREATE TABLE t({shape}, r REAL, s TEXT, w, b BOOLEAN){suffix}")
                for index, columns in ORDERS:
                    base.execute(f"CREATE INDEX {index} ON t({columns})")
                for i in range(1200):
                    value = chance.choice([None, 0.1, 1 / 3, 5, chance.random(), chance.random() * 1e20])
                    text = chance.choice([None, "", "b", "B", "ba", "Ba ", "c\x01", chance.choice("xyz") * 3])
                    base.execute("INSERT INTO t VALUES(?,?,?,?,?)",
                                 (i if "INTEGER" in shape else f"{'kK'[i % 2]}{i * 7919 % 1200}", value, text,
                                  mixed_values(chance), chance.choice([None, 0, 1])))
                base.commit()
                ends = key.split(", ")[0] if suffix else key
                for index, columns in [("", ""), *ORDERS]:
                    order = ", ".join(filter(None, (columns, ends)))
                    rows = [str(row[0]) for row in base.execute(f"SELECT key FROM t ORDER BY {order}")]
                    site.write("index.vx", f"""<VxOPEN NAME="t" TYPE="sqlite3" DATABASE="t.db#t" INDEXES="{index}">"""
                               + WALK.format(step=1) + """<VxGO NAME="t" ROW="bottom">""" + WALK.format(step=-1)
                               + """<VxGO NAME="t" ROW="top"><VxSKIP NAME="t" ROWS="700">&[key] """
                               + """<VxSKIP NAME="t" ROWS="-1">&[key] &[t.d.recno]""")
                    down, up, ends_at = site.page().strip().split("|")
                    what = f"seed {seed}, {shape}{suffix} by {order}"
                    expect(what, down.split(), rows)
                    expect(f"{what}, backwards", up.split(), rows[::-1])
                    number = rows[699] if "INTEGER" in shape else "700"
                    expect(f"{what}, a long way", ends_at.split(), [rows[700], rows[699], number])
                base.close()


def random_script(chance, steps):
    """Operations whose page must be the same on every type: no equal keys, nothing deleted in sight, a
    record's number not asked for once one was deleted."""
    names, numbers, lines = [], list(range(1, 9000)), []
    chance.shuffle(numbers)

    def fresh():
        name = "".join(chance.choice("abAB'\"%_*\\;:$-") for _ in range(chance.randrange(1, 9))) + str(len(names))
        names.append(name)
        return name.replace('"', "&quot;")

    def assign(every):
        fields = [f'<VxLET name="{fresh()}">', f'<VxLET price="{numbers.pop() / 100}">',
                  f'<VxLET born_raw="19{chance.randrange(70, 99)}1{chance.randrange(3)}{chance.randrange(10, 29)}">',
                  f'<VxLET ok="{chance.randrange(2)}">', f'<VxLET notes="n{chance.randrange(99)} it\'s">']
        return "".join(field for field in fields if every or chance.random() < 0.5)

    def value(exact):
        name = chance.choice(names) if chance.random() < 0.8 else "zz"
        return (name if exact else name[:chance.randrange(1, 4)]).replace('"', "&quot;")

    for step in range(steps):
        kind = chance.choice("AAAAUUDSSSSSSSBBBGFFFXL") if step > 3 else "A"
        if kind == "A":
            line = assign(step == 0) + f'<VxLET name="{fresh()}"><VxLET price="{numbers.pop() / 100}"><VxADD>'
        elif kind == "U":
            line = '<VxIF EXPR="deleted EQ 0">' + assign(False) + "<VxUPDATE></VxIF>"
        elif kind == "D":
            line = '<VxIF EXPR="deleted EQ 0"><VxDELETE></VxIF>'
        elif kind in "SB":
            line = f'<VxSKIP ROWS="{chance.choice([1, 1, 2, 5, 40]) * (1 if kind == "S" else -1)}">'
        elif kind == "G":
            line = f'<VxGO ROW="{chance.choice(["top", "bottom"])}">'
        elif kind == "F":
            exact = chance.random() < 0.5
            line = (f'<VxPRIMARY NAME="t" INDEX="by_name.vxx"><VxFIND VALUE="{value(exact)}" '
                    f'{"EXACT" if exact else ""}>')
        elif kind == "X":
            line = f'<VxPRIMARY NAME="t" INDEX="by_{chance.choice(["name", "price"])}.vxx">'
        else:
            line = (f'<VxFILTER FILTER="NOT deleted{chance.choice(["", " AND price GT 40", " AND ok"])}">')
        lines.append(f"{line}{step}: [&[name] &[price] &[born_raw] &[born] &[ok] &[notes] &[deleted]&[EOF]]")
    return "\n".join(lines)


@suite.case("random operations show the same page as on table files")
def same_pages():
    for _ in range(30):
        chance = random.Random(seed := random.randrange(10**6))
        script = random_script(chance, 200)
        pages = {}
        for kind, place in (("xbase3", "t.dbf"), ("sqlite3", "t.db#t")):
            with ProgramSite(suite.build) as site:
                site.write("index.vx", f"""<VxCREATE NAME="t" TYPE="{kind}" DATABASE="{place}" FIELDS="name CHAR(20),
price NUMBER(8.2), born DATE, ok BOOL, notes MEMO"><VxMAKEINDEX INDEXFILE="by_name.vxx" EXPR="name" FLAGS="string">
<VxMAKEINDEX INDEXFILE="by_price.vxx" EXPR="price"><VxFILTER FILTER="NOT deleted">
{script}""")
                pages[kind] = site.page().split("\n")
        expect(f"lines, seed {seed}", len(pages["sqlite3"]), len(pages["xbase3"]))
        for number, (line, table_line) in enumerate(zip(pages["sqlite3"], pages["xbase3"])):
            if line != table_line:
                expect(f"seed {seed}, line {number}, {script.splitlines()[max(0, number - 3)]}", line, table_line)


CROWD = """<VxOPEN NAME="t" TYPE="sqlite3" DATABASE="c.db#t"><VxWHILE EXPR="i LT 12"><VxLET i=i + 1><VxIF EXPR="u">
<VxQUERY QUERY="BEGIN"></VxIF><VxLET v=0><VxLET who='&[me]-' $ i><VxADD><VxGO ROW="1"><VxQUERY
 QUERY="UPDATE t SET v = v + 1 WHERE id = 1"><VxIF EXPR="u"><VxQUERY QUERY="COMMIT"></VxIF><VxGO ROW="top"><VxLET n=0>
<VxWHILE EXPR="EOF EQ 0"><VxLET n=n + 1><VxIF EXPR="t.d.id LE last"><VxEXIT></VxIF><VxLET last=t.d.id><VxSKIP></VxWHILE>
<VxLET last=0></VxWHILE>done"""


@suite.case("a crowd that adds, updates and pages loses nothing and sees no error")
def crowd():
    for mode in ("delete", "wal"):
        with ProgramSite(suite.build, "globaltimeout=120") as site:
            base = sqlite3.connect(site.data / "c.db")
            base.execute(f"PRAGMA journal_mode={mode}")
            base.executescript("CREATE TABLE t(id INTEGER PRIMARY KEY, who TEXT UNIQUE, v INT);"
                               "INSERT INTO t VALUES(1, '', 0)")
            site.write("index.vx", CROWD)
            until_time, rounds = time.monotonic() + float(os.environ.get("VEXA_CROWD_SECONDS", "2")), 0
            while rounds == 0 or time.monotonic() < until_time:
                processes = [site.start(query=f"me={rounds}x{i}&u={i % 2}&i=0&last=0") for i in range(16)]
                for process in processes:
                    expect(f"page in mode {mode}", page_of(process).strip(), "done")
                rounds += 1
            expect("rows and updates", base.execute("SELECT count(*), max(v) FROM t").fetchone(),
                   (rounds * 192 + 1, rounds * 192))
            expect("check", base.execute("PRAGMA integrity_check").fetchone(), ("ok",))
            base.close()


@suite.case("the check of pages warns of values written into statements")
def check():
    with ProgramSite(suite.build) as site:
        site.write("q.vx", """<VxQUERY QUERY="SELECT :a"><VxOPENVIEW VIEW="v" QUERY="SELECT '&[a:entities]'">
<VxQUERY QUERY=a><VxOPENVIEW VIEW="&[v:entities]" QUERY='SELECT 1'>
<VxQUERY QUERY="SELECT " $ a $ "b"><VxQUERY NAME=t QUERY="SELECT '$'">""")
        done = subprocess.run([site.program, "--check", site.site / "q.vx"], capture_output=True, text=True)
        lines = [line.split(": ")[1] for line in done.stdout.splitlines() if "write :name in its place" in line]
        expect("lines with warnings", (done.returncode, lines), (0, ["Line 1", "Line 2", "Line 3"]))


def walk_shop(build, kind, products="", orders="", config=""):
    """The pages of a walk through the example shop with its tables there; without places, where it has them."""
    with WebServer(build, f"sitekey={{DIR}}/sitekey\nsendstatus=on\n{config}") as server:
        shutil.copytree(ROOT / "examples/site", server.site, dirs_exist_ok=True)
        opening = server.site / "shop/parts/open.vx"
        if kind == "sqlite3":
            (server.data / "shop").mkdir()  # What a set-up left that somebody interrupted.
            sqlite3.connect(server.data / products.partition("#")[0]).executescript("CREATE TABLE products(x)")
        if products:
            opening.write_text(opening.read_text().replace("kind='xbase3'", f"kind='{kind}'").replace(
                "shop/products.dbf", products).replace("shop/orders.dbf", orders))
        jar = ["--cookie", server.directory / "jar", "--cookie-jar", server.directory / "jar"]

        def page(path, *arguments):
            status, _, body = server.curl(path, *jar, *arguments)
            fields.update(re.findall(r'name="(\w+)" value="([^"]*)"', body))
            pages.append((path, status, re.sub(r'value="[\w.-]{20,}"|\d{4}-\d\d-\d\d \d\d:\d\d', "", body)))

        def send(path, **values):
            given = {**{name: fields[name] for name in ("token", "id", "order") if name in fields}, **values}
            page(path, *[part for name, value in given.items() for part in ("--data-urlencode", f"{name}={value}")])

        pages, fields = [], {}
        for sort in ("name", "price", "dear"):
            for number in (1, 2, 3):
                page(f"/shop/?sort={sort}&page={number}")
        page("/shop/?q=LAMP")
        page("/shop/product.vx?id=3")
        for quantity in ("1", "998", "2"):
            send("/shop/product.vx", quantity=quantity, customer="Zo\xe9 <i>", address="1\n2' \"")
            page("/shop/ordered.vx")
            fields.clear()
            page("/shop/product.vx?id=3")
        page("/shop/admin/login.vx")
        send("/shop/admin/login.vx", code=(server.data / "shop/code").read_text(), password="secret pass")
        page("/shop/admin/orders.vx")
        page("/shop/admin/edit.vx")
        send("/shop/admin/edit.vx", id="", name="A'B", category="x", price="1.239", stock="4", about="new")
        page("/shop/admin/")
        page("/shop/admin/delete.vx?id=3")
        send("/shop/admin/delete.vx")
        page("/shop/")
        return pages


def compare_shops(ours, theirs):
    for our_page, their_page in zip(ours, theirs, strict=True):
        expect("page", our_page, their_page)
    texts = "".join(body for _, _, body in ours)
    for part in ("will be sent to", "Only ", "A'B", "has been deleted"):
        expect_in("what was walked through", texts, part)


@suite.case("the shop is the same on an SQL file as on table files")
def shop():
    compare_shops(walk_shop(suite.build, "sqlite3", "shop/shop.db#products", "shop/shop.db#orders"),
                  walk_shop(suite.build, "xbase3"))


@suite.case("waiting and working end by the deadline, and what a killed page began is gone")
def deadlines():
    with ProgramSite(suite.build, "globaltimeout=2\nloglevel=2\nlogfile={DIR}/log") as site:
        base = sqlite3.connect(site.data / "t.db", isolation_level=None)
        base.executescript("CREATE TABLE t(id INTEGER PRIMARY KEY, a); INSERT INTO t(a) VALUES('one')")
        opened = """<VxOPEN NAME="t" TYPE="sqlite3" DATABASE="t.db#t">"""
        base.execute("BEGIN EXCLUSIVE")
        began = time.monotonic()
        site.write("index.vx", opened)
        expect_in("opening", site.page(), "Error opening database 't': Timed out")
        base.execute("ROLLBACK")
        site.write("index.vx", opened + """<VxQUERY QUERY="BEGIN"><VxADD><VxQUERY QUERY="WITH RECURSIVE r(i) AS
(SELECT 1
UNION ALL SELECT i + 1 FROM r) SELECT count(*) FROM r">""")
        expect_in("working", site.page(), "Timed out")
        base.execute("BEGIN IMMEDIATE")
        site.write("index.vx", opened + """<VxADD>""")
        expect_in("adding", site.page(), "Timed out")
        base.execute("ROLLBACK")
        assert time.monotonic() - began < 30
        site.write("index.vx", opened + """<VxQUERY QUERY="BEGIN"><VxADD>&[totrec]<VxLOCKFILE FILE="l"></VxLOCKFILE>""")
        expect("a page that leaves its transaction open", site.page().strip(), "2")
        expect_in("log", (site.directory / "log").read_text(), "ROLLEDBACK")
        (site.data / "l.lck").write_text("other:1")
        process = site.start()
        until(lambda: (site.data / "t.db-journal").exists())
        wait_until_stuck(process.pid)
        process.kill()
        process.communicate()
        (site.data / "l.lck").unlink()
        expect("after the kill", base.execute("SELECT count(*) FROM t").fetchone(), (1,))
        site.write("index.vx", opened + "<VxADD>&[totrec]")
        expect("the next page", site.page().strip(), "2")
        base.close()


@suite.case("files of the engine that are links, pipes or damaged do no harm, and nobody else opens them")
def hostile_files():
    with ProgramSite(suite.build, "securityoptions=12\nglobaltimeout=1") as site:
        victim = site.directory / "victim"
        victim.write_bytes(b"precious")
        page = """<VxOPEN NAME="t" TYPE="sqlite3" DATABASE="t.db#t"><VxADD>&[VxOPEN_Error]&[VxADD_Error]"""
        for beside in ("", "-journal", "-wal", "-shm"):
            for make in (lambda path: path.symlink_to(victim), lambda path: os.mkfifo(path)):
                base = sqlite3.connect(site.data / "t.db")
                base.execute(f"PRAGMA journal_mode={'wal' if beside in ('-wal', '-shm') else 'delete'}")
                base.executescript("CREATE TABLE t(id INTEGER PRIMARY KEY, a)")
                base.close()
                (site.data / f"t.db{beside}").unlink(missing_ok=True)
                make(site.data / f"t.db{beside}")
                site.write("index.vx", page)
                expect_in(f"t.db{beside}", site.page(), "Runtime Error")
                expect("victim", victim.read_bytes(), b"precious")
                for path in site.data.iterdir():
                    path.unlink()
        base = sqlite3.connect(site.data / "t.db")
        base.executescript("CREATE TABLE t(id INTEGER PRIMARY KEY, a); CREATE INDEX i ON t(a);")
        base.executemany("INSERT INTO t(a) VALUES(?)", [("x" * 300 + str(i),) for i in range(300)])
        base.commit()
        site.write("index.vx", """<VxIMPORT FILE="t.db" DELIMITER="," FIELDS="q"><VxOPEN NAME="t" TYPE="sqlite3"
 DATABASE="t.db"><VxIMPORTSTOP></VxIMPORT><VxOPEN NAME="t" TYPE="sqlite3" DATABASE="t.db"><VxOPEN NAME="u"
 DATABASE="hard.db"><FILE DELETE="t.db-wal"><FILE READ="t.db" NAME="x"><VxEVAL EXPR="fexists('t.db-shm')">""")
        os.link(site.data / "t.db", site.data / "hard.db")
        shown = site.page()
        for part in ("The page has it open as a file", "'hard.db' is open as a database",
                     "'t.db-wal' is open as a database", "'t.db' is open as a database",
                     "'t.db-shm' is open as a database"):
            expect_in("one file two ways", shown, part)
        base.close()
        whole = (site.data / "t.db").read_bytes()
        # The last key of the index is one of the first.
        (site.data / "t.db").write_bytes(whole.replace(b"x" * 300 + b"99", b"x" * 300 + b"10"))
        site.write("index.vx", """<VxOPEN NAME="t" TYPE="sqlite3" DATABASE="t.db#t" INDEXES="i"><VxWHILE
 EXPR="t.d.EOF EQ 0"><VxSKIP></VxWHILE>""")
        expect_in("an index that leads back", site.page(), "database disk image is malformed")
        chance = random.Random(seed := random.randrange(10**6))
        site.write("index.vx", """<VxOPEN NAME="t" TYPE="sqlite3" DATABASE="t.db#t" INDEXES="i"><VxWHILE
 EXPR="t.d.EOF EQ 0"><VxSKIP></VxWHILE><VxLET a=1><VxADD><VxUPDATE><VxDELETE>""")
        for _ in range(30):
            damaged = bytearray(whole[:chance.choice([len(whole), chance.randrange(len(whole))])])
            for _ in range(chance.randrange(1, 30) if damaged else 0):
                place = chance.choice([0, 4096, 8192]) + chance.randrange(4096)
                damaged[place if place < len(damaged) else 0] = chance.randrange(256)
            (site.data / "t.db").write_bytes(damaged)
            process = site.start()
            process.communicate(timeout=60)
            expect(f"exit status, seed {seed}", process.returncode, 1)


if __name__ == "__main__":
    sys.exit(suite.main())
