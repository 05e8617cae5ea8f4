#include <openssl/crypto.h>

#include <cstdlib>
#include <cstring>

#include "api.h"

// The objects that cross the interface: made with malloc, so that their layout is plain C on both sides.
namespace tolven::crypto {
namespace {

struct Freer {
  void operator()(void* memory) const { std::free(memory); }
};

// Zeroed memory, or std::bad_alloc.
template <typename T>
std::unique_ptr<T, Freer> Allocate(std::size_t count = 1) {
  void* memory = std::calloc(count, sizeof(T));
  if (memory == nullptr) throw std::bad_alloc();
  return std::unique_ptr<T, Freer>(static_cast<T*>(memory));
}

void ReleaseOctets(DkvOctetstring& octets) {
  std::free(octets.octets);
  octets.octets = nullptr;
  octets.noctets = 0;
}

void CopyBytes(DkvOctetstring& place, Bytes bytes) {
  // At least one byte, so that an empty string is not mistaken for a missing one.
  auto copy = Allocate<unsigned char>(bytes.size() + 1);
  if (!bytes.empty()) std::memcpy(copy.get(), bytes.data(), bytes.size());
  std::free(place.octets);
  place.size = sizeof place;
  place.noctets = bytes.size();
  place.octets = copy.release();
}

// On success the list owns the entry.
void Append(SigRcpDkvInfoList*& list, SigRcpDkvInfo* info) {
  std::unique_ptr<SigRcpDkvInfoList, Freer> made;
  if (list == nullptr) made = Allocate<SigRcpDkvInfoList>();
  SigRcpDkvInfoList& target = made ? *made : *list;
  auto grown = Allocate<SigRcpDkvInfo*>(target.count + 1);
  if (target.count > 0) std::memcpy(grown.get(), target.entries, target.count * sizeof info);
  grown.get()[target.count] = info;
  std::free(target.entries);
  target.entries = grown.release();
  target.count += 1;
  target.size = sizeof target;
  if (made) list = made.release();
}

}  // namespace

Bytes Input(const DkvOctetstring* octets) {
  if (octets == nullptr || octets->size < sizeof *octets) throw Failure(DKV_ERR_ARGUMENT, "octets");
  if (octets->octets == nullptr && octets->noctets != 0) throw Failure(DKV_ERR_ARGUMENT, "octets");
  return {octets->octets, octets->noctets};
}

const SigRcpDkvInfo& InputSigner(const SigRcpDkvInfo* info) {
  if (info == nullptr || info->size < sizeof *info || info->profile == nullptr) {
    throw Failure(DKV_ERR_ARGUMENT, "profile");
  }
  return *info;
}

OctetsPtr MakeOctets(Bytes bytes) {
  OctetsPtr octets(Allocate<DkvOctetstring>().release());
  octets->size = sizeof *octets;
  CopyBytes(*octets, bytes);
  return octets;
}

char* MakeText(const std::string& text) {
  auto copy = Allocate<char>(text.size() + 1);
  std::memcpy(copy.get(), text.c_str(), text.size() + 1);
  return copy.release();
}

SignerPtr MakeSigner() {
  SignerPtr info(Allocate<SigRcpDkvInfo>().release());
  info->size = sizeof *info;
  for (DkvOctetstring* octets :
       {&info->certificate, &info->issuerCertificate, &info->tsaCertificate, &info->tsaIssuerCertificate}) {
    octets->size = sizeof *octets;
  }
  info->id = MakeText("");
  info->subject = MakeText("");
  info->issuer = MakeText("");
  info->tsaId = MakeText("");
  info->signingTime = DKV_NO_TIME;
  info->tokenTime = DKV_NO_TIME;
  return info;
}

void SetText(char*& place, const std::string& text) {
  char* copy = MakeText(text);
  std::free(place);
  place = copy;
}

void SetOctets(DkvOctetstring& place, const X509* certificate) {
  if (certificate == nullptr) {
    ReleaseOctets(place);
    return;
  }
  CopyBytes(place, ToDer(certificate, i2d_X509));
}

SigRcpDkvInfoList* MakeList(SignerPtr signer) {
  SigRcpDkvInfoList* list = nullptr;
  Append(list, signer.get());
  static_cast<void>(signer.release());
  return list;
}

void CheckOneObject(Bytes der) {
  const unsigned char* at = der.data();
  long length = 0;
  int tag = 0;
  int tagClass = 0;
  if (der.empty() || der.size() > static_cast<std::size_t>(INT32_MAX)) throw Failure(DKV_ERR_ASN1, "length");
  const int kind = ASN1_get_object(&at, &length, &tag, &tagClass, static_cast<long>(der.size()));
  // 0x80: damaged, or longer than what is there; the lowest bit: indefinite length, which DER does not have.
  if ((kind & 0x81) != 0 || (kind & V_ASN1_CONSTRUCTED) == 0 || tag != V_ASN1_SEQUENCE ||
      tagClass != V_ASN1_UNIVERSAL) {
    throw Failure(DKV_ERR_ASN1, "frame");
  }
  const auto header = static_cast<std::size_t>(at - der.data());
  if (header + static_cast<std::size_t>(length) != der.size()) throw Failure(DKV_ERR_TRAILING_DATA, "frame");
}

extern "C" {

DKV_API int DkvDELDkvOctetstring(DkvOctetstring* octets) {
  if (octets == nullptr) return DKV_OK;
  ReleaseOctets(*octets);
  std::free(octets);
  return DKV_OK;
}

DKV_API int DkvNEWSigRcpDkvInfo(const char* profile, const char* password, SigRcpDkvInfo** info) {
  if (info == nullptr) return DKV_ERR_ARGUMENT;
  *info = nullptr;
  if (profile == nullptr) return DKV_ERR_ARGUMENT;
  return Guarded(__func__, [&] {
    SignerPtr made = MakeSigner();
    made->profile = MakeText(profile);
    if (password != nullptr) made->password = MakeText(password);
    *info = made.release();
    return DKV_OK;
  });
}

DKV_API int DkvDELSigRcpDkvInfo(SigRcpDkvInfo* info) {
  if (info == nullptr) return DKV_OK;
  if (info->password != nullptr) OPENSSL_cleanse(info->password, std::strlen(info->password));
  for (char* text : {info->profile, info->password, info->id, info->subject, info->issuer, info->tsaId}) {
    std::free(text);
  }
  for (DkvOctetstring* octets :
       {&info->certificate, &info->issuerCertificate, &info->tsaCertificate, &info->tsaIssuerCertificate}) {
    ReleaseOctets(*octets);
  }
  std::free(info);
  return DKV_OK;
}

DKV_API int DkvINSSigRcpDkvInfo(SigRcpDkvInfoList** list, SigRcpDkvInfo* info) {
  if (list == nullptr || info == nullptr) return DKV_ERR_ARGUMENT;
  return Guarded(__func__, [&] {
    Append(*list, info);
    return DKV_OK;
  });
}

DKV_API int DkvDELSigRcpDkvInfoList(SigRcpDkvInfoList* list) {
  if (list == nullptr) return DKV_OK;
  for (std::size_t i = 0; i < list->count; ++i) DkvDELSigRcpDkvInfo(list->entries[i]);
  std::free(list->entries);
  std::free(list);
  return DKV_OK;
}

}  // extern "C"
}  // namespace tolven::crypto
