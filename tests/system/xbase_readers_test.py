#!/usr/bin/env python3
"""Tables against programs that know the format from elsewhere: what is written here is read by
dbfread, XBase.pm and shapelib with the same values, and tables that XBase.pm and shapelib wrote
are read and extended here."""

import datetime
import os
import pathlib
import random
import struct
import subprocess
import sys
import tempfile

from harness import Failure, Suite, expect, expect_in

# Where Debian keeps dbfread, for a python3 that is not Debian's.
sys.path.append("/usr/lib/python3/dist-packages")
import dbfread  # noqa: E402

suite = Suite("xbase readers")

FIELDS = [("NAME", "C", 12, 0), ("AGE", "N", 4, 0), ("PRICE", "N", 9, 2), ("BORN", "D", 8, 0),
          ("PAID", "L", 1, 0), ("NOTE", "M", 10, 0)]


NOTE_LENGTHS = [0, 1, 509, 510, 511, 3000]


def random_rows(seed, count, note_lengths=NOTE_LENGTHS):
    """Rows as dicts of texts, with a deletion mark under None."""
    chance = random.Random(seed)
    rows = []
    for i in range(count):
        day = datetime.date(1900, 1, 1) + datetime.timedelta(chance.randrange(60000))
        rows.append({
            None: chance.random() < 0.2,
            "NAME": "".join(chance.choice("abcXYZ -'\"") for _ in range(chance.randrange(13))).rstrip(),
            "AGE": str(chance.randrange(-99, 999)) if chance.random() < 0.9 else "",
            "PRICE": f"{chance.uniform(-9999, 99999):.2f}",
            "BORN": day.strftime("%Y%m%d") if chance.random() < 0.9 else "",
            "PAID": chance.choice("TF"),
            "NOTE": "".join(chance.choice("note\n ,;") for _ in range(chance.choice(note_lengths))),
        })
    return rows


class Tool:
    """xbase_tool in a directory of its own."""

    def __init__(self, build, directory):
        self.program = build / "xbase_tool"
        self.directory = pathlib.Path(directory)

    def __call__(self, *arguments, given=""):
        done = subprocess.run([self.program, *map(str, arguments)], input=given, text=True,
                              capture_output=True, cwd=self.directory)
        return done.returncode, done.stdout, done.stderr

    def good(self, *arguments, given=""):
        status, output, errors = self(*arguments, given=given)
        if status != 0:
            raise Failure(f"{arguments}: status {status}\n{output}{errors}")
        return output

    def records(self, rows, fields):
        return "".join(
            ("deleted" if row[None] else "live") +
            "".join(" " + (row[field[0]].encode("latin-1").hex() or "-") for field in fields) + "\n"
            for row in rows)

    def create(self, name, rows, fields=FIELDS):
        given = "".join("field %s %s %d %d\n" % field for field in fields)
        self.good("create", name, given=given + self.records(rows, fields))

    def append(self, name, rows, fields):
        self.good("append", name, given=self.records(rows, fields))

    def dump(self, name):
        fields, rows = [], []
        for line in self.good("dump", name).splitlines():
            words = line.split()
            if words[0] == "field":
                fields.append((words[1], words[2], int(words[3]), int(words[4])))
                continue
            values = [b"" if word == "-" else bytes.fromhex(word) for word in words[1:]]
            row = {field[0]: value.decode("latin-1") for field, value in zip(fields, values)}
            row[None] = words[0] == "deleted"
            rows.append(row)
        return fields, rows


class Fixture:
    def __init__(self, build):
        self.build = build

    def __enter__(self):
        self.temporary = tempfile.TemporaryDirectory(prefix="vexa-xbase-")
        return Tool(self.build, self.temporary.name)

    def __exit__(self, *_):
        self.temporary.cleanup()


def as_read_here(row):
    """Blank dates keep their eight spaces; everything else is as it was written."""
    return {**row, "BORN": row["BORN"] or " " * 8} if "BORN" in row else row


@suite.case("what is written is read back")
def reads_back(tool):
    rows = random_rows(1, 200)
    tool.create("own.dbf", rows)
    fields, read = tool.dump("own.dbf")
    expect("fields", fields, FIELDS)
    expect("rows", read, [as_read_here(row) for row in rows])
    expect_in("check", tool.good("check", "own.dbf"), "own.dbf: good, 200 records")


@suite.case("dbfread reads our tables and memos")
def dbfread_reads(tool):
    rows = random_rows(2, 300)
    tool.create("dbfread.dbf", rows)
    table = dbfread.DBF(str(tool.directory / "dbfread.dbf"), encoding="latin-1", load=True,
                        char_decode_errors="strict")
    today = datetime.datetime.now(datetime.timezone.utc).date()
    if abs((table.date - today).days) > 1:
        raise Failure(f"the header's date is {table.date}")

    def expected(row):
        return {
            "NAME": row["NAME"],
            "AGE": int(row["AGE"]) if row["AGE"] else None,
            "PRICE": float(row["PRICE"]),
            "BORN": datetime.datetime.strptime(row["BORN"], "%Y%m%d").date() if row["BORN"] else None,
            "PAID": row["PAID"] == "T",
            "NOTE": row["NOTE"] or None,
        }

    expect("live", [dict(record) for record in table.records],
           [expected(row) for row in rows if not row[None]])
    expect("deleted", [dict(record) for record in table.deleted],
           [expected(row) for row in rows if row[None]])


PERL_DUMP = r"""
use XBase;
my $table = new XBase name => $ARGV[0], ignorebadheader => 0 or die XBase->errstr;
for my $n (0 .. $table->last_record) {
  my ($deleted, @values) = $table->get_record_nf($n) or die $table->errstr;
  print $deleted ? "deleted" : "live";
  print " ", defined $_ && length $_ ? unpack("H*", $_) : "-" for @values;
  print "\n";
}
"""

PERL_WRITE = r"""
use XBase;
my $table = XBase->create(name => $ARGV[0],
  field_names => [qw(NAME AGE PRICE BORN PAID NOTE)], field_types => [qw(C N N D L M)],
  field_lengths => [12, 4, 9, 8, 1, 10], field_decimals => [undef, 0, 2, undef, undef, undef])
  or die XBase->errstr;
my $n = 0;
while (<STDIN>) {
  my ($mark, @values) = split;
  @values = map { $_ eq "-" ? "" : pack("H*", $_) } @values;
  $values[4] = $values[4] eq "T" ? 1 : 0;
  $_ = $_ eq "" ? undef : $_ for @values[1, 3, 5];
  $table->set_record($n, @values) or die $table->errstr;
  $table->delete_record($n) or die $table->errstr if $mark eq "deleted";
  ++$n;
}
$table->close;
"""


def perl(tool, script, name, given=""):
    done = subprocess.run(["perl", "-e", script, str(tool.directory / name)], input=given,
                          text=True, capture_output=True)
    if done.returncode != 0 or done.stderr:
        raise Failure(f"perl: {done.stderr}")
    return done.stdout


@suite.case("XBase.pm reads our tables and memos")
def perl_reads(tool):
    # XBase.pm misses the end of a text when it lies across the border of two blocks.
    rows = random_rows(3, 100, [length for length in NOTE_LENGTHS if length != 511])
    tool.create("perl.dbf", rows)
    lines = perl(tool, PERL_DUMP, "perl.dbf").splitlines()
    expect("records", len(lines), len(rows))
    for line, row in zip(lines, rows):
        words = line.split()
        values = ["" if word == "-" else bytes.fromhex(word).decode("latin-1") for word in words[1:]]
        expect("mark", words[0] == "deleted", row[None])
        expect("name, date, note", [values[0], values[3].strip(), values[5]],
               [row["NAME"], row["BORN"], row["NOTE"]])
        expect("numbers", [values[1] and int(values[1]), float(values[2])],
               [row["AGE"] and int(row["AGE"]), float(row["PRICE"])])
        expect("truth", values[4], "1" if row["PAID"] == "T" else "0")


@suite.case("we read and extend tables of XBase.pm")
def perl_writes(tool):
    rows = random_rows(4, 60)
    perl(tool, PERL_WRITE, "fromperl.dbf", tool.records(rows, FIELDS))
    fields, read = tool.dump("fromperl.dbf")
    expect("fields", [field[:3] for field in fields], [field[:3] for field in FIELDS])

    def plain(row):
        return {**row, "PAID": row["PAID"].strip() or "F", "AGE": row["AGE"].strip()}

    expect("rows", [plain(row) for row in read], [plain(as_read_here(row)) for row in rows])
    more = random_rows(5, 40)
    tool.append("fromperl.dbf", more, FIELDS)
    read = tool.dump("fromperl.dbf")[1]
    expect("rows after appending", [plain(row) for row in read],
           [plain(as_read_here(row)) for row in rows + more])
    records = [line.split()[0] for line in perl(tool, PERL_DUMP, "fromperl.dbf").splitlines()]
    expect("marks that XBase.pm sees", records,
           ["deleted" if row[None] else "live" for row in rows + more])


SHAPE_FIELDS = [("NAME", "C", 12, 0), ("AGE", "N", 4, 0), ("PRICE", "N", 9, 2)]


@suite.case("shapelib reads our tables")
def shapelib_reads(tool):
    rows = [row for row in random_rows(6, 80) if row["NAME"] and row["AGE"]]
    for row in rows:
        row[None] = False
    tool.create("shape.dbf", rows, SHAPE_FIELDS)
    output = subprocess.run(["dbfdump", "-m", str(tool.directory / "shape.dbf")],
                            capture_output=True, check=True).stdout.decode("latin-1")
    records = output.split("Record:")[1:]
    expect("records", len(records), len(rows))
    for text, row in zip(records, rows):
        values = dict(line.split(": ", 1) for line in text.splitlines() if ": " in line)
        # shapelib strips the blanks in front of a text.
        expect("values", [values["NAME"].strip(), int(values["AGE"]), float(values["PRICE"])],
               [row["NAME"].strip(), int(row["AGE"]), float(row["PRICE"])])


@suite.case("we read and extend tables of shapelib")
def shapelib_writes(tool):
    path = str(tool.directory / "fromshape.dbf")
    subprocess.run(["dbfcreate", path, "-s", "NAME", "12", "-n", "AGE", "4", "0", "-n", "PRICE",
                    "9", "2"], check=True, capture_output=True)
    written = [("Ada", "36", "1.50"), ("Bob", "-7", "99999.25")]
    for values in written:
        subprocess.run(["dbfadd", path, *values], check=True, capture_output=True)
    tool.append("fromshape.dbf", [{None: False, "NAME": "Cyd", "AGE": "1", "PRICE": "2.00"}],
                SHAPE_FIELDS)
    fields, read = tool.dump("fromshape.dbf")
    expect("fields", fields, SHAPE_FIELDS)
    expect("rows", [(row["NAME"], row["AGE"], row["PRICE"]) for row in read],
           written + [("Cyd", "1", "2.00")])
    output = subprocess.run(["dbfdump", path], capture_output=True, check=True, text=True).stdout
    expect_in("shapelib's view", output, "Cyd")


@suite.case("indexes put records in order and the checker sees damage")
def indexes(tool):
    rows = random_rows(7, 500)
    tool.create("ordered.dbf", rows)
    tool.good("index", "ordered.dbf", "name.vxx", "NAME", 4)
    tool.good("index", "ordered.dbf", "price.vxx", "PRICE", 2)
    order = [int(line) for line in tool.good("find", "name.vxx", "").split()]
    expect("by name", order,
           sorted(range(1, 501), key=lambda n: (rows[n - 1]["NAME"].encode(), -n)))
    order = [int(line) for line in tool.good("find", "price.vxx", "50000").split()]
    expect("by price, falling", order,
           sorted((n for n in range(1, 501) if float(rows[n - 1]["PRICE"]) <= 50000),
                  key=lambda n: (-float(rows[n - 1]["PRICE"]), -n)))
    output = tool.good("check", "ordered.dbf", "name.vxx", "price.vxx")
    expect("check", output, "ordered.dbf: good, 500 records\nname.vxx: good, 500 keys\n"
                            "price.vxx: good, 500 keys\n")

    # A value that changed behind the index's back, and a page that is gone.
    path = tool.directory / "ordered.dbf"
    length, = struct.unpack_from("<H", path.read_bytes(), 8)
    with open(path, "r+b") as table:
        table.seek(length + 1)
        table.write(b"changed     ")
    status, output, _ = tool("check", "ordered.dbf", "name.vxx")
    expect("status", status, 1)
    expect_in("check", output, "name.vxx: record 1 has the key of another value")
    os.truncate(tool.directory / "price.vxx", 30 * 1024)
    status, output, _ = tool("check", "ordered.dbf", "price.vxx")
    expect("status", status, 1)
    expect_in("check", output, "is named but not in the file")


if __name__ == "__main__":
    sys.exit(suite.main(Fixture))
