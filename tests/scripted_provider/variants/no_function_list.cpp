// A shared library that is not a PKCS#11 provider.
extern "C" int Answer() {
  return 42;
}
