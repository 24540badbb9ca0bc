#include "bench_inputs.h"

#include <arpa/inet.h>

#include <cstdio>
#include <sstream>

namespace vyrbench {

namespace {

// The n-th address of 192.0.2.0/24 and 198.51.100.0/24, then over again:
// the parser does not care whether addresses repeat.
std::string DocAddress(int n) {
  int k = n % 508;
  return k < 254 ? "192.0.2." + std::to_string(k + 1) : "198.51.100." + std::to_string(k - 253);
}

void Block(std::ostringstream& out, const std::string& name, const std::string& addr) {
  char head[64];
  std::snprintf(head, sizeof head, "%-10sLink encap:Ethernet  HWaddr 52:54:00:12:34:56  \n",
                name.c_str());
  out << head << "          inet addr:" << addr << "  Bcast:192.0.2.255  Mask:255.255.255.0\n"
      << "          UP BROADCAST RUNNING MULTICAST  MTU:1500  Metric:1\n"
      << "          RX packets:0 errors:0 dropped:0 overruns:0 frame:0\n\n";
}

}  // namespace

std::string OlderListing(int blocks) {
  std::ostringstream out;
  Block(out, "eth0", "192.0.2.1");
  for (int i = 0; i + 1 < blocks; ++i) Block(out, "eth0:" + std::to_string(i), DocAddress(i + 1));
  return out.str();
}

std::string ClusterConfig(const std::string& install_dir, int resources, int servers) {
  std::ostringstream xml;
  xml << "<?xml version=\"1.0\"?>\n<root>\n  <all><path>" << install_dir << "</path></all>\n"
      << "  <vip><log><level>1</level><size>1000000</size></log></vip>\n  <resource>\n"
      << "    <vip><parameters><ping><path>bin/vyrping</path></ping></parameters></vip>\n";
  for (int r = 0; r < resources; ++r) {
    xml << "    <vip name=\"vip" << r << "\">\n      <parameters><ip>" << DocAddress(r)
        << "/24</ip><ifname>eth0</ifname><ping><timeout>1</timeout><retry>2</retry></ping>"
        << "<arp><retry>1</retry></arp></parameters>\n";
    for (int s = 0; s < servers; ++s) {
      xml << "      <server name=\"s" << s << "\"><parameters><ip>" << DocAddress(r + s)
          << "/24</ip><ifname>eth0</ifname></parameters></server>\n";
    }
    xml << "    </vip>\n";
  }
  xml << "  </resource>\n</root>\n";
  return xml.str();
}

std::vector<ipaddrinfo> AliasList(int aliases) {
  std::vector<ipaddrinfo> list(static_cast<size_t>(aliases) + 1);
  for (size_t i = 0; i < list.size(); ++i) {
    ipaddrinfo& e = list[i];
    if (i == 0) {
      std::snprintf(e.ifname, sizeof e.ifname, "eth0");
    } else {
      std::snprintf(e.ifname, sizeof e.ifname, "eth0:%zu", i - 1);
    }
    std::string addr = DocAddress(static_cast<int>(i));
    std::snprintf(e.sipel.addr, sizeof e.sipel.addr, "%s", addr.c_str());
    std::snprintf(e.sipel.mask, sizeof e.sipel.mask, "255.255.255.0");
    e.sipel.masklen = 24;
    inet_pton(AF_INET, addr.c_str(), &e.nipel.addr);
    inet_pton(AF_INET, "255.255.255.0", &e.nipel.mask);
    std::snprintf(e.smac, sizeof e.smac, "52:54:00:12:34:56");
  }
  return list;
}

}  // namespace vyrbench
