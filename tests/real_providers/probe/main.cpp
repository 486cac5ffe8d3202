// What a program cannot show that runs once and ends: the component under a host that stays. See
// kUsage.
#include <dlfcn.h>
#include <signal.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <map>
#include <stdexcept>
#include <thread>

#include "real_providers/probe/interruption.h"
#include "real_providers/probe/token.h"
#include "support/ckr_names.h"

namespace {

constexpr char kUsage[] = R"(provider_probe - one behaviour of a provider, in one line

  provider_probe [--keep-mapped] LIBRARY SERIAL COMMAND...
  provider_probe --name NUMBER
                      the name of a return value

  reopen TIMES        opens and closes the provider; how often the certificates were all there
  poll CHANGE         whether a change that the shell command CHANGE makes is noticed, and how many
                      certificates are listed before and after
  lock WRONG-PIN MAX  offers the wrong PIN until it is locked, but not more often than MAX
  unlock WRONG-PIN SO-PIN NEW-PIN
                      signs; what comes of it when the PIN has to be unlocked on the way
  unlock-anyway SO-PIN NEW-PIN
                      what Unlock() answers by itself, with a PIN that is not locked; signs
  pair LIBRARY-2 SERIAL-2 PIN PIN-2 TAKE-AWAY
                      two providers in two modules: how many certificates each lists and what
                      becomes of ten signatures in turn; the same of the second one with the
                      first closed, and of the first one opened again; which one notices TAKE-AWAY, and how many
                      certificates each lists then
  interrupt list|sign|poll STEP TAKE-AWAY BRING-BACK PIN
                      runs TAKE-AWAY just before the first call of STEP (see interruption.h); prints
                      what that call answered and how the operation ended (how many certificates,
                      what of the signature), or just one of them where they are the same; in
                      parentheses how the signature ends in good times, if not well; and after
                      BRING-BACK: "back" when the module goes on as before, "reopen" when it does
                      after being closed and opened, else "lost"
)";

using Words = std::vector<std::string>;

constexpr std::chrono::milliseconds kBetweenLooks(50);
constexpr int kLooks = 30;

void Wait() {
  std::this_thread::sleep_for(kBetweenLooks);
}

void Run(const std::string& command) {
  if (std::system(command.c_str()) != 0)
    throw std::runtime_error("failed: " + command);
}

std::string Reopen(Token* token, const Words& words) {
  const int times = std::stoi(words.at(0));
  std::size_t expected = 0;
  for (int i = 0; i < times; ++i) {
    token->Open();
    const std::size_t found = token->CountCertificates();
    token->Close();
    if (i == 0)
      expected = found;
    if (found != expected || found == 0)
      return "differs in round " + std::to_string(i + 1);
  }
  return std::to_string(times);
}

// Whether HasChanged() becomes true within a second and a half.
bool NoticesChange(PKCS11Module* module) {
  for (int look = 0; look < kLooks; ++look) {
    if (module->HasChanged())
      return true;
    Wait();
  }
  return false;
}

// "event" or the answer of a poll that has none; how many certificates there are before and after.
std::string Poll(Token* token, const Words& words) {
  token->Open();
  PKCS11Module& module = token->module();
  std::size_t before = token->CountCertificates();
  // Providers may report what was there from the start.
  for (int look = 0; look < 10; ++look, Wait()) {
    if (module.HasChanged())
      before = token->CountCertificates();
  }
  Run(words.at(0));
  std::string answer = "event";
  if (!NoticesChange(&module)) {
    CK_SLOT_ID slot = 0;
    answer =
        support::CkrName(module.function_list->C_WaitForSlotEvent(CKF_DONT_BLOCK, &slot, nullptr));
  }
  return answer + ", " + std::to_string(before) + " to " +
         std::to_string(token->CountCertificates());
}

std::string Lock(Token* token, const Words& words) {
  token->Open();
  User user(words.at(0), std::stoi(words.at(1)));
  const std::string end = token->Sign(&user);
  if (user.was_locked())
    return "after " + std::to_string(user.pins_offered());
  return end == "cancelled" ? "never" : end;
}

std::string Unlock(Token* token, const Words& words) {
  token->Open();
  token->CountCertificates();
  User user(words.at(0));
  user.WillUnlock(words.at(1), words.at(2));
  const std::string end = token->Sign(&user);
  return end == "cancelled" && !user.was_locked() ? "not locked" : end;
}

std::string UnlockAnyway(Token* token, const Words& words) {
  token->Open();
  token->CountCertificates();
  User user(words.at(1));
  user.WillUnlock(words.at(0), words.at(1));
  const std::string answer = token->Unlock(&user);
  return answer == "OK" ? "OK, " + token->Sign(words.at(1)) : answer;
}

std::string Pair(Token* token, const Words& words) {
  Token second(words.at(0), words.at(1));
  const std::string& pin = words.at(2);
  const std::string& second_pin = words.at(3);
  const auto counts = [&] {
    return std::to_string(token->CountCertificates()) + " and " +
           std::to_string(second.CountCertificates());
  };
  token->Open();
  second.Open();
  std::string answer = counts();
  std::string signatures;
  for (int i = 0; i < 10; ++i) {
    const std::string results = token->Sign(pin) + " and " + second.Sign(second_pin);
    if (i == 0)
      signatures = results;
    else if (results != signatures)
      signatures = "differing signatures";
  }
  answer += ", " + signatures;
  token->Close();
  answer += "; " + std::to_string(second.CountCertificates()) + ", " + second.Sign(second_pin);
  token->Open();
  answer += "; " + std::to_string(token->CountCertificates()) + ", " + token->Sign(pin);
  for (int look = 0; look < 10; ++look, Wait()) {
    if (token->module().HasChanged() || second.module().HasChanged())
      counts();
  }
  Run(words.at(4));
  answer += NoticesChange(&token->module()) ? "; noticed" : "; not noticed";
  answer += second.module().HasChanged() ? " and noticed" : " and not noticed";
  return answer + ", " + counts();
}

// Whether all is as it was, at the latest after a second and a half.
bool IsAsBefore(Token* token, std::size_t num_certificates, const std::string& sign_result,
                const std::string& pin) {
  for (int look = 0; look < kLooks; ++look, Wait()) {
    if (token->CountCertificates() == num_certificates && token->Sign(pin) == sign_result)
      return true;
  }
  return false;
}

std::string Interrupt(Token* token, const Words& words) {
  const std::string& operation = words.at(0);
  const std::string& bring_back = words.at(3);
  const std::string& pin = words.at(4);
  token->Open();
  PKCS11Module& module = token->module();
  while (module.HasChanged()) {  // What was there from the start is no change.
    token->CountCertificates();
    Wait();
  }
  const std::size_t num_certificates = token->CountCertificates();
  const std::string sign_result = token->Sign(pin);

  std::string result;
  {
    Interruption interruption(module.function_list, words.at(1), words.at(2));
    const CK_FUNCTION_LIST_PTR provider =
        std::exchange(module.function_list, interruption.functions());
    if (operation == "list")
      result = std::to_string(token->CountCertificates());
    else if (operation == "sign")
      result = token->Sign(pin);
    else
      result = module.HasChanged() ? "changed" : "unchanged";
    module.function_list = provider;
    if (!interruption.happened())
      result = "not reached";
    else if (interruption.answer() != result)
      result = interruption.answer() + ": " + result;
    if (operation == "sign" && sign_result != "signed")
      result += " (" + sign_result + ")";
  }

  Run(bring_back);
  if (IsAsBefore(token, num_certificates, sign_result, pin))
    return result + ", back";
  token->Close();
  try {
    token->Open();
  } catch (const std::runtime_error&) {
    return result + ", lost";
  }
  return result + (IsAsBefore(token, num_certificates, sign_result, pin) ? ", reopen" : ", lost");
}

using Command = std::function<std::string(Token*, const Words&)>;
const std::map<std::string, Command> kCommands = {
    {"reopen", Reopen}, {"poll", Poll},           {"lock", Lock},
    {"unlock", Unlock}, {"interrupt", Interrupt}, {"unlock-anyway", UnlockAnyway},
    {"pair", Pair},
};

}  // namespace

int main(int argc, char** argv) {
  Words words(argv + 1, argv + argc);
  // What any host does that may meet a provider with a helper process.
  signal(SIGPIPE, SIG_IGN);
  const bool keep_mapped = !words.empty() && words[0] == "--keep-mapped";
  if (keep_mapped)
    words.erase(words.begin());
  if (words.size() == 2 && words[0] == "--name") {
    std::puts(support::CkrName(std::stoul(words[1])).c_str());
    return 0;
  }
  if (words.size() < 3 || kCommands.count(words[2]) == 0) {
    std::fputs(kUsage, stderr);
    return 2;
  }
  if (keep_mapped)
    dlopen(words[0].c_str(), RTLD_LAZY | RTLD_NODELETE);
  try {
    Token token(words[0], words[1]);
    std::puts(kCommands.at(words[2])(&token, Words(words.begin() + 3, words.end())).c_str());
    std::fflush(stdout);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "provider_probe: %s\n", error.what());
    return 1;
  }
}
