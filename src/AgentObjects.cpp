#include "AgentObjects.h"

#include <chrono>
#include <cstdint>
#include <cstring>
#include <iterator>

#include "AgentLibrary.h"
#include "AgentStatistics.h"
#include "NotificationQueue.h"
#include "Output.h"
#include "RegisteredObjects.h"
#include "Version.h"

namespace norva {

namespace {

constexpr oid kBase[] = {1, 3, 6, 1, 4, 1, 53412, 8, 2, 2, 9};
constexpr char kDescription[] = "norvaSnmp, agent of a distributed-antenna-system unit";

const auto started = std::chrono::steady_clock::now();

std::uint32_t upTime() {
  using Hundredths = std::chrono::duration<std::uint64_t, std::centi>;
  const auto passed = std::chrono::steady_clock::now() - started;
  return static_cast<std::uint32_t>(std::chrono::duration_cast<Hundredths>(passed).count());
}

/// An object that is a number.
struct Number {
  u_char type;
  std::uint32_t (*value)();
};

template <Counter AgentStatistics::*kCounter>
std::uint32_t counted() {
  return (AgentStatistics::get().*kCounter).value();
}

/// The last sub-identifier of the version; the numbers follow it, in their order.
constexpr oid kVersionObject = 1;

constexpr Number kNumbers[] = {
    {ASN_TIMETICKS, upTime},
    {ASN_GAUGE, [] { return RegisteredObjects::get().scalars(); }},
    {ASN_GAUGE, [] { return RegisteredObjects::get().tables(); }},
    {ASN_GAUGE, [] { return RegisteredObjects::get().cells(); }},
    {ASN_COUNTER, counted<&AgentStatistics::unitReads>},
    {ASN_COUNTER, counted<&AgentStatistics::unitWrites>},
    {ASN_COUNTER, counted<&AgentStatistics::unitFailures>},
    {ASN_COUNTER, counted<&AgentStatistics::unitTimeouts>},
    {ASN_GAUGE, [] { return ReplyTimes::get().sinceLastReply(); }},
    {ASN_GAUGE, [] { return ReplyTimes::get().slowestReply(); }},
    {ASN_COUNTER, counted<&AgentStatistics::masterSessions>},
    {ASN_COUNTER, counted<&AgentStatistics::notificationsTaken>},
    {ASN_COUNTER, counted<&AgentStatistics::notificationsSent>},
    {ASN_COUNTER, counted<&AgentStatistics::notificationsAcknowledged>},
    {ASN_COUNTER, counted<&AgentStatistics::notificationsRepeated>},
    {ASN_COUNTER, counted<&AgentStatistics::notificationsDropped>},
    {ASN_GAUGE, [] { return static_cast<std::uint32_t>(NotificationQueue::getInstance().size()); }},
    {ASN_COUNTER, counted<&AgentStatistics::outputBytesDropped>},
};
constexpr oid kLastObject = kVersionObject + std::size(kNumbers);

void answer(netsnmp_variable_list* variable) {
  const oid object = variable->name[std::size(kBase)];
  if (object == kVersionObject) {
    snmp_set_var_typed_value(variable, ASN_OCTET_STR, kVersion, std::strlen(kVersion));
  } else {
    const auto& [type, value] = kNumbers[object - kVersionObject - 1];
    snmp_set_var_typed_integer(variable, type, static_cast<long>(value()));
  }
}

int handle(netsnmp_mib_handler*, netsnmp_handler_registration*, netsnmp_agent_request_info* info,
           netsnmp_request_info* requests) {
  if (info->mode != MODE_GET) return SNMP_ERR_GENERR;
  for (auto* request = requests; request != nullptr; request = request->next) {
    answer(request->requestvb);
  }
  return SNMP_ERR_NOERROR;
}

}  // namespace

void registerAgentObjects() {
  if (RegisteredObjects::get().meets({std::begin(kBase), std::end(kBase)})) {
    Output::puts(
        "the agent's own objects are not served: objects of the unit stand in their place");
    return;
  }
  netsnmp_handler_registration* registration = netsnmp_create_handler_registration(
      "norvaAgent", handle, kBase, std::size(kBase), HANDLER_CAN_RONLY);
  if (registration == nullptr || netsnmp_register_scalar_group(registration, kVersionObject,
                                                               kLastObject) != MIB_REGISTERED_OK) {
    Output::puts("the agent's own objects are not served: the library does not register them");
    return;
  }
  ReplyTimes::get().start();
  register_sysORTable(const_cast<oid*>(kBase), std::size(kBase), kDescription);
}

}  // namespace norva
