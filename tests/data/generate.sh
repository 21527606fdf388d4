#!/bin/sh
# Makes the messages below this directory with the openssl command, an implementation that is not ours.
# Each scenario is a folder: content.bin or the content of the scenario, messages around it, and in pki/ the
# keys and certificates of all. Run it from anywhere; it replaces what it made before. Signatures and keys
# differ from run to run, what the tests read out of them does not.
set -eu
cd "$(dirname "$0")"

rm -rf pki signed enveloped digested other
mkdir pki signed enveloped digested other

# --- pki: a root, two signers, two recipients, a recipient with a name that is not ASCII, an EC key
year=$((365 * 100))
openssl req -x509 -newkey rsa:2048 -nodes -keyout pki/root.key -out pki/root.pem -days $year \
  -subj "/C=DE/O=Example/CN=Root" -addext basicConstraints=critical,CA:TRUE 2>/dev/null

issue() { # name subject serial key-options...
  name=$1 subject=$2 serial=$3
  shift 3
  openssl req -newkey "$@" -nodes -keyout "pki/$name.key" -out pki/request.pem -utf8 -subj "$subject" 2>/dev/null
  openssl x509 -req -in pki/request.pem -CA pki/root.pem -CAkey pki/root.key -set_serial "$serial" \
    -days $year -out "pki/$name.pem" -extfile pki/extensions 2>/dev/null
}
printf 'subjectKeyIdentifier=hash\nauthorityKeyIdentifier=keyid\n' > pki/extensions
issue signer "/O=Example/CN=Signer" 0x0A3F rsa:2048
issue signer2 "/O=Example/CN=Second Signer" 0x1001 rsa:2048
issue room "/O=Example/CN=Room" 0x8F01 rsa:2048
issue room2 "/O=Example/CN=Second Room" 0x7B rsa:2048
issue ec "/O=Example/CN=Curve" 0x22 ec -pkeyopt ec_paramgen_curve:P-256

# An issuer whose name needs both kinds of escapes of RFC 2253, and characters outside ASCII.
openssl req -x509 -newkey rsa:2048 -nodes -keyout pki/umlaut.key -out pki/umlaut.pem -days $year -utf8 \
  -set_serial 0x00F00D -subj "/O=Bäcker, Söhne \+ Co/CN=Zürich \"1\"" 2>/dev/null
rm pki/request.pem pki/extensions

# --- content: longer than the segments of the openssl command
i=0
while [ $i -lt 320 ]; do
  printf 'line %04d of the content\r\n\001\377' $i
  i=$((i + 1))
done > content.bin

# --- signed
sign() { # name options...
  name=$1
  shift
  openssl cms -sign -binary -in content.bin -outform DER -out "signed/$name.cms" -inkey pki/signer.key \
    -signer pki/signer.pem "$@"
}
sign definite -nodetach -md sha512
sign stream -nodetach -stream -md sha512
sign sha256 -nodetach -md sha256
sign sha3-256 -nodetach -md sha3-256
sign md5 -nodetach -md md5
sign pss -nodetach -md sha512 -keyopt rsa_padding_mode:pss
sign keyid -nodetach -keyid
sign detached
sign noattributes -nodetach -noattr
sign nocertificate -nodetach -nocerts
sign othertype -nodetach -econtent_type 1.2.3.4
openssl cms -sign -binary -nodetach -in content.bin -outform DER -out signed/ec.cms -inkey pki/ec.key \
  -signer pki/ec.pem -md sha384
openssl cms -resign -in signed/definite.cms -inform DER -outform DER -out signed/two.cms \
  -inkey pki/signer2.key -signer pki/signer2.pem -md sha512
openssl cms -sign -binary -nodetach -in content.bin -outform PEM -out signed/pem.txt -inkey pki/signer.key \
  -signer pki/signer.pem

# --- enveloped
envelope() { # name options... recipients
  name=$1
  shift
  openssl cms -encrypt -binary -in content.bin -outform DER -out "enveloped/$name.cms" "$@"
}
envelope definite -aes256 pki/room.pem
envelope stream -stream -aes256 pki/room.pem
envelope aes128 -aes128 pki/room.pem
envelope aes192 -aes192 pki/room.pem
envelope des3 -des3 pki/room.pem
envelope camellia -camellia256 pki/room.pem
envelope two -aes256 pki/room.pem pki/room2.pem
envelope keyid -aes256 -keyid pki/room.pem
envelope oaep -aes256 -recip pki/room.pem -keyopt rsa_padding_mode:oaep
envelope umlaut -aes256 pki/umlaut.pem
envelope agreement -aes256 -recip pki/ec.pem
envelope password -aes256 -pwri_password secret
envelope kek -aes256 -secretkey 000102030405060708090A0B0C0D0E0F -secretkeyid C0FEE0
envelope mixed -aes256 -recip pki/room.pem -recip pki/ec.pem
envelope authenticated -aes-256-gcm pki/room.pem

# --- nested as a protected file is
openssl cms -encrypt -binary -stream -aes256 -in signed/stream.cms -outform DER -out enveloped/nested.cms \
  pki/room.pem

# --- digested
openssl cms -digest_create -binary -md sha256 -in content.bin -outform DER -out digested/definite.cms
openssl cms -digest_create -binary -stream -md sha256 -in content.bin -outform DER \
  -out digested/stream.cms

# --- other content types
openssl cms -data_create -binary -in content.bin -outform DER -out other/data.cms
openssl cms -EncryptedData_encrypt -binary -in content.bin -outform DER -out other/encrypted.cms -aes128 \
  -secretkey 000102030405060708090A0B0C0D0E0F
