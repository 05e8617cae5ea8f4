#pragma once

#include "signing/crypto/dkv.h"
#include "signing/crypto/dkv_table.h"

namespace tolven {

// What a wrapper says when there is nothing to call.
inline constexpr int kDkvNoTable = DKV_ERR_GENERAL;
inline constexpr int kDkvNoFunction = DKV_ERR_NOT_SUPPORTED;
static_assert(kDkvNoTable == 1 && kDkvNoFunction == 16);

// The one shape of all wrappers: table first, the function's own arguments after it, forwarded unchanged.
template <auto row, typename Function>
struct DkvWrapper;

template <auto row, typename... Args>
struct DkvWrapper<row, int(Args...)> {
  int operator()(const DkvTable* table, Args... args) const {
    if (table == nullptr) return kDkvNoTable;
    const DkvAnyFunction function = table->Get(row);
    if (function == nullptr) return kDkvNoFunction;
    return reinterpret_cast<int (*)(Args...)>(function)(args...);
  }
};

// DKV_LIB(Sign, DkvSign) makes DkvLibSign(table, ...) with the prototype of DkvSign in dkv.h.
#define TOLVEN_DKV_LIB(wrapper, function) \
  inline constexpr DkvWrapper<DkvRow::function, decltype(::function)> DkvLib##wrapper {}

TOLVEN_DKV_LIB(Sign, DkvSign);
TOLVEN_DKV_LIB(Verify, DkvVerify);
TOLVEN_DKV_LIB(VerifyEx, DkvVerifyEx);
TOLVEN_DKV_LIB(Encode, DkvEncode);
TOLVEN_DKV_LIB(Decode, DkvDecode);
TOLVEN_DKV_LIB(Digest, DkvDigest);
TOLVEN_DKV_LIB(Envelope, DkvEnvelope);
TOLVEN_DKV_LIB(Develope, DkvDevelope);
TOLVEN_DKV_LIB(AddSign, DkvAddSign);
TOLVEN_DKV_LIB(SignEx, DkvSignEx);
TOLVEN_DKV_LIB(NEWSigRcpDkvInfo, DkvNEWSigRcpDkvInfo);
TOLVEN_DKV_LIB(DELSigRcpDkvInfo, DkvDELSigRcpDkvInfo);
TOLVEN_DKV_LIB(INSSigRcpDkvInfo, DkvINSSigRcpDkvInfo);
TOLVEN_DKV_LIB(DELSigRcpDkvInfoList, DkvDELSigRcpDkvInfoList);
TOLVEN_DKV_LIB(DELDkvOctetstring, DkvDELDkvOctetstring);
TOLVEN_DKV_LIB(OpenProfile, DkvOpenProfile);
TOLVEN_DKV_LIB(CloseProfile, DkvCloseProfile);
TOLVEN_DKV_LIB(CreateProfile, DkvCreateProfile);
TOLVEN_DKV_LIB(DecodeCrlArray, DkvDecodeCrlArray);
TOLVEN_DKV_LIB(FreeCrlArray, DkvFreeCrlArray);
TOLVEN_DKV_LIB(VerifyCRL, DkvVerifyCRL);
TOLVEN_DKV_LIB(CheckCertWithCrlArray, DkvCheckCertWithCrlArray);
TOLVEN_DKV_LIB(GetTimeStampReq, DkvGetTimeStampReq);
TOLVEN_DKV_LIB(AddTimeStampResp, DkvAddTimeStampResp);
TOLVEN_DKV_LIB(ReadPSEFromFile, DkvReadPse);
TOLVEN_DKV_LIB(StorePSEToFile, DkvStorePse);
TOLVEN_DKV_LIB(Version, DkvVersion);
TOLVEN_DKV_LIB(QueryProperties, DkvQueryProperties);
TOLVEN_DKV_LIB(CertfromASN1, DkvCertfromASN1);
TOLVEN_DKV_LIB(FreeCertificate, DkvFreeCertificate);
TOLVEN_DKV_LIB(ParseCertificate, DkvParseCertificate);
TOLVEN_DKV_LIB(FreeParameter, DkvFreeParameter);
TOLVEN_DKV_LIB(SecTKLastErrorInfo, DkvSecTKLastErrorInfo);
TOLVEN_DKV_LIB(SetPropertyInt, qelcr_set_property_int);
TOLVEN_DKV_LIB(GetPropertyInt, qelcr_get_property_int);
TOLVEN_DKV_LIB(GetPropertyString, qelcr_get_property_string);
TOLVEN_DKV_LIB(Init, qelcr_init);
TOLVEN_DKV_LIB(Done, qelcr_done);

#undef TOLVEN_DKV_LIB

// The same shape for TLS: QelLibSSLInit(table, ...) and so on.
#define TOLVEN_QEL_LIB(wrapper) \
  inline constexpr DkvWrapper<QelSslRow::Qel##wrapper, decltype(::Qel##wrapper)> QelLib##wrapper {}

TOLVEN_QEL_LIB(SSLInit);
TOLVEN_QEL_LIB(SSLSessionInit);
TOLVEN_QEL_LIB(SSLSessionStart);
TOLVEN_QEL_LIB(SSLSessionRead);
TOLVEN_QEL_LIB(SSLSessionWrite);
TOLVEN_QEL_LIB(SSLSessionClose);
TOLVEN_QEL_LIB(SSLDone);

#undef TOLVEN_QEL_LIB

}  // namespace tolven
