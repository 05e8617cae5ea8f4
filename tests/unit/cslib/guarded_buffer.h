#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace tolven::lzhtest {

// Memory whose last byte is followed by a page that cannot be touched: reading or writing one byte too far
// ends the test program, with any compiler, at any alignment, which ASan's check of a wide access does not
// promise.
class GuardedBuffer {
 public:
  GuardedBuffer() = default;
  ~GuardedBuffer() { Free(); }
  GuardedBuffer(const GuardedBuffer&) = delete;
  GuardedBuffer& operator=(const GuardedBuffer&) = delete;

  // `size` bytes right in front of the guard; what was there before is gone.
  std::uint8_t* Take(std::size_t size) {
    if (size > capacity_ || base_ == nullptr) Grow(size);
    return base_ + (capacity_ - size);
  }
  std::uint8_t* Fill(const std::uint8_t* bytes, std::size_t size) {
    std::uint8_t* const at = Take(size);
    std::copy_n(bytes, size, at);
    return at;
  }

 private:
  void Grow(std::size_t size) {
    Free();
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    capacity_ = (size / page + 1) * page;
    void* const memory =
        mmap(nullptr, capacity_ + page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) std::abort();
    base_ = static_cast<std::uint8_t*>(memory);
    guard_ = page;
    if (mprotect(base_ + capacity_, page, PROT_NONE) != 0) std::abort();
  }
  void Free() {
    if (base_ != nullptr) munmap(base_, capacity_ + guard_);
    base_ = nullptr;
  }

  std::uint8_t* base_ = nullptr;
  std::size_t capacity_ = 0, guard_ = 0;
};

}  // namespace tolven::lzhtest
