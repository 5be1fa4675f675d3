// The master agent of the default mode: launches the system's snmpd and restarts it when its log
// reports a duplicate registration or grows too large. startSnmpd runs once on the main thread,
// before the agent attaches; the one object, which it makes and nobody frees, has two threads.
//
// Both run the same loop; a lock around the restart and a second look at the log make one restart
// of one finding. snmpd is not stopped when the agent ends.

#ifndef NORVA_SNMPD_MANAGER_H_
#define NORVA_SNMPD_MANAGER_H_

#include <mutex>
#include <string>

#include "Thread.h"

namespace norva {

class MasterAgent;

class SnmpdManager : public Thread {
 public:
  /// A log above this many bytes is discarded together with a restart.
  static constexpr int kMaxLogSize = 102400;

  /// Starts the first supervisor. `command` is the shell command that launches snmpd.
  explicit SnmpdManager(const std::string& command);

  /// The supervisor loop: one look at the log every 10 s.
  void run() override;

 private:
  /// Restarts snmpd unless the other supervisor has removed the reason meanwhile.
  void restartIf(bool (*isNeeded)());

  /// As the first process of a container the agent inherits every snmpd that has ended.
  void reapOrphans();

  const std::string _command;
  std::mutex _restartMutex;
};

/// Prepares snmpd's directories, ends every running snmpd, launches snmpd in the background and
/// leaves its supervisors behind. `confPath` is its configuration file, `udpPort` its SNMP port,
/// `transport` its AgentX address; `agent` is not used. Always 0; no failure is reported.
int startSnmpd(const MasterAgent* agent, const char* confPath, const char* udpPort,
               const char* transport);

}  // namespace norva

#endif  // NORVA_SNMPD_MANAGER_H_
