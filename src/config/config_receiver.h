// ConfigReceiver: whom the configuration is read for. What the readers ask of a request, and where
// goes what they find besides settings.

#ifndef VEXA_CONFIG_CONFIG_RECEIVER_H_
#define VEXA_CONFIG_CONFIG_RECEIVER_H_

#include <string_view>

#include "core/error.h"
#include "core/file.h"
#include "core/string.h"
#include "vexa.h"

namespace vexa {

class KeptSiteVariables;

class ConfigReceiver {
 public:
  virtual ~ConfigReceiver() = default;

  // What the files are read with; names of data files as of the host (vexa.h).
  [[nodiscard]] virtual FileManager& filemanager() = 0;
  [[nodiscard]] virtual int ResolvePath(const String& name, String& resolved, PathType type,
                                        String& message) = 0;
  // What `&[NAME]` in a value stands for, and the variable that holds the request's host name. What
  // a reading comes to may hang on nothing else of the request (kept_configuration.h).
  [[nodiscard]] virtual std::string_view EnvironmentValue(std::string_view name) = 0;
  [[nodiscard]] virtual const String& SystemVariable(std::string_view name) = 0;
  // Where the variables of the site are kept from one request to the next; null: nowhere.
  [[nodiscard]] virtual KeptSiteVariables* keptvariables() = 0;

  virtual void AddSiteVariable(std::string_view name, const String& value) = 0;
  virtual void AddPackage(PackageInfo package) = 0;
  virtual void AddCommerceHandler(CommerceMethod method) = 0;
  virtual void Error(const vexa::Error& error) = 0;
};

}  // namespace vexa

#endif  // VEXA_CONFIG_CONFIG_RECEIVER_H_
