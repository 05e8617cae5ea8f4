#pragma once

namespace tolven {

class CArchive;

// "TOLVEN: processing archive NAME (version V)", once an archive is found valid.
void PrintProcessingLine(const CArchive& archive);

}  // namespace tolven
