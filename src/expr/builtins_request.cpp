// Built-ins that tell what a request sent, and keep what belongs to its visitor: fields, sessions,
// tokens, passwords.

#include "core/error.h"
#include "core/number.h"
#include "expr/builtin_table.h"
#include "expr/builtins.h"
#include "expr/password.h"

namespace vexa {

namespace {

// Ends a built-in whose work went well when `error` is empty.
bool Done(const BuiltinCall& call, const String& error) {
  return error.empty() || call.context().ReportExpressionError(error);
}

// The same for one whose result is a text.
bool Done(const BuiltinCall& call, const String& error, String& result) {
  return error.empty() ? call.Return(std::move(result)) : Done(call, error);
}

// --- Fields ------------------------------------------------------------------------------------

bool Field(const BuiltinCall& call) {
  const std::span<const SentField> fields = call.host().sentfields(call.Text(0));
  if (fields.size() == 1) return call.Return(String(fields[0].value));
  String joined;
  for (const SentField& field : fields) {
    if (&field != fields.data()) joined.Append(",");
    joined.Append(field.value);
  }
  return call.Return(std::move(joined));
}

bool HasField(const BuiltinCall& call) {
  return call.ReturnFlag(!call.host().sentfields(call.Text(0)).empty());
}

bool FieldCount(const BuiltinCall& call) {
  return call.ReturnInteger(static_cast<int64_t>(call.host().sentfields(call.Text(0)).size()));
}

bool FieldAt(const BuiltinCall& call) {
  const std::span<const SentField> fields = call.host().sentfields(call.Text(0));
  const int64_t number = call.Integer64(1);
  if (number < 1 || number > static_cast<int64_t>(fields.size())) return true;
  return call.Return(String(fields[static_cast<size_t>(number - 1)].value));
}

bool Body(const BuiltinCall& call) {
  const String* body = call.host().body();
  if (body == nullptr) return call.context().ReportExpressionError(RequestError::kDamaged);
  return call.Return(String(*body));
}

// --- Sessions ----------------------------------------------------------------------------------

bool SessionID(const BuiltinCall& call) {
  String id;
  const String error = call.host().session().GetID(id);
  return Done(call, error, id);
}

bool NewSession(const BuiltinCall& call) {
  String id;
  const String error = call.host().session().Renew(id);
  return Done(call, error, id);
}

bool EndSession(const BuiltinCall& call) { return Done(call, call.host().session().End()); }

bool SessionValue(const BuiltinCall& call) {
  String value;
  const String error = call.host().session().GetValue(call.Text(0), value);
  return Done(call, error, value);
}

bool SetSessionValue(const BuiltinCall& call) {
  return Done(call, call.host().session().SetValue(call.Text(0), call.Text(1)));
}

bool Token(const BuiltinCall& call) {
  String token;
  const String error = call.host().session().MakeToken(call.Text(0), token);
  return Done(call, error, token);
}

bool IsToken(const BuiltinCall& call) {
  bool good = false;
  const String error = call.host().session().CheckToken(call.Text(0), call.Text(1), good);
  return error.empty() ? call.ReturnFlag(good) : Done(call, error);
}

// --- Passwords ---------------------------------------------------------------------------------

bool HashOfPassword(const BuiltinCall& call) {
  String hash;
  if (HashPassword(call.Text(0), hash)) return call.Return(std::move(hash));
  return call.context().ReportExpressionError("The password cannot be hashed");
}

bool IsPasswordOf(const BuiltinCall& call) {
  return call.ReturnFlag(IsPassword(call.Text(0), call.Text(1)));
}

}  // namespace

std::span<const LateBuiltin> RequestBuiltins() {
  static const LateBuiltin rows[] = {
      {"vexa_field", "name", Field, kNotInKeys},
      {"vexa_hasfield", "name", HasField, kNotInKeys},
      {"vexa_fieldcount", "name", FieldCount, kNotInKeys},
      {"vexa_fieldat", "name, number", FieldAt, kNotInKeys},
      {"vexa_body", "", Body, kNotInKeys},
      {"vexa_session", "", SessionID, kNotInKeys},
      {"vexa_newsession", "", NewSession, kNotInKeys},
      {"vexa_endsession", "", EndSession, kNotInKeys},
      {"vexa_sessionvalue", "name", SessionValue, kNotInKeys},
      {"vexa_setsessionvalue", "name, value", SetSessionValue, kNotInKeys},
      {"vexa_token", "purpose", Token, kNotInKeys},
      {"vexa_istoken", "purpose, token", IsToken, kNotInKeys},
      {"vexa_hashpassword", "password", HashOfPassword},
      {"vexa_ispassword", "password, hash", IsPasswordOf},
  };
  return rows;
}

}  // namespace vexa
