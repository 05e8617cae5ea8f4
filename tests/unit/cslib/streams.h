#pragma once

// LZH streams that this system's own compressor did not write (zlib's deflate with our
// header and preamble in front, and streams written bit by bit).

#include <zlib.h>

#include <initializer_list>
#include <optional>
#include <span>

#include "cslib/cslib.h"
#include "cslib/data.h"

namespace tolven::test {

// Bits in the order of RFC 1951: the first bit of a byte is its lowest.
class BitWriter {
 public:
  // The stream header for `length` bytes; `preambleBits` 0..3 announces that many bits, all of them ones.
  explicit BitWriter(std::uint32_t length, unsigned preambleBits = 0) {
    for (unsigned i = 0; i < 4; ++i) bytes_.push_back(static_cast<std::uint8_t>(length >> (8 * i)));
    for (const int byte : {0x12, 0x1F, 0x9D, 2}) bytes_.push_back(static_cast<std::uint8_t>(byte));
    Put(preambleBits, 2).Put((1U << preambleBits) - 1, preambleBits);
  }

  BitWriter& Put(std::uint64_t value, unsigned count) {
    for (unsigned i = 0; i < count; ++i) PutBit((value >> i) & 1U);
    return *this;
  }
  // A Huffman code, most significant bit first.
  BitWriter& Code(std::uint32_t code, unsigned count) {
    while (count-- > 0) PutBit((code >> count) & 1U);
    return *this;
  }
  // A symbol of the fixed literal/length code.
  BitWriter& Fixed(std::uint32_t symbol) {
    if (symbol < 144) return Code(0x30 + symbol, 8);
    if (symbol < 256) return Code(0x190 + symbol - 144, 9);
    if (symbol < 280) return Code(symbol - 256, 7);
    return Code(0xC0 + symbol - 280, 8);
  }
  BitWriter& FixedBlock(bool last) { return Put(last ? 1 : 0, 1).Put(1, 2); }

  // A dynamic block header; every code length is sent on its own, through a bit-length code of 16 codes of 4
  // bits.
  BitWriter& DynamicBlock(bool last, std::span<const std::uint8_t> litLen,
                          std::span<const std::uint8_t> dist) {
    Put(last ? 1 : 0, 1).Put(2, 2);
    Put(litLen.size() - 257, 5).Put(dist.size() - 1, 5).Put(15, 4);
    for (unsigned i = 0; i < 19; ++i) Put(i < 3 ? 0 : 4, 3);
    for (const std::uint8_t length : litLen) Code(length, 4);
    for (const std::uint8_t length : dist) Code(length, 4);
    return *this;
  }

  BitWriter& Bytes(std::span<const std::uint8_t> bytes) {
    for (const std::uint8_t byte : bytes) Put(byte, 8);
    return *this;
  }

  // The bytes so far. With `closed` the zero byte that ends a whole stream is added.
  [[nodiscard]] test::Bytes Take(bool closed = true) const {
    test::Bytes bytes = bytes_;
    if (closed) bytes.push_back(0);
    return bytes;
  }

 private:
  void PutBit(std::uint64_t bit) {
    if (used_ == 0) bytes_.push_back(0);
    bytes_.back() = static_cast<std::uint8_t>(bytes_.back() | bit << used_);
    used_ = (used_ + 1) % 8;
  }

  test::Bytes bytes_;
  unsigned used_ = 0;  // bits taken in the last byte, 0 when it is full
};

// zlib's raw deflate with our window size.
inline Bytes Deflate(const Bytes& data, int level, int strategy) {
  z_stream z{};
  deflateInit2(&z, level, Z_DEFLATED, -14, 8, strategy);
  Bytes out(deflateBound(&z, static_cast<uLong>(data.size())) + 64);
  Bytes in = data;
  z.next_in = in.data();
  z.avail_in = static_cast<uInt>(in.size());
  z.next_out = out.data();
  z.avail_out = static_cast<uInt>(out.size());
  deflate(&z, Z_FINISH);
  out.resize(z.total_out);
  deflateEnd(&z);
  return out;
}

// True iff a block of the deflate stream is stored, which our format does not have.
inline bool HasStoredBlock(const Bytes& deflated) {
  z_stream z{};
  inflateInit2(&z, -15);
  Bytes in = deflated, sink(1 << 16);
  z.next_in = in.data();
  z.avail_in = static_cast<uInt>(in.size());
  std::uint64_t bit = 0;  // where the next block begins
  bool stored = false;
  constexpr int kUnusedBits = 63, kLastBlock = 64,
                kBlockEnd = 128;  // zlib's data_type after a call with Z_BLOCK
  for (int rc = Z_OK; rc == Z_OK && !stored && (z.data_type & kLastBlock) == 0;) {
    const auto bitAt = [&](std::uint64_t at) { return (in[at / 8] >> (at % 8)) & 1; };
    stored = bitAt(bit + 1) == 0 && bitAt(bit + 2) == 0;
    do {
      z.next_out = sink.data();
      z.avail_out = static_cast<uInt>(sink.size());
      rc = inflate(&z, Z_BLOCK);
    } while (rc == Z_OK && (z.data_type & kBlockEnd) == 0);
    bit = z.total_in * 8 - static_cast<unsigned>(z.data_type & kUnusedBits);
  }
  inflateEnd(&z);
  return stored;
}

// `data` as an LZH stream whose blocks zlib wrote; none when zlib chose to store a block.
inline std::optional<Bytes> ZlibStream(const Bytes& data, int level = 6, int strategy = Z_DEFAULT_STRATEGY,
                                       unsigned preambleBits = 0) {
  const Bytes deflated = Deflate(data, level, strategy);
  if (HasStoredBlock(deflated)) return std::nullopt;
  return BitWriter(static_cast<std::uint32_t>(data.size()), preambleBits).Bytes(deflated).Take();
}

}  // namespace tolven::test
