#pragma once

// The compression engine: handle-based, resumable, two algorithms (LZH, LZC) behind one interface. Flat
// functions with integer results; nothing throws, nothing knows of files.
//
// One stream: a start call (CS_INIT), then further calls with the rest of the input and fresh output room
// until the result is CS_END_OF_STREAM. After every call the caller advances its input by `*read` and its
// output by
// `*written`, also after CS_END_OUTBUFFER and CS_END_INBUFFER. Lengths are in bytes and must not be negative.

#include <cstdint>

namespace tolven {

// Options, compression: CS_INIT | algorithm | CS_CHECKSUM | level << 4. Decompression looks at CS_INIT alone.
inline constexpr int CS_INIT = 0x01;  // start a new stream
inline constexpr int CS_ALGORITHM_MASK = 0x06;
inline constexpr int CS_ALGORITHM_LZC = 0x00;
inline constexpr int CS_ALGORITHM_LZH = 0x02;
inline constexpr int CS_CHECKSUM = 0x08;  // checksum framing
inline constexpr int CS_LEVEL_SHIFT = 4;  // levels 1..9; anything else means 2

// Header byte 4, low nibble.
inline constexpr int CS_ALG_CODE_LZC = 1;
inline constexpr int CS_ALG_CODE_LZH = 2;
inline constexpr int CS_ALG_CODE_CHECKSUM = 8;

inline constexpr std::int32_t CS_HEAD_SIZE = 8;

// Result codes. Positive: progress; negative: the stream cannot be continued.
enum CsResult : int {
  // A start-only call or a handle operation succeeded. From a call that decompresses: the last block ended
  // before the declared length was reached, and nothing more will come.
  CS_OK = 0,
  CS_END_OF_STREAM = 1,    // all output produced
  CS_END_OUTBUFFER = 2,    // call again with more output room
  CS_END_INBUFFER = 3,     // call again with more input
  CS_E_OUT_EXPECTED = -2,  // the previous call returned 2 and there is still no output room
  CS_E_IN_EXPECTED = -3,   // the previous call returned 3 and there is still no input
  CS_E_OUT_BUFFER_LEN = -10,
  CS_E_IN_BUFFER_LEN = -11,
  CS_E_INVALID_LEN = -13,
  CS_E_SAME_BUFFER = -14,
  CS_E_NO_OUT_BUFFER = -15,
  CS_E_HASH_INDEX = -19,
  CS_E_INVALID_ADDR = -20,  // neither input nor output room
  CS_E_UNKNOWN_ALG = -21,
  CS_E_UNKNOWN_TYPE = -22,       // a block type that is not part of the format
  CS_E_FILENOTCOMPRESSED = -50,  // bad magic
  CS_E_MAXBITS = -51,
  CS_E_TREE = -52,  // no valid set of code lengths
  CS_E_TABLE_POOL = -53,
  CS_E_BAD_CODE = -54,
  CS_E_BAD_HEADER = -55,  // too many literal/length or distance codes
  CS_E_CHECKSUM = -56,
  CS_E_NO_STAGING = -71,
  CS_E_HANDLE = -81,
  CS_E_MEMORY = -82,
  CS_E_LOCK = -83,
  CS_E_UNLOCK = -84,
  CS_E_NO_HANDLE = -85,
};

// Handles of callers are slot + 300; the first two slots belong to _CsCompr and _CsDecompr.
inline constexpr int CS_FIRST_HANDLE = 300;
inline constexpr int CS_MAX_HANDLES = 1000;
inline constexpr int CS_COMPR_HANDLE = CS_FIRST_HANDLE;
inline constexpr int CS_DECOMPR_HANDLE = CS_FIRST_HANDLE + 1;

// --- On the shared handles 300 and 301; one stream at a time.

// `total`: uncompressed length of the whole stream, needed on the start call.
int _CsCompr(std::int32_t total, const std::uint8_t* in, std::int32_t inLen, std::uint8_t* out,
             std::int32_t outLen, int options, std::int32_t* read, std::int32_t* written);
int _CsDecompr(const std::uint8_t* in, std::int32_t inLen, std::uint8_t* out, std::int32_t outLen,
               int options, std::int32_t* read, std::int32_t* written);
// The same with the place of the call for the trace.
int _CsComprEx(std::int32_t total, const std::uint8_t* in, std::int32_t inLen, std::uint8_t* out,
               std::int32_t outLen, int options, std::int32_t* read, std::int32_t* written, const char* file,
               int line);
int _CsDecomprEx(const std::uint8_t* in, std::int32_t inLen, std::uint8_t* out, std::int32_t outLen,
                 int options, std::int32_t* read, std::int32_t* written, const char* file, int line);
// Writes only the 8 header bytes to `out`; min(result, 0).
int _CsInitCompr(std::uint8_t* out, std::int32_t total, int options);
int _CsInitComprEx(std::uint8_t* out, std::int32_t total, int options, const char* file, int line);
// Reads only the 8 header bytes from `in`; min(result, 0).
int _CsInitDecompr(const std::uint8_t* in);
int _CsInitDecomprEx(const std::uint8_t* in, const char* file, int line);

// With the caller's own place. (Built-ins of both compilers: std::source_location is not in clang 14.)
inline int CsComprEx(std::int32_t total, const std::uint8_t* in, std::int32_t inLen, std::uint8_t* out,
                     std::int32_t outLen, int options, std::int32_t* read, std::int32_t* written,
                     const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
  return _CsComprEx(total, in, inLen, out, outLen, options, read, written, file, line);
}
inline int CsDecomprEx(const std::uint8_t* in, std::int32_t inLen, std::uint8_t* out, std::int32_t outLen,
                       int options, std::int32_t* read, std::int32_t* written,
                       const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
  return _CsDecomprEx(in, inLen, out, outLen, options, read, written, file, line);
}

// --- On a handle of the caller's own.

int CsRCompress(int handle, std::int32_t total, const std::uint8_t* in, std::int32_t inLen, std::uint8_t* out,
                std::int32_t outLen, int options, std::int32_t* read, std::int32_t* written);
int CsRDecompress(int handle, const std::uint8_t* in, std::int32_t inLen, std::uint8_t* out,
                  std::int32_t outLen, int options, std::int32_t* read, std::int32_t* written);
int CsRInitCompress(int handle, std::uint8_t* out, std::int32_t total, int options);
int CsRInitDecompress(int handle, const std::uint8_t* in);

// The handle table is shared by all threads under one lock; a stream belongs to one thread at a time.
int CsRGetHandle(int* handle);      // 0, or a negative code
int CsOpenHandle(int handle);       // the fixed handles: 0, 1 when newly allocated, or a negative code
int CsSearchNewHandle();            // a handle, or a negative code
int CsRCloseHandle(int handle);     // 0; numbers out of range are ignored
int CsRCloseAllHandles();           // all but the two fixed ones
int CsTestValidHandle(int handle);  // 1 iff in range, allocated and in use

// --- The stream header (8 bytes each).

std::int32_t CsRGetLen(const std::uint8_t* header);  // uncompressed length, or -50
int CsRGetVersion(const std::uint8_t* header);
int CsRGetAlgorithm(const std::uint8_t* header);  // the checksum bit included
int CsRSetHead(std::uint8_t* header, std::int32_t length, std::uint8_t algorithm, std::uint8_t parameter);
std::int32_t CsGetLen(const std::uint8_t* header);
int CsGetVersion(const std::uint8_t* header);
int CsGetAlgorithm(const std::uint8_t* header);
int CsSetHead(std::uint8_t* header, std::int32_t length, int algorithm, int parameter);

// --- Tracing, a diagnostic aid. Level bits: 1 entry and exit lines, 4 hex dumps; level 16: call lines of the
// functions whose names end in Ex. With the level not 0 the LZH preamble is two zero bits.

using CsTracePrint = void (*)(const char* text);
void CsSetTrace(int level, CsTracePrint print);

}  // namespace tolven
