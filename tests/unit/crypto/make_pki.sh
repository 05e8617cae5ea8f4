#!/bin/sh
# Builds a small certificate world for the tests with the openssl command, so that nothing of it can expire in the
# repository. Usage: make_pki.sh DIRECTORY
#
#   root -> inter -> signers, time stamp authorities       foreign: another root with a signer and an authority
#        -> tls_ca, code_ca -> signers of their names       cross: inter's key, certified by the foreign root
#   twin: an authority with inter's name and another key    tsa_root: for time stamps only -> its_tsa
set -eu
cd "$1"

cat >pki.cnf <<'CONFIG'
[req]
distinguished_name = name
prompt = no
[name]
[ca]
default_ca = inter_db
[inter_db]
database = index.txt
new_certs_dir = .
serial = serial
certificate = inter.crt
private_key = inter.key
default_md = sha256
default_days = 365
default_crl_days = 30
crlnumber = crlnumber
crl_extensions = crl_ext
policy = policy
unique_subject = no
[twin_db]
database = index.txt
certificate = twin.crt
private_key = twin.key
default_md = sha256
default_crl_days = 30
crlnumber = crlnumber
[root_db]
database = index.txt
new_certs_dir = .
serial = serial
certificate = root.crt
private_key = root.key
default_md = sha256
default_days = 3650
policy = policy
unique_subject = no
[policy]
commonName = supplied
[crl_ext]
authorityKeyIdentifier = keyid
[authority]
basicConstraints = critical, CA:TRUE
keyUsage = critical, keyCertSign, cRLSign
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid
[tls_authority]
basicConstraints = critical, CA:TRUE
keyUsage = critical, keyCertSign, cRLSign
extendedKeyUsage = serverAuth
[code_authority]
basicConstraints = critical, CA:TRUE
keyUsage = critical, keyCertSign, cRLSign
extendedKeyUsage = codeSigning
[tsa_authority]
basicConstraints = critical, CA:TRUE
keyUsage = critical, keyCertSign, cRLSign
extendedKeyUsage = timeStamping
subjectKeyIdentifier = hash
[delta_ext]
authorityKeyIdentifier = keyid
2.5.29.27 = critical, ASN1:INTEGER:2
[gap_ext]
authorityKeyIdentifier = keyid
2.5.29.27 = critical, ASN1:INTEGER:100
[signer]
basicConstraints = critical, CA:FALSE
keyUsage = critical, digitalSignature
extendedKeyUsage = codeSigning
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid
[plain]
subjectKeyIdentifier = hash
[mailer]
keyUsage = critical, digitalSignature
extendedKeyUsage = emailProtection
[sealer]
keyUsage = critical, keyEncipherment
extendedKeyUsage = codeSigning
[critical_unknown]
keyUsage = critical, digitalSignature
1.2.3.4.5 = critical, DER:0500
[tsa]
keyUsage = critical, digitalSignature
extendedKeyUsage = critical, timeStamping
[tsa_uncritical]
keyUsage = critical, digitalSignature
extendedKeyUsage = timeStamping
[tsa_mixed]
keyUsage = critical, digitalSignature
extendedKeyUsage = critical, timeStamping, codeSigning
[server]
extendedKeyUsage = serverAuth
subjectAltName = DNS:tsa.test, IP:127.0.0.1
[tsa_reply]
serial = tsserial
crypto_device = builtin
default_policy = 1.2.3.4.1
digests = sha256
signer_digest = sha256
ess_cert_id_chain = no
CONFIG
: >index.txt
echo 1000 >serial
echo 01 >crlnumber
echo 01 >tsserial

ec_key() { openssl ecparam -name prime256v1 -genkey -noout -out "$1.key"; }

self_signed() { # NAME SUBJECT EXTENSIONS
  ec_key "$1"
  openssl req -new -x509 -config pki.cnf -extensions "$3" -subj "$2" -key "$1.key" -days 3650 -out "$1.crt"
}

# The certificate of an existing key, by the intermediate authority.
issue() { # NAME EXTENSIONS [options of openssl ca]
  name=$1 extensions=$2
  shift 2
  openssl req -new -config pki.cnf -subj "/CN=$name" -key "$name.key" -out "$name.csr"
  openssl ca -config pki.cnf -batch -notext -extensions "$extensions" -in "$name.csr" -out "$name.crt" "$@"
}

sub_authority() { # NAME SUBJECT [EXTENSIONS]
  ec_key "$1"
  openssl req -new -config pki.cnf -subj "$2" -key "$1.key" -out "$1.csr"
  openssl x509 -req -in "$1.csr" -CA root.crt -CAkey root.key -CAcreateserial -days 3650 -extfile pki.cnf \
    -extensions "${3:-authority}" -out "$1.crt"
}

{
  self_signed root "/CN=Test Root" authority
  sub_authority inter "/CN=Test Intermediate"
  sub_authority twin "/CN=Test Intermediate"
  sub_authority tls_ca "/CN=TLS Intermediate" tls_authority
  sub_authority code_ca "/CN=Code Intermediate" code_authority
  self_signed foreign "/CN=Foreign Root" authority
  self_signed tsa_root "/CN=Time Root" tsa_authority
  self_signed lonely "/CN=Lonely Signer" signer
  # The namesake of "lonely" with another key and no key identifiers: only the signature tells them apart.
  self_signed namesake "/CN=Lonely Signer" plain

  for name in signer revoked mailer sealer plain critical_unknown tsa tsa_uncritical tsa_mixed expired future sha1 \
    server late; do
    ec_key "$name"
  done
  openssl genrsa -out weak.key 1024
  openssl genrsa -out rsa.key 2048
  openssl genpkey -algorithm RSA-PSS -pkeyopt rsa_keygen_bits:2048 -out pss.key
  openssl genpkey -algorithm RSA-PSS -pkeyopt rsa_keygen_bits:2048 -pkeyopt rsa_pss_keygen_md:sha256 \
    -pkeyopt rsa_pss_keygen_mgf1_md:sha256 -pkeyopt rsa_pss_keygen_saltlen:32 -out pss256.key
  openssl genpkey -algorithm ed25519 -out ed25519.key
  issue signer signer
  issue rsa signer
  issue revoked signer
  issue mailer mailer
  issue sealer sealer
  issue plain plain
  issue critical_unknown critical_unknown
  cp tsa.key tsa_old.key
  issue tsa_old tsa -startdate 20150101000000Z -enddate 20200101000000Z
  issue tsa tsa
  issue tsa_uncritical tsa_uncritical
  issue tsa_mixed tsa_mixed
  issue expired signer -startdate 20150101000000Z -enddate 20200101000000Z
  issue future signer -startdate 20990101000000Z -enddate 20991231000000Z
  issue sha1 signer -md sha1
  issue weak signer
  issue server server
  issue late signer
  for name in pss pss256 ed25519; do issue "$name" signer; done

  # Renewals: other certificates of keys that are in use, of the same name.
  again() { # NAME FILE EXTENSIONS [options of openssl ca]
    name=$1 file=$2 extensions=$3
    shift 3
    openssl ca -config pki.cnf -batch -notext -extensions "$extensions" -in "$name.csr" -out "$file" "$@"
  }
  again signer signer_old.crt signer -startdate 20150101000000Z -enddate 20200101000000Z
  again signer signer_mail.crt mailer -days 4000
  again signer signer_long.crt signer -days 800
  again inter inter_old.crt authority -name root_db -startdate 20150101000000Z -enddate 20200101000000Z
  serial_of_lonely=$(openssl x509 -in lonely.crt -noout -serial | sed 's/.*=/0x/')
  openssl req -new -x509 -config pki.cnf -extensions signer -subj "/CN=Lonely Signer" -key ed25519.key -days 30 \
    -set_serial "$serial_of_lonely" -out ed25519_namesake.crt

  # A signer of the foreign root, one that a mere signer issued, and a time stamp authority nobody trusts.
  for name in stranger child stranger_tsa tls_issued code_issued its_tsa its_signer; do
    ec_key "$name"
    openssl req -new -config pki.cnf -subj "/CN=$name" -key "$name.key" -out "$name.csr"
  done
  by() { # NAME AUTHORITY EXTENSIONS
    openssl x509 -req -in "$1.csr" -CA "$2.crt" -CAkey "$2.key" -CAcreateserial -days 365 -extfile pki.cnf \
      -extensions "$3" -out "$1.crt"
  }
  by stranger foreign signer
  by stranger_tsa foreign tsa
  by child signer signer
  by tls_issued tls_ca signer
  by code_issued code_ca signer
  by its_tsa tsa_root tsa
  by its_signer tsa_root signer
  cp inter.csr cross.csr
  by cross foreign authority
  cat signer.crt inter.crt >chain.crt

  # Lists: fresh, outdated, of the root (foreign to our signers), and by the twin, whose name is right.
  # They have numbers in this order; the base of delta.crl is fresh.crl.
  openssl ca -config pki.cnf -revoke revoked.crt -crl_reason keyCompromise
  openssl ca -config pki.cnf -gencrl -crl_lastupdate 20200101000000Z -crl_nextupdate 20200201000000Z \
    -out early.crl
  openssl ca -config pki.cnf -gencrl -out fresh.crl
  openssl ca -config pki.cnf -gencrl -md sha1 -out sha1.crl
  openssl ca -config pki.cnf -gencrl -crl_lastupdate 20200101000000Z -crl_nextupdate 20200201000000Z \
    -out outdated.crl
  openssl ca -config pki.cnf -name twin_db -gencrl -out twin.crl
  openssl ca -config pki.cnf -name twin_db -cert foreign.crt -keyfile foreign.key -gencrl -out foreign.crl
  cp index.txt index.revoked
  : >index.txt
  openssl ca -config pki.cnf -gencrl -out forgetful.crl
  cp index.revoked index.txt
  openssl ca -config pki.cnf -revoke late.crt
  openssl ca -config pki.cnf -gencrl -crlexts delta_ext -out delta.crl
  openssl ca -config pki.cnf -gencrl -crlexts gap_ext -out gap.crl
  openssl ca -config pki.cnf -gencrl -crlexts delta_ext -crl_lastupdate 20200101000000Z \
    -crl_nextupdate 20200201000000Z -out delta_outdated.crl
  openssl ca -config pki.cnf -gencrl -out newer.crl
  openssl crl -in fresh.crl -outform DER -out fresh.der
  openssl crl -in foreign.crl -outform DER -out foreign.der
  cat foreign.crl fresh.crl >both.crl
  cat foreign.der fresh.der >both.der

  # Profiles.
  mkdir sec
  cat root.crt >sec/QELverify.pse
  cat root.crt >sec/QELtimestamp.pse
  cat root.crt >trust.pse
  cat root.crt foreign.crt >both.pse
  cat expired.crt signer.crt tsa_old.crt >old.pse
  cat foreign.crt >other.pse
  cat signer.key signer.crt inter.crt root.crt >signer.pse
  cat lonely.key lonely.crt >lonely.pse
  cat namesake.crt >namesake.pse
  cat ed25519_namesake.crt >ed25519_namesake.pse
  cat inter_old.crt >inter_old.pse
  for name in tls_ca tsa tsa_root; do cat "$name.crt" >"$name.pse"; done
  cat inter_old.crt root.crt >renewed_trust.pse
  cat signer_old.crt root.crt >old_signer.pse
  cat signer.key signer_old.crt signer_mail.crt signer.crt signer_long.crt inter.crt root.crt >renewed.pse
  cat signer.key signer.crt >alone.pse
  cat signer.key signer.crt root.crt >gap.pse
  cat signer.key signer.crt cross.crt inter.crt >cross.pse
  for name in expired future weak mailer sealer plain rsa pss pss256 ed25519; do
    cat "$name.key" "$name.crt" inter.crt root.crt >"$name.pse"
  done
  openssl pkcs12 -export -inkey signer.key -in signer.crt -certfile inter.crt -passout pass:secret -out signer.p12
  openssl pkcs12 -export -inkey signer.key -in signer.crt -passout pass: -out empty.p12
  openssl pkcs12 -export -legacy -inkey signer.key -in signer.crt -certfile inter.crt -passout pass:secret \
    -out legacy.p12
  openssl ec -des -provider default -provider legacy -in signer.key -passout pass:secret -out des.key
  cat des.key signer.crt >des.pse
  openssl pkcs8 -topk8 -in signer.key -passout pass:secret -out enc.key
  cat enc.key signer.crt inter.crt >encrypted.pse
  cat signer.key lonely.crt >mismatch.pse
  cat signer.key lonely.key signer.crt >twokeys.pse
  cat signer.key >keyonly.pse
  echo nonsense >nonsense.pse
  : >empty.pse
  sed '3s/./-/10' signer.crt >damaged.pse
} >make_pki.log 2>&1
