#pragma once

#include "openssl.h"

namespace tolven::crypto {

// A BIO over a connected socket, which it does not own. Unlike OpenSSL's own it never raises SIGPIPE when the
// peer has gone: the signal would end the program in the middle of its work.
BioPtr MakeSocketBio(int socket);

}  // namespace tolven::crypto
