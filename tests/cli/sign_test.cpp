// cardcert sign, with signatures checked by openssl.
#include <unistd.h>

#include "cli/cardcert_fixture.h"
#include "support/hex.h"

namespace {

using testing::HasSubstr;
using testing::MatchesRegex;

class SignTest : public CardcertTest {
 protected:
  // Signs the file `in` with the PIN of the tokens and writes the file "sig".
  Finished Sign(const std::string& serial, const std::string& in, const Words& more = {}) const {
    return Cardcert(
        Concat({"sign", serial, "--in", in, "--out", File("sig"), "--pin-file", PinFile()}, more));
  }
};

struct Case {
  const char* name;  // in make_tokens
  const char* serial;
};

class KeyLengthTest : public SignTest, public testing::WithParamInterface<Case> {};

TEST_P(KeyLengthTest, OpenSslVerifiesEachDigest) {
  const std::string in = Write("in", "The quick brown fox\n");
  for (const char* const digest : {"sha256", "sha384", "sha512", "sha224", "sha1"}) {
    const Finished run = Sign(GetParam().serial, in, {"--digest", digest});
    EXPECT_EQ(run.status, 0) << run.err;
    if (GetParam().name == std::string("sign"))  // It is on both tokens.
      EXPECT_THAT(run.err, MatchesRegex("cardcert: warning: there is more than one copy of the"
                                        " certificate; using the key and the PIN of the token"
                                        " '(first|second)' in 'SoftHSM slot ID 0x[0-9a-f]+'\n"));
    else
      EXPECT_EQ(run.err, "");
    ExpectSignature(File("sig"), GetParam().name, in, digest);
  }
}

TEST_P(KeyLengthTest, SignsUnhashedDataLikeOpenSsl) {
  for (const std::string& content : {std::string("any bytes\0\xff", 11), std::string()}) {
    const std::string in = Write("in", content);
    const Finished run = Sign(GetParam().serial, in, {"--digest", "none"});
    EXPECT_EQ(run.status, 0) << run.err;
    const std::string expected = OpenSsl({"pkeyutl", "-sign", "-in", in, "-inkey",
                                          Made(GetParam().name + std::string(".key")), "-pkeyopt",
                                          "rsa_padding_mode:pkcs1"});
    EXPECT_EQ(ReadFile(File("sig")), expected) << content.size() << " bytes";
  }
}

TEST_P(KeyLengthTest, LimitsUnhashedDataToKeyLength) {
  const std::string key = GetParam().name;
  const std::size_t limit = (key == "sign" ? 2048U : std::stoul(key.substr(3))) / 8 - 11;
  EXPECT_EQ(
      Sign(GetParam().serial, Write("fits", std::string(limit, 'x')), {"--digest", "none"}).status,
      0);
  const Finished run =
      Sign(GetParam().serial, Write("long", std::string(limit + 1, 'x')), {"--digest", "none"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, Error("--digest none gives " + std::to_string(limit + 1) +
                           " bytes to sign; a key of " + std::to_string((limit + 11) * 8) +
                           " bits can sign at most " + std::to_string(limit) + " bytes"));
}

INSTANTIATE_TEST_SUITE_P(Keys, KeyLengthTest,
                         testing::Values(Case{"rsa1024", "1024"}, Case{"sign", "4fa107"},
                                         Case{"rsa3072", "3072"}, Case{"rsa4096", "4096"}),
                         [](const auto& test) { return test.param.name; });

TEST_F(SignTest, UsesSha256AndRawByDefault) {
  const std::string in = Write("in", "x");
  ASSERT_EQ(Sign("4fa107", in).status, 0);
  ExpectSignature(File("sig"), "sign", in);
  EXPECT_EQ(ReadFile(File("sig")).size(), 256U);
}

TEST_F(SignTest, WritesTheSameSignatureInEachEncoding) {
  const std::string in = Write("in", "x");
  for (const char* const digest : {"sha256", "sha384", "sha512", "sha224", "sha1", "none"}) {
    SCOPED_TRACE(digest);
    ASSERT_EQ(Sign("1024", in, {"--digest", digest, "--encoding", "raw"}).status, 0);
    const std::string raw = ReadFile(File("sig"));
    EXPECT_EQ(raw.size(), 128U);
    ASSERT_EQ(Sign("1024", in, {"--digest", digest, "--encoding", "base64"}).status, 0);
    EXPECT_EQ(OpenSsl({"base64", "-d", "-in", File("sig")}), raw);
    ASSERT_EQ(Sign("1024", in, {"--digest", digest, "--encoding", "hex"}).status, 0);
    EXPECT_EQ(ReadFile(File("sig")), support::Hex(raw) + "\n");
  }
}

TEST_F(SignTest, ReadsStandardInputAndWritesStandardOutput) {
  const std::string in = Write("in", "from a pipe");
  const Finished run = Cardcert({"sign", "4fa107", "--pin-file", PinFile()}, in);
  EXPECT_EQ(run.status, 0) << run.err;
  Write("sig", run.out);
  ExpectSignature(File("sig"), "sign", in);
}

TEST_F(SignTest, DoesNotReadPinAndDataFromStandardInput) {
  for (const char* const option : {"--pin-file", "--so-pin-file", "--new-pin-file"}) {
    const Finished run =
        Cardcert({"sign", "4fa107", option, "/dev/stdin", "--out", File("sig")}, PinFile());
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.err, std::string("cardcert: error: standard input and ") + option +
                           " are the same file: the PIN would be signed, and the signature would"
                           " give it away\n"
                           "cardcert: hint: use another file for one of them\n");
  }
  EXPECT_FALSE(Exists(File("sig")));
  const std::string in = Write("in", "x");
  const Finished run = Cardcert(
      {"sign", "4fa107", "--pin-file", "/dev/stdin", "--in", in, "--out", File("sig")}, PinFile());
  EXPECT_EQ(run.status, 0) << run.err;
  ExpectSignature(File("sig"), "sign", in);
}

TEST_F(SignTest, ClosedStandardInputIsStatus2) {
  const Finished run = InShell(
      "\"$@\" <&-", Command({"sign", "4fa107", "--out", File("sig"), "--pin-file", PinFile()}));
  EXPECT_EQ(run.status, 2);
  EXPECT_EQ(run.err, "cardcert: error: cannot read standard input: Bad file descriptor\n");
  EXPECT_FALSE(Exists(File("sig")));
}

TEST_F(SignTest, AcceptsSerialSpellings) {
  const std::string in = Write("in", "x");
  for (const char* const serial : {"4FA107", "0x4fa107", "4f:a1:07", "0x00:4F:A1:07"})
    EXPECT_EQ(Sign(serial, in).status, 0) << serial;
}

TEST_F(SignTest, LeavesNoTemporaryFiles) {
  const std::string in = Write("in", "x");
  PinFile();
  const std::size_t before = NumFiles();
  ASSERT_EQ(Sign("4fa107", in).status, 0);
  EXPECT_EQ(NumFiles(), before + 1);
}

TEST_F(SignTest, UnknownSerialIsStatus4) {
  const Finished run = Sign("abcdef", Write("in", "x"));
  EXPECT_EQ(run.status, 4);
  EXPECT_EQ(run.err, LeftOutWarning() +
                         Error("no token has a certificate with the serial 'abcdef'") +
                         Hint("cardcert list shows the certificates on the tokens"));
  EXPECT_FALSE(Exists(File("sig")));
}

TEST_F(SignTest, AmbiguousSerialIsStatus5) {
  const Finished run = Sign("0xF1E2", Write("in", "x"));
  EXPECT_EQ(run.status, 5);
  EXPECT_THAT(Masked(run.err), IsErrorAboutPlainAndTwin());
  EXPECT_FALSE(Exists(File("sig")));
}

TEST_F(SignTest, FailsWithoutAPrivateKey) {
  const Finished run = Sign("6e6f", Write("in", "x"));
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, Error("Signature operation failed (102): the token has no private key that "
                           "belongs to this certificate") +
                         Error("nothing was signed"));
  EXPECT_FALSE(Exists(File("sig")));
}

TEST_F(SignTest, FailsWithoutAnRsaKey) {
  const Finished run = Sign("c25", Write("in", "x"));
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err,
            LeftOutWarning() + Error("the certificate with the serial 'c25' cannot be used: it has "
                                     "no RSA key, or a part of it cannot be read"));
}

TEST_F(SignTest, DoesNotWriteASignatureThatDoesNotVerify) {
  // The certificate "keyless" with the CKA_ID of the private key of "rsa1024".
  RemoveFromToken("keyless");
  AddToToken("keyless", "04");
  const Finished run = Sign("6e6f", Write("in", "x"));
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, Error("the certificate's public key does not verify the token's signature; "
                           "nothing was written"));
  EXPECT_FALSE(Exists(File("sig")));
}

TEST_F(SignTest, KeepsTheOldFileOnFailure) {
  Write("sig", "old");
  EXPECT_EQ(Sign("6e6f", Write("in", "x")).status, 1);
  EXPECT_EQ(ReadFile(File("sig")), "old");
}

TEST_F(SignTest, FailsIfSignatureCannotBeWritten) {
  const Finished run = Cardcert(
      {"sign", "4fa107", "--in", Write("in", "x"), "--out", "/dev/full", "--pin-file", PinFile()});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(Masked(run.err),
            CopyWarning() + Error("cannot write '/dev/full': No space left on device"));
}

TEST_F(SignTest, DoesNotReplaceAnInputFile) {
  const std::string in = Write("in", "x");
  const std::string pin = PinFile();
  const std::string log = Write("log", "");
  ASSERT_EQ(symlink(in.c_str(), File("link").c_str()), 0);
  struct Refused {
    std::string out;
    std::string error;
  };
  const std::string in_error =
      "--in and --out are the same file: the signature would replace the"
      " signed data";
  for (const Refused& test :
       {Refused{in, in_error}, Refused{File("link"), in_error}, Refused{File("./in"), in_error},
        Refused{pin, "--pin-file and --out are the same file: the signature would replace the PIN"},
        Refused{log,
                "--out and --log-file are the same file: the signature would replace the log"}}) {
    const Finished run = Cardcert(
        {"sign", "4fa107", "--in", in, "--pin-file", pin, "--log-file", log, "--out", test.out});
    EXPECT_EQ(run.status, 2) << test.out;
    EXPECT_EQ(run.err, Error(test.error) + Hint("use another file for one of them"));
  }
  EXPECT_EQ(ReadFile(in), "x");
  EXPECT_EQ(ReadFile(pin), "1234\n");
}

}  // namespace
