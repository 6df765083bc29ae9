#!/usr/bin/env python3
"""What scripts/web-server-config protects by a password stays protected, however its address is spelled;
no address names another page than its path says; and pages with extensions of their own are never delivered
as text."""

import shutil
import sys

import fcgi_test
from harness import ApacheServer, Failure, Suite, WebServer, expect

suite = Suite("web password")
SECRET = "VxSECRET"
PATHS = """/shop/admin/ /shop/admin/index.vx /shop//admin/ //shop/admin/ /shop/./admin/ /x/../shop/admin/
/./shop/admin/index.vx /shop/%61dmin/ /%73hop/admin/index%2evx /shop/admin/./index.vx /shop/admin//index.vx
/shop/admin/index.vx?x=/ /shop/admin/?index.vx /shop%2fadmin/index.vx /shop/admin%2findex.vx
/shop/x/..%2fadmin/ /open.vx/../shop/admin/ /shop/admin?x
/open.vx/shop/admin/index.vx /open.vx/shop/admin/ /open.vx/..%2fshop/admin/index.vx /shop/admin/index.vx/
/shop/admin/index.vx/shop/admin/index.vx /cgi-bin/vexa/shop/admin/index.vx /cgi-bin/vexa//shop/admin/
/cgi-bin/vexa%2fshop/admin/ /shop/admin;/index.vx /shop/admin/index.vx%00 /shop/admin/index.vx%20 /shop/admin
/shop/admin/data.json /shop/%2e/admin/data.json /x/%2e%2e/shop/admin/ /open.vx%2f..%2fshop%2fadmin%2findex.vx
/open.vx/x.vx/../../shop/admin/ /shop/admin/sub/../index.vx /cgi-bin/vexa?shop/admin/index.vx
/cgi-bin/vexa/?shop/admin/index.vx /open.vx/?shop/admin/index.vx /open.vx;?shop/admin/index.vx
/open.vx%2f?shop/admin/index.vx /open.vx%3fshop/admin/index.vx /big.VX/x""".split()
# With a backslash, a name that begins with a dot, or a page's extension in other letters, which the program would
# take: refused, whatever lies there.
REFUSED = r"""/shop\admin\index.vx /shop%5cadmin%5cindex.vx /\shop/admin/ /a%5cb.txt /a\b.vx /sub/a%5Cb.vx /.dot.vx
/%2edot.txt /sub/.dot.txt /big.VX /sub/big%2EJson /site.Conf""".split()
# Of these the path counts, and never the query.
OPEN = ["/open.vx?shop/admin/index.vx", "/open%2evx?shop/admin/index.vx", "/?shop/admin/index.vx", "//?shop/admin/"]


def site(kind):
    class Server(kind):
        PASSWORD = True
        CONFIG_OPTIONS = [*kind.CONFIG_OPTIONS, "--extensions", "vx,json"]

        def __init__(self):
            super().__init__(*([] if issubclass(kind, fcgi_test.Behind) else [suite.build]))
            with open(self.directory / "vexa.conf", "a", encoding="utf-8") as settings:
                settings.write("validextensions=vx,json\n")
            for name in ("shop/admin/index.vx", "shop/admin/data.json", r"a\b.txt", r"a\b.vx", r"sub/a\b.vx",
                         ".dot.vx", ".dot.txt", "sub/.dot.txt", "big.VX", "sub/big.Json", "site.Conf"):
                self.write(name, SECRET)
            for name in ("open.vx", "index.vx", "sub/index.vx"):
                self.write(name, "open")
            self.write("data.json", "<VxEVAL EXPR=\"'page'\">")
    return Server


for name, kind in (("lighttpd", WebServer), ("Apache", ApacheServer), ("nginx", fcgi_test.Nginx),
                   ("lighttpd with the worker", fcgi_test.Lighttpd), ("Apache with the worker", fcgi_test.Apache)):
    @suite.case(f"{name} asks for the password, whatever the spelling")
    def _(build, kind=kind):
        if not shutil.which(kind.command()[0]):
            return
        with site(kind)() as server:
            for path in [*PATHS, *REFUSED]:
                status, _, body = server.curl(path, "--path-as-is")
                found = SECRET in server.curl(path, "--path-as-is", "--location", "--user", "anna:secret")[2]
                # What the password opens is refused without it; other spellings lead nowhere for anybody.
                refused = (401, 403) if found or path in REFUSED else (400, 401, 403, 404)
                if status not in refused or SECRET in body or (found and path in REFUSED):
                    raise Failure(f"{path} was answered with {status}: {body}")
            for path in ("/shop/admin/", "/shop/admin/index.vx", "/shop//admin/", "/shop/%61dmin/"):
                expect(path, server.curl(path, "--path-as-is")[0], 401)
                expect(path, server.page(path, "--path-as-is", "--user", "anna:secret"), SECRET)
            expect("others", [server.page(path, "--path-as-is") for path in OPEN], ["open"] * len(OPEN))
            expect("a page of another extension", server.page("/data.json"), "page")
            status, headers, _ = server.curl("/sub?a=b")
            place = next((line for line in headers if line.lower().startswith("location: ")), "")
            expect("a directory without a slash", (status, place.endswith("/sub/?a=b")), (301, True))


if __name__ == "__main__":
    import contextlib

    @contextlib.contextmanager
    def build_of(build):
        fcgi_test.suite.build = build
        yield build

    sys.exit(suite.main(build_of))
