// Memory errors in KVUtils that would otherwise show only under a sanitizer.
#include <gtest/gtest.h>
#include <malloc.h>

#include "host/kvutils.h"

namespace {

TEST(StringLines, ReadsNothingBeforeTheText) {
  const char text[] = "\r\nrest";
  std::string rest;
  EXPECT_EQ(KVUtils::StringLines(text + 1, &rest), std::vector<std::string>{""});
  EXPECT_EQ(rest, "rest");
}

TEST(Transcode, ReleasesItsConverter) {
  const auto transcode = [] { KVUtils::Transcode("UTF-8", "ISO-8859-1", "M\xc3\xbcller"); };
  transcode();  // Loads what iconv keeps.
  const std::size_t before = mallinfo2().uordblks;
  for (int i = 0; i < 1000; ++i)
    transcode();
  // A converter takes more than a hundred bytes.
  EXPECT_LT(mallinfo2().uordblks, before + 10000);
}

}  // namespace
