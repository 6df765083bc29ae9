// Keeping configurations.

#include "config/kept_configuration.h"

#include <algorithm>
#include <utility>

namespace vexa {

namespace {

// Passes everything on to the request, and notes it.
class Recorder final : public ConfigReceiver {
 public:
  Recorder(ConfigReceiver& receiver, KeptConfiguration& kept) : receiver_(receiver), kept_(kept) {}

  FileManager& filemanager() override { return receiver_.filemanager(); }
  int ResolvePath(const String& name, String& resolved, PathType type, String& message) override {
    complete_ = false;
    return receiver_.ResolvePath(name, resolved, type, message);
  }
  std::string_view EnvironmentValue(std::string_view name) override {
    const std::string_view value = receiver_.EnvironmentValue(name);
    kept_.answers.push_back({KeptConfiguration::Asked::Environment, name, value});
    return value;
  }
  const String& SystemVariable(std::string_view name) override {
    const String& value = receiver_.SystemVariable(name);
    kept_.answers.push_back({KeptConfiguration::Asked::SystemVariable, name, value});
    return value;
  }
  KeptSiteVariables* keptvariables() override { return receiver_.keptvariables(); }
  void AddSiteVariable(std::string_view name, const String& value) override {
    complete_ = false;
    receiver_.AddSiteVariable(name, value);
  }
  void AddPackage(PackageInfo package) override {
    kept_.packages.push_back(package);
    receiver_.AddPackage(std::move(package));
  }
  void AddCommerceHandler(CommerceMethod method) override {
    kept_.methods.push_back(method);
    receiver_.AddCommerceHandler(std::move(method));
  }
  void Error(const vexa::Error& error) override {
    complete_ = false;
    receiver_.Error(error);
  }

  // Whether what was noted is all that the reading came to.
  [[nodiscard]] bool complete() const { return complete_; }

 private:
  ConfigReceiver& receiver_;
  KeptConfiguration& kept_;
  bool complete_ = true;
};

}  // namespace

bool KeptConfiguration::Suits(ConfigReceiver& receiver) const {
  return std::all_of(answers.begin(), answers.end(), [&](const Answer& answer) {
    return answer.value.view() == (answer.asked == Asked::Environment
                                       ? receiver.EnvironmentValue(answer.name)
                                       : receiver.SystemVariable(answer.name).view());
  });
}

int KeptConfigurations::Read(UNIXConfig& config, ConfigReceiver& receiver, const String& path) {
  KeptConfiguration made;
  const bool proven = ProveFile(path, made.proof);
  ++uses_;
  for (KeptConfiguration& kept : kept_) {
    if (!proven || kept.proof != made.proof || kept.path != path || !kept.Suits(receiver)) continue;
    kept.used = uses_;
    config.TakeOver(path, kept.reading);
    for (const PackageInfo& package : kept.packages) receiver.AddPackage(package);
    for (const CommerceMethod& method : kept.methods) receiver.AddCommerceHandler(method);
    return 0;
  }
  made.path = path;
  made.used = uses_;
  Recorder recorder(receiver, made);
  ConfigReceiver& former = config.SwitchReceiver(recorder);
  const int result = config.ReadConfiguration(path);
  config.SwitchReceiver(former);
  FileProof after;
  const bool keep = result == 0 && recorder.complete() && proven && made.proof.Settled() &&
                    ProveFile(path, after) && after == made.proof;
  if (!keep) return result;
  made.reading = config.reading();
  std::erase_if(kept_, [&](const KeptConfiguration& kept) {
    return kept.path == path && kept.proof != made.proof;
  });
  if (kept_.size() == kMost) {
    kept_.erase(std::min_element(kept_.begin(), kept_.end(),
                                 [](const auto& a, const auto& b) { return a.used < b.used; }));
  }
  kept_.push_back(std::move(made));
  return result;
}

}  // namespace vexa
