// norvamap: what a mapping database means to managers.

#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "Annotations.h"
#include "Mapping.h"
#include "Metrics.h"
#include "ObjectFile.h"
#include "OneLine.h"
#include "Reports.h"
#include "Text.h"
#include "TraceDecoder.h"
#include "Version.h"

namespace {

using namespace norva::mapping;
using norva::dasunit::InputError;

constexpr int kExitFindings = 1;
constexpr int kExitInput = 2;

struct Options {
  std::string root = norva::kFixedRoot;
  std::string database;
  bool hasRoot = false;
  std::string objects;
  std::string format;
  std::string module = "NORVA-MIB";
  std::string templateName = "norvaSnmp unit";
  std::string names;
  std::string newNames;
  std::string access;
  std::string other;  // diff: the new database; decode: the trace
};

constexpr char kExamples[] =
    "Examples:\n"
    "  norvamap check mapping.db --objects unit.objects\n"
    "  norvamap list mapping.db --format csv > objects.csv\n"
    "  norvamap mib mapping.db --names names.yaml > NORVA-MIB.txt\n"
    "  norvamap exporter mapping.db > snmp.yml\n"
    "  norvamap severities mapping.db --names names.yaml > severities.yml\n"
    "  norvamap zabbix mapping.db --names names.yaml > zabbix.yaml\n"
    "  norvaSnmp -X -d mapping.db -x /var/agentx/master -n unit | norvamap decode mapping.db\n"
    "  norvamap diff old.db new.db\n"
    "Status: 0; 1 with errors (check) or changes that break something (diff); 2 for bad input.";

void print(const std::string& text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
}

int runCheck(const Options& options) {
  std::vector<norva::dasunit::DeviceObject> objects;
  if (!options.objects.empty()) objects = norva::dasunit::readObjectFile(options.objects);
  const std::string unitRoot = rootOf(objects);
  const Mapping mapping(options.database,
                        options.hasRoot || unitRoot.empty() ? options.root : unitRoot);
  Findings findings;
  checkDataBase(mapping, findings);
  if (!options.objects.empty()) checkUnit(mapping, objects, options.objects, findings);
  print(options.format == "json" ? findings.asJson() : findings.asText());
  return findings.hasErrors() ? kExitFindings : 0;
}

int runList(const Options& options) {
  const Mapping mapping(options.database, options.root);
  mapping.requireComplete();
  print(list(mapping, options.format == "csv"    ? ListFormat::kCsv
                      : options.format == "json" ? ListFormat::kJson
                                                 : ListFormat::kTable));
  return 0;
}

Annotations annotationsOf(const std::string& names, const Mapping& mapping) {
  return names.empty() ? Annotations() : readAnnotations(names, mapping);
}

NamedMapping named(const Mapping& mapping, const std::string& names) {
  return NamedMapping::make(mapping, annotationsOf(names, mapping), {});
}

int runMib(const Options& options) {
  const Mapping mapping(options.database, options.root);
  mapping.requireComplete();
  print(mibModule(mapping, annotationsOf(options.names, mapping), options.module));
  return 0;
}

int runExporter(const Options& options) {
  const Mapping mapping(options.database, options.root);
  mapping.requireComplete();
  print(exporterModules(mapping, annotationsOf(options.names, mapping), options.access));
  return 0;
}

int runSeverities(const Options& options) {
  const Mapping mapping(options.database, options.root);
  mapping.requireComplete();
  print(severityRules(named(mapping, options.names)));
  return 0;
}

int runZabbix(const Options& options) {
  const Mapping mapping(options.database, options.root);
  mapping.requireComplete();
  print(zabbixTemplate(mapping, annotationsOf(options.names, mapping), options.templateName));
  return 0;
}

int runDiff(const Options& options) {
  const Mapping before(options.database, options.root);
  const Mapping after(options.other, options.root);
  before.requireComplete();
  after.requireComplete();
  std::vector<Change> changes = compare(before, after);
  const std::string& newNames = options.newNames.empty() ? options.names : options.newNames;
  for (Change& change : compareMetrics(named(before, options.names), named(after, newNames))) {
    changes.push_back(std::move(change));
  }
  print(options.format == "json" ? asJson(changes) : asText(changes));
  const bool breaks = std::any_of(changes.begin(), changes.end(),
                                  [](const Change& change) { return change.breaks; });
  return breaks ? kExitFindings : 0;
}

int runDecode(const Options& options) {
  const Mapping mapping(options.database, options.root);
  mapping.requireComplete();
  const bool isFile = !options.other.empty() && options.other != "-";
  const int input = isFile ? open(options.other.c_str(), O_RDONLY | O_CLOEXEC) : STDIN_FILENO;
  if (input == -1) throw InputError(options.other + ": " + std::strerror(errno));
  const bool isTerminal = isatty(STDOUT_FILENO) != 0;
  TraceDecoder decoder(mapping, [isTerminal](const std::string& line, bool isFrame) {
    print(isTerminal && isFrame ? "\033[36m" + line + "\033[0m\n" : line + '\n');
  });
  char piece[4096];
  ssize_t size = 0;
  while ((size = read(input, piece, sizeof piece)) > 0) {
    decoder.feed({piece, static_cast<std::size_t>(size)});
    std::fflush(stdout);  // it may be watched while the agent runs
  }
  if (size < 0) throw InputError(options.other + ": " + std::strerror(errno));
  decoder.finish();
  return 0;
}

CLI::App* addSubcommand(CLI::App& app, Options& options, const char* name,
                        const char* description) {
  CLI::App* command = app.add_subcommand(name, description);
  command->add_option("DB", options.database, "Mapping database")->required()->type_name("");
  command
      ->add_option("--root", options.root,
                   "Where the unit puts its objects: the text of its object 0x80BA")
      ->each([&options](const std::string&) { options.hasRoot = true; })
      ->type_name("OID")
      ->capture_default_str();
  return command;
}

void addFormat(CLI::App* command, Options& options, const std::vector<std::string>& formats) {
  command->add_option("--format", options.format, "Format of the output")
      ->check(CLI::IsMember(formats).description(""))
      ->type_name(CLI::detail::join(formats, "|"))
      ->default_str(formats.front());
}

void addNames(CLI::App* command, Options& options) {
  command->add_option("--names", options.names, "Names, units, enumerations: see norvamap(1)")
      ->type_name("FILE");
}

void addName(CLI::App* command, const char* option, std::string& name, const char* description) {
  command->add_option(option, name, description)->type_name("NAME")->capture_default_str();
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  CLI::App app{"What a mapping database of norvaSnmp means to SNMP managers.", "norvamap"};
  app.require_subcommand(1);
  app.set_version_flag("--version", std::string("norvamap ") + norva::kVersion);
  app.footer(kExamples);
  int (*run)(const Options&) = nullptr;
  const auto addCommand = [&](const char* name, const char* description,
                              int (*command)(const Options&)) {
    return addSubcommand(app, options, name, description)->callback([&run, command] {
      run = command;
    });
  };
  CLI::App* check = addCommand("check", "Report what is wrong with a mapping", runCheck);
  check->add_option("--objects", options.objects, "The unit's objects, see dasunit(1)")
      ->type_name("FILE");
  addFormat(check, options, {"text", "json"});
  CLI::App* list = addCommand("list", "List every object as managers see it", runList);
  addFormat(list, options, {"table", "csv", "json"});
  CLI::App* mib = addCommand("mib", "Write the mapping as an SMIv2 module", runMib);
  addName(mib, "--module", options.module, "Name of the module");
  addNames(mib, options);
  CLI::App* exporter = addCommand("exporter", "Write modules for snmp_exporter", runExporter);
  addNames(exporter, options);
  exporter->add_option("--access", options.access, "SNMP version and credentials: see norvamap(1)")
      ->type_name("FILE");
  CLI::App* severities =
      addCommand("severities", "Write how bad each alarm is, as Prometheus rules", runSeverities);
  addNames(severities, options);
  CLI::App* zabbix = addCommand("zabbix", "Write a template for Zabbix", runZabbix);
  addNames(zabbix, options);
  addName(zabbix, "--template", options.templateName, "Name of the template");
  CLI::App* decode = addCommand("decode", "Put the agent's trace into words", runDecode);
  decode->add_option("FILE", options.other, "Trace; without it, standard input")->type_name("");
  CLI::App* diff = addCommand("diff", "What changes for managers from DB to NEW", runDiff);
  diff->add_option("NEW", options.other, "The new mapping database")->required()->type_name("");
  addFormat(diff, options, {"text", "json"});
  addNames(diff, options);
  diff->add_option("--new-names", options.newNames, "The same for NEW; without it as --names")
      ->type_name("FILE");

  try {
    const auto isNamed = [argv](const CLI::App* command) { return command->get_name() == argv[1]; };
    if (argc > 1 && argv[1][0] != '-' && app.get_subcommands(isNamed).empty()) {
      throw InputError(std::string("no command '") + argv[1] + "', see norvamap --help");
    }
    app.parse(argc, argv);
    const int status = run(options);
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)
      throw InputError(std::string("output: ") + std::strerror(errno));
    return status;
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return app.exit(error);  // --help, --version
    std::fprintf(stderr, "norvamap: %s, see norvamap --help\n", error.what());
  } catch (const std::exception& error) {  // also of the libraries
    std::fprintf(stderr, "norvamap: %s\n", norva::oneLine(error.what()).c_str());
  }
  return kExitInput;
}
