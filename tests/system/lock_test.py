#!/usr/bin/env python3
"""VxLOCKFILE with real processes: nobody is in a block twice, whoever dies, and a lock that is in
use does not expire. VEXA_LOCK_ENTRIES sets how often the counted block is entered; ten thousand is
a good number by hand."""

import fcntl
import os
import random
import signal
import socket
import sys
import time

from harness import Failure, ProgramSite, Suite, expect, expect_in, page_of, wait_until_stuck

suite = Suite("locks")

PROCESSES = 8
ENTRIES = int(os.environ.get("VEXA_LOCK_ENTRIES", "400"))

# Adds 1 to the number in a file, with time enough in between for others to do so too.
COUNT = """\
<VxLET i=0><VxWHILE EXPR="i LT rounds"><VxLET i=i + 1><VxLOCKFILE FILE="count">\
<FILE READ="count" NAME="n"><FILE WRITE="count" VALUE=n + 1></VxLOCKFILE></VxWHILE>"""

# Notes in a journal who is in the block.
JOURNAL = """\
<VxLOCKFILE FILE="journal"><FILE APPEND="journal" VALUE="enter &[process_id]&[nl]">\
<VxLET i=0><VxWHILE EXPR="i LT rounds"><VxLET i=i + 1>\
<FILE APPEND="journal" VALUE="work &[process_id]&[nl]"></VxWHILE>\
<FILE APPEND="journal" VALUE="leave &[process_id]&[nl]"></VxLOCKFILE>"""

NEWLINE = '<VxASSIGN NAME="nl" VALUE=asciichar(10)>'

# Stays in the block for the given seconds, with tags all the time.
STAY = """<VxLET end=dyn_time_t + seconds><VxWHILE EXPR="dyn_time_t LE end"></VxWHILE>"""


def wait_for(what, condition, seconds=60):
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            raise Failure(f"waited {seconds} seconds for {what}")
        time.sleep(0.005)


def journal(site):
    path = site.data / "journal"
    return [line.split() for line in path.read_text().splitlines()] if path.exists() else []


@suite.case("no two requests are in the block at once")
def _():
    with ProgramSite(suite.build, "globaltimeout=0") as site:
        site.write("index.vx", COUNT)
        (site.data / "count").write_text("0")
        rounds = ENTRIES // PROCESSES
        for process in [site.start(query=f"rounds={rounds}") for _ in range(PROCESSES)]:
            expect("page", page_of(process), "")
        expect("count", (site.data / "count").read_text(), str(rounds * PROCESSES))
        expect("files", os.listdir(site.data), ["count"])


@suite.case("nor when holders are killed, and their locks do not stay")
def _():
    seed = random.randrange(1 << 32)
    print("seed", seed)
    chance = random.Random(seed)
    with ProgramSite(suite.build, "globaltimeout=0") as site:
        site.write("index.vx", NEWLINE + JOURNAL)
        killed = set()
        for _ in range(10):
            processes = [site.start(query="rounds=200") for _ in range(PROCESSES)]
            for process in chance.sample(processes, 3):
                time.sleep(chance.random() * 0.02)
                process.kill()
                killed.add(str(process.pid))
                process.wait()
            for process in processes:
                if str(process.pid) in killed:
                    process.communicate()
                else:
                    expect("page", page_of(process), "")
        inside = None
        for what, process in journal(site):
            if what == "enter" and (inside is None or inside in killed):
                inside = process
            elif inside != process or what == "enter":
                raise Failure(f"{process} does {what} while {inside} is inside")
            elif what == "leave":
                inside = None
        left = [name for name in os.listdir(site.data) if name != "journal"]
        # A process killed while it was making its attempt leaves that behind, and nothing else.
        for name in left:
            expect(f"{name} is left by a killed process", name.split(".")[-1] in killed or
                   (name == "journal.lck" and inside in killed), True)


@suite.case("a request that is ended by the server gives its lock back")
def _():
    with ProgramSite(suite.build) as site:
        site.write("index.vx", f'<VxLOCKFILE FILE="a">{STAY}</VxLOCKFILE>')
        process = site.start(query="seconds=60")
        wait_for("the lock", (site.data / "a.lck").exists)
        process.send_signal(signal.SIGTERM)
        expect("page", page_of(process), "Application timed out\r\n")
        expect("files", os.listdir(site.data), [])


@suite.case("a request that is ended while it waits for a lock leaves nothing")
def _():
    with ProgramSite(suite.build, "globaltimeout=0") as site, open(site.data / "out", "w") as held:
        fcntl.lockf(held, fcntl.LOCK_EX)
        site.write("record.vx", '<VxLET a=1><VxEXPORT FILE="out" FIELDS="a" DELIMITER=",">')
        (site.data / "a.lck").write_text(f"{os.getpid()}:{socket.gethostname()}")
        site.write("named.vx", '<VxLOCKFILE FILE="a">x</VxLOCKFILE>')
        for page in ("record.vx", "named.vx"):
            for number in (signal.SIGTERM, signal.SIGXCPU):
                process = site.start(page)
                wait_until_stuck(process.pid)
                process.send_signal(number)
                expect_in(f"page {page}", page_of(process), "imed out")
        expect("files", [sorted(os.listdir(site.data)), held.tell()], [["a.lck", "out"], 0])


@suite.case("a lock in use on another host does not expire, also while a script runs another")
def _():
    with ProgramSite(suite.build, "lockexpiration=1\nlockhostname=first") as first, \
         ProgramSite(suite.build, "lockexpiration=1\nlockhostname=second", first.data) as second:
        first.write("index.vx", NEWLINE + '<VxLOCKFILE FILE="journal">'
                    '<FILE APPEND="journal" VALUE="enter first&[nl]">'
                    f'{STAY}<VxDO FILE="other.vx">'
                    '<FILE APPEND="journal" VALUE="leave first&[nl]"></VxLOCKFILE>')
        first.write("other.vx", STAY)
        second.write("index.vx", NEWLINE + '<VxLOCKFILE FILE="journal">'
                     '<FILE APPEND="journal" VALUE="enter second&[nl]"></VxLOCKFILE>')
        holder = first.start(query="seconds=2")
        wait_for("the holder", lambda: journal(first))
        expect("second", second.page(), "")
        expect("first", page_of(holder), "")
        expect("journal", journal(first),
               [["enter", "first"], ["leave", "first"], ["enter", "second"]])
        expect("files", os.listdir(first.data), ["journal"])


@suite.case("the lock of a dead host expires, and not before its time")
def _():
    with ProgramSite(suite.build, "lockexpiration=100\nglobaltimeout=1") as site:
        site.write("index.vx", '<VxLOCKFILE FILE="a">in</VxLOCKFILE>')
        lock = site.data / "a.lck"
        lock.write_text("1:elsewhere")
        expect("fresh", site.page(), "index.vx: Line 1: Runtime Error: Error creating lockfile "
                                     "'a.lck': Timed out waiting for lock\r\n")
        expect("fresh lock", lock.read_text(), "1:elsewhere")
        long_ago = time.time() - 101
        os.utime(lock, (long_ago, long_ago))
        expect("old", site.page(), "in")
        expect("files", os.listdir(site.data), [])


@suite.case("who lost the lock to another host does not remove the other's")
def _():
    with ProgramSite(suite.build) as site:
        site.write("index.vx", f'<VxLOCKFILE FILE="a">{STAY}</VxLOCKFILE>')
        process = site.start(query="seconds=1")
        lock = site.data / "a.lck"
        wait_for("the lock", lock.exists)
        other = site.data / "other"
        other.write_text("1:elsewhere")
        os.utime(other, (1000, 1000))
        os.rename(other, lock)
        expect("page", page_of(process), "")
        expect("lock", lock.read_text(), "1:elsewhere")
        expect("time", lock.stat().st_mtime, 1000.0)


if __name__ == "__main__":
    sys.exit(suite.main())
