// `norvamap decode`: the agent's trace with its frames in words.
//
// The agent prints the payloads of its message queues as hexadecimal bytes in front of its next
// line. Each frame becomes a line here; all other text stays as it
// is, bytes that are no frame included.

#ifndef NORVA_MAPPING_TRACE_DECODER_H_
#define NORVA_MAPPING_TRACE_DECODER_H_

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "Mapping.h"

namespace norva::mapping {

class TraceDecoder {
 public:
  /// One line, without its end; `isFrame` for a decoded frame.
  using Sink = std::function<void(const std::string& line, bool isFrame)>;

  /// The mapping must outlive the decoder.
  TraceDecoder(const Mapping& mapping, Sink sink) : mapping_(mapping), sink_(std::move(sink)) {}

  /// The next piece of the trace, cut anywhere. A frame is told as soon as it is known to be
  /// complete: also the request that the unit does not answer.
  void feed(std::string_view text);
  /// The trace has ended.
  void finish();

 private:
  void takeCharacter(char c);
  void endOfBytes();
  void endOfLine();
  /// Takes complete frames off `bytes_`; with `isLast` all that is there.
  void takeFrames(bool isLast);
  /// Size of the frame that begins at `at`; 0 when it is not complete, or what it is depends on
  /// what comes.
  std::size_t frameSize(std::size_t at, bool isLast) const;
  /// Where the next frame begins that is recognised without knowing the one before it; the end when
  /// there is none yet.
  std::size_t nextFrame(std::size_t at, bool isLast) const;
  bool isGetRequest(std::size_t at) const;
  bool isEvent(std::size_t at) const;
  /// Whether it is one if more bytes come.
  bool canBecomeEvent(std::size_t at) const;

  /// Empty for bytes that are no frame of the protocol.
  std::string words(const std::vector<std::uint8_t>& frame);
  std::string replyWords(const std::vector<std::uint8_t>& frame);
  std::string setWords(const std::vector<std::uint8_t>& frame) const;
  std::string eventWords(const std::vector<std::uint8_t>& frame) const;
  std::string objectWords(std::uint16_t objId) const;
  /// `frame` is a get reply.
  std::string valueWords(std::uint16_t objId, const std::vector<std::uint8_t>& frame) const;

  const Mapping& mapping_;
  const Sink sink_;
  std::vector<std::uint8_t> bytes_;                    // of frames not told yet
  std::string line_;                                   // text behind them
  std::string token_;                                  // what may become a byte
  bool inBytes_ = true;                                // the line has had nothing but bytes so far
  bool hadFrame_ = false;                              // in this line
  std::map<std::uint16_t, std::uint16_t> attributes_;  // by object id, from its last reply
};

}  // namespace norva::mapping

#endif  // NORVA_MAPPING_TRACE_DECODER_H_
