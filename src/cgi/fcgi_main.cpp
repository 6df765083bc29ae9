// main of the FastCGI worker: its options, and who it is to be.

#include <fcntl.h>
#include <getopt.h>
#include <grp.h>
#include <pwd.h>
#include <sys/auxv.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "cgi/fcgi_parent.h"
#include "cgi/fcgi_socket.h"
#include "cgi/fcgi_worker.h"
#include "core/number.h"
#include "core/string.h"
#include "host/process.h"
#include "vexa.h"

namespace vexa {
namespace {

constexpr char kHelp[] =
    "Vexa runs page scripts for a web server, through FastCGI.\n"
    "\n"
    "  vexa-fcgi [OPTION...] --socket PATH\n"
    "  vexa-fcgi [OPTION...] [HOST]:PORT\n"
    "\n"
    "  --config FILE     the configuration (else vexa.conf, found as by the program vexa)\n"
    "  --children N      serve so many requests at once (8); more wait\n"
    "  --requests N      replace a child after so many requests (500)\n"
    "  --group NAME      the group that may connect to the socket\n"
    "  --user NAME       run as this user; needed when root starts it\n"
    "  --version, --help\n";

constexpr int kMostChildren = 10'000;
constexpr int kMostRequests = 1'000'000'000;

struct Options {
  String config, socket, group, user, address;
  int children = 8;
  int requests = 500;
};

enum class Parsed { Run, Done, Wrong };

// Always Wrong.
Parsed Refuse(std::string_view what, std::string_view why) {
  std::fprintf(stderr, "vexa-fcgi: %.*s: %.*s\n", static_cast<int>(what.size()), what.data(),
               static_cast<int>(why.size()), why.data());
  return Parsed::Wrong;
}

bool ReadCount(const char* text, int most, int& count) {
  const int64_t number = ReadInteger64(text);
  count = static_cast<int>(number);
  return number >= 1 && number <= most;
}

constexpr option kOptions[] = {{"config", required_argument, nullptr, 'c'},
                               {"children", required_argument, nullptr, 'n'},
                               {"requests", required_argument, nullptr, 'r'},
                               {"socket", required_argument, nullptr, 's'},
                               {"group", required_argument, nullptr, 'g'},
                               {"user", required_argument, nullptr, 'u'},
                               {"version", no_argument, nullptr, 'v'},
                               {"help", no_argument, nullptr, 'h'},
                               {nullptr, 0, nullptr, 0}};

Parsed ReadOptions(int argc, char** argv, Options& options) {
  for (int key; (key = getopt_long(argc, argv, "", kOptions, nullptr)) != -1;) {
    switch (key) {
      case 'c':
        options.config = optarg;
        break;
      case 's':
        options.socket = optarg;
        break;
      case 'g':
        options.group = optarg;
        break;
      case 'u':
        options.user = optarg;
        break;
      case 'n':
        if (!ReadCount(optarg, kMostChildren, options.children)) {
          return Refuse(optarg, "that many children cannot be");
        }
        break;
      case 'r':
        if (!ReadCount(optarg, kMostRequests, options.requests)) {
          return Refuse(optarg, "that many requests cannot be");
        }
        break;
      case 'v':
        std::printf("vexa %s\n", kVersion);
        return Parsed::Done;
      case 'h':
        std::fputs(kHelp, stdout);
        return Parsed::Done;
      default:
        return Parsed::Wrong;
    }
  }
  if (optind < argc) options.address = argv[optind++];
  if (optind < argc) return Refuse(argv[optind], "one address is enough");
  if (options.socket.empty() == options.address.empty()) {
    return Refuse("--socket PATH or [HOST]:PORT", "exactly one is needed");
  }
  return Parsed::Run;
}

// Root gives its rights up for good.
bool BecomeUser(const Options& options) {
  if (getuid() != 0) {
    const passwd* own = getpwuid(getuid());
    return options.user.empty() || (own != nullptr && options.user == own->pw_name) ||
           Refuse(options.user, "only root can run pages as another user") == Parsed::Run;
  }
  if (options.user.empty()) {
    return Refuse("--user", "root has to say as which user pages run") == Parsed::Run;
  }
  const passwd* user = getpwnam(options.user.c_str());
  if (user == nullptr) return Refuse(options.user, "there is no such user") == Parsed::Run;
  if (user->pw_uid == 0) return Refuse(options.user, "pages do not run as root") == Parsed::Run;
  const uid_t uid = user->pw_uid;
  const gid_t gid = user->pw_gid;
  if ((!options.socket.empty() && !GiveSocketTo(options.socket, uid)) ||
      initgroups(options.user.c_str(), gid) != 0 || setresgid(gid, gid, gid) != 0 ||
      setresuid(uid, uid, uid) != 0 || setuid(0) == 0) {
    return Refuse(options.user, std::strerror(errno)) == Parsed::Run;
  }
  return true;
}

int Listen(const Options& options) {
  String reason;
  const int listening = options.socket.empty()
                            ? ListenAtPort(options.address, reason)
                            : ListenAtPath(options.socket, options.group, reason);
  if (listening < 0) {
    (void)Refuse(options.socket.empty() ? options.address : options.socket, reason);
  }
  return listening;
}

// The configuration is that of the program `vexa` beside this one, unless another is named.
bool FindConfiguration(const char* self, const Options& options, WorkerSettings& settings) {
  const std::string_view path = self;
  settings.program = String::Concat({path.substr(0, path.rfind('/') + 1), "vexa"});
  (void)Process(settings.program, options.config).GetConfigurationFile(settings.configuration);
  return access(settings.configuration.c_str(), R_OK) == 0 ||
         Refuse(settings.configuration, std::strerror(errno)) == Parsed::Run;
}

int RunWorker(int argc, char** argv) {
  // Before anything is done with the rights of a file: a socket may be made anywhere.
  if (getauxval(AT_SECURE) != 0 || getuid() != geteuid()) {
    (void)Refuse("set-user-ID", "the worker takes no identity from its file");
    return EXIT_FAILURE;
  }
  Options options;
  const Parsed parsed = ReadOptions(argc, argv, options);
  if (parsed != Parsed::Run) return parsed == Parsed::Done ? EXIT_SUCCESS : EXIT_FAILURE;
  WorkerSettings settings;
  settings.requests = options.requests;
  const int listening = Listen(options);
  if (listening < 0 || !BecomeUser(options) || !FindConfiguration(argv[0], options, settings)) {
    return EXIT_FAILURE;
  }
  const pid_t parent = getpid();
  const int status = FCGIParent(settings, listening, options.children).Run();
  if (getpid() == parent && !options.socket.empty()) (void)unlink(options.socket.c_str());
  return status;
}

}  // namespace
}  // namespace vexa

int main(int argc, char** argv) {
  if (!vexa::FillStandardDescriptors()) return EXIT_FAILURE;
  return vexa::RunWorker(argc, argv);
}
