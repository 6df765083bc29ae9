// Finishing the change of a process that is gone; the steps are in journal.h.

#ifndef VEXA_XBASE_CHANGE_COMPLETION_H_
#define VEXA_XBASE_CHANGE_COMPLETION_H_

#include <functional>

#include "core/file.h"
#include "xbase/change/journal.h"

namespace vexa {

struct Completion {
  FileManager& files;
  String table;      // the table's path without links
  String errorname;  // and its name in messages
  // Whether the index or file at a finished path may be written.
  std::function<bool(const String& path)> allowed;
  Durability durability = Durability::None;
};

// Finishes what the table at `completion.table` bears the mark of, if it bears one that its journal
// knows. False with the message in `error`.
// REQUIRES: the caller holds no locks on the table or its indexes.
[[nodiscard]] bool CompleteChange(const Completion& completion, String& error);

}  // namespace vexa

#endif  // VEXA_XBASE_CHANGE_COMPLETION_H_
