// libFuzzer target: a key-value file ("key=value" / key="value" lines)
// looked up through the C lookups the appliance code calls, with a fuzzed
// key and a fuzzed buffer size. The copy always fits and ends in a NUL, and
// the value found is the one the check function agrees with.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "zant/vlibc.h"

namespace {

const char kFile[] = "/etc/zantinfo.conf";
// Keys the appliance really looks up, and now and then a fuzzed one.
const char* const kKeys[] = {"external_host_ip", "nxo_http_port", "supportddns",
                             "x_frame_options", "global_suffix", "a"};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  const std::string key =
      in.ConsumeBool() ? std::string(in.PickValueInArray(kKeys)) : in.ConsumeRandomLengthString(16);
  const int bufferSize = in.ConsumeIntegralInRange<int>(1, 64);
  plyth_fuzz::WriteApplianceFile(kFile, in.ConsumeRemainingBytesAsString());

  // Guard bytes after the buffer catch a copy that runs past `bufferSize`
  // even where the sanitizer's redzone would not.
  std::vector<char> buffer(static_cast<size_t>(bufferSize) + 8, '\x7f');
  const int rc = VLIBCFileGetKeyValue(kFile, key.c_str(), buffer.data(), bufferSize, 0);
  FUZZ_CHECK(rc >= 0 && rc <= bufferSize);
  for (size_t i = static_cast<size_t>(bufferSize); i < buffer.size(); ++i) {
    FUZZ_CHECK(buffer[i] == '\x7f');
  }
  if (rc == 0) {
    FUZZ_CHECK(VLIBCFileCheckKeyValue(kFile, key.c_str(), "", 0) == 0);
    return 0;
  }
  FUZZ_CHECK(buffer[static_cast<size_t>(rc) - 1] == '\0');
  FUZZ_CHECK(std::strlen(buffer.data()) <= static_cast<size_t>(rc) - 1);
  // A value that fitted whole (and holds no NUL) is the value stored.
  if (rc < bufferSize && std::strlen(buffer.data()) == static_cast<size_t>(rc) - 1) {
    FUZZ_CHECK(VLIBCFileCheckKeyValue(kFile, key.c_str(), buffer.data(), 0) == 1);
  }
  return 0;
}
