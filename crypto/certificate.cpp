#include "certificate.h"

#include <openssl/bn.h>
#include <openssl/err.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <utility>

namespace tolven::crypto {
namespace {

struct OpensslFreer {
  void operator()(void* memory) const { OPENSSL_free(memory); }
};

std::string DateText(const ASN1_TIME* time) {
  std::tm parts{};
  if (ASN1_TIME_to_tm(time, &parts) != 1) return {};
  char text[32];
  return std::string(text, std::strftime(text, sizeof text, "%Y%m%d%H%M%SZ", &parts));
}

}  // namespace

std::string NameText(const X509_NAME* name) {
  const BioPtr bio(BIO_new(BIO_s_mem()));
  if (!bio) throw std::bad_alloc();
  constexpr unsigned long kFlags = XN_FLAG_RFC2253 & ~static_cast<unsigned long>(ASN1_STRFLGS_ESC_MSB);
  ERR_clear_error();
  if (X509_NAME_print_ex(bio.get(), name, 0, kFlags) < 0) {
    // A name that cannot be shown is stood for by an empty text; one that memory was short for is a failure.
    while (const unsigned long error = ERR_get_error()) {
      if (ERR_GET_REASON(error) == ERR_R_MALLOC_FAILURE) throw std::bad_alloc();
    }
    return {};
  }
  char* text = nullptr;
  const long length = BIO_get_mem_data(bio.get(), &text);
  return length > 0 ? std::string(text, static_cast<std::size_t>(length)) : std::string();
}

std::string SubjectText(const X509* certificate) {
  return NameText(X509_get_subject_name(certificate));
}

std::string IssuerText(const X509* certificate) {
  return NameText(X509_get_issuer_name(certificate));
}

std::string SerialText(const ASN1_INTEGER* serial) {
  const std::unique_ptr<BIGNUM, Releaser<BN_free>> number(ASN1_INTEGER_to_BN(serial, nullptr));
  const std::unique_ptr<char, OpensslFreer> hex(number ? BN_bn2hex(number.get()) : nullptr);
  if (!hex) throw std::bad_alloc();
  std::string text = hex.get();
  for (char& digit : text) {
    if (digit >= 'A' && digit <= 'F') digit = static_cast<char>(digit - 'A' + 'a');
  }
  return text;
}

std::string IdText(const X509* certificate) {
  return SerialText(X509_get0_serialNumber(certificate)) + " " + IssuerText(certificate);
}

std::string ObjectText(const ASN1_OBJECT* object) {
  char text[80];
  return OBJ_obj2txt(text, sizeof text, object, 0) > 0 ? text : "unknown";
}

std::int64_t ToSeconds(const ASN1_TIME* time) {
  std::tm parts{};
  if (time == nullptr || ASN1_TIME_to_tm(time, &parts) != 1) return DKV_NO_TIME;
  return timegm(&parts);
}

extern "C" {

DKV_API int DkvCertfromASN1(const DkvOctetstring* der, DkvCertificate** certificate) {
  if (certificate == nullptr) return DKV_ERR_ARGUMENT;
  *certificate = nullptr;
  return Guarded(__func__, [&] {
    auto made = std::make_unique<DkvCertificate>();
    made->certificate.reset(FromDer<X509>(Input(der), d2i_X509));
    *certificate = made.release();
    return DKV_OK;
  });
}

DKV_API int DkvFreeCertificate(DkvCertificate* certificate) {
  std::unique_ptr<DkvCertificate>{certificate}.reset();
  return DKV_OK;
}

DKV_API int DkvParseCertificate(const DkvCertificate* certificate, DkvParameter** entries) {
  if (certificate == nullptr || entries == nullptr) return DKV_ERR_ARGUMENT;
  *entries = nullptr;
  return Guarded(__func__, [&] {
    const X509* x509 = certificate->certificate.get();
    const std::array<std::pair<const char*, std::string>, 5> texts = {{
        {"SUBJECT", SubjectText(x509)},
        {"ISSUER", IssuerText(x509)},
        {"SERIALNUMBER", SerialText(X509_get0_serialNumber(x509))},
        {"NOTBEFORE", DateText(X509_get0_notBefore(x509))},
        {"NOTAFTER", DateText(X509_get0_notAfter(x509))},
    }};
    struct Release {
      void operator()(DkvParameter* parameter) const { DkvFreeParameter(parameter); }
    };
    std::unique_ptr<DkvParameter, Release> made(
        static_cast<DkvParameter*>(std::calloc(1, sizeof(DkvParameter))));
    if (!made) throw std::bad_alloc();
    made->size = sizeof *made;
    made->entries = static_cast<DkvParameterEntry*>(std::calloc(texts.size(), sizeof(DkvParameterEntry)));
    if (made->entries == nullptr) throw std::bad_alloc();
    made->count = texts.size();
    for (std::size_t i = 0; i < texts.size(); ++i) {
      made->entries[i].name = MakeText(texts[i].first);
      made->entries[i].value = MakeText(texts[i].second);
    }
    *entries = made.release();
    return DKV_OK;
  });
}

DKV_API int DkvFreeParameter(DkvParameter* entries) {
  if (entries == nullptr) return DKV_OK;
  for (std::size_t i = 0; i < entries->count; ++i) {
    std::free(entries->entries[i].name);
    std::free(entries->entries[i].value);
  }
  std::free(entries->entries);
  std::free(entries);
  return DKV_OK;
}

}  // extern "C"
}  // namespace tolven::crypto
