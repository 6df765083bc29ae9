// SiteVarsParser: the lines of a site-variables file. Carriage returns are dropped; a backslash
// works as in the configuration file: before "#", "<", a line end or a backslash it keeps that
// character in the text, elsewhere it stays. Lines that begin with "#" are comments.

#include "config/site_variables.h"

#include <cerrno>

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
  // `lines`, when it is not null, receives what is defined.
  SiteVarsParser(ConfigReceiver& receiver, Buffer& source, KeptSiteVariables::Lines* lines)
      : receiver_(receiver), source_(source), lines_(lines) {}

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
    const String value(equals == line.npos ? "" : line.substr(equals + 1));
    receiver_.AddSiteVariable(name, value);
    if (lines_ != nullptr) lines_->emplace_back(name, value);
  }

  ConfigReceiver& receiver_;
  Buffer& source_;
  KeptSiteVariables::Lines* lines_;
  String text_;
  bool comment_ = false;
};

}  // namespace

int ReadSiteVarsFile(ConfigReceiver& receiver, const Settings& settings, const String& path,
                     SiteVarsRule rule) {
  KeptSiteVariables* const kept = receiver.keptvariables();
  FileProof proof;
  const bool keep = kept != nullptr && rule != SiteVarsRule::OfRoot && ProveFile(path, proof);
  if (!keep && kept != nullptr && rule == SiteVarsRule::MayBeMissing && errno == ENOENT) return 0;
  if (keep && kept->Add(receiver, path, proof)) return 0;
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
  KeptSiteVariables::Lines lines;
  SiteVarsParser(receiver, file, keep ? &lines : nullptr).Parse();
  FileProof after;
  struct stat read;
  if (keep && proof.Settled() && file.Status(read) && FileProof(read) == proof &&
      ProveFile(path, after) && after == proof) {
    kept->Keep(path, proof, std::move(lines));
  }
  return 0;
}

bool KeptSiteVariables::Add(ConfigReceiver& receiver, const String& path,
                            const FileProof& proof) const {
  for (const File& file : files_) {
    if (file.path != path || file.proof != proof) continue;
    for (const auto& [name, value] : file.lines) receiver.AddSiteVariable(name, value);
    return true;
  }
  return false;
}

void KeptSiteVariables::Keep(const String& path, const FileProof& proof, Lines lines) {
  std::erase_if(files_, [&](const File& file) { return file.path == path; });
  if (files_.size() == kMost) files_.erase(files_.begin());
  files_.push_back({path, proof, std::move(lines)});
}

}  // namespace vexa
