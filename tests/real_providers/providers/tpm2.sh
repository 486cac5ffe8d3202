# shellcheck shell=bash
# A TPM emulated by swtpm. It has room for three transient objects and no resource manager, so each of
# the tools is replaced by a wrapper that flushes them afterwards.
set_up() {
  pin=123456 so_pin=87654321 new_pin=654321 label=example
  local port name
  port=$(free_ports)
  mkdir "$dir/tpm" "$dir/store" "$dir/bin"
  cat >"$dir/bin/flushing" <<'END'
#!/bin/sh
status=0
"/usr/bin/${0##*/}" "$@" || status=$?
/usr/bin/tpm2_flushcontext -t >/dev/null 2>&1
exit $status
END
  chmod +x "$dir/bin/flushing"
  for name in tpm2_create tpm2_createprimary tpm2_evictcontrol tpm2_import tpm2_load tpm2_sign; do
    ln -s flushing "$dir/bin/$name"
  done
  start_respawning swtpm swtpm socket --tpm2 --tpmstate "dir=$dir/tpm" --flags not-need-init,startup-clear \
    --server "type=tcp,port=$port,disconnect" --ctrl "type=tcp,port=$((port + 1))"
  wait_until "swtpm's port" listens "$port"
  export TPM2_PKCS11_STORE=$dir/store TPM2_PKCS11_LOG_LEVEL=0
  export TPM2_PKCS11_TCTI=swtpm:host=127.0.0.1,port=$port TPM2TOOLS_TCTI=swtpm:host=127.0.0.1,port=$port
  module=$(find_library "$multiarch/pkcs11/libtpm2_pkcs11.so")
  {
    local PATH=$dir/bin:$PATH
    tpm2_ptool init --path "$dir/store"
    tpm2_ptool addtoken --path "$dir/store" --pid 1 --label $label --userpin $pin --sopin $so_pin
    for name in anna ben; do
      tpm2_ptool import --path "$dir/store" --label $label --key-label $name --userpin $pin \
        --privkey "$keys/$name.key" --algorithm rsa
      tpm2_ptool addcert --path "$dir/store" --label $label --key-label $name "$keys/$name.pem"
    done
  } >>"$dir/log" 2>&1
  certificates=(anna ben)
  signers=(anna ben)
  remove_token_with 'touch swtpm.away; xargs kill -KILL <swtpm.pid'
  # A TPM that loses power during an operation counts that as an attack.
  restore_token_with 'rm swtpm.away; sleep 0.3; tpm2_dictionarylockout --clear-lockout'
}
