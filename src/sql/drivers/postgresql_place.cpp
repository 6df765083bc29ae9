// Connection texts, their keys, and the lists of servers in them.

#include "sql/drivers/postgresql_place.h"

#include <algorithm>
#include <utility>

#include "core/number.h"
#include "core/text.h"

namespace vexa {

namespace {

using Option = PostgresqlPlace::Option;
using Options = std::vector<Option>;

constexpr std::string_view kNotValid = "The connection text is not valid";
// The authorities that the system trusts.
constexpr std::string_view kSystemAuthorities = "/etc/ssl/certs/ca-certificates.crt";

// What a page may say: where, who, and how to wait and encrypt. None names a file or a service.
constexpr std::string_view kKeysOfPages[] = {
    "host",
    "hostaddr",
    "port",
    "dbname",
    "user",
    "password",
    "options",
    "application_name",
    "connect_timeout",
    "keepalives",
    "keepalives_idle",
    "keepalives_interval",
    "keepalives_count",
    "tcp_user_timeout",
    "target_session_attrs",
    "requirepeer",
    "channel_binding",
    "sslmode",
    "sslsni",
    "ssl_min_protocol_version",
    "ssl_max_protocol_version",
};

// What of the setting is secret, or leads to secrets, or to another server.
constexpr std::string_view kKeysOfSecrets[] = {"password", "passfile", "service"};

// What is made use of here, and not left to the library.
constexpr std::string_view kKeysOfServers[] = {
    "host", "hostaddr", "port", "target_session_attrs", "connect_timeout", "sslmode", "sslrootcert",
};

template <typename Keys>
bool Contains(const Keys& keys, std::string_view key) {
  return std::ranges::find(keys, key) != std::end(keys);
}

const Option* Find(const Options& options, std::string_view key) {
  const auto found =
      std::ranges::find_if(options, [key](const Option& option) { return option.key == key; });
  return found == options.end() ? nullptr : &*found;
}

void Set(Options& options, std::string_view key, const String& value) {
  std::erase_if(options, [key](const Option& option) { return option.key == key; });
  options.push_back({key, value});
}

// Takes the value of a key out of the options; empty when there is none.
String Take(Options& options, std::string_view key) {
  const Option* const found = Find(options, key);
  String value = found == nullptr ? String() : found->value;
  std::erase_if(options, [key](const Option& option) { return option.key == key; });
  return value;
}

bool Fail(std::string_view message, SqlFault& fault) {
  fault = {SqlFault::Kind::Other, message};
  return false;
}

// The keys that a connection text names, with their values.
bool Parse(const PostgresqlLibrary& library, const String& text, Options& options) {
  if (text.contains('\0')) return false;
  char* message = nullptr;
  const PostgresqlOwned<PQconninfoOption> parsed(library.conninfoParse(text.c_str(), &message),
                                                 {&library});
  // It may quote the text, and so a password.
  if (message != nullptr) library.freemem(message);
  if (parsed == nullptr) return false;
  for (const PQconninfoOption* option = parsed.get(); option->keyword != nullptr; ++option) {
    if (option->val != nullptr) options.push_back({option->keyword, option->val});
  }
  return true;
}

// A list of the library: separated by commas, empty parts count.
std::vector<String> Parts(const String& list) {
  std::vector<String> parts;
  for (std::string_view rest = list;;) {
    const size_t comma = rest.find(',');
    parts.emplace_back(Stripped(rest.substr(0, comma)));
    if (comma == rest.npos) return parts;
    rest.remove_prefix(comma + 1);
  }
}

bool IsPort(std::string_view text) {
  return text.size() <= 5 && std::ranges::all_of(text, IsDigit) && ReadInteger(text) <= 65535;
}

// What stands before an unescaped `@` of a password is taken for a part of the host, what stands
// before a `/` for a port: neither must get into a message.
bool IsHost(const String& host) {
  return host.empty() || host[0] == '/' || host.view().find('@', 1) == std::string_view::npos;
}

bool ReadServers(const String& hosts, const String& addresses, const String& ports,
                 std::vector<PostgresqlServer>& servers) {
  const std::vector<String> names = Parts(hosts), numbers = Parts(addresses), gates = Parts(ports);
  const size_t count = addresses.empty() ? names.size() : numbers.size();
  if ((!hosts.empty() && names.size() != count) || (gates.size() != 1 && gates.size() != count)) {
    return false;
  }
  for (size_t i = 0; i < count; ++i) {
    PostgresqlServer server;
    if (!hosts.empty()) server.host = names[i];
    if (!addresses.empty()) server.address = numbers[i];
    server.port = gates.size() == 1 ? gates[0] : gates[i];
    if (!IsHost(server.host) || !IsPort(server.port)) return false;
    servers.push_back(std::move(server));
  }
  return true;
}

// What the page says, its attributes included.
bool ReadPage(const PostgresqlLibrary& library, const SqlPlace& written, Options& options,
              SqlFault& fault) {
  if (!Parse(library, written.place, options)) return Fail(kNotValid, fault);
  for (const Option& option : options) {
    if (Contains(kKeysOfPages, option.key)) continue;
    return Fail(String::Concat({"'", option.key, "' is not allowed in DATABASE"}), fault);
  }
  if (!written.user.empty()) Set(options, "user", written.user);
  if (!written.password.empty()) Set(options, "password", written.password);
  const bool whole = std::ranges::none_of(
      options, [](const Option& option) { return option.value.contains('\0'); });
  return whole || Fail(kByteZeroInText, fault);
}

// The setting's keys that the page leaves open.
bool AddSetting(const PostgresqlLibrary& library, const String& setting, Options& options,
                SqlFault& fault) {
  Options of_site;
  if (!Parse(library, setting, of_site)) {
    return Fail("The setting 'postgresql' is not a valid connection text", fault);
  }
  const bool elsewhere = Find(options, "host") != nullptr || Find(options, "hostaddr") != nullptr ||
                         Find(options, "port") != nullptr;
  for (Option& option : of_site) {
    if (Find(options, option.key) != nullptr) continue;
    if (elsewhere && Contains(kKeysOfSecrets, option.key)) continue;
    options.push_back(std::move(option));
  }
  return true;
}

// What the service that the setting names says of servers. The library would look up their names
// itself, and wait for that; the rest of the service it reads when it connects.
void AddService(const PostgresqlLibrary& library, Options& options) {
  const Option* const service = Find(options, "service");
  if (service == nullptr || service->value.empty()) return;
  const String variable = "PGSERVICE=" + service->value;
  const EmptySurroundings surroundings(variable.c_str());
  const PostgresqlOwned<PQconninfoOption> known(library.conndefaults(), {&library});
  if (known == nullptr) return;
  for (const PQconninfoOption* option = known.get(); option->keyword != nullptr; ++option) {
    if (option->val != nullptr && Contains(kKeysOfServers, option->keyword) &&
        Find(options, option->keyword) == nullptr) {
      options.push_back({option->keyword, option->val});
    }
  }
}

// What neither says, and what is not theirs to say.
void AddDefaults(const Settings& settings, Options& options) {
  Set(options, "client_encoding", "UTF8");
  if (Find(options, "fallback_application_name") == nullptr) {
    Set(options, "fallback_application_name", "vexa");
  }
  // It may ask other machines for tickets, and waits for them.
  if (Find(options, "gssencmode") == nullptr) Set(options, "gssencmode", "disable");
  const Option* const mode = Find(options, "sslmode");
  if (mode == nullptr || Find(options, "sslrootcert") != nullptr) return;
  const bool full = mode->value == "verify-full";
  if (!full && !(mode->value == "verify-ca")) return;
  if (!settings.cafile.empty()) {
    Set(options, "sslrootcert", settings.cafile);
  } else if (full) {
    Set(options, "sslrootcert", kSystemAuthorities);
  }
}

}  // namespace

bool ReadPostgresqlPlace(const PostgresqlLibrary& library, const Settings& settings,
                         const SqlPlace& written, PostgresqlPlace& place, SqlFault& fault) {
  Options options;
  if (!ReadPage(library, written, options, fault)) return false;
  if (!AddSetting(library, settings.postgresql, options, fault)) return false;
  AddService(library, options);
  AddDefaults(settings, options);
  const String hosts = Take(options, "host");
  const String addresses = Take(options, "hostaddr");
  const String ports = Take(options, "port");
  place.session_attributes = Take(options, "target_session_attrs");
  place.seconds_each = std::max(0, ReadInteger(Take(options, "connect_timeout")));
  place.servers.clear();
  if (!ReadServers(hosts, addresses, ports, place.servers)) return Fail(kNotValid, fault);
  place.options = std::move(options);
  return true;
}

}  // namespace vexa
