#!/usr/bin/env python3
"""The server for development, as it is started by hand and asked by a browser."""

import concurrent.futures
import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

from harness import Failure, Suite, expect, expect_in, until

suite = Suite("serve")


class Serve:
    """A directory `site` and a server of it."""

    def __init__(self, build):
        self.directory = pathlib.Path(os.path.realpath(tempfile.mkdtemp(prefix="vexa-serve-")))
        (self.directory / "site").mkdir()
        self.program = build / "vexa-serve"
        self.state = self.directory / ".vexa-site"
        self.log = self.directory / "log"

    def start(self):
        """The server, of which the terminal has said where it is."""
        self.server = subprocess.Popen([self.program, "site"], cwd=self.directory, stdin=subprocess.DEVNULL,
                                       stdout=self.log.open("wb"), stderr=subprocess.STDOUT)
        self.port = int(re.search(r"^Vexa: http://127\.0\.0\.1:(\d+)/ ", self.said("Ctrl-C"))[1])

    def restart(self):
        self.server.send_signal(signal.SIGTERM)
        self.server.wait()
        self.start()

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, *ignored):
        self.server.send_signal(signal.SIGINT)
        status, said = self.server.wait(timeout=60), self.log.read_text(errors="replace")
        shutil.rmtree(self.directory)
        expect("exit status", status, 0)
        if "Sanitizer" in said or "runtime error:" in said:
            raise Failure(said)

    def write(self, name, text):
        path = self.directory / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)

    def said(self, text):
        """What the terminal shows, once `text` is there."""
        until(lambda: text in self.log.read_text(errors="replace") or self.server.poll() is not None)
        said = self.log.read_text(errors="replace")
        expect_in("the terminal", said, text)
        return said

    def ask(self, path, *arguments):
        """The status, the head and the body of an answer."""
        done = subprocess.run(["curl", "-si", "--path-as-is", "--max-time", "60", "-H", "Expect:", *arguments,
                               f"http://127.0.0.1:{self.port}{path}"], capture_output=True, check=True)
        head, _, body = done.stdout.decode("latin-1").partition("\r\n\r\n")
        return int(head.split()[1]), head, body

    def ask_by_hand(self, text):
        """The beginning of what comes back for the lines of `text`."""
        with socket.create_connection(("127.0.0.1", self.port)) as connection:
            connection.sendall(text.replace("PORT", str(self.port)).encode() + b"\r\n\r\n")
            return connection.recv(1000).decode()

    def children(self):
        return subprocess.run(["pgrep", "-P", str(self.server.pid)], capture_output=True, text=True).stdout.split()


@suite.case("pages run, files are sent, whole and in parts, directories are found")
def _(serve):
    serve.write("site/index.vx", "<VxEVAL EXPR=1 + 1>&[q]|&[system.PATH_INFO]|&[documenturl]")
    serve.write("site/sub/INDEX.VX", "upper")
    serve.write("site/sub/index.html", "below")
    serve.write("site/a.css", "0123456789")
    start = f"http://127.0.0.1:{serve.port}"
    for path, text in (("/?q=x%41", f"2xA|/|{start}/?"), ("/index.vx", f"2|/index.vx|{start}/index.vx?"),
                       ("/sub/INDEX.VX", "upper"), ("/sub/", "below"), ("/a.css", "0123456789")):
        status, head, body = serve.ask(path)
        expect(path, (status, body), (200, text))
    expect_in("type", head, "Content-Type: text/css")
    tag = re.search(r'ETag: (".*")', head)[1]
    for header, answer in (("Range: bytes=2-4", (206, "234")), ("Range: bytes=-3", (206, "789")),
                           ("Range: bytes=10-", (416, "")), ("Range: bytes=4-2", (200, "0123456789")),
                           (f'If-None-Match: "x", W/{tag}', (304, "")), ("If-None-Match: x", (200, "0123456789"))):
        status, _, body = serve.ask("/a.css", "--header", header)
        expect(header, (status, body), answer)
    expect("If-Range", serve.ask("/a.css", "-r", "2-4", "-H", "If-Range: x")[::2], (200, "0123456789"))
    expect_in("directory", serve.ask("/sub?q=1")[1], "302 Found\r\n")
    expect_in("its place", serve.ask("/sub?q=1")[1], "\r\nLocation: /sub/?q=1\r\n")
    expect("POST to a file", serve.ask("/a.css", "--data", "x")[0], 405)


@suite.case("nothing private is served, and nothing to other names")
def _(serve):
    for name in ("secret.txt", "site/.git/config", "site/.env", "site/in/.x/index.vx", "site/page.vx~",
                 "site/p.VX.orig", "site/vexa.conf", "site/page.vx"):
        serve.write(name, "<VxCOMMENT>SECRET</VxCOMMENT>")
    (serve.directory / "site/link.txt").symlink_to("page.vx")
    (serve.directory / "site/up").symlink_to("..")
    os.mkfifo(serve.directory / "site/pipe")
    expect("a page", serve.ask("/page.vx")[::2], (200, ""))
    for path in ("/.git/config", "/%2egit/config", "/.env", "/in/.x/", "/in/.x/index.vx", "/in/%5c.x/index.vx",
                 "/page.vx~", "/p.VX.orig", "/vexa.conf", "/link.txt", "/up/secret.txt", "/../secret.txt",
                 "/in/..%2f..%2fsecret.txt", "//page.vx", "/page.vx/", "/page.vx%00.txt", "/page%2", "/pipe", "/in/"):
        status, _, body = serve.ask(path)
        expect(path, (status in (400, 404), "SECRET" in body), (True, False))
    for host in ("", "example.com", "example.com:PORT", "127.0.0.1", "localhost:1", "127.0.0.1.a:PORT",
                 "localhost:PORT\r\nHost: localhost:PORT"):
        expect_in(host, serve.ask_by_hand(f"GET /page.vx HTTP/1.1\r\nHost: {host}"), " 403 ")
    expect_in("no name", serve.ask_by_hand("GET /page.vx HTTP/1.0"), " 403 ")
    expect_in("another case", serve.ask_by_hand("GET /page.vx HTTP/1.1\r\nHost: LOCALHOST:PORT"), " 200 ")


@suite.case("errors show on page and terminal, requests with status and time")
def _(serve):
    serve.write("site/sub/e.vx", "\n<VxEVAL EXPR='a' $>\n")
    serve.write("site/dir/index.vx", "<VxEVAL EXPR=1 +>")
    serve.ask("/dir/")
    serve.said("dir/index.vx:1: Expression Error: ")
    expect_in("page", serve.ask("/sub/e.vx")[2], "sub/e.vx: Line 2: Expression Error: ")
    expect("missing", serve.ask("/sub/x.vx")[::2], (404, "Unable to open sub/x.vx\r\n"))
    serve.said("sub/e.vx:2: Expression Error: Unexpected end of expression\n")
    if not re.search(r"^500 \d+ ms GET /sub/e\.vx$", serve.said("GET /sub/e.vx"), re.MULTILINE):
        raise Failure(serve.log.read_text())
    serve.ask_by_hand("GET /no\x1b[2J HTTP/1.1\r\nHost: localhost:PORT")
    expect_in("terminal", serve.said("GET /no"), " GET /no?[2J\n")
    serve.ask_by_hand("GET / HTTP/9.9\r\nHost: localhost:PORT")
    serve.said("\n505 (no request")
    serve.write(".vexa-site/settings.conf", "maxcpu=x")
    serve.restart()
    expect_in("settings", serve.ask("/sub/e.vx")[2], "'x' is not a valid value for maxcpu")
    (serve.state / "settings.conf").unlink()
    serve.restart()
    expect("key", (serve.state / "sitekey").stat().st_mode & 0o777, 0o600)


@suite.case("a page sees its request, however large, and as CGI programs do")
def _(serve):
    serve.write("site/f.vx", "<VxEVAL EXPR=len(a)>|&[b]|&[system.REQUEST_METHOD]|&[system.HTTP_COOKIE]|"
                             "&[system.HTTP_PROXY]|&[system.HTTP_A_B]|&[system.SERVER_NAME]")
    serve.write("body", "a=" + "x" * 50_000_000 + "&b=end")
    expect("50 MB", serve.ask("/f.vx", "--data-binary", f"@{serve.directory}/body")[2],
           "50000000|end|POST||||127.0.0.1")
    expect("chunked", serve.ask("/f.vx", "-d", "a=1&b=2", "-H", "Transfer-Encoding: chunked")[2],
           "1|2|POST||||127.0.0.1")
    expect("2 GB, asking first", serve.ask("/f.vx", "-d", "a", "-H", "Content-Length: 2000000000", "-H",
                                           "Expect: 100-continue")[::2], (413, "The request is too large\r\n"))
    headers = ("Cookie: a=1", "Cookie: b=2", "Proxy: x", "A-B: 1", "A_B: 2", "A-B: 3")
    expect("headers", serve.ask("/f.vx", *(part for header in headers for part in ("-H", header)))[2],
           "0||GET|a=1; b=2||1, 3|127.0.0.1")
    serve.write("site/w.vx", '<VxLET i=0><VxWHILE EXPR="i LT 9000"><VxLET i=i + 1>&[i] text of a page, </VxWHILE>'
                             '<FILE WRITE="done" VALUE="yes">')
    expect("HEAD", serve.ask("/w.vx", "--head")[::2], (200, ""))
    until((serve.state / "data/done").exists)
    whole = "".join(f"{i} text of a page, " for i in range(1, 9001))
    with concurrent.futures.ThreadPoolExecutor(8) as pool:
        answers = list(pool.map(lambda _: serve.ask("/w.vx", "--limit-rate", "2M")[2] == whole, range(16)))
    expect("slow readers", answers, [True] * 16)
    expect("temporary files", list((serve.state / "tmp").iterdir()), [])


@suite.case("a page that crashes or hangs harms nobody, and Ctrl-C ends all")
def _(serve):
    serve.write("site/endless.vx", '<VxWHILE EXPR="1 EQ 1"></VxWHILE>')
    serve.write("site/index.vx", "well")
    with concurrent.futures.ThreadPoolExecutor(4) as pool:
        crash = pool.submit(serve.ask, "/endless.vx")
        until(serve.children)
        pages = serve.children()
        expect("another page", serve.ask("/")[2], "well")
        os.kill(int(pages[0]), signal.SIGKILL)
        expect("status", crash.result()[0], 500)
        expect_in("reason", crash.result()[2], "The page was ended by signal 9 (Killed)")
        serve.said("endless.vx: The page was ended by signal 9")
        with socket.create_connection(("127.0.0.1", serve.port)) as client:
            client.sendall(b"GET /endless.vx HTTP/1.1\r\nHost: localhost:%d\r\n\r\n" % serve.port)
            until(serve.children)
        serve.said("GET /endless.vx (cut off)")
        until(lambda: not serve.children())
        for _ in range(2):
            pool.submit(serve.ask, "/endless.vx")
        until(lambda: len(serve.children()) == 2)
        pages = serve.children()
        serve.server.send_signal(signal.SIGINT)
        expect("exit status", serve.server.wait(timeout=60), 0)
    expect("pages", [page for page in pages if pathlib.Path("/proc", page).exists()], [])
    serve.start()


@suite.case("what cannot be served is refused")
def _(serve):
    def refusal(*arguments):
        done = subprocess.run([serve.program, *arguments], cwd=serve.directory, capture_output=True, text=True,
                              timeout=60)
        return done.returncode, done.stderr
    apart = "pages and data must lie in directories of their own\n"
    expect("data inside", refusal("--data", "site/data", "site")[1].split(": ")[-1], apart)
    expect("pages inside", refusal("--data", ".", "site")[1].split(": ")[-1], apart)
    expect("port", refusal("--port", str(serve.port), "site"),
           (1, f"vexa-serve: port {serve.port}: Address already in use\n"))
    expect("directory", refusal("none"), (1, "vexa-serve: none: No such file or directory\n"))
    for wrong in (["--port"], ["--port", "0"], ["--port", "x"], ["--wrong"], ["site", "site"]):
        expect(str(wrong), refusal(*wrong)[0], 2)
    os.chmod(serve.state, 0o777)
    expect_in("open to all", refusal("site")[1], "others may write to it")
    os.chmod(serve.state, 0o700)
    libraries = subprocess.run(["ldd", serve.program.parent / "vexa"], capture_output=True, check=True).stdout
    expect("the CGI program links the server's library", b"microhttpd" in libraries, False)


if __name__ == "__main__":
    sys.exit(suite.main(Serve))
