#!/usr/bin/env python3
"""The shop of the example site as its visitors meet it: in a real browser, behind lighttpd and behind Apache httpd.
Every case is run with each server. Pictures of what the browser showed are left in BUILD/screenshots.

Without Chromium or Apache httpd the cases that need them are skipped, and say so."""

import concurrent.futures
import contextlib
import os
import re
import shutil
import subprocess
import sys
import tempfile

from harness import ROOT, ApacheServer, Failure, Skip, Suite, WebServer, expect, expect_in

sys.path.append("/usr/lib/python3/dist-packages")  # Debian's packages, for a python3 that is not Debian's.
try:
    from selenium import common, webdriver
    from selenium.webdriver.support import expected_conditions, ui
except ImportError:
    webdriver = None

suite = Suite("browser")
SERVERS = [WebServer, ApacheServer]
OPTIONS = ("headless no-sandbox disable-gpu disable-quic no-first-run disable-background-networking hide-scrollbars "
           "disable-component-update disable-sync disable-dev-shm-usage window-size=1100,800").split()
SETTINGS = "sitekey={DIR}/sitekey\nsendstatus=on"
SECONDS = 120  # A busy machine may take this long for a page.
UPLOAD_BYTES = 50 * 1000 * 1000

# Takes one file of any size, keeps it as data/arrived, and says what it was told.
UPLOAD_PAGE = """<VxFUNCTION NAME="Vexa_ValidateFileUpload" PARAMETERS="field, name, type"></VxFUNCTION>
<VxFUNCTION NAME="Vexa_ProcessFileUpload" PARAMETERS="field, name, type, path, size, status">
<VxLET moved=frename(path, 'arrived')><VxASSIGN NAME="told" VALUE=status $ ' ' $ size></VxFUNCTION>
<!DOCTYPE html><title>Upload</title><p>&[told:entities]</p><form method="post" enctype="multipart/form-data">
<input type="file" id="file" name="file"><button>Send</button></form><footer></footer>"""


@contextlib.contextmanager
def world(build):
    """What all cases share: the build, the running servers by name, the browser if there is one."""
    with contextlib.ExitStack() as stack:
        servers = {kind.NAME: stack.enter_context(kind(build, SETTINGS)) for kind in SERVERS
                   if shutil.which(kind.command()[0])}
        driver = None
        if webdriver and shutil.which("chromium") and shutil.which("chromedriver"):
            home = stack.enter_context(tempfile.TemporaryDirectory(ignore_cleanup_errors=True))
            options = webdriver.ChromeOptions()
            options.binary_location = shutil.which("chromium")
            options.arguments.extend(f"--{option}" for option in [*OPTIONS, f"user-data-dir={home}/data"])
            driver = stack.enter_context(webdriver.Chrome(options=options, service=webdriver.chrome.service.Service(
                shutil.which("chromedriver"), env={**os.environ, "HOME": home})))
        yield build, servers, driver


class Visit:
    """A visitor at one server: what a case gets. Begins with an empty data directory. Every page that is reached is
    looked at, and kept as a picture where it is given a name. Elements are named by CSS selectors."""

    def __init__(self, shared, name):
        build, servers, self._driver = shared
        if name not in servers:
            raise Skip(f"{name} is not installed")
        self.server, self.pictures = servers[name], build / "screenshots"
        shutil.copytree(ROOT / "examples/site", self.server.site, dirs_exist_ok=True)
        for entry in self.server.data.iterdir():
            shutil.rmtree(entry) if entry.is_dir() else entry.unlink()

    @property
    def driver(self):
        if self._driver is None:
            raise Skip("chromium, chromium-driver and python3-selenium are not installed")
        return self._driver

    def wait(self, condition):
        try:
            ui.WebDriverWait(self.driver, SECONDS, 0.05, [common.exceptions.WebDriverException]).until(condition)
        except common.exceptions.TimeoutException:
            raise Failure(f"{self.driver.current_url} is not whole: {self.driver.page_source}") from None

    def element(self, selector):
        return self.driver.find_element("css selector", selector)

    def texts(self, selector):
        """The texts of all such elements, as a reader sees them."""
        return [found.text for found in self.driver.find_elements("css selector", selector)]

    def look(self, picture=None):
        """Fails when the page that the browser shows is not whole."""
        self.wait(lambda driver: "</footer>" in driver.page_source)
        source = self.driver.page_source
        if source.count("</footer>") != 1 or any(word in source for word in (" Error: ", "Vx", "&amp;[")):
            raise Failure(f"{self.driver.current_url} is not whole: {source}")
        broken = "return [...document.images].filter(image => !image.naturalWidth).map(image => image.src)"
        expect(f"broken pictures on {self.driver.current_url}", self.driver.execute_script(broken), [])
        if picture:
            height = "return document.documentElement.scrollHeight + window.outerHeight - window.innerHeight"
            self.driver.set_window_size(1100, min(self.driver.execute_script(height), 4000))
            self.pictures.mkdir(exist_ok=True)
            self.driver.save_screenshot(str(self.pictures / f"{self.server.NAME.lower()}-{picture}.png"))
            self.driver.set_window_size(1100, 800)
            narrow = {"width": 400, "height": 800, "deviceScaleFactor": 1, "mobile": False}
            self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", narrow)
            width = self.driver.execute_script("return document.documentElement.scrollWidth")
            self.driver.execute_cdp_cmd("Emulation.clearDeviceMetricsOverride", {})
            expect(f"width of {self.driver.current_url} in a window of 400", width, 400)

    def go(self, path, picture=None):
        self.driver.get(self.server.url(path))
        self.look(picture)

    def leave(self, action, picture=None):
        """Does what leads to another page, and returns when that page is there."""
        former = self.element("html")
        action()
        self.wait(expected_conditions.staleness_of(former))
        self.wait(lambda driver: driver.execute_script("return document.readyState") == "complete")
        self.look(picture)

    def follow(self, text, picture=None):
        self.leave(self.driver.find_element("link text", text).click, picture)

    def press(self, selector="form button", picture=None, **fields):
        """Clicks what leads to another page, first filling the fields with these ids; for a file field with the path
        of the file."""
        for name, text in fields.items():
            if self.element("#" + name).get_property("type") != "file":
                self.element("#" + name).clear()
            self.element("#" + name).send_keys(str(text))
        self.leave(self.element(selector).click, picture)

    def see(self, selector, text):
        """Expects a text in the last of the elements."""
        expect_in(f"{selector} on {self.driver.current_url}", self.texts(selector)[-1], text)

    def products(self, query=None):
        """The names of the products that the catalogue shows, for a query if there is one."""
        if query is not None:
            self.go("/shop/?q=" + query)
        return self.texts(".card .name")

    def log_in(self):
        self.go("/shop/admin/")
        expect("before the login", self.texts("h1"), ["Log in"])
        if self.driver.find_elements("css selector", "#code"):
            self.press(code="1234", password="correct horse")
            self.see(".answer", "This is not the code")
            code = (self.server.data / "shop/code").read_text()
            self.press("form button", "login", code=code, password="correct horse")
        else:
            self.press(password="correct horse")
        expect("after the login", self.texts("h1"), ["Administration"])

    def check_tables(self):
        """Fails when a table or an index of the shop is damaged."""
        for names in (["products.dbf", "by_id.vxx", "by_name.vxx", "by_price.vxx"], ["orders.dbf", "by_number.vxx"]):
            files = [self.server.data / "shop" / name for name in names]
            done = subprocess.run([self.server.program, "--check-table", *files], capture_output=True)
            expect(f"damage in {names[0]}", (done.returncode, done.stderr), (0, b""))


def case(name):
    def register(function):
        for kind in SERVERS:
            suite.case(f"{kind.NAME}: {name}")(lambda shared, server=kind.NAME: function(Visit(shared, server)))
        return function

    return register


@case("the start page leads to every example")
def _(visit):
    visit.go("/", "start")
    seen = []
    for name in visit.texts("nav a"):
        visit.go("/")
        visit.follow(name)
        seen += visit.texts("h1")
    expect("headings", seen[1:],
           ["Arguments of a link", "A form", "A loop", "A price list", "Write to us", "Catalogue"])


@case("the catalogue is searched, sorted and turned over")
def _(visit):
    visit.go("/shop/", "catalogue")
    expect("first page", visit.products(), ["Basket", "Blanket", "Bread board", "Candle", "Desk lamp", "Kite"])
    visit.follow("Next")
    second = visit.products()
    visit.follow("Next")
    expect("third page", visit.products(), ["Wall clock", "Watering can"])
    expect("further pages", "Next" in visit.texts(".pages a"), False)
    visit.follow("Previous")
    expect("second page again", visit.products(), second)
    for order, first in (("dear", ["Blanket", "Stool", "Desk lamp"]), ("price", ["Candle", "Notebook", "Mug"])):
        visit.element(f"option[value={order}]").click()
        visit.press(".search button")
        expect(f"products by {order}", visit.products()[:3], first)
        prices = visit.texts(".card .price")
        visit.follow("Next")
        prices = [float(price) for price in prices + visit.texts(".card .price")]
        expect(f"prices by {order}", prices, sorted(prices, reverse=order == "dear"))
    # A word of a description, in other letter case; and what would be markup.
    for words, names in (("WOOL", ["Scarf"]), ("\"><b>'&", [])):
        visit.press(".search button", f"found-{len(names)}", q=words)
        expect("found", (visit.products(), visit.element("#q").get_property("value")), (names, words))
    for query in ("page=99", "page=-1&sort=x", "page=x&q=%25%C3%A9", "sort=deleted&sort=name"):
        visit.go("/shop/?" + query)


@case("a product is ordered once, however often the form arrives")
def _(visit):
    visit.go("/shop/?q=lamp")
    visit.press(".card a", "product")
    expect("title", visit.driver.title, "Desk lamp - The Corner Shop")
    visit.see("main", "5 in stock")
    visit.press("form button", "ordered", quantity="2", customer="Ada <Byron>", address="1 Mill Lane\nOckham & Co")
    thanks = "Thank you, Ada <Byron>. 2 × Desk lamp for 96.00 will be sent to:"
    expect("answer", (visit.texts(".answer"), visit.texts(".address")), ([thanks], ["1 Mill Lane\nOckham & Co"]))
    visit.leave(visit.driver.back)
    visit.press(customer="Ada <Byron>", address="1 Mill Lane")
    expect("answer to the same form", visit.texts(".answer"), ["We have this order already.", thanks])
    visit.go("/shop/product.vx?id=3")
    visit.see("main", "3 in stock")
    visit.press("form button", "refused-order", quantity="4", customer="Bert \"B\"", address="Graz\n\n</textarea>")
    visit.see(".answer", "Only 3 are left.")
    expect("typed", [visit.element(field).get_property("value") for field in ("#quantity", "#customer", "#address")],
           ["4", "Bert \"B\"", "Graz\n\n</textarea>"])
    visit.go("/shop/product.vx?id=99", "no-product")
    visit.see(".answer", "There is no such product")
    visit.go("/shop/nothing.vx", "not-found")
    expect("not found", (visit.texts("h1"), visit.server.curl("/shop/nothing.vx")[0],
                         visit.server.curl("/shop/product.vx?id=99")[0]), (["Not found"], 404, 404))
    visit.log_in()
    visit.follow("Orders", "orders")
    expect("orders", visit.texts("td.address"), ["Ada <Byron>\n1 Mill Lane\nOckham & Co"])
    visit.check_tables()


@case("what changes something takes the shop's own form and the administrator")
def _(visit):
    visit.log_in()
    cookie = f"vexasession={visit.driver.get_cookie('vexasession')['value']}"
    token = re.search(r'name="token" value="([^"]+)', visit.server.page("/shop/admin/", "--cookie", cookie))[1]
    mine = ["--cookie", cookie]
    for sent, options, status in (
            (token, [], 303), (token, ["--cookie", "vexasession=" + "0" * 32], 303), (token[::-1], mine, 200),
            (token, [*mine, "--header", "Sec-Fetch-Site: cross-site"], 200),
            (token, [*mine, "--header", "Origin: http://example.org"], 200)):
        answer = visit.server.curl("/shop/admin/delete.vx", *options, "--data", f"token={sent}&id=3")
        expect(f"{options}", (answer[0], "Do you want" in answer[2]), (status, status == 200))
    status, headers, _ = visit.server.curl("/shop/admin/orders.vx?file")
    expect("a second browser", (status, "/shop/admin/login.vx" in "".join(headers)), (303, True))
    file = visit.server.curl("/shop/admin/orders.vx?file", "--cookie", cookie)
    expect("the orders as a file", (file[0], file[2]), (200, "Time (UTC),Product,Quantity,Price,Customer,Address\n"))
    visit.press("form[action$='logout.vx'] button")
    expect("after the logout", (visit.texts("h1"), visit.server.curl("/shop/admin/", "--cookie", cookie)[0]),
           (["Log in"], 303))


@case("the administration adds, changes and deletes a product")
def _(visit):
    name, about = "Tea & \"cakes\" <script>document.title = 'x'</script>", "first line\n\n</textarea>second"
    visit.log_in()
    visit.look("administration")
    visit.follow("New product")
    visit.press("form button", "refused", name=name, price="a lot", stock="3", about=about)
    visit.see(".answer", "Nothing has been saved.")
    expect("name", visit.element("#name").get_property("value"), name)
    visit.press(price="7.5")
    expect("answer", visit.texts(".answer"), [f"{name} has been saved."])
    # Browsers send line ends as CR LF and show either kind as LF.
    for field, value in (("#price", "7.50"), ("#about", about)):
        expect(field, visit.element(field).get_property("value"), value)
    visit.press("form[action$='edit.vx'] button", name=name + " 2")
    expect("found", visit.products("CAKES"), [name + " 2"])
    visit.look("added")
    visit.press(".card a")
    expect("description", (visit.texts(".about"), visit.driver.title), ([about], f"{name} 2 - The Corner Shop"))
    visit.go("/shop/admin/")
    visit.press("a[href='/shop/admin/delete.vx?id=15']", "delete")
    visit.press()
    expect("answer", visit.texts(".answer"), [f"{name} 2 has been deleted."])
    expect("found", visit.products("cakes"), [])
    # The number of a deleted product is not given to another one.
    visit.go("/shop/admin/edit.vx")
    visit.press(name="Vase", price="1", stock="1")
    expect("number", visit.element("[name=id]").get_property("value"), "16")
    visit.check_tables()


@case("a picture is uploaded, shown and replaced; what is none is refused")
def _(visit):
    pictures, files = visit.server.data / "pictures", visit.server.directory
    png = (ROOT / "examples/site/shop/samples/mug.png").read_bytes()
    for name, data in (("page.png", b"<script>alert(1)</script>"), ("page.html", png), ("mine.png", png),
                       ("large.png", png + bytes(2000000))):
        (files / name).write_bytes(data)
    visit.log_in()
    visit.go("/shop/admin/edit.vx?id=5")
    visit.press("form[enctype] button", "picture", file=files / "mine.png")
    visit.see(".answer", "This is the picture of Wall clock now.")
    visit.go("/shop/?q=clock")
    source = visit.driver.execute_script("return document.images[0].src")
    expect("name of the picture", bool(re.search(r"file=[0-9]{30}\.png$", source)), True)
    status, headers, body = visit.server.curl(source.partition(str(visit.server.port))[2])
    expect("picture", (status, body.encode("latin-1") == png), (200, True))
    for header in ("content-type: image/png", "x-content-type-options: nosniff"):
        expect_in("headers", "\n".join(headers).lower(), header)
    expect("former picture", (pictures / "clock.png").exists(), False)
    count = len(list(pictures.iterdir()))
    for fields, answer in (({"file": files / "page.png"}, "neither"), ({"file": files / "page.html"}, "neither"),
                           ({"file": files / "large.png"}, "larger"), ({}, "No file was chosen.")):
        visit.go("/shop/admin/edit.vx?id=5")
        visit.press("form[enctype] button", **fields)
        visit.see(".answer", answer)
        expect("pictures", len(list(pictures.iterdir())), count)
    form = ["--form", "id=5", "--form", f"file=@{files}/mine.png;type=image/png"]
    expect("a stranger's upload", visit.server.curl("/shop/admin/picture.vx", *form)[0], 303)
    expect("files left over", (os.listdir(files / "tmp"), list(files.glob("data/shop/new-*"))), ([], []))
    visit.go("/shop/admin/delete.vx?id=5")
    visit.press()
    expect("pictures", len(list(pictures.iterdir())), count - 1)


@case("nothing of the data directory is delivered")
def _(visit):
    visit.server.page("/shop/")
    for path in ("/pictures/mug.png", "/../data/shop/products.dbf", "/shop/products.dbf", "/sitekey",
                 "/shop/..%2f..%2fdata/shop/products.dbf", "/data/shop/products.dbf", "/vexa.conf"):
        status, _, body = visit.server.curl(path, "--path-as-is")
        if status == 200 or "Teapot" in body:
            raise Failure(f"{path} was delivered with status {status}")
    for path in ("/shop/index.vx", "/shop/index%2evx", "/shop/parts/setup.vx", "/parts/header.vx"):
        expect(f"script text in {path}", re.findall("VxDO|VxOPEN", visit.server.curl(path)[2]), [])
    for part in visit.server.site.rglob("parts/*.vx"):
        path = f"/{part.relative_to(visit.server.site)}"
        expect(f"{path} asked for by itself", visit.server.curl(path)[2].strip(), "")


@case("many first visitors find one shop, and many orders do not oversell")
def _(visit):
    def cookies_of(number):
        jar = visit.server.directory / f"jar{number}"
        return ["--cookie", jar, "--cookie-jar", jar]

    def look(number):
        page = visit.server.page("/shop/product.vx?id=4", *cookies_of(number))
        return dict(re.findall('type="hidden" name="(\w+)" value="([^"]*)"', page))

    def order(number, form):
        cookies = cookies_of(number)
        form |= {"quantity": 1, "customer": 2, "address": 3}
        fields = "&".join(f"{name}={value}" for name, value in form.items())
        status, _, body = visit.server.curl("/shop/product.vx", *cookies, "--data", fields)
        return visit.server.page("/shop/ordered.vx", *cookies) if status == 303 else body

    with concurrent.futures.ThreadPoolExecutor(12) as pool:
        pages = list(pool.map(lambda n: visit.server.page(f"/shop/?x={n}"), range(24)))
        expect("products shown", [page.count('class="card"') for page in pages], [6] * 24)
        visit.check_tables()
        # All look before anybody orders: who comes when nothing is left finds no form.
        forms = list(pool.map(look, range(12)))
        answers = list(pool.map(order, range(12), forms))
    for answer, count in (("Thank you", 3), ("Only 0 are left", 9)):
        expect(f"answers {answer}", sum(answer in text for text in answers), count)
    visit.check_tables()


@case("a file of 50 MB arrives byte for byte from curl and from the browser")
def _(visit):
    visit.server.write("upload.vx", UPLOAD_PAGE)
    file, arrived = visit.server.directory / "large", visit.server.data / "arrived"
    for by_browser in (False, True):
        file.write_bytes(os.urandom(UPLOAD_BYTES))
        if by_browser:
            visit.go("/upload.vx")
            visit.press(file=file)
        page = visit.driver.page_source if by_browser else visit.server.page("/upload.vx", "--form", f"file=@{file}")
        expect_in("page", page, f"<p>COMPLETE {UPLOAD_BYTES}</p>")
        expect("same bytes", arrived.read_bytes() == file.read_bytes(), True)
        expect("files left over", os.listdir(visit.server.directory / "tmp"), [])
        arrived.unlink()


if __name__ == "__main__":
    sys.exit(suite.main(world))
