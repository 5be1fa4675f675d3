// The headers of the agent library, in the one order in which they build, and what its versions do
// differently evened out. Nothing else knows of versions.
//
// For the holder of the library gate.

#ifndef NORVA_AGENT_LIBRARY_H_
#define NORVA_AGENT_LIBRARY_H_

// clang-format off
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
#include <net-snmp/agent/net-snmp-agent-includes.h>
#include <net-snmp/agent/agent_callbacks.h>
#include <net-snmp/agent/agent_sysORTable.h>
#include <net-snmp/library/large_fd_set.h>
#include <net-snmp/library/fd_event_manager.h>
// clang-format on

#include <vector>

namespace norva {

/// Has all that the library logs written by `write`. Once, before its first message.
void routeLog(void (*write)(const char* text));

/// One turn of the library's loop: what has come from the master, the registered descriptors, what
/// is due by time. With `wait` not before there is any of that. As agent_check_and_process, which
/// does not look at registered descriptors in 5.7.3 and before.
void processEvents(bool wait);

/// The transport of a session that a callback of SNMPD_CALLBACK_INDEX_START is told of; null when
/// that is no session: the development branch gives the end of a request the same number.
netsnmp_transport* transportOf(netsnmp_session* started);

/// register_mib, which copies the entries and only reads `root`, whatever it asks for.
void registerVariables(const char* name, std::vector<variable4>& entries,
                       const std::vector<oid>& root);

}  // namespace norva

#endif  // NORVA_AGENT_LIBRARY_H_
