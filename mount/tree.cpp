#include "mount/tree.h"

namespace tolven_mount {

namespace {

// The next component of a path, which is shortened by it; empty at the end. "." and ".." are none.
std::string_view TakeComponent(std::string_view& path) {
  while (!path.empty()) {
    const std::size_t slash = path.find('/');
    const std::string_view component = path.substr(0, slash);
    path.remove_prefix(slash == std::string_view::npos ? path.size() : slash + 1);
    if (!component.empty() && component != "." && component != "..") return component;
  }
  return {};
}

}  // namespace

bool Tree::Build(tolven_archive* archive) {
  if (tolven_index(archive) != TOLVEN_OK) return false;
  for (std::uint64_t number = 0; number < tolven_index_count(archive); ++number) {
    tolven_entry entry{};
    entry.struct_size = sizeof entry;
    if (tolven_index_entry(archive, number, &entry) != TOLVEN_OK) return false;
    if (entry.type != TOLVEN_SIGNATURE) Add(entry);
  }
  return true;
}

void Tree::Add(const tolven_entry& entry) {
  std::string_view path(entry.name, entry.name_size);
  Node* node = &m_root;
  for (std::string_view name = TakeComponent(path); !name.empty(); name = TakeComponent(path)) {
    std::unique_ptr<Node>& child = node->children[name];
    if (!child) child = std::make_unique<Node>();
    if (!child->IsDirectory() && !path.empty()) child->entry = {};  // something is below it after all
    node = child.get();
  }
  // What others are below stays a directory.
  if (node == &m_root || (!node->children.empty() && entry.type != TOLVEN_DIRECTORY)) return;
  node->entry = entry;
}

Node* Tree::Find(std::string_view path) {
  Node* node = &m_root;
  for (std::string_view name = TakeComponent(path); !name.empty(); name = TakeComponent(path)) {
    const auto child = node->children.find(name);
    if (child == node->children.end()) return nullptr;
    node = child->second.get();
  }
  return node;
}

}  // namespace tolven_mount
