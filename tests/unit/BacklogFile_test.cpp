#include "BacklogFile.h"

#include <fstream>

#include "TestSupport.h"

namespace norva::test {
namespace {

constexpr std::size_t kFirstSlot = 4096;  // of the file's bytes

TrapMessage message(int number) {
  TrapMessage made;
  made.setMsgType(kMsgAlarm);
  made.setText(TrapMessage::kText4, std::to_string(number));
  return made;
}

class BacklogFileTest : public testing::Test {
 protected:
  /// Opens the file as a new life of the agent does. What it held: texts, each with its number.
  std::string open(std::uint32_t capacity = 4) {
    file.reset();
    text = printed([&] {
      BacklogFile::Opened opened = BacklogFile::open(path, capacity);
      file = std::move(opened.file);
      last = opened.lastSequence;
      kept = opened.kept;
    });
    std::string held;
    for (const auto& one : kept) {
      held += std::string(one.message.text(TrapMessage::kText4)) + "#" +
              std::to_string(one.sequence) + " ";
    }
    return held;
  }
  bool saysAsideAndServes() const {
    return file != nullptr && text.find("put aside as " + path + ".aside\n") != std::string::npos &&
           std::filesystem::exists(path + ".aside");
  }
  void change(std::size_t at, char byte) const {
    std::fstream bytes(path, std::ios::in | std::ios::out | std::ios::binary);
    bytes.seekp(static_cast<std::streamoff>(at));
    bytes.put(byte);
  }

  TemporaryDirectory directory;
  const std::string path = directory.path + "/backlog";
  std::unique_ptr<BacklogFile> file;
  std::vector<BacklogFile::Kept> kept;
  std::string text;
  std::uint32_t last = 0;
};

TEST_F(BacklogFileTest, KeepsWhatIsNotDroppedInOrderWithItsNumbers) {
  EXPECT_EQ(open(), "");
  EXPECT_EQ(text, "0 notifications were taken over from " + path + "\n");
  EXPECT_FALSE(std::filesystem::exists(path + ".aside") || std::filesystem::exists(path + ".new"));
  EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms(0600));
  EXPECT_EQ(printed([this] { EXPECT_EQ(BacklogFile::open(path, 4).file, nullptr); }),
            "norvaBacklogFile " + path +
                ": another agent uses it, notifications are kept in memory only\n");
  const auto first = file->keep(message(1));
  const auto second = file->keep(message(2));
  file->number(first, 7);
  file->number(second, 8);
  file->drop(first);
  for (const int number : {3, 4, 5}) EXPECT_NE(file->keep(message(number)), BacklogFile::kNoSlot);
  EXPECT_EQ(file->keep(message(6)), BacklogFile::kNoSlot) << "full";
  file->number(BacklogFile::kNoSlot, 9);
  EXPECT_EQ(open(), "2#8 3#0 4#0 5#0 ");
  EXPECT_EQ(last, 9U);
  EXPECT_EQ(text, "4 notifications were taken over from " + path + "\n");
  file->drop(kept[0].slot);
  file->keep(message(7));
  EXPECT_EQ(open(), "3#0 4#0 5#0 7#0 ");
}

TEST_F(BacklogFileTest, TheMessageInHandIsNeitherLostNorThereTwice) {
  open();
  const auto receive = [this](int number) {
    std::uint8_t* const hand = file->hand();
    EXPECT_EQ(Bytes(hand, hand + sizeof(long) + BacklogFile::kHandSize),
              Bytes(sizeof(long) + BacklogFile::kHandSize));
    hand[0] = hand[sizeof(long) - 1] = 1;  // as the system stores a message's type
    std::memcpy(hand + sizeof(long), message(number).data(), TrapMessage::kSize);
  };
  receive(1);
  EXPECT_EQ(open(), "1#0 ");
  EXPECT_EQ(kept[0].slot, BacklogFile::kNoSlot);
  EXPECT_EQ(open(), "1#0 ");
  file->keep(message(1));
  EXPECT_EQ(open(), "1#0 ");
  receive(2);
  file->keep(message(2));
  receive(3);
  EXPECT_EQ(open(), "1#0 2#0 3#0 ");
}

TEST_F(BacklogFileTest, AFileThatIsNotAsItShouldBeIsPutAsideOnceItWasRead) {
  struct {
    const char* what;
    std::function<void()> damage;
    std::string held;
    std::uint32_t last;
  } const cases[] = {
      {"noise", [this] { std::ofstream(path) << std::string(9000, 'x'); }, "", 0},
      {"short", [this] { std::ofstream(path) << "norva"; }, "", 0},
      {"another version", [this] { change(8, 9); }, "", 0},
      {"cut", [this] { std::filesystem::resize_file(path, kFirstSlot + 300); }, "1#5 ", 6},
      {"a state", [this] { change(kFirstSlot, 'x'); }, "2#6 3#0 ", 6},
      {"a record", [this] { change(kFirstSlot + 40, 'x'); }, "2#6 3#0 ", 6},
      {"longer", [this] { std::ofstream(path, std::ios::app) << "x"; }, "1#5 2#6 3#0 ", 6},
      {"another capacity", [] {}, "1#5 2#6 3#0 ", 6},
  };
  for (const auto& [what, damage, held, lastSequence] : cases) {
    SCOPED_TRACE(what);
    file.reset();
    std::filesystem::remove(path);
    open();
    file->number(file->keep(message(1)), 5);
    file->number(file->keep(message(2)), 6);
    file->keep(message(3));
    file.reset();
    damage();
    const std::uint32_t capacity = std::string(what) == "another capacity" ? 100'064 : 4;
    EXPECT_EQ(open(capacity), held);
    EXPECT_TRUE(saysAsideAndServes());
    EXPECT_EQ(last, lastSequence);
    EXPECT_EQ(open(capacity), held) << "they are in the new one";
    EXPECT_EQ(last, lastSequence);
    EXPECT_EQ(text.find("aside"), std::string::npos);
  }
  std::filesystem::create_directory(path + ".new");  // where the new one cannot be made
  EXPECT_EQ(open(), "1#5 2#6 3#0 ");
  EXPECT_EQ(file, nullptr);
  std::filesystem::remove(path + ".new");
  EXPECT_EQ(open(), "") << "nothing is taken over twice";
}

}  // namespace
}  // namespace norva::test
