// The V8 sample and its bytes, for the V8 reader's tests.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>

#include "kora/dgn/v8/reader.h"

namespace Kora::Test {

inline std::filesystem::path v8Sample()
{
    return std::filesystem::path(KORA_TEST_DATA_DIR) / "dgn" / "v8" / "test_dgnv8.dgn";
}

inline std::vector<std::byte> v8SampleBytes()
{
    auto bytes = Kora::Dgn::V8::readFileBytes(v8Sample());
    if (!bytes) ADD_FAILURE() << bytes.error().message;
    return bytes ? *bytes : std::vector<std::byte>{};
}

} // namespace Kora::Test
