// Loads the scripted provider without a library file, so that a test can load it a hundred thousand
// times. Link provider_in_process, which makes dlopen() return the provider that is linked into the
// program. Two kinds of paths still go to the platform's loader: "absent" and those with a '/'.
#pragma once

#include <p11-kit/pkcs11.h>

#include <functional>

namespace scripted::in_process_loader {

// From now on, C_GetFunctionList passes its list to `replace` and returns the result instead.
using ReplaceList = std::function<CK_FUNCTION_LIST_PTR(CK_FUNCTION_LIST_PTR)>;
void ReplaceFunctionList(ReplaceList replace);

// Returns how many times the provider was opened and not closed again.
int open_libraries();

// Forgets the replacement and the open libraries.
void Reset();

}  // namespace scripted::in_process_loader
