// Form: the names and values a browser sent, in the query string or in the body, as variables.
//
// A body is read by the ContentParser of its type, in pieces and never kept whole, so only the
// fields themselves need memory. FormReceiver is what such a parser asks of the request.

#ifndef VEXA_REQUEST_FORM_H_
#define VEXA_REQUEST_FORM_H_

#include <cstdint>
#include <memory>
#include <string_view>

#include "core/error.h"
#include "core/file.h"
#include "core/string.h"
#include "core/variables.h"
#include "request/body_reader.h"
#include "vexa.h"

namespace vexa {

class ScriptParser;
class SentFields;

// Whom a form is read for: where its bytes come from and where its fields and files go.
class FormReceiver : public ContentSource {
 public:
  // Fields become form variables of these.
  [[nodiscard]] virtual Variables& vars() = 0;
  // Fields are kept here as they came, too.
  [[nodiscard]] virtual SentFields& sentfields() = 0;
  // Uploads become files of this manager, at data paths; as of the host (vexa.h).
  [[nodiscard]] virtual FileManager& filemanager() = 0;
  [[nodiscard]] virtual int ResolvePath(const String& name, String& resolved, PathType type,
                                        String& message) = 0;
  [[nodiscard]] virtual const Settings& config() const = 0;
  // Counts a field or a file of the request. False after the error for too many was shown.
  [[nodiscard]] virtual bool AdmitField() = 0;
  // Whether the body stopped arriving because the time was up.
  [[nodiscard]] virtual bool timedout() = 0;
  virtual void Error(const vexa::Error& error) = 0;
};

// What a body is read with.
struct FormInput {
  FormReceiver& receiver;  // borrowed
  ScriptParser& page;      // borrowed; its functions take the uploads
  int piece_bytes;         // how much to read at once
};

class ContentParser {
 public:
  explicit ContentParser(const FormInput& input) : input_(input) {}
  virtual ~ContentParser() = default;
  ContentParser(const ContentParser&) = delete;
  ContentParser& operator=(const ContentParser&) = delete;

  // Reads a body of `length` bytes, once. One that ends earlier gives the fields that arrived, or
  // is refused where input is strict.
  // Returns 0, or non-zero after the error was shown, so the reverse of the request phases.
  // REQUIRES: `length` is above 0.
  [[nodiscard]] virtual int Parse(int64_t length) = 0;

 protected:
  [[nodiscard]] const FormInput& input() const { return input_; }
  [[nodiscard]] FormReceiver& receiver() const { return input_.receiver; }
  [[nodiscard]] bool strict() const { return receiver().config().strictinput != 0; }
  // When the body stopped arriving because the time was up, shows that and returns true.
  [[nodiscard]] bool ReportTimeout() const;
  // Shows that the request is damaged. Always false.
  bool ReportDamage() const;

 private:
  FormInput input_;
};

// Bodies of type "application/x-www-form-urlencoded".
class URLEncodedParser final : public ContentParser {
 public:
  using ContentParser::ContentParser;
  [[nodiscard]] int Parse(int64_t length) override;

 private:
  // False after an error was shown.
  [[nodiscard]] bool Take(std::string_view bytes);
  [[nodiscard]] bool AddPending();
  void DecodeLarge();

  // The pair that has begun but not ended yet. Of a large one it becomes the value, decoded as it
  // comes, so that it takes no more memory than that.
  String pending_;
  size_t equals_ = std::string_view::npos;  // where its first "=" stands, once it is there
  int64_t to_come_ = 0;                     // bytes of the body
  bool large_ = false;
  String name_;         // of a large pair
  size_t decoded_ = 0;  // bytes of its value that are decoded
};

// The parser for bodies of the type that a Content-Type header names; null when bodies of that
// type are not read.
[[nodiscard]] std::unique_ptr<ContentParser> NewContentParser(const FormInput& input,
                                                              std::string_view content_type);

// Appends what came of a body to a text that takes no more room than what is `to_come` may need.
void AppendOfBody(String& text, std::string_view piece, int64_t to_come);
// Makes a field whose value may be large a variable and keeps it as sent: both share its storage.
// `value` is empty afterwards.
void AddLargeField(FormReceiver& receiver, const String& name, String& value);

// A field as it was sent, decoded.
struct FormPair {
  String name;
  String value;
};

// The white space around a name and a value: browsers send none, people who write links do.
enum class FieldSpace { Kept, Stripped };

// Takes a pair apart at its first "=" and decodes both sides; a pair without one is its own value.
[[nodiscard]] FormPair DecodePair(std::string_view pair, FieldSpace space);

// Adds every "name=value" pair of a query string as a form variable, after dropping all backslashes
// in it. A pair is split at its first "=", white space around both parts is dropped, both are
// decoded; a pair without "=" is its own value. False after an error was shown.
[[nodiscard]] bool AddQueryFields(FormReceiver& receiver, std::string_view query);

}  // namespace vexa

#endif  // VEXA_REQUEST_FORM_H_
