#include "MasterSession.h"

#include <sys/socket.h>

#include "AgentLibrary.h"

namespace norva {

namespace {

netsnmp_session* session = nullptr;

int sessionStarted(int, int, void* started, void*) {
  session = static_cast<netsnmp_session*>(started);
  return 0;
}

int sessionStopped(int, int, void*, void*) {
  session = nullptr;
  return 0;
}

}  // namespace

void MasterSession::follow() {
  snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_START, sessionStarted,
                         nullptr);
  snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_STOP, sessionStopped,
                         nullptr);
}

void MasterSession::cut(const LibraryGate::Loan&) {
  if (session == nullptr) return;
  const netsnmp_transport* transport = snmp_sess_transport(snmp_sess_pointer(session));
  if (transport != nullptr) shutdown(transport->sock, SHUT_RDWR);
}

}  // namespace norva
