// OpenDatabases: the databases a request has open, in the order they were opened, and the types
// that can be opened.

#ifndef VEXA_HOST_OPEN_DATABASES_H_
#define VEXA_HOST_OPEN_DATABASES_H_

#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "core/string.h"
#include "core/variables.h"
#include "database.h"
#include "vexa.h"

namespace vexa {

// A database of the type `type` (letter case ignored), closed. Null with `message` set when there
// is no such type.
[[nodiscard]] std::unique_ptr<Database> MakeDatabase(Vexa& host, const String& type,
                                                     const String& name, String& message);

class OpenDatabases final : public FieldSource {
 public:
  void Add(std::unique_ptr<Database> database);
  // Destroys the database; false when it is not one of these.
  bool Remove(Database* database);
  void Clear();

  [[nodiscard]] Database* Find(std::string_view name) const;
  // The view of that name in the first database that has one, or null.
  [[nodiscard]] DatabaseView* FindView(std::string_view name) const;
  [[nodiscard]] Variable* FindField(Symbol field, std::string_view database) override;
  [[nodiscard]] std::span<const std::unique_ptr<Database>> all() const { return databases_; }

  // One of these, or null.
  [[nodiscard]] Database* primary() const { return primary_; }
  void SetPrimary(Database* database);

 private:
  std::vector<std::unique_ptr<Database>> databases_;
  Database* primary_ = nullptr;
};

}  // namespace vexa

#endif  // VEXA_HOST_OPEN_DATABASES_H_
