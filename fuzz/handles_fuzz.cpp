// Any bytes as an archive behind a handle: walked, and read by an index. Both must agree about every entry
// that the walk comes to. First byte: how large the pieces are.
#include <cstring>
#include <memory>

#include "fuzz/support.h"
#include "tolven/archive.h"

namespace {

using tolven::fuzz::Bytes;
using tolven::fuzz::Require;

constexpr std::size_t kMost = 1 << 20;  // a few bytes can mean gigabytes

struct Memory {
  Bytes bytes;
  std::size_t at = 0;
};

std::int64_t Read(void* context, void* buffer, std::size_t size) {
  Memory& memory = *static_cast<Memory*>(context);
  const std::size_t count = std::min(size, memory.bytes.size() - std::min(memory.at, memory.bytes.size()));
  if (count > 0) std::memcpy(buffer, memory.bytes.data() + memory.at, count);
  memory.at += count;
  return static_cast<std::int64_t>(count);
}

std::int64_t Seek(void* context, std::int64_t offset, int whence) {
  Memory& memory = *static_cast<Memory*>(context);
  memory.at = static_cast<std::size_t>(offset) + (whence == SEEK_END ? memory.bytes.size() : 0);
  return static_cast<std::int64_t>(memory.at);
}

struct Seen {
  std::string name;
  std::string data;
  bool whole = false;
  bool good = false;
};

std::vector<Seen> Walk(tolven_archive* archive, std::size_t piece) {
  std::vector<Seen> all;
  tolven_entry entry{};
  entry.struct_size = sizeof entry;
  while (all.size() < 1000 && tolven_next(archive, &entry) == TOLVEN_OK) {
    Seen seen{.name = {entry.name, entry.name_size}, .data = {}};
    std::string buffer(piece, '\0');
    std::int64_t count = 0;
    while (seen.data.size() < kMost && (count = tolven_read(archive, buffer.data(), piece)) > 0) {
      seen.data.append(buffer, 0, static_cast<std::size_t>(count));
    }
    seen.whole = seen.data.size() < kMost;
    seen.good = count >= 0;
    all.push_back(std::move(seen));
  }
  return all;
}

}  // namespace

void tolven::fuzz::Run(Input input) {
  const std::size_t piece = 1 + 257 * input.Byte();
  Memory memory{.bytes = input.Rest()};
  tolven_callbacks callbacks{};
  callbacks.struct_size = sizeof callbacks;
  callbacks.context = &memory;
  callbacks.read = Read;
  callbacks.seek = Seek;
  const std::unique_ptr<tolven_archive, void (*)(tolven_archive*)> archive(tolven_new(nullptr), tolven_free);
  if (tolven_open_callbacks(archive.get(), &callbacks) != TOLVEN_OK) return;
  const std::vector<Seen> walked = Walk(archive.get(), piece);
  if (tolven_index(archive.get()) != TOLVEN_OK) return;
  for (std::uint64_t number = 0; number < walked.size(); ++number) {
    const Seen& seen = walked[number];
    tolven_entry entry{};
    entry.struct_size = sizeof entry;
    Require(tolven_index_entry(archive.get(), number, &entry) == TOLVEN_OK);
    Require(seen.name == std::string(entry.name, entry.name_size));
    if (seen.whole) Require((tolven_entry_check(&entry) == TOLVEN_OK) == seen.good);
    if (!seen.good) continue;
    std::string data(seen.data.size() + (seen.whole ? 1 : 0), '\0');
    // From the back: what is behind must not need what is in front.
    for (std::size_t end = data.size(); end > 0;) {
      const std::size_t begin = end - std::min(end, piece + 4096);
      const std::int64_t count = tolven_entry_pread(&entry, data.data() + begin, end - begin, begin);
      Require(count == static_cast<std::int64_t>(std::min(end, seen.data.size()) - begin));
      end = begin;
    }
    data.resize(seen.data.size());
    Require(data == seen.data);
  }
}
