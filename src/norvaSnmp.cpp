// Entry of the agent: command line, then one of the two start-up sequences, then the request loop.

#include <signal.h>
#include <strings.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

#include "AgentLibrary.h"
#include "LibraryGate.h"
#include "MasterAgent.h"
#include "MasterSession.h"
#include "OutputFlusher.h"
#include "SnmpEventNotify.h"
#include "SnmpdManager.h"
#include "Termination.h"
#include "TrapAlarm.h"

namespace norva {
namespace {

constexpr char kNoPath[] = "null:path";
constexpr char kNoPort[] = "null:port";
constexpr char kNoName[] = "null:name";

struct Options {
  const char* database = kNoPath;
  const char* conf = kNoPath;
  const char* port = kNoPort;
  const char* transport = kNoPort;
  const char* name = kNoName;
  bool launchMaster = true;
};

void printUsage(const char* program) {
  std::printf("\nUsage:  %s [OPTIONS] [LISTENING ADDRESSES]", program);
  std::puts(
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

[[noreturn]] void exitWithUsage(const char* program) {
  printUsage(program);
  std::exit(1);
}

[[noreturn]] void refuse(const char* error, const char* program) {
  std::puts(error);
  exitWithUsage(program);
}

/// An option that begins with two hyphens arrives as option '-' with the rest as its argument.
void handleLongOption(const char* text, const char* program) {
  if (strcasecmp(text, "help") == 0) exitWithUsage(program);
  if (strcasecmp(text, "version") == 0) {
    std::puts("norvaSnmp version:  1.0.0");
    std::exit(0);
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
        std::printf("%s: error option\n", program);
        exitWithUsage(program);
    }
  }
  return options;
}

bool isMissing(const char* value, const char* placeholder) {
  return std::strcmp(value, placeholder) == 0;
}

void printOptions(const Options& options) {
  std::printf("\ndbFath=%s\ntransport=%s\nagentXName=%s\n ", options.database, options.transport,
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

/// Lets the library set up its MIB tree without any MIB text, which an agent does not need:
/// start-up is faster and standard error quiet. The environment is put back, as the master agent
/// may be launched with it. Before any other thread exists.
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
void configureSubagent(const char* transport) {
  netsnmp_ds_set_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_ROLE, 1);
  netsnmp_ds_set_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_X_SOCKET, transport);
  MasterSession::follow();
}

void pauseFor(unsigned seconds) {
  OutputFlusher::getInstance().soon();
  sleep(seconds);
}

void registerObjects() {
  MasterAgent::getInstance()->initNormalObj();
  MasterAgent::getInstance()->initTableObj();
}

/// The heartbeat sends through the alarm thread's object; both live until the process ends.
void startNotifications() {
  auto* alarmThread = new TrapAlarm("TrapAlarm");
  alarmThread->init(*MasterAgent::catalogue());
  alarmThread->start();
  alarmThread->markRunning();
  auto* heartbeatThread = new SnmpEventNotify("SnmpEventNotify ", alarmThread);
  heartbeatThread->start();
  heartbeatThread->markRunning();
}

void installTerminationHandler() {
  if (!Termination::prepare()) return;  // the default action ends the process just as well
  signal(SIGTERM, Termination::handler);
  // Deliberate, although the system refuses it.
  signal(SIGKILL, Termination::handler);
}

/// Start-up with -X: attach to a master agent that runs already.
void startSubagent(const Options& options) {
  printOptions(options);
  std::puts("netsnmp_ds_set_boolean....");
  configureSubagent(options.transport);
  const int rc = init_agent(options.name);
  std::printf("init_agent rc=%d....\n", rc);
  MasterAgent::getInstance(options.database);
  registerObjects();
  pauseFor(1);
  std::printf("before initsnmp_subagent,agentXName=%s \n", options.name);
  OutputFlusher::getInstance().soon();
  init_snmp(options.name);
  std::puts("init_snmp end....");
  LibraryGate::getInstance().open();
  startNotifications();
  Termination::agentXName = options.name;
  installTerminationHandler();
}

/// Start-up of the default mode: launch the master agent, then attach to it.
void startWithMaster(const Options& options) {
  constexpr char kAgentName[] = "snmpAgentX";
  std::puts("startSnmpd....");
  const MasterAgent* agent = MasterAgent::getInstance(options.database);
  startSnmpd(agent, options.conf, options.port, options.transport);
  std::puts("wating for snmpd");
  pauseFor(5);
  std::puts("netsnmp_ds_set_boolean in MASTER_AGENT....");
  configureSubagent(options.transport);
  init_agent(kAgentName);
  registerObjects();
  init_snmp(kAgentName);
  std::puts("init_snmp end....");
  LibraryGate::getInstance().open();
  startNotifications();
  // Deliberate: the termination handler shuts the library down without a name in this mode.
  installTerminationHandler();
}

[[noreturn]] void serveRequests() {
  for (;;) {
    OutputFlusher::getInstance().soon();
    LibraryGate::getInstance().beginTurn(MasterSession::unacknowledged());
    agent_check_and_process(1);
  }
}

}  // namespace
}  // namespace norva

int main(int argc, char** argv) {
  const norva::Options options = norva::parseOptions(argc, argv);
  norva::validateOptions(options, argv[0]);

  // A reader of standard output that goes away must not end the agent, nor a master that closes
  // the session while something is sent to it.
  signal(SIGPIPE, SIG_IGN);
  norva::initMibWithoutText();
  if (options.launchMaster) {
    norva::startWithMaster(options);
  } else {
    norva::startSubagent(options);
  }
  norva::serveRequests();
}
