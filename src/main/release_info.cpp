#include "main/release_info.h"

namespace tolven {

std::string ReleaseInfo() {
  return "TOLVEN " TOLVEN_VERSION
         "\n"
         "\n"
         "archive format:    2.01 (reads 2.00, 2.01 and the older text-headed format)\n"
         "compression:       LZH level 2, blocks of 64 KiB\n"
         "signatures:        libqelcrypto.so, loaded when needed\n"
         "platform:          Linux x86-64\n"
         "compiler:          " __VERSION__
         "\n"
         "\n"
         "Call TOLVEN without arguments for the usage.";
}

}  // namespace tolven
