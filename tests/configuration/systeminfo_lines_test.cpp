// The lines of the files that describe the device.

#include <rkutils/configuration/systeminfo/lines.h>

#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "support/case_name.h"

namespace {

using rkutils::sysinfo::find_oem_value;
using rkutils::sysinfo::parse_variable;
using rkutils::sysinfo::Variable;

// The text with its NUL at the end of an allocation, where the sanitizer sees a read beyond.
std::vector<char> exact_copy(const std::string& text) {
  return {text.c_str(), text.c_str() + text.size() + 1};
}

struct Line {
  const char* name;
  std::string line;
  std::string variable;  // as "<name><value>", "" for none
};

class ParseVariable : public testing::TestWithParam<Line> {};

TEST_P(ParseVariable, GivesNameAndValue) {
  std::vector<char> line = exact_copy(GetParam().line);
  const std::optional<Variable> variable = parse_variable(line.data());
  const std::string found =
      variable ? std::string("<") + variable->name + "><" + variable->value + ">" : "";
  EXPECT_EQ(found, GetParam().variable);
}

INSTANTIATE_TEST_SUITE_P(
    Plain, ParseVariable,
    testing::Values(Line{"KeepsTheNewline", "NAME=value\n", "<NAME><value\n>"},
                    Line{"TheLastLine", "NAME=value", "<NAME><value>"},
                    Line{"SpacesBefore", "  NAME=value\n", "<NAME><value\n>"},
                    Line{"SpaceBeforeTheEquals", "NAME =value\n", "<NAME ><value\n>"},
                    Line{"SpaceAfterTheEquals", "NAME= value\n", "<NAME>< value\n>"},
                    Line{"SpaceAtTheEnd", "NAME=value \n", "<NAME><value \n>"},
                    Line{"OnlyASpace", "NAME= \n", "<NAME>< \n>"},
                    Line{"OnlyTheNewline", "NAME=\n", "<NAME><\n>"},
                    Line{"MoreEquals", "NAME=a=b\n", "<NAME><a=b\n>"},
                    Line{"OnlyAnEquals", "NAME==", "<NAME><=>"},
                    Line{"NoName", "=value\n", "<><value\n>"},
                    Line{"OnlySpacesForAName", "  =value\n", "<><value\n>"},
                    Line{"TabsBelongToTheName", "\tNAME=value\n", "<\tNAME><value\n>"},
                    Line{"CommentSignInTheName", "NA#ME=value\n", "<NA#ME><value\n>"},
                    Line{"CommentSignInTheValue", "NAME=a #b\n", "<NAME><a #b\n>"},
                    Line{"CommentSignBehindATab", "\t#NAME=value\n", "<\t#NAME><value\n>"},
                    Line{"CarriageReturn", "NAME=value\r\n", "<NAME><value\r\n>"},
                    Line{"HighBytes", "\xc4=\xff\n", "<\xc4><\xff\n>"}),
    support::CaseName());

INSTANTIATE_TEST_SUITE_P(
    Quoted, ParseVariable,
    testing::Values(Line{"LosesQuotesAndNewline", "NAME=\"a b\"\n", "<NAME><a b>"},
                    Line{"Empty", "NAME=\"\"\n", "<NAME><>"},
                    Line{"EmptyAtTheEnd", "NAME=\"\"", "<NAME><>"},
                    Line{"LoneQuote", "NAME=\"\n", "<NAME><>"},
                    Line{"LoneQuoteAtTheEnd", "NAME=\"", "<NAME><>"},
                    Line{"NotClosed", "NAME=\"a b\n", "<NAME><a b>"},
                    Line{"NotClosedAtTheEnd", "NAME=\"a b", "<NAME><a b>"},
                    Line{"MoreBehind", "NAME=\"a\" b \"c\"\n", "<NAME><a>"},
                    Line{"NoEscaping", "NAME=\"a\\\"b\"\n", "<NAME><a\\>"},
                    Line{"SpacesInside", "NAME=\"  a  \"\n", "<NAME><  a  >"},
                    Line{"NotAtTheBeginning", "NAME=a\"b\"\n", "<NAME><a\"b\"\n>"},
                    Line{"BehindASpace", "NAME= \"a\"\n", "<NAME>< \"a\"\n>"},
                    Line{"InTheName", "\"NAME\"=a\n", "<\"NAME\"><a\n>"}),
    support::CaseName());

INSTANTIATE_TEST_SUITE_P(
    Skipped, ParseVariable,
    testing::Values(Line{"Blank", "\n", ""}, Line{"Nothing", "", ""}, Line{"Spaces", "   ", ""},
                    Line{"SpacesAndNewline", "   \n", ""}, Line{"NoEquals", "NAME\n", ""},
                    Line{"EndsWithTheEquals", "NAME=", ""}, Line{"OnlyAnEquals", "=", ""},
                    Line{"Comment", "#NAME=value\n", ""},
                    Line{"IndentedComment", "  # NAME=value\n", ""}),
    support::CaseName());

struct Lookup {
  const char* name;
  std::string line;
  std::string key;
  const char* value;  // nullptr for none
};

class FindOemValue : public testing::TestWithParam<Lookup> {};

TEST_P(FindOemValue, GivesTheValueOfTheKey) {
  const std::vector<char> line = exact_copy(GetParam().line);
  const std::vector<char> key = exact_copy(GetParam().key);
  EXPECT_STREQ(find_oem_value(line.data(), key.data()), GetParam().value);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, FindOemValue,
    testing::Values(
        Lookup{"Plain", "Vendor=abc", "Vendor", "abc"},
        Lookup{"SkipsSpaces", "Vendor=   abc def  ", "Vendor", "abc def  "},
        Lookup{"KeepsATab", "Vendor=\tabc", "Vendor", "\tabc"},
        Lookup{"Empty", "Vendor=", "Vendor", ""}, Lookup{"OnlySpaces", "Vendor=  ", "Vendor", ""},
        Lookup{"KeepsQuotes", "Vendor=\"abc\"", "Vendor", "\"abc\""},
        Lookup{"MoreEquals", "Vendor==a=b", "Vendor", "=a=b"},
        Lookup{"EqualsInTheKey", "a=b=c", "a=b", "c"}, Lookup{"EmptyKey", "=abc", "", "abc"},
        Lookup{"EmptyKeyElsewhere", "Vendor=abc", "", nullptr},
        Lookup{"LongerName", "ProductType=abc", "Product", nullptr},
        Lookup{"ShorterName", "Product=abc", "ProductType", nullptr},
        Lookup{"OtherCase", "vendor=abc", "Vendor", nullptr},
        Lookup{"SpaceBefore", " Vendor=abc", "Vendor", nullptr},
        Lookup{"SpaceBehind", "Vendor =abc", "Vendor", nullptr},
        Lookup{"SpaceInTheKey", "Vendor =abc", "Vendor ", "abc"},
        Lookup{"NoEquals", "Vendor", "Vendor", nullptr},
        Lookup{"EqualsInTheKeyAlone", "Vendor=", "Vendor=", nullptr},
        Lookup{"EmptyLine", "", "Vendor", nullptr}, Lookup{"BothEmpty", "", "", nullptr}),
    support::CaseName());

}  // namespace
