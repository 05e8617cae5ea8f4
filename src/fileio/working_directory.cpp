#include "fileio/working_directory.h"

#include <fcntl.h>
#include <unistd.h>

#include <new>

#include "report/run_status.h"
#include "report/system_error.h"

namespace tolven {

CWorkingDirectory::CWorkingDirectory() : m_start(open(".", O_PATH | O_DIRECTORY | O_CLOEXEC)) {}

CWorkingDirectory::~CWorkingDirectory() {
  if (!m_start || fchdir(m_start.Get()) == 0) return;
  try {
    PrintLine("TOLVEN: could not return to the start directory. " + SystemErrorText(LastSystemError()));
  } catch (const std::bad_alloc&) {
    // A destructor has nobody to tell.
  }
}

bool CWorkingDirectory::Enter(const std::string& directory) {
  return chdir(directory.c_str()) == 0;
}

}  // namespace tolven
