// libFuzzer target: a key-value file ("key=value" / key="value" lines)
// looked up through the C lookups the appliance code calls, with a fuzzed
// key and a fuzzed buffer size. The copy always fits and ends in a NUL, and
// the value found is the one the check function agrees with.
#include <cstring>
#include <vector>

#include "fuzz_support.h"
#include "zant/vlibc.h"

namespace {

const char kFile[] = "/etc/zantinfo.conf";
// Keys the appliance really looks up, and now and then a fuzzed one.
const char* const kKeys[] = {"external_host_ip", "nxo_http_port", "supportddns", "x_frame_options", "global_suffix",
                             "a"};

}  // namespace

FUZZ_DATA_TARGET(FuzzedDataProvider& in) {
  const std::string key = in.ConsumeBool() ? std::string(in.PickValueInArray(kKeys)) : in.ConsumeRandomLengthString(16);
  const size_t bufferSize = in.ConsumeIntegralInRange<size_t>(1, 64);
  plyth_fuzz::WriteApplianceFile(kFile, in.ConsumeRemainingBytesAsString());

  // Guard bytes after the buffer catch a copy that runs past `bufferSize`
  // even where the sanitizer's redzone would not.
  std::vector<char> buffer(bufferSize + 8, '\x7f');
  const int rc = VLIBCFileGetKeyValue(kFile, key.c_str(), buffer.data(), static_cast<int>(bufferSize), 0);
  FUZZ_CHECK(rc >= 0 && static_cast<size_t>(rc) <= bufferSize);
  FUZZ_CHECK(std::string(buffer.begin() + bufferSize, buffer.end()) == std::string(8, '\x7f'));
  if (rc == 0) {
    FUZZ_CHECK(VLIBCFileCheckKeyValue(kFile, key.c_str(), "", 0) == 0);
    return;
  }
  const size_t copied = static_cast<size_t>(rc) - 1;
  FUZZ_CHECK(buffer[copied] == '\0' && std::strlen(buffer.data()) <= copied);
  // A value that fitted whole (and holds no NUL) is the value stored.
  if (copied + 1 < bufferSize && std::strlen(buffer.data()) == copied) {
    FUZZ_CHECK(VLIBCFileCheckKeyValue(kFile, key.c_str(), buffer.data(), 0) == 1);
  }
}
