#pragma once

namespace qel {

// Marker base of nearly every class with virtual operations. It gives them a common,
// virtual destructor, so an owner can delete any of them through this base.
class CCheckedObject
{
public:
    CCheckedObject() = default;
    CCheckedObject(const CCheckedObject&) = default;
    CCheckedObject& operator=(const CCheckedObject&) = default;
    virtual ~CCheckedObject() = default;
};

} // namespace qel
