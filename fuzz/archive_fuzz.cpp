// Any bytes as an archive of either format, listed and tested. First byte: options.
#include "fuzz/program.h"

void tolven::fuzz::Run(Input input) {
  const unsigned choice = input.Byte();
  const MemoryFile archive(input.Rest());
  std::string options = archive.Name();
  if ((choice & 1) != 0) options += "\t-v";
  if ((choice & 2) != 0) options += "\t-flat";
  if ((choice & 4) != 0) options += "\t-n";
  if ((choice & 8) != 0) options += "\td*";
  RunProgram("-tf\t" + options);
  if ((choice & 16) != 0) RunProgram("-tsf\t" + options);
  RunProgram("-df\t" + options);
}
