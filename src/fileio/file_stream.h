#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "fileio/unique_fd.h"

namespace tolven {

// Open modes, tested in this order, first match wins. The values are the program's own.
inline constexpr unsigned int kOpenAppend = 0x10000000;     // "a"
inline constexpr unsigned int kOpenCreate = 0x20000000;     // "w": create or overwrite
inline constexpr unsigned int kOpenRead = 0x40000000;       // "r"
inline constexpr unsigned int kOpenReadWrite = 0x02000000;  // "r+": must exist

// A file that is no file of the system, or one that is read without moving its position: what an embedding
// program gives. Counts and errors are those of pread and pwrite.
class IByteSource {
 public:
  virtual ~IByteSource() = default;
  [[nodiscard]] virtual ssize_t ReadAt(void* to, std::size_t count, std::int64_t position) = 0;
  [[nodiscard]] virtual ssize_t WriteAt(const void* from, std::size_t count, std::int64_t position) = 0;
  // -1 with errno.
  [[nodiscard]] virtual std::int64_t Size() = 0;
  // A descriptor of the same bytes that pread may be called on, or -1.
  [[nodiscard]] virtual int Descriptor() const = 0;
};

// A byte stream with 64-bit positions over a descriptor, with the semantics of a standard I/O file; a call
// that a signal interrupts is made again, for which a FILE loses what it had buffered. Operations report
// failure by their result and keep errno as the last error; nothing throws. Callers name the failure
// (CReadExcept, CWriteExcept, ...).
class CFileStream {
 public:
  CFileStream();
  CFileStream(const std::string& name, unsigned int mode);
  CFileStream(const CFileStream&) = delete;
  CFileStream& operator=(const CFileStream&) = delete;
  // Closes an open file; a failing close is printed and forgotten. Whoever writes closes explicitly instead.
  virtual ~CFileStream();

  // Reads up to `n` bytes, `*done` of them. True also for a short read at the end of the file.
  [[nodiscard]] virtual bool Read(unsigned char* buf, unsigned long n, unsigned long* done);
  // True iff all `n` bytes were written; `*done` tells how many were. Records no error.
  [[nodiscard]] virtual bool Write(const unsigned char* buf, unsigned long n, unsigned long* done);
  // Opens as fopen does in the mode of the flags above (close-on-exec); `share` is ignored. A mode without
  // any flag is refused (EINVAL). See Open() for the result.
  virtual void Open(const std::string& name, unsigned int mode, unsigned int share);
  // True iff a file is open.
  [[nodiscard]] virtual bool Open() const;

  // What is written to an attached descriptor.
  enum class Writes {
    kThrough,   // each Write is one system call: write large pieces
    kBuffered,  // small pieces share a system call
  };
  // Takes over an open descriptor at its current position; the stream closes it. False with EBADF for -1.
  [[nodiscard]] bool Attach(int descriptor, Writes writes = Writes::kThrough);
  // The same for a regular file that was opened just now: it need not be asked where it stands.
  [[nodiscard]] bool AttachNew(int descriptor);
  // The stream is that of the source, from its beginning. It cannot be cut.
  void Attach(std::shared_ptr<IByteSource> source, Writes writes = Writes::kThrough);
  // The descriptor of the open file, -1 when closed, or when a source has none.
  [[nodiscard]] int Descriptor() const { return m_source ? m_source->Descriptor() : m_file.Get(); }
  // Null for a file.
  [[nodiscard]] IByteSource* Source() const { return m_source.get(); }
  // Pushes buffered bytes to the file. False when closed or on failure; what could not be written is lost.
  [[nodiscard]] bool Flush();
  // Closes without pushing what is buffered: the file is about to be put back or removed.
  void Abandon();

  // True on success; false with the error recorded on failure or when nothing was open. A close that a signal
  // interrupts has closed.
  bool Close();
  [[nodiscard]] bool GetPos(long* pos);
  [[nodiscard]] bool SetPos(long pos);
  [[nodiscard]] bool MoveFlPtr(long offset);
  [[nodiscard]] bool MoveToEnd();
  // Cuts the file at the current position.
  [[nodiscard]] bool Truncate();
  [[nodiscard]] int GetLastError() const { return m_lastError; }

  // Backup streams belong to another platform: false, and nothing is done.
  bool BckpRead(unsigned char* buf, unsigned long n, unsigned long* done);
  bool BckpWrite(unsigned char* buf, unsigned long n, unsigned long* done);
  bool BckpDone();

 private:
  // The buffer serves one direction at a time: it holds what was read ahead, or what is still to be written.
  [[nodiscard]] bool TurnToReading();
  [[nodiscard]] bool TurnToWriting();
  [[nodiscard]] bool Reserve(std::size_t size);
  [[nodiscard]] bool Fill(std::size_t& got);
  [[nodiscard]] bool Drain();
  // Writes to the file itself; the number of bytes that got there.
  std::size_t Put(const unsigned char* from, std::size_t n);
  [[nodiscard]] bool Seek(long offset, int whence);
  bool Fail();
  void Forget();
  [[nodiscard]] bool IsAttached() const { return m_source || m_file; }
  // The system's calls, at m_position where there is a source.
  ssize_t RawRead(unsigned char* to, std::size_t count);
  ssize_t RawWrite(const unsigned char* from, std::size_t count);
  off_t RawSeek(long offset, int whence);

  int m_lastError = 0;
  UniqueFd m_file;
  std::shared_ptr<IByteSource> m_source;  // instead of the file
  std::size_t m_writeRoom = 0;            // of the buffer, when writing; 0: write through
  std::unique_ptr<unsigned char[]> m_buffer;
  std::size_t m_capacity = 0;
  std::size_t m_readAt = 0;   // next byte read ahead
  std::size_t m_readEnd = 0;  // behind the last one
  std::size_t m_pending = 0;  // bytes to be written
  std::size_t m_readAhead;    // how much the next filling takes
  long m_position = 0;        // of the descriptor: behind what was read ahead, before what is pending
  bool m_ended = false;       // the end was seen: reading again finds it again, until somebody moves
};

}  // namespace tolven
