# shellcheck shell=bash
# p11-kit's client, which forwards calls over a socket to a p11-kit server, as for a token on another
# machine. A helper process of the server serves each client. Here it is killed.
. "$here/common/softhsm.sh"

set_up() {
  make_softhsm_token
  XDG_RUNTIME_DIR=$dir start p11-kit-server p11-kit server -f -n "$dir/p11.sock" --provider "$softhsm" "pkcs11:"
  wait_until "the p11-kit server's socket" test -S "$dir/p11.sock"
  export P11_KIT_SERVER_ADDRESS=unix:path=$dir/p11.sock
  module=$(find_library "$multiarch/pkcs11/p11-kit-client.so")
  remove_token_with "pkill -KILL -P $started"
  restore_token_with 'true'
}
