// The framework's exceptions.
//   throw Mel::NotSupportedException();          // what() == "Not supported"
//   throw Mel::ErrnoException(errno, "open foo");
#pragma once

#include <stdexcept>
#include <string>

namespace Mel {

// Base of every exception the runtime and library throw.
class Exception : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// An operation the class does not offer.
class NotImplementedException : public Exception {
public:
    NotImplementedException() : Exception("Not implemented") {}
    explicit NotImplementedException(const std::string& what) : Exception(what) {}
};

class NotSupportedException : public Exception {
public:
    NotSupportedException() : Exception("Not supported") {}
    explicit NotSupportedException(const std::string& what) : Exception(what) {}
};

// A value outside the range of a dense enum or bounded type (for example a flags byte above 1).
class RangeException : public Exception {
public:
    using Exception::Exception;
};

// Text that does not parse as the value it should describe.
class ParseException : public Exception {
public:
    using Exception::Exception;
};

// A failed system call: what() is "<context>: <strerror(err)>".
class ErrnoException : public Exception {
public:
    ErrnoException(int err, const std::string& context);
    int err() const noexcept { return err_; }

private:
    int err_;
};

} // namespace Mel
