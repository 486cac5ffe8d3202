# shellcheck shell=bash
# Keys and certificates that every row puts on its token. To be sourced.

# make_keys DIR: a root, and what it has issued, as NAME.key and NAME.pem:
#   anna  digital signature, non-repudiation      carl  the same
#   ben   key encipherment                        dora  no key usage
make_keys() (
  cd -- "$1" || exit
  cat >openssl.cnf <<'END'
[req]
distinguished_name = subject
string_mask = utf8only
[subject]
[root]
basicConstraints = critical, CA:TRUE
keyUsage = critical, keyCertSign, cRLSign
[person]
basicConstraints = critical, CA:FALSE
END
  certify() {
    local name=$1 common_name=$2
    shift 2
    # Who calls may be in a condition, where bash does not end at the first failure by itself.
    openssl req -x509 -config openssl.cnf -noenc -newkey rsa:2048 -days 730 -keyout "$name.key" \
      -out "$name.pem" -subj "/C=DE/O=Example/CN=$common_name" "$@" 2>>openssl.log || {
      cat openssl.log >&2
      exit 1
    }
    openssl x509 -in "$name.pem" -outform DER -out "$name.der" || exit
  }
  local issued=(-CA ca.pem -CAkey ca.key -extensions person)
  certify ca "Example CA" -extensions root
  certify anna "Anna Albers" "${issued[@]}" -addext "keyUsage=critical,digitalSignature,nonRepudiation"
  certify ben "Ben Brandt" "${issued[@]}" -addext "keyUsage=critical,keyEncipherment"
  certify carl "Carl Conrad" "${issued[@]}" -addext "keyUsage=critical,digitalSignature,nonRepudiation"
  certify dora "Dora Döring" -utf8 "${issued[@]}"
)
