// Generated inputs of the in-process benchmarks.
#pragma once

#include <string>
#include <vector>

#include "nicCommon/addrinfo.h"

namespace vyrbench {

// "ifconfig -a" output of the older layout: the interface eth0 and
// `blocks - 1` aliases eth0:0 ... of it, each with an IPv4 address.
std::string OlderListing(int blocks);

// A running configuration with `resources` virtual IP resources vip0...,
// each with `servers` servers s0... that carry their own address and
// interface.
std::string ClusterConfig(const std::string& install_dir, int resources, int servers);

// An address list as the listing returns it: eth0 and the aliases eth0:0
// to eth0:<aliases - 1>.
std::vector<ipaddrinfo> AliasList(int aliases);

}  // namespace vyrbench
