// An ordinary shared library: it is no PKCS#11 provider.
extern "C" int Answer() {
  return 42;
}
