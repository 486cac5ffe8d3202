# shellcheck shell=bash
# What is tried with every provider. Each behaviour prints one line: the row's name, the behaviour and
# the exact answer, with tabs between. To be sourced; reads what the row has set:
#
#   module                    the provider's library
#   pin, so_pin, new_pin      what it was set up with, and what the PIN is to become
#   certificates              the names of the certificates on the token, files $keys/NAME.pem
#   signers                   those whose keys can sign
#   take_away, bring_back     make the token disappear, and come again
#
# The order matters: the last three leave the token with another PIN.
behaviours=(list names present absent sign_each wrong_pin no_pin changes reopen reopen_mapped steps
  lock unlock unlock_anyway)
wrong_pin=999999

# take_away COMMAND, bring_back COMMAND: run by a shell in $dir.
take_away() {
  order take-away "$1"
}
bring_back() {
  order bring-back "$1"
}
order() {
  printf '#!/bin/sh\ncd %q && exec >>log 2>&1 || exit\n%s\n' "$dir" "$2" >"$dir/$1"
  chmod +x "$dir/$1"
}

# answer BEHAVIOUR TEXT
answer() {
  printf '%s\t%s\t%s\n' "$name" "$1" "$2"
}

# counted TEXT: with "all" for the number of certificates on the token.
counted() {
  printf '%s\n' "$1" | sed "s/\b${#certificates[@]}\b/all/g"
}

# cardcert COMMAND...: its exit status in $status, its words in $dir/out and $dir/err.
cardcert() {
  status=0
  timeout --foreground 30 "$build/cardcert" "$@" --module "$module" >"$dir/out" 2>"$dir/err" || status=$?
}

# probe COMMAND...: prints the one line that it has to say, or how it ended.
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

# serial_of NAME: as the component writes it, the leading zero byte of the encoding included.
serial_of() {
  local hex
  hex=$(openssl x509 -in "$keys/$1.pem" -noout -serial)
  hex=${hex#serial=}
  case $hex in [89A-F]*) hex=00$hex ;; esac
  printf '%s\n' "${hex,,}"
}

# as_openssl_sees NAME: one line of what openssl reads in a certificate.
as_openssl_sees() {
  openssl x509 -in "$keys/$1.pem" -noout -subject -nameopt RFC2253,-esc_msb,utf8 -modulus \
    -ext basicConstraints 2>/dev/null | awk -v serial="$(serial_of "$1")" '
      /^subject=/ {subject = substr($0, 9)}
      /^Modulus=/ {modulus = tolower(substr($0, 9))}
      /CA:TRUE/ {ca = 1}
      END {print serial "\t" subject "\t" modulus "\t" (ca ? "true" : "false")}'
}

# compare_sets WANTED FOUND: "all", or how many are missing and how many should not be there.
compare_sets() {
  sort -o "$1" "$1"
  sort -o "$2" "$2"
  if cmp -s "$1" "$2"; then
    printf 'all\n'
  else
    printf '%d missing, %d unexpected\n' "$(comm -23 "$1" "$2" | wc -l)" "$(comm -13 "$1" "$2" | wc -l)"
  fi
}

# Every certificate with subject, serial, key and CA flag as openssl sees it, and no other.
list() {
  local certificate
  for certificate in "${certificates[@]}"; do
    as_openssl_sees "$certificate"
  done >"$dir/wanted"
  cardcert list --json
  jq -r '.[] | [.serial, .subject, .modulus, .ca] | map(tostring) | join("\t")' "$dir/out" >"$dir/found"
  answer list "$(compare_sets "$dir/wanted" "$dir/found")"
}

# The common name, and which ones may be used for digital signatures.
names() {
  local certificate text
  for certificate in "${certificates[@]}"; do
    text=$(openssl x509 -in "$keys/$certificate.pem" -noout -ext keyUsage 2>/dev/null)
    printf '%s\t%s\t%s\n' "$(serial_of "$certificate")" \
      "$(openssl x509 -in "$keys/$certificate.pem" -noout -subject -nameopt multiline,-esc_msb,utf8 |
        sed -n '/commonName/{s/.*= //p;q}')" \
      "$(if [[ $text != *"Key Usage"* || $text == *"Digital Signature"* ]]; then echo true; else echo false; fi)"
  done >"$dir/wanted"
  cardcert list --json --filter 'Signing||128'
  jq -r '.[] | [.serial, .name[0], .matches_filter] | map(tostring) | join("\t")' "$dir/out" >"$dir/found"
  answer names "$(compare_sets "$dir/wanted" "$dir/found")"
}

present() {
  cardcert present "$(serial_of "${certificates[0]}")"
  answer present "exit $status"
}

absent() {
  cardcert present 0123456789abcdef
  answer absent "exit $status"
}

# sign_with PIN NAME DIGEST
sign_with() {
  printf '%s\n' "$1" >"$dir/pin"
  cardcert sign "$(serial_of "$2")" --in "$dir/message" --out "$dir/signature" --digest "$3" --pin-file "$dir/pin"
}

# The name of the value with which the last signature failed, or just its exit status.
why() {
  local number
  number=$(sed -n 's/.*Signature operation failed (\([0-9]*\)).*/\1/p' "$dir/err")
  if [ -n "$number" ]; then
    "$build/tests/provider_probe" --name "$number"
  else
    printf 'exit %d\n' "$status"
  fi
}

# verify NAME DIGEST: with openssl.
verify() {
  openssl x509 -in "$keys/$1.pem" -noout -pubkey >"$dir/public"
  if [ "$2" = none ]; then
    openssl pkeyutl -verifyrecover -pubin -inkey "$dir/public" -in "$dir/signature" -pkeyopt rsa_padding_mode:pkcs1 |
      cmp -s - "$dir/message"
  else
    openssl dgst "-$2" -verify "$dir/public" -signature "$dir/signature" "$dir/message" >/dev/null
  fi
}

# Every key with every digest; what openssl verifies counts.
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
        failures+=("$(why)")
      fi
    done
  done
  answer sign "$good of $tried$(printf '%s\n' "${failures[@]}" | sort -u | sed 's/^./, &/' | tr -d '\n')"
}

# Then the right one, which also sets the token's counter back.
wrong_pin() {
  sign_with "$wrong_pin" "${signers[0]}" sha256
  local first=$status
  sign_with "$pin" "${signers[0]}" sha256
  answer "wrong PIN" "exit $first, then $status"
}

no_pin() {
  cardcert sign "$(serial_of "${signers[0]}")" --in "$dir/message" --out "$dir/signature" --batch
  answer "no PIN" "exit $status"
}

changes() {
  answer changes "$(counted "$(probe poll "$dir/take-away")")"
  "$dir/bring-back"
}

reopen() {
  answer "100 times" "$(probe reopen 100)"
}

reopen_mapped() {
  answer "100 times, mapped" "$(probe --keep-mapped reopen 100)"
}

# The token is taken away just before each call that matters.
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

# step TITLE OPERATION STEP
step() {
  local line
  line=$(probe --keep-mapped interrupt "$2" "$3" "$dir/take-away" "$dir/bring-back" "$pin")
  answer "$1" "$(counted "$line")"
}

lock() {
  answer lock "$(probe lock "$wrong_pin" 12)"
}

# A signature that begins with a wrong PIN, by a person who has the security officer's PIN.
unlock() {
  answer unlock "$(probe unlock "$wrong_pin" "$so_pin" "$new_pin")"
}

# What Unlock() does when it is called though nothing is locked.
unlock_anyway() {
  answer "Unlock()" "$(probe unlock-anyway "$so_pin" "$pin")"
}
