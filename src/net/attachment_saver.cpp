// Names and files of attachments.

#include "net/attachment_saver.h"

#include <algorithm>
#include <cstddef>

#include "core/encoding.h"
#include "core/file.h"
#include "core/number.h"
#include "core/text.h"

namespace vexa {

namespace {

constexpr size_t kLongestName = 100;  // bytes
constexpr int kMostNumbers = 1'000'000;

// The extension with its point; empty without one. A name that is nothing else has none.
std::string_view ExtensionOf(std::string_view name) {
  const size_t point = name.rfind('.');
  return point == std::string_view::npos || point == 0 ? std::string_view() : name.substr(point);
}

// Whether files with that extension are run as pages.
bool IsPageExtension(std::string_view extension, const Settings& settings) {
  if (extension.empty()) return false;
  if (EqualsIgnoreCase(ExtensionOf(settings.quorbeldefault), extension)) return true;
  extension.remove_prefix(1);
  for (PieceReader pieces(settings.validextensions, ","); pieces.Next();) {
    std::string_view listed = Stripped(pieces.piece());
    if (listed.starts_with('.')) listed.remove_prefix(1);
    if (EqualsIgnoreCase(listed, extension)) return true;
  }
  return false;
}

void AppendLine(String& list, std::string_view line) {
  if (!list.empty()) list.Append("\n");
  list.Append(line);
}

}  // namespace

String SafeFileName(std::string_view sent, const Settings& settings) {
  sent.remove_prefix(sent.find_last_of("/\\") + 1);
  String name;
  bool replaced = false;
  for (char c : sent) {
    const bool kept = IsAlpha(c) || IsDigit(c) || c == '.' || c == '-' || c == '_';
    if (kept) {
      name.Accumulate(c);
    } else if (!replaced) {
      name.Accumulate('_');
    }
    replaced = !kept;
  }
  const size_t start = name.view().find_first_not_of('.');
  name = start == std::string_view::npos ? String() : String(name.view().substr(start));
  if (name.size() > kLongestName) {
    const String extension = ExtensionOf(name);
    const size_t kept = extension.size() < kLongestName ? extension.size() : 0;
    name = String::Concat(
        {name.view().substr(0, kLongestName - kept), extension.view().substr(0, kept)});
  }
  if (name.empty()) name = "attachment";
  if (IsPageExtension(ExtensionOf(name), settings)) name.cat(".txt");
  return name;
}

AttachmentSaver::~AttachmentSaver() {
  if (kept_) return;
  for (const String& path : saved_) (void)host_.filemanager().Delete(path);
}

bool AttachmentSaver::Take(const String& name, std::string_view content) {
  if (directory_.empty()) return true;
  String directory;
  if (host_.ResolvePath(directory_, directory, PathType::DataPath, error_) == 0) return false;
  const String safe = SafeFileName(name, host_.config());
  const std::string_view extension = ExtensionOf(safe);
  const std::string_view stem = safe.view().substr(0, safe.size() - extension.size());
  const std::string_view slash = directory_.view().ends_with('/') ? "" : "/";
  for (int number = 1; number <= kMostNumbers; ++number) {
    const String digits = number == 1 ? String() : "-" + PrintInteger(number);
    const String chosen = String::Concat({stem, digits, extension});
    const String path = String::Concat({directory, "/", chosen});
    const int made = host_.filemanager().WriteNew(path, content);
    if (made > 0) continue;
    if (made < 0) {
      error_ = String::Concat(
          {"Error writing '", EntityEncoded(chosen), "': ", host_.filemanager().error()});
      return false;
    }
    saved_.push_back(path);
    AppendLine(paths_, String::Concat({directory_, slash, chosen}));
    AppendLine(names_, name);
    return true;
  }
  error_ = String::Concat({"Error writing '", EntityEncoded(safe), "': File exists"});
  return false;
}

}  // namespace vexa
