#include <algorithm>
#include <cstring>

#include "api.h"
#include "certificate.h"
#include "chain.h"
#include "signed_data.h"
#include "token.h"

// Judging a signature. Strict: what is not expected is refused, and the signer's certificate counts only when
// a certificate of the profile vouches for it.
namespace tolven::crypto {
namespace {

void DescribeSigner(X509* certificate, X509* issuer, SigRcpDkvInfo& info) {
  SetText(info.id, IdText(certificate));
  SetText(info.subject, SubjectText(certificate));
  SetText(info.issuer, IssuerText(certificate));
  SetOctets(info.certificate, certificate);
  SetOctets(info.issuerCertificate, issuer);
}

// Looks at the token, if there is one. Returns what it means for the signer; fills the members about it.
int JudgeToken(const SignedData& data, const Trust& trust, bool wanted, SigRcpDkvInfo& info) {
  const FoundToken found = FindToken(data.signer());
  info.tokenPresent = found.present ? 1 : 0;
  if (!found.present) {
    info.tokenResult = wanted ? DKV_ERR_TOKEN_MISSING : DKV_OK;
    return info.tokenResult;
  }
  info.tokenResult = found.rc;
  if (found.rc != DKV_OK) return DKV_ERR_TOKEN;

  const TokenFinding finding = CheckToken(found.der, data.signatureValue(), TimeStampTrust(trust));
  info.tokenResult = finding.rc;
  info.tokenTime = finding.time;
  if (finding.tsa) SetText(info.tsaId, IdText(finding.tsa.get()));
  SetOctets(info.tsaCertificate, finding.tsa.get());
  SetOctets(info.tsaIssuerCertificate, finding.issuer.get());
  // A weak token must not read like a weak signature.
  return finding.rc == DKV_ERR_WEAK ? DKV_ERR_TOKEN : finding.rc;
}

// The checks in the order that dkv.h promises; the first that fails is the result.
int JudgeAs(const CertPtr& certificate, const SignedData& data, Bytes content, const Trust& trust,
            bool tokenWanted, SigRcpDkvInfo& info) {
  X509* issuer = FindIssuer(certificate.get(), {&trust.anchors(), &data.certificates()});
  DescribeSigner(certificate.get(), issuer, info);
  info.signingTime = data.signingTime();

  int rc = data.CheckSignature(content, certificate.get(), trust);
  if (rc != DKV_OK) return rc;

  // Whose signature it is does not depend on the clock, and must be known before the token is asked: another
  // profile may trust both.
  rc = CheckChain(trust, certificate.get(), data.certificates(), kAnyTime);
  if (rc == DKV_ERR_WRONG_SIGNER) return rc;
  const int token = JudgeToken(data, trust, tokenWanted, info);
  if (rc == DKV_OK) rc = token;
  if (rc == DKV_OK) rc = CheckChain(trust, certificate.get(), data.certificates(), info.tokenTime);
  if (rc == DKV_OK) rc = CheckSignerUsage(certificate.get());
  return rc;
}

// One certificate of the signer that passes is enough; otherwise the first one's failure is told.
int Judge(const SignedData& data, Bytes content, const Trust& trust, bool tokenWanted, SigRcpDkvInfo& info) {
  const Certs certificates = data.FindSigners(trust);
  if (certificates.empty()) return DKV_ERR_SIGNER_CERT;
  const auto judge = [&](const CertPtr& certificate) {
    return JudgeAs(certificate, data, content, trust, tokenWanted, info);
  };
  const int rc = judge(certificates.front());
  if (rc == DKV_OK || certificates.size() == 1) return rc;
  if (std::any_of(certificates.begin() + 1, certificates.end(),
                  [&](const CertPtr& certificate) { return judge(certificate) == DKV_OK; })) {
    return DKV_OK;
  }
  return judge(certificates.front());
}

// A profile that is not there trusts nobody; every other trouble with it is the caller's to know.
Trust LoadTrust(const SigRcpDkvInfo& key, int& detail) {
  try {
    return Trust(LoadPse(key.profile, key.password, PseUse::kTrust));
  } catch (const Failure& failure) {
    if (failure.rc() != DKV_ERR_NO_PSE) throw;
    detail = DKV_ERR_NO_PSE;
    SetInfo(failure.info());
    return Trust();
  }
}

bool IsTokenWanted(const char* format) {
  if (std::strcmp(format, "PKCS7-TSTAMP") == 0) return true;
  if (std::strcmp(format, "PKCS7") == 0) return false;
  throw Failure(DKV_ERR_FORMAT, "format");
}

}  // namespace

extern "C" {

DKV_API int DkvEncode(const char* format, const DkvOctetstring* bytes, DkvOctetstring** content) {
  if (format == nullptr || content == nullptr) return DKV_ERR_ARGUMENT;
  *content = nullptr;
  return Guarded(__func__, [&] {
    IsTokenWanted(format);
    // A detached signature is over the bytes as they are.
    *content = MakeOctets(Input(bytes)).release();
    return DKV_OK;
  });
}

DKV_API int DkvVerify(const char* format, const DkvOctetstring* content, const DkvOctetstring* signature,
                      const SigRcpDkvInfo* key, SigRcpDkvInfoList** signers) {
  if (format == nullptr || signers == nullptr) return DKV_ERR_ARGUMENT;
  *signers = nullptr;
  return Guarded(__func__, [&]() -> int {
    const bool tokenWanted = IsTokenWanted(format);
    const Bytes bytes = Input(content);
    const SignedData data(Input(signature), SignedKind::kDetached);
    int detail = DKV_OK;
    const Trust trust = LoadTrust(InputSigner(key), detail);

    SignerPtr info = MakeSigner();
    SetText(info->id, data.signerId());
    info->result = Judge(data, bytes, trust, tokenWanted, *info);
    if (info->result == DKV_ERR_WRONG_SIGNER) info->detail = detail;
    const bool good = info->result == DKV_OK;
    *signers = MakeList(std::move(info));
    return good ? DKV_OK : DKV_ERR_SIGNER;
  });
}

}  // extern "C"
}  // namespace tolven::crypto
