// The scripted host: host services that record their calls in the trace and fail on request.
#pragma once

#include <functional>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "scripted_host/scripted_certificate.h"

namespace scripted_host {

// Thrown by the host's functions on request.
struct Thrown : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Functions are called by their names: "Transcode", "LongToString", "Strip", "cert_alloc",
// "cert_serial", and so on. Calls are counted from the time of the request.
class Host {
 public:
  static Host& Instance();
  void Reset();

  // The first message that begins with `beginning` throws after it was recorded.
  void ThrowAtMessage(const std::string& beginning) { throw_at_message_ = beginning; }
  // Runs `action` within every message, after the message was recorded.
  void OnMessage(std::function<void()> action) { on_message_ = std::move(action); }
  // The first call of the function throws.
  void ThrowAtCall(const std::string& function);
  // The n-th call of cert_alloc returns a null pointer.
  void FailAlloc(int nth = 1) { allocs_until_failure_ = nth; }
  // cert_parse accepts an empty certificate.
  void AcceptEmptyCertificates() { accepts_empty_ = true; }
  // Transcode returns this text.
  void TranscodeTo(const std::string& text) { transcoded_ = text; }
  // Records calls of the function. Those of cert_alloc, cert_parse and cert_free are always
  // recorded.
  void Record(const std::string& function);
  // Records calls of all functions that read a field of a certificate.
  void RecordInspection();
  // Do not report certificates that were never freed: an exception will lose them.
  void ExpectLostCertificates() { may_lose_ = true; }

  // Returns what the component did wrong (certificates freed twice or never, or used after that)
  // and which requests of the test were not used.
  std::vector<std::string> Violations() const;
  std::size_t certificates_alive() const { return alive_.size(); }
  // Frees the certificates that an exception has lost.
  void FreeLostCertificates();

  // The rest is used by the host's functions.
  void Logged(const std::string& message, int level);
  void Called(const std::string& function, const std::string& text);
  bool AllocFails();
  Certificate* Alloc();
  void Free(Certificate* cert);
  void CheckAlive(const Certificate* cert, const std::string& function);
  bool accepts_empty() const { return accepts_empty_; }
  const std::string& transcoded() const { return transcoded_; }

 private:
  void CheckName(const std::string& function);

  std::set<const Certificate*> alive_;
  std::set<std::string> recorded_;
  std::vector<std::string> violations_;
  std::string throw_at_message_;
  std::string throw_at_call_;
  std::string transcoded_;
  std::function<void()> on_message_;
  int allocs_until_failure_ = 0;
  bool accepts_empty_ = false;
  bool may_lose_ = false;
};

}  // namespace scripted_host
