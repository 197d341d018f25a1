// The session store, the session cookie and the token check.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdlib>
#include <fstream>
#include <string>

#include "harness.h"
#include "zant_host/request_decode.h"
#include "zant_host/session.h"

namespace {

using zant_host::Session;
using zant_host::SessionStore;

std::string Slurp(const std::string& path) {
  std::ifstream in(path);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

TEST(HostSession, CreateLoadRemove) {
  plyth_test::ApplianceRoot root;
  SessionStore store;
  Session made;
  ASSERT_TRUE(store.Create("alice", 1026, false, "ger", 1000, &made));
  EXPECT_TRUE(zant_host::IsSessionId(made.id));
  EXPECT_EQ(made.expires, 1000 + zant_host::kSessionLifetime);

  const std::string file = root.Host("/var/lib/zant/sessions/" + zant_host::Sha256Hex(made.id));
  EXPECT_EQ(store.FileOf(made.id), file);
  struct stat st;
  ASSERT_EQ(stat(file.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
  EXPECT_EQ(Slurp(file), "{\"admin\":false,\"created\":1000,\"expires\":87400,\"lang\":\"ger\","
                         "\"token\":\"" + made.token + "\",\"uid\":1026,\"user\":\"alice\"}\n");

  Session loaded;
  ASSERT_TRUE(store.Load(made.id, 1001, &loaded));
  EXPECT_EQ(loaded.user, "alice");
  EXPECT_EQ(loaded.uid, 1026u);
  EXPECT_EQ(loaded.token, made.token);
  EXPECT_EQ(loaded.lang, "ger");

  store.Remove(made.id);
  EXPECT_FALSE(store.Load(made.id, 1001, &loaded));
}

TEST(HostSession, ExpiredSessionsAreRemoved) {
  plyth_test::ApplianceRoot root;
  SessionStore store;
  Session early;
  Session late;
  ASSERT_TRUE(store.Create("a", 1, false, "", 0, &early));
  ASSERT_TRUE(store.Create("b", 2, true, "", 100, &late));
  Session loaded;
  EXPECT_FALSE(store.Load(early.id, zant_host::kSessionLifetime, &loaded));
  EXPECT_FALSE(std::ifstream(store.FileOf(early.id)).good());

  ASSERT_TRUE(store.Create("a", 1, false, "", 0, &early));
  root.WriteFile("/var/lib/zant/sessions/notes", "kept");
  store.Sweep(zant_host::kSessionLifetime + 50);
  EXPECT_FALSE(std::ifstream(store.FileOf(early.id)).good());
  EXPECT_TRUE(store.Load(late.id, zant_host::kSessionLifetime + 50, &loaded));
  EXPECT_TRUE(loaded.admin);
  EXPECT_EQ(root.ReadFile("/var/lib/zant/sessions/notes"), "kept");
}

struct IdRow {
  const char* name;
  std::string id;
};

class MalformedIds : public ::testing::TestWithParam<IdRow> {};

TEST_P(MalformedIds, NeverLoad) {
  plyth_test::ApplianceRoot root;
  SessionStore store;
  Session s;
  EXPECT_FALSE(store.Load(GetParam().id, 0, &s));
}

INSTANTIATE_TEST_SUITE_P(
    HostSession, MalformedIds,
    ::testing::Values(IdRow{"empty", ""}, IdRow{"short", std::string(63, 'a')},
                      IdRow{"upper_case", std::string(64, 'A')},
                      IdRow{"path", "../../../../etc/passwd" + std::string(42, 'a')},
                      IdRow{"unknown", std::string(64, '0')}),
    [](const ::testing::TestParamInfo<IdRow>& info) { return std::string(info.param.name); });

TEST(HostSession, DamagedFilesDoNotLoad) {
  plyth_test::ApplianceRoot root;
  SessionStore store;
  const std::string id(64, 'b');
  for (const char* content : {"", "[]", "{\"expires\":99999999999}",
                              "{\"user\":1,\"uid\":1,\"token\":\"t\",\"expires\":99999999999}",
                              "{\"user\":\"u\",\"uid\":-1,\"token\":\"t\",\"expires\":99999999999}"}) {
    root.WriteFile("/var/lib/zant/sessions/" + zant_host::Sha256Hex(id), content);
    Session s;
    EXPECT_FALSE(store.Load(id, 0, &s)) << content;
  }
}

TEST(HostSession, TokensAreLettersThatNeverReadAsJson) {
  for (int i = 0; i < 200; ++i) {
    const std::string token = zant_host::RandomToken();
    ASSERT_EQ(token.size(), 26u);
    EXPECT_EQ(token.find_first_of("eE0123456789"), std::string::npos) << token;
    EXPECT_TRUE(zant_host::ValueFromText(token).isString());
  }
  EXPECT_NE(zant_host::RandomHex(32), zant_host::RandomHex(32));
}

TEST(HostSession, Cookies) {
  EXPECT_EQ(zant_host::SessionCookieValue("abc", false), "id=abc; Path=/; HttpOnly; SameSite=Lax");
  EXPECT_EQ(zant_host::SessionCookieValue("abc", true), "id=abc; Path=/; HttpOnly; SameSite=Lax; Secure");
  EXPECT_EQ(zant_host::ClearedSessionCookieValue(false),
            "id=; Expires=Thu, 01 Jan 1970 00:00:00 GMT; Path=/; HttpOnly; SameSite=Lax");
}

struct TokenRow {
  const char* name;
  std::string sessionToken;
  Json::Value param;  // null: absent
  std::string header;
  bool expected;
};

class TokenCheck : public ::testing::TestWithParam<TokenRow> {};

TEST_P(TokenCheck, Matches) {
  ZANT::APIRequest request;
  request.SetSessionToken(GetParam().sessionToken);
  if (!GetParam().param.isNull()) request.SetParam("ZantToken", GetParam().param);
  if (!GetParam().header.empty()) request.SetServerVar("HTTP_X_ZANTTOKEN", GetParam().header);
  EXPECT_EQ(zant_host::RequestCarriesSessionToken(request), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    HostSession, TokenCheck,
    ::testing::Values(TokenRow{"param", "tok", Json::Value("tok"), "", true},
                      TokenRow{"header", "tok", Json::Value(), "tok", true},
                      TokenRow{"param_wins_over_header", "tok", Json::Value("bad"), "tok", false},
                      TokenRow{"wrong", "tok", Json::Value("tol"), "", false},
                      TokenRow{"prefix", "tok", Json::Value("to"), "", false},
                      TokenRow{"nothing_sent", "tok", Json::Value(), "", false},
                      TokenRow{"no_session", "", Json::Value(""), "", false},
                      TokenRow{"param_not_a_string", "1", Json::Value(1), "", false}),
    [](const ::testing::TestParamInfo<TokenRow>& info) { return std::string(info.param.name); });

}  // namespace
