// The system's own look-up, run by a thread of the C library: what does not answer in time is left
// to it.

#include "sql/drivers/postgresql_lookup.h"

#include <netdb.h>
#include <sys/socket.h>

#include <ctime>
#include <memory>

#include "core/late_function.h"
#include "core/outside.h"

namespace vexa {

namespace {

constexpr long kLongestWait = 500'000'000;  // nanoseconds

void Free(addrinfo* list) { LateFunction<"freeaddrinfo", decltype(::freeaddrinfo)>()(list); }

// What the thread works on.
struct Question {
  explicit Question(const String& asked) : name(asked) {
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    request.ar_name = name.c_str();
    request.ar_request = &hints;
  }
  ~Question() {
    if (request.ar_result != nullptr) Free(request.ar_result);
  }
  Question(const Question&) = delete;
  Question& operator=(const Question&) = delete;

  String name;
  addrinfo hints = {};
  gaicb request = {};
};

void AddAddresses(const addrinfo* list, std::vector<String>& addresses) {
  for (const addrinfo* entry = list; entry != nullptr; entry = entry->ai_next) {
    char number[NI_MAXHOST];
    const int failed = LateFunction<"getnameinfo", decltype(::getnameinfo)>()(
        entry->ai_addr, entry->ai_addrlen, number, sizeof number, nullptr, 0, NI_NUMERICHOST);
    if (failed == 0) addresses.emplace_back(number);
  }
}

bool IsNumber(const String& name) {
  addrinfo hints = {};
  hints.ai_flags = AI_NUMERICHOST;
  addrinfo* list = nullptr;
  const bool is = LateFunction<"getaddrinfo", decltype(::getaddrinfo)>()(name.c_str(), nullptr,
                                                                         &hints, &list) == 0;
  if (is) Free(list);
  return is;
}

// What getaddrinfo says.
int Ask(Vexa& host, std::unique_ptr<Question>& question) {
  gaicb* list[] = {&question->request};
  int failed =
      LateFunction<"getaddrinfo_a", decltype(::getaddrinfo_a)>()(GAI_NOWAIT, list, 1, nullptr);
  const gaicb* const waiting[] = {&question->request};
  const timespec wait = {0, kLongestWait};
  while (failed == 0 || failed == EAI_INPROGRESS) {
    failed = LateFunction<"gai_error", decltype(::gai_error)>()(&question->request);
    if (failed != EAI_INPROGRESS) break;
    if (host.timedout()) {
      // The thread still holds it.
      (void)question.release();
      break;
    }
    (void)LateFunction<"gai_suspend", decltype(::gai_suspend)>()(waiting, 1, &wait);
  }
  return failed;
}

}  // namespace

LookupResult LookUpServer(Vexa& host, const String& name, std::vector<String>& addresses,
                          String& reason) {
  addresses.clear();
  if (IsNumber(name)) {
    addresses.push_back(name);
    return LookupResult::Found;
  }
  if (host.config().dnslookup == 0) {
    reason = "Host names are not looked up on this site";
    return LookupResult::Failed;
  }
  LookOutside();
  auto question = std::make_unique<Question>(name);
  const int failed = Ask(host, question);
  if (question == nullptr) return LookupResult::TimedOut;
  if (failed == 0) AddAddresses(question->request.ar_result, addresses);
  if (!addresses.empty()) return LookupResult::Found;
  reason = String::Concat({"The host name '", name, "' was not found"});
  return LookupResult::Failed;
}

}  // namespace vexa
