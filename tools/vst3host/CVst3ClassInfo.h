#pragma once

#include "pluginterfaces/base/funknown.h"

#include <cstring>
#include <string>

namespace qel {

// What a factory says about one of its classes: the first-generation fields, and the
// second-generation ones where the factory has them (empty otherwise).
struct CVst3ClassInfo
{
    Steinberg::TUID cid = {};
    std::string category;
    std::string name;
    Steinberg::int32 cardinality = 0;
    std::string subCategories;
    std::string vendor;
    std::string version;
    std::string sdkVersion;
    Steinberg::uint32 classFlags = 0;

    // 32 hexadecimal digits in the order of the bytes.
    std::string cidText() const
    {
        static const char kDigits[] = "0123456789ABCDEF";
        std::string text;
        for (char byte : cid) {
            const unsigned value = static_cast<unsigned char>(byte);
            text += kDigits[value >> 4];
            text += kDigits[value & 15];
        }
        return text;
    }
};

// What a factory says about itself.
struct CVst3FactoryInfo
{
    std::string vendor;
    std::string url;
    std::string email;
    Steinberg::int32 flags = 0;
};

} // namespace qel
