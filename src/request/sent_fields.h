// SentFields: the fields of a request as they were sent. The variables that they become belong to
// the page, which may assign to them.
//
// Few pages ask. So what arrives is kept as it stands, written pairs of a query and of a
// URL-encoded body as bytes, and taken apart again when somebody asks:
//
//   query_, encoded_, decoded_   -- Find -->   fields_, sorted by name, each name's in their order

#ifndef VEXA_REQUEST_SENT_FIELDS_H_
#define VEXA_REQUEST_SENT_FIELDS_H_

#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "core/string.h"
#include "vexa.h"

namespace vexa {

class SentFields {
 public:
  SentFields() = default;
  SentFields(const SentFields&) = delete;
  SentFields& operator=(const SentFields&) = delete;

  // Each keeps what comes behind all that was kept before. The text of a query:
  void KeepQuery(String query) { query_ = std::move(query); }
  // The next piece of a URL-encoded body, which may end anywhere:
  void KeepEncoded(std::string_view piece) { encoded_.Append(piece); }
  // A field whose name and value are as they are:
  void Keep(const String& name, const String& value);

  // The fields of that name, letter case ignored, in the order they came. Valid until a field is
  // kept. REQUIRES: a body of which a piece was kept is there as far as it will come.
  [[nodiscard]] std::span<const SentField> Find(std::string_view name);

 private:
  void TakeApart();

  String query_;
  String encoded_;
  std::vector<SentField> decoded_;
  std::vector<SentField> fields_;
};

}  // namespace vexa

#endif  // VEXA_REQUEST_SENT_FIELDS_H_
