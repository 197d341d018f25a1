// Loading of the web-API modules and registration of their methods.
#include <dirent.h>
#include <dlfcn.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "zant_host/host.h"

namespace zant_host {

const char kModuleDir[] = "/usr/zant/lib/webapi";

namespace {

// A table without its end row must not walk us through the whole library.
const int kMaxRows = 4096;

int RefuseCheck(ZANT::APIRequest*) { return 0; }

bool EndsWith(const std::string& text, const char* suffix) {
  size_t n = std::strlen(suffix);
  return text.size() > n && text.compare(text.size() - n, n, suffix) == 0;
}

std::vector<std::string> ModuleFiles(const std::string& dir) {
  std::vector<std::string> names;
  DIR* d = opendir(dir.c_str());
  if (d == nullptr) return names;
  while (struct dirent* entry = readdir(d)) {
    const std::string name = entry->d_name;
    if (name[0] != '.' && EndsWith(name, ".so")) names.push_back(name);
  }
  closedir(d);
  std::sort(names.begin(), names.end());
  return names;
}

ZANT::APICheck FindCheck(const ZANTAPICheckEntry* checks, const ZANTAPITableEntry& row) {
  for (int i = 0; checks != nullptr && i < kMaxRows; ++i) {
    const ZANTAPICheckEntry& check = checks[i];
    if (check.api == nullptr && check.method == nullptr && check.check == nullptr) break;
    if (check.api == nullptr || check.method == nullptr) continue;
    if (std::strcmp(check.api, row.api) == 0 && check.version == row.version &&
        std::strcmp(check.method, row.method) == 0) {
      return check.check;
    }
  }
  return nullptr;
}

int RegisterTable(const std::string& file, const ZANTAPITableEntry* table,
                  const ZANTAPICheckEntry* checks) {
  int count = 0;
  for (int i = 0; table != nullptr && i < kMaxRows; ++i) {
    const ZANTAPITableEntry& row = table[i];
    if (row.api == nullptr && row.method == nullptr && row.handler == nullptr) break;
    if (row.api == nullptr || row.method == nullptr || row.handler == nullptr) {
      HostLog(true, "module %s: row %d of its method table is incomplete, skipped", file.c_str(), i);
      continue;
    }
    ZANT::APICheck check = FindCheck(checks, row);
    if (check == nullptr) {
      HostLog(true, "module %s: %s %d %s has no check function and is refused", file.c_str(),
              row.api, row.version, row.method);
      check = RefuseCheck;
    }
    if (ZANT::APIRunner::Find(row.api, row.version, row.method, nullptr, nullptr) ==
        ZANT::APIRunner::kFound) {
      HostLog(false, "module %s replaces %s %d %s", file.c_str(), row.api, row.version, row.method);
    }
    ZANT::APIRunner::Register(row.api, row.version, row.method, row.handler, check);
    ++count;
  }
  return count;
}

}  // namespace

LoadReport LoadModules(const std::string& dir) {
  LoadReport report;
  for (const std::string& name : ModuleFiles(dir)) {
    const std::string path = dir + "/" + name;
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
      const char* why = dlerror();
      HostLog(true, "cannot load module %s: %s", path.c_str(), why != nullptr ? why : "unknown error");
      ++report.failures;
      continue;
    }
    auto getTable = reinterpret_cast<ZANTGetAPITableFn>(dlsym(handle, "GetAPITable"));
    auto getChecks = reinterpret_cast<ZANTGetAPICheckTableFn>(dlsym(handle, "GetAPICheckTable"));
    if (getTable == nullptr) {
      HostLog(true, "module %s has no GetAPITable, not used", path.c_str());
      dlclose(handle);
      ++report.failures;
      continue;
    }
    if (getChecks == nullptr) {
      HostLog(true, "module %s has no GetAPICheckTable: its methods are refused", path.c_str());
    }
    int methods = RegisterTable(name, getTable(), getChecks != nullptr ? getChecks() : nullptr);
    HostLog(false, "loaded module %s: %d methods", name.c_str(), methods);
    ++report.modules;
    report.methods += methods;
  }
  return report;
}

}  // namespace zant_host
