// Records the component's calls of dlopen(), dlsym(), dlclose() and dlerror() in the trace, and
// replaces the text of dlerror() in this process.
#pragma once

#include <string>

// dlerror() returns `text`.
void SetLoaderError(const std::string& text);
// dlerror() returns a null pointer.
void SetNoLoaderError();
// dlerror() returns the loader's own text again.
void ResetLoaderError();
