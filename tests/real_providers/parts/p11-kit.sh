# shellcheck shell=bash
# p11-kit's proxy, which shows the tokens of other providers as if they were one. To be sourced.

# use_proxy LINE...: a module of these lines, and no other. The proxy reads a folder that is fixed
# when it is built; root's own configuration is ignored.
use_proxy() {
  mkdir "$dir/modules"
  printf '%s\n' "$@" >"$dir/modules/example.module"
  mount --bind "$dir/modules" /usr/share/p11-kit/modules
  module=$(find_library "$multiarch/p11-kit-proxy.so")
}
