#include "archive/commands/merge.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "archive/archive.h"
#include "archive/signature.h"
#include "fileio/output_file.h"
#include "report/except.h"
#include "report/show_text.h"

namespace tolven {

namespace {

constexpr int kErrorSigned = 53;

// Nothing is written before both archives passed.
void CheckMergeable(CArchive& archive, const ISignature& signature) {
  errno = 0;
  if (!archive.IsValid()) throw CUnsupportedArchiveException(ShowText(archive.Name()));
  signature.CheckArchiveSigned(archive, false, "TOLVEN: signed archives must not be merged", kErrorSigned);
}

}  // namespace

void CMerge::Execute() {
  const std::vector<std::string>& names = m_run.CmdLine().GetArchsToProcess();
  errno = 0;
  if (names.size() != 2) throw CExcept("TOLVEN: merging only supported for exactly two archives");
  CArchive source(names[0], kOpenRead, {m_factory, m_run.Options(), m_buffers});
  COutputFile file;
  if (!file.Open(names[1], O_RDWR | O_APPEND)) throw COpenExcept(names[1]);
  CArchive target(names[1], file, false, {m_factory, m_run.Options(), m_buffers});
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
    throw CExcept("TOLVEN: can't get size of file " + ShowText(source.Name()));
  }
  auto remaining = static_cast<double>(status.st_size);
  if (!source.Stream().SetPos(kArchiveHeaderSize)) {
    throw CExcept("TOLVEN: can't move file pointer in " + ShowText(source.Name()));
  }
  remaining -= static_cast<double>(kArchiveHeaderSize);
  unsigned char* buffer = m_buffers.Input().data();
  while (remaining > 0) {
    const auto chunk = static_cast<unsigned long>(std::min<double>(remaining, CCompressMan::kBlockSize));
    unsigned long done = 0;
    errno = 0;
    if (!source.Stream().Read(buffer, chunk, &done) || done < chunk) throw CReadExcept(source.Name());
    if (!target.Stream().Write(buffer, chunk, &done)) throw CWriteExcept(target.Name());
    remaining -= static_cast<double>(chunk);
  }
}

}  // namespace tolven
