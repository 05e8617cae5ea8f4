#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <variant>

#include "signing/hash/digests.h"

namespace tolven {

// One interface over the digests a manifest may name. Flat functions, integer results, nothing thrown;
// the ids and names go into signed documents: do not change them.
inline constexpr int kHaMd5 = 0xA501;
inline constexpr int kHaSha1 = 0xA502;
inline constexpr int kHaSha256 = 0xA503;
inline constexpr int kHaSha512 = 0xA504;
inline constexpr int kHaSha384 = 0xA505;
inline constexpr int kHaCrc32 = 0xC320;

inline constexpr int kHaDefaultAlgorithm = kHaSha256;
inline constexpr std::size_t kHaMaxDigestLength = 64;  // bytes, SHA-512

enum HaResult : int {
  HA_OK = 0,
  HA_ENULL = 1,      // null context, null data with a length above 0, or null output
  HA_ESTATE = 2,     // the context was not initialised, or is already finished
  HA_ESIZE = 3,      // the output is too small
  HA_EALGORITHM = 4  // no such algorithm
};

// CRC-32 as a digest: register inverted before and after, most significant byte first. No protection at all
// against a change made on purpose.
struct Crc32State {
  std::uint32_t value = 0xffffffff;
};

// A running digest. A plain value: copying it copies the state, nothing is owned elsewhere.
struct HaContext {
  int algorithm = 0;             // 0: none set
  std::size_t blockLength = 0;   // bytes
  std::size_t digestLength = 0;  // bytes
  bool finished = false;         // `digest` is valid
  std::variant<std::monostate, Md5State, Sha1State, Sha256State, Sha512State, Crc32State> state;
  std::array<std::uint8_t, kHaMaxDigestLength> digest{};
};

// The id of a name of exactly `length` characters, letters in either case, with or without one hyphen before
// the digits ("sha-256", "SHA256"); 0 when it is none of the table.
int haGetAlgorithm(const char* name, std::size_t length);

// "SHA256" and so on; null for an id that is not in the table.
const char* haGetAlgorithmName(int id);

// Length of a digest in bytes; 0 for an id that is not in the table.
std::size_t haGetDigestLength(int id);

// Clears the context and readies it for `id`. HA_OK, HA_ENULL or HA_EALGORITHM.
[[nodiscard]] int haInit(HaContext* context, int id);

// Feeds `length` bytes; null data is allowed when `length` is 0.
[[nodiscard]] int haUpdate(HaContext* context, const void* data, std::size_t length);

// Finishes: context->digest then holds context->digestLength bytes, most significant byte first.
[[nodiscard]] int haFinal(HaContext* context);

// haInit, haUpdate and haFinal in one call; the first result that is not 0.
[[nodiscard]] int haHashAll(HaContext* context, const void* data, std::size_t length, int id);

// Lower-case hexadecimal text with a terminating zero byte. `written`, when not null, receives the number of
// characters without it. HA_ESIZE unless 2 * length + 1 bytes fit.
[[nodiscard]] int haHexEncodeBlob(const void* data, std::size_t length, char* output, std::size_t outputSize,
                                  std::size_t* written);

// The same for a finished digest; HA_ESTATE when it is not finished.
[[nodiscard]] int haHexEncodeDigest(const HaContext* context, char* output, std::size_t outputSize,
                                    std::size_t* written);

// Base64 (padded, one line, terminating zero byte) of a finished digest.
[[nodiscard]] int haBase64EncodeDigest(const HaContext* context, char* output, std::size_t outputSize,
                                       std::size_t* written);

// The CRC-32 member on its own, for callers that keep a plain register. Init, any number of Update, Final.
std::uint32_t haCRC32Init();
std::uint32_t haCRC32Update(std::uint32_t value, const void* data, std::size_t length);
std::uint32_t haCRC32Final(std::uint32_t value);

}  // namespace tolven
