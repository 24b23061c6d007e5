#pragma once

// What the product's factory bank and master preset are known to hold, written out by
// hand: the tests read the compiled data against these lists, not against itself.

#include <cstdint>
#include <string>
#include <vector>

namespace qel::test {

inline const char* const kFactoryNames[] = {"Default",         "Smoother Master", "Old School", "EDM Smiley Face",
                                            "Acoustic Guitar", "Drum Bus",        "Fuller Bass", "Nice Vocals"};
constexpr int32_t kFullerBass = 6;

// Every stored or persistent parameter of the master preset, in key order.
inline const std::vector<std::string> kMasterKeys = {
    "bypass-enable",           "groupsel",
    "instance-name",           "io-params.channel-group-solo",
    "io-params.group-names",   "io-params.grouping",
    "io-params.in-channel-names", "io-params.in-routing",
    "io-params.out-routing",   "io-params.show-all-channels",
    "modDLC73.eq-params.bw",   "modDLC73.eq-params.freq",
    "modDLC73.eq-params.gain", "modDLC73.eq-params.mode",
    "modDLC73.eq-params.prevmode", "modDLC73.outgain",
    "oversampling",            "preset-name"};

} // namespace qel::test
