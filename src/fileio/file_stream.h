#pragma once

#include <cstdio>
#include <memory>
#include <string>

namespace tolven {

// Open modes, tested in this order, first match wins. The values are the program's own.
inline constexpr unsigned int kOpenAppend = 0x10000000;     // "a"
inline constexpr unsigned int kOpenCreate = 0x20000000;     // "w": create or overwrite
inline constexpr unsigned int kOpenRead = 0x40000000;       // "r"
inline constexpr unsigned int kOpenReadWrite = 0x02000000;  // "r+": must exist

// A byte stream over a standard I/O FILE with 64-bit positions. Operations report failure by their result and
// keep errno as the last error; nothing throws. Callers name the failure (CReadExcept, CWriteExcept, ...).
class CFileStream {
 public:
  CFileStream() = default;
  CFileStream(const std::string& name, unsigned int mode);
  CFileStream(const CFileStream&) = delete;
  CFileStream& operator=(const CFileStream&) = delete;
  // Closes an open file; a failing close is printed and forgotten. Whoever writes closes explicitly instead.
  virtual ~CFileStream();

  // Reads up to `n` bytes, `*done` of them. True also for a short read at the end of the file.
  [[nodiscard]] virtual bool Read(unsigned char* buf, unsigned long n, unsigned long* done);
  // True iff all `n` bytes were written; `*done` tells how many were. Records no error.
  [[nodiscard]] virtual bool Write(unsigned char* buf, unsigned long n, unsigned long* done);
  // Opens with the fopen mode of the flags above (close-on-exec); `share` is ignored. A mode without any flag
  // is refused (EINVAL). See Open() for the result.
  virtual void Open(const std::string& name, unsigned int mode, unsigned int share);
  // True iff a file is open.
  [[nodiscard]] virtual bool Open() const;

  // Takes over an open descriptor, for writing or (kOpenRead) for reading; the stream closes it. False (and
  // the descriptor closed) on failure. Such a stream writes through: each Write is one system call, so write
  // large pieces.
  [[nodiscard]] bool Attach(int descriptor, unsigned int mode = kOpenCreate);
  // The descriptor of the open file, -1 when closed.
  [[nodiscard]] int Descriptor() const;
  // Pushes buffered bytes to the file. False when closed or on failure.
  [[nodiscard]] bool Flush();

  // True on success; false with the error recorded on failure or when nothing was open.
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
  struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };
  // Standard I/O wants a seek between reading and writing in either direction.
  enum class Direction { kNone, kRead, kWrite };
  void Turn(Direction direction);
  [[nodiscard]] bool Seek(long offset, int whence);

  int m_lastError = 0;
  Direction m_direction = Direction::kNone;
  std::unique_ptr<char[]> m_buffer;  // of archives being written; must outlive m_file
  std::unique_ptr<std::FILE, FileCloser> m_file;
};

}  // namespace tolven
