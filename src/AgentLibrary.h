// The headers of the agent library, in the one order in which they build.

#ifndef NORVA_AGENT_LIBRARY_H_
#define NORVA_AGENT_LIBRARY_H_

// clang-format off
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
#include <net-snmp/agent/net-snmp-agent-includes.h>
#include <net-snmp/agent/agent_callbacks.h>
#include <net-snmp/library/large_fd_set.h>
#include <net-snmp/library/fd_event_manager.h>
// clang-format on

#endif  // NORVA_AGENT_LIBRARY_H_
