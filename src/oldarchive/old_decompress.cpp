#include "oldarchive/old_decompress.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>
#include <span>

#include "cslib/crc32.h"
#include "cslib/cslib.h"
#include "oldarchive/old_messages.h"

namespace tolven {
namespace {

constexpr std::size_t kPiece = 8192;         // input and output buffers alike
constexpr std::uint64_t kScrambleStep = 10;  // every tenth byte of a stream, its first one included
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

// One entry on its way through the engine.
class EntryDecoder {
 public:
  EntryDecoder(AppData& app, const FileInfo& info) : m_app(app), m_remaining(info.compressedLength) {}

  // Seeks to the entry and reads its stream header. False after a failed read.
  bool ReadStreamHeader(const FileInfo& info, StreamHeader& header);
  // Starts the engine. OLD_TOO_LARGE, OLD_DECOMPRESS, or 0.
  int Start(const StreamHeader& header);
  // Produces the next piece of output. Empty with `failure` 0: the stream is complete.
  std::span<const std::uint8_t> Next(int& failure);

 private:
  bool Refill();
  [[nodiscard]] bool InputIsUsedUp() const { return m_input.empty() && m_remaining == 0; }
  bool ReadStream(std::span<std::uint8_t> bytes);

  AppData& m_app;
  std::uint64_t m_remaining;     // of the compressed length, not yet read
  std::uint64_t m_position = 0;  // in the stream, of the next byte read
  std::uint64_t m_declared = 0;  // uncompressed length, from the stream header
  std::uint64_t m_produced = 0;
  int m_result = CS_OK;  // of the last engine call
  std::span<const std::uint8_t> m_input;
  std::array<std::uint8_t, kPiece> m_inputBuffer;
  std::array<std::uint8_t, kPiece> m_outputBuffer;
};

bool EntryDecoder::ReadStream(std::span<std::uint8_t> bytes) {
  unsigned long done = 0;
  if (!m_app.archive.Read(bytes.data(), bytes.size(), &done) || done != bytes.size()) return false;
  if (m_app.scramble == Scramble::kOn) Unscramble(bytes, m_position);
  m_position += bytes.size();
  m_remaining -= bytes.size();
  return true;
}

bool EntryDecoder::ReadStreamHeader(const FileInfo& info, StreamHeader& header) {
  errno = 0;
  return m_app.archive.SetPos(static_cast<long>(info.position)) && ReadStream(header);
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

}  // namespace

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
    return SetErrorMessage(error, text, OLD_SYSTEM, app.archiveName);
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
      return SetErrorMessage(error, text, OLD_SYSTEM, targetName);
    }
  }
  return SetErrorMessage(error, text, failure, failure == OLD_SYSTEM ? app.archiveName : info.name);
}

}  // namespace tolven
