#!/usr/bin/env python3
"""The FastCGI worker: behind real web servers, asked by many at once, killed, and after requests that
leave behind all they can."""

import concurrent.futures
import http.client
import os
import pathlib
import signal
import subprocess
import sys
import threading
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))
import fastcgi
from harness import (
    ApacheServer, Failure, ProgramSite, Skip, Suite, WebServer, expect, expect_in, until, wait_until_stuck)

suite = Suite("fastcgi")
ENVIRONMENT = {"GATEWAY_INTERFACE": "CGI/1.1", "REQUEST_METHOD": "GET", "SCRIPT_NAME": "/vexa", "QUERY_STRING": ""}


class Behind(WebServer):
    """A web server before a worker, which is started by root where the test is, and runs as another."""

    USER = "www-data"
    CHILDREN = 4

    def __init__(self):
        super().__init__(suite.build, "globaltimeout=20")
        self.config = self.directory / "vexa.conf"
        self.program = f"unix:{self.directory}.sock"

    def __enter__(self):
        super().__enter__()
        user = ["--user", self.USER, "--group", self.USER] if os.getuid() == 0 else []
        self.worker = fastcgi.Worker(suite.build / "vexa-fcgi", self.directory, "--config", self.config, "--children",
                                     str(self.CHILDREN), *user).__enter__()
        return self

    def __exit__(self, *ignored):
        self.worker.__exit__()
        super().__exit__()


class Nginx(Behind):
    NAME = "nginx"
    PROGRAM = ["nginx", "-e", "stderr", "-c"]
    CONFIG_OPTIONS = ["--nginx"]


class Lighttpd(Behind):
    pass


class Apache(Behind):
    NAME, PROGRAM, CONFIG_OPTIONS = ApacheServer.NAME, ApacheServer.PROGRAM, ApacheServer.CONFIG_OPTIONS


class Asked(ProgramSite):
    """A site whose worker, with one child unless told, is asked without a web server."""

    def __init__(self, *options, config=""):
        fastcgi.leave_root()
        super().__init__(suite.build, config)
        self.options = ["--config", self.directory / "vexa.conf", "--children", "1", *options]

    def __enter__(self):
        self.worker = fastcgi.Worker(suite.build / "vexa-fcgi", self.directory, *self.options).__enter__()
        return self

    def __exit__(self, *ignored):
        self.worker.__exit__()
        super().__exit__()

    def get(self, page, query="", **more):
        return self.worker.ask({**ENVIRONMENT, "PATH_INFO": "/" + page, "QUERY_STRING": query, **more})

    def text(self, page, query="", **more):
        return self.get(page, query, **more)[0].decode("latin-1").partition("\r\n\r\n")[2]


UPLOAD = ('<VxFUNCTION NAME="Vexa_ValidateFileUpload" PARAMETERS="a, b, c"><VxFUNCRETURN VALUE="0"></VxFUNCTION>'
          '<VxFUNCTION NAME="Vexa_ProcessFileUpload" PARAMETERS="field, name, type, path, size, status">'
          "&[name]:&[size]:&[status]</VxFUNCTION>")


def speak(server):
    """What every server does with pages: their heads, bodies, ranges, methods, and readers that leave."""
    server.write("index.vx", "start <VxEVAL EXPR=1 + 1>")
    server.write("sub/index.vx", "below")
    expect("pages", [server.page(path) for path in ("/", "/sub/", "/sub/index.vx")], ["start 2", "below", "below"])
    server.write("f.vx", "[&[a:entities]|&[name:entities]|&[REQUEST_METHOD]|&[arg1]|<VxEVAL EXPR=len(text)>]")
    text = server.directory / "text"
    text.write_bytes(b"name=A%26&text=" + b"x" * 100_000)
    expect("form", server.page("/f.vx?a=%3C", "--data-binary", f"@{text}"), "[&lt;|A&amp;|POST|f.vx|100000]")
    server.write("up.vx", UPLOAD)
    text.write_bytes(bytes(50_000_000))
    expect("upload", server.page("/up.vx", "--form", f"file=@{text};filename=x"), "x:50000000:COMPLETE")
    text.write_bytes(bytes(67_108_865))
    status, _, body = server.curl("/f.vx", "--data-binary", f"@{text}")
    # Apache asks the worker before it reads the body.
    expect("larger than the program takes", status == 413 or body == "The request is too large\r\n", True)
    server.write("go.vx", "<VxEVAL EXPR=\"vexa_setcookie('c', 'v w', '') $ vexa_redirect('/f.vx')\">")
    status, headers, _ = server.curl("/go.vx")
    expect("status of a redirect", status, 303)
    expect_in("cookie", "\n".join(headers), "Set-Cookie: c=v%20w;")
    expect_in("place", "\n".join(headers).lower(), "location: ")
    server.write("gone.vx", "<VxEVAL EXPR=vexa_status(410)>gone")
    expect("status", server.curl("/gone.vx")[::2], (410, "gone"))
    (server.data / "big").write_bytes(bytes(range(256)) * 40_000)
    server.write("send.vx", "<VxEVAL EXPR=\"vexa_sendfile('big', '', 'big.bin')\">")
    status, headers, body = server.curl("/send.vx", "--range", "258-260")
    expect("range", (status, body), (206, "\2\3\4"))
    tag = next(line.partition(": ")[2] for line in headers if line.lower().startswith("etag:"))
    expect("unchanged", server.curl("/send.vx", "--header", f"If-None-Match: {tag}")[::2], (304, ""))
    expect("HEAD", server.curl("/send.vx", "--head")[::2], (200, ""))
    expect("whole file", len(server.page("/send.vx")), 10_240_000)
    server.write("endless.vx", '<VxWHILE EXPR="1 EQ 1">text\n</VxWHILE>')
    for _ in range(server.CHILDREN):
        client = subprocess.Popen(["curl", "--silent", "--limit-rate", "1000", server.url("/endless.vx")],
                                  stdin=subprocess.DEVNULL, stdout=subprocess.PIPE)
        client.stdout.read(4)
        client.kill()
        client.communicate()
    expect("with all readers gone", server.page("/sub/"), "below")
    expect("log of the worker", server.worker.errors(), b"")


for kind in (Nginx, Lighttpd, Apache):
    @suite.case(f"{kind.NAME} speaks with the worker")
    def _(kind=kind):
        with kind() as server:
            speak(server)


@suite.case("1,000 requests by 16 clients get their own answers, also while children are killed")
def _():
    with Nginx() as server:
        server.write("own.vx", '<VxLET i=0><VxWHILE EXPR="i LT 50"><VxLET i=i + 1></VxWHILE>[&[a]|&[b]|&[i]]')

        def ask(client):
            connection = http.client.HTTPConnection("127.0.0.1", server.port, timeout=60)
            answers = []
            for number in range(client, 1000, 16):
                connection.request("POST", f"/own.vx?a={number}", f"b={number}",
                                   {"Content-Type": "application/x-www-form-urlencoded"})
                response = connection.getresponse()
                answers.append((number, response.status, response.read().decode()))
            return answers

        for kills in (0, 5):
            with concurrent.futures.ThreadPoolExecutor(16) as pool:
                asked = [pool.submit(ask, client) for client in range(16)]
                killed = []
                for _ in range(kills):
                    time.sleep(0.05)
                    until(lambda: set(server.worker.children()) - set(killed), "no child takes the place of the killed")
                    killed += list(set(server.worker.children()) - set(killed))[:1]
                    os.kill(killed[-1], signal.SIGKILL)
                answers = sum((one.result() for one in asked), [])
            wrong = [answer for answer in answers if answer[1:] != (200, f"[{answer[0]}|{answer[0]}|50]")]
            if len(wrong) > kills or any(answer[1] != 502 for answer in wrong):
                raise Failure(f"{len(wrong)} wrong, the first {wrong[0]}")
            expect("children that were missed", server.worker.errors().count(b"ended by signal 9"), kills)


SLOW = 'a<VxLET end=dyn_time_t + 2><VxWHILE EXPR="dyn_time_t LT end"></VxWHILE>b'


@suite.case("the pages that run end when the worker or a child is told to, and at a restart")
def _():
    with Asked("--requests", "3") as site:
        site.write("slow.vx", SLOW)
        site.write("index.vx", "x")

        def while_it_runs(act):
            with concurrent.futures.ThreadPoolExecutor() as pool:
                page = pool.submit(site.text, "slow.vx")
                time.sleep(0.5)
                act()
                expect("page", page.result(), "ab")

        def the_child():
            until(site.worker.children, "no child takes the place")
            return site.worker.children()[0]

        for number in (signal.SIGTERM, signal.SIGHUP):
            child = the_child()
            while_it_runs(lambda: os.kill(child, number))
            until(lambda: child not in site.worker.children(), "the child goes on")
        child = the_child()
        os.kill(site.worker.process.pid, signal.SIGHUP)
        until(lambda: child not in site.worker.children(), "the child goes on after a restart")
        child = the_child()
        expect("pages", [site.text("index.vx") for _ in range(3)], ["x"] * 3)
        until(lambda: child not in site.worker.children(), "the child serves more than its requests")
        while_it_runs(lambda: site.worker.process.send_signal(signal.SIGTERM))
        expect("status", site.worker.process.wait(30), 0)
        expect("socket", site.worker.socket.exists(), False)
        expect("log", site.worker.errors(), b"")


STUCK = ('<VxLOCKFILE FILE="a"><VxLET t=\'0123456789abcdef\'><VxWHILE EXPR="len(t) LT 1000000"><VxLET t=t $ t>'
         '</VxWHILE><VxEVAL EXPR=t></VxLOCKFILE>')


@suite.case("a reader who has stopped keeps no child, and no lock")
def _():
    with Asked() as site:
        site.write("stuck.vx", STUCK)
        site.write("index.vx", "x")
        asks = fastcgi.request({**ENVIRONMENT, "PATH_INFO": "/stuck.vx"})
        def end_worker(child, reader):
            site.worker.process.send_signal(signal.SIGTERM)

        for limit, act in ((1, lambda child, reader: None), (0, lambda child, reader: reader.close()),
                           (0, lambda child, reader: os.kill(child, signal.SIGTERM)), (0, end_worker)):
            with open(site.directory / "vexa.conf", "a") as config:
                config.write(f"globaltimeout={limit}\n")
            until(site.worker.children, "no child takes the place")
            child = site.worker.children()[0]
            with site.worker.connect() as reader:
                reader.sendall(asks)
                until((site.data / "a.lck").exists, "no lock")
                wait_until_stuck(child)
                act(child, reader)
                until(lambda: not (site.data / "a.lck").exists(), "the lock is kept")
                if act is not end_worker and reader.fileno() >= 0:
                    expect("the next page", site.text("index.vx"), "x")
        expect("status", site.worker.process.wait(30), 0)
    with Asked(config="globaltimeout=0") as site, site.worker.connect() as sender:
        form = {"REQUEST_METHOD": "POST", "CONTENT_TYPE": "application/x-www-form-urlencoded", "CONTENT_LENGTH": "9"}
        child = site.worker.children()[0]
        site.write("index.vx", "x")
        sender.sendall(fastcgi.request({**ENVIRONMENT, **form, "PATH_INFO": "/index.vx"}, b"a=1")[:-8])
        wait_until_stuck(child)
        os.kill(child, signal.SIGTERM)
        expect_in("page", fastcgi.answer(sender)[0], b"Application timed out")
        until(lambda: child not in site.worker.children() and site.worker.children(), "no child takes the place")
        with site.worker.connect() as other:
            other.sendall(fastcgi.request(ENVIRONMENT)[:20])
            wait_until_stuck(site.worker.children()[0])
            site.worker.process.send_signal(signal.SIGTERM)
            expect("with half a head", site.worker.process.wait(30), 0)


# All that is visible to a page: its variables, the language, the clock's zone, what is open and locked.
SEES = ("<VxEVAL EXPR=vexa_getvarlist('s') $ vexa_getvarlist('g')>|&[vexa_language]|&[vexa_defaultlanguage]|"
        "&[PATH]|&[x]|&[secret]|"
        "<VxEVAL EXPR=\"fexists('left.txt') $ vexa_cookie('c') $ timezone()\">|&[n]"
        '<VxOPEN NAME="t" DATABASE="t.dbf">&[totrec]|&[EOF]|<VxADD>&[totrec]|&[VxOPEN_Error]')
LEAVES = (  # The pages end in the middle of everything.
    '<VxOPEN NAME="t" DATABASE="t.dbf"><VxGO ROW="1">',
    '<VxSETLANGUAGE LANGUAGE="de"><VxASSIGN NAME="secret" VALUE="s"><VxLET n=1><VxDEFAULTENCODING NONE>',
    '<VxLOCKFILE NAME="l.lock"><VxEXIT>',
    '<VxFUNCTION NAME="f" PARAMETERS="secret"><VxFUNCRETURN VALUE=g(1)></VxFUNCTION><VxEVAL EXPR=f(2)>',
    "<VxEVAL EXPR=\"vexa_setcookie('c', 'v', '') $ vexa_status(404) $ vexa_session()\"><VxEVAL EXPR=(>",
    '<VxWHILE EXPR="1 EQ 1"><VxLET n=n $ \'xxxxxxxxxxxxxxxx\'></VxWHILE>',
    "<VxOUTPUT NONE><VxSTOP>")


@suite.case("a request sees nothing of those before it")
def _():
    config = "globaltimeout=2\nusecookies=no"
    with Asked(config=config) as fresh, Asked(config=config) as site:
        for one in (fresh, site):
            one.write("make.vx", '<VxCREATE DATABASE="t.dbf" NAME="t" FIELDS="A CHAR(9)"><VxADD>')
            one.write("sees.vx", SEES)
        for number, page in enumerate(LEAVES):
            site.write(f"leaves{number}.vx", page)
        time.sleep(0.05)  # From here on the pages may be kept.
        fresh.text("make.vx")
        wanted = (fresh.text("sees.vx"), fresh.text("sees.vx", TZ="UTC"))
        for number in range(3 * len(LEAVES)):
            site.text("make.vx")
            left = site.get(f"leaves{number % len(LEAVES)}.vx", "x=1&EOF=9", TZ="Asia/Tokyo", SECRET="t")
            site.text("make.vx")
            seen = (site.text("sees.vx"), site.text("sees.vx", TZ="UTC"))
            expect(f"what is seen after page {number} ({left})", seen, wanted)
            # The standard ones, the socket, and what takes its place at the end.
            until(lambda: len(os.listdir(f"/proc/{site.worker.children()[0]}/fd")) == 5, f"open after {left}")


@suite.case("10,000 requests take no memory, and names that visitors make do not stay")
def _():
    with Asked("--requests", "100000") as site:
        site.write("page.vx", '<VxLET i=0><VxWHILE EXPR="i LT 9"><VxLET i=i + 1>&[a]</VxWHILE>&[b]' + "text\n" * 500)
        time.sleep(0.05)
        child = site.worker.children()[0]

        def memory(requests):
            for number in range(requests):
                site.text("page.vx", f"a={number}&b=" + "v" * (number % 5000))
            status = pathlib.Path(f"/proc/{child}/status").read_text()
            return int(status.partition("VmRSS:")[2].split()[0])

        start, end = memory(1000), memory(9000)
        if end > start + 64 and not suite.sanitized:
            raise Failure(f"{start} kB became {end} kB")
        expect("child", site.worker.children(), [child])
        for number in range(40):
            site.text("page.vx", "&".join(f"name{number}x{i}={i}" for i in range(2500)))
        until(lambda: site.worker.children() != [child], "the child keeps all names", 5)


@suite.case("the limit on memory is each request's own, and a page that met it ends its child")
def _():
    if suite.sanitized:
        raise Skip("the sanitizers take memory of their own")
    with Asked(config="<VIRTUALHOST NAME=small>\nmaxmemory=50000000\n</VIRTUALHOST>") as site:
        site.write("index.vx", "<VxLET x='0123456789'><VxWHILE EXPR=\"i LT size\"><VxLET i=i + 1>"
                               "<VxLET x=x $ x></VxWHILE>&[i] &[process_id]")
        child = site.worker.children()[0]
        for host, size, page in (("small", 2, f"2 {child}"), ("large", 22, f"22 {child}"),
                                 ("small", 22, "Fatal Error: Out of memory\r\n")):
            expect(f"{size} of {host}", site.text("index.vx", f"size={size}", SERVER_NAME=host), page)
        until(lambda: child not in site.worker.children(), "the child goes on", 5)


@suite.case("what was kept gives way to another file, however soon and however alike")
def _():
    with Asked() as site:
        pages = []
        for number in range(60):
            page = site.directory / "next"
            page.write_text(f"[<VxEVAL EXPR={number % 10}>|&[v]|<VxDO FILE=\"/part.vx\">]")
            os.utime(page, (0, 0))
            if number % 3 == 0:  # In place, over the same file.
                (site.site / "index.vx").write_bytes(page.read_bytes())
            else:
                page.rename(site.site / "index.vx")
            site.write("part.vx", f"part {number % 7}")
            (site.data / "sitevars").write_text(f"v={number % 9}")
            if number % 4 == 0:
                time.sleep(0.03)
            for _ in range(1 + number % 3):
                pages.append((site.text("index.vx"), f"[{number % 10}|{number % 9}|part {number % 7}]"))
        for actual, wanted in pages:
            expect("page", actual, wanted)


def refused(*options):
    done = subprocess.run([suite.build / "vexa-fcgi", *options], capture_output=True, text=True, timeout=20)
    expect(f"status of {options}", done.returncode, 1)
    return done.stderr


@suite.case("what the worker does not do, it says")
def _():
    with ProgramSite(suite.build) as site:
        path = site.directory / "taken"
        path.write_text("")
        expect_in("file", refused("--socket", path), "something else has that name")
        expect_in("two", refused("--socket", site.directory / "s", ":9"), "exactly one is needed")
        expect_in("count", refused("--children", "0", ":9"), "that many children cannot be")
        expect_in("port", refused("nowhere"), "it is no [HOST]:PORT")
        if os.getuid() == 0:
            for user in ([], ["--user", "root"]):
                expect_in("root", refused("--socket", site.directory / "s", *user), "root")


if __name__ == "__main__":
    sys.exit(suite.main())
