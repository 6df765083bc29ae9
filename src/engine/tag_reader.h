// TagReader: the scanner of scripts. It turns the bytes of a tag into what is written there, each
// value as a finished expression with the places where it begins and ends; what is done with a
// value is up to the derived class: the executor evaluates it, the checker only goes on.
//
// Values are handed over one by one, each before the next is read: evaluating one may run functions
// of the page, and which of two errors a page shows depends on that order.

#ifndef VEXA_ENGINE_TAG_READER_H_
#define VEXA_ENGINE_TAG_READER_H_

#include "core/source_place.h"
#include "core/string.h"
#include "engine/parser.h"
#include "engine/tag.h"
#include "expr/character_source.h"
#include "expr/expression.h"
#include "expr/expression_context.h"

namespace vexa {

// One value as it is written.
struct WrittenValue {
  Reading reading = Reading::Value;
  Expression expression;  // finished; empty where the value is a text
  String text;            // of a kept or raw value
  SourcePlace place;      // where it begins
};

class TagReader : public Parser, public ExpressionContext, protected CharacterSource {
 public:
  using Parser::Parser;

  // The place behind what was read last, and the way back to it.
  [[nodiscard]] SourcePlace CurrentPlace() const { return source().Place(); }
  void GoTo(const SourcePlace& place) { source().Return(place); }

 protected:
  // Does with a value just read what is to be done; `value` receives its text, `tag` a place that
  // is kept. False after an error.
  [[nodiscard]] virtual bool TakeValue(Tag& tag, WrittenValue& written, ScriptValue& value) = 0;

  [[nodiscard]] bool GetNameValuePairs(Tag& tag) override;
  [[nodiscard]] AttributeEnd GetValue(Tag& tag, const String& name, ScriptValue& value) override;
  [[nodiscard]] bool ProcessEmptyValue(Tag& tag, const String& name, ScriptValue& value) override;

  // Reads the expression that begins at `place`, and stands behind it. False after an error.
  [[nodiscard]] bool ReadExpressionAt(const SourcePlace& place, ValueForm form,
                                      Expression& expression);

  // Who only reads is never asked these; the executor overrides them.
  bool ReportFileError(std::string_view) override { return false; }
  bool FindFunction(Symbol, const Callable*&) override { return false; }
  bool CallFunction(const Callable&, std::span<ScriptValue>, ScriptValue&) override {
    return false;
  }

 private:
  // CharacterSource, for the expression reader.
  int NextChar() override { return source().GetNextChar(); }
  void PutBack() override { source().UnGetChar(); }
  [[nodiscard]] SourcePlace Place() const override { return source().Place(); }
  void Return(const SourcePlace& place) override { source().Return(place); }

  bool GetBody(Tag& tag);
  bool GetRawBody(Tag& tag);
  bool GetCondition(Tag& tag);
  AttributeEnd ReadValue(WrittenValue& written);
  AttributeEnd ReadRawValue(String& text);
  ValueEnd ReadKept(ValueForm form, WrittenValue& written);
};

}  // namespace vexa

#endif  // VEXA_ENGINE_TAG_READER_H_
