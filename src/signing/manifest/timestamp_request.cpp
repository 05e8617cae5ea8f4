#include "signing/manifest/timestamp_request.h"

#include <cstdlib>

#include "report/show_text.h"
#include "signing/crypto/secudir.h"
#include "signing/crypto/trace.h"
#include "signing/manifest/http_client.h"

namespace tolven {
namespace {

constexpr char kQueryType[] = "application/timestamp-query";
constexpr char kReplyType[] = "application/timestamp-reply";
constexpr char kFailed[] = "Timestamp request failed";

// What a message may say of an address: not who asks, nor by what password.
std::string WithoutUser(const std::string& url) {
  const std::size_t scheme = url.find("://");
  const std::size_t start = scheme == std::string::npos ? 0 : scheme + 3;
  const std::size_t at = url.rfind('@');
  return at == std::string::npos || at < start ? url : url.substr(0, start) + url.substr(at + 1);
}

// The steps of one request. A step that fails leaves its text and returns false.
class Exchange {
 public:
  explicit Exchange(SmfTimestampRequest& request) : m_request(request) {}
  ~Exchange() { SmfUtilReleaseURLComponents(m_target); }
  Exchange(const Exchange&) = delete;
  Exchange& operator=(const Exchange&) = delete;

  bool Run() { return MakeQuery() && SplitUrls() && Transfer() && AddReply(); }
  const std::string& Error() const { return m_error; }

 private:
  bool Fail(const std::string& text) {
    m_error = text;
    return false;
  }
  bool FailInLibrary(const char* function, int rc);
  bool MakeQuery();
  bool SplitUrls();
  bool Transfer();
  bool AddReply();
  void TraceSigners(const SigRcpDkvInfoList* signers) const;

  SmfTimestampRequest& m_request;
  SmfUrlComponents m_target;
  SmfUrlComponents m_proxy;
  DkvPtr<DkvOctetstring> m_query;
  std::vector<std::uint8_t> m_reply;
  std::string m_error;
};

bool Exchange::FailInLibrary(const char* function, int rc) {
  m_request.dkvErrorCode = rc;
  if (rc == kDkvNoFunction) return Fail(std::string("QELCRYPTOLIB does not contain function ") + function);
  return Fail(std::string(function) + ": " + DkvReason(rc, DkvInfo(m_request.library)));
}

bool Exchange::MakeQuery() {
  if (m_request.tsaUrl.empty()) {
    ManifestTrace("API usage error: URL for host not given\n");
    return Fail("No Timestamp Authority set");
  }
  const DkvOctetstring signature = DkvView(m_request.signature);
  const int rc = DkvCall(m_request.library, m_query, DkvLibGetTimeStampReq, &signature);
  return rc == DKV_OK && m_query != nullptr ? true : FailInLibrary("DkvGetTimeStampReq", rc);
}

bool Exchange::SplitUrls() {
  if (!SmfUtilSplitURL(m_request.tsaUrl, m_target)) return Fail("Host-URL is not a valid URL");
  if (m_target.scheme != "http" && m_target.scheme != "https") {
    return Fail("Host-URL " + WithoutUser(m_request.tsaUrl) + " specifies an unsupported scheme " +
                m_target.scheme);
  }
  if (m_request.proxyUrl.empty()) return true;
  // A proxy is often given as host and port alone.
  const bool hasScheme = m_request.proxyUrl.find("://") != std::string::npos;
  if (!SmfUtilSplitURL(hasScheme ? m_request.proxyUrl : "http://" + m_request.proxyUrl, m_proxy)) {
    return Fail("Proxy-URL is not a valid URL");
  }
  if (m_proxy.hasUser) {
    SmfUtilReleaseURLComponents(m_proxy);
    return Fail("Proxy-URL specifies user/password; this code does not support proxy authentication");
  }
  if (m_proxy.scheme == "http") return true;
  return Fail("Proxy-URL " + WithoutUser(m_request.proxyUrl) + " specifies an unsupported scheme " +
              m_proxy.scheme);
}

bool Exchange::Transfer() {
  const SigPipeBlock noSignal;
  Connection connection(m_request.limits);
  const SmfUrlComponents& first = m_proxy.host.empty() ? m_target : m_proxy;
  if (!connection.Connect(first.host, first.port)) return Fail(connection.Error());
  if (!m_proxy.host.empty() && !HttpProxyConnect(connection, m_target, m_error)) return false;
  if (m_target.scheme == "https") {
    const char* pse = std::getenv("QELMANIFEST_SSL_PSE");
    std::string name = pse == nullptr || *pse == '\0' ? "./QELSSL.pse" : pse;
    if (name.find('/') != std::string::npos) name = InStartDirectory(name);
    if (!connection.StartTls(m_request.library, name, m_target.host)) {
      m_request.dkvErrorCode = connection.DkvError();
      return Fail(connection.Error());
    }
  }
  const std::span<const std::uint8_t> query(m_query->octets, m_query->noctets);
  return HttpPost(connection, m_target, kQueryType, kReplyType, query, m_error) &&
         SmfUtilHTTPResponseRead(connection, kReplyType, m_reply, m_error);
}

bool Exchange::AddReply() {
  const DkvOctetstring signature = DkvView(m_request.signature);
  const DkvOctetstring reply = DkvView(m_reply);
  const DkvPtr<SigRcpDkvInfo> key = DkvProfile(
      m_request.library, m_request.pse, m_request.password.empty() ? nullptr : m_request.password.c_str());
  DkvPtr<DkvOctetstring> stamped;
  DkvPtr<SigRcpDkvInfoList> signers;
  int rc = DKV_OK;
  {
    const DkvLock lock;
    DkvOctetstring* stampedOut = nullptr;
    SigRcpDkvInfoList* signersOut = nullptr;
    rc = DkvLibAddTimeStampResp(m_request.library, &signature, m_query.get(), &reply, key.get(), &stampedOut,
                                &signersOut);
    stamped = DkvPtr<DkvOctetstring>(stampedOut, DkvRelease{m_request.library});
    signers = DkvPtr<SigRcpDkvInfoList>(signersOut, DkvRelease{m_request.library});
  }
  TraceSigners(signers.get());
  if (rc != DKV_OK || stamped == nullptr) return FailInLibrary("DkvAddTimeStampResp", rc);
  m_request.stamped = DkvBytes(*stamped);
  return true;
}

void Exchange::TraceSigners(const SigRcpDkvInfoList* signers) const {
  if (signers == nullptr) return;
  for (std::size_t i = 0; i < signers->count; ++i) {
    const SigRcpDkvInfo& signer = *signers->entries[i];
    ManifestTrace("Timestamp signer info: RcpId = %s, uResult = %d\n", signer.id == nullptr ? "" : signer.id,
                  signer.result);
  }
}

int Finish(SmfTimestampRequest& request, int code, const char* reason) {
  request.errorCode = code;
  try {
    request.errorText = std::string(kFailed) + "\n" + ShowText(reason);
  } catch (const std::bad_alloc&) {
    request.errorText.clear();
  }
  ManifestTrace("%s\n%s\n", kFailed, reason);
  return code;
}

}  // namespace

int SmfUtilTimestampRequest(SmfTimestampRequest& request) {
  request.stamped.clear();
  request.errorCode = SMF_OK;
  request.dkvErrorCode = 0;
  request.errorText.clear();
  try {
    Exchange exchange(request);
    return exchange.Run() ? SMF_OK : Finish(request, SMF_ETSA, exchange.Error().c_str());
  } catch (const std::bad_alloc&) {
    return Finish(request, SMF_ENOMEM,
                  "A low-memory situation has occurred, therefore no call-specific error text is available; "
                  "information about the incident are recorded in the developer trace");
  }
}

}  // namespace tolven
