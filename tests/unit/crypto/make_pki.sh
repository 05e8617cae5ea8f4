#!/bin/sh
# Builds a small certificate world for the tests with the openssl command, so that nothing of it can expire in the
# repository. Usage: make_pki.sh DIRECTORY
#
#   root -> inter -> signers, time stamp authorities       foreign: another root with a signer and an authority
#   twin: an authority with inter's name and another key
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
[policy]
commonName = supplied
[crl_ext]
authorityKeyIdentifier = keyid
[authority]
basicConstraints = critical, CA:TRUE
keyUsage = critical, keyCertSign, cRLSign
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid
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

sub_authority() { # NAME SUBJECT
  ec_key "$1"
  openssl req -new -config pki.cnf -subj "$2" -key "$1.key" -out "$1.csr"
  openssl x509 -req -in "$1.csr" -CA root.crt -CAkey root.key -CAcreateserial -days 3650 -extfile pki.cnf \
    -extensions authority -out "$1.crt"
}

{
  self_signed root "/CN=Test Root" authority
  sub_authority inter "/CN=Test Intermediate"
  sub_authority twin "/CN=Test Intermediate"
  self_signed foreign "/CN=Foreign Root" authority
  self_signed lonely "/CN=Lonely Signer" signer
  # The namesake of "lonely" with another key and no key identifiers: only the signature tells them apart.
  self_signed namesake "/CN=Lonely Signer" plain

  for name in signer revoked mailer sealer plain critical_unknown tsa tsa_uncritical tsa_mixed expired future sha1 \
    server; do
    ec_key "$name"
  done
  openssl genrsa -out weak.key 1024
  openssl genrsa -out rsa.key 2048
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

  # A signer of the foreign root, one that a mere signer issued, and a time stamp authority nobody trusts.
  for name in stranger child stranger_tsa; do
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
  cat signer.crt inter.crt >chain.crt

  # Lists: fresh, outdated, of the root (foreign to our signers), and by the twin, whose name is right.
  openssl ca -config pki.cnf -revoke revoked.crt -crl_reason keyCompromise
  openssl ca -config pki.cnf -gencrl -out fresh.crl
  openssl ca -config pki.cnf -gencrl -md sha1 -out sha1.crl
  openssl ca -config pki.cnf -gencrl -crl_lastupdate 20200101000000Z -crl_nextupdate 20200201000000Z \
    -out outdated.crl
  openssl ca -config pki.cnf -name twin_db -gencrl -out twin.crl
  openssl ca -config pki.cnf -name twin_db -cert foreign.crt -keyfile foreign.key -gencrl -out foreign.crl
  openssl crl -in fresh.crl -outform DER -out fresh.der
  openssl crl -in foreign.crl -outform DER -out foreign.der
  cat foreign.crl fresh.crl >both.crl
  cat foreign.der fresh.der >both.der

  # Profiles.
  mkdir sec
  cat root.crt >sec/QELverify.pse
  cat root.crt >trust.pse
  cat root.crt foreign.crt >both.pse
  cat expired.crt signer.crt tsa_old.crt >old.pse
  cat foreign.crt >other.pse
  cat signer.key signer.crt inter.crt root.crt >signer.pse
  cat lonely.key lonely.crt >lonely.pse
  cat namesake.crt >namesake.pse
  for name in expired future weak mailer sealer plain rsa; do
    cat "$name.key" "$name.crt" inter.crt root.crt >"$name.pse"
  done
  openssl pkcs12 -export -inkey signer.key -in signer.crt -certfile inter.crt -passout pass:secret -out signer.p12
  openssl pkcs12 -export -inkey signer.key -in signer.crt -passout pass: -out empty.p12
  openssl pkcs8 -topk8 -in signer.key -passout pass:secret -out enc.key
  cat enc.key signer.crt >encrypted.pse
  cat signer.key lonely.crt >mismatch.pse
  cat signer.key lonely.key signer.crt >twokeys.pse
  cat signer.key >keyonly.pse
  echo nonsense >nonsense.pse
  : >empty.pse
  sed '3s/./-/10' signer.crt >damaged.pse
} >make_pki.log 2>&1
