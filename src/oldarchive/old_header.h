#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tolven {

inline constexpr char kOldTypeFile = 'F';
inline constexpr char kOldTypeDirectory = 'D';
inline constexpr std::uint32_t kOldModeDirectory = 0x4000;  // added to the mode of a 'D' entry
inline constexpr std::uint32_t kOldModePermissions = 0777;  // all that is ever set on disk

// One entry line of the text header.
struct FileInfo {
  char type = kOldTypeFile;
  std::string name;    // as stored
  std::string target;  // after the path settings of the run
  std::uint32_t mode = 0;
  std::uint64_t compressedLength = 0;  // stream header included; below 8: the entry has no data
  std::uint64_t size = 0;              // uncompressed, as the line says; the stream has its own idea
  std::int64_t mtime = 0;              // seconds since 1970-01-01 UTC
  std::uint64_t checksum = 0;          // 0: none stored
  std::uint64_t position = 0;          // of the data in the archive file
  std::size_t line = 0;                // where EntryLines keeps the line

  [[nodiscard]] bool IsDirectory() const { return type == kOldTypeDirectory; }
  [[nodiscard]] bool HasData() const;
};

// The text header of an older archive:
//
//   # any number of comment lines
//   F NAME MODE COMPRESSED SIZE MTIME CHECKSUM     one line an entry, 'F' file or 'D' directory
//   #                                              ends the header; the data starts behind its newline
//
// Nothing marks such a file: it is one when every line up to the closing one is. That is why one bad line
// refuses the whole, and why the closing line counts only with its newline: a file cut there has lost its
// data too.
//
// MODE is octal, the others decimal, MTIME may be negative, CHECKSUM may be missing. A writer pads the fields
// to 5, 10, 9, 10 and 10 columns; these are minimum widths, so a wider number only makes the line longer.
enum class OldLine { kEntry, kFormatError, kTimeError };

// Reads one entry line (no newline in it) into `info`, position and target excepted. kTimeError: MTIME is a
// number, but not one of the system's time type.
OldLine ParseEntryLine(std::string_view line, FileInfo& info);

// Longest line of a header or of an include file, its newline not counted. A longer one is no line of ours,
// and a binary file would otherwise be read to its end for one.
inline constexpr std::size_t kOldMaxLine = 4096;

// Cuts a byte stream that arrives in pieces into lines.
class LineCutter {
 public:
  enum class Result {
    kLine,  // a line is complete
    kMore,  // the piece is used up
    kBad,   // too long, or with a NUL in it: not text
  };

  // Takes bytes from the front of `bytes`, up to and including the next newline. On kLine, `line` is the text
  // without it.
  Result Next(std::span<const std::uint8_t>& bytes, std::string& line);
  // What stands behind the last newline.
  [[nodiscard]] const std::string& Rest() const { return m_partial; }

 private:
  std::string m_partial;
};

// The entry lines of a header. They are kept as text and parsed again on every walk: a line may be as short
// as 12 bytes, and a record for each would let a small archive take many times its size in memory.
class EntryLines {
 public:
  // Takes a line that ParseEntryLine accepted, of at most kOldMaxLine characters.
  void Add(std::string_view line);
  [[nodiscard]] bool Empty() const { return m_chunks.empty(); }
  // Where the data of the first entry begins in the file.
  void SetDataStart(std::uint64_t position) { m_dataStart = position; }
  [[nodiscard]] std::uint64_t DataStart() const { return m_dataStart; }
  // The entry whose line is kept at `line`, without the position of its data, which only a walk knows.
  [[nodiscard]] FileInfo At(std::size_t line) const;

 private:
  friend class EntryWalk;
  [[nodiscard]] std::string_view LineAt(std::size_t line) const;

  std::vector<std::string> m_chunks;  // whole lines with their newlines; a place is chunk * size + offset
  std::uint64_t m_dataStart = 0;
};

// Goes through the entries of a header in their order:
//   for (EntryWalk walk(entries); walk.Next();) Use(walk.Info());
class EntryWalk {
 public:
  // `entries` must outlive the walk and stay as they are.
  explicit EntryWalk(const EntryLines& entries) : m_entries(entries), m_dataEnd(entries.DataStart()) {}
  [[nodiscard]] bool Next();
  [[nodiscard]] FileInfo& Info() { return m_info; }

 private:
  const EntryLines& m_entries;
  FileInfo m_info;
  std::size_t m_next = 0;
  std::uint64_t m_dataEnd;  // of the entry before the next one
};

// Collects the entries of a header that is fed in pieces.
class HeaderParser {
 public:
  enum class State { kReading, kDone, kFormatError, kTimeError };

  // Takes the next bytes of the file; those behind the header are ignored. A header is complete only with
  // kDone: a file that ends before is none.
  State Feed(std::span<const std::uint8_t> bytes);
  // Valid with kDone.
  [[nodiscard]] EntryLines& Entries() { return m_entries; }

 private:
  State TakeLine();
  State Close();

  LineCutter m_cutter;
  std::string m_line;
  FileInfo m_info;  // of the line in work; kept for the room that its name has
  std::uint64_t m_consumed = 0;
  std::uint64_t m_dataLength = 0;  // of all entries
  EntryLines m_entries;
  State m_state = State::kReading;
};

}  // namespace tolven
