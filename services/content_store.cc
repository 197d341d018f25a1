#include "content_store.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "crypto.h"
#include "service_errors.h"
#include "store.h"

namespace plyth_services {

int StoreContent(const std::string& localFile, std::string* hash, uint64_t* size) {
  FILE* in = fopen(localFile.c_str(), "rb");
  if (in == nullptr) return kErrNoSuchItem;
  std::string temp = Store::DataDirectory() + "/incoming.XXXXXX";
  int fd = mkstemp(&temp[0]);
  if (fd < 0) {
    fclose(in);
    return kErrStore;
  }
  FILE* out = fdopen(fd, "wb");
  Sha256 sha;
  uint64_t total = 0;
  bool ok = out != nullptr;
  char buffer[65536];
  size_t got;
  while (ok && (got = fread(buffer, 1, sizeof(buffer), in)) > 0) {
    sha.Update(buffer, got);
    total += got;
    ok = fwrite(buffer, 1, got, out) == got;
  }
  ok = ok && !ferror(in);
  fclose(in);
  if (out != nullptr) {
    ok = fclose(out) == 0 && ok;
  } else {
    close(fd);
  }
  if (!ok) {
    unlink(temp.c_str());
    return kErrStore;
  }
  *hash = sha.FinishHex();
  *size = total;
  const std::string target = Store::ContentFile(*hash);
  if (!MakeDirs(target.substr(0, target.rfind('/'))) || rename(temp.c_str(), target.c_str()) != 0) {
    unlink(temp.c_str());
    return kErrStore;
  }
  chmod(target.c_str(), 0644);
  return kOk;
}

int StoreEmptyContent(std::string* hash) {
  *hash = Sha256Hex(std::string());
  const std::string target = Store::ContentFile(*hash);
  if (!MakeDirs(target.substr(0, target.rfind('/')))) return kErrStore;
  FILE* out = fopen(target.c_str(), "ab");
  if (out == nullptr) return kErrStore;
  fclose(out);
  return kOk;
}

}  // namespace plyth_services
