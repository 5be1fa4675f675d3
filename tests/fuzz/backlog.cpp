// What may stand in the file of the backlog when the agent starts.

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>

#include "BacklogFile.h"
#include "Fuzz.h"

namespace norva::fuzz {
namespace {

/// A directory of the program's own, which goes with it.
struct Directory {
  Directory() { MUST(mkdtemp(path.data()) != nullptr); }
  ~Directory() { std::filesystem::remove_all(path); }

  std::string path = "/tmp/norva-fuzz-XXXXXX";
};

const std::string& path() {
  static const Directory directory;
  static const std::string made = directory.path + "/backlog";
  return made;
}

bool isSame(const BacklogFile::Contents& read, const BacklogFile::Opened& opened) {
  return read.lastSequence == opened.lastSequence &&
         std::equal(read.kept.begin(), read.kept.end(), opened.kept.begin(), opened.kept.end(),
                    [](const auto& a, const auto& b) {
                      return a.sequence == b.sequence &&
                             std::equal(a.message.data(), a.message.data() + TrapMessage::kSize,
                                        b.message.data());
                    });
}

}  // namespace

void run(Input input) {
  // Zeros between the header, with the start of the message in hand, and the slots.
  std::string bytes = input.rest();
  constexpr std::size_t kHeaderSize = 256, kSlotsAt = 4096;
  if (bytes.size() > kHeaderSize) bytes.insert(kHeaderSize, kSlotsAt - kHeaderSize, '\0');
  const auto read =
      BacklogFile::read(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
  std::set<BacklogFile::Slot> slots;
  for (const auto& kept : read.kept) {
    MUST(kept.slot == BacklogFile::kNoSlot || kept.slot < read.capacity);
    MUST(slots.insert(kept.slot).second);
    MUST(kept.sequence <= read.lastSequence);
  }
  constexpr std::uint32_t kMost = 8;
  if (read.capacity > kMost || bytes.empty()) return;

  // A life of the agent with it, whatever it is, and the next one.
  std::ofstream(path(), std::ios::binary) << bytes;
  auto opened = BacklogFile::open(path(), kMost);
  MUST(opened.file != nullptr && isSame(read, opened));
  const bool hasRoom = read.kept.size() <= kMost;
  for (const auto& kept : opened.kept) {
    if (kept.slot != BacklogFile::kNoSlot) continue;
    MUST((opened.file->keep(kept.message) != BacklogFile::kNoSlot) == hasRoom);
  }
  opened.file.reset();
  opened = BacklogFile::open(path(), kMost);
  MUST(opened.file != nullptr && opened.lastSequence == read.lastSequence);
  for (const auto& kept : opened.kept) {
    MUST(kept.slot != BacklogFile::kNoSlot || !hasRoom);
    opened.file->drop(kept.slot);
  }
}

}  // namespace norva::fuzz
