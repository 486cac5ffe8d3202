#include "cli/cardcert_fixture.h"

#include <filesystem>
#include <iterator>
#include <regex>
#include <sstream>

namespace {

bool IsMessage(const std::string& line) {
  return line.compare(0, 10, "cardcert: ") == 0;
}

}  // namespace

void CardcertTest::SetUp() {
  if (!Exists(Made("sign.pem")))
    GTEST_SKIP() << "softhsm2-util, pkcs11-tool or openssl was missing when the tests were built";
  std::filesystem::copy(Made("tokens"), File("tokens"), std::filesystem::copy_options::recursive);
  environment_["SOFTHSM2_CONF"] =
      Write("softhsm2.conf", "directories.tokendir = " + File("tokens") +
                                 "\nobjectstore.backend = file\nlog.level = ERROR\n");
  environment_["LC_ALL"] = "C.UTF-8";
}

Words CardcertTest::Command(const Words& words) {
  return Concat({CARDCERT_PROGRAM}, words, {"--module", SOFTHSM2_LIBRARY});
}

Finished CardcertTest::Cardcert(const Words& words, const std::string& standard_input) const {
  return RunProgram(Command(words), environment_, standard_input);
}

Finished CardcertTest::CardcertWithoutModule(const Words& words) const {
  return RunProgram(Concat({CARDCERT_PROGRAM}, words), environment_);
}

Finished CardcertTest::InShell(const std::string& script, const Words& command) const {
  return RunProgram(Concat({"sh", "-c", script, "sh"}, command), environment_);
}

Finished CardcertTest::InBash(const std::string& script, const Words& command) const {
  return RunProgram(Concat({"bash", "-c", script, "bash"}, command), environment_);
}

std::map<std::string, nlohmann::json> CardcertTest::List(const Words& more) const {
  const Finished run = Cardcert(Concat({"list", "--json"}, more));
  EXPECT_EQ(run.status, 0) << run.err;
  std::map<std::string, nlohmann::json> certificates;
  for (const nlohmann::json& certificate : nlohmann::json::parse(run.out)) {
    const std::string key =
        certificate["serial"].get<std::string>() + " " + certificate["name"][0].get<std::string>();
    certificates[key] = certificate;
  }
  return certificates;
}

std::string CardcertTest::OpenSsl(const Words& words) {
  const Finished run = RunProgram(Concat({"openssl"}, words));
  EXPECT_EQ(run.status, 0) << run.err << run.out;
  return run.out;
}

void CardcertTest::ExpectSignature(const std::string& signature, const std::string& name,
                                   const std::string& in, const std::string& digest) const {
  const std::string key =
      Write("public.pem", OpenSsl({"rsa", "-in", Made(name + ".key"), "-pubout"}));
  EXPECT_EQ(OpenSsl({"dgst", "-" + digest, "-verify", key, "-signature", signature, in}),
            "Verified OK\n")
      << digest;
}

void CardcertTest::CertificateTool(const Words& words) const {
  const Finished run =
      RunProgram(Concat({"pkcs11-tool", "--module", SOFTHSM2_LIBRARY, "--token-label", "first",
                         "--login", "--pin", "1234", "--type", "cert"},
                        words),
                 environment_);
  ASSERT_EQ(run.status, 0) << run.err;
}

void CardcertTest::AddToToken(const std::string& name, const std::string& id) const {
  CertificateTool({"--write-object", Made(name + ".der"), "--id", id, "--label", name});
}

void CardcertTest::RemoveFromToken(const std::string& name) const {
  CertificateTool({"--delete-object", "--label", name});
}

std::string CardcertTest::PinFile(const std::string& pin) const {
  return SecretFile("pin-" + pin, pin + "\n");
}

std::string CardcertTest::SecretFile(const std::string& name, const std::string& content) const {
  std::string path = Write(name, content);
  std::filesystem::permissions(path, std::filesystem::perms(0600));
  return path;
}

std::size_t CardcertTest::NumFiles() const {
  const std::filesystem::directory_iterator files(folder_.path());
  return static_cast<std::size_t>(std::distance(begin(files), end(files)));
}

std::string Error(const std::string& text) {
  return "cardcert: error: " + text + "\n";
}

std::string Warning(const std::string& text) {
  return "cardcert: warning: " + text + "\n";
}

std::string Hint(const std::string& text) {
  return "cardcert: hint: " + text + "\n";
}

std::string Progress(const std::string& text) {
  return "cardcert: " + text + "\n";
}

std::string LoadError(const std::string& path, const std::string& reason, const std::string& hint) {
  return Error("Unable to load PKCS#11 module '" + path + "':") +
         Progress("  " + path + ": " + reason) + Hint(hint) + Hint(kUsualPlaces);
}

std::string LeftOutWarning() {
  return Warning(
      "Unable to read public key from certificate for token \"first\" (left out: only certificates "
      "with an RSA key can be used)");
}

std::string CopyWarning() {
  return Warning(
      "there is more than one copy of the certificate; using the key and the PIN of the token "
      "'T' in 'SoftHSM slot ID N'");
}

testing::Matcher<std::string> IsErrorAboutPlainAndTwin() {
  const std::string error = Error("several different certificates have the serial '00f1e2':");
  const std::string plain = Progress(
      "  Plain  00f1e2  2048 bits  any  SoftHSM slot ID N  modulus M...  CN=Plain,O=Example");
  const std::string twin = Progress(
      "  Twin  00f1e2  1024 bits  any  SoftHSM slot ID N  modulus M...  CN=Twin,O=Example");
  const std::string hint =
      Hint("leave only the certificate you want on the tokens, or remove the other tokens");
  return testing::AnyOf(error + plain + twin + hint, error + twin + plain + hint);
}

std::string Masked(const std::string& text) {
  static const std::regex slot("slot ID 0x[0-9a-f]+");
  static const std::regex modulus("modulus [0-9a-f]{16}\\.\\.\\.");
  static const std::regex token("the token '(first|second)'");
  const std::string masked =
      std::regex_replace(std::regex_replace(text, slot, "slot ID N"), modulus, "modulus M...");
  return std::regex_replace(masked, token, "the token 'T'");
}

std::string WithoutLog(const std::string& err) {
  std::string messages;
  std::istringstream lines(err);
  for (std::string line; std::getline(lines, line);) {
    if (IsMessage(line))
      messages += line + "\n";
  }
  return messages;
}

std::string Refusal(const Finished& run, int status) {
  EXPECT_EQ(run.status, status);
  EXPECT_EQ(run.out, "");
  EXPECT_TRUE(AllLinesAreMessages(run.err));
  return run.err;
}

testing::AssertionResult AllLinesAreMessages(const std::string& err) {
  std::istringstream lines(err);
  for (std::string line; std::getline(lines, line);) {
    if (!IsMessage(line))
      return testing::AssertionFailure() << line;
  }
  return testing::AssertionSuccess();
}
