#include "report/statistics.h"

#include <algorithm>
#include <iomanip>
#include <sstream>

namespace tolven {

std::string CStatistics::GetInfoText() const {
  // The wall clock may have been set back during the run.
  const std::int64_t seconds = std::max<std::int64_t>(m_elapsedSeconds, 0);
  std::ostringstream out;
  out.exceptions(std::ios::badbit);  // for want of memory: not a line that ends early
  out << std::setfill('0');
  out << "Printing program statistics for TOLVEN...\n";
  out << "time elapsed: " << std::setw(2) << seconds / 3600 << ":" << std::setw(2) << seconds / 60 % 60 << ":"
      << std::setw(2) << seconds % 60 << " (hh:mm:ss)\n";
  out << "Files processed: " << m_filesProcessed;
  return out.str();
}

}  // namespace tolven
