// Uses the component as a long-running host does, for behaviours that single runs of cardcert
// cannot show. See kUsage.
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

constexpr char kUsage[] =
    R"(provider_probe: tries one behaviour of a PKCS#11 provider and prints its result in one line

Usage:
  provider_probe [--keep-mapped] LIBRARY SERIAL COMMAND...
  provider_probe --name NUMBER

SERIAL is the serial number of the certificate to sign with. --keep-mapped keeps the library loaded
when the component closes it. --name prints the name of a return value.

Commands:
  reopen TIMES
      Opens and closes the provider TIMES times. Prints TIMES if all certificates were listed each
      time.
  poll CHANGE
      Runs the shell command CHANGE. Prints "event" if the component notices the change, or else the
      result of C_WaitForSlotEvent; and the number of certificates before and after the change.
  lock WRONG-PIN MAX
      Signs with the wrong PIN until it is locked, but at most MAX times. Prints after how many times
      it was locked.
  unlock WRONG-PIN SO-PIN NEW-PIN
      Signs with the wrong PIN until it is locked, then unlocks it. Prints the result.
  unlock-anyway SO-PIN NEW-PIN
      Calls Unlock() although the PIN is not locked, then signs. Prints both results.
  pair LIBRARY-2 SERIAL-2 PIN PIN-2 REMOVE
      Uses two providers in two modules. Prints, separated by semicolons: how many certificates each
      lists and the results of ten signatures in turn; the same for the second module while the first
      one is closed; the same for the first one when it is open again; which module notices the shell
      command REMOVE, and how many certificates each lists then.
  interrupt list|sign|poll STEP REMOVE RESTORE PIN
      Runs the shell command REMOVE right before the first call of STEP (see interruption.h). Prints
      the result of that call and the result of the operation (the number of certificates, or the
      result of the signature), or only one of them if they are equal; in parentheses the normal
      result of the signature if it is not success; and after the shell command RESTORE "back" if the
      module works as before, "reopen" if it does after it was closed and opened, or else "lost".
)";

using Words = std::vector<std::string>;

constexpr std::chrono::milliseconds kPollInterval(50);
constexpr int kMaxPolls = 30;

void Wait() {
  std::this_thread::sleep_for(kPollInterval);
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

// Returns true if HasChanged() becomes true within 1.5 seconds.
bool NoticesChange(PKCS11Module* module) {
  for (int poll = 0; poll < kMaxPolls; ++poll) {
    if (module->HasChanged())
      return true;
    Wait();
  }
  return false;
}

std::string Poll(Token* token, const Words& words) {
  token->Open();
  PKCS11Module& module = token->module();
  std::size_t before = token->CountCertificates();
  // Providers may first report events for tokens that were there from the start.
  for (int poll = 0; poll < 10; ++poll, Wait()) {
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
  for (int poll = 0; poll < 10; ++poll, Wait()) {
    if (token->module().HasChanged() || second.module().HasChanged())
      counts();
  }
  Run(words.at(4));
  answer += NoticesChange(&token->module()) ? "; noticed" : "; not noticed";
  answer += second.module().HasChanged() ? " and noticed" : " and not noticed";
  return answer + ", " + counts();
}

// Returns true if listing and signing give the expected results within 1.5 seconds.
bool WorksAsBefore(Token* token, std::size_t num_certificates, const std::string& sign_result,
                   const std::string& pin) {
  for (int poll = 0; poll < kMaxPolls; ++poll, Wait()) {
    if (token->CountCertificates() == num_certificates && token->Sign(pin) == sign_result)
      return true;
  }
  return false;
}

std::string Interrupt(Token* token, const Words& words) {
  const std::string& operation = words.at(0);
  const std::string& restore = words.at(3);
  const std::string& pin = words.at(4);
  token->Open();
  PKCS11Module& module = token->module();
  while (module.HasChanged()) {  // Events for tokens that were there from the start.
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
    else if (interruption.result() != result)
      result = interruption.result() + ": " + result;
    if (operation == "sign" && sign_result != "signed")
      result += " (" + sign_result + ")";
  }

  Run(restore);
  if (WorksAsBefore(token, num_certificates, sign_result, pin))
    return result + ", back";
  token->Close();
  try {
    token->Open();
  } catch (const std::runtime_error&) {
    return result + ", lost";
  }
  return result +
         (WorksAsBefore(token, num_certificates, sign_result, pin) ? ", reopen" : ", lost");
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
  // As every host should: a provider whose helper process dies may cause SIGPIPE.
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
