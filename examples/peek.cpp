// Prints part of one file of an archive, without unpacking what is in front of it.
//
//   c++ -std=c++17 peek.cpp $(pkg-config --cflags --libs tolven) -o peek
//   ./peek ARCHIVE NAME OFFSET COUNT
#include <tolven/archive.h>

#include <cstdlib>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>

namespace {

struct Free {
  void operator()(tolven_archive* archive) const { tolven_free(archive); }
};

class Archive {
 public:
  explicit Archive(const char* path) : m_archive(tolven_new(nullptr)) {
    if (!m_archive) throw std::bad_alloc();
    Check(tolven_open(m_archive.get(), path));
    Check(tolven_index(m_archive.get()));
  }

  std::string Peek(const std::string& name, std::uint64_t offset, std::size_t count) {
    tolven_entry entry{};
    entry.struct_size = sizeof entry;
    Check(tolven_index_find(m_archive.get(), name.data(), name.size(), &entry));
    std::string bytes(count, '\0');
    const std::int64_t done = tolven_entry_pread(&entry, bytes.data(), bytes.size(), offset);
    if (done < 0) Check(tolven_error_code(m_archive.get()));
    bytes.resize(static_cast<std::size_t>(done));
    return bytes;
  }

 private:
  void Check(std::int32_t code) const {
    if (code != TOLVEN_OK) throw std::runtime_error(tolven_error_text(m_archive.get()));
  }

  std::unique_ptr<tolven_archive, Free> m_archive;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) {
    std::cerr << "usage: " << argv[0] << " ARCHIVE NAME OFFSET COUNT\n";
    return 1;
  }
  try {
    std::cout << Archive(argv[1]).Peek(argv[2], std::strtoull(argv[3], nullptr, 10), std::stoul(argv[4]));
  } catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
  }
}
