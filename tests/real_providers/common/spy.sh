# shellcheck shell=bash
# pkcs11-spy, which records every call and passes it to another provider. To be sourced.

# spy_on LIBRARY
spy_on() {
  export PKCS11SPY=$1 PKCS11SPY_OUTPUT=$dir/spy.log
  module=$(find_library "$multiarch/pkcs11/pkcs11-spy.so" "$multiarch/pkcs11-spy.so")
}
