#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "fileio/unique_fd.h"

namespace tolven {

// A file of this machine, opened for reading. Only regular files open: a name that leads to a pipe or a
// device must neither block nor act.
class LocalFile {
 public:
  // Whether the name itself may be a link; directories on the way always may. A link in the place of a
  // listed file is not the file that was signed, but a user may keep a manifest behind one.
  enum class Links { kRefuse, kFollow };
  static constexpr std::size_t kUnlimited = static_cast<std::size_t>(-1);

  LocalFile(const std::string& name, Links links);

  bool IsOpen() const { return static_cast<bool>(m_fd); }
  // errno of the failed open; ENOENT and so on.
  int Error() const { return m_error; }

  // Reads up to buffer.size() bytes; fewer only at the end of the file. 0 or errno.
  [[nodiscard]] int Read(std::span<std::uint8_t> buffer, std::size_t& done) const;
  // Appends the rest of the file. 0 or errno, ENOMEM when it does not fit, EFBIG when `content` would grow
  // beyond `limit` bytes.
  [[nodiscard]] int ReadAll(std::string& content, std::size_t limit = kUnlimited) const;

 private:
  UniqueFd m_fd;
  int m_error = 0;
};

}  // namespace tolven
