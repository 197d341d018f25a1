// A handler run as the framework runs it, with everything it produced.
#include <fstream>
#include <memory>
#include <sstream>

#include "harness.h"
#include "zant/logger.h"

namespace plyth_test {

bool FakeIdentityActive();  // fake_identity.cc

namespace {

// Lines of the sync logger's file written since the last call.
std::vector<std::string> TakeLoggerLines() {
  static std::string lastPath;
  static size_t offset = 0;
  const std::string path = Logger::LogFilePath();
  std::ifstream in(path, std::ios::binary);
  std::ostringstream all;
  if (in) all << in.rdbuf();
  const std::string text = all.str();
  // Another file, or one cut to its newest half: start over.
  if (path != lastPath || text.size() < offset) {
    lastPath = path;
    offset = 0;
  }
  std::vector<std::string> lines;
  for (size_t end; (end = text.find('\n', offset)) != std::string::npos; offset = end + 1) {
    lines.push_back(text.substr(offset, end - offset));
  }
  return lines;  // a partial last line waits
}

}  // namespace

HandlerRun RunHandler(ZANT::APIHandler handler, ZANT::APIRequest& request) {
  HandlerRun run;
  TakeLoggerLines();  // what earlier code logged is not this run's
  // The appliance runs handlers as root; so does a run without a test's own
  // identity, whoever runs the tests.
  std::unique_ptr<FakeIdentity> root;
  if (!FakeIdentityActive()) root.reset(new FakeIdentity(0, 0));
  SyslogCapture syslogCapture;
  {
    StdoutCapture out;
    {
      ZANT::CurrentRequestScope current(&request);
      handler(&request, &run.response);
    }
    run.stdoutBytes = out.Take();
  }
  run.syslog = syslogCapture.Lines();
  run.logger = TakeLoggerLines();
  run.answer = run.stdoutBytes;
  if (run.response.IsEnableOutput()) run.answer += ZANT::FormatFrameworkAnswer(run.response);
  return run;
}

void SplitHeaders(const std::string& answer, std::vector<std::string>& headerLines,
                  std::string& body) {
  headerLines.clear();
  body.clear();
  size_t blank = answer.find("\r\n\r\n");
  std::string head = blank == std::string::npos ? answer : answer.substr(0, blank + 2);
  if (blank != std::string::npos) body = answer.substr(blank + 4);
  for (size_t from = 0, end; from < head.size(); from = end + 2) {
    end = head.find("\r\n", from);
    if (end == std::string::npos) end = head.size();
    headerLines.push_back(head.substr(from, end - from));
  }
}

}  // namespace plyth_test
