// The deactivation sequence.
#pragma once

#include "vip/base/vip_info.h"

int vip_start_deact(VIP_INFO* pvipinfo);
