#include "Mel/ValueParser.h"

#include "Mel/Exception.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <sstream>
#include <string>

namespace {

// The message of the ParseException that f throws ("" if none).
std::string parseError(const std::function<void()>& f) {
    try {
        f();
    } catch (const Mel::ParseException& e) {
        return e.what();
    }
    return "";
}

TEST(ValueParser, IntegersAtTheirLimits) {
    EXPECT_EQ(Mel::ValueParser("18446744073709551615").parseUnsigned(UINT64_MAX), UINT64_MAX);
    EXPECT_EQ(Mel::ValueParser("  0").parseUnsigned(0), 0u);
    EXPECT_EQ(Mel::ValueParser("-9223372036854775808").parseSigned(INT64_MIN, INT64_MAX),
              INT64_MIN);
    EXPECT_EQ(Mel::ValueParser("9223372036854775807").parseSigned(INT64_MIN, INT64_MAX), INT64_MAX);
    EXPECT_EQ(Mel::ValueParser("-0").parseSigned(0, 5), 0);

    EXPECT_EQ(
        parseError([] { Mel::ValueParser("18446744073709551616").parseUnsigned(UINT64_MAX); }),
        "at offset 0: expected an integer from 0 to 18446744073709551615, found "
        "\"1844674407370955...\"");
    EXPECT_EQ(parseError([] { Mel::ValueParser(" 256").parseUnsigned(255); }),
              "at offset 1: expected an integer from 0 to 255, found \"256\"");
    EXPECT_EQ(parseError([] { Mel::ValueParser("-129").parseSigned(-128, 127); }),
              "at offset 0: expected an integer from -128 to 127, found \"-129\"");
    EXPECT_EQ(
        parseError([] { Mel::ValueParser("-9223372036854775809").parseSigned(INT64_MIN, 0); }),
        "at offset 0: expected an integer from -9223372036854775808 to 0, found "
        "\"-922337203685477...\"");
    // A number must not run on into a word, and unsigned values take no sign.
    EXPECT_NE(parseError([] { Mel::ValueParser("12abc").parseUnsigned(100); }), "");
    EXPECT_NE(parseError([] { Mel::ValueParser("-1").parseUnsigned(100); }), "");
    EXPECT_NE(parseError([] { Mel::ValueParser("-").parseSigned(-5, 5); }), "");
    EXPECT_EQ(parseError([] { Mel::ValueParser("").parseUnsigned(1); }),
              "at offset 0: expected an integer from 0 to 1, found end of text");
}

TEST(ValueParser, KeywordsStopAtWordBoundaries) {
    Mel::ValueParser p("Nonesuch None,True");
    EXPECT_FALSE(p.consume("None"));
    EXPECT_EQ(p.parseWord(), "Nonesuch");
    EXPECT_TRUE(p.consume("None"));
    p.expect(",");
    EXPECT_TRUE(p.parseBool());
    p.expectEnd();
    EXPECT_EQ(parseError([] { Mel::ValueParser("Truly").parseBool(); }),
              "at offset 0: expected True or False, found \"Truly\"");
}

TEST(ValueParser, QuotedStringsRoundTripEveryByte) {
    std::string all;
    for (int c = 0; c < 256; ++c)
        all.push_back(char(c));
    for (const std::string& s : {std::string(), std::string("it's a \\ \"test\""), all}) {
        std::ostringstream os;
        Mel::formatQuoted(os, s);
        std::string text = os.str();
        Mel::ValueParser p(text);
        EXPECT_EQ(p.parseQuoted(), s);
        p.expectEnd();
    }
    std::ostringstream os;
    Mel::formatQuoted(os, std::string("a'b\\c\n\x01", 7));
    EXPECT_EQ(os.str(), "'a\\'b\\\\c\\n\\x01'");
    EXPECT_EQ(Mel::ValueParser(R"("dq 'x' \x41\t")").parseQuoted(), "dq 'x' A\t");

    EXPECT_EQ(parseError([] { Mel::ValueParser(" 'abc").parseQuoted(); }),
              "at offset 1: unterminated string");
    EXPECT_EQ(parseError([] { Mel::ValueParser(R"('ab\q')").parseQuoted(); }),
              "at offset 3: unknown escape \\q");
    EXPECT_EQ(parseError([] { Mel::ValueParser(R"('\x4')").parseQuoted(); }),
              "at offset 1: expected two hex digits after \\x");
    EXPECT_EQ(parseError([] { Mel::ValueParser("abc").parseQuoted(); }),
              "at offset 0: expected a quoted string, found \"abc\"");
}

TEST(ValueParser, FieldListsAndSkipping) {
    const char* text = "Value('A::B', ** {'x': [1, 'two', Value('C', ** {})], 'y': -3})";
    Mel::ValueParser p(text);
    p.valueBegin("A::B");
    std::string name;
    size_t at = 0;
    ASSERT_TRUE(p.fieldNext(true, name, &at));
    EXPECT_EQ(name, "x");
    EXPECT_EQ(at, 18u);
    p.skipValue();
    ASSERT_TRUE(p.fieldNext(false, name));
    EXPECT_EQ(name, "y");
    EXPECT_EQ(p.parseSigned(-10, 10), -3);
    EXPECT_FALSE(p.fieldNext(false, name));
    p.expectEnd();

    Mel::ValueParser whole(text);
    whole.skipValue();
    whole.expectEnd();
    // Hooks' own syntax skips as well, brackets balanced and quoted brackets ignored.
    Mel::ValueParser custom("Celsius (-15, ')'), next");
    custom.skipValue();
    custom.expect(",");
    EXPECT_EQ(custom.parseWord(), "next");
    EXPECT_EQ(parseError([] { Mel::ValueParser("[1, (2]").skipValue(); }),
              "at offset 6: expected ')', found \"]\"");
    EXPECT_EQ(parseError([] { Mel::ValueParser("Value('A', ** {").skipValue(); }),
              "at offset 15: expected '}', found end of text");
    EXPECT_EQ(parseError([] { Mel::ValueParser(" , 1").skipValue(); }),
              "at offset 1: expected a value, found \", 1\"");

    EXPECT_EQ(parseError([] { Mel::ValueParser("Value('A', * {})").valueBegin("A"); }),
              "at offset 11: expected '**', found \"* {})\"");
    EXPECT_EQ(parseError([] {
                  Mel::ValueParser q("'x': 1 'y'");
                  std::string n;
                  q.fieldNext(true, n);
                  q.parseUnsigned(9);
                  q.fieldNext(false, n);
              }),
              "at offset 7: expected ',' or '}', found \"'y'\"");
    EXPECT_EQ(parseError([] {
                  Mel::ValueParser q("[1 2]");
                  q.listBegin();
                  q.listNext(true);
                  q.parseUnsigned(9);
                  q.listNext(false);
              }),
              "at offset 3: expected ',' or ']', found \"2]\"");
}

} // namespace
