// Finding parameters; see query_text.h.

#include "sql/query_text.h"

#include <algorithm>

#include "core/text.h"
#include "sql/drivers/sql_text.h"

namespace vexa {

namespace {

bool BeginsName(char c) { return IsAlpha(c) || c == '_'; }
bool IsNamePart(char c) { return BeginsName(c) || IsDigit(c); }
// Words of a statement may also hold dollars and letters beyond ASCII.
bool BeginsWord(char c) { return BeginsName(c) || static_cast<unsigned char>(c) > 127; }
bool IsWordPart(char c) { return BeginsWord(c) || IsDigit(c) || c == '$'; }

// Steps over a text from token to token, which are copied but for parameters.
class QueryReader {
 public:
  QueryReader(std::string_view query, const SqlDriver& driver, QueryText& read)
      : query_(query), driver_(driver), lexis_(driver.lexis()), read_(read) {}

  // False at one of the engine's own parameters.
  [[nodiscard]] bool Read() {
    read_ = {};
    while (at_ < query_.size()) {
      const char c = query_[at_];
      if (BeginsWord(c)) {
        CopyWord();
      } else if (IsDigit(c)) {
        // Where dollars are quotes, no number holds one.
        CopyWhile(lexis_.dollar_quotes ? IsDigit : IsWordPart);
      } else if (c == '\'' || c == '"' || (c == '`' && lexis_.backticks)) {
        CopyTo(Closing(c, false));
      } else if (c == '[' && lexis_.brackets) {
        CopyTo(BehindNext("]", 1));
      } else if (Rest().starts_with("--")) {
        CopyTo(BehindNext("\n", 2));
      } else if (Rest().starts_with("/*")) {
        CopyTo(CommentEnd());
      } else if (c == ':') {
        ReadColon();
      } else if (c == '$' && lexis_.dollar_quotes && DollarTag() > 0) {
        CopyTo(BehindNext(Rest().substr(0, DollarTag()), DollarTag()));
      } else if (IsPlaceholder(c)) {
        return false;
      } else {
        CopyTo(at_ + 1);
      }
    }
    return true;
  }

 private:
  [[nodiscard]] std::string_view Rest() const { return query_.substr(at_); }
  [[nodiscard]] char At(size_t place) const { return place < query_.size() ? query_[place] : '\0'; }

  void CopyTo(size_t end) {
    end = std::min(end, query_.size());
    read_.text.Append(query_.substr(at_, end - at_));
    at_ = end;
  }
  template <typename Belongs>
  void CopyWhile(Belongs belongs) {
    size_t end = at_;
    while (end < query_.size() && belongs(query_[end])) ++end;
    CopyTo(end);
  }
  // A word E right before a quote changes what stands in the quotes.
  void CopyWord() {
    const bool is_e = ToUpper(query_[at_]) == 'E' && At(at_ + 1) == '\'';
    if (is_e && lexis_.escape_strings) {
      CopyTo(at_ + 1);
      CopyTo(Closing('\'', true));
    } else {
      CopyWhile(IsWordPart);
    }
  }
  // Behind the quote that closes the one here. Two in a row stand for one: they read as two texts
  // side by side.
  [[nodiscard]] size_t Closing(char quote, bool escapes) const {
    for (size_t i = at_ + 1; i < query_.size(); ++i) {
      if (escapes && query_[i] == '\\') {
        ++i;
      } else if (query_[i] == quote) {
        return i + 1;
      }
    }
    return query_.size();
  }
  [[nodiscard]] size_t BehindNext(std::string_view text, size_t skipped) const {
    const size_t found = query_.find(text, at_ + skipped);
    return found == query_.npos ? query_.size() : found + text.size();
  }
  [[nodiscard]] size_t CommentEnd() const {
    if (!lexis_.nested_comments) return BehindNext("*/", 2);
    int depth = 0;
    for (size_t i = at_; i + 1 < query_.size(); ++i) {
      const std::string_view pair = query_.substr(i, 2);
      if (pair == "/*") {
        ++depth;
        ++i;
      } else if (pair == "*/") {
        ++i;
        if (--depth == 0) return i + 1;
      }
    }
    return query_.size();
  }
  // The length of `$tag$` here; 0 when there is none.
  [[nodiscard]] size_t DollarTag() const {
    size_t end = at_ + 1;
    if (BeginsWord(At(end))) {
      while (IsNamePart(At(end)) || static_cast<unsigned char>(At(end)) > 127) ++end;
    }
    return At(end) == '$' ? end + 1 - at_ : 0;
  }
  [[nodiscard]] bool IsPlaceholder(char c) const {
    if (lexis_.dollar_digits && c == '$' && IsDigit(At(at_ + 1))) return true;
    return lexis_.placeholders.find(c) != lexis_.placeholders.npos;
  }
  void ReadColon() {
    size_t colons = 0;
    while (At(at_ + colons) == ':') ++colons;
    if (colons != 1 || !BeginsName(At(at_ + 1))) {
      CopyTo(at_ + colons);
      return;
    }
    size_t end = at_ + 1;
    while (IsNamePart(At(end)) || (At(end) == '.' && BeginsName(At(end + 1)))) ++end;
    read_.names.emplace_back(query_.substr(at_ + 1, end - at_ - 1));
    // What stands beside the mark must not run together with it.
    if (at_ > 0 && IsWordPart(query_[at_ - 1])) read_.text.Append(" ");
    read_.text.Append(driver_.Mark(read_.names.size()));
    if (IsWordPart(At(end))) read_.text.Append(" ");
    at_ = end;
  }

  std::string_view query_;
  const SqlDriver& driver_;
  const SqlLexis& lexis_;
  QueryText& read_;
  size_t at_ = 0;
};

// Steps through the words of a statement.
class StatementWords {
 public:
  explicit StatementWords(std::string_view text) : rest_(text) {}
  [[nodiscard]] bool Next(std::string_view first, std::string_view second) {
    size_t end;
    const std::string_view word = FirstWord(rest_, end);
    const bool is_known = EqualsIgnoreCase(word, first) || EqualsIgnoreCase(word, second);
    if (is_known) rest_.remove_prefix(end);
    return is_known;
  }
  // Whether nothing follows the word that ends a transaction but whether another one begins.
  [[nodiscard]] bool AtEndOfEnding() {
    if (Next("AND", "AND")) {
      (void)Next("NO", "NO");
      if (!Next("CHAIN", "CHAIN")) return false;
    }
    return AtEnd();
  }
  // Whether nothing follows but a semicolon.
  [[nodiscard]] bool AtEnd() const {
    size_t end;
    return FirstWord(rest_, end).empty() && (end == rest_.size() || rest_[end] == ';');
  }

 private:
  std::string_view rest_;
};

}  // namespace

bool ReadQueryText(std::string_view query, const SqlDriver& driver, QueryText& read,
                   String& message) {
  if (QueryReader(query, driver, read).Read()) return true;
  message = "Parameters are written :name";
  return false;
}

TransactionStep StepOf(std::string_view statement) {
  StatementWords words(statement);
  if (words.Next("BEGIN", "BEGIN")) {
    (void)words.Next("TRANSACTION", "WORK");
    return words.AtEnd() ? TransactionStep::Begin : TransactionStep::None;
  }
  if (words.Next("COMMIT", "END")) {
    (void)words.Next("TRANSACTION", "WORK");
    return words.AtEndOfEnding() ? TransactionStep::Commit : TransactionStep::None;
  }
  if (!words.Next("ROLLBACK", "ABORT")) return TransactionStep::None;
  (void)words.Next("TRANSACTION", "WORK");
  if (words.Next("TO", "TO")) return TransactionStep::RollbackTo;
  return words.AtEndOfEnding() ? TransactionStep::Rollback : TransactionStep::None;
}

}  // namespace vexa
