// The expression reader: one function for each state, one for each kind of token.
//
// Every function that reads a token begins behind its first character and leaves the source just
// behind its last one: a delimiter that was read too far is put back, and only one character ever
// is. ReadAfterGap alone looks further ahead, and returns to the place it noted. The first error
// ends the reading; it is reported once, where the source then stands, so that the message carries
// the line on which the offending token ends.

#include "expr/expression_reader.h"

#include "core/text.h"
#include "expr/operators.h"

namespace vexa {

namespace {

constexpr std::string_view kOperatorExpected = "Expected operator, found '";
constexpr std::string_view kOperandExpected = "Expected non-operator, found '";
constexpr std::string_view kMismatched = "Mismatched parenthesis";
constexpr std::string_view kUnexpectedEnd = "Unexpected end of expression";
constexpr std::string_view kUnexpectedFileEnd = "Unexpected end of file";
constexpr std::string_view kUnclosedText = "Found end of file in quoted string";

bool IsQuote(int c) { return c == '"' || c == '\''; }

bool BeginsNumber(int c) { return c == '.' || (c >= '0' && c <= '9'); }

bool IsWhite(int c) { return c >= 0 && IsWhitespace(static_cast<char>(c)); }

bool IsOperatorCharacter(int c) { return c >= 0 && IsOperatorChar(static_cast<char>(c)); }

// The character that the text between "&" and ";" stands for, or -1.
int EntityCharacter(std::string_view name) {
  if (name.starts_with('#')) {
    int code = 0;
    for (char digit : name.substr(1)) {
      if (!IsDigit(digit) || code > 255) return -1;
      code = code * 10 + (digit - '0');
    }
    return code >= 1 && code <= 255 ? code : -1;
  }
  if (EqualsIgnoreCase(name, "quot")) return '"';
  if (EqualsIgnoreCase(name, "amp")) return '&';
  if (EqualsIgnoreCase(name, "lt")) return '<';
  if (EqualsIgnoreCase(name, "gt")) return '>';
  return -1;
}

}  // namespace

ValueEnd ExpressionReader::Read() {
  Step step = Step::More;
  while (step == Step::More) step = operand_due_ ? ReadOperand() : ReadOperator();
  switch (step) {
    case Step::AtWhitespace:
      return ValueEnd::Whitespace;
    case Step::AtTagEnd:
      return ValueEnd::TagEnd;
    default:
      return ValueEnd::Failed;
  }
}

// --- Where an operand is due -----------------------------------------------------------------

ExpressionReader::Step ExpressionReader::ReadOperand() {
  int c = SkipWhitespace(source_.NextChar());
  if (EndsValue(c)) return ReadEnd(c);
  char first = static_cast<char>(c);
  switch (first) {
    case '"':
    case '\'':
      return ReadTextConstant(first);
    case '(':
      tree_.OpenParen();
      return Step::More;
    case ')':
      return ReadClosing();
    case ',':
      return ReadComma();
    case '-':
      return ReadMinus();
    default:
      break;
  }
  if (IsOperatorChar(first)) return FailOnToken(kOperandExpected, {&first, 1});
  return ReadOperandWord(first);
}

ExpressionReader::Step ExpressionReader::ReadMinus() {
  if (!BeginsNumber(Peek())) return FailOnToken(kOperandExpected, "-");
  return ReadOperandWord('-');
}

ExpressionReader::Step ExpressionReader::ReadOperandWord(char first) {
  ReadWord(first);
  if (const OperatorInfo* op = FindOperator(token_)) {
    if (!op->IsPrefix()) return FailOnToken(kOperandExpected, token_);
    tree_.InsertOperator(*op);
    return Step::More;
  }
  int next = Peek();
  if (IsQuote(next)) return FailOnQuote(static_cast<char>(next));
  if (first == '-' || BeginsNumber(first)) {
    tree_.InsertConstant(token_, ConstantStyle::Bare);
  } else if (next == '(') {
    source_.NextChar();
    tree_.OpenCall(token_);
    return Step::More;
  } else {
    tree_.InsertVariable(token_);
  }
  operand_due_ = false;
  after_gap_ = false;
  return Step::More;
}

ExpressionReader::Step ExpressionReader::ReadTextConstant(char quote) {
  token_.clear();
  size_t ampersand = std::string::npos;  // of an entity that may have begun
  for (int c = source_.NextChar(); c != quote; c = source_.NextChar()) {
    if (c == kEnd) return Fail(kUnclosedText);
    if (c == '&') ampersand = token_.size();
    token_ += static_cast<char>(c);
    if (c == ';' && ampersand != std::string::npos) {
      DecodeEntity(ampersand);
      ampersand = std::string::npos;
    }
  }
  tree_.InsertConstant(token_,
                       quote == '"' ? ConstantStyle::DoubleQuoted : ConstantStyle::SingleQuoted);
  operand_due_ = false;
  after_gap_ = false;
  return Step::More;
}

// Replaces the text from `ampersand` to the end of the token, an "&" to a ";", by its character
// when it is an entity.
void ExpressionReader::DecodeEntity(size_t ampersand) {
  std::string_view name(token_);
  name = name.substr(ampersand + 1, name.size() - ampersand - 2);
  int character = EntityCharacter(name);
  if (character < 0) return;
  token_.resize(ampersand);
  token_ += static_cast<char>(character);
}

// --- Where an operator is due ----------------------------------------------------------------

ExpressionReader::Step ExpressionReader::ReadOperator() {
  int c = source_.NextChar();
  if (IsWhite(c)) {
    if (EndsAtWhitespace() && tree_.innermost() == ExpressionTree::Open::Nothing) {
      source_.PutBack();
      return ReadAfterGap();
    }
    after_gap_ = true;
    c = SkipWhitespace(c);
  }
  if (EndsValue(c)) return ReadEnd(c);
  char first = static_cast<char>(c);
  switch (first) {
    case '"':
    case '\'':
      return after_gap_ ? RefuseTextConstant(first) : FailOnQuote(first);
    case '(':
      return FailOnToken(kOperatorExpected, "(");
    case ')':
      return ReadClosing();
    case ',':
      return ReadComma();
    default:
      break;
  }
  if (IsOperatorChar(first)) return InsertOperator({&first, 1});
  return ReadOperatorWord(first);
}

ExpressionReader::Step ExpressionReader::ReadOperatorWord(char first) {
  ReadWord(first);
  if (FindOperator(token_)) return InsertOperator(token_);
  int next = Peek();
  if (IsQuote(next)) return FailOnQuote(static_cast<char>(next));
  if (next == '(' && !BeginsNumber(first)) token_ += '(';
  return FailOnToken(kOperatorExpected, token_);
}

ExpressionReader::Step ExpressionReader::InsertOperator(std::string_view token) {
  const OperatorInfo* op = FindOperator(token);
  if (op == nullptr || op->IsPrefix()) return FailOnToken(kOperatorExpected, token);
  tree_.InsertOperator(*op);
  operand_due_ = true;
  return Step::More;
}

// At white space where the value could end: it goes on only when the next word is an operator and
// no attribute of that name. Otherwise the white space is left for the reader of attributes.
ExpressionReader::Step ExpressionReader::ReadAfterGap() {
  SourcePlace place = source_.Place();
  int c = SkipWhitespace(source_.NextChar());
  if (c != kEnd && ReadPossibleOperator(static_cast<char>(c)) && Peek() != '=') {
    return InsertOperator(token_);
  }
  source_.Return(place);
  return Step::AtWhitespace;
}

// Whether an operator begins with `first`; it is then in the token. A word that is longer than any
// operator is not read to its end.
bool ExpressionReader::ReadPossibleOperator(char first) {
  token_.assign(1, first);
  if (IsOperatorChar(first)) return true;
  if (!IsAlpha(first)) return false;
  int c = source_.NextChar();
  for (; !EndsWord(c); c = source_.NextChar()) {
    if (token_.size() == kLongestOperator) return false;
    token_ += static_cast<char>(c);
  }
  PutBack(c);
  return FindOperator(token_) != nullptr;
}

// A text where an operator is due: reads it to its end, to name it in the message as it is written.
ExpressionReader::Step ExpressionReader::RefuseTextConstant(char quote) {
  token_.assign(1, quote);
  for (int c = source_.NextChar(); c != quote; c = source_.NextChar()) {
    if (c == kEnd) return Fail(kUnclosedText);
    token_ += static_cast<char>(c);
  }
  token_ += quote;
  return FailOnToken(kOperatorExpected, token_);
}

// --- Either way ------------------------------------------------------------------------------

ExpressionReader::Step ExpressionReader::ReadComma() {
  if (tree_.innermost() != ExpressionTree::Open::Call) {
    return FailOnToken(operand_due_ ? kOperandExpected : kOperatorExpected, ",");
  }
  if (operand_due_) return Fail(kUnexpectedEnd);
  tree_.NextArgument();
  operand_due_ = true;
  return Step::More;
}

ExpressionReader::Step ExpressionReader::ReadClosing() {
  switch (tree_.innermost()) {
    case ExpressionTree::Open::Nothing:
      return Fail(kMismatched);
    case ExpressionTree::Open::Parenthesis:
      if (operand_due_) return Fail(kUnexpectedEnd);
      if (!tree_.CloseParen()) return Fail(kMismatched);
      break;
    case ExpressionTree::Open::Call:
      if (operand_due_ && !tree_.NoArgumentBegun()) return Fail(kUnexpectedEnd);
      tree_.CloseCall();
      break;
  }
  operand_due_ = false;
  after_gap_ = false;
  return Step::More;
}

// At ">" or at the end of the source.
ExpressionReader::Step ExpressionReader::ReadEnd(int c) {
  if (c == kEnd && InScript()) return Fail(kUnexpectedFileEnd);
  if (tree_.innermost() != ExpressionTree::Open::Nothing) return Fail(kMismatched);
  if (operand_due_) return Fail(kUnexpectedEnd);
  return Step::AtTagEnd;
}

// --- Characters ------------------------------------------------------------------------------

bool ExpressionReader::EndsWord(int c) const {
  return EndsValue(c) || IsWhite(c) || IsOperatorCharacter(c) || IsQuote(c) || c == '(' ||
         c == ')' || c == ',';
}

// Reads a word that begins with `first` into the token. A number ends before its second point.
void ExpressionReader::ReadWord(char first) {
  token_.assign(1, first);
  bool number = first == '-' || BeginsNumber(first);
  bool point = first == '.';
  int c = source_.NextChar();
  for (; !EndsWord(c); c = source_.NextChar()) {
    if (number && c == '.') {
      if (point) break;
      point = true;
    }
    token_ += static_cast<char>(c);
  }
  PutBack(c);
}

// The first character from `c` on that is not white space.
int ExpressionReader::SkipWhitespace(int c) {
  while (IsWhite(c)) c = source_.NextChar();
  return c;
}

int ExpressionReader::Peek() {
  int c = source_.NextChar();
  PutBack(c);
  return c;
}

void ExpressionReader::PutBack(int c) {
  if (c != kEnd) source_.PutBack();
}

// --- Errors ----------------------------------------------------------------------------------

ExpressionReader::Step ExpressionReader::Fail(std::string_view message) {
  context_.ReportExpressionError(message);
  return Step::Failed;
}

ExpressionReader::Step ExpressionReader::FailOnToken(std::string_view expected,
                                                     std::string_view token) {
  return Fail(String::Concat({expected, token, "'"}));
}

ExpressionReader::Step ExpressionReader::FailOnQuote(char quote) {
  return Fail(quote == '"' ? "Unexpected &quot;" : "Unexpected '");
}

}  // namespace vexa
