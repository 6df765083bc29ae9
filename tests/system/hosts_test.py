#!/usr/bin/env python3
"""Three sites served by one program, behind lighttpd and Apache httpd, set up as docs/virtual-hosts.md
says: its examples are what runs here."""

import re
import shutil
import sys

from harness import ROOT, ApacheServer, Suite, WebServer, expect, expect_in

suite = Suite("hosts")
DOCUMENT = (ROOT / "docs/virtual-hosts.md").read_text()


class Documented:
    """A server with the configuration that the document gives for it."""

    def server_config(self):
        self.docs(r"(?:\n    .*)+", self.directory / "vexa.conf", "    ")
        for site in ("example", "shop", "others"):
            for part in ("pages", "data"):
                (self.directory / "srv" / site / part).mkdir(parents=True)
            (self.directory / "srv" / site / "data/of").write_text(site)
            (self.directory / "srv" / site / "pages/index.vx").write_text(
                "<FILE READ=\"of\" NAME=\"of\">&[of] &[globaltimeout] &[SERVER_NAME]")
        own = self.docs(rf"(?<=```{self.NAME.lower()}\n)[^`]*", self.directory / "documented")
        return (self.preamble(super().server_config().decode()) + own).encode()

    def docs(self, pattern, path, indent=""):
        text = re.search(pattern, DOCUMENT)[0].replace("\n" + indent, "\n").replace("/srv/", f"{self.directory}/srv/")
        text = text.replace("\"/srv\"", f"\"{self.directory}/srv\"").replace("/usr/lib/cgi-bin/vexa", str(self.program))
        text = re.sub(r"port = 80\b|(?<=:)80(?=>)", lambda match: match[0].replace("80", str(self.port)), text)
        path.write_text(text)
        return text

    def preamble(self, _):
        return f"server.bind = \"127.0.0.1\"\nserver.errorlog = \"{self.directory}/lighttpd.log\"\n"


class DocumentedLighttpd(Documented, WebServer):
    pass


class DocumentedApache(Documented, ApacheServer):
    def preamble(self, usual):
        return usual.split("# Only")[0] + "".join(re.findall(r"LoadModule cgid.*\n|ScriptSock .*\n", usual))


def check(server_class):
    with server_class(suite.build) as server:
        def ask(host, path="/"):
            return server.page(path, "--header", f"Host: {host}")
        expect("a name", ask("www.example.org"), "example 90 www.example.org")
        expect("another name of it", ask("EXAMPLE.org", "/index.vx"), "example 90 www.example.org")
        expect("with a port", ask(f"shop.example.org:{server.port}"), "shop 300 shop.example.org")
        expect_in("a pattern", ask("a.b.example.org"), "others 90 ")
        expect("a point", ask("shop.example.org."), "shop 300 shop.example.org")
        strange = server.curl("/", "--header", "Host: elsewhere.org")[2]
        expect("a host of nobody", "example 90" in strange, server.NAME == "Apache")  # Its first one is its default.
        expect("the text of a script", server.curl("/index.vx/index.vx/", "--header", "Host: shop.example.org")[0], 404)


@suite.case("three sites behind lighttpd, as documented")
def _():
    check(DocumentedLighttpd)


if shutil.which(ApacheServer.command()[0]):
    @suite.case("three sites behind Apache httpd, as documented")
    def _():
        check(DocumentedApache)


if __name__ == "__main__":
    sys.exit(suite.main())
