#!/usr/bin/env python3
"""The same page with and without what the program remembers of scripts (VEXA_NO_SITES): pages made
at random from all that repeats or changes how a script reads, compared in every byte and in the exit
status. VEXA_SAME_PAGES is how many are made (400 unless set), VEXA_SAME_SEED the first seed."""

import os
import random
import subprocess
import sys

from harness import ProgramSite, Suite, expect

suite = Suite("same page")
PAGES = int(os.environ.get("VEXA_SAME_PAGES", "400"))
FIRST = int(os.environ.get("VEXA_SAME_SEED", "1"))
NAMES = ["a", "b", "n", "i1", "i2", "i3", "s", "l.x", "g.b", "none"]
# What values hold: everything that matters to some scanner.
VALUES = ["1", "0", "7", "-3.5", "", "text", "two words", "x\\y", "a<b", "a>b", "<b>", "-->", "--",
          "&amp;", "it's", "%t%", "<VxEVAL EXPR=n>", "<VxELSE>", "</VxWHILE>", "##>", "&[n]",
          "</VxIF>", "1 VALUE=2", "n", "VxEVAL EXPR=", "line\nend"]
ENCODINGS = ["", "", ":none", ":entities", ":attribute"]


class Writer:
    """One random page. `depth` bounds nesting, `size` the number of pieces."""

    def __init__(self, seed):
        self.random = random.Random(seed)
        self.size = 60
        self.loops = 0
        self.functions = []

    def pick(self, *options):
        return self.random.choice(options)

    def name(self):
        return self.random.choice(NAMES)

    def constant(self):
        value = self.random.choice(VALUES)
        quote = "'" if "'" not in value else '"'
        return quote + value + quote

    def reference(self):
        return f"&[{self.name()}{self.random.choice(ENCODINGS)}]"

    def operand(self):
        kind = self.random.randrange(9)
        if kind < 3:
            return self.name()
        if kind == 3:
            return self.pick("1", "2", "0.5", "10")
        if kind == 4:
            return self.pick("len(s)", "toupper(a)", "substring(s, 2, 3)", "rnd(n, 2)")
        if kind == 5 and self.functions:
            name, parameters = self.random.choice(self.functions)
            return f"{name}({', '.join(self.operand() for _ in range(parameters))})"
        if kind == 6:
            return self.pick(f"a_{self.reference()}", f"'{self.reference()}'", f"1{self.reference()}")
        return self.constant()

    def expression(self):
        parts = [self.operand()]
        for _ in range(self.random.randrange(3)):
            parts += [self.pick("+", "-", "*", "$", "EQ", "LT", "AND", "$", "GT"), self.operand()]
        return " ".join(parts)

    def line_end(self):
        return self.pick("", "", "\n", "\r\n", " ", "\n\n")

    def block(self, depth):
        return "".join(self.piece(depth) + self.line_end()
                       for _ in range(self.random.randrange(1, 5)))

    def piece(self, depth):
        self.size -= 1
        if self.size < 0:
            return "."
        kinds = [self.text, self.text, self.tag, self.tag, self.foreign, self.macro, self.settings]
        if depth > 0:
            kinds += [self.loop, self.loop, self.branch, self.script, self.localized]
        return self.random.choice(kinds)(depth)

    def text(self, _):
        return self.pick("word", "a b  c", "100%", "%t%", "\\<b>", "x & y", "<!-- c -->", "<## c ##>",
                         "<VxCOMMENT>c</VxCOMMENT>", "\\", "\r", f"<!-- {self.reference()} -->",
                         f"\\{self.reference()}", "<!-->-->")

    def macro(self, _):
        return self.reference() + self.pick("", ";", "x")

    def foreign(self, _):
        return self.pick(f'<a href="{self.reference()}" b={self.reference()}>',
                         f"<p class='{self.reference()}'>", '<td title="a>b">', "<br>",
                         f"<{self.reference()} x>", f"<b{self.reference()}>", "</td>")

    def tag(self, _):
        value = self.expression()
        return self.pick(f"<VxEVAL EXPR={value}>", f"<VxLET {self.name()}={value}>",
                         f'<VxASSIGN NAME="{self.name()}" VALUE={value}>', f"<EVAL {value}>",
                         f"<VxASSIGN NAME=a_{self.reference()} VALUE={value}>",
                         f'<VxHIDE FIELDS="a,{self.name()}">', f"<HIDE a, {self.name()}>",
                         f"<LET s=s $ {self.constant()}>", f"<VxEVAL {self.name()}={value}>",
                         self.mistake())

    def mistake(self):
        if self.random.random() < 0.9:
            return ""
        return self.pick("<VxEVAL EXPR>", "<VxLET>", "<VxELSE>", "</VxWHILE>", "<VxEVAL EXPR=1 +>",
                         '<VxGO ROW="1">', "<VxASSIGN NAME=1>", "<VxEVAL EXPR=none()>", "<VxEXIT>",
                         "<VxWHILESTOP>", '<FILE READ="none" NAME="a">', "<VxFUNCRETURN>",
                         "<VxFUNCRETURN VALUE=n>", '<VxIF EXPR=c1 GT 3><VxLET NAME="a" VALUE=1></VxIF>')

    def settings(self, _):
        if self.random.random() < 0.6:
            return ""
        return self.pick('<VEXA DEFAULTMACROENCODING="entities">', '<VEXA DEFAULTMACROENCODING="none">',
                         '<VEXA STANDARDOUTPUTLEVEL="html,text,compresswhitespace">',
                         '<VEXA STANDARDOUTPUTLEVEL="html,text">', '<VEXA STANDARDOUTPUTLEVEL="text">',
                         '<VEXA INTERPRET="macros,tags">', '<QUORBEL MACRO="off">',
                         '<QUORBEL MACRO="on">', '<VEXA VxGO_ERROR="fatal">',
                         '<VEXA INTERPRET="macros"><VxEVAL EXPR=n><VEXA INTERPRET="macros,tags">')

    def loop(self, depth):
        self.loops += 1
        counter = f"c{self.loops}"
        most = self.random.randrange(2, 13)
        body = f"<VxLET {counter}={counter}+1>" + self.block(depth - 1)
        condition = self.pick(f"{counter} LT {most}", f"{counter} LT {most} AND n NE '{counter}'")
        if self.random.random() < 0.3:
            body += self.pick("<VxIF EXPR=n EQ 7><VxWHILESTOP></VxIF>", f"<VxEVAL EXPR={counter}>")
        if self.random.random() < 0.2:
            # An error that comes late, on the second line of a tag.
            body += self.pick(f"<VxEVAL\nEXPR=1 / ({counter} - 4)>\n", f"<VxEVAL\n i2=f({counter})>",
                              f"<VxIF EXPR={counter} EQ 3>\n<VxEVAL EXPR=none()></VxIF>")
        opener, closer = self.pick((f"<VxWHILE EXPR={condition}>", "</VxWHILE>"),
                                   (f"<WHILE {condition}>", "</WHILE>"),
                                   (f"<VxWHILE i1={condition}>", "</VxWHILE>"))
        return f"<VxLET {counter}=0>{opener}{body}{closer}"

    def branch(self, depth):
        condition = self.pick(self.expression(), f"c{self.loops} LT {self.random.randrange(9)}")
        otherwise = "<VxELSE>" + self.block(depth - 1) if self.random.random() < 0.5 else ""
        opener, closer = self.pick((f"<VxIF EXPR={condition}>", "</VxIF>"),
                                   (f"<VxIF EXPR={condition}>", "</VxIF>"),
                                   (f"<IF {condition}>", "</IF>"))
        return opener + self.block(depth - 1) + (otherwise if closer == "</VxIF>" else "") + closer

    def script(self, _):
        return self.pick('<VxDO FILE="part.vx">', '<VxDO FILE="part.vx">',
                         '<VxDO FILE="part.vx" NAME="a" VALUE="twice(n)">',
                         '<FILE WRITE="new.vx" VALUE="<VxEVAL EXPR=n>."><VxDO FILE="new.vx">')

    def localized(self, depth):
        return ('<VxLOCALIZED><VxLOCALIZED-TOKEN NAME="t" VALUE=n>'
                f'<VxLOCALIZED-TEXT LANGUAGE="{self.pick("en", "de")}">%t%{self.block(depth - 1)}'
                "</VxLOCALIZED-TEXT></VxLOCALIZED>")

    def function(self, name):
        parameters = self.random.randrange(3)
        switch = self.pick("", "", '<QUORBEL MACRO="off">', '<QUORBEL MACRO="on">',
                           '<VEXA INTERPRET="macros,tags">', "<VxLET n=n+1>")
        body = self.block(1) + switch
        if self.random.random() < 0.7:
            body += self.pick("", "<VxIF EXPR=n LT 4><VxFUNCRETURN VALUE=n></VxIF>",
                              "<IF n GT 3><VxFUNCRETURN></IF>")
            body += f"<VxFUNCRETURN VALUE={self.pick('x', 'n + 1', self.constant())}>"
        return (f'<VxFUNCTION NAME="{name}" PARAMETERS="{", ".join("xyz"[:parameters])}">{body}'
                "</VxFUNCTION>"), (name, parameters)

    def page(self):
        declared = []
        for name in ("f", "g"):
            if self.random.random() < 0.6:
                text, function = self.function(name)
                declared.append(text)
                self.functions.append(function)
        start = "".join(f"<VxLET {name}={self.constant()}>"
                        for name in ("a", "b", "s") if self.random.random() < 0.8)
        body = start + "<VxLET n=1>"
        while self.size > 0:
            body += self.piece(3) + self.line_end()
        # Some functions are found by a scan ahead only.
        return body + "".join(declared) if self.random.random() < 0.3 else "".join(declared) + body


PART = ('<VxFUNCTION NAME="twice" PARAMETERS="x"><VxFUNCRETURN VALUE=x * 2></VxFUNCTION>'
        "<p>&[n:entities] <VxIF EXPR=n GT 2>more<VxELSE>less</VxIF></p>\n<VxLET n=n + 1>")


def response(site, page, environment):
    process = subprocess.run(
        [site.program], cwd=site.directory, stdin=subprocess.DEVNULL, capture_output=True, timeout=120,
        env={**os.environ, "GATEWAY_INTERFACE": "CGI/1.1", "PATH_INFO": "/" + page, "TZ": "UTC",
             **environment})
    return process.returncode, process.stdout, process.stderr


@suite.case("Random pages are the same with and without what is remembered")
def _():
    for kind, encoding in enumerate(("none", "entities", "attribute")):
        config = f"globaltimeout=60\nstdmodedatadir={{DIR}}/site\ndefaultmacroencoding={encoding}"
        with ProgramSite(suite.build, config) as site:
            site.write("part.vx", PART)
            # Pages write new.vx and read what they wrote, so one runs at a time.
            for seed in range(FIRST + kind, FIRST + PAGES, 3):
                site.write(f"p{seed}.vx", Writer(seed).page())
                plain = response(site, f"p{seed}.vx", {"VEXA_NO_SITES": "1"})
                expect(f"the page of seed {seed}", response(site, f"p{seed}.vx", {}), plain)


if __name__ == "__main__":
    sys.exit(suite.main())
