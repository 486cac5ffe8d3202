# shellcheck shell=bash
# NSS's token, softokn. It needs its folder as an argument of C_Initialize, which p11-kit's proxy passes.
# Its PIN is the password of its database.
. "$here/common/p11-kit.sh"

set_up() {
  pin=123456 so_pin=87654321 new_pin=654321
  mkdir "$dir/nss"
  printf '%s\n' $pin >"$dir/password"
  certutil -N -d "sql:$dir/nss" -f "$dir/password"
  local name
  for name in anna ben; do
    openssl pkcs12 -export -in "$keys/$name.pem" -inkey "$keys/$name.key" -name $name \
      -passout pass:moving -out "$dir/$name.p12"
    pk12util -i "$dir/$name.p12" -d "sql:$dir/nss" -k "$dir/password" -W moving >>"$dir/log"
  done
  certificates=(anna ben)
  signers=(anna ben)
  use_proxy "module: $(find_library "$multiarch/libsoftokn3.so" "$multiarch/nss/libsoftokn3.so")" \
    "x-init-reserved: configdir='sql:$dir/nss' certPrefix='' keyPrefix='' secmod='secmod.db' flags="
  remove_token_with 'mv nss nss.away'
  restore_token_with 'mv nss.away nss'
}
