#!/usr/bin/env python3
"""Calls of servers that are hostile, slow, encrypted, or real ones."""

import contextlib
import email
import gzip
import itertools
import signal
import socket
import ssl
import subprocess
import sys
import threading
import time
import zlib

from harness import ProgramSite, Suite, WebServer, expect, expect_in, make_certificates, page_of

suite = Suite("calls")

OK = b"HTTP/1.1 200 OK\r\n"
LIMIT, MOST = 2, 1 << 20  # seconds, bytes
HEADER = "The answer's header is larger than 65536 bytes"
LARGE = f"The answer is larger than {MOST} bytes"
LATE = f"Timed out after {LIMIT} seconds"


def drip():
    yield OK
    while True:
        time.sleep(0.1)
        yield b"X"


def bomb():
    packer = zlib.compressobj(9, zlib.DEFLATED, 31)
    yield OK + b"Content-Encoding: gzip\r\n\r\n"
    while True:
        yield packer.compress(bytes(1 << 20)) + packer.flush(zlib.Z_SYNC_FLUSH)


# What a server sends, and what the page says of it.
HOSTILE = {
    "silent": (lambda: itertools.repeat(b""), LATE),
    "drip": (drip, LATE),
    "header-without-end": (lambda: itertools.chain([OK], itertools.repeat(b"A: b\r\n" * 100)), HEADER),
    "header-line": (lambda: [OK, b"A: " + b"b" * (10 << 20)], HEADER),
    "headers": (lambda: [OK, b"A: b\r\n" * 100000, b"\r\n"], HEADER),
    "interim": (lambda: itertools.repeat(b"HTTP/1.1 100 Go on\r\n\r\n" * 100), HEADER),
    "trailers": (lambda: itertools.chain([OK + b"Transfer-Encoding: chunked\r\n\r\n0\r\n"],
                                         itertools.repeat(b"A: b\r\n" * 100)), HEADER),
    "body-without-end": (lambda: itertools.chain([OK + b"\r\n"], itertools.repeat(b"x" * 9999)), LARGE),
    "bomb": (bomb, LARGE),
    "gzip": (lambda: [OK + b"Content-Encoding: gzip\r\n\r\n" + gzip.compress(b"packed")], "[packed]"),
    "gzip-and-more": (lambda: [OK + b"Content-Encoding: gzip\r\n\r\n" + gzip.compress(b"packed") + b"more"],
                      "The server's answer cannot be understood"),
    "half": (lambda: [OK + b"Content-Length: 9\r\n\r\nab"], "The connection was lost"),
}


class Server:
    """Sends what `send`, a function of the path, yields, until the other side has enough. Notes what it
    was sent."""

    def __init__(self, send, tls=None):
        self.send, self.tls, self.requests, self.arrived = send, tls, [], threading.Event()
        self.listener = socket.create_server(("127.0.0.1", 0), backlog=50)
        self.port = self.listener.getsockname()[1]
        threading.Thread(target=self.accept, daemon=True).start()

    def accept(self):
        while True:
            threading.Thread(target=self.serve, args=self.listener.accept()[:1], daemon=True).start()

    def serve(self, connection):
        # A side that has enough hangs up: that is the end of the answer.
        with contextlib.suppress(OSError), connection:
            connection = self.tls.wrap_socket(connection, server_side=True) if self.tls else connection
            data = b""
            while b"\r\n\r\n" not in data:
                piece = connection.recv(65536)
                if not piece:
                    return
                data += piece
            length = int((data.partition(b"Content-Length: ")[2] or b"0\r").split(b"\r")[0])
            while len(data.partition(b"\r\n\r\n")[2]) < length:
                data += connection.recv(65536)
            self.requests.append(data)
            self.arrived.set()
            for piece in self.send(data.split(b" ")[1].decode().strip("/")):
                connection.sendall(piece) if piece else time.sleep(0.1)


class Plain:
    """In the place of encryption: none."""

    @staticmethod
    def wrap_socket(connection, server_side):
        connection.sendall(OK)
        connection.recv(1)
        raise OSError


def call(port, path="", more="", scheme="http", host="127.0.0.1"):
    return (f'<VxCALL ACTION="{scheme}://{host}:{port}/{path}/" METHOD="GET" WALK="whole" {more}>'
            "[&[call_text]]</VxCALL>")


def said(page):
    """The reason of an error, else the page."""
    return page.rstrip("\r\n").rpartition("/': ")[2]


@suite.case("hostile servers end in time, with a message")
def _():
    server = Server(lambda path: HOSTILE[path][0]())
    with ProgramSite(suite.build, f"callallow=all\ncalltimeout={LIMIT}\ncallmaxsize={MOST}") as site:
        for name in HOSTILE:
            site.write(name + ".vx", call(server.port, name))
        pages = {name: site.start(name + ".vx") for name in HOSTILE}
        for name, (_, wanted) in HOSTILE.items():
            expect(name, said(page_of(pages[name])), wanted)


@suite.case("the end of the request's time, a signal and a killed process end a call and leave nothing behind")
def _():
    for more, number in (("globaltimeout=1", None), ("", signal.SIGTERM), ("", signal.SIGKILL)):
        server = Server(lambda path: itertools.chain([OK + b"\r\nnew"], itertools.repeat(b"")))
        with ProgramSite(suite.build, f"callallow=127.0.0.0/8\n{more}") as site:
            (site.data / "kept").write_text("old")
            site.write("index.vx", call(server.port, more='SAVE="kept"'))
            page = site.start()
            server.arrived.wait(60)
            if number:
                page.send_signal(number)
            output = page.communicate(timeout=60)[0]
            expect_in("page", output + b"timed out" * (number == signal.SIGKILL), b"timed out")
            expect("files", [path.name for path in site.data.iterdir()], ["kept"])
            expect("the file", (site.data / "kept").read_text(), "old")


@suite.case("a certificate that cannot be trusted is refused before anything is sent")
def _():
    with ProgramSite(suite.build, "callallow=all\ncafile={DIR}/ca.pem") as site:
        make_certificates(site.directory)
        wrong = "The certificate of '127.0.0.1' cannot be trusted"
        for name in ("good", "unknown", "name", "expired", "self"):
            context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
            context.load_cert_chain(site.directory / f"{name}.pem", site.directory / f"{name}.key")
            server = Server(lambda path: [OK + b"Content-Length: 4\r\n\r\nfine"], context)
            site.write("index.vx", call(server.port, more='USER="u" PASSWORD="p"', scheme="https"))
            expect(name, said(site.page()), "[fine]" if name == "good" else wrong)
            expect(f"requests of {name}", len(server.requests), int(name == "good"))
        # From an encrypted address there is no way to a plain one; old protocols and none are refused.
        context.load_cert_chain(site.directory / "good.pem", site.directory / "good.key")
        server = Server(lambda path: [b"HTTP/1.0 302 X\r\nLocation: http://127.0.0.1/\r\n\r\n"], context)
        site.write("index.vx", call(server.port, scheme="https"))
        expect("to a plain one", said(site.page()), "Redirected to an address that must not be called")
        site.write("index.vx", call(Server(None, Plain).port, scheme="https"))
        expect("no encryption", said(site.page()), "Encryption could not be set up")
    with ProgramSite(suite.build, "callallow=all") as site:
        make_certificates(site.directory)
        context.load_cert_chain(site.directory / "good.pem", site.directory / "good.key")
        server = Server(lambda path: [OK + b"\r\n"], context)
        site.write("index.vx", call(server.port, scheme="https"))
        expect("not the system's", said(site.page()), wrong)


@suite.case("files are sent as a form, whole and under their own names")
def _():
    server = Server(lambda path: [OK + b"Content-Length: 0\r\n\r\n"])
    content = bytes(range(256)) * 4
    with ProgramSite(suite.build, 'callallow=all\n<CONTENT-TYPE EXTS="txt" MIMETYPE="text/plain">') as site:
        (site.data / "sub").mkdir()
        (site.data / 'sub' / 'a "b".TXT').write_bytes(content)
        (site.data / "empty").write_bytes(b"")
        site.write("index.vx", """<VxLET p='sub/a "b".TXT'><VxLET q='empty'><VxLET v=asciichar(10) $ '=&'>
            <VxCALL METHOD="PUT" ACTION="http://127.0.0.1:%d/" FIELDS="v,w=v" FILES="f=p,q"></VxCALL>""" % server.port)
        expect("page", site.page().strip(), "")
        head, _, body = server.requests[0].partition(b"\r\n\r\n")
        length = int(head.partition(b"Content-Length: ")[2].split(b"\r\n")[0])
        expect("length", length, len(body))
        message = email.message_from_bytes(head.partition(b"\r\n")[2] + b"\r\n\r\n" + body)
        parts = [(part.get_param("name", header="content-disposition"), part.get_filename(), part["Content-Type"],
                  part.get_payload(decode=True)) for part in message.get_payload()]
        expect("parts", parts, [("v", None, None, b"\n=&"), ("w", None, None, b"\n=&"),
                                ("f", "a %22b%22.TXT", "text/plain", content),
                                ("q", "empty", "application/octet-stream", b"")])


@suite.case("a page calls another page of the same server, with files and a login")
def _():
    with WebServer(suite.build, "callallow=127.0.0.1\nusecookies=no") as site:
        site.write("b.vx", "&[a]|&[REQUEST_METHOD]|&[HTTP_AUTHORIZATION]|&[CONTENT_TYPE]")
        site.write("a.vx", '<VxLET a="x"><VxCALL ACTION="%s" METHOD="POST" FIELDS="a" USER="u">&[call_text]|'
                           "&[call_h_server]</VxCALL>" % site.url("/b.vx"))
        expect_in("page", site.page("/a.vx"), "x|POST|Basic dTo=|application/x-www-form-urlencoded|lighttpd/")


if __name__ == "__main__":
    sys.exit(suite.main())
