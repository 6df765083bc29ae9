#!/usr/bin/env python3
"""Sending mail to real servers and fetching it from them: what was sent is judged by Python's reader of
mails, what is read was written by it. Servers that misbehave are scripts of bytes.

tests/system/mail_test.py --build DIRECTORY [--filter TEXT]"""

import contextlib
import email
import email.message
import email.policy
import os
import pathlib
import re
import shutil
import socket
import ssl
import subprocess
import sys
import tempfile
import threading
import time

from harness import Failure, ProgramSite, Suite, expect, expect_in, make_certificates

sys.path.append("/usr/lib/python3/dist-packages")  # Where the system's packages are, whatever python this is.
from aiosmtpd.controller import Controller  # noqa: E402
from aiosmtpd.smtp import SMTP, AuthResult  # noqa: E402

suite = Suite("mail")
STRICT = email.policy.SMTP.clone(raise_on_defect=True)
PAGE = "index.vx"


class Inbox:
    """What a mail server took; refuses a receiver whose name says so."""

    def __init__(self):
        self.mails = []

    async def handle_RCPT(self, server, session, envelope, address, options):
        if address.startswith("refused"):
            return "550 no <such> user"
        envelope.rcpt_tos.append(address)
        return "250 OK"

    async def handle_DATA(self, server, session, envelope):
        if b"refuse this" in envelope.content:
            return "554 not wanted"
        self.mails.append((envelope, session))
        return "250 OK"


@contextlib.contextmanager
def mail_server(certificates=None, tls="", login=""):
    """A server that takes mails: plain, or with `tls` (starttls, tls), or asking for the `login`."""
    inbox = Inbox()
    context = None
    if tls:
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(certificates / "server.crt", certificates / "server.key")

    def check(server, session, envelope, mechanism, data):
        return AuthResult(success=f"{data.login.decode()}:{data.password.decode()}" == login)

    class Server(Controller):
        def factory(self):
            return SMTP(inbox, tls_context=context if tls == "starttls" else None, hostname="mx",
                        data_size_limit=50_000_000,
                        authenticator=check, auth_required=bool(login), auth_require_tls=False,
                        auth_exclude_mechanism=[] if login else ["LOGIN", "PLAIN"])

    server = Server(inbox, hostname="127.0.0.1", port=free_port(),
                    ssl_context=context if tls == "tls" else None)
    server.start()
    try:
        yield inbox, f"127.0.0.1:{server.port}"
    finally:
        server.stop()


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def read(envelope):
    return email.message_from_bytes(envelope.content, policy=STRICT)


def tag(host, attributes="", body="text", head='FROM="a@x.org" TO="b@x.org"'):
    return f'<VxSMTP {head} MAILHOST="{host}" {attributes}>{body}</VxSMTP><VxEVAL EXPR=smtp_sent>'


def send(site, inbox, *arguments):
    """The mail that a page sends, read strictly, and its envelope."""
    site.write(PAGE, tag(*arguments))
    expect("page", site.page(), "1")
    envelope, _ = inbox.mails.pop()
    lines = envelope.content.split(b"\r\n")
    if max(map(len, lines)) > 998 or max(envelope.content) > 127 or b"\n" in b"".join(lines):
        raise Failure(f"not a mail of short ASCII lines: {envelope.content[:2000]!r}")
    mail = email.message_from_bytes(envelope.content, policy=STRICT)
    for header in mail.values():
        expect(f"defects of {header}", header.defects, ())
    return mail, envelope


def text_of(part):
    return part.get_content().replace("\r\n", "\n")


def addresses(header):
    return [(address.display_name, address.addr_spec) for address in header.addresses]


@suite.case("headers and receivers are what the page said")
def headers(site):
    with mail_server() as (inbox, host):
        mail, envelope = send(site, inbox, host, """CC="B@X.org, b@X.ORG,c@y" BCC='hidden@y, "a;b"@y' HEADERS="X-1=one,
X-None=none,X-Two=two" SENDER="bounce@z.org" REPLYTO="Re <r@x.org>" SUBJECT=glosub(padl('', 150, 'x'), 'x', 'ü ')
""", "", """FROM='"Ädа, \\&quot;Q\\&quot;" <a@x.org>' TO="Bob B. <b@x.org>, b@x.org" """)
        expect("sender", envelope.mail_from, "bounce@z.org")
        expect("receivers", envelope.rcpt_tos, ["b@x.org", "B@X.org", "c@y", "hidden@y", '"a;b"@y'])
        expect("from", addresses(mail["from"]), [('Ädа, "Q"', "a@x.org")])
        expect("to", addresses(mail["to"]), [("Bob B.", "b@x.org"), ("", "b@x.org")])
        expect("reply-to", addresses(mail["reply-to"]), [("Re", "r@x.org")])
        expect("subject", mail["subject"], ("ü " * 150).strip())
        expect("names", mail.keys(), ["Date", "Message-ID", "From", "To", "Cc", "Reply-To", "Subject",
                                      "MIME-Version", "Content-Type", "Content-Transfer-Encoding"])
        if b"hidden" in envelope.content or abs(mail["date"].datetime.timestamp() - time.time()) > 100:
            raise Failure(envelope.content)
        expect("id", re.fullmatch(r"<[0-9a-f]{32}@x\.org>", mail["message-id"]) is not None, True)
        site.write(PAGE, '<VxASSIGN NAME="k" VALUE="v 1"><VxSMTP FROM="a@x" TO="b@x" MAILHOST=' + f'"{host}"'
                         ' HEADERS="X-A=k,k" NAME="m">x</VxSMTP><VxEVAL EXPR=m_id>')
        page = site.page()
        mail = email.message_from_bytes(inbox.mails.pop()[0].content, policy=STRICT)
        expect("own headers", (mail["x-a"], mail["k"], mail["message-id"], mail["subject"]),
               ("v 1", "v 1", page, "(no subject)"))


@suite.case("texts, HTML and files arrive as they are")
def contents(site):
    data = os.urandom(5_000_000)
    (site.data / "big.bin").write_bytes(data)
    (site.data / "e.TXT").write_bytes(b"")
    files = '<VxASSIGN NAME="f" VALUE="big.bin"><VxASSIGN NAME="e" VALUE="e.TXT">'
    plain = [("  \n \n  a\r b\n.\n..c\r\n\t \n", "  a\n b\n.\n..c\n"), ("", "\n"), ("ä" * 3000, "ä" * 3000 + "\n"),
             ("w " * 3000 + "\x01=", "w " * 3000 + "\x01=\n"), (b"caf\xe9 \xc3\xa9".decode("latin-1"), None)]
    with mail_server() as (inbox, host):
        for written, expected in plain:
            raw = written.encode("latin-1" if expected is None else "utf-8")
            site.write(PAGE, f'<VxSMTP FROM="a@x" TO="b@x" MAILHOST="{host}">'.encode() + raw + b"</VxSMTP>")
            site.page()
            mail = email.message_from_bytes(inbox.mails.pop()[0].content, policy=STRICT)
            expect("type", mail["content-type"], 'text/plain; charset="utf-8"')
            expect("text", text_of(mail), expected or "caf\u00e9 \u00c3\u00a9\n")
        html = "<HTML><head><title>no</title></head><p>Hi&nbsp;<a href='http://x/'>there</a><ul><li>1<li>2"
        for attributes, text in (("", "Hi\u00a0there (http://x/)\n- 1\n- 2\n"),
                                 ('TYPE="HTML" TEXT="own\n\n"', "own\n")):
            mail, _ = send(site, inbox, host, attributes, html)
            expect("parts", [text_of(part) for part in mail.iter_parts()], [text, html + "\n"])
        mail, _ = send(site, inbox, host, 'TYPE="text"', html)
        expect("text", (mail.get_content_type(), text_of(mail)), ("text/plain", html + "\n"))
        long_name = "Größe und Gewicht der vielen neuen Artikel in diesem Jahr.pdf"
        site.write(PAGE, files + tag(host, f'FILES="{long_name}=f, e"', html))
        expect("page", site.page(), "1")
        mail = email.message_from_bytes(inbox.mails.pop()[0].content, policy=STRICT)
        one, two = mail.iter_attachments()
        expect("types", [part.get_content_type() for part in mail.iter_parts()],
               ["multipart/alternative", "application/octet-stream", "application/octet-stream"])
        expect("names", [one.get_filename(), two.get_filename()], [long_name, "e.TXT"])
        expect("bytes", (one.get_content() == data, two.get_content()), (True, b""))


CLOSE, HANG, ENDLESS, LATE = "close", "hang", "endless", "late"


class Lines(list):
    """What a server was told; `hung_up` counts the dialogues that are over."""

    def __init__(self):
        super().__init__()
        self.hung_up = threading.Semaphore(0)


@contextlib.contextmanager
def scripted(replies, answer=b"250 OK\r\n", tls=None):
    """A server that answers each command with what `replies` has for its verb ("" is the greeting, "." a
    mail's end): bytes, a list of them for one after the other, or CLOSE, HANG, ENDLESS or LATE bytes. Yields its
    address and the lines it gets; with `tls`, a context, it can STARTTLS."""
    listener = socket.create_server(("127.0.0.1", 0))
    lines, ended = Lines(), threading.Event()

    def reply(connection, verb):
        chosen = replies.get(verb, answer)
        if isinstance(chosen, list):
            chosen = chosen.pop(0) if len(chosen) > 1 else chosen[0]
        if chosen == HANG:
            ended.wait()
        if chosen in (CLOSE, HANG):
            raise ConnectionError
        while chosen[0] == ENDLESS:
            connection.sendall(chosen[1])
        if chosen[0] == LATE:
            connection.sendall(chosen[1])
            time.sleep(5)  # Reads only when the page has given up.
            chosen = b""
        connection.sendall(chosen)

    def converse(connection):
        reply(connection, "")
        stream, in_text = connection.makefile("rb"), False
        for line in stream:
            lines.append(line.decode("latin-1").rstrip("\r\n"))
            if in_text and lines[-1] != ".":
                continue
            verb = lines[-1].split(" ")[0].upper()
            reply(connection, verb)
            in_text = verb == "DATA" and b"354" in str(replies.get(verb, "")).encode()
            if verb == "STARTTLS" and tls:
                connection = tls.wrap_socket(connection, server_side=True)
                stream.close()
                return converse_again(connection)

    def converse_again(connection):
        replies[""] = b""
        replies.update(replies.pop("after", {}))
        converse(connection)

    def serve():
        while not ended.is_set():
            try:
                connection, _ = listener.accept()
            except OSError:
                return
            with connection, contextlib.suppress(OSError):
                converse(connection)
            lines.hung_up.release()

    threading.Thread(target=serve, daemon=True).start()
    try:
        yield f"127.0.0.1:{listener.getsockname()[1]}", lines
    finally:
        ended.set()
        listener.shutdown(socket.SHUT_RDWR)
        listener.close()


LOST = "The connection was lost"
SMTP_OK = {"": b"220 mx\r\n", "DATA": b"354 go\r\n", "QUIT": b"221 bye\r\n"}
SMTP_CASES = [  # What the server does otherwise, attributes, the reason, and the last line that it gets.
    ({"": b"554 go <away>\r\n"}, "", "The server answered: 554 go &lt;away&gt;", None),
    ({"": b"hello\r\n"}, "", "The server's answer cannot be understood", None),
    ({"MAIL": b"550 no sender\r\n"}, "", "The server answered: 550 no sender", "MAIL FROM:<a@x.org>"),
    ({"RCPT": [b"250 OK\r\n", b"550-no\r\n550 really\r\n"]}, 'CC="c@x.org"', "The server answered: 550 really",
     "RCPT TO:<c@x.org>"),
    ({"DATA": b"451 later\r\n"}, "", "The server answered: 451 later", "DATA"),
    ({".": b"552 full\x01\r\n"}, "", "The server answered: 552 full", "."),
    *(({verb: CLOSE}, "", LOST, None) for verb in ("", "EHLO", "MAIL", "RCPT", "DATA", ".")),
    *(({verb: HANG}, "", "Timed out after 3 seconds", None) for verb in ("", ".")),
    ({"EHLO": (ENDLESS, b"250-x\r\n")}, "", "The server's answer cannot be understood", None),
    ({"EHLO": (ENDLESS, b"250-x" * 9999)}, "", "The server's answer cannot be understood",
     None),
    ({"EHLO": b"250-mx\r\n250 AUTH CRAM-MD5\r\n"}, 'TLS="none" USER="u" PASSWORD="geheim"',
     "The server offers no login", "EHLO"),
    ({"EHLO": b"502 no\r\n"}, 'TLS="none" USER="u" PASSWORD="geheim"', "The server offers no login", "HELO"),
    ({"EHLO": b"250 AUTH LOGIN\r\n", "AUTH": b"535 no\r\n"}, 'TLS="none" USER="u" PASSWORD="geheim"',
     "The server refused the user name or password", "AUTH LOGIN"),
    ({"EHLO": b"250 AUTH PLAIN LOGIN\r\n"}, 'USER="u" PASSWORD="geheim"', "The server does not offer encryption",
     "EHLO"),
    ({"EHLO": b"250 STARTTLS\r\n", "STARTTLS": b"454 no\r\n"}, 'TLS="starttls"', "The server does not offer"
     " encryption", "STARTTLS"),
    ({"QUIT": HANG}, "", "", "."),
    ({"DATA": (LATE, b"354 go\r\n")}, "", "Timed out after 3 seconds", "xx"),
]


@suite.case("a mail server that misbehaves gets no mail, and the page hears why")
def smtp_hostile(site):
    for changes, attributes, reason, last in SMTP_CASES:
        with scripted({**SMTP_OK, **changes}) as (host, lines):
            body = ("x" * 72 + "\n") * (200_000 if LATE in str(changes) else 1)
            site.write(PAGE, tag(host, attributes, body) + "|<VxEVAL EXPR=VxSMTP_Error>")
            sent, _, error = site.page().rpartition("\r\n")[2].partition("|")
            case = f"{changes} {attributes}: {lines}"
            expect(f"sent by {case}", sent, "0" if reason != "" else "1")
            if reason:
                expect(f"error of {case}", error, f"Error sending mail through '{host}': {reason}")
            if LATE in str(changes):
                lines.hung_up.acquire(timeout=60)
                expect("half a mail is no mail", "." in lines, False)
            if last:
                said = [line for line in lines if line != "QUIT"][-1]
                expect(f"last line of {case}", said.startswith(last), True)
            if "geheim" in str(lines) or "Z2VoZWlt" in str(lines):
                raise Failure(f"the password was told: {case}")


@contextlib.contextmanager
def fixture(build):
    with ProgramSite(build, "loglevel=4\nlogfile={DIR}/data/log\nmailtimeout=3") as site:
        site.certificates = make_certificates(site.directory)
        yield site


if __name__ == "__main__":
    sys.exit(suite.main(fixture))
