#include "Output.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include "TestSupport.h"

namespace norva::test {
namespace {

/// An output into a pipe that nobody reads yet.
class OutputTest : public testing::Test {
 protected:
  OutputTest() {
    EXPECT_EQ(pipe2(ends, O_NONBLOCK), 0);
    // As a descriptor that is shared with a program that made it so: not blocking.
    output = new Output(ends[1], std::chrono::milliseconds(1));  // its writer never ends
    output->start();
  }
  ~OutputTest() override { close(ends[0]); }

  /// All that comes until `wanted` has.
  std::string readUntil(const std::string& wanted) {
    std::string text;
    char buffer[4096];
    for (int i = 0; i < 10000 && text.find(wanted) == std::string::npos; ++i) {
      for (ssize_t size; (size = read(ends[0], buffer, sizeof buffer)) > 0;) {
        text.append(buffer, static_cast<std::size_t>(size));
      }
      usleep(1000);
    }
    return text;
  }

  int ends[2];
  Output* output;
};

TEST_F(OutputTest, AReaderWhoStopsLosesWholeLinesAndIsToldHowManyBytes) {
  std::string all;
  const std::size_t lines = 2 * Output::kCapacity / 32;
  for (std::size_t i = 0; i < lines; ++i) {
    const std::string line = std::to_string(1000000 + i) + std::string(24, 'x');
    output->write(line.substr(0, 10));
    output->write(line.substr(10), "\n");
    all += line + "\n";
  }
  EXPECT_FALSE(output->drain(std::chrono::milliseconds(1)));
  const std::string notice = " bytes of output were dropped, nobody read them\n";
  std::string text = readUntil(notice);
  EXPECT_TRUE(output->drain(std::chrono::seconds(10)));
  const std::size_t end = text.find(notice);
  ASSERT_NE(end, std::string::npos);
  const std::size_t start = text.rfind('\n', end - 1) + 1;
  const std::size_t kept = all.compare(0, start - 1, text, 0, start - 1) == 0 ? start : 0;
  EXPECT_GE(kept, Output::kCapacity - 64);
  // A line that was cut is ended by a line end of ours.
  const std::size_t dropped = std::stoul(text.substr(start));
  EXPECT_EQ(dropped + kept - (all[start - 1] == '\n' ? 0 : 1), all.size());
  output->write("as before", "\n");
  EXPECT_EQ(readUntil("\n"), "as before\n");
}

TEST_F(OutputTest, ATextLargerThanTheBufferIsNotLost) {
  EXPECT_LE(Output::kDelay, std::chrono::milliseconds(100)) << "as readers are told";
  const std::string text(4 * Output::kCapacity, 'x');
  output->write(text, "\n");
  EXPECT_EQ(readUntil("\n").size(), text.size() + 1);
  const std::string line(600, 'x');
  EXPECT_EQ(printed([&] { Output::print("%s\n", line.c_str()); }), line + "\n");
}

TEST(OutputOnADiskTest, TheLineAfterAFullDiskTellsAllThatIsMissing) {
  signal(SIGXFSZ, SIG_IGN);
  const TemporaryDirectory directory;
  const int file = open((directory.path + "/output").c_str(), O_CREAT | O_RDWR, 0600);
  auto* const output = new Output(file, std::chrono::milliseconds(1));  // its writer never ends
  output->start();
  rlimit usual{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &usual), 0);
  std::string all;
  const auto print = [&](int line) {
    all += std::to_string(1000 + line) + std::string(28, 'x') + "\n";
    output->write(std::string_view(all).substr(all.size() - 33));
    EXPECT_TRUE(output->drain(std::chrono::seconds(10)));
  };
  const rlimit full{1000, usual.rlim_max};  // in the middle of a line
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &full), 0);
  for (int line = 0; line < 100; ++line) print(line);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &usual), 0);
  for (int line = 100; line < 103; ++line) print(line);
  EXPECT_TRUE(output->drain(std::chrono::seconds(10)));
  std::string text(8192, '\0');
  text.resize(static_cast<std::size_t>(pread(file, text.data(), text.size(), 0)));
  EXPECT_EQ(text, all.substr(0, 1000) + "\n" + std::to_string(100 * 33 - 1000) +
                      " bytes of output were dropped, nobody read them\n" + all.substr(100 * 33));
}

}  // namespace
}  // namespace norva::test
