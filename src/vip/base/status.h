// The run's statuses (the exit status table of vyrvip(1)) and the one way a
// failure writes its status description.
//
// A status travels up unchanged from the part that detected the failure to
// become the exit status. The part that detects it writes the description
// once, with Fail, so that the text and the status cannot drift apart.
// Safe from any thread (the description is written under its lock).
#pragma once

// vyr::status::kSuccess, kInUse, ...: one constant for each line of
// statuses.txt beside this header, made by the build.
#include "vip/base/status_codes.h"

namespace vyr {

// Writes "Internal error. (status=<status>)" as the status description and
// returns `status`: return Fail(status::kTimeout);
int Fail(int status);
// Writes the formatted text as the status description and returns `status`:
// return Fail(status::kInUse, "IP address was already used.");
int Fail(int status, const char* format, ...) __attribute__((format(printf, 2, 3)));

}  // namespace vyr
