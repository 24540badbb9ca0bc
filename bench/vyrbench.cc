// In-process benchmarks of the code whose cost grows with the host: the
// listing parser, the configuration load and fill, the alias choice. Each
// comes with its small baseline so that bench/run can report the ratio.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include "bench_inputs.h"
#include "vip/address/device_choice.h"
#include "vip/address/listing_parse.h"
#include "vip/base/globals.h"
#include "vip/base/vip_info.h"
#include "vip/settings/config.h"

namespace {

void BM_ParseOlderListing(benchmark::State& state) {
  ipv6flag = 0;
  const std::string text = vyrbench::OlderListing(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    ipaddrinfo* list = nullptr;
    int num = 0;
    if (vyr::ParseIfconfigText(text, ipv6flag != 0, &list, &num) != 0 || num != state.range(0)) {
      state.SkipWithError("the listing did not parse");
      break;
    }
    benchmark::DoNotOptimize(list);
    std::free(list);
  }
}
BENCHMARK(BM_ParseOlderListing)->Arg(10)->Arg(10000)->Unit(benchmark::kMillisecond);

// Writes the configuration once per size into a private folder and points
// the configuration library at it.
class ConfigFiles {
 public:
  ConfigFiles() {
    char tmpl[] = "/tmp/vyrbench.XXXXXX";
    dir_ = mkdtemp(tmpl) ? tmpl : "/tmp";
    setenv("VYR_POLICY_DIR", VYR_POLICY_SOURCE_DIR, 1);
    setenv("VYR_LOG_DIR", dir_.c_str(), 1);
  }
  ~ConfigFiles() {
    std::string cmd = "rm -rf '" + dir_ + "'";
    if (dir_ != "/tmp" && std::system(cmd.c_str()) != 0)
      std::fprintf(stderr, "%s failed\n", cmd.c_str());
  }
  void Use(int resources, int servers) {
    std::string file = dir_ + "/cluster-" + std::to_string(resources) + ".xml";
    std::ofstream(file) << vyrbench::ClusterConfig(dir_, resources, servers);
    setenv("VYR_CONFIG", file.c_str(), 1);
  }

 private:
  std::string dir_;
};

ConfigFiles& Files() {
  static ConfigFiles files;
  return files;
}

// One run's configuration work: load the file, fill the last resource's
// settings (the path lookups reach the end of the document), end.
void BM_LoadAndFillConfig(benchmark::State& state) {
  const int resources = static_cast<int>(state.range(0));
  Files().Use(resources, 8);
  const std::string rsc = "vip" + std::to_string(resources - 1);
  for (auto _ : state) {
    VIP_INFO info{};
    std::snprintf(info.rscname, sizeof info.rscname, "%s", rsc.c_str());
    std::snprintf(info.grpname, sizeof info.grpname, "grp1");
    actflag = 0;
    int ret = vip_xml_init();
    if (ret == 0) ret = vip_xml_get_config(&info);
    vip_xml_term();
    if (ret != 0 || info.addr[0] == '\0') {
      state.SkipWithError("the configuration did not load");
      break;
    }
    benchmark::DoNotOptimize(info);
  }
}
BENCHMARK(BM_LoadAndFillConfig)->Arg(1)->Arg(1000)->Unit(benchmark::kMillisecond);

// The device choice for a new IPv4 address when aliases 0 to n-1 are taken.
void BM_ChooseAlias(benchmark::State& state) {
  ipv6flag = 0;
  const int aliases = static_cast<int>(state.range(0));
  std::vector<ipaddrinfo> list = vyrbench::AliasList(aliases);
  const std::string want = "eth0:" + std::to_string(aliases);
  for (auto _ : state) {
    vdevinfo vdev{};
    std::snprintf(vdev.ifname, sizeof vdev.ifname, "eth0");
    std::snprintf(vdev.sipel.addr, sizeof vdev.sipel.addr, "203.0.113.9");
    std::snprintf(vdev.sipel.mask, sizeof vdev.sipel.mask, "255.255.255.0");
    vdev.sipel.masklen = 24;
    inet_pton(AF_INET, "203.0.113.9", &vdev.nipel.addr);
    inet_pton(AF_INET, "255.255.255.0", &vdev.nipel.mask);
    int ret = vip_crt_vdevinfo(list.data(), static_cast<int>(list.size()), &vdev);
    if (ret != 0 || want != vdev.vdevname) {
      state.SkipWithError("the alias choice went wrong");
      break;
    }
    benchmark::DoNotOptimize(vdev);
  }
}
BENCHMARK(BM_ChooseAlias)->Arg(10)->Arg(9999)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
