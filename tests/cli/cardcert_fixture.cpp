#include "cli/cardcert_fixture.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <sstream>

void CardcertTest::SetUp() {
  if (!Exists(Made("sign.pem")))
    GTEST_SKIP() << "softhsm2-util, pkcs11-tool or openssl was missing when the tests were built";
  std::filesystem::copy(Made("tokens"), folder_.File("tokens"),
                        std::filesystem::copy_options::recursive);
  environment_["SOFTHSM2_CONF"] =
      folder_.Write("softhsm2.conf", "directories.tokendir = " + folder_.File("tokens") +
                                         "\nobjectstore.backend = file\nlog.level = ERROR\n");
  environment_["LC_ALL"] = "C.UTF-8";
}

Words CardcertTest::Command(const Words& words) const {
  Words command = {CARDCERT_PROGRAM};
  command.insert(command.end(), words.begin(), words.end());
  command.insert(command.end(), {"--module", SOFTHSM2_LIBRARY});
  return command;
}

Finished CardcertTest::Cardcert(const Words& words, const std::string& standard_input) const {
  return RunProgram(Command(words), environment_, standard_input);
}

Finished CardcertTest::Bare(const Words& words) const {
  Words command = {CARDCERT_PROGRAM};
  command.insert(command.end(), words.begin(), words.end());
  return RunProgram(command, environment_);
}

std::map<std::string, nlohmann::json> CardcertTest::List(const Words& more) const {
  Words words = {"list", "--json"};
  words.insert(words.end(), more.begin(), more.end());
  const Finished run = Cardcert(words);
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
  Words command = {"openssl"};
  command.insert(command.end(), words.begin(), words.end());
  const Finished run = RunProgram(command);
  EXPECT_EQ(run.status, 0) << run.err << run.out;
  return run.out;
}

std::string CardcertTest::PinFile(const std::string& pin) const {
  return folder_.Write("pin-" + pin, pin + "\n");
}

std::size_t CardcertTest::NumFiles() const {
  const std::filesystem::directory_iterator files(folder_.path());
  return static_cast<std::size_t>(std::distance(begin(files), end(files)));
}

testing::AssertionResult AllLinesAreMessages(const std::string& err) {
  std::istringstream lines(err);
  for (std::string line; std::getline(lines, line);) {
    if (line.compare(0, 10, "cardcert: ") != 0)
      return testing::AssertionFailure() << line;
  }
  return testing::AssertionSuccess();
}
