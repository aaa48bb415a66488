// Problems found in a file, as data. Every reader of the platform (DXF
// drawings, initialisation files; the DGN codec keeps a record of the same
// shape in its own headers) reports what it met as a list of these: a code
// from the reader's own enumeration, how bad it is, where it was, and a
// message for people. Callers and tests decide by the code; the message is
// only ever shown.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Kora {

enum class Severity : unsigned char {
    kWarning,   // read anyway; what was read may differ from what was meant
    kRepaired,  // something was wrong and was put right (the message says how)
    kError,     // the file, or the part named, could not be read
};

// Where a problem is: a line of a text file, or a byte offset and the
// number of an element (counted from 0) in a binary one. What a reader
// cannot tell stays kNone.
struct Place {
    static constexpr std::uint64_t kNone = ~std::uint64_t{0};
    std::uint64_t line = kNone;
    std::uint64_t offset = kNone;
    std::uint64_t element = kNone;
};

template <class Code>
struct Diagnostic {
    Code code{};
    Severity severity = Severity::kError;
    Place place;
    std::string message;
};

template <class Code>
using Diagnostics = std::vector<Diagnostic<Code>>;

}  // namespace Kora
