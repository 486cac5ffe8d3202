// SetNameComponents: which naming specifications are accepted, and what is logged for the others.
#include <stdexcept>

#include "pkcs11/module_test.h"

namespace {

using testing::ElementsAre;

// The components as "2 commonName": category and attribute.
std::vector<std::string> Components(const PKCS11Module& module) {
  std::vector<std::string> texts;
  for (const PKCS11Module::name_component& component : module.name_components)
    texts.push_back(std::to_string(component.category) + ' ' + component.attribute);
  return texts;
}

struct Accepted {
  const char* spec;
  std::vector<std::string> components;
};

class AcceptedSpecification : public ModuleTest, public testing::WithParamInterface<Accepted> {};

TEST_P(AcceptedSpecification, ReplacesComponents) {
  EXPECT_TRUE(module.SetNameComponents(GetParam().spec));
  EXPECT_EQ(Components(module), GetParam().components);
  EXPECT_FALSE(module.changed);
  EXPECT_TRACE("");
}

INSTANTIATE_TEST_SUITE_P(
    Texts, AcceptedSpecification,
    testing::Values(Accepted{"subject_commonName", {"2 commonName"}},
                    Accepted{"card_label,subject_commonName", {"0 label", "2 commonName"}},
                    Accepted{"subject_commonName,issuer_organizationName",
                             {"2 commonName", "3 organizationName"}},
                    // The first underscore is the separator. The attribute may contain more of
                    // them, or be empty.
                    Accepted{"subject_common_name", {"2 common_name"}},
                    Accepted{"subject_", {"2 "}}, Accepted{"subject__", {"2 _"}},
                    // The attribute is checked only when a name is generated.
                    Accepted{"pin_anything,card_anything", {"1 anything", "0 anything"}},
                    Accepted{"card_label,card_label", {"0 label", "0 label"}},
                    // Only blanks are refused, not other white space.
                    Accepted{"subject_common\tName", {"2 common\tName"}}));

struct Refused {
  const char* spec;
  std::string message;
};

class RefusedSpecification : public ModuleTest, public testing::WithParamInterface<Refused> {};

TEST_P(RefusedSpecification, KeepsComponents) {
  ASSERT_TRUE(module.SetNameComponents("card_label,issuer_commonName"));
  EXPECT_FALSE(module.SetNameComponents(GetParam().spec));
  EXPECT_THAT(Components(module), ElementsAre("0 label", "3 commonName"));
  EXPECT_TRACE("log 3: " + GetParam().message);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, RefusedSpecification,
    testing::Values(Refused{"subject_commonName\\",
                            "Unable to parse certificate naming specification"},
                    Refused{"subject_common Name", "Malformed certificate naming specification"},
                    Refused{"subject_commonName, issuer_commonName",
                            "Malformed certificate naming specification"},
                    Refused{" ", "Malformed certificate naming specification"},
                    Refused{"subject", "Malformed token \"subject\""},
                    Refused{"card_label,,pin_label", "Malformed token \"\""},
                    Refused{"card_label,", "Malformed token \"\""},
                    Refused{"_commonName", "Unknown name category \"\""},
                    Refused{"Subject_commonName", "Unknown name category \"Subject\""},
                    Refused{"cards_label", "Unknown name category \"cards\""},
                    Refused{"car_label", "Unknown name category \"car\""},
                    Refused{"", "Ignoring empty name specification"},
                    // Only the first malformed element is reported.
                    Refused{"card_label,subject,un known_x,wrong_x", "Malformed token \"subject\""},
                    Refused{"wrong_x,subject", "Unknown name category \"wrong\""},
                    // A blank is reported rather than a missing underscore or unknown category.
                    Refused{"no underscore", "Malformed certificate naming specification"},
                    Refused{"wrong_a b", "Malformed certificate naming specification"}));

using NamingSpecificationTest = ModuleTest;

TEST_F(NamingSpecificationTest, ThrowsLogicErrorForNullText) {
  EXPECT_THROW(module.SetNameComponents(nullptr), std::logic_error);
  EXPECT_THAT(Components(module), ElementsAre("2 commonName"));
  EXPECT_TRACE("");
}

TEST_F(NamingSpecificationTest, KeepsDefaultAfterEmptyText) {
  EXPECT_FALSE(module.SetNameComponents(""));
  EXPECT_THAT(Components(module), ElementsAre("2 commonName"));
  EXPECT_TRACE("log 3: Ignoring empty name specification");
}

TEST_F(NamingSpecificationTest, KeepsGeneratingNamesAfterRefusal) {
  provider.Slot(1).Token("Alice").Certificate("A");
  Open();
  EXPECT_THAT(Names(module.GetCertificates()), ElementsAre("A"));
  EXPECT_FALSE(module.SetNameComponents("card_label,wrong_x"));
  EXPECT_THAT(Names(module.GetCertificates()), ElementsAre("A"));
  EXPECT_TRUE(module.SetNameComponents("card_label"));
  EXPECT_THAT(Names(module.GetCertificates()), ElementsAre("Alice"));
}

}  // namespace
