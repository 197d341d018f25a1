// Connection types from the relay service's connections table.
#include <gtest/gtest.h>

#include <ostream>

#include "harness.h"
#include "zant/relay.h"

namespace {

const char kConnections[] = "/usr/zant/etc/relay/connections";

const char kTable[] =
    "# serverAddr serverPort remoteAddr remotePort type\n"
    "\n"
    "10.0.0.5 5001 127.0.0.1 * relay\n"
    "10.0.0.5 5001 * * 64\n"
    "10.0.0.5 *    10.17.* 4000 tunnel\n"
    "   192.168.1.2\t443\t192.168.1.9\t5555\tdirect\n"
    "10.0.0.9 80 1.2.3.4 1 bogus\n"
    "10.0.0.9 80 1.2.3.4\n"
    "10.0.0.9 80 1.2.3.4 1 32 extra\n"
    "10.0.0.9 * * * 32\n";

struct RelayCase {
  const char* description;
  const char* serverAddr;
  const char* serverPort;
  const char* remoteAddr;
  const char* remotePort;
  int expectedReturn;
  int expectedType;
};
void PrintTo(const RelayCase& c, std::ostream* os) { *os << c.description; }

class RelayTable : public ::testing::TestWithParam<RelayCase> {
 protected:
  plyth_test::ApplianceRoot root_;
};

TEST_P(RelayTable, Classifies) {
  root_.WriteFile(kConnections, kTable);
  const RelayCase& c = GetParam();
  int type = -7;
  EXPECT_EQ(c.expectedReturn, ZANTRelayServiceGetConnectionTypeByAddr(
                                  c.serverAddr, c.serverPort, c.remoteAddr, c.remotePort, &type));
  EXPECT_EQ(c.expectedType, type);
}

INSTANTIATE_TEST_SUITE_P(
    Lines, RelayTable,
    ::testing::Values(
        RelayCase{"first match wins over later wildcard", "10.0.0.5", "5001", "127.0.0.1", "9", 0, 32},
        RelayCase{"wildcard remote", "10.0.0.5", "5001", "8.8.8.8", "1", 0, 64},
        RelayCase{"prefix wildcard", "10.0.0.5", "5000", "10.17.3.4", "4000", 0, 64},
        RelayCase{"prefix wildcard needs the prefix", "10.0.0.5", "5000", "10.18.3.4", "4000", 0, 16},
        RelayCase{"tabs and indentation", "192.168.1.2", "443", "192.168.1.9", "5555", 0, 16},
        RelayCase{"malformed lines skipped", "10.0.0.9", "80", "1.2.3.4", "1", 0, 32},
        RelayCase{"no match is direct", "10.0.0.6", "5001", "127.0.0.1", "9", 0, 16},
        RelayCase{"addresses match whole", "10.0.0.55", "5001", "127.0.0.1", "9", 0, 16},
        RelayCase{"empty values", "", "", "", "", 0, 16},
        RelayCase{"null server address", nullptr, "5001", "127.0.0.1", "9", -1, -7},
        RelayCase{"null remote port", "10.0.0.5", "5001", "127.0.0.1", nullptr, -1, -7}));

class RelayFile : public ::testing::Test {
 protected:
  plyth_test::ApplianceRoot root_;
};

TEST_F(RelayFile, MissingTableIsDirect) {
  int type = -7;
  EXPECT_EQ(0, ZANTRelayServiceGetConnectionTypeByAddr("a", "1", "b", "2", &type));
  EXPECT_EQ(ZANT_RELAY_CONN_DIRECT, type);
}

TEST_F(RelayFile, UnreadableTableFails) {
  root_.WriteFile(std::string(kConnections) + "/inner", "");
  int type = -7;
  EXPECT_EQ(-1, ZANTRelayServiceGetConnectionTypeByAddr("a", "1", "b", "2", &type));
  EXPECT_EQ(-7, type);
}

TEST_F(RelayFile, NullTypeFails) {
  EXPECT_EQ(-1, ZANTRelayServiceGetConnectionTypeByAddr("a", "1", "b", "2", nullptr));
}

}  // namespace
