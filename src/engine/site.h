// Site: what was learnt at one place of a script, so that it need not be read again.
//
// Loops and functions carry out the same bytes again and again. Reading them gives the same every
// time, as long as the macro switch and the values of the references in them are the same; so the
// second time that reading comes to an offset it is learnt what stands there, and from then on the
// executor follows the sites:
//
//   text   a stretch of text, line ends and foreign tags, cut as the scanner delivers it, up to the
//          next tag of ours
//   tag    one tag of ours: its row, and for each value its finished expression and the place where
//          the script stands when it is evaluated. A tag with references has a reading for each of
//          the first few sets of values that these had.
//   anew   something that is not remembered, and read each time
//
// What is delivered, evaluated and reported, on which line and in which order, is what reading
// would have come to. Sites belong to one script and live as long as its parser.

#ifndef VEXA_ENGINE_SITE_H_
#define VEXA_ENGINE_SITE_H_

#include <cstdint>
#include <memory>
#include <vector>

#include "core/source_place.h"
#include "core/string.h"
#include "engine/macro_expander.h"
#include "engine/tag_reader.h"

namespace vexa {

struct SiteSkip;

// A reference and the value that a reading was made with.
struct ReferenceValue {
  MacroReference reference;
  String value;
};

// One attribute of a tag.
struct SiteValue {
  String name;
  PairNames names;
  Reading reading = Reading::Value;
  Expression expression;  // empty where the value is `constant`
  ScriptValue constant;
  SourcePlace behind;  // where the script stands when the expression is evaluated
  bool calls = false;  // whether it can run a function
};

// A tag as it reads when its references have these values.
struct TagReading {
  std::vector<ReferenceValue> references;
  std::vector<SiteValue> values;
  SourcePlace deferred;  // of the value that is evaluated later; 0 when there is none
  SourcePlace end;
  // Of a tag that assigns a value to a variable that is known: both; else null.
  const KnownName* target = nullptr;
  SiteValue* assigned = nullptr;
  // Whether the value may be nothing but what is appended to the variable.
  bool may_append = false;
  KnownName error_variable;  // of the tag
  // Whether no block takes it, so that its handler may be run at once.
  bool direct = false;
  // Whether it leaves a function, with the only value if there is one.
  bool returns = false;
  // Of a tag that may skip from its end, as a step: where to, when that is known.
  SiteSkip* skip = nullptr;
  // The tag with its names and constants, for whoever carries it out first.
  std::unique_ptr<Tag> tag;
  bool in_use = false;  // somebody does
};

enum class PieceKind : uint8_t {
  Text,
  NewLine,
  Plain,      // of what is copied: text, line ends and foreign tags in one
  Reference,  // in text: the first of its references
  Construct,  // a construct begins: a run of text ends
  Foreign,    // a foreign tag or comment, with its references
};

// Bytes [begin, end) of the stretch and references [first, last).
struct TextPiece {
  PieceKind kind;
  uint32_t begin = 0;
  uint32_t end = 0;
  uint32_t first = 0;
  uint32_t last = 0;
  SourcePlace place = {};  // where reading it anew would begin; of pieces with references
};

struct SiteReference {
  MacroReference reference;
  uint32_t at = 0;  // where in the stretch's bytes its value belongs
};

// What a tag may be done as without anything else that tags are carried out with
// (script_steps.cpp).
enum class StepKind : uint8_t {
  None,
  Assign,  // of an expression on whole numbers
  Copy,    // of a constant or another variable
  Append,  // to the variable's own text
  Repeat,  // the closing tag of a block that may be a loop
  Branch,  // what opens a branch, with a condition on whole numbers
  Divide,  // what ends one branch before the next
  End,     // what ends the last branch
  Return,  // from a function, with such a value or none
};

// A skip from where a site begins, by the number of its wanted tags (WantedTags::key).
struct NotedSkip {
  uint16_t key;
  SiteSkip* skip;
};

struct Site {
  enum class Kind : uint8_t { Text, Tag, Anew };

  Kind kind = Kind::Anew;
  bool macros_on = true;     // how it was read
  bool at_file_end = false;  // of a text: nothing follows
  SourcePlace begin;
  SourcePlace end;  // of a text

  // Of a text.
  String bytes;
  std::vector<TextPiece> pieces;        // as the scanner delivers them
  std::vector<TextPiece> plain_pieces;  // the same while everything is just copied
  std::vector<SiteReference> references;

  // Of a tag. The first has no references, or all have.
  const TagRow* row = nullptr;
  std::vector<std::unique_ptr<TagReading>> readings;
  TagReading* sole = nullptr;      // the first, when it has no references
  StepKind step = StepKind::None;  // only the sole one can be any
  bool met = true;                 // in this request; of one whose readings have references

  std::vector<NotedSkip> skips;  // that were asked for here

  // The skip with that number, or null.
  [[nodiscard]] SiteSkip* FindSkip(uint16_t key) const {
    for (const NotedSkip& noted : skips) {
      if (noted.key == key) return noted.skip;
    }
    return nullptr;
  }
};

// Where a skip leads: from one place, with one set of wanted tags.
struct SiteSkip {
  bool learnt = false;  // else it is read each time
  bool macros_on = true;
  std::vector<MacroReference> references;  // that are passed
  const TagRow* row = nullptr;             // of the tag found
  TagReading landing;
};

}  // namespace vexa

#endif  // VEXA_ENGINE_SITE_H_
