// The loop of the server for development, and what libmicrohttpd calls.

#include "cgi/serve_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstring>

#include "cgi/serve_terminal.h"
#include "files/descriptor.h"

namespace vexa {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kFirstPort = 8080;  // of those that are tried where none was named
constexpr int kTriedPorts = 20;
constexpr unsigned kMostConnections = 200;  // and so about as many pages at once
constexpr unsigned kIdleSeconds = 60;       // after which a silent client is given up
constexpr size_t kConnectionBytes = 65536;  // head of a request, and pieces of bodies and answers
constexpr size_t kPageBlock = 32768;
constexpr auto kPatience = std::chrono::seconds(3);  // with pages that are to end

int MillisecondsUntil(Clock::time_point time) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(time - Clock::now()).count();
  return static_cast<int>(std::clamp<int64_t>(left, 0, INT_MAX));
}

void Resume(ServeRequest* request) {
  if (request != nullptr && std::exchange(request->waiting, false)) {
    MHD_resume_connection(request->connection);
  }
}

void Suspend(ServeRequest& request) {
  MHD_suspend_connection(request.connection);
  request.waiting = true;
}

int SocketOf(const ServeRequest& request) {
  return MHD_get_connection_info(request.connection, MHD_CONNECTION_INFO_CONNECTION_FD)->connect_fd;
}

// What the library answers itself: it is no request, or its head is too long.
void TellRefused(void*, const char* format, va_list arguments) {
  constexpr std::string_view kRefusal = "Error processing request (HTTP response code is %u";
  if (!std::string_view(format).starts_with(kRefusal)) return;
  TellLine(std::to_string(va_arg(arguments, unsigned)) + " (no request, or too long a head)");
}

}  // namespace

// --- Beginning and end -----------------------------------------------------------------------

bool ServeServer::Bind(int port) {
  listener_ = OwnedDescriptor(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const int on = 1;
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* any = reinterpret_cast<sockaddr*>(&address);
  const int listener = listener_.get();
  if (listener < 0 || ::setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
      ::bind(listener, any, size) != 0 || ::listen(listener, SOMAXCONN) != 0 ||
      ::getsockname(listener, any, &size) != 0) {
    return false;
  }
  port_ = ntohs(address.sin_port);
  return true;
}

bool ServeServer::Listen(int port, std::string& problem) {
  bool bound = port != 0 && Bind(port);
  for (int i = 0; port == 0 && !bound && i < kTriedPorts; ++i) bound = Bind(kFirstPort + i);
  if (!bound && (port != 0 || !Bind(0))) {
    problem = "port " + std::to_string(port) + ": " + std::strerror(errno);
    return false;
  }
  // Signals come through a descriptor; a page that is started takes them as ever.
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGCHLD}) sigaddset(&signals, signal);
  (void)::signal(SIGPIPE, SIG_IGN);
  if (sigprocmask(SIG_BLOCK, &signals, nullptr) == 0) {
    signals_ = OwnedDescriptor(::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
  }
  if (signals_.open()) {
    daemon_ = MHD_start_daemon(
        MHD_USE_EPOLL | MHD_ALLOW_SUSPEND_RESUME | MHD_USE_ERROR_LOG, 0, nullptr, nullptr,
        HandleRequest, this, MHD_OPTION_EXTERNAL_LOGGER, TellRefused, nullptr,
        MHD_OPTION_LISTEN_SOCKET, listener_.get(), MHD_OPTION_URI_LOG_CALLBACK, BeginRequest, this,
        MHD_OPTION_NOTIFY_COMPLETED, EndRequest, this, MHD_OPTION_CONNECTION_LIMIT,
        kMostConnections, MHD_OPTION_CONNECTION_TIMEOUT, kIdleSeconds,
        MHD_OPTION_CONNECTION_MEMORY_LIMIT, kConnectionBytes, MHD_OPTION_STRICT_FOR_CLIENT, 1,
        MHD_OPTION_SIGPIPE_HANDLED_BY_APP, 1, MHD_OPTION_END);
  }
  if (daemon_ == nullptr) problem = "the server cannot be started";
  if (daemon_ != nullptr) (void)listener_.Release();  // which it closes
  return daemon_ != nullptr;
}

ServeServer::~ServeServer() {
  ending_ = true;
  for (const Running& running : running_) Resume(running.request);
  if (daemon_ != nullptr) MHD_stop_daemon(daemon_);
  EndPages();
}

void ServeServer::EndPages() {
  const Clock::time_point end = Clock::now() + kPatience;
  bool killed = false;
  const auto signal_all = [this](int signal) {
    for (const Running& running : running_) running.page->Signal(signal);
  };
  ReapPages();
  signal_all(SIGTERM);
  while (!running_.empty()) {
    pollfd wanted{signals_.get(), POLLIN, 0};
    (void)::poll(&wanted, 1, killed ? -1 : MillisecondsUntil(end));
    ending_ = false;
    TakeSignals();
    ReapPages();
    // Who asks a second time has no patience.
    if (killed || (!ending_ && Clock::now() < end)) continue;
    signal_all(SIGKILL);
    killed = true;
  }
}

// --- The loop --------------------------------------------------------------------------------

void ServeServer::Run() {
  while (!ending_) {
    (void)MHD_run(daemon_);
    MHD_UNSIGNED_LONG_LONG timeout = 0;
    const bool limited = MHD_get_timeout(daemon_, &timeout) == MHD_YES;
    Wait(limited ? static_cast<int>(std::min<unsigned long long>(timeout, INT_MAX)) : -1);
    TakeSignals();
    ReapPages();
  }
}

// Waits for the library's sockets, signals, and the pages whose answers somebody waits for.
void ServeServer::Wait(int timeout_ms) {
  const int sockets = MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_EPOLL_FD)->epoll_fd;
  std::vector<pollfd> wanted = {{sockets, POLLIN, 0}, {signals_.get(), POLLIN, 0}};
  std::vector<Running*> pages;
  for (Running& running : running_) {
    const bool awaited = running.request == nullptr || running.request->waiting;
    if (!awaited || running.page->pipe() < 0) continue;
    wanted.push_back({running.page->pipe(), POLLIN, 0});
    wanted.push_back({running.request == nullptr ? -1 : SocketOf(*running.request), POLLRDHUP, 0});
    pages.push_back(&running);
  }
  if (::poll(wanted.data(), wanted.size(), timeout_ms) <= 0) return;
  for (size_t i = 0; i < pages.size(); ++i) {
    const pollfd* const ends = &wanted[2 + 2 * i];
    if (ends[0].revents == 0 && ends[1].revents == 0) continue;
    if (ends[1].revents != 0) pages[i]->request->left = true;
    Resume(pages[i]->request);
    char nobody_reads[4096];
    if (pages[i]->request == nullptr) {
      while (pages[i]->page->Read(nobody_reads, sizeof nobody_reads) > 0) continue;
    }
  }
}

void ServeServer::TakeSignals() {
  signalfd_siginfo signal;
  while (::read(signals_.get(), &signal, sizeof signal) == static_cast<ssize_t>(sizeof signal)) {
    if (signal.ssi_signo != SIGCHLD) ending_ = true;
  }
}

void ServeServer::ReapPages() {
  for (Running& running : running_) {
    int status = 0;
    if (running.page->ended() || ::waitpid(running.page->process(), &status, WNOHANG) <= 0)
      continue;
    running.page->Ended(status);
    Resume(running.request);
  }
  running_.remove_if(
      [](const Running& running) { return running.request == nullptr && running.page->ended(); });
}

// --- Requests --------------------------------------------------------------------------------

void* ServeServer::BeginRequest(void*, const char* address, MHD_Connection* connection) {
  auto* request = new ServeRequest;  // until EndRequest
  request->address = address;
  request->begin = Clock::now();
  request->connection = connection;
  return request;
}

MHD_Result ServeServer::HandleRequest(void* cls, MHD_Connection* connection, const char*,
                                      const char* method, const char* version, const char* data,
                                      size_t* data_size, void** context) {
  ServeServer& server = *static_cast<ServeServer*>(cls);
  ServeRequest& request = *static_cast<ServeRequest*>(*context);
  if (request.stage == ServeRequest::Stage::Head) {
    request.method = method;
    request.version = version;
    ReadRequestHead(connection, server.site_, server.port_, request);
    request.stage = ServeRequest::Stage::Body;
    // Who asks before sending a body is told at once.
    const bool asks = !HeaderOf(connection, "Expect").empty();
    const bool refused = request.refusal != 0 || request.too_large;
    return asks && refused ? server.Answer(connection, request) : MHD_YES;
  }
  if (*data_size == 0) return server.Answer(connection, request);
  TakeBody(server.site_, {data, *data_size}, request);
  *data_size = 0;
  return MHD_YES;
}

void ServeServer::EndRequest(void* cls, MHD_Connection*, void** context,
                             MHD_RequestTerminationCode end) {
  ServeServer& server = *static_cast<ServeServer*>(cls);
  const std::unique_ptr<ServeRequest> request(static_cast<ServeRequest*>(*context));
  *context = nullptr;
  for (Running& running : server.running_) {
    if (running.request != request.get()) continue;
    running.request = nullptr;
    // What has no text for the reader still runs to its end, as the author meant it.
    const bool done = end == MHD_REQUEST_TERMINATED_COMPLETED_OK;
    if (!done || !(request->IsHead() || request->status == 204 || request->status == 304)) {
      running.page->ClosePipe();
      if (!running.page->ended()) running.page->TellReaderGone();
    }
  }
  if (request->method.empty()) return;  // No whole request came.
  const auto time =
      std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - request->begin);
  std::string line = request->status == 0 ? "---" : std::to_string(request->status);
  line += " " + std::to_string(time.count()) + " ms " + request->method + " " + request->address;
  TellLine(end == MHD_REQUEST_TERMINATED_COMPLETED_OK ? line : line + " (cut off)");
}

MHD_Result ServeServer::Answer(MHD_Connection* connection, ServeRequest& request) {
  using Kind = ServeTarget::Kind;
  if (request.refusal == 0 && request.target.kind == Kind::Page) {
    if (request.page != nullptr || StartPage(connection, request)) {
      return AnswerPage(connection, request);
    }
    request.Refuse(500, std::string("The page cannot be started: ") + std::strerror(errno));
  }
  if (request.refusal == 0 && request.target.kind == Kind::File) {
    return AnswerFile(connection, request);
  }
  return AnswerSentence(connection, request);
}

bool ServeServer::StartPage(MHD_Connection* connection, ServeRequest& request) {
  std::string name = request.path.substr(1);
  if (request.path.ends_with('/')) name += kDirectoryPage;
  auto page = std::make_unique<PageRun>(name);
  const auto variables = PageVariables(connection, site_, port_, request);
  if (!page->Start(site_, variables, request.body.get())) return false;
  request.page = page.get();
  request.body = OwnedDescriptor();
  running_.push_back({std::move(page), &request});
  return true;
}

MHD_Result ServeServer::AnswerPage(MHD_Connection* connection, ServeRequest& request) {
  if (!request.page->ReadHead()) {
    if (request.left) return MHD_NO;
    Suspend(request);
    return MHD_YES;
  }
  const PageHead& head = request.page->head();
  const bool without_text = head.status == 204 || head.status == 205 || head.status == 304;
  MHD_Response* response =
      without_text ? MHD_create_response_from_buffer(0, nullptr, MHD_RESPMEM_PERSISTENT)
                   : MHD_create_response_from_callback(
                         head.length < 0 ? MHD_SIZE_UNKNOWN : static_cast<uint64_t>(head.length),
                         kPageBlock, ReadPage, &request, nullptr);
  for (const auto& [name, value] : head.headers) {
    if (response == nullptr) break;
    (void)MHD_add_response_header(response, name.c_str(), value.c_str());
  }
  return SendResponse(connection, request, static_cast<unsigned>(head.status), response);
}

ssize_t ServeServer::ReadPage(void* cls, uint64_t, char* buffer, size_t size) {
  ServeRequest& request = *static_cast<ServeRequest*>(cls);
  const ssize_t count = request.page->Read(buffer, size);
  if (count == PageRun::kEnd) return MHD_CONTENT_READER_END_OF_STREAM;
  if (count == PageRun::kNothingYet && request.left) return MHD_CONTENT_READER_END_WITH_ERROR;
  if (count == PageRun::kNothingYet) Suspend(request);
  return count;
}

}  // namespace vexa
