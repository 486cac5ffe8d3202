// GenerateName: the pieces of the name under which a certificate is presented.
#include "pkcs11/module_test.h"

namespace {

using Pieces = std::list<std::string>;
using testing::ElementsAre;

class PresentableNameTest : public ModuleTest {
 protected:
  Pieces Generate(const std::string& spec, const std::string& label, const std::string& cert) {
    EXPECT_TRUE(module.SetNameComponents(spec.c_str()));
    const Parsed parsed(cert);
    return module.GenerateName(scripted::Token(label).Info(), parsed);
  }

  // Compares the trace of Generate(), which frees its certificate at the end.
  static void ExpectLogged(const std::string& lines) { EXPECT_TRACE(lines, "cert_free(A)"); }
};

TEST_F(PresentableNameTest, IsCommonNameByDefault) {
  const Parsed cert("A");
  EXPECT_THAT(module.GenerateName(scripted::Token("Alice").Info(), cert), ElementsAre("A"));
  EXPECT_TRACE("");
}

TEST_F(PresentableNameTest, HasOnePieceForEachComponentInOrder) {
  EXPECT_THAT(Generate("card_label,pin_label,subject_commonName", "Alice (PIN1)", "A"),
              ElementsAre("Alice", "PIN1", "A"));
  EXPECT_THAT(Generate("issuer_commonName,card_label,issuer_commonName", "Alice (PIN1)", "A"),
              ElementsAre("Example CA", "Alice", "Example CA"));
  ExpectLogged("");
}

TEST_F(PresentableNameTest, KeepsValuesUnchanged) {
  EXPECT_THAT(Generate("subject_x,issuer_y", "Alice", "A;subject.x= blanks ;issuer.y="),
              ElementsAre(" blanks ", ""));
  ExpectLogged("");
}

TEST_F(PresentableNameTest, ReadsAttributesOfUpTo1023Bytes) {
  host.RecordInspection();
  EXPECT_THAT(Generate("subject_a_b,issuer_,subject_commonName", "Alice", "A;subject.a_b=x"),
              ElementsAre("x", "", "A"));
  EXPECT_TRACE(R"(
    cert_subject_attr(A, a_b, size 1024) = 0
    cert_issuer_attr(A, , size 1024) = -2
    log 3: Unable to read issuer attribute "" from certificate
    cert_subject_attr(A, commonName, size 1024) = 0
    cert_free(A)
  )");
}

struct LabelCase {
  std::string label;
  std::string card;
  std::string pin;
};

class SplitLabel : public PresentableNameTest, public testing::WithParamInterface<LabelCase> {};

TEST_P(SplitLabel, ReturnsCardAndPin) {
  EXPECT_THAT(Generate("card_label,pin_label", GetParam().label, "A"),
              ElementsAre(GetParam().card, GetParam().pin));
  ExpectLogged("");
}

INSTANTIATE_TEST_SUITE_P(
    Labels, SplitLabel,
    testing::Values(
        LabelCase{"Alice (PIN1)", "Alice", "PIN1"},  //
        LabelCase{"Alice", "Alice", ""},
        // The closing parenthesis is missing, although the field has space for it.
        LabelCase{"Alice (PIN1", "Alice (PIN1", ""},
        // The closing parenthesis was cut off by the width of the field.
        LabelCase{"My very long card label (Signatu", "My very long card label", "Signatu"},
        LabelCase{"My very long card label (Signat)", "My very long card label", "Signat"},
        // One byte shorter, so it was not cut off.
        LabelCase{"My very long card label (Signat", "My very long card label (Signat", ""},
        LabelCase{"A label of all of thirty-two let", "A label of all of thirty-two let", ""},
        // The first opening parenthesis after a blank separates, the last character ends.
        LabelCase{"A (B) (C)", "A", "B) (C"},  //
        LabelCase{"A(B) (C)", "A(B)", "C"},    //
        LabelCase{"Alice(PIN1)", "Alice(PIN1)", ""},
        LabelCase{"Alice  (PIN1)", "Alice ", "PIN1"},  //
        LabelCase{" (PIN1)", "", "PIN1"},              //
        LabelCase{"Alice ()", "Alice", ""},            //
        LabelCase{"Alice (", "Alice (", ""},           //
        LabelCase{"Alice )", "Alice )", ""},           //
        LabelCase{"Alice (PIN1) x", "Alice (PIN1) x", ""},
        LabelCase{"thirty letters and its end is (", "thirty letters and its end is (", ""},
        LabelCase{"thirty-one letters, its end is (", "thirty-one letters, its end is", ""},
        LabelCase{std::string(32, ' '), " ", ""},  //
        LabelCase{std::string(32, '\0'), "", ""},  //
        LabelCase{std::string("A (B)\0 (C)", 10), "A", "B"},
        LabelCase{"Alice (PIN1)\t", "Alice (PIN1)\t", ""}));

struct MissingCase {
  const char* spec;
  std::string cert;
  std::string message;
  Pieces pieces = {"Alice", "", "A"};
};

// A piece that cannot be generated, between two that can.
class MissingPiece : public PresentableNameTest, public testing::WithParamInterface<MissingCase> {};

TEST_P(MissingPiece, IsEmptyAndReported) {
  const std::string spec = std::string("card_label,") + GetParam().spec + ",subject_commonName";
  EXPECT_EQ(Generate(spec, "Alice (PIN1)", GetParam().cert), GetParam().pieces);
  ExpectLogged("log 3: " + GetParam().message);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, MissingPiece,
    testing::Values(MissingCase{"card_name", "A", "Unknown card attribute \"name\""},
                    MissingCase{"card_Label", "A", "Unknown card attribute \"Label\""},
                    MissingCase{"card_labels", "A", "Unknown card attribute \"labels\""},
                    MissingCase{"card_", "A", "Unknown card attribute \"\""},
                    MissingCase{"pin_name", "A", "Unknown PIN attribute \"name\""},
                    MissingCase{"pin_labe", "A", "Unknown PIN attribute \"labe\""},
                    MissingCase{"subject_absent", "A",
                                "Unable to read subject attribute \"absent\" from certificate"},
                    MissingCase{
                        "issuer_organizationName", "A",
                        "Unable to read issuer attribute \"organizationName\" from certificate"},
                    MissingCase{"issuer_commonName", "A;fail.issuer_attr=-1",
                                "Unable to read issuer attribute \"commonName\" from certificate"},
                    MissingCase{"issuer_commonName", "A;fail.issuer_attr=1",
                                "Unable to read issuer attribute \"commonName\" from certificate"},
                    // Too long for the buffer.
                    MissingCase{"subject_long", "A;subject.long=" + std::string(1024, 'x'),
                                "Unable to read subject attribute \"long\" from certificate"}));

TEST_F(PresentableNameTest, AcceptsValueOf1023Bytes) {
  const std::string value(1023, 'x');
  EXPECT_THAT(Generate("subject_long", "Alice", "A;subject.long=" + value), ElementsAre(value));
  ExpectLogged("");
}

TEST_F(PresentableNameTest, TreatsEveryResultButZeroAsMissing) {
  for (const std::string answer : {"-2", "-1", "1", "2"}) {
    EXPECT_THAT(Generate("subject_x", "Alice", "A;subject.x=x;fail.subject_attr=" + answer),
                ElementsAre(""));
    ExpectLogged("log 3: Unable to read subject attribute \"x\" from certificate");
  }
}

// All attributes are read into the same buffer.
TEST_F(PresentableNameTest, DoesNotRepeatPreviousPieceForUnreadableOne) {
  EXPECT_THAT(Generate("subject_commonName,subject_x", "Alice", "A"), ElementsAre("A", ""));
  ExpectLogged("log 3: Unable to read subject attribute \"x\" from certificate");
  EXPECT_THAT(Generate("subject_commonName,issuer_x", "Alice", "A"), ElementsAre("A", ""));
  ExpectLogged("log 3: Unable to read issuer attribute \"x\" from certificate");
}

TEST_F(PresentableNameTest, IgnoresTextWrittenBeforeFailure) {
  EXPECT_THAT(Generate("subject_x,issuer_y", "Alice",
                       "A;fail.subject_attr=-1;partial.subject_attr=half;"
                       "fail.issuer_attr=-2;partial.issuer_attr=half"),
              ElementsAre("", ""));
  ExpectLogged(R"(
    log 3: Unable to read subject attribute "x" from certificate
    log 3: Unable to read issuer attribute "y" from certificate
  )");
}

TEST_F(PresentableNameTest, ContinuesAfterFailures) {
  EXPECT_THAT(Generate("card_x,pin_y,subject_z,issuer_w", "Alice", "A"),
              ElementsAre("", "", "", ""));
  ExpectLogged(R"(
    log 3: Unknown card attribute "x"
    log 3: Unknown PIN attribute "y"
    log 3: Unable to read subject attribute "z" from certificate
    log 3: Unable to read issuer attribute "w" from certificate
  )");
}

TEST_F(PresentableNameTest, SkipsUnknownCategory) {
  module.name_components.push_front({static_cast<PKCS11Module::name_category>(4), "label"});
  const Parsed cert("A");
  EXPECT_THAT(module.GenerateName(scripted::Token("Alice").Info(), cert), ElementsAre("A"));
  EXPECT_TRACE("");
}

TEST_F(PresentableNameTest, IsEmptyWithoutComponents) {
  module.name_components.clear();
  const Parsed cert("A");
  EXPECT_THAT(module.GenerateName(scripted::Token("Alice").Info(), cert), testing::IsEmpty());
  EXPECT_TRACE("");
}

}  // namespace
