// Growable character buffers that string forms are appended to.
//   OrvFmt::DynamicBuffer buf;  buf.append("{");  buf.appendUnsigned(65001);
//   std::string_view text = buf.view();   // "{65001"
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace OrvFmt {

// What a printer needs of a buffer: append text and numbers. Implementations decide where the
// characters go (an owned string, a fixed array, a stream).
class DynamicBufferInterface {
public:
    virtual ~DynamicBufferInterface() = default;

    virtual void append(std::string_view text) = 0;
    void append(char c) { append(std::string_view(&c, 1)); }
    // Decimal, no separators.
    void appendUnsigned(uint64_t v);
};

// The plain implementation: an owned std::string.
class DynamicBuffer : public DynamicBufferInterface {
public:
    using DynamicBufferInterface::append;
    void append(std::string_view text) override { text_.append(text); }

    std::string_view view() const noexcept { return text_; }
    const std::string& str() const noexcept { return text_; }
    size_t size() const noexcept { return text_.size(); }
    bool empty() const noexcept { return text_.empty(); }
    void clear() noexcept { text_.clear(); }

private:
    std::string text_;
};

} // namespace OrvFmt
