// FakeReceiver: whom a configuration is read for in unit tests. It says what a test set and keeps
// errors; what the file registers is dropped.

#ifndef VEXA_TESTS_UNIT_FAKE_RECEIVER_H_
#define VEXA_TESTS_UNIT_FAKE_RECEIVER_H_

#include <string>
#include <string_view>
#include <vector>

#include "config/config_receiver.h"

namespace vexa {

class FakeReceiver final : public ConfigReceiver {
 public:
  FakeReceiver(FileManager& files, std::string_view host) : files_(files), host_(host) {}
  std::vector<std::string> errors;

  FileManager& filemanager() override { return files_; }
  int ResolvePath(const String&, String&, PathType, String&) override { return 0; }
  std::string_view EnvironmentValue(std::string_view) override { return {}; }
  const String& SystemVariable(std::string_view) override { return host_; }
  KeptSiteVariables* keptvariables() override { return nullptr; }
  void AddSiteVariable(std::string_view, const String&) override {}
  void AddPackage(PackageInfo) override {}
  void AddCommerceHandler(CommerceMethod) override {}
  void Error(const vexa::Error& error) override { errors.emplace_back(error.message().view()); }

 private:
  FileManager& files_;
  String host_;
};

}  // namespace vexa

#endif  // VEXA_TESTS_UNIT_FAKE_RECEIVER_H_
