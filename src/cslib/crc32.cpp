#include "cslib/crc32.h"

#include <algorithm>
#include <new>

#include "cslib/crc32_kernels.h"

namespace tolven {
namespace {

crc32::Kernel FastestKernel() {
#if defined(__x86_64__)
  if (crc32::HasFolding()) return crc32::UpdateFolded;
#endif
  return crc32::UpdateSliced;
}

// Segment length of a handle made with 0.
constexpr std::uint32_t kDefaultSegment = 0x10000;

}  // namespace

std::uint32_t CRC32Buf(std::uint32_t crc, const std::uint8_t* bytes, std::size_t count) {
  // Asked once, on first use, so that checksums taken during static initialisation work as well.
  static const crc32::Kernel kernel = FastestKernel();
  return kernel(crc, bytes, count);
}

int calccrcb(const std::uint8_t* bytes, std::int64_t count, std::uint64_t* crc) {
  // A step keeps 24 bits of the shifted register, so whatever stands above bit 31 is lost with the first
  // byte.
  if (count > 0) *crc = CRC32Buf(static_cast<std::uint32_t>(*crc), bytes, static_cast<std::size_t>(count));
  return 0;
}

Crc32Handle* CRC32NewHandle(std::int32_t segmentLength) {
  const auto length = segmentLength == 0 ? kDefaultSegment : static_cast<std::uint32_t>(segmentLength);
  return new (std::nothrow) Crc32Handle{0xFFFFFFFFU, 0, length, 0};
}

std::uint32_t CRC32HBuffer(Crc32Handle* handle, const std::uint8_t* bytes, std::uint32_t count,
                           bool stopAtSegmentEnd) {
  if (handle == nullptr) return 0;
  // The length of a segment may come from a file, and 0 there means that segments are not tracked.
  if (const std::uint32_t length = handle->segmentLength; length != 0) {
    if (stopAtSegmentEnd) count = std::min(count, length - handle->position);
    handle->position = static_cast<std::uint32_t>((std::uint64_t{handle->position} + count) % length);
  }
  handle->total += count;
  handle->crcRegister = CRC32Buf(handle->crcRegister, bytes, count);
  return count;
}

std::uint32_t CRC32FreeHandle(Crc32Handle* handle) {
  if (handle == nullptr) return 0;
  const std::uint32_t crc = ~handle->crcRegister;
  delete handle;
  return crc;
}

}  // namespace tolven
