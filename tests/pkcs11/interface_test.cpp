// The interface that host programs are compiled against: signatures, values of enumerators, sizes,
// and the order of fields.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <type_traits>

#include "pkcs11/pkcs11.h"

namespace {

using testing::ElementsAre;
using testing::Pair;

static_assert(!std::is_copy_constructible_v<PKCS11Module>);
static_assert(!std::is_copy_assignable_v<PKCS11Module>);
static_assert(!std::is_polymorphic_v<PKCS11Module>);

template <typename Signature, typename Operation>
constexpr bool HasSignature(Operation) {
  return std::is_same_v<Operation, Signature PKCS11Module::*>;
}

using Records = std::list<pkcs11_certificate>;
using Module = PKCS11Module;
static_assert(HasSignature<int(std::string)>(&Module::Open));
static_assert(HasSignature<void()>(&Module::Close));
static_assert(HasSignature<const std::string&() const>(&Module::GetLibraryPath));
static_assert(HasSignature<bool()>(&Module::HasChanged));
static_assert(HasSignature<bool(const char*)>(&Module::SetNameComponents));
static_assert(HasSignature<bool(std::string)>(&Module::AddFilter));
static_assert(HasSignature<void()>(&Module::ClearFilters));
static_assert(HasSignature<Records()>(&Module::GetCertificates));
static_assert(HasSignature<Records(unsigned long)>(&Module::GetToken));
static_assert(HasSignature<std::list<certificate*>(unsigned long)>(&Module::GetTokenCertificates));
static_assert(
    HasSignature<certificate*(unsigned long, unsigned long)>(&Module::GetTokenCertificate));
static_assert(HasSignature<std::list<std::string>(const CK_TOKEN_INFO&, const certificate*)>(
    &Module::GenerateName));
static_assert(HasSignature<bool(const certificate*)>(&Module::MatchesFilter));
static_assert(HasSignature<bool(std::string)>(&Module::CertificatePresent));
static_assert(HasSignature<pkcs11_certificate_location*(std::string)>(&Module::FindCertificate));
static_assert(HasSignature<CK_RV(CK_SESSION_HANDLE, CK_SLOT_ID, CK_USER_TYPE, pin_cb, error_cb,
                                 void*)>(&Module::Login));
static_assert(
    HasSignature<CK_RV(CK_SESSION_HANDLE, CK_SLOT_ID, pin_cb, error_cb, void*)>(&Module::Unlock));
static_assert(HasSignature<bool(std::string, const unsigned char*, unsigned long, unsigned char*,
                                unsigned long*, pin_cb, error_cb, void*)>(&Module::Sign));
static_assert(
    std::is_same_v<pin_cb, bool (*)(pkcs11_pin_type, unsigned char*, unsigned long*, void*)>);
static_assert(std::is_same_v<error_cb, void (*)(pkcs11_pin_type, pkcs11_pin_error, void*)>);
static_assert(std::is_default_constructible_v<Module> && std::is_nothrow_destructible_v<Module>);

static_assert(std::is_same_v<decltype(Module::library_path), std::string>);
static_assert(std::is_same_v<decltype(Module::library_handle), void*>);
static_assert(std::is_same_v<decltype(Module::function_list), CK_FUNCTION_LIST_PTR>);
static_assert(std::is_same_v<decltype(Module::changed), bool>);
static_assert(std::is_same_v<decltype(Module::name_components), std::list<Module::name_component>>);
static_assert(std::is_same_v<decltype(Module::filters), std::list<pkcs11_certificate_filter>>);

// Values and sizes that a host may store or send.
static_assert(PIN_TYPE_USER == 0 && PIN_TYPE_SO == 1 && PIN_TYPE_UNLOCK == 2 &&
              PIN_TYPE_NEW_USER == 3);
static_assert(PIN_ERROR_INCORRECT == 0 && PIN_ERROR_INVALID == 1 && PIN_ERROR_LOCKED == 2);
static_assert(PKCS11Module::NAME_CARD == 0 && PKCS11Module::NAME_PIN == 1 &&
              PKCS11Module::NAME_SUBJECT == 2 && PKCS11Module::NAME_ISSUER == 3);
static_assert(sizeof(pkcs11_pin_type) == 4 && sizeof(pkcs11_pin_error) == 4 &&
              sizeof(PKCS11Module::name_category) == 4);
static_assert(sizeof(pkcs11_certificate::public_exponent) == 17 &&
              sizeof(pkcs11_certificate::modulus) == 8193);
static_assert(sizeof(pkcs11_certificate_location) == 3 * sizeof(unsigned long) &&
              offsetof(pkcs11_certificate_location, slot) == 0 &&
              offsetof(pkcs11_certificate_location, session) == sizeof(unsigned long));

TEST(Interface, MembersOfModuleAreInOrder) {
  const Module module;
  const void* const members[] = {&module.library_path,    &module.library_handle,
                                 &module.function_list,   &module.changed,
                                 &module.name_components, &module.filters};
  EXPECT_TRUE(std::is_sorted(std::begin(members), std::end(members), std::less<const void*>()));
}

// The layout is part of the binary interface. These are the sizes of the standard library's types
// on LP64 platforms with libstdc++; with any other, sizeof alone shows that there is no further
// member.
struct MembersOfModule {
  std::string library_path;
  void* library_handle;
  CK_FUNCTION_LIST_PTR function_list;
  bool changed;
  std::list<Module::name_component> name_components;
  std::list<pkcs11_certificate_filter> filters;
};
static_assert(sizeof(Module) == sizeof(MembersOfModule));
#if defined(__LP64__) && defined(__GLIBCXX__) && _GLIBCXX_USE_CXX11_ABI
static_assert(sizeof(Module) == 104);

TEST(Interface, OffsetsOfMembersOfModuleAreFixed) {
  const Module module;
  const auto offset = [&module](const auto& member) {
    return reinterpret_cast<const char*>(&member) - reinterpret_cast<const char*>(&module);
  };
  EXPECT_EQ(offset(module.library_path), 0);
  EXPECT_EQ(offset(module.library_handle), 32);
  EXPECT_EQ(offset(module.function_list), 40);
  EXPECT_EQ(offset(module.changed), 48);
  EXPECT_EQ(offset(module.name_components), 56);
  EXPECT_EQ(offset(module.filters), 80);
}
#endif

// A host may initialise a record with one braced list, for example in its tests.

TEST(Interface, FieldsOfCertificateAreInOrder) {
  // Fields of the same type have different values, so that an exchange is noticed.
  const pkcs11_certificate record = {{"name"}, true, "subject", "01", 128,   false,
                                     {17},     {93}, 3,         256,  "slot"};
  EXPECT_THAT(record.presentable_name, ElementsAre("name"));
  EXPECT_TRUE(record.is_ca);
  EXPECT_EQ(record.subject, "subject");
  EXPECT_EQ(record.serial, "01");
  EXPECT_EQ(record.key_usage, 128);
  EXPECT_FALSE(record.matches_filter);
  EXPECT_EQ(record.public_exponent[0], 17);
  EXPECT_EQ(record.modulus[0], 93);
  EXPECT_EQ(record.public_exponent_len, 3u);
  EXPECT_EQ(record.modulus_len, 256u);
  EXPECT_EQ(record.slot_description, "slot");
}

TEST(Interface, FieldsOfFilterAreInOrder) {
  const pkcs11_certificate_filter filter = {"name", {{"commonName", "Example CA"}}, 128};
  EXPECT_EQ(filter.name, "name");
  EXPECT_THAT(filter.issuer_attributes, ElementsAre(Pair("commonName", "Example CA")));
  EXPECT_EQ(filter.key_usage, 128);
}

TEST(Interface, FieldsOfLocationAreInOrder) {
  const pkcs11_certificate_location location = {1, 2, 3};
  EXPECT_EQ(location.slot, 1u);
  EXPECT_EQ(location.session, 2u);
  EXPECT_EQ(location.object, 3u);
}

TEST(Interface, FieldsOfNameComponentAreInOrder) {
  const PKCS11Module::name_component component = {PKCS11Module::NAME_CARD, "label"};
  EXPECT_EQ(component.category, PKCS11Module::NAME_CARD);
  EXPECT_EQ(component.attribute, "label");
}

}  // namespace
