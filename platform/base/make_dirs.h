// Making a folder and every missing folder above it.
#pragma once

#include <string>

namespace vyr {

// mkdir -p with mode 0755 for each folder made. Returns 0 when the folder
// exists afterwards, else the errno of the first step that failed (a
// folder that already exists is not a failure).
int MakeDirs(const std::string& dir);

}  // namespace vyr
