#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace tolven {

// The block digests as plain states: FeedBlocks (block_feed.h) hands whole blocks to Compress, Finish pads
// and writes the digest. Nothing here knows names or ids; hash.h does.

// MD5, RFC 1321. Kept for manifests that name it; no protection against a deliberate collision.
struct Md5State {
  static constexpr std::size_t kBlockLength = 64;
  static constexpr std::size_t kDigestLength = 16;

  std::array<std::uint32_t, 4> h{0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
  std::uint64_t length = 0;                       // bytes fed so far
  std::array<std::uint8_t, kBlockLength> tail{};  // the first length % 64 bytes wait for a full block

  void Compress(const std::uint8_t* blocks, std::size_t count);
  void Finish(std::span<std::uint8_t> digest);
};

// SHA-1, FIPS 180-4 section 6.1. Kept for manifests that name it; no protection against a deliberate
// collision.
struct Sha1State {
  static constexpr std::size_t kBlockLength = 64;
  static constexpr std::size_t kDigestLength = 20;

  std::array<std::uint32_t, 5> h{0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476, 0xc3d2e1f0};
  std::uint64_t length = 0;                       // bytes fed so far
  std::array<std::uint8_t, kBlockLength> tail{};  // the first length % 64 bytes wait for a full block

  void Compress(const std::uint8_t* blocks, std::size_t count);
  void Finish(std::span<std::uint8_t> digest);
};

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

// SHA-512 and SHA-384, FIPS 180-4 sections 6.4 and 6.5: one compression, two sets of initial values, and for
// SHA-384 a digest cut to 48 bytes.
struct Sha512State {
  static constexpr std::size_t kBlockLength = 128;
  static constexpr std::size_t kDigestLength = 64;
  static constexpr std::size_t kSha384DigestLength = 48;

  static Sha512State Sha384();

  std::array<std::uint64_t, 8> h{0x6a09e667f3bcc908, 0xbb67ae8584caa73b, 0x3c6ef372fe94f82b,
                                 0xa54ff53a5f1d36f1, 0x510e527fade682d1, 0x9b05688c2b3e6c1f,
                                 0x1f83d9abfb41bd6b, 0x5be0cd19137e2179};
  std::uint64_t length = 0;                       // bytes fed so far
  std::array<std::uint8_t, kBlockLength> tail{};  // the first length % 128 bytes wait for a full block

  void Compress(const std::uint8_t* blocks, std::size_t count);

  // Writes the first digest.size() bytes, 48 or 64.
  void Finish(std::span<std::uint8_t> digest);
};

}  // namespace tolven
