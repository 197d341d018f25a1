#include "zant/appliance.h"

#include <cstdlib>

namespace ZANT {

std::string RootPath(const std::string& path) {
  if (path.empty() || path[0] != '/') return path;
  const char* root = std::getenv("ZANT_ROOT");
  if (root == nullptr || *root == '\0') return path;
  std::string prefix(root);
  // "/tmp/x/" and "/tmp/x" name the same root; "/" alone leaves paths as they are.
  while (!prefix.empty() && prefix.back() == '/') prefix.pop_back();
  return prefix + path;
}

std::string WebRoot() { return RootPath("/usr/zant/zantman"); }

}  // namespace ZANT
