#!/usr/bin/env python3
"""What scripts/web-server-config protects by a password stays protected, however its address is spelled, and
pages with extensions of their own are never delivered as text."""

import shutil
import sys

from harness import ApacheServer, Failure, Suite, WebServer, expect

suite = Suite("web password")
PATHS = """/shop/admin/ /shop/admin/index.vx /shop//admin/ //shop/admin/ /shop/./admin/ /x/../shop/admin/
/./shop/admin/index.vx /shop/%61dmin/ /%73hop/admin/index%2evx /shop/admin/./index.vx /shop/admin//index.vx
/shop/admin/index.vx?x=/ /shop/admin/?index.vx /shop%2fadmin/index.vx /shop/admin%2findex.vx
/shop\\admin\\index.vx /shop%5cadmin%5cindex.vx /\\shop/admin/ /shop/x/..%2fadmin/ /open.vx/../shop/admin/
/open.vx/shop/admin/index.vx /open.vx/shop/admin/ /open.vx/..%2fshop/admin/index.vx /shop/admin/index.vx/
/shop/admin/index.vx/shop/admin/index.vx /cgi-bin/vexa/shop/admin/index.vx /cgi-bin/vexa//shop/admin/
/cgi-bin/vexa%2fshop/admin/ /shop/admin;/index.vx /shop/admin/index.vx%00 /shop/admin/index.vx%20 /shop/admin
/shop/admin/data.json /shop/%2e/admin/data.json /x/%2e%2e/shop/admin/ /open.vx%2f..%2fshop%2fadmin%2findex.vx
/open.vx/x.vx/../../shop/admin/ /shop/admin/sub/../index.vx""".split()


def site(kind):
    class Server(kind):
        PASSWORD = True
        CONFIG_OPTIONS = [*kind.CONFIG_OPTIONS, "--extensions", "vx,json"]

        def __init__(self, build):
            super().__init__(build, "validextensions=vx,json")
            self.write("shop/admin/index.vx", "VxSECRET")
            self.write("shop/admin/data.json", "VxSECRET")
            self.write("open.vx", "open")
            self.write("data.json", "<VxEVAL EXPR=\"'page'\">")
    return Server


for kind in (WebServer, ApacheServer):
    @suite.case(f"{kind.NAME} asks for the password, whatever the spelling")
    def _(build, kind=kind):
        if not shutil.which(kind.command()[0]):
            return
        with site(kind)(build) as server:
            for path in PATHS:
                status, _, body = server.curl(path, "--path-as-is")
                if status < 300 or "VxSECRET" in body:
                    raise Failure(f"{path} was answered with {status}: {body}")
            for path in ("/shop/admin/", "/shop/admin/index.vx", "/shop//admin/", "/shop/%61dmin/"):
                expect(path, server.curl(path, "--path-as-is")[0], 401)
                expect(path, server.page(path, "--path-as-is", "--user", "anna:secret"), "VxSECRET")
            expect("others", (server.page("/open.vx"), server.page("/data.json")), ("open", "page"))


if __name__ == "__main__":
    import contextlib

    @contextlib.contextmanager
    def build_of(build):
        yield build

    sys.exit(suite.main(build_of))
