// URLEncodedParser: pairs joined across the reads.

#include "request/url_encoded.h"

#include <algorithm>
#include <memory>

#include "host/host.h"
#include "request/form_fields.h"

namespace vexa {

int URLEncodedParser::Parse(int64_t length) {
  int64_t configured = std::max(host().config().contentbuffersize, 1);
  auto size = static_cast<size_t>(std::min(configured, length));
  auto buffer = std::make_unique_for_overwrite<char[]>(size);
  while (length > 0) {
    int wanted = static_cast<int>(std::min(static_cast<int64_t>(size), length));
    int count = host().ReadContent(buffer.get(), wanted);
    if (count < 1) break;
    Take({buffer.get(), static_cast<size_t>(count)});
    length -= count;
  }
  if (length > 0 && CheckTimeout() != 0) return 1;
  if (!pending_.empty()) AddPending();
  return 0;
}

void URLEncodedParser::Take(std::string_view bytes) {
  for (;;) {
    size_t end = bytes.find('&');
    std::string_view piece = bytes.substr(0, end);
    pending_.Reserve(pending_.size() + piece.size());
    pending_.cat(piece);
    if (end == bytes.npos) return;
    AddPending();
    bytes.remove_prefix(end + 1);
  }
}

void URLEncodedParser::AddPending() {
  AddFormField(host().vars(), pending_, FieldSpace::Kept);
  pending_.clear();
}

}  // namespace vexa
