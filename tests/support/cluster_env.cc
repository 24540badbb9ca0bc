#include "support/cluster_env.h"

#include <sstream>

namespace vyrtest {

const std::string& InstalledPrefix(std::string* why) {
  static TempDir* prefix_dir = new TempDir();  // lives until the process ends
  static std::string prefix;
  static std::string failure;
  static bool tried = false;
  if (!tried) {
    tried = true;
    std::string out;
    int rc = Sh(std::string("cmake --install '") + VYR_BINARY_DIR + "' --prefix '" +
                    prefix_dir->path() + "'",
                &out);
    if (rc == 0) {
      prefix = prefix_dir->path();
    } else {
      failure = out;
    }
  }
  if (why) *why = failure;
  return prefix;
}

ClusterEnv::ClusterEnv() : prefix_(InstalledPrefix()) {
  Sh("mkdir -p '" + dir_ / "log" + "' '" + dir_ / "run" + "'");
}

ClusterEnv::~ClusterEnv() {
  if (started_) Ctl("stop");
}

std::string ClusterEnv::EnvAssignments() const {
  return "VYR_CONFIG='" + config_path() + "' VYR_POLICY_DIR='" + prefix_ +
         "/share/vyrcluster/policy' VYR_LOG_DIR='" + dir_ / "log" + "' VYR_RUN_DIR='" +
         dir_ / "run" + "' " + extra_env_;
}

void ClusterEnv::WriteConfig(const std::string& resources, const std::string& common,
                             int log_level) const {
  std::ostringstream xml;
  xml << "<?xml version=\"1.0\"?>\n<root>\n"
      << "  <all><path>" << prefix_ << "</path></all>\n"
      << "  <vip><log><level>" << log_level << "</level><size>10000000</size></log></vip>\n"
      << "  <resource>\n"
      << "    <vip><parameters>" << common << "</parameters></vip>\n"
      << resources << "\n  </resource>\n</root>\n";
  WriteFile(config_path(), xml.str());
}

int ClusterEnv::Ctl(const std::string& args, std::string* out) {
  if (args == "start") started_ = true;
  if (args == "stop") started_ = false;
  return Sh("env " + EnvAssignments() + " '" + prefix_ + "/bin/vyrctl' " + args, out);
}

std::string ClusterEnv::Description(const std::string& group, const std::string& rsc) {
  std::string out;
  if (Ctl("status", &out) != 0) return "";
  std::istringstream rows(out);
  std::string row;
  const std::string key = group + "\tvip\t" + rsc + "\t";
  while (std::getline(rows, row)) {
    if (row.rfind(key, 0) == 0) return row.substr(key.size());
  }
  return "";
}

int ClusterEnv::Vyrvip(const std::string& netns, const std::string& args, std::string* out) const {
  std::string cmd = netns.empty() ? "" : "ip netns exec " + netns + " ";
  cmd += "env " + EnvAssignments() + " '" + prefix_ + "/bin/vyrvip' " + args;
  return Sh(cmd, out);
}

}  // namespace vyrtest
