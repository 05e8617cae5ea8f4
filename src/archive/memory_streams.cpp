#include "archive/memory_streams.h"

#include <algorithm>

namespace tolven {

bool CBufferedStream::Read(unsigned char* buf, unsigned long n, unsigned long* done) {
  if (m_data.empty()) {
    *done = 0;
    return false;
  }
  const std::size_t count = std::min<std::size_t>(n, m_data.size() - m_readPosition);
  std::copy_n(m_data.begin() + static_cast<std::ptrdiff_t>(m_readPosition), count, buf);
  m_readPosition += count;
  *done = count;
  return true;
}

bool CBufferedStream::Write(const unsigned char* buf, unsigned long n, unsigned long* done) {
  if (n > m_limit - m_data.size()) {
    *done = 0;
    return false;
  }
  m_data.append(reinterpret_cast<const char*>(buf), n);
  *done = n;
  return true;
}

bool CNullStream::Read(unsigned char*, unsigned long n, unsigned long* done) {
  *done = n;
  return true;
}

bool CNullStream::Write(const unsigned char*, unsigned long n, unsigned long* done) {
  *done = n;
  return true;
}

}  // namespace tolven
