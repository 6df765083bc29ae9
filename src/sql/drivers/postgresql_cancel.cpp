// The library's own request waits without a limit, so a thread makes it. It tells that it is done
// by closing its end of a pipe, and outlives the wait when the server does not answer.

#include "sql/drivers/postgresql_cancel.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <csignal>
#include <memory>

#include "core/late_function.h"

namespace vexa {

namespace {

constexpr int kLongestWait = 1000;  // milliseconds

struct Request {
  const PostgresqlLibrary* library;
  PGcancel* cancel;
  int done;  // the end of the pipe that is closed
};

void* Work(void* given) {
  const std::unique_ptr<Request> request(static_cast<Request*>(given));
  char ignored[256];
  (void)request->library->cancel(request->cancel, ignored, sizeof ignored);
  request->library->freeCancel(request->cancel);
  (void)::close(request->done);
  return nullptr;
}

// Starts a thread that takes no signals and that nobody waits for.
bool Start(Request* request) {
  const auto set_mask = LateFunction<"pthread_sigmask", decltype(::pthread_sigmask)>();
  sigset_t all, kept;
  LateFunction<"sigfillset", decltype(::sigfillset)>()(&all);
  set_mask(SIG_SETMASK, &all, &kept);
  pthread_t thread;
  const bool started = LateFunction<"pthread_create", decltype(::pthread_create)>()(
                           &thread, nullptr, Work, request) == 0;
  set_mask(SIG_SETMASK, &kept, nullptr);
  if (started) LateFunction<"pthread_detach", decltype(::pthread_detach)>()(thread);
  return started;
}

}  // namespace

void CancelPostgresqlStatement(const PostgresqlLibrary& library, PGconn* connection) {
  int ends[2];
  if (LateFunction<"pipe2", decltype(::pipe2)>()(ends, O_CLOEXEC) != 0) return;
  auto request =
      std::make_unique<Request>(Request{&library, library.getCancel(connection), ends[1]});
  if (request->cancel != nullptr && Start(request.get())) {
    (void)request.release();
    pollfd waiting = {ends[0], 0, 0};
    (void)::poll(&waiting, 1, kLongestWait);
  } else {
    library.freeCancel(request->cancel);
    (void)::close(ends[1]);
  }
  (void)::close(ends[0]);
}

}  // namespace vexa
