// The names of HTML 4 stand in one constant table, sorted by bytes, and are found by halving.

#include "net/entities.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>

#include "core/text.h"

namespace vexa {

namespace {

// One text and not a table of texts: the addresses of those would be set anew whenever the program
// starts.
constexpr std::string_view kNames =
    "AElig Aacute Acirc Agrave Alpha Aring Atilde Auml Beta Ccedil Chi Dagger Delta ETH "
    "Eacute Ecirc Egrave Epsilon Eta Euml Gamma Iacute Icirc Igrave Iota Iuml Kappa Lambda "
    "Mu Ntilde Nu OElig Oacute Ocirc Ograve Omega Omicron Oslash Otilde Ouml Phi Pi Prime "
    "Psi Rho Scaron Sigma THORN Tau Theta Uacute Ucirc Ugrave Upsilon Uuml Xi Yacute Yuml "
    "Zeta aacute acirc acute aelig agrave alefsym alpha amp and ang aring asymp atilde auml "
    "bdquo beta brvbar bull cap ccedil cedil cent chi circ clubs cong copy crarr cup curren "
    "dArr dagger darr deg delta diams divide eacute ecirc egrave empty emsp ensp epsilon "
    "equiv eta eth euml euro exist fnof forall frac12 frac14 frac34 frasl gamma ge gt hArr "
    "harr hearts hellip iacute icirc iexcl igrave image infin int iota iquest isin iuml "
    "kappa lArr lambda lang laquo larr lceil ldquo le lfloor lowast loz lrm lsaquo lsquo lt "
    "macr mdash micro middot minus mu nabla nbsp ndash ne ni not notin nsub ntilde nu oacute "
    "ocirc oelig ograve oline omega omicron oplus or ordf ordm oslash otilde otimes ouml "
    "para part permil perp phi pi piv plusmn pound prime prod prop psi quot rArr radic rang "
    "raquo rarr rceil rdquo real reg rfloor rho rlm rsaquo rsquo sbquo scaron sdot sect shy "
    "sigma sigmaf sim spades sub sube sum sup sup1 sup2 sup3 supe szlig tau there4 theta "
    "thetasym thinsp thorn tilde times trade uArr uacute uarr ucirc ugrave uml upsih upsilon "
    "uuml weierp xi yacute yen yuml zeta zwj zwnj ";
constexpr uint16_t kCodes[] = {
    0xC6,   0xC1,   0xC2,   0xC0,   0x391,  0xC5,   0xC3,   0xC4,   0x392,  0xC7,   0x3A7,  0x2021,
    0x394,  0xD0,   0xC9,   0xCA,   0xC8,   0x395,  0x397,  0xCB,   0x393,  0xCD,   0xCE,   0xCC,
    0x399,  0xCF,   0x39A,  0x39B,  0x39C,  0xD1,   0x39D,  0x152,  0xD3,   0xD4,   0xD2,   0x3A9,
    0x39F,  0xD8,   0xD5,   0xD6,   0x3A6,  0x3A0,  0x2033, 0x3A8,  0x3A1,  0x160,  0x3A3,  0xDE,
    0x3A4,  0x398,  0xDA,   0xDB,   0xD9,   0x3A5,  0xDC,   0x39E,  0xDD,   0x178,  0x396,  0xE1,
    0xE2,   0xB4,   0xE6,   0xE0,   0x2135, 0x3B1,  0x26,   0x2227, 0x2220, 0xE5,   0x2248, 0xE3,
    0xE4,   0x201E, 0x3B2,  0xA6,   0x2022, 0x2229, 0xE7,   0xB8,   0xA2,   0x3C7,  0x2C6,  0x2663,
    0x2245, 0xA9,   0x21B5, 0x222A, 0xA4,   0x21D3, 0x2020, 0x2193, 0xB0,   0x3B4,  0x2666, 0xF7,
    0xE9,   0xEA,   0xE8,   0x2205, 0x2003, 0x2002, 0x3B5,  0x2261, 0x3B7,  0xF0,   0xEB,   0x20AC,
    0x2203, 0x192,  0x2200, 0xBD,   0xBC,   0xBE,   0x2044, 0x3B3,  0x2265, 0x3E,   0x21D4, 0x2194,
    0x2665, 0x2026, 0xED,   0xEE,   0xA1,   0xEC,   0x2111, 0x221E, 0x222B, 0x3B9,  0xBF,   0x2208,
    0xEF,   0x3BA,  0x21D0, 0x3BB,  0x2329, 0xAB,   0x2190, 0x2308, 0x201C, 0x2264, 0x230A, 0x2217,
    0x25CA, 0x200E, 0x2039, 0x2018, 0x3C,   0xAF,   0x2014, 0xB5,   0xB7,   0x2212, 0x3BC,  0x2207,
    0xA0,   0x2013, 0x2260, 0x220B, 0xAC,   0x2209, 0x2284, 0xF1,   0x3BD,  0xF3,   0xF4,   0x153,
    0xF2,   0x203E, 0x3C9,  0x3BF,  0x2295, 0x2228, 0xAA,   0xBA,   0xF8,   0xF5,   0x2297, 0xF6,
    0xB6,   0x2202, 0x2030, 0x22A5, 0x3C6,  0x3C0,  0x3D6,  0xB1,   0xA3,   0x2032, 0x220F, 0x221D,
    0x3C8,  0x22,   0x21D2, 0x221A, 0x232A, 0xBB,   0x2192, 0x2309, 0x201D, 0x211C, 0xAE,   0x230B,
    0x3C1,  0x200F, 0x203A, 0x2019, 0x201A, 0x161,  0x22C5, 0xA7,   0xAD,   0x3C3,  0x3C2,  0x223C,
    0x2660, 0x2282, 0x2286, 0x2211, 0x2283, 0xB9,   0xB2,   0xB3,   0x2287, 0xDF,   0x3C4,  0x2234,
    0x3B8,  0x3D1,  0x2009, 0xFE,   0x2DC,  0xD7,   0x2122, 0x21D1, 0xFA,   0x2191, 0xFB,   0xF9,
    0xA8,   0x3D2,  0x3C5,  0xFC,   0x2118, 0x3BE,  0xFD,   0xA5,   0xFF,   0x3B6,  0x200D, 0x200C};
constexpr size_t kCount = std::size(kCodes);
static_assert(kCount == 252);

// Where each name begins, and where the last one ends.
constexpr auto kStarts = [] {
  std::array<uint16_t, kCount + 1> starts{};
  size_t name = 0;
  for (size_t i = 0; i < kNames.size(); ++i) {
    if (kNames[i] == ' ') starts.at(++name) = static_cast<uint16_t>(i + 1);
  }
  return starts;
}();
static_assert(kStarts[kCount] == kNames.size());

constexpr std::string_view NameAt(size_t i) {
  return kNames.substr(kStarts[i], static_cast<size_t>(kStarts[i + 1] - kStarts[i] - 1));
}
// The first that is not before `name`; kCount when there is none.
constexpr size_t FindPlace(std::string_view name) {
  size_t low = 0;
  for (size_t high = kCount; low < high;) {
    const size_t middle = low + (high - low) / 2;
    if (NameAt(middle) < name) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  return low;
}
static_assert([] {
  for (size_t i = 0; i < kCount; ++i) {
    if (FindPlace(NameAt(i)) != i) return false;
  }
  return true;
}());

constexpr size_t kLongestEntity = 12;  // bytes between "&" and ";"; leading zeros count

// What a name stands for; 0 when it stands for nothing.
uint32_t NamedCode(std::string_view name, Markup markup) {
  if (name == "apos") return '\'';
  const size_t i = FindPlace(name);
  if (i == kCount || NameAt(i) != name) return 0;
  const bool known = markup == Markup::Html || kCodes[i] < 0x80;
  return known ? kCodes[i] : 0;
}

int DigitValue(char c) {
  if (IsDigit(c)) return c - '0';
  const char letter = ToLower(c);
  return letter >= 'a' && letter <= 'f' ? letter - 'a' + 10 : 16;
}

// The number behind "#"; 0 when it is none, or no character.
uint32_t NumberedCode(std::string_view digits) {
  int base = 10;
  if (!digits.empty() && ToLower(digits[0]) == 'x') {
    base = 16;
    digits.remove_prefix(1);
  }
  uint32_t code = 0;
  for (const char c : digits) {
    const int value = DigitValue(c);
    if (value >= base) return 0;
    code = code * static_cast<uint32_t>(base) + static_cast<uint32_t>(value);
    if (code > 0x10FFFF) return 0;
  }
  return code >= 0xD800 && code <= 0xDFFF ? 0 : code;
}

}  // namespace

void AppendUtf8(uint32_t code, String& out) {
  const auto tail = [code](int shift) {
    return static_cast<char>(0x80 | ((code >> shift) & 0x3F));
  };
  if (code < 0x80) {
    out.Accumulate(static_cast<char>(code));
  } else if (code < 0x800) {
    out.Accumulate(static_cast<char>(0xC0 | (code >> 6)));
    out.Accumulate(tail(0));
  } else if (code < 0x10000) {
    out.Accumulate(static_cast<char>(0xE0 | (code >> 12)));
    out.Accumulate(tail(6));
    out.Accumulate(tail(0));
  } else {
    out.Accumulate(static_cast<char>(0xF0 | (code >> 18)));
    out.Accumulate(tail(12));
    out.Accumulate(tail(6));
    out.Accumulate(tail(0));
  }
}

void AppendDecoded(std::string_view text, Markup markup, String& out) {
  for (size_t start = 0; start < text.size();) {
    const size_t ampersand = std::min(text.find('&', start), text.size());
    out.Append(text.substr(start, ampersand - start));
    if (ampersand == text.size()) return;
    const std::string_view rest = text.substr(ampersand + 1, kLongestEntity + 1);
    const size_t length = rest.find(';');
    uint32_t code = 0;
    if (length != std::string_view::npos && length > 0) {
      const std::string_view name = rest.substr(0, length);
      code = name[0] == '#' ? NumberedCode(name.substr(1)) : NamedCode(name, markup);
    }
    if (code == 0) {
      out.Accumulate('&');
      start = ampersand + 1;
    } else {
      AppendUtf8(code, out);
      start = ampersand + length + 2;
    }
  }
}

}  // namespace vexa
