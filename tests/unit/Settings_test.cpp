#include "Settings.h"

#include <fstream>
#include <utility>

#include "AgentLibrary.h"
#include "TestSupport.h"

namespace norva::test {
namespace {

using std::chrono::seconds;

/// The settings after the lines of a file, and what is said of them.
struct Read {
  explicit Read(const std::vector<std::string>& lines, const char* name = "unit") {
    const TemporaryDirectory directory;
    std::ofstream(directory.path + "/unit.conf") << [&] {
      std::string text = "agentxPingInterval 5\n";  // another's, no matter of ours
      for (const std::string& line : lines) text += line + "\n";
      return text;
    }();
    setenv("SNMPCONFPATH", directory.path.c_str(), 1);
    const Settings before = Settings::get();
    testing::internal::CaptureStderr();
    Settings::read(name);
    settings = std::exchange(const_cast<Settings&>(Settings::get()), before);
    said = testing::internal::GetCapturedStderr();
    unsetenv("SNMPCONFPATH");
  }
  Settings settings;
  std::string said;
};

TEST(SettingsTest, EachTokenFromItsSmallestToItsLargestValue) {
  const Read none({}), smallest({"norvaDeviceTimeout 0", "norvaBacklog 0", "norvaTrace no"}),
      largest({"norvaDeviceTimeout \t3600 ", "norvaBacklog 100000", "norvaStrictSet yes",
               "norvaTrace yes"});
  const auto check = [](const Read& read, int timeout, std::size_t backlog, bool strict,
                        bool trace) {
    EXPECT_EQ(read.said, "");
    EXPECT_EQ(read.settings.deviceTimeout, seconds(timeout));
    EXPECT_EQ(read.settings.backlog, backlog);
    EXPECT_EQ(read.settings.strictSet, strict);
    EXPECT_EQ(read.settings.trace, trace);
  };
  check(none, 0, 1000, false, true);
  check(Read({"norvaBacklog 5"}, ""), 0, 1000, false, true);
  check(Read({"norvaBacklog 5"}, "other:unit"), 0, 5, false, true);
  check(smallest, 0, 0, false, false);
  check(largest, 3600, 100'000, true, true);
}

TEST(SettingsTest, ABadValueIsNamedAndChangesNothing) {
  const std::vector<std::string> good{"norvaDeviceTimeout 7", "norvaBacklog 8", "norvaTrace no"};
  for (const std::string line :
       {"norvaDeviceTimeout 3601", "norvaDeviceTimeout soon", "norvaDeviceTimeout 5 s",
        "norvaDeviceTimeout -1", "norvaBacklog 100001", "norvaBacklog 99999999999",
        "norvaTrace Yes", "norvaStrictSet 1", "norvaBacklogFile backlog", "norvaAgentObjects on"}) {
    auto lines = good;
    lines.push_back(line);
    const Read read(lines);
    EXPECT_NE(read.said.find("unit.conf: line 5: Error: " + line.substr(0, line.find(' ')) + ": "),
              std::string::npos)
        << line << " " << read.said;
    EXPECT_EQ(read.settings.deviceTimeout, seconds(7)) << line;
    EXPECT_EQ(read.settings.backlog, 8U) << line;
    EXPECT_FALSE(read.settings.strictSet || read.settings.trace || read.settings.agentObjects);
    EXPECT_EQ(read.settings.backlogFile, "") << line;
  }
}

}  // namespace
}  // namespace norva::test
