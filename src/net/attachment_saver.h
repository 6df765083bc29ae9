// Saving the attachments of mails: files made anew in one directory, under names that the sender
// proposes and nobody else suffers from.

#ifndef VEXA_NET_ATTACHMENT_SAVER_H_
#define VEXA_NET_ATTACHMENT_SAVER_H_

#include <string_view>
#include <vector>

#include "core/settings.h"
#include "core/string.h"
#include "net/mail_reader.h"
#include "vexa.h"

namespace vexa {

// The name under which a file that was sent as `sent` is saved: one part of a path, of letters,
// digits, `.`, `-` and `_`, that begins with no point and that no server takes for a page.
[[nodiscard]] String SafeFileName(std::string_view sent, const Settings& settings);

// The attachments of one mail. They stay only when Keep is called.
class AttachmentSaver final : public AttachmentSink {
 public:
  // `directory` is a data path as the page wrote it; empty: nothing is saved. Both are borrowed.
  AttachmentSaver(Vexa& host, const String& directory) : host_(host), directory_(directory) {}
  ~AttachmentSaver() override;
  AttachmentSaver(const AttachmentSaver&) = delete;
  AttachmentSaver& operator=(const AttachmentSaver&) = delete;

  // False with error() set when it cannot be saved.
  [[nodiscard]] bool Take(const String& name, std::string_view content) override;
  void Keep() { kept_ = true; }

  // Data paths of the saved files, and their names as sent, one a line.
  [[nodiscard]] const String& paths() const { return paths_; }
  [[nodiscard]] const String& names() const { return names_; }
  [[nodiscard]] const String& error() const { return error_; }

 private:
  Vexa& host_;
  const String& directory_;
  bool kept_ = false;
  std::vector<String> saved_;  // finished paths
  String paths_;
  String names_;
  String error_;
};

}  // namespace vexa

#endif  // VEXA_NET_ATTACHMENT_SAVER_H_
