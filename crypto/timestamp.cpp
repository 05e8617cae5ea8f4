#include <openssl/bn.h>
#include <openssl/rand.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "api.h"
#include "certificate.h"
#include "signed_data.h"
#include "token.h"

// Asking a time stamp authority (RFC 3161) and taking its reply.
namespace tolven::crypto {
namespace {

IntegerPtr MakeNonce() {
  std::array<std::uint8_t, 16> random{};
  Require(RAND_bytes(random.data(), static_cast<int>(random.size())) == 1, "random");
  const std::unique_ptr<BIGNUM, Releaser<BN_free>> number(
      BN_bin2bn(random.data(), static_cast<int>(random.size()), nullptr));
  IntegerPtr nonce(number ? BN_to_ASN1_INTEGER(number.get(), nullptr) : nullptr);
  if (!nonce) throw std::bad_alloc();
  return nonce;
}

std::unique_ptr<TS_MSG_IMPRINT, Releaser<TS_MSG_IMPRINT_free>> MakeImprint(Bytes data) {
  std::array<std::uint8_t, EVP_MAX_MD_SIZE> digest{};
  unsigned length = 0;
  Require(EVP_Digest(data.data(), data.size(), digest.data(), &length, EVP_sha256(), nullptr) == 1,
          "imprint");
  const std::unique_ptr<X509_ALGOR, Releaser<X509_ALGOR_free>> algorithm(X509_ALGOR_new());
  std::unique_ptr<TS_MSG_IMPRINT, Releaser<TS_MSG_IMPRINT_free>> imprint(TS_MSG_IMPRINT_new());
  if (!algorithm || !imprint) throw std::bad_alloc();
  X509_ALGOR_set_md(algorithm.get(), EVP_sha256());
  Require(TS_MSG_IMPRINT_set_algo(imprint.get(), algorithm.get()) == 1 &&
              TS_MSG_IMPRINT_set_msg(imprint.get(), digest.data(), static_cast<int>(length)) == 1,
          "imprint");
  return imprint;
}

std::vector<std::uint8_t> MakeRequest(Bytes signatureValue) {
  const TsReqPtr request(TS_REQ_new());
  if (!request) throw std::bad_alloc();
  Require(TS_REQ_set_version(request.get(), 1) == 1, "version");
  Require(TS_REQ_set_msg_imprint(request.get(), MakeImprint(signatureValue).get()) == 1, "imprint");
  Require(TS_REQ_set_nonce(request.get(), MakeNonce().get()) == 1, "nonce");
  // Whoever checks the signature later has nobody to ask for the certificate.
  Require(TS_REQ_set_cert_req(request.get(), 1) == 1, "certificate request");
  return ToDer(request.get(), i2d_TS_REQ);
}

bool IsGranted(TS_RESP* reply) {
  const long status = ASN1_INTEGER_get(TS_STATUS_INFO_get0_status(TS_RESP_get_status_info(reply)));
  return status == TS_STATUS_GRANTED || status == TS_STATUS_GRANTED_WITH_MODS;
}

// The reply against what was asked; the token itself is judged afterwards.
void CheckReply(TS_RESP* reply, TS_REQ* request, Bytes signatureValue) {
  if (!IsGranted(reply)) throw Failure(DKV_ERR_TSA_STATUS, "status");
  TS_TST_INFO* info = TS_RESP_get_tst_info(reply);
  if (info == nullptr || TS_RESP_get_token(reply) == nullptr) throw Failure(DKV_ERR_TOKEN, "no token");
  const ASN1_INTEGER* asked = TS_REQ_get_nonce(request);
  const ASN1_INTEGER* answered = TS_TST_INFO_get_nonce(info);
  if (asked == nullptr || answered == nullptr || ASN1_INTEGER_cmp(asked, answered) != 0) {
    throw Failure(DKV_ERR_TSA_NONCE, "nonce");
  }
  if (!ImprintMatches(TS_REQ_get_msg_imprint(request), signatureValue) ||
      !ImprintMatches(TS_TST_INFO_get_msg_imprint(info), signatureValue)) {
    throw Failure(DKV_ERR_TSA_IMPRINT, "imprint");
  }
}

SignerPtr DescribeTsa(const TokenFinding& finding) {
  SignerPtr info = MakeSigner();
  info->result = finding.rc;
  info->signingTime = finding.time;
  if (X509* certificate = finding.tsa.get()) {
    SetText(info->id, IdText(certificate));
    SetText(info->subject, SubjectText(certificate));
    SetText(info->issuer, IssuerText(certificate));
    SetOctets(info->certificate, certificate);
    SetOctets(info->issuerCertificate, finding.issuer.get());
  }
  return info;
}

bool IsSame(Bytes one, Bytes other) {
  return std::equal(one.begin(), one.end(), other.begin(), other.end());
}

// The stamped signature read back: the same signature value, over the same attributes and so the same
// content, still by the certificate that it carries, and the token where it will be looked for.
void ProveStamped(Bytes der, const SignedData& before, Bytes token) {
  const SignedData after(der, SignedKind::kDetached);
  const CertPtr signer = after.FindSigner(Trust());
  const FoundToken found = FindToken(after.signer());
  bool good = signer != nullptr && IsSame(after.signatureValue(), before.signatureValue()) &&
              after.certificates().size() == before.certificates().size() && found.rc == DKV_OK &&
              IsSame(found.der, token);
  if (good) {
    CMS_SignerInfo_set1_signer_cert(after.signer(), signer.get());
    good = CMS_SignerInfo_verify(after.signer()) == 1;
  }
  if (!good) throw Failure(DKV_ERR_GENERAL, "proof", "The stamped signature does not verify.");
}

std::vector<std::uint8_t> Embed(Bytes signature, Bytes token) {
  const SignedData data(signature, SignedKind::kDetached);
  if (FindToken(data.signer()).present) throw Failure(DKV_ERR_TOKEN, "second token");
  Require(CMS_unsigned_add1_attr_by_NID(data.signer(), NID_id_smime_aa_timeStampToken, V_ASN1_SEQUENCE,
                                        token.data(), static_cast<int>(token.size())) == 1,
          "attribute");
  const std::vector<std::uint8_t> stamped = ToDer(data.cms(), i2d_CMS_ContentInfo);
  ProveStamped(stamped, SignedData(signature, SignedKind::kDetached), token);
  return stamped;
}

}  // namespace

extern "C" {

DKV_API int DkvGetTimeStampReq(const DkvOctetstring* signature, DkvOctetstring** request) {
  if (request == nullptr) return DKV_ERR_ARGUMENT;
  *request = nullptr;
  return Guarded(__func__, [&] {
    const SignedData data(Input(signature), SignedKind::kDetached);
    *request = MakeOctets(MakeRequest(data.signatureValue())).release();
    return DKV_OK;
  });
}

DKV_API int DkvAddTimeStampResp(const DkvOctetstring* signature, const DkvOctetstring* request,
                                const DkvOctetstring* reply, const SigRcpDkvInfo* key,
                                DkvOctetstring** stamped, SigRcpDkvInfoList** tsa) {
  if (stamped == nullptr) return DKV_ERR_ARGUMENT;
  *stamped = nullptr;
  if (tsa != nullptr) *tsa = nullptr;
  return Guarded(__func__, [&]() -> int {
    const SignedData data(Input(signature), SignedKind::kDetached);
    const TsReqPtr asked(FromDer<TS_REQ>(Input(request), d2i_TS_REQ));
    const TsRespPtr answered(FromDer<TS_RESP>(Input(reply), d2i_TS_RESP));
    const SigRcpDkvInfo& info = InputSigner(key);
    CheckReply(answered.get(), asked.get(), data.signatureValue());

    // The profile matters only where no trust file says who may stamp.
    const Trust trust = TimeStampTrust(
        HasPse("QELtimestamp") ? Trust() : Trust(LoadPse(info.profile, info.password, PseUse::kTrust)));
    const std::vector<std::uint8_t> token = ToDer(TS_RESP_get_token(answered.get()), i2d_PKCS7);
    const TokenFinding finding = CheckToken(token, data.signatureValue(), trust);
    if (tsa != nullptr) *tsa = MakeList(DescribeTsa(finding));
    if (finding.rc != DKV_OK) return finding.rc;
    *stamped = MakeOctets(Embed(Input(signature), token)).release();
    return DKV_OK;
  });
}

}  // extern "C"
}  // namespace tolven::crypto
