# shellcheck shell=bash disable=SC2034 # Scripts that source this use the package lists.
# Functions and package lists for ./demo, ./test, .ci/run and scripts/. To be sourced.

# Debian packages by purpose.
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

# quietly TEXT COMMAND...: prints TEXT and runs COMMAND. Shows its output only if it fails.
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

# missing PACKAGE...: prints the packages that are not installed.
missing() {
  local package
  for package in "$@"; do
    dpkg-query --show --showformat='${db:Status-Status}\n' "$package" 2>/dev/null |
      grep --quiet --line-regexp installed || printf '%s\n' "$package"
  done
}

# Runs apt-get as root. Waits up to five minutes for other package managers to finish, which often run
# on a machine that has just started.
apt_get() {
  local sudo=()
  [ "$(id -u)" -eq 0 ] || sudo=(sudo)
  "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8 \
    apt-get --quiet --yes --option DPkg::Lock::Timeout=300 "$@"
}

# Updates the package lists. apt-get does not wait for other updates of the lists, so this retries for
# five minutes.
update_package_lists() {
  local attempt output
  for ((attempt = 0; attempt < 60; attempt++)); do
    output=$(apt_get update 2>&1) && return
    [[ $output == *"Could not get lock"* ]] || break
    sleep 5
  done
  printf '%s\n' "$output"
  return 1
}

# need PACKAGE...: installs the packages that are missing.
need() {
  [ -z "${CARDCERT_NO_SETUP:-}" ] || return 0
  type apt-get dpkg-query &>/dev/null ||
    die "apt-get not found. Install the equivalents of these Debian packages, then set CARDCERT_NO_SETUP=1 and run this again: $*"
  local packages
  mapfile -t packages < <(missing "$@")
  [ "${#packages[@]}" -gt 0 ] || return 0
  [ "$(id -u)" -eq 0 ] || command -v sudo >/dev/null ||
    die "packages are missing. Run this once as root, or install: ${packages[*]}"
  quietly "Updating package lists" update_package_lists ||
    printf 'Could not update all package lists; continuing with the present ones\n' >&2
  quietly "Installing ${packages[*]}" apt_get install --no-install-recommends "${packages[@]}" ||
    die "could not install packages"
}

# Installs clang and its sanitizer runtime, which has a separate package for each version.
need_clang() {
  need clang
  need "libclang-rt-$(clang -dumpversion | cut -d. -f1)-dev"
}

# Prints ON if warnings are errors, which is so when the environment variable CI is "true".
werror() {
  if [ "${CI:-}" = true ]; then echo ON; else echo OFF; fi
}

# say LINE...: prints a paragraph of a demo.
say() {
  printf '\n'
  printf '%s\n' "$@"
}

# show COMMAND...: prints a command as a user would type it, and runs it.
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
