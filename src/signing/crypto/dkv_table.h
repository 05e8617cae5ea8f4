#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "signing/crypto/dkv.h"

namespace tolven {

// The rows of the DKV function table in the order in which they are resolved: exported name and level.
//
// The low byte of a level is the set of functions a caller wants (profiles come with 2, the rest with 3), the
// high byte tells the generation of the library that brought them. Add no row in the middle.
// clang-format off
#define TOLVEN_DKV_ROWS(ROW) \
  ROW(DkvVersion, 0x001) ROW(DkvEncode, 0x001) ROW(DkvDecode, 0x001) ROW(DkvSign, 0x001) \
  ROW(DkvVerify, 0x001) ROW(DkvEnvelope, 0x001) ROW(DkvDevelope, 0x001) ROW(DkvAddSign, 0x001) \
  ROW(DkvDigest, 0x001) ROW(DkvDELDkvOctetstring, 0x001) ROW(DkvNEWSigRcpDkvInfo, 0x001) \
  ROW(DkvDELSigRcpDkvInfo, 0x001) ROW(DkvINSSigRcpDkvInfo, 0x001) ROW(DkvDELSigRcpDkvInfoList, 0x001) \
  ROW(DkvQueryProperties, 0x001) \
  ROW(DkvOpenProfile, 0x002) ROW(DkvCloseProfile, 0x002) ROW(DkvCreateProfile, 0x002) \
  ROW(DkvRemoveProfile, 0x002) ROW(DkvGetOwnCertificate, 0x002) ROW(DkvGetCertificate, 0x002) \
  ROW(DkvPutCertificate, 0x002) ROW(DkvRemoveCertificate, 0x002) ROW(DkvFreeCertificate, 0x002) \
  ROW(DkvGetCertificateList, 0x002) ROW(DkvEnumCertificateList, 0x002) ROW(DkvFreeCertificateList, 0x002) \
  ROW(DkvCertfromASN1, 0x002) ROW(DkvCerttoASN1, 0x002) ROW(DkvParseCertificate, 0x002) \
  ROW(DkvGetCertificateRequest, 0x002) ROW(DkvPutCertificateResponse, 0x002) \
  ROW(qelsecu_parseobject, 0x102) ROW(qel_secin, 0x102) ROW(qel_create_memory_PSE, 0x102) \
  ROW(qel_delete_memory_PSE, 0x102) ROW(qel_load_memory_PSE, 0x102) ROW(qel_save_memory_PSE, 0x102) \
  ROW(DkvSignEx, 0x103) ROW(DkvVerifyEx, 0x103) ROW(DkvEnvelopeEx, 0x103) ROW(DkvDevelopeEx, 0x103) \
  ROW(DkvSecTKLastErrorInfo, 0x103) ROW(DkvDecodeCrlArray, 0x103) ROW(DkvFreeCrlArray, 0x103) \
  ROW(DkvVerifyCRL, 0x103) ROW(DkvParseCRL, 0x103) ROW(DkvFreeCrlList, 0x103) \
  ROW(DkvGetCrlDpArrayFromCert, 0x103) ROW(DkvFreeCrlDpArray, 0x103) ROW(DkvGetTimeStampReq, 0x103) \
  ROW(DkvAddTimeStampResp, 0x103) ROW(DkvCheckCertWithCrlArray, 0x103) \
  ROW(DkvKorvexNameToLdapUTF8, 0x103) ROW(DkvConvertLargeIntToHex, 0x103) ROW(DkvSignProfile, 0x103) \
  ROW(DkvRcName, 0x103) ROW(DkvRcDesc, 0x103) ROW(DkvReadPse, 0x103) ROW(DkvStorePse, 0x103) \
  ROW(DkvGetCertificateChain, 0x103) ROW(DkvGetTrustStateOfRootCertificate, 0x103) \
  ROW(DkvSetTrustStateOfRootCertificate, 0x103) ROW(qelcr_set_property_int, 0x103) \
  ROW(qelcr_get_property_int, 0x103) ROW(qelcr_get_property_string, 0x103) \
  ROW(DkvGetCertificateRequestExt, 0x103) ROW(DkvCreateParameter, 0x103) ROW(DkvFreeParameter, 0x103) \
  ROW(DkvAddParameter, 0x103) ROW(qelcr_init, 0x103) ROW(qelcr_done, 0x103)

// The TLS functions for time stamp services, resolved after the table; a library without them lacks https.
#define TOLVEN_QELSSL_ROWS(ROW) \
  ROW(QelSSLInit) ROW(QelSSLSessionInit) ROW(QelSSLSessionStart) ROW(QelSSLSessionRead) \
  ROW(QelSSLSessionWrite) ROW(QelSSLSessionClose) ROW(QelSSLDone)
// clang-format on

#define TOLVEN_ROW_ENUMERATOR(name, ...) name,
#define TOLVEN_ROW_ONE(...) +1

enum class DkvRow : std::size_t { TOLVEN_DKV_ROWS(TOLVEN_ROW_ENUMERATOR) };
enum class QelSslRow : std::size_t { TOLVEN_QELSSL_ROWS(TOLVEN_ROW_ENUMERATOR) };

inline constexpr std::size_t kDkvRowCount = 0 TOLVEN_DKV_ROWS(TOLVEN_ROW_ONE);
inline constexpr std::size_t kQelSslRowCount = 0 TOLVEN_QELSSL_ROWS(TOLVEN_ROW_ONE);
static_assert(kDkvRowCount == 72);

#undef TOLVEN_ROW_ENUMERATOR
#undef TOLVEN_ROW_ONE

struct DkvRowInfo {
  const char* name;
  unsigned level;
};

#define TOLVEN_ROW_INFO(name, level) DkvRowInfo{#name, level},
#define TOLVEN_ROW_NAME(name) #name,

// Name and level of each row, in the order of DkvRow.
inline constexpr std::array<DkvRowInfo, kDkvRowCount> kDkvRows = {{TOLVEN_DKV_ROWS(TOLVEN_ROW_INFO)}};
// Names of the TLS functions, in the order of QelSslRow.
inline constexpr std::array<const char*, kQelSslRowCount> kQelSslRows = {
    {TOLVEN_QELSSL_ROWS(TOLVEN_ROW_NAME)}};

#undef TOLVEN_ROW_INFO
#undef TOLVEN_ROW_NAME

// All functions of every generation: the level the manifest library asks for.
inline constexpr unsigned kDkvLevelAll = 0x103;

// True iff a caller who asks for `requested` gets rows of level `row`.
constexpr bool DkvLevelAdmits(unsigned requested, unsigned row) {
  return (row & 0xFFU) <= (requested & 0xFFU) && (row >> 8U) <= (requested >> 8U);
}

// A function whose type only its row knows; the wrappers turn it back before they call it.
using DkvAnyFunction = void (*)();

enum class DkvTableState : std::uint8_t { kUnloaded = 0, kLoaded = 1 };

// One loaded library. Plain data: DkvSupInitEx fills it, DkvSupEnd empties it and closes the library; a table
// that goes out of scope without DkvSupEnd leaves the library loaded.
struct DkvTable {
  std::array<DkvAnyFunction, kDkvRowCount> functions{};
  std::array<bool, kDkvRowCount> loaded{};
  std::array<DkvAnyFunction, kQelSslRowCount> tls{};
  void* library = nullptr;
  DkvTableState state = DkvTableState::kUnloaded;

  DkvAnyFunction Get(DkvRow row) const { return functions[static_cast<std::size_t>(row)]; }
  DkvAnyFunction Get(QelSslRow row) const { return tls[static_cast<std::size_t>(row)]; }
};

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
