// Configuration loading: the configuration library's life cycle, the trace
// log's settings, single-path lookups and the filling of the settings record.
// Main thread only.
#pragma once

#include "vip/base/vip_info.h"

extern int xmliniflag;  // xmllib_init calls not yet ended
extern int xmlconflag;  // xmllib_load_config calls not yet ended
extern int loginiflag;  // trace-log opens not yet closed

int vip_xml_init(void);
int vip_xml_term(void);
int vip_log_init(void);
int vip_log_term(void);
int vip_xml_get_path(const char* type, const char* path, char* buffer, int* size);
int vip_xml_get_config(VIP_INFO* pvipinfo);
