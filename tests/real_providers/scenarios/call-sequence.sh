# shellcheck shell=bash
# Uses pkcs11-spy to check which calls reach the provider, in which order, and that PINs appear nowhere
# else.
. "$here/common/checks.sh"
serial=$(serial_of anna)
printf 'a message' >"$dir/message"
num_certificates=${#certificates[@]}
spy_log=$dir/spy.log

# calls: prints the recorded calls, one word each, with the user type of a login and with the return
# value if it is not CKR_OK.
calls() {
  awk '
    /^[0-9]+: C_/ {name = $2}
    /^\[in\] userType = / {name = name ":" $4}
    /^Returned:/ {sub(/^CKR_/, "", $3); printf "%s ", $3 == "OK" ? name : name "=" $3}' "$spy_log"
}

# The expected calls, as regular expressions. Providers return certificates in any order, so the search
# for one may end at any of them.
read_one="C_FindObjects C_GetAttributeValue C_GetAttributeValue "
open="C_GetFunctionList C_Initialize C_GetInfo "
walk="C_GetSlotList C_GetSlotList "
describe="${walk}C_GetSlotInfo C_GetTokenInfo C_OpenSession C_FindObjectsInit ($read_one){$num_certificates}C_FindObjects C_FindObjectsFinal C_CloseSession "
# The last slot of SoftHSM always has an uninitialised token.
[ "$name" != spy-softhsm ] || describe+="C_GetSlotInfo C_GetTokenInfo C_OpenSession=TOKEN_NOT_RECOGNIZED "
find="${walk}C_OpenSession C_FindObjectsInit ($read_one){1,$num_certificates}C_FindObjectsFinal "
prepare="C_GetAttributeValue C_GetTokenInfo C_GetTokenInfo "
make="C_FindObjectsInit C_FindObjects C_FindObjectsFinal C_SignInit C_Sign C_Logout C_CloseSession "
close="C_Finalize "

# calls_are REGEXP
calls_are() {
  local found
  found=$(calls)
  grep --quiet --extended-regexp --line-regexp "${1% }" <<<"${found% }" || {
    printf 'expected: %s\nfound:    %s\n' "$1" "$found" >&2
    return 1
  }
}

# leaks: prints the lines of all logs that contain a PIN, except where pkcs11-spy pins_passed the argument of
# a call that passes a PIN.
leaks() {
  local secret hex
  for secret in "$pin" "$wrong_pin" "$so_pin" "$new_pin"; do
    hex=$(printf %s "$secret" | od -An -tx1 | xargs)
    awk -v secret="$secret" -v hex="$hex" '
      /^[0-9]+: C_/ {name = $2; in_pin = 0}
      /^\[in\] pPin/ {in_pin = name == "C_Login" || name == "C_InitPIN"; next}
      /^Returned:/ {in_pin = 0}
      !in_pin && (index($0, secret) || index($0, hex))' "$spy_log"
    grep --fixed-strings "$secret" "$dir/out" "$dir/err" "$dir/component.log" || true
  done
}
no_leaks() { [ -z "$(leaks)" ]; }
# pins_passed NUMBER: succeeds if so many calls passed a PIN.
pins_passed() { [ "$(grep --count '^\[in\] pPin' "$spy_log")" -eq "$1" ]; }

# record COMMAND...: runs the command with empty logs.
record() {
  rm -f "$spy_log" "$dir/component.log"
  "$@"
}
log=(--log-level 5 --log-file "$dir/component.log")

record cardcert list "${log[@]}"
check "list: opens, describes each certificate, closes" calls_are "$open$describe$close"
check "... no call passes a PIN" pins_passed 0

record cardcert present "$serial" "${log[@]}"
check "present: lists, then finds the certificate" calls_are "$open$describe${find}C_CloseSession $close"

sign=(cardcert sign "$serial" --in "$dir/message" --out "$dir/signature" "${log[@]}")
umask 077
printf '%s\n' "$pin" >"$dir/pin"
printf '%s\n' "$wrong_pin" >"$dir/wrong-pin"
printf '%s\n' "$so_pin" >"$dir/so-pin"
printf '%s\n' "$new_pin" >"$dir/new-pin"

record "${sign[@]}" --pin-file "$dir/pin"
check "sign: finds, logs in, finds the key, signs, logs out" \
  calls_are "$open$describe$find${prepare}C_Login:CKU_USER $make$close"
check "... openssl verifies the signature" verify anna sha256
check "... one call passes a PIN" pins_passed 1
check "... no log contains the PIN" no_leaks

record "${sign[@]}" --pin-file "$dir/wrong-pin"
check "a wrong PIN: one login, nothing signed, no logout" \
  calls_are "$open$describe$find${prepare}C_Login:CKU_USER=PIN_INCORRECT C_GetTokenInfo C_CloseSession $close"
check "... no log contains the PIN" no_leaks

record "${sign[@]}" --batch
check "no PIN: no login" calls_are "$open$describe$find${prepare}C_CloseSession $close"

so_login="C_GetTokenInfo C_Login:CKU_SO C_InitPIN C_Logout "
if [ "$name" = spy-opensc ]; then
  probe lock "$wrong_pin" 12 >/dev/null
  record "${sign[@]}" --pin-file "$dir/pin" --so-pin-file "$dir/so-pin" --new-pin-file "$dir/new-pin" \
    --allow-unreported-tries
  check "unlock: the security officer sets a new PIN, the user logs in with it" \
    calls_are "$open$describe$find$prepare${so_login}C_Login:CKU_USER $make$close"
  check "... three calls pass a PIN" pins_passed 3
else
  : >"$dir/component.log"
  rm -f "$spy_log"
  check "Unlock() sets a new PIN even if the PIN is not locked" \
    test "$(probe unlock-anyway "$so_pin" "$new_pin")" = "OK, signed"
  one_walk=${describe#"$walk"}
  check "unlock: the security officer sets a new PIN, the user logs in with it" calls_are \
    "$open$walk$one_walk$find${so_login}C_CloseSession $find${prepare}C_Login:CKU_USER $make$close"
  check "... three calls pass a PIN" pins_passed 3
fi
check "... no log contains a PIN" no_leaks
