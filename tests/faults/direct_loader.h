// The scripted provider without a library around it, so that a test can load it a hundred thousand
// times. The test is linked with --wrap for the loader's three functions; every path but "absent"
// is this provider.
#pragma once

#include <p11-kit/pkcs11.h>

#include <functional>

namespace direct_loader {

// What the provider's C_GetFunctionList is to do with its own list before it hands it out; none
// again after Reset().
using Tamper = std::function<CK_FUNCTION_LIST_PTR(CK_FUNCTION_LIST_PTR)>;
void TamperWith(Tamper tamper);

// How many libraries are open.
int open_libraries();
void Reset();

}  // namespace direct_loader
