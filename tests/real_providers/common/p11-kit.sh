# shellcheck shell=bash
# p11-kit's proxy, which presents the tokens of other providers as its own. To be sourced.

# use_proxy LINE...: configures the proxy with one module, described by these lines. The proxy reads a
# folder with a fixed path and ignores the configuration of root's home.
use_proxy() {
  mkdir "$dir/modules"
  printf '%s\n' "$@" >"$dir/modules/example.module"
  mount --bind "$dir/modules" /usr/share/p11-kit/modules
  module=$(find_library "$multiarch/p11-kit-proxy.so")
}
