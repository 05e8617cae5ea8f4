#pragma once

#include <zlib.h>

#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

// An independent writer of archives of the older format: nothing in it comes from the reader or the engine. LZH
// streams are zlib's blocks moved two bits up, LZC streams a plain LZW coder, checksums zlib's.
namespace tolven::test {

inline std::string StreamHeader(std::uint32_t length, int algorithm, int parameter) {
  std::string header;
  for (int shift = 0; shift < 32; shift += 8) header += static_cast<char>(length >> shift);
  for (const int byte : {algorithm, 0x1F, 0x9D, parameter}) header += static_cast<char>(byte);
  return header;
}

// Raw blocks of RFC 1951 in a 16 KiB window. Fixed codes only by default: then no block is ever stored.
inline std::string RawDeflate(const std::string& content, int strategy) {
  z_stream stream{};
  if (deflateInit2(&stream, 6, Z_DEFLATED, -14, 8, strategy) != Z_OK) throw std::runtime_error("deflateInit2");
  std::string out(deflateBound(&stream, content.size()), '\0');
  std::string in = content;
  stream.next_in = reinterpret_cast<Bytef*>(in.data());
  stream.avail_in = static_cast<uInt>(in.size());
  stream.next_out = reinterpret_cast<Bytef*>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  const int result = deflate(&stream, Z_FINISH);
  out.resize(stream.total_out);
  deflateEnd(&stream);
  if (result != Z_STREAM_END) throw std::runtime_error("deflate");
  return out;
}

// Header, a preamble of two zero bits, the blocks, one zero byte.
inline std::string LzhStream(const std::string& content, int strategy = Z_FIXED) {
  std::string bits = StreamHeader(static_cast<std::uint32_t>(content.size()), 0x12, 2);
  unsigned carry = 0;
  for (const char c : RawDeflate(content, strategy)) {
    const unsigned byte = static_cast<unsigned char>(c);
    bits += static_cast<char>((byte << 2 | carry) & 0xFF);
    carry = byte >> 6;
  }
  bits += static_cast<char>(carry);
  return bits + '\0';
}

// LZW as the classic compress with 13 bits writes it, as long as the table never has to be cleared.
class LzcCoder {
 public:
  static std::string Stream(const std::string& content) {
    LzcCoder coder;
    coder.m_out = StreamHeader(static_cast<std::uint32_t>(content.size()), 0x11, 0x8D);
    if (content.empty()) return coder.m_out;
    int entry = static_cast<unsigned char>(content[0]);
    for (std::size_t i = 1; i < content.size(); ++i) {
      const int byte = static_cast<unsigned char>(content[i]);
      const auto known = coder.m_table.find({entry, byte});
      if (known != coder.m_table.end()) {
        entry = known->second;
        continue;
      }
      coder.Put(entry);
      if (coder.m_free < kMaxCodes) coder.m_table[{entry, byte}] = coder.m_free++;
      entry = byte;
    }
    coder.Put(entry);
    coder.m_group.resize((coder.m_bits + 7) / 8);
    return coder.m_out + coder.m_group;
  }

 private:
  static constexpr int kMaxBits = 13;
  static constexpr int kMaxCodes = 1 << kMaxBits;

  // Eight codes make a group of m_width bytes. When the width grows, the rest of a group is written as it is.
  void Put(int code) {
    m_group.resize(static_cast<std::size_t>(m_width), '\0');
    for (int i = 0; i < m_width; ++i, ++m_bits) {
      const int bit = code >> i & 1;
      m_group[m_bits / 8] = static_cast<char>(m_group[m_bits / 8] | bit << m_bits % 8);
    }
    const bool wider = m_free > m_maxCode;
    if (wider || m_bits == m_group.size() * 8) {
      m_out += m_group;
      m_group.clear();
      m_bits = 0;
    }
    if (!wider) return;
    ++m_width;
    m_maxCode = m_width == kMaxBits ? kMaxCodes : (1 << m_width) - 1;
  }

  std::map<std::pair<int, int>, int> m_table;
  int m_free = 257;
  int m_width = 9;
  int m_maxCode = 511;
  std::string m_group;
  std::size_t m_bits = 0;
  std::string m_out;
};

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
