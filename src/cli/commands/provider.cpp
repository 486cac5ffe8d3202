#include "cli/commands/provider.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

#include "cli/commands/listing_warnings.h"
#include "cli/commands/names_and_filters.h"
#include "cli/terminal/console.h"
#include "cli/terminal/standard_output.h"
#include "host/kvutils.h"

namespace cardcert::cli {
namespace {

// Returns why the file cannot be loaded, or an empty text.
std::string PathProblem(const std::string& path) {
  struct stat info = {};
  if (stat(path.c_str(), &info) != 0)
    return errno == ENOENT ? "there is no such file" : std::strerror(errno);
  if (S_ISDIR(info.st_mode))
    return "it is a folder";
  return access(path.c_str(), R_OK) == 0 ? "" : std::strerror(errno);
}

// `path` is in UTF-8.
void PrintLoadHints(const std::string& path) {
  const std::string local_path = KVUtils::Transcode("UTF-8", "", path);
  const bool has_folder = path.find('/') != std::string::npos;
  const std::string problem = PathProblem(local_path);
  if (has_folder && !problem.empty()) {
    PrintHint("check the path given with --module: " + problem);
  } else if (!has_folder && access(local_path.c_str(), F_OK) == 0) {
    PrintHint("a name without '/' is searched for in the system's library folders only; write " +
              Quoted("./" + path) + " for the file in the current folder");
  } else {
    if (!has_folder)
      PrintHint("a name without '/' is searched for in the system's library folders");
    PrintHint(
        "check that --module names the card's PKCS#11 library, and that what the library needs is"
        " available: its configuration file, its daemon, the card reader service");
  }
  PrintHint("PKCS#11 libraries are often in /usr/lib/*/pkcs11/ or named *pkcs11*.so");
}

}  // namespace

ExitStatus Provider::Open(const ProviderOptions& options) {
  if (options.module.empty()) {  // dlopen() would open the program itself.
    PrintError("--module is empty");
    return kExitUsage;
  }
  if (!ApplyNamesAndFilters(options, &log_, &module_) ||
      !log_.Configure(options.log_level, options.log_file))
    return kExitUsage;
  if (!SetStandardOutputAside())
    return kExitFailed;
  if (guard_.Open(options.module, &module_) != 0) {
    if (ProviderGuard::fault())
      return kExitFailed;
    PrintLoadHints(options.module);
    return kExitProvider;
  }
  return kExitSuccess;
}

std::optional<Listing> Provider::List() {
  for (int attempt = 0; attempt < 2; ++attempt) {
    std::optional<Listing> listing = TryToList();
    if (ProviderGuard::fault())  // Certificates may be missing in the listing.
      return std::nullopt;
    if (listing)
      return listing;
  }
  PrintWarnings(ListingWarnings(log_.problems()));
  PrintSlotListError();
  return std::nullopt;
}

std::optional<Listing> Provider::TryToList() {
  log_.Clear();
  guard_.ForgetTokens();
  // GetCertificates() sets `changed` to false once it has gone through all slots, and leaves it
  // alone on failure.
  const bool changed = std::exchange(module_.changed, true);
  std::list<pkcs11_certificate> records = module_.GetCertificates();
  if (module_.changed) {
    module_.changed = changed;
    return std::nullopt;
  }
  Listing listing = MakeListing(std::move(records), log_.events());
  for (const auto& [slot, info] : guard_.tokens())
    listing.tokens.emplace(slot, IdentityOf(info));
  return listing;
}

void PrintSlotListError() {
  PrintError("the provider cannot list its slots");
  PrintHint("check that what it needs is running: its daemon, or the card reader service");
}

}  // namespace cardcert::cli
