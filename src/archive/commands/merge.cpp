// CMerge: -m, declared with the other commands.

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>

#include "archive/archive.h"
#include "archive/commands/commands.h"
#include "archive/signature.h"
#include "fileio/output_file.h"
#include "report/error_numbers.h"
#include "report/except.h"
#include "report/show_text.h"

namespace tolven {

namespace {

// Nothing is written before both archives passed.
void CheckMergeable(CArchive& archive, const ISignature& signature) {
  if (!archive.IsValid()) throw CUnsupportedArchiveException(ShowText(archive.Name()));
  signature.CheckArchiveSigned(archive, false, "TOLVEN: signed archives must not be merged", kErrorSigned);
}

}  // namespace

void CMerge::Execute() {
  const std::vector<std::string>& names = m_run.CmdLine().GetArchsToProcess();
  if (names.size() != 2)
    throw CExcept("TOLVEN: merging only supported for exactly two archives", kNoSystemError);
  CArchive source(names[0], kOpenRead, Services());
  COutputFile file;
  if (!file.Open(names[1], O_RDWR | O_APPEND)) throw COpenExcept(names[1], LastSystemError());
  CArchive target(names[1], file, false, Services());
  CheckMergeable(target, m_signature);
  CheckMergeable(source, m_signature);
  target.SeekToEnd();
  Copy(source, target);
  target.Close();
  source.Close();
}

void CMerge::Copy(CArchive& source, CArchive& target) {
  // Taken once: a source that is the target grows while it is read, and the copy still ends. Of the open
  // file: the name may stand for another by now.
  struct stat status {};
  if (fstat(source.Stream().Descriptor(), &status) != 0) {
    const SystemError error = LastSystemError();
    throw CExcept("TOLVEN: can't get size of file " + ShowText(source.Name()), error);
  }
  auto remaining = static_cast<double>(status.st_size);
  if (!source.Stream().SetPos(kArchiveHeaderSize)) {
    const SystemError error = LastSystemError();
    throw CExcept("TOLVEN: can't move file pointer in " + ShowText(source.Name()), error);
  }
  remaining -= static_cast<double>(kArchiveHeaderSize);
  unsigned char* buffer = m_buffers.Input().data();
  while (remaining > 0) {
    const auto chunk = static_cast<unsigned long>(std::min<double>(remaining, CCompressMan::kBlockSize));
    unsigned long done = 0;
    if (!source.Stream().Read(buffer, chunk, &done) || done < chunk) throw CReadExcept(source.Name());
    if (!target.Stream().Write(buffer, chunk, &done)) throw CWriteExcept(target.Name(), LastSystemError());
    remaining -= static_cast<double>(chunk);
  }
}

}  // namespace tolven
