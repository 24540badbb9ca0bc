// The library's state: the running configuration, the configurations under
// check, the loaded policies and which configuration lookups read.
#include "vyrxml.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <vector>

#include "xml_document.h"
#include "xml_path.h"

#ifndef VYR_DEFAULT_POLICY_DIR
#define VYR_DEFAULT_POLICY_DIR "/opt/vyrcluster/share/vyrcluster/policy"
#endif

namespace {

constexpr const char* kDefaultConfig = "/etc/vyrcluster/cluster.xml";
constexpr std::size_t kErrorMax = 1024;

struct Policy {
  std::string type;
  int loads = 0;  // load_policy calls not yet undone
  std::unique_ptr<pugi::xml_document> doc;
};

struct State {
  bool initialised = false;
  std::string module;
  std::unique_ptr<pugi::xml_document> running;
  // Configurations under check; a handle is the address of its document.
  std::vector<std::unique_ptr<pugi::xml_document>> checked;
  pugi::xml_document* switched = nullptr;  // set by xmllib_change_config
  std::vector<Policy> policies;            // in load order

  const pugi::xml_document* Current() const { return switched ? switched : running.get(); }
};

// Loads and unloads take the lock exclusively, lookups shared, so a lookup
// never sees a document that is being freed.
std::shared_mutex state_lock;
State state;

thread_local char last_error[kErrorMax];

void SetError(const std::string& text) {
  std::snprintf(last_error, sizeof last_error, "%s", text.c_str());
  std::fprintf(stderr, "vyrxml: %s\n", last_error);
}

void ClearError() { last_error[0] = '\0'; }

std::string EnvOr(const char* name, const char* fallback) {
  const char* value = std::getenv(name);
  return value && *value ? value : fallback;
}

// A policy type names a file in the policy folder: no separators, no dots
// at the start.
bool LegalType(const char* type) {
  if (!type || !*type || *type == '.') return false;
  return std::strchr(type, '/') == nullptr;
}

Policy* FindPolicy(const char* type) {
  for (Policy& p : state.policies) {
    if (p.type == type) return &p;
  }
  return nullptr;
}

// The element of `segs`: the current configuration first, then the loaded
// policies in load order.
pugi::xml_node Lookup(const std::vector<vyrxml::PathSegment>& segs) {
  pugi::xml_node node = vyrxml::FindElement(*state.Current(), segs);
  for (std::size_t i = 0; !node && i < state.policies.size(); ++i) {
    node = vyrxml::FindElement(*state.policies[i].doc, segs);
  }
  return node;
}

int DecodeValue(pugi::xml_node node, int type, void* buf, int size) {
  std::string text = vyrxml::ElementText(node);
  if (type == VYR_XMLTYPE_TEXT) return vyrxml::CopyText(text, buf, size);
  if (size < static_cast<int>(sizeof(int))) return VYR_XMLERR_NOTENOUGH_SIZE;
  int value = 0;
  int ret = vyrxml::ParseInt(text, &value);
  if (ret == VYR_XMLERR_SUCCESS) std::memcpy(buf, &value, sizeof value);
  return ret;
}

// Common checks of a lookup; VYR_XMLERR_SUCCESS when it may go on.
int CheckLookup(const char* path, int type, const void* buf, const int* size) {
  if (!state.initialised) return VYR_XMLERR_NOT_INIT;
  if (!path) return VYR_XMLERR_INVALID_PATH;
  if (type != VYR_XMLTYPE_TEXT && type != VYR_XMLTYPE_INT) return VYR_XMLERR_OTHER;
  if (!buf || !size) return VYR_XMLERR_OTHER;
  if (!state.Current()) return VYR_XMLERR_NOT_LOAD;
  return VYR_XMLERR_SUCCESS;
}

int GetValueLocked(const char* path, int type, void* buf, int* size) {
  std::vector<vyrxml::PathSegment> segs = vyrxml::ParsePath(path);
  if (segs.empty()) return VYR_XMLERR_INVALID_PATH;
  pugi::xml_node node = Lookup(segs);
  if (!node) return VYR_XMLERR_NOTEXIST_PATH;
  return DecodeValue(node, type, buf, *size);
}

bool IsCheckedHandle(const void* handle) {
  for (const auto& doc : state.checked) {
    if (doc.get() == handle) return true;
  }
  return false;
}

}  // namespace

const char* xmllib_last_error(void) { return last_error; }

int xmllib_init(const char* type) {
  if (!type || !*type) return VYR_XMLERR_OTHER;
  std::unique_lock<std::shared_mutex> hold(state_lock);
  state.initialised = true;
  state.module = type;
  return VYR_XMLERR_SUCCESS;
}

int xmllib_term(void) {
  std::unique_lock<std::shared_mutex> hold(state_lock);
  if (!state.initialised) return VYR_XMLERR_NOT_INIT;
  state = State{};
  return VYR_XMLERR_SUCCESS;
}

int xmllib_load_config(void) {
  std::unique_lock<std::shared_mutex> hold(state_lock);
  if (!state.initialised) return VYR_XMLERR_NOT_INIT;
  vyrxml::LoadResult loaded = vyrxml::LoadDocument(EnvOr("VYR_CONFIG", kDefaultConfig));
  if (loaded.status != 0) {
    SetError(loaded.error);
    return loaded.status;
  }
  ClearError();
  state.running = std::move(loaded.doc);
  return VYR_XMLERR_SUCCESS;
}

int xmllib_unload_config(void) {
  std::unique_lock<std::shared_mutex> hold(state_lock);
  if (!state.initialised) return VYR_XMLERR_NOT_INIT;
  if (!state.running) return VYR_XMLERR_NOT_LOAD;
  state.running.reset();
  return VYR_XMLERR_SUCCESS;
}

int xmllib_load_policy(const char* type) {
  std::unique_lock<std::shared_mutex> hold(state_lock);
  if (!state.initialised) return VYR_XMLERR_NOT_INIT;
  if (!LegalType(type)) return VYR_XMLERR_INVALID_PATH;
  if (Policy* loaded = FindPolicy(type)) {
    ++loaded->loads;
    return VYR_XMLERR_SUCCESS;
  }
  std::string file = EnvOr("VYR_POLICY_DIR", VYR_DEFAULT_POLICY_DIR) + "/" + type + ".xml";
  vyrxml::LoadResult result = vyrxml::LoadDocument(file);
  if (result.status != 0) {
    SetError(result.error);
    return result.status;
  }
  ClearError();
  state.policies.push_back(Policy{type, 1, std::move(result.doc)});
  return VYR_XMLERR_SUCCESS;
}

int xmllib_unload_policy(const char* type) {
  std::unique_lock<std::shared_mutex> hold(state_lock);
  if (!state.initialised) return VYR_XMLERR_NOT_INIT;
  if (!LegalType(type)) return VYR_XMLERR_INVALID_PATH;
  Policy* loaded = FindPolicy(type);
  if (!loaded) return VYR_XMLERR_NOT_LOAD;
  if (--loaded->loads == 0) {
    std::erase_if(state.policies, [type](const Policy& p) { return p.type == type; });
  }
  return VYR_XMLERR_SUCCESS;
}

int xmllib_get_value(const char* path, int type, void* buf, int* size) {
  std::shared_lock<std::shared_mutex> hold(state_lock);
  int ret = CheckLookup(path, type, buf, size);
  if (ret != VYR_XMLERR_SUCCESS) return ret;
  return GetValueLocked(path, type, buf, size);
}

int xmllib_get_srvsep_value(const char* server, const char* path, int type, void* buf, int* size) {
  std::shared_lock<std::shared_mutex> hold(state_lock);
  int ret = CheckLookup(path, type, buf, size);
  if (ret != VYR_XMLERR_SUCCESS) return ret;
  if (vyrxml::ParsePath(path).empty()) return VYR_XMLERR_INVALID_PATH;
  if (server && *server) {
    if (std::strchr(server, '/')) return VYR_XMLERR_INVALID_PATH;
    std::string own = vyrxml::ServerPath(path, server);
    if (!own.empty()) {
      ret = GetValueLocked(own.c_str(), type, buf, size);
      // Only a server without its own element falls back to the common one.
      if (ret != VYR_XMLERR_NOTEXIST_PATH) return ret;
    }
  }
  return GetValueLocked(path, type, buf, size);
}

int xmllib_enum_value(const char* path, char* buf, int* size) {
  std::shared_lock<std::shared_mutex> hold(state_lock);
  if (!state.initialised) return VYR_XMLERR_NOT_INIT;
  if (!path) return VYR_XMLERR_INVALID_PATH;
  if (!size) return VYR_XMLERR_OTHER;
  if (!state.Current()) return VYR_XMLERR_NOT_LOAD;
  std::vector<vyrxml::PathSegment> segs = vyrxml::ParsePath(path);
  if (segs.size() < 2 || segs.back().name) return VYR_XMLERR_INVALID_PATH;
  std::string tag = segs.back().tag;
  segs.pop_back();
  std::vector<std::string> names;
  pugi::xml_node parent = vyrxml::FindElement(*state.Current(), segs);
  if (parent) names = vyrxml::ChildNames(parent, tag);
  for (std::size_t i = 0; names.empty() && i < state.policies.size(); ++i) {
    parent = vyrxml::FindElement(*state.policies[i].doc, segs);
    if (parent) names = vyrxml::ChildNames(parent, tag);
  }
  if (names.empty()) return VYR_XMLERR_NOTEXIST_PATH;
  const int needed = static_cast<int>(names.size()) * VYR_XML_ENUM_ENTRY;
  if (!buf) {
    *size = needed;
    return VYR_XMLERR_SUCCESS;
  }
  if (*size < needed) {
    *size = needed;
    return VYR_XMLERR_NOTENOUGH_SIZE;
  }
  // A name that does not fit an entry with its terminator cannot be listed.
  for (const std::string& name : names) {
    if (name.size() >= VYR_XML_ENUM_ENTRY) return VYR_XMLERR_INVALID_CONTENTS;
  }
  for (std::size_t i = 0; i < names.size(); ++i) {
    char* entry = buf + i * VYR_XML_ENUM_ENTRY;
    std::memset(entry, 0, VYR_XML_ENUM_ENTRY);
    std::memcpy(entry, names[i].data(), names[i].size());
  }
  *size = needed;
  return VYR_XMLERR_SUCCESS;
}

int xmllib_load_pathconfig(const char* file, void** handle) {
  std::unique_lock<std::shared_mutex> hold(state_lock);
  if (!state.initialised) return VYR_XMLERR_NOT_INIT;
  if (!file || !*file || !handle) return VYR_XMLERR_OTHER;
  vyrxml::LoadResult loaded = vyrxml::LoadDocument(file);
  if (loaded.status != 0) {
    SetError(loaded.error);
    return loaded.status;
  }
  ClearError();
  *handle = loaded.doc.get();
  state.checked.push_back(std::move(loaded.doc));
  return VYR_XMLERR_SUCCESS;
}

int xmllib_change_config(void* handle) {
  std::unique_lock<std::shared_mutex> hold(state_lock);
  if (!state.initialised) return VYR_XMLERR_NOT_INIT;
  if (!IsCheckedHandle(handle)) return VYR_XMLERR_INVALID_HANDLE;
  state.switched = static_cast<pugi::xml_document*>(handle);
  return VYR_XMLERR_SUCCESS;
}

int xmllib_unload_pathconfig(void* handle) {
  std::unique_lock<std::shared_mutex> hold(state_lock);
  if (!state.initialised) return VYR_XMLERR_NOT_INIT;
  if (!IsCheckedHandle(handle)) return VYR_XMLERR_INVALID_HANDLE;
  // Lookups go back to the running configuration.
  if (state.switched == handle) state.switched = nullptr;
  std::erase_if(state.checked, [handle](const auto& doc) { return doc.get() == handle; });
  return VYR_XMLERR_SUCCESS;
}
