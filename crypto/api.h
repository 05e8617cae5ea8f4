#pragma once

#define DKV_API __attribute__((visibility("default")))
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "openssl.h"
#include "signing/crypto/dkv.h"
#include "trace.h"

// What every exported function needs: one way to fail, one place that turns failures into codes, and the
// making of the objects that are handed out.
namespace tolven::crypto {

// The one exception of this library; it never leaves it.
class Failure : public std::exception {
 public:
  // `where` is for the trace, `info` for people: what the code alone cannot say (see DkvSecTKLastErrorInfo).
  explicit Failure(int rc, const char* where = "", std::string info = {})
      : m_rc(rc), m_where(where), m_info(std::move(info)) {}
  int rc() const { return m_rc; }
  const char* what() const noexcept override { return m_where; }
  const std::string& info() const { return m_info; }

 private:
  int m_rc;
  const char* m_where;
  std::string m_info;
};

// For calls that fail for no other reason than memory or a defect.
inline void Require(bool good, const char* where) {
  if (!good) throw Failure(DKV_ERR_GENERAL, where);
}

bool IsInitialised();
bool IsFipsActive();
// What DkvSecTKLastErrorInfo says about the call that is running; the last one counts.
void SetInfo(const std::string& text) noexcept;
// Empties OpenSSL's error queue into the trace and returns the name of the algorithm that it complains about
// as not supported ("RC2-40-CBC"); empty when that is not what went wrong.
std::string UnsupportedAlgorithm();
// DKV_ERR_ALG_NOT_SUPPORTED that names it.
Failure Unsupported(const std::string& algorithm);
// Empties OpenSSL's error queue into the trace.
void TraceFailure(const char* function, int rc, const char* where);

// Runs the body of an exported function.
template <typename Body>
int Guarded(const char* function, Body body) {
  if (!IsInitialised()) return DKV_ERR_NOT_INITIALISED;
  SetInfo({});
  int rc = DKV_OK;
  const char* where = "";
  try {
    rc = body();
  } catch (const Failure& failure) {
    rc = failure.rc();
    where = failure.what();
    SetInfo(failure.info());
  } catch (const std::bad_alloc&) {
    rc = DKV_ERR_MEMORY;
  } catch (const std::exception&) {
    rc = DKV_ERR_GENERAL;
  }
  TraceFailure(function, rc, where);
  return rc;
}

struct OctetsReleaser {
  void operator()(DkvOctetstring* octets) const { DkvDELDkvOctetstring(octets); }
};
using OctetsPtr = std::unique_ptr<DkvOctetstring, OctetsReleaser>;

struct SignerReleaser {
  void operator()(SigRcpDkvInfo* info) const { DkvDELSigRcpDkvInfo(info); }
};
using SignerPtr = std::unique_ptr<SigRcpDkvInfo, SignerReleaser>;

// The bytes of a caller's string. Fails with DKV_ERR_ARGUMENT for null or a structure that is none of ours.
Bytes Input(const DkvOctetstring* octets);
// As above; what a caller names as a profile.
const SigRcpDkvInfo& InputSigner(const SigRcpDkvInfo* info);

// Objects to hand out.
OctetsPtr MakeOctets(Bytes bytes);
char* MakeText(const std::string& text);
SignerPtr MakeSigner();
// Into the places of a SigRcpDkvInfo; what was there is released.
void SetText(char*& place, const std::string& text);
void SetOctets(DkvOctetstring& place, const X509* certificate);
// A list of this one entry.
SigRcpDkvInfoList* MakeList(SignerPtr signer);

// DER of an object by its i2d function.
template <typename T, typename Encode>
std::vector<std::uint8_t> ToDer(T* object, Encode encode) {
  const int length = encode(object, nullptr);
  if (length <= 0) throw Failure(DKV_ERR_GENERAL, "encode");
  std::vector<std::uint8_t> der(static_cast<std::size_t>(length));
  unsigned char* at = der.data();
  Require(encode(object, &at) == length, "encode");
  return der;
}

// Checks the frame of what should be one object: a sequence of definite length, and nothing behind it. Fails
// with DKV_ERR_ASN1 or DKV_ERR_TRAILING_DATA.
void CheckOneObject(Bytes der);

// One object by its d2i function, framed as above.
template <typename T, typename Decode>
T* FromDer(Bytes der, Decode decode) {
  CheckOneObject(der);
  const unsigned char* at = der.data();
  T* object = decode(nullptr, &at, static_cast<long>(der.size()));
  if (object == nullptr) throw Failure(DKV_ERR_ASN1, "decode");
  return object;
}

}  // namespace tolven::crypto
