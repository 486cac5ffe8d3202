// GenerateName: the pieces of a certificate's presentable name.
#include "pkcs11/module_test.h"

namespace {

using Pieces = std::list<std::string>;
using testing::ElementsAre;

class PresentableName : public ModuleTest {
 protected:
  Pieces Generate(const std::string& spec, const std::string& label, const std::string& cert) {
    EXPECT_TRUE(module.SetNameComponents(spec.c_str()));
    const Parsed parsed(cert);
    return module.GenerateName(scripted::Token(label).Info(), parsed);
  }
};

// The trace of Generate() ends with its certificate being freed.
std::string Said(const std::string& lines) {
  return lines + "\ncert_free(A)";
}

TEST_F(PresentableName, IsTheCommonNameByDefault) {
  const Parsed cert("A");
  EXPECT_THAT(module.GenerateName(scripted::Token("Alice").Info(), cert), ElementsAre("A"));
  EXPECT_TRACE("");
}

TEST_F(PresentableName, HasAPieceForEachComponentInOrder) {
  EXPECT_THAT(Generate("card_label,pin_label,subject_commonName", "Alice (PIN1)", "A"),
              ElementsAre("Alice", "PIN1", "A"));
  EXPECT_THAT(Generate("issuer_commonName,card_label,issuer_commonName", "Alice (PIN1)", "A"),
              ElementsAre("Example CA", "Alice", "Example CA"));
  EXPECT_TRACE("cert_free(A)");
}

TEST_F(PresentableName, ValuesComeAsTheyAre) {
  EXPECT_THAT(Generate("subject_x,issuer_y", "Alice", "A;subject.x= blanks ;issuer.y="),
              ElementsAre(" blanks ", ""));
  EXPECT_TRACE(Said(""));
}

TEST_F(PresentableName, AttributesAreAskedForWithRoomFor1024Bytes) {
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

class SplitLabel : public PresentableName, public testing::WithParamInterface<LabelCase> {};

TEST_P(SplitLabel, GivesTheCardAndThePin) {
  EXPECT_THAT(Generate("card_label,pin_label", GetParam().label, "A"),
              ElementsAre(GetParam().card, GetParam().pin));
  EXPECT_TRACE(Said(""));
}

INSTANTIATE_TEST_SUITE_P(
    Labels, SplitLabel,
    testing::Values(
        LabelCase{"Alice (PIN1)", "Alice", "PIN1"},  //
        LabelCase{"Alice", "Alice", ""},
        // No closing parenthesis, and shorter than the field.
        LabelCase{"Alice (PIN1", "Alice (PIN1", ""},
        // The field's width has cut the closing parenthesis off.
        LabelCase{"My very long card label (Signatu", "My very long card label", "Signatu"},
        LabelCase{"My very long card label (Signat)", "My very long card label", "Signat"},
        // One byte less, and it is no longer taken for cut off.
        LabelCase{"My very long card label (Signat", "My very long card label (Signat", ""},
        LabelCase{"A label of all of thirty-two let", "A label of all of thirty-two let", ""},
        // The first opening parenthesis after a blank splits, the last character ends.
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

// A piece that cannot be produced, between two that can.
class MissingPiece : public PresentableName, public testing::WithParamInterface<MissingCase> {};

TEST_P(MissingPiece, IsEmptyAndReported) {
  const std::string spec = std::string("card_label,") + GetParam().spec + ",subject_commonName";
  EXPECT_EQ(Generate(spec, "Alice (PIN1)", GetParam().cert), GetParam().pieces);
  EXPECT_TRACE(Said("log 3: " + GetParam().message));
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

TEST_F(PresentableName, ValuesOfUpTo1023BytesAreTaken) {
  const std::string value(1023, 'x');
  EXPECT_THAT(Generate("subject_long", "Alice", "A;subject.long=" + value), ElementsAre(value));
  EXPECT_TRACE(Said(""));
}

TEST_F(PresentableName, EveryAnswerButZeroMeansThatThereIsNoSubjectAttribute) {
  for (const std::string answer : {"-2", "-1", "1", "2"}) {
    EXPECT_THAT(Generate("subject_x", "Alice", "A;subject.x=x;fail.subject_attr=" + answer),
                ElementsAre(""));
    EXPECT_TRACE(Said("log 3: Unable to read subject attribute \"x\" from certificate"));
  }
}

// All attributes are written into one buffer.
TEST_F(PresentableName, APieceThatCannotBeReadIsNotTheOneBefore) {
  EXPECT_THAT(Generate("subject_commonName,subject_x", "Alice", "A"), ElementsAre("A", ""));
  EXPECT_TRACE(Said("log 3: Unable to read subject attribute \"x\" from certificate"));
  EXPECT_THAT(Generate("subject_commonName,issuer_x", "Alice", "A"), ElementsAre("A", ""));
  EXPECT_TRACE(Said("log 3: Unable to read issuer attribute \"x\" from certificate"));
}

TEST_F(PresentableName, WhatWasWrittenBeforeAFailureIsNoPiece) {
  EXPECT_THAT(Generate("subject_x,issuer_y", "Alice",
                       "A;fail.subject_attr=-1;partial.subject_attr=half;"
                       "fail.issuer_attr=-2;partial.issuer_attr=half"),
              ElementsAre("", ""));
  EXPECT_TRACE(Said(R"(
    log 3: Unable to read subject attribute "x" from certificate
    log 3: Unable to read issuer attribute "y" from certificate
  )"));
}

TEST_F(PresentableName, EveryComponentIsVisitedAfterFailures) {
  EXPECT_THAT(Generate("card_x,pin_y,subject_z,issuer_w", "Alice", "A"),
              ElementsAre("", "", "", ""));
  EXPECT_TRACE(Said(R"(
    log 3: Unknown card attribute "x"
    log 3: Unknown PIN attribute "y"
    log 3: Unable to read subject attribute "z" from certificate
    log 3: Unable to read issuer attribute "w" from certificate
  )"));
}

TEST_F(PresentableName, AnUnknownCategoryHasNoPiece) {
  module.name_components.push_front({static_cast<PKCS11Module::name_category>(4), "label"});
  const Parsed cert("A");
  EXPECT_THAT(module.GenerateName(scripted::Token("Alice").Info(), cert), ElementsAre("A"));
  EXPECT_TRACE("");
}

TEST_F(PresentableName, WithoutComponentsIsEmpty) {
  module.name_components.clear();
  const Parsed cert("A");
  EXPECT_THAT(module.GenerateName(scripted::Token("Alice").Info(), cert), testing::IsEmpty());
  EXPECT_TRACE("");
}

}  // namespace
