#include "oldarchive/type_old.h"

#include "oldarchive/old_read.h"
#include "oldarchive/old_settings.h"

namespace tolven {

void CTypeOld::Execute() {
  const bool verify = m_processor.Options().verifySignature;
  // Under -V no name of an unsigned archive is shown; the header only tells whether it is one at all.
  const std::unique_ptr<AppData> app = MakeAppData(m_processor, m_archive, verify ? 'd' : 't');
  int error = 0;
  std::string text;
  if (ReadHeader(*app, nullptr, &error, &text) == 0) throw MakeOldExcept(error, text);
  if (verify) throw MakeNotSignedExcept(m_archive);
}

}  // namespace tolven
