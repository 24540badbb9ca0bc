// The commands of `vyrctl`. Each prints what happened and returns the
// program's exit status.
#pragma once

namespace vyrctl {

inline constexpr int kExitOk = 0;
inline constexpr int kExitFailure = 1;
inline constexpr int kExitUsage = 2;
inline constexpr int kExitNotStarted = 3;

enum class StatusFormat { kTsv, kJson };

int Start();
int Stop();
int Status(StatusFormat format);
// Sets the flag (0 or 1), or prints it when `flag` is -1.
int Npsimu(int flag);

}  // namespace vyrctl
