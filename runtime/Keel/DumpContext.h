// Where state dumps go: a shared context wrapping an output stream.
//   auto ctx = Keel::DumpContext::toString();  stats.dumpState(ctx, 2);  ctx->text();
//   Mel::Ptr<Keel::DumpContext const> out(new Keel::DumpContext(std::cout));
#pragma once

#include "Mel/Object.h"
#include "Mel/Ptr.h"

#include <cstdarg>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>

namespace Keel {

// Writing is const so that dumpers can take a Ptr to a const context, as they receive it.
class DumpContext : public Mel::Object {
public:
    explicit DumpContext(std::ostream& out) noexcept : out_(&out) {}
    // A context that collects the text; read it back with text().
    static Mel::Ptr<DumpContext> toString() { return Mel::Ptr<DumpContext>(new DumpContext()); }

    void write(std::string_view s) const { *out_ << s; }
    // printf-style, as dump lines are specified ("%*cclusterIds #%u\n").
    void printf(const char* fmt, ...) const __attribute__((format(printf, 2, 3)));
    std::ostream& stream() const noexcept { return *out_; }
    std::string text() const { return own_.str(); }

private:
    DumpContext() noexcept : out_(&own_) {}
    mutable std::ostringstream own_;
    std::ostream* out_;
};

} // namespace Keel
