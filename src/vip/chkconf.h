// Check mode for virtual IP resources and the configuration under check.
#pragma once

// 0 no fault, 1 findings written, other: the check could not complete.
int vip_conf_check(const char* rscname);
// Loads the configuration under check and makes it current. 0 or a status.
int vip_load_chkconf(void);
// Releases it; does nothing when none is loaded.
void vip_unload_chkconf(void);
