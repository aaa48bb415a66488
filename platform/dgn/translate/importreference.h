// Reference file attachments of V7 designs (type 5 elements on level 9).
#pragma once

#include <array>
#include <optional>
#include <string>

#include "kora/dgn/v7/elements.h"
#include "kora/dgn/v7/reader.h"

namespace Kora::Dgn {

struct ReferenceAttachment {
    std::string fileSpec;    // as stored: a path, often one of another machine
    std::string logicalName;
    V7::DoublePoint referenceOrigin; // in the reference's UOR
    V7::DoublePoint masterOrigin;    // in the master file's UOR
    std::array<double, 9> matrix{};  // rows; reference axes to master axes
    double conversion = 1.0;         // reference UOR to master UOR
};

// The attachment an element holds; nothing when it is too short for one.
std::optional<ReferenceAttachment> readReferenceAttachment(const V7::Element& element);

} // namespace Kora::Dgn
