// Parts of the tables of operations.h: the provider calls of one step of the component. `failed`,
// `none` or `absent` is the result of the operation when the step fails.
#pragma once

#include <string>
#include <vector>

#include "faults/operations.h"

namespace faults {

using Rows = std::vector<CallRow>;

Rows operator+(Rows left, const Rows& right);

// GetTokenCertificates on a token with one certificate, until the certificate has been read.
// `after` is what the caller logs if there is no certificate.
Rows ReadRows(const char* none, const std::string& after, const char* last);

// The rest of GetTokenCertificates. A failure does not affect the certificate that has been read.
Rows ReadEndRows(const char* last);

// GetToken.
Rows TokenRows(const std::string& slot, const std::string& label, const char* none,
               const char* last);

// GetCertificates.
Rows ListRows();

// FindCertificate for the certificate in slot 2. Failures in slot 1 do not affect the result.
Rows SearchRows(const char* absent, const char* last);

// Sign before and after the login.
Rows BeforeLoginRows();
Rows AfterLoginRows();
Rows LogoutAndCloseRows();

// Login within Sign or Unlock, which repeat it after a wrong PIN.
Rows LoginRows(const char* failed, Handling handling);

// Login as an operation of its own, which is not repeated after a wrong PIN.
Rows SingleLoginRows(Handling handling);

// Unlock after the user has agreed.
Rows UnlockRows(const char* failed);

}  // namespace faults
