# shellcheck shell=bash
# The keys and certificates that are stored on the token of every provider. To be sourced.
# shellcheck source=tests/support/tokens.sh
. "${BASH_SOURCE[0]%/*}/../../support/tokens.sh"

# make_keys FOLDER: makes a CA and four certificates in FOLDER, as NAME.key, NAME.pem and NAME.der:
#   anna  digital signature, non-repudiation      carl  the same
#   ben   key encipherment                        dora  no key usage
make_keys() (
  cd -- "$1" &&
    certificate ca "/C=DE/O=Example/CN=Example CA" rsa:2048 keyUsage=critical,keyCertSign,cRLSign &&
    certificate anna "/C=DE/O=Example/CN=Anna Albers" rsa:2048 \
      keyUsage=critical,digitalSignature,nonRepudiation &&
    certificate ben "/C=DE/O=Example/CN=Ben Brandt" rsa:2048 keyUsage=critical,keyEncipherment &&
    certificate carl "/C=DE/O=Example/CN=Carl Conrad" rsa:2048 \
      keyUsage=critical,digitalSignature,nonRepudiation &&
    certificate dora "/C=DE/O=Example/CN=Dora Döring" rsa:2048
)
