// Probing one address with the cluster's ping command.
#pragma once

#include "common/text.h"
#include "vip/base/vip_info.h"

typedef struct _IP_INFO {
  int ret;
  char addr[VIP_ADDR_LEN];
  VIP_INFO* pinfo;
} IP_INFO, *PIP_INFO;

// 0 free, 2 unexpected exit status, 11 abnormal end, 13 no ping command, 15 in use.
int vip_chk_ip_response(PIP_INFO pip);
// 0, 3, 11, 12 or 26; `macaddr` holds 32 bytes.
int vip_get_macaddr_v4(const char* cmdpath, const char* ipaddr, char* macaddr);

namespace vyr {

// Buffer sizes of the neighbour lookup: the MAC text and one output line.
inline constexpr int kMacTextLen = 32;
inline constexpr int kLookupLineLen = static_cast<int>(kLineMax);

// The first token of `line` (one output line of at most kLookupLineLen - 1
// characters, cut into tokens in place) that reads as six hex fields,
// copied whole into `macaddr` (kMacTextLen bytes). A token too long for the
// buffer is not taken: a cut MAC text would name another card.
bool FindMacToken(char* line, char* macaddr);

}  // namespace vyr
