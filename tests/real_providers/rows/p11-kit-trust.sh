# shellcheck shell=bash
# p11-kit's trust module: the machine's root certificates, and no key at all. Its source is a file that
# is fixed when it is built.
set_up() {
  local bundle=/etc/ssl/certs/ca-certificates.crt number=0 name
  cp "$bundle" "$dir/roots"
  mount --bind "$dir/roots" "$bundle"
  module=$(find_library "$multiarch/pkcs11/p11-kit-trust.so")
  pin=none so_pin=none new_pin=none
  keys=$dir/pem
  mkdir "$keys"
  # One file for each certificate, less what the component leaves out: those without an RSA key.
  awk -v keys="$keys" '/BEGIN CERT/ {name = keys "/root" ++count ".pem"} name {print > name} /END CERT/ {close(name); name = ""}' "$dir/roots"
  certificates=()
  for name in "$keys"/*.pem; do
    if openssl x509 -in "$name" -noout -text | grep -q 'Public Key Algorithm: rsaEncryption'; then
      name=${name##*/}
      certificates+=("${name%.pem}")
    fi
  done
  signers=("${certificates[0]}")
  take_away 'cp roots roots.kept && : >roots'
  bring_back 'cat roots.kept >roots'
}
