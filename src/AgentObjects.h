// The agent's own objects, read-only scalars that NORVA-AGENT-MIB describes: what it serves, how
// its exchanges with the unit and with the master go, what became of notifications and output.
// Answered without asking the unit. With them the agent has an entry in the master's table of what
// its subagents serve (sysORTable).
//
// Main thread; a function only, nobody owns it.

#ifndef NORVA_AGENT_OBJECTS_H_
#define NORVA_AGENT_OBJECTS_H_

namespace norva {

/// Registers them, unless objects of the unit stand in their place, which is printed. Once, behind
/// the registration of the unit's objects and before init_snmp.
void registerAgentObjects();

}  // namespace norva

#endif  // NORVA_AGENT_OBJECTS_H_
