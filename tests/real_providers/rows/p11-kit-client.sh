# shellcheck shell=bash
# A token on another machine, as it were: p11-kit's client speaks to a p11-kit server over a socket. A
# helper process of the server's serves each client; here it is killed.
. "$here/parts/softhsm.sh"

set_up() {
  make_softhsm_token
  XDG_RUNTIME_DIR=$dir start p11-kit-server p11-kit server -f -n "$dir/p11.sock" --provider "$softhsm" "pkcs11:"
  wait_until "the p11-kit server's socket" test -S "$dir/p11.sock"
  export P11_KIT_SERVER_ADDRESS=unix:path=$dir/p11.sock
  module=$(find_library "$multiarch/pkcs11/p11-kit-client.so")
  take_away "pkill -KILL -P $started"
  bring_back 'true'
}
