#include "scripted_host/scripted_host.h"

#include <utility>

#include "scripted_provider/trace.h"

namespace scripted_host {

namespace {

const std::set<std::string> kAlwaysRecorded = {"cert_alloc", "cert_parse", "cert_free"};

const std::set<std::string> kInspection = {"cert_subject",
                                           "cert_subject_attr",
                                           "cert_issuer_attr",
                                           "cert_is_ca",
                                           "cert_serial",
                                           "cert_key_usage",
                                           "cert_rsa_public_key_components"};

const std::set<std::string> kStringUtilities = {"Transcode", "LongToString", "Strip"};

}  // namespace

Host& Host::Instance() {
  static Host host;
  return host;
}

void Host::Reset() {
  FreeLostCertificates();
  *this = Host();
}

void Host::CheckName(const std::string& function) {
  if (kAlwaysRecorded.count(function) + kInspection.count(function) +
          kStringUtilities.count(function) ==
      0)
    violations_.push_back("the host has no function " + function);
}

void Host::ThrowAtCall(const std::string& function) {
  CheckName(function);
  throw_at_call_ = function;
}

void Host::Record(const std::string& function) {
  CheckName(function);
  recorded_.insert(function);
}

void Host::RecordInspection() {
  recorded_.insert(kInspection.begin(), kInspection.end());
}

std::vector<std::string> Host::Violations() const {
  std::vector<std::string> all = violations_;
  for (const Certificate* cert : alive_) {
    if (!may_lose_)
      all.push_back("certificate " + cert->name() + " was never freed");
  }
  if (!throw_at_message_.empty())
    all.push_back("no message began with \"" + throw_at_message_ + '"');
  if (!throw_at_call_.empty())
    all.push_back(throw_at_call_ + " was not called and did not throw");
  if (allocs_until_failure_ > 0)
    all.push_back("cert_alloc was not called and did not fail");
  return all;
}

void Host::FreeLostCertificates() {
  for (const Certificate* cert : std::exchange(alive_, {}))
    delete cert;
}

void Host::Logged(const std::string& message, int level) {
  scripted::Trace::Instance().Add("log " + std::to_string(level) + ": " + message);
  if (on_message_)
    on_message_();
  if (!throw_at_message_.empty() && message.rfind(throw_at_message_, 0) == 0) {
    throw_at_message_.clear();
    throw Thrown(message);
  }
}

void Host::Called(const std::string& function, const std::string& text) {
  if (kAlwaysRecorded.count(function) != 0 || recorded_.count(function) != 0)
    scripted::Trace::Instance().Add(function + text);
  if (function == throw_at_call_) {
    throw_at_call_.clear();
    throw Thrown(function);
  }
}

bool Host::AllocFails() {
  return allocs_until_failure_ > 0 && --allocs_until_failure_ == 0;
}

Certificate* Host::Alloc() {
  Certificate* const cert = new Certificate;
  alive_.insert(cert);
  return cert;
}

void Host::Free(Certificate* cert) {
  if (alive_.erase(cert) == 1)
    delete cert;
}

void Host::CheckAlive(const Certificate* cert, const std::string& function) {
  if (alive_.count(cert) == 0)
    violations_.push_back(function + " of a certificate that was freed or never allocated");
}

}  // namespace scripted_host
