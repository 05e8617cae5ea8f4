#include "oldarchive/old_extract.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <functional>
#include <limits>
#include <span>
#include <vector>

#include "cslib/crc32.h"
#include "cslib/cslib.h"
#include "fileio/extract_root.h"
#include "fileio/pending_file.h"
#include "oldarchive/old_messages.h"
#include "report/run_status.h"
#include "report/show_text.h"

namespace tolven {
namespace {

constexpr std::size_t kPiece = 8192;         // input and output buffers alike
constexpr std::uint64_t kScrambleStep = 10;  // every tenth byte of a stream, its first one included
// The writer kept lengths in signed 32 bits: a larger one is a lie, or a file that it could not have read
// itself.
constexpr std::uint64_t kMaxSize = std::numeric_limits<std::int32_t>::max();

using StreamHeader = std::array<std::uint8_t, CS_HEAD_SIZE>;

// The inversion is its own inverse. `position` is that of bytes[0], counted from the start of the stream.
void Unscramble(std::span<std::uint8_t> bytes, std::uint64_t position) {
  const std::uint64_t first = (kScrambleStep - position % kScrambleStep) % kScrambleStep;
  for (std::size_t i = first; i < bytes.size(); i += kScrambleStep) {
    bytes[i] = static_cast<std::uint8_t>(~bytes[i]);
  }
}

// True iff the file holds all of the entry's data. A damaged or cut archive promises more.
bool LiesInFile(const AppData& app, const FileInfo& info) {
  return info.position <= app.archiveSize && info.compressedLength <= app.archiveSize - info.position;
}

// One entry on its way through the engine. Three limits hold whatever the stream says: nothing behind the
// compressed length is read, no more than the stream header's length comes out, and a call of the engine that
// neither takes nor gives a byte ends it. A hostile stream costs at most the time for what its header
// declares.
class EntryDecoder {
 public:
  EntryDecoder(AppData& app, const FileInfo& info) : m_app(app), m_remaining(info.compressedLength) {}

  // Seeks to the entry and reads its stream header. False after a failed read, for which SystemError speaks.
  [[nodiscard]] bool ReadStreamHeader(const FileInfo& info, StreamHeader& header);
  // Starts the engine. OLD_TOO_LARGE, OLD_DECOMPRESS, or 0.
  int Start(const StreamHeader& header);
  // Produces the next piece of output. Empty with `failure` 0: the stream is complete.
  std::span<const std::uint8_t> Next(int& failure);
  // Of the read behind OLD_SYSTEM; 0 when the file had become shorter, which is no error of the system.
  [[nodiscard]] int SystemError() const { return m_systemError; }

 private:
  [[nodiscard]] bool Refill();
  [[nodiscard]] bool InputIsUsedUp() const { return m_input.empty() && m_remaining == 0; }
  [[nodiscard]] bool ReadStream(std::span<std::uint8_t> bytes);

  AppData& m_app;
  std::uint64_t m_remaining;     // of the compressed length, not yet read
  std::uint64_t m_position = 0;  // in the stream, of the next byte read
  std::uint64_t m_declared = 0;  // uncompressed length, from the stream header
  std::uint64_t m_produced = 0;
  int m_result = CS_OK;  // of the last engine call
  int m_systemError = 0;
  std::span<const std::uint8_t> m_input;
  std::array<std::uint8_t, kPiece> m_inputBuffer;
  std::array<std::uint8_t, kPiece> m_outputBuffer;
};

bool EntryDecoder::ReadStream(std::span<std::uint8_t> bytes) {
  unsigned long done = 0;
  if (!m_app.archive.Read(bytes.data(), bytes.size(), &done)) {
    m_systemError = errno;
    return false;
  }
  if (done != bytes.size()) return false;
  if (m_app.scramble == Scramble::kOn) Unscramble(bytes, m_position);
  m_position += bytes.size();
  m_remaining -= bytes.size();
  return true;
}

bool EntryDecoder::ReadStreamHeader(const FileInfo& info, StreamHeader& header) {
  if (m_app.archive.SetPos(static_cast<long>(info.position))) return ReadStream(header);
  m_systemError = errno;
  return false;
}

int EntryDecoder::Start(const StreamHeader& header) {
  const std::int32_t declared = CsGetLen(header.data());
  if (declared == CS_E_FILENOTCOMPRESSED) return OLD_DECOMPRESS;
  if (declared < 0) return OLD_TOO_LARGE;  // an unsigned length on disk
  m_declared = static_cast<std::uint64_t>(declared);
  return _CsInitDecomprEx(header.data(), __FILE__, __LINE__) < 0 ? OLD_DECOMPRESS : 0;
}

bool EntryDecoder::Refill() {
  const std::size_t length = std::min<std::uint64_t>(kPiece, m_remaining);
  const std::span piece = std::span(m_inputBuffer).first(length);
  if (!ReadStream(piece)) return false;
  m_input = piece;
  return true;
}

std::span<const std::uint8_t> EntryDecoder::Next(int& failure) {
  failure = OLD_DECOMPRESS;
  // Every way round either gives a piece to the caller, or takes input that is there only once.
  while (m_result != CS_END_OF_STREAM) {
    // While the engine has output pending, the rest of the piece is fed again, even when nothing is left of
    // it.
    if (m_result != CS_END_OUTBUFFER) {
      if (m_result == CS_END_INBUFFER && InputIsUsedUp()) return {};  // the end of the stream is missing
      if (m_input.empty() && m_remaining > 0 && !Refill()) {
        failure = OLD_SYSTEM;
        return {};
      }
    }
    std::int32_t read = 0;
    std::int32_t written = 0;
    m_result = _CsDecomprEx(m_input.data(), static_cast<std::int32_t>(m_input.size()), m_outputBuffer.data(),
                            static_cast<std::int32_t>(kPiece), 0, &read, &written, __FILE__, __LINE__);
    // CS_OK means here that the stream ended short of its declared length.
    if (m_result <= CS_OK) return {};
    m_input = m_input.subspan(static_cast<std::size_t>(read));
    m_produced += static_cast<std::uint64_t>(written);
    if (m_produced > m_declared) return {};
    if (written > 0) {
      failure = 0;
      return std::span(m_outputBuffer).first(static_cast<std::size_t>(written));
    }
    // Neither took nor gave anything: it never will.
    if (read == 0 && m_result != CS_END_OF_STREAM) return {};
  }
  if (m_produced == m_declared) failure = 0;
  return {};
}

// No field tells whether an archive is scrambled, but two lengths have to agree: that of the stream header,
// whose first byte is one of the inverted ones, and that of the entry's line.
//
// Settles app.scramble from the first entry with data: inversion is on when the stream header's length
// differs from the size in the entry's line and equals it once byte 0 is inverted. Later calls change
// nothing.
void DecideScramble(AppData& app) {
  if (app.scramble != Scramble::kUndecided) return;
  app.scramble = Scramble::kOff;
  EntryWalk walk(app.entries);
  const FileInfo& first = walk.Info();
  do {
    if (!walk.Next()) return;
  } while (!first.HasData());
  if (!LiesInFile(app, first)) return;

  StreamHeader header;
  if (!EntryDecoder(app, first).ReadStreamHeader(first, header)) return;
  // A length is negative for bad magic bytes and for what no entry of ours can have: it equals no size.
  const auto declaresSize = [&] {
    const std::int32_t declared = CsGetLen(header.data());
    return declared >= 0 && static_cast<std::uint64_t>(declared) == first.size;
  };
  if (declaresSize()) return;
  Unscramble(header, 0);
  if (declaresSize()) app.scramble = Scramble::kOn;
}

bool DirectoryFailure(const std::string& directory, int systemError, int* error, std::string* text) {
  const int code = systemError == ENAMETOOLONG ? OLD_DIR_TOO_LONG : OLD_MKDIR;
  return SetErrorMessage(error, text, code, directory, systemError);
}

// The message for a step of the target's way to its name; `directory` is the parent that could not be made.
bool TargetFailure(CPendingFile::Step step, const std::string& path, const std::string& directory,
                   int systemError, int* error, std::string* text) {
  switch (step) {
    case CPendingFile::Step::kParents:
      return DirectoryFailure(directory, systemError, error, text);
    case CPendingFile::Step::kTemporary:
    case CPendingFile::Step::kRename:
      return SetErrorMessage(error, text, OLD_OPEN_TARGET, path, systemError);
    case CPendingFile::Step::kMode:
      return SetErrorMessage(error, text, OLD_FILE_MODE, path, systemError);
    case CPendingFile::Step::kDate:
      return SetErrorMessage(error, text, OLD_FILE_DATE, path, systemError);
    case CPendingFile::Step::kNone:
    case CPendingFile::Step::kWrite:
      break;
  }
  return SetErrorMessage(error, text, OLD_SYSTEM, path, systemError);
}

// A stored checksum of 0 means that there is none: the line has six fields, or the sum is 0.
bool CompareChecksum(const FileInfo& info, std::uint64_t checksum, int* error, std::string* text) {
  if (info.checksum == 0 || info.checksum == checksum) return true;
  return SetErrorMessage(error, text, OLD_CHECKSUM, info.name);
}

// A test does everything that an extraction does up to the disk, so that what passes here can be unpacked.
bool TestEntry(AppData& app, const FileInfo& info, int* error, std::string* text) {
  if (app.verbose) PrintLine("t " + ShowText(info.target));
  if (info.IsDirectory()) return true;
  std::uint64_t checksum = 0;
  return Decompress(app, info, nullptr, std::string(), checksum, error, text) &&
         CompareChecksum(info, checksum, error, text);
}

// One extraction below the current directory. Files get their names only when they are complete (see
// CPendingFile); the older tool left behind what it had written of an entry that failed.
class Extraction {
 public:
  explicit Extraction(AppData& app) : m_app(app), m_root(app.paths.validate) {}

  [[nodiscard]] bool Start(int* error, std::string* text) const;
  [[nodiscard]] bool ExtractEntry(const FileInfo& info, int* error, std::string* text);
  // Dates and modes of the directories, innermost first: while files were added they could not be set.
  [[nodiscard]] bool FinishDirectories(int* error, std::string* text);

 private:
  // An archive may be nothing but directories: what their lines say is read again.
  struct DirectoryRecord {
    std::size_t line;
    bool setMode;
  };

  bool ExtractDirectory(const FileInfo& info, const std::string& path, int* error, std::string* text);
  bool ExtractFile(const FileInfo& info, const std::string& path, int* error, std::string* text);

  AppData& m_app;
  CExtractRoot m_root;
  std::vector<DirectoryRecord> m_directories;
};

bool Extraction::Start(int* error, std::string* text) const {
  return m_root.IsOpen() || SetErrorMessage(error, text, OLD_GETCWD, std::string(), errno);
}

bool Extraction::ExtractEntry(const FileInfo& info, int* error, std::string* text) {
  std::string path;
  if (!CreateFilename(m_app.paths, info, path)) return SetErrorMessage(error, text, OLD_FILENAME, info.name);
  if (m_app.verbose) PrintLine("x " + ShowText(path));
  return info.IsDirectory() ? ExtractDirectory(info, path, error, text)
                            : ExtractFile(info, path, error, text);
}

bool Extraction::ExtractDirectory(const FileInfo& info, const std::string& path, int* error,
                                  std::string* text) {
  if (path == ".") return true;  // the place that is extracted to stays as its owner made it
  bool created = false;
  std::string failed;
  if (!m_root.MakeDirectory(path, created, failed)) return DirectoryFailure(failed, errno, error, text);
  if (!created && m_app.changeDirModes) m_root.OpenToOwner(path);
  m_directories.push_back({info.line, created || m_app.changeDirModes});
  return true;
}

bool Extraction::ExtractFile(const FileInfo& info, const std::string& path, int* error, std::string* text) {
  CPendingFile target(m_root, path);
  std::string directory;
  CPendingFile::Step failed = target.Create(directory);
  if (failed != CPendingFile::Step::kNone) return TargetFailure(failed, path, directory, errno, error, text);
  // What was decoded is what was written, so the sum over the output stands for the file read back.
  std::uint64_t checksum = 0;
  if (!Decompress(m_app, info, &target.Stream(), path, checksum, error, text)) return false;
  if (m_app.compareChecksums && !CompareChecksum(info, checksum, error, text)) return false;
  failed = target.Commit(info.mode & kOldModePermissions, info.mtime);
  return failed == CPendingFile::Step::kNone || TargetFailure(failed, path, directory, errno, error, text);
}

bool Extraction::FinishDirectories(int* error, std::string* text) {
  bool complete = true;
  const auto fail = [&](int code, const std::string& path) {
    // One that cannot be finished keeps none of the others from it; the first is the one to report.
    if (complete) SetErrorMessage(error, text, code, path, errno);
    complete = false;
  };
  for (auto record = m_directories.rbegin(); record != m_directories.rend(); ++record) {
    const FileInfo info = EntryAt(m_app, record->line);
    std::string path;
    if (!CreateFilename(m_app.paths, info, path)) continue;  // never: it could be made when it was recorded
    if (!m_root.SetDirectoryDate(path, info.mtime)) fail(OLD_DIR_DATE, path);
    if (record->setMode && !m_root.SetDirectoryMode(path, info.mode & kOldModePermissions)) {
      fail(OLD_DIR_MODE, path);
    }
  }
  return complete;
}

bool WalkSelected(AppData& app, const std::function<bool(const FileInfo&)>& handle) {
  return ForEachSelected(app, [&](const FileInfo& info) {
    if (!handle(info)) return false;
    TellCallback(app, OrvEvent::kEntryDone, info.target);
    return true;
  });
}

// What was extracted before a failure stays, so its directories must not be left undated and with the wrong
// modes.
bool ExtractAll(AppData& app, int* error, std::string* text) {
  Extraction extraction(app);
  if (!extraction.Start(error, text)) return false;
  const bool complete =
      WalkSelected(app, [&](const FileInfo& info) { return extraction.ExtractEntry(info, error, text); });
  if (complete) return extraction.FinishDirectories(error, text);
  // The failure of the walk is the one to report.
  static_cast<void>(extraction.FinishDirectories(nullptr, nullptr));
  return false;
}

}  // namespace

bool Decompress(AppData& app, const FileInfo& info, CFileStream* target, const std::string& targetName,
                std::uint64_t& checksum, int* error, std::string* text) {
  checksum = 0;
  if (info.size > kMaxSize) return SetErrorMessage(error, text, OLD_TOO_LARGE, info.name);
  if (!info.HasData()) return true;
  if (!LiesInFile(app, info)) return SetErrorMessage(error, text, OLD_CUT_ARCHIVE, app.archiveName);
  DecideScramble(app);

  EntryDecoder decoder(app, info);
  StreamHeader header;
  if (!decoder.ReadStreamHeader(info, header)) {
    return SetErrorMessage(error, text, OLD_SYSTEM, app.archiveName, decoder.SystemError());
  }
  int failure = decoder.Start(header);
  while (failure == 0) {
    const std::span<const std::uint8_t> output = decoder.Next(failure);
    if (failure != 0) break;
    if (output.empty()) return true;
    calccrcb(output.data(), static_cast<std::int64_t>(output.size()), &checksum);
    unsigned long done = 0;
    // The stream interface takes a mutable pointer; it only reads from it.
    auto* bytes = const_cast<std::uint8_t*>(output.data());
    if (target != nullptr && !target->Write(bytes, output.size(), &done)) {
      return SetErrorMessage(error, text, OLD_SYSTEM, targetName, errno);
    }
  }
  const std::string& culprit = failure == OLD_SYSTEM ? app.archiveName : info.name;
  return SetErrorMessage(error, text, failure, culprit, decoder.SystemError());
}

int ExtractArchiveFiles(AppData& app, int* error, std::string* text) {
  const bool complete =
      app.command == 'x'
          ? ExtractAll(app, error, text)
          : WalkSelected(app, [&](const FileInfo& info) { return TestEntry(app, info, error, text); });
  return complete ? 1 : 0;
}

}  // namespace tolven
