// The response object and the CGI text the framework makes of it.
#include <strings.h>

#include "zant/json_util.h"
#include "zant/webapi.h"

namespace ZANT {

namespace {

bool SameHeaderName(const std::string& a, const char* b) { return strcasecmp(a.c_str(), b) == 0; }

}  // namespace

void APIResponse::SetSuccess(const Json::Value& data) {
  answered_ = true;
  success_ = true;
  errorCode_ = 0;
  data_ = data;
  hasRaw_ = false;
}

void APIResponse::SetSuccess(Json::Value&& data) {
  SetSuccess();
  data_ = std::move(data);
}

void APIResponse::SetError(int code, const Json::Value& data) {
  answered_ = true;
  success_ = false;
  errorCode_ = code;
  data_ = data;
  hasRaw_ = false;
}

void APIResponse::SetHeader(const std::string& name, const std::string& value) {
  headers_.emplace_back(name, value);
}

std::string APIResponse::GetHeader(const std::string& name) const {
  for (auto it = headers_.rbegin(); it != headers_.rend(); ++it) {
    if (SameHeaderName(it->first, name.c_str())) return it->second;
  }
  return std::string();
}

namespace {

// The result object of an answer that is not raw; `data` is consumed.
Json::Value ResultObject(bool answered, bool success, int errorCode, Json::Value data) {
  Json::Value result(Json::objectValue);
  if (!answered) {
    result["success"] = false;
    result["error"]["code"] = kErrUnknown;
    return result;
  }
  if (success) {
    result["success"] = true;
    // A success without data answers {"success":true}.
    if (!data.isNull()) result["data"] = std::move(data);
    return result;
  }
  result["success"] = false;
  result["error"]["code"] = errorCode;
  if (!data.isNull()) result["error"]["errors"] = std::move(data);
  return result;
}

}  // namespace

Json::Value APIResponse::ToResult() const {
  if (hasRaw_) return raw_;
  return ResultObject(answered_, success_, errorCode_, answered_ ? data_ : Json::Value());
}

Json::Value APIResponse::TakeResult() {
  if (hasRaw_) return std::move(raw_);
  return ResultObject(answered_, success_, errorCode_, std::move(data_));
}

std::string FormatFrameworkAnswer(const APIResponse& response) {
  if (!response.IsEnableOutput()) return std::string();
  bool hasLocation = false;
  for (const auto& header : response.GetHeaders()) {
    if (SameHeaderName(header.first, "Location")) hasLocation = true;
  }
  if (response.IsSuccess() && hasLocation) {
    return "Status: 302 Found\r\nLocation: " + response.GetHeader("Location") + "\r\n\r\n";
  }
  // Errors go out as 200 with the JSON error object: clients read "success".
  std::string out = "Content-Type: application/json; charset=\"UTF-8\"\r\n";
  for (const auto& header : response.GetHeaders()) {
    if (SameHeaderName(header.first, "Content-Type")) continue;
    out += header.first + ": " + header.second + "\r\n";
  }
  out += "\r\n";
  out += JsonToString(response.ToResult());
  return out;
}

}  // namespace ZANT
