// A handler run as the framework runs it, with everything it produced.
#include <algorithm>
#include <fstream>
#include <iterator>
#include <memory>

#include "harness.h"
#include "zant/logger.h"

namespace plyth_test {

bool FakeIdentityActive();  // fake_identity.cc

namespace {

std::string LoggerText() {
  std::ifstream in(Logger::LogFilePath(), std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The whole lines `after` added to `before`; all of them when the file was
// cut to its newest half (or is another file) meanwhile.
std::vector<std::string> NewLines(const std::string& before, const std::string& after) {
  std::vector<std::string> lines;
  size_t from = after.compare(0, before.size(), before) == 0 ? before.size() : 0;
  for (size_t end; (end = after.find('\n', from)) != std::string::npos; from = end + 1) {
    lines.push_back(after.substr(from, end - from));
  }
  return lines;
}

}  // namespace

HandlerRun RunHandler(ZANT::APIHandler handler, ZANT::APIRequest& request) {
  HandlerRun run;
  const std::string loggedBefore = LoggerText();
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
  run.logger = NewLines(loggedBefore, LoggerText());
  run.answer = run.stdoutBytes;
  if (run.response.IsEnableOutput()) run.answer += ZANT::FormatFrameworkAnswer(run.response);
  return run;
}

void SplitHeaders(const std::string& answer, std::vector<std::string>& headerLines, std::string& body) {
  headerLines.clear();
  const size_t blank = answer.find("\r\n\r\n");
  body = blank == std::string::npos ? std::string() : answer.substr(blank + 4);
  const std::string head = blank == std::string::npos ? answer : answer.substr(0, blank + 2);
  for (size_t from = 0, end; from < head.size(); from = end + 2) {
    end = std::min(head.find("\r\n", from), head.size());
    headerLines.push_back(head.substr(from, end - from));
  }
}

std::string BodyOf(const std::string& answer) {
  const size_t blank = answer.find("\r\n\r\n");
  return blank == std::string::npos ? std::string() : answer.substr(blank + 4);
}

}  // namespace plyth_test
