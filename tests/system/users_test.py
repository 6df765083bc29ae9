#!/usr/bin/env python3
"""Many users on one machine: a set-user-ID program that a local user tries to turn into root or into
another user, and what the authorization file grants. The users exist in a mount namespace of these
tests alone, which only root can make; elsewhere all cases are skipped."""

import contextlib
import ctypes
import os
import pathlib
import re
import resource
import shutil
import subprocess
import sys
import tempfile
import threading

from harness import ROOT, Failure, ProgramSite, Skip, Suite, expect, expect_in

suite = Suite("users")
ANNA, VIC, EVE, NAMELESS = 5001, 5002, 5003, 5007
TRIES = int(os.environ.get("VEXA_TEST_TRIES", "1000"))
CAN_MAKE_USERS = "VEXA_TEST_USERS" in os.environ
LIBC = ctypes.CDLL(None, use_errno=True)
SELF = '<VxEVAL EXPR="self()">'


def make_users(homes):
    """Puts files of these tests in the place of the machine's, for this process and its children."""
    names = {ANNA: "anna", VIC: "vic", EVE: "eve"}
    files = {
        "passwd": "root:x:0:0::/root:\nnobody:x:65534:65533::/:\n" + "".join(
            f"{name}:x:{uid}:{uid}::{homes}/{name}:\n" for uid, name in names.items()),
        "group": "root:x:0:\nnogroup:x:65533:\nstudents:x:6000:anna,vic\nhelpers:x:6001:anna\n" + "".join(
            f"{name}:x:{uid}:\n" for uid, name in names.items()),
        "nsswitch.conf": "passwd: files\ngroup: files\n"}
    (homes / "anna/own").mkdir(parents=True)
    os.chown(homes / "anna/own", ANNA, ANNA)
    for name, text in files.items():
        (homes / name).write_text(text)
        subprocess.run(["mount", "--bind", homes / name, f"/etc/{name}"], check=True)


class Site(ProgramSite):
    """A site whose program is set-user-ID root, with a script of Anna's, and packages."""

    def __init__(self, config="authuserdir={DIR}/data", page=SELF, owner=ANNA, mode=0o4755):
        super().__init__(suite.build)
        self.lib = self.directory / "lib"
        self.lib.mkdir()
        if not (HOMES / "probe.so").exists():
            subprocess.run(["cc", "-std=gnu11", "-fPIC", "-shared", f"-I{ROOT}/include", "-o", HOMES / "probe.so",
                            ROOT / "tests/tools/probe_package.c", "-lpthread"], check=True)
        self.write("../lib/probe.so", (HOMES / "probe.so").read_bytes())
        for path in (self.directory, self.lib, self.site):
            path.chmod(0o755)
        self.configure(config)
        self.program.chmod(mode)
        self.own("site/index.vx", page, owner)
        os.chown(self.data, owner, owner)

    def configure(self, config):
        self.write("../vexa.conf", f"vexaroot={self.site}\nserveradmin=a@b\nusecookies=no\n"
                   "packages=probe\n<PACKAGE CODE=probe NAME=probe DESCRIPTION=d VERSION=1 "
                   f'PATH="{self.lib}/probe">\n' + config.replace("{DIR}", str(self.directory)) + "\n")

    def own(self, name, text, owner, mode=0o644):
        """Makes a file of that user's; directories that are missing are the user's too."""
        path = self.directory / name
        if not path.parent.exists():
            path.parent.mkdir()
            os.chown(path.parent, owner, owner)
        path.write_text(text)
        os.chown(path, owner, owner)
        path.chmod(mode)
        return path

    def run(self, page="/index.vx", user=EVE, environment=None, name=None, arguments=(), **options):
        """The exit status and the page of a request that a user starts, under the `name` given."""
        request = {} if arguments else {"GATEWAY_INTERFACE": "CGI/1.1", "PATH_INFO": page, "TZ": "UTC"}
        request["ASAN_OPTIONS"] = "detect_leaks=0"  # The search cannot look into a process that changed its identity.
        done = subprocess.run(
            [self.program if name is None else name, *arguments], executable=self.program, capture_output=True,
            timeout=60, **{"user": user, "group": user, "extra_groups": [user], "cwd": "/", "stdin": subprocess.DEVNULL,
               "env": {**request, **(environment or {})}, **options})
        expect("reports", re.findall(b"Sanitizer.*|runtime error.*", done.stderr), [])
        page = done.stdout.partition(b"\r\n\r\n")[2] or done.stdout
        return done.returncode, page.decode("latin-1")

    def identity(self, **options):
        """Ids, groups, umask, directory and environment of the process that runs a page."""
        status, page = self.run(**options)
        found = dict(re.findall(r"^(\w+):\t(.*?) *$", page, re.M))
        if status != 1 or "Uid" not in found:
            raise Failure(f"no identity in {page!r}")
        return [found[key] for key in ("Uid", "Gid", "Groups", "Umask", "Directory", "Environment")]

    def expect_error(self, message, **options):
        status, page = self.run(**options)
        expect_in("page", page, message)
        expect("status", status, 0)


def case(name):
    def register(function):
        @suite.case(name)
        def _():
            if not CAN_MAKE_USERS:
                raise Skip("only root can make users, in a mount namespace")
            if os.statvfs(HOMES).f_flag & os.ST_NOSUID or "NoNewPrivs:\t1" in open("/proc/self/status").read():
                raise Skip("set-user-ID programs have no effect here")
            function()
    return register


ANNAS = ["\t".join([str(ANNA)] * 4)] * 2 + ["5001 6000 6001", "0022", "/", ""]
UNTRUSTED = "it or a directory above it belongs to an untrusted user"
CHANGEABLE = "it or a directory above it may be changed by other users"
SPOILT = ((0o20, 0, CHANGEABLE), (0o2, 0, CHANGEABLE), (0, ANNA, UNTRUSTED))


@contextlib.contextmanager
def spoilt(path, mode, owner):
    """A file of root's that others may change for a while, or that is another user's."""
    former = path.stat().st_mode
    os.chown(path, owner, owner)
    path.chmod(former | mode)
    yield
    os.chown(path, 0, 0)
    path.chmod(former)


@case("a page runs as its owner for good, whatever the surroundings it was started in")
def _():
    with Site() as site:
        for what, surroundings in {
                "a server's": {"user": 33}, "another user's": {"cwd": HOMES, "umask": 0},
                "root's": {"user": 0, "cwd": HOMES}, "root's groups": {"extra_groups": [0, 4]},
                "an environment": {"environment": {"LD_PRELOAD": "/x", "PYTHONPATH": "/x", "PATH": "/x", "TZ": "/x"}},
                "no descriptors": {"preexec_fn": lambda: [os.close(fd) for fd in (0, 2)]},
                "no processes": {"preexec_fn": lambda: resource.setrlimit(resource.RLIMIT_NPROC, (0, 0))},
                "no file sizes": {"preexec_fn": lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (0, 0))}}.items():
            expect(what, site.identity(**surroundings), ANNAS)
        for descriptors in range(3, 12):
            def few():
                resource.setrlimit(resource.RLIMIT_NOFILE, (descriptors, descriptors))
            page = ""
            with contextlib.suppress(Failure):  # A sanitizer that finds no descriptor for itself reports.
                page = site.run(preexec_fn=few)[1]
            expect(f"{descriptors} descriptors", "Uid:\t" in page and "Uid:\t5001\t" not in page, False)
        site.own("site/index.vx", SELF + "\n<VxEVAL EXPR=\"fmkdir('made')\">", NAMELESS)
        os.chown(site.data, NAMELESS, NAMELESS)
        expect("nameless", site.identity(), ["\t".join(["5007"] * 4), "\t".join(["65533"] * 4), "", "0022", "/", ""])
        made = (site.data / "made").stat()
        expect("its files", (made.st_uid, made.st_gid, made.st_mode & 0o22), (NAMELESS, 65533, 0))
        site.expect_error("Fatal Error: Unable to act as #5007: Operation not permitted\r\n",
                          preexec_fn=lambda: LIBC.prctl(38, 1, 0, 0, 0))  # The set-user-ID bit counts no more.
        site.own("site/index.vx", SELF, 0)
        site.expect_error("root is not authorized to use Vexa Script<BR>")


@case("a false name or a configuration that others may change is refused before anything is read")
def _():
    with Site() as site:
        false = "Fatal Error: Vexa is set-user-ID root and must be started by its own name"
        untrusted = "Fatal Error: The configuration file is not trusted: "
        evil = site.own("eve/vexa.conf", "vexaroot=/etc\nauthuserdir=/etc\n", EVE).parent
        site.own("eve/page.vx", "evil", EVE)
        for name in ("vexa", "./vexa", "", "/bin/true", "/nowhere", f"{evil}/page.vx", "../vexa"):
            site.expect_error(false, name=name, cwd=evil)
        (evil / "vexa").symlink_to(site.program)
        site.expect_error(untrusted + UNTRUSTED, name=f"{evil}/vexa")
        (evil / "other").symlink_to(site.program)
        site.expect_error("Fatal Error: Unable to locate configuration file", name=f"{evil}/other")
        os.symlink(site.directory, evil / "site")
        site.expect_error(untrusted + UNTRUSTED, name=f"{evil}/site/vexa")
        (evil / "other.conf").symlink_to(site.directory / "vexa.conf")
        site.expect_error(untrusted + UNTRUSTED, name=f"{evil}/other")
        expect("root's link", os.symlink("vexa.conf", site.directory / "two.conf") or
               os.symlink("vexa", site.directory / "two") or site.identity(name=f"{site.directory}/two"), ANNAS)
        for path in (site.directory / "vexa.conf", site.directory):
            for mode, owner, reason in SPOILT:
                with spoilt(path, mode, owner):
                    site.expect_error(untrusted + reason)
        site.configure("authuserdir={DIR}/data\n<VIRTUALHOST NAME=\"*\">\nvexaroot = a&[ HOME ]</VIRTUALHOST>")
        site.expect_error("Line 8: '&amp;[HOME]' is not known in safe mode<BR>")
        site.write("../vexa.conf", "")
        site.expect_error("vexaroot is not defined<BR>")
        os.remove(site.directory / "vexa.conf")
        site.expect_error("Configuration Error: Cannot open configuration file<BR>", name=site.program)


@case("the options for people act as who asks")
def _():
    with Site() as site:
        secret = site.own("secret.vx", "<VxIF secret>", 0, 0o600)
        for option, path in (("--check", secret), ("--check-table", secret), ("--check-package", site.lib / "probe")):
            (site.lib / "probe.so").chmod(0o600)
            status, text = site.run(arguments=(option, str(path)))
            expect(option, (status, "secret>" in text, "ermission denied" in text), (1, False, True))
        expect("root's", "Unexpected end" in site.run(arguments=("--check", secret), user=0)[1], True)
        site.program = pathlib.Path(shutil.copy(suite.build / "vexa-fcgi", site.directory))
        site.program.chmod(0o4755)
        expect("worker", (site.run(arguments=("--socket", f"{site.lib}/s"))[0], (site.lib / "s").exists()), (1, False))


@case("logs, variables and libraries come only from places that root alone may write to")
def _():
    with Site("authuserdir={DIR}/data\nloglevel=2\nlogfile={DIR}/logs/log\nsitevars={DIR}/vars/all", "&[x]") as site:
        (site.directory / "logs").mkdir()
        site.own("vars/all", "x=1", 0)
        expect("page", site.run(), (1, "1"))
        log = site.directory / "logs/log"
        made = log.stat()
        expect("the log", (made.st_uid, made.st_gid, made.st_mode & 0o777), (0, 0, 0o640))
        expect_in("the log", log.read_text(), f"uid=5001 gid=5001 data={site.data}")
        for name, message in (("logs", "Unable to open log file"), ("logs/log", "Unable to open log file"),
                              ("vars", "Error opening sitevars file"), ("vars/all", "Error opening sitevars file")):
            for mode, owner, _ in SPOILT:
                with spoilt(site.directory / name, mode, owner):
                    site.expect_error(message)
        os.remove(log)
        with spoilt(site.directory / "logs", 0o20, 0):
            site.expect_error("Unable to open log file")
            expect("no log", log.exists(), False)
        os.symlink(site.data / "log", log)
        site.expect_error("Unable to open log file")
        site.configure("authuserdir={DIR}/data")
        site.own("site/index.vx", SELF, ANNA)
        for mode, owner, reason in SPOILT:
            with spoilt(site.lib, mode, owner):
                expect_in("the library", site.run()[1], f"Unable to load package 'probe': {reason}")


@case("a script runs only as the owner that was asked for, and only if nobody else wrote it")
def _():
    with Site() as site:
        for mode in (0o664, 0o646):
            site.own("site/index.vx", "x", ANNA, mode)
            site.expect_error("Fatal Error: 'index.vx' may be changed by other users\r\n")
        secret = site.own("private/notes.vx", "secret", VIC, 0o600)
        secret.parent.chmod(0o700)
        eves = site.own("site/eve/notes.vx", "mine", EVE).parent
        os.symlink(secret.parent, site.site / "link")
        os.chown(site.site / "link", EVE, EVE, follow_symlinks=False)
        for options in (0, 1):
            site.configure(f"authuserdir={{DIR}}/data\nsecurityoptions={options}")
            # A user exchanges a directory for a link to another user's, and back, all the time.
            ended = threading.Event()

            def exchange():
                while not ended.is_set():
                    LIBC.renameat2(-100, bytes(eves), -100, bytes(site.site / "link"), 2)
            exchanger = threading.Thread(target=exchange)
            exchanger.start()
            try:
                pages = [site.run("/eve/notes.vx") for _ in range(TRIES // 2)]
            finally:
                ended.set()
                exchanger.join()
            expect("seen", sorted({page for _, page in pages if "secret" in page}), [])
            expect("both were met", ((1, "mine") in pages, any(status == 0 for status, _ in pages)), (True, True))


SAYS = '<VxEVAL EXPR="path(0,\'x\')"> &[globaltimeout]'


@case("the first section of the authorization file that fits the owner decides")
def _():
    with Site("authfile={DIR}/users\nglobaltimeout=7", SAYS, mode=0o755) as site:
        data, own = site.data, f"{HOMES}/anna/own/x"

        def expect_says(text, page, user=ANNA, **options):
            (site.directory / "users").write_bytes(text.encode("latin-1"))
            expect(text[:300], site.run(user=user, **options)[1].split("<BR>")[0].strip(), page)

        def section(names, *lines, end="\n</USER>"):
            return "\n".join([f'<USER NAMES="{names}">', *lines]) + end
        here, denied = f"datadir={data}", "Configuration Error: anna is not authorized to use quorbel"
        others = [section(names, "not looked into, <UNKNOWN>", "access=deny") for names in
                  ("Anna, ann, annab", "#5000,#5002-9999, #0-5000", "@helper,@vic", "root", "@nogroup")]
        for names in ("anna", " eve , , anna,", "#5001", "#4999-5001", "#5001-5001", "@anna", "@helpers", "*"):
            for before in ("", "# <USER \\\r\n<!-- <USER> -->", "\r\n".join(others), "\n".join(others * 50)):
                expect_says(before + "\n" + section(names, here, "GlobalTimeout = 9") + section("*", "access=deny")
                            + "wrong", f"{data}/x 9")
        for lines, page in {
                ("datadir=own",): f"{own} 7", ("datadir=&[home]/&[ user ]/../own/",): f"{own} 7",
                ("datadir=/a&b&[uid]",): "Configuration Error: The configured data directory for anna does not exist",
                (here, "access=DENY"): denied, (here, "access=deny", "ACCESS=Allow"): f"{data}/x 7",
                (here, "globaltimeout="): f"{data}/x 0", (): denied, ("globaltimeout=3",): denied}.items():
            expect_says(section("anna", *lines), page)
        for text in ("", "# nothing", *others, section("#5002-4294967295", here)):
            expect_says(text, denied)
        valid, setting = "' is not a valid value for ", "' is not a setting of a user"
        lines = {"x": "Missing =", "a\\<b=1": f"'a&lt;b{setting}", "path=/": f"'path{setting}", "datadir=":
                 f"'{valid}datadir", "maxcpu=5s": f"'5s{valid}maxcpu", "Access=\\<no": f"'&lt;no{valid}Access",
                 "datadir=&[HO\\<ME]": "'&amp;[HO&lt;ME]' is not known in this file", "<b>": "Unknown tag &lt;b&gt;",
                 '||<USER NAMES="x">': "Nested &lt;USER&gt; sections are not supported"}
        wrong = {section("anna", here, *line.split("|")): (3 + line.count("|"), text) for line, text in lines.items()}
        wrong |= {section(item): (1, f"'{item}' is not a valid user") for item in
                  ("#x", "#9-1", "#4294967296", "#", "#1-", "#-1", "#1-2-3", "@", "@5001", "5001", "an na", "a;b", "a*",
                   "anna\0", "a\tb", "", " , ")}
        wrong |= {"\n" + text: (2, message) for text, message in {
            "maxcpu=1": "Settings must stand in a &lt;USER&gt; section", "</USER>": "Unexpected &lt;/USER&gt;",
            "<USER>": "&lt;USER&gt; requires the NAMES attribute to be specified", "<US a=1>": "Unknown tag &lt;US&gt;",
            "<USER b NAMES=a>": "Unexpected attribute 'b' in &lt;USER&gt;", "<USER NAMES>": "'' is not a valid user",
            section("eve", end=""): "Unexpected end of file looking for &lt;/USER&gt;",
            section("anna", here, end="# </USER>"): "Unexpected end of file looking for &lt;/USER&gt;"}.items()}
        wrong[section("eve", "\n<USER>") + section("*", here)] = 3, "Nested &lt;USER&gt; sections are not supported"
        for text, (line, message) in wrong.items():
            expect_says(text, f"Syntax error in Authorization File: Line {line}: {message}")
        expect_in("the end", site.run(user=ANNA)[1], "<BR>\nPlease contact the server administrator: a@b\r\n")
        expect_says(section("anna", here), f"{data}/x 7")
        os.chown(site.directory / "users", VIC, VIC)
        expect("not trusted", UNTRUSTED in site.run(user=ANNA)[1], True)
        os.chown(site.directory / "vexa.conf", VIC, VIC)
        expect("its owner is", site.run(user=ANNA), (1, f"{data}/x 7"))
        for path, page in (("users", "authfile must be an absolute path"), ("/no", "Cannot open authorization file"),
                           ("{DIR}", "The authorization file is not trusted: it is not a plain file"),
                           ("{DIR}/pipe", "The authorization file is not trusted: it is not a plain file"),
                           ("{DIR}/vexa.conf", "The authorization file is not trusted: " + CHANGEABLE)):
            if path.endswith("pipe"):
                os.mkfifo(site.directory / "pipe")
            site.configure(f"authfile={path}")
            (site.directory / "vexa.conf").chmod(0o666)
            expect(path, site.run(user=ANNA)[1].split("<BR>")[0], "Configuration Error: " + page)


@case("in safe mode the authorization file counts for each owner, and is root's alone")
def _():
    with Site("authfile={DIR}/users\nauthuserdir=own", SELF) as site:
        users = site.own("users", '<USER NAMES="vic">\naccess=deny</USER>\n<USER NAMES="@students,root">\nmaxfiles=40\n'
                         'sitekey=key\n</USER>', 0)
        expect("anna", site.identity(), ANNAS)
        site.own("site/index.vx", """<VxEVAL EXPR="len(vexa_session()) $ vexa_token('x')">""", ANNA)
        expect_in("no key", site.run()[1], "The sitekey cannot be used: it does not exist")
        for owner, name in ((VIC, "vic"), (EVE, "eve"), (NAMELESS, "#5007"), (0, "root")):
            site.own("site/index.vx", SELF, owner)
            site.expect_error(f"Configuration Error: {name} is not authorized to use Vexa Script<BR>")
        site.own("site/index.vx", SELF, ANNA)
        for mode, owner, reason in SPOILT:
            with spoilt(users, mode, owner):
                site.expect_error("The authorization file is not trusted: " + reason)
        names = HOMES / "nsswitch.conf"
        former = names.read_text()
        for config, message in (("authfile={DIR}/users", "Configuration Error: Cannot look up '{}'"),
                                ("", "Fatal Error: Unable to act as {}")):
            site.configure(config + "\nauthuserdir={DIR}/data")
            for database, item in (("group", "@students" if config else "anna"), ("passwd", "#5001")):
                names.write_text(former.replace(f"{database}: files", f"{database}: none"))
                site.expect_error(message.format(item) + ": Input/output error")
                names.write_text(former)


HOMES = pathlib.Path(os.environ.get("VEXA_TEST_USERS", "/"))

if __name__ == "__main__":
    if not CAN_MAKE_USERS and os.geteuid() == 0 and subprocess.run(["unshare", "-m", "true"]).returncode == 0:
        with tempfile.TemporaryDirectory(prefix="vexa-users-") as homes:
            os.chmod(homes, 0o755)
            sys.exit(subprocess.run(["unshare", "-m", sys.executable, *sys.argv],
                                    env={**os.environ, "VEXA_TEST_USERS": homes}).returncode)
    if CAN_MAKE_USERS:
        make_users(HOMES)
    sys.exit(suite.main())
