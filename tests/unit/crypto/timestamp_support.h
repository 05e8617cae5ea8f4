#pragma once

#include <string>

#include "crypto_support.h"

namespace tolven::test {

// DkvGetTimeStampReq, which must succeed.
std::string Request(const std::string& signature);

struct Stamped {
  int rc = -1;
  std::string signature;
  bool described = false;  // whether there was an entry about the authority
  int tsaResult = -1;
  std::string tsaSubject;
  std::int64_t tsaTime = -1;
};
Stamped AddReply(const std::string& signature, const std::string& request, const std::string& reply,
                 const std::string& profile);

// A reply by "openssl ts -reply" with a key of the world.
std::string OpensslReply(const std::string& request, const std::string& tsa = "tsa");

// The statement inside a reply (TSTInfo in DER), and the time in it set to YYYYMMDDhhmmssZ.
std::string Statement(const std::string& reply);
std::string AtTime(std::string statement, const std::string& time);
// A token over a statement, signed as "openssl cms" signs anything: also by those who must not.
std::string Token(const std::string& statement, const std::string& tsa,
                  const std::string& options = "-cades");
// A reply with a status and that token.
std::string Reply(char status, const std::string& token);

// Puts tokens into a signature without asking anybody.
std::string Embed(const std::string& signature, const std::string& token);

// A signature with a token of that time by the authority.
std::string StampAt(const std::string& signature, const std::string& time, const std::string& tsa = "tsa");

}  // namespace tolven::test
