// Remembered: what a process that serves many requests keeps from one to the next. Nothing in it
// was set by a request: it follows from files that are proven unchanged, or holds for a moment
// only.
//
//   pages          scripts with what was learnt of them
//   configurations settings, as read for requests that answer alike
//   variables      what the site-variables files define
//   directories    those that were found to be no links a moment ago
//
// Besides it a process keeps what no request can see: libraries that were loaded, the table of
// names (core/symbol.h), storage that is given out again, the seed of chance.

#ifndef VEXA_HOST_REMEMBERED_H_
#define VEXA_HOST_REMEMBERED_H_

#include <array>
#include <cstddef>
#include <cstdint>

#include "config/kept_configuration.h"
#include "config/site_variables.h"
#include "engine/page_store.h"
#include "files/file_paths.h"

namespace vexa {

struct Remembered {
  PageStore pages;
  KeptConfigurations configurations;
  KeptSiteVariables variables;
  KnownDirectories directories;
  std::array<uint32_t, 32> chances = {};  // drawn from the system, for one use each
  size_t chances_left = 0;
};

}  // namespace vexa

#endif  // VEXA_HOST_REMEMBERED_H_
