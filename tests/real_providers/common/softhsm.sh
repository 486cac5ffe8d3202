# shellcheck shell=bash
# A SoftHSM token with two keys. To be sourced.
# shellcheck source=tests/support/tokens.sh
. "$here/../support/tokens.sh"
softhsm=$(softhsm_library)
pin=123456
so_pin=87654321
new_pin=654321

# make_softhsm_token: makes $dir/tokens and $dir/softhsm2.conf, with the keys of anna and ben.
make_softhsm_token() {
  certificates=(anna ben)
  signers=(anna ben)
  softhsm_folder "$dir"
  softhsm_token "Example token (PIN 1)" "$pin" "$so_pin" "$keys/anna" "$keys/ben"
}
