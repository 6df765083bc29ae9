// The check of a configuration file: what is wrong with it for any host, and what it may not mean.

#ifndef VEXA_CONFIG_CONFIG_CHECK_H_
#define VEXA_CONFIG_CONFIG_CHECK_H_

#include "config/unix_config.h"
#include "core/environment.h"
#include "core/file.h"
#include "core/output.h"
#include "core/string.h"

namespace vexa {

// Reads the file at `path`, for every host, and writes what is found to `out`, a line each:
// FILE:LINE: message. Nothing is run. `mode` is that in which the program would serve requests.
// Whether the file is free of errors; there may be warnings all the same.
[[nodiscard]] bool CheckConfigurationFile(FileManager& files, const Environment& environment,
                                          ServerSafeMode mode, const String& path, Output& out);

// The settings that the file at `path` gives a request which names no host, as far as they can be
// read. What is wrong with it is not told.
[[nodiscard]] Settings SettingsOfFile(FileManager& files, const Environment& environment,
                                      ServerSafeMode mode, const String& path);

}  // namespace vexa

#endif  // VEXA_CONFIG_CONFIG_CHECK_H_
