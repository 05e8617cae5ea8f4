#include "oldarchive/old_settings.h"

#include "report/show_text.h"

namespace tolven {
namespace {

constexpr int kNotSigned = 59;

void CountEntry(const char* /*name*/, void* processor) {
  static_cast<CProcessor*>(processor)->Statistics().CountFile();
}

}  // namespace

std::unique_ptr<AppData> MakeAppData(CProcessor& processor, const std::string& archive, char command) {
  const CmdOptions& options = processor.Options();
  std::unique_ptr<AppData> app = InitAppData();
  app->command = command;
  app->archiveName = archive;
  app->names = processor.CmdLine().GetNames();
  app->verbose = options.verbose;
  app->changeDirModes = options.changeDirPermissions && !options.forceExtraction;
  app->paths = {.flat = options.flat, .lowerCase = options.lowerCase, .validate = !options.noPathValidation};
  app->callback = CountEntry;
  app->userData = &processor;
  return app;
}

CExcept MakeOldExcept(int error, const std::string& text) {
  return CExcept("TOLVEN: " + text, error, false);
}

CExcept MakeNotSignedExcept(const std::string& archive) {
  return CExcept("TOLVEN: " + ShowText(archive) + " is not digitally signed", kNotSigned, false);
}

}  // namespace tolven
