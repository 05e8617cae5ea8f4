#include "archive/block_pipeline.h"

#include <sched.h>

#include <algorithm>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <string>
#include <system_error>

#include "archive/format.h"
#include "cslib/crc32.h"

namespace tolven {

namespace {

// A fresh stream for every block, LZH at level 2.
constexpr int kBlockOptions = CS_INIT | CS_ALGORITHM_LZH | 2 << CS_LEVEL_SHIFT;
static_assert(kBlockOptions == 35);

// Below this a thread takes longer to be made than it saves.
constexpr std::uint64_t kWorthThreads = 1 << 20;

constexpr unsigned kDefaultLimit = 16;
constexpr unsigned kLimit = 256;  // of TOLVEN_THREADS

// Enough that nobody waits while the owner makes a file or a slow block is at the front; 200 KiB each.
std::size_t QueueLength(unsigned threads) {
  return std::size_t{4} * threads + 8;
}

unsigned AffinityCount() {
  cpu_set_t set;
  CPU_ZERO(&set);
  if (sched_getaffinity(0, sizeof set, &set) != 0) return 1;  // more processors than the set has room for
  return static_cast<unsigned>(std::max(CPU_COUNT(&set), 1));
}

// "QUOTA PERIOD" of one control group, rounded up to processors; 0 for "max" or no such file.
unsigned GroupQuota(const std::string& group) {
  std::ifstream file("/sys/fs/cgroup" + group + "/cpu.max");
  double quota = 0;
  double period = 0;
  if (!(file >> quota >> period) || quota <= 0 || period <= 0) return 0;
  return static_cast<unsigned>(std::min(quota / period + 0.999, double{kLimit}));
}

// The tightest quota on the way from the own group to the root; `most` without any.
unsigned QuotaCount(unsigned most) {
  std::ifstream file("/proc/self/cgroup");
  std::string group;
  while (std::getline(file, group) && !group.starts_with("0::/")) group.clear();
  if (group.empty()) return most;
  group.erase(0, 3);
  for (;;) {
    if (group == "/") group.clear();
    if (const unsigned quota = GroupQuota(group); quota != 0) most = std::min(most, quota);
    if (group.empty()) return most;
    group.resize(group.rfind('/'));
  }
}

}  // namespace

unsigned ThreadCount(unsigned byDefault) {
  if (const char* text = std::getenv("TOLVEN_THREADS"); text != nullptr) {
    const std::string_view digits(text);
    unsigned count = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), count);
    if (error == std::errc() && end == digits.data() + digits.size() && count > 0) {
      return std::min(count, kLimit);
    }
  }
  if (byDefault > 0) return byDefault;
  return std::max(QuotaCount(std::min(AffinityCount(), kDefaultLimit)), 1U);
}

CBlockPipeline::CBlockPipeline(const Shape& shape, unsigned threads) : m_shape(shape), m_byDefault(threads) {
  Grow(shape.waiting);
}

CBlockPipeline::~CBlockPipeline() {
  {
    const std::lock_guard lock(m_lock);
    m_ending = true;
  }
  m_work.notify_all();
  static_cast<void>(CsRCloseHandle(m_handle));
}

// Each block keeps its number, also the free one that is being filled.
void CBlockPipeline::Grow(std::size_t count) {
  std::vector<std::unique_ptr<Block>> blocks(count);
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint64_t number = m_first + i;
    std::unique_ptr<Block>& block = blocks[number % count];
    if (i < m_blocks.size()) continue;
    block = std::make_unique<Block>();
    block->input = std::make_unique_for_overwrite<std::uint8_t[]>(m_shape.inputRoom);
    block->output = std::make_unique_for_overwrite<std::uint8_t[]>(m_shape.outputFront + m_shape.outputRoom);
  }
  for (std::size_t i = 0; i < m_blocks.size(); ++i) {  // nothing may fail from here on
    const std::uint64_t number = m_first + i;
    blocks[number % count] = std::move(m_blocks[number % m_blocks.size()]);
  }
  m_blocks = std::move(blocks);
}

void CBlockPipeline::NoteWork(std::size_t bytes) noexcept {
  m_bytes += bytes;
  if (m_decided || m_bytes < kWorthThreads) return;
  m_decided = true;
  try {
    MakeThreads();
  } catch (const std::exception&) {  // no memory, or no thread: those that are there will do
  }
}

void CBlockPipeline::MakeThreads() {
  const unsigned count = ThreadCount(m_byDefault);
  if (count < 2) return;
  m_threads.reserve(count - 1);
  Grow(QueueLength(count));
  m_begun = m_first;
  while (m_begun != m_behind && At(m_begun).done) ++m_begun;
  m_submitted = m_behind;
  // Signals are for the thread that has something to undo.
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  try {
    while (m_threads.size() < count - 1) m_threads.emplace_back([this] { Serve(); });
  } catch (...) {
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    throw;
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void CBlockPipeline::Serve() {
  int handle = 0;
  if (CsRGetHandle(&handle) != CS_OK) return;  // the others, or the owner, do the work
  {
    std::unique_lock lock(m_lock);
    for (;;) {
      while (m_begun == m_submitted && !m_ending) {
        ++m_idle;
        m_work.wait(lock);
        --m_idle;
      }
      if (m_ending) break;
      Block& block = At(m_begun++);
      lock.unlock();
      Run(block, handle);
      lock.lock();
      block.done.store(true, std::memory_order_release);
      m_progress.notify_one();
    }
  }
  static_cast<void>(CsRCloseHandle(handle));
}

bool CBlockPipeline::LendHand(std::unique_lock<std::mutex>& lock) {
  if (m_begun == m_submitted) return false;
  Block& block = At(m_begun++);
  lock.unlock();
  Run(block, OwnHandle());
  block.done.store(true, std::memory_order_release);
  lock.lock();
  return true;
}

int CBlockPipeline::OwnHandle() {
  if (m_handle < 0) m_handle = CsSearchNewHandle();
  return m_handle;
}

void CBlockPipeline::Run(Block& block, int handle) const {
  std::int32_t read = 0;
  std::int32_t written = 0;
  const auto length = static_cast<std::int32_t>(block.length);
  const auto room = static_cast<std::int32_t>(m_shape.outputRoom);
  std::uint8_t* output = block.output.get() + m_shape.outputFront;
  if (m_shape.work == Work::kCompress) {
    block.crc = CRC32Buf(0, block.input.get(), block.length);
    block.result =
        CsRCompress(handle, length, block.input.get(), length, output, room, kBlockOptions, &read, &written);
  } else {
    block.result = CsRDecompress(handle, block.input.get(), length, output, room, CS_INIT, &read, &written);
    block.crc = CRC32Buf(0, output, static_cast<std::size_t>(written));
  }
  block.written = static_cast<std::uint32_t>(written);
}

void CBlockPipeline::Submit() {
  At(m_behind).done.store(false, std::memory_order_relaxed);
  ++m_behind;
  if (!HasThreads()) return;
  bool wake = false;
  {
    const std::lock_guard lock(m_lock);
    m_submitted = m_behind;
    wake = m_idle > 0;
  }
  if (wake) m_work.notify_one();
}

CBlockPipeline::Block& CBlockPipeline::Await() {
  Block& block = At(m_first);
  if (block.done.load(std::memory_order_acquire)) return block;
  if (!HasThreads()) {
    Run(block, OwnHandle());
    block.done.store(true, std::memory_order_relaxed);
    return block;
  }
  std::unique_lock lock(m_lock);
  while (!block.done.load(std::memory_order_acquire)) {
    if (!LendHand(lock)) m_progress.wait(lock);
  }
  return block;
}

void CBlockPipeline::Clear() {
  if (HasThreads()) {
    const std::lock_guard lock(m_lock);
    // What nobody has begun is as good as done.
    for (; m_begun != m_submitted; ++m_begun) At(m_begun).done.store(true, std::memory_order_relaxed);
  }
  for (; !IsEmpty(); Pop()) {
    if (HasThreads()) Await();
  }
}

}  // namespace tolven
