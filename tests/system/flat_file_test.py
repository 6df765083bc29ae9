#!/usr/bin/env python3
"""Flat files, the FILE tag and the activity log with several processes at once, and a flat file
that is larger than the memory a page may use."""

import resource
import subprocess
import sys
import re

from harness import ProgramSite, Suite, expect, page_of

suite = Suite("flat files")

PROCESSES = 8
RECORDS = 100

EXPORT = """\
<VxLET i=0><VxASSIGN NAME="text" VALUE=""><VxWHILE EXPR="len(text) LT size">\
<VxASSIGN NAME="text" VALUE=text $ id $ asciichar(10) $ '",'></VxWHILE>\
<VxWHILE EXPR="i LT %d"><VxLET i=i + 1>\
<VxEXPORT FILE="shared" FIELDS="id,i,text,id" DELIMITER=","></VxWHILE>""" % RECORDS

# Prints "id i length same" for every record.
IMPORT = """\
<VxIMPORT FILE="shared" FIELDS="a,i,t,b" DELIMITER=",">&[a] &[i] <VxEVAL EXPR=len(t)> \
<VxEVAL EXPR=a EQ b AND glosub(t, a $ asciichar(10) $ '",', '') EQ ''>
</VxIMPORT>"""


@suite.case("concurrent exports keep every record whole, also for those who read meanwhile")
def _():
    with ProgramSite(suite.build) as site:
        site.write("export.vx", EXPORT)
        site.write("import.vx", IMPORT)
        writers = [site.start("export.vx", f"id={n}&size={20000 if n % 2 else 10}")
                   for n in range(PROCESSES)]
        reads = 0
        while any(writer.poll() is None for writer in writers):
            if not (site.data / "shared").exists():
                continue
            reads += 1
            for line in site.page("import.vx").splitlines():
                expect("a record read meanwhile", bool(re.fullmatch(r"\d \d+ \d+ 1", line)), True)
        for writer in writers:
            expect("export", page_of(writer), "")
        records = [line.split() for line in site.page("import.vx").splitlines()]
        expect("records", sorted((record[0], int(record[1])) for record in records),
               sorted((str(n), i) for n in range(PROCESSES) for i in range(1, RECORDS + 1)))
        for name, _, length, whole in records:
            expect("length", int(length) >= (20000 if int(name) % 2 else 10), True)
            expect("whole", whole, "1")
        # Each process wrote its records in order.
        for n in range(PROCESSES):
            numbers = [int(record[1]) for record in records if record[0] == str(n)]
            expect(f"order of {n}", numbers, list(range(1, RECORDS + 1)))


@suite.case("a file larger than the memory a page may have is imported")
def _():
    with ProgramSite(suite.build, "globaltimeout=0") as site:
        size = 128 << 20
        # A few records of ordinary size, and a surplus field of which nothing is kept.
        with open(site.data / "large", "wb") as large:
            large.write(b"first,1\nsecond,2,")
            block = b'x"y,' * (1 << 18)
            while large.tell() < size:
                large.write(block)
            large.write(b"\nthird,3\n")
        site.write("index.vx", '<VxIMPORT FILE="large" FIELDS="a,b" DELIMITER=",">&[a]&[b]|'
                               '</VxIMPORT>')
        limit = 64 << 20
        program = subprocess.run(
            [site.program], cwd=site.directory, stdin=subprocess.DEVNULL, capture_output=True,
            env={"GATEWAY_INTERFACE": "CGI/1.1", "PATH_INFO": "/index.vx"}, timeout=300,
            preexec_fn=None if suite.sanitized else
            lambda: resource.setrlimit(resource.RLIMIT_AS, (limit, limit)))
        expect("standard error", program.stderr, b"")
        expect("page", program.stdout.partition(b"\r\n\r\n")[2], b"first1|second2|third3|")


@suite.case("concurrent writes and appends of FILE leave whole contents")
def _():
    with ProgramSite(suite.build) as site:
        (site.data / "one").write_bytes(b"00")
        site.write("write.vx", """\
<VxLET i=0><VxASSIGN NAME="text" VALUE=id><VxWHILE EXPR="len(text) LT 1000 * (id + 1)">\
<VxASSIGN NAME="text" VALUE=text $ id></VxWHILE><VxWHILE EXPR="i LT 50"><VxLET i=i + 1>\
<FILE WRITE="one" VALUE=text><FILE APPEND="all" VALUE=text $ asciichar(10)>\
<FILE READ="one" NAME="seen"><VxIF EXPR="glosub(seen, substring(seen, 1, 1), '') NE ''">torn\
</VxIF></VxWHILE>""")
        for writer in [site.start("write.vx", f"id={n}") for n in range(PROCESSES)]:
            expect("page", page_of(writer), "")
        lines = (site.data / "all").read_bytes().split(b"\n")
        expect("lines", sorted(lines), sorted([b""] + [
            str(n).encode() * (1000 * (n + 1)) for n in range(PROCESSES) for _ in range(50)]))


@suite.case("every line of the activity log is whole")
def _():
    with ProgramSite(suite.build, "logfile={DIR}/log\nloglevel=2") as site:
        site.write("index.vx", '<VxLET i=0><VxWHILE EXPR="i LT 100"><VxLET i=i + 1>'
                               '<FILE READ="../&[i]\n" NAME="x"></VxWHILE>')
        processes = [site.start() for _ in range(PROCESSES)]
        for process in processes:
            page_of(process)
        lines = (site.directory / "log").read_text().splitlines()
        expect("lines", len(lines), PROCESSES * 102)
        form = re.compile(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\+00:00\t\d+\t[^\t]+\t" +
                          re.escape(f"{site.directory}/site/index.vx") +
                          r"\t(SCRIPTSTARTED\tuid=\d+ gid=\d+ data=\S+|ERROR\tindex.vx: Line \d+: "
                          r".*is not contained.*|SCRIPTENDED\tseconds=\d+\.\d{3} bytes=\d+)")
        for line in lines:
            expect(line, bool(form.fullmatch(line)), True)
        pids = [line.split("\t")[1] for line in lines]
        for process in processes:
            expect("lines of a process", pids.count(str(process.pid)), 102)


if __name__ == "__main__":
    sys.exit(suite.main())
