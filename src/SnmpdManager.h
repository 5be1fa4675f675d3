// The master agent of the default mode: launches the system's snmpd and restarts it when its log
// reports a duplicate registration or grows too large.
//
// startSnmpd runs once on the main thread, before the agent attaches. Two supervisor threads run
// the same loop on one object; they share only the command, which never changes. Both may act on
// one finding: the second master then ends by itself, its port being taken. snmpd is not stopped
// when the agent ends.

#ifndef NORVA_SNMPD_MANAGER_H_
#define NORVA_SNMPD_MANAGER_H_

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
  void restartSnmpd() const;

  const std::string _command;
};

/// Prepares snmpd's directories, ends every running snmpd, launches snmpd in the background and
/// leaves its supervisors behind. `confPath` is its configuration file, `udpPort` its SNMP port,
/// `transport` its AgentX address; `agent` is not used. Always 0; no failure is reported.
int startSnmpd(const MasterAgent* agent, const char* confPath, const char* udpPort,
               const char* transport);

}  // namespace norva

#endif  // NORVA_SNMPD_MANAGER_H_
