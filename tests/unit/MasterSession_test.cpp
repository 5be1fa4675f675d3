#include "MasterSession.h"

#include <fcntl.h>

#include <memory>

#include "AgentLibrary.h"
#include "NotificationQueue.h"
#include "TestSupport.h"

namespace norva::test {
namespace {

/// The library's part is played: a session of any kind, and the callbacks that tell of it.
TEST(MasterSessionTest, FollowsTheSessionAndWhatTheMasterAcknowledges) {
  static std::unique_ptr<NotificationQueue> kept;  // the library's callbacks use it
  auto* const queue = new NotificationQueue;
  MasterSession::follow(*queue);
  kept.reset(queue);
  netsnmp_session wanted;
  snmp_sess_init(&wanted);
  std::string peer = "udp:127.0.0.1:9";
  wanted.peername = peer.data();
  static Bytes fromMaster;
  netsnmp_session* session = nullptr;
  netsnmp_transport* transport = nullptr;
  const auto open = [&] {
    session = snmp_open(&wanted);
    ASSERT_NE(session, nullptr);
    transport = snmp_sess_transport(snmp_sess_pointer(session));
    transport->f_recv = [](netsnmp_transport*, void* buffer, int, void**, int*) {
      std::copy(fromMaster.begin(), fromMaster.end(), static_cast<std::uint8_t*>(buffer));
      return static_cast<int>(fromMaster.size());
    };
  };
  open();
  queue->push({});
  snmp_call_callbacks(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_START, &wanted);
  EXPECT_FALSE(queue->hasWork()) << "no session of the library's";
  snmp_call_callbacks(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_START, session);
  EXPECT_EQ(session->retries, 0);
  EXPECT_EQ(session->timeout, 6'000'000) << "what a silent master may take";
  EXPECT_EQ(fcntl(transport->sock, F_GETFD), FD_CLOEXEC);
  ASSERT_NE(queue->take(), nullptr);

  Bytes notify = hex("01 0c 10 00 00 00 00 01 00 00 00 02 00 00 00 07 00 00 00 00");
  int size = 0;
  transport->f_send(transport, notify.data(), static_cast<int>(notify.size()), nullptr, &size);
  queue->sent(MasterSession::lastNotification());
  EXPECT_EQ(MasterSession::lastNotification(), 0U);

  const auto receive = [&](const std::string& bytes) {
    fromMaster = hex(bytes);
    std::uint8_t buffer[64];
    transport->f_recv(transport, buffer, sizeof buffer, nullptr, &size);
  };
  // The master knows no such session, and ends it in the middle of a PDU.
  receive("01 12 10 00 00 00 00 01 00 00 00 02 00 00 00 07 00 00 00 08 00 00 00 01 01 01 00 00");
  receive("01");
  snmp_call_callbacks(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_STOP, session);
  EXPECT_FALSE(queue->hasWork());
  snmp_close(session);

  open();
  snmp_call_callbacks(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_START, session);
  ASSERT_NE(queue->take(), nullptr) << "it was not acknowledged";
  transport->f_send(transport, notify.data(), static_cast<int>(notify.size()), nullptr, &size);
  queue->sent(MasterSession::lastNotification());
  receive("01 12 00 00 01 00 00 00 02 00 00 00 07 00 00 00 08 00 00 00 01 00 00 00 00 00 00 00");
  snmp_call_callbacks(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_STOP, session);
  snmp_call_callbacks(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_START, session);
  EXPECT_FALSE(queue->hasWork());
  snmp_close(session);
}

}  // namespace
}  // namespace norva::test
