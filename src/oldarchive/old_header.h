#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "oldarchive/app_data.h"
#include "oldarchive/old_lines.h"

namespace tolven {

// The text header of an older archive:
//
//   # any number of comment lines
//   F NAME MODE COMPRESSED SIZE MTIME CHECKSUM     one line an entry, 'F' file or 'D' directory
//   #                                              ends the header; the data starts behind its newline
//
// MODE is octal, the others decimal, MTIME may be negative, CHECKSUM may be missing. A writer pads the fields
// to 5, 10, 9, 10 and 10 columns; these are minimum widths, so a wider number only makes the line longer.
enum class OldLine { kEntry, kFormatError, kTimeError };

// Reads one entry line (no newline in it) into `info`, position and target excepted. kTimeError: MTIME is a
// number, but not one of the system's time type.
OldLine ParseEntryLine(std::string_view line, FileInfo& info);

// Collects the entries of a header that is fed in pieces.
class HeaderParser {
 public:
  enum class State { kReading, kDone, kFormatError, kTimeError };

  // Takes the next bytes of the file; those behind the header are ignored. A header is complete only with
  // kDone: a file that ends before is none.
  State Feed(std::span<const std::uint8_t> bytes);
  // Where the data starts. Valid with kDone.
  [[nodiscard]] std::uint64_t DataStart() const { return m_consumed; }
  // The entries with their data positions. Valid with kDone.
  [[nodiscard]] std::vector<FileInfo>& Files() { return m_files; }

 private:
  State TakeLine();
  State PlaceEntries();

  LineCutter m_cutter;
  std::string m_line;
  std::uint64_t m_consumed = 0;
  std::vector<FileInfo> m_files;
  State m_state = State::kReading;
};

}  // namespace tolven
