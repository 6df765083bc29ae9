#!/usr/bin/env python3
"""Sending mail to real servers and fetching it from them: what was sent is judged by Python's reader of
mails, what is read was written by it. Servers that misbehave are scripts of bytes.

tests/system/mail_test.py --build DIRECTORY [--filter TEXT]"""

import contextlib
import email
import email.message
import email.policy
import grp
import logging
import os
import pwd
import re
import shutil
import socket
import ssl
import subprocess
import sys
import threading
import time
import warnings

from harness import (ROOT, Failure, ProgramSite, Skip, Suite, WebServer, expect, expect_in,
                     make_certificates)

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
def mail_server(certificate=None, tls="", login=""):
    """A server that takes mails: plain, or with `tls` (starttls, tls), or asking for the `login`."""
    inbox = Inbox()
    context = None
    if tls:
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(f"{certificate}.pem", f"{certificate}.key")

    def check(server, session, envelope, mechanism, data):
        return AuthResult(success=f"{data.login.decode()}:{data.password.decode()}" == login, handled=False)

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


@suite.case("passwords and mails travel encrypted to the right server only")
def encrypted_sending(site):
    distrust = "The certificate of '127.0.0.1' cannot be trusted"
    refused = "The server refused the user name or password"
    user = 'USER="u@x" PASSWORD="p&quot;w"'
    warnings.simplefilter("ignore")
    logging.disable()
    for certificate, tls, attributes, reason, encrypted in (
            ("good", "tls", f'TLS="TLS" {user}', "", True), ("good", "starttls", user, "", True),
            ("good", "starttls", 'USER="u@x" PASSWORD="wrong"', refused, None),
            ("good", "starttls", 'TLS="none"', "", False), ("self", "starttls", "", "", True),
            *((bad, tls, f'TLS="{tls}" {user}', distrust, None) for bad in ("self", "name", "expired", "unknown")
              for tls in ("tls", "starttls")),
            ("good", "", user, "The server does not offer encryption", None),
            ("good", "", f'TLS="none" {user}', "", False)):
        login = "" if not user and "USER" in attributes else 'u@x:p"w' if "USER" in attributes else ""
        with mail_server(site.directory / certificate, tls, login) as (inbox, host):
            site.write(PAGE, tag(host, attributes) + "|<VxEVAL EXPR=VxSMTP_Error>")
            sent, _, error = site.page().rpartition("\r\n")[2].partition("|")
            case = f"{certificate} {tls} {attributes}"
            expect(case, error, f"Error sending mail through '{host}': {reason}" if reason else "")
            expect(f"mails of {case}", [tls == "tls" or session.ssl is not None for _, session in inbox.mails],
                   [] if encrypted is None else [encrypted])


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
        while chosen and chosen[0] == ENDLESS:
            connection.sendall(chosen[1])
        if chosen and chosen[0] == LATE:
            connection.sendall(chosen[1])
            time.sleep(5)  # Reads only when the page has given up.
            chosen = b""
        connection.sendall(chosen)

    def converse(connection, verb=""):
        reply(connection, verb)
        stream, in_text = connection.makefile("rb"), False
        for line in stream:
            lines.append(line.decode("latin-1").rstrip("\r\n"))
            if in_text and lines[-1] != ".":
                continue
            verb = lines[-1].split(" ")[0].upper()
            reply(connection, verb)
            in_text = verb == "DATA" and b"354" in str(replies.get(verb, "")).encode()
            if verb == "STARTTLS" and tls:
                stream.close()
                return converse(tls.wrap_socket(connection, server_side=True), "NOTHING")

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


@suite.case("what a server offered before the encryption does not count behind it")
def offers(site):
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(site.directory / "good.pem", site.directory / "good.key")
    replies = {"": b"220 mx\r\n", "STARTTLS": b"220 go\r\n", "NOTHING": b"",
               "EHLO": [b"250-STARTTLS\r\n250 AUTH PLAIN\r\n", b"250 mx\r\n"]}
    with scripted(replies, tls=context) as (host, lines):
        site.write(PAGE, tag(host, 'USER="u" PASSWORD="geheim"') + "|<VxEVAL EXPR=VxSMTP_Error>")
        expect_in("page", site.page(), f"0|Error sending mail through '{host}': The server offers no login")
        expect("what the server heard", [line.split(" ")[0] for line in lines[:3]], ["EHLO", "STARTTLS", "EHLO"])
        expect("nothing more", set(lines[3:]) <= {"QUIT"}, True)


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


def pop(host, body="", attributes='TLS="none"', directory="in"):
    return (f'<VxPOP LOGIN="u" PASSWORD="geheim" DIRECTORY="{directory}" MAILHOST="{host}" {attributes}>'
            f"{body}</VxPOP>|<VxEVAL EXPR=VxPOP_Error>|<VxEVAL EXPR=VxPOPDELETE_Error>")


def fetch(site, *arguments):
    """What the block printed, its error, and that of deleting."""
    site.write(PAGE, pop(*arguments))
    parts = site.page().encode("latin-1").decode().split("|")
    return re.sub(r"index\.vx: Line 1: [^\r]*\r\n", "", parts[0]), parts[1], parts[2]


class Mailbox:
    """Dovecot with one mailbox, a directory of messages."""

    def __init__(self, site):
        self.home = site.directory / "pop"
        self.port, self.tls_port = free_port(), free_port()
        user = "nobody" if os.getuid() == 0 else pwd.getpwuid(os.getuid()).pw_name
        self.user = pwd.getpwnam(user)
        self.new = self.home / "mail/new"
        self.new.mkdir(parents=True, exist_ok=True)
        os.chmod(site.directory, 0o755)
        group = grp.getgrgid(self.user.pw_gid).gr_name
        (self.home / "conf").write_text(f"""base_dir = {self.home}/run
state_dir = {self.home}/state
log_path = {self.home}/log
protocols = pop3
listen = 127.0.0.1
ssl = yes
ssl_cert = <{site.directory}/good.pem
ssl_key = <{site.directory}/good.key
disable_plaintext_auth = no
default_internal_user = {user}
default_internal_group = {group}
default_login_user = {user}
first_valid_uid = 0
mail_location = maildir:{self.home}/mail
service pop3-login {{
  chroot =
  inet_listener pop3 {{
    port = {self.port}
  }}
  inet_listener pop3s {{
    port = {self.tls_port}
  }}
}}
service anvil {{
  chroot =
}}
passdb {{
  driver = static
  args = password=geheim
}}
userdb {{
  driver = static
  args = uid={self.user.pw_uid} gid={self.user.pw_gid} home={self.home}
}}
""")

    def put(self, *messages):
        shutil.rmtree(self.home / "mail", ignore_errors=True)
        self.new.mkdir(parents=True)
        for number, message in enumerate(messages):
            (self.new / f"{number:04}").write_bytes(message if isinstance(message, bytes) else message.as_bytes())
        for path in [self.home, *(self.home / "mail").rglob("*"), self.home / "mail"]:
            os.chown(path, self.user.pw_uid, self.user.pw_gid)

    def left(self):
        """The numbers of the messages that are there."""
        return sorted(int(path.name[:4]) for path in (self.home / "mail").glob("*/0*"))

    @contextlib.contextmanager
    def running(self):
        server = subprocess.Popen([shutil.which("dovecot") or "/usr/sbin/dovecot", "-F", "-c", self.home / "conf"],
                                  stdout=subprocess.DEVNULL, stderr=subprocess.STDOUT)
        try:
            wait_for_port(self.port)
            yield self
        finally:
            server.terminate()
            server.wait()


def wait_for_port(port):
    end = time.monotonic() + 20
    while time.monotonic() < end:
        with contextlib.suppress(OSError):
            return socket.create_connection(("127.0.0.1", port), timeout=1).close()
        time.sleep(0.05)
    raise Failure(f"nobody answers on port {port}")


def message(subject, text="text\n", **options):
    made = email.message.EmailMessage(policy=email.policy.SMTP)
    made["From"], made["To"], made["Subject"] = "Jürgen <j@x.org>, z@z", "a@x, b@x", subject
    made["Date"], made["Message-ID"] = "Sat, 21 Nov 2026 23:47:18 +0100", "<1@x>"
    made.set_content(text, **options)
    return made


@suite.case("mail of all kinds is read, saved and deleted")
def fetching(site):
    rich = message("Grüße " * 50, "Hällo €\n", charset="iso-8859-15")
    rich["X-A"], rich["X-A"] = "1", "2"
    rich.add_alternative("<p>Hi <b>x</b></p>", subtype="html")
    data = os.urandom(100_000)
    names = ["../../etc/passwd", "page.VX", "page.VX", "ünï cödé with a name of several pieces in the header.png",
             "attachment.eml"]
    for name in names[:4]:
        rich.add_attachment(data, maintype="image", subtype="png", filename=name)
    rich.add_attachment(message("inner"))
    plain = b"Content-Type: text/plain; charset="
    odd = [plain + b"Shift_JIS\r\nContent-Transfer-Encoding: quoted-printable\r\n\r\n=93=FA=96{=\r\n!=3\r\n",
           plain + b"windows-1252\r\nSubject: caf\xe9\r\n\r\n\x80\r\n", b"no header at all\r\n",
           plain + b"utf-8\r\nContent-Transfer-Encoding: base64\r\n\r\nSGVs!!bG8g\r\n*d29ybGQ=??\r\n",
           b"Content-Type: multipart/mixed; boundary=X\r\n\r\n--X\r\n\r\none\r\n--X\r\nContent-Type: text/html\r\n\r\n"
           b"<p>two", plain + b'"../../x"\r\n\r\n..\xe4\r\n.\r\n', b"Subject: =?utf-8?Q?a=0D=0AX:_b=00?=\r\n\r\n"]
    many = b"Content-Type: multipart/mixed; boundary=X\r\n\r\n" + b"--X\r\n\r\n" * 20_000
    (site.data / "in").mkdir(exist_ok=True)
    (site.data / "in/passwd").symlink_to(site.directory / "target")
    box = Mailbox(site)
    box.put(rich, *odd, many, b"A: b\r\n" * 2000 + b"\r\nx", message("large", "x" * 60 + "\n" * 40_000_000))
    with box.running():
        host = f"127.0.0.1:{box.port}"
        passes, error, _ = fetch(site, host, """[<VxEVAL EXPR=pop_number $ '~' $ pop_count $ '~' $ pop_from $ '~'
 $ pop_address $ '~' $ pop_to $ '~' $ pop_subject $ '~' $ pop_time $ '~' $ pop_date $ '~' $ pop_id $ '~' $ pop_h_x_a
 $ '~' $ pop_text $ '~' $ pop_html $ '~' $ pop_files $ '~' $ pop_filenames $ '~' $ pop_error>]
<VxIF EXPR="pop_number EQ 2"><VxPOPDELETE><VxPOPDELETE></VxIF>""")
        expect("error", error, "")
        got = [one.split("~") for one in re.findall(r"\[(.*?)\]", passes, re.S)]
        files = ["passwd-2", "page.VX.txt", "page.VX-2.txt",
                 "_n_c_d_with_a_name_of_several_pieces_in_the_header.png", "attachment.eml"]
        expect("first", got[0], [
            "1", "11", "Jürgen <j@x.org>, z@z", "j@x.org", "a@x, b@x", ("Grüße " * 50).strip(), "1795301238",
            "Sat, 21 Nov 2026 23:47:18 +0100", "<1@x>", "1\n2", "Hällo €\n", "<p>Hi <b>x</b></p>\n",
            "\n".join(f"in/{name}" for name in files), "\n".join(names), ""])
        expect("texts", [one[10] for one in got[1:]],
               ["日本!=3\n", "€\n", "no header at all\n", "Hello world", "one", "..ä\n.\n", "", "", "", ""])
        expect("others", [got[2][5], got[5][11], got[7][5], got[1][9], got[1][12]],
               ["café", "<p>two\n", "a  X: b?", "", ""])
        expect("errors", [one[14] for one in got[8:]], ["The message has too many parts", "The message has too many"
               " header lines", "The message is larger than 33554432 bytes"])
        expect("header of a large one", got[10][5], "large")
        expect("files", [(site.data / "in" / name).read_bytes() == data for name in files[:4]], [True] * 4)
        expect("modes", {oct((site.data / "in" / name).stat().st_mode) for name in files}, {"0o100600"})
        expect_in("inner", (site.data / "in/attachment.eml").read_bytes(), b"Subject: inner\r\n")
        expect("link", (site.directory / "target").exists(), False)
        expect("left", box.left(), [0, *range(2, 11)])


@suite.case("a mail may take more than maxmemory while it is taken apart")
def beyond_the_limit(site):
    large = message("large")
    large.add_attachment(b"x" * 16_000_000, maintype="image", subtype="png", filename="large")
    (site.data / "large").mkdir()
    box = Mailbox(site)
    box.put(large)
    config = site.directory / "vexa.conf"
    former = config.read_text()
    config.write_text(former + "maxmemory=80000000\n")
    with box.running():
        expect("mail", fetch(site, f"127.0.0.1:{box.port}", "&[pop_files]", 'TLS="none"', "large"),
               ("large/large", "", ""))
    config.write_text(former)


@suite.case("only a mailbox that was left well loses what is marked")
def deleting(site):
    (site.data / "in").mkdir(exist_ok=True)
    box = Mailbox(site)
    delete = "[<VxEVAL EXPR=pop_subject>]<VxPOPDELETE>"
    at_2 = '<VxIF EXPR="pop_number EQ 2">{}</VxIF>'
    with box.running():
        for host, attributes, body, printed, left in (
                (f"localhost:{box.tls_port}", 'TLS="tls"', delete, "[0][1][2]", []),
                (f"127.0.0.1:{box.port}", "", delete + at_2.format("<VxPOPSTOP>no"), "[0][1]", [2]),
                (f"127.0.0.1:{box.port}", 'TLS="starttls"', delete + at_2.format("<VxEXIT>"), "[0][1]", [0, 1, 2]),
                (f"127.0.0.1:{box.port}", 'TLS="none"', delete + at_2.format("<VxEVAL EXPR=no()>"), "[0][1]",
                 [0, 1, 2]),
                (f"127.0.0.1:{box.port}", 'TLS="none"', "[<VxEVAL EXPR=pop_subject>]", "[0][1][2]", [0, 1, 2])):
            box.put(*(message(str(number)) for number in range(3)))
            site.write(PAGE, pop(host, body, attributes))
            expect(f"{attributes} {body}", re.sub(r"\|.*|index.vx.*", "", site.page(), flags=re.S), printed)
            expect(f"left by {attributes} {body}", box.left(), left)
        box.put(*(message(str(number)) for number in range(3)))
        site.write(PAGE, pop(f"127.0.0.1:{box.port}", delete + at_2.format('<VxWHILE EXPR="1"></VxWHILE>')))
        page = site.start()
        with contextlib.suppress(subprocess.TimeoutExpired):
            page.wait(1)
        page.kill()
        page.communicate()
        expect("left by a killed page", box.left(), [0, 1, 2])


def block(text):
    return b"+OK\r\n" + text + b".\r\n"


POP_OK = {"CAPA": b"-ERR\r\n", "LIST": block(b"1 9\r\n7 9\r\n"), "UIDL": block(b"7 <u>\r\n1 a\r\nx\r\n"),
          "RETR": block(b"A: b\r\n\r\nx\r\n")}
UNKNOWN = "The server's answer cannot be understood"
SAW = "(1 a )(7 <u> )"
POP_CASES = [  # What the server does otherwise, what is printed, the error, that of deleting, the last commands.
    ({}, SAW, "", "", ["DELE 1", "DELE 7", "QUIT"]),
    ({"": b"-ERR no\r\n"}, "", "The server answered: -ERR no", "", []),
    ({"": b"hi\r\n"}, "", None, "", []),
    ({"USER": b"-ERR\r\n"}, "", "The server refused the user name or password", "", ["USER u"]),
    ({"PASS": b"-ERR [IN-USE] x\r\n"}, "", "The server answered: -ERR [IN-USE] x", "", ["PASS geheim"]),
    *(({"LIST": block(line)}, "", UNKNOWN, "", ["LIST"]) for line in (
        b"1 9\r\n1 9\r\n", b"0 1\r\n", b"-1 9\r\n", b"1 -9\r\n", b"1\r\n", b"1 9 9\r\n", b"x 1\r\n",
        b"1 " + b"9" * 30 + b"\r\n")),
    ({"LIST": b"+OK\r\n" + b"".join(b"%d 1\r\n" % number for number in range(1, 100_003))}, "",
     "The mailbox lists too many messages", "", ["LIST"]),
    ({"LIST": (ENDLESS, b"x" * 9999)}, "", UNKNOWN, "", ["LIST"]),
    ({"LIST": block(b"")}, "", "", "", ["LIST", "QUIT"]),
    ({"UIDL": b"-ERR\r\n"}, "(1  )(7  )", "", "", ["QUIT"]),
    ({"RETR": [b"-ERR <gone>\r\n", POP_OK["RETR"]]}, "(1 a The server answered: -ERR &lt;gone&gt;)(7 <u> )", "", "",
     ["QUIT"]),
    ({"RETR": [POP_OK["RETR"], CLOSE]}, "(1 a )", LOST, "", ["RETR 7"]),
    ({"RETR": HANG}, "", "Timed out after 3 seconds", "", ["RETR 1"]),
    ({"RETR": (ENDLESS, b"+OK\r\n" * 9999)}, "", "Timed out after 3 seconds", "", ["RETR 1"]),
    ({"LIST": block(b"1 99999999999\r\n"), "TOP": b"-ERR\r\n"},
     "(1 a The message is larger than 33554432 bytes)", "", "", ["TOP 1 0", "DELE 1", "QUIT"]),
    ({"DELE": [b"+OK\r\n", b"-ERR no\r\n"]}, SAW, "", "The server answered: -ERR no", ["DELE 7", "RSET", "QUIT"]),
    ({"DELE": [b"+OK\r\n", b"-ERR no\r\n"], "RSET": b"-ERR\r\n"}, SAW, "", "The server answered: -ERR no", ["RSET"]),
    ({"DELE": [b"+OK\r\n", CLOSE]}, SAW, "", LOST, ["DELE 7"]),
    ({"QUIT": b"-ERR not all\r\n"}, SAW, "", "The server answered: -ERR not all", ["QUIT"]),
    ({"QUIT": CLOSE}, SAW, "", LOST, ["QUIT"]),
    ({"DELE": b"what\r\n"}, SAW, "", UNKNOWN, ["DELE 1"]),
]


@suite.case("a mailbox that misbehaves loses nothing, and the page hears why")
def pop_hostile(site):
    (site.data / "in").mkdir(exist_ok=True)
    body = "(<VxEVAL EXPR=pop_number $ ' ' $ pop_uid $ ' ' $ pop_error>)<VxPOPDELETE>"
    for changes, printed, error, of_deleting, last in POP_CASES:
        with scripted({**POP_OK, **changes}, b"+OK\r\n") as (host, lines):
            got = fetch(site, host, body)
            case = f"{str(changes)[:200]}: {lines}"
            expect(f"printed by {case}", got[0], printed)
            if error is not None:
                told = f"Error fetching mail from '{host}': {error}" if error else ""
                expect(f"error of {case}", got[1], told)
            told = f"Error deleting mail on '{host}': {of_deleting}" if of_deleting else ""
            expect(f"error of deleting of {case}", got[2], told)
            expect(f"end of {case}", lines[len(lines) - len(last):], last)
    with scripted({**POP_OK, "CAPA": block(b"UIDL\r\n")}, b"+OK\r\n") as (host, lines):
        expect("no encryption", fetch(site, host, body, "")[1],
               f"Error fetching mail from '{host}': The server does not offer encryption")
        expect("told", lines, ["CAPA"])


@suite.case("attachments are whole or not there, whatever fails or is killed")
def faults(site):
    if b"__asan_init" in site.program.read_bytes():
        raise Skip("the sanitizers want to be the first library themselves")
    mail = message("two files")
    for name in ("a.bin", "b.bin"):
        mail.add_attachment(b"x" * 9000, maintype="a", subtype="b", filename=name)
    directory = site.data / "faults"
    seen = set()
    for fault in [f"{kind}:{number}" for kind in ("kill", "tear", "fail", "failon") for number in range(1, 9)]:
        shutil.rmtree(directory, ignore_errors=True)
        directory.mkdir()
        retr = {"LIST": block(b"1 9\r\n"), "RETR": block(mail.as_bytes())}
        with scripted({**POP_OK, **retr}, b"+OK\r\n") as (host, lines):
            site.write(PAGE, "<VEXA VxPOP_ERROR='nodisplay'>" + pop(host, "<VxPOPDELETE>", directory="faults"))
            page = subprocess.run(
                [site.program], capture_output=True, timeout=60, stdin=subprocess.DEVNULL, cwd=site.directory,
                env={"GATEWAY_INTERFACE": "CGI/1.1", "PATH_INFO": f"/{PAGE}", "VEXA_FAULT": fault,
                     "LD_PRELOAD": str(suite.build / "libfault_calls.so")}).stdout.decode()
        files = sorted(path.name for path in directory.iterdir())
        named = [name for name in files if not re.fullmatch(r"[ab]\.bin\.\d+", name)]
        expect(f"sizes after {fault}", [(directory / name).stat().st_size for name in named], [9000] * len(named))
        done = "||" in page
        told = f"{fault}: {page} {files} {lines}"
        expect(f"deleted after {told}", "QUIT" in lines, done)
        if done or "fail:" in fault:
            expect(f"files after {told}", files, ["a.bin", "b.bin"] if done else [])
        expect(f"temporary files after {told}", len(files) - len(named) < 2, True)
        seen.add((done, len(named)))
    expect("what was seen", {(True, 2), (False, 0), (False, 1)} <= seen, True)


@suite.case("the contact form of the example site becomes a mail with its file")
def contact(site):
    page = (ROOT / "examples/site/contact.vx").read_text()
    with mail_server() as (inbox, host), WebServer(suite.build, "validextensions=.vx") as server:
        server.write("contact.vx", page.replace('MAILHOST="127.0.0.1"', f'MAILHOST="{host}"'))
        for part in ("header", "footer"):
            server.write(f"parts/{part}.vx", (ROOT / f"examples/site/parts/{part}.vx").read_text())
        (server.directory / "upload").write_bytes(bytes(range(256)))
        form = ["--form-string", "message=<VxEXIT> & &[arg1]\r\nBcc: x@y",
                "--form", f"attachment=@{server.directory}/upload"]
        bad = server.page("/contact.vx", *form, "--form-string", "address=a@b\r\nBcc: x@y")
        expect_in("a line break", bad, "REPLYTO must not contain line breaks")
        expect_in("thanks", server.page("/contact.vx", *form, "--form-string", "address=ü <a@b.org>"), "Thank you")
        (envelope, _), = inbox.mails
        mail = email.message_from_bytes(envelope.content, policy=STRICT)
        expect("receivers", envelope.rcpt_tos, ["office@example.com"])
        expect("reply to", addresses(mail["reply-to"]), [("ü", "a@b.org")])
        expect_in("text", text_of(mail.get_body()), "<VxEXIT> & &[arg1]\nBcc: x@y\n\n-- \nSent from 127.0.0.1")
        expect("file", [part.get_content() for part in mail.iter_attachments()], [bytes(range(256))])
        kept = ["--form-string", "kept=x"]
        for sent in (form + form[2:], form + kept, kept + form, ["--request", "PUT", *form]):
            server.page("/contact.vx", *sent)
        expect("nothing is left", list(server.data.iterdir()), [])


@contextlib.contextmanager
def fixture(build):
    with ProgramSite(build, "loglevel=4\nlogfile={DIR}/data/log\nmailtimeout=3\nvalidextensions=.vx\n"
                     "cafile={DIR}/ca.pem") as site:
        make_certificates(site.directory)
        yield site


if __name__ == "__main__":
    sys.exit(suite.main(fixture))
