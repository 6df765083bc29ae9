#!/usr/bin/env python3
"""Packages and commerce libraries, built here from C: what they may ask, what is refused, how pages
end when one misbehaves, whose files are loaded, and archives of every kind."""

import io
import os
import pathlib
import shutil
import signal
import stat
import subprocess
import sys
import tarfile
import tempfile

from harness import ROOT, ProgramSite, Skip, Suite, expect, expect_in

suite = Suite("packages")
EXAMPLES = ROOT / "examples/packages"
BUILT = {}


def built(directory, name, *macros, source=ROOT / "tests/tools/probe_package.c"):
    """The library made of `source`, in `directory`."""
    key = (source, macros)
    if key not in BUILT:
        where = pathlib.Path(tempfile.mkdtemp(prefix="vexa-built-")) / "x.so"
        subprocess.run(["cc", "-std=gnu11", "-O1", "-Wall", "-fPIC", "-shared", f"-I{ROOT}/include", *macros,
                        "-o", where, source, "-lpthread"], check=True)
        BUILT[key] = where
    directory.mkdir(exist_ok=True)
    os.chmod(directory, 0o755)
    shutil.copy(BUILT[key], directory / f"{name}.so")


class Site(ProgramSite):
    """A site with the package `probe` and others of that directory."""

    def __init__(self, *codes, config="", **macros):
        codes = codes or ("probe",)
        tags = "".join(f'<PACKAGE CODE="{code}" NAME="n{code}" DESCRIPTION="d" VERSION="1" '
                       f'PATH="{{DIR}}/lib/{code}" DEFAULTPATH="shop">\n' for code in codes)
        super().__init__(suite.build, f"packages={','.join(codes)}\nlogfile={{DIR}}/log\nloglevel=4\n"
                         f"commercedir={{DIR}}/lib\n{config}\n{tags}")
        self.lib = self.directory / "lib"
        self.lib.mkdir()
        os.chmod(self.directory, 0o755)
        if "probe" in codes:
            built(self.lib, "probe", *macros.get("macros", ()))

    def shows(self, page):
        """The body of a page and the exit status, whatever becomes of it."""
        self.write("p.vx", page)
        process = self.start("p.vx")
        output, self.errors = process.communicate(timeout=60)
        return output.partition(b"\r\n\r\n")[2].decode("latin-1"), process.returncode

    def check(self, cases):
        for page, wanted in cases.items():
            expect(page, self.shows(page)[0].replace("\r\n", "").replace("\n", ""), wanted)


def ev(expression):
    return f'<VxEVAL EXPR="{expression}">'


@suite.case("calls, refusals, variables and nested calls")
def _():
    with Site(config="maxfunctiondepth=20") as site:
        site.check({
            ev("echo('a b')") + ev("ECHO('')") + ev("len(wide()) $ wide()"): "a b4a\0\xe4<",
            ev("probe_state") + ev("echo(probe_state)") + "<VxLET probe_state='x'>" + ev("s.probe_state"): "readyx",
            "<VxLET g=1>" + ev("get('g')") + ev("get('nothing') $ get('l.x')"): "1",
            ev("set('g', 'v') $ g") + ev("set('s.time_t', 'x')"): "v",
            ev("put('<i>')") + "|": "<i>&lt;i&gt;|",
            "<VxLET b='2'><VxLET a='1'><VxLET stop='s'><VxLET z=1>" + ev("each(1)") + ev("b"):
                "A=1 B=2 STOP=s5seen",
            ev("each(7)"): "-1",
            ev("path(0, 'x')") + ev("path(0, '../x')"):
                f"{site.data}/x'../x' is not contained in the configured data directory",
            ev("late()") + ev("keep() $ stale('x')") + ev("thread('')"):
                "functions are added by init onlyrefusedrefused",
            '<VxFUNCTION NAME="back" PARAMETERS="n"><VxFUNCRETURN VALUE="[" $ eval(n) $ "]"></VxFUNCTION>'
            + ev("eval('back(&quot;echo(7)&quot;)')"): "[7]",
            ev("eval('1 +')") + "never": "p.vx: Line 1: Expression Error: Unexpected end of expression",
            '<VxFUNCTION NAME="end"><VxEXIT></VxFUNCTION>a' + ev("eval('end()')") + "never": "a",
            ev("silent()"): "p.vx: Line 1: Expression Error: Function 'silent' failed: no reason given",
            ev("loud()"): "p.vx: Line 1: Expression Error: Function 'loud' failed: &lt;b&gt;no&lt;/b&gt;",
            ev("echo()"): "p.vx: Line 1: Expression Error: Call to function 'echo' expects 1 parameter, found 0",
            ev("other(1)"): "p.vx: Line 1: Expression Error: Call to undefined function 'other'",
            '<VxFUNCTION NAME="r"><VxFUNCRETURN VALUE=eval("r()")></VxFUNCTION>' + ev("r()"):
                "p.vx: Line 1: Runtime Error: The maximum number of nested function calls (20) has been exceeded",
            '<VxCREATE NAME="t" DATABASE="t" FIELDS="a CHAR(9)"><VxADD>' + ev("echo(1)")
            + '<VxMAKEINDEX INDEXFILE="i" EXPR="echo(a)">':
                "1p.vx: Line 1: Expression Error: Call to undefined function 'echo'",
            # The script's own function comes first, wherever it stands.
            ev("echo(1)") + '<VxFUNCTION NAME="echo" PARAMETERS="x"><VxFUNCRETURN VALUE="own"></VxFUNCTION>': "own",
        })
        big = "<VxLET x='" + "y" * 1000000 + "'>" + ev("len(echo(x))")
        expect("a large text", site.shows(big), ("1000000", 1))
        log = (site.directory / "log").read_text()
        expect_in("log", log, f"PACKAGELOADED\tcode=probe file={site.lib}/probe.so")
        expect_in("log", log, "PACKAGE\tprobe: ready")
        expect_in("log", log, "PACKAGE\tprobe: no page")


@suite.case("a library that cannot be used is told with its reason, each time in the same words")
def _():
    def unusable(reason, *macros, prepare=None, config=""):
        with Site("first", "probe", macros=macros, config=config) as site:
            (site.lib / "first.tar").write_bytes(b"")  # an archive alone is passed over
            if prepare is not None:
                prepare(site)
            wanted = f"p.vx: Line 1: Expression Error: Unable to load package 'probe': {reason}"
            expect(reason, site.shows(ev("echo(1)"))[0].strip(), wanted)

    unusable("it is the package '&lt;x&gt;'", "-DCODE=\"<x>\"")
    unusable("it needs interface version 2, this program offers 1", "-DABI=2")
    unusable("it is not a package", "-DABI=0")
    unusable("its initialisation failed", "-DINIT=1")
    unusable("out of &lt;paper&gt;", "-DINIT=2")
    unusable("it does not exist", prepare=lambda site: os.remove(site.lib / "probe.so"))
    unusable("it is not a plain file",
             prepare=lambda site: (os.remove(site.lib / "probe.so"), os.mkdir(site.lib / "probe.so")))
    unusable("it or a directory above it may be changed by other users",
             prepare=lambda site: os.chmod(site.lib, 0o777))
    unusable("it or a directory above it may be changed by other users",
             prepare=lambda site: os.chmod(site.lib / "probe.so", 0o664))

    def moved(site):
        shutil.move(site.lib / "probe.so", site.data / "x.so")
        os.symlink(site.data / "x.so", site.lib / "probe.so")
    unusable("it lies in the data directory", prepare=moved)
    unusable("the system cannot load it: file too short",
             prepare=lambda site: (site.lib / "probe.so").write_bytes(b""))
    unusable("its path is not absolute", prepare=lambda site: (site.directory / "vexa.conf").write_text(
        (site.directory / "vexa.conf").read_text().replace(
            f'PATH="{site.lib}/probe', 'PATH="lib/probe')))
    if os.geteuid() == 0:
        unusable("it or a directory above it belongs to an untrusted user",
                 prepare=lambda site: os.chown(site.lib, 65534, 65534))
    # While init runs its package has no functions; what it evaluates may end the page.
    with Site(macros=("-DINIT=3",)) as site:
        site.check({'<VxFUNCTION NAME="back"><VxFUNCRETURN VALUE=echo(1)></VxFUNCTION>a' + ev("echo(2)"):
                    "ap.vx: Line 1: Expression Error: Call to undefined function 'echo'"})


@suite.case("a crash, an exit and an endless call end the page complete, and tell who it was")
def _():
    crashes = {"s": signal.SIGSEGV, "a": signal.SIGABRT, "e": signal.SIGABRT, "d": signal.SIGSEGV,
               "w": signal.SIGSEGV, "t": signal.SIGSEGV, "8": signal.SIGFPE, "4": signal.SIGILL,
               "5": signal.SIGTRAP, "7": signal.SIGBUS}
    with Site(config="globaltimeout=1") as site:
        opened = '<VxCREATE NAME="t" DATABASE="t" FIELDS="a CHAR(9)"><VxLOCKFILE FILE="l">before '
        for how, number in crashes.items():
            text, status = site.shows(opened.replace('DATABASE="t"', f'DATABASE="t{how}"') + ev(f"crash('{how}')"))
            expect(how, (text, status), ("before Fatal Error: Package 'probe' has crashed\r\n", -number))
            expect_in(how, site.errors.decode(), f"vexa: signal {int(number)} in {site.lib}/probe.so, function crash")
            expect("the table afterwards", site.shows(
                f'<VxOPEN NAME="t" DATABASE="t{how}"><VxLET a="x"><VxADD>' + ev("a"))[0], "x")
        expect("a thread", site.shows("b " + ev("thread('x')")),
               ("b Fatal Error: Package 'probe' has crashed\r\n", -signal.SIGSEGV))
        expect("endless", site.shows("b " + ev("crash('l')")), ("b Application timed out\r\n", 1))
    for macro in ("-DCONSTRUCTOR", "-DCODE=(const char*)16"):
        with Site(macros=(macro,)) as site:
            expect(macro, site.shows("b " + ev("echo(1)")),
                   ("b Fatal Error: Package 'probe' has crashed\r\n", -signal.SIGSEGV))
    with Site(config='<COMMERCE-LIB METHOD="x" LIBRARY="probe.so">') as site:
        site.check({"a" + ev("crash('f')") + "b": "ab",
                    "<VxCOMMERCE></VxCOMMERCE>never": "p.vx: Line 1: Expression Error: Unexpected end of expression"})
        expect("a bad text", site.shows("b <VxCOMMERCE ACTION='fail'></VxCOMMERCE>"),
               ("b Fatal Error: Commerce method 'x' has crashed\r\n", -signal.SIGSEGV))
        site.write("p.vx", "b " + ev("crash('s')"))
        process = site.start("p.vx")
        process.stdout.close()
        expect("nobody reads", process.wait(timeout=30), -signal.SIGSEGV)


@suite.case("the example packages, as their Makefiles build them, from C99, C11 and C++20")
def _():
    strict = ["-Wall", "-Wextra", "-Wpedantic", "-Wconversion", "-Wshadow", "-Werror", f"-I{ROOT}/include",
              "-fsyntax-only"]
    header = "#include <vexa/package.h>\n" \
             "static int init(vexa_context *c) { return vexa_log(c, vexa_string(\"x\")); }\n" \
             "VEXA_PACKAGE(\"x\", \"1\", init, 0)\nVEXA_COMMERCE\n"
    for language in (["c", "-std=c99"], ["c", "-std=c11"], ["c++", "-std=c++20"]):
        subprocess.run(["c++" if language[0] == "c++" else "cc", "-x", *language, *strict, "-"], check=True,
                       input=header.encode())
    commerce = '<COMMERCE-LIB METHOD="test" LIBRARY="testpay.so">\n<COMMERCE-LIB METHOD="bad" LIBRARY="words.so">'
    with Site("words", config=commerce) as site, tempfile.TemporaryDirectory() as copy:
        for name in ("words", "testpay"):
            shutil.copytree(EXAMPLES / name, pathlib.Path(copy) / name)
            subprocess.run(["make", "-s", "-C", pathlib.Path(copy) / name, f"VEXA_INCLUDE={ROOT}/include"], check=True)
        for path in pathlib.Path(copy).glob("*/*.[st][oa]*"):
            shutil.copy(path, site.lib)
        site.check({ev("title('a text')") + ev("countwords(' a b')") + ev("shorten('one two', 5)"): "A Text2one",
                    ev("vexa_package_extract('words', 'w', '')"):
                        (EXAMPLES / "words/archive/LICENSE").read_text().strip(),
                    ev("vexa_package_extract('words', '', 'yes')"): "1"})
        expect_in("the page", site.page("shop/index.vx"), "Words Of A Package")
        expect("modes", [stat.S_IMODE(os.stat(path).st_mode) for path in
                         (site.site / "shop", site.site / "shop/index.vx", site.data / "shop",
                          site.data / "shop/proverbs.dbf")],
               [0o755, 0o644, 0o700, 0o600])
        pay = "<VxCOMMERCE METHOD='TEST' ACTION='authorize' FIELDS='amount, , card'>"
        error = "p.vx: Line 1: Runtime Error: Error in commerce method 'test': "
        site.check({
            f"<VxLET card='12'>{pay}&[payment] </VxCOMMERCE>.": "asked accepted .",
            f"<VxLET card='13'>{pay}&[payment] {pay}&[payment]-</VxCOMMERCE></VxCOMMERCE>":
                "asked asked-refused-refused asked-refused-",
            f"<VxLET card='12'>{pay}a<VxCOMMERCESTOP>b</VxCOMMERCE>c{pay}<VxEXIT></VxCOMMERCE>d": "ac",
            f"{pay}x</VxCOMMERCE>": error + "the field card is missing",
            f'<VEXA VxCOMMERCE_ERROR="nonfatal, nodisplay">{pay}x</VxCOMMERCE>&[VxCOMMERCE_Error]':
                "Error in commerce method 'test': the field card is missing",
            "<VxCOMMERCE>x</VxCOMMERCE>": error + "the only action is authorize",
            "<VxCOMMERCE METHOD='<x>'>x</VxCOMMERCE>":
                "p.vx: Line 1: Runtime Error: There is no commerce method '&lt;x&gt;'",
            "<VxCOMMERCE METHOD='bad'>x</VxCOMMERCE>": 
                "p.vx: Line 1: Runtime Error: Unable to load commerce method 'bad': it is not a commerce library",
        })
        # One cleanup for each init, however the block was left.
        expect("cleanups", (site.directory / "log").read_text().count("PACKAGE\ttest: order closed"), 9)
        checked = subprocess.run([site.program, "--check-package", "lib/words"], cwd=site.directory,
                                 capture_output=True)
        expect("--check-package", (checked.returncode, checked.stdout.decode().count("\n")), (0, 11))
    with Site() as site:
        site.check({"<VxCOMMERCE>x</VxCOMMERCE>": "p.vx: Line 1: Runtime Error: No commerce method is configured"})


def member(name, kind=tarfile.REGTYPE, size=3, link=""):
    info = tarfile.TarInfo(name)
    info.type, info.linkname, info.size = kind, link, size if kind == tarfile.REGTYPE else 0
    return info


def archive(*members, fmt=tarfile.GNU_FORMAT):
    out = io.BytesIO()
    with tarfile.open(fileobj=out, mode="w", format=fmt) as tar:
        for info in members:
            tar.addfile(info, io.BytesIO(b"\0" * info.size))
    return out.getvalue()


def everything(site):
    return sorted(str(path) for root in (site.site, site.data) for path in root.rglob("*"))


@suite.case("archives: what is refused leaves nothing, and nothing is ever overwritten")
def _():
    good = archive(member("pages/a.vx"), member("data/d/e"), member("LICENSE"))
    cases = {
        "it is not a tar archive": [b"", b"x" * 2000, b"\x1f\x8b" + good],
        "it is damaged": [good[:length] for length in range(512, len(good), 512) if length < 6 * 512]
                         + [good[:600], good[:1030] + b"x" + good[1031:]],
        "'pages/../x' has a name that is not allowed": [archive(member("pages/../x"))],
        "'/etc/x' has a name that is not allowed": [archive(member("/etc/x"))],
        "'pages//x' has a name that is not allowed": [archive(member("pages//x"))],
        "'pages/a?b' has a name that is not allowed": [archive(member("pages/a\nb"))],
        "'pages/a\\b' has a name that is not allowed": [archive(member("pages/a\\b"))],
        "'pages/l' is neither a file nor a directory": [
            archive(member("pages/l", kind, link="/etc/passwd"))
            for kind in (tarfile.SYMTYPE, tarfile.LNKTYPE, tarfile.CHRTYPE, tarfile.FIFOTYPE)],
        "'other' lies neither in pages/ nor in data/": [
            archive(member("other")), archive(member("pages/a.vx"), member("other"))],
        "'pages/a' appears twice": [archive(member("pages/a"), member("./pages/a"))],
        "'pages/a' is too large": [archive(member("pages/a", size=0)).replace(b"00000000000\0", b"00400000001\0", 1)],
        "it has more than 10000 members": [archive(*(member(f"data/{n}", size=0) for n in range(10001)))],
        "'shop/taken.vx' exists": [archive(member("data/x"), member("pages/taken.vx"))],
        "'shop/up' exists": [archive(member("pages/x"), member("pages/up"))],
    }

    def fixed(data):
        """With the checksums of changed headers made right again."""
        block = bytearray(data[:512])
        block[148:156] = b" " * 8
        block[148:156] = b"%06o\0 " % sum(block)
        return bytes(block) + data[512:]

    with Site() as site:
        (site.site / "shop").mkdir()
        (site.site / "shop/taken.vx").write_text("mine")
        os.symlink("/nowhere", site.site / "shop/up")
        site.write("p.vx", "")
        before = everything(site)
        page = ev("vexa_package_extract('probe', 'shop', 1)")
        for reason, archives in cases.items():
            for data in archives:
                (site.lib / "probe.tar").write_bytes(fixed(data) if "large" in reason else data)
                text = site.shows(page)[0]
                if "exists" in reason and "up" in reason:
                    expect_in(reason, text, "shop/up' ")  # the sandbox may refuse the link first
                else:
                    expect(reason, text, "p.vx: Line 1: Runtime Error: Error extracting 'probe' in "
                           f"vexa_package_extract: {reason}\r\n0")
                expect(f"left after {reason}", everything(site), before)
        expect("untouched", (site.site / "shop/taken.vx").read_text(), "mine")
        for directory, reason in {"../x": "'../x' has a name that is not allowed", "a/": None}.items():
            (site.lib / "probe.tar").write_bytes(good)
            text = site.shows(ev(f"vexa_package_extract('probe', '{directory}', 1)"))[0]
            expect(directory, text == "1" if reason is None else reason in text, True)
        names = ["pages/\udce4.vx", "pages/\u20ac.vx"]
        for fmt in (tarfile.USTAR_FORMAT, tarfile.GNU_FORMAT, tarfile.PAX_FORMAT):
            (site.lib / "probe.tar").write_bytes(archive(*(member(name) for name in names), fmt=fmt))
            expect("format", site.shows(ev(f"vexa_package_extract('probe', 'f{fmt}', 1)"))[0], "1")
            expect("names", sorted(os.listdir(os.fsencode(site.site / f"f{fmt}"))), [b"\xe2\x82\xac.vx", b"\xe4.vx"])
        (site.lib / "s").write_bytes(b"")
        os.truncate(site.lib / "s", 1 << 40)
        subprocess.run(["tar", "-C", site.lib, "-S", "--transform=s,^,data/,", "-cf", site.lib / "probe.tar", "s"],
                       check=True)
        expect_in("sparse", site.shows(page)[0], "'data/s' is neither a file nor a directory")


if __name__ == "__main__":
    sys.exit(suite.main())
