#include "Mel/ValueParser.h"

#include "Mel/Exception.h"

#include <ostream>

namespace Mel {

namespace {

bool isBlank(char c) noexcept {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

bool isWordChar(char c) noexcept {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           c == '.' || c == ':' || c == '+' || c == '-';
}

bool isAlnum(char c) noexcept {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

int hexDigit(char c) noexcept {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

} // namespace

void ValueParser::skipBlanks() noexcept {
    while (pos_ < text_.size() && isBlank(text_[pos_]))
        ++pos_;
}

char ValueParser::peek() noexcept {
    skipBlanks();
    return pos_ < text_.size() ? text_[pos_] : '\0';
}

bool ValueParser::consume(std::string_view token) noexcept {
    skipBlanks();
    if (text_.substr(pos_, token.size()) != token) return false;
    size_t end = pos_ + token.size();
    if (!token.empty() && isAlnum(token.back()) && end < text_.size() && isAlnum(text_[end])) {
        return false;
    }
    pos_ = end;
    return true;
}

void ValueParser::expect(std::string_view token) {
    if (!consume(token)) failExpected("'" + std::string(token) + "'");
}

void ValueParser::expectEnd() {
    if (!atEnd()) failExpected("end of text");
}

bool ValueParser::parseBool() {
    if (consume("True")) return true;
    if (consume("False")) return false;
    failExpected("True or False");
}

bool ValueParser::scanDigits(uint64_t& v) noexcept {
    size_t start = pos_;
    v = 0;
    bool overflow = false;
    while (pos_ < text_.size() && text_[pos_] >= '0' && text_[pos_] <= '9') {
        unsigned d = unsigned(text_[pos_] - '0');
        if (v > (UINT64_MAX - d) / 10) overflow = true;
        v = v * 10 + d;
        ++pos_;
    }
    bool runsOn = pos_ < text_.size() && isWordChar(text_[pos_]);
    if (pos_ == start || overflow || runsOn) {
        pos_ = start;
        return false;
    }
    return true;
}

uint64_t ValueParser::parseUnsigned(uint64_t max) {
    skipBlanks();
    size_t start = pos_;
    uint64_t v = 0;
    if (!scanDigits(v) || v > max) {
        pos_ = start;
        failExpected("an integer from 0 to " + std::to_string(max));
    }
    return v;
}

int64_t ValueParser::parseSigned(int64_t min, int64_t max) {
    skipBlanks();
    size_t start = pos_;
    bool negative = pos_ < text_.size() && text_[pos_] == '-';
    if (negative) ++pos_;
    // A negative magnitude may reach 2^63, one more than INT64_MAX.
    uint64_t limit = negative ? uint64_t(INT64_MAX) + 1 : uint64_t(INT64_MAX);
    uint64_t v = 0;
    bool ok = scanDigits(v) && v <= limit;
    int64_t r = negative ? int64_t(0 - v) : int64_t(v);
    if (!ok || r < min || r > max) {
        pos_ = start;
        failExpected("an integer from " + std::to_string(min) + " to " + std::to_string(max));
    }
    return r;
}

std::string ValueParser::parseQuoted() {
    char quote = peek();
    if (quote != '\'' && quote != '"') failExpected("a quoted string");
    size_t start = pos_++;
    std::string out;
    while (true) {
        if (pos_ >= text_.size()) failAt(start, "unterminated string");
        char c = text_[pos_++];
        if (c == quote) return out;
        if (c != '\\') {
            out.push_back(c);
            continue;
        }
        if (pos_ >= text_.size()) failAt(start, "unterminated string");
        size_t escAt = pos_ - 1;
        char e = text_[pos_++];
        switch (e) {
        case '\\':
        case '\'':
        case '"':
            out.push_back(e);
            break;
        case 'n':
            out.push_back('\n');
            break;
        case 'r':
            out.push_back('\r');
            break;
        case 't':
            out.push_back('\t');
            break;
        case '0':
            out.push_back('\0');
            break;
        case 'x': {
            int hi = pos_ < text_.size() ? hexDigit(text_[pos_]) : -1;
            int lo = pos_ + 1 < text_.size() ? hexDigit(text_[pos_ + 1]) : -1;
            if (hi < 0 || lo < 0) failAt(escAt, "expected two hex digits after \\x");
            out.push_back(char(hi * 16 + lo));
            pos_ += 2;
            break;
        }
        default:
            failAt(escAt, std::string("unknown escape \\") + e);
        }
    }
}

std::string_view ValueParser::parseWord() {
    skipBlanks();
    size_t start = pos_;
    while (pos_ < text_.size() && isWordChar(text_[pos_]))
        ++pos_;
    if (pos_ == start) failExpected("a word or number");
    return text_.substr(start, pos_ - start);
}

void ValueParser::skipValue() {
    skipBlanks();
    size_t start = pos_;
    std::string closers; // the brackets still open, innermost last
    while (pos_ < text_.size()) {
        char c = text_[pos_];
        if (c == '\'' || c == '"') {
            parseQuoted();
        } else if (c == '(' || c == '[' || c == '{') {
            closers.push_back(c == '(' ? ')' : c == '[' ? ']' : '}');
            ++pos_;
        } else if (c == ')' || c == ']' || c == '}') {
            if (closers.empty()) break;
            if (c != closers.back()) failExpected("'" + std::string(1, closers.back()) + "'");
            closers.pop_back();
            ++pos_;
        } else if (closers.empty() && c == ',') {
            break;
        } else if (closers.empty() && isBlank(c)) {
            // Outside brackets a blank ends the value, unless an argument list follows: "Value (".
            size_t here = pos_;
            if (peek() != '(') {
                pos_ = here;
                break;
            }
        } else {
            ++pos_;
        }
    }
    if (!closers.empty()) failExpected("'" + std::string(1, closers.back()) + "'");
    if (pos_ == start) failExpected("a value");
}

void ValueParser::valueBegin(std::string_view typeName) {
    expect("Value");
    expect("(");
    skipBlanks();
    size_t at = pos_;
    std::string found = parseQuoted();
    if (found != typeName) {
        failAt(at, "expected type '" + std::string(typeName) + "', found '" + found + "'");
    }
    expect(",");
    expect("**");
    expect("{");
}

bool ValueParser::fieldNext(bool first, std::string& name, size_t* nameOffset) {
    if (consume("}")) {
        expect(")");
        return false;
    }
    if (!first && !consume(",")) failExpected("',' or '}'");
    if (peek() != '\'' && peek() != '"')
        failExpected(first ? "a field name or '}'" : "a field name");
    if (nameOffset) *nameOffset = pos_;
    name = parseQuoted();
    expect(":");
    return true;
}

bool ValueParser::listNext(bool first) {
    if (consume("]")) return false;
    if (!first && !consume(",")) failExpected("',' or ']'");
    return true;
}

void ValueParser::failExpected(std::string_view what) {
    skipBlanks();
    failAt(pos_, "expected " + std::string(what) + ", found " + foundHere());
}

void ValueParser::failAt(size_t offset, std::string_view message) const {
    throw ParseException("at offset " + std::to_string(offset) + ": " + std::string(message));
}

std::string ValueParser::foundHere() const {
    if (pos_ >= text_.size()) return "end of text";
    constexpr size_t shown = 16;
    std::string_view rest = text_.substr(pos_, shown);
    std::string out = "\"" + std::string(rest);
    if (text_.size() - pos_ > shown) out += "...";
    return out + "\"";
}

void formatQuoted(std::ostream& os, std::string_view text) {
    static const char hex[] = "0123456789abcdef";
    os << '\'';
    for (char c : text) {
        auto u = static_cast<unsigned char>(c);
        switch (c) {
        case '\\':
            os << "\\\\";
            break;
        case '\'':
            os << "\\'";
            break;
        case '\n':
            os << "\\n";
            break;
        case '\r':
            os << "\\r";
            break;
        case '\t':
            os << "\\t";
            break;
        default:
            if (u < 0x20 || u == 0x7f) {
                os << "\\x" << hex[u >> 4] << hex[u & 0xf];
            } else {
                os << c;
            }
        }
    }
    os << '\'';
}

} // namespace Mel
