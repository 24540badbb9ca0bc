// The process entry of vyrvip: one run, one job, one exit status.
#pragma once

// The whole run; main() returns its result as the exit status.
int vip_main(int argc, char** argv);
// Root check, configuration library and trace log. 0 or a status (5, 6, 7, 8).
int vip_init(void);
// The manual-mode usage text on standard output.
void vip_usage(void);
