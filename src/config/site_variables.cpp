// SiteVarsParser: the lines of a site-variables file. Carriage returns are dropped; a backslash
// works as in the configuration file: before "#", "<", a line end or a backslash it keeps that
// character in the text, elsewhere it stays. Lines that begin with "#" are comments.

#include "config/site_variables.h"

#include "config/config_receiver.h"
#include "core/buffer.h"
#include "core/error.h"
#include "core/text.h"
#include "files/trusted_file.h"

namespace vexa {

namespace {

constexpr int kSiteVariablesBuffer = 8192;

class SiteVarsParser {
 public:
  SiteVarsParser(ConfigReceiver& receiver, Buffer& source) : receiver_(receiver), source_(source) {}

  void Parse() {
    while (GetNextLine()) {
      if (!comment_) ProcessLine(text_);
    }
  }

 private:
  // Reads one line; false at the end of the file.
  bool GetNextLine() {
    text_.clear();
    int c = GetChar();
    if (c == -1) return false;
    comment_ = c == '#';
    for (; c != -1 && c != '\n'; c = GetChar()) {
      if (c == '\\') {
        c = GetChar();
        if (c != '#' && c != '<' && c != '\\' && c != '\n') text_.Accumulate('\\');
        if (c == -1) break;
      }
      text_.Accumulate(static_cast<char>(c));
    }
    return true;
  }

  int GetChar() {
    int c = source_.GetNextChar();
    while (c == '\r') c = source_.GetNextChar();
    return c;
  }

  // The spaces around a value belong to it, those around a name do not.
  void ProcessLine(std::string_view line) {
    size_t equals = line.find('=');
    std::string_view name = Stripped(line.substr(0, equals));
    if (name.empty()) return;
    receiver_.AddSiteVariable(name, String(equals == line.npos ? "" : line.substr(equals + 1)));
  }

  ConfigReceiver& receiver_;
  Buffer& source_;
  String text_;
  bool comment_ = false;
};

}  // namespace

int ReadSiteVarsFile(ConfigReceiver& receiver, const Settings& settings, const String& path,
                     SiteVarsRule rule) {
  Buffer file(receiver.filemanager(), kSiteVariablesBuffer);
  TrustedFile trusted(0);
  const bool opened = rule == SiteVarsRule::OfRoot
                          ? trusted.Check(path) && trusted.OpenIn(file, path)
                          : file.Open(path, path);
  if (!opened) {
    if (rule == SiteVarsRule::MayBeMissing) return 0;
    receiver.Error(ConfigurationError(settings, "Error opening sitevars file"));
    return 1;
  }
  SiteVarsParser(receiver, file).Parse();
  return 0;
}

}  // namespace vexa
