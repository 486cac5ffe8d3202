# shellcheck shell=bash disable=SC2034 # The package lists are for those who source this.
# What ./demo, ./test and .ci/run share. To be sourced.

# Debian packages, by what needs them.
build_packages=(g++ cmake ninja-build pkg-config libp11-kit-dev libssl-dev libcli11-dev
  nlohmann-json3-dev)
token_packages=(softhsm2 opensc openssl)
test_packages=("${build_packages[@]}" "${token_packages[@]}" libgtest-dev libgmock-dev
  ca-certificates locales)
bench_packages=(g++ cmake ninja-build pkg-config libp11-kit-dev ca-certificates libbenchmark-dev
  libssl-dev libmbedtls-dev libgnutls28-dev)

card_packages=(pcscd vsmartcard-vpcd opensc-pkcs11 openssl procps)
provider_packages=("${card_packages[@]}" "${token_packages[@]}" jq p11-kit p11-kit-modules libnss3
  libnss3-tools swtpm tpm2-tools libtpm2-pkcs11-1 libtpm2-pkcs11-tools opencryptoki)

die() {
  printf '%s: %s\n' "${0##*/}" "$1" >&2
  exit 1
}

# quietly TEXT COMMAND...: says TEXT and runs COMMAND, whose output is shown only if it fails.
quietly() {
  local output
  printf '%s\n' "$1"
  shift
  output=$("$@" 2>&1 </dev/null) || {
    local status=$?
    printf '%s\n' "$output" >&2
    return "$status"
  }
}

# missing PACKAGE...: those that are not installed.
missing() {
  local package
  for package in "$@"; do
    dpkg-query --show --showformat='${db:Status-Status}\n' "$package" 2>/dev/null |
      grep --quiet --line-regexp installed || printf '%s\n' "$package"
  done
}

# Root's apt-get, which waits for another one that is at work (the first minutes of a new machine).
apt_get() {
  local sudo=()
  [ "$(id -u)" -eq 0 ] || sudo=(sudo)
  "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8 \
    apt-get --quiet --yes --option DPkg::Lock::Timeout=300 "$@"
}

# It does not wait for another one that fetches the package lists; this does, for five minutes.
fetch_package_lists() {
  local attempt output
  for ((attempt = 0; attempt < 60; attempt++)); do
    output=$(apt_get update 2>&1) && return
    [[ $output == *"Could not get lock"* ]] || break
    sleep 5
  done
  printf '%s\n' "$output"
  return 1
}

# need PACKAGE...: installs what is missing, and says nothing when nothing is.
need() {
  [ -z "${CARDCERT_NO_SETUP:-}" ] || return 0
  type apt-get dpkg-query &>/dev/null ||
    die "this machine has no apt-get; install what these Debian packages hold, then run again with CARDCERT_NO_SETUP=1: $*"
  local packages
  mapfile -t packages < <(missing "$@")
  [ "${#packages[@]}" -gt 0 ] || return 0
  [ "$(id -u)" -eq 0 ] || command -v sudo >/dev/null ||
    die "run this once as root, or install these packages: ${packages[*]}"
  quietly "Looking for packages" fetch_package_lists ||
    printf 'Not all package lists could be fetched; going on with those there are\n' >&2
  quietly "Installing ${packages[*]}" apt_get install --no-install-recommends "${packages[@]}" ||
    die "the packages could not be installed"
}

# clang with the sanitizers' run-time library, which is a package of its own for each version.
need_clang() {
  need clang
  need "libclang-rt-$(clang -dumpversion | cut -d. -f1)-dev"
}

# Whether warnings are errors, for CMake: CI sets the variable CI.
werror() {
  if [ "${CI:-}" = true ]; then echo ON; else echo OFF; fi
}

# For demonstrations.
say() {
  printf '\n'
  printf '%s\n' "$@"
}

# show COMMAND...: runs the command and shows how it would be typed.
show() {
  local word line='$'
  for word in "$@"; do
    case $word in
      *[!A-Za-z0-9_./,=-]*) line+=" '$word'" ;;
      *) line+=" $word" ;;
    esac
  done
  printf '\n%s\n' "$line"
  "$@"
}
