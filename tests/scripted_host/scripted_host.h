// What a test tells the scripted host, and asks of it.
#pragma once

#include <functional>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "scripted_host/scripted_certificate.h"

namespace scripted_host {

// What the host's functions throw when they are told to.
struct Thrown : std::runtime_error {
  using std::runtime_error::runtime_error;
};

class Host {
 public:
  static Host& Instance();
  void Reset();

  // Throws at the first message from now on that begins with `beginning`, after it was recorded.
  void ThrowAtMessage(const std::string& beginning) { throw_at_message_ = beginning; }
  // Runs within every message from now on, after it was recorded.
  void OnMessage(std::function<void()> action) { on_message_ = std::move(action); }
  // Throws at the first call from now on of this function: "Transcode", "cert_serial", ...
  void ThrowAtCall(const std::string& function) { throw_at_call_ = function; }
  // cert_alloc answers null at the n-th call from now on.
  void FailAlloc(int nth = 1) { allocs_until_failure_ = nth; }
  // cert_parse takes a certificate of no bytes, too.
  void ParseNothing() { parses_nothing_ = true; }
  // Transcode answers this instead of its text.
  void TranscodeTo(const std::string& text) { transcoded_ = text; }
  // Records the certificate calls beside cert_alloc, cert_parse and cert_free, too; or "Transcode",
  // "LongToString", "Strip".
  void Record(const std::string& function) { recorded_.insert(function); }
  void RecordInspection();
  // An exception is about to lose certificates that nobody can free.
  void ExpectLostCertificates() { may_lose_ = true; }

  // What the component did wrong: certificates freed twice or never, used after, script not read.
  std::vector<std::string> Violations() const;
  std::size_t certificates_alive() const { return alive_.size(); }
  // Frees what an exception has lost, so that a test of that leaks nothing.
  void FreeLostCertificates();

  // For the host's functions.
  void Logged(const std::string& message, int level);
  void Called(const std::string& function, const std::string& text);
  bool AllocFails();
  Certificate* Alloc();
  void Free(Certificate* cert);
  void CheckAlive(const Certificate* cert, const std::string& function);
  bool parses_nothing() const { return parses_nothing_; }
  const std::string& transcoded() const { return transcoded_; }

 private:
  std::set<const Certificate*> alive_;
  std::set<std::string> recorded_;
  std::vector<std::string> violations_;
  std::string throw_at_message_;
  std::string throw_at_call_;
  std::string transcoded_;
  std::function<void()> on_message_;
  int allocs_until_failure_ = 0;
  bool parses_nothing_ = false;
  bool may_lose_ = false;
};

}  // namespace scripted_host
