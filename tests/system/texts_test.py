#!/usr/bin/env python3
"""The functions for texts against Python's: random times, patterns, JSON texts and digests. Texts go
in and come out as hexadecimal digits, a few hundred cases a page."""

import base64
import datetime
import hashlib
import hmac
import json
import random
import re
import sys
import zoneinfo

from harness import ProgramSite, Suite, expect

suite = Suite("texts")
SEED = random.randrange(2**32)
CASES = 1500


def text(value):
    """An expression for a text of any bytes."""
    bytes_ = value if isinstance(value, bytes) else str(value).encode()
    return f"vexa_fromhex('{bytes_.hex()}')"


def judge(site, cases):
    """Evaluates expressions and compares each with what Python says."""
    site.write("index.vx", "".join(f"<VxEVAL EXPR=vexa_hex({call})>\n" for call, _ in cases))
    lines = site.page().replace("\r", "").split("\n")
    for (call, right), line in zip(cases, lines, strict=False):
        right = right if isinstance(right, bytes) else str(right).encode()
        expect(f"seed {SEED}: {call}", bytes.fromhex(line) if re.fullmatch("[0-9a-f]*", line) else line, right)
    expect("lines", len(lines), len(cases) + 1)


@suite.case("times are those of Python's zones, also around changes and for years to come")
def times(site):
    chance = random.Random(SEED)
    zones = sorted(zone for zone in zoneinfo.available_timezones() if "/" in zone)
    cases = []
    for _ in range(CASES):
        name = chance.choice(zones)
        zone = zoneinfo.ZoneInfo(name)
        moment = chance.randrange(0, 2**33)
        if chance.random() < 0.5:  # Near the next change.
            offset = datetime.datetime.fromtimestamp(moment, zone).utcoffset()
            for step in (2592000, 86400, 3600, 900):
                while moment < 2**33 and datetime.datetime.fromtimestamp(moment + step, zone).utcoffset() == offset:
                    moment += step
            moment += chance.randrange(-7200, 7200)
        shown = datetime.datetime.fromtimestamp(moment, zone)
        form = "%Y-%m-%d %H:%M:%S"
        full = form + " %z %Z %j %a %b"
        cases.append((f"vexa_date('{full}', {moment}, '{name}')", shown.strftime(full)))
        # Clocks may never have shown this time, or twice.
        local = shown.replace(fold=0) + datetime.timedelta(seconds=chance.choice((0, 0, 1800, 3600, -3600)))
        cases.append((f"vexa_seconds('{form}', '{local.strftime(form)}', '{name}')", int(local.timestamp())))
    judge(site, cases)


@suite.case("patterns find and replace what Python's do")
def patterns(site):
    chance = random.Random(SEED)

    def pattern(depth):
        kind = chance.randrange(9 if depth > 0 else 4)
        if kind < 4:
            return chance.choice(("a", "b", "é", ".", "[ab]", "[^b€]", r"\d", "1", r"\b", "^", "$", r"\W"))
        parts = [pattern(depth - 1) for _ in range(2)]
        # What repeats takes something, so that all libraries agree on when to stop.
        return {4: "(%s)" % parts[0], 5: "(?:%s|%s)" % tuple(parts), 6: "(?:a%s)%s" % (parts[0], chance.choice("*+?")),
                7: "".join(parts), 8: "(?:b%s){1,2}?" % parts[0]}[kind]
    cases = []
    for _ in range(CASES):
        subject = "".join(chance.choice("aab1é€ \n") for _ in range(chance.randrange(12)))
        written = pattern(3)
        compiled = re.compile(written.replace("$", r"\Z"), re.ASCII)
        found = list(compiled.finditer(subject))
        call = f"{text(subject)}, {text(written)}"
        cases.append((f"vexa_matches({call})", len(found)))
        if found:
            number = chance.randrange(len(found))
            group = chance.randrange(compiled.groups + 1)
            cases.append((f"vexa_matchedat({call}, {number + 1}, {group})", found[number].group(group) or ""))
        cases.append((f"vexa_replaced({call}, '[$0]')", compiled.sub(r"[\g<0>]", subject)))
    judge(site, cases)


@suite.case("JSON is read as Python reads it, damaged or not")
def json_texts(site):
    chance = random.Random(SEED)

    def value(depth):
        kind = chance.randrange(7 if depth > 0 else 5)
        if kind == 0:
            return "".join(chance.choice('a"\\/\n\té€😀\x00\u2028<') for _ in range(chance.randrange(5)))
        if kind == 5:
            return [value(depth - 1) for _ in range(chance.randrange(4))]
        if kind == 6:
            return {chance.choice(("a", "b", "é", "0", "~/")): value(depth - 1) for _ in range(chance.randrange(4))}
        return (None, None, True, False, chance.choice((0, -1, 1.5, 1e300, 10**30)))[kind]

    def refuse(_):
        raise ValueError
    cases = []
    for _ in range(CASES):
        made = value(4)
        written = json.dumps(made, ensure_ascii=chance.random() < 0.5, indent=chance.choice((None, 1))).encode()
        cases.append((f"vexa_isjson({text(written)})", 1))
        path = ""
        while isinstance(made, (list, dict)) and made:
            key = chance.choice(list(made) if isinstance(made, dict) else range(len(made)))
            cases.append((f"vexa_jsoncount({text(written)}, {text(path)})", len(made)))
            path += "/" + str(key).replace("~", "~0").replace("/", "~1")
            made = made[key]
        if isinstance(made, str):
            cases.append((f"vexa_jsonvalue({text(written)}, {text(path)})", made))
            cases.append((f"vexa_jsonvalue(vexa_json({text(made)}), '')", made))
        damaged = bytearray(written)
        damaged[chance.randrange(len(damaged))] = chance.choice(b'"\\,:[]{}01e.-t \xc3\x80')
        try:
            # Python reads halves of surrogate pairs, which no UTF-8 can hold.
            json.dumps(json.loads(damaged.decode(), parse_constant=refuse), ensure_ascii=False).encode()
            right = 1
        except ValueError:
            right = 0
        cases.append((f"vexa_isjson({text(bytes(damaged))})", right))
    judge(site, cases)


@suite.case("digests and base64 are Python's for texts of all lengths")
def digests(site):
    chance = random.Random(SEED)
    cases = []
    for size in range(300):
        sample, key = chance.randbytes(size), chance.randbytes(chance.randrange(200))
        for method in ("md5", "sha1", "sha256", "sha512"):
            cases.append((f"vexa_digest('{method}', {text(sample)})", hashlib.new(method, sample).hexdigest()))
            right = hmac.new(key, sample, method).hexdigest()
            cases.append((f"vexa_hmac('{method}', {text(key)}, {text(sample)})", right))
        cases.append((f"vexa_base64({text(sample)})", base64.b64encode(sample)))
        cases.append((f"vexa_frombase64('{base64.urlsafe_b64encode(sample).decode().rstrip('=')}')", sample))
    judge(site, cases)


if __name__ == "__main__":
    sys.exit(suite.main(ProgramSite))
