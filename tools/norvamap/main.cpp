// norvamap: what a mapping database means to managers.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <string>

#include "Check.h"
#include "List.h"
#include "Mapping.h"
#include "ObjectFile.h"
#include "Text.h"

namespace {

using namespace norva::mapping;
using norva::dasunit::InputError;

constexpr int kExitFindings = 1;
constexpr int kExitInput = 2;

struct Options {
  std::string root = kDefaultRoot;
  std::string database;
  std::string objects;
  std::string format;
};

void print(const std::string& text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
}

int runCheck(const Options& options) {
  const Mapping mapping(options.database, options.root);
  Findings findings;
  checkDataBase(mapping, findings);
  if (!options.objects.empty()) {
    checkUnit(mapping, norva::dasunit::readObjectFile(options.objects), options.objects, findings);
  }
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

CLI::App* addCommand(CLI::App& app, Options& options, const char* name, const char* description) {
  CLI::App* command = app.add_subcommand(name, description);
  command->add_option("DB", options.database, "Mapping database")->required()->type_name("");
  command
      ->add_option("--root", options.root,
                   "Where the unit puts its objects: the text of its object 0x80BA")
      ->type_name("OID")
      ->capture_default_str();
  return command;
}

void addFormat(CLI::App* command, Options& options, const std::vector<std::string>& formats) {
  options.format = formats.front();
  command->add_option("--format", options.format, "Format of the output")
      ->check(CLI::IsMember(formats))
      ->type_name("")
      ->default_str(formats.front());
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  CLI::App app{"What a mapping database of norvaSnmp means to SNMP managers.", "norvamap"};
  app.require_subcommand(1);
  CLI::App* check = addCommand(app, options, "check", "Report what is wrong with a mapping");
  check->add_option("--objects", options.objects, "Object file of dasunit(1): compare the unit too")
      ->type_name("FILE");
  addFormat(check, options, {"text", "json"});
  CLI::App* list = addCommand(app, options, "list", "List every object as managers see it");
  addFormat(list, options, {"table", "csv", "json"});

  try {
    app.parse(argc, argv);
    if (check->parsed()) return runCheck(options);
    return runList(options);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return app.exit(error);  // --help
    std::fprintf(stderr, "norvamap: %s\n", error.what());
  } catch (const InputError& error) {
    std::fprintf(stderr, "norvamap: %s\n", error.what());
  }
  return kExitInput;
}
