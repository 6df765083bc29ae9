// Forms: taking pairs apart, and pairs joined across the reads of a body.

#include "request/form.h"

#include <algorithm>
#include <cassert>
#include <cstring>
#include <utility>

#include "core/encoding.h"
#include "core/text.h"
#include "request/multipart.h"
#include "request/sent_fields.h"

namespace vexa {

namespace {

// A pair that is longer is decoded as it arrives.
constexpr size_t kLargePair = 4096;

}  // namespace

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

bool AddQueryFields(FormReceiver& receiver, std::string_view query) {
  String text(query);
  text.gsub("\\", "");
  for (PieceReader pieces(text, "&"); pieces.Next();) {
    if (!receiver.AdmitField()) return false;
    const FormPair field = DecodePair(pieces.piece(), FieldSpace::Stripped);
    receiver.vars().AddFormVariable(field.name, field.value);
  }
  return true;
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

bool ContentParser::ReportDamage() const {
  receiver().Error(RequestError(RequestError::Fault::Damaged));
  return false;
}

int URLEncodedParser::Parse(int64_t length) {
  assert(length > 0 && pending_.empty());
  int64_t configured = std::max(input().piece_bytes, 1);
  auto size = static_cast<size_t>(std::min(configured, length));
  auto buffer = std::make_unique_for_overwrite<char[]>(size);
  to_come_ = length;
  while (length > 0) {
    int wanted = static_cast<int>(std::min(static_cast<int64_t>(size), length));
    int count = receiver().ReadContent(buffer.get(), wanted);
    if (count < 1) break;
    length -= count;
    to_come_ = length;
    if (!Take({buffer.get(), static_cast<size_t>(count)})) return 1;
  }
  if (length > 0 && (ReportTimeout() || (strict() && !ReportDamage()))) return 1;
  return (pending_.empty() && !large_) || AddPending() ? 0 : 1;
}

bool URLEncodedParser::Take(std::string_view bytes) {
  for (;;) {
    size_t end = bytes.find('&');
    std::string_view piece = bytes.substr(0, end);
    AppendOfBody(pending_, piece, to_come_ + static_cast<int64_t>(bytes.size() - piece.size()));
    if (equals_ == piece.npos && !large_) {
      const size_t equals = piece.find('=');
      if (equals != piece.npos) equals_ = pending_.size() - piece.size() + equals;
    }
    if (pending_.size() > kLargePair) DecodeLarge();
    if (end == bytes.npos) return true;
    if (!AddPending()) return false;
    bytes.remove_prefix(end + 1);
  }
}

bool URLEncodedParser::AddPending() {
  if (!receiver().AdmitField()) return false;
  if (large_ || pending_.size() > kLargePair) {
    DecodeArrived(pending_, decoded_, Arrived::Last);
    if (!large_) {
      pending_.Fit();
      pending_.Share();
      name_ = pending_;  // Without "=" it is its own name.
    }
    AddLargeField(receiver(), name_, pending_);
    name_.Reset();
  } else {
    receiver().sentfields().KeepEncoded(pending_);
    const FormPair field = DecodePair(pending_, FieldSpace::Kept);
    receiver().vars().AddFormVariable(field.name, field.value);
    pending_.clear();
  }
  equals_ = std::string_view::npos;
  large_ = false;
  decoded_ = 0;
  return true;
}

// What may still be a large name stays as it is.
void URLEncodedParser::DecodeLarge() {
  if (!large_) {
    if (equals_ == std::string_view::npos) return;
    name_ = pending_.view().substr(0, equals_);
    DecodeAttribute(name_);
    char* const bytes = pending_.MutableBytes();
    const size_t length = pending_.size() - (equals_ + 1);
    std::memmove(bytes, bytes + equals_ + 1, length);
    pending_.Truncate(length);
    large_ = true;
  }
  decoded_ = DecodeArrived(pending_, decoded_, Arrived::Piece);
}

void AppendOfBody(String& text, std::string_view piece, int64_t to_come) {
  const size_t length = text.size() + piece.size();
  const auto more = static_cast<size_t>(std::min<int64_t>(to_come, String::kLongestText));
  text.Reserve(length, length + more);
  text.cat(piece);
}

void AddLargeField(FormReceiver& receiver, const String& name, String& value) {
  value.Fit();
  value.Share();
  receiver.vars().AddFormVariable(name, value);
  receiver.sentfields().Keep(name, std::move(value));
  value.Reset();
}

}  // namespace vexa
