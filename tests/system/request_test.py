#!/usr/bin/env python3
"""What a request may meet that no page file can say: closed descriptors, signals, senders that stop
halfway, other users, and hostile bodies of every length."""

import fcntl
import os
import pathlib
import pwd
import random
import re
import resource
import signal
import socket
import subprocess
import sys
import time

from harness import Failure, ProgramSite, Skip, Suite, expect, expect_in, wait_until_stuck

suite = Suite("requests")
ROOT, DAEMON, NOBODY = (pwd.getpwnam(name) for name in ("root", "daemon", "nobody"))
IS_ROOT = os.geteuid() == 0

FORM = {"CONTENT_TYPE": "application/x-www-form-urlencoded"}
MULTIPART = {"CONTENT_TYPE": "multipart/form-data; boundary=b"}
UPLOAD_PAGE = """\
<VxFUNCTION NAME="Vexa_ValidateFileUpload" PARAMETERS="field, name, type">\
<VxFUNCRETURN VALUE="0"></VxFUNCTION>\
<VxFUNCTION NAME="Vexa_ProcessFileUpload" PARAMETERS="field, name, type, path, size, status">\
{&[name]:&[size]:&[status]}</VxFUNCTION>[&[a]][&[z]]"""
TIMED_OUT = (0, "Application timed out\r\n")


class Site(ProgramSite):
    """A site with one script, to which requests of every kind come."""

    def __init__(self, config="", page=""):
        super().__init__(suite.build, config)
        self.directory.chmod(0o755)
        self.page = page
        self.script = self.write("index.vx", page)

    def configure(self, config):
        self.write("../vexa.conf", f"vexaroot={self.site}\nstdmodedatadir={self.data}\nusecookies=no\n"
                   + config.replace("{DIR}", str(self.directory)))

    def write(self, name, text):
        super().write(name, text)
        return self.site / name

    def start(self, body_length=0, environment=None, arguments=(), **options):
        chosen = {name: os.environ[name] for name in os.environ if name.endswith("SAN_OPTIONS")}
        request = {"GATEWAY_INTERFACE": "CGI/1.1", "PATH_INFO": "/index.vx", "QUERY_STRING": "",
                   "SERVER_NAME": "localhost", "TZ": "UTC", "CONTENT_LENGTH": str(body_length),
                   **chosen, **(environment or {})}
        return subprocess.Popen(
            [self.program, *arguments], env={} if arguments else request,
            **{"cwd": self.directory, "stdin": subprocess.PIPE, "stdout": subprocess.PIPE,
               "stderr": subprocess.PIPE, **options})

    def run(self, body=b"", environment=None, length=None, **options):
        """The exit status and the page behind the headers."""
        program = self.start(len(body) if length is None else length, environment, **options)
        output, errors = program.communicate(body, timeout=300)
        expect("standard error", errors, b"")
        return program.returncode, page_of(output)

    def expect(self, what, page, status=1, **request):
        expect(what, self.run(**request), (status, page))

    def expect_error(self, message, **request):
        """The request fails before its script runs, with that in its page."""
        status, page = self.run(**request)
        expect("status", status, 0)
        expect_in("page", page, message)

    def files(self):
        return sorted(os.listdir(self.data))


def case(name, config="", page="", root=False):
    """A case that gets a site. With `root` it runs only for root, who alone can make files of two
    owners and programs that run as another user."""
    def register(function):
        @suite.case(name)
        def _():
            if IS_ROOT or not root:
                with Site(config, page) as site:
                    function(site)

    return register


def page_of(response):
    head, separator, page = response.partition(b"\r\n\r\n")
    if not separator or not head.startswith(b"Content-type: "):
        raise Failure(f"no response: {response!r}")
    return page.decode("latin-1")


def field(name, value, filename=None):
    more = f'; filename="{filename}"' if filename is not None else ""
    return (f'\r\n--b\r\nContent-Disposition: form-data; name="{name}"{more}\r\n\r\n'.encode()
            + value)


def form(*fields):
    return b"".join(fields)[2:] + b"\r\n--b--\r\n"


@case("the configuration lies beside the program, in the working directory, nowhere", page="beside")
def _(site):
    with Site(page="here") as here:
        site.expect("beside", "beside", cwd=here.directory)
        (site.directory / "vexa.conf").unlink()
        site.expect("here", "here", cwd=here.directory)
    error = "Configuration Error: Cannot open configuration file<BR>\nPlease contact the server " \
            "administrator: webmaster@localhost\r\n"
    (site.directory / "vexa.conf").mkdir()
    site.expect("a directory", error, status=0)
    site.program = site.program.rename(site.directory / "vexa-nowhere-configured")
    site.expect("nothing", error, status=0)


@case("ten thousand lines of configuration are read", page="&[globaltimeout]", config="".join(
    f'nosuch{i}=&[SERVER_NAME]\n<CONTENT-TYPE EXTS="e{i}" MIMETYPE="t/{i}">\n'
    for i in range(5000)) + "globaltimeout=77\n")
def _(site):
    site.expect("page", "77")


# --- Descriptors and signals -----------------------------------------------------------------

# With one handle the script's file is closed while the upload is open, so that the upload would get
# the number of standard output, and the error text would end up in it.
@case("closed standard descriptors never become those of a file", config="maxfiles=1\n", page="""\
<VxFUNCTION NAME="Vexa_ValidateFileUpload" PARAMETERS="a,b,c"></VxFUNCTION>\
<VxFUNCTION NAME="Vexa_ProcessFileUpload" PARAMETERS="a,b,c,path,size,f">\
<VxEVAL EXPR="fsize(path) $ fdelete('none')"><VxEVAL EXPR="frename(path, 'kept')"></VxFUNCTION>""")
def _(site):
    body = form(field("f", b"the upload", "f.txt"))
    with site.start(len(body), MULTIPART, preexec_fn=lambda: (os.close(1), os.close(2))) as program:
        program.communicate(body, timeout=60)
    expect("status", program.returncode, 1)
    expect("upload", (site.data / "kept").read_bytes(), b"the upload")
    site.write("index.vx", "[&[a]]")
    site.expect("page", "[]", environment=FORM, length=5, preexec_fn=lambda: os.close(0))


def wait_until_reading(program):
    """Until the program sleeps with its handlers in place: then it waits for its standard input."""
    for _ in range(6000):
        text = pathlib.Path(f"/proc/{program.pid}/status").read_text()
        status = dict(line.split(":\t", 1) for line in text.splitlines())
        if status["State"][0] == "S" and int(status["SigCgt"], 16) >> signal.SIGTERM - 1 & 1:
            return
        time.sleep(0.01)
    raise Failure("the program does not get to its body")


@case("a signal ends the wait for a body, an alarm does not", page="[&[a]]")
def _(site):
    for number in (signal.SIGTERM, signal.SIGHUP, signal.SIGINT, signal.SIGQUIT):
        program = site.start(100, FORM)
        wait_until_reading(program)
        program.send_signal(number)
        program.wait(timeout=60)
        expect("page", (program.returncode, page_of(program.communicate()[0])), TIMED_OUT)
    program = site.start(3, FORM)
    wait_until_reading(program)
    program.send_signal(signal.SIGALRM)
    output, _ = program.communicate(b"a=1", timeout=60)
    expect("page", (program.returncode, page_of(output)), (1, "[1]"))


@case("a body that stops halfway is given up at the time limit", "globaltimeout=1\n", UPLOAD_PAGE)
def _(site):
    for kind, body in (FORM, b"a=1&b"), (MULTIPART, field("f", b"data", "f.txt")[2:]):
        program = site.start(100, kind)
        program.stdin.write(body)
        program.stdin.flush()
        program.wait(timeout=60)
        expect("page", (program.returncode, page_of(program.communicate()[0])), TIMED_OUT)
        expect("files", site.files(), [])


@case("a reader that goes away, or a full disk, ends the page", page="<VxWHILE EXPR='1'>01234</VxWHILE>")
def _(site):
    with open("/dev/full", "wb") as full, site.start() as read, site.start(stdout=full) as stored:
        read.stdout.read(100000)
        read.stdout.close()
        for program in read, stored:
            program.wait(timeout=60)
            expect("end", (program.returncode, program.stderr.read()), (1, b""))


def filled_output(kind, size):
    """Two ends, of which the one to write to takes no more than `size` bytes or a little more."""
    if kind == "socket":
        reading, writing = socket.socketpair()
        writing.setsockopt(socket.SOL_SOCKET, socket.SO_SNDBUF, size)
        return reading.detach(), writing.detach()
    reading, writing = os.pipe()
    fcntl.fcntl(writing, fcntl.F_SETPIPE_SZ, size)
    if kind == "pipe that does not block":
        fcntl.fcntl(writing, fcntl.F_SETFL, os.O_NONBLOCK)
    return reading, writing


@case("a page whose reader has stopped ends with the time, a signal or the reader, and gives its lock back", page="""\
<VxLOCKFILE FILE="a"><VxLET t='0123456789abcdef'><VxWHILE EXPR="len(t) LT 1000000"><VxLET t=t $ t></VxWHILE>\
<VxEVAL EXPR=t></VxLOCKFILE>never""")
def _(site):
    def close(reading, _):
        os.close(reading)
        return os.open("/dev/null", os.O_RDONLY)

    def send(number):
        def act(reading, program):
            program.send_signal(number)
            return reading
        return act

    for kind in ("pipe", "pipe that does not block", "socket"):
        for limit, act in ((1, lambda reading, _: reading), (0, close), (0, send(signal.SIGTERM)),
                           (0, send(signal.SIGXCPU))):
            site.configure(f"globaltimeout={limit}\n")
            reading, writing = filled_output(kind, 8192)
            with site.start(stdout=writing) as program:
                os.close(writing)
                os.read(reading, 100)
                wait_until_stuck(program.pid)
                reading = act(reading, program)
                expect(f"end {kind} {limit}", program.wait(timeout=60), 1)
                expect("files", site.files(), [])
                with os.fdopen(reading, "rb") as rest:
                    expect("more", b"timed out" in rest.read(), False)


@case("a page is told in time that its processor time is used up", page="<VxWHILE EXPR='1'></VxWHILE>")
def _(site):
    limit = lambda: resource.setrlimit(resource.RLIMIT_CPU, (1, 60))
    site.expect("page", "Application timed out\r\n", preexec_fn=limit)


BRIEF = "showerrors=brief\nlogfile={DIR}/log\nloglevel=2\n"
REFERENCE = r"This page has an error\. Reference: ([0-9A-F]{4}-[0-9A-F]{2})\r\n"


@case("a visitor gets a reference, the log and standard error what was wrong", BRIEF, """\
a<VxOPEN NAME="t" DATABASE=file>[&[VxOPEN_Error:entities]]
<VxLET i=0><VxWHILE EXPR="i LT 150"><VxLET i=i + 1><VxOPEN NAME="t" DATABASE="none"></VxWHILE>b<VxEVAL EXPR=(>""")
def _(site):
    def request(query="file=x%0A2026%09y", **options):
        program = site.start(environment={"QUERY_STRING": query}, **options)
        output, errors = program.communicate(timeout=60)
        return page_of(output), (errors or b"").decode("latin-1"), program.returncode

    page, errors, _ = request()
    shown = re.fullmatch(rf"a{REFERENCE}\[(.*)\]\nb", page.replace("x\n2026\ty", "x?"))
    if not shown:
        raise Failure(f"page {page!r}")
    reference, variable = shown.groups()
    expect_in("error variable", variable, "x?")
    log = (site.directory / "log").read_text().splitlines()
    what = "index.vx: Line 1: Runtime Error: "
    expect_in("log", log[1], f"\t{site.script}\tERROR\t{reference}: {what}")
    expect("events", [line.split("\t")[4] for line in log], ["SCRIPTSTARTED"] + ["ERROR"] * 100 + ["SCRIPTENDED"])
    expect_in("errors", errors, f"vexa: {reference}: {site.script}: {what}")
    expect_in("escaped", errors, "x\\x0A2026\\x09y")
    expect("lines", (len(errors.splitlines()), errors.count(reference)), (100, 100))
    expect("another", re.search(REFERENCE, request()[0])[1] != reference, True)

    reading, full = filled_output("pipe that does not block", 4096)
    os.write(full, b"x" * 4096)
    os.set_blocking(full, True)
    gone, closed = os.pipe()
    os.close(gone)
    for descriptor in (full, closed):
        expect("page without reader of errors", request(stderr=descriptor)[0][-3:], "]\nb")
        os.close(descriptor)
    os.close(reading)


@case("visitors are shown as ever what is theirs to know, and nothing that stands below the setting", BRIEF)
def _(site):
    def page(text="", environment=None, config="", **options):
        site.configure(BRIEF + config)
        site.write("index.vx", text)
        output, errors = site.start(environment=environment, **options).communicate(timeout=60)
        return page_of(output), errors

    expect("missing", page(environment={"PATH_INFO": "/no.vx"}), ("Unable to open no.vx\r\n", b""))
    expect("late", page("<VxWHILE EXPR='1'></VxWHILE>", config="globaltimeout=1"),
           ("Application timed out\r\n", b""))
    expect("large", page(environment=FORM, body_length=9, config="maxbody=5"), ("The request is too large\r\n", b""))
    expect_in("own text", page('<VEXA ERRORMESSAGE="Sorry. "><VxOPEN NAME="t" DATABASE="none">')[0],
              "Sorry. \r\nThis page has an error. Reference: ")
    section = "<VIRTUALHOST NAME=localhost>\n{}\n</VIRTUALHOST>\n"
    for config, brief in (("maxcpu=x", True), (section.format("maxcpu=x"), True), ("showerrors=page\nmaxcpu=x", False),
                          ("showerrors=PAGE\n" + section.format("showerrors=Brief\nmaxcpu=x"), True)):
        shown, errors = page(config=config)
        expect(f"hidden {config}", (bool(re.fullmatch(REFERENCE, shown)), b"is not a valid value for maxcpu" in errors),
               (brief, brief))
    expect_in("value", page(config="showerrors=page\nshowerrors=no")[0], "'no' is not a valid value for showerrors<BR>")


@case("a response that does not block arrives whole", page="0123456789" * 100000)
def _(site):
    reading, writing = os.pipe()
    fcntl.fcntl(writing, fcntl.F_SETFL, os.O_NONBLOCK)
    with site.start(stdout=writing), os.fdopen(reading, "rb") as stream:
        os.close(writing)
        expect("page", page_of(stream.read()) == site.page, True)


@case("memory that runs out is an error page",
      page="<VxLET x='0123456789'><VxWHILE EXPR='1'><VxLET x=x $ x></VxWHILE>")
def _(site):
    if b"__asan_init" in site.program.read_bytes():
        return  # The checks reserve more address space than any limit leaves.
    site.expect("page", "Fatal Error: Out of memory\r\n",
                preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_AS, (256 << 20, 256 << 20)))
    taken = "<VxLET x='0123456789'><VxWHILE EXPR=\"i LT 22\"><VxLET i=i + 1><VxLET x=x $ x></VxWHILE>&[i]"
    site.write("index.vx", "<VxLOCKFILE FILE='l'>[" + taken + "]</VxLOCKFILE>")
    site.expect("as much as it wants", "[22]")
    section = "<VIRTUALHOST NAME=localhost>\nmaxmemory={}\n</VIRTUALHOST>\n"
    for limit, config, page in (
            (None, "maxmemory=50000000", "[Fatal Error: Out of memory\r\n"),
            (None, section.format(50000000), "[Fatal Error: Out of memory\r\n"),
            (None, "maxmemory=50000000\n" + section.format(9999999999), "[22]"),
            # In the place of the soft limit, up to the hard one.
            ((30 << 20, resource.RLIM_INFINITY), "maxmemory=300000000", "[22]"),
            ((30 << 20, 30 << 20), "maxmemory=300000000", "[Fatal Error: Out of memory\r\n")):
        site.configure(config)
        site.expect(config, page, preexec_fn=limit and (lambda: resource.setrlimit(resource.RLIMIT_DATA, limit)))
        expect("locks", site.files(), [])
    site.configure("maxmemory=50000000")
    site.write("index.vx", """<VxCREATE NAME="t" TYPE="sqlite3" DATABASE="t.db#t" FIELDS="a CHAR(9)">
<VxQUERY QUERY="BEGIN"><VxQUERY QUERY="SELECT hex(zeroblob(50000000))">""")
    site.expect("an engine's", "\nFatal Error: Out of memory\r\n")


@case("a file too large for the server, or for a variable, is an error", page=UPLOAD_PAGE)
def _(site):
    small = lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (20_000, 20_000))
    site.expect("upload", "Fatal Error: Unable to store the upload: File too large\r\n", status=0,
                body=form(field("f", b"x" * 100_000, "f")), environment=MULTIPART, preexec_fn=small)
    expect("files", site.files(), [])
    site.write("index.vx",
               "<VEXA FILE_ERROR=\"nodisplay\"><VxLOCKFILE FILE=\"l\">"
               "<FILE WRITE=\"f\" VALUE=padl('', 100000, 'x')></VxLOCKFILE>&[FILE_Error]")
    site.expect("page", "Error writing 'f': File too large", preexec_fn=small)
    expect("files", site.files(), [])
    (site.data / "f").touch()
    site.write("index.vx", "<FILE READ=\"f\" NAME=\"x\">[&[x]]")
    os.truncate(site.data / "f", 3 << 30)
    site.expect("page", "index.vx: Line 1: Runtime Error: Error reading 'f': "
                "The file is too large for a variable\r\n[]")


# --- Users -----------------------------------------------------------------------------------

# Whom the program runs as in user mode: root's scripts never run.
OWNER = NOBODY if IS_ROOT else pwd.getpwuid(os.geteuid())
AS_OWNER = {"user": OWNER.pw_uid} if IS_ROOT else {}


def give_to(user, *paths):
    if IS_ROOT:
        for path in paths:
            os.chown(path, user.pw_uid, user.pw_gid)


@case("a user's script runs with that user's data, which must exist",
      config="authuserdir={DIR}/mine/\n", page="[&[x]]")
def _(site):
    give_to(OWNER, site.script)
    site.expect_error("Configuration Error: The configured data directory for "
                      f"{OWNER.pw_name} does not exist<BR>", **AS_OWNER)
    site.write("../mine/sitevars", "x=user's")
    site.expect("page", "[user's]", **AS_OWNER)


@case("scripts of other owners do not run, nor those of root, in two wordings",
      config="authuserdir={DIR}/data\n", root=True)
def _(site):
    refused = "Fatal Error: 'index.vx' is not owned by nobody\r\n"
    site.expect("root's", refused, status=0, **AS_OWNER)
    give_to(DAEMON, site.script)
    site.expect("another user's", refused, status=0, **AS_OWNER)
    give_to(ROOT, site.script)
    site.expect_error("Configuration Error: root is not authorized to use quorbel<BR>")
    site.program.chmod(0o4755)
    site.expect_error("Configuration Error: root is not authorized to use Vexa Script<BR>")


@case("a configured directory may be a link to another owner's only where that is allowed",
      root=True)
def _(site):
    script = site.write("../other/index.vx", "ok")
    give_to(DAEMON, script.parent)
    (site.directory / "link").symlink_to("other")
    for key, bits in (("vexaroot", 1), ("stdmodedatadir", 4)):
        link = f"vexaroot={{DIR}}/other\n{key}={{DIR}}/link\n"
        site.configure(f"{link}securityoptions={bits}\n")
        site.expect_error(f"Configuration Error: The directory configured as {key} references a "
                          "symbolic link to a directory or file owned by a different user<BR>\n")
        site.configure(f"{link}securityoptions={bits * 3}\n")
        site.expect(key, "ok")


@case("a set-user-ID program takes on the owner of the script, and must know whose data to use",
      page="<VxEVAL EXPR=\"fmkdir('made')\">", root=True)
def _(site):
    site.program.chmod(0o4755)
    site.expect_error("Configuration Error: Vexa is running in server safe mode but no authfile or "
                      "authuserdir are defined<BR>")
    site.configure("authuserdir={DIR}/data\n")
    give_to(DAEMON, site.script, site.data)
    # The search for leaks cannot look into a process that changed its identity.
    site.expect("page", "1", user=NOBODY.pw_uid, environment={"ASAN_OPTIONS": "detect_leaks=0"})
    expect("owner", (site.data / "made").stat().st_uid, DAEMON.pw_uid)


@case("~user names a directory below that user's home")
def _(site):
    up = "../" * OWNER.pw_dir.count("/")
    site.configure("authuserdir={DIR}/data\nvexadefault=start.vx\n"
                   f"userdir={up}{str(site.directory)[1:]}/site\n")
    give_to(OWNER, site.write("sub/page.vx", "[&[arg1]]"))
    name = f"~{OWNER.pw_name}/sub/page.vx"
    site.expect("page", f"[{name}]", environment={"PATH_INFO": f"/{name}"}, **AS_OWNER)
    site.configure("authuserdir={DIR}/data\nuserdir=none\n")
    for name in (OWNER.pw_name, "no-such-user", "<b>"):
        shown = name.replace("<", "&lt;").replace(">", "&gt;")
        site.expect_error("Configuration Error: The configured script directory for "
                          f"{shown} does not exist<BR>",
                          environment={"PATH_INFO": f"/~{name}/page.vx"}, **AS_OWNER)


# --- Hostile bodies --------------------------------------------------------------------------

@case("an upload cut off anywhere leaves no file and gives what arrived whole",
      config="contentbuffersize=5\n", page=UPLOAD_PAGE)
def _(site):
    body = form(field("a", b"1"), field("f", b"da\r\nta\r\n--", "f.txt"), field("z", b"2"))
    first_end = body.index(b"\r\n--b", 4) + len(b"\r\n--b")
    file_end = body.index(b"\r\n--b", first_end + 60) + len(b"\r\n--b")
    for length in range(len(body) + 1):
        status, page = site.run(body[:length], MULTIPART, len(body))
        expect(f"files at {length}", site.files(), [])
        expect(f"status at {length}", status, 0 if length < len(b"--b") else 1)
        if status == 0:
            expect_in("page", page, "does not match boundary")
            continue
        expect_in(f"page at {length}", page, "[1]" if length >= first_end else "[][]")
        whole = "{f.txt:10:COMPLETE}"
        expect(f"whole at {length}: {page}", whole in page, length >= file_end)


@case("bodies of random bytes end in a page", config="contentbuffersize=3\n", page=UPLOAD_PAGE)
def _(site):
    seed = random.randrange(1 << 32)
    chance = random.Random(seed)
    pieces = [b"\r\n--b", b"\r\n--b\r\n", b"--b--", b"Content-Disposition: form-data", b'; name="x',
              b'"; filename="f"', b"\r\n\r\n", b"\r", b"\n", b"-", b"=", b"&", b"%4", b"\0",
              b"x" * 100]
    for _ in range(150):
        body = b"--b\r\n" + b"".join(chance.choices(pieces, k=chance.randrange(40)))
        status, _ = site.run(body, chance.choice([MULTIPART, FORM]))
        if status not in (0, 1) or site.files():
            raise Failure(f"seed {seed}: status {status}, files {site.files()} for {body!r}")


@case("any number of parts is read, no header or boundary without an end", "maxfields=0\n", UPLOAD_PAGE)
def _(site):
    fields, files = (b"".join([part] * 10000) for part in (field("z", b"2"), field("f", b"", "f")))
    site.expect("page", "{f:0:COMPLETE}" * 10000 + "[][" + ",".join("2" * 10000) + "]",
                body=form(fields, files), environment=MULTIPART)
    for header in (b"X: " + b"x" * (1 << 20), b"X: x\r\n" * 200000, b" " * (1 << 20)):
        site.expect("page", "Fatal Error: The header of a part of the multipart/form-data content "
                    "is too long\r\n", status=0, body=b"--b\r\n" + header, environment=MULTIPART)
    boundary = "x" * (1 << 16)
    site.expect_error("does not match boundary", body=f"--{boundary}\r\n".encode(),
                      environment={"CONTENT_TYPE": f"multipart/form-data; boundary={boundary}"})


def peak_memory_kb(site, head, block, count, tail, page, environment=MULTIPART):
    """What a request of `count` blocks with that page takes at most."""
    with site.start(len(head) + len(block) * count + len(tail), environment) as program:
        for piece in [head, *[block] * count, tail]:
            program.stdin.write(piece)
        program.stdin.close()
        expect("page", page_of(program.stdout.read()), page)
        _, status, usage = os.wait4(program.pid, 0)
        program.returncode = os.waitstatus_to_exitcode(status)
    return usage.ru_maxrss


@case("an upload of any size takes no more memory than a small one", config="maxbody=0\n", page=UPLOAD_PAGE)
def _(site):
    head, block = field("f", b"", "f")[2:], b"\r\n--" + b"x" * 65532
    small, large = (peak_memory_kb(site, head, block, count, b"\r\n--b--\r\n", f"{{f:{count << 16}:COMPLETE}}[][]")
                    for count in (1, 1024))
    if large > small + 1024:
        raise Failure(f"{small} KB for a small upload, {large} KB for a large one")


@case("a value takes its own size in memory, however it is sent and asked for", config="maxbody=0\n",
      page="<VxEVAL EXPR=len(a)><VxEVAL EXPR=\"len(vexa_field('a'))\"><VxEVAL EXPR=len(vexa_body())>")
def _(site):
    if b"__asan_init" in site.program.read_bytes():
        raise Skip("the sanitizers take memory of their own")
    for kind, head, block, tail, page, environment in (
            ("field", b"x=&a=", b"x" * 100000, b"&z=1", "4000000004000000000", FORM),
            ("encoded", b"a=", b"%41+" * 25000, b"", "2000000002000000000", FORM),
            ("part", field("a", b"")[2:], b"x" * 100000, b"\r\n--b--", "4000000004000000000", MULTIPART),
            ("body", b"", b"x" * 100000, b"", "00400000000", {"CONTENT_TYPE": "text/plain"})):
        peak = peak_memory_kb(site, head, block, 4000, tail, page, environment)
        if peak > 450000000 / 1024:
            raise Failure(f"{peak} KB for 400 MB in a {kind}")


@case("a large value is decoded wherever its pieces end, and stays as sent when the page changes it",
      page="<VxEVAL EXPR=vexa_hex(a)>|<VxLET b=a><VxLET a=a $ '!'><VxEVAL EXPR=\"a EQ (b $ '!')\">"
           "<VxEVAL EXPR=\"vexa_field('a') EQ b\">|<VxEVAL EXPR=len(vexa_fieldat('a',1))>|&[z]")
def _(site):
    seed = random.randrange(1 << 32)
    chance = random.Random(seed)
    for size, split in (8192, 0), (1, 0), (7, 1), (4096, 1):
        site.configure(f"contentbuffersize={size}\n")
        pieces = chance.choices(["x", "+", "%41", "%2b", "%0a", "yy", "=", "%%"], k=12000)
        text = "".join(pieces) + chance.choice(["", "%", "%4", "%+"])
        plain = re.sub(r"%(.)(.)|[+]", lambda found: " " if found[0] == "+" else
                       chr((digit(found[1]) * 16 + digit(found[2])) & 255), text, flags=re.S)
        name, more = ("%41", "&A=2") if split else ("a", "")
        shown = (plain + ",2" * split).encode("latin-1").hex()
        page = f"{shown}|11|{len(plain)}|1"
        expect(f"seed {seed}", site.run(f"{name}={text}{more}&z=1".encode("latin-1"), FORM), (1, page))


def digit(character):
    """What a hexadecimal digit counts, any other character too."""
    code = ord(character.upper())
    return code - 55 if "A" <= character.upper() <= "Z" else code - 48


@case("a reader who takes nothing of a file is given up when the time is over",
      "globaltimeout=1\n", "<VxEVAL EXPR=vexa_sendfile('f','','')>")
def _(site):
    with open(site.data / "f", "wb") as file:
        file.truncate(1 << 30)
    program = site.start()
    program.stdin.close()
    expect("exit status", program.wait(timeout=60), 1)
    expect("piece", len(program.stdout.read()) < 1 << 20, True)
    with site.start() as read:
        read.stdout.read(100)
        read.send_signal(signal.SIGTERM)
        expect("at a signal", len(read.stdout.read()) < 1 << 29, True)
    program.stdout.close()
    program.stderr.close()


@case("people get the version, the help and the check of scripts", page="<VxEVAL EXPR='1'>")
def _(site):
    def run(*arguments):
        program = site.start(arguments=arguments)
        output, errors = program.communicate(timeout=60)
        expect("standard error", errors, b"")
        return program.returncode, output.decode()

    bad = site.write("bad.vx", "\n<VxEVAL EXPR=1 EQ>\n<VxIF>")
    expect("version", run("--version"), (0, "vexa 1.0.0\n"))
    for option, status in ("--help", 0), ("--check", 1), ("--check-table", 1):
        expect(option, run(option)[0], status)
    expect("a clean script", run("--check", site.script), (0, ""))
    none = site.directory / "none.vx"
    for arguments, error in (("--check", bad), f"{bad}: Line 2: Expression Error: "), \
            (("--check", site.script, bad), f"{bad}: Line 3: Syntax Error: "), \
            (("--check", none), "Unable to open "), (("--check-table", none), "cannot be opened: "):
        status, text = run(*arguments)
        expect(f"status of {arguments}", status, 1)
        expect_in(f"errors of {arguments}", text, error)
    # Every mistake once, in the words of the running page, and stop forms for what they are.
    many = site.write("many.vx", """<VxIF EXPR="a EQ">x</VxIF>
<VxLET a=1 b=2><EVAL><HIDE><FILE READ="a" WRITE="b"><CALL STOP>
<WHILE i LT 3><IMPORT FILE="x" DELIMITER="," ORDER a><IMPORT STOP></IMPORT><WHILE STOP></WHILE>
<VxFUNCTION NAME="f"><VxFUNCTION NAME="g"></VxFUNCTION></VxFUNCTION><VxELSE><VxIF EXPR>""")
    status, text = run("--check", many)
    expect("many mistakes", [line.partition(": ")[2] for line in text.splitlines()], [
        "Line 1: Expression Error: Unexpected end of expression",
        "Line 2: Syntax Error: VxLET expects exactly one 1 name/value pair, found 2",
        "Line 2: Syntax Error: EVAL requires an expression",
        "Line 2: Syntax Error: HIDE requires a list of variables to hide",
        "Line 2: Syntax Error: FILE takes one action, found READ and WRITE",
        "Line 2: Syntax Error: Unexpected <CALL>",
        "Line 4: Syntax Error: Nested function declarations are not supported",
        "Line 4: Syntax Error: Unexpected <VxELSE>",
        "Line 4: Syntax Error: Attributes with empty values are not allowed in <VxIF> "
        "(you have probably omitted EXPR= in front of your expression)",
        "Line 4: Syntax Error: Unexpected end of file looking for </VxIF>"])


@case("the check warns of references whose value can say more than it should", page="")
def _(site):
    written = site.write("w.vx", r"""&[a] &[b:entities] &[c:zzz] &amp;[d];
<VxFILTER FILTER="n EQ '&[q]'"><VxFILTER FILTER=" "><VxDO FILE="a" NAME="b" VALUE="f('&[e:entities]')">
<p x='&[f:entities]' title="it's &[b:entities]" onclick="f('&[g:entities]',&[b:script])" id=&[h:entities] &[i:ent]>
<p y = &[b:attribute] x='&[b:none]' style="x:url('&[j:entities]')" href="JavaScript:f('&[b:script]&[k:entities]')">
<script src="&[b:entities]"> x = &[b:json]; y = '&[b:script]'; if (a<b && c>d) { "&[l:entities]" } &[m:none]
<VxIF EXPR="x GT '&[n]'">&[o]</VxIF></SCRIPT > &[b:entities] <!-- &[p] <script> '&[b:entities]' --> < i &[b:entities]>
<VxLET row&[i1:none]=&[r:none]><IF &[s:none] EQ 'a&[t:none]'></IF><WHILE a EQ '&[u:none]'></WHILE>
<p
 id="&[b:none]" class=
 &[v:entities]> a \&[w] <HIDE &[x]> <IMPORT FILE=f DELIMITER=d ORDER=&[y]></IMPORT>
<VEXA INTERPRET="tags">&[b]<VEXA INTERPRET="tags, mac">&[z]<QUORBEL MACRO="of">&[b]<QUORBEL MACRO="on">
<VEXA DEFAULTMACROENCODING="ent">&[b] <b x='&[A]'>'&[b]'</b><VEXA DEFAULTMACROENCODING="none">&[B] &[never
""")
    bare, constant, script = "has no word", "stands in a text constant", "stands in a script"
    single, outside = "stands between single quotes", "stands outside quotes"
    expected = {
        1: {"a": bare, "c:zzz": bare, "d": bare}, 2: {"q": constant, "e:entities": constant},
        3: {"f:entities": single, "g:entities": single, "h:entities": outside, "i:ent": outside},
        4: {"j:entities": single, "k:entities": single}, 5: {"l:entities": script, "m:none": script},
        6: {"n": constant, "o": script, "p": bare}, 7: {"t:none": constant, "u:none": constant},
        10: {"v:entities": outside, "w": bare, "x": bare, "y": bare}, 11: {"z": bare},
        12: {"A": single, "B": bare}}

    def found():
        program = site.start(arguments=("--check", written))
        lines = program.communicate(timeout=60)[0].decode().splitlines()
        expect("status", program.returncode, 0)
        kinds = "|".join((bare, constant, script, single, outside))
        found = [re.search(rf"w.vx: Line (\d+): Warning: &\[(.*)\] ({kinds})", line).groups()
                 for line in lines]
        return [(int(line), name, kind) for line, name, kind in found]

    def wanted(left_out):
        return [(line, name, kind) for line, names in expected.items()
                for name, kind in names.items() if kind != left_out or name == "B"]

    expect("warnings", found(), wanted(None))
    site.configure("defaultmacroencoding=attribute\n")
    expect("warnings where the site has a default", found(), wanted(bare))
    # More of them than a pipe holds, for somebody who reads when he has time.
    program = site.start(arguments=("--check", site.write("many.vx", "'&[a:ent]'<i '&[a:ent]'>" * 5000)))
    wait_until_stuck(program.pid)
    expect("lines", len(program.communicate(timeout=60)[0].splitlines()), 5000)


if __name__ == "__main__":
    sys.exit(suite.main())
