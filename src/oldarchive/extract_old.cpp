#include "oldarchive/extract_old.h"

#include "fileio/working_directory.h"
#include "oldarchive/old_extract.h"
#include "oldarchive/old_read.h"
#include "oldarchive/old_settings.h"
#include "report/run_status.h"

namespace tolven {
namespace {

// Everything that depends on the -R directory; back in the start directory when it returns or throws.
int WalkEntries(AppData& app, const char* targetDir, int* error, std::string* text) {
  const CWorkingDirectory startDirectory;
  if (app.command == 'x' && targetDir != nullptr && !CWorkingDirectory::Enter(targetDir)) {
    throw CChgDirExcept(targetDir);
  }
  return ExtractArchiveFiles(app, error, text);
}

}  // namespace

void CExtractOld::Execute() {
  const CmdOptions& options = m_processor.Options();
  const std::string verb = options.command == CMD_TEST ? "tested" : "extracted";
  const bool writes = options.command == CMD_EXTRACT && !options.verifySignature;

  // The archive is opened here, in the start directory, and stays open.
  const std::unique_ptr<AppData> app = MakeAppData(m_processor, m_archive, writes ? 'x' : 'd');
  int error = 0;
  std::string text;
  if (ReadHeader(*app, nullptr, &error, &text) == 0) throw MakeOldExcept(error, text);
  if (WalkEntries(*app, options.targetDir, &error, &text) == 0) {
    PrintLine("TOLVEN: not all files could be " + verb);
    throw MakeOldExcept(error, text);
  }
  if (options.verifySignature) throw MakeNotSignedExcept(m_archive);
  PrintLine("TOLVEN: " + std::to_string(app->processed) + " file(s) " + verb);
}

}  // namespace tolven
