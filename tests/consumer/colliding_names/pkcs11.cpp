#include "colliding_names.h"

int UseAllInPkcs11() {
  return UseAll();
}
