#pragma once

// The compression engine: handle-based, resumable, two algorithms (LZH, LZC) behind one interface. Flat
// functions with integer results; nothing throws, nothing knows of files.
//
// One stream: a start call (CS_INIT), then further calls with the rest of the input and fresh output room
// until the result is CS_END_OF_STREAM. After every call the caller advances its input by `*read` and its
// output by `*written`, also after CS_END_OUTBUFFER and CS_END_INBUFFER. Lengths are in bytes and must not be
// negative.
//
// --- How the engine is built
//
// The way of a call, from the outside to the inside:
//
//   cslib.h, cslib.cpp      the gate: every argument is checked here, the stream header written or read, the
//                           coder chosen; what the last call asked for must be there. Behind the gate there
//                           are cursors (bytes.h) over memory that is known to be good, and no pointer with a
//                           length beside it.
//   handle_table            the 1000 contexts and who uses them; the only lock of the engine
//   context                 what one handle keeps between calls, and the choice between the four coders
//   segments                only for streams with checksum framing: cuts what the compressor writes into
//                           checked segments, and puts them together for the decompressor
//   lzh_*, lzc_*            the coders
//   stream_header, crc32, trace, bytes    what all of them stand on
//
// LZH is what archives are made of: deflate blocks without the stored kind, in a window of 16 KiB.
//
//   lzh_compress            runs a stream: what is missing, what is pending, the final block
//   -> lzh_matcher          the window and its hash chains; turns bytes into literals and matches
//   -> lzh_trees            collects those into a block, chooses its codes and sends it
//      -> lzh_trees_builder code lengths from frequencies
//   -> lzh_output           bits to bytes, and bytes to the caller or into the overflow buffer
//   lzh_decompress          the careful path: a state machine that can stop at any bit
//   -> lzh_decode_table     look-up tables from code lengths
//   -> lzh_decompress_fast  the inner loop, while both ends of the buffers are far away
//   lzh_format.h            the tables that writer and reader share
//
// LZC is LZW as compress(1) writes it. Archives of the older format may hold it; nothing new is made of it.
//
//   lzc_compress            -> lzc_dictionary.h (pairs to codes), lzc_packer.h (codes to bytes)
//   lzc_decompress          strings from codes, again with a fast and a careful path
//   lzc_format.h            widths and special codes
//
// Fast and careful. Both decompressors have an inner loop that checks nothing for a whole round, since its
// condition guarantees input and room for the largest round there can be, and a careful path that takes the
// same decisions one code at a time and may stop anywhere. The fast loop leaves everything unusual to the
// careful path with nothing of it consumed, so that each rule about bad streams stands in one place. Of the
// compressors only the sending of a block is like that: the block's size is known before it is sent, and it
// goes as a whole either into the caller's room or into the overflow buffer.
//
// Who owns what. The table owns the contexts, and keeps those of often used slots for the next user. A
// context owns the state of each coder it was ever started with, in a std::unique_ptr, and the checksums and
// the staging of a framed stream, which go when the stream ends. Input and output belong to the caller and
// are borrowed for the length of one call: whatever a later call may need of them is copied into the state
// before the call returns. Nothing is allocated between the start of a stream and its end.
//
// What must not change. Archives are read for decades and signed, so the bytes that a compressor writes for
// given input and level are part of the interface, though a reader would accept others. They do not
// depend on how the caller cuts its buffers. The tests hold both compressors against plain second
// implementations, bit for bit, and the decompressors against zlib and compress(1).

#include <cstdint>

namespace tolven {

// Options, compression: CS_INIT | algorithm | CS_CHECKSUM | level << 4. They count on the start call and are
// remembered; later calls need none of them. Decompression looks at CS_INIT alone: the rest stands in the
// stream header.
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

// Result codes. Positive: progress; negative: the stream cannot be continued, and every further call of it
// gives the same code until a start call. A result must be looked at: it alone says whether the output is
// whole.
enum [[nodiscard]] CsResult : int;
enum CsResult : int {
  // A start-only call or a handle operation succeeded. From a call that decompresses: the last block ended
  // before the declared length was reached, and nothing more will come.
  CS_OK = 0,
  CS_END_OF_STREAM = 1,  // all output produced
  CS_END_OUTBUFFER = 2,  // call again with more output room
  CS_END_INBUFFER = 3,   // call again with more input

  // Calls that cannot be meant.
  CS_E_OUT_EXPECTED = -2,     // the previous call returned 2 and there is still no output room
  CS_E_IN_EXPECTED = -3,      // the previous call returned 3 and there is still no input
  CS_E_OUT_BUFFER_LEN = -10,  // negative, too small for a stream header, or none where LZC needs some
  CS_E_IN_BUFFER_LEN = -11,   // negative, without a buffer, or too small for a stream header
  CS_E_INVALID_LEN = -13,     // a stream of a negative length, or of none where LZC needs one
  CS_E_SAME_BUFFER = -14,     // output would overwrite input that is still to be read
  CS_E_NO_OUT_BUFFER = -15,   // room, but no buffer
  CS_E_HASH_INDEX = -19,      // part of the published numbers; the LZC coder's table cannot produce it
  CS_E_INVALID_ADDR = -20,    // neither input nor output room
  CS_E_UNKNOWN_ALG = -21,

  // Streams that are none, or are damaged.
  CS_E_UNKNOWN_TYPE = -22,       // a block type that is not part of the format
  CS_E_FILENOTCOMPRESSED = -50,  // bad magic
  CS_E_MAXBITS = -51,            // LZC codes wider than the decompressor's tables
  CS_E_TREE = -52,               // no valid set of code lengths
  CS_E_TABLE_POOL = -53,         // a set of code lengths that needs larger tables than any valid one
  CS_E_BAD_CODE = -54,           // a code that nothing was assigned to, or that leads outside of the data
  CS_E_BAD_HEADER = -55,         // too many literal/length or distance codes
  CS_E_CHECKSUM = -56,           // of a segment, or of the uncompressed data

  // Handles and what they need.
  CS_E_NO_STAGING = -71,  // a stream was to be continued that was never started, or started the other way
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

// A stream is compressed like this; reading is the same with one argument less, and ends when the engine says
// so and not when the input does, since the header tells it the length:
//
//   int options = CS_INIT | CS_ALGORITHM_LZH | 2 << CS_LEVEL_SHIFT;
//   CsResult result;
//   do {
//     result = CsRCompress(handle, total, in, inLen, out, outLen, options, &read, &written);
//     options &= ~CS_INIT;
//     in += read, inLen -= read;
//     // take `written` bytes from `out`; if result is CS_END_INBUFFER, bring more input
//   } while (result == CS_END_INBUFFER || result == CS_END_OUTBUFFER);
//
// Rules that are easily missed:
//  - The counts are set by every call, also by one that fails, and are never more than what was given.
//  - What was read is gone: the engine keeps what it still needs of it. A caller need not keep any input, nor
//    any output, although a decompressor copies from what it has delivered.
//  - A compressor must be given exactly the bytes that were declared. It leaves what goes beyond them alone,
//    and waits for ever for what is missing.
//  - Streams end within 2 GiB - 1 bytes of uncompressed data. That is a property of the header; longer data
//    is cut into streams, and archives cut it into blocks of 64 KiB anyway.
//  - A stream that is given up needs no farewell: the next start call on the handle forgets it.

// --- On the shared handles 300 and 301; one stream at a time.
//
// For programs with one thread. They spare the caller a handle, and the memory of the two contexts stays
// until the process ends.

// `total`: uncompressed length of the whole stream, needed on the start call.
CsResult _CsCompr(std::int32_t total, const std::uint8_t* in, std::int32_t inLen, std::uint8_t* out,
                  std::int32_t outLen, int options, std::int32_t* read, std::int32_t* written);
CsResult _CsDecompr(const std::uint8_t* in, std::int32_t inLen, std::uint8_t* out, std::int32_t outLen,
                    int options, std::int32_t* read, std::int32_t* written);
// The same with the place of the call for the trace. `file` may be null only while nothing is traced.
CsResult _CsComprEx(std::int32_t total, const std::uint8_t* in, std::int32_t inLen, std::uint8_t* out,
                    std::int32_t outLen, int options, std::int32_t* read, std::int32_t* written,
                    const char* file, int line);
CsResult _CsDecomprEx(const std::uint8_t* in, std::int32_t inLen, std::uint8_t* out, std::int32_t outLen,
                      int options, std::int32_t* read, std::int32_t* written, const char* file, int line);
// Writes only the 8 header bytes to `out`; a failure, or CS_OK. The stream goes on with calls without
// CS_INIT.
CsResult _CsInitCompr(std::uint8_t* out, std::int32_t total, int options);
CsResult _CsInitComprEx(std::uint8_t* out, std::int32_t total, int options, const char* file, int line);
// Reads only the 8 header bytes from `in`; a failure, or CS_OK.
CsResult _CsInitDecompr(const std::uint8_t* in);
CsResult _CsInitDecomprEx(const std::uint8_t* in, const char* file, int line);

// With the caller's own place. (Built-ins of both compilers: std::source_location is not in clang 14.)
inline CsResult CsComprEx(std::int32_t total, const std::uint8_t* in, std::int32_t inLen, std::uint8_t* out,
                          std::int32_t outLen, int options, std::int32_t* read, std::int32_t* written,
                          const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
  return _CsComprEx(total, in, inLen, out, outLen, options, read, written, file, line);
}
inline CsResult CsDecomprEx(const std::uint8_t* in, std::int32_t inLen, std::uint8_t* out,
                            std::int32_t outLen, int options, std::int32_t* read, std::int32_t* written,
                            const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
  return _CsDecomprEx(in, inLen, out, outLen, options, read, written, file, line);
}

// --- On a handle of the caller's own, as many streams side by side as there are handles.

CsResult CsRCompress(int handle, std::int32_t total, const std::uint8_t* in, std::int32_t inLen,
                     std::uint8_t* out, std::int32_t outLen, int options, std::int32_t* read,
                     std::int32_t* written);
CsResult CsRDecompress(int handle, const std::uint8_t* in, std::int32_t inLen, std::uint8_t* out,
                       std::int32_t outLen, int options, std::int32_t* read, std::int32_t* written);
CsResult CsRInitCompress(int handle, std::uint8_t* out, std::int32_t total, int options);
CsResult CsRInitDecompress(int handle, const std::uint8_t* in);

// The handle table is shared by all threads under one lock; a stream belongs to one thread at a time. A
// closed handle may keep its memory for the next user, who finds nothing of the old stream in it.
CsResult CsRGetHandle(int* handle);  // 0, or a negative code
// The fixed handles: 0, 1 when newly allocated, or a negative code.
[[nodiscard]] int CsOpenHandle(int handle);
[[nodiscard]] int CsSearchNewHandle();  // a handle, or a negative code
CsResult CsRCloseHandle(int handle);    // 0; numbers out of range are ignored
CsResult CsRCloseAllHandles();          // all but the two fixed ones
int CsTestValidHandle(int handle);      // 1 iff in range, allocated and in use

// --- The stream header (8 bytes each). Nothing is checked but what is said; `header` must have 8 bytes.

std::int32_t CsRGetLen(const std::uint8_t* header);  // uncompressed length, or -50
int CsRGetVersion(const std::uint8_t* header);
int CsRGetAlgorithm(const std::uint8_t* header);  // the checksum bit included
CsResult CsRSetHead(std::uint8_t* header, std::int32_t length, std::uint8_t algorithm,
                    std::uint8_t parameter);
std::int32_t CsGetLen(const std::uint8_t* header);
int CsGetVersion(const std::uint8_t* header);
int CsGetAlgorithm(const std::uint8_t* header);
CsResult CsSetHead(std::uint8_t* header, std::int32_t length, int algorithm, int parameter);

// --- Tracing, a diagnostic aid. Level bits: 1 entry and exit lines, 4 hex dumps; level 16: call lines of the
// functions whose names end in Ex.

using CsTracePrint = void (*)(const char* text);
void CsSetTrace(int level, CsTracePrint print);

}  // namespace tolven
