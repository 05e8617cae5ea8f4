#include "archive/commands/processing_line.h"

#include "archive/archive.h"
#include "report/run_status.h"

namespace tolven {

void PrintProcessingLine(const CArchive& archive) {
  PrintLine("TOLVEN: processing archive " + archive.Name() + " (version " + archive.getVersionString() + ")");
}

}  // namespace tolven
