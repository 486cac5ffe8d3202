// cardcert watch
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <sstream>
#include <utility>

#include "cli/certificates/serials.h"
#include "cli/commands/commands.h"
#include "cli/commands/provider.h"
#include "cli/output/json.h"
#include "cli/output/table.h"
#include "cli/terminal/console.h"
#include "cli/terminal/signal_pipe.h"

namespace cardcert::cli {
namespace {

using Clock = std::chrono::steady_clock;
using Records = std::list<pkcs11_certificate>;

// Between two lists where no event has ever come: not every provider reports them, and none of the
// ways in which they say so tells for sure.
constexpr std::chrono::seconds kListAgain(3);

bool SameEntry(const pkcs11_certificate& a, const pkcs11_certificate& b) {
  return a.slot_description == b.slot_description && a.presentable_name == b.presentable_name &&
         SameCertificate(a, b);
}

// The entries of `from` that `without` does not have, copies counted.
Records Difference(Records from, Records without) {
  from.remove_if([&without](const pkcs11_certificate& record) {
    const auto same = std::find_if(
        without.begin(), without.end(),
        [&record](const pkcs11_certificate& other) { return SameEntry(record, other); });
    if (same == without.end())
      return false;
    without.erase(same);
    return true;
  });
  return from;
}

class Watch {
 public:
  Watch(const WatchOptions& options, ComponentLog* log, PKCS11Module* module)
      : options_(options), log_(*log), module_(*module) {}

  ExitStatus Run(SignalPipe* signals) {
    if (!List())
      return kExitFailed;
    for (unsigned long looks = 1; options_.count == 0 || looks < options_.count; ++looks) {
      switch (Wait(signals)) {
        case Event::kSignal:
          return kExitSuccess;
        case Event::kOutputGone:
          return kExitFailed;
        case Event::kTime:
          break;
      }
      if (!Look())
        return kExitFailed;
    }
    return kExitSuccess;
  }

 private:
  // What the last lists were like. With the second one that fails the certificates are gone.
  enum class State { kListed, kFailedOnce, kGone };

  State Next(bool listed) const {
    if (listed)
      return State::kListed;
    return state_ == State::kListed ? State::kFailedOnce : State::kGone;
  }

  // False: the provider could not list its slots, or standard output is gone.
  bool List() {
    std::optional<Records> listed = ListCertificates(&log_, &module_);
    if (!listed)
      return false;
    known_ = std::move(*listed);
    TakeNotes();
    if (!options_.json) {
      const bool printed = known_.empty() || PrintData(CertificateTable(known_));
      if (known_.empty())
        PrintError("no certificates yet; watching");
      return printed;
    }
    return Show("present", "", known_);
  }

  bool Look() {
    const bool event = module_.HasChanged();
    reports_events_ = reports_events_ || event;
    if (!event && state_ != State::kFailedOnce && (reports_events_ || !TimeToListAgain()))
      return true;
    Records now;
    const bool listed = Read(&now);
    const State before = std::exchange(state_, Next(listed));
    if (state_ == State::kFailedOnce)
      return true;  // In the middle of a change, perhaps.
    if (state_ == State::kGone && before != state_)
      PrintSlotListError();
    const Records removed = Difference(known_, now);
    const Records added = Difference(now, known_);
    known_ = std::move(now);
    return Show("removed", "- ", removed) && Show("added", "+ ", added);
  }

  // Says once that it lists again without being told to.
  bool TimeToListAgain() {
    if (!has_said_so_) {
      // It lists when it looks, so that a longer interval counts.
      const double looks = std::ceil(static_cast<double>(kListAgain.count()) / options_.interval);
      std::ostringstream message;
      message << "the provider has reported no events so far: listing again every "
              << looks * options_.interval << " seconds";
      PrintError(message.str());
      has_said_so_ = true;
    }
    return Clock::now() - listed_at_ >= kListAgain;
  }

  // False: the provider could not go through its slots, and there are no records.
  bool Read(Records* records) {
    // A list of all slots makes it false, and one that failed leaves it alone.
    const bool changed = std::exchange(module_.changed, true);
    *records = module_.GetCertificates();
    const bool listed = !module_.changed;
    if (!listed)
      module_.changed = changed;
    TakeNotes();
    return listed;
  }

  // After a list: says what has gone wrong, unless it is what went wrong before.
  void TakeNotes() {
    listed_at_ = Clock::now();
    const std::vector<std::string> notes = Notes(log_.TakeProblems());
    if (notes != notes_)
      ShowNotes(notes);
    notes_ = notes;
  }

  bool Show(const char* event, const char* sign, const Records& records) {
    std::string text;
    for (const pkcs11_certificate& record : records) {
      if (options_.json)
        text += EventAsJsonLine(event, record, module_.GetLibraryPath());
      else
        text += sign + CertificateLine(record) + "\n";
    }
    return text.empty() || PrintData(text);
  }

  enum class Event { kTime, kSignal, kOutputGone };

  // Until the next look. That nobody reads on is noticed before there is anything to write.
  Event Wait(SignalPipe* signals) const {
    pollfd inputs[] = {{signals->descriptor(), POLLIN, 0}, {STDOUT_FILENO, 0, 0}};
    const auto until = Clock::now() + std::chrono::duration<double>(options_.interval);
    for (;;) {
      const std::chrono::duration<double, std::milli> rest = until - Clock::now();
      poll(inputs, 2, std::max(0, static_cast<int>(rest.count())));
      if (signals->Take() != 0)
        return Event::kSignal;
      if ((inputs[1].revents & (POLLERR | POLLHUP)) != 0)
        return Event::kOutputGone;
      if (Clock::now() >= until)
        return Event::kTime;
    }
  }

  const WatchOptions& options_;
  ComponentLog& log_;
  PKCS11Module& module_;
  Records known_;
  std::vector<std::string> notes_;
  Clock::time_point listed_at_;
  State state_ = State::kListed;
  bool reports_events_ = false;
  bool has_said_so_ = false;
};

}  // namespace

ExitStatus RunWatch(const ProviderOptions& provider, const WatchOptions& options) {
  ComponentLog log;
  PKCS11Module module;
  const ExitStatus opened = OpenProvider(provider, &log, &module);
  if (opened != kExitSuccess)
    return opened;
  SignalPipe signals({SIGINT, SIGTERM, SIGHUP}, true);
  return Watch(options, &log, &module).Run(&signals);
}

}  // namespace cardcert::cli
