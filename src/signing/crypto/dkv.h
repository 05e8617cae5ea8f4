/* The DKV interface: what a cryptographic library offers and how the program calls it.
 *
 * Plain C, so that a library may be written in any language and with any compiler. The program never links a
 * library of this interface: it loads one at run time and looks the functions up by the names below. A
 * library may lack any of them; the program then does without what needs it.
 *
 * Conventions
 * - Functions return a DKV_ code, DKV_OK (0) for success, unless said otherwise. No exception leaves a
 * library.
 * - The first member of every structure is its size in bytes as its maker knows it. Who fills a structure
 * sets it; who reads one refuses a size smaller than the members it needs. Members are only ever added at the
 * end.
 * - What a function hands out through a pointer to a pointer belongs to the caller, who releases it with the
 *   function named there, never with free(). On failure the place is set to null, unless said otherwise.
 *   Release functions accept null. What a function is given, it only reads, and keeps nothing of it.
 * - Texts are UTF-8 and end with NUL. Times are seconds since 1970-01-01 UTC, DKV_NO_TIME for none.
 * - A library is not re-entrant: the caller serialises its calls.
 *
 * Profiles (PSEs)
 * A profile is a file with a key, certificates, or both: PKCS#12, or PEM with a private key and certificates,
 * or PEM with trusted certificates only. A name with a "/" is a path. Any other name means a regular file in
 * the directory of the environment variable SECUDIR: NAME.pse, else NAME. The working directory is never
 * searched: it may be somebody's delivery. The certificate of the key is the one that belongs to it, is valid
 * now, may sign code, and lives longest.
 * A name that begins with "pkcs11:" (RFC 7512) is a key in a token: module-path names the module, the PIN is
 * the password, else pin-value, else the first line of the file that pin-source names. The certificates come
 * from the token and from the profiles in SECUDIR.
 *
 * Trust comes from the profile and from nowhere else: its own certificate and every further one are anchors.
 * Time stamp authorities are trusted by the profile "QELtimestamp"; when there is none, by those certificates
 * of the profile in use that are limited to time stamps.
 */
#ifndef TOLVEN_SIGNING_CRYPTO_DKV_H_
#define TOLVEN_SIGNING_CRYPTO_DKV_H_

#include <stddef.h>
#include <stdint.h>

#ifndef DKV_API
#define DKV_API /* a library that exports the functions defines it before it includes this header */
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Return codes, also used as results per signer. The numbers are part of the interface: do not change them.
 */
enum DkvRc {
  DKV_OK = 0,
  DKV_ERR_GENERAL = 1,            /* the library failed for a reason that has no code of its own */
  DKV_ERR_ARGUMENT = 2,           /* null argument, structure too small */
  DKV_ERR_MEMORY = 3,             /* out of memory */
  DKV_ERR_FORMAT = 4,             /* neither "PKCS7" nor "PKCS7-TSTAMP" */
  DKV_ERR_SIGNER = 5,             /* look at the results of the signers */
  DKV_ERR_ALGORITHM = 6,          /* unknown or refused hash algorithm name */
  DKV_ERR_NOT_INITIALISED = 7,    /* qelcr_init was not called */
  DKV_ERR_PROPERTY = 8,           /* no property of that name */
  DKV_ERR_LIBRARY = 10,           /* used by the loader: the library could not be loaded or initialised */
  DKV_ERR_NO_PSE = 11,            /* no profile file of that name */
  DKV_ERR_PASSWORD = 12,          /* the profile needs a password, or another one */
  DKV_ERR_PSE_FORMAT = 13,        /* the profile is neither PKCS#12 nor PEM, or is damaged */
  DKV_ERR_PSE_NO_KEY = 14,        /* signing needs a profile with a private key */
  DKV_ERR_PSE_NO_CERT = 15,       /* no certificate in the profile, or none that belongs to its key */
  DKV_ERR_NOT_SUPPORTED = 16,     /* the library has no such function */
  DKV_ERR_ALG_NOT_SUPPORTED = 17, /* a profile, signature or list needs an algorithm the library lacks */
  DKV_ERR_MODULE = 18,            /* a PKCS#11 module is missing, or has no such key */
  DKV_ERR_PSE_READ = 19,          /* the profile file is there, but cannot be read */
  DKV_ERR_WRONG_SIGNER = 22,  /* the signer is not that key: nothing leads from it to a trusted certificate */
  DKV_ERR_UNTRUSTED = 23,     /* a way leads to a trusted certificate, but it is broken */
  DKV_ERR_EXPIRED = 24,       /* a certificate of the chain was past its end */
  DKV_ERR_NOT_YET_VALID = 25, /* a certificate of the chain had not begun */
  DKV_ERR_KEY_USAGE = 26,     /* key usage without digitalSignature */
  DKV_ERR_EXT_KEY_USAGE = 27, /* extended key usage, here or above, without codeSigning */
  DKV_ERR_WEAK = 28,          /* SHA-1, MD5, RSA below 2048 bits, or as weak */
  DKV_ERR_DIGEST = 29,        /* the signed digest is not the content's */
  DKV_ERR_SIGNATURE_VALUE = 30, /* the signature is not of this key over these attributes */
  DKV_ERR_ATTRIBUTES = 31,      /* signed attributes missing or not as they must be */
  DKV_ERR_SIGNING_CERT = 32,    /* the attribute signing certificate names another certificate */
  DKV_ERR_ASN1 = 33,            /* not the structure it should be */
  DKV_ERR_TRAILING_DATA = 34,   /* bytes behind the one object */
  DKV_ERR_EMBEDDED = 35,        /* a signature that brings its own content */
  DKV_ERR_SIGNER_COUNT = 36,    /* not exactly one signer */
  DKV_ERR_SIGNER_CERT = 37,     /* the signer's certificate is neither in the signature nor in the profile */
  DKV_ERR_REVOKED = 40,         /* the certificate is on its issuer's list */
  DKV_ERR_CRL_OUTDATED = 41,    /* the issuer's list is past its next update, or not yet valid */
  DKV_ERR_CRL_MISSING = 42,     /* no list of the certificate's issuer */
  DKV_ERR_CRL_INVALID = 43,     /* the list's signature is not its issuer's, or the list cannot be used */
  DKV_ERR_TOKEN = 50,           /* the time stamp token is damaged or not over this signature */
  DKV_ERR_TOKEN_MISSING = 51,   /* format "PKCS7-TSTAMP" and no token */
  DKV_ERR_TOKEN_TRUST = 52,     /* no trusted certificate leads to the time stamp authority */
  DKV_ERR_TSA_CERT = 53,        /* the authority's certificate must not stamp (critical timeStamping alone) */
  DKV_ERR_TSA_STATUS = 54,      /* the authority refused the request */
  DKV_ERR_TSA_NONCE = 55,       /* the reply answers another request */
  DKV_ERR_TSA_IMPRINT = 56,     /* the reply is about other data */
  DKV_ERR_TLS = 60,             /* TLS failed */
  DKV_ERR_TLS_CERT = 61,        /* the server's certificate is not trusted by the profile */
  DKV_ERR_TLS_HOST = 62,        /* the server's certificate is for another host */
  DKV_ERR_TIMEOUT = 63          /* the peer was silent for too long */
};

#define DKV_NO_TIME ((int64_t)-1)

/* Bytes and their number. A caller who passes one keeps its bytes; octets may be null only when noctets is 0.
 */
typedef struct DkvOctetstring {
  size_t size;
  size_t noctets;
  unsigned char* octets;
} DkvOctetstring;

/* A signer or recipient. Going in it names a profile; coming out it tells what was found about one signer. */
typedef struct SigRcpDkvInfo {
  size_t size;

  /* Going in. */
  char* profile;  /* name or path of the profile; never null going in, null coming out */
  char* password; /* null or empty for none */

  /* Coming out. */
  int result;          /* DKV_OK, or the first thing wrong with this signer */
  int detail;          /* with DKV_ERR_WRONG_SIGNER: why; DKV_ERR_NO_PSE says that there is no such profile */
  char* id;            /* serial number in hexadecimal, a blank, issuer: names one certificate; never null */
  char* subject;       /* RFC 4514 text, control characters escaped; empty when there is no certificate */
  char* issuer;        /* likewise */
  int64_t signingTime; /* what the signer says, DKV_NO_TIME when nothing */
  DkvOctetstring certificate;       /* DER; empty when the signature and the profile have none */
  DkvOctetstring issuerCertificate; /* DER, for the CRL check; empty when not known */

  /* The time stamp token in the signature. */
  int tokenPresent;              /* 1 when the signature carries a token, else 0 */
  int tokenResult;               /* DKV_OK, or what is wrong with it (then result is not DKV_OK either) */
  int64_t tokenTime;             /* the authority's time, DKV_NO_TIME without a good token */
  char* tsaId;                   /* as id, for the authority; empty without a token */
  DkvOctetstring tsaCertificate; /* DER; empty without a token or when the token has none */
  DkvOctetstring tsaIssuerCertificate; /* DER, for the CRL check; empty when not known */
} SigRcpDkvInfo;

/* Signers in the order of the signature. */
typedef struct SigRcpDkvInfoList {
  size_t size;
  size_t count;
  SigRcpDkvInfo** entries;
} SigRcpDkvInfoList;

/* Named texts, as DkvParseCertificate returns them. */
typedef struct DkvParameterEntry {
  char* name;
  char* value;
} DkvParameterEntry;

typedef struct DkvParameter {
  size_t size;
  size_t count;
  DkvParameterEntry* entries;
} DkvParameter;

/* What a library is. The texts are the library's and last as long as it is loaded. */
typedef struct DkvProperties {
  size_t size;
  const char* maker;       /* "QELCRYPTOLIB" for a library of the maker */
  const char* versionText; /* for people, one line */
  int version;             /* 8 or later is ended with qelcr_done */
  int patchLevel;
} DkvProperties;

typedef struct DkvCertificate DkvCertificate; /* a decoded certificate, released by DkvFreeCertificate */
typedef struct DkvCrlArray DkvCrlArray;       /* decoded CRLs, released by DkvFreeCrlArray */

/* ---- The library itself ---- */

/* Must be called once before any other function but the property functions, DkvVersion, DkvQueryProperties,
 * DkvRcName and DkvRcDesc. Further calls count. */
DKV_API int qelcr_init(void);
/* Undoes one qelcr_init. Objects handed out must have been released before. */
DKV_API int qelcr_done(void);

/* Properties by name. Unknown names: DKV_ERR_PROPERTY; the place is left as it was.
 * "FIPS_140_2_CRYPTO_KERNEL_ACTIVE" (int, 0 or 1): set before qelcr_init it restricts the library to a
 * certified kernel, and qelcr_init fails when there is none. "VERSION", "PATCH_LEVEL" (int), "VERSION_TEXT",
 * "MAKER" (string) are read only and say what DkvQueryProperties says. */
DKV_API int qelcr_set_property_int(const char* name, int value);
DKV_API int qelcr_get_property_int(const char* name, int* value);
/* The text is the library's and lasts as long as it is loaded. */
DKV_API int qelcr_get_property_string(const char* name, const char** value);

/* The version as a text of one line; it is the library's. */
DKV_API int DkvVersion(const char** text);
/* Fills the members that lie within properties->size, which the caller has set. */
DKV_API int DkvQueryProperties(DkvProperties* properties);

/* The name of a code ("DKV_ERR_EXPIRED") and one sentence about it; null for a number that is no code. The
 * texts are the library's and last as long as it is loaded. */
DKV_API const char* DkvRcName(int rc);
DKV_API const char* DkvRcDesc(int rc);

/* What the code of the last call could not say, as sentences for people: the files that were looked for, the
 * algorithm that is not supported. After a DkvSign that succeeded a text is a warning about the signature.
 * Empty when there is no more to say. The text is the library's and lasts until the next call of a function
 * that is not a releasing one. */
DKV_API int DkvSecTKLastErrorInfo(const char** text);

/* Lines about failures for the program's trace: level 0 none, 1 errors, 2 and above more. The line ends with
 * LF and is the library's; the callback must not call the library. */
typedef void (*QelTraceCallback)(int level, const char* line);
DKV_API int Qelcryptolib_RegisterTraceCallback(QelTraceCallback callback);
DKV_API int Qelcryptolib_UnregisterTraceCallback(void);
DKV_API int Qelcryptolib_SetTraceLevel(int level);

/* ---- Objects ---- */

/* Releases the string and its bytes, for strings that a function handed out. */
DKV_API int DkvDELDkvOctetstring(DkvOctetstring* octets);

/* A signer entry that names a profile; password may be null. Copies both. Released by DkvDELSigRcpDkvInfo,
 * which overwrites the password. */
DKV_API int DkvNEWSigRcpDkvInfo(const char* profile, const char* password, SigRcpDkvInfo** info);
DKV_API int DkvDELSigRcpDkvInfo(SigRcpDkvInfo* info);
/* Appends an entry to *list, which is made when null. On success the list owns the entry; on failure nothing
 * has changed. */
DKV_API int DkvINSSigRcpDkvInfo(SigRcpDkvInfoList** list, SigRcpDkvInfo* info);
/* Releases the list and its entries. */
DKV_API int DkvDELSigRcpDkvInfoList(SigRcpDkvInfoList* list);

/* ---- Signatures ---- */

/* The digest of data; algorithm is "SHA256", "SHA384" or "SHA512". Release: DkvDELDkvOctetstring. */
DKV_API int DkvDigest(const char* algorithm, const DkvOctetstring* data, DkvOctetstring** digest);

/* Signs content with the key of signer->profile: CMS signed data (RFC 5652) in DER, detached, binary, one
 * signer with the attributes content type, message digest, signing time and signing certificate v2; the
 * certificates of every way upwards that the profile has are put in. What was made is verified before it is
 * handed out. format is "PKCS7" (a time stamp is added afterwards). hashAlgorithm as for DkvDigest. Fails
 * with a code 11 to 18 for the profile, and with those of a signer (24 to 28) when nobody could accept the
 * signature. Release: DkvDELDkvOctetstring. */
DKV_API int DkvSign(const char* format, const char* hashAlgorithm, const DkvOctetstring* content,
                    const SigRcpDkvInfo* signer, DkvOctetstring** signature);

/* The content in the form in which DkvVerify takes it. Release: DkvDELDkvOctetstring. */
DKV_API int DkvEncode(const char* format, const DkvOctetstring* bytes, DkvOctetstring** content);

/* Checks a detached signature over content (from DkvEncode) with the certificates of key->profile.
 *
 * Returns DKV_OK when the one signer's result is DKV_OK; DKV_ERR_SIGNER (5) when it is something else, the
 * reason being its result; any other code when there is no signer to tell about: DKV_ERR_ASN1,
 * DKV_ERR_TRAILING_DATA, DKV_ERR_EMBEDDED, DKV_ERR_SIGNER_COUNT, or those about a profile that is there.
 * *signers is set with 0 and 5, else null; it then has exactly one entry. Release: DkvDELSigRcpDkvInfoList.
 *
 * A profile that does not exist trusts nobody: 5, result DKV_ERR_WRONG_SIGNER, detail DKV_ERR_NO_PSE.
 * DKV_ERR_WRONG_SIGNER is given only after the signature has proved to be right for the content.
 *
 * The order of the checks: structure; digest and signature value; strength; attributes; a way to a trusted
 * certificate (22); the token, when there is one, whatever the format; with "PKCS7-TSTAMP" there must be one;
 * the chain at the token's time, without a token now; key usage and extended key usage. */
DKV_API int DkvVerify(const char* format, const DkvOctetstring* content, const DkvOctetstring* signature,
                      const SigRcpDkvInfo* key, SigRcpDkvInfoList** signers);

/* ---- Time stamps (RFC 3161) ---- */

/* A request over the signature value of a signature made by DkvSign: SHA-256 imprint, nonce, certificate
 * wanted. DER, to be sent as application/timestamp-query. Keep it for DkvAddTimeStampResp. Release:
 * DkvDELDkvOctetstring. */
DKV_API int DkvGetTimeStampReq(const DkvOctetstring* signature, DkvOctetstring** request);

/* Checks the reply against the request (status, nonce, imprint) and its token with the trusted authorities
 * ("QELtimestamp", else certificates of key->profile), and puts the token into the signature. *tsa, which may
 * not be wanted (null), gets one entry about the authority with id, subject, issuer, certificate, result, and
 * the token's time as signingTime, also when the token was refused for its signer; null when the reply was no
 * token at all. Release: DkvDELDkvOctetstring for *stamped, DkvDELSigRcpDkvInfoList for *tsa. */
DKV_API int DkvAddTimeStampResp(const DkvOctetstring* signature, const DkvOctetstring* request,
                                const DkvOctetstring* reply, const SigRcpDkvInfo* key,
                                DkvOctetstring** stamped, SigRcpDkvInfoList** tsa);

/* ---- Certificates and CRLs ---- */

/* Decodes one certificate in DER, nothing behind it. Release: DkvFreeCertificate. */
DKV_API int DkvCertfromASN1(const DkvOctetstring* der, DkvCertificate** certificate);
DKV_API int DkvFreeCertificate(DkvCertificate* certificate);

/* What a certificate says, as named texts: "SUBJECT", "ISSUER" (as in SigRcpDkvInfo), "SERIALNUMBER"
 * (hexadecimal), "NOTBEFORE" and "NOTAFTER" (YYYYMMDDhhmmssZ). Release: DkvFreeParameter. */
DKV_API int DkvParseCertificate(const DkvCertificate* certificate, DkvParameter** entries);
DKV_API int DkvFreeParameter(DkvParameter* entries);

/* Decodes the content of a CRL file, one list or several, in PEM or in DER one behind the other.
 * DKV_ERR_ASN1 when there is none or when anything else stands there. Release: DkvFreeCrlArray. */
DKV_API int DkvDecodeCrlArray(const DkvOctetstring* file, DkvCrlArray** crls);
DKV_API int DkvFreeCrlArray(DkvCrlArray* crls);

/* Looks for the certificate in its issuer's lists. Of several the one with the highest CRL number, then the
 * latest, decides, but a certificate that any current list revokes is revoked. A delta list counts together
 * with its base only; without it the call fails with DKV_ERR_CRL_INVALID, or DKV_ERR_CRL_MISSING when there
 * is no complete list at all. issuer is the issuer's certificate (the certificate itself
 * when it is self-signed; null when unknown, which makes every list a missing one, as nobody can check it).
 * verificationTime is the moment at which the list must be current, DKV_NO_TIME for now. A list signed by
 * somebody else: DKV_ERR_CRL_INVALID. DKV_ERR_REVOKED does not ask when: *reason then is the reason code of
 * RFC 5280, 5.3.1 (0 unspecified, 1 key compromise, ...), else -1. */
DKV_API int DkvCheckCertWithCrlArray(const DkvCertificate* certificate, const DkvCertificate* issuer,
                                     const DkvCrlArray* crls, int64_t verificationTime, int* reason);

/* ---- TLS for time stamp services (https) ---- */

typedef struct QelSSLContext QelSSLContext; /* trust and, when the profile has one, a client's key */
typedef struct QelSSLSession QelSSLSession; /* one connection */

/* Reads the profile (DkvVerify's rules for names and trust; TLS 1.2 or later). Codes 11 to 13 and 15 for the
 * profile. Release: QelSSLDone. */
DKV_API int QelSSLInit(const char* profile, const char* password, QelSSLContext** context);
/* A session on a connected stream socket, which stays the caller's, who closes it after QelSSLSessionClose.
 * hostName (a DNS name or an address as text) goes out as server name and must be the certificate's.
 * timeoutMs is the longest time one call below may take; 0 or less is refused. The descriptor is non-blocking
 * while the session lives. The context must outlive the session. Release: QelSSLSessionClose. */
DKV_API int QelSSLSessionInit(QelSSLContext* context, int socket, const char* hostName, int timeoutMs,
                              QelSSLSession** session);
/* The handshake. DKV_ERR_TLS_CERT, DKV_ERR_TLS_HOST, DKV_ERR_TIMEOUT, DKV_ERR_TLS. */
DKV_API int QelSSLSessionStart(QelSSLSession* session);
/* Reads 1 to length bytes. *done is 0 at the proper end of the peer's data, a torn connection is DKV_ERR_TLS.
 */
DKV_API int QelSSLSessionRead(QelSSLSession* session, void* buffer, size_t length, size_t* done);
/* Writes all of it. */
DKV_API int QelSSLSessionWrite(QelSSLSession* session, const void* data, size_t length);
/* Says goodbye once, without waiting for the answer, and releases the session. */
DKV_API int QelSSLSessionClose(QelSSLSession* session);
DKV_API int QelSSLDone(QelSSLContext* context);

/* ---- Functions of a fuller library, which the program can do without ---- */

/* The reverse of DkvEncode. */
DKV_API int DkvDecode(const char* format, const DkvOctetstring* content, DkvOctetstring** bytes);
/* Encryption for the recipients of a list, and back with the key of one profile. */
DKV_API int DkvEnvelope(const char* format, const DkvOctetstring* content,
                        const SigRcpDkvInfoList* recipients, DkvOctetstring** envelope);
DKV_API int DkvDevelope(const char* format, const DkvOctetstring* envelope, const SigRcpDkvInfo* recipient,
                        DkvOctetstring** content);
/* Adds a second signer to a signature. */
DKV_API int DkvAddSign(const char* format, const char* hashAlgorithm, const DkvOctetstring* signature,
                       const DkvOctetstring* content, const SigRcpDkvInfo* signer, DkvOctetstring** extended);
/* DkvSign and DkvVerify with further named parameters. */
DKV_API int DkvSignEx(const char* format, const char* hashAlgorithm, const DkvOctetstring* content,
                      const SigRcpDkvInfo* signer, const DkvParameter* parameter, DkvOctetstring** signature);
DKV_API int DkvVerifyEx(const char* format, const DkvOctetstring* content, const DkvOctetstring* signature,
                        const SigRcpDkvInfo* key, const DkvParameter* parameter, SigRcpDkvInfoList** signers);
/* An open profile, whatever the library makes of it. */
DKV_API int DkvOpenProfile(const char* profile, const char* password, void** handle);
DKV_API int DkvCloseProfile(void* handle);
DKV_API int DkvCreateProfile(const char* profile, const char* password, const DkvParameter* parameter);
/* The bytes of a profile file, and a profile file of bytes. */
DKV_API int DkvReadPse(const char* profile, DkvOctetstring** bytes);
DKV_API int DkvStorePse(const char* profile, const DkvOctetstring* bytes);
/* Checks one list's signature. */
DKV_API int DkvVerifyCRL(const DkvOctetstring* crl, const DkvCertificate* issuer);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* TOLVEN_SIGNING_CRYPTO_DKV_H_ */
