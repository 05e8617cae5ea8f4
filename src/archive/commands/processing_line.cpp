#include "archive/commands/processing_line.h"

#include "archive/archive.h"
#include "report/run_status.h"
#include "report/show_text.h"

namespace tolven {

void PrintProcessingLine(const CArchive& archive) {
  PrintLine("TOLVEN: processing archive " + ShowText(archive.Name()) + " (version " +
            archive.getVersionString() + ")");
}

}  // namespace tolven
