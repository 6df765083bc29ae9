#!/usr/bin/env python3
"""The program behind a real web server, asked by a real client: what only shows when server,
program and client each do their part."""

import concurrent.futures
import os
import pathlib
import re
import subprocess
import sys
import time

from harness import Failure, Suite, WebServer, expect, expect_in, until

suite = Suite("web")


@suite.case("a directory shows its default page, and plain files are delivered as they are")
def _(server):
    server.write("index.vx", "start <VxEVAL EXPR=1 + 1>\n")
    server.write("sub/index.vx", "below\n")
    server.write("style.css", "body { }\n")
    expect("/", server.page("/"), "start 2\n")
    expect("/sub/", server.page("/sub/"), "below\n")
    expect("/style.css", server.page("/style.css"), "body { }\n")


@suite.case("the headers are those of the script, without a body for HEAD")
def _(server):
    server.write("index.vx", "x\n")
    status, headers, _ = server.curl("/")
    expect("status", status, 200)
    types = [line for line in headers if line.lower().startswith("content-type:")]
    expect("content type", [line.lower() for line in types], ["content-type: text/html"])
    cookies = [line for line in headers if line.startswith("Set-Cookie:")]
    expect("cookies", len(cookies), 1)
    caller = re.search(r"zdxcallerid=([0-9A-F]{32});", cookies[0])
    if not caller:
        raise Failure(f"no caller id in {cookies[0]!r}")
    # A visitor who comes back keeps the id.
    _, headers, _ = server.curl("/", "--cookie", f"zdxcallerid={caller[1]}")
    expect_in("second cookie", "\n".join(headers), f"Set-Cookie: zdxcallerid={caller[1]};")
    status, headers, body = server.curl("/", "--head")
    expect("HEAD", (status, body), (200, ""))
    expect_in("headers of HEAD", "\n".join(headers).lower(), "content-type: text/html")


@suite.case("the arguments of a link are decoded")
def _(server):
    server.write("q.vx", "[&[a]|&[b]|&[c]|&[nargs]|&[arg1]]")
    expect("plain", server.page("/q.vx?a=1&b=two"), "[1|two||1|q.vx]")
    expect("encoded", server.page("/q.vx?a=%41+B&b=x%3Dy%26z&c=p=q"), "[A B|x=y&z|p=q|1|q.vx]")
    expect("repeated", server.page("/q.vx?a=1&a=2&b"), "[1,2|b||1|q.vx]")
    expect("bytes", server.page("/q.vx?a=%C3%A9"), "[\xc3\xa9|||1|q.vx]")


@suite.case("forms and pages arrive whole, however long")
def _(server):
    server.write("f.vx", "[&[name:entities]|<VxEVAL EXPR=len(text)>|&[system.REQUEST_METHOD]]")
    expect("short", server.page("/f.vx", "--data-urlencode", "name=A & <B>", "--data-urlencode",
                                "text=1+1=2"), "[A &amp; &lt;B&gt;|5|POST]")
    body = server.directory / "body"
    body.write_bytes(b"text=" + b"x%20" * 100_000 + b"&name=last")
    expect("long", server.page("/f.vx", "--data-binary", f"@{body}"), "[last|200000|POST]")
    expect("empty", server.page("/f.vx", "--data", ""), "[|0|POST]")
    # A body that nobody reads.
    server.write("plain.vx", "[page]")
    for size in (1, 100, 3_000_000):
        body.write_bytes(b"x" * size)
        post = ("--header", "Content-Type: text/plain", "--header", "Expect:", "--data-binary", f"@{body}")
        expect("not read", [server.page("/plain.vx", *post) for _ in range(3)], ["[page]"] * 3)
    server.write("long.vx", "<VxLET i=0><VxWHILE EXPR=\"i LT 20000\">&[i] some text of a line\n"
                            "<VxLET i=i + 1></VxWHILE>")
    body = server.page("/long.vx")
    expect("page", body == "".join(f"{i} some text of a line\n" for i in range(20000)), True)


@suite.case("what a link says is never taken for a script")
def _(server):
    server.write("e.vx", "[&[a:entities]]")
    body = server.page("/e.vx?a=%3CVxEVAL+EXPR%3D1%2B1%3E%3Cscript%3E%26%5Bb%5D&b=seen")
    expect("page", body, "[&lt;VxEVAL EXPR=1+1&gt;&lt;script&gt;&amp;[b]]")
    body = server.curl("/%3Cscript%3Ealert(1)%3C%2Fscript%3E.vx")[2]
    if "<script>" in body:
        raise Failure(f"the error page repeats the link's markup: {body!r}")


@suite.case("a request for what is not there ends in a clean page")
def _(server):
    server.write("index.vx", "x\n")
    server.write("notfound.vx", "[&[documenturl]]")
    server.write("shop/index.vx", "shop &[documenturl]")
    for path in ("/missing.vx", "/missing.txt", "/missing/", "/shop/missing.vx", "/shop/x/../missing.vx"):
        expect(path, server.curl(path)[2], f"[{server.url('/notfound.vx')}?]")
    expect_in("/shop/", server.page("/shop/"), f"shop {server.url('/shop/')}")
    status, headers, _ = server.curl("/shop")
    expect("/shop", (status, [line.lower() for line in headers if line.endswith("/shop/")] != []), (301, True))
    for path in ("/cgi-bin/vexa/..%2f..%2fvexa.conf", "/cgi-bin/vexa/index.vx", "/cgi-bin/vexa", "/..%5cvexa.conf",
                 "/sub\\index.vx", "/.hidden", "/index.vx/index.vx", "/index.vx/", "/index.vx/index.vx/index.vx"):
        server.write(".hidden", "vexaroot")
        status, _, body = server.curl(path, "--path-as-is")
        if (status < 300 and "notfound" not in body) or "vexaroot" in body:
            raise Failure(f"{path} was answered with {status}: {body}")
    for path in ("/index.vx", "/index%2evx", "/sub/..%2findex.vx"):
        server.write("index.vx", "<VxASSIGN NAME=\"a\" VALUE=\"b\">x")
        body = server.curl(path)[2]
        if "VxASSIGN" in body:
            raise Failure(f"{path} delivered the text of the script")


@suite.case("simultaneous requests do not see each other")
def _(server):
    server.write("many.vx", "<VxLET i=0><VxWHILE EXPR=\"i LT 300\"><VxLET i=i + 1></VxWHILE>"
                            "[&[a]|&[b]|&[i]]")

    def request(number):
        if number % 2:
            return server.page(f"/many.vx?a={number}", "--data", f"b={number}")
        return server.page(f"/many.vx?a={number}&b={number}")

    with concurrent.futures.ThreadPoolExecutor(16) as pool:
        bodies = list(pool.map(request, range(200)))
    expect("pages", bodies, [f"[{n}|{n}|300]" for n in range(200)])


@suite.case("a page sends a file whole, in part, or not again, to slow clients too")
def _(server):
    content = bytes(range(256)) * 12000
    text = content.decode("latin-1")
    (server.data / "f.bin").write_bytes(content)
    (server.data / "f.bin").chmod(0o644)
    server.write("f.vx", "lost<VxEVAL EXPR=vexa_sendfile('f.bin','','x.bin')>lost")
    status, headers, body = server.curl("/f.vx")
    head = {name.lower(): value for name, value in (line.split(": ", 1) for line in headers)}
    expect("whole", (status, body == text, head["content-length"]), (200, True, str(len(content))))
    for options, wanted in (
            (["--range", "255-257"], (206, "\xff\x00\x01")), (["--range", "-2"], (206, "\xfe\xff")),
            (["--range", f"{len(content)}-"], (416, "")), (["--head"], (200, "")),
            (["--header", f"If-None-Match: {head['etag']}"], (304, "")),
            (["--header", f"If-Modified-Since: {head['last-modified']}"], (304, "")),
            (["--range", "0-1", "--header", f"If-Range: {head['etag']}"], (206, "\x00\x01"))):
        status, _, body = server.curl("/f.vx", *options)
        expect(str(options), (status, body), wanted)
    status, _, body = server.curl("/f.vx", "--range", "0-1", "--header", 'If-Range: "other"')
    expect("another version", (status, body == text), (200, True))
    # The client needs far more time than a page has.
    settings = server.directory / "vexa.conf"
    former = settings.read_text()
    settings.write_text(former + "globaltimeout=1\n")
    body = server.curl("/f.vx", "--limit-rate", "600K")[2]
    settings.write_text(former)
    expect("slowly", body == text, True)


@suite.case("a page sets status and cookies, and sends the browser on")
def _(server):
    server.write("r.vx", "<VxEVAL EXPR=vexa_setcookie('a','; x','') $ vexa_redirect('/sub/c.vx?x=1')>lost")
    server.write("sub/c.vx", "<VxEVAL EXPR=vexa_status(404)>[<VxEVAL EXPR=vexa_cookie('a')>|&[x]]")
    status, headers, body = server.curl("/r.vx")
    expect("redirect", (status, body), (303, ""))
    for line in ("Location: /sub/c.vx?x=1", "Set-Cookie: a=%3B%20x; Path=/; HttpOnly; SameSite=Lax"):
        expect_in("headers", "\n".join(headers), line)
    server.write("n.vx", "<VxEVAL EXPR=vexa_status(204)>lost")
    expect("no text", server.curl("/n.vx")[::2], (204, ""))
    followed = server.curl("/r.vx", "--location", "--cookie", "")[2]
    expect_in("followed", followed, "404")
    expect_in("followed", followed, "[; x|1]")


@suite.case("a program whose client has gone away ends")
def _(server):
    server.write("endless.vx", "<VxWHILE EXPR=\"1 EQ 1\">text\n</VxWHILE>")
    client = subprocess.Popen(["curl", "--silent", "--limit-rate", "1000",
                               server.url("/endless.vx")],
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE)
    client.stdout.read(4)
    expect("programs while the client reads", len(programs_of(server)), 1)
    client.kill()
    client.wait()
    client.stdout.close()
    # Far less than the time limit of a script, which would end it too.
    until(lambda: not programs_of(server), "the program still runs", 45)
    server.write("index.vx", "x\n")
    expect("next request", server.page("/"), "x\n")


def programs_of(server):
    """The process ids of the server's running Vexa programs."""
    found = []
    for entry in pathlib.Path("/proc").iterdir():
        try:
            if entry.name.isdigit() and os.readlink(entry / "exe") == str(server.directory / "vexa"):
                found.append(int(entry.name))
        except OSError:
            pass  # It ended meanwhile, or is nobody's business.
    return found


if __name__ == "__main__":
    sys.exit(suite.main(WebServer))
