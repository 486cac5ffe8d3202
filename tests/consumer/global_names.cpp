// Names that the libraries must not export. check_exported_symbols has to report each of them.
#include <memory>

// Also occurs as a template argument.
class GlobalClass {
 public:
  ~GlobalClass() { delete this->text; }
  char* text = nullptr;
};

int GlobalFunction() {
  const auto object = std::make_unique<GlobalClass>();
  return object->text == nullptr;
}

int global_variable = GlobalFunction();

namespace x509 {
int Function() {
  return global_variable;
}
}  // namespace x509
