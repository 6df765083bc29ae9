// Opening a script.

#include "engine/module.h"

#include "core/file.h"
#include "engine/page_store.h"

namespace vexa {

Module::Module(Vexa& host, const TagSet& tags)
    : host_(host), source_(host, host.config().templatebuffersize), parser_(host, source_, tags) {}

int Module::Open(const String& path, const String& name, String& message, const FileProof* proof) {
  filepath_ = path;
  std::string_view text = path;
  size_t slash = text.rfind('/');
  directory_ = slash == std::string_view::npos ? String() : String(text.substr(0, slash));
  page_ = FindKept(path, proof);
  if (page_ != nullptr) {
    parser_.UseSites(page_->sites);
    if (source_.Read(ReadKept(page_), path, name)) return 1;
  }
  if (source_.Open(path, name)) return 1;
  message = String::Concat({"Unable to open ", name, ": ", source_.error()});
  return 0;
}

std::shared_ptr<KeptPage> Module::FindKept(const String& path, const FileProof* proof) const {
  PageStore* const store = host_.pages();
  FileProof seen;
  if (store == nullptr || (proof == nullptr && !ProveFile(path, seen))) return nullptr;
  return store->Open(host_.filemanager(), path, proof == nullptr ? seen : *proof);
}

}  // namespace vexa
