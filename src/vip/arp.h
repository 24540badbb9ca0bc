// Gratuitous ARP announcement of an added IPv4 address.
#pragma once

#include "vip/addrinfo.h"

int vip_send_arp(struct vdevinfo* vdev, int num, int opcode);
