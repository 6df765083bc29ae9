// Files under a lock on the whole of them: how flat files and the FILE tag keep readers and writers
// in other processes from seeing or losing half a change. Readers share the lock.
//
// A file may be replaced or removed between its opening and the moment the lock is granted; what is
// written to it then would be lost. So the path is looked at again once the lock is there.

#ifndef VEXA_FILES_LOCKED_FILE_H_
#define VEXA_FILES_LOCKED_FILE_H_

#include <memory>
#include <string_view>

#include "core/file.h"
#include "core/string.h"
#include "vexa.h"

namespace vexa {

// Opens `path` (a finished path) with OpenMode bits and locks all of it: exclusively when it is
// opened for writing, else shared. Closing the file gives the lock up. Null with `error` set when
// that fails or the request's time is up.
[[nodiscard]] std::unique_ptr<File> OpenLocked(Vexa& host, const String& path, int mode,
                                               String& error);

// Makes `data` the whole content of the file at `path`, through a new file that takes its place: a
// reader, or a request that is killed, leaves the former content or the new one. Only where no file
// can be made beside it, or a rename would change more than the content, it is written in place;
// when there is no room for it, the former content stays. False with `error` set.
[[nodiscard]] bool ReplaceContent(Vexa& host, const String& path, std::string_view data,
                                  String& error);

// Each returns false with `error` set when it fails. REQUIRES: the whole file is locked.

// Appends `data` with one write. When that fails the file is cut to its former length.
// REQUIRES: opened with OpenAppend.
[[nodiscard]] bool AppendWhole(File& file, std::string_view data, String& error);
// Reads the whole content.
[[nodiscard]] bool ReadContent(File& file, String& content, String& error);

}  // namespace vexa

#endif  // VEXA_FILES_LOCKED_FILE_H_
