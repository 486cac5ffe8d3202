# shellcheck shell=bash
# A token of SoftHSM's with two keys, for the rows that stand on it. To be sourced.
softhsm=$(find_library /usr/lib/softhsm/libsofthsm2.so "$multiarch/softhsm/libsofthsm2.so")
pin=123456
so_pin=87654321
new_pin=654321
label="Example token (PIN 1)"

make_softhsm_token() {
  mkdir "$dir/tokens"
  cat >"$dir/softhsm2.conf" <<END
directories.tokendir = $dir/tokens
objectstore.backend = file
log.level = ERROR
END
  export SOFTHSM2_CONF=$dir/softhsm2.conf
  softhsm2-util --init-token --free --label "$label" --pin $pin --so-pin $so_pin >>"$dir/log"
  local name id=1
  for name in anna ben; do
    softhsm2-util --import "$keys/$name.key" --token "$label" --label $name --id 0$id --pin $pin >>"$dir/log"
    write_certificate "$softhsm" $name 0$id
    id=$((id + 1))
  done
  certificates=(anna ben)
  signers=(anna ben)
}

# write_certificate LIBRARY NAME ID
write_certificate() {
  pkcs11-tool --module "$1" --token-label "$label" --login --pin $pin --write-object "$keys/$2.der" \
    --type cert --id "$3" --label "$2" >>"$dir/log" 2>&1
}
