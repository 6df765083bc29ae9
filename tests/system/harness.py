"""What the system tests share: named cases, the counts at the end, a site of the program, and
running web servers.

A test file makes a Suite, registers functions with @suite.case("name"), and calls suite.main().
A case fails when it raises; `expect` raises with both values in the message.
"""

import argparse
import contextlib
import crypt
import os
import pathlib
import pwd
import re
import shutil
import signal
import socket
import subprocess
import tempfile
import time
import traceback

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent


class Failure(Exception):
    """Something was not as expected; the text says what."""


class Skip(Exception):
    """The case needs something that this machine does not have; the text says what."""


def expect(what, actual, expected):
    if actual != expected:
        raise Failure(f"{what}:\n    expected {expected!r}\n    actual   {actual!r}")


def expect_in(what, text, part):
    if part not in text:
        raise Failure(f"{what}: {part!r} is not in {text!r}")


def until(condition, complaint="it does not happen", seconds=60):
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            raise Failure(complaint)
        time.sleep(0.02)


class Suite:
    def __init__(self, name):
        self.name = name
        self.cases = []
        self.build = None  # The build directory, known once main() has read the arguments.

    @property
    def sanitized(self):
        """Whether the programs carry the sanitizers, which need address space and keep freed memory."""
        return "VEXA_SANITIZE:BOOL=ON" in (self.build / "CMakeCache.txt").read_text()

    def case(self, name):
        def register(function):
            self.cases.append((name, function))
            return function

        return register

    def main(self, fixture=None):
        """Runs the cases. `fixture`, a context manager made with the build directory, surrounds
        them all; what it yields is the argument of every case."""
        parser = argparse.ArgumentParser()
        parser.add_argument("--build", required=True, type=pathlib.Path)
        parser.add_argument("--filter", default="")
        options = parser.parse_args()
        self.build = options.build.resolve()
        chosen = [case for case in self.cases if options.filter in f"{self.name}: {case[0]}"]
        results = []
        try:
            with fixture(self.build) if chosen and fixture else contextlib.nullcontext() as value:
                for name, function in chosen:
                    results.append(self._run(name, function, [value] if fixture else []))
        except Failure as failure:
            print(f"FAIL {self.name}: {failure}")
            results.append(False)
        failed = results.count(False)
        print(f"{results.count(True)} passed, {failed} failed")
        return 1 if failed else 0

    def _run(self, name, function, arguments):
        """Whether the case passed; None when it was skipped."""
        try:
            function(*arguments)
        except Skip as reason:
            print(f"SKIP {self.name}: {name}: {reason}")
            return None
        except Exception as error:  # A case that stumbles is a failed one, not the end of the others.
            report = f"  {error}" if isinstance(error, Failure) else traceback.format_exc()
            print(f"FAIL {self.name}: {name}\n{report}")
            return False
        print(f"PASS {self.name}: {name}")
        return True


class ProgramSite:
    """A directory with the program, a script directory `site` and a data directory `data` in it, run by
    many processes at once without a web server between. A context manager. Several may share one data
    directory, as several hosts would."""

    SETTINGS = "usecookies=no"
    before_start = None  # called in each process before it becomes the program

    def __init__(self, build, config="", data=None):
        # As realpath: the program refuses script directories that lie behind links.
        self.directory = pathlib.Path(os.path.realpath(tempfile.mkdtemp(prefix="vexa-site-")))
        self.site = self.directory / "site"
        self.data = data if data is not None else self.directory / "data"
        self.program = self.directory / "vexa"
        shutil.copy(build / "vexa", self.program)
        for directory in (self.site, self.data, self.directory / "tmp"):
            directory.mkdir(exist_ok=True)
        (self.directory / "sitekey").write_bytes(os.urandom(32))
        (self.directory / "sitekey").chmod(0o600)
        (self.directory / "vexa.conf").write_text(
            f"vexaroot={self.site}\nstdmodedatadir={self.data}\ntempdir={self.directory}/tmp\n"
            f"serveradmin=admin@example.com\n{self.SETTINGS}\n{config}\n".replace("{DIR}", str(self.directory)))

    def __enter__(self):
        return self

    def __exit__(self, *ignored):
        shutil.rmtree(self.directory)

    def write(self, name, text):
        path = self.site / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(text if isinstance(text, bytes) else text.encode())

    def start(self, page="index.vx", query="", stdin=subprocess.DEVNULL, **environment):
        """The process of a request. How the sanitizers report is the business of who runs the tests."""
        chosen = {name: os.environ[name] for name in ("ASAN_OPTIONS", "UBSAN_OPTIONS") if name in os.environ}
        return subprocess.Popen(
            [self.program], cwd=self.directory, stdin=stdin, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
            preexec_fn=self.before_start,
            env={"GATEWAY_INTERFACE": "CGI/1.1", "PATH_INFO": "/" + page, "QUERY_STRING": query, "TZ": "UTC",
                 **chosen, **environment})

    def page(self, page="index.vx", query=""):
        """The page of one request that must run to its end."""
        return page_of(self.start(page, query))


def wait_until_stuck(process):
    """Until it takes no processor time any more."""
    used, before = 0, -1
    while used != before:
        time.sleep(0.2)
        before, used = used, int(pathlib.Path(f"/proc/{process}/stat").read_text().split()[13])


class PostgresServer:
    """A server of Debian's packages in a directory of its own, with the role `web`, whose password is
    `geheim` and is asked for over TCP alone, and its database `shop`. A context manager."""

    SETTINGS = "fsync=off\nfull_page_writes=off\nmax_connections=60\nautovacuum=off\n"

    def __enter__(self):
        programs = sorted(pathlib.Path("/usr/lib/postgresql").glob("*/bin"), key=lambda path: int(path.parent.name))
        if not programs:
            raise Failure("the package postgresql is not installed")
        self.programs = programs[-1]
        self.directory = pathlib.Path(os.path.realpath(tempfile.mkdtemp(prefix="vexa-pg-")))
        # It refuses to be root.
        self.user = {"user": "postgres", "group": "postgres", "extra_groups": []} if os.getuid() == 0 else {}
        if self.user:
            shutil.chown(self.directory, "postgres", "postgres")
        self.directory.chmod(0o755)
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            self.port = probe.getsockname()[1]
        try:
            self.run("initdb", "-U", "admin", "-A", "scram-sha-256", "--auth-local=trust", "-E", "UTF8",
                     "--locale=C.UTF-8", "--no-sync", f"--pwfile={self._file('password', 'geheim')}")
            with open(self.directory / "data/postgresql.conf", "a") as settings:
                settings.write(f"unix_socket_directories='{self.directory}'\nlisten_addresses='127.0.0.1'\n"
                               f"port={self.port}\n{self.SETTINGS}")
            self.start()
            self.sql("CREATE ROLE web LOGIN PASSWORD 'geheim'", database="postgres")
            self.sql("CREATE DATABASE shop OWNER web", database="postgres")
        except BaseException:
            self.__exit__()
            raise
        self.place = f"host={self.directory} port={self.port} user=web dbname=shop"
        return self

    def __exit__(self, *ignored):
        self.stop("immediate", check=False)
        shutil.rmtree(self.directory)

    def _file(self, name, text):
        path = self.directory / name
        path.write_text(text)
        path.chmod(0o644)
        return path

    def run(self, program, *arguments, check=True):
        done = subprocess.run([self.programs / program, "-D", self.directory / "data", *arguments], **self.user,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        if check and done.returncode != 0:
            raise Failure(f"{program}: {done.stdout.decode()}")

    def start(self):
        self.run("pg_ctl", "-w", "-l", self.directory / "log", "start")

    def stop(self, mode="fast", check=True):
        self.run("pg_ctl", "-w", "-m", mode, "stop", check=check)

    def sql(self, text, database="shop"):
        """The rows of the last statement, their values separated by |."""
        done = subprocess.run([self.programs / "psql", "-X", "-q", "-A", "-t", "-v", "ON_ERROR_STOP=1", "-h",
                               self.directory, "-p", str(self.port), "-U", "admin", "-d", database, "-c", text],
                              capture_output=True, stdin=subprocess.DEVNULL)
        if done.returncode != 0:
            raise Failure(f"psql: {done.stderr.decode()}")
        return done.stdout.decode().split("\n")[:-1]


def make_certificates(directory):
    """Authorities `ca` and `other`, and servers' certificates: good, and wrong in one way each."""
    def openssl(*arguments):
        subprocess.run(["openssl", *arguments], cwd=directory, check=True, capture_output=True)
    for name in ("ca", "other", "self"):
        openssl("req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-keyout",
                f"{name}.key", "-out", f"{name}.pem", "-subj", f"/CN={name}", "-addext", "subjectAltName=IP:127.0.0.1")
    for name, authority, subject, days in (("good", "ca", "127.0.0.1", "1"), ("unknown", "other", "127.0.0.1", "1"),
                                           ("name", "ca", "127.0.0.2", "1"), ("expired", "ca", "127.0.0.1", "-1")):
        (directory / "ext").write_text(f"subjectAltName=IP:{subject},DNS:localhost")
        openssl("req", "-new", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-keyout",
                f"{name}.key", "-out", f"{name}.csr", "-subj", "/CN=server")
        openssl("x509", "-req", "-in", f"{name}.csr", "-CA", f"{authority}.pem", "-CAkey", f"{authority}.key", "-days",
                days, "-extfile", "ext", "-out", f"{name}.pem", "-CAcreateserial")


def page_of(process):
    """What a process that ends by itself wrote behind the headers."""
    output, errors = process.communicate(timeout=300)
    expect("standard error", errors, b"")
    expect("exit status", process.returncode, 1)
    head, separator, page = output.partition(b"\r\n\r\n")
    expect(f"end of the headers in {output!r}", separator, b"\r\n\r\n")
    return page.decode("latin-1")


class WebServer(ProgramSite):
    """A site behind a web server on a free port of 127.0.0.1."""

    STARTUP_SECONDS = 20
    NAME = "lighttpd"
    PROGRAM = ["lighttpd", "-D", "-f"]  # Its configuration file comes behind the options.
    CONFIG_OPTIONS = []  # of scripts/web-server-config
    PASSWORD = False  # whether the lines that ask for one are used: user "anna", password "secret"
    USER = None  # who the server is to be where it would be root
    SETTINGS = ""

    @classmethod
    def command(cls):
        return [shutil.which(cls.PROGRAM[0]) or f"/usr/sbin/{cls.PROGRAM[0]}", *cls.PROGRAM[1:]]

    def __enter__(self):
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            self.port = probe.getsockname()[1]
        config = self.server_config()
        if self.PASSWORD:
            config = re.sub(rb"(?m)^( *)#(?=\S|  )", rb"\1", config)
            (self.directory / "passwords").write_text("anna:" + crypt.crypt("secret", "$1$salt$") + "\n")
        (self.directory / "server.conf").write_bytes(config)
        user = {}
        self.log = open(self.directory / "server.log", "w+b")
        if self.USER and os.getuid() == 0:
            account = pwd.getpwnam(self.USER)
            user = {"user": account.pw_uid, "group": account.pw_gid, "extra_groups": []}
            for path in [self.directory, *self.directory.rglob("*")]:
                os.chown(path, account.pw_uid, account.pw_gid)
        self.server = subprocess.Popen([*self.command(), self.directory / "server.conf"],
                                       stdin=subprocess.DEVNULL, stdout=self.log, stderr=self.log, **user)
        try:
            self._wait_until_it_answers()
        except Failure:
            self.__exit__()
            raise
        return self

    def server_config(self):
        return subprocess.run(
            [ROOT / "scripts/web-server-config", *self.CONFIG_OPTIONS, self.program, self.site,
             self.directory, str(self.port)], check=True, capture_output=True).stdout

    def _wait_until_it_answers(self):
        end = time.monotonic() + self.STARTUP_SECONDS
        while time.monotonic() < end:
            if self.server.poll() is not None:
                self.log.seek(0)
                raise Failure(f"the web server ended: {self.log.read().decode()}")
            try:
                socket.create_connection(("127.0.0.1", self.port), timeout=1).close()
                return
            except OSError:
                time.sleep(0.05)
        raise Failure("the web server does not answer")

    def __exit__(self, *ignored):
        self.server.send_signal(signal.SIGTERM)
        self.server.wait()
        self.log.close()
        logs = "".join(log.read_text(errors="replace") for log in self.directory.glob("*.log"))
        super().__exit__()
        # A server takes no notice of how a program ends.
        for sign in ("Sanitizer", "runtime error:"):
            if sign in logs:
                raise Failure(f"a program of {self.NAME} reported: {logs}")

    def url(self, path):
        return f"http://127.0.0.1:{self.port}{path}"

    def curl(self, path, *arguments):
        """The response to a request made by curl: (status, headers, body), all as text, the bytes
        as Latin-1."""
        done = subprocess.run(
            ["curl", "--silent", "--show-error", "--include", "--max-time", "60",
             "--header", "Expect:", *arguments, self.url(path)],
            stdin=subprocess.DEVNULL, capture_output=True)
        if done.returncode != 0:
            raise Failure(f"curl {path}: {done.stderr.decode()}")
        head, _, body = done.stdout.decode("latin-1").partition("\r\n\r\n")
        lines = head.split("\r\n")
        return int(lines[0].split()[1]), lines[1:], body

    def page(self, path, *arguments):
        """The body of a response that must have the status 200."""
        status, _, body = self.curl(path, *arguments)
        expect(f"status of {path}", status, 200)
        return body


class ApacheServer(WebServer):
    """Apache httpd in the place of lighttpd. It refuses to be root, so then it and the pages run as
    the user that Debian keeps for web servers."""

    NAME = "Apache"
    PROGRAM = ["apache2", "-D", "FOREGROUND", "-f"]
    CONFIG_OPTIONS = ["--apache"]
    USER = "www-data"
