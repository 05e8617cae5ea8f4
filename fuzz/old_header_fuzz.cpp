// Archives of the older format: the text header in pieces, then a listing and a test of the whole archive.
// Seeds: what tests/e2e/make_old_archive.py writes.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <span>
#include <string>

#include "oldarchive/old_header.h"
#include "oldarchive/old_paths.h"
#include "oldarchive/old_reader.h"

namespace {

using tolven::HeaderParser;

void Require(bool condition) {
  if (!condition) std::abort();
}

// However the header arrives, it says the same; and no name leads out of the extraction directory.
void CheckHeader(std::span<const std::uint8_t> bytes) {
  HeaderParser whole;
  HeaderParser pieces;
  const HeaderParser::State state = whole.Feed(bytes);
  const std::size_t split = bytes.empty() ? 0 : bytes[0] % bytes.size();
  pieces.Feed(bytes.first(split));
  Require(pieces.Feed(bytes.subspan(split)) == state);
  if (state != HeaderParser::State::kDone) return;
  Require(pieces.Entries().DataStart() == whole.Entries().DataStart());
  tolven::EntryWalk other(pieces.Entries());
  for (tolven::EntryWalk walk(whole.Entries()); walk.Next();) {
    tolven::FileInfo& info = walk.Info();
    Require(other.Next() && other.Info().name == info.name && other.Info().position == info.position);
    info.target = tolven::TransformPath({}, info.name);
    std::string path;
    if (!tolven::CreateFilename({}, info, path)) continue;
    Require(!path.starts_with('/') && ("/" + path + "/").find("/../") == std::string::npos);
  }
}

void TestArchive(std::span<const std::uint8_t> bytes) {
  const int file = memfd_create("archive", MFD_CLOEXEC);
  if (file >= 0 && write(file, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size())) {
    const std::string name = "/proc/self/fd/" + std::to_string(file);
    for (const char* command : {"t", "d"}) {
      const char* arguments[] = {"orv", command};
      tolven::iaxxorvl_ORV_Callback2(2, arguments, nullptr, nullptr, name.c_str(), nullptr, nullptr);
    }
  }
  close(file);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  CheckHeader({data, size});
  TestArchive({data, size});
  return 0;
}
