// The per-process file cache: a change on disk is seen at the next use, the
// derived values are made once per content.
#include <gtest/gtest.h>
#include <errno.h>
#include <stdio.h>

#include <string>

#include "harness.h"
#include "zant/file_cache.h"

namespace {

const char kFile[] = "/etc/cached.conf";

class FileCacheTest : public ::testing::Test {
 protected:
  std::string Path() const { return root_.Host(kFile); }
  std::string Bytes() const { return ZANT::FileCache::Read(Path())->bytes; }
  plyth_test::ApplianceRoot root_;
};

TEST_F(FileCacheTest, SeesEveryKindOfChange) {
  auto missing = ZANT::FileCache::Read(Path());
  EXPECT_FALSE(missing->opened);
  EXPECT_EQ(ENOENT, missing->error);

  root_.WriteFile(kFile, "one");
  EXPECT_EQ("one", Bytes()) << "appeared";
  root_.WriteFile(kFile, "three");
  EXPECT_EQ("three", Bytes()) << "rewritten in place, other size";
  root_.WriteFile(kFile + std::string(".new"), "fresh");
  ASSERT_EQ(0, rename((Path() + ".new").c_str(), Path().c_str()));
  EXPECT_EQ("fresh", Bytes()) << "replaced by a rename";
  root_.Remove(kFile);
  EXPECT_FALSE(ZANT::FileCache::Read(Path())->opened) << "removed";
}

TEST_F(FileCacheTest, DerivedValueIsMadeOncePerContent) {
  int made = 0;
  std::function<std::string(const ZANT::FileCache::Content&)> upper = [&made](const ZANT::FileCache::Content& c) {
    ++made;
    return c.bytes + "!";
  };
  root_.WriteFile(kFile, "abc");
  EXPECT_EQ("abc!", *ZANT::FileCache::Derived<std::string>(Path(), "upper", upper));
  EXPECT_EQ("abc!", *ZANT::FileCache::Derived<std::string>(Path(), "upper", upper));
  EXPECT_EQ(1, made);
  root_.WriteFile(kFile, "abcd");
  EXPECT_EQ("abcd!", *ZANT::FileCache::Derived<std::string>(Path(), "upper", upper));
  EXPECT_EQ(2, made);
}

TEST_F(FileCacheTest, ServerIntervalKeepsTheLastLookUntilItEnds) {
  root_.WriteFile(kFile, "old");
  ZANT::FileCache::SetRevalidateSeconds(3600);
  EXPECT_EQ("old", Bytes());
  root_.WriteFile(kFile, "newer");
  EXPECT_EQ("old", Bytes()) << "within the interval the disk is not looked at";
  ZANT::FileCache::Forget(Path());
  EXPECT_EQ("newer", Bytes());
  ZANT::FileCache::SetRevalidateSeconds(0);
  root_.WriteFile(kFile, "newest");
  EXPECT_EQ("newest", Bytes()) << "0: every use looks";
}

}  // namespace
