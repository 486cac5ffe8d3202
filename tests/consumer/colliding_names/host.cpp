#include "colliding_names.h"

int UseAllInHost() {
  return UseAll();
}
