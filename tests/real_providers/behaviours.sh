# shellcheck shell=bash
# What is tried with every provider. Each behaviour prints one line: the provider, the behaviour and the
# result, separated by tabs. To be sourced. set_up of the provider defines:
#
#   module                    the provider's library
#   pin, so_pin, new_pin      the PINs of the token, and the PIN that it gets
#   certificates              the names of the certificates on the token, for the files $keys/NAME.pem
#   signers                   the names of those whose keys can sign
#   remove_token_with, restore_token_with
#                             how the token can be made to disappear and to come back
#
# The order matters: the last three behaviours change the PIN.
behaviours=(list names present absent sign_each wrong_pin no_pin changes reopen reopen_mapped steps
  lock unlock unlock_anyway)
wrong_pin=999999

# remove_token_with COMMAND, restore_token_with COMMAND: a shell runs the command in $dir.
remove_token_with() {
  write_script remove-token "$1"
}
restore_token_with() {
  write_script restore-token "$1"
}
write_script() {
  printf '#!/bin/sh\ncd %q && exec >>log 2>&1 || exit\n%s\n' "$dir" "$2" >"$dir/$1"
  chmod +x "$dir/$1"
}

# report BEHAVIOUR RESULT
report() {
  printf '%s\t%s\t%s\n' "$name" "$1" "$2"
}

# with_all TEXT: prints TEXT with "all" in place of the number of certificates on the token.
with_all() {
  printf '%s\n' "$1" | sed "s/\b${#certificates[@]}\b/all/g"
}

# cardcert COMMAND...: runs the program with the provider. Sets $status; the output is in $dir/out and
# $dir/err.
cardcert() {
  status=0
  timeout --foreground 30 "$build/cardcert" "$@" --module "$module" >"$dir/out" 2>"$dir/err" || status=$?
}

# probe [--keep-mapped] COMMAND...: runs the probe and prints its one line of output, or how it ended.
probe() {
  local line options=() serial
  if [ "$1" = --keep-mapped ]; then
    options=("$1")
    shift
  fi
  serial=$(serial_of "${signers[0]}")
  status=0
  line=$(timeout --foreground 30 "$build/tests/provider_probe" "${options[@]}" "$module" "$serial" "$@" 2>>"$dir/err") || status=$?
  case $status in
    0) printf '%s\n' "$line" ;;
    124) printf 'hangs\n' ;;
    13[4-9]) printf 'crash\n' ;;
    *) printf 'exit %d\n' "$status" ;;
  esac
}

# serial_of NAME: prints the serial number in the component's notation, which includes a leading zero
# byte of the encoding.
serial_of() {
  local hex
  hex=$(openssl x509 -in "$keys/$1.pem" -noout -serial)
  hex=${hex#serial=}
  case $hex in [89A-F]*) hex=00$hex ;; esac
  printf '%s\n' "${hex,,}"
}

# openssl_fields NAME: prints serial, subject, modulus and CA flag of a certificate as openssl reads them.
openssl_fields() {
  openssl x509 -in "$keys/$1.pem" -noout -subject -nameopt RFC2253,-esc_msb,utf8 -modulus \
    -ext basicConstraints 2>/dev/null | awk -v serial="$(serial_of "$1")" '
      /^subject=/ {subject = substr($0, 9)}
      /^Modulus=/ {modulus = tolower(substr($0, 9))}
      /CA:TRUE/ {ca = 1}
      END {print serial "\t" subject "\t" modulus "\t" (ca ? "true" : "false")}'
}

# compare_sets EXPECTED FOUND: compares the lines of two files. Prints "all", or how many lines are
# missing and unexpected.
compare_sets() {
  sort -o "$1" "$1"
  sort -o "$2" "$2"
  if cmp -s "$1" "$2"; then
    printf 'all\n'
  else
    printf '%d missing, %d unexpected\n' "$(comm -23 "$1" "$2" | wc -l)" "$(comm -13 "$1" "$2" | wc -l)"
  fi
}

# Every certificate is listed, with serial, subject, key and CA flag as openssl reads them, and no other.
list() {
  local certificate
  for certificate in "${certificates[@]}"; do
    openssl_fields "$certificate"
  done >"$dir/expected"
  cardcert list --json
  jq -r '.[] | [.serial, .subject, .modulus, .ca] | map(tostring) | join("\t")' "$dir/out" >"$dir/found"
  report list "$(compare_sets "$dir/expected" "$dir/found")"
}

# The common names, and which certificates may be used for digital signatures.
names() {
  local certificate text
  for certificate in "${certificates[@]}"; do
    text=$(openssl x509 -in "$keys/$certificate.pem" -noout -ext keyUsage 2>/dev/null)
    printf '%s\t%s\t%s\n' "$(serial_of "$certificate")" \
      "$(openssl x509 -in "$keys/$certificate.pem" -noout -subject -nameopt multiline,-esc_msb,utf8 |
        sed -n '/commonName/{s/.*= //p;q}')" \
      "$(if [[ $text != *"Key Usage"* || $text == *"Digital Signature"* ]]; then echo true; else echo false; fi)"
  done >"$dir/expected"
  cardcert list --json --filter 'Signing||128'
  jq -r '.[] | [.serial, .name[0], .matches_filter] | map(tostring) | join("\t")' "$dir/out" >"$dir/found"
  report names "$(compare_sets "$dir/expected" "$dir/found")"
}

present() {
  cardcert present "$(serial_of "${certificates[0]}")"
  report present "exit $status"
}

absent() {
  cardcert present 0123456789abcdef
  report absent "exit $status"
}

# sign_with PIN NAME DIGEST
sign_with() {
  (umask 077 && printf '%s\n' "$1" >"$dir/pin")
  cardcert sign "$(serial_of "$2")" --in "$dir/message" --out "$dir/signature" --digest "$3" --pin-file "$dir/pin"
}

# failure_reason: prints the name of the return value with which the last signature failed, or else the
# exit status.
failure_reason() {
  local number
  number=$(sed -n 's/.*Signature operation failed (\([0-9]*\)).*/\1/p' "$dir/err")
  if [ -n "$number" ]; then
    "$build/tests/provider_probe" --name "$number"
  else
    printf 'exit %d\n' "$status"
  fi
}

# verify NAME DIGEST: verifies the last signature with openssl.
verify() {
  openssl x509 -in "$keys/$1.pem" -noout -pubkey >"$dir/public"
  if [ "$2" = none ]; then
    openssl pkeyutl -verifyrecover -pubin -inkey "$dir/public" -in "$dir/signature" -pkeyopt rsa_padding_mode:pkcs1 |
      cmp -s - "$dir/message"
  else
    openssl dgst "-$2" -verify "$dir/public" -signature "$dir/signature" "$dir/message" >/dev/null
  fi
}

# Every key signs with every digest. Only signatures that openssl verifies count.
sign_each() {
  local signer digest good=0 tried=0 failures=()
  printf 'a message' >"$dir/message"
  for signer in "${signers[@]}"; do
    for digest in sha1 sha224 sha256 sha384 sha512 none; do
      tried=$((tried + 1))
      rm -f "$dir/signature"
      sign_with "$pin" "$signer" "$digest"
      if [ "$status" -eq 0 ] && verify "$signer" "$digest"; then
        good=$((good + 1))
      else
        failures+=("$(failure_reason)")
      fi
    done
  done
  report sign "$good of $tried$(printf '%s\n' "${failures[@]}" | sort -u | sed 's/^./, &/' | tr -d '\n')"
}

# A wrong PIN and then the right one, which also resets the token's retry counter.
wrong_pin() {
  sign_with "$wrong_pin" "${signers[0]}" sha256
  local first=$status
  sign_with "$pin" "${signers[0]}" sha256
  report "wrong PIN" "exit $first, then $status"
}

no_pin() {
  cardcert sign "$(serial_of "${signers[0]}")" --in "$dir/message" --out "$dir/signature" --batch
  report "no PIN" "exit $status"
}

changes() {
  report changes "$(with_all "$(probe poll "$dir/remove-token")")"
  "$dir/restore-token"
}

reopen() {
  report "100 times" "$(probe reopen 100)"
}

reopen_mapped() {
  report "100 times, mapped" "$(probe --keep-mapped reopen 100)"
}

# The token disappears right before each call that matters.
steps() {
  step C_GetSlotList list slots
  step C_GetTokenInfo list token
  step C_OpenSession list session
  step C_FindObjectsInit list search
  step C_FindObjects list found
  step C_GetAttributeValue list read
  step C_Login sign login
  step "C_FindObjectsInit for the key" sign key
  step C_SignInit sign init
  step C_Sign sign sign
  step C_WaitForSlotEvent poll poll
}

# step BEHAVIOUR OPERATION STEP
step() {
  local line
  line=$(probe --keep-mapped interrupt "$2" "$3" "$dir/remove-token" "$dir/restore-token" "$pin")
  report "$1" "$(with_all "$line")"
}

lock() {
  report lock "$(probe lock "$wrong_pin" 12)"
}

# A signature that begins with a wrong PIN, by a user who has the SO PIN.
unlock() {
  report unlock "$(probe unlock "$wrong_pin" "$so_pin" "$new_pin")"
}

# Unlock() although the PIN is not locked.
unlock_anyway() {
  report "Unlock()" "$(probe unlock-anyway "$so_pin" "$pin")"
}
