#!/usr/bin/env python3
"""The shop of the example site as its visitors meet it: in a real browser, behind lighttpd and
behind Apache httpd. Every case is run with each server. Pictures of what the browser showed are
left in BUILD/screenshots.

Without Chromium or Apache httpd the cases that need them are skipped, and say so."""

import concurrent.futures
import contextlib
import filecmp
import os
import re
import shutil
import struct
import subprocess
import sys
import zlib

import browser
from harness import ROOT, ApacheServer, Failure, Skip, Suite, WebServer, expect, expect_in

suite = Suite("browser")
SERVERS = [WebServer, ApacheServer]
UPLOAD_BYTES = 50 * 1000 * 1000

# Takes one file of any size, keeps it as data/arrived, and says what it was told.
UPLOAD_PAGE = """<VxFUNCTION NAME="Vexa_ValidateFileUpload" PARAMETERS="field, filename, type">
<VxFUNCRETURN VALUE=0></VxFUNCTION>
<VxFUNCTION NAME="Vexa_ProcessFileUpload"
  PARAMETERS="field, filename, type, path, size, status">
<VxLET moved=frename(path, 'arrived')>
<VxASSIGN NAME="told" VALUE=status $ ' ' $ size>
</VxFUNCTION>
<!DOCTYPE html><title>Upload</title><p>&[told:entities]</p>
<form method="post" enctype="multipart/form-data">
<input type="file" name="file"><button>Send</button></form>
"""


class World:
    """What all cases share: the running servers by name, and the browser if there is one."""

    def __init__(self, build):
        self.build = build
        self.servers = {}
        self.browser = None

    def server(self, name):
        if name not in self.servers:
            raise Skip(f"{name} is not installed")
        return self.servers[name]


@contextlib.contextmanager
def world(build):
    with contextlib.ExitStack() as stack:
        made = World(build)
        for kind in SERVERS:
            if shutil.which(kind.command()[0]):
                made.servers[kind.NAME] = stack.enter_context(kind(build))
        if browser.is_installed():
            made.browser = stack.enter_context(browser.Browser())
        yield made


class Visit:
    """A visitor at one server: what a case gets. Begins with an empty data directory."""

    def __init__(self, world, server):
        self.server = world.server(server)
        self.build = world.build
        self._browser = world.browser
        self.pictures = world.build / "screenshots"
        shutil.copytree(ROOT / "examples/site", self.server.site, dirs_exist_ok=True)
        for entry in self.server.data.iterdir():
            shutil.rmtree(entry) if entry.is_dir() else entry.unlink()

    @property
    def browser(self):
        if self._browser is None:
            raise Skip("chromium and chromium-driver are not installed")
        return self._browser

    def go(self, path):
        self.browser.go(self.server.url(path))
        self.look()

    def look(self):
        """Fails when the page the browser shows is not whole."""
        source = self.browser.source_with("</footer>")
        for word in (" Error: ", "Vx", "&amp;["):
            if word in source:
                raise Failure(f"{self.browser.url()} contains {word!r}: {source}")
        expect("ends of the page", source.count("</footer>"), 1)
        broken = self.browser.run("return [...document.images].filter(image => "
                                  "!image.naturalWidth).map(image => image.src)")
        expect(f"broken pictures on {self.browser.url()}", broken, [])

    def shoot(self, name):
        self.look()
        self.browser.screenshot(self.pictures / f"{self.server.NAME.lower()}-{name}.png")

    def names(self):
        """The products that the catalogue shows."""
        return self.browser.texts(".card .name")

    def check_tables(self):
        """Fails when a table or an index of the shop is damaged."""
        shop = self.server.data / "shop"
        for table, indexes in (("products", ["by_id", "by_name", "by_price"]),
                               ("orders", ["by_token"])):
            done = subprocess.run(
                [self.server.program, "--check-table", shop / f"{table}.dbf",
                 *[shop / f"{index}.vxx" for index in indexes]], capture_output=True, text=True)
            expect(f"damage in {table}", (done.returncode, done.stderr), (0, ""))


def case(name):
    def register(function):
        for kind in SERVERS:
            suite.case(f"{kind.NAME}: {name}")(
                lambda shared, server=kind.NAME: function(Visit(shared, server)))
        return function

    return register


def png(width, height, colour):
    """The bytes of a picture of one colour, three numbers from 0 to 255."""
    def chunk(kind, data):
        return (struct.pack(">I", len(data)) + kind + data +
                struct.pack(">I", zlib.crc32(kind + data)))

    header = struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)
    rows = (b"\0" + bytes(colour) * width) * height
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) +
            chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b""))


@case("the start page leads to every example")
def _(visit):
    visit.go("/")
    visit.shoot("start")
    seen = []
    for name in visit.browser.texts("nav a"):
        visit.go("/")
        visit.browser.follow(name)
        visit.look()
        seen.extend(visit.browser.texts("h1"))
    expect("headings", seen[1:],
           ["Arguments of a link", "A form", "A loop", "Catalogue"])


@case("the catalogue is searched, sorted and turned over")
def _(visit):
    visit.go("/shop/")
    visit.shoot("catalogue")
    first = visit.names()
    expect("first page", first,
           ["Basket", "Blanket", "Bread board", "Candle", "Desk lamp", "Kite"])
    visit.browser.follow("Next")
    second = visit.names()
    visit.browser.follow("Next")
    expect("third page", visit.names(), ["Wall clock", "Watering can"])
    expect("further pages", "Next" in visit.browser.texts(".pages a"), False)
    visit.browser.follow("Previous")
    expect("second page again", visit.names(), second)
    visit.browser.click("option[value=dear]")
    visit.browser.press(".search button")
    expect("the dearest", visit.names()[:3], ["Blanket", "Stool", "Desk lamp"])
    prices = [float(price) for price in visit.browser.texts(".card .price")]
    visit.browser.follow("Next")
    prices += [float(price) for price in visit.browser.texts(".card .price")]
    expect("prices", prices, sorted(prices, reverse=True))
    visit.browser.click("option[value=price]")
    visit.browser.press(".search button")
    expect("the cheapest", visit.names()[:3], ["Candle", "Notebook", "Mug"])
    # A word of a description, in other letter case.
    visit.browser.type("#q", "WOOL")
    visit.browser.press(".search button")
    expect("found", visit.names(), ["Scarf"])
    expect("search", visit.browser.value("#q"), "WOOL")
    visit.browser.type("#q", "\"><b>'&")
    visit.browser.press(".search button")
    visit.shoot("nothing-found")
    expect("found", visit.names(), [])
    expect("search", visit.browser.value("#q"), "\"><b>'&")
    for query in ("page=99", "page=-1&sort=x", "page=x&q=%25%C3%A9", "sort=deleted&sort=name"):
        visit.go("/shop/?" + query)


@case("a product is ordered once, however often the form arrives")
def _(visit):
    visit.go("/shop/?q=lamp")
    visit.browser.press(".card a")
    visit.shoot("product")
    expect_in("product", visit.browser.texts("main")[0], "5 in stock")
    visit.browser.type("#quantity", "2")
    visit.browser.type("#customer", "Ada <Byron>")
    visit.browser.type("#address", "1 Mill Lane\nOckham & Co")
    visit.browser.press("form button")
    visit.shoot("ordered")
    expect_in("answer", visit.browser.texts(".answer")[0],
              "Thank you, Ada <Byron>. 2 × Desk lamp for 96.00 will be sent to:")
    expect("address", visit.browser.texts(".address"), ["1 Mill Lane\nOckham & Co"])
    visit.browser.leave(lambda: visit.browser.run("history.back()"))
    visit.browser.press("form button")
    expect_in("answer", visit.browser.texts(".answer")[0], "We have this order already")
    visit.go("/shop/product.vx?id=3")
    expect_in("product", visit.browser.texts("main")[0], "3 in stock")
    visit.browser.type("#quantity", "4")
    visit.browser.type("#customer", "Bert")
    visit.browser.type("#address", "Graz")
    visit.browser.press("form button")
    expect_in("answer", visit.browser.texts(".answer")[0], "Only 3 are left.")
    visit.go(f"/shop/order.vx?token={1:032d}&id=3&quantity=1&customer=c&address=a")
    expect_in("answer to a link", visit.browser.texts(".answer")[0], "Please order from")
    visit.go("/shop/admin/orders.vx")
    visit.shoot("orders")
    expect("orders", len(visit.browser.texts("table tr")), 2)
    expect("customer", visit.browser.texts("td.address"),
           ["Ada <Byron>\n1 Mill Lane\nOckham & Co"])
    visit.check_tables()


@case("the administration adds, changes and deletes a product")
def _(visit):
    name = "Tea & \"cakes\" <script>document.title = 'x'</script>"
    visit.go("/shop/admin/")
    visit.shoot("administration")
    visit.browser.follow("New product")
    visit.browser.type("#name", name)
    visit.browser.type("#price", "a lot")
    visit.browser.type("#stock", "3")
    visit.browser.type("#about", "first line\n\n</textarea>second")
    visit.browser.press("form button")
    visit.shoot("refused")
    expect_in("answer", visit.browser.texts(".answer")[1], "Nothing has been saved.")
    expect("name", visit.browser.value("#name"), name)
    visit.browser.type("#price", "7.5")
    visit.browser.press("form button")
    expect("answer", visit.browser.texts(".answer")[1], "Saved.")
    expect("price", visit.browser.value("#price"), "7.50")
    # Browsers send line ends as CR LF and show either kind as LF.
    expect("description", visit.browser.value("#about"), "first line\n\n</textarea>second")
    visit.browser.type("#name", name + " 2")
    visit.browser.press("form[action$='edit.vx'] button")
    visit.go("/shop/?q=CAKES")
    visit.shoot("added")
    expect("found", visit.names(), [name + " 2"])
    expect("title", visit.browser.run("return document.title"), "Catalogue - The Corner Shop")
    visit.go("/shop/?q=cakes&page=1")
    visit.browser.press(".card a")
    expect("description", visit.browser.texts(".about"), ["first line\n\n</textarea>second"])
    visit.go("/shop/admin/")
    visit.browser.press("a[href='/shop/admin/delete.vx?id=15']")
    visit.shoot("delete")
    visit.browser.press("form button")
    visit.look()
    expect("answer", visit.browser.texts(".answer")[1], f"{name} 2 has been deleted.")
    visit.go("/shop/?q=cakes")
    expect("found", visit.names(), [])
    # The number of a deleted product is not given to another one.
    visit.go("/shop/admin/edit.vx")
    visit.browser.type("#name", "Vase")
    visit.browser.press("form button")
    expect("number", visit.browser.value("[name=id]"), "16")
    visit.check_tables()


@case("a picture is uploaded, shown and replaced; what is none is refused")
def _(visit):
    pictures = visit.server.data / "pictures"
    files = visit.server.directory
    (files / "mine.png").write_bytes(png(400, 300, (40, 120, 90)))
    (files / "page.png").write_text("<script>alert(1)</script>")
    (files / "page.html").write_bytes(png(4, 3, (1, 2, 3)))
    (files / "large.png").write_bytes(png(4, 3, (1, 2, 3)) + bytes(2000000))
    visit.go("/shop/admin/edit.vx?id=5")
    visit.browser.type("#file", files / "mine.png")
    visit.browser.press("form[enctype] button")
    visit.shoot("picture")
    expect_in("answer", visit.browser.texts(".answer")[1], "This is the picture of Wall clock now.")
    visit.go("/shop/?q=clock")
    source = visit.browser.run("return document.images[0].src")
    if not re.search(r"/pictures/[0-9A-F]{32}\.png$", source):
        raise Failure(f"the picture is {source!r}")
    path = source.partition(str(visit.server.port))[2]
    status, headers, body = visit.server.curl(path)
    expect("status", status, 200)
    expect("picture", body.encode("latin-1"), (files / "mine.png").read_bytes())
    expect_in("headers", "\n".join(headers).lower(), "content-type: image/png")
    expect_in("headers", "\n".join(headers).lower(), "x-content-type-options: nosniff")
    expect("former picture", (pictures / "clock.png").exists(), False)

    count = len(list(pictures.iterdir()))
    for name, answer in (("page.png", "neither"), ("page.html", "neither"), ("large.png", "larger"),
                         (None, "No file was chosen.")):
        visit.go("/shop/admin/edit.vx?id=5")
        if name is not None:
            visit.browser.type("#file", files / name)
        visit.browser.press("form[enctype] button")
        visit.look()
        expect_in(f"answer to {name}", visit.browser.texts(".answer")[1], answer)
        expect("pictures", len(list(pictures.iterdir())), count)
    expect("files left over", os.listdir(files / "tmp"), [])
    visit.go("/shop/admin/delete.vx?id=5")
    visit.browser.press("form button")
    expect("pictures", len(list(pictures.iterdir())), count - 1)


@case("nothing of the data directory but pictures is delivered")
def _(visit):
    visit.server.page("/shop/")
    (visit.server.data / "pictures/note.txt").write_text("secret")
    expect("a picture", visit.server.curl("/pictures/mug.png")[0], 200)
    for path in ("/pictures/note.txt", "/pictures/../shop/products.dbf", "/shop/products.dbf",
                 "/pictures/..%2fshop/products.dbf", "/data/shop/products.dbf", "/vexa.conf"):
        status, _, body = visit.server.curl(path, "--path-as-is")
        if status == 200 or "secret" in body or "Teapot" in body:
            raise Failure(f"{path} was delivered with status {status}")
    for path in ("/shop/index.vx", "/shop/index%2evx", "/shop/parts/setup.vx"):
        body = visit.server.curl(path)[2]
        if "VxDO" in body or "VxOPEN" in body:
            raise Failure(f"{path} delivered the text of the script")


@case("many first visitors find one shop, and many orders do not oversell")
def _(visit):
    with concurrent.futures.ThreadPoolExecutor(12) as pool:
        pages = list(pool.map(lambda n: visit.server.page(f"/shop/?x={n}"), range(24)))
        expect("products shown", [page.count('class="card"') for page in pages], [6] * 24)
        visit.check_tables()
        answers = list(pool.map(lambda n: visit.server.page(
            "/shop/order.vx", "--data", f"token={n:032d}&id=4&quantity=1&customer=c&address=a"),
            range(12)))
    expect("orders taken", sum("Thank you" in answer for answer in answers), 3)
    expect("orders refused", sum("Only 0 are left" in answer for answer in answers), 9)
    visit.check_tables()


def prepare_upload(visit):
    visit.server.write("upload.vx", UPLOAD_PAGE)
    file = visit.server.directory / "large"
    file.write_bytes(os.urandom(UPLOAD_BYTES))
    return file


def expect_arrival(visit, file):
    arrived = visit.server.data / "arrived"
    expect("size", arrived.stat().st_size, UPLOAD_BYTES)
    expect("same bytes", filecmp.cmp(file, arrived, shallow=False), True)
    expect("files left over", os.listdir(visit.server.directory / "tmp"), [])
    file.unlink()


@case("a file of 50 MB arrives byte for byte from curl")
def _(visit):
    file = prepare_upload(visit)
    body = visit.server.page("/upload.vx", "--form", f"file=@{file}")
    expect_in("page", body, f"<p>COMPLETE {UPLOAD_BYTES}</p>")
    expect_arrival(visit, file)


@case("a file of 50 MB arrives byte for byte from the browser")
def _(visit):
    visit.browser.go("about:blank")
    file = prepare_upload(visit)
    visit.browser.go(visit.server.url("/upload.vx"))
    visit.browser.type("[type=file]", file)
    visit.browser.press("button")
    expect("told", visit.browser.texts("p"), [f"COMPLETE {UPLOAD_BYTES}"])
    expect_arrival(visit, file)


if __name__ == "__main__":
    sys.exit(suite.main(world))
