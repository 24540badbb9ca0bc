// The command line of a resource run: the mode word and the options.
// Main thread only; called by the entry before any worker exists.
#pragma once

#include <cstddef>

#include "vip/base/vip_info.h"

// Sets actflag, nomuseflag and dynamicflag from the mode word (compared
// ignoring case). 0, or 4 with "Option was invalid." for any other word.
int vip_parse_mode(const char* word);

// Reads the options argv[2] .. argv[argc-1] (compared ignoring case):
// -r, -g and -i into the record, -a into `addrbuf` (`addrsize` bytes). A
// repeated option overwrites the earlier value; an unknown argument is
// warned about and skipped. 0, or 4 with "Option was invalid." when an
// option has no value, its value begins with '-', or the value does not
// fit its field (it is never cut).
int vip_parse_options(int argc, char** argv, VIP_INFO* pvipinfo, char* addrbuf,
                      std::size_t addrsize);
