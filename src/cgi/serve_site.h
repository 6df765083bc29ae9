// What vexa-serve serves, and where it keeps what belongs to it:
//
//   PARENT/NAME           the pages: the directory that was named
//   PARENT/.vexa-NAME/    its own, mode 0700; hidden, so that nobody serves it with PARENT
//     data/               the data directory, unless another one was named
//     tmp/                temporary files, bodies of requests
//     sitekey             made once, mode 0600
//     settings.conf       settings of the developer's own, if there are any
//     vexa.conf           what pages run with, written at each start: the settings of the example
//                         configuration, those of the developer, and what must not differ
//
// With a data directory DATA, the private one is .vexa-DATA beside that.

#ifndef VEXA_CGI_SERVE_SITE_H_
#define VEXA_CGI_SERVE_SITE_H_

#include <string>
#include <string_view>

namespace vexa {

struct ServeSite {
  std::string pages;  // All are full paths without links.
  std::string state;
  std::string data;
};

// The names by which the configuration of the server finds its directories: variables of requests.
inline constexpr std::string_view kPagesVariable = "DOCUMENT_ROOT";
inline constexpr std::string_view kStateVariable = "VEXA_SERVE_STATE";
inline constexpr std::string_view kDataVariable = "VEXA_SERVE_DATA";
// Which files are pages, and the page of a directory.
inline constexpr std::string_view kPageExtension = "vx";
inline constexpr std::string_view kDirectoryPage = "index.vx";

// Finds the directories, and makes what is missing. `data` is empty where none was named. False
// with the reason in `problem`.
[[nodiscard]] bool PrepareSite(const std::string& pages, const std::string& data, ServeSite& site,
                               std::string& problem);

}  // namespace vexa

#endif  // VEXA_CGI_SERVE_SITE_H_
