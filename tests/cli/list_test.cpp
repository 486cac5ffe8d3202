// cardcert list, compared with openssl.
#include "cli/cardcert_fixture.h"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <regex>
#include <sstream>

namespace {

using nlohmann::json;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Key;
using testing::Not;

class ListTest : public CardcertTest {
 protected:
  void UseNoTokens() {
    environment_["SOFTHSM2_CONF"] = Write(
        "empty.conf", "directories.tokendir = " + File("") + "\nobjectstore.backend = file\n");
  }
};

std::string Lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](char c) { return 'A' <= c && c <= 'Z' ? static_cast<char>(c + 32) : c; });
  return text;
}

// Returns what the first group of the expression matches, or "" if there is no match.
std::string Extract(const std::string& text, const std::string& expression) {
  std::smatch match;
  return std::regex_search(text, match, std::regex(expression)) ? match[1].str() : "";
}

struct Listed {
  const char* file;
  const char* key;  // of List()
};

constexpr Listed kListed[] = {
    {"ca", "10 Example CA"},  {"sign", "4fa107 Jürgen 山田"}, {"plain", "00f1e2 Plain"},
    {"twin", "00f1e2 Twin"},  {"rsa1024", "1024 Short"},      {"rsa3072", "3072 Longer"},
    {"rsa4096", "4096 Long"}, {"keyless", "6e6f Keyless"},
};

// Returns the key usage in the output of openssl, with the names that list --json uses. Returns
// "any" if the certificate has no key usage extension.
std::string KeyUsage(const std::string& text) {
  const std::map<std::string, std::string> words = {{"Digital Signature", "digitalSignature"},
                                                    {"Non Repudiation", "nonRepudiation"},
                                                    {"Certificate Sign", "keyCertSign"},
                                                    {"CRL Sign", "cRLSign"}};
  std::string usage = Extract(text, "X509v3 Key Usage:[^\n]*\n +([^\n]*)");
  for (const auto& [theirs, ours] : words)
    usage = std::regex_replace(usage, std::regex(theirs), ours);
  return usage.empty() ? "any" : usage;
}

std::string KeyUsage(const json& certificate) {
  if (certificate["key_usage"] == -1 && certificate["key_usage_names"].size() == 9)
    return "any";
  std::string usage;
  for (const std::string name : certificate["key_usage_names"])
    usage += (usage.empty() ? "" : ", ") + name;
  return usage;
}

void ExpectThatOpenSslAgrees(const json& certificate, const std::string& pem,
                             const std::function<std::string(Words)>& openssl) {
  SCOPED_TRACE(pem);
  const auto ask = [&](Words words) {
    words.insert(words.begin(), {"x509", "-noout", "-in", pem});
    return openssl(words);
  };
  // openssl shows a number; the program shows the encoding, with its leading zero byte.
  const std::string serial = certificate["serial"];
  EXPECT_EQ(std::regex_replace(serial, std::regex("^00"), ""),
            Lower(Extract(ask({"-serial"}), "serial=(.*)")));
  EXPECT_EQ(certificate["subject"].get<std::string>(),
            Extract(ask({"-subject", "-nameopt", "RFC2253,-esc_msb,utf8"}), "subject=(.*)"));
  EXPECT_EQ(certificate["modulus"].get<std::string>(),
            Lower(Extract(ask({"-modulus"}), "Modulus=(.*)")));

  const std::string text = ask({"-text"});
  EXPECT_EQ(certificate["ca"].get<bool>(), text.find("CA:TRUE") != std::string::npos);
  EXPECT_EQ(KeyUsage(certificate), KeyUsage(text));
  EXPECT_EQ(std::to_string(certificate["key_bits"].get<int>()),
            Extract(text, "Public-Key: \\((\\d+) bit\\)"));
  EXPECT_EQ(
      std::to_string(std::stoul(certificate["public_exponent"].get<std::string>(), nullptr, 16)),
      Extract(text, "Exponent: (\\d+)"));
}

TEST_F(ListTest, JsonAgreesWithOpenSsl) {
  const std::map<std::string, json> certificates = List();
  for (const Listed& listed : kListed) {
    ASSERT_THAT(certificates, Contains(Key(listed.key)));
    ExpectThatOpenSslAgrees(certificates.at(listed.key), Made(listed.file + std::string(".pem")),
                            &OpenSsl);
  }
  EXPECT_EQ(certificates.at("4fa107 Jürgen 山田")["key_usage"], 192);
  EXPECT_EQ(certificates.at("10 Example CA")["key_usage"], 6);
}

TEST_F(ListTest, JsonAgreesWithOpenSslOnTheTokenOfTheDemo) {
  std::filesystem::create_directory(File("demo"));
  const Finished made = RunProgram({CARDCERT_MAKE_TOKEN, File("demo")});
  ASSERT_EQ(made.status, 0) << made.err;
  environment_["SOFTHSM2_CONF"] = File("demo/softhsm2.conf");
  std::map<std::string, json> by_name;
  for (const auto& [key, certificate] : List())
    by_name[certificate["name"][0]] = certificate;
  const std::map<std::string, std::string> files = {
      {"Example Root CA", "ca"}, {"Anna Albers", "anna"}, {"Ben Brandt", "ben"}};
  EXPECT_EQ(by_name.size(), files.size());  // Without Clara, whose key is not an RSA key.
  for (const auto& [name, file] : files) {
    ASSERT_THAT(by_name, Contains(Key(name)));
    ExpectThatOpenSslAgrees(by_name[name], File("demo/" + file + ".pem"), &OpenSsl);
  }
}

TEST_F(ListTest, JsonHasExactlyTheseFields) {
  const json certificate = List().at("4fa107 Jürgen 山田");
  std::vector<std::string> fields;
  for (const auto& field : certificate.items())
    fields.push_back(field.key());
  EXPECT_THAT(fields,
              testing::UnorderedElementsAre("name", "subject", "serial", "ca", "key_usage",
                                            "key_usage_names", "matches_filter", "key_bits",
                                            "public_exponent", "modulus", "slot", "module"));
  EXPECT_EQ(certificate["module"], SOFTHSM2_LIBRARY);
  EXPECT_THAT(certificate["slot"].get<std::string>(), HasSubstr("SoftHSM slot"));
  EXPECT_EQ(certificate["matches_filter"], true);
}

TEST_F(ListTest, PrintsOneTableLinePerCertificate) {
  const Finished run = Cardcert({"list"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(std::count(run.out.begin(), run.out.end(), '\n'),
            11);  // Headings, 9 certificates and a copy.
  EXPECT_TRUE(std::regex_search(
      run.out, std::regex("\nJürgen 山田 +4fa107 +2048  digitalSignature, nonRepudiation  no   yes "
                          "     SoftHSM slot")));
  EXPECT_TRUE(std::regex_search(run.out, std::regex("\nPlain +00f1e2 +2048  any ")));
  EXPECT_TRUE(std::regex_search(run.out, std::regex("\nExample CA .* yes  yes ")));
}

TEST_F(ListTest, NotesThatACertificateWithoutAnRsaKeyIsLeftOut) {
  const Finished run = Cardcert({"list"});
  EXPECT_THAT(run.out, Not(HasSubstr("Curve")));
  EXPECT_EQ(run.err, LeftOutWarning());
  EXPECT_TRUE(AllLinesAreMessages(run.err));
}

TEST_F(ListTest, EscapesControlCharactersInNames) {
  for (const Words& words : {Words{"list"}, Words{"list", "--json"}, Words{"present", "666666"}}) {
    const Finished run = Cardcert(words);
    EXPECT_THAT(run.out + run.err, Not(HasSubstr("\033")));
    EXPECT_THAT(run.out + run.err, Not(HasSubstr("\u202e")));
  }
  EXPECT_THAT(Cardcert({"list"}).out, HasSubstr("Evil\\x1b[2J\\u{202e}txt.exe"));
  EXPECT_THAT(List(), Contains(Key("666666 Evil\033[2J\u202etxt.exe")));
}

TEST_F(ListTest, FollowsTheNameSpecification) {
  const std::map<std::string, json> certificates =
      List({"--name", "subject_CN,card_label,issuer_organizationName"});
  EXPECT_EQ(certificates.at("00f1e2 Twin")["name"], json({"Twin", "second", "Example"}));
  EXPECT_THAT(Cardcert({"list", "--name", "card_label,subject_commonName"}).out,
              HasSubstr("second / Twin"));
}

TEST_F(ListTest, NotesAMissingPartOfAName) {
  const Finished run = Cardcert({"list", "--name", "subject_organizationName,subject_colour"});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.out, HasSubstr("Example, Ltd / - "));
  // The order is that of the certificates, which SoftHSM chooses.
  std::vector<std::string> lines;
  std::istringstream err(run.err);
  for (std::string line; std::getline(err, line);)
    lines.push_back(line + "\n");
  EXPECT_THAT(
      lines, testing::UnorderedElementsAre(
                 Warning("Unable to read subject attribute \"colour\" from certificate (11 times)"),
                 Warning("Unable to read subject attribute \"organizationName\" from certificate "
                         "(6 times)"),
                 LeftOutWarning()));
}

TEST_F(ListTest, ShowsWhichCertificatesPassTheFilters) {
  const std::map<std::string, json> certificates = List({"--filter", "Signing||192"});
  EXPECT_EQ(certificates.at("4fa107 Jürgen 山田")["matches_filter"], true);
  EXPECT_EQ(certificates.at("00f1e2 Plain")["matches_filter"], true);  // Not restricted.
  EXPECT_EQ(certificates.at("10 Example CA")["matches_filter"], false);
}

TEST_F(ListTest, MatchingShowsOnlyMatchingCertificates) {
  const std::map<std::string, json> certificates =
      List({"--matching", "--filter", "CA|commonName=Example CA|4", "--filter=X|commonName=X|0"});
  EXPECT_THAT(certificates, Contains(Key("10 Example CA")));
  EXPECT_THAT(certificates, Not(Contains(Key("4fa107 Jürgen 山田"))));
}

TEST_F(ListTest, MatchesAnyOfSeveralFilters) {
  const std::map<std::string, json> certificates =
      List({"--matching", "--filter", "none|commonName=Nobody|0", "--filter", "CRL||2"});
  EXPECT_THAT(certificates, Contains(Key("10 Example CA")));
}

TEST_F(ListTest, SucceedsWithoutMatch) {
  const Words words = {"list", "--matching", "--filter", "none|commonName=Nobody|0"};
  const Finished table = Cardcert(words);
  EXPECT_EQ(table.status, 0);
  EXPECT_EQ(table.out, "");
  EXPECT_EQ(table.err, LeftOutWarning() + Progress("no certificate matches the filters") +
                           Hint("without --matching all certificates are listed"));
  EXPECT_EQ(Cardcert(Concat(words, {"--json"})).out, "[]\n");
}

TEST_F(ListTest, NotesAFilterAttributeThatBeginsWithABlank) {
  const Finished run =
      Cardcert({"list", "--matching", "--filter", "x|commonName=Example CA, O=Example|0"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err,
            Warning("--filter 'x|commonName=Example CA, O=Example|0' matches no certificate: no "
                    "attribute is called ' O'") +
                Hint("write the attributes of the issuer without a space after the comma") +
                LeftOutWarning() + Progress("no certificate matches the filters") +
                Hint("without --matching all certificates are listed"));
}

TEST_F(ListTest, SucceedsWithoutCertificates) {
  UseNoTokens();
  const Finished run = Cardcert({"list"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(
      run.err,
      "cardcert: no certificates found\n"
      "cardcert: hint: check that the card is in its reader and that the card reader service is"
      " running\n"
      "cardcert: hint: --log-level 5 shows each step\n");
}

TEST_F(ListTest, DoesNotSuggestALogThatIsAlreadyOn) {
  UseNoTokens();
  for (const Words& words : {Words{"--log-level", "5"}, Words{"--log-file", File("log")}}) {
    const Finished run = Cardcert({"list", words[0], words[1]});
    EXPECT_EQ(WithoutLog(run.err),
              Progress("no certificates found") +
                  Hint("check that the card is in its reader and that the card reader "
                       "service is running"));
    EXPECT_THAT(run.err, Not(HasSubstr("hint: --log-level")));
  }
}

TEST_F(ListTest, WorksInAnyLocale) {
  environment_["LC_ALL"] = "C";
  EXPECT_THAT(Cardcert({"list"}).out, HasSubstr("\nJürgen 山田                 4fa107"));
  EXPECT_THAT(List({"--filter", "x|commonName=Jürgen|0"}), Contains(Key("4fa107 Jürgen 山田")));
}

TEST_F(ListTest, FailsIfTableCannotBeWritten) {
  const Finished run = InShell("\"$@\" >/dev/full", Command({"list"}));
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err,
            LeftOutWarning() + Error("cannot write to standard output: No space left on device"));
}

TEST_F(ListTest, FailsIfStandardOutputIsClosedAndWritesToNoOtherFile) {
  const Finished run = InShell("\"$@\" >&-", Command({"list", "--log-file", File("log")}));
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err,
            LeftOutWarning() + Error("cannot write to standard output: Bad file descriptor"));
  EXPECT_THAT(ReadFile(File("log")), Not(HasSubstr("KEY USAGE")));
}

TEST_F(ListTest, BrokenPipeIsSilent) {
  const Finished run =
      InBash("\"$@\" 2>" + File("err") + " | true; exit ${PIPESTATUS[0]}", Command({"list"}));
  EXPECT_THAT(run.status, testing::AnyOf(0, 1));  // 0 if it has written before "true" ends.
  EXPECT_THAT(ReadFile(File("err")), Not(HasSubstr("cannot write")));
}

}  // namespace
