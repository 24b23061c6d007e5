#pragma once

#include "pluginterfaces/base/funknown.h"

#include <atomic>

namespace qel {

// Reference counting and interface lookup for the objects a host hands to a plug-in. An
// object starts with one reference, owned by whoever made it, and deletes itself when the
// last one goes, so a plug-in that keeps a reference past the host's own use still holds a
// valid object. `First` is what a query for FUnknown answers with.
//
// The interfaces have no virtual destructor by design (an object is only ever freed by its
// own release), which the warning about polymorphic bases can't know.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
template <class First, class... Rest>
class CVst3Object : public First, public Rest...
{
public:
    CVst3Object() = default;
    CVst3Object(const CVst3Object&) = delete;
    CVst3Object& operator=(const CVst3Object&) = delete;
    virtual ~CVst3Object() = default;

    Steinberg::tresult PLUGIN_API queryInterface(const Steinberg::TUID queried, void** obj) override
    {
        if (!obj)
            return Steinberg::kInvalidArgument;
        if (Steinberg::FUnknownPrivate::iidEqual(queried, Steinberg::FUnknown::iid.toTUID())) {
            *obj = static_cast<First*>(this);
            addRef();
            return Steinberg::kResultOk;
        }
        if (findInterface<First, Rest...>(queried, obj)) {
            addRef();
            return Steinberg::kResultOk;
        }
        *obj = nullptr;
        return Steinberg::kNoInterface;
    }

    Steinberg::uint32 PLUGIN_API addRef() override { return ++m_refCount; }

    Steinberg::uint32 PLUGIN_API release() override
    {
        const Steinberg::uint32 left = --m_refCount;
        if (left == 0)
            delete this;
        return left;
    }

    // References held now; a test compares it before and after the plug-in had the object
    // to see that every reference taken was given back.
    Steinberg::uint32 referenceCount() const { return m_refCount.load(); }

private:
    template <class I, class... More>
    bool findInterface(const Steinberg::TUID queried, void** obj)
    {
        if (Steinberg::FUnknownPrivate::iidEqual(queried, I::iid.toTUID())) {
            *obj = static_cast<I*>(this);
            return true;
        }
        if constexpr (sizeof...(More) > 0)
            return findInterface<More...>(queried, obj);
        else
            return false;
    }

    std::atomic<Steinberg::uint32> m_refCount{1};
};
#pragma GCC diagnostic pop

} // namespace qel
