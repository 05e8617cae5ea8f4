#pragma once

#include <cstddef>
#include <cstdint>

namespace tolven {

// Base16 and base64 (RFC 4648, standard alphabet) over byte text (SB) and 16-bit text (UC).

enum HaCodecResult : int {
  HA_CODEC_OK = 0,
  HA_CODEC_ENULL =
      -1,  // null input with a length above 0, null output, or null separator with line breaks on
  HA_CODEC_EMODE = -2,  // unknown mode bits, or a line length that is not a multiple of 4
  HA_CODEC_ESIZE = -3,  // the output is too small: make it larger and call again
  HA_CODEC_ETEXT = -4   // the text is not what the encoder would have written
};

// Bits of `mode`; a manifest uses both (the value 3).
inline constexpr int kHaBase64Pad = 1;    // the last group is filled up with '='
inline constexpr int kHaBase64Lines = 2;  // lines of `lineLength` characters with a separator between them

// Writes the text and a terminating zero character. `written` receives the number of characters without that
// zero. No separator follows the last line. `outputSize` counts characters.
[[nodiscard]] int haEncBase64SB(const void* data, std::size_t length, int mode, std::size_t lineLength,
                                const char* lineSeparator, char* output, std::size_t outputSize,
                                std::size_t* written);
[[nodiscard]] int haEncBase64UC(const void* data, std::size_t length, int mode, std::size_t lineLength,
                                const char16_t* lineSeparator, char16_t* output, std::size_t outputSize,
                                std::size_t* written);

// The exact inverse: one spelling is right. Another line length or separator, missing or surplus padding, a
// character outside the alphabet and bits left over in the last group are all HA_CODEC_ETEXT. `written`
// receives the number of bytes; `outputSize` needs no more than 3 bytes per 4 characters.
[[nodiscard]] int haDecBase64SB(const char* text, std::size_t length, int mode, std::size_t lineLength,
                                const char* lineSeparator, std::uint8_t* output, std::size_t outputSize,
                                std::size_t* written);
[[nodiscard]] int haDecBase64UC(const char16_t* text, std::size_t length, int mode, std::size_t lineLength,
                                const char16_t* lineSeparator, std::uint8_t* output, std::size_t outputSize,
                                std::size_t* written);

// Hexadecimal digits of either case, two a byte, nothing else.
[[nodiscard]] int haDecBase16SB(const char* text, std::size_t length, std::uint8_t* output,
                                std::size_t outputSize, std::size_t* written);
[[nodiscard]] int haDecBase16UC(const char16_t* text, std::size_t length, std::uint8_t* output,
                                std::size_t outputSize, std::size_t* written);

}  // namespace tolven
