#pragma once

#include <tolven/archive.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string_view>

namespace tolven_mount {

// One name in the mounted tree. Everything that the kernel may ask for stands here, so that many threads may
// answer it at a time.
struct Node {
  tolven_entry entry{};  // type 0: a directory that the archive only implies
  std::map<std::string_view, std::unique_ptr<Node>> children;
  // Of a file in a verified archive: whether its digest was compared, and what came of it.
  enum class Checked : std::uint8_t { kNo, kGood, kBad };
  std::atomic<Checked> checked = Checked::kNo;

  bool IsDirectory() const { return entry.type == 0 || entry.type == TOLVEN_DIRECTORY; }
};

// What an extraction of the archive would leave: names made safe, of two entries of one name the later one.
// Names are those of the index: it must outlive the tree.
class Tree {
 public:
  // False when the index fails; the handle tells why.
  [[nodiscard]] bool Build(tolven_archive* archive);
  // Null for a path that is not there.
  Node* Find(std::string_view path);

 private:
  void Add(const tolven_entry& entry);

  Node m_root;
};

}  // namespace tolven_mount
