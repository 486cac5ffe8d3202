// A scripted card for the program's transcripts: a provider library that, when it is loaded, makes
// the tokens that the environment describes, and when it is unloaded, writes down what happened.
//   SCRIPTED_CARD        words: see Words below
//   SCRIPTED_CARD_FILES  folder of make_token.sh's files; the card holds its certificate "sign"
//   SCRIPTED_CARD_TRACE  the file for the trace and, behind "VIOLATION", the caller's faults
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <sstream>
#include <string>

#include "scripted_provider/provider.h"

namespace {

using scripted::Provider;

std::string Variable(const char* name) {
  const char* const value = std::getenv(name);
  return value != nullptr ? value : "";
}

std::string FileContent(const std::string& name) {
  std::ifstream file(Variable("SCRIPTED_CARD_FILES") + "/" + name, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

unsigned long Number(const std::string& text) {
  return std::stoul(text, nullptr, 0);
}

class Card {
 public:
  Card() {
    scripted::Trace::Instance();  // Made before the card, so that it is there until the card has
                                  // gone.
    scripted::Token& token = Provider::Instance().Slot(1, "Scripted reader").Token("Card (PIN)");
    const std::map<std::string, std::function<void(const std::string&)>> words = {
        // PINs: 1234 and 87654321 unless they are "no".
        {"user", [&](const std::string& value) { has_user_pin_ = value != "no"; }},
        {"left", [&](const std::string& value) { user_left_ = std::stoi(value); }},
        {"so-left", [&](const std::string& value) { so_left_ = std::stoi(value); }},
        {"locks-at-once", [&](const std::string&) { token.ReturnsPinLockedOnLastTry(); }},
        {"pin-flags", [&](const std::string& value) { token.ReportedPinFlags(Number(value)); }},
        // Before "sign", NAME of make_token.sh's certificates.
        {"first",
         [&](const std::string& value) { token.Certificate(FileContent(value + ".der"), "1st"); }},
        // NAME/NUMBER/NTH: the function fails in its n-th call, the first where none is told; or
        // from
        // that one on.
        {"fail", [](const std::string& value) { Fail(value); }},
        {"fail-from", [](const std::string& value) { Fail(value).Always(); }},
        // From the n-th poll on the token is gone, or back; with an event.
        {"remove-at-poll",
         [this](const std::string& value) { AtPoll(value, [this] { Remove(); }); }},
        {"insert-at-poll",
         [this](const std::string& value) { AtPoll(value, [this] { Insert(); }); }},
    };
    std::istringstream script(Variable("SCRIPTED_CARD"));
    for (std::string word; script >> word;) {
      const std::string::size_type equals = word.find('=');
      words.at(word.substr(0, equals))(equals == std::string::npos ? "" : word.substr(equals + 1));
    }

    if (has_user_pin_)
      token.UserPin("1234").UserTriesLeft(user_left_).SoPin("87654321").SoTriesLeft(so_left_);
    token.Certificate(FileContent("sign.der"), "id");
    token.PrivateKey("id", support::RsaKey::FromPem(FileContent("sign.key")));
  }

  ~Card() {
    std::ofstream file(Variable("SCRIPTED_CARD_TRACE"));
    file << scripted::Trace::Instance().Take();
    for (const std::string& violation : Provider::Instance().Violations())
      file << "VIOLATION " << violation << "\n";
  }

  Card(const Card&) = delete;
  Card& operator=(const Card&) = delete;

 private:
  static scripted::Rule& Fail(const std::string& value) {
    std::istringstream words(value);
    std::string name;
    std::string number;
    std::string nth = "1";
    std::getline(words, name, '/');
    std::getline(words, number, '/');
    std::getline(words, nth);
    return Provider::Instance().On(name, std::stoi(nth)).Return(Number(number));
  }

  static void AtPoll(const std::string& nth, std::function<void()> action) {
    Provider::Instance()
        .On("C_WaitForSlotEvent", std::stoi(nth))
        .Before([action = std::move(action)] {
          action();
          Provider::Instance().AddSlotEvent(1);
        });
  }
  void Remove() { removed_ = Provider::Instance().Slot(1).Remove(); }
  // An event alone where nothing was taken out before.
  void Insert() {
    if (removed_)
      Provider::Instance().Slot(1).Insert(removed_);
  }

  bool has_user_pin_ = true;
  int user_left_ = 3;
  int so_left_ = 3;
  std::shared_ptr<scripted::Token> removed_;
};

const Card card;

}  // namespace
