#pragma once

#include <cstdint>
#include <deque>
#include <span>
#include <string>

#include "archive/block_pipeline.h"
#include "fileio/file_stream.h"

namespace tolven {

// What a run writes into its archive, in order, while blocks of it are still being compressed. Lines for the
// user stand in the same order: none is printed before everything in front of it is in the stream, so that
// how far a failed run came does not depend on how many threads it had. Failures of the stream are
// CWriteExcept, of the engine CDecompExcept, and come from whichever call meets them.
class CArchiveOutput {
 public:
  // `stream` must outlive the object; `name`: of the archive, for messages. `threads`: see ThreadCount.
  CArchiveOutput(CFileStream& stream, std::string name, unsigned threads);

  void Write(std::span<const std::uint8_t> bytes);
  void Print(std::string line);

  // The data of an entry: room for 64 KiB, what of it was filled, and then, with the next piece in its room
  // or known to be missing, whether that was the last. `name`: of the entry, for messages.
  std::span<std::uint8_t> Room();
  void PutBlock(std::uint32_t length, const std::string& name);
  void SealBlock(bool last);

  // Before anything is shown or done that must not overtake: waits until all of it is in the stream. A block
  // that was not sealed is given up. After a failure nothing is left to be written.
  void Drain();

 private:
  enum class Kind : std::uint8_t { kBytes, kLine, kBlock };
  struct Item {
    Kind kind;
    bool last;         // kBlock: behind it comes the checksum
    std::string text;  // the bytes, the line, or the entry
  };
  [[nodiscard]] bool IsReady() const;
  void Retire();
  void RetireFront();
  void RetireBlock(const Item& item);
  void ToStream(std::span<const std::uint8_t> bytes);

  CFileStream& m_stream;
  const std::string m_name;
  CBlockPipeline m_pipeline;
  std::deque<Item> m_items;
  bool m_open = false;  // the last item is a block that was not sealed
  std::uint32_t m_crc = 0;
};

}  // namespace tolven
