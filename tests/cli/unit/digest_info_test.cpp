#include "cli/signature/digest_info.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>

#include "cli/output/encoding.h"
#include "cli/terminal/text.h"
#include "support/files.h"

namespace cardcert::cli {
namespace {

using support::TempFolder;

std::size_t NumOpenDescriptors() {
  const std::filesystem::directory_iterator descriptors("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(descriptors), end(descriptors)));
}

struct Known {
  const char* digest;
  const char* digest_info;  // RFC 8017, section 9.2, note 1, and the hash of "abc" (FIPS 180-4)
};

class DigestInfoTest : public testing::TestWithParam<Known> {};

TEST_P(DigestInfoTest, MatchesTheStandard) {
  const TempFolder folder;
  const auto data = ReadDataToSign(folder.Write("abc", "abc"), GetParam().digest);
  ASSERT_TRUE(data);
  EXPECT_EQ(Hex(data->data(), data->size()), GetParam().digest_info);
}

INSTANTIATE_TEST_SUITE_P(
    Digests, DigestInfoTest,
    testing::Values(Known{"sha1",
                          "3021300906052b0e03021a05000414a9993e364706816aba3e25717850c26c9cd0d89d"},
                    Known{"sha224",
                          "302d300d06096086480165030402040500041c"
                          "23097d223405d8228642a477bda255b32aadbce4bda0b3f7e36c9da7"},
                    Known{"sha256",
                          "3031300d060960864801650304020105000420"
                          "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
                    Known{"sha384",
                          "3041300d060960864801650304020205000430"
                          "cb00753f45a35e8bb5a03d699ac65007272c32ab0eded1631a8b605a43ff5bed"
                          "8086072ba1e7cc2358baeca134c825a7"},
                    Known{"sha512",
                          "3051300d060960864801650304020305000440"
                          "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a"
                          "2192992a274fc1a836ba3c23a3feebbd454d4423643ce80e2a9ac94fa54ca49f"},
                    Known{"none", "616263"}),
    [](const auto& test) { return test.param.digest; });

TEST(DataToSignTest, HashesAFileLargerThanTheReadBuffer) {
  const TempFolder folder;
  const auto data = ReadDataToSign(folder.Write("a", std::string(1000000, 'a')), "sha256");
  ASSERT_TRUE(data);
  EXPECT_EQ(Hex(data->data() + 19, 32),
            "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

TEST(DataToSignTest, LimitsLengthWithoutDigest) {
  const TempFolder folder;
  EXPECT_TRUE(ReadDataToSign(folder.Write("fits", std::string(8192, 'a')), "none"));
  EXPECT_FALSE(ReadDataToSign(folder.Write("long", std::string(8193, 'a')), "none"));
}

TEST(DataToSignTest, FailsIfFileCannotBeRead) {
  const TempFolder folder;
  EXPECT_FALSE(ReadDataToSign(folder.File("missing"), "sha256"));
  EXPECT_FALSE(ReadDataToSign(folder.path(), "sha256"));
  EXPECT_FALSE(ReadDataToSign(folder.path(), "none"));
}

TEST(DataToSignTest, ClosesTheFile) {
  const support::TempFolder folder;
  const std::string path = folder.Write("abc", "abc");
  const std::size_t before = NumOpenDescriptors();
  for (const char* const digest : {"sha256", "none"})
    EXPECT_TRUE(ReadDataToSign(path, digest));
  EXPECT_FALSE(ReadDataToSign(folder.path(), "sha256"));
  EXPECT_EQ(NumOpenDescriptors(), before);
}

TEST(EncodingTest, WritesRawHexAndBase64) {
  const std::vector<unsigned char> bytes = {0x00, 0xab, 0xff};
  EXPECT_EQ(Encode(bytes, "raw"), std::string("\0\xab\xff", 3));
  EXPECT_EQ(Encode(bytes, "hex"), "00abff\n");
  EXPECT_EQ(Encode(bytes, "base64"), "AKv/\n");
  EXPECT_EQ(Encode(std::vector<unsigned char>(49, 'a'), "base64"),
            "YWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFh\nYQ==\n");
}

}  // namespace
}  // namespace cardcert::cli
