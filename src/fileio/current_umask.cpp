#include "fileio/current_umask.h"

#include <sys/stat.h>

#include <fstream>
#include <string>

namespace tolven {

std::uint32_t CurrentUmask() {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    std::uint32_t shown = 0;
    if (word == "Umask:" && status >> std::oct >> shown) return shown;
  }
  constexpr mode_t kNarrowest = 0777;
  const mode_t mask = umask(kNarrowest);
  umask(mask);
  return mask;
}

}  // namespace tolven
