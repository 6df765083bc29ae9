// JSON: texts written as JSON strings, and values taken out of JSON texts.

#include "core/json_text.h"
#include "expr/builtins.h"
#include "expr/text_work.h"

namespace vexa {

namespace {

// The text of the first argument, read, and the value at the path of the second.
struct Place {
  explicit Place(const BuiltinCall& call)
      : document(call.host().textwork().Json(call.First())), value(document.Find(call.Text(1))) {}
  const JsonDocument& document;
  JsonDocument::Value value;
};

bool Json(const BuiltinCall& call) { return call.Return(JsonText(call.LookAtFirst())); }

bool JsonValue(const BuiltinCall& call) {
  const Place place(call);
  return call.Return(place.document.Content(place.value));
}

std::string_view NameOf(JsonKind kind) {
  switch (kind) {
    case JsonKind::Object:
      return "object";
    case JsonKind::Array:
      return "array";
    case JsonKind::Text:
      return "string";
    case JsonKind::Number:
      return "number";
    case JsonKind::Boolean:
      return "boolean";
    case JsonKind::Null:
      return "null";
    case JsonKind::Missing:
      break;
  }
  return {};
}

bool JsonType(const BuiltinCall& call) {
  const Place place(call);
  return call.Return(NameOf(place.document.Kind(place.value)));
}

bool JsonCount(const BuiltinCall& call) {
  const Place place(call);
  return call.ReturnInteger(static_cast<int64_t>(place.document.Count(place.value)));
}

bool JsonName(const BuiltinCall& call) {
  const Place place(call);
  const int32_t number = call.Integer(2);
  if (number < 0) return true;
  return call.Return(place.document.NameAt(place.value, static_cast<size_t>(number)));
}

bool IsJson(const BuiltinCall& call) {
  const JsonDocument& document = call.host().textwork().Json(call.First());
  return call.ReturnFlag(document.Find("") != JsonDocument::kNoValue);
}

}  // namespace

std::span<const LateBuiltin> JsonBuiltins() {
  static const LateBuiltin rows[] = {
      {"vexa_json", "text", Json, kLooksAtFirst},
      {"vexa_jsonvalue", "text, path", JsonValue, kLooksAtFirst},
      {"vexa_jsontype", "text, path", JsonType, kLooksAtFirst},
      {"vexa_jsoncount", "text, path", JsonCount, kLooksAtFirst},
      {"vexa_jsonname", "text, path, number", JsonName, kLooksAtFirst},
      {"vexa_isjson", "text", IsJson, kLooksAtFirst},
  };
  return rows;
}

}  // namespace vexa
