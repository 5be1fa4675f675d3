#include "MasterSession.h"

#include <poll.h>
#include <sys/socket.h>

#include <limits>

#include "AgentLibrary.h"

namespace norva {

namespace {

netsnmp_session* session = nullptr;

/// In microseconds. As long as the library waits with its own settings: 1 s, and 1 s after each of
/// 5 repetitions.
constexpr long kPatience = 6'000'000;

int sessionStarted(int, int, void* started, void*) {
  session = static_cast<netsnmp_session*>(started);
  session->retries = 0;
  session->timeout = kPatience;
  return 0;
}

int sessionStopped(int, int, void*, void*) {
  session = nullptr;
  return 0;
}

/// Socket of the session. REQUIRES: a session.
int connection() {
  const netsnmp_transport* transport = snmp_sess_transport(snmp_sess_pointer(session));
  return transport != nullptr ? transport->sock : -1;
}

/// Whether a good part of the connection's buffer is free. REQUIRES: a session.
bool takesMore() {
  pollfd socket{connection(), POLLOUT, 0};
  return poll(&socket, 1, 0) == 1;
}

}  // namespace

void MasterSession::follow() {
  snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_START, sessionStarted,
                         nullptr);
  snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_STOP, sessionStopped,
                         nullptr);
}

int MasterSession::unacknowledged() {
  if (session == nullptr || session->trap_stats == nullptr) return 0;
  const netsnmp_trap_stats& sent = *session->trap_stats;
  // What is given up after kPatience counts no more but may still wait to be read by the master.
  if (sent.timeouts != 0 && !takesMore()) return std::numeric_limits<int>::max();
  return static_cast<int>(sent.sent_count - sent.ack_count - sent.timeouts);
}

void MasterSession::cut(const LibraryGate::Loan&) {
  if (session == nullptr) return;
  shutdown(connection(), SHUT_RDWR);
}

}  // namespace norva
