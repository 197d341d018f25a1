// Fake web APIs in the in-process runner: one trampoline handler is
// registered for each (api, version, method) and hands the call to the
// FakeAPI object that owns it.
#include <map>
#include <tuple>

#include <gtest/gtest.h>

#include "harness.h"

namespace plyth_test {

struct FakeAPIRegistry {
  using Key = std::tuple<std::string, int, std::string>;

  static std::map<Key, FakeAPI*>& Fakes() {
    static std::map<Key, FakeAPI*> fakes;
    return fakes;
  }

  static void Handle(ZANT::APIRequest* request, ZANT::APIResponse* response) {
    auto it = Fakes().find(Key(request->GetAPI(), request->GetVersion(), request->GetMethod()));
    if (it == Fakes().end()) return response->SetError(ZANT::kErrNoSuchMethod);
    FakeAPI& fake = *it->second;
    fake.calls_.push_back(FakeCall{request->GetParams(), request->GetLoginUserName()});
    Answer(fake.answer_ ? fake.answer_(request->GetParams(), request->GetLoginUserName())
                        : FakeAPI::Failure(ZANT::kErrUnknown), response);
  }

  // The usual shapes go through SetSuccess/SetError like a real handler's;
  // only the odd ones need the raw result.
  static void Answer(const Json::Value& result, ZANT::APIResponse* response) {
    if (result == FakeAPI::SuccessWithoutData()) return response->SetSuccess();
    if (result.isObject() && result.size() == 2 && result.isMember("data") &&
        result["success"] == Json::Value(true) && !result["data"].isNull()) {
      return response->SetSuccess(result["data"]);
    }
    if (result.isObject() && result.size() == 2 && result["success"] == Json::Value(false) &&
        result["error"].isObject() && result["error"].size() == 1 && result["error"]["code"].isInt()) {
      return response->SetError(result["error"]["code"].asInt());
    }
    response->SetRawResult(result);
  }
};

Json::Value Parse(const std::string& text) {
  Json::Value value;
  EXPECT_TRUE(Json::Reader().parse(text, value)) << text;
  return value;
}

FakeAPI::FakeAPI(const std::string& api, int version, const std::string& method)
    : api_(api), version_(version), method_(method) {
  FakeAPIRegistry::Fakes()[FakeAPIRegistry::Key(api, version, method)] = this;
  ZANT::APIRunner::Register(api, version, method, &FakeAPIRegistry::Handle);
}

FakeAPI::~FakeAPI() {
  FakeAPIRegistry::Fakes().erase(FakeAPIRegistry::Key(api_, version_, method_));
  ZANT::APIRunner::Unregister(api_, version_, method_);
}

void FakeAPI::AlwaysReturn(const Json::Value& result) {
  answer_ = [result](const Json::Value&, const std::string&) { return result; };
}

void FakeAPI::Respond(Answer answer) { answer_ = std::move(answer); }

Json::Value FakeAPI::FailureWithoutError() { return Parse(R"({"success": false})"); }

Json::Value FakeAPI::SuccessWithoutData() { return Parse(R"({"success": true})"); }

Json::Value FakeAPI::Success(const Json::Value& data) {
  Json::Value result = SuccessWithoutData();
  result["data"] = data;
  return result;
}

Json::Value FakeAPI::Failure(int code) {
  Json::Value result = FailureWithoutError();
  result["error"]["code"] = code;
  return result;
}

}  // namespace plyth_test
