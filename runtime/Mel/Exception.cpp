#include "Mel/Exception.h"

#include <cstring>

namespace Mel {

ErrnoException::ErrnoException(int err, const std::string& context)
    : Exception(context + ": " + std::strerror(err)), err_(err) {}

} // namespace Mel
