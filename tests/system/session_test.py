#!/usr/bin/env python3
"""Sessions by many requests at once, killed requests, damaged and foreign files in their place, old ones;
and the site's key."""

import concurrent.futures
import hashlib
import os
import pathlib
import re
import subprocess
import sys
import time
import urllib.parse

from harness import ROOT, Failure, ProgramSite, Skip, Suite, expect, expect_in, page_of

suite = Suite("sessions")

ID = "0123456789abcdef" * 2
SET = '<VxEVAL EXPR="vexa_setsessionvalue(g.name, g.value)">'
GET = '<VxEVAL EXPR="vexa_sessionvalue(g.name)">'


class Site(ProgramSite):
    def __init__(self, build, config=""):
        super().__init__(build, config)
        self.library = build / "libfault_calls.so"
        self.sessions = self.data / "vexasessions"
        self.write("set.vx", SET)
        self.write("get.vx", GET)

    def begin(self, page, query="", session=ID, **more):
        return self.start(page, query, HTTP_COOKIE="vexasession=" + session, **more)

    def ask(self, page, query="", session=ID):
        return page_of(self.begin(page, query, session))

    def file(self, session=ID):
        return self.sessions / hashlib.sha256(session.encode()).hexdigest()

    def all_files(self):
        return sorted(path.name for path in self.sessions.iterdir() if not path.name.startswith("."))


@suite.case("16 clients change the values of one session, and none is lost")
def _():
    with Site(suite.build) as site:
        site.write("count.vx", '<VxLOCKFILE FILE="lock"><VxLET n=vexa_sessionvalue("n") + 1>'
                   '<VxEVAL EXPR="vexa_setsessionvalue(\'n\', n)"></VxLOCKFILE>')
        def client(number):
            for turn in range(6):
                expect("page", site.ask("set.vx", f"name={number}.{turn}&value={number * 100 + turn}"), "")
                expect("page", site.ask("count.vx"), "")
        with concurrent.futures.ThreadPoolExecutor(16) as clients:
            list(clients.map(client, range(16)))
        for number in range(16):
            expect("value", site.ask("get.vx", f"name={number}.5"), str(number * 100 + 5))
            expect("value", site.ask("get.vx", f"name={number}.0"), str(number * 100))
        expect("count", site.ask("get.vx", "name=n"), "96")
        expect("files", site.all_files(), [site.file().name])
        expect("modes", [oct(path.stat().st_mode & 0o777) for path in (site.sessions, site.file())],
               ["0o700", "0o600"])


@suite.case("of many that ask for a new id at once, one gets the values")
def _():
    with Site(suite.build) as site:
        site.write("new.vx", '<VxEVAL EXPR="vexa_newsession()">')
        site.ask("set.vx", "name=user&value=anna")
        # What is set meanwhile brings nothing of the old session back.
        processes = [site.begin(*page) for page in [("new.vx",), ("set.vx", "name=b&value=1")] * 12]
        ids = list(filter(None, map(page_of, processes)))
        expect("ids", len(set(ids)), 12)
        expect("values", sorted(site.ask("get.vx", "name=user", one) for one in ids), [""] * 11 + ["anna"])
        expect("value of the old id", site.ask("get.vx", "name=user"), "")


@suite.case("a request that is killed leaves the session as it was, or as it was to be")
def _():
    with Site(suite.build) as site:
        if b"__asan_init" in site.program.read_bytes():
            raise Skip("the sanitizers want to be the first library themselves")
        site.write("new.vx", '<VxEVAL EXPR="vexa_newsession()">')
        site.write("end.vx", '<VxEVAL EXPR="vexa_endsession()">')
        for page, query, outcomes in (("set.vx", "name=a&value=" + "y" * 9000, ("x" * 9000, "y" * 9000)),
                                      ("new.vx", "", ("x" * 9000, "")), ("end.vx", "", ("x" * 9000, ""))):
            for fault in [f"{kind}:{at}" for kind in ("kill", "tear", "fail", "failon") for at in range(1, 20)]:
                expect("page", site.ask("set.vx", "name=a&value=" + "x" * 9000), "")
                note = site.directory / "note"
                note.unlink(missing_ok=True)
                process = site.begin(page, query, LD_PRELOAD=str(site.library), VEXA_FAULT=fault,
                                     VEXA_FAULT_NOTE=str(note))
                text = process.communicate()[0]
                if not note.exists():
                    if fault.endswith(":1"):
                        raise Failure(f"{page} never met {fault}")
                    break
                value = site.ask("get.vx", "name=a")
                if value not in outcomes or (b"Error" in text and value != outcomes[0]):
                    raise Failure(f"{page} at {fault}: {text[-100:]!r}, {value[:20]}")


@suite.case("what lies in the place of a session's file is never followed, believed or removed")
def _():
    with Site(suite.build, "securityoptions=12") as site:
        expect("page", site.ask("set.vx", "name=user&value=anna"), "")
        good = site.file().read_bytes()
        for at in range(len(good) + 1):
            damaged = bytearray(good[:at])
            if at < len(good):
                damaged += bytes([good[at] ^ 1]) + good[at + 1:]
            for content in (bytes(damaged), good[:at]):
                site.file().write_bytes(content)
                expect("value", site.ask("get.vx", "name=user"), "anna" if content == good else "")
        expect("page", site.ask("set.vx", "name=a&value=1"), "")
        expect("value", site.ask("get.vx", "name=a"), "1")
        (site.data / "other").write_bytes(good)
        def refused(make, reason):
            site.file().unlink(missing_ok=True)
            make(site.file())
            for page, verb in (("get.vx", "read"), ("set.vx", "written")):
                expect("page", site.ask(page, "name=user&value=eve"),
                       f"{page}: Line 1: Expression Error: The session cannot be {verb}: {reason}\r\n")
        refused(lambda path: path.symlink_to(site.data / "other"), "It is a symbolic link")
        expect("the other file", (site.data / "other").read_bytes(), good)
        refused(os.mkfifo, "Invalid argument")
        refused(pathlib.Path.mkdir, "Is a directory")


@suite.case("sessions that nobody used for long enough have no values, and their files go")
def _():
    with Site(suite.build, "sessiontime=3600") as site:
        def age(path, seconds):
            os.utime(path, (time.time() - seconds,) * 2)
        used, old, late = ID[1:] + "0", ID[2:] + "00", ID[3:] + "000"
        for session in (used, old, late):
            site.ask("set.vx", "name=a&value=1", session)
        left = site.sessions / (site.file(old).name + ".00000001")
        for path in (site.sessions / "notes", left):
            path.write_text("x")
            age(path, 9999)
        age(site.file(used), 3500)
        age(site.file(old), 3601)
        age(site.file(late), 3601)
        expect("values", [site.ask("get.vx", "name=a", one) for one in (used, old)], ["1", ""])
        expect("page", site.ask("set.vx", "name=b&value=2", late), "")
        expect("values", [site.ask("get.vx", "name=" + name, late) for name in "ab"], ["", "2"])
        age(site.sessions / ".cleaned", 300)
        site.ask("set.vx", "name=a&value=1")
        expect("files", site.all_files(),
               sorted([site.file(used).name, site.file(late).name, site.file().name, "notes"]))
        if time.time() - site.file(used).stat().st_mtime > 60:
            raise Failure("a session that is read is not used")


@suite.case("a sitekey that others could have made or read is refused")
def _():
    with Site(suite.build, "sitekey={DIR}/key") as site:
        key = site.directory / "key"
        site.write("token.vx", "<VxEVAL EXPR=\"vexa_token('p')\">")
        def make(content=b"k" * 32, mode=0o640):
            key.unlink(missing_ok=True)
            key.write_bytes(content)
            key.chmod(mode)
        def refused(reason):
            expect("page", site.ask("token.vx"),
                   f"token.vx: Line 1: Expression Error: The sitekey cannot be used: {reason}\r\n")
        refused("it does not exist")
        key.mkdir()
        refused("it is not a plain file")
        key.rmdir()
        for name, place in (("site", site.site), ("data", site.data), ("tmp", site.directory / "tmp")):
            (place / "key").write_bytes(b"k" * 32)
            key.symlink_to(place / "key")
            refused("it lies in the " + {"site": "script", "tmp": "temporary"}.get(name, name) + " directory")
            key.unlink()
        make(mode=0o660)
        refused("it or a directory above it may be changed by other users")
        make(mode=0o644)
        refused("it may be read by other users")
        make(b"k" * 31)
        refused("it is shorter than 32 bytes")
        if os.getuid() == 0:
            make()
            os.chown(key, 12345, 12345)
            refused("it or a directory above it belongs to an untrusted user")
        make()
        token = site.ask("token.vx")
        site.write("is.vx", "<VxEVAL EXPR=\"vexa_istoken('p', g.t)\">")
        expect("token", site.ask("is.vx", "t=" + token), "1")
        made, digest = token.split(".")
        for other in (f"0{token}", f"{int(made) + 1}.{digest}", token[:-1], token + "0", made, "." + digest, ""):
            expect(other, site.ask("is.vx", "t=" + other), "0")
        expect("another session", site.ask("is.vx", "t=" + token, ID[1:] + "0"), "0")
        make(b"l" * 32)
        expect("another key", site.ask("is.vx", "t=" + token), "0")


@suite.case("the login of the manual lets in who knows the password, under a new id")
def _():
    manual = (ROOT / "docs/answers.md").read_text().split("### A login")[1].split("###")[0]
    with Site(suite.build, "sitekey={DIR}/key") as site:
        (site.directory / "key").write_bytes(b"k" * 32)
        (site.directory / "key").chmod(0o600)
        site.write("login.vx", "".join(line[4:] + "\n" for line in manual.splitlines() if line.startswith("    ")))
        site.write("make.vx", """\
<VxCREATE NAME="users" DATABASE="users.dbf" FIELDS="name CHAR(20), hash CHAR(120)">
<VxMAKEINDEX INDEXFILE="username.vxx" EXPR="name"><VxLET users.d.name="anna">
<VxLET users.d.hash=vexa_hashpassword("secret")><VxADD>""")
        expect("page", site.ask("make.vx").strip(), "")
        def post(session=ID, **fields):
            body = urllib.parse.urlencode(fields).encode()
            process = site.begin("login.vx", session=session, stdin=subprocess.PIPE, REQUEST_METHOD="POST",
                                 CONTENT_LENGTH=str(len(body)), CONTENT_TYPE="application/x-www-form-urlencoded")
            output, errors = process.communicate(body)
            return (output + errors).decode("latin-1")
        token = re.search(r'name="token" value="([^"]+)"', site.ask("login.vx"))[1]
        known = {"token": token, "name": "anna", "password": "secret"}
        for wrong in ({"password": "Secret"}, {"name": "eve"}, {"name": ""}, {"password": ""}):
            expect_in(str(wrong), post(**{**known, **wrong}), '<input name="password"')
        expect_in("no token", post(**{**known, "token": "1.x"}), "Location: login.vx")
        page = post(**known)
        expect_in("login", page, "Location: home.vx")
        session = re.search("vexasession=([0-9a-f]{32})", page)[1]
        expect("user", [site.ask("get.vx", "name=user", one) for one in (ID, session)], ["", "anna"])
        page = site.ask("login.vx", session=session)
        token = re.search(r'name="token" value="([^"]+)"', page)[1]
        expect_in("logout", post(session, token=token, logout=""), "vexasession=; ")
        expect("user", site.ask("get.vx", "name=user", session), "")


if __name__ == "__main__":
    sys.exit(suite.main())
