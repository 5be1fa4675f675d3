#include "AgentLibrary.h"

#include <sys/select.h>

#include <cerrno>

namespace norva {

namespace {

void (*writeLog)(const char* text) = nullptr;
bool hasLogged = false;

/// Of any size, since whoever started the agent may have left it more descriptors than an fd_set
/// holds. Lives as long as the process.
struct DescriptorSet : netsnmp_large_fd_set {
  DescriptorSet() { netsnmp_large_fd_set_init(this, FD_SETSIZE); }

  /// The set for a select that looks at the descriptors below `end`, and writes a bit for each.
  fd_set* upTo(int end) {
    if (end > static_cast<int>(lfs_setsize)) {
      NETSNMP_LARGE_FD_SET(end, this);  // makes it larger
      NETSNMP_LARGE_FD_CLR(end, this);
    }
    return lfs_setptr;
  }
};

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
  static DescriptorSet read, write, except;
  for (DescriptorSet* set : {&read, &write, &except}) NETSNMP_LARGE_FD_ZERO(set);
  int end = 0;  // of the descriptors' numbers
  timeval timeout{};
  int nothingDue = 1;
  snmp_select_info2(&end, &read, &timeout, &nothingDue);
  if (!wait) timeout = {};
  netsnmp_external_event_info2(&end, &read, &write, &except);
  const bool forEver = wait && nothingDue != 0;

  // Not the library's own around select, which has another name in 5.6.
  int ready =
      select(end, read.upTo(end), write.upTo(end), except.upTo(end), forEver ? nullptr : &timeout);
  if (ready < 0) {
    if (errno != EINTR) snmp_log_perror("select");
    return;
  }
  if (ready == 0) {
    snmp_timeout();
  } else {
    netsnmp_dispatch_external_events2(&ready, &read, &write, &except);
    snmp_read2(&read);
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
