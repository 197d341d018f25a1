// File-system steps shared by the logger and the user database. Internal to
// the platform library.
#pragma once

#include <string>

namespace ZANT {
namespace FileUtil {

// Makes every directory above `path` (mode 0755). Failures are ignored: the
// open that follows reports them.
void MakeParentDirs(const std::string& path);

// Writes all of `text` to `fd`, again after EINTR; false on any other failure.
bool WriteAll(int fd, const std::string& text);

}  // namespace FileUtil
}  // namespace ZANT
