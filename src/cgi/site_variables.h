// The site-variables files: lines of a name, "=" and a value, each of which becomes a variable of
// every script.

#ifndef VEXA_CGI_SITE_VARIABLES_H_
#define VEXA_CGI_SITE_VARIABLES_H_

#include "core/string.h"

class HostBase;

enum class MissingFile { IsEmpty, IsError };

// Defines every variable of the file at `path`. Returns 0, or 1 after the error was shown.
[[nodiscard]] int ReadSiteVarsFile(HostBase& host, const String& path, MissingFile missing);

#endif  // VEXA_CGI_SITE_VARIABLES_H_
