# shellcheck shell=bash
# pkcs11-spy as a witness: which calls reach the provider, in which order, and where the PIN is.
. "$here/parts/checks.sh"
serial=$(serial_of anna)
printf 'a message' >"$dir/message"
num_certificates=${#certificates[@]}
spy_log=$dir/spy.log

# calls: what the witness saw, one word a call; with the user type of a login, and with the return
# value when it is not CKR_OK.
calls() {
  awk '
    /^[0-9]+: C_/ {name = $2}
    /^\[in\] userType = / {name = name ":" $4}
    /^Returned:/ {sub(/^CKR_/, "", $3); printf "%s ", $3 == "OK" ? name : name "=" $3}' "$spy_log"
}

# What is expected, as a regular expression. Providers give out certificates in any order, so the
# search for one may end at any of them.
read_one="C_FindObjects C_GetAttributeValue C_GetAttributeValue "
open="C_GetFunctionList C_Initialize C_GetInfo "
walk="C_GetSlotList C_GetSlotList "
describe="${walk}C_GetSlotInfo C_GetTokenInfo C_OpenSession C_FindObjectsInit ($read_one){$num_certificates}C_FindObjects C_FindObjectsFinal C_CloseSession "
# SoftHSM's last slot is always a token without content.
[ "$name" != spy-softhsm ] || describe+="C_GetSlotInfo C_GetTokenInfo C_OpenSession=TOKEN_NOT_RECOGNIZED "
find="${walk}C_OpenSession C_FindObjectsInit ($read_one){1,$num_certificates}C_FindObjectsFinal "
prepare="C_GetAttributeValue C_GetTokenInfo C_GetTokenInfo "
make="C_FindObjectsInit C_FindObjects C_FindObjectsFinal C_SignInit C_Sign C_Logout C_CloseSession "
close="C_Finalize "

saw() {
  local found
  found=$(calls)
  grep --quiet --extended-regexp --line-regexp "${1% }" <<<"${found% }" || {
    printf 'expected: %s\nfound:    %s\n' "$1" "$found" >&2
    return 1
  }
}

# The lines of the witness and of the program that show a secret, outside of the dumps that the witness
# makes of the calls which carry one.
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
dumps() { [ "$(grep --count '^\[in\] pPin' "$spy_log")" -eq "$1" ]; }

# watched COMMAND...: with a new record.
watched() {
  rm -f "$spy_log" "$dir/component.log"
  "$@"
}
log=(--log-level 5 --log-file "$dir/component.log")

watched cardcert list "${log[@]}"
check "list: opens, describes each certificate, closes" saw "$open$describe$close"
check "... and no PIN is anywhere" dumps 0

watched cardcert present "$serial" "${log[@]}"
check "present: lists, then finds the certificate" saw "$open$describe${find}C_CloseSession $close"

sign=(cardcert sign "$serial" --in "$dir/message" --out "$dir/signature" "${log[@]}")
printf '%s\n' "$pin" >"$dir/pin"
printf '%s\n' "$wrong_pin" >"$dir/wrong-pin"
printf '%s\n' "$so_pin" >"$dir/so-pin"
printf '%s\n' "$new_pin" >"$dir/new-pin"

watched "${sign[@]}" --pin-file "$dir/pin"
check "sign: finds, logs in, finds the key, signs, logs out" \
  saw "$open$describe$find${prepare}C_Login:CKU_USER $make$close"
check "... the signature is one" verify anna sha256
check "... the PIN was shown once" dumps 1
check "... and stands nowhere else" no_leaks

watched "${sign[@]}" --pin-file "$dir/wrong-pin"
check "a wrong PIN: one login, nothing signed, no logout" \
  saw "$open$describe$find${prepare}C_Login:CKU_USER=PIN_INCORRECT C_GetTokenInfo C_CloseSession $close"
check "... and it stands nowhere else" no_leaks

watched "${sign[@]}" --batch
check "no PIN: no login" saw "$open$describe$find${prepare}C_CloseSession $close"

officer="C_GetTokenInfo C_Login:CKU_SO C_InitPIN C_Logout "
if [ "$name" = spy-opensc ]; then
  probe lock "$wrong_pin" 12 >/dev/null
  watched "${sign[@]}" --pin-file "$dir/pin" --so-pin-file "$dir/so-pin" --new-pin-file "$dir/new-pin"
  check "unlock: the officer sets a new PIN, the user goes on with it" \
    saw "$open$describe$find$prepare${officer}C_Login:CKU_USER $make$close"
  check "... three PINs were shown" dumps 3
else
  : >"$dir/component.log"
  rm -f "$spy_log"
  check "Unlock() sets a new PIN also where nothing is locked" \
    test "$(probe unlock-anyway "$so_pin" "$new_pin")" = "OK, signed"
  one_walk=${describe#"$walk"}
  check "unlock: the officer sets a new PIN, the user goes on with it" saw \
    "$open$walk$one_walk$find${officer}C_CloseSession $find${prepare}C_Login:CKU_USER $make$close"
  check "... three PINs were shown" dumps 3
fi
check "... and they stand nowhere else" no_leaks
