// Forms: taking pairs apart, and pairs joined across the reads of a body.

#include "request/form.h"

#include <algorithm>
#include <cassert>

#include "core/encoding.h"
#include "core/text.h"
#include "request/multipart.h"
#include "request/sent_fields.h"

namespace vexa {

FormPair DecodePair(std::string_view pair, FieldSpace space) {
  size_t equals = pair.find('=');
  std::string_view written_name = pair.substr(0, equals);
  std::string_view written_value = equals == pair.npos ? pair : pair.substr(equals + 1);
  if (space == FieldSpace::Stripped) {
    written_name = Stripped(written_name);
    written_value = Stripped(written_value);
  }
  FormPair field{written_name, written_value};
  DecodeAttribute(field.name);
  DecodeAttribute(field.value);
  return field;
}

void AddQueryFields(Variables& vars, std::string_view query) {
  String text(query);
  text.gsub("\\", "");
  for (PieceReader pieces(text, "&"); pieces.Next();) {
    const FormPair field = DecodePair(pieces.piece(), FieldSpace::Stripped);
    vars.AddFormVariable(field.name, field.value);
  }
}

std::unique_ptr<ContentParser> NewContentParser(const FormInput& input,
                                                std::string_view content_type) {
  std::string_view type = Stripped(content_type.substr(0, content_type.find(';')));
  if (EqualsIgnoreCase(type, "application/x-www-form-urlencoded")) {
    return std::make_unique<URLEncodedParser>(input);
  }
  if (EqualsIgnoreCase(type, "multipart/form-data")) {
    return std::make_unique<MultipartFormDataParser>(input, content_type);
  }
  return nullptr;
}

bool ContentParser::ReportTimeout() const {
  if (!receiver().timedout()) return false;
  receiver().Error(TimeoutError("Application"));
  return true;
}

int URLEncodedParser::Parse(int64_t length) {
  assert(length > 0 && pending_.empty());
  int64_t configured = std::max(input().piece_bytes, 1);
  auto size = static_cast<size_t>(std::min(configured, length));
  auto buffer = std::make_unique_for_overwrite<char[]>(size);
  while (length > 0) {
    int wanted = static_cast<int>(std::min(static_cast<int64_t>(size), length));
    int count = receiver().ReadContent(buffer.get(), wanted);
    if (count < 1) break;
    Take({buffer.get(), static_cast<size_t>(count)});
    length -= count;
  }
  if (length > 0 && ReportTimeout()) return 1;
  if (!pending_.empty()) AddPending();
  return 0;
}

void URLEncodedParser::Take(std::string_view bytes) {
  receiver().sentfields().KeepEncoded(bytes);
  for (;;) {
    size_t end = bytes.find('&');
    std::string_view piece = bytes.substr(0, end);
    pending_.Append(piece);
    if (end == bytes.npos) return;
    AddPending();
    bytes.remove_prefix(end + 1);
  }
}

void URLEncodedParser::AddPending() {
  const FormPair field = DecodePair(pending_, FieldSpace::Kept);
  receiver().vars().AddFormVariable(field.name, field.value);
  pending_.clear();
}

}  // namespace vexa
