// Entry of the agent: command line, then one of the two start-up sequences, then the request loop.

#include <fcntl.h>
#include <signal.h>
#include <strings.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

#include "AgentLibrary.h"
#include "AgentObjects.h"
#include "BacklogFile.h"
#include "DataManage.h"
#include "LibraryGate.h"
#include "MasterAgent.h"
#include "MasterSession.h"
#include "NotificationQueue.h"
#include "NotificationSender.h"
#include "ObjectAccess.h"
#include "Output.h"
#include "RegisteredObjects.h"
#include "ServiceStatus.h"
#include "Settings.h"
#include "SnmpEventNotify.h"
#include "SnmpdManager.h"
#include "Termination.h"
#include "Trace.h"
#include "TrapAlarm.h"
#include "Version.h"

namespace norva {
namespace {

constexpr char kNoPath[] = "null:path";
constexpr char kNoPort[] = "null:port";
constexpr char kNoName[] = "null:name";

constexpr std::chrono::milliseconds kExitOutputLimit{1000};

struct Options {
  const char* database = kNoPath;
  const char* conf = kNoPath;
  const char* port = kNoPort;
  const char* transport = kNoPort;
  const char* name = kNoName;
  bool launchMaster = true;
};

void printUsage(const char* program) {
  Output::print("\nUsage:  %s [OPTIONS] [LISTENING ADDRESSES]", program);
  Output::puts(
      "\n  -c FILE[,...]\t\tif master agent,read FILE(s) as snmpd \n"
      "\t\t\t  configuration file(s),snmpd.conf.\n"
      "  -d FILE[,...]\t\tRead FILE(s) as database configuration file(s)\n"
      "\t\t\t  the database contains the mapping relationship\n"
      "\t\t\t  between DLK3's OID and SNMP's OID.\n"
      "  -X\t\t\tRun as an AgentX subagent rather than as an\n"
      "\t\t\t  SNMP master agent.\n"
      "  -x ADDRESS\t\tUse ADDRESS as master agent listening address \n"
      "\t\t\t  or AgentX address.\n"
      "  -n NAME\t\tUse NAME as AgentX NAME,each subagent name\n"
      "\t\t\t  cannot be the same.\n"
      "  -p [PORT]\t\tif master agent,the snmp udp port.\n"
      "  -h, --help\t\tDisplay this usage message\n"
      "  --version\t\tShow norvaSnmp version.\n");
}

[[noreturn]] void exitWith(int status) {
  Output::getInstance().drain(kExitOutputLimit);
  Output::standardError().drain(kExitOutputLimit);
  std::exit(status);
}

[[noreturn]] void exitWithUsage(const char* program) {
  printUsage(program);
  exitWith(1);
}

[[noreturn]] void refuse(const char* error, const char* program) {
  Output::puts(error);
  exitWithUsage(program);
}

/// An option that begins with two hyphens arrives as option '-' with the rest as its argument.
void handleLongOption(const char* text, const char* program) {
  if (strcasecmp(text, "help") == 0) exitWithUsage(program);
  if (strcasecmp(text, "version") == 0) {
    Output::print("norvaSnmp version:  %s\n", kVersion);
    exitWith(0);
  }
}

Options parseOptions(int argc, char** argv) {
  const char* program = argv[0];
  Options options;
  const auto argument = [program]() -> const char* {
    if (optarg == nullptr) exitWithUsage(program);
    return optarg;
  };
  for (int option; (option = getopt(argc, argv, "c:d:L:hn:p:Xx:-:")) != -1;) {
    switch (option) {
      case 'c':
        options.conf = argument();
        break;
      case 'd':
        options.database = argument();
        break;
      case 'n':
        options.name = argument();
        break;
      case 'p':
        options.port = argument();
        break;
      case 'x':
        options.transport = argument();
        break;
      case 'X':
        options.launchMaster = false;
        break;
      case 'h':
        exitWithUsage(program);
      case '-':
        handleLongOption(argument(), program);
        break;
      default:  // 'L' too: its argument is taken, then it is refused
        Output::print("%s: error option\n", program);
        exitWithUsage(program);
    }
  }
  return options;
}

bool isMissing(const char* value, const char* placeholder) {
  return std::strcmp(value, placeholder) == 0;
}

void printOptions(const Options& options) {
  Output::print("\ndbFath=%s\ntransport=%s\nagentXName=%s\n ", options.database, options.transport,
                options.name);
}

void validateOptions(const Options& options, const char* program) {
  if (isMissing(options.database, kNoPath)) refuse("\nerror: no database path.", program);
  if (!options.launchMaster) {
    // Deliberate: compared with the port's placeholder, so an omitted name goes on as "null:name".
    if (isMissing(options.name, kNoPort)) refuse("\nerror: no AgentX address.", program);
    return;
  }
  printOptions(options);
  if (isMissing(options.conf, kNoPath)) refuse("\nerror: no snmpd.conf path.", program);
  if (isMissing(options.port, kNoPort)) refuse("\nerror: no snmp udp port.", program);
}

/// A standard descriptor that was closed would be given to the next file or pipe that is opened,
/// the library's own included, and the trace printed into it.
void openStandardDescriptors() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    // Opening takes the lowest free number.
    if (fcntl(fd, F_GETFD) == -1 && errno == EBADF) open("/dev/null", O_RDWR);
  }
}

/// What the library logs reaches standard error without anybody waiting for its reader.
void routeLibraryLog() {
  routeLog([](const char* text) { Output::standardError().write(text); });
}

/// Lets the library set up its MIB tree without any MIB text, which an agent does not need:
/// start-up is faster and standard error quiet. The environment is put back, as the master agent
/// may be launched with it. While no other thread reads the environment.
void initMibWithoutText() {
  const char* value = std::getenv("MIBS");
  const std::optional<std::string> mibs = value ? std::optional<std::string>(value) : std::nullopt;
  setenv("MIBS", "", 1);
  netsnmp_init_mib();
  if (mibs) {
    setenv("MIBS", mibs->c_str(), 1);
  } else {
    unsetenv("MIBS");
  }
}

/// In both modes the process is a subagent; the master is an snmpd.
void configureSubagent(const char* name, const char* transport) {
  netsnmp_ds_set_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_ROLE, 1);
  netsnmp_ds_set_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_X_SOCKET, transport);
  Settings::read(name);
  if (Settings::get().deviceTimeout.count() > 0) DataManage::matchReplies();
  MasterSession::follow(NotificationQueue::getInstance());
}

/// Notifications would wait for ever without the gate.
void openLibraryGate() {
  if (LibraryGate::getInstance().open() != 0) exitWith(1);
}

void registerObjects() {
  MasterAgent::getInstance()->initNormalObj();
  MasterAgent::getInstance()->initTableObj();
  if (Settings::get().agentObjects) registerAgentObjects();
  RegisteredObjects::get().complete();
}

/// The file in which alarms outlive the agent, if the settings name one and there is anything to
/// keep. It also holds what the master may owe beyond the backlog.
BacklogFile::Opened openBacklogFile() {
  const Settings& settings = Settings::get();
  if (settings.backlogFile.empty() || settings.backlog == 0) return {};
  return BacklogFile::open(
      settings.backlogFile,
      static_cast<std::uint32_t>(settings.backlog + NotificationQueue::kMaxOwed));
}

/// The heartbeat sends through the alarm thread's object, which is returned; both live until the
/// process ends.
TrapAlarm* startNotifications() {
  NotificationQueue& queue = NotificationQueue::getInstance();
  queue.setCapacity(Settings::get().backlog);
  auto* alarmThread = new TrapAlarm("TrapAlarm", queue);
  alarmThread->init(*MasterAgent::catalogue());
  const bool withContext = alarmThread->trapType() == TrapAlarm::kSnmpV3;
  LibraryGate::getInstance().setWork(*new NotificationSender(queue, withContext));
  queue.onWork([] { LibraryGate::getInstance().announce(); });
  alarmThread->useFile(openBacklogFile());
  alarmThread->start();
  alarmThread->markRunning();
  auto* heartbeatThread = new SnmpEventNotify("SnmpEventNotify ", alarmThread);
  heartbeatThread->start();
  heartbeatThread->markRunning();
  return alarmThread;
}

void installTerminationHandler(TrapAlarm* alarmThread) {
  /// For what was taken off the alarm queue to reach the master.
  constexpr std::chrono::milliseconds kLeaveLimit{500};
  const auto letLeave = [alarmThread, kLeaveLimit] {
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + kLeaveLimit;
    alarmThread->takeNoMore(kLeaveLimit);
    NotificationQueue::getInstance().drain(
        std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()));
  };
  if (!Termination::prepare(letLeave)) return;  // the default action ends the process just as well
  signal(SIGTERM, Termination::handler);
  // Deliberate, although the system refuses it.
  signal(SIGKILL, Termination::handler);
}

/// Start-up with -X: attach to a master agent that runs already.
void startSubagent(const Options& options) {
  printOptions(options);
  Output::puts("netsnmp_ds_set_boolean....");
  configureSubagent(options.name, options.transport);
  const int rc = init_agent(options.name);
  Output::print("init_agent rc=%d....\n", rc);
  MasterAgent::getInstance(options.database);
  registerObjects();
  sleep(1);
  Output::print("before initsnmp_subagent,agentXName=%s \n", options.name);
  init_snmp(options.name);
  Output::puts("init_snmp end....");
  openLibraryGate();
  TrapAlarm* alarmThread = startNotifications();
  Termination::agentXName = options.name;
  installTerminationHandler(alarmThread);
}

/// Start-up of the default mode: launch the master agent, then attach to it.
void startWithMaster(const Options& options) {
  constexpr char kAgentName[] = "snmpAgentX";
  Output::puts("startSnmpd....");
  const MasterAgent* agent = MasterAgent::getInstance(options.database);
  startSnmpd(agent, options.conf, options.port, options.transport);
  Output::puts("wating for snmpd");
  sleep(5);
  Output::puts("netsnmp_ds_set_boolean in MASTER_AGENT....");
  configureSubagent(kAgentName, options.transport);
  init_agent(kAgentName);
  registerObjects();
  init_snmp(kAgentName);
  Output::puts("init_snmp end....");
  openLibraryGate();
  TrapAlarm* alarmThread = startNotifications();
  // Deliberate: the termination handler shuts the library down without a name in this mode.
  installTerminationHandler(alarmThread);
}

[[noreturn]] void serveRequests() {
  /// In one turn of the loop; the master's acknowledgements are read between two turns.
  constexpr std::size_t kNotificationsPerTurn = 16;
  DataManage::getInstance()->limitWaits(Settings::get().deviceTimeout);
  Trace::enable(Settings::get().trace);
  Output::neverWait();
  LibraryGate& gate = LibraryGate::getInstance();
  for (;;) {
    gate.performWork(kNotificationsPerTurn);
    beginTurn();
    MasterSession::beginTurn();
    processEvents(!gate.hasWork());
  }
}

}  // namespace
}  // namespace norva

int main(int argc, char** argv) {
  norva::openStandardDescriptors();
  const norva::Options options = norva::parseOptions(argc, argv);
  norva::validateOptions(options, argv[0]);

  norva::Termination::beforeStartUp();
  norva::ServiceStatus::follow(options.database, options.transport);
  // A reader of standard output that goes away must not end the agent, nor a master that closes
  // the session while something is sent to it.
  signal(SIGPIPE, SIG_IGN);
  norva::Output::getInstance().start();
  norva::Output::standardError().start();
  norva::routeLibraryLog();
  norva::initMibWithoutText();
  if (options.launchMaster) {
    norva::startWithMaster(options);
  } else {
    norva::startSubagent(options);
  }
  norva::serveRequests();
}
