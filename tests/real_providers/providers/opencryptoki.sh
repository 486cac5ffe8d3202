# shellcheck shell=bash
# openCryptoki's software token, with private mounts on its fixed folders.
set_up() {
  pin=123456 so_pin=12345678 new_pin=654321 label=example
  mkdir -p "$dir/etc" "$dir/var/swtok/TOK_OBJ" /run/lock/opencryptoki/swtok /run/opencryptoki
  printf 'version opencryptoki-3.8\nslot 3 {\n  stdll = libpkcs11_sw.so\n}\n' >"$dir/etc/opencryptoki.conf"
  chgrp -R pkcs11 "$dir/var" /run/lock/opencryptoki /run/opencryptoki
  chmod -R g+rwx "$dir/var" /run/lock/opencryptoki /run/opencryptoki
  chmod 755 "$dir"
  mount --bind "$dir/etc" /etc/opencryptoki
  mount --bind "$dir/var" /var/lib/opencryptoki
  start_respawning pkcsslotd pkcsslotd -f
  module=$(find_library "$multiarch/pkcs11/libopencryptoki.so")
  wait_until "pkcsslotd" slot_daemon_answers
  {
    printf '87654321\n%s\n' $label | pkcsconf -I -c 3
    printf '87654321\n%s\n%s\n' $so_pin $so_pin | pkcsconf -P -c 3
    printf '%s\n11111111\n11111111\n' $so_pin | pkcsconf -u -c 3
    printf '11111111\n%s\n%s\n' $pin $pin | pkcsconf -p -c 3
    local name id=1
    for name in anna ben; do
      openssl pkcs8 -topk8 -nocrypt -in "$keys/$name.key" -outform DER -out "$dir/$name.p8"
      pkcs11-tool --module "$module" --slot 3 --login --pin $pin --write-object "$dir/$name.p8" --type privkey --id 0$id --label $name
      pkcs11-tool --module "$module" --slot 3 --login --pin $pin --write-object "$keys/$name.der" --type cert --id 0$id --label $name
      id=$((id + 1))
    done
  } >>"$dir/log" 2>&1
  certificates=(anna ben)
  signers=(anna ben)
  remove_token_with 'touch pkcsslotd.away; xargs kill -KILL <pkcsslotd.pid'
  restore_token_with 'rm pkcsslotd.away; sleep 0.3'
}

slot_daemon_answers() {
  pkcsconf -t -c 3 >/dev/null 2>&1
}
