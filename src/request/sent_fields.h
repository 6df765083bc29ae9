// SentFields: the fields of a request as they were sent. The variables that they become belong to
// the page, which may assign to them.
//
// Few pages ask. So what arrives is kept as it stands, written pairs of a query and of a
// URL-encoded body as bytes, and taken apart again when somebody asks:
//
//   query_, encoded_   -- Find, Keep -->   fields_, which Find sorts by name

#ifndef VEXA_REQUEST_SENT_FIELDS_H_
#define VEXA_REQUEST_SENT_FIELDS_H_

#include <cstddef>
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
  // The next pair of a URL-encoded body:
  void KeepEncoded(std::string_view pair) {
    encoded_.Append(pair);
    encoded_.Append("&");
  }
  // A field whose name and value are as they are:
  void Keep(const String& name, String value);

  // The fields of that name, letter case ignored, in the order they came. Valid until a field is
  // kept.
  [[nodiscard]] std::span<const SentField> Find(std::string_view name);

 private:
  void TakeApart();

  String query_;
  String encoded_;
  std::vector<SentField> fields_;
  size_t sorted_ = 0;  // of them
};

}  // namespace vexa

#endif  // VEXA_REQUEST_SENT_FIELDS_H_
