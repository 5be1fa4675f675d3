#include "MasterSession.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <atomic>
#include <utility>

#include "AgentLibrary.h"
#include "AgentStatistics.h"
#include "AgentXStream.h"
#include "NotificationQueue.h"
#include "Output.h"

namespace norva {

namespace {

/// In microseconds. As long as the library waits with its own settings: 1 s, and 1 s after each of
/// 5 repetitions.
constexpr long kPatience = 6'000'000;

/// What is known of the session, which the library has one of at a time.
struct State {
  NotificationQueue* notifications = nullptr;
  netsnmp_transport* transport = nullptr;  // null without a session
  decltype(netsnmp_transport::f_recv) receive = nullptr;
  decltype(netsnmp_transport::f_send) send = nullptr;
  AgentXStream received;
  std::uint32_t lastNotification = 0;
  std::atomic<bool> isServing = false;
};

State state;

// The library forgets a notification after kPatience and tells nobody which one was acknowledged,
// so both directions of the connection are looked at as they pass through its transport.

int watchReceived(netsnmp_transport* transport, void* buffer, int size, void** opaque,
                  int* opaqueSize) {
  const int received = state.receive(transport, buffer, size, opaque, opaqueSize);
  if (received <= 0 || transport != state.transport) return received;
  state.received.feed(static_cast<const std::uint8_t*>(buffer), static_cast<std::size_t>(received),
                      [](const AgentXPdu& pdu) {
                        if (pdu.type() != kAgentXResponse || pdu.error() == AgentXPdu::kNotOpen) {
                          return;
                        }
                        state.notifications->acknowledged(pdu.packetId(), pdu.error());
                      });
  if (state.notifications->isForsakenOnHearing()) {
    Output::puts("the master acknowledges no notification, its session is begun anew");
    MasterSession::cut();
  }
  return received;
}

/// `Buffer` is a pointer to const in some versions of the library and not in others.
template <typename Buffer>
int watchSent(netsnmp_transport* transport, Buffer buffer, int size, void** opaque,
              int* opaqueSize) {
  if (size >= static_cast<int>(AgentXPdu::kHeaderSize)) {
    const AgentXPdu pdu(static_cast<const std::uint8_t*>(buffer));
    if (pdu.type() == kAgentXNotify) state.lastNotification = pdu.packetId();
  }
  return state.send(transport, buffer, size, opaque, opaqueSize);
}

int sessionStarted(int, int, void* started, void*) {
  auto* session = static_cast<netsnmp_session*>(started);
  netsnmp_transport* transport = transportOf(session);
  if (transport == nullptr) return 0;
  session->retries = 0;
  session->timeout = kPatience;
  state.transport = transport;
  if (transport->f_recv != watchReceived) {
    state.receive = std::exchange(transport->f_recv, watchReceived);
    state.send = std::exchange(transport->f_send, watchSent);
  }
  state.received = AgentXStream();
  AgentStatistics::get().masterSessions.add();
  // A program that is started and stays must not keep the connection of an agent that has ended.
  fcntl(transport->sock, F_SETFD, FD_CLOEXEC);
  state.notifications->sessionStarted();
  return 0;
}

int sessionStopped(int, int, void*, void*) {
  state.transport = nullptr;
  state.isServing = false;
  state.notifications->sessionEnded();
  return 0;
}

}  // namespace

void MasterSession::follow(NotificationQueue& notifications) {
  state.notifications = &notifications;
  snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_START, sessionStarted,
                         nullptr);
  snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_STOP, sessionStopped,
                         nullptr);
}

std::uint32_t MasterSession::lastNotification() {
  return std::exchange(state.lastNotification, 0);
}

bool MasterSession::isServing() {
  return state.isServing;
}

void MasterSession::beginTurn() {
  if (state.transport != nullptr && !state.isServing) state.isServing = true;
}

void MasterSession::cut() {
  if (state.transport == nullptr) return;
  shutdown(state.transport->sock, SHUT_RDWR);
}

}  // namespace norva
