#!/bin/sh
# Makes the SoftHSM tokens that the tests of the program use, with keys and certificates of openssl's:
#   make_token.sh FOLDER SOFTHSM_LIBRARY
# FOLDER gets NAME.key, NAME.pem and NAME.der (the certificate), and tokens/, which works wherever it
# is copied to.
# PIN 1234, SO PIN 87654321.
#
#   name    serial   key        what it is for
#   ca      10       RSA 2048   a CA that may sign certificates and CRLs; issuer of all others
#   sign    4fa107   RSA 2048   key usage digitalSignature, nonRepudiation; UTF-8 and a comma in its
#                               name; on both tokens
#   plain   00f1e2   RSA 2048   no key usage; a serial with its highest bit set, so that it is encoded
#                               with a zero byte before it
#   twin    00f1e2   RSA 1024   on the second token: another certificate with the serial of plain
#   rsa1024 1024     RSA 1024   the lengths that signatures are checked with
#   rsa3072 3072     RSA 3072
#   rsa4096 4096     RSA 4096
#   evil    666666   RSA 1024   a name that tries to steer the terminal
#   ec      0c25     EC P-256   no RSA key, so that it is not listed
#   keyless 6e6f     RSA 1024   a certificate whose private key is on no token
#   curve   4fa107   EC P-256   on no token: a certificate with the serial of sign
set -eu
out=$1
library=$2

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/tokens"
printf 'directories.tokendir = %s/tokens\nobjectstore.backend = file\nlog.level = ERROR\n' \
  "$work" >"$work/softhsm2.conf"
export SOFTHSM2_CONF="$work/softhsm2.conf"

quietly() {
  "$@" >"$work/log" 2>&1 || {
    cat "$work/log" >&2
    exit 1
  }
}

# certificate NAME SERIAL SUBJECT KEY [EXTENSION]...
certificate() {
  name=$1 serial=$2 subject=$3 key=$4
  shift 4
  for extension in "$@"; do
    shift
    set -- "$@" -addext "$extension"
  done
  [ "$name" = ca ] || set -- "$@" -CA "$work/ca.pem" -CAkey "$work/ca.key"
  case $key in
    rsa:*) quietly openssl genrsa -out "$work/$name.key" "${key#rsa:}" ;;
    ec:*) quietly openssl ecparam -genkey -noout -name "${key#ec:}" -out "$work/$name.key" ;;
  esac
  quietly openssl req -x509 -new -key "$work/$name.key" -set_serial "0x$serial" -days 36500 -utf8 \
    -subj "$subject" "$@" -out "$work/$name.pem"
  openssl x509 -in "$work/$name.pem" -outform DER -out "$work/$name.der"
}

# token LABEL NAME...
token() {
  label=$1
  shift
  quietly softhsm2-util --init-token --free --label "$label" --so-pin 87654321 --pin 1234
  id=0
  for name in "$@"; do
    id=$((id + 1))
    hex_id=$(printf '%02x' "$id")
    openssl pkcs8 -topk8 -nocrypt -in "$work/$name.key" -out "$work/key.p8"
    [ "$name" = keyless ] || quietly softhsm2-util --import "$work/key.p8" --token "$label" \
      --label "$name" --id "$hex_id" --pin 1234
    quietly pkcs11-tool --module "$library" --token-label "$label" --login --pin 1234 \
      --write-object "$work/$name.der" --type cert --label "$name" --id "$hex_id"
  done
}

end_entity=basicConstraints=CA:FALSE
certificate ca 10 "/O=Example/CN=Example CA" rsa:2048 keyUsage=keyCertSign,cRLSign
certificate sign 4fa107 "/O=Example, Ltd/CN=Jürgen 山田" rsa:2048 $end_entity \
  keyUsage=digitalSignature,nonRepudiation
certificate plain f1e2 "/O=Example/CN=Plain" rsa:2048 $end_entity
certificate twin f1e2 "/O=Example/CN=Twin" rsa:1024 $end_entity
certificate rsa1024 1024 "/CN=Short" rsa:1024 $end_entity
certificate rsa3072 3072 "/CN=Longer" rsa:3072 $end_entity
certificate rsa4096 4096 "/CN=Long" rsa:4096 $end_entity
certificate evil 666666 "$(printf '/CN=Evil\033[2J\342\200\256txt.exe')" rsa:1024 $end_entity
certificate ec 0c25 "/CN=Curve" ec:prime256v1 $end_entity keyUsage=digitalSignature
certificate keyless 6e6f "/CN=Keyless" rsa:1024 $end_entity
certificate curve 4fa107 "/CN=Another" ec:prime256v1 $end_entity

token first ca sign plain rsa1024 rsa3072 rsa4096 evil ec keyless
token second sign twin

rm -rf "$out"
mkdir -p "$out"
cp -R "$work/tokens" "$work"/*.key "$work"/*.pem "$work"/*.der "$out"
