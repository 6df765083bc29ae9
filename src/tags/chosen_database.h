// How the database tags choose what they work on, and what they make of results.
//
// NAME chooses an open database, else it is the primary one. VIEW chooses a view of it, else it is
// the primary one. A move or change that found no record is no error: the tag's error variable is
// set to EOF.

#ifndef VEXA_TAGS_CHOSEN_DATABASE_H_
#define VEXA_TAGS_CHOSEN_DATABASE_H_

#include "core/string.h"
#include "database.h"
#include "engine/tag_call.h"

namespace vexa {

// Each returns null with `message` set on failure. The host owns what is returned.
[[nodiscard]] Database* GetDatabase(const TagCall& call, String& message);
// `database` is set to the view's.
[[nodiscard]] DatabaseView* GetView(const TagCall& call, Database*& database, String& message);
[[nodiscard]] DatabaseView* GetView(const TagCall& call, String& message);
// The view called VIEW.
[[nodiscard]] DatabaseView* FindViewOf(const TagCall& call, Database& database, String& message);

// Reports a failure with its message, unless an expression failed: that was reported where it
// happened and stops the script.
[[nodiscard]] StateResult ReportFailure(const TagCall& call, DataResult result,
                                        const String& message);
// What a tag makes of the result of an operation on `view`.
[[nodiscard]] StateResult ResultOf(const TagCall& call, DatabaseView& view, DataResult result);

[[nodiscard]] String NotOpenMessage(const String& name);
// Of an operation that would destroy what is being used.
[[nodiscard]] String InUseMessage(const Database& database);

}  // namespace vexa

#endif  // VEXA_TAGS_CHOSEN_DATABASE_H_
