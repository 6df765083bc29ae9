// Looking at the raw text of a mail before anything is made of it: where its header ends, and
// whether taking it apart would cost more than a mail may. Mails come from strangers, and small
// ones can be made of hundreds of thousands of parts.
//
// A header is a row of lines that are `name:` or indented. Headers stand at the start, behind a
// line that begins with `--`, and behind the header of a message that is inside another, as all
// parts of a digest are. Lists of addresses are read by recursion and kept whole: a limit on the
// colons and commas of a header bounds that.

#ifndef VEXA_NET_MAIL_CHECK_H_
#define VEXA_NET_MAIL_CHECK_H_

#include <cstddef>
#include <string_view>

namespace vexa {

enum class MailProblem { None, TooManyHeaderLines, TooManyParts };

// What of `text` is its first header, as far as a header may go: whole lines.
[[nodiscard]] std::string_view MailHead(std::string_view text);
struct MailCost {
  MailProblem problem = MailProblem::None;
  size_t memory = 0;  // bytes that taking it apart may need, when there is no problem
};
// What the whole mail costs.
[[nodiscard]] MailCost MeasureMail(std::string_view text);
// What is wrong with it.
[[nodiscard]] inline MailProblem CheckMail(std::string_view text) {
  return MeasureMail(text).problem;
}

// The next line of `text` from `at` on, without its end; `at` then is behind that.
// REQUIRES: `at` is less than the size.
[[nodiscard]] std::string_view NextMailLine(std::string_view text, size_t& at);
// Where the value of a line `name: value` begins; 0 when it is no such line.
[[nodiscard]] size_t HeaderNameEnd(std::string_view line);

}  // namespace vexa

#endif  // VEXA_NET_MAIL_CHECK_H_
