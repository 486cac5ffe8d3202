# shellcheck shell=bash
# Makes keys, certificates and SoftHSM tokens for tests and for ./demo. To be sourced.
#
#   cd "$(mktemp -d)"
#   certificate ca "/O=Example/CN=Example CA" rsa:2048
#   certificate anna "/O=Example/CN=Anna" rsa:2048 keyUsage=critical,digitalSignature
#   certificate clara "/O=Example/CN=Clara" ec:P-256 serial=0c25
#   softhsm_folder "$PWD"
#   softhsm_token "Card (PIN)" 123456 87654321 ca anna clara
#
# The functions print nothing unless a command fails. They return the exit status of the first command
# that fails.

# run_silently COMMAND...: shows the command's output only if it fails.
run_silently() {
  local output
  output=$("$@" 2>&1 </dev/null) || {
    local status=$?
    printf '%s failed:\n%s\n' "$1" "$output" >&2
    return "$status"
  }
}

# certificate NAME SUBJECT KEY [WORD]...
#
# Makes a key and a certificate in the current folder: NAME.key (PKCS #8, PEM), NAME.pem and NAME.der.
# KEY is rsa:BITS or ec:CURVE. The certificate named "ca" is a self-signed CA; the key of ca.key signs all others. A
# WORD is one of
#   serial=HEX           the serial number; random if left out
#   days=NUMBER          the validity; 730 days if left out
#   EXTENSION=VALUE      an extension in OpenSSL's syntax, for example keyUsage=critical,keyCertSign
certificate() {
  local name=$1 subject=$2 key=$3 word options=()
  shift 3
  case $key in
    rsa:*) options+=(-newkey "$key") ;;
    ec:*) options+=(-newkey ec -pkeyopt "ec_paramgen_curve:${key#ec:}") ;;
  esac
  if [ "$name" = ca ]; then
    options+=(-addext "basicConstraints=critical,CA:TRUE")
  else
    options+=(-CA ca.pem -CAkey ca.key -addext "basicConstraints=critical,CA:FALSE"
      -addext authorityKeyIdentifier=keyid)
  fi
  options+=(-addext subjectKeyIdentifier=hash)
  local days=730
  for word in "$@"; do
    case $word in
      serial=*) options+=(-set_serial "0x${word#serial=}") ;;
      days=*) days=${word#days=} ;;
      *) options+=(-addext "$word") ;;
    esac
  done
  # The defaults of the machine's openssl.cnf would add extensions.
  printf '[req]\ndistinguished_name = subject\nstring_mask = utf8only\n[subject]\n' >openssl.cnf
  run_silently openssl req -x509 -config openssl.cnf -noenc -utf8 -days "$days" -subj "$subject" \
    -keyout "$name.key" -out "$name.pem" "${options[@]}" &&
    run_silently openssl x509 -in "$name.pem" -outform DER -out "$name.der"
}

# openssl_serial NAME: prints the serial number of a certificate as OpenSSL shows it, in hexadecimal.
openssl_serial() {
  local serial
  serial=$(openssl x509 -in "$1.pem" -noout -serial) && printf '%s\n' "${serial#serial=}"
}

# softhsm_library: prints the path of SoftHSM's PKCS #11 library.
softhsm_library() {
  local folder
  for folder in /usr/lib/softhsm /usr/lib/*/softhsm /usr/lib64/pkcs11 /usr/local/lib/softhsm; do
    [ ! -e "$folder/libsofthsm2.so" ] || { printf '%s\n' "$folder/libsofthsm2.so" && return; }
  done
  printf 'libsofthsm2.so not found; install SoftHSM (package softhsm2)\n' >&2
  return 1
}

# softhsm_folder FOLDER: makes softhsm2.conf and an empty folder tokens/ for SoftHSM in FOLDER, an
# absolute path, and sets SOFTHSM2_CONF.
softhsm_folder() {
  mkdir "$1/tokens" || return
  printf 'directories.tokendir = %s\nobjectstore.backend = file\nlog.level = ERROR\n' \
    "$1/tokens" >"$1/softhsm2.conf"
  export SOFTHSM2_CONF=$1/softhsm2.conf
}

# softhsm_token LABEL PIN SO_PIN PATH...
#
# Makes a token with the certificates PATH.der and their keys PATH.key, which get the IDs 01, 02, ...
# in this order. PATH:certificate stores the certificate without its key.
softhsm_token() {
  local label=$1 pin=$2 so_pin=$3 path number=0 id library
  shift 3
  library=$(softhsm_library) || return
  run_silently softhsm2-util --init-token --free --label "$label" --pin "$pin" --so-pin "$so_pin" ||
    return
  for path in "$@"; do
    number=$((number + 1))
    printf -v id '%02x' "$number"
    [[ $path == *:certificate ]] ||
      run_silently softhsm2-util --import "$path.key" --token "$label" --label "${path##*/}" \
        --id "$id" --pin "$pin" || return
    path=${path%:certificate}
    run_silently pkcs11-tool --module "$library" --token-label "$label" --login --pin "$pin" \
      --write-object "$path.der" --type cert --label "${path##*/}" --id "$id" || return
  done
}
