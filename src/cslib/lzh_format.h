#pragma once

// The LZH bit stream: blocks of RFC 1951 (fixed and dynamic only, never stored) behind the 8-byte stream
// header and a preamble of 2 + r bits, with a window of 16 KiB and one zero byte after the last block. The
// tables that writer and reader share stand here once.

#include <array>
#include <cstdint>

namespace tolven::lzh {

inline constexpr int kWindowBits = 14;
inline constexpr std::uint32_t kWindowSize = 1U << kWindowBits;  // the dictionary
inline constexpr std::uint32_t kMinMatch = 3;
inline constexpr std::uint32_t kMaxMatch = 258;

inline constexpr int kLiterals = 256;
inline constexpr int kEndBlock = 256;
inline constexpr int kLengthCodes = 29;
inline constexpr int kLitLenCodes = kLiterals + 1 + kLengthCodes;  // 286
inline constexpr int kDistCodes = 30;
inline constexpr int kBitLengthCodes = 19;
inline constexpr int kMaxCodeBits = 15;
inline constexpr int kMaxBitLengthBits = 7;

inline constexpr int kBlockFixed = 1;
inline constexpr int kBlockDynamic = 2;

inline constexpr int kRepeatPrevious = 16;  // 3..6 times, 2 bits
inline constexpr int kRepeatZero = 17;      // 3..10 times, 3 bits
inline constexpr int kRepeatZeroLong = 18;  // 11..138 times, 7 bits

// Extra bits of length codes 257..287; 99 marks the codes that do not exist.
inline constexpr std::array<std::uint8_t, 31> CsExtraLenBits1 = {
    0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2, 2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 0, 99, 99};
inline constexpr std::array<std::uint8_t, 30> CsExtraDistBits1 = {
    0, 0, 0, 0, 1, 1, 2, 2, 3, 3, 4, 4, 5, 5, 6, 6, 7, 7, 8, 8, 9, 9, 10, 10, 11, 11, 12, 12, 13, 13};
inline constexpr std::array<std::uint8_t, 19> extra_blbits = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                                                              0, 0, 0, 0, 0, 0, 2, 3, 7};
// The order in which the lengths of the bit-length code are sent.
inline constexpr std::array<std::uint8_t, 19> bl_order = {16, 17, 18, 0, 8,  7, 9,  6, 10, 5,
                                                          11, 4,  12, 3, 13, 2, 14, 1, 15};

}  // namespace tolven::lzh
