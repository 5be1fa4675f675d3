#include "Settings.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>

#include "AgentLibrary.h"

namespace norva {

namespace {

Settings settings;

constexpr unsigned kMaxDeviceTimeout = 3600;
constexpr unsigned kMaxBacklog = 100'000;

std::string_view trimmed(const char* line) {
  constexpr char kBlanks[] = " \t\r\n";
  std::string_view value(line);
  value.remove_prefix(std::min(value.find_first_not_of(kBlanks), value.size()));
  return value.substr(0, value.find_last_not_of(kBlanks) + 1);
}

std::optional<unsigned> parseNumber(const char* line, unsigned most) {
  const std::string_view value = trimmed(line);
  unsigned number = 0;
  const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
  if (error != std::errc() || end != value.data() + value.size() || number > most) return {};
  return number;
}

void parseDeviceTimeout(const char*, char* line) {
  if (const auto seconds = parseNumber(line, kMaxDeviceTimeout)) {
    settings.deviceTimeout = std::chrono::seconds(*seconds);
  } else {
    config_perror("norvaDeviceTimeout: a number of seconds from 0 to 3600 is expected");
  }
}

void parseBacklog(const char*, char* line) {
  if (const auto count = parseNumber(line, kMaxBacklog)) {
    settings.backlog = *count;
  } else {
    config_perror("norvaBacklog: a number from 0 to 100000 is expected");
  }
}

void parseBacklogFile(const char*, char* line) {
  const std::string_view path = trimmed(line);
  if (path.starts_with('/')) {
    settings.backlogFile = path;
  } else {
    config_perror("norvaBacklogFile: a path that begins with / is expected");
  }
}

void parseYesOrNo(const char* token, const char* line, bool& setting) {
  const std::string_view value = trimmed(line);
  if (value == "yes" || value == "no") {
    setting = value == "yes";
  } else {
    config_perror((std::string(token) + ": yes or no is expected").c_str());
  }
}

void parseStrictSet(const char* token, char* line) {
  parseYesOrNo(token, line, settings.strictSet);
}

void parseTrace(const char* token, char* line) {
  parseYesOrNo(token, line, settings.trace);
}

void parseAgentObjects(const char* token, char* line) {
  parseYesOrNo(token, line, settings.agentObjects);
}

struct Token {
  const char* name;
  void (*parse)(const char* token, char* line);
  const char* help;
};

constexpr Token kTokens[] = {
    {"norvaDeviceTimeout", parseDeviceTimeout, "SECONDS"},
    {"norvaStrictSet", parseStrictSet, "yes|no"},
    {"norvaTrace", parseTrace, "yes|no"},
    {"norvaBacklog", parseBacklog, "NOTIFICATIONS"},
    {"norvaBacklogFile", parseBacklogFile, "PATH"},
    {"norvaAgentObjects", parseAgentObjects, "yes|no"},
};

void readFile(std::string& name) {
  // Handlers of the kind that is called first: other tokens of the file are no unknown ones then.
  for (const auto& [token, parse, help] : kTokens) {
    register_prenetsnmp_mib_handler(name.c_str(), token, parse, nullptr, help);
  }
  config_files file{name.data(), read_config_get_handlers(name.c_str()), nullptr};
  read_config_files_of_type(PREMIB_CONFIG, &file);
  // init_snmp reads the file again.
  const auto passOver = [](const char*, char*) {};
  for (const auto& [token, parse, help] : kTokens) {
    register_prenetsnmp_mib_handler(name.c_str(), token, passOver, nullptr, help);
  }
}

}  // namespace

const Settings& Settings::get() {
  return settings;
}

void Settings::read(const char* agentName) {
  // The library takes a name with colons for several names. An empty one it would replace by that
  // of the application, which it does not know yet.
  std::istringstream names(agentName);
  for (std::string name; std::getline(names, name, ':');) {
    if (!name.empty()) readFile(name);
  }
}

}  // namespace norva
