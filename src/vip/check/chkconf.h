// Check mode for virtual IP resources and the configuration under check.
//
// vip_conf_check judges one resource's settings in the configuration under
// check and writes its findings to the check log (chklog.h); the caller has
// opened the check log. vip_load_chkconf/vip_unload_chkconf switch the
// configuration library to that configuration and back; the dynamic-update
// modes use them too. Main thread only.
#pragma once

#include "chkutil/chkutil.h"

// Handle of the loaded configuration under check; null when none is loaded.
extern void* hchkconf;
// 1 once the "required for each server" finding of the source address has
// been written; it is written at most once per run.
extern int srcipaddrflag;

inline constexpr int VIP_CHK_PROPERTY_COUNT = 6;
// The virtual IP property table, in the order the findings are written.
extern const struct property vip_chk_properties[VIP_CHK_PROPERTY_COUNT];

// 0 no fault, 1 findings written, other: the check could not complete (the
// check log then ends with the internal-error line).
int vip_conf_check(const char* rscname);
// Loads the configuration under check and makes it current. 0, the status of
// vip_xml_get_path, or the configuration library's code.
int vip_load_chkconf(void);
// Releases it; does nothing when none is loaded.
void vip_unload_chkconf(void);

// The resource's comment must exist and fit 128 bytes. 0, or 1 with a finding.
int vip_comment_check(const char* rscname);
// An address as text: not empty, and a valid IPv4 or IPv6 address. Sets
// ipv6flag by the text. 0, or 1 with a finding.
int vip_ipaddr_check(const char* value);

// The advertisement count, the DAD wait, the ARP probe time and the
// ipaddr/ settings: each may be missing; a number that is set must be in the
// policy's range (findings numbered as the numeric checks), ipaddr/label a
// name of at most 13 printable characters without a blank or '/' ("NIC
// alias is invalid."), ipaddr/broadcast "none" or an IPv4 address ("IP
// address is invalid."). 0, 1, or 99 when a value cannot be read. The
// caller has loaded the resource type's policy.
int vip_defence_check(const char* rscname);

// The check functions of the property table. Each takes the value read from
// the configuration (a text, or an int for the send interval) and returns 0
// when it is good, 1 when a finding was written.
int vip_vipaddr_check(void* value);
int vip_ifname_check(void* value);
int vip_destipaddr_check(void* value);
int vip_srcipaddr_check(void* value);
int vip_srcipaddr_server_check(void* value);
int vip_interval_check(void* value);
int vip_protocol_check(void* value);
