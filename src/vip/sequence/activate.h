// The activation sequence.
#pragma once

#include "vip/base/vip_info.h"

int vip_start_act(VIP_INFO* pvipinfo);
