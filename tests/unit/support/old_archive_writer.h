#pragma once

#include <zlib.h>

#include <cstdint>
#include <cstdio>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// An independent writer of archives of the older format: nothing in it comes from the reader or the engine.
// The coder is the plainest that makes such streams; the checksums are zlib's.
namespace tolven::test {

inline std::string StreamHeader(std::uint32_t length, int algorithm, int parameter) {
  std::string header;
  for (int shift = 0; shift < 32; shift += 8) header += static_cast<char>(length >> shift);
  for (const int byte : {algorithm, 0x1F, 0x9D, parameter}) header += static_cast<char>(byte);
  return header;
}

// Bits as RFC 1951 packs them: from the lowest of each byte up; Huffman codes come highest bit first.
class BitWriter {
 public:
  void Bits(unsigned value, int count) {
    for (int i = 0; i < count; ++i) Bit(value >> i & 1);
  }
  void Code(unsigned code, int count) {
    for (int i = count; i-- > 0;) Bit(code >> i & 1);
  }
  std::string Take() { return std::move(m_bytes); }

 private:
  void Bit(unsigned bit) {
    if (m_count % 8 == 0) m_bytes += '\0';
    m_bytes.back() = static_cast<char>(m_bytes.back() | bit << m_count++ % 8);
  }
  std::string m_bytes;
  std::size_t m_count = 0;
};

// One final block with the fixed codes, matched greedily against the last place with the same three bytes.
class FixedBlock {
 public:
  static void Write(const std::string& content, BitWriter& out) {
    out.Bits(1 | 1 << 1, 3);
    std::map<std::string, std::size_t> last;
    for (std::size_t at = 0; at < content.size();) {
      const std::string key = content.substr(at, 3);
      const auto seen = last.find(key);
      std::size_t length = 0;
      if (key.size() == 3 && seen != last.end() && at - seen->second <= 16384) {
        while (length < 258 && at + length < content.size() &&
               content[seen->second + length] == content[at + length]) {
          ++length;
        }
        Match(length, at - seen->second, out);
      } else {
        Symbol(static_cast<unsigned char>(content[at]), out);
        length = 1;
      }
      last[key] = at;
      at += length;
    }
    Symbol(256, out);
  }

 private:
  static void Symbol(unsigned symbol, BitWriter& out) {
    if (symbol < 144) return out.Code(0x30 + symbol, 8);
    if (symbol < 256) return out.Code(0x190 + symbol - 144, 9);
    if (symbol < 280) return out.Code(symbol - 256, 7);
    out.Code(0xC0 + symbol - 280, 8);
  }
  static void Match(std::size_t length, std::size_t distance, BitWriter& out) {
    static constexpr int kLength[] = {3,  4,  5,  6,  7,  8,  9,  10, 11,  13,  15,  17,  19,  23, 27,
                                      31, 35, 43, 51, 59, 67, 83, 99, 115, 131, 163, 195, 227, 258};
    static constexpr int kDistance[] = {1,    2,    3,    4,    5,    7,    9,    13,    17,   25,
                                        33,   49,   65,   97,   129,  193,  257,  385,   513,  769,
                                        1025, 1537, 2049, 3073, 4097, 6145, 8193, 12289, 16385};
    int code = 28;
    while (kLength[code] > static_cast<int>(length)) --code;
    Symbol(static_cast<unsigned>(257 + code), out);
    out.Bits(static_cast<unsigned>(length) - static_cast<unsigned>(kLength[code]),
             code < 8 || code == 28 ? 0 : code / 4 - 1);
    code = 28;
    while (kDistance[code] > static_cast<int>(distance)) --code;
    out.Code(static_cast<unsigned>(code), 5);
    out.Bits(static_cast<unsigned>(distance) - static_cast<unsigned>(kDistance[code]),
             code < 4 ? 0 : code / 2 - 1);
  }
};

// Header, a preamble of two zero bits, the blocks, one zero byte.
inline std::string LzhStream(const std::string& content) {
  BitWriter out;
  out.Bits(0, 2);
  FixedBlock::Write(content, out);
  return StreamHeader(static_cast<std::uint32_t>(content.size()), 0x12, 2) + out.Take() + '\0';
}

// The register over `content`, started at 0 and not inverted.
inline std::uint32_t OldChecksum(const std::string& content) {
  const auto* bytes = reinterpret_cast<const Bytef*>(content.data());
  return ~static_cast<std::uint32_t>(crc32(0xFFFFFFFFUL, bytes, static_cast<uInt>(content.size())));
}

inline std::string InvertEveryTenth(std::string stream) {
  for (std::size_t i = 0; i < stream.size(); i += 10) stream[i] = static_cast<char>(~stream[i]);
  return stream;
}

// One entry as the lines and the data will hold it; every field can be made to lie.
struct OldEntry {
  std::string line;    // without its newline
  std::string stream;  // what follows the header for this entry
};

inline std::string OldLine(char type, const std::string& name, unsigned mode, std::uint64_t compressed,
                           std::uint64_t size, std::int64_t mtime, std::optional<std::uint32_t> checksum) {
  char numbers[128];
  std::snprintf(numbers, sizeof numbers, " %5o %10llu %9llu %10lld", mode,
                static_cast<unsigned long long>(compressed), static_cast<unsigned long long>(size),
                static_cast<long long>(mtime));
  std::string line = std::string(1, type) + " " + name + numbers;
  if (checksum) {
    std::snprintf(numbers, sizeof numbers, " %10u", *checksum);
    line += numbers;
  }
  return line;
}

inline OldEntry OldFile(const std::string& name, const std::string& content, unsigned mode = 0644,
                        std::int64_t mtime = 1000000000) {
  const std::string stream = content.empty() ? std::string() : LzhStream(content);
  return {OldLine('F', name, mode, stream.size(), content.size(), mtime, OldChecksum(content)), stream};
}

inline OldEntry OldDirectory(const std::string& name, unsigned mode = 0755, std::int64_t mtime = 900000000) {
  return {OldLine('D', name, mode, 0, 0, mtime, 0), ""};
}

// An entry around a stream of one's own, with the checksum of `content`.
inline OldEntry OldStream(const std::string& name, const std::string& content, const std::string& stream) {
  return {OldLine('F', name, 0600, stream.size(), content.size(), 1000000000, OldChecksum(content)), stream};
}

inline std::string OldArchive(const std::vector<OldEntry>& entries) {
  std::string header = "# an archive of the older format\n#\n";
  std::string data;
  for (const OldEntry& entry : entries) {
    header += entry.line + "\n";
    data += entry.stream;
  }
  return header + "#\n" + data;
}

}  // namespace tolven::test
