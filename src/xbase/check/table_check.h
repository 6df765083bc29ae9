// The checker of tables, memo files and indexes, for people. It only reads, under shared locks, and
// believes nothing it reads.

#ifndef VEXA_XBASE_CHECK_TABLE_CHECK_H_
#define VEXA_XBASE_CHECK_TABLE_CHECK_H_

#include <span>

#include "core/file.h"
#include "core/output.h"

namespace vexa {

// Checks the table at `table`, its memo file, and the indexes at these paths against it. Prints a
// line a fault, or one that says that a file is good. Returns 0 when everything is good, else 1.
//
//   table    header and descriptors, the count of records against the file's size, deletion marks
//   memo     header, and every text that a record names: within the file, ended, not inside another
//   index    header, page numbers, pages reached twice, leaves of unequal depth, order of the keys,
//            every record named exactly once; the keys themselves where the key expression is the
//            name of a field that is no date
int CheckTable(FileManager& files, const String& table, std::span<const String> indexes,
               Output& out);

}  // namespace vexa

#endif  // VEXA_XBASE_CHECK_TABLE_CHECK_H_
