// cardcert watch
#include <poll.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <sstream>
#include <utility>

#include "cli/certificates/changes.h"
#include "cli/commands/commands.h"
#include "cli/commands/file_roles.h"
#include "cli/commands/listing_warnings.h"
#include "cli/commands/provider.h"
#include "cli/output/json.h"
#include "cli/output/table.h"
#include "cli/terminal/console.h"
#include "cli/terminal/signal_pipe.h"
#include "cli/terminal/standard_output.h"

namespace cardcert::cli {
namespace {

using Clock = std::chrono::steady_clock;
using Records = std::list<pkcs11_certificate>;

// How often the certificates are listed as long as no event has come. Not every provider reports
// events, and none of the ways in which providers say so is reliable.
constexpr std::chrono::seconds kListAgain(3);

class Watch {
 public:
  Watch(const WatchOptions& options, Provider* provider)
      : options_(options), provider_(*provider) {}

  ExitStatus Run(SignalPipe* signals) {
    if (!ShowFirstList())
      return kExitFailed;
    for (unsigned long looks = 1; options_.count == 0 || looks < options_.count; ++looks) {
      switch (Wait(signals)) {
        case Event::kSignal:
          return kExitSuccess;
        case Event::kOutputClosed:
          return kExitFailed;
        case Event::kTime:
          break;
      }
      if (!Look() || ProviderGuard::fault())
        return kExitFailed;
    }
    return kExitSuccess;
  }

 private:
  // How the last lists went. A single failure may be due to a token that is just being inserted;
  // after the second in a row the certificates count as removed.
  enum class State { kListed, kFailedOnce, kGone };

  State NextState(bool listed) const {
    if (listed)
      return State::kListed;
    return state_ == State::kListed ? State::kFailedOnce : State::kGone;
  }

  // Returns false if the provider cannot list its slots or standard output cannot be written.
  bool ShowFirstList() {
    std::optional<Listing> listing = provider_.List();
    if (!listing)
      return false;
    known_ = std::move(listing->records);
    PrintNewWarnings();
    if (options_.json)
      return Show("present", "", known_);
    if (!known_.empty())
      return PrintData(CertificateTable(known_));
    PrintProgress("no certificates yet; watching for changes");
    return true;
  }

  // Lists again if there may be a change, and shows it. Returns false if standard output cannot be
  // written.
  bool Look() {
    const bool event = provider_.module().HasChanged();
    reports_events_ = reports_events_ || event;
    if (!event && state_ != State::kFailedOnce && (reports_events_ || !IsTimeToListAgain()))
      return true;
    std::optional<Listing> listing = provider_.TryToList();
    if (ProviderGuard::fault())
      return false;
    PrintNewWarnings();
    const State before = std::exchange(state_, NextState(listing.has_value()));
    if (state_ == State::kFailedOnce)
      return true;
    if (state_ == State::kGone && before != state_)
      PrintSlotListError();
    Records now = listing ? std::move(listing->records) : Records();
    const Records removed = Difference(known_, now);
    const Records added = Difference(now, known_);
    known_ = std::move(now);
    return Show("removed", "- ", removed) && Show("added", "+ ", added);
  }

  bool IsTimeToListAgain() {
    if (!std::exchange(announced_, true)) {
      // Lists are made at looks, so a longer interval counts.
      const double looks = std::ceil(static_cast<double>(kListAgain.count()) / options_.interval);
      std::ostringstream message;
      message << "the provider has reported no events so far; listing again every "
              << looks * options_.interval << " seconds";
      PrintProgress(message.str());
    }
    return Clock::now() - listed_at_ >= kListAgain;
  }

  // Prints what went wrong in the last list, unless the same went wrong in the list before.
  void PrintNewWarnings() {
    listed_at_ = Clock::now();
    std::vector<std::string> warnings = ListingWarnings(provider_.log().problems());
    if (warnings != warnings_)
      PrintWarnings(warnings);
    warnings_ = std::move(warnings);
  }

  bool Show(const char* event, const char* sign, const Records& records) const {
    std::string text;
    for (const pkcs11_certificate& record : records) {
      if (options_.json)
        text += EventAsJsonLine(event, record, provider_.module().GetLibraryPath());
      else
        text += sign + CertificateLine(record) + "\n";
    }
    return text.empty() || PrintData(text);
  }

  enum class Event { kTime, kSignal, kOutputClosed };

  // Waits for the time of the next look. Notices a reader of standard output that has gone away
  // even while there is nothing to write.
  Event Wait(SignalPipe* signals) const {
    signals->Rearm();
    pollfd inputs[] = {{signals->descriptor(), POLLIN, 0}, {StandardOutput(), 0, 0}};
    const auto until = Clock::now() + std::chrono::duration<double>(options_.interval);
    for (;;) {
      const std::chrono::duration<double, std::milli> rest = until - Clock::now();
      poll(inputs, 2, std::max(0, static_cast<int>(rest.count())));
      if (signals->Take() != 0)
        return Event::kSignal;
      if ((inputs[1].revents & (POLLERR | POLLHUP)) != 0)
        return Event::kOutputClosed;
      if (Clock::now() >= until)
        return Event::kTime;
    }
  }

  const WatchOptions& options_;
  Provider& provider_;
  Records known_;
  std::vector<std::string> warnings_;
  Clock::time_point listed_at_;
  State state_ = State::kListed;
  bool reports_events_ = false;
  bool announced_ = false;  // that the certificates are listed again without an event
};

}  // namespace

ExitStatus RunWatch(const ProviderOptions& provider_options, const WatchOptions& options) {
  if (!CheckFiles(provider_options))
    return kExitUsage;
  Provider provider;
  const ExitStatus status = provider.Open(provider_options);
  if (status != kExitSuccess)
    return status;
  SignalPipe signals({SIGINT, SIGTERM, SIGHUP}, true);
  return Watch(options, &provider).Run(&signals);
}

}  // namespace cardcert::cli
