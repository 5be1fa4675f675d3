#include "BacklogFile.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <utility>

#include "Output.h"

namespace norva {

namespace {

constexpr char kMagic[8] = {'n', 'o', 'r', 'v', 'a', 'B', 'L', 'G'};
constexpr std::uint32_t kVersion = 1;
constexpr std::uint32_t kByteOrder = 0x01020304;
constexpr std::uint32_t kFree = 0;
constexpr std::uint32_t kHeld = 0x48454C44;  // chosen so that noise is not taken for it
/// More than any capacity that can be set.
constexpr std::uint32_t kMaxCapacity = 200'000;

// What is added to the path: for a new file until it is whole, for one that is put aside.
constexpr char kMade[] = ".new";
constexpr char kAside[] = ".aside";

struct Header {
  char magic[8];
  std::uint32_t version;
  std::uint32_t byteOrder;
  std::uint32_t typeSize;  // of a message's type
  std::uint32_t capacity;
  std::uint32_t lastSequence;
  std::uint32_t handOrder;  // place that the message in hand will have
  long handType;            // 0: nothing in hand
  std::uint8_t hand[BacklogFile::kHandSize];
};
constexpr std::size_t kSlotsAt = 4096;
static_assert(sizeof(Header) <= kSlotsAt);
static_assert(offsetof(Header, hand) == offsetof(Header, handType) + sizeof(long));

struct SlotData {
  std::uint32_t state;
  std::uint32_t sequence;
  std::uint32_t order;
  std::uint32_t check;
  TrapMessage message;
};

std::size_t fileSize(std::uint32_t capacity) {
  return kSlotsAt + std::size_t{capacity} * sizeof(SlotData);
}

std::uint32_t checkOf(const SlotData& slot) {
  std::uint32_t check = slot.order;
  const std::uint8_t* byte = slot.message.data();
  for (std::size_t left = TrapMessage::kSize; left > 0;) {
    std::uint32_t word = 0;
    const std::size_t size = std::min(left, sizeof word);
    std::memcpy(&word, byte, size);
    check = (check ^ word) * 0x01000193U;
    check ^= check >> 15;
    byte += size;
    left -= size;
  }
  return check;
}

Header& headerOf(std::uint8_t* map) {
  return *reinterpret_cast<Header*>(map);
}

SlotData& slotOf(std::uint8_t* map, BacklogFile::Slot slot) {
  return reinterpret_cast<SlotData*>(map + kSlotsAt)[slot];
}

/// Stores in the order of the program, as seen by whoever reads the file after the process's end.
void store(std::uint32_t& where, std::uint32_t value) {
  std::atomic_signal_fence(std::memory_order_seq_cst);
  std::atomic_ref(where).store(value, std::memory_order_release);
  std::atomic_signal_fence(std::memory_order_seq_cst);
}

// A file that was cut short has no memory behind its pages: their place is taken by plain memory.

std::uint8_t* mapped = nullptr;
std::size_t mappedSize = 0;
std::atomic<bool> isCut = false;

void onBusError(int signalNumber, siginfo_t* info, void*) {
  const auto* const address = static_cast<std::uint8_t*>(info->si_addr);
  if (mapped == nullptr || address < mapped || address >= mapped + mappedSize ||
      mmap(mapped, mappedSize, PROT_READ | PROT_WRITE, MAP_FIXED | MAP_PRIVATE | MAP_ANONYMOUS, -1,
           0) == MAP_FAILED) {
    signal(signalNumber, SIG_DFL);  // and what failed is done again
    return;
  }
  isCut = true;
}

void printReason(const std::string& path, const char* reason) {
  Output::print("norvaBacklogFile %s: %s, notifications are kept in memory only\n", path.c_str(),
                reason);
}

/// The file at `path`, made if there is none, locked; -1 after printing.
int openLocked(const std::string& path, struct stat& status) {
  for (int tries = 0; tries < 10; ++tries) {
    const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NONBLOCK, 0600);
    if (fd < 0) {
      printReason(path, std::strerror(errno));
      return -1;
    }
    struct stat present {};
    const char* reason = nullptr;
    if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
      reason = errno == EWOULDBLOCK ? "another agent uses it" : std::strerror(errno);
    } else if (fstat(fd, &status) != 0) {
      reason = std::strerror(errno);
    } else if (!S_ISREG(status.st_mode)) {
      reason = "no regular file";
    } else if (stat(path.c_str(), &present) == 0 && present.st_ino == status.st_ino &&
               present.st_dev == status.st_dev) {
      return fd;
    }
    close(fd);  // without a reason: another agent has just put a new file in its place
    if (reason != nullptr) {
      printReason(path, reason);
      return -1;
    }
  }
  printReason(path, "another agent uses it");
  return -1;
}

/// All bytes of a file, none of one that no capacity has.
std::vector<std::uint8_t> bytesOf(int fd, off_t size) {
  std::vector<std::uint8_t> bytes;
  if (size <= 0 || static_cast<std::uintmax_t>(size) > fileSize(kMaxCapacity)) return bytes;
  bytes.resize(static_cast<std::size_t>(size));
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t part =
        pread(fd, bytes.data() + done, bytes.size() - done, static_cast<off_t>(done));
    if (part <= 0) break;
    done += static_cast<std::size_t>(part);
  }
  bytes.resize(done);
  return bytes;
}

/// Gives the file its size and its place on the disk; 0 or an error number.
int allocate(int fd, std::size_t size) {
  const int error = posix_fallocate(fd, 0, static_cast<off_t>(size));
  if (error != EOPNOTSUPP && error != EINVAL) return error;
  const std::vector<std::uint8_t> zeros(4096);
  for (std::size_t done = 0; done < size;) {
    const ssize_t part = write(fd, zeros.data(), std::min(zeros.size(), size - done));
    if (part <= 0) return errno;
    done += static_cast<std::size_t>(part);
  }
  return 0;
}

}  // namespace

BacklogFile::Contents BacklogFile::read(const std::uint8_t* bytes, std::size_t size) {
  Contents contents;
  Header header;
  if (size < kSlotsAt) return contents;
  std::memcpy(&header, bytes, sizeof header);
  if (std::memcmp(header.magic, kMagic, sizeof kMagic) != 0 || header.version != kVersion ||
      header.byteOrder != kByteOrder || header.capacity > kMaxCapacity) {
    return contents;
  }
  contents.capacity = header.capacity;
  contents.lastSequence = header.lastSequence;
  contents.isSound = header.typeSize == sizeof(long) && size == fileSize(header.capacity);

  std::vector<std::pair<std::uint32_t, Kept>> held;  // with the distance to the hand's place
  bool isHandKept = false;
  const std::size_t whole =
      std::min<std::size_t>(header.capacity, (size - kSlotsAt) / sizeof(SlotData));
  for (std::size_t i = 0; i < whole; ++i) {
    SlotData slot;
    std::memcpy(&slot, bytes + kSlotsAt + i * sizeof slot, sizeof slot);
    if (slot.state == kFree) continue;
    if (slot.state != kHeld || slot.check != checkOf(slot)) {
      contents.isSound = false;
      continue;
    }
    isHandKept = isHandKept || slot.order == header.handOrder;
    contents.lastSequence = std::max(contents.lastSequence, slot.sequence);
    held.push_back(
        {header.handOrder - slot.order, {slot.message, slot.sequence, static_cast<Slot>(i)}});
  }
  std::sort(held.begin(), held.end(),
            [](const auto& a, const auto& b) { return a.first > b.first; });
  for (const auto& [distance, kept] : held) contents.kept.push_back(kept);
  if (header.handType != 0 && header.typeSize == sizeof(long) && !isHandKept) {
    contents.kept.push_back({TrapMessage(header.hand, sizeof header.hand), 0, kNoSlot});
  }
  return contents;
}

BacklogFile::Opened BacklogFile::open(const std::string& path, std::uint32_t capacity) {
  struct stat status {};
  const int fd = openLocked(path, status);
  if (fd < 0) return {};
  const std::vector<std::uint8_t> bytes = bytesOf(fd, status.st_size);
  Contents contents = read(bytes.data(), bytes.size());
  Opened opened;
  if (contents.isSound && contents.capacity == capacity) {
    opened.file = map(path, fd, bytes.size());
    if (!opened.file) {
      close(fd);
    } else {
      Header& header = headerOf(opened.file->_map);
      for (Slot slot = capacity; slot-- > 0;) {
        const SlotData& data = slotOf(opened.file->_map, slot);
        if (data.state == kFree) {
          opened.file->_free.push_back(slot);
        } else if (data.order == header.handOrder) {
          // The process ended in the middle of `keep`.
          header.handType = 0;
          store(header.handOrder, header.handOrder + 1);
        }
      }
    }
  } else {
    opened.file = make(path, capacity, contents);
    const int error = errno;
    const bool isOld = status.st_size > 0;
    // Also where there is no new one: what was read must not be read again.
    replace(path, isOld, opened.file != nullptr);
    if (isOld) {
      Output::print("norvaBacklogFile %s: %s, put aside as %s%s\n", path.c_str(),
                    contents.isSound ? "of another capacity" : "damaged or another's", path.c_str(),
                    kAside);
    }
    close(fd);
    errno = error;
  }
  if (!opened.file) printReason(path, std::strerror(errno));
  opened.lastSequence = contents.lastSequence;
  opened.kept = std::move(contents.kept);
  if (!opened.file) {
    for (Kept& kept : opened.kept) kept.slot = kNoSlot;
  }
  if (opened.file || !opened.kept.empty()) {
    Output::print("%zu notifications were taken over from %s\n", opened.kept.size(), path.c_str());
  }
  return opened;
}

std::unique_ptr<BacklogFile> BacklogFile::make(const std::string& path, std::uint32_t capacity,
                                               Contents& old) {
  const std::string made = path + kMade;
  const std::size_t size = fileSize(capacity);
  const int fd = ::open(made.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (fd < 0) return nullptr;
  std::unique_ptr<BacklogFile> file;
  int error = flock(fd, LOCK_EX | LOCK_NB) == 0 ? allocate(fd, size) : errno;
  if (error == 0) {
    file = map(path, fd, size);
    error = errno;
  }
  if (!file) {
    close(fd);
    unlink(made.c_str());
    errno = error;
    return nullptr;
  }
  Header& header = headerOf(file->_map);
  header = {{}, kVersion, kByteOrder, sizeof(long), capacity, 0, 1, 0, {}};
  std::memcpy(header.magic, kMagic, sizeof kMagic);
  for (Slot slot = capacity; slot-- > 0;) file->_free.push_back(slot);
  for (Kept& kept : old.kept) {
    kept.slot = file->keep(kept.message);
    if (kept.sequence != 0) file->number(kept.slot, kept.sequence);
  }
  header.lastSequence = old.lastSequence;
  return file;
}

void BacklogFile::replace(const std::string& path, bool isOld, bool isMade) {
  const std::string aside = path + kAside;
  if (isOld) {
    // At no moment is there no file of the name, where the file system has links.
    unlink(aside.c_str());
    if (!isMade || link(path.c_str(), aside.c_str()) != 0) rename(path.c_str(), aside.c_str());
  }
  if (isMade) rename((path + kMade).c_str(), path.c_str());
}

std::unique_ptr<BacklogFile> BacklogFile::map(const std::string& path, int fd, std::size_t size) {
  void* const memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  if (memory == MAP_FAILED) return nullptr;
  return std::unique_ptr<BacklogFile>(
      new BacklogFile(path, fd, static_cast<std::uint8_t*>(memory), size));
}

BacklogFile::BacklogFile(std::string path, int fd, std::uint8_t* map, std::size_t size)
    : _path(std::move(path)), _fd(fd), _map(map), _size(size) {
  mapped = map;
  mappedSize = size;
  isCut = false;
  struct sigaction action {};
  action.sa_sigaction = onBusError;
  action.sa_flags = SA_SIGINFO;
  sigaction(SIGBUS, &action, nullptr);
}

BacklogFile::~BacklogFile() {
  if (mapped == _map) mapped = nullptr;
  munmap(_map, _size);
  close(_fd);
}

std::uint8_t* BacklogFile::hand() {
  Header& header = headerOf(_map);
  header.handType = 0;
  std::atomic_signal_fence(std::memory_order_seq_cst);
  std::memset(header.hand, 0, sizeof header.hand);
  if (isCut && !std::exchange(_isCutTold, true)) printReason(_path, "it was cut short");
  return reinterpret_cast<std::uint8_t*>(&header.handType);
}

BacklogFile::Slot BacklogFile::keep(const TrapMessage& message) {
  if (_free.empty()) return kNoSlot;
  const Slot slot = _free.back();
  _free.pop_back();
  Header& header = headerOf(_map);
  SlotData& data = slotOf(_map, slot);
  data.sequence = 0;
  data.order = header.handOrder;
  data.message = message;
  data.check = checkOf(data);
  store(data.state, kHeld);
  // From here on what is in hand is known to be kept, by its place.
  header.handType = 0;
  store(header.handOrder, header.handOrder + 1);
  return slot;
}

void BacklogFile::number(Slot slot, std::uint32_t sequence) {
  // First where it is used: a number that the process's end leaves unused would be a gap.
  if (slot != kNoSlot) store(slotOf(_map, slot).sequence, sequence);
  store(headerOf(_map).lastSequence, sequence);
}

void BacklogFile::drop(Slot slot) {
  if (slot == kNoSlot) return;
  store(slotOf(_map, slot).state, kFree);
  _free.push_back(slot);
}

}  // namespace norva
