// Error: how each class words its message.

#include "core/error.h"

#include "core/number.h"

namespace vexa {

namespace {

// What a person who meets a configuration problem is told to do about it.
String WithAdministrator(std::string_view message, const Settings& config) {
  return String::Concat(
      {message, "<BR>\nPlease contact the server administrator: ", config.serveradmin});
}

String InFile(std::string_view file, const Settings& config, int line, std::string_view text) {
  return WithAdministrator(
      String::Concat({"Syntax error in ", file, ": Line ", PrintInteger(line), ": ", text}),
      config);
}

String AtPlace(const ErrorPlace& place, std::string_view kind, std::string_view text) {
  return String::Concat({place.file, ": Line ", PrintInteger(place.line),
                         place.context.empty() ? "" : ": ", place.context, kind, text});
}

}  // namespace

ConfigurationError::ConfigurationError(const Settings& config, std::string_view text,
                                       int resultcode)
    : Error(resultcode, 0,
            WithAdministrator(String::Concat({"Configuration Error: ", text}), config)) {}

ConfigurationSyntaxError::ConfigurationSyntaxError(const Settings& config, int line,
                                                   std::string_view text)
    : Error(500, 0, InFile("Configuration File", config, line, text)) {}

AuthorizationSyntaxError::AuthorizationSyntaxError(const Settings& config, int line,
                                                   std::string_view text)
    : Error(500, 0, InFile("Authorization File", config, line, text)) {}

ScriptNotFoundError::ScriptNotFoundError(std::string_view text)
    : Error(404, 0, String(text), Audience::Everybody) {}

FatalError::FatalError(std::string_view text, int resultcode)
    : Error(resultcode, 0, String::Concat({"Fatal Error: ", text})) {}

RequestError::RequestError(Fault fault)
    : Error(fault == Fault::TooLarge ? 413 : 400, 0,
            fault == Fault::TooLarge ? "The request is too large" : kDamaged, Audience::Everybody) {
}

TimeoutError::TimeoutError(std::string_view text)
    : Error(200, 0, String::Concat({text, " timed out"}), Audience::Everybody) {}

RuntimeError::RuntimeError(const ErrorPlace& place, std::string_view text)
    : Error(200, kRuntimeErrors, AtPlace(place, ": Runtime Error: ", text)) {}

SyntaxError::SyntaxError(const ErrorPlace& place, std::string_view text)
    : Error(200, kSyntaxErrors, AtPlace(place, ": Syntax Error: ", text)) {}

ExpressionError::ExpressionError(const ErrorPlace& place, std::string_view text)
    : Error(200, kExpressionErrors, AtPlace(place, ": Expression Error: ", text)) {}

}  // namespace vexa
