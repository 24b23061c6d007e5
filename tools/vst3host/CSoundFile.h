#pragma once

#include "CHostSignal.h"
#include "Core/CError.h"

#include <string>

namespace qel {

// Sound files through libsndfile: any format it reads, at the file's rate and channel
// count; written as 32-bit float WAV, so levels above full scale survive.
class CSoundFile
{
public:
    static CErrorPtr read(const std::string& path, CHostSignal& signal);
    static CErrorPtr writeFloatWav(const std::string& path, const CHostSignal& signal);
};

} // namespace qel
