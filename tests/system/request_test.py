#!/usr/bin/env python3
"""What a request may meet that no page file can say: closed descriptors, signals, senders that stop
halfway, other users, and hostile bodies of every length."""

import contextlib
import fcntl
import os
import pathlib
import pwd
import random
import resource
import shutil
import signal
import subprocess
import sys
import tempfile

from harness import Failure, Suite, expect, expect_in

suite = Suite("requests")

NOBODY = pwd.getpwnam("nobody")
DAEMON = pwd.getpwnam("daemon")
IS_ROOT = os.geteuid() == 0

MULTIPART = "multipart/form-data; boundary=b"
UPLOAD_PAGE = """\
<VxFUNCTION NAME="Vexa_ValidateFileUpload" PARAMETERS="field, name, type">\
<VxFUNCRETURN VALUE="0"></VxFUNCTION>\
<VxFUNCTION NAME="Vexa_ProcessFileUpload" PARAMETERS="field, name, type, path, size, status">\
{&[name]:&[size]:&[status]}</VxFUNCTION>[&[a]][&[z]]"""


class Site:
    """A directory with a program of its own, a script and a data directory."""

    def __init__(self, config=""):
        self.config = config

    def __enter__(self):
        # As realpath: the program refuses script directories that lie behind links.
        self.directory = pathlib.Path(os.path.realpath(tempfile.mkdtemp(prefix="vexa-request-")))
        self.directory.chmod(0o755)
        self.program = self.directory / "vexa"
        shutil.copy(suite.build / "vexa", self.program)
        for name in ("site", "data"):
            (self.directory / name).mkdir()
        self.data = self.directory / "data"
        self.configure(self.config)
        return self

    def __exit__(self, *ignored):
        shutil.rmtree(self.directory)

    def configure(self, config):
        (self.directory / "vexa.conf").write_text(
            f"vexaroot={self.directory}/site\nstdmodedatadir={self.data}\nusecookies=no\n"
            f"serveradmin=admin@example.com\n{config}".replace("{DIR}", str(self.directory)))

    def write(self, name, text):
        path = self.directory / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)
        return path

    def environment(self, **more):
        chosen = {name: os.environ[name] for name in ("ASAN_OPTIONS", "UBSAN_OPTIONS")
                  if name in os.environ}
        return {"GATEWAY_INTERFACE": "CGI/1.1", "PATH_INFO": "/index.vx", "QUERY_STRING": "",
                "SERVER_NAME": "localhost", "TZ": "UTC", **chosen, **more}

    def start(self, environment=None, arguments=(), **options):
        return subprocess.Popen(
            [self.program, *arguments],
            env=self.environment() if environment is None else environment,
            **{"cwd": self.directory, "stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE,
               "stderr": subprocess.PIPE, **options})

    def run(self, body=b"", **more):
        """The exit status and the page behind the headers."""
        options = {key: more.pop(key) for key in ("user", "cwd", "preexec_fn") if key in more}
        program = self.start(self.environment(CONTENT_LENGTH=str(len(body)), **more),
                             stdin=subprocess.PIPE, **options)
        output, errors = program.communicate(body, timeout=300)
        expect("standard error", errors, b"")
        return program.returncode, page_of(output)

    def files(self):
        return sorted(os.listdir(self.data))


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


def sanitized():
    return "VEXA_SANITIZE:BOOL=ON" in (suite.build / "CMakeCache.txt").read_text()


# --- Where the configuration lies ------------------------------------------------------------

@suite.case("the configuration lies beside the program, then in the working directory")
def _():
    with Site() as site, Site() as here:
        here.write("site/index.vx", "here")
        site.write("site/index.vx", "beside")
        expect("beside", site.run(cwd=here.directory), (1, "beside"))
        (site.directory / "vexa.conf").unlink()
        expect("here", site.run(cwd=here.directory), (1, "here"))


@suite.case("without a configuration every request is answered with that")
def _():
    with Site() as site:
        (site.directory / "vexa.conf").unlink()
        site.program = site.program.rename(site.directory / "vexa-nowhere-configured")
        expect("page", site.run(),
               (0, "Configuration Error: Cannot open configuration file<BR>\nPlease contact the "
                   "server administrator: webmaster@localhost\r\n"))


@suite.case("a directory in the configuration's place cannot be opened")
def _():
    with Site() as site:
        (site.directory / "vexa.conf").unlink()
        (site.directory / "vexa.conf").mkdir()
        status, page = site.run()
        expect("status", status, 0)
        expect_in("page", page, "Configuration Error: Cannot open configuration file<BR>")


@suite.case("ten thousand lines of configuration are read")
def _():
    lines = "".join(f'nosuch{i}=&[SERVER_NAME]\n<CONTENT-TYPE EXTS="e{i}" MIMETYPE="t/{i}">\n'
                    for i in range(5000))
    with Site(lines + "globaltimeout=77\n") as site:
        site.write("site/index.vx", "&[globaltimeout]")
        expect("page", site.run(), (1, "77"))


# --- Descriptors and signals -----------------------------------------------------------------

@suite.case("closed standard descriptors never become those of a file")
def _():
    # With one handle the script's file is closed while the upload is open, so that the upload would
    # get the number of standard output, and the error text would end up in it.
    with Site("maxfiles=1\n") as site:
        site.write("site/index.vx", """\
<VxFUNCTION NAME="Vexa_ValidateFileUpload" PARAMETERS="a,b,c"></VxFUNCTION>\
<VxFUNCTION NAME="Vexa_ProcessFileUpload" PARAMETERS="a,b,c,path,size,f">\
<VxEVAL EXPR="fsize(path) $ fdelete('none')"><VxEVAL EXPR="frename(path, 'kept')"></VxFUNCTION>""")
        body = form(field("f", b"the upload", "f.txt"))
        program = site.start(
            site.environment(CONTENT_LENGTH=str(len(body)), CONTENT_TYPE=MULTIPART),
            stdin=subprocess.PIPE, preexec_fn=lambda: (os.close(1), os.close(2)))
        program.communicate(body, timeout=60)
        expect("status", program.returncode, 1)
        expect("upload", (site.data / "kept").read_bytes(), b"the upload")


@suite.case("a request without standard input has an empty body")
def _():
    with Site() as site:
        site.write("site/index.vx", "[&[a]]")
        program = site.start(
            site.environment(CONTENT_LENGTH="5",
                             CONTENT_TYPE="application/x-www-form-urlencoded"),
            preexec_fn=lambda: os.close(0))
        output, _ = program.communicate(timeout=60)
        expect("page", (program.returncode, page_of(output)), (1, "[]"))


@suite.case("a signal ends the wait for a body")
def _():
    with Site() as site:
        site.write("site/index.vx", "never")
        for number in (signal.SIGTERM, signal.SIGHUP, signal.SIGINT, signal.SIGQUIT):
            program = site.start(
                site.environment(CONTENT_LENGTH="100",
                                 CONTENT_TYPE="application/x-www-form-urlencoded"),
                stdin=subprocess.PIPE)
            wait_until_reading(program)
            program.send_signal(number)
            program.wait(timeout=60)
            expect("page", (program.returncode, page_of(program.stdout.read())),
                   (0, "Application timed out\r\n"))
            program.communicate()


def wait_until_reading(program):
    """Until the program waits for its standard input: then its handlers stand."""
    for _ in range(6000):
        with open(f"/proc/{program.pid}/wchan") as wchan:
            if wchan.read().strip() in ("poll_schedule_timeout.constprop.0",
                                        "poll_schedule_timeout", "do_poll", "do_sys_poll"):
                return
        with contextlib.suppress(OSError), open(f"/proc/{program.pid}/syscall") as syscall:
            if syscall.read().split()[0] in ("7", "73", "271"):
                return
        try:
            program.wait(0.01)
            raise Failure("the program did not wait for its body")
        except subprocess.TimeoutExpired:
            pass
    raise Failure("the program does not get to its body")


@suite.case("an alarm is ignored")
def _():
    with Site() as site:
        site.write("site/index.vx", "[&[a]]")
        program = site.start(
            site.environment(CONTENT_LENGTH="3",
                             CONTENT_TYPE="application/x-www-form-urlencoded"),
            stdin=subprocess.PIPE)
        wait_until_reading(program)
        program.send_signal(signal.SIGALRM)
        output, _ = program.communicate(b"a=1", timeout=60)
        expect("page", (program.returncode, page_of(output)), (1, "[1]"))


@suite.case("a body that stops halfway is given up at the time limit")
def _():
    with Site("globaltimeout=1\n") as site:
        site.write("site/index.vx", UPLOAD_PAGE)
        for content_type, body in (("application/x-www-form-urlencoded", b"a=1&b"),
                                   (MULTIPART, field("f", b"data", "f.txt")[2:])):
            program = site.start(
                site.environment(CONTENT_LENGTH="100", CONTENT_TYPE=content_type),
                stdin=subprocess.PIPE)
            program.stdin.write(body)
            program.stdin.flush()
            program.wait(timeout=60)
            expect("page", (program.returncode, page_of(program.stdout.read())),
                   (0, "Application timed out\r\n"))
            program.communicate()
            expect("files", site.files(), [])


@suite.case("a reader that goes away does not kill the program")
def _():
    with Site() as site:
        site.write("site/index.vx", '<VxLET i=0><VxWHILE EXPR="1">0123456789</VxWHILE>')
        program = site.start()
        program.stdout.read(100000)
        program.stdout.close()
        program.wait(timeout=60)
        expect("status", program.returncode, 1)
        expect("standard error", program.stderr.read(), b"")
        program.stderr.close()


@suite.case("a response that cannot be stored ends the page")
def _():
    with Site() as site, open("/dev/full", "wb") as full:
        site.write("site/index.vx", '<VxLET i=0><VxWHILE EXPR="1">0123456789</VxWHILE>')
        program = site.start(stdout=full)
        program.wait(timeout=60)
        expect("status", program.returncode, 1)
        program.stderr.close()


@suite.case("a response that does not block arrives whole")
def _():
    with Site() as site:
        text = "0123456789" * 100000
        site.write("site/index.vx", text)
        reading, writing = os.pipe()
        fcntl.fcntl(writing, fcntl.F_SETFL, os.O_NONBLOCK)
        program = site.start(stdout=writing)
        os.close(writing)
        with os.fdopen(reading, "rb") as stream:
            expect("page", page_of(stream.read()) == text, True)
        program.wait(timeout=60)
        program.stderr.close()


@suite.case("memory that runs out is an error page")
def _():
    if sanitized():
        return  # The checks reserve more address space than any limit leaves.
    with Site() as site:
        site.write("site/index.vx",
                   "<VxLET x='0123456789'><VxWHILE EXPR='1'><VxLET x=x $ x></VxWHILE>")
        limit = 256 << 20
        expect("page", site.run(
            preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_AS, (limit, limit))),
            (1, "Fatal Error: Out of memory\r\n"))


@suite.case("a file that grows past the server's limit is an error of its writer")
def _():
    with Site() as site:
        site.write("site/index.vx", UPLOAD_PAGE)
        upload = form(field("f", b"x" * 100_000, "f"))
        small = lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (20_000, 20_000))
        expect("upload", site.run(upload, CONTENT_TYPE=MULTIPART, preexec_fn=small),
               (0, "Fatal Error: Unable to store the upload: File too large\r\n"))
        expect("files", site.files(), [])
        site.write("site/index.vx",
                   "<VEXA FILE_ERROR=\"nodisplay\"><VxLOCKFILE FILE=\"l\">"
                   "<FILE WRITE=\"f\" VALUE=padl('', 100000, 'x')></VxLOCKFILE>&[FILE_Error]")
        expect("page", site.run(preexec_fn=small),
               (1, "Error writing 'f': File too large"))
        expect("files", site.files(), ["f"])


@suite.case("a file larger than any text cannot be read into a variable")
def _():
    with Site() as site:
        site.write("site/index.vx", "<FILE READ=\"f\" NAME=\"x\">[&[x]]")
        with open(site.data / "f", "wb") as file:
            file.truncate(3 << 30)
        expect("page", site.run(),
               (1, "index.vx: Line 1: Runtime Error: Error reading 'f': "
                "The file is too large for a variable\r\n[]"))


# --- Users -----------------------------------------------------------------------------------

def owner():
    """Whom the program runs as in user mode: root's scripts never run."""
    return NOBODY if IS_ROOT else pwd.getpwuid(os.geteuid())


def give_to(user, *paths):
    if IS_ROOT:
        for path in paths:
            os.chown(path, user.pw_uid, user.pw_gid)


def run_as_owner(site, **more):
    return site.run(**({"user": owner().pw_uid} if IS_ROOT else {}), **more)


@suite.case("a user's script runs with that user's data")
def _():
    with Site("authuserdir={DIR}/mine/\n") as site:
        script = site.write("site/index.vx", "[&[x]]")
        site.write("mine/sitevars", "x=user's")
        give_to(owner(), script)
        expect("page", run_as_owner(site), (1, "[user's]"))


@suite.case("a user's data directory must exist")
def _():
    with Site("authuserdir={DIR}/none\n") as site:
        give_to(owner(), site.write("site/index.vx", "x"))
        status, page = run_as_owner(site)
        expect("status", status, 0)
        expect_in("page", page, "Configuration Error: The configured data directory for "
                  f"{owner().pw_name} does not exist<BR>")


@suite.case("scripts of other owners do not run")
def _():
    if not IS_ROOT:
        return  # Only root can make files of two owners.
    with Site("authuserdir={DIR}\n") as site:
        script = site.write("site/index.vx", "x")
        expect("root's", run_as_owner(site),
               (0, "Fatal Error: 'index.vx' is not owned by nobody\r\n"))
        give_to(DAEMON, script)
        expect("another user's", run_as_owner(site),
               (0, "Fatal Error: 'index.vx' is not owned by nobody\r\n"))


@suite.case("root's scripts have no data, in two wordings")
def _():
    if not IS_ROOT:
        return  # It takes a script and a program of root.
    with Site("authuserdir={DIR}/data\n") as site:
        site.write("site/index.vx", "x")
        expect_in("user mode", site.run()[1],
                  "Configuration Error: root is not authorized to use quorbel<BR>")
        site.program.chmod(0o4755)
        expect_in("set-user-ID mode", site.run()[1],
                  "Configuration Error: root is not authorized to use Vexa Script<BR>")


@suite.case("a configured directory may be a link to another owner's only where that is allowed")
def _():
    if not IS_ROOT:
        return  # Only root can make files of two owners.
    with Site() as site:
        script = site.write("other/index.vx", "ok")
        give_to(DAEMON, script.parent)
        (site.directory / "link").symlink_to("other")
        problem = ("references a symbolic link to a directory or file owned by a different user"
                   "<BR>\n")
        for key, bits in (("vexaroot", 1), ("stdmodedatadir", 4)):
            link = f"vexaroot={{DIR}}/other\n{key}={{DIR}}/link\n"
            site.configure(f"{link}securityoptions={bits}\n")
            expect_in(key, site.run()[1],
                      f"Configuration Error: The directory configured as {key} {problem}")
            site.configure(f"{link}securityoptions={bits * 3}\n")
            expect(key, site.run(), (1, "ok"))


@suite.case("authorization files are refused in the open")
def _():
    with Site("authfile=/none\n") as site:
        give_to(owner(), site.write("site/index.vx", "x"))
        status, page = run_as_owner(site)
        expect("status", status, 0)
        expect_in("page", page, "Configuration Error: authfile is not supported by this build<BR>")


@suite.case("a set-user-ID program takes on the owner of the script")
def _():
    if not IS_ROOT:
        return  # Only root can make such a program.
    with Site("authuserdir={DIR}/data\n") as site:
        give_to(DAEMON, site.write("site/index.vx", "<VxEVAL EXPR=\"fmkdir('made')\">"), site.data)
        site.program.chmod(0o4755)
        # The search for leaks cannot look into a process that changed its identity.
        expect("page", site.run(user=NOBODY.pw_uid, ASAN_OPTIONS="detect_leaks=0"), (1, "1"))
        expect("owner", (site.data / "made").stat().st_uid, DAEMON.pw_uid)


@suite.case("a set-user-ID program must know whose data to use")
def _():
    if not IS_ROOT:
        return  # Only root can make such a program.
    with Site() as site:
        site.program.chmod(0o4755)
        expect_in("page", site.run()[1],
                  "Configuration Error: Vexa is running in server safe mode but no authfile or "
                  "authuserdir are defined<BR>")


@suite.case("~user names a directory below that user's home")
def _():
    user = owner()
    with Site() as site:
        up = "../" * user.pw_dir.count("/")
        site.configure("authuserdir={DIR}/data\nvexadefault=start.vx\n"
                       f"userdir={up}{str(site.directory)[1:]}/site\n")
        script = site.write("site/sub/page.vx", "[&[arg1]]")
        give_to(user, script)
        expect("page", run_as_owner(site, PATH_INFO=f"/~{user.pw_name}/sub/page.vx"),
               (1, f"[~{user.pw_name}/sub/page.vx]"))
        site.configure("authuserdir={DIR}/data\nuserdir=none\n")
        for name in (user.pw_name, "no-such-user", "<b>"):
            shown = name.replace("<", "&lt;").replace(">", "&gt;")
            status, page = run_as_owner(site, PATH_INFO=f"/~{name}/page.vx")
            expect("status", status, 0)
            expect_in("page", page, "Configuration Error: The configured script directory for "
                      f"{shown} does not exist<BR>")


# --- Hostile bodies --------------------------------------------------------------------------

@suite.case("an upload cut off anywhere leaves no file and gives what arrived whole")
def _():
    body = form(field("a", b"1"), field("f", b"da\r\nta\r\n--", "f.txt"), field("z", b"2"))
    first_end = body.index(b"\r\n--b", 4) + len(b"\r\n--b")
    file_end = body.index(b"\r\n--b", first_end + 60) + len(b"\r\n--b")
    with Site("contentbuffersize=5\n") as site:
        site.write("site/index.vx", UPLOAD_PAGE)
        for length in range(len(body) + 1):
            program = site.start(
                site.environment(CONTENT_LENGTH=str(len(body)), CONTENT_TYPE=MULTIPART),
                stdin=subprocess.PIPE)
            output, errors = program.communicate(body[:length], timeout=60)
            page = page_of(output)
            expect(f"standard error at {length}", errors, b"")
            expect(f"files at {length}", site.files(), [])
            if length < len(b"--b"):
                expect(f"status at {length}", program.returncode, 0)
                expect_in("page", page, "does not match boundary")
                continue
            expect(f"status at {length}", program.returncode, 1)
            expect_in(f"page at {length}", page, "[1]" if length >= first_end else "[][]")
            whole = "{f.txt:10:COMPLETE}"
            expect(f"whole at {length}: {page}", whole in page, length >= file_end)


@suite.case("bodies of random bytes end in a page")
def _():
    seed = random.randrange(1 << 32)
    chance = random.Random(seed)
    pieces = [b"\r\n--b", b"\r\n--b\r\n", b"--b--", b"Content-Disposition: form-data", b'; name="x',
              b'"; filename="f"', b"\r\n\r\n", b"\r", b"\n", b"-", b"=", b"&", b"%4", b"\0",
              b"x" * 100]
    with Site("contentbuffersize=3\n") as site:
        site.write("site/index.vx", UPLOAD_PAGE)
        for _ in range(150):
            body = b"--b\r\n" + b"".join(chance.choices(pieces, k=chance.randrange(40)))
            kind = chance.choice([MULTIPART, "application/x-www-form-urlencoded"])
            status, _ = site.run(body, CONTENT_TYPE=kind)
            if status not in (0, 1):
                raise Failure(f"seed {seed}: status {status} for {body!r}")
            expect(f"files, seed {seed}", site.files(), [])


@suite.case("ten thousand parts are read")
def _():
    with Site() as site:
        site.write("site/index.vx", UPLOAD_PAGE)
        body = form(*(field("z", b"2") for _ in range(10000)))
        expect("page", site.run(body, CONTENT_TYPE=MULTIPART),
               (1, "[][" + ",".join("2" * 10000) + "]"))
        body = form(*(field("f", b"", "f") for _ in range(10000)))
        expect("page", site.run(body, CONTENT_TYPE=MULTIPART),
               (1, "{f:0:COMPLETE}" * 10000 + "[][]"))
        expect("files", site.files(), [])


@suite.case("a header without an end is refused")
def _():
    with Site() as site:
        site.write("site/index.vx", UPLOAD_PAGE)
        for header in (b"X: " + b"x" * (1 << 20), b"X: x\r\n" * 200000, b" " * (1 << 20)):
            expect("page", site.run(b"--b\r\n" + header, CONTENT_TYPE=MULTIPART),
                   (0, "Fatal Error: The header of a part of the multipart/form-data content is "
                       "too long\r\n"))
        boundary = "x" * (1 << 16)
        status, page = site.run(f"--{boundary}\r\n".encode(),
                                CONTENT_TYPE=f"multipart/form-data; boundary={boundary}")
        expect("status", status, 0)
        expect_in("page", page, "does not match boundary")


@suite.case("an upload of any size takes no more memory than a small one")
def _():
    with Site() as site:
        site.write("site/index.vx", UPLOAD_PAGE)

        def peak_memory_kb(size):
            head, tail = field("f", b"", "f")[2:], b"\r\n--b--\r\n"
            program = site.start(
                site.environment(CONTENT_LENGTH=str(len(head) + size + len(tail)),
                                 CONTENT_TYPE=MULTIPART), stdin=subprocess.PIPE)
            program.stdin.write(head)
            block = b"\r\n--" + b"x" * 65532
            for _ in range(size // len(block)):
                program.stdin.write(block)
            program.stdin.write(tail)
            program.stdin.close()
            output = program.stdout.read()
            _, status, usage = os.wait4(program.pid, 0)
            program.returncode = os.waitstatus_to_exitcode(status)
            program.stdout.close()
            program.stderr.close()
            expect("page", page_of(output), f"{{f:{size}:COMPLETE}}[][]")
            return usage.ru_maxrss

        small = peak_memory_kb(65536)
        large = peak_memory_kb(64 << 20)
        if large > small + 1024:
            raise Failure(f"{small} KB for a small upload, {large} KB for a large one")


# --- For people ------------------------------------------------------------------------------

@suite.case("people get the version, the help and the check of scripts")
def _():
    with Site() as site:
        good = site.write("good.vx", "<VxEVAL EXPR='1'>")
        bad = site.write("bad.vx", "\n<VxEVAL EXPR=1 EQ>\n<VxIF>")

        def run(*arguments):
            program = site.start({}, arguments)
            output, errors = program.communicate(timeout=60)
            expect("standard error", errors, b"")
            return program.returncode, output.decode()

        expect("version", run("--version"), (0, "vexa 1.0.0\n"))
        expect("help", run("--help")[0], 0)
        expect("a clean script", run("--check", good), (0, ""))
        status, text = run("--check", good, bad, site.directory / "none.vx")
        expect("status", status, 1)
        expect_in("first error", text, f"{bad}: Line 2: Expression Error: ")
        expect_in("second error", text, f"{bad}: Line 3: Syntax Error: ")
        expect_in("third error", text, "Unable to open ")
        expect("no script", run("--check")[0], 1)
        expect("no table", run("--check-table")[0], 1)
        status, text = run("--check-table", site.directory / "none.dbf")
        expect("status", status, 1)
        expect_in("missing table", text, "none.dbf: cannot be opened: ")


if __name__ == "__main__":
    sys.exit(suite.main())
