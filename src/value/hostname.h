// The short host name that names this server in server-specific lookups.
#pragma once

inline constexpr int HOSTNAME_LEN = 256;

// Writes the host name, cut at its first '.', into `hostname` (256 bytes).
// Returns 0, or 1 when the system call fails.
int get_hostname(char* hostname);
