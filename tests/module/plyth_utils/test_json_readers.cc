// The readers every handler uses on parameters, records and server
// variables: a value of the wrong kind reads as empty, never throws.
#include "json_readers.h"
#include "../module_testing.h"

namespace {

struct ValueRow {
  const char* description;
  const char* json;  // the value read
  const char* text;  // JsonText
  bool flag = false; // JsonFlag
};

class ValueReaders : public ::testing::TestWithParam<ValueRow> {};

TEST_P(ValueReaders, TextAndFlag) {
  const ValueRow& row = GetParam();
  const Json::Value value = Parse(row.json);
  EXPECT_EQ(row.text, JsonText(value));
  EXPECT_EQ(row.flag, JsonFlag(value));
}

INSTANTIATE_TEST_SUITE_P(Rows, ValueReaders, ::testing::Values(
    ValueRow{.description = "string", .json = R"("a b")", .text = "a b"},
    ValueRow{.description = "string true", .json = R"("true")", .text = "true"},
    ValueRow{.description = "null", .json = "null", .text = ""},
    ValueRow{.description = "true", .json = "true", .text = "true", .flag = true},
    ValueRow{.description = "false", .json = "false", .text = "false"},
    ValueRow{.description = "integer", .json = "5000", .text = "5000", .flag = true},
    ValueRow{.description = "negative", .json = "-7", .text = "-7", .flag = true},
    ValueRow{.description = "zero", .json = "0", .text = "0"},
    ValueRow{.description = "real", .json = "0.5", .text = "0.5", .flag = true},
    ValueRow{.description = "array", .json = "[1]", .text = ""},
    ValueRow{.description = "object", .json = R"({"a":1})", .text = ""}));

struct MemberRow {
  const char* description;
  const char* object;  // the record read
  const char* member = "null";  // Member(record, "k") as JSON
  const char* text = "";        // MemberText
  bool flag = false;            // MemberFlag
  bool succeeded = false;       // Succeeded, with the member named "success"
};

class MemberReaders : public ::testing::TestWithParam<MemberRow> {};

TEST_P(MemberReaders, OfKey) {
  const MemberRow& row = GetParam();
  const Json::Value object = Parse(row.object);
  EXPECT_EQ(Parse(row.member), Member(object, "k"));
  EXPECT_EQ(row.text, MemberText(object, "k"));
  EXPECT_EQ(row.flag, MemberFlag(object, "k"));
  Json::Value result = object;
  if (result.isObject() && result.isMember("k")) result["success"] = result["k"];
  EXPECT_EQ(row.succeeded, Succeeded(result));
}

INSTANTIATE_TEST_SUITE_P(Rows, MemberReaders, ::testing::Values(
    MemberRow{.description = "text member", .object = R"({"k":"v"})", .member = R"("v")", .text = "v"},
    MemberRow{.description = "true member", .object = R"({"k":true})", .member = "true", .text = "true", .flag = true,
              .succeeded = true},
    MemberRow{.description = "numeric member", .object = R"({"k":1})", .member = "1", .text = "1", .flag = true,
              .succeeded = true},
    MemberRow{.description = "object member", .object = R"({"k":{"x":1}})", .member = R"({"x":1})"},
    MemberRow{.description = "absent member", .object = R"({"j":"v"})"},
    MemberRow{.description = "not an object", .object = R"(["k"])"},
    MemberRow{.description = "null record", .object = "null"}));

struct EnvRow {
  const char* description;
  const char* set;  // value of SERVER_PORT; nullptr: unset
  const char* text;
};

class EnvReader : public ::testing::TestWithParam<EnvRow> {};

TEST_P(EnvReader, ServerVariable) {
  const EnvRow& row = GetParam();
  ZANT::APIRequest request;
  if (row.set != nullptr) request.SetServerVar("SERVER_PORT", row.set);
  EXPECT_EQ(row.text, EnvText(&request, "SERVER_PORT"));
}

INSTANTIATE_TEST_SUITE_P(Rows, EnvReader, ::testing::Values(
    EnvRow{.description = "set", .set = "5001", .text = "5001"},
    EnvRow{.description = "set empty", .set = "", .text = ""},
    EnvRow{.description = "unset", .set = nullptr, .text = ""}));

}  // namespace
