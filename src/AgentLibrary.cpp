#include "AgentLibrary.h"

#include <sys/select.h>

#include <cerrno>

namespace norva {

namespace {

void (*writeLog)(const char* text) = nullptr;
bool hasLogged = false;

int logged(netsnmp_log_handler*, int, const char* text) {
  hasLogged = true;
  if (writeLog != nullptr) writeLog(text);
  return 1;
}

}  // namespace

void routeLog(void (*write)(const char* text)) {
  netsnmp_log_handler* route = netsnmp_register_loghandler(NETSNMP_LOGHANDLER_CALLBACK, LOG_DEBUG);
  if (route == nullptr) return;
  route->handler = logged;
  // The second limit of a handler is the most severe priority that it takes, in the development
  // branch the least severe one: tried with a message that is not written.
  snmp_log(LOG_DEBUG, "norvaSnmp\n");
  if (!hasLogged) route->pri_max = LOG_DEBUG;
  writeLog = write;
}

void processEvents(bool wait) {
  int end = 0;  // of the descriptors' numbers
  fd_set read, write, except;
  FD_ZERO(&read);
  FD_ZERO(&write);
  FD_ZERO(&except);
  timeval timeout{};
  int nothingDue = 1;
  snmp_select_info(&end, &read, &timeout, &nothingDue);
  if (!wait) timeout = {};
  netsnmp_external_event_info(&end, &read, &write, &except);
  const bool forEver = wait && nothingDue != 0;

  int ready = select(end, &read, &write, &except, forEver ? nullptr : &timeout);
  if (ready < 0) {
    if (errno != EINTR) snmp_log_perror("select");
    return;
  }
  if (ready == 0) {
    snmp_timeout();
  } else {
    netsnmp_dispatch_external_events(&ready, &read, &write, &except);
    snmp_read(&read);
  }
  snmp_store_if_needed();
  run_alarms();
  netsnmp_check_outstanding_agent_requests();
}

netsnmp_transport* transportOf(netsnmp_session* started) {
  auto* const listed = snmp_sess_pointer(started);
  return listed != nullptr ? snmp_sess_transport(listed) : nullptr;
}

void registerVariables(const char* name, std::vector<variable4>& entries,
                       const std::vector<oid>& root) {
  // Entries of any name length are taken by their size.
  register_mib(name, reinterpret_cast<struct variable*>(entries.data()), sizeof(variable4),
               entries.size(), const_cast<oid*>(root.data()), root.size());
}

}  // namespace norva
