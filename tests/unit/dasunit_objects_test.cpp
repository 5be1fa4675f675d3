// The object file of the simulated unit: what a line defines, and what is refused with which
// reason.

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "ObjectFile.h"

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

struct Case {
  const char* name;
  std::string text;
  std::string expected;
};

class ObjectFileTest : public testing::TestWithParam<Case> {};

TEST_P(ObjectFileTest, Parses) {
  EXPECT_EQ(parsed(GetParam().text), GetParam().expected);
}

const Case kAccepted[] = {
    {"Empty", "\n  # only a comment\n\t\n", ""},
    {"Unsigned", "0x0102 unsigned 1 rw 255 # id", "0x0102 unsigned 1 rw 255\n"},
    {"IdWithoutPrefix", "80ba unsigned 2 ro 0xFFFF", "0x80ba unsigned 2 ro 65535\n"},
    {"Signed", "1 signed 1 ro -128\n2 signed 2 ro -5\n3 signed 4 ro 0x7fffffff",
     "0x0001 signed 1 ro -128\n0x0002 signed 2 ro -5\n0x0003 signed 4 ro 2147483647\n"},
    {"Other", "1 other 4 rw 0xFFFFFFFF", "0x0001 other 4 rw 4294967295\n"},
    {"TextWithEscapes", R"(1 text 20 rw "a # \"b\" \\ \x09\xfF")",
     "0x0001 text 20 rw \"a # \\\"b\\\" \\\\ \\x09\\xff\"\n"},
    {"TextFillsWidth", "1 text 3 ro \"abc\"\n2 text 1 ro \"\"",
     "0x0001 text 3 ro \"abc\"\n0x0002 text 1 ro \"\"\n"},
    {"RangeWithStep", "0x10-0x12 signed 2 rw -300 step 5",
     "0x0010 signed 2 rw -300\n0x0011 signed 2 rw -295\n0x0012 signed 2 rw -290\n"},
    {"RangeWithoutStep", "1-2 unsigned 1 ro 7", "0x0001 unsigned 1 ro 7\n0x0002 unsigned 1 ro 7\n"},
    {"RangeOfTexts", "9-a text 8 ro \"{n}: {n}\"",
     "0x0009 text 8 ro \"1: 1\"\n0x000a text 8 ro \"2: 2\"\n"},
    {"LastIds", "fffe-ffff unsigned 1 ro 1", "0xfffe unsigned 1 ro 1\n0xffff unsigned 1 ro 1\n"},
    {"NoRangeNoPosition", "1 text 8 ro \"{n}\"", "0x0001 text 8 ro \"{n}\"\n"},
};

const Case kRefused[] = {
    {"Incomplete", "\n1 unsigned 1 rw",
     "error: f:2: incomplete: an object has id, kind, width, access and value"},
    {"BadId", "0x12345 unsigned 1 rw 0",
     "error: f:1: not an object id of 1 to 4 hexadecimal digits: 0x12345"},
    {"BadKind", "1 float 4 rw 0",
     "error: f:1: unknown kind 'float': unsigned, signed, text or other"},
    {"BadAccess", "1 unsigned 1 wo 0", "error: f:1: unknown access 'wo': ro or rw"},
    {"BadWidth", "1 other 3 ro 0", "error: f:1: the width of an integer is 1, 2 or 4 bytes, not 3"},
    {"BadTextWidth", "1 text 65 ro \"\"",
     "error: f:1: the width of a text is 1 to 64 bytes, not 65"},
    {"TooLarge", "1 unsigned 1 ro 256", "error: f:1: value 256 is out of range: 0 to 255"},
    {"TooSmall", "1 signed 2 ro -32769",
     "error: f:1: value -32769 is out of range: -32768 to 32767"},
    {"StepsOut", "1-3 unsigned 1 ro 250 step 3", "error: f:1: value 256 is out of range: 0 to 255"},
    {"NotANumber", "1 unsigned 1 ro 12x", "error: f:1: value is not a number: 12x"},
    {"TextTooLong", "1 text 2 ro \"abc\"", "error: f:1: text of 3 bytes is too long for 2"},
    {"TextUnquoted", "1 text 2 ro ab", "error: f:1: a text must stand in quotes"},
    {"TextUnclosed", "1 text 9 ro \"ab\\\"", "error: f:1: text without a closing quote"},
    {"BadEscape", R"(1 text 9 ro "\n")", R"(error: f:1: unknown escape in a text: use \" \\ \xNN)"},
    {"ShortHexEscape", R"(1 text 9 ro "\x1")",
     R"(error: f:1: unknown escape in a text: use \" \\ \xNN)"},
    {"Trailing", "1 unsigned 1 ro 1 2", "error: f:1: unexpected '2'"},
    {"StepWithoutRange", "1 unsigned 1 ro 1 step 1",
     "error: f:1: 'step' is for ranges of integers"},
    {"BackwardRange", "5-4 unsigned 1 ro 1", "error: f:1: the range 5-4 ends before it begins"},
    {"Duplicate", "1-3 unsigned 1 ro 1\n\n2 text 1 ro \"\"",
     "error: f:3: object 0x0002 is already defined in line 1"},
};

std::string nameOf(const testing::TestParamInfo<Case>& info) {
  return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(Accepted, ObjectFileTest, testing::ValuesIn(kAccepted), nameOf);
INSTANTIATE_TEST_SUITE_P(Refused, ObjectFileTest, testing::ValuesIn(kRefused), nameOf);

TEST(DeviceObjectTest, TravelsLittleEndian) {
  const DeviceObject object = parseObjectLine("1 signed 4 rw -2").front();
  EXPECT_EQ(std::vector<std::uint8_t>(object.wireValue().begin(), object.wireValue().end()),
            (std::vector<std::uint8_t>{0xFE, 0xFF, 0xFF, 0xFF}));
  EXPECT_EQ(object.objLen(), 7);
  EXPECT_EQ(object.attr(), 0x0110);
}

}  // namespace
}  // namespace norva::dasunit
