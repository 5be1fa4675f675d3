// The load generator of the benchmark: one manager on one CPU, driven over its standard input.
// Every answer is checked; a wrong one ends the program with a line on standard error.
//
// A command is a case (see kCases) and a time in milliseconds, "notify" or "single" and a number of
// events, "first" or "last" and any number: wait until the first, the last object is answered. Its
// answer is one line: what was counted and the nanoseconds that it took.

#include <arpa/inet.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "AgentLibrary.h"
#include "ComPortAdapter.h"
#include "Objects.h"
#include "TrapMessage.h"

using namespace norva;

namespace {

using Clock = std::chrono::steady_clock;
using Name = std::vector<oid>;

[[noreturn]] void fail(const std::string& what) {
  std::fprintf(stderr, "norva_bench_manager: %s\n", what.c_str());
  std::exit(1);
}

Name below(std::initializer_list<oid> suffix) {
  Name name = {1, 3, 6, 1, 4, 1, 53412, 8, 2, 2, 4};
  name.insert(name.end(), suffix);
  return name;
}
Name scalarName(unsigned n) {
  return below({1, 1, 1, n, 0});
}
Name cellName(unsigned column, unsigned row) {
  return below({10, 1, 1, column, row, 0});
}

/// A session with the master of this network namespace.
class Manager {
 public:
  Manager() {
    netsnmp_session session;
    snmp_sess_init(&session);
    static char peer[] = "udp:127.0.0.1:1161";
    static u_char community[] = "private";
    session.peername = peer;
    session.version = SNMP_VERSION_2c;
    session.community = community;
    session.community_len = std::strlen(reinterpret_cast<const char*>(community));
    session.retries = 0;
    session.timeout = 5'000'000;
    _session = snmp_sess_open(&session);
    if (_session == nullptr) fail("no session");
  }

  /// The answer, to be freed; null when there is none.
  netsnmp_pdu* ask(netsnmp_pdu* pdu) {
    netsnmp_pdu* answer = nullptr;
    if (snmp_sess_synch_response(_session, pdu, &answer) != STAT_SUCCESS) return nullptr;
    return answer;
  }

  void send(netsnmp_pdu* pdu, snmp_callback callback, void* magic) {
    if (snmp_sess_async_send(_session, pdu, callback, magic) == 0) fail("cannot send");
  }

  /// Waits for an answer and calls back.
  void receive() {
    fd_set descriptors;
    FD_ZERO(&descriptors);
    int end = 0;
    int isForEver = 1;
    timeval timeout{};
    snmp_sess_select_info(_session, &end, &descriptors, &timeout, &isForEver);
    if (select(end, &descriptors, nullptr, nullptr, &timeout) <= 0) fail("no answer in time");
    snmp_sess_read(_session, &descriptors);
  }

 private:
  void* _session;
};

Manager& manager() {
  static Manager instance;
  return instance;
}

netsnmp_pdu* request(int command, const std::vector<Name>& names) {
  netsnmp_pdu* pdu = snmp_pdu_create(command);
  for (const Name& name : names) snmp_add_null_var(pdu, name.data(), name.size());
  return pdu;
}

/// Whether the varbind holds what the benchmark's unit has for this object.
void check(const netsnmp_variable_list* variable, std::uint16_t object) {
  const bool isRight =
      variable != nullptr &&
      (bench::isText(object)
           ? variable->type == ASN_OCTET_STR &&
                 std::string_view(reinterpret_cast<const char*>(variable->val.string),
                                  variable->val_len) == bench::kTextValue
           : variable->type == ASN_INTEGER && *variable->val.integer == object);
  if (!isRight) fail("wrong value of object " + std::to_string(object));
}

void checkStatus(const netsnmp_pdu* answer) {
  if (answer == nullptr) fail("no answer");
  if (answer->errstat != SNMP_ERR_NOERROR) fail(snmp_errstring(static_cast<int>(answer->errstat)));
}

/// The first `count` scalars in one request.
netsnmp_pdu* getScalars(unsigned count) {
  static const std::vector<Name> kAll = [] {
    std::vector<Name> names;
    for (unsigned n = 1; n <= bench::kScalars; ++n) names.push_back(scalarName(n));
    return names;
  }();
  return request(SNMP_MSG_GET, {kAll.begin(), kAll.begin() + count});
}

void checkScalars(const netsnmp_pdu* answer, unsigned count) {
  checkStatus(answer);
  const netsnmp_variable_list* variable = answer->variables;
  for (unsigned n = 1; n <= count; ++n) {
    check(variable, bench::scalarObject(n));
    variable = variable->next_variable;
  }
}

/// The cases: each carries out requests until `end` and returns their number.

template <unsigned count>
long get(Clock::time_point end) {
  long done = 0;
  for (; Clock::now() < end; ++done) {
    netsnmp_pdu* answer = manager().ask(getScalars(count));
    checkScalars(answer, count);
    snmp_free_pdu(answer);
  }
  return done;
}

/// Eight requests are always under way.
long getEight(Clock::time_point end) {
  struct State {
    Clock::time_point end;
    long done = 0;
    int underWay = 0;
  } state{end};
  constexpr snmp_callback kAnswered = [](int operation, netsnmp_session*, int, netsnmp_pdu* answer,
                                         void* magic) {
    if (operation != NETSNMP_CALLBACK_OP_RECEIVED_MESSAGE) fail("no answer");
    checkScalars(answer, 1);
    State& now = *static_cast<State*>(magic);
    ++now.done;
    --now.underWay;
    return 1;
  };
  do {
    for (; state.underWay < 8 && Clock::now() < end; ++state.underWay) {
      manager().send(getScalars(1), kAnswered, &state);
    }
    if (state.underWay > 0) manager().receive();
  } while (state.underWay > 0 || Clock::now() < end);
  return state.done;
}

/// A walk over the scalars, from their beginning again behind the last one. One request a scalar.
long walk(Clock::time_point end) {
  static Name at = below({1});
  static unsigned position = 0;
  long done = 0;
  for (; Clock::now() < end; ++done) {
    netsnmp_pdu* answer = manager().ask(request(SNMP_MSG_GETNEXT, {at}));
    checkStatus(answer);
    const netsnmp_variable_list* variable = answer->variables;
    if (++position <= bench::kScalars) {
      check(variable, position == bench::kWrittenScalar
                          ? static_cast<std::uint16_t>(*variable->val.integer)
                          : bench::scalarObject(position));
      at.assign(variable->name, variable->name + variable->name_length);
    } else {
      position = 0;
      at = below({1});
    }
    snmp_free_pdu(answer);
  }
  return done;
}

/// Twenty cells of one column.
long bulk(Clock::time_point end) {
  constexpr unsigned kMost = 20;
  long done = 0;
  for (; Clock::now() < end; ++done) {
    netsnmp_pdu* pdu = request(SNMP_MSG_GETBULK, {below({10, 1, 1, bench::kFirstColumn})});
    pdu->non_repeaters = 0;
    pdu->max_repetitions = kMost;
    netsnmp_pdu* answer = manager().ask(pdu);
    checkStatus(answer);
    const netsnmp_variable_list* variable = answer->variables;
    for (unsigned row = 1; row <= kMost; ++row) {
      check(variable, bench::cellObject(bench::kFirstColumn, row));
      variable = variable->next_variable;
    }
    snmp_free_pdu(answer);
  }
  return done;
}

/// Writes ascending numbers; the last one is read back.
long set(const Name& name, Clock::time_point end) {
  static long value = 0;
  long done = 0;
  for (; Clock::now() < end; ++done) {
    netsnmp_pdu* pdu = snmp_pdu_create(SNMP_MSG_SET);
    ++value;
    snmp_pdu_add_variable(pdu, name.data(), name.size(), ASN_INTEGER, &value, sizeof value);
    netsnmp_pdu* answer = manager().ask(pdu);
    checkStatus(answer);
    snmp_free_pdu(answer);
  }
  netsnmp_pdu* answer = manager().ask(request(SNMP_MSG_GET, {name}));
  checkStatus(answer);
  if (*answer->variables->val.integer != value) fail("not written");
  snmp_free_pdu(answer);
  return done;
}

long setScalar(Clock::time_point end) {
  return set(scalarName(bench::kWrittenScalar), end);
}
long setCell(Clock::time_point end) {
  return set(cellName(bench::kWrittenColumn, bench::kWrittenRow), end);
}

constexpr std::pair<const char*, long (*)(Clock::time_point)> kCases[] = {
    {"get", get<1>}, {"get10", get<10>},        {"get-eight", getEight}, {"walk", walk},
    {"bulk", bulk},  {"set-scalar", setScalar}, {"set-cell", setCell},
};

/// Repeats a request until its answer holds something below the root.
long waitFor(int command, const Name& name) {
  const Name root = below({});
  for (int tries = 0; tries < 30'000; ++tries) {
    netsnmp_pdu* answer = manager().ask(request(command, {name}));
    const netsnmp_variable_list* found =
        answer != nullptr && answer->errstat == SNMP_ERR_NOERROR ? answer->variables : nullptr;
    const bool isAnswered =
        found != nullptr && (found->type == ASN_INTEGER || found->type == ASN_OCTET_STR) &&
        snmp_oidtree_compare(found->name, found->name_length, root.data(), root.size()) == 0;
    if (answer != nullptr) snmp_free_pdu(answer);
    if (isAnswered) return 1;
    usleep(1000);
  }
  fail("the agent does not answer");
}

/// Receives what the master sends as notifications, and posts the unit's events.
class Alarms {
 public:
  Alarms() {
    _queue = msgget(kAlarmQueueKey, IPC_CREAT | 0666);
    _socket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int size = 64 << 20;
    const timeval patience{10, 0};
    setsockopt(_socket, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size);
    setsockopt(_socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(1162);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(_socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
      fail("no receiver of notifications");
    }
  }

  /// Posts `count` events, `atOnce` at most ahead of what has arrived.
  long post(long count, long atOnce) {
    for (long posted = 0, received = 0; received < count;) {
      if (posted < count && posted - received < atOnce && post()) {
        ++posted;
      } else {
        receive();
        ++received;
      }
    }
    return count;
  }

 private:
  bool post() const {
    TrapMessage event;
    event.setMsgType(kMsgAlarm);
    event.setObjId(bench::scalarObject(1));
    event.setState('1');
    event.setDeviceId(8);
    event.setText(TrapMessage::kText4, "Harbour Terminal");
    event.setText(TrapMessage::kText5, "NDAS 4.2.1");
    event.setText(TrapMessage::kText6, "NDAS-4000");
    struct {
      long mtype = 1;
      TrapMessage event;
    } message{1, event};
    return msgsnd(_queue, &message, TrapMessage::kSize, IPC_NOWAIT) == 0;
  }

  void receive() const {
    char datagram[2048];
    const ssize_t size = recv(_socket, datagram, sizeof datagram, 0);
    // The master announces itself too, in fewer bytes.
    if (size < 0) fail("a notification is missing");
    if (size < 200) receive();
  }

  int _queue;
  int _socket;
};

long perform(const std::string& what, long number) {
  static Alarms alarms;
  if (what == "first") return waitFor(SNMP_MSG_GETNEXT, below({}));
  if (what == "last")
    return waitFor(SNMP_MSG_GET, cellName(bench::kFirstColumn + bench::kColumns - 1, bench::kRows));
  if (what == "notify") return alarms.post(number, number);
  if (what == "single") return alarms.post(number, 1);
  for (const auto& [name, run] : kCases) {
    if (what == name) return run(Clock::now() + std::chrono::milliseconds(number));
  }
  fail("no case '" + what + "'");
}

}  // namespace

int main() {
  init_snmp("norva_bench_manager");
  char what[32];
  long number = 0;
  while (std::scanf("%31s %ld", what, &number) == 2) {
    const auto begin = Clock::now();
    const long count = perform(what, number);
    const auto taken = std::chrono::nanoseconds(Clock::now() - begin);
    std::printf("%ld %lld\n", count, static_cast<long long>(taken.count()));
    std::fflush(stdout);
  }
  return 0;
}
