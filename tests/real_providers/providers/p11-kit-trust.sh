# shellcheck shell=bash
# p11-kit's trust module: the machine's root certificates, without keys. It reads them from a file with
# a fixed path.
set_up() {
  local bundle=/etc/ssl/certs/ca-certificates.crt number=0 name
  cp "$bundle" "$dir/roots"
  mount --bind "$dir/roots" "$bundle"
  module=$(find_library "$multiarch/pkcs11/p11-kit-trust.so")
  pin=none so_pin=none new_pin=none
  keys=$dir/pem
  mkdir "$keys"
  # One file for each certificate. The component leaves out those without an RSA key.
  awk -v keys="$keys" '
    /BEGIN CERT/ {name = keys "/root" ++count ".pem"}
    name {print > name}
    /END CERT/ {close(name); name = ""}' "$dir/roots"
  certificates=()
  for name in "$keys"/*.pem; do
    if openssl x509 -in "$name" -noout -text | grep -q 'Public Key Algorithm: rsaEncryption'; then
      name=${name##*/}
      certificates+=("${name%.pem}")
    fi
  done
  signers=("${certificates[0]}")
  remove_token_with 'cp roots roots.kept && : >roots'
  restore_token_with 'cat roots.kept >roots'
}
