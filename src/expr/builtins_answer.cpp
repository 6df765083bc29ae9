// What a page may say of its answer: status, headers, redirects, files, versions, cookies. The
// host's answer does the work and words what is wrong (vexa.h).

#include "core/string.h"
#include "expr/builtins.h"
#include "vexa.h"

namespace vexa {

namespace {

AnswerHead& AnswerOf(const BuiltinCall& call) { return call.host().answer(); }

// Ends a built-in: with an error when there is a problem.
bool Done(const BuiltinCall& call, const String& problem) {
  return problem.empty() || call.context().ReportExpressionError(problem);
}

bool Status(const BuiltinCall& call) {
  return Done(call, AnswerOf(call).SetStatus(call.LookAtFirst()));
}

bool SetHeader(const BuiltinCall& call) {
  return Done(call, AnswerOf(call).SetHeader(call.Text(0), call.Text(1)));
}

bool Redirect(const BuiltinCall& call) {
  return Done(call, AnswerOf(call).Redirect(call.LookAtFirst()));
}

bool RedirectAway(const BuiltinCall& call) {
  return Done(call, AnswerOf(call).RedirectAway(call.LookAtFirst()));
}

bool SendFile(const BuiltinCall& call) {
  return Done(call, AnswerOf(call).SendFile(call.Text(0), call.Text(1), call.Text(2)));
}

bool Unchanged(const BuiltinCall& call) {
  bool unchanged = false;
  const String problem = AnswerOf(call).SetVersion(call.LookAtFirst(), unchanged);
  return problem.empty() ? call.ReturnFlag(unchanged) : Done(call, problem);
}

bool SetCookie(const BuiltinCall& call) {
  return Done(call, AnswerOf(call).SetCookie(call.Text(0), call.Text(1), call.Text(2)));
}

bool Cookie(const BuiltinCall& call) {
  return call.Return(AnswerOf(call).Cookie(call.LookAtFirst()));
}

bool DropCookie(const BuiltinCall& call) {
  return Done(call, AnswerOf(call).SetCookie(call.LookAtFirst(), "", "seconds=0"));
}

}  // namespace

std::span<const LateBuiltin> AnswerBuiltins() {
  static const LateBuiltin rows[] = {
      {"vexa_status", "code", Status, kLooksAtFirst | kNotInKeys},
      {"vexa_header", "name, value", SetHeader, kNotInKeys},
      {"vexa_redirect", "address", Redirect, kLooksAtFirst | kNotInKeys},
      {"vexa_redirect_away", "address", RedirectAway, kLooksAtFirst | kNotInKeys},
      {"vexa_sendfile", "path, type, name", SendFile, kNotInKeys},
      {"vexa_unchanged", "version", Unchanged, kLooksAtFirst | kNotInKeys},
      {"vexa_setcookie", "name, value, options", SetCookie, kNotInKeys},
      {"vexa_cookie", "name", Cookie, kLooksAtFirst | kNotInKeys},
      {"vexa_dropcookie", "name", DropCookie, kLooksAtFirst | kNotInKeys},
  };
  return rows;
}

}  // namespace vexa
