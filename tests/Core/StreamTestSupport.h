#pragma once

// Helpers shared by the stream tests.

#include "Core/CError.h"
#include "Core/COutputStream.h"
#include "Core/CPosStream.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace qel::test {

using Bytes = std::vector<uint8_t>;

// The message line of an error, or "<no error>".
inline std::string message(const CErrorPtr& error)
{
    return error ? error->line(0).toUtf8() : "<no error>";
}

inline int64_t positionOf(CPosStream& stream)
{
    int64_t position = -1;
    EXPECT_FALSE(stream.getPosition(position));
    return position;
}

// Collects what is written, independently of the project's own memory sink.
struct VectorSink : COutputStream
{
    CErrorPtr write(const void* buffer, size_t count) override
    {
        const auto* p = static_cast<const uint8_t*>(buffer);
        bytes.insert(bytes.end(), p, p + count);
        return nullptr;
    }
    Bytes bytes;
};

} // namespace qel::test
