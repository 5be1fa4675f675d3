// The object file of the simulated unit: what a line defines, and what is refused and why.

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "ObjectFile.h"
#include "ObjectStore.h"

namespace norva::dasunit {
namespace {

/// The objects of a file, formatted back into lines; "error: " and the reason if it is refused.
std::string parsed(const std::string& text) {
  std::istringstream input(text);
  std::string lines;
  try {
    for (const DeviceObject& object : parseObjects(input, "f")) lines += object.format() + '\n';
  } catch (const InputError& error) {
    return std::string("error: ") + error.what();
  }
  return lines;
}

TEST(ObjectFileTest, Parses) {
  const struct {
    const char* text;
    const char* expected;
  } cases[] = {
      {"\n  # only a comment\n\t\n", ""},
      {"0x0102 unsigned 1 rw 255 # id", "0x0102 unsigned 1 rw 255\n"},
      {"1 signed 1 ro -128\n2 signed 2 ro -5\n3 signed 4 ro 0x7fffffff",
       "0x0001 signed 1 ro -128\n0x0002 signed 2 ro -5\n0x0003 signed 4 ro 2147483647\n"},
      {R"(1 text 20 rw "a # \"b\" \\ \x09\xfF")",
       "0x0001 text 20 rw \"a # \\\"b\\\" \\\\ \\x09\\xff\"\n"},
      {"1 text 3 ro \"abc\"\n2 text 1 ro \"\"",
       "0x0001 text 3 ro \"abc\"\n0x0002 text 1 ro \"\"\n"},
      {"0x10-0x12 signed 2 rw -300 step 5",
       "0x0010 signed 2 rw -300\n0x0011 signed 2 rw -295\n0x0012 signed 2 rw -290\n"},
      {"fffe-ffff text 8 ro \"{n}{n}: {n}\"",
       "0xfffe text 8 ro \"11: 1\"\n0xffff text 8 ro \"22: 2\"\n"},
      {"\n1 unsigned 1 rw",
       "error: f:2: incomplete: an object has id, kind, width, access and value"},
      {"0x12345 unsigned 1 rw 0",
       "error: f:1: not an object id of 1 to 4 hexadecimal digits: 0x12345"},
      {"1 other 3 ro 0", "error: f:1: the width of an integer is 1, 2 or 4 bytes, not 3"},
      {"1 text 65 ro \"\"", "error: f:1: the width of a text is 1 to 64 bytes, not 65"},
      {"1 signed 2 ro -32769", "error: f:1: value -32769 is out of range: -32768 to 32767"},
      {"1-3 unsigned 1 ro 250 step 3", "error: f:1: value 256 is out of range: 0 to 255"},
      {"1 text 2 ro \"abc\"", "error: f:1: text of 3 bytes is too long for 2"},
      {"1 text 9 ro \"ab\\\"", "error: f:1: text without a closing quote"},
      {R"(1 text 9 ro "\x1")", R"(error: f:1: unknown escape in a text: use \" \\ \xNN)"},
      {"1 unsigned 1 ro 1 step 1", "error: f:1: 'step' is for ranges of integers"},
      {"5-4 unsigned 1 ro 1", "error: f:1: the range 5-4 ends before it begins"},
      {"1-3 unsigned 1 ro 1\n\n2 text 1 ro \"\"",
       "error: f:3: object 0x0002 is already defined in line 1"},
  };
  for (const auto& c : cases) EXPECT_EQ(parsed(c.text), c.expected);
}

TEST(ObjectStoreTest, RefusesToSetAReadOnlyObjectAndClearsAText) {
  ObjectStore store;
  store.add(parseObjectLine("3 text 4 rw \"long\""));
  store.set(3, "a");
  store.add(parseObjectLine("1-2 signed 2 ro -2"));
  store.add(parseObjectLine("2 signed 2 rw -2"));
  EXPECT_EQ(store.answer(Bytes{0x01, 5, 0x01, 0x00, 7, 0})[0], kCommandRefused);
  EXPECT_EQ(store.answer(Bytes{0x01, 5, 0x02, 0x00, 7, 0})[0], 0x11);
  EXPECT_EQ(store.get(1).format() + store.get(2).format() + store.get(3).format(),
            "0x0001 signed 2 ro -20x0002 signed 2 rw 70x0003 text 4 rw \"a\"");
}

}  // namespace
}  // namespace norva::dasunit
