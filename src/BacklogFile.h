// Where notifications of the unit are kept so that they outlive the agent: a file that is mapped
// into memory. What is written is safe from every end of the process, SIGKILL included, without a
// system call; only a power failure takes what the system had not yet written to the disk. Made by
// start-up, never freed; `hand` is the alarm thread's, all else is called under the lock of the
// queue that uses it.
//
// One page with a header and the message that is being received, then slots of one size. Integers
// have the order of the host, so that each is stored at once: the process may end between any two
// stores. A slot is held from the store of its state on, which is the last one when it is filled
// and the first one when it is freed. Slots are read in the order in which they were filled.
//
// The whole file is allocated when it is made, as a page that finds no room on a full disk would
// end the process. If somebody cuts the file short while it is used, the agent goes on in memory.

#ifndef NORVA_BACKLOG_FILE_H_
#define NORVA_BACKLOG_FILE_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "TrapMessage.h"

namespace norva {

class BacklogFile {
 public:
  using Slot = std::uint32_t;
  static constexpr Slot kNoSlot = 0xFFFFFFFF;
  /// Longest message that the hand takes, without its type.
  static constexpr std::size_t kHandSize = 1024;

  struct Kept {
    TrapMessage message;
    std::uint32_t sequence = 0;  ///< 0: it had none yet
    Slot slot = kNoSlot;         ///< where it is kept; none: not in the file that is used
  };
  /// What a file held.
  struct Contents {
    bool isSound = false;  ///< this program's, whole and undamaged
    std::uint32_t capacity = 0;
    std::uint32_t lastSequence = 0;
    std::vector<Kept> kept;  ///< in order, the message in hand last
  };
  struct Opened {
    std::unique_ptr<BacklogFile> file;  ///< null when there is none, the reason having been printed
    std::uint32_t lastSequence = 0;
    std::vector<Kept> kept;
  };

  /// Opens the file at `path`, or makes it, for `capacity` notifications, and prints how many it
  /// held. One that is damaged, or of another version or capacity, is put aside as `path`.aside
  /// once all that can be read of it has been taken. One user at a time.
  static Opened open(const std::string& path, std::uint32_t capacity);

  /// Reads the bytes of a file, whatever they are.
  static Contents read(const std::uint8_t* bytes, std::size_t size);

  ~BacklogFile();
  BacklogFile(const BacklogFile&) = delete;
  BacklogFile& operator=(const BacklogFile&) = delete;

  /// Room for a message with its type in front, zeroed: what is received there is in the file as
  /// soon as the system has stored it. Prints once that the file was cut short.
  std::uint8_t* hand();

  /// Takes `message` in behind all others and empties the hand. kNoSlot when all slots are held.
  Slot keep(const TrapMessage& message);
  /// Numbers what is kept; with kNoSlot only the last number given is remembered.
  void number(Slot slot, std::uint32_t sequence);
  /// Frees a slot; kNoSlot does nothing.
  void drop(Slot slot);

 private:
  BacklogFile(std::string path, int fd, std::uint8_t* map, std::size_t size);

  /// A new file with what `old` held, which gets its slots there; null with errno.
  static std::unique_ptr<BacklogFile> make(const std::string& path, std::uint32_t capacity,
                                           Contents& old);
  /// Puts the file at `path` aside, if it `isOld` and not just made, and the new one in its place.
  static void replace(const std::string& path, bool isOld, bool isMade);
  static std::unique_ptr<BacklogFile> map(const std::string& path, int fd, std::size_t size);

  const std::string _path;
  const int _fd;  // its lock keeps a second user away
  std::uint8_t* const _map;
  const std::size_t _size;
  std::vector<Slot> _free;
  bool _isCutTold = false;
};

}  // namespace norva

#endif  // NORVA_BACKLOG_FILE_H_
