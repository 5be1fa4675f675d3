// Settings beyond the command line, read by the agent library from the subagent's own configuration
// file: snmpAgentX.conf in the default mode, NAME.conf with -X. Without them the agent does what
// its command line says. Written on the main thread by `read`, and only read afterwards.

#ifndef NORVA_SETTINGS_H_
#define NORVA_SETTINGS_H_

#include <chrono>
#include <cstddef>
#include <string>

namespace norva {

struct Settings {
  /// norvaDeviceTimeout: longest wait for the unit's reply once requests are served; 0: no limit.
  std::chrono::seconds deviceTimeout{0};
  /// norvaStrictSet: whether a SET does what the manager asked or is refused.
  bool strictSet = false;
  /// norvaTrace: whether each request, notification and heartbeat that succeeds is printed.
  bool trace = true;
  /// norvaBacklog: notifications that are kept for the master; 0: none.
  std::size_t backlog = 1000;
  /// norvaBacklogFile: where they are kept across the agent's own end; empty: nowhere.
  std::string backlogFile;
  /// norvaAgentObjects: whether the agent's own objects are served.
  bool agentObjects = false;

  static const Settings& get();

  /// Reads them from the file of `agentName`, none where the name is empty. A bad value gets the
  /// library's message with file and line, and changes nothing. Main thread, once, before
  /// init_snmp, which passes over them: the unit is read before.
  static void read(const char* agentName);
};

}  // namespace norva

#endif  // NORVA_SETTINGS_H_
