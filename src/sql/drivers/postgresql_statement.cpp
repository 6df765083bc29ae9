// The tokens of a statement.

#include "sql/drivers/postgresql_statement.h"

#include <algorithm>

#include "core/text.h"

namespace vexa {

namespace {

bool BeginsWord(char c) { return IsAlpha(c) || c == '_' || static_cast<unsigned char>(c) > 127; }
bool IsWordPart(char c) { return BeginsWord(c) || IsDigit(c); }

// Steps from token to token: words, numbers, quoted texts and names, single characters. Blanks and
// comments are passed over. What is not closed ends with the text.
class Tokens {
 public:
  explicit Tokens(std::string_view text) : text_(text) {}

  [[nodiscard]] bool Next() {
    begin_ = SkipBlank(end_);
    if (begin_ >= text_.size()) return false;
    end_ = std::min(EndOfToken(), text_.size());
    return true;
  }
  [[nodiscard]] size_t begin() const { return begin_; }
  [[nodiscard]] bool Is(std::string_view word) const {
    return EqualsIgnoreCase(text_.substr(begin_, end_ - begin_), word);
  }

 private:
  [[nodiscard]] bool StandsAt(size_t at, std::string_view what) const {
    return text_.substr(std::min(at, text_.size())).starts_with(what);
  }
  [[nodiscard]] char At(size_t at) const { return at < text_.size() ? text_[at] : '\0'; }
  [[nodiscard]] size_t Behind(std::string_view what, size_t from) const {
    const size_t found = text_.find(what, from);
    return found == text_.npos ? text_.size() : found + what.size();
  }
  [[nodiscard]] size_t SkipBlank(size_t at) const {
    for (;;) {
      if (IsWhitespace(At(at)) || At(at) == '\f' || At(at) == '\v') {
        ++at;
      } else if (StandsAt(at, "--")) {
        at = Behind("\n", at);
      } else if (StandsAt(at, "/*")) {
        at = BehindComment(at);
      } else {
        return at;
      }
    }
  }
  // Comments nest.
  [[nodiscard]] size_t BehindComment(size_t at) const {
    int depth = 0;
    while (at < text_.size()) {
      const int step = StandsAt(at, "/*") ? 1 : StandsAt(at, "*/") ? -1 : 0;
      at += step == 0 ? 1 : 2;
      depth += step;
      if (depth == 0) break;
    }
    return at;
  }
  [[nodiscard]] size_t EndOfToken() const {
    const char first = text_[begin_];
    if (first == '\'' || first == '"') return BehindQuote(begin_, false);
    if (ToUpper(first) == 'E' && At(begin_ + 1) == '\'') return BehindQuote(begin_ + 1, true);
    if (first == '$') return BehindDollars();
    if (!IsWordPart(first)) return begin_ + 1;
    size_t end = begin_;
    while (IsDigit(At(end))) ++end;
    if (end > begin_) return end;
    while (IsWordPart(At(end)) || At(end) == '$') ++end;
    return end;
  }
  // Two quotes in a row read as two texts side by side.
  [[nodiscard]] size_t BehindQuote(size_t at, bool escapes) const {
    const char quote = text_[at++];
    while (at < text_.size() && text_[at] != quote) at += escapes && text_[at] == '\\' ? 2 : 1;
    return at + 1;
  }
  [[nodiscard]] size_t BehindDollars() const {
    size_t end = begin_ + 1;
    if (BeginsWord(At(end))) {
      while (IsWordPart(At(end))) ++end;
    }
    if (At(end) != '$') return begin_ + 1;
    return Behind(text_.substr(begin_, end + 1 - begin_), end + 1);
  }

  std::string_view text_;
  size_t begin_ = 0;
  size_t end_ = 0;
};

// Reads on behind COPY. The client is named outside of parentheses, behind FROM or TO.
bool IsClientNext(Tokens& tokens, int& depth) {
  if (tokens.Is("(")) ++depth;
  if (tokens.Is(")")) --depth;
  if (depth != 0 || (!tokens.Is("FROM") && !tokens.Is("TO"))) return false;
  Tokens ahead = tokens;
  return ahead.Next() && (ahead.Is("STDIN") || ahead.Is("STDOUT"));
}

}  // namespace

PostgresqlStatementForm ReadPostgresqlStatement(std::string_view statement) {
  PostgresqlStatementForm form;
  form.text = statement;
  Tokens tokens(statement);
  bool more = tokens.Next();
  while (more && tokens.Is("(")) more = tokens.Next();
  form.queries = more && (tokens.Is("SELECT") || tokens.Is("VALUES") || tokens.Is("WITH"));
  const bool copy = more && tokens.Is("COPY");
  for (int depth = 0; more; more = tokens.Next()) {
    if (tokens.Is(";")) {
      form.text = statement.substr(0, tokens.begin());
      do {
        more = tokens.Next();
      } while (more && tokens.Is(";"));
      form.several = more;
      return form;
    }
    if (copy) form.copies = form.copies || IsClientNext(tokens, depth);
  }
  return form;
}

}  // namespace vexa
