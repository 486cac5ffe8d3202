// A PKCS#11 provider with one card, for tests that run the program. The environment describes the
// card when the library is loaded. The trace is written when the library is unloaded.
//   SCRIPTED_CARD        words that describe the card; see the table in Card::Card()
//   SCRIPTED_CARD_FILES  folder with the files of make_tokens; the card holds its certificate and
//                        key "sign"
//   SCRIPTED_CARD_TRACE  file for the calls and, after "VIOLATION", the rules the caller broke
#include <cstdlib>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <string>

#include "cli/scripted_card/misbehavior.h"
#include "scripted_provider/provider.h"
#include "support/files.h"

namespace {

using scripted::Provider;

std::string Variable(const char* name) {
  const char* const value = std::getenv(name);
  return value != nullptr ? value : "";
}

std::string FileContent(const std::string& name) {
  return support::ReadFile(Variable("SCRIPTED_CARD_FILES") + "/" + name);
}

unsigned long Number(const std::string& text) {
  return std::stoul(text, nullptr, 0);
}

class Card {
 public:
  Card() {
    // Constructed before this object and therefore destroyed after it.
    scripted::Trace::Instance();
    scripted::Token& token = Provider::Instance().Slot(1, "Scripted reader").Token("Card (PIN)");
    const std::map<std::string, std::function<void(const std::string&)>> words = {
        // The PIN is 1234 and the SO PIN 87654321; "user=no" is a card without PINs.
        {"user", [&](const std::string& value) { has_user_pin_ = value != "no"; }},
        {"left", [&](const std::string& value) { user_left_ = std::stoi(value); }},
        {"so-left", [&](const std::string& value) { so_left_ = std::stoi(value); }},
        {"locks-at-once", [&](const std::string&) { token.ReturnsPinLockedOnLastTry(); }},
        {"max-pin", [&](const std::string& value) { token.PinLengths(4, Number(value)); }},
        {"pin-flags", [&](const std::string& value) { token.ReportedPinFlags(Number(value)); }},
        // The reader has a PIN pad. The value is what is entered on it, separated by commas: PINs,
        // or !RETURN_VALUE for an entry that fails.
        {"pad",
         [&](const std::string& value) {
           token.PinPad();
           std::istringstream entries(value);
           for (std::string entry; std::getline(entries, entry, ',');)
             entry[0] == '!' ? token.EntryOnPadFails(Number(entry.substr(1)))
                             : token.EnteredOnPad(entry);
         }},
        // Another certificate of make_tokens, before "sign".
        {"first",
         [&](const std::string& value) { token.Certificate(FileContent(value + ".der"), "1st"); }},
        // FUNCTION/RETURN_VALUE[/N]: the N-th call fails, by default the first; with fail-from the
        // later ones, too.
        {"fail", [](const std::string& value) { Fail(value); }},
        {"fail-from", [](const std::string& value) { Fail(value).Always(); }},
        // The provider claims to have this many slots.
        {"slots",
         [](const std::string& value) {
           Provider::Instance().On("C_GetSlotList").ReportNumber(Number(value)).Always();
         }},
        // KIND/FUNCTION[/N]: the provider misbehaves before its N-th call, by default the first;
        // with do-after at the end of the call. See misbehavior.h for the kinds.
        {"do", [](const std::string& value) { Misbehave(value, false); }},
        {"do-after", [](const std::string& value) { Misbehave(value, true); }},
        // FUNCTION[/N]: before the N-th call the card is exchanged for another one with the same
        // certificate and key.
        {"exchange",
         [this](const std::string& value) {
           std::istringstream parts(value);
           std::string name;
           std::string nth = "1";
           std::getline(parts, name, '/');
           std::getline(parts, nth);
           Provider::Instance().On(name, std::stoi(nth)).Before([this] {
             Remove();
             Fill(Provider::Instance().Slot(1).Token("Other card"));
           });
         }},
        // At first there is no card in the reader.
        {"absent", [this](const std::string&) { Remove(); }},
        // A card with the same certificate, key and PIN in the second reader.
        {"second-card", [](const std::string&) { InsertSecondCard(); }},
        // Before the N-th C_GetSlotList the card moves to the second reader.
        {"move-at-list",
         [this](const std::string& value) {
           Provider::Instance().On("C_GetSlotList", std::stoi(value)).Before([this] {
             Remove();
             Insert(2);
           });
         }},
        // At the N-th C_WaitForSlotEvent something happens and an event is reported: the card is
        // removed or inserted, moves to another reader, or gets a copy of its certificate.
        {"remove-at-poll",
         [this](const std::string& value) { AtPoll(value, [this] { Remove(); }); }},
        {"insert-at-poll",
         [this](const std::string& value) { AtPoll(value, [this] { Insert(1); }); }},
        {"move-at-poll",
         [this](const std::string& value) {
           AtPoll(value, [this] {
             Remove();
             Insert(2);
           });
         }},
        {"copy-at-poll",
         [&](const std::string& value) {
           AtPoll(value, [&token] { token.Certificate(FileContent("sign.der"), "copy"); });
         }},
    };
    Provider::Instance().Slot(2, "Second reader");
    std::istringstream script(Variable("SCRIPTED_CARD"));
    for (std::string word; script >> word;) {
      const std::string::size_type equals = word.find('=');
      words.at(word.substr(0, equals))(equals == std::string::npos ? "" : word.substr(equals + 1));
    }

    Fill(token);
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
  void Fill(scripted::Token& token) const {
    if (has_user_pin_)
      token.UserPin("1234").UserTriesLeft(user_left_).SoPin("87654321").SoTriesLeft(so_left_);
    token.Certificate(FileContent("sign.der"), "id");
    token.PrivateKey("id", support::RsaKey::FromPem(FileContent("sign.key")));
  }

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

  static void Misbehave(const std::string& value, bool after) {
    std::istringstream words(value);
    std::string kind;
    std::string name;
    std::string nth = "1";
    std::getline(words, kind, '/');
    std::getline(words, name, '/');
    std::getline(words, nth);
    scripted::Rule& rule = Provider::Instance().On(name, std::stoi(nth));
    after ? rule.After(Misbehavior(kind)) : rule.Before(Misbehavior(kind));
  }

  static void AtPoll(const std::string& nth, std::function<void()> action) {
    Provider::Instance()
        .On("C_WaitForSlotEvent", std::stoi(nth))
        .Before([action = std::move(action)] {
          action();
          Provider::Instance().AddSlotEvent(1);
        });
  }
  static void InsertSecondCard() {
    Provider::Instance()
        .Slot(2)
        .Token("Second card (PIN)")
        .UserPin("1234")
        .Certificate(FileContent("sign.der"), "id")
        .PrivateKey("id", support::RsaKey::FromPem(FileContent("sign.key")));
  }
  void Remove() { removed_ = Provider::Instance().Slot(1).Remove(); }
  // Does nothing if no token has been removed.
  void Insert(CK_SLOT_ID slot) const {
    if (removed_)
      Provider::Instance().Slot(slot).Insert(removed_);
  }

  bool has_user_pin_ = true;
  int user_left_ = 3;
  int so_left_ = 3;
  std::shared_ptr<scripted::Token> removed_;
};

const Card card;

}  // namespace
