// Fuzz target: a sequence of operations of one module, with a provider and a user that may answer
// anything. The input chooses the operations and the answers. Properties:
//   - after each operation every session is logged out and closed, and the provider is initialised
//     exactly while it is loaded;
//   - certificate records have the properties that pkcs11.h promises;
//   - a failed signature leaves the length unchanged, a successful one fits the buffer;
//   - only std::bad_alloc and exceptions of the user's callback leave the component;
//   - log messages have one of the three levels.
#include <cstring>
#include <memory>
#include <new>

#include "fuzzed_provider.h"
#include "host/logfile.h"
#include "pkcs11/pkcs11.h"

namespace {

struct Cancelled {};  // Thrown by the PIN callback.

constexpr std::size_t kPinBufferSize = 128;

bool EnterPin(pkcs11_pin_type type, unsigned char* buffer, unsigned long* length, void* data) {
  Input& input = *static_cast<Input*>(data);
  const unsigned kind = input.Below(16);
  if (type == PIN_TYPE_UNLOCK) {
    Check(buffer == nullptr && *length == 0, "a question about unlocking has no buffer");
    return kind % 4 != 0;
  }
  Check(*length == kPinBufferSize, "a PIN buffer has 128 bytes");
  for (std::size_t i = 0; i < kPinBufferSize; ++i)
    Check(buffer[i] == 0, "a PIN buffer is zeroed");
  std::memset(buffer, 'P', kPinBufferSize);
  const unsigned long lengths[] = {0, 1, kPinBufferSize, kPinBufferSize + 1, 1UL << 63, ~0UL};
  *length = kind < 6 ? lengths[kind] : 4;
  if (kind == 15)
    throw Cancelled();
  return kind != 14;
}

void ReportPinError(pkcs11_pin_type, pkcs11_pin_error error, void*) {
  Check(error >= PIN_ERROR_INCORRECT && error <= PIN_ERROR_LOCKED,
        "a PIN error is one of the enumerators");
}

void CheckRecord(const PKCS11Module& module, const pkcs11_certificate& record) {
  Check(record.presentable_name.size() == module.name_components.size(),
        "a name has one part per component");
  Check(record.serial.size() % 2 == 0 &&
            record.serial.find_first_not_of("0123456789abcdef") == std::string::npos,
        "a serial number is lower-case hexadecimal");
  Check(record.public_exponent_len <= sizeof record.public_exponent &&
            record.modulus_len <= sizeof record.modulus,
        "a public key fits its arrays");
  Check(record.slot_description.size() <= 64, "a slot's description is at most 64 bytes");
}

class ModuleTest {
 public:
  explicit ModuleTest(Input* input) : input_(*input), provider_(input) {
    logfile.LogToFunction([](const std::string& message, int level) {
      Check(level == 2 || level == 3 || level == 5, "the level is 2, 3 or 5");
      Check(!message.empty() && message.find('\0') == std::string::npos,
            "a message is not empty and contains no NUL");
    });
    module_ = std::make_unique<PKCS11Module>();
    module_->SetNameComponents("card_label,pin_label,subject_commonName,issuer_organizationName");
    module_->Open("provider");
  }

  void Run() {
    for (int steps = 0; steps < 32 && !input_.empty(); ++steps) {
      try {
        Step(input_.Below(12));
      } catch (const Cancelled&) {
      } catch (const std::bad_alloc&) {
      }
      provider_.CheckNothingOpen();
      Check((module_->library_handle != nullptr) == provider_.loaded(),
            "library_handle is null unless a provider is loaded");
    }
    module_.reset();
    provider_.CheckNothingOpen();
  }

 private:
  void Step(unsigned operation) {
    switch (operation) {
      case 0:
        return Open();
      case 1:
        return module_->Close();
      case 2:
        return CheckForChange();
      case 3:
      case 4:
        return List();
      case 5:
        return Filter();
      default:
        if (provider_.loaded())
          Use(operation);
    }
  }

  // Runs an operation that needs a loaded provider.
  void Use(unsigned operation) {
    switch (operation) {
      case 6:
        module_->CertificatePresent(Serial());
        return;
      case 7:
        return Find();
      case 8:
        for (const pkcs11_certificate& record : module_->GetToken(input_.Byte()))
          CheckRecord(*module_, record);
        return;
      default:
        return Sign();
    }
  }

  void Open() {
    const char* const paths[] = {"provider", "provider", "absent", "no provider"};
    const std::string path = paths[input_.Below(4)];
    const bool loaded = module_->Open(path) == 0;
    Check(loaded == provider_.loaded(), "Open() succeeds if and only if a provider is loaded");
    Check(module_->GetLibraryPath() == (loaded ? path : ""),
          "the path is that of the loaded provider");
    Check(!loaded || module_->HasChanged(), "loading a provider sets the change flag");
  }

  void CheckForChange() {
    const bool changed = module_->HasChanged();
    Check(!changed || provider_.loaded(), "without a provider HasChanged() returns false");
    Check(!changed || module_->HasChanged(), "HasChanged() keeps returning true");
  }

  void List() {
    for (const pkcs11_certificate& record : module_->GetCertificates())
      CheckRecord(*module_, record);
  }

  void Filter() {
    if (input_.Below(4) == 0)
      module_->ClearFilters();
    else
      module_->AddFilter("|commonName=Test CA|" + std::to_string(input_.Byte()));
    Check(module_->changed, "changing the filters sets the change flag");
  }

  void Find() {
    const pkcs11_certificate_location* const location = module_->FindCertificate(Serial());
    provider_.CheckNothingOpen(location != nullptr ? 1 : 0);
    if (location == nullptr)
      return;
    Check(location->object != CK_INVALID_HANDLE, "a certificate found has an object handle");
    module_->function_list->C_CloseSession(location->session);
  }

  void Sign() {
    const unsigned long capacity = input_.Byte() * 2UL;
    std::string signature(capacity, '\0');
    unsigned long length = capacity;
    auto* const bytes = reinterpret_cast<unsigned char*>(signature.data());
    const error_cb pin_error = input_.Below(2) != 0 ? ReportPinError : nullptr;
    const bool made = module_->Sign(Serial(), reinterpret_cast<const unsigned char*>("data"), 4,
                                    bytes, &length, EnterPin, pin_error, &input_);
    Check(made ? length <= capacity : length == capacity,
          "a signature fits its buffer, a failure leaves the length unchanged");
  }

  std::string Serial() {
    const char* const serials[] = {"01", "02", "03", "04", "", "ff"};
    return serials[input_.Below(6)];
  }

  Input& input_;
  FuzzedProvider provider_;
  std::unique_ptr<PKCS11Module> module_;
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  ModuleTest(&input).Run();
  return 0;
}
