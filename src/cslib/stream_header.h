#pragma once

// The 8 bytes in front of every compressed stream, as a record. The gate writes it when a stream is started
// and reads it when one is opened; the coders are told what stands in it and never see the bytes.
//
//   0  4  length of the uncompressed data, little-endian
//   4  1  high nibble: version, 1. Low nibble: algorithm code, its bit 3 the checksum framing
//   5  2  magic, 0x1F 0x9D
//   7  1  parameter: the level of an LZH stream; for LZC the largest code width, and bit 7 for block mode
//
// The bytes from the magic on are those with which compress(1) begins a file: an LZC stream without its
// first five bytes is one.

#include <cstdint>
#include <span>

#include "cslib/cslib.h"

namespace tolven {

using StreamHeaderBytes = std::span<std::uint8_t, CS_HEAD_SIZE>;
using ConstStreamHeaderBytes = std::span<const std::uint8_t, CS_HEAD_SIZE>;

struct StreamHeader {
  std::int32_t length = 0;     // of the uncompressed data, never negative
  int algorithm = 0;           // CS_ALGORITHM_LZC or CS_ALGORITHM_LZH
  bool framed = false;         // checksum framing
  std::uint8_t parameter = 0;  // as it stands in byte 7
};

// What the options of a start call that compresses ask for. The parameter is the level for LZH (2 where the
// options name none) and the format's widest code for LZC. CS_OK or CS_E_UNKNOWN_ALG.
CsResult HeaderFromOptions(std::int32_t length, int options, StreamHeader& header);

// CS_OK, or CS_E_INVALID_LEN with nothing written: a length below 0, or for LZC below 1.
CsResult WriteStreamHeader(const StreamHeader& header, StreamHeaderBytes bytes);

// Finds out what kind of stream it is, and whether the decompressor can read it, in two steps: a caller's
// buffers are judged between them. CS_OK or
//   ReadAlgorithm:     CS_E_UNKNOWN_ALG
//   ReadStreamHeader:  CS_E_FILENOTCOMPRESSED (magic), CS_E_INVALID_LEN (2 GiB and more), CS_E_MAXBITS (LZC)
// The version is not looked at, nor is the level of an LZH stream: it means nothing to a reader.
CsResult ReadAlgorithm(ConstStreamHeaderBytes bytes, StreamHeader& header);
CsResult ReadStreamHeader(ConstStreamHeaderBytes bytes, StreamHeader& header);

}  // namespace tolven
