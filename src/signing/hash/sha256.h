#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace tolven {

// SHA-256, FIPS 180-4 section 6.2. Compress runs on the processor's SHA instructions where it has them; the
// portable function is the definition that the other one must agree with.
struct Sha256State {
  static constexpr std::size_t kBlockLength = 64;
  static constexpr std::size_t kDigestLength = 32;

  std::array<std::uint32_t, 8> h{0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                 0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
  std::uint64_t length = 0;                       // bytes fed so far
  std::array<std::uint8_t, kBlockLength> tail{};  // the first length % 64 bytes wait for a full block

  void Compress(const std::uint8_t* blocks, std::size_t count);
  void Finish(std::span<std::uint8_t> digest);
};

// The 64 round constants, shared by both forms.
extern const std::array<std::uint32_t, 64> kSha256RoundConstants;

void Sha256CompressPortable(std::array<std::uint32_t, 8>& h, const std::uint8_t* blocks, std::size_t count);

// Uses the SHA, SSE4.1 and SSSE3 instructions without asking: call it only when Sha256HasInstructions().
void Sha256CompressInstructions(std::array<std::uint32_t, 8>& h, const std::uint8_t* blocks,
                                std::size_t count);
bool Sha256HasInstructions();

}  // namespace tolven
