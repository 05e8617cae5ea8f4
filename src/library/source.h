#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>

#include "fileio/file_stream.h"
#include "fileio/unique_fd.h"
#include "library/handle.h"

namespace tolven {

// Where the bytes of a handle's archive are or go: a descriptor or the caller's callbacks. Every piece that
// passes through the stream of the archive advances the handle; one that is cancelled fails here, with
// ECANCELED, and so wherever it just was.
class CSource final : public IByteSource {
 public:
  // A regular file to be read; LibraryError for anything else.
  static std::shared_ptr<CSource> ForReading(CHandle& handle, UniqueFd file);
  // Read or written by the functions that are there; they were checked.
  CSource(CHandle& handle, const tolven_callbacks& callbacks) : m_handle(handle), m_callbacks(callbacks) {}
  // Written in order, from where its position is: a pipe will do.
  CSource(CHandle& handle, UniqueFd file) : m_handle(handle), m_file(std::move(file)) {}

  ssize_t ReadAt(void* to, std::size_t count, std::int64_t position) override;
  ssize_t WriteAt(const void* from, std::size_t count, std::int64_t position) override;
  std::int64_t Size() override;
  int Descriptor() const override { return m_file.Get(); }

  // All of it or CReadExcept, beside the walk and without telling its progress. `name`: of the archive.
  void ReadExactly(void* to, std::size_t count, std::int64_t position, const std::string& name);

 private:
  ssize_t RawRead(void* to, std::size_t count, std::int64_t position);
  std::int64_t Seek(std::int64_t offset, int whence);

  CHandle& m_handle;
  UniqueFd m_file;
  tolven_callbacks m_callbacks{};
  std::mutex m_lock;  // the callbacks have one position
  std::int64_t m_size = 0;
};

}  // namespace tolven
