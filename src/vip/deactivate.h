// The deactivation sequence.
#pragma once

#include "vip/vip_info.h"

int vip_start_deact(VIP_INFO* pvipinfo);
