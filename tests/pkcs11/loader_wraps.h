// What the platform's loader says of a failure, where its own text will not do.
#pragma once

#include <string>

// From now on, in this process.
void SetLoaderError(const std::string& text);
void SetNoLoaderError();
// Its own text again.
void ResetLoaderError();
