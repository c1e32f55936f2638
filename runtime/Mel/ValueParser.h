// Tokenizer for the Value('...') text form, used by the generic parser and by melParse hooks.
//   Mel::ValueParser p("[1, 2]");
//   p.listBegin(); for (bool first = true; p.listNext(first); first = false) p.parseUnsigned(9);
//
// Blanks between tokens are skipped everywhere. Every error is a Mel::ParseException whose text
// starts with "at offset N: " (N counts bytes from the start of the text, from 0) and says what
// was expected.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>

namespace Mel {

class ValueParser {
public:
    // The parser refers to the text, which must outlive it (hence no temporary strings).
    explicit ValueParser(std::string_view text) noexcept : text_(text) {}
    explicit ValueParser(const char* text) noexcept : text_(text) {}
    explicit ValueParser(std::string&&) = delete;

    std::string_view text() const noexcept { return text_; }
    size_t offset() const noexcept { return pos_; }

    void skipBlanks() noexcept;
    // The next character after blanks, '\0' at the end of the text.
    char peek() noexcept;
    bool atEnd() noexcept { return peek() == '\0'; }
    // Consumes `token` if the text continues with it. A token ending in a letter or digit (None,
    // True) must not run on into further word characters.
    bool consume(std::string_view token) noexcept;
    void expect(std::string_view token);
    void expectEnd();

    // True or False.
    bool parseBool();
    // Decimal, no sign.
    uint64_t parseUnsigned(uint64_t max);
    // Decimal with optional '-'.
    int64_t parseSigned(int64_t min, int64_t max);
    // A single- or double-quoted string with backslash escapes (\\ \' \" \n \r \t \0 \xNN).
    std::string parseQuoted();
    // A run of letters, digits and "_.:+-" (a bare word or number), not empty.
    std::string_view parseWord();
    // Skips one value of any shape this grammar has: quoted string, word, number, [list] or
    // Value(...).
    void skipValue();

    // Value('typeName', ** {  -- the opening of a described value; the type name must match.
    void valueBegin(std::string_view typeName);
    // Reads the next "'name':" of the field list and returns true, or reads the closing "})" and
    // returns false. `first` is true on the first call for a value; nameOffset, if given, receives
    // the offset of the name.
    bool fieldNext(bool first, std::string& name, size_t* nameOffset = nullptr);
    void listBegin() { expect("["); }
    // True when another element follows (consuming the ',' between elements); false after the ']'.
    bool listNext(bool first);

    // Throws "at offset <offset()>: expected <what>, found <the text here>".
    [[noreturn]] void failExpected(std::string_view what);
    // Throws "at offset <offset>: <message>".
    [[noreturn]] void failAt(size_t offset, std::string_view message) const;

private:
    std::string foundHere() const;
    // Reads a run of decimal digits; false (position unchanged) if there is none, it overflows, or
    // a word character follows it.
    bool scanDigits(uint64_t& v) noexcept;

    std::string_view text_;
    size_t pos_ = 0;
};

// Writes text single-quoted, escaping backslash, quote and control bytes; parseQuoted reads it
// back.
void formatQuoted(std::ostream& os, std::string_view text);

} // namespace Mel
