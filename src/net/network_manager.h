// CGINetworkManager: what a request has under way with other machines. Tags work in passes: the
// mail that is being written, the answer that is walked, the mailbox that is open live here between
// them. Whatever a tag leaves behind ends with the request.

#ifndef VEXA_NET_NETWORK_MANAGER_H_
#define VEXA_NET_NETWORK_MANAGER_H_

#include <memory>
#include <utility>
#include <vector>

namespace vexa {

// Something under way. Destroying it ends it without a further word to the other side.
class NetworkTask {
 public:
  virtual ~NetworkTask() = default;
};

class CGINetworkManager {
 public:
  CGINetworkManager() = default;
  CGINetworkManager(const CGINetworkManager&) = delete;
  CGINetworkManager& operator=(const CGINetworkManager&) = delete;

  // Makes a task and keeps it until End, or the end of the request.
  template <typename Task, typename... Arguments>
  Task& Begin(Arguments&&... arguments) {
    auto task = std::make_unique<Task>(std::forward<Arguments>(arguments)...);
    Task& begun = *task;
    tasks_.push_back(std::move(task));
    return begun;
  }
  // Destroys a task.
  void End(const NetworkTask& ended) {
    std::erase_if(tasks_, [&ended](const auto& task) { return task.get() == &ended; });
  }

 private:
  std::vector<std::unique_ptr<NetworkTask>> tasks_;
};

}  // namespace vexa

#endif  // VEXA_NET_NETWORK_MANAGER_H_
