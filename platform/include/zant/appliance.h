// Where the appliance's files are. Every absolute appliance path (templates,
// texts, configuration, the web root, the log and user files) is opened
// through RootPath, so that a whole appliance can live under one directory.
#pragma once

#include <string>

namespace ZANT {

// `path` under the directory named by the environment variable ZANT_ROOT
// when it is set and not empty; `path` unchanged otherwise. Relative paths
// are returned unchanged.
std::string RootPath(const std::string& path);

// The appliance's web root ("/usr/zant/zantman", placed by RootPath).
std::string WebRoot();

}  // namespace ZANT
