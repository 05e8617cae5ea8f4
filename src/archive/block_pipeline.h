#pragma once

// Blocks are streams of their own, so any number of them can be with the engine at a time. This is the one
// place where a run has threads, and blocks of bytes are all that they see: names, messages, exceptions and
// files stay with the thread that runs the command.

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <thread>
#include <vector>

#include "cslib/cslib.h"

namespace tolven {

// How many threads a run may use in all: what TOLVEN_THREADS says, else `byDefault`, else (0) as many as the
// affinity mask and the quota of the control group allow, up to 16. At least 1.
unsigned ThreadCount(unsigned byDefault);

// A queue of blocks: filled, worked on and taken in one order. Whoever takes the first one lends a hand until
// it is done. Without threads, which is how every run starts and how small ones stay, that is all there is:
// then the queue holds what its owner needs and no more.
class CBlockPipeline {
 public:
  enum class Work : std::uint8_t { kCompress, kDecompress };

  struct Block {
    std::unique_ptr<std::uint8_t[]> input;
    std::unique_ptr<std::uint8_t[]> output;
    std::uint32_t length = 0;   // of the input; set by the owner
    std::int64_t tag = 0;       // the owner's own
    std::uint32_t written = 0;  // to the output, behind the room that the owner keeps in front
    CsResult result = CS_OK;    // of the engine
    std::uint32_t crc = 0;      // of the uncompressed side, register from 0
    std::atomic<bool> done = false;
  };
  // What the blocks of a queue are like.
  struct Shape {
    Work work;
    std::uint32_t inputRoom;
    std::uint32_t outputRoom;   // for the engine
    std::uint32_t outputFront;  // in front of that, left alone
    unsigned waiting;           // blocks that the owner holds at a time when there are no threads
  };

  // `threads`: what ThreadCount is to be asked with, once it matters.
  CBlockPipeline(const Shape& shape, unsigned threads);
  ~CBlockPipeline();
  CBlockPipeline(const CBlockPipeline&) = delete;
  CBlockPipeline& operator=(const CBlockPipeline&) = delete;

  // Counts bytes of work; the threads are made when there is enough to be worth them. Those that cannot be
  // made are done without.
  void NoteWork(std::size_t bytes) noexcept;
  [[nodiscard]] bool HasThreads() const { return !m_threads.empty(); }

  [[nodiscard]] bool IsEmpty() const { return m_first == m_behind; }
  [[nodiscard]] bool IsFull() const { return m_behind - m_first == m_blocks.size(); }
  // A free block, to be filled and submitted. Not when the queue is full.
  Block& Free() { return At(m_behind); }
  void Submit();
  // The oldest block; not when the queue is empty. Await: once it is done, working on it if need be.
  [[nodiscard]] const Block& Front() const { return *m_blocks[m_first % m_blocks.size()]; }
  [[nodiscard]] bool IsFrontDone() const { return Front().done.load(std::memory_order_acquire); }
  Block& Await();
  // The oldest block is not needed any more. It must be done.
  void Pop() { ++m_first; }
  // Waits for what is being worked on and forgets everything.
  void Clear();

 private:
  Block& At(std::uint64_t number) { return *m_blocks[number % m_blocks.size()]; }
  void Grow(std::size_t count);
  void MakeThreads();
  void Serve();
  // Works on the oldest block that nobody has begun. False when there is none.
  bool LendHand(std::unique_lock<std::mutex>& lock);
  void Run(Block& block, int handle) const;
  // Of the owner, who works while there are no threads, or lends a hand.
  int OwnHandle();

  const Shape m_shape;
  const unsigned m_byDefault;
  std::uint64_t m_bytes = 0;
  bool m_decided = false;  // about threads
  int m_handle = -1;       // see OwnHandle

  // Numbers of blocks, counted from the first of all. These two are the owner's.
  std::uint64_t m_first = 0;
  std::uint64_t m_behind = 0;
  std::vector<std::unique_ptr<Block>> m_blocks;

  std::mutex m_lock;  // for all that follows
  std::condition_variable m_work;
  std::condition_variable m_progress;
  std::uint64_t m_begun = 0;      // the next block to begin
  std::uint64_t m_submitted = 0;  // behind the last one to begin
  unsigned m_idle = 0;
  bool m_ending = false;
  std::vector<std::jthread> m_threads;  // last: they end before anything they use
};

}  // namespace tolven
