// The administration command line, as a function so that tests run it
// in-process. See docs/services.md for the commands.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace plyth_services {

// Exit codes.
enum CtlExit {
  kExitOk = 0,
  kExitUsage = 1,
  kExitNotFound = 2,
  kExitConflict = 3,
  kExitBadValue = 4,
  kExitStore = 5,
};

// `args` without the program name. "--root DIR" first sets ZANT_ROOT.
int RunPlythctl(const std::vector<std::string>& args, std::istream& in, std::ostream& out,
                std::ostream& err);

}  // namespace plyth_services
