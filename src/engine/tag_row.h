// What is known of a tag: one row of constant data for each spelling, and the set of all rows that
// a scanner is given. Scanner, executor, checker and error settings ask the row; nobody but a tag's
// own handler knows it by number.

#ifndef VEXA_ENGINE_TAG_ROW_H_
#define VEXA_ENGINE_TAG_ROW_H_

#include <cstdint>
#include <span>
#include <string_view>

#include "core/string.h"

namespace vexa {

class Tag;
class TagCall;
struct BranchSkips;

// What a state or handler made of a tag or text.
enum class StateResult : int {
  Failed = 0,    // an error was reported; the script stops
  Reported = 1,  // an error was reported, and the page goes on
  Finished = 2,  // the tag closed this state
  Handled = 3,
  NotMine = 4,  // for the state below
};

// A tag's work. Messages are already reported when it returns.
using TagHandler = StateResult (*)(TagCall& call);

enum class Presence : uint8_t {
  Required,
  Needed,  // required, but asked for only when the tag is carried out
  Optional,
  Default,  // a missing one is filled in
};

// How the value of an attribute is read.
enum class Reading : uint8_t {
  Value,           // evaluated where it stands
  Statement,       // the same; values must not be written into it, whatever is done to them
  Expression,      // the same; a lone double-quoted constant is the expression between the quotes
  KeptExpression,  // read like an expression, but its text goes to the handler
  KeptFilter,      // the same, and may be blank
  Deferred,        // its place is kept; the handler has it evaluated, as often as it likes
  Raw,             // the raw text of the rest of the tag; the attribute's name may be abbreviated
};

struct AttributeRow {
  std::string_view name;  // kAnyName: every attribute of the tag
  Presence presence = Presence::Optional;
  std::string_view fallback = {};  // of a Default one
  Reading reading = Reading::Value;
};
inline constexpr std::string_view kAnyName = "";

// What stands between a tag's name and its `>`.
enum class TagBody : uint8_t {
  Attributes,
  OneExpression,       // one attribute, which must have a value
  OneAssignment,       // one attribute
  Expression,          // an expression, evaluated: an attribute without a name
  OptionalExpression,  // the same, or nothing, for which the tag has words of its own
  RawText,             // text that is not looked into: an attribute without a name
  Condition,           // an expression whose place is kept
};

// The body that makes an opening tag end its block instead. Letter case is ignored.
enum class StopForm : uint8_t { None, Stop, StartOfStop };

// What the executor itself does about some tags.
enum TagFlag : uint8_t {
  kRunsWhileOff = 1,        // also while tags are switched off
  kEndsScript = 2,          // in the executor's own way, no state is asked
  kEndsFunction = 4,        // inside a function also while tags are switched off
  kDeclaresFunction = 8,    // looked for by a scan ahead
  kAnswersForFiles = 16,    // file functions fail as this tag does
  kAssigns = 32,            // does nothing but assign its only value, or VALUE to what NAME names
  kNotInKeyFunctions = 64,  // works on files, tables or the network: fails while a key is computed
};

inline constexpr int kNoTag = -1;

// Behind a tag's name: the name of the variable that holds its last runtime error.
inline constexpr std::string_view kErrorVariableSuffix = "_Error";

struct TagRow {
  std::string_view name;
  int id;
  int closing_id = 0;  // the tag that closes this one, 0 when it opens no block
  int block = kNoTag;  // the opening tag of the block that this one closes, divides or leaves
  TagBody body = TagBody::Attributes;
  std::span<const AttributeRow> attributes = {};
  bool fatal = true;  // whether its runtime errors stop a script that says nothing else
  StopForm stop = StopForm::None;
  uint8_t flags = 0;             // TagFlag bits
  TagHandler handler = nullptr;  // null: left to its block, unexpected when that is not open
  // Of a tag that opens a block only if its one value is true; else null.
  const BranchSkips* branch = nullptr;
  // What is wrong with the attributes that are there, as a message; empty when nothing is.
  String (*problem)(const Tag& tag) = nullptr;

  [[nodiscard]] bool Has(TagFlag flag) const { return (flags & flag) != 0; }
  // The row of an attribute, letter case ignored, or null.
  [[nodiscard]] const AttributeRow* FindAttribute(std::string_view attribute) const;
  // Whether a tag of this row with that `body` (without `>`) only ends a block.
  [[nodiscard]] bool IsStopBody(std::string_view tag_body) const;
};

// All tags of a language. Constant data, handed to whoever scans.
struct TagSet {
  // In the order of their numbers, which begin with 0; a further spelling follows the first.
  std::span<const TagRow> rows;
  // The row of a name, letter case ignored, or null.
  const TagRow* (*Find)(std::string_view name);

  // The first row with that number, or null.
  [[nodiscard]] const TagRow* WithNumber(int id) const;
  // The first row with that flag, or null.
  [[nodiscard]] const TagRow* WithFlag(TagFlag flag) const;
};

}  // namespace vexa

#endif  // VEXA_ENGINE_TAG_ROW_H_
